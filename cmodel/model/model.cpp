// The model object: what is bound to it, and its runs.
#include "model.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

using namespace cm;

struct ByteRange {
    uintptr_t first, last;
};

ByteRange bytes_of(const cmodel_plane& p) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(p.data);
    const ptrdiff_t along = p.step * (p.width - 1);
    const ptrdiff_t down = p.row_stride * (p.height - 1);
    const ptrdiff_t low = std::min<ptrdiff_t>(along, 0) + std::min<ptrdiff_t>(down, 0);
    const ptrdiff_t high = std::max<ptrdiff_t>(along, 0) + std::max<ptrdiff_t>(down, 0);
    return {at + static_cast<uintptr_t>(low), at + static_cast<uintptr_t>(high + bytes_of_type(p.type) - 1)};
}

// What no plane may be, whatever it is for.
int check_plane(cmodel& m, const char* name, const cmodel_plane& p) {
    if (p.data == nullptr) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: no samples (data is null)", name);
    }
    if (bytes_of_type(p.type) == 0) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: there is no sample type %d", name, p.type);
    }
    constexpr int kMostSide = 1 << 30;
    if (p.width < 1 || p.height < 1 || p.width > kMostSide || p.height > kMostSide) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: a plane of %dx%d cannot be", name, p.width, p.height);
    }
    ptrdiff_t along, down;
    const bool spans = !__builtin_mul_overflow(p.step, ptrdiff_t{p.width}, &along) &&
                       !__builtin_mul_overflow(p.row_stride, ptrdiff_t{p.height}, &down);
    constexpr ptrdiff_t kFarthest = PTRDIFF_MAX / 4;
    if (!spans || std::max(along, down) > kFarthest || std::min(along, down) < -kFarthest ||
        bytes_of(p).last < bytes_of(p).first) {
        return m.fail(CMODEL_BAD_ARGUMENT,
                      "%s: %dx%d samples, %td bytes apart in rows %td bytes apart, lie beyond memory", name,
                      p.width, p.height, p.step, p.row_stride);
    }
    return 0;
}

// Samples that lie on each other would be written over.
int check_written_plane(cmodel& m, const char* name, const cmodel_plane& p) {
    const ptrdiff_t step = p.step < 0 ? -p.step : p.step;
    const ptrdiff_t stride = p.row_stride < 0 ? -p.row_stride : p.row_stride;
    const ptrdiff_t bytes = bytes_of_type(p.type);
    const ptrdiff_t row = step * (p.width - 1) + bytes;
    const ptrdiff_t column = stride * (p.height - 1) + bytes;
    const bool along_fits = p.width == 1 || step >= bytes;
    const bool down_fits =
        p.height == 1 || stride >= row || (stride >= bytes && (p.width == 1 || step >= column));
    if (!along_fits || !down_fits) {
        return m.fail(CMODEL_BAD_ARGUMENT, "%s: samples %td bytes apart in rows %td bytes apart overlap",
                      name, p.step, p.row_stride);
    }
    return 0;
}

// A plane's rows, or its columns, as runs of samples: `bytes` of every `step`, over `length`, again and again
// after `period`.
struct Runs {
    ptrdiff_t bytes, step, length, period;
};

Runs runs_of(const cmodel_plane& p, bool columns) {
    const ptrdiff_t bytes = bytes_of_type(p.type);
    const ptrdiff_t along = p.width > 1 ? std::abs(p.step) : 0;
    const ptrdiff_t down = p.height > 1 ? std::abs(p.row_stride) : 0;
    return columns ? Runs{bytes, down, down * (p.height - 1) + bytes, along}
                   : Runs{bytes, along, along * (p.width - 1) + bytes, down};
}

// Whether runs that begin `offset` bytes behind others lie between those, or sample by sample between theirs.
bool alternate(const Runs& first, const Runs& second, ptrdiff_t offset) {
    if (first.period == 0 || first.period != second.period || first.length > first.period) {
        return false;
    }
    const ptrdiff_t behind = (offset % first.period + first.period) % first.period;
    const bool between = first.step > 0 && first.step == second.step && behind % first.step >= first.bytes &&
                         behind % first.step + second.bytes <= first.step;
    return behind + second.length <= first.period && (behind >= first.length || between);
}

