// Low-pass references by which later blocks look up brightness and colour: a 3x3 binomial of luma and
// a 5-tap horizontal binomial of Cb and Cr. 8-bit codes in and out.
//
//            1 2 1
//   luma:    2 4 2  / 16, truncated          chroma:   1 4 6 4 1  / 16, rounded toward 128
//            1 2 1
#include "ee_blocks.h"
#include "fixed_point.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int32_t kChromaMid = 128;
constexpr int kGainLog2 = 4;

}  // namespace

CM_ROW_FUNCTION(lpf_luma_row, (Window rows, int32_t* __restrict out, int width), (rows, out, width)) {
    const int32_t* const above = rows[0];
    const int32_t* const here = rows[1];
    const int32_t* const below = rows[2];
    for (int x = 0; x < width; ++x) {
        const Wrap left = Wrap(above[x - 1]) + Wrap(here[x - 1]) * 2 + Wrap(below[x - 1]);
        const Wrap mid = Wrap(above[x]) + Wrap(here[x]) * 2 + Wrap(below[x]);
        const Wrap right = Wrap(above[x + 1]) + Wrap(here[x + 1]) * 2 + Wrap(below[x + 1]);
        out[x] = (left + mid * 2 + right) >> kGainLog2;
    }
}

CM_ROW_FUNCTION(lpf_chroma_row, (const int32_t* in, int32_t* __restrict out, int width), (in, out, width)) {
    for (int64_t x = 0; x < width; ++x) {
        const Wrap outer = Wrap(in[x - 2]) + Wrap(in[x + 2]);
        const Wrap inner = Wrap(in[x - 1]) + Wrap(in[x + 1]);
        const Wrap centred = outer + inner * 4 + Wrap(in[x]) * 6 - (kChromaMid << kGainLog2);
        out[x] = Wrap(with_sign(centred, magnitude(centred) >> kGainLog2)) + kChromaMid;
    }
}

}  // namespace cm

void EE_GenLPF3x3(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* out) {
    const int width = static_cast<int>(Y->width);
    const cm::AlignedRow row = cm::output_row(width);
    cm::FrameWindow<1> luma(*Y, width);
    cm::FrameWindow<0> cb(*Cb, width);
    cm::FrameWindow<0> cr(*Cr, width);
    for (int y = 0; y < static_cast<int>(Y->height); ++y) {
        cm::lpf_luma_row(luma.around(y), row.get(), width);
        cm::write_row(*out, y, row.get(), width, 0);
        cm::lpf_chroma_row(cb.around(y)[0], row.get(), width);
        cm::write_row(*out, y, row.get(), width, 1);
        cm::lpf_chroma_row(cr.around(y)[0], row.get(), width);
        cm::write_row(*out, y, row.get(), width, 2);
    }
}
