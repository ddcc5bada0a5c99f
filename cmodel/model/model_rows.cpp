// Frames that come and go row by row.
#include <algorithm>
#include <cstring>
#include <new>

#include "model.h"

using namespace cm;

// A frame between its begin and its last pull. What was pushed and what is kept lies in planes of its own,
// whole, so that no call after the begin can lack memory.
class RowFrame {
  public:
    RowFrame(int number, RowFrame* older) : number_(number), next_(older) {}

    // 0, or a failure.
    int open(cmodel& m, const cmodel_frame& frame);
    int push(cmodel& m, int input, const cmodel_plane& row);
    int pull(cmodel& m, int stage, const char* name, const cmodel_plane& row);

    int number() const { return number_; }
    RowFrame*& next() { return next_; }
    // Rows of a kept stage that are made and not yet pulled; kPlanes is the output. Negative: it is not kept.
    int ready(int stage) const {
        const Kept& kept = kept_[stage];
        return kept.samples == nullptr ? -1 : kept.rows.made - kept.pulled;
    }
    bool all_pulled() const;
    // The first input that still lacks rows, or -1; how many it has.
    int find_incomplete(int& rows) const;
    int height() const { return frame_.height; }

  private:
    // Counts the rows that a stage was given.
    class KeptRows : public RowSink {
      public:
        void open(const cmodel_plane& plane) { array_.emplace(plane, 0, plane.width); }
        void put(int y, const int32_t* row) override { take(y, row); }
        void put(int y, const int16_t* row) override { take(y, row); }
        int made = 0;

      private:
        template <typename T>
        void take(int y, const T* row) {
            array_->put(y, row);
            made = y + 1;
        }
        std::optional<ArraySink> array_;
    };
    struct Kept {
        int32_t* samples = nullptr;
        KeptRows rows;
        int pulled = 0;
    };
    struct Pushed {
        cmodel_plane plane;
        std::optional<ArraySource> source;
        int rows = 0;
    };

    int fail_for_memory(cmodel& m) const {
        return m.fail(CMODEL_NO_MEMORY, "no memory for a frame of %dx%d", frame_.width, frame_.height);
    }
    bool comes(int input) const;
    cmodel_plane take_plane(int width, int depth);
    int keep(cmodel& m, int stage);
    void run_ready_rows();
    // Whether the input has all that step y reads of it.
    bool has_rows(int input, int step) const;

    int number_;
    RowFrame* next_;
    cmodel_frame frame_ = {};
    bool on_ = false;
    bool classic_ = false;
    bool uses_fusion_ = false;
    Memory memory_;
    ConfiguredPipeline pipeline_;
    RunPlanes planes_;
    Pushed pushed_[kBindings];
    std::optional<ColourSource> converted_[3];
    std::optional<ConstantSource> still_;
    Kept kept_[kPlanes + 1];
    RowPipeline<int32_t>* rows_ = nullptr;
};

bool RowFrame::comes(int input) const {
    switch (input) {
        case kRed:
        case kGreen:
        case kBlue:
            return frame_.has_colours != 0;
        case index_of(Plane::ynr):
            return frame_.has_ynr != 0;
        case index_of(Plane::mmap):
            return frame_.has_mmap != 0;
        case index_of(Plane::yfusion):
            return frame_.yfusion_depth != 0;
        default:
            return frame_.has_colours == 0;
    }
}

// Not cleared; without samples when there is no memory.
cmodel_plane RowFrame::take_plane(int width, int depth) {
    constexpr ptrdiff_t kStep = sizeof(int32_t);
    const size_t samples = static_cast<size_t>(width) * static_cast<size_t>(frame_.height);
    return {memory_.take<int32_t>(samples), CMODEL_S32, width, frame_.height, kStep * width, kStep, depth};
}

int RowFrame::keep(cmodel& m, int stage) {
    const cmodel_plane plane = take_plane(frame_.width, 0);
    if (plane.data == nullptr) {
        return fail_for_memory(m);
    }
    kept_[stage].samples = static_cast<int32_t*>(plane.data);
    kept_[stage].rows.open(plane);
    (stage == kPlanes ? planes_.output : planes_.wanted[stage]) = &kept_[stage].rows;
    return 0;
}

