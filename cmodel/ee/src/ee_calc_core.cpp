// Coring level: below it a delta counts as noise. One level for still and one for moving areas, each by
// brightness or fixed, blended by motion:
//
//   level = ((128 - w) * still + w * moving) >> (15 - depth)      w: share of the moving level, in 128ths
//
// Intended: a bit of depth doubles the level, so that a register of 1 is an eighth of a code for 8-bit luma
// and 16 such eighths for 12-bit luma, whose deltas only double.
#include <algorithm>
#include <iterator>

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_TEMPLATE(blend_level_row,
                (T* __restrict level, const T* moving, const T* weight, int width, int shift),
                (level, moving, weight, width, shift)) {
    for (int x = 0; x < width; ++x) {
        const Wrap w = weight[x];
        level[x] = static_cast<T>(int32_t{((kUnitWeight - w) * level[x] + w * moving[x]) >> shift});
    }
}

struct CalcCore {
    bool by_lowpass;       // brightness from the low-pass reference, else from luma itself
    CurveTable still;      // level of still areas, by brightness
    CurveTable moving;     // level of moving areas, by brightness
    CurveTable weight;     // share of the moving level, by motion
    CurveTable by_motion;  // the level, where neither depends on brightness
    int shift;             // takes the 128ths of the blend off, less a bit for each that luma has above 8
    bool too_deep;

    void configure(const Registers& r, const BlockSetup& setup) {
        by_lowpass = r[reg_ee_lumaref_lpf_en] == 1;
        if (r[reg_ee_luma_coring_en] == 1) {
            still.set(r, reg_ee_luma_coring_lut_in_0);
            moving.set(r, reg_ee_motion_coring_lut_in_0);
        } else {
            still.set_constant(r[reg_ee_total_coring]);
            moving.set_constant(r[reg_ee_total_motion_coring]);
        }
        weight.set(r, reg_ee_mcore_gain_lut_in_0);
        shift = (Wrap(15) - setup.in_depth) & 31;
        too_deep = setup.in_depth > 12;
        for (int v = 0; v <= 256; ++v) {
            const Wrap w = weight.entry[v];
            by_motion.entry[v] = ((kUnitWeight - w) * still.entry[0] + w * moving.entry[0]) >> shift;
        }
        by_motion.finish();
    }

    // Weights above the whole make levels below zero. Luma of 12 bits makes levels up to 4080; deeper luma
    // makes larger ones than coring takes in 16 bits.
    bool fits_narrow() const {
        return shift >= 15 - 12 &&
               *std::max_element(std::begin(weight.entry), std::end(weight.entry)) <= kUnitWeight;
    }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        const T* const brightness = by_lowpass ? rows.in[1] : rows.in[0];
        const T* const motion = rows.in[2];
        T* const level = rows.out[0];
        if (still.is_constant && moving.is_constant) {
            curve_row(motion, level, rows.width, by_motion);
            return;
        }
        T moving_level[kTile];
        T share[kTile];
        for_each_tile(rows.width, [&](int64_t x0, int tile) {
            curve_row(brightness + x0, level + x0, tile, still);
            curve_row(brightness + x0, moving_level, tile, moving);
            curve_row(motion + x0, share, tile, weight);
            blend_level_row(level + x0, moving_level, share, tile, shift);
        });
    }

    void report(const BlockReport& report) const {
        if (too_deep) {
            report.log.record(
                LOG_ERROR, at::kCoreDepth,
                "[EE_CalcCore]: depth > 12 and would cause error in the following shift operations\n");
        }
    }
};

}  // namespace

const Block kCalcCore = make_block<CalcCore>(
    {"EE_CalcCore", "level below which a delta counts as noise, by brightness and motion", ""},
    {{}, {}, {.when_off = 0}}, {{}});

}  // namespace cm

void EE_CalcCore(const FRAME* Y, const FRAME* ref, const FRAME* motion, FRAME* core) {
    cm::run_on_frames(cm::kCalcCore, {{Y}, {ref}, {motion}}, {{core}}, *Y);
}