// Whether two planes may share a byte. Channels of one interleaved picture do not, nor do parts of a picture
// side by side.
bool overlap(const cmodel_plane& a, const cmodel_plane& b) {
    const ByteRange ra = bytes_of(a), rb = bytes_of(b);
    if (ra.last < rb.first || rb.last < ra.first) {
        return false;
    }
    const ptrdiff_t offset = static_cast<ptrdiff_t>(rb.first - ra.first);
    bool apart = false;
    for (const bool columns : {false, true}) {
        const Runs of_a = runs_of(a, columns), of_b = runs_of(b, columns);
        apart = apart || alternate(of_a, of_b, offset) || alternate(of_b, of_a, -offset);
    }
    return !apart;
}

// The planes of one run as rows, and what is missing for it.
class Run {
  public:
    Run(cmodel& model, const Area* area) : m_(model), asked_(area) {}

    int go() {
        for (const auto check :
             {&Run::check_inputs, &Run::check_output, &Run::check_stages, &Run::check_overlaps}) {
            if (const int status = (this->*check)(); status < 0) {
                return status;
            }
        }
        return is_on() ? run_blocks() : copy();
    }

  private:
    bool is_on() const { return m_.registers[reg_ee_enable] == 1; }
    bool classic() const { return m_.pipeline == &kClassicEe; }
    const std::optional<cmodel_plane>& bound(Plane plane) const { return m_.input[index_of(plane)]; }
    const RowSource* source(Plane plane) const { return planes_.input[index_of(plane)]; }

    int fail_unbound(const char* name, const char* why = "") {
        return m_.fail(CMODEL_NOT_READY, "input %s is not bound%s", name, why);
    }

    int check_inputs() {
        const bool colour = m_.input[kRed] || m_.input[kGreen] || m_.input[kBlue];
        if (colour && (bound(Plane::y) || bound(Plane::cb) || bound(Plane::cr))) {
            return m_.fail(CMODEL_NOT_READY,
                           "inputs y, cb, cr and red, green, blue are bound; one or the other");
        }
        for (int i = 0; i < kBindings; ++i) {
            if (m_.input[i]) {
                arrays_[i].emplace(*m_.input[i]);
                if (i < kInputs) {
                    planes_.input[i] = &*arrays_[i];
                }
            }
        }
        if (const int status = colour ? take_colours() : take_planes(); status < 0) {
            return status;
        }
        const RowSource& y = *source(Plane::y);
        width_ = y.width();
        height_ = y.height();
        area_ = asked_ != nullptr ? *asked_ : Area{0, 0, width_, height_};
        if (area_.x < 0 || area_.y < 0 || area_.width < 1 || area_.height < 1 ||
            area_.x > width_ - area_.width || area_.y > height_ - area_.height) {
            return m_.fail(CMODEL_BAD_ARGUMENT,
                           "a rectangle of %dx%d at (%d, %d) does not lie in a frame of %dx%d", area_.width,
                           area_.height, area_.x, area_.y, width_, height_);
        }
        if (source(Plane::ynr) == nullptr) {
            if (y.depth() != 8 && (is_on() || classic())) {
                return fail_unbound("ynr", "; luma of more than 8 bits cannot be sharpened itself");
            }
            planes_.input[index_of(Plane::ynr)] = &y;
        }
        if (source(Plane::mmap) == nullptr) {
            planes_.input[index_of(Plane::mmap)] = &still_.emplace(width_, height_, 8, 0);
        }
        const bool texture = is_on() && variant_of(*m_.pipeline, m_.registers) == kTexture;
        if (texture && source(Plane::yfusion) == nullptr) {
            return fail_unbound("yfusion",
                                "; texture mode 1 needs it: bind it or set reg_ee_texture_mode to 0");
        }
        for (const Plane plane : {Plane::ynr, Plane::mmap, Plane::yfusion}) {
            const RowSource* const own = source(plane);
            if (own != nullptr && (plane != Plane::yfusion || texture) &&
                !has_luma_size(own->width(), own->height())) {
                return fail_size(row_of(plane).name, own->width(), own->height());
            }
        }
        return 0;
    }

    int take_planes() {
        for (const Plane plane : {Plane::y, Plane::cb, Plane::cr}) {
            if (source(plane) == nullptr) {
                return fail_unbound(row_of(plane).name);
            }
        }
        const RowSource& y = *source(Plane::y);
        for (const Plane plane : {Plane::cb, Plane::cr}) {
            const RowSource& chroma = *source(plane);
            const bool half = chroma.width() == y.width() / 2 || chroma.width() == half_up(y.width());
            if (!half || chroma.height() != y.height()) {
                return m_.fail(CMODEL_NOT_READY, "y is %dx%d but %s is %dx%d; it must be half as wide",
                               y.width(), y.height(), row_of(plane).name, chroma.width(), chroma.height());
            }
        }
        return 0;
    }

