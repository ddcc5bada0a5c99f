// Deltas of the classic pipeline: luma through a 7x7 mid-frequency and a 5x5 high-frequency kernel,
// into eighths of a luma code. The shift is that of 8-bit luma whatever the depth.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "kernel.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kShift = 6;

constexpr SymmetricKernel<3> kMfKernel = {{
    {80},
    {40, 15},
    {-8, -12, -12},
    {-8, -7, -4, -1},
}};

CM_ROW_TEMPLATE(classic_delta_row, (const T* const* rows, T* __restrict mf, T* __restrict hf, int width),
                (rows, mf, hf, width)) {
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = tile_at(x0, width);
        const FoldedRows<3, kTile> folded(rows, x0, tile);
        for (int i = 0; i < tile; ++i) {
            mf[x0 + i] = static_cast<T>(shift_magnitude(folded.sum(kMfKernel, i), kShift, kDeltaMax));
            hf[x0 + i] = static_cast<T>(shift_magnitude(folded.sum(kHfKernel, i), kShift, kDeltaMax));
        }
    }
}

struct CalcDelta {
    void configure(const Registers&, const BlockSetup&) {}

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        classic_delta_row(rows.window[0], rows.out[0], rows.out[1], rows.width);
    }

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_sign_image(report.image_path("dbg_delta_MF_8b.ppm"), *report.out[0]);
            write_sign_image(report.image_path("dbg_delta_HF_8b.ppm"), *report.out[1]);
        }
    }
};

}  // namespace

const Block kCalcDelta = make_block<CalcDelta>(
    {"EE_CalcDelta", "7x7 and 5x5 band-pass kernels", "`dbg_delta_MF_8b.ppm`, `dbg_delta_HF_8b.ppm`"},
    {{.reach = 3, .padded = true, .when_off = 0}}, {{.shown = Shown::kPicture}, {.shown = Shown::kPicture}});

}  // namespace cm

void EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf) {
    cm::run_on_frames(cm::kCalcDelta, {{in}}, {{mf}, {hf}}, *in);
}
