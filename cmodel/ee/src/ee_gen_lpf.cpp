// Low-pass references by which later blocks look up brightness and colour: a 3x3 binomial of luma and
// a 5-tap horizontal binomial of Cb and Cr. 8-bit codes in and out.
//
//            1 2 1
//   luma:    2 4 2  / 16, truncated          chroma:   1 4 6 4 1  / 16, rounded toward 128
//            1 2 1
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kGainLog2 = 4;

// The arithmetic of either form: 8-bit codes, 16 of which add up in 16 bits.
CM_ROW_TEMPLATE(lpf_luma_row, (const T* const* rows, T* __restrict out, int width), (rows, out, width)) {
    using L = LaneOf<T>;
    const T* const above = rows[0];
    const T* const here = rows[1];
    const T* const below = rows[2];
    for (int x = 0; x < width; ++x) {
        const L left = L(above[x - 1]) + L(here[x - 1]) * 2 + L(below[x - 1]);
        const L mid = L(above[x]) + L(here[x]) * 2 + L(below[x]);
        const L right = L(above[x + 1]) + L(here[x + 1]) * 2 + L(below[x + 1]);
        out[x] = (left + mid * 2 + right) >> kGainLog2;
    }
}

CM_ROW_TEMPLATE(lpf_chroma_row, (const T* in, T* __restrict out, int width), (in, out, width)) {
    using L = LaneOf<T>;
    for (int x = 0; x < width; ++x) {
        const L outer = L(in[x - 2]) + L(in[x + 2]);
        const L inner = L(in[x - 1]) + L(in[x + 1]);
        const L centred = outer + inner * 4 + L(in[x]) * 6 - (kChromaMid << kGainLog2);
        out[x] = L(round_toward(centred, kGainLog2)) + kChromaMid;
    }
}

struct GenLpf3x3 {
    void configure(const Registers&, const BlockSetup&) {}

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        lpf_luma_row(rows.window[0], rows.out[0], rows.width);
        lpf_chroma_row(rows.in[1], rows.out[1], rows.width);
        lpf_chroma_row(rows.in[2], rows.out[2], rows.width);
    }
};

}  // namespace

const Block kGenLpf3x3 = make_block<GenLpf3x3>(
    {"EE_GenLPF3x3", "3x3 low-pass of luma, 5-tap low-pass of chroma along the row", ""},
    {{.reach = 1, .padded = true}, {.padded = true}, {.padded = true}}, {{}, {}, {}});

}  // namespace cm

void EE_GenLPF3x3(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* out) {
    cm::run_on_frames(cm::kGenLpf3x3, {{Y}, {Cb}, {Cr}}, {{out, 0}, {out, 1}, {out, 2}}, *Y);
}
