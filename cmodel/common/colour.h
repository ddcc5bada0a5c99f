// One pixel from RGB to YCbCr: BT.601 luma weights and full-range chroma in 1/256, integer.
#ifndef CMODEL_COLOUR_H
#define CMODEL_COLOUR_H

#include "fixed_point.h"

namespace cm {

struct RgbToYcbcr {
    int32_t half;  // chroma mid-point, 2^(depth - 1)
    int32_t max;   // 2^depth - 1

    explicit RgbToYcbcr(int depth) : half(pow2_mod32(Wrap(depth) - 1)), max(Wrap(pow2_mod32(depth)) - 1) {}

    // Before clamping to 0 .. max.
    CM_INLINE int32_t luma(Wrap r, Wrap g, Wrap b) const { return (77 * r + 150 * g + 29 * b + 128) >> 8; }
    CM_INLINE int32_t cb(Wrap r, Wrap g, Wrap b) const { return centre(131 * b - 44 * r - 87 * g); }
    CM_INLINE int32_t cr(Wrap r, Wrap g, Wrap b) const { return centre(131 * r - 110 * g - 21 * b); }

    CM_INLINE int32_t clamp(int32_t v) const { return clamp32(v, 0, max); }

  private:
    // Rounded symmetrically about the mid-point, halves away from it.
    CM_INLINE int32_t centre(int32_t c) const {
        return Wrap(half) + with_sign(c, (Wrap(magnitude(c)) + 128) >> 8);
    }
};

}  // namespace cm

#endif
