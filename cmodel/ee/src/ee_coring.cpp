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

    template <typename T>
    void run(const BlockRows<T>& rows) const;

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_sign_image(report.image_path("dbg_delta_core_8b.ppm"), *report.out[0]);
        }
    }
};

CM_INLINE int32_t core_sample(int32_t delta, int32_t level) {
    return with_sign(delta, max32(Wrap(magnitude(delta)) - Wrap(level), 0));
}

CM_ROW_TEMPLATE(coring_row,
                (const T* mf, const T* hf, const T* level, T* __restrict out, int width,
                 const Coring& shared),
                (mf, hf, level, out, width, shared)) {
    const Coring c = shared;
    for (int x = 0; x < width; ++x) {
        const Wrap a = core_sample(mf[x], (Wrap(level[x]) * c.mf_core_gain_q7) >> 7);
        const Wrap b = core_sample(hf[x], level[x]);
        out[x] = static_cast<T>(shift_magnitude(a * c.mf_wgt_q8 + b * c.hf_wgt_q8, 8, kDeltaMax));
    }
}

template <typename T>
void Coring::run(const BlockRows<T>& rows) const {
    coring_row(rows.in[0], rows.in[1], rows.in[2], rows.out[0], rows.width, *this);
}

}  // namespace

const Block kCoring = make_block<Coring>(
    {"EE_Coring", "takes the level off both deltas and blends them", "`dbg_delta_core_8b.ppm`"}, {{}, {}, {}},
    {{.shown = Shown::kPicture}});

}  // namespace cm

void EE_Coring(const FRAME* mf, const FRAME* hf, const FRAME* core, FRAME* out) {
    cm::run_on_frames(cm::kCoring, {{mf}, {hf}, {core}}, {{out}}, *out);
}
