// Overshoot and undershoot control: keeps a sharpened edge from ringing. The total delta (eighths of a
// luma code) may take a pixel up to the local maximum plus an allowance, and down to the local minimum
// less one; of the excess a programmable share passes, up to a hard clip. The result is in luma codes.
//
//    limited ^            ........ up + clip
//            |        _--'         slope gain / 16
//            |      /' up
//            |    /                slope 1
//        ----+--/---------> delta
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

// In eighths: half of the final division by 8, which so rounds magnitudes to nearest; and the ends of the
// result.
constexpr int32_t kRound = 4;
constexpr int32_t kHighest = 2047;
constexpr int32_t kLowest = -2048;

// EE_IOShootPro has the shoot mode and rounds the excess symmetrically; EE_IOShoot is the older one.
enum class Shoot { kPro, kClassic };

// Limits and margins in luma codes, gains in sixteenths.
template <Shoot kKind>
struct IOShoot {
    int32_t over_thr, under_thr;
    int32_t over_gain_q4, under_gain_q4;
    int32_t over_clip, under_clip;
    int32_t extra_delta;  // 1: the unlimited delta once more (EE_IOShootPro only)

    void configure(const Registers& r, const BlockSetup&) {
        *this = {r[reg_ee_total_oshtthrd],   r[reg_ee_total_ushtthrd],     r[reg_ee_shtctrl_oshtgain],
                 r[reg_ee_shtctrl_ushtgain], r[reg_ee_total_oshtthrd_clp], r[reg_ee_total_ushtthrd_clp],
                 r[reg_ee_shoot_mode]};
    }

    void run(const BlockRows<int32_t>& rows) const;
    void run(const BlockRows<int16_t>& rows) const;

    void report(const BlockReport& report) const {
        if (kKind == Shoot::kPro) {
            report.log.record(LOG_INFO, at::kShootMode, "EE_IOShootPro: reg_ee_shoot_mode = %d", extra_delta);
        } else {
            report.log.record(LOG_INFO, at::kShootEntry, "EE_IOShoot==============================");
        }
        if (report.images()) {
            write_sign_image(report.image_path("dbg_delta_iosht_8b.ppm"), *report.out[0]);
        }
    }
};

// The share of the excess that passes, to nearest or rounded down, with half of the final division.
template <Shoot kKind>
CM_INLINE int32_t excess_share_and_half(int32_t excess, int32_t gain_q4, int32_t sign) {
    const Wrap scaled = Wrap(gain_q4) * Wrap(excess);
    if constexpr (kKind == Shoot::kPro) {
        return Wrap((scaled + 8 * sign) / 16) + kRound * sign;
    }
    return (scaled >> 4) + kRound * sign;
}

template <Shoot kKind>
CM_INLINE int32_t limit_delta(int32_t delta, int32_t luma, int32_t max, int32_t min,
                              const IOShoot<kKind>& c) {
    const Wrap d = delta;
    const Wrap up = (c.over_thr + (Wrap(max) - Wrap(luma))) * 8;
    const Wrap down = (Wrap(min) - Wrap(luma) - c.under_thr) * 8;
    const int32_t over = excess_share_and_half<kKind>(max32(d - up, 0), c.over_gain_q4, 1);
    const int32_t under = excess_share_and_half<kKind>(min32(d - down, 0), c.under_gain_q4, -1);
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

template <Shoot kKind, typename T>
CM_INLINE void shoot_tile(const BlockRows<T>& rows, const IOShoot<kKind>& shared) {
    const T *const delta = rows.in[0], *const luma = rows.in[1], *const max = rows.in[2],
                   *const min = rows.in[3];
    T* __restrict const out = rows.out[0];
    const int width = rows.width;
    const IOShoot<kKind> c = shared;
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(limit_delta(delta[x], luma[x], max[x], min[x], c));
    }
}

CM_ROW_FUNCTION(shoot_pro_row, (const BlockRows<int32_t>& rows, const IOShoot<Shoot::kPro>& c), (rows, c)) {
    shoot_tile(rows, c);
}
CM_ROW_TEMPLATE(shoot_row, (const BlockRows<T>& rows, const IOShoot<Shoot::kClassic>& c), (rows, c)) {
    shoot_tile(rows, c);
}

