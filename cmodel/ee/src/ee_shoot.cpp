// Overshoot and undershoot control: keeps a sharpened edge from ringing. The total delta (eighths of a
// luma code) may take a pixel up to the local maximum plus an allowance, and down to the local minimum
// less one; of the excess a programmable share passes, up to a hard clip. The result is in luma codes.
//
//    limited ^            ........ up + clip
//            |        _--'         slope gain / 16
//            |      /' up
//            |    /                slope 1
//        ----+--/---------> delta
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

// Half of the final division by 8: rounds the magnitude to nearest.
constexpr int32_t kRound = 4;
constexpr int32_t kHighest = 2047;
constexpr int32_t kLowest = -2048;

enum class Shoot { kPro, kClassic };

// The share of the excess that passes, rounded away from zero for the final division.
template <Shoot kKind>
CM_INLINE int32_t pass_excess(int32_t excess, int32_t gain_q4, int32_t sign) {
    const Wrap scaled = Wrap(gain_q4) * Wrap(excess);
    if constexpr (kKind == Shoot::kPro) {
        return Wrap((scaled + 8 * sign) / 16) + kRound * sign;  // toward zero
    }
    return (scaled >> 4) + kRound * sign;  // toward minus infinity
}

template <Shoot kKind>
CM_INLINE int32_t limit_delta(int32_t delta, int32_t luma, int32_t max, int32_t min, const ShootConfig& c) {
    const Wrap d = delta;
    const Wrap up = (c.over_thr + (Wrap(max) - Wrap(luma))) * 8;
    const Wrap down = (Wrap(min) - Wrap(luma) - c.under_thr) * 8;
    const int32_t over = pass_excess<kKind>(max32(d - up, 0), c.over_gain_q4, 1);
    const int32_t under = pass_excess<kKind>(min32(d - down, 0), c.under_gain_q4, -1);
    const Wrap base = delta >= 0 ? min32(up, delta) : max32(down, delta);
    Wrap v = base + (delta >= 0 ? over : under);
    if constexpr (kKind == Shoot::kPro) {
        v = v + d * c.extra_delta;
    }
    const int32_t hi = min32(up + c.over_clip * 8, kHighest);
    const int32_t lo = max32(down - c.under_clip * 8, kLowest);
    const int32_t r = clamp32(v, lo, hi);
    return with_sign(r, magnitude(r) / 8);
}

using ShootRow = decltype(&shoot_pro_row);

void shoot_frame(const FRAME& delta, const FRAME& luma, const FRAME& max, const FRAME& min, FRAME& out,
                 const ShootConfig& config, ShootRow row_function) {
    const int width = static_cast<int>(delta.width);
    const bool enabled = reg_value(reg_ee_enable) == 1;
    const AlignedRow row = output_row(width);
    const AlignedRow zero = output_row(width);
    for (int x = 0; x < width; ++x) {
        zero[static_cast<size_t>(x)] = 0;
    }
    FrameReader delta_rows(delta, width);
    FrameReader luma_rows(luma, width);
    FrameReader max_rows(max, width);
    FrameReader min_rows(min, width);
    for (int y = 0; y < static_cast<int>(delta.height); ++y) {
        if (enabled) {
            row_function(delta_rows.row(y), luma_rows.row(y), max_rows.row(y), min_rows.row(y), row.get(),
                         width, config);
        } else {
            row_function(zero.get(), zero.get(), zero.get(), zero.get(), row.get(), width, config);
        }
        write_row(out, y, row.get(), width);
    }
    if (dump_dbg_img != 0) {
        report_shoot(RowSource(out));
    }
}

}  // namespace

ShootConfig configure_shoot() {
    return {reg_value(reg_ee_total_oshtthrd),     reg_value(reg_ee_total_ushtthrd),
            reg_value(reg_ee_shtctrl_oshtgain),   reg_value(reg_ee_shtctrl_ushtgain),
            reg_value(reg_ee_total_oshtthrd_clp), reg_value(reg_ee_total_ushtthrd_clp),
            reg_value(reg_ee_shoot_mode)};
}

CM_ROW_FUNCTION(shoot_pro_row,
                (const int32_t* delta, const int32_t* luma, const int32_t* max, const int32_t* min,
                 int32_t* __restrict out, int width, const ShootConfig& c),
                (delta, luma, max, min, out, width, c)) {
    for (int x = 0; x < width; ++x) {
        out[x] = limit_delta<Shoot::kPro>(delta[x], luma[x], max[x], min[x], c);
    }
}

CM_ROW_FUNCTION(shoot_row,
                (const int32_t* delta, const int32_t* luma, const int32_t* max, const int32_t* min,
                 int32_t* __restrict out, int width, const ShootConfig& c),
                (delta, luma, max, min, out, width, c)) {
    for (int x = 0; x < width; ++x) {
        out[x] = limit_delta<Shoot::kClassic>(delta[x], luma[x], max[x], min[x], c);
    }
}

void report_shoot_pro_mode(const ShootConfig& c) {
    log_log(LOG_INFO, at::kShootMode.source, at::kShootMode.line, "EE_IOShootPro: reg_ee_shoot_mode = %d",
            c.extra_delta);
}

void report_shoot_entry() {
    log_log(LOG_INFO, at::kShootEntry.source, at::kShootEntry.line,
            "EE_IOShoot==============================");
}

void report_shoot(const RowSource& clamped) {
    write_sign_image(debug_path("dbg_delta_iosht_8b.ppm"), clamped);
}

}  // namespace cm

void EE_IOShootPro(const FRAME* delta, const FRAME* Y, const FRAME* max, const FRAME* min, FRAME* out) try {
    const cm::ShootConfig config = cm::configure_shoot();
    cm::report_shoot_pro_mode(config);
    cm::shoot_frame(*delta, *Y, *max, *min, *out, config, cm::shoot_pro_row);
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}

void EE_IOShoot(const FRAME* delta, const FRAME* Y, const FRAME* max, const FRAME* min, FRAME* out) try {
    cm::report_shoot_entry();
    cm::shoot_frame(*delta, *Y, *max, *min, *out, cm::configure_shoot(), cm::shoot_row);
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
