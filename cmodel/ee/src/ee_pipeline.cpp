#include "ee_pipeline.h"

#include <algorithm>

#include "ee_reg_table.h"
#include "fatal.h"
#include "fixed_point.h"
#include "large_pages.h"
#include "row_targets.h"

namespace cm {
namespace {

// How a report needs a plane: not at all, its image only, or every sample.
enum class Keep { kNo, kImage, kSamples };

constexpr Keep kKeep[kPlaneCount] = {
    /* max          */ Keep::kNo,
    /* min          */ Keep::kNo,
    /* range        */ Keep::kSamples,
    /* MF           */ Keep::kNo,
    /* HF           */ Keep::kNo,
    /* core         */ Keep::kNo,
    /* cored        */ Keep::kImage,
    /* delta gain   */ Keep::kSamples,
    /* luma gain    */ Keep::kNo,
    /* chroma gain  */ Keep::kSamples,
    /* motion gain  */ Keep::kNo,
    /* total gain   */ Keep::kNo,
    /* total delta  */ Keep::kImage,
    /* clamped      */ Keep::kImage,
    /* sharpened    */ Keep::kNo,
};

// Intended: the delta gain shows as signed, the core delta does not.
constexpr DebugView kDebugViews[] = {
    {1, kPlaneMf, 1, 1},          {2, kPlaneHf, 1, 1},         {3, kPlaneCore, 1, 0},
    {4, kPlaneCored, 1, 1},       {5, kPlaneDeltaGain, 1, 1},  {6, kPlaneLumaGain, 8, 0},
    {7, kPlaneChromaGain, 8, 0},  {8, kPlaneMotionGain, 8, 0}, {9, kPlaneTotalGain, 1, 0},
    {10, kPlaneTotalDelta, 1, 1}, {11, kPlaneClamped, 8, 1},
};

const DebugView* find_debug_view() {
    for (const DebugView& view : kDebugViews) {
        if (view.mode == reg_value(reg_ee_debug_mode)) {
            return &view;
        }
    }
    return nullptr;
}

constexpr int kOutputDepth = 8;

}  // namespace

void require_luma_size(const RowSource& luma, const RowSource& plane, const char* name,
                       const LogPosition& position) {
    if (plane.width() == luma.width() && plane.height() == luma.height()) {
        return;
    }
    log_log(LOG_FATAL, position.source, position.line,
            "Y is %dx%d but %s is %dx%d; they must have the same size", luma.width(), luma.height(), name,
            plane.width(), plane.height());
    fatal(kExitFormat, "Y is %dx%d but %s is %dx%d; they must have the same size\n", luma.width(),
          luma.height(), name, plane.width(), plane.height());
}

CM_ROW_FUNCTION(saturate_row, (const int32_t* in, int16_t* __restrict out, int width), (in, out, width)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<int16_t>(clamp32(in[x], -32767, 32767));
    }
}

KeptPlane::KeptPlane(int width, int height)
    : width_(width),
      height_(height),
      samples_(allocate_row<int16_t>(static_cast<size_t>(width) * static_cast<size_t>(height))) {
    advise_large_pages(samples_.get(),
                       sizeof(int16_t) * static_cast<size_t>(width) * static_cast<size_t>(height));
}

void KeptPlane::put(int y, const int32_t* row) {
    saturate_row(row, samples_.get() + static_cast<size_t>(y) * static_cast<size_t>(width_), width_);
}

KeptFrame::KeptFrame(int width, int height, int depth)
    : frame_(new_frame(2, CM_FORMAT_SINGLE, static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1,
                       depth, false)) {}

EePipeline::EePipeline(const EePlanes& planes, int luma_depth, ShootVariant shoot, RowSink& sink)
    : planes_(planes),
      sink_(sink),
      width_(planes.luma.width()),
      height_(planes.luma.height()),
      luma_depth_(luma_depth),
      core_(configure_core(luma_depth)),
      coring_(configure_coring()),
      delta_gain_(configure_delta_gain()),
      luma_gain_(configure_luma_gain()),
      chroma_gain_(configure_chroma_gain(static_cast<size_t>(width_) * static_cast<size_t>(height_))),
      motion_gain_(configure_motion_gain()),
      total_gain_(configure_total_gain()),
      shoot_(configure_shoot()),
      shoot_variant_(shoot),
      merge_(configure_merge(kOutputDepth)),
      view_(find_debug_view()),
      half_row_(output_row(half_up(width_))),
      cb_(width_, 1, 1),
      cr_(width_, 1, 1),
      lpf_luma_(output_row(width_)),
      lpf_cb_(output_row(width_)),
      lpf_cr_(output_row(width_)),
      motion_row_(output_row(width_)),
      image_row_(output_row(width_)),
      view_row_(output_row(width_)) {
    for (int plane = 0; plane < kPlaneCount; ++plane) {
        rows_[plane] = output_row(width_);
        if (dump_dbg_img != 0 && kKeep[plane] == Keep::kImage) {
            kept_[plane] = std::make_unique<KeptPlane>(width_, height_);
        } else if (dump_dbg_img != 0 && kKeep[plane] == Keep::kSamples) {
            kept_frames_[plane] = std::make_unique<KeptFrame>(width_, height_, 8);
        }
    }
}

