// Coring: takes small deltas (noise) out before sharpening.
//
// EE_CalcCore makes the level below which a delta counts as noise: a level for still and one for moving
// areas, each by brightness or fixed, blended by motion. EE_Coring takes it off the magnitudes of the MF
// and HF deltas and blends the two into one cored delta.
//
//   out ^      /            cored = sgn(delta) * max(|delta| - level, 0)
//       |     /
//   ----+____/---> delta
//      /|  level
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int32_t kUnitWeightQ7 = 128;
constexpr int kTile = 512;

CM_INLINE int32_t core_sample(int32_t delta, int32_t level) {
    return with_sign(delta, max32(Wrap(magnitude(delta)) - Wrap(level), 0));
}

}  // namespace

CoreConfig configure_core(int luma_depth) {
    CoreConfig c;
    c.by_lowpass = reg_value(reg_ee_lumaref_lpf_en) == 1;
    const bool by_brightness = reg_value(reg_ee_luma_coring_en) == 1;
    c.still = by_brightness ? tabulate_curve(reg_ee_luma_coring_lut_in_0)
                            : constant_curve(reg_value(reg_ee_total_coring));
    c.motion = by_brightness ? tabulate_curve(reg_ee_motion_coring_lut_in_0)
                             : constant_curve(reg_value(reg_ee_total_motion_coring));
    c.weight = tabulate_curve(reg_ee_mcore_gain_lut_in_0);
    if (reg_value(reg_ee_enable) != 1) {
        c.weight = constant_curve(c.weight.entry[0]);
    }
    c.shift = (Wrap(15) - luma_depth) & 31;
    return c;
}

// core = ((128 - w) * still + w * motion) >> (15 - depth), in place of the still level.
CM_ROW_FUNCTION(blend_core_row,
                (int32_t* __restrict core, const int32_t* motion_level, const int32_t* weight, int width,
                 int shift),
                (core, motion_level, weight, width, shift)) {
    for (int x = 0; x < width; ++x) {
        const Wrap w = weight[x];
        core[x] = ((kUnitWeightQ7 - w) * core[x] + w * motion_level[x]) >> shift;
    }
}

void core_row(const int32_t* luma, const int32_t* lowpass, const int32_t* motion, int32_t* core, int width,
              const CoreConfig& c) {
    const int32_t* const brightness = c.by_lowpass ? lowpass : luma;
    int32_t motion_level[kTile];
    int32_t weight[kTile];
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
        curve_row(brightness + x0, core + x0, tile, c.still);
        curve_row(brightness + x0, motion_level, tile, c.motion);
        curve_row(motion + x0, weight, tile, c.weight);
        blend_core_row(core + x0, motion_level, weight, tile, c.shift);
    }
}

void report_core(int luma_depth) {
    if (luma_depth > 12) {
        log_log(LOG_ERROR, at::kCoreDepth.source, at::kCoreDepth.line,
                "[EE_CalcCore]: depth > 12 and would cause error in the following shift operations\n");
    }
}

CoringConfig configure_coring() {
    return {reg_value(reg_ee_mf_core_gain), reg_value(reg_mf_blend_wgt), reg_value(reg_hf_blend_wgt)};
}

CM_ROW_FUNCTION(coring_row,
                (const int32_t* mf, const int32_t* hf, const int32_t* core, int32_t* __restrict out,
                 int width, const CoringConfig& c),
                (mf, hf, core, out, width, c)) {
    for (int x = 0; x < width; ++x) {
        const Wrap a = core_sample(mf[x], (Wrap(core[x]) * c.mf_core_gain_q7) >> 7);
        const Wrap b = core_sample(hf[x], core[x]);
        out[x] = shift_magnitude(a * c.mf_wgt_q8 + b * c.hf_wgt_q8, 8, kDeltaMax);
    }
}

void report_coring(const RowSource& cored) {
    write_sign_image(debug_path("dbg_delta_core_8b.ppm"), cored);
}

}  // namespace cm

void EE_CalcCore(const FRAME* Y, const FRAME* ref, const FRAME* motion, FRAME* core) {
    cm::report_core(Y->depth);
    const cm::CoreConfig config = cm::configure_core(Y->depth);
    const int width = static_cast<int>(Y->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader luma(*Y, width);
    cm::FrameReader lowpass(*ref, width);
    cm::FrameReader motion_rows(*motion, width);
    for (int y = 0; y < static_cast<int>(Y->height); ++y) {
        cm::core_row(luma.row(y), lowpass.row(y), motion_rows.row(y), out.get(), width, config);
        cm::write_row(*core, y, out.get(), width);
    }
}

void EE_Coring(const FRAME* mf, const FRAME* hf, const FRAME* core, FRAME* out) try {
    const cm::CoringConfig config = cm::configure_coring();
    const int width = static_cast<int>(out->width);
    const cm::AlignedRow cored = cm::output_row(width);
    cm::FrameReader mf_rows(*mf, width);
    cm::FrameReader hf_rows(*hf, width);
    cm::FrameReader core_rows(*core, width);
    for (int y = 0; y < static_cast<int>(out->height); ++y) {
        cm::coring_row(mf_rows.row(y), hf_rows.row(y), core_rows.row(y), cored.get(), width, config);
        cm::write_row(*out, y, cored.get(), width);
    }
    if (dump_dbg_img != 0) {
        cm::report_coring(cm::RowSource(*out));
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
