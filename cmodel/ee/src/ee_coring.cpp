// Coring: takes the level off the magnitudes of the MF and HF deltas, so that what lies below (noise) is
// gone, and blends the two into one cored delta.
//
//   out ^      /            cored = sgn(delta) * max(|delta| - level, 0)
//       |     /
//   ----+____/---> delta
//      /|  level
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

struct Coring {
    int32_t mf_core_gain_q7;
    int32_t mf_wgt_q8;
    int32_t hf_wgt_q8;

    void configure(const Registers& r, const BlockSetup&) {
        *this = {r[reg_ee_mf_core_gain], r[reg_mf_blend_wgt], r[reg_hf_blend_wgt]};
    }

    void run(const BlockRows<int32_t>& rows) const;
    void run(const BlockRows<int16_t>& rows) const;

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_sign_image(report.image_path("dbg_delta_core_8b.ppm"), *report.out[0]);
        }
    }
};

// ---- In its simplest terms ----

CM_INLINE int32_t core_sample(int32_t delta, int32_t level) {
    return with_sign(delta, max32(Wrap(magnitude(delta)) - Wrap(level), 0));
}

CM_ROW_FUNCTION(coring_row, (const BlockRows<int32_t>& rows, const Coring& c), (rows, c)) {
    const int32_t *const mf = rows.in[0], *const hf = rows.in[1], *const level = rows.in[2];
    int32_t* __restrict const out = rows.out[0];
    const int width = rows.width;
    const Coring k = c;
    for (int x = 0; x < width; ++x) {
        const Wrap a = core_sample(mf[x], (Wrap(level[x]) * k.mf_core_gain_q7) >> 7);
        const Wrap b = core_sample(hf[x], level[x]);
        out[x] = shift_magnitude(a * k.mf_wgt_q8 + b * k.hf_wgt_q8, 8, kDeltaMax);
    }
}

void Coring::run(const BlockRows<int32_t>& rows) const {
    coring_row(rows, *this);
}

// ---- In 16 bits ----
//
// Levels are not negative, so cored deltas stay within 2047. Each product with its weight is a multiple of
// 256, from one multiplication, and a rest, from another; the rests decide the rounding toward zero.

CM_INLINE int16_t core_sample16(int16_t delta, int16_t level) {
    const int16_t negative = below16(delta, 0);
    return with_sign16(negative, max16(static_cast<int16_t>(with_sign16(negative, delta) - level), 0));
}

CM_ROW_FUNCTION(coring_row16,
                (const int16_t* mf, const int16_t* hf, const int16_t* level, int16_t* __restrict out,
                 int width, const Coring& c),
                (mf, hf, level, out, width, c)) {
    using S = int16_t;
    const S mf_core_gain = static_cast<S>(c.mf_core_gain_q7 << 7);
    const S mf_wgt = static_cast<S>(c.mf_wgt_q8), hf_wgt = static_cast<S>(c.hf_wgt_q8);
    const S mf_factor = static_cast<S>(c.mf_wgt_q8 << 4), hf_factor = static_cast<S>(c.hf_wgt_q8 << 4);
    for (int x = 0; x < width; ++x) {
        const S a = core_sample16(mf[x], high_product(static_cast<S>(level[x] << 2), mf_core_gain));
        const S b = core_sample16(hf[x], level[x]);
        const S whole = static_cast<S>(high_product(static_cast<S>(a << 4), mf_factor) +
                                       high_product(static_cast<S>(b << 4), hf_factor));
        const S rest =
            static_cast<S>((static_cast<S>(a * mf_wgt) & 255) + (static_cast<S>(b * hf_wgt) & 255));
        const S sum = static_cast<S>(whole + static_cast<S>(rest >> 8));
        // A negative sum with a rest is one nearer to zero.
        const S has_rest = static_cast<S>(static_cast<S>((rest & 255) + 255) >> 8);
        const S rounded = static_cast<S>(sum + (has_rest & below16(sum, 0)));
        out[x] = min16(max16(rounded, -kDeltaMax), kDeltaMax);
    }
}

void Coring::run(const BlockRows<int16_t>& rows) const {
    coring_row16(rows.in[0], rows.in[1], rows.in[2], rows.out[0], rows.width, *this);
}

}  // namespace

const Block kCoring = make_block<Coring>(
    {"EE_Coring", "takes the level off both deltas and blends them", "`dbg_delta_core_8b.ppm`"}, {{}, {}, {}},
    {{.shown = Shown::kPicture}});

}  // namespace cm

void EE_Coring(const FRAME* mf, const FRAME* hf, const FRAME* core, FRAME* out) {
    cm::run_on_frames(cm::kCoring, {{mf}, {hf}, {core}}, {{out}}, *out);
}
