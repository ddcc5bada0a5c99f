// The classic pipeline on frames: spike clamp and fixed delta kernels in front of the edge-enhancement
// blocks.
#include "ee_hw.h"

#include <algorithm>

#include "fixed_run.h"

namespace {

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

}  // namespace

void ee_sw(FRAME*) {}

FRAME* ee_hw(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, const FRAME* image, const FRAME* motion) {
    if (!cm::block_enabled()) {
        return CM_CopyFRAME(image);
    }
    const cm::FrameSource y(*Y), cb(*Cb), cr(*Cr), ynr(*image), mmap(*motion);
    cm::require_luma_size(y, ynr, "image", cm::at::kClassicPlaneSize);
    cm::require_luma_size(y, mmap, "motion", cm::at::kClassicPlaneSize);
    FRAME* const out = cm::new_output_frame(*Y);
    cm::FrameSink sink(*out);
    cm::run_fixed(cm::kClassicEe, {&y, &cb, &cr, &ynr, &mmap, nullptr}, sink);
    if (cm::shows_debug_view()) {
        cm::set_neutral_chroma(*out);
    } else {
        spread_raster(*out);
    }
    return out;
}