int RowFrame::open(cmodel& m, const cmodel_frame& frame) {
    constexpr int kMostSide = 1 << 30;
    if (frame.width < 1 || frame.height < 1 || frame.width > kMostSide || frame.height > kMostSide) {
        return m.fail(CMODEL_BAD_ARGUMENT, "a frame of %dx%d cannot be", frame.width, frame.height);
    }
    frame_ = frame;
    frame_.y_depth = frame.has_colours != 0 ? 8 : frame.y_depth;
    const auto check_depth = [&](Plane plane, int depth) {
        const DepthRange takes = depths_of_input(index_of(plane));
        return depth >= takes.least && depth <= takes.greatest
                   ? 0
                   : m.fail(CMODEL_BAD_ARGUMENT, "%s has %d bits; it takes %d to %d", row_of(plane).name,
                            depth, takes.least, takes.greatest);
    };
    if (check_depth(Plane::y, frame_.y_depth) < 0 ||
        (frame_.yfusion_depth != 0 && check_depth(Plane::yfusion, frame_.yfusion_depth) < 0)) {
        return CMODEL_BAD_ARGUMENT;
    }
    on_ = m.registers[reg_ee_enable] == 1;
    classic_ = m.pipeline == &kClassicEe;
    const Variant variant = variant_of(*m.pipeline, m.registers);
    uses_fusion_ = on_ && variant == kTexture;
    if (frame_.has_ynr == 0 && frame_.y_depth != 8 && (on_ || classic_)) {
        return m.fail(CMODEL_NOT_READY, "luma of more than 8 bits cannot be sharpened itself: ynr must come");
    }
    if (uses_fusion_ && frame_.yfusion_depth == 0) {
        return m.fail(CMODEL_NOT_READY,
                      "texture mode 1 needs yfusion: let it come or set reg_ee_texture_mode to 0");
    }

    for (int i = 0; i < kBindings; ++i) {
        if (!comes(i)) {
            continue;
        }
        const bool half = i == index_of(Plane::cb) || i == index_of(Plane::cr);
        const int depth = i == index_of(Plane::y)         ? frame_.y_depth
                          : i == index_of(Plane::yfusion) ? frame_.yfusion_depth
                                                          : 8;
        pushed_[i].plane = take_plane(half ? half_up(frame_.width) : frame_.width, depth);
        pushed_[i].source.emplace(pushed_[i].plane);
        if (i < kInputs) {
            planes_.input[i] = &*pushed_[i].source;
        }
    }
    for (int i = 0; i < 3 && frame_.has_colours != 0; ++i) {
        planes_.input[i] =
            &converted_[i].emplace(*pushed_[kRed].source, *pushed_[kGreen].source, *pushed_[kBlue].source,
                                   static_cast<ColourSource::Component>(i), i == 0 ? 1 : 2);
    }
    if (frame_.has_ynr == 0) {
        planes_.input[index_of(Plane::ynr)] = planes_.input[index_of(Plane::y)];
    }
    if (frame_.has_mmap == 0) {
        planes_.input[index_of(Plane::mmap)] = &still_.emplace(frame_.width, frame_.height, 8, 0);
    }
    for (int i = 0; i <= kPlanes; ++i) {
        if (i == kPlanes ? !m.keeps_output : !m.keeps[i]) {
            continue;
        }
        if (i < kPlanes && (!on_ || find_writer(static_cast<Plane>(i), variant) == nullptr)) {
            return on_ ? m.fail(CMODEL_NOT_READY,
                                "rows of %s are to be kept, but texture mode %d does not make it",
                                kPlaneTable[i].name, static_cast<int>(m.registers[reg_ee_texture_mode]))
                       : m.fail(CMODEL_NOT_READY,
                                "rows of %s are to be kept, but the block is off and makes none",
                                kPlaneTable[i].name);
        }
        if (const int status = keep(m, i); status < 0) {
            return status;
        }
    }
    const size_t pixels = static_cast<size_t>(frame_.width) * static_cast<size_t>(frame_.height);
    if (on_ && !pipeline_.configure(*m.pipeline, m.registers, frame_.y_depth,
                                    frame_.yfusion_depth != 0 ? frame_.yfusion_depth : 8, pixels)) {
        return fail_for_memory(m);
    }
    if (on_) {
        rows_ = memory_.take<RowPipeline<int32_t>>(1);
        if (rows_ != nullptr) {
            new (rows_) RowPipeline<int32_t>(pipeline_, planes_, frame_.width, frame_.height,
                                             {0, 0, frame_.width, frame_.height}, memory_);
        }
    }
    return memory_.failed() ? fail_for_memory(m) : 0;
}

bool RowFrame::has_rows(int input, int step) const {
    const bool ahead = input == index_of(Plane::y) || input == index_of(Plane::yfusion) || input >= kRed;
    const int64_t last = int64_t{step} + (ahead && on_ ? rows_->look_ahead() : 0);
    return pushed_[input].rows > std::min<int64_t>(last, frame_.height - 1);
}