bool EePipeline::shows_sharpened() {
    return find_debug_view() == nullptr;
}

void EePipeline::run_row(int y, const LineBuffer& luma, const int32_t* mf, const int32_t* hf) {
    const RowWindow<2> around(luma, y);
    const int32_t* const luma_row = luma.row(y);

    const int half_width = half_up(width_);
    dup_row(planes_.cb.row(y, half_row_.get(), half_width), cb_.line(0), width_);
    cb_.pad(0);
    dup_row(planes_.cr.row(y, half_row_.get(), half_width), cr_.line(0), width_);
    cr_.pad(0);
    const int32_t* const motion = planes_.motion.row(y, motion_row_.get(), width_);
    const int32_t* const image = planes_.image.row(y, image_row_.get(), width_);

    min_max_5x5_row(around.rows, edit(kPlaneMax), edit(kPlaneMin), width_);
    range_row(row(kPlaneMax), row(kPlaneMin), edit(kPlaneRange), width_, negative_ranges_);
    lpf_luma_row(around.rows + 1, lpf_luma_.get(), width_);
    lpf_chroma_row(cb_.row(0), lpf_cb_.get(), width_);
    lpf_chroma_row(cr_.row(0), lpf_cr_.get(), width_);

    core_row(luma_row, lpf_luma_.get(), motion, edit(kPlaneCore), width_, core_);
    coring_row(mf, hf, row(kPlaneCore), edit(kPlaneCored), width_, coring_);

    byte_table_row(row(kPlaneRange), edit(kPlaneDeltaGain), width_, delta_gain_);
    byte_table_row(luma_gain_.by_lowpass ? lpf_luma_.get() : luma_row, edit(kPlaneLumaGain), width_,
                   luma_gain_.gain);
    chroma_gain_row(chroma_gain_.by_lowpass ? lpf_cb_.get() : cb_.row(0),
                    chroma_gain_.by_lowpass ? lpf_cr_.get() : cr_.row(0), edit(kPlaneChromaGain), width_,
                    chroma_gain_);
    curve_row(motion, edit(kPlaneMotionGain), width_, motion_gain_);
    total_gain_row(row(kPlaneDeltaGain), row(kPlaneLumaGain), row(kPlaneChromaGain), row(kPlaneMotionGain),
                   edit(kPlaneTotalGain), width_, total_gain_);
    total_delta_row(row(kPlaneCored), row(kPlaneTotalGain), edit(kPlaneTotalDelta), width_);

    const auto shoot = shoot_variant_ == ShootVariant::kPro ? shoot_pro_row : shoot_row;
    shoot(row(kPlaneTotalDelta), luma_row, row(kPlaneMax), row(kPlaneMin), edit(kPlaneClamped), width_,
          shoot_);
    merge_row(row(kPlaneClamped), image, edit(kPlaneSharpened), width_, merge_);

    keep_row(y);
    put_output(y, mf, hf);
}

void EePipeline::keep_row(int y) {
    for (int plane = 0; plane < kPlaneCount; ++plane) {
        if (kept_[plane] != nullptr) {
            kept_[plane]->put(y, rows_[plane].get());
        } else if (kept_frames_[plane] != nullptr) {
            kept_frames_[plane]->put(y, rows_[plane].get());
        }
    }
}

void EePipeline::put_output(int y, const int32_t* mf, const int32_t* hf) {
    if (view_ == nullptr) {
        sink_.put(y, row(kPlaneSharpened));
        return;
    }
    const int32_t* const shown = view_->plane == kPlaneMf   ? mf
                                 : view_->plane == kPlaneHf ? hf
                                                            : row(view_->plane);
    debug_view_row(shown, view_row_.get(), width_, view_->factor, view_->is_signed,
                   reg_value(reg_ee_debug_shift_bit));
    sink_.put(y, view_row_.get());
}

void EePipeline::report_range() {
    const KeptFrame* const range = kept_frames_[kPlaneRange].get();
    cm::report_range(negative_ranges_, range != nullptr ? &range->frame() : nullptr);
}

void EePipeline::report_after_deltas() {
    const bool images = kept_frames_[kPlaneRange] != nullptr;
    const auto rows = [this](EePlane p) { return kept_[p]->rows(); };
    const auto frame = [this](EePlane p) -> const FRAME& { return kept_frames_[p]->frame(); };
    report_core(luma_depth_);
    if (images) {
        report_coring(rows(kPlaneCored));
        report_delta_gain(frame(kPlaneRange), frame(kPlaneDeltaGain));
    }
    report_chroma_levels();
    if (images) {
        report_chroma_gain(frame(kPlaneChromaGain));
    }
    report_motion_levels();
    if (images) {
        report_total_delta(rows(kPlaneTotalDelta));
    }
    if (shoot_variant_ == ShootVariant::kPro) {
        report_shoot_pro_mode(shoot_);
    } else {
        report_shoot_entry();
    }
    if (images) {
        report_shoot(rows(kPlaneClamped));
    }
}

FRAME* new_output_frame(const FRAME& luma) {
    const bool clear = luma.channels > 1;  // the pipelines write channel 0
    return new_frame(luma.file_type, CM_FORMAT_YCBCR, luma.width, luma.height, luma.channels, kOutputDepth,
                     clear);
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
