// Centred chroma as hue and amplitude, the way the hardware finds them.
#ifndef CMODEL_CHROMA_POLAR_H
#define CMODEL_CHROMA_POLAR_H

#include "fixed_point.h"

namespace cm {

// CORDIC steps: tangent and scale of each, in 64ths. The scale compensates step by step, so the vector
// keeps its length and the precision of its 8-bit inputs.
inline constexpr int kHueSteps = 7;
inline constexpr int32_t kHueTangentQ6[kHueSteps] = {64, 32, 16, 8, 4, 2, 1};
inline constexpr int32_t kHueScaleQ6[kHueSteps] = {64, 77, 80, 81, 81, 81, 81};

// Rotates the vector, folded into the first quadrant, onto the x axis and adds up the turns.
CM_INLINE int32_t cordic_hue(int32_t a, int32_t b) {
    const int32_t a_below = mask_of(a < 0);
    const int32_t signs_differ = mask_of((a ^ b) < 0);
    const int32_t quadrant = select(signs_differ, select(a_below, 64, 192), select(a_below, 128, 0));
    Wrap x = select(signs_differ, magnitude(b), magnitude(a));
    Wrap y = select(signs_differ, magnitude(a), magnitude(b));
    int32_t turn = 0;  // 512ths of a turn
    CM_UNROLL
    for (int k = 0; k < kHueSteps; ++k) {
        const int32_t step = 64 >> k;
        const int32_t up = static_cast<int32_t>(y) >> 31;  // -1 when the vector lies below the axis
        const Wrap s = (kHueTangentQ6[k] ^ ~up) - ~up;     // tangent when below, else its negative
        turn += (step ^ up) - up;
        const Wrap next_x = (x * kHueScaleQ6[k] - s * y + 32) >> 6;
        y = (s * x + y * kHueScaleQ6[k] + 32) >> 6;
        x = next_x;
    }
    const int32_t hue = (((turn + 1) >> 1) + quadrant) & 255;
    // On the axes the hue is exact.
    const int32_t on_a_axis = select(a_below, 128, 0);  // the zero vector counts as hue 0
    const int32_t on_b_axis = select(mask_of(b < 0), 192, 64);
    return select(mask_of(b == 0), on_a_axis, select(mask_of(a == 0), on_b_axis, hue));
}

// sqrt(a*a + b*b) as the larger of two tangents to the circle, weights in 128ths.
CM_INLINE int32_t approximate_length(int32_t a, int32_t b) {
    const int32_t abs_a = magnitude(a);
    const int32_t abs_b = magnitude(b);
    const Wrap lo = min32(abs_a, abs_b);
    const Wrap hi = max32(abs_a, abs_b);
    const int32_t near_axis = (lo * 24 + hi * 127 + 64) >> 7;
    const int32_t near_diagonal = (lo * 71 + hi * 108 + 64) >> 7;
    return max32(near_axis, near_diagonal);
}

}  // namespace cm

#endif
