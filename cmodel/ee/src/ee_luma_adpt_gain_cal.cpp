// Gain by brightness, from luma itself or from its low-pass.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_hw.h"

namespace cm {
namespace {

struct LumaAdptGainCal {
    bool by_lowpass;
    GainTable gain;

    void configure(const Registers& r, const BlockSetup&) {
        by_lowpass = r[reg_ee_lumaref_lpf_en] == 1;
        if (r[reg_ee_luma_adptctrl_en] == 1) {
            gain.set(r, reg_ee_luma_adptctrl_lut_00, false);
        } else {
            gain.set_constant(kUnitGain);
        }
    }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        gain_row(by_lowpass ? rows.in[1] : rows.in[0], rows.out[0], rows.width, gain);
    }
};

}  // namespace

const Block kLumaAdptGainCal = make_block<LumaAdptGainCal>({"EE_LumaAdptGainCal", "gain by brightness", ""},
                                                           {{.when_off = 0}, {.when_off = 0}}, {{}});

}  // namespace cm

void EE_LumaAdptGainCal(const FRAME* Y, const FRAME* ref, FRAME* gain) {
    cm::run_on_frames(cm::kLumaAdptGainCal, {{Y}, {ref}}, {{gain}}, *Y);
}
