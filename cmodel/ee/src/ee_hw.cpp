// The classic pipeline: spike clamp and fixed delta kernels in front of the edge-enhancement blocks.
#include "ee_hw.h"

#include <algorithm>

#include "ee_pipeline.h"
#include "ee_reg_table.h"

namespace cm {
namespace {

constexpr int kPreProcessReach = 1;
constexpr int kDeltaReach = 3;
constexpr int kCleanDepth = 8;  // of the cleaned luma, whatever the input's depth

// The cleaned luma and its deltas, as far ahead of the blocks as the delta kernels reach.
class CleanStage {
  public:
    explicit CleanStage(const RowSource& luma)
        : source_(luma),
          enabled_(reg_value(reg_ee_pre_proc_enable) == 1),
          raw_(luma.width(), luma.height(), 2 * kPreProcessReach + 1),
          clean_(luma.width(), luma.height(), 2 * kDeltaReach + 1),
          mf_(output_row(luma.width())),
          hf_(output_row(luma.width())) {
        if (dump_dbg_img != 0) {
            raw_kept_ = std::make_unique<KeptFrame>(luma.width(), luma.height(), luma.depth());
            clean_kept_ = std::make_unique<KeptFrame>(luma.width(), luma.height(), kCleanDepth);
            mf_kept_ = std::make_unique<KeptPlane>(luma.width(), luma.height());
            hf_kept_ = std::make_unique<KeptPlane>(luma.width(), luma.height());
        }
    }

    void run_row(int y) {
        for (; next_clean_ < source_.height() && next_clean_ <= int64_t{y} + kDeltaReach; ++next_clean_) {
            for (; next_raw_ < source_.height() && next_raw_ <= int64_t{next_clean_} + kPreProcessReach;
                 ++next_raw_) {
                source_.read(next_raw_, raw_.line(next_raw_), source_.width());
                raw_.pad(next_raw_);
            }
            clean_row(next_clean_);
        }
        classic_delta_row(RowWindow<kDeltaReach>(clean_, y).rows, mf_.get(), hf_.get(), source_.width());
        if (mf_kept_ != nullptr) {
            mf_kept_->put(y, mf_.get());
            hf_kept_->put(y, hf_.get());
        }
    }

    const LineBuffer& clean() const { return clean_; }
    const int32_t* mf() const { return mf_.get(); }
    const int32_t* hf() const { return hf_.get(); }

    void report_clean() const {
        if (raw_kept_ != nullptr) {
            report_pre_process(raw_kept_->frame(), clean_kept_->frame());
        }
    }
    void report_delta() const {
        if (mf_kept_ != nullptr) {
            report_classic_delta(mf_kept_->rows(), hf_kept_->rows());
        }
    }

  private:
    void clean_row(int y) {
        const RowWindow<kPreProcessReach> around(raw_, y);
        if (enabled_) {
            pre_process_row(around.rows, clean_.line(y), source_.width());
        } else {
            std::copy_n(around.rows[kPreProcessReach], source_.width(), clean_.line(y));
        }
        if (raw_kept_ != nullptr) {
            raw_kept_->put(y, around.rows[kPreProcessReach]);
            clean_kept_->put(y, clean_.line(y));
        }
        clean_.pad(y);
    }

    const RowSource& source_;
    bool enabled_;
    LineBuffer raw_, clean_;
    AlignedRow mf_, hf_;
    int next_raw_ = 0;
    int next_clean_ = 0;
    std::unique_ptr<KeptFrame> raw_kept_, clean_kept_;
    std::unique_ptr<KeptPlane> mf_kept_, hf_kept_;
};

// Intended: with more than one channel, channels 1 and 2 of a pixel show the merged luma of the next
// one and two pixels in raster order; past the end, of the last.
void spread_raster(FRAME& out) {
    const size_t pixels = size_t{out.width} * out.height;
    for (size_t i = 0; i < pixels; ++i) {
        for (size_t c = 1; c < out.channels && c < 3; ++c) {
            const size_t from = std::min(i + c, pixels - 1);
            out.data[i * out.channels + c] = out.data[from * out.channels];
        }
    }
}

void run_ee(const EePlanes& planes, RowSink& sink) {
    EePipeline blocks(planes, kCleanDepth, ShootVariant::kClassic, sink);
    CleanStage clean(planes.luma);
    for (int y = 0; y < blocks.height(); ++y) {
        clean.run_row(y);
        blocks.run_row(y, clean.clean(), clean.mf(), clean.hf());
    }
    clean.report_clean();
    blocks.report_range();
    clean.report_delta();
    blocks.report_after_deltas();
}

}  // namespace
}  // namespace cm

void ee_sw(FRAME*) {}

FRAME* ee_hw(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, const FRAME* image, const FRAME* motion) try {
    if (cm::reg_value(reg_ee_enable) != 1) {
        return CM_CopyFRAME(image);
    }
    const cm::EePlanes planes{cm::RowSource(*Y),     cm::RowSource(*Cb),     cm::RowSource(*Cr),
                              cm::RowSource(*image), cm::RowSource(*motion), std::nullopt};
    cm::require_luma_size(planes.luma, planes.image, "image", cm::at::kClassicPlaneSize);
    cm::require_luma_size(planes.luma, planes.motion, "motion", cm::at::kClassicPlaneSize);
    FRAME* const out = cm::new_output_frame(*Y);
    cm::FrameSink sink(*out);
    cm::run_ee(planes, sink);
    if (cm::EePipeline::shows_sharpened()) {
        cm::spread_raster(*out);
    } else {
        cm::set_neutral_chroma(*out);
    }
    return out;
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
