#include "row_pipeline.h"

#include <algorithm>
#include <bit>

#include "ee_blocks.h"
#include "line_pad.h"

namespace cm {
namespace {

// Bounds of the inputs under which every plane fits 16 bits.
constexpr int32_t narrow_greatest(int input) {
    return input == index_of(Plane::yfusion) ? kNarrowFusionMax : 255;
}

}  // namespace

bool ConfiguredPipeline::configure(const PipelineRow& pipeline, const Registers& registers, int luma_depth,
                                   int fusion_depth, size_t pixels) {
    const bool tables_do = pixels_ >= kManyPixels || pixels < kManyPixels;
    if (pipeline_ == &pipeline && registers_ == registers && luma_depth_ == luma_depth &&
        fusion_depth_ == fusion_depth && tables_do) {
        return true;
    }
    memory_.reset();
    pipeline_ = nullptr;
    variant_ = variant_of(pipeline, registers);
    steps_ = 0;
    fits_narrow_ = true;
    for (const Step& step : all_steps()) {
        if ((step.variants & variant_) == 0) {
            continue;
        }
        const Block& block = *step.block;
        const Plane first = block.inputs > 0 ? step.read(0, variant_) : Plane::y;
        const int in_depth = first == Plane::y         ? luma_depth
                             : first == Plane::yfusion ? fusion_depth
                                                       : row_of(first).depth;
        void* const config = memory_.take<uint8_t>(block.config_size);
        if (config != nullptr) {
            block.configure(config, registers, {in_depth, kOutputDepth, pixels, memory_});
        }
        if (memory_.failed()) {
            return false;
        }
        fits_narrow_ = fits_narrow_ && block.fits_narrow(config);
        step_[steps_] = &step;
        config_[steps_] = config;
        ++steps_;
    }
    view_ = find_debug_view(registers[reg_ee_debug_mode]);
    view_shift_ = registers[reg_ee_debug_shift_bit];
    registers_ = registers;
    luma_depth_ = luma_depth;
    fusion_depth_ = fusion_depth;
    pixels_ = pixels;
    pipeline_ = &pipeline;
    return true;
}

Area region_around(const Area& area, int width, int height, Variant variant) {
    // As far as the blocks look up and down they look left and right, and the chroma low-pass, which only
    // looks left and right, 2. Reflections at the region's own ends then meet only what is cut off again.
    const int reach = std::max(look_ahead_of(Plane::sharpened, variant), 2);
    const int y = std::max(area.y - reach, 0);
    const int64_t bottom = std::min<int64_t>(int64_t{area.y} + area.height + reach, height);
    // Rows of whole vectors where the frame has room: the rest of a row goes sample by sample. Chroma stays
    // even.
    constexpr int kVector = 32;
    int x = std::max(area.x - reach, 0) / 2 * 2;
    const int64_t whole = (int64_t{area.x} + area.width + reach - x + kVector - 1) / kVector * kVector;
    const int64_t right = std::min<int64_t>(x + whole, width);
    x = static_cast<int>(std::max<int64_t>(right - whole, 0) / 2 * 2);
    return {x, y, static_cast<int>(right - x), static_cast<int>(bottom - y)};
}

bool fits_narrow(const ConfiguredPipeline& pipeline, const RunPlanes& planes, const Area& region) {
    bool fits = pipeline.fits_narrow();
    for (int i = 0; i < kInputs && fits; ++i) {
        const bool used = i != index_of(Plane::yfusion) || pipeline.variant() == kTexture;
        const bool half = i == index_of(Plane::cb) || i == index_of(Plane::cr);
        const Area area{half ? region.x / 2 : region.x, region.y, half ? half_up(region.width) : region.width,
                        region.height};
        fits = planes.input[i] == nullptr || !used || planes.input[i]->within(0, narrow_greatest(i), area);
    }
    return fits;
}

template <typename T>
RowPipeline<T>::RowPipeline(const ConfiguredPipeline& pipeline, const RunPlanes& planes, int width,
                            int height, const Area& area, Memory& memory)
    : pipeline_(pipeline), planes_(planes) {
    plan();
    region_ = region_around(area, width, height, pipeline.variant());
    area_ = {area.x - region_.x, area.y - region_.y, area.width, area.height};
    next_ = -look_ahead();
    last_ = area_.y + area_.height;
    take_rows(memory);
}

// Somebody makes rows `lead` ahead of the output and looks at this plane for them.
template <typename T>
void RowPipeline<T>::look_at(Plane plane, int lead, const BlockInput& how) {
    Held& h = held(plane);
    h.history = h.lead < 0 ? how.reach - lead : std::max(h.history, how.reach - lead);
    h.lead = std::max(h.lead, lead + how.reach);
    h.padded |= how.padded;
    h.half_width |= how.half_width;
}

// How far each block runs ahead of the output: as far as those that read it, and as they look down.
template <typename T>
void RowPipeline<T>::plan() {
    look_at(pipeline_.output(), 0, {});
    for (int i = 0; i < kPlanes; ++i) {
        if (planes_.wanted[i] != nullptr) {
            look_at(static_cast<Plane>(i), 0, {});
        }
    }
    for (int i = pipeline_.steps() - 1; i >= 0; --i) {
        const Step& step = pipeline_.step(i);
        int lead = 0;
        for (int k = 0; k < step.block->outputs; ++k) {
            lead = std::max(lead, held(step.writes[k]).lead);
        }
        for (int k = 0; k < step.block->outputs; ++k) {
            Held& h = held(step.writes[k]);
            if (h.lead >= 0 || !step.block->out[k].optional) {
                look_at(step.writes[k], lead, {});
                h.lead = lead;
            }
        }
        for (int k = 0; k < step.block->inputs; ++k) {
            look_at(step.read(k, pipeline_.variant()), lead, step.block->in[k]);
        }
        step_[i].lead = lead;
        step_[i].events = 0;
    }
}

template <typename T>
void RowPipeline<T>::take_rows(Memory& memory) {
    // What does not run ahead starts with the area's first row.
    for (int i = 0; i < kPlanes; ++i) {
        Held& h = held_[i];
        if (h.lead < 0) {
            continue;
        }
        h.width = h.half_width ? half_up(region_.width) : region_.width;
        h.pitch = (static_cast<size_t>(h.width) + 3 * kMargin - 1) / kMargin * kMargin;
        const int lines = std::min(h.lead + h.history + 1, region_.height);
        h.mask = static_cast<int>(std::bit_ceil(static_cast<unsigned>(lines))) - 1;
        h.next = h.lead > 0 ? 0 : area_.y;
        h.samples = memory.take<T>(h.pitch * (static_cast<size_t>(h.mask) + 1));
    }
    for (int i = 0; i < pipeline_.steps(); ++i) {
        StepState& s = step_[i];
        s.next = s.lead > 0 ? 0 : area_.y;
        s.rows.width = region_.width;
        s.rows.events = &s.events;
        for (int k = 0; k < kMostInputs; ++k) {
            s.rows.window[k] = s.window[k];
        }
    }
    view_row_ = memory.take<T>(static_cast<size_t>(region_.width));
}

template <typename T>
void RowPipeline<T>::advance() {
    read_inputs(next_);
    for (int i = 0; i < pipeline_.steps(); ++i) {
        run_step(i, next_);
    }
    if (next_ >= area_.y) {
        put_output(next_);
    }
    ++next_;
}

// A row of a plane is there.
template <typename T>
void RowPipeline<T>::finish_row(Plane plane, int y) {
    const Held& h = held(plane);
    if (h.padded) {
        pad_row(h.line(y), h.width);
    }
    RowSink* const sink = planes_.wanted[index_of(plane)];
    if (sink != nullptr && y >= area_.y && y < last_) {
        sink->put(region_.y + y, h.line(y) + area_.x);
    }
}

template <typename T>
void RowPipeline<T>::read_inputs(int y) {
    for (int i = 0; i < kInputs; ++i) {
        Held& h = held_[i];
        const int x = h.half_width ? region_.x / 2 : region_.x;
        for (; h.lead >= 0 && h.next < region_.height && h.next <= int64_t{y} + h.lead; ++h.next) {
            planes_.input[i]->read(region_.y + h.next, x, h.width, h.line(h.next));
            finish_row(static_cast<Plane>(i), h.next);
        }
    }
}

template <typename T>
void RowPipeline<T>::run_step(int i, int y) {
    StepState& s = step_[i];
    const Step& step = pipeline_.step(i);
    const Block& block = *step.block;
    for (; s.next < region_.height && s.next <= int64_t{y} + s.lead; ++s.next) {
        for (int k = 0; k < block.inputs; ++k) {
            const Held& in = held(step.read(k, pipeline_.variant()));
            const int reach = block.in[k].reach;
            for (int d = -reach; d <= reach; ++d) {
                s.window[k][d + reach] = in.line(mirror(int64_t{s.next} + d, region_.height));
            }
            s.rows.in[k] = s.window[k][reach];
        }
        for (int k = 0; k < block.outputs; ++k) {
            const Held& out = held(step.writes[k]);
            s.rows.out[k] = out.samples != nullptr ? out.line(s.next) : nullptr;
        }
        if constexpr (sizeof(T) == sizeof(int16_t)) {
            block.run_narrow(pipeline_.config(i), s.rows);
        } else {
            block.run(pipeline_.config(i), s.rows);
        }
        for (int k = 0; k < block.outputs; ++k) {
            if (s.rows.out[k] != nullptr) {
                finish_row(step.writes[k], s.next);
            }
        }
    }
}

template <typename T>
void RowPipeline<T>::put_output(int y) {
    if (planes_.output == nullptr) {
        return;
    }
    const T* row = held(pipeline_.output()).line(y) + area_.x;
    if (const DebugView* const view = pipeline_.view()) {
        debug_view_row(row, view_row_, area_.width, *view, pipeline_.view_shift());
        row = view_row_;
    }
    planes_.output->put(region_.y + y, row);
}

template class RowPipeline<int16_t>;
template class RowPipeline<int32_t>;

}  // namespace cm