    int take_colours() {
        for (const int i : {kRed, kGreen, kBlue}) {
            if (!arrays_[i]) {
                return fail_unbound(name_of_input(i));
            }
            if (arrays_[i]->width() != arrays_[kRed]->width() ||
                arrays_[i]->height() != arrays_[kRed]->height()) {
                return m_.fail(CMODEL_NOT_READY, "red is %dx%d but %s is %dx%d; they must have the same size",
                               arrays_[kRed]->width(), arrays_[kRed]->height(), name_of_input(i),
                               arrays_[i]->width(), arrays_[i]->height());
            }
        }
        for (int i = 0; i < 3; ++i) {
            converted_[i].emplace(*arrays_[kRed], *arrays_[kGreen], *arrays_[kBlue],
                                  static_cast<ColourSource::Component>(i), i == 0 ? 1 : 2);
            planes_.input[i] = &*converted_[i];
        }
        return 0;
    }

    bool has_luma_size(int width, int height) const { return width == width_ && height == height_; }

    int fail_size(const char* name, int width, int height) {
        return m_.fail(CMODEL_NOT_READY, "y is %dx%d but %s is %dx%d; they must have the same size", width_,
                       height_, name, width, height);
    }

    int check_output() {
        if (!m_.output) {
            const bool any = std::any_of(std::begin(m_.stage), std::end(m_.stage),
                                         [](const auto& s) { return s.has_value(); });
            return any ? 0 : m_.fail(CMODEL_NOT_READY, "neither an output nor a stage is bound");
        }
        if (!has_luma_size(m_.output->width, m_.output->height)) {
            return fail_size("the output", m_.output->width, m_.output->height);
        }
        const int depth = is_on() || classic() ? 8 : source(Plane::y)->depth();
        if (!type_holds(m_.output->type, 0, (int64_t{1} << depth) - 1)) {
            return m_.fail(CMODEL_NOT_READY, "the output's type does not hold %d bits", depth);
        }
        return 0;
    }

    // Inputs among them are cmodel_explain's, which has nothing to check.
    int check_stages() {
        for (int i = kInputs; i < kPlanes; ++i) {
            if (!m_.stage[i]) {
                continue;
            }
            const char* const name = kPlaneTable[i].name;
            if (!is_on()) {
                return m_.fail(CMODEL_NOT_READY,
                               "stage %s is bound, but the block is off (reg_ee_enable = 0) and makes none",
                               name);
            }
            if (find_writer(static_cast<Plane>(i), variant_of(*m_.pipeline, m_.registers)) == nullptr) {
                return m_.fail(CMODEL_NOT_READY, "stage %s is bound, but texture mode %d does not make it",
                               name, static_cast<int>(m_.registers[reg_ee_texture_mode]));
            }
            if (!has_luma_size(m_.stage[i]->width, m_.stage[i]->height)) {
                return fail_size(name, m_.stage[i]->width, m_.stage[i]->height);
            }
        }
        return 0;
    }

    // What is written may overlap nothing else.
    int check_overlaps() {
        for (int w = -1; w < kPlanes; ++w) {
            const std::optional<cmodel_plane>& written = w < 0 ? m_.output : m_.stage[w];
            const char* const name = w < 0 ? "the output" : kPlaneTable[w].name;
            for (int i = 0; written && i < kBindings; ++i) {
                if (m_.input[i] && overlap(*written, *m_.input[i])) {
                    return m_.fail(CMODEL_NOT_READY, "%s overlaps input %s", name, name_of_input(i));
                }
            }
            for (int other = w + 1; written && other < kPlanes; ++other) {
                if (m_.stage[other] && overlap(*written, *m_.stage[other])) {
                    return m_.fail(CMODEL_NOT_READY, "%s overlaps stage %s", name, kPlaneTable[other].name);
                }
            }
        }
        return 0;
    }

    // The block is off: luma, or in the classic pipeline what would be sharpened, goes out as it is.
    int copy() {
        const RowSource& from = *source(classic() ? Plane::ynr : Plane::y);
        ArraySink& sink = sinks_[kPlanes].emplace(*m_.output, area_.x, area_.width);
        m_.memory.reset();
        int32_t* const row = m_.memory.take<int32_t>(static_cast<size_t>(area_.width));
        if (row == nullptr) {
            return fail_for_memory();
        }
        for (int y = area_.y; y < area_.y + area_.height; ++y) {
            from.read(y, area_.x, area_.width, row);
            sink.put(y, row);
        }
        return check_lost();
    }

