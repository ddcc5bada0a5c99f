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
#include "log_positions.h"
#include "pre_ee_blocks.h"
#include "pre_ee_pipeline.h"
#include "row_targets.h"

namespace cm {
namespace {

// Rows that flat detection looks up and down in, and the delta kernels.
constexpr int kFlatReach = 3;
constexpr int kDeltaReach = 2;
constexpr int kLumaLines = kFlatReach + 1 + kFlatReach + kDeltaReach;  // the deltas run kFlatReach rows ahead
constexpr int kDeltaLines = 2 * kFlatReach + 1;

// Largest luma whose kernel sums (coefficients of one sign add up to 448) fit 32 bits, and that flat
// detection sums up in 32 bits.
constexpr int32_t kNoWrapBound = 1 << 21;
static_assert(kNoWrapBound <= Lanes32::kLumaBound);

bool detects_texture() {
    return reg_value(reg_ee_texture_mode) == 1;
}

CM_ROW_FUNCTION(copy_row, (const int32_t* in, int16_t* __restrict out, int width), (in, out, width)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<int16_t>(in[x]);
    }
}
void copy_row(const int32_t* in, int32_t* out, int width) {
    std::copy_n(in, width, out);
}

std::unique_ptr<KeptPlane> keep_for_report(const RowSource& luma) {
    return dump_dbg_img != 0 ? std::make_unique<KeptPlane>(luma.width(), luma.height()) : nullptr;
}

// One luma plane, its line buffer and the deltas made of it, a few rows ahead of the blocks. Deltas, and
// the luma that flat detection looks at, are kept as rows of T.
template <typename T>
class DeltaStage {
  public:
    DeltaStage(const RowSource& luma, const char* tag)
        : source_(luma),
          tag_(tag),
          shift_(configure_pre_ee_delta(luma.depth())),
          luma_(luma.width(), luma.height(), kLumaLines),
          window_luma_(luma.width(), luma.height(), kLumaLines),
          mf_(luma.width(), luma.height(), kDeltaLines),
          hf_(luma.width(), luma.height(), kDeltaLines),
          mf_sum_(output_row(luma.width())),
          hf_sum_(output_row(luma.width())),
          over_row_(output_row(luma.width())),
          mf_kept_(keep_for_report(luma)),
          hf_kept_(keep_for_report(luma)),
          mf_over_(keep_for_report(luma)),
          hf_over_(keep_for_report(luma)) {}

    // Makes the deltas up to and including row y (or the last), reading luma as far as they need.
    void advance(int64_t y) {
        for (; next_delta_ < source_.height() && next_delta_ <= y; ++next_delta_) {
            for (; next_luma_ < source_.height() && next_luma_ <= int64_t{next_delta_} + kDeltaReach;
                 ++next_luma_) {
                read_luma(next_luma_);
            }
            make_delta(next_delta_);
        }
    }

    const LineBuffer& luma() const { return luma_; }
    const LineBufferOf<T>& window_luma() const { return window_luma_; }
    const LineBufferOf<T>& mf() const { return mf_; }
    const LineBufferOf<T>& hf() const { return hf_; }

    void report() const {
        if (mf_kept_ != nullptr) {
            report_pre_ee_delta(tag_, mf_kept_->rows(), hf_kept_->rows(), mf_over_->rows(), hf_over_->rows());
        }
    }

  private:
    void read_luma(int y) {
        source_.read(y, luma_.line(y), source_.width());
        luma_.pad(y);
        copy_row(luma_.line(y), window_luma_.line(y), source_.width());
        window_luma_.pad(y);
    }

    void make_delta(int y) {
        pre_ee_delta_sum_row(RowWindow<kDeltaReach>(luma_, y).rows, mf_sum_.get(), hf_sum_.get(),
                             source_.width());
        finish_band(y, mf_sum_.get(), mf_, mf_kept_.get(), mf_over_.get());
        finish_band(y, hf_sum_.get(), hf_, hf_kept_.get(), hf_over_.get());
    }

    void finish_band(int y, const int32_t* sum, LineBufferOf<T>& band, KeptPlane* kept, KeptPlane* over) {
        const int width = source_.width();
        normalise_delta_row(sum, band.line(y), width, shift_);
        band.pad(y);
        if (kept != nullptr) {
            std::copy_n(band.line(y), width, over_row_.get());
            kept->put(y, over_row_.get());
            delta_overflow_row(sum, over_row_.get(), width, shift_);
            over->put(y, over_row_.get());
        }
    }