// In 16 bits. In a pipeline luma lies between its local extremes, so what holds for positive deltas holds for
// the magnitudes of negative ones, with their own limits.
CM_ROW_FUNCTION(shoot_pro_row16,
                (const int16_t* delta, const int16_t* luma, const int16_t* max, const int16_t* min,
                 int16_t* __restrict out, int width, const IOShoot<Shoot::kPro>& c),
                (delta, luma, max, min, out, width, c)) {
    using S = int16_t;
    const S over_thr = static_cast<S>(c.over_thr), under_thr = static_cast<S>(c.under_thr);
    const S over_gain = static_cast<S>(c.over_gain_q4 << 9),
            under_gain = static_cast<S>(c.under_gain_q4 << 9);
    const S over_clip = static_cast<S>(c.over_clip * 8), under_clip = static_cast<S>(c.under_clip * 8);
    const S extra = static_cast<S>(-c.extra_delta);
    for (int x = 0; x < width; ++x) {
        const S negative = below16(delta[x], 0);
        const S d = with_sign16(negative, delta[x]);
        const S room = select16(negative, static_cast<S>(luma[x] - min[x] + under_thr),
                                static_cast<S>(max[x] - luma[x] + over_thr));
        const S limit = static_cast<S>(room * 8);
        const S excess = max16(static_cast<S>(d - limit), 0);
        // (gain * excess + 8) >> 4, as (gain * excess >> 3) + 1 >> 1
        const S eighths =
            high_product(static_cast<S>(excess << 4), select16(negative, under_gain, over_gain));
        const S passed = static_cast<S>(static_cast<S>(eighths + 1) >> 1);
        const S v = static_cast<S>(min16(limit, d) + passed + kRound + (d & extra));
        const S clip = static_cast<S>(limit + select16(negative, under_clip, over_clip));
        const S highest = static_cast<S>(kHighest - negative);  // 2048 for negative ones
        out[x] = with_sign16(negative, static_cast<S>(min16(v, min16(clip, highest)) >> 3));
    }
}

template <Shoot kKind>
void IOShoot<kKind>::run(const BlockRows<int32_t>& rows) const {
    if constexpr (kKind == Shoot::kPro) {
        shoot_pro_row(rows, *this);
    } else {
        shoot_row(rows, *this);
    }
}

template <Shoot kKind>
void IOShoot<kKind>::run(const BlockRows<int16_t>& rows) const {
    if constexpr (kKind == Shoot::kPro) {
        shoot_pro_row16(rows.in[0], rows.in[1], rows.in[2], rows.in[3], rows.out[0], rows.width, *this);
    } else {
        shoot_row(rows, *this);
    }
}

constexpr BlockInput kNoneWhenOff{.when_off = 0};

}  // namespace

const Block kIOShootPro = make_block<IOShoot<Shoot::kPro>>(
    {"EE_IOShootPro", "limits the total delta against the local extremes", "`dbg_delta_iosht_8b.ppm`"},
    {kNoneWhenOff, kNoneWhenOff, kNoneWhenOff, kNoneWhenOff}, {{.shown = Shown::kPicture}});
const Block kIOShoot = make_block<IOShoot<Shoot::kClassic>>(
    {"EE_IOShoot", "the same, the excess rounded down, without shoot mode", "`dbg_delta_iosht_8b.ppm`"},
    {kNoneWhenOff, kNoneWhenOff, kNoneWhenOff, kNoneWhenOff}, {{.shown = Shown::kPicture}});

}  // namespace cm

void EE_IOShootPro(const FRAME* delta, const FRAME* Y, const FRAME* max, const FRAME* min, FRAME* out) {
    cm::run_on_frames(cm::kIOShootPro, {{delta}, {Y}, {max}, {min}}, {{out}}, *delta);
}

void EE_IOShoot(const FRAME* delta, const FRAME* Y, const FRAME* max, const FRAME* min, FRAME* out) {
    cm::run_on_frames(cm::kIOShoot, {{delta}, {Y}, {max}, {min}}, {{out}}, *delta);
}