    int fail_for_memory() {
        return m_.fail(CMODEL_NO_MEMORY, "no memory for rows of %d samples", area_.width);
    }

    int run_blocks() {
        const RowSource* const fusion = source(Plane::yfusion);
        const size_t now = static_cast<size_t>(area_.width) * static_cast<size_t>(area_.height);
        if (!m_.configured.configure(*m_.pipeline, m_.registers, source(Plane::y)->depth(),
                                     fusion != nullptr ? fusion->depth() : 8, m_.pixels + now)) {
            return fail_for_memory();
        }
        if (m_.output) {
            planes_.output = &sinks_[kPlanes].emplace(*m_.output, area_.x, area_.width);
        }
        for (int i = 0; i < kPlanes; ++i) {
            if (m_.stage[i]) {
                planes_.wanted[i] = &sinks_[i].emplace(*m_.stage[i], area_.x, area_.width);
            }
        }
        m_.memory.reset();
        const bool narrow = fits_narrow(m_.configured, planes_,
                                        region_around(area_, width_, height_, m_.configured.variant()));
        const int status = narrow ? run_rows<int16_t>() : run_rows<int32_t>();
        if (status == 0) {
            m_.pixels += now;
        }
        return status < 0 ? status : check_lost();
    }

    template <typename T>
    int run_rows() {
        RowPipeline<T>* const rows = m_.memory.take<RowPipeline<T>>(1);
        if (rows == nullptr) {
            return fail_for_memory();
        }
        new (rows) RowPipeline<T>(m_.configured, planes_, width_, height_, area_, m_.memory);
        if (m_.memory.failed()) {
            return fail_for_memory();
        }
        rows->run();
        if (m_.log != nullptr) {
            tell(*rows);
        }
        return 0;
    }

    // The blocks' records, one by one, to whoever listens.
    template <typename T>
    void tell(const RowPipeline<T>& rows) {
        class Listener : public RecordLog {
          public:
            explicit Listener(const cmodel& model) : m_(model) {}

          private:
            void take(int level, const LogPosition&, const char* fmt, va_list args) override {
                char text[256];
                const int length = std::vsnprintf(text, sizeof text, fmt, args);
                if (length > 0 && length < static_cast<int>(sizeof text) && text[length - 1] == '\n') {
                    text[length - 1] = '\0';
                }
                m_.log(m_.log_user, level, text);
            }
            const cmodel& m_;
        };
        Listener listener(m_);
        for (int i = 0; i < m_.configured.steps(); ++i) {
            const BlockReport report{listener, nullptr, "", rows.events(i), {}, {}};
            m_.configured.step(i).block->report(m_.configured.config(i), report);
        }
    }

    int check_lost() {
        for (int i = 0; i <= kPlanes; ++i) {
            if (sinks_[i] && sinks_[i]->has_lost()) {
                return m_.fail(CMODEL_BAD_ARGUMENT,
                               "%s: a value does not fit the type; an input has samples beyond its depth",
                               i == kPlanes ? "the output" : kPlaneTable[i].name);
            }
        }
        return 0;
    }

    cmodel& m_;
    const Area* asked_;
    Area area_ = {};
    int width_ = 0, height_ = 0;
    RunPlanes planes_;
    std::optional<ArraySource> arrays_[kBindings];
    std::optional<ColourSource> converted_[3];
    std::optional<ConstantSource> still_;
    std::optional<ArraySink> sinks_[kPlanes + 1];  // the last is the output's
};

int bind(std::optional<cmodel_plane>& binding, const cmodel_plane* plane) {
    binding.reset();
    if (plane != nullptr) {
        binding = *plane;
    }
    return 0;
}

}  // namespace

const char* name_of_input(int i) {
    static const char* const kColourNames[] = {"red", "green", "blue"};
    return i < kInputs ? kPlaneTable[i].name : kColourNames[i - kRed];
}

int find_input(const char* name) {
    for (int i = 0; i < kBindings; ++i) {
        if (std::strcmp(name, name_of_input(i)) == 0) {
            return i;
        }
    }
    return -1;
}

int find_stage(const PipelineRow& pipeline, const char* name) {
    for (int i = kInputs; i < kPlanes; ++i) {
        const Plane plane = static_cast<Plane>(i);
        const bool made = &pipeline == &kClassicEe
                              ? find_writer(plane, kClassic) != nullptr
                              : find_writer(plane, kPlain) || find_writer(plane, kTexture);
        if (made && std::strcmp(name, kPlaneTable[i].name) == 0) {
            return i;
        }
    }
    return -1;
}

