// Motion gain, total gain and total delta: the four gains and the global strength become one 12-bit
// gain (256 is 1.0), which scales the cored delta.
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int32_t kTotalGainMax = 4095;

}  // namespace

CurveTable configure_motion_gain() {
    const CurveTable curve = tabulate_curve(reg_ee_motion_lut_in_0);
    return reg_value(reg_ee_enable) == 1 ? curve : constant_curve(curve.entry[0]);
}

void report_motion_levels() {
    if (curve_exceeds_unit(reg_ee_motion_lut_in_0)) {
        log_log(LOG_ERROR, at::kMotionLevels.source, at::kMotionLevels.line,
                "reg_ee_motion_lut_out is greater than 128\n");
    }
}

int32_t configure_total_gain() {
    return reg_value(reg_ee_total_gain);
}

CM_ROW_FUNCTION(total_gain_row,
                (const int32_t* delta, const int32_t* luma, const int32_t* chroma, const int32_t* motion,
                 int32_t* __restrict total, int width, int32_t strength),
                (delta, luma, chroma, motion, total, width, strength)) {
    for (int x = 0; x < width; ++x) {
        const Wrap a = (Wrap(motion[x]) * strength) >> 6;
        const Wrap b = (Wrap(luma[x]) * Wrap(chroma[x])) >> 6;
        total[x] = min32((a * b * delta[x]) >> 10, kTotalGainMax);
    }
}

CM_ROW_FUNCTION(total_delta_row,
                (const int32_t* delta, const int32_t* gain, int32_t* __restrict out, int width),
                (delta, gain, out, width)) {
    for (int x = 0; x < width; ++x) {
        const Wrap scaled = Wrap(magnitude(delta[x])) * Wrap(gain[x]);
        out[x] = with_sign(delta[x], min32(scaled >> 8, kDeltaMax));
    }
}

void report_total_delta(const RowSource& delta) {
    write_sign_image(debug_path("dbg_delta_total_8b.ppm"), delta);
}

}  // namespace cm

void EE_MotionGain(const FRAME* motion, FRAME* gain) {
    cm::report_motion_levels();
    const cm::CurveTable table = cm::configure_motion_gain();
    const int width = static_cast<int>(motion->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader motion_rows(*motion, width);
    for (int y = 0; y < static_cast<int>(motion->height); ++y) {
        cm::curve_row(motion_rows.row(y), out.get(), width, table);
        cm::write_row(*gain, y, out.get(), width);
    }
}

void EE_TotalGain(const FRAME* delta, const FRAME* luma, const FRAME* chroma, const FRAME* motion,
                  FRAME* total) {
    const int32_t strength = cm::configure_total_gain();
    const int width = static_cast<int>(total->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader delta_rows(*delta, width);
    cm::FrameReader luma_rows(*luma, width);
    cm::FrameReader chroma_rows(*chroma, width);
    cm::FrameReader motion_rows(*motion, width);
    for (int y = 0; y < static_cast<int>(total->height); ++y) {
        cm::total_gain_row(delta_rows.row(y), luma_rows.row(y), chroma_rows.row(y), motion_rows.row(y),
                           out.get(), width, strength);
        cm::write_row(*total, y, out.get(), width);
    }
}

void EE_TotalDelta(const FRAME* delta, const FRAME* gain, FRAME* out) try {
    const int width = static_cast<int>(out->width);
    const cm::AlignedRow row = cm::output_row(width);
    cm::FrameReader delta_rows(*delta, width);
    cm::FrameReader gain_rows(*gain, width);
    for (int y = 0; y < static_cast<int>(out->height); ++y) {
        cm::total_delta_row(delta_rows.row(y), gain_rows.row(y), row.get(), width);
        cm::write_row(*out, y, row.get(), width);
    }
    if (dump_dbg_img != 0) {
        cm::report_total_delta(cm::RowSource(*out));
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
