// Curves, interpolation and blends with the hardware's rounding.
#include "common.h"
#include "fixed_point.h"

using cm::from_bits;
using cm::max32;
using cm::min32;
using cm::pow2_mod32;
using cm::shl_mod32;
using cm::shr_mod32;
using cm::to_bits;
using cm::Wrap;

namespace {

// Toward zero. The one quotient that 32 bits cannot hold wraps.
int32_t divide(int32_t a, int32_t b) {
    return b == -1 ? -Wrap(a) : Wrap(a / b);
}

// On the line from (x0, y0), `slope` in 1/2^shift; `rounding` is added before the shift.
Wrap follow_slope(Wrap x, Wrap x0, Wrap y0, Wrap slope, int shift, Wrap rounding) {
    return shr_mod32((x - x0) * slope + rounding, shift) + y0;
}

// A value on the way from y0 to y1 goes no further than y1.
int32_t stop_at(int32_t v, int32_t y0, int32_t y1) {
    return y0 <= y1 ? min32(v, y1) : max32(v, y1);
}

// a and b weighted, in 1/2^s.
Wrap weighted_sum(Wrap a, Wrap b, Wrap w, int s) {
    return w * a + (Wrap(pow2_mod32(s)) - w) * b;
}

// By the wrapped difference, as the hardware compares.
bool exceeds(Wrap a, Wrap b) {
    return a - b >= 1;
}

}  // namespace

int CM_LUT(int x, const int* in, const int* out, const int* slope, int n, int shift) {
    if (x <= in[0]) {
        return out[0];
    }
    if (x > in[n - 1]) {
        return out[n - 1];
    }
    int i = 0;
    while (in[i] < x) {
        ++i;
    }
    const int j = i - 1;
    const int32_t y = follow_slope(x, in[j], out[j], slope[j], shift, 0);
    return cm::clamp32(y, min32(out[j], out[i]), max32(out[j], out[i]));
}

int CM_LUT3(int x, int x0, int y0, int y1, int slope, int shift) {
    const int32_t rounding = shift > 0 ? pow2_mod32(shift - 1) : 0;
    return x <= x0 ? y0 : stop_at(follow_slope(x, x0, y0, slope, shift, rounding), y0, y1);
}

int CM_LUT3_CLIP(int x, int x0, int y0, int y1, int slope, int shift) {
    return x <= x0 ? y0 : stop_at(follow_slope(x, x0, y0, slope, shift, 0), y0, y1);
}

int CM_interp1(int x, int x0, int y0, int y1, int slope, int shift) {
    // Intended: the exponent counts modulo 32, so a shift of 0 adds 2^31.
    const int32_t rounding = pow2_mod32(Wrap(shift) - 1);
    return x <= x0 ? y0 : stop_at(follow_slope(x, x0, y0, slope, shift, rounding), y0, y1);
}

int CM_SingleIntp(int x0, int x1, int y0, int y1, int x) {
    const bool ascending = x0 <= x1;
    if (x <= min32(x0, x1)) {
        return ascending ? y0 : y1;
    }
    if (x >= max32(x0, x1)) {
        return ascending && x0 != x1 ? y1 : y0;
    }
    const Wrap numerator = (Wrap(y1) - Wrap(y0)) * (Wrap(x) - Wrap(x0));
    return Wrap(y0) + divide(numerator, Wrap(x1) - Wrap(x0));
}

int CM_MultiIntp(const int* xs, const int* ys, int n, int x) {
    if (n < 1) {
        return 0;
    }
    if (x <= xs[0]) {
        return ys[0];
    }
    if (x >= xs[n - 1]) {
        return ys[n - 1];
    }
    for (int i = 0; i < n - 1; ++i) {
        if (xs[i] <= x && x < xs[i + 1]) {
            return CM_SingleIntp(xs[i], xs[i + 1], ys[i], ys[i + 1], x);
        }
    }
    return 0;
}

int CM_LutBilinearInterp(const int* lut, int x, int in_bits, int lut_bits) {
    const int s = Wrap(in_bits) - lut_bits;
    const uint32_t last = to_bits(pow2_mod32(lut_bits));  // the entry one past the index range
    const uint32_t i = to_bits(shr_mod32(x, s)) & (last - 1);
    const Wrap unit = pow2_mod32(s);
    const Wrap fraction = from_bits(to_bits(x) & (to_bits(unit) - 1));
    const Wrap lo = lut[i];
    const Wrap hi = lut[i + 1 < last ? i + 1 : last];
    return shr_mod32(lo * (unit - fraction) + hi * fraction + pow2_mod32(Wrap(s) - 1), s);
}

int cm_sw_get_slope(int x0, int x1, int y0, int y1, int shift) {
    return int32_t{shl_mod32(Wrap(y1) - Wrap(y0), shift)} / max32(Wrap(x1) - Wrap(x0), 1);
}

int CM_BlendR(int a, int b, int w, int s) {
    return shr_mod32(weighted_sum(a, b, w, s) + pow2_mod32(Wrap(s) - 1), s);
}

int CM_BlendIIR(int a, int b, int w, int s) {
    return Wrap(shr_mod32(weighted_sum(a, b, w, s), s)) + (exceeds(a, b) ? 1 : 0);
}

int CM_BlendIIR_R(int a, int b, int w, int s) {
    const Wrap round_up = Wrap(pow2_mod32(s)) - 1;
    return shr_mod32(weighted_sum(a, b, w, s) + (exceeds(a, b) ? round_up : Wrap(0)), s);
}

int CM_BlendIIR_C(int a, int b, int w, int s, int d) {
    const Wrap sum = weighted_sum(a, b, w, s) + (exceeds(a, b) ? pow2_mod32(s) : 0);
    const Wrap centre = pow2_mod32(Wrap(s) + Wrap(d) - 1);
    const Wrap m = shr_mod32(Wrap(pow2_mod32(Wrap(s) - 1)) + cm::magnitude(sum - centre), s);
    const Wrap mid = pow2_mod32(Wrap(d) - 1);
    return int32_t{centre} > int32_t{sum} ? mid - m : mid + m;
}
