// Deltas of the classic pipeline: luma through a 7x7 mid-frequency and a 5x5 high-frequency kernel,
// into eighths of a luma code. The shift is that of 8-bit luma whatever the depth.
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "kernel.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kShift = 6;
constexpr int kTile = 512;

constexpr SymmetricKernel<3> kMfKernel = {{
    {80},
    {40, 15},
    {-8, -12, -12},
    {-8, -7, -4, -1},
}};

}  // namespace

CM_ROW_FUNCTION(classic_delta_row, (Window rows, int32_t* __restrict mf, int32_t* __restrict hf, int width),
                (rows, mf, hf, width)) {
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
        const FoldedRows<3, kTile> folded(rows, x0, tile);
        for (int i = 0; i < tile; ++i) {
            mf[x0 + i] = shift_magnitude(folded.sum(kMfKernel, i), kShift, kDeltaMax);
            hf[x0 + i] = shift_magnitude(folded.sum(kHfKernel, i), kShift, kDeltaMax);
        }
    }
}

void report_classic_delta(const RowSource& mf, const RowSource& hf) {
    write_sign_image(debug_path("dbg_delta_MF_8b.ppm"), mf);
    write_sign_image(debug_path("dbg_delta_HF_8b.ppm"), hf);
}

}  // namespace cm

void EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf) try {
    const int width = static_cast<int>(in->width);
    const bool enabled = cm::reg_value(reg_ee_enable) == 1;
    const cm::AlignedRow mf_row = cm::output_row(width);
    const cm::AlignedRow hf_row = cm::output_row(width);
    for (int x = 0; x < width; ++x) {
        mf_row[static_cast<size_t>(x)] = hf_row[static_cast<size_t>(x)] = 0;
    }
    cm::FrameWindow<3> window(*in, width);
    for (int y = 0; y < static_cast<int>(in->height); ++y) {
        if (enabled) {
            cm::classic_delta_row(window.around(y), mf_row.get(), hf_row.get(), width);
        }
        cm::write_row(*mf, y, mf_row.get(), width);
        cm::write_row(*hf, y, hf_row.get(), width);
    }
    if (dump_dbg_img != 0) {
        cm::report_classic_delta(cm::RowSource(*mf), cm::RowSource(*hf));
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
