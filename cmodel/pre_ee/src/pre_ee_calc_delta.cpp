// Directional delta: one luma plane through a wide (MF) and a compact (HF) 5x5 band-pass kernel. The
// coefficients of each add up to 0, so a flat area has no delta.
//
// 8-bit luma gives eighths of a luma code (shift 6); any other depth is taken for 12 bits (shift 9).
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "kernel.h"
#include "pre_ee_blocks.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr SymmetricKernel<2> kMfKernel = {{
    {192},
    {64, 0},
    {-32, -32, -16},
}};

// Kernel sums, before the normalising shift.
template <typename T>
CM_INLINE void sum_tile(const T* const* rows, int64_t x0, int tile, int32_t* __restrict mf,
                        int32_t* __restrict hf) {
    const FoldedRows<2, kTile> folded(rows, x0, tile);
    for (int i = 0; i < tile; ++i) {
        mf[i] = folded.sum(kMfKernel, i);
        hf[i] = folded.sum(kHfKernel, i);
    }
}

// sgn(sum) * min(|sum| >> shift, 2047)
template <typename T>
CM_INLINE void normalise_tile(const int32_t* sum, T* __restrict out, int tile, int shift) {
    for (int i = 0; i < tile; ++i) {
        out[i] = static_cast<T>(shift_magnitude(sum[i], shift, kDeltaMax));
    }
}

// 255 where the shifted magnitude is above 2047.
template <typename T>
CM_INLINE void mark_overflow(const int32_t* sum, T* __restrict map, int tile, int shift) {
    for (int i = 0; i < tile; ++i) {
        map[i] = magnitude(sum[i]) >> shift > kDeltaMax ? 255 : 0;
    }
}

// The overflow maps may be null.
CM_ROW_TEMPLATE(delta_row, (const T* const* rows, T* mf, T* hf, T* mf_over, T* hf_over, int width, int shift),
                (rows, mf, hf, mf_over, hf_over, width, shift)) {
    int32_t mf_sum[kTile];
    int32_t hf_sum[kTile];
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = tile_at(x0, width);
        sum_tile(rows, x0, tile, mf_sum, hf_sum);
        normalise_tile(mf_sum, mf + x0, tile, shift);
        normalise_tile(hf_sum, hf + x0, tile, shift);
        if (mf_over != nullptr) {
            mark_overflow(mf_sum, mf_over + x0, tile, shift);
        }
        if (hf_over != nullptr) {
            mark_overflow(hf_sum, hf_over + x0, tile, shift);
        }
    }
}

struct PreCalcDelta {
    int shift;

    void configure(const Registers&, const BlockSetup& setup) { shift = setup.in_depth == 8 ? 6 : 9; }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        delta_row(rows.window[0], rows.out[0], rows.out[1], rows.out[2], rows.out[3], rows.width, shift);
    }

    void report(const BlockReport& report) const {
        if (!report.images()) {
            return;
        }
        const RowSource &mf = *report.out[0], &hf = *report.out[1];
        const RowSource &mf_over = *report.out[2], &hf_over = *report.out[3];
        write_sign_image(report.image_path("dbg_delta_MF_8b.ppm"), mf);
        write_sign_image(report.image_path("dbg_delta_HF_8b.ppm"), hf);
        // Intended: the grey MF image shows the HF magnitude; only the zero test looks at MF.
        write_magnitude_image(report.image_path("dbg_delta_MF_8b_gray.ppm"), mf, hf);
        write_magnitude_image(report.image_path("dbg_delta_HF_8b_gray.ppm"), hf, hf);
        write_magnitude_image(report.image_path("dbg_delta_MF_over_8b.ppm"), mf_over, mf_over);
        // Intended: the HF overflow map replaces the grey HF image.
        write_magnitude_image(report.image_path("dbg_delta_HF_8b_gray.ppm"), hf_over, hf_over);
    }
};

constexpr BlockOutput kDelta{.shown = Shown::kPicture};
constexpr BlockOutput kOverflow{.shown = Shown::kPicture, .optional = true};

}  // namespace

const Block kPreCalcDelta = make_block<PreCalcDelta>(
    {"PRE_EE_CalcDelta", "two 5x5 band-pass kernels; shift 6 for 8-bit luma, 9 for any other depth",
     "per tag (`Yin`, `Yfusion`): `TAG_dbg_delta_MF_8b.ppm`, `TAG_dbg_delta_HF_8b.ppm`, "
     "`TAG_dbg_delta_MF_8b_gray.ppm` (the HF magnitude, where MF is not 0), `TAG_dbg_delta_MF_over_8b.ppm`, "
     "`TAG_dbg_delta_HF_8b_gray.ppm` (ends up as the HF overflow map)"},
    {{.reach = 2, .padded = true, .when_off = 0}}, {kDelta, kDelta, kOverflow, kOverflow});

}  // namespace cm

void PRE_EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf, const char* tag) {
    // The overflow maps serve the images alone.
    const auto new_map = [&] {
        return dump_dbg_img != 0 ? CM_NewFRAME(in->file_type, CM_FORMAT_SINGLE, in->width, in->height, 1, 8)
                                 : nullptr;
    };
    FRAME* const mf_over = new_map();
    FRAME* const hf_over = new_map();
    cm::run_on_frames(cm::kPreCalcDelta, {{in}}, {{mf}, {hf}, {mf_over}, {hf_over}}, *in, tag);
    CM_DelFRAME(mf_over);
    CM_DelFRAME(hf_over);
}