void RowFrame::run_ready_rows() {
    const auto all_have_rows = [&](int step) {
        for (int i = 0; i < kBindings; ++i) {
            const bool used = i != index_of(Plane::yfusion) || uses_fusion_;
            if (comes(i) && used && !has_rows(i, step)) {
                return false;
            }
        }
        return true;
    };
    if (on_) {
        while (rows_->next_advance() < frame_.height && all_have_rows(rows_->next_advance())) {
            rows_->advance();
        }
        return;
    }
    // The block is off: a copy.
    Kept& out = kept_[kPlanes];
    const RowSource& from = *planes_.input[index_of(classic_ ? Plane::ynr : Plane::y)];
    while (out.samples != nullptr && out.rows.made < frame_.height && all_have_rows(out.rows.made)) {
        const size_t at = static_cast<size_t>(out.rows.made) * static_cast<size_t>(frame_.width);
        from.read(out.rows.made, 0, frame_.width, out.samples + at);
        ++out.rows.made;
    }
}

int RowFrame::push(cmodel& m, int input, const cmodel_plane& row) {
    const char* const name = name_of_input(input);
    if (!comes(input)) {
        return m.fail(CMODEL_BAD_ARGUMENT, "frame %d was begun without %s", number_, name);
    }
    Pushed& to = pushed_[input];
    if (row.width != to.plane.width) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: a row has %d samples, not %d", name, to.plane.width,
                      row.width);
    }
    if (to.rows == frame_.height) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: frame %d has all its %d rows", name, number_, frame_.height);
    }
    int32_t* const samples = static_cast<int32_t*>(to.plane.data);
    const size_t at = static_cast<size_t>(to.rows) * static_cast<size_t>(to.plane.width);
    ArraySource(row).read(0, 0, to.plane.width, samples + at);
    ++to.rows;
    run_ready_rows();
    return 0;
}

int RowFrame::pull(cmodel& m, int stage, const char* name, const cmodel_plane& row) {
    if (row.width != frame_.width) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: a row has %d samples, not %d", name, frame_.width, row.width);
    }
    const bool is_output = stage == kPlanes;
    const int64_t least = is_output ? 0 : kPlaneTable[stage].least;
    const int64_t greatest = !is_output        ? kPlaneTable[stage].greatest
                             : on_ || classic_ ? 255
                                               : (int64_t{1} << frame_.y_depth) - 1;
    if (!type_holds(row.type, least, greatest)) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: the type does not hold %lld..%lld", name,
                      static_cast<long long>(least), static_cast<long long>(greatest));
    }
    if (ready(stage) <= 0) {
        return m.fail(CMODEL_NOT_READY, "%s: frame %d has no row ready", name, number_);
    }
    Kept& kept = kept_[stage];
    const int32_t* const samples =
        kept.samples + static_cast<size_t>(kept.pulled) * static_cast<size_t>(frame_.width);
    const auto [low, high] = std::minmax_element(samples, samples + frame_.width);
    if (!type_holds(row.type, *low, *high)) {
        return m.fail(CMODEL_BAD_ARGUMENT,
                      "%s: row %d has values of %d..%d, which the type does not hold; an input has samples "
                      "beyond its depth",
                      name, kept.pulled, *low, *high);
    }
    ArraySink(row, 0, row.width).put(0, samples);
    return kept.pulled++;
}

bool RowFrame::all_pulled() const {
    for (const Kept& kept : kept_) {
        if (kept.samples != nullptr && kept.pulled < frame_.height) {
            return false;
        }
    }
    int rows;
    return find_incomplete(rows) < 0;
}

int RowFrame::find_incomplete(int& rows) const {
    for (int i = 0; i < kBindings; ++i) {
        if (comes(i) && pushed_[i].rows < frame_.height) {
            rows = pushed_[i].rows;
            return i;
        }
    }
    return -1;
}

namespace {

// The link that leads to a frame; to null when there is none of that number.
RowFrame*& find_frame(cmodel& m, int number) {
    RowFrame** link = &m.frames;
    while (*link != nullptr && (*link)->number() != number) {
        link = &(*link)->next();
    }
    return *link;
}

void drop(RowFrame*& link) {
    RowFrame* const frame = link;
    link = frame->next();
    delete frame;
}

// A row of the caller's.
int check_row(cmodel& m, const char* name, const void* samples, int type) {
    if (samples == nullptr) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: no samples", name);
    }
    return bytes_of_type(type) != 0
               ? 0
               : m.fail(CMODEL_BAD_ARGUMENT, "%s: there is no sample type %d", name, type);
}

