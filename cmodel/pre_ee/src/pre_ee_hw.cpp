// The pipeline that the program runs: texture detection in front of the edge-enhancement blocks.
//
//   texture mode 0:   Yin ---- delta ------------------------------ MF, HF --+
//   texture mode 1:   Yin ---- delta --+                                     |
//                                      +-- flat detection --------- MF, HF --+--> coring ... merge
//                     Yfusion - delta -+
#include "pre_ee_hw.h"

#include <algorithm>

#include "ee_reg_table.h"
#include "fatal.h"
#include "pre_ee_blocks.h"
#include "pre_ee_pipeline.h"

namespace cm {
namespace {

constexpr const char* kSource = "pre_ee_hw";

// Rows that flat detection looks up and down in, and the delta kernels.
constexpr int kFlatReach = 3;
constexpr int kDeltaReach = 2;
constexpr int kLumaLines = 2 * (kFlatReach + kDeltaReach) + 1;
constexpr int kDeltaLines = 2 * kFlatReach + 1;

bool detects_texture() {
    return reg_value(reg_ee_texture_mode) == 1;
}

// One luma plane, its line buffer and the deltas made of it, a few rows ahead of the blocks.
class DeltaStage {
  public:
    DeltaStage(const RowSource& luma, const char* tag)
        : source_(luma),
          tag_(tag),
          shift_(configure_pre_ee_delta(luma.depth())),
          luma_(luma.width(), luma.height(), kLumaLines),
          mf_(luma.width(), luma.height(), kDeltaLines),
          hf_(luma.width(), luma.height(), kDeltaLines) {
        if (dump_dbg_img != 0) {
            over_row_ = output_row(luma.width());
            for (std::unique_ptr<KeptPlane>* map : {&mf_over_, &hf_over_}) {
                *map = std::make_unique<KeptPlane>(2, luma.width(), luma.height(), 8);
            }
            for (std::unique_ptr<KeptPlane>* delta : {&mf_kept_, &hf_kept_}) {
                *delta = std::make_unique<KeptPlane>(2, luma.width(), luma.height(), 11);
            }
        }
    }

    // Makes the deltas up to and including row y (or the last), reading luma as far as they need.
    void advance(int y) {
        for (; next_delta_ < source_.height() && next_delta_ <= y; ++next_delta_) {
            for (; next_luma_ < source_.height() && next_luma_ <= next_delta_ + kDeltaReach; ++next_luma_) {
                read_luma(next_luma_);
            }
            make_delta(next_delta_);
        }
    }

    const LineBuffer& luma() const { return luma_; }
    const LineBuffer& mf() const { return mf_; }
    const LineBuffer& hf() const { return hf_; }

    // Whether any luma row so far has a sample too large for flat detection's 32-bit sums.
    bool needs_wide_sums() const { return needs_wide_sums_; }

    void report() const {
        if (mf_kept_ != nullptr) {
            report_pre_ee_delta(tag_, mf_kept_->frame(), hf_kept_->frame(), mf_over_->frame(),
                                hf_over_->frame());
        }
    }

  private:
    void read_luma(int y) {
        source_.read(y, luma_.line(y), source_.width());
        needs_wide_sums_ |= exceeds_bound(luma_.line(y), source_.width(), FlatDetector::kLumaBound);
        luma_.pad(y);
    }

    void make_delta(int y) {
        const int width = source_.width();
        pre_ee_delta_sum_row(RowWindow<kDeltaReach>(luma_, y).rows, mf_.line(y), hf_.line(y), width);
        if (mf_over_ != nullptr) {
            delta_overflow_row(mf_.line(y), over_row_.get(), width, shift_);
            mf_over_->put(y, over_row_.get());
            delta_overflow_row(hf_.line(y), over_row_.get(), width, shift_);
            hf_over_->put(y, over_row_.get());
        }
        normalise_delta_row(mf_.line(y), width, shift_);
        normalise_delta_row(hf_.line(y), width, shift_);
        if (mf_kept_ != nullptr) {
            mf_kept_->put(y, mf_.line(y));
            hf_kept_->put(y, hf_.line(y));
        }
        mf_.pad(y);
        hf_.pad(y);
    }

