// One pixel from RGB to YCbCr: BT.601 luma weights and full-range chroma in 1/256, integer.
#ifndef CMODEL_COLOUR_H
#define CMODEL_COLOUR_H

#include "fixed_point.h"

namespace cm {

struct RgbToYcbcr {
    int32_t half;  // chroma mid-point, 2^(depth - 1)
    int32_t max;   // 2^depth - 1

    explicit RgbToYcbcr(int depth) : half(pow2_mod32(Wrap(depth) - 1)), max(Wrap(pow2_mod32(depth)) - 1) {}

    // In 1/256, chroma around 0.
    static CM_INLINE Wrap luma_256(Wrap r, Wrap g, Wrap b) { return 77 * r + 150 * g + 29 * b; }
    static CM_INLINE Wrap cb_256(Wrap r, Wrap g, Wrap b) { return 131 * b - 44 * r - 87 * g; }
    static CM_INLINE Wrap cr_256(Wrap r, Wrap g, Wrap b) { return 131 * r - 110 * g - 21 * b; }

    // Before clamping to 0 .. max.
    CM_INLINE int32_t luma(Wrap r, Wrap g, Wrap b) const { return (luma_256(r, g, b) + 128) >> 8; }
    CM_INLINE int32_t cb(Wrap r, Wrap g, Wrap b) const { return centre(cb_256(r, g, b)); }
    CM_INLINE int32_t cr(Wrap r, Wrap g, Wrap b) const { return centre(cr_256(r, g, b)); }

    CM_INLINE int32_t clamp(int32_t v) const { return clamp32(v, 0, max); }

  private:
    // Rounded symmetrically about the mid-point, halves away from it.
    CM_INLINE int32_t centre(int32_t c) const {
        return Wrap(half) + with_sign(c, (Wrap(magnitude(c)) + 128) >> 8);
    }
};

}  // namespace cm

#endif
