// Gain by motion: moving areas can be sharpened less. 128 is 1.0.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_hw.h"

namespace cm {
namespace {

struct MotionGain {
    CurveTable gain;
    bool above_unit;

    void configure(const Registers& r, const BlockSetup&) {
        gain.set(r, reg_ee_motion_lut_in_0);
        above_unit = curve_exceeds_unit(r, reg_ee_motion_lut_in_0);
    }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        curve_row(rows.in[0], rows.out[0], rows.width, gain);
    }

    void report(const BlockReport& report) const {
        if (above_unit) {
            report.log.record(LOG_ERROR, at::kMotionLevels, "reg_ee_motion_lut_out is greater than 128\n");
        }
    }
};

}  // namespace

const Block kMotionGain =
    make_block<MotionGain>({"EE_MotionGain", "gain by motion", ""}, {{.when_off = 0}}, {{}});

}  // namespace cm

void EE_MotionGain(const FRAME* motion, FRAME* gain) {
    cm::run_on_frames(cm::kMotionGain, {{motion}}, {{gain}}, *motion);
}
