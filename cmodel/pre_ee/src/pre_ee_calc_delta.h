// The two deltas of a tile, in their simplest terms; pre_ee_calc_delta.cpp says what they are.
#ifndef CMODEL_PRE_EE_CALC_DELTA_H
#define CMODEL_PRE_EE_CALC_DELTA_H

#include "block.h"
#include "ee_blocks.h"
#include "kernel.h"

namespace cm {

inline constexpr SymmetricKernel<2> kPreMfKernel = {{
    {192},
    {64, 0},
    {-32, -32, -16},
}};

template <typename T>
CM_INLINE void delta_tile(const BlockRows<T>& rows, int64_t x0, int tile, int shift) {
    int32_t sum[2][kTile];
    const FoldedRows<2, kTile> folded(rows.window[0], x0, tile);
    for (int i = 0; i < tile; ++i) {
        sum[0][i] = folded.sum(kPreMfKernel, i);
        sum[1][i] = folded.sum(kHfKernel, i);
    }
    for (int band = 0; band < 2; ++band) {
        T* const out = rows.out[band] + x0;
        for (int i = 0; i < tile; ++i) {
            out[i] = static_cast<T>(shift_magnitude(sum[band][i], shift, kDeltaMax));
        }
        T* const overflow = rows.out[2 + band];  // may be null
        for (int i = 0; i < tile && overflow != nullptr; ++i) {
            overflow[x0 + i] = magnitude(sum[band][i]) >> shift > kDeltaMax ? 255 : 0;
        }
    }
}

// In 16 bits.
void pre_ee_delta_row16(const BlockRows<int16_t>& rows, int shift);

}  // namespace cm

#endif
