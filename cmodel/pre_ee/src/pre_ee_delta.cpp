// Directional delta: one luma plane through a wide (MF) and a compact (HF) 5x5 band-pass kernel. The
// coefficients of each add up to 0, so a flat area has no delta.
//
// 8-bit luma gives eighths of a luma code (shift 6); any other depth is taken for 12 bits (shift 9).
#include <algorithm>

#include "ee_reg_table.h"
#include "fixed_point.h"
#include "kernel.h"
#include "pnm.h"
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

CM_ROW_FUNCTION(grey_pixels_row,
                (const int32_t* tested, const int32_t* shown, uint8_t* __restrict pixels, int width),
                (tested, shown, pixels, width)) {
    for (int64_t x = 0; x < width; ++x) {
        const int32_t level = min32(magnitude(shown[x]), 255) & mask_of(tested[x] != 0);
        pixels[3 * x] = static_cast<uint8_t>(level);
        pixels[3 * x + 1] = static_cast<uint8_t>(level);
        pixels[3 * x + 2] = static_cast<uint8_t>(level);
    }
}

// Magnitudes of `shown` where `tested` is not 0, as grey pixels.
void write_grey_image(const std::string& path, const RowSource& tested, const RowSource& shown) {
    const int width = shown.width();
    const AlignedRow test_row = output_row(width);
    const AlignedRow shown_row = output_row(width);
    write_colour_rows(path.c_str(), static_cast<uint32_t>(width), static_cast<uint32_t>(shown.height()),
                      [&](uint32_t y, uint8_t* pixels) {
                          grey_pixels_row(tested.row(y, test_row.get(), width),
                                          shown.row(y, shown_row.get(), width), pixels, width);
                      });
}

}  // namespace

int configure_pre_ee_delta(int depth) {
    return depth == 8 ? 6 : 9;
}

CM_ROW_FUNCTION(pre_ee_delta_sum_row,
                (Window rows, int32_t* __restrict mf_sum, int32_t* __restrict hf_sum, int width),
                (rows, mf_sum, hf_sum, width)) {
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
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

void report_pre_ee_delta(const std::string& tag, const RowSource& mf, const RowSource& hf,
                         const RowSource& mf_over, const RowSource& hf_over) {
    write_sign_image(debug_path(tag, "dbg_delta_MF_8b.ppm"), mf);
    write_sign_image(debug_path(tag, "dbg_delta_HF_8b.ppm"), hf);
    // Intended: the grey MF image shows the HF magnitude; only the zero test looks at MF.
    write_grey_image(debug_path(tag, "dbg_delta_MF_8b_gray.ppm"), mf, hf);
    write_grey_image(debug_path(tag, "dbg_delta_HF_8b_gray.ppm"), hf, hf);
    write_grey_image(debug_path(tag, "dbg_delta_MF_over_8b.ppm"), mf_over, mf_over);
    // Intended: the HF overflow map replaces the grey HF image.
    write_grey_image(debug_path(tag, "dbg_delta_HF_8b_gray.ppm"), hf_over, hf_over);
}

}  // namespace cm

void PRE_EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf, const char* tag) try {
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
        cm::report_pre_ee_delta(tag, cm::RowSource(*mf), cm::RowSource(*hf), cm::RowSource(*mf_over),
                                cm::RowSource(*hf_over));
        CM_DelFRAME(mf_over);
        CM_DelFRAME(hf_over);
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