    const RowSource& source_;
    const char* tag_;
    int shift_;
    LineBuffer luma_;
    LineBufferOf<T> window_luma_, mf_, hf_;
    int next_luma_ = 0;
    int next_delta_ = 0;
    AlignedRow mf_sum_, hf_sum_, over_row_;
    std::unique_ptr<KeptPlane> mf_kept_, hf_kept_, mf_over_, hf_over_;
};

// Texture mode 1: the deltas of both luma planes and the choice between them.
template <typename Lanes>
void run_texture_rows(const EePlanes& planes, EePipeline& blocks) {
    using Row = typename Lanes::Row;
    using Rows = RowWindow<kFlatReach, Row>;
    DeltaStage<Row> in(planes.luma, "Yin");
    DeltaStage<Row> fusion(*planes.fusion, "Yfusion");
    FlatDetector<Lanes> detector(blocks.width());
    const AlignedRow mf = output_row(blocks.width());
    const AlignedRow hf = output_row(blocks.width());
    const AlignedRow texture = output_row(blocks.width());
    const std::unique_ptr<KeptPlane> mf_texture = keep_for_report(planes.luma);
    const std::unique_ptr<KeptPlane> hf_texture = keep_for_report(planes.luma);

    for (int y = 0; y < blocks.height(); ++y) {
        in.advance(int64_t{y} + kFlatReach);
        fusion.advance(int64_t{y} + kFlatReach);
        detector.set_luma(Rows(in.window_luma(), y).rows, Rows(fusion.window_luma(), y).rows);
        detector.run_band(Rows(in.mf(), y).rows, Rows(fusion.mf(), y).rows, mf.get(), texture.get());
        if (mf_texture != nullptr) {
            mf_texture->put(y, texture.get());
        }
        detector.run_band(Rows(in.hf(), y).rows, Rows(fusion.hf(), y).rows, hf.get(), texture.get());
        if (hf_texture != nullptr) {
            hf_texture->put(y, texture.get());
        }
        blocks.run_row(y, in.luma(), mf.get(), hf.get());
    }

    blocks.report_range();
    log_log(LOG_INFO, at::kTextureOn.source, at::kTextureOn.line, "texture mode is 1");
    fusion.report();
    in.report();
    if (mf_texture != nullptr) {
        report_flat_det("MF", mf_texture->rows());
        report_flat_det("HF", hf_texture->rows());
    }
}

// Texture mode 0: the luma's deltas as they are.
void run_plain_rows(const EePlanes& planes, EePipeline& blocks) {
    DeltaStage<int32_t> in(planes.luma, "Yin");
    for (int y = 0; y < blocks.height(); ++y) {
        in.advance(y);
        blocks.run_row(y, in.luma(), in.mf().row(y), in.hf().row(y));
    }
    blocks.report_range();
    in.report();
    log_log(LOG_INFO, at::kTextureOff.source, at::kTextureOff.line, "texture mode is 0");
}

}  // namespace

bool block_enabled() {
    return reg_value(reg_ee_enable) == 1;
}

void check_pre_ee_planes(const EePlanes& planes) {
    require_luma_size(planes.luma, planes.image, "src_ynr", at::kPlaneSize);
    require_luma_size(planes.luma, planes.motion, "mmap", at::kPlaneSize);
    if (!detects_texture()) {
        return;
    }
    if (!planes.fusion) {
        log_log(LOG_FATAL, at::kNoFusion.source, at::kNoFusion.line,
                "texture mode 1 needs Yfusion; set reg_ee_texture_mode to 0");
        fatal(kExitFormat, "texture mode 1 needs Yfusion; set reg_ee_texture_mode to 0\n");
    }
    require_luma_size(planes.luma, *planes.fusion, "Yfusion", at::kPlaneSize);
}

void run_pre_ee(const EePlanes& planes, RowSink& sink) {
    EePipeline blocks(planes, planes.luma.depth(), ShootVariant::kPro, sink);
    // Deltas stay within 2047 as long as no kernel sum wraps, which no luma within the bounds makes.
    const auto within = [&](int32_t bound) {
        return planes.luma.within(bound) && planes.fusion->within(bound);
    };
    if (!detects_texture()) {
        run_plain_rows(planes, blocks);
    } else if (within(Lanes16::kLumaBound)) {
        run_texture_rows<Lanes16>(planes, blocks);
    } else if (within(kNoWrapBound)) {
        run_texture_rows<Lanes32>(planes, blocks);
    } else {
        run_texture_rows<Lanes64>(planes, blocks);
    }
    blocks.report_after_deltas();
}

}  // namespace cm

FRAME* pre_ee_hw(const FRAME* Yin, const FRAME* Cb, const FRAME* Cr, const FRAME* src_ynr, const FRAME* mmap,
                 const FRAME* Yfusion) try {
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
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
