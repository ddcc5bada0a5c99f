// Directional delta: one luma plane through a wide (MF) and a compact (HF) 5x5 band-pass kernel. The
// coefficients of each add up to 0, so a flat area has no delta.
//
// 8-bit luma gives eighths of a luma code (shift 6); any other depth is taken for 12 bits (shift 9).
#include <algorithm>

#include "ee_reg_table.h"
#include "fixed_point.h"
#include "kernel.h"
#include "pre_ee_blocks.h"
#include "pre_ee_hw.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kTile = 512;

constexpr SymmetricKernel<2> kMfKernel = {{
    {192},
    {64, 0},
    {-32, -32, -16},
}};

FRAME* new_map(const FRAME& size) {
    return CM_NewFRAME(size.file_type, CM_FORMAT_SINGLE, size.width, size.height, 1, 8);
}

}  // namespace

int configure_pre_ee_delta(int depth) {
    return depth == 8 ? 6 : 9;
}

CM_ROW_FUNCTION(pre_ee_delta_sum_row,
                (Window rows, int32_t* __restrict mf_sum, int32_t* __restrict hf_sum, int width),
                (rows, mf_sum, hf_sum, width)) {
    for (int x0 = 0; x0 < width; x0 += kTile) {
        const int tile = width - x0 < kTile ? width - x0 : kTile;
        const FoldedRows<2, kTile> folded(rows, x0, tile);
        for (int i = 0; i < tile; ++i) {
            mf_sum[x0 + i] = folded.sum(kMfKernel, i);
            hf_sum[x0 + i] = folded.sum(kHfKernel, i);
        }
    }
}

CM_ROW_FUNCTION(normalise_delta_row, (const int32_t* sum, int32_t* __restrict out, int width, int shift),
                (sum, out, width, shift)) {
    for (int x = 0; x < width; ++x) {
        out[x] = shift_magnitude(sum[x], shift, kDeltaMax);
    }
}

CM_ROW_FUNCTION(normalise_delta_row, (const int32_t* sum, int16_t* __restrict out, int width, int shift),
                (sum, out, width, shift)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<int16_t>(shift_magnitude(sum[x], shift, kDeltaMax));
    }
}

CM_ROW_FUNCTION(delta_overflow_row, (const int32_t* sum, int32_t* map, int width, int shift),
                (sum, map, width, shift)) {
    for (int x = 0; x < width; ++x) {
        map[x] = magnitude(sum[x]) >> shift > kDeltaMax ? 255 : 0;
    }
}

void report_pre_ee_delta(const std::string& tag, const FRAME& mf, const FRAME& hf, const FRAME& mf_over,
                         const FRAME& hf_over) {
    write_sign_image(debug_path(tag, "dbg_delta_MF_8b.ppm"), mf);
    write_sign_image(debug_path(tag, "dbg_delta_HF_8b.ppm"), hf);

    FRAME* const mf_grey = new_map(mf);
    FRAME* const hf_grey = new_map(hf);
    const size_t pixels = size_t{mf.width} * mf.height;
    for (size_t i = 0; i < pixels; ++i) {
        const int32_t hf_level = min32(magnitude(hf.data[i * hf.channels]), 255);
        // Intended: the grey MF image shows the HF magnitude; only the zero test looks at MF.
        mf_grey->data[i] = mf.data[i * mf.channels] != 0 ? hf_level : 0;
        hf_grey->data[i] = hf_level;
    }
    CM_WritePPM(debug_path(tag, "dbg_delta_MF_8b_gray.ppm").c_str(), mf_grey);
    CM_WritePPM(debug_path(tag, "dbg_delta_HF_8b_gray.ppm").c_str(), hf_grey);
    CM_WritePPM(debug_path(tag, "dbg_delta_MF_over_8b.ppm").c_str(), &mf_over);
    // Intended: the HF overflow map replaces the grey HF image.
    CM_WritePPM(debug_path(tag, "dbg_delta_HF_8b_gray.ppm").c_str(), &hf_over);
    CM_DelFRAME(mf_grey);
    CM_DelFRAME(hf_grey);
}

}  // namespace cm

void PRE_EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf, const char* tag) {
    const int width = static_cast<int>(in->width);
    const int shift = cm::configure_pre_ee_delta(in->depth);
    const bool enabled = cm::reg_value(reg_ee_enable) == 1;
    const bool dump = dump_dbg_img != 0;
    FRAME* const mf_over = dump ? cm::new_map(*in) : nullptr;
    FRAME* const hf_over = dump ? cm::new_map(*in) : nullptr;
    const cm::AlignedRow mf_sum = cm::output_row(width);
    const cm::AlignedRow hf_sum = cm::output_row(width);
    const cm::AlignedRow delta_row = cm::output_row(width);
    const cm::AlignedRow over_row = cm::output_row(width);
    cm::FrameWindow<2> window(*in, width);
    for (int y = 0; y < static_cast<int>(in->height); ++y) {
        if (enabled) {
            cm::pre_ee_delta_sum_row(window.around(y), mf_sum.get(), hf_sum.get(), width);
        } else {
            std::fill_n(mf_sum.get(), width, 0);
            std::fill_n(hf_sum.get(), width, 0);
        }
        if (dump) {
            cm::delta_overflow_row(mf_sum.get(), over_row.get(), width, shift);
            cm::write_row(*mf_over, y, over_row.get(), width);
            cm::delta_overflow_row(hf_sum.get(), over_row.get(), width, shift);
            cm::write_row(*hf_over, y, over_row.get(), width);
        }
        cm::normalise_delta_row(mf_sum.get(), delta_row.get(), width, shift);
        cm::write_row(*mf, y, delta_row.get(), width);
        cm::normalise_delta_row(hf_sum.get(), delta_row.get(), width, shift);
        cm::write_row(*hf, y, delta_row.get(), width);
    }
    if (dump) {
        cm::report_pre_ee_delta(tag, *mf, *hf, *mf_over, *hf_over);
        CM_DelFRAME(mf_over);
        CM_DelFRAME(hf_over);
    }
}