int cmodel::fail(int status, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(error, sizeof error, fmt, args);
    va_end(args);
    // Names that callers and files gave may hold anything; the text is one line.
    std::replace_if(
        error, error + std::strlen(error), [](unsigned char c) { return c < ' '; }, '?');
    return status;
}

int cmodel_new(const char* pipeline, cmodel** model) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    *model = nullptr;
    const PipelineRow* const row = pipeline != nullptr ? find_pipeline(pipeline) : nullptr;
    if (row == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    *model = new (std::nothrow) cmodel;
    if (*model == nullptr) {
        return CMODEL_NO_MEMORY;
    }
    (*model)->pipeline = row;
    return 0;
}

void cmodel_free(cmodel* model) {
    delete model;
}

const char* cmodel_error(const cmodel* model) {
    return model != nullptr ? model->error : "there is no model";
}

void cmodel_set_log(cmodel* model, void (*log)(void* user, int level, const char* text), void* user) {
    if (model != nullptr) {
        model->log = log;
        model->log_user = user;
    }
}

int cmodel_bind_input(cmodel* model, const char* name, const cmodel_plane* plane) {
    if (model == nullptr || name == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "no name of an input");
    }
    const int i = find_input(name);
    if (i < 0) {
        return model->fail(CMODEL_BAD_ARGUMENT, "there is no input %.60s", name);
    }
    if (plane != nullptr) {
        if (const int status = check_plane(*model, name, *plane); status < 0) {
            return status;
        }
        const DepthRange depth = depths_of_input(i);
        if (plane->depth < depth.least || plane->depth > depth.greatest) {
            return depth.least == depth.greatest
                       ? model->fail(CMODEL_BAD_ARGUMENT, "%s has %d bits; it takes %d", name, plane->depth,
                                     depth.least)
                       : model->fail(CMODEL_BAD_ARGUMENT, "%s has %d bits; it takes %d to %d", name,
                                     plane->depth, depth.least, depth.greatest);
        }
    }
    return bind(model->input[i], plane);
}

int cmodel_bind_output(cmodel* model, const cmodel_plane* plane) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    if (plane != nullptr) {
        if (check_plane(*model, "output", *plane) < 0 || check_written_plane(*model, "output", *plane) < 0) {
            return CMODEL_BAD_ARGUMENT;
        }
        if (!type_holds(plane->type, 0, 255)) {
            return model->fail(CMODEL_BAD_ARGUMENT, "output: its type does not hold 0..255");
        }
    }
    return bind(model->output, plane);
}

int cmodel_bind_stage(cmodel* model, const char* name, const cmodel_plane* plane) {
    if (model == nullptr || name == nullptr) {
        return model == nullptr ? CMODEL_BAD_ARGUMENT
                                : model->fail(CMODEL_BAD_ARGUMENT, "no name of a stage");
    }
    const int i = find_stage(*model->pipeline, name);
    if (i < 0) {
        return model->fail(CMODEL_BAD_ARGUMENT, "pipeline %s has no stage %.60s", model->pipeline->name,
                           name);
    }
    if (plane != nullptr) {
        if (check_plane(*model, name, *plane) < 0 || check_written_plane(*model, name, *plane) < 0) {
            return CMODEL_BAD_ARGUMENT;
        }
        if (!type_holds(plane->type, kPlaneTable[i].least, kPlaneTable[i].greatest)) {
            return model->fail(CMODEL_BAD_ARGUMENT, "%s: its type does not hold %d..%d", name,
                               kPlaneTable[i].least, kPlaneTable[i].greatest);
        }
    }
    return bind(model->stage[i], plane);
}

int cmodel_unbind(cmodel* model) {
    if (model == nullptr) {
        return CMODEL_BAD_ARGUMENT;
    }
    for (auto& input : model->input) {
        input.reset();
    }
    for (auto& stage : model->stage) {
        stage.reset();
    }
    model->output.reset();
    return 0;
}

int cmodel_run(cmodel* model) {
    return model != nullptr ? Run(*model, nullptr).go() : CMODEL_BAD_ARGUMENT;
}

int cmodel_run_rect(cmodel* model, int x, int y, int width, int height) {
    const Area area{x, y, width, height};
    return model != nullptr ? Run(*model, &area).go() : CMODEL_BAD_ARGUMENT;
}