// The stage's plane, kPlanes for the output; negative after a failure.
int find_kept(cmodel& m, const char* name) {
    if (name == nullptr) {
        return m.fail(CMODEL_BAD_ARGUMENT, "no name of a stage");
    }
    const int stage = std::strcmp(name, "output") == 0 ? kPlanes : find_stage(*m.pipeline, name);
    return stage >= 0 ? stage
                      : m.fail(CMODEL_BAD_ARGUMENT, "pipeline %s has no stage %.60s", m.pipeline->name, name);
}

// The frame and its kept stage; a failure when there is no such frame or it does not keep the stage.
int find_rows(cmodel& m, int number, const char* name, RowFrame**& link, int& stage) {
    stage = find_kept(m, name);
    if (stage < 0) {
        return stage;
    }
    link = &find_frame(m, number);
    if (*link == nullptr) {
        return m.fail(CMODEL_BAD_ARGUMENT,
                      "there is no frame %d; it was never begun, dropped or pulled to its end", number);
    }
    return (*link)->ready(stage) >= 0
               ? 0
               : m.fail(CMODEL_BAD_ARGUMENT, "frame %d does not keep %s", number, name);
}

}  // namespace

cmodel::~cmodel() {
    while (frames != nullptr) {
        drop(frames);
    }
}

int cmodel_keep_rows(cmodel* model, const char* stage, int keep) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    const int kept = find_kept(*model, stage);
    if (kept < 0) {
        return kept;
    }
    (kept == kPlanes ? model->keeps_output : model->keeps[kept]) = keep != 0;
    return 0;
}

int cmodel_begin(cmodel* model, const cmodel_frame* frame) {
    if (model == nullptr || frame == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT : model->fail(CMODEL_BAD_ARGUMENT, "no frame to begin");
    }
    int rows = 0;
    const int incomplete = model->frames != nullptr ? model->frames->find_incomplete(rows) : -1;
    if (incomplete >= 0) {
        return model->fail(CMODEL_NOT_READY, "frame %d has %d of %d rows of %s; push the rest or drop it",
                           model->frames->number(), rows, model->frames->height(), name_of_input(incomplete));
    }
    RowFrame* const begun = new (std::nothrow) RowFrame(model->frames_begun + 1, model->frames);
    if (begun == nullptr) {
        return model->fail(CMODEL_NO_MEMORY, "no memory for a frame");
    }
    if (const int status = begun->open(*model, *frame); status < 0) {
        delete begun;
        return status;
    }
    model->frames = begun;
    return ++model->frames_begun;
}

int cmodel_push(cmodel* model, const char* input, const void* samples, int count, int type, ptrdiff_t step) {
    if (model == nullptr || input == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "no name of an input");
    }
    const int i = find_input(input);
    if (i < 0) {
        return model->fail(CMODEL_BAD_ARGUMENT, "there is no input %.60s", input);
    }
    if (model->frames == nullptr) {
        return model->fail(CMODEL_NOT_READY, "no frame was begun");
    }
    if (const int status = check_row(*model, input, samples, type); status < 0) {
        return status;
    }
    const cmodel_plane row{const_cast<void*>(samples), type, count, 1, 0, step, 0};
    const int status = model->frames->push(*model, i, row);
    if (status == 0 && model->frames->all_pulled()) {  // it keeps nothing
        drop(model->frames);
    }
    return status;
}

int cmodel_ready(cmodel* model, int frame, const char* stage) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    RowFrame** link = nullptr;
    int kept = 0;
    const int status = find_rows(*model, frame, stage, link, kept);
    return status < 0 ? status : (*link)->ready(kept);
}

int cmodel_pull(cmodel* model, int frame, const char* stage, void* samples, int count, int type,
                ptrdiff_t step) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    RowFrame** link = nullptr;
    int kept = 0;
    if (const int status = find_rows(*model, frame, stage, link, kept); status < 0) {
        return status;
    }
    if (const int status = check_row(*model, stage, samples, type); status < 0) {
        return status;
    }
    const int bytes = bytes_of_type(type);
    if (count > 1 && step > -bytes && step < bytes) {
        return model->fail(CMODEL_BAD_ARGUMENT, "%s: samples %td bytes apart overlap", stage, step);
    }
    const int y = (*link)->pull(*model, kept, stage, {samples, type, count, 1, 0, step, 0});
    if (y >= 0 && (*link)->all_pulled()) {
        drop(*link);
    }
    return y;
}

int cmodel_drop(cmodel* model, int frame) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    RowFrame*& link = find_frame(*model, frame);
    if (link == nullptr) {
        return model->fail(CMODEL_BAD_ARGUMENT, "there is no frame %d", frame);
    }
    drop(link);
    return 0;
}

int cmodel_look_ahead(cmodel* model) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    return model->registers[reg_ee_enable] == 1
               ? look_ahead_of(Plane::sharpened, variant_of(*model->pipeline, model->registers))
               : 0;
}
