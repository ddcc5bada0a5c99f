#include "fixed_run.h"

#include <algorithm>

#include "fatal.h"
#include "frame_internal.h"

namespace cm {
namespace {

// The planes that debug images show.
class KeptPlanes {
  public:
    KeptPlanes(const ConfiguredPipeline& pipeline, const InputPlanes& inputs) : inputs_(inputs) {
        for (int i = 0; i < pipeline.steps(); ++i) {
            const Step& step = pipeline.step(i);
            for (int k = 0; k < step.block->inputs; ++k) {
                keep(step.read(k, pipeline.variant()), step.block->in[k].shown);
            }
            for (int k = 0; k < step.block->outputs; ++k) {
                keep(step.writes[k], step.block->out[k].shown);
            }
        }
    }

    KeptPlane* operator[](Plane plane) const { return kept_[index_of(plane)].get(); }

  private:
    void keep(Plane plane, Shown shown) {
        std::unique_ptr<KeptPlane>& kept = kept_[index_of(plane)];
        if (shown == Shown::kNo || (kept != nullptr && shown == Shown::kPicture)) {
            return;
        }
        const RowSource& luma = *inputs_[index_of(Plane::y)];
        const int depth = plane == Plane::y ? luma.depth() : row_of(plane).depth;
        kept.reset(new (std::nothrow)
                       KeptPlane(luma.width(), luma.height(), depth,
                                 shown == Shown::kPicture ? KeptPlane::kPicture : KeptPlane::kSamples));
        if (kept == nullptr) {
            fail_without_memory();
        }
    }

    const InputPlanes& inputs_;
    std::unique_ptr<KeptPlane> kept_[kPlanes];
};

template <typename T>
void run_rows(const ConfiguredPipeline& pipeline, const RunPlanes& planes, int64_t* events) {
    Memory memory;
    const RowSource& luma = *planes.input[index_of(Plane::y)];
    RowPipeline<T> rows(pipeline, planes, luma.width(), luma.height(), {0, 0, luma.width(), luma.height()},
                        memory);
    if (memory.failed()) {
        fail_without_memory();
    }
    rows.run();
    for (int i = 0; i < pipeline.steps(); ++i) {
        events[i] = rows.events(i);
    }
}

void report(const ConfiguredPipeline& pipeline, int i, int64_t events, const KeptPlanes* kept) {
    const Step& step = pipeline.step(i);
    BlockReport report{global_log(), kept != nullptr ? dbg_path : nullptr, step.tag, events, {}, {}};
    for (int k = 0; k < step.block->inputs && kept != nullptr; ++k) {
        report.in[k] = (*kept)[step.read(k, pipeline.variant())];
    }
    for (int k = 0; k < step.block->outputs && kept != nullptr; ++k) {
        report.out[k] = (*kept)[step.writes[k]];
    }
    step.block->report(pipeline.config(i), report);
}

}  // namespace

void require_luma_size(const RowSource& luma, const RowSource& plane, const char* name,
                       const LogPosition& at) {
    if (plane.width() == luma.width() && plane.height() == luma.height()) {
        return;
    }
    log_log(LOG_FATAL, at.source, at.line, "Y is %dx%d but %s is %dx%d; they must have the same size",
            luma.width(), luma.height(), name, plane.width(), plane.height());
    fatal(kExitFormat, "Y is %dx%d but %s is %dx%d; they must have the same size\n", luma.width(),
          luma.height(), name, plane.width(), plane.height());
}

void check_pre_ee_planes(const InputPlanes& planes) {
    const RowSource& luma = *planes[index_of(Plane::y)];
    require_luma_size(luma, *planes[index_of(Plane::ynr)], "src_ynr", at::kPlaneSize);
    require_luma_size(luma, *planes[index_of(Plane::mmap)], "mmap", at::kPlaneSize);
    if (reg_value(reg_ee_texture_mode) != 1) {
        return;
    }
    const RowSource* const fusion = planes[index_of(Plane::yfusion)];
    if (fusion == nullptr) {
        log_log(LOG_FATAL, at::kNoFusion.source, at::kNoFusion.line,
                "texture mode 1 needs Yfusion; set reg_ee_texture_mode to 0");
        fatal(kExitFormat, "texture mode 1 needs Yfusion; set reg_ee_texture_mode to 0\n");
    }
    require_luma_size(luma, *fusion, "Yfusion", at::kPlaneSize);
}

void run_fixed(const PipelineRow& row, const InputPlanes& inputs, RowSink& sink) try {
    const RowSource& luma = *inputs[index_of(Plane::y)];
    const RowSource* const fusion = inputs[index_of(Plane::yfusion)];
    ConfiguredPipeline pipeline;
    if (!pipeline.configure(row, Registers(ee_reg.hw), luma.depth(), fusion != nullptr ? fusion->depth() : 8,
                            static_cast<size_t>(luma.width()) * static_cast<size_t>(luma.height()))) {
        fail_without_memory();
    }
    RunPlanes planes;
    std::copy(std::begin(inputs), std::end(inputs), planes.input);
    planes.output = &sink;
    std::optional<KeptPlanes> kept;
    if (dump_dbg_img != 0) {
        kept.emplace(pipeline, inputs);
        for (int i = 0; i < kPlanes; ++i) {
            planes.wanted[i] = (*kept)[static_cast<Plane>(i)];
        }
    }
    int64_t events[kMostSteps];
    if (fits_narrow(pipeline, planes, {0, 0, luma.width(), luma.height()})) {
        run_rows<int16_t>(pipeline, planes, events);
    } else {
        run_rows<int32_t>(pipeline, planes, events);
    }
    for (int i = 0; i < pipeline.steps(); ++i) {
        report(pipeline, i, events[i], kept ? &*kept : nullptr);
    }
} catch (const std::bad_alloc&) {  // of what is kept for images, and of the images
    fail_without_memory();
}

FRAME* new_output_frame(const FRAME& luma) {
    const bool clear = luma.channels > 1;  // the pipelines write channel 0
    return new_frame(luma.file_type, CM_FORMAT_YCBCR, luma.width, luma.height, luma.channels, kOutputDepth,
                     clear);
}

bool shows_debug_view() {
    return find_debug_view(reg_value(reg_ee_debug_mode)) != nullptr;
}

void set_neutral_chroma(FRAME& out) {
    const size_t pixels = size_t{out.width} * out.height;
    for (uint32_t c = 1; c < out.channels && c < 3; ++c) {
        for (size_t i = 0; i < pixels; ++i) {
            out.data[i * out.channels + c] = 128;
        }
    }
}

}  // namespace cm