    const RowSource& source_;
    const char* tag_;
    int shift_;
    LineBuffer luma_, mf_, hf_;
    int next_luma_ = 0;
    int next_delta_ = 0;
    bool needs_wide_sums_ = false;
    AlignedRow over_row_;
    std::unique_ptr<KeptPlane> mf_kept_, hf_kept_, mf_over_, hf_over_;
};

// Texture mode 1: the deltas of both luma planes and the choice between them.
class FlatStage {
  public:
    FlatStage(const DeltaStage& in, const EePlanes& planes)
        : in_(in),
          fusion_(*planes.fusion, "Yfusion"),
          detector_(planes.luma.width()),
          mf_(output_row(planes.luma.width())),
          hf_(output_row(planes.luma.width())),
          texture_(output_row(planes.luma.width())) {
        if (dump_dbg_img != 0) {
            for (std::unique_ptr<KeptPlane>* map : {&mf_texture_, &hf_texture_}) {
                *map = std::make_unique<KeptPlane>(2, planes.luma.width(), planes.luma.height(), 8);
            }
        }
    }

    void run_row(int y) {
        fusion_.advance(y + kFlatReach);
        if (in_.needs_wide_sums() || fusion_.needs_wide_sums()) {
            detector_.use_wide_sums();
        }
        using Rows = RowWindow<kFlatReach>;
        detector_.set_luma(Rows(in_.luma(), y).rows, Rows(fusion_.luma(), y).rows);
        detector_.run_band(Rows(in_.mf(), y).rows, Rows(fusion_.mf(), y).rows, mf_.get(), texture_.get());
        if (mf_texture_ != nullptr) {
            mf_texture_->put(y, texture_.get());
        }
        detector_.run_band(Rows(in_.hf(), y).rows, Rows(fusion_.hf(), y).rows, hf_.get(), texture_.get());
        if (hf_texture_ != nullptr) {
            hf_texture_->put(y, texture_.get());
        }
    }

    const int32_t* mf() const { return mf_.get(); }
    const int32_t* hf() const { return hf_.get(); }

    void report() const {
        fusion_.report();
        in_.report();
        if (mf_texture_ != nullptr) {
            report_flat_det("MF", mf_texture_->frame());
            report_flat_det("HF", hf_texture_->frame());
        }
    }

  private:
    const DeltaStage& in_;
    DeltaStage fusion_;
    FlatDetector detector_;
    AlignedRow mf_, hf_, texture_;
    std::unique_ptr<KeptPlane> mf_texture_, hf_texture_;
};

}  // namespace

bool block_enabled() {
    return reg_value(reg_ee_enable) == 1;
}

void check_pre_ee_planes(const EePlanes& planes) {
    require_luma_size(planes.luma, planes.image, "src_ynr", kSource);
    require_luma_size(planes.luma, planes.motion, "mmap", kSource);
    if (!detects_texture()) {
        return;
    }
    if (!planes.fusion) {
        log_log(LOG_FATAL, kSource, __LINE__, "texture mode 1 needs Yfusion; set reg_ee_texture_mode to 0");
        fatal(kExitFormat, "texture mode 1 needs Yfusion; set reg_ee_texture_mode to 0\n");
    }
    require_luma_size(planes.luma, *planes.fusion, "Yfusion", kSource);
}

void run_pre_ee(const EePlanes& planes, RowSink& sink) {
    EePipeline blocks(planes, planes.luma.depth(), ShootVariant::kPro, sink);
    DeltaStage in(planes.luma, "Yin");
    std::optional<FlatStage> flat;
    if (detects_texture()) {
        flat.emplace(in, planes);
    }

    for (int y = 0; y < blocks.height(); ++y) {
        in.advance(y + kFlatReach);
        if (flat) {
            flat->run_row(y);
            blocks.run_row(y, in.luma(), flat->mf(), flat->hf());
        } else {
            blocks.run_row(y, in.luma(), in.mf().row(y), in.hf().row(y));
        }
    }

    blocks.report_range();
    if (flat) {
        log_log(LOG_INFO, kSource, 97, "texture mode is 1");
        flat->report();
    } else {
        in.report();
        log_log(LOG_INFO, kSource, 94, "texture mode is 0");
    }
    blocks.report_after_deltas();
}

}  // namespace cm

FRAME* pre_ee_hw(const FRAME* Yin, const FRAME* Cb, const FRAME* Cr, const FRAME* src_ynr, const FRAME* mmap,
                 const FRAME* Yfusion) {
    if (!cm::block_enabled()) {
        return CM_CopyFRAME(Yin);
    }
    cm::EePlanes planes{cm::RowSource(*Yin),     cm::RowSource(*Cb),   cm::RowSource(*Cr),
                        cm::RowSource(*src_ynr), cm::RowSource(*mmap), std::nullopt};
    if (Yfusion != nullptr) {
        planes.fusion.emplace(*Yfusion);
    }
    cm::check_pre_ee_planes(planes);
    FRAME* const out = cm::new_output_frame(*Yin);
    cm::FrameSink sink(*out);
    cm::run_pre_ee(planes, sink);
    if (!cm::EePipeline::shows_sharpened()) {
        cm::set_neutral_chroma(*out);
    }
    return out;
}
