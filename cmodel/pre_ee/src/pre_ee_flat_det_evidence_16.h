// What flat detection looks for around a pixel, in 16 bits. Deltas are within -2047..2047 and luma within
// 0..kNarrowFusionMax, so that seven samples add up in 16 bits.
#ifndef CMODEL_PRE_EE_FLAT_DET_EVIDENCE_16_H
#define CMODEL_PRE_EE_FLAT_DET_EVIDENCE_16_H

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "ee_blocks.h"
#include "fixed_point.h"
#include "pre_ee_flat_det.h"

namespace cm {

using Rows16 = const int16_t* const*;

// Sums of magnitudes down each column of 2R+1 rows, from R columns before the tile on.
template <int R>
CM_INLINE void sum_columns(Rows16 rows, int64_t x0, uint16_t* __restrict column, int tile) {
    for (int i = 0; i < tile + 2 * R; ++i) {
        uint16_t s = 0;
        CM_UNROLL
        for (int k = kFlatReach - R; k <= kFlatReach + R; ++k) {
            s = static_cast<uint16_t>(s + magnitude16(rows[k][x0 + i - R]));
        }
        column[i] = s;
    }
}

// The energies that edges have to pass in a tile: (threshold * luma of the window) >> 10, as a part of at
// most 65535 and what is above it. A window of radius 2 has an energy of at most 25 * 2047 = 51175, so that
// the first part decides; one of radius 3 at most 49 * 2047 = 100303.
struct EdgeLevels {
    uint16_t low[kTile], above[kTile];
};

// In 16 bits where no window of the tile passes 16383.
template <int R>
CM_INLINE void find_edge_levels(Rows16 luma, int64_t x0, int32_t threshold, EdgeLevels& __restrict level,
                                int tile) {
    uint16_t column[kTile + 2 * R];
    sum_columns<R>(luma, x0, column, tile);
    uint16_t most = 0;
    for (int i = 0; i < tile + 2 * R; ++i) {
        most = std::max(most, column[i]);
    }
    if (most * (2 * R + 1) <= 16383) {
        const uint16_t factor = static_cast<uint16_t>(threshold << 4);
        for (int i = 0; i < tile; ++i) {
            uint16_t s = 0;
            CM_UNROLL
            for (int k = 0; k <= 2 * R; ++k) {
                s = static_cast<uint16_t>(s + column[i + k]);
            }
            level.low[i] = high_product(static_cast<uint16_t>(s << 2), factor);
            level.above[i] = 0;
        }
        return;
    }
    for (int i = 0; i < tile; ++i) {
        uint32_t s = 0;
        CM_UNROLL
        for (int k = 0; k <= 2 * R; ++k) {
            s += column[i + k];
        }
        const uint32_t whole = (s * static_cast<uint32_t>(threshold)) >> 10;
        level.low[i] = static_cast<uint16_t>(std::min<uint32_t>(whole, 65535));
        level.above[i] = static_cast<uint16_t>(std::min<uint32_t>(whole - level.low[i], 65535));
    }
}

// All ones where the deltas' energy in the window passes the level. That of radius 3 is taken in two parts of
// at most 57316 and 42987: `low` is above the left one wherever the level passes 65535.
template <int R>
CM_INLINE void find_edges(Rows16 delta, int64_t x0, const EdgeLevels& level, int16_t* __restrict edge,
                          int tile) {
    uint16_t column[kTile + 2 * R];
    sum_columns<R>(delta, x0, column, tile);
    for (int i = 0; i < tile; ++i) {
        uint16_t left = 0, right = 0;
        CM_UNROLL
        for (int k = 0; k <= R; ++k) {
            left = static_cast<uint16_t>(left + column[i + k]);
        }
        CM_UNROLL
        for (int k = R + 1; k <= 2 * R; ++k) {
            right = static_cast<uint16_t>(right + column[i + k]);
        }
        if constexpr (R <= 2) {
            edge[i] = mask16(level.low[i] < static_cast<uint16_t>(left + right));
        } else {
            const uint16_t rest = static_cast<uint16_t>(std::max(level.low[i], left) - left);
            const uint16_t beyond = static_cast<uint16_t>(std::max(rest, right) - rest);
            edge[i] = static_cast<int16_t>(mask16(level.low[i] < left) | mask16(level.above[i] < beyond));
        }
    }
}

// Whether a run's sum, in the direction of the sign, passes (factor * peak) >> 10; the factor comes doubled.
CM_INLINE int16_t stands_out(int16_t sum, int16_t max, int16_t min, int16_t negative,
                             uint16_t doubled_factor) {
    const uint16_t peak = static_cast<uint16_t>(select16(negative, static_cast<int16_t>(-min), max) << 5);
    const uint16_t least = std::min<uint16_t>(high_product(peak, doubled_factor), 32767);
    return mask16(with_sign16(negative, sum) > static_cast<int16_t>(least));
}

// All ones where a run of 2L+1 taps through the pixel, along its column or its row, adds up to more than
// (threshold * (2L+1) * peak) >> 10 in the direction of the pixel's sign.
template <int L>
CM_INLINE void find_lines16(Rows16 window, int64_t x0, int32_t threshold, int16_t* __restrict line,
                            int tile) {
    const uint16_t factor = static_cast<uint16_t>((threshold * (2 * L + 1)) << 1);
    const int16_t* rows[2 * kFlatReach + 1];
    for (int k = 0; k <= 2 * kFlatReach; ++k) {
        rows[k] = window[k] + x0;
    }
    for (int x = 0; x < tile; ++x) {
        int16_t sum_down = 0, max_down = 0, min_down = 0;
        int16_t sum_across = 0, max_across = 0, min_across = 0;
        CM_UNROLL
        for (int k = -L; k <= L; ++k) {
            const int16_t down = rows[kFlatReach + k][x];
            const int16_t across = rows[kFlatReach][x + k];
            sum_down = static_cast<int16_t>(sum_down + down);
            max_down = max16(max_down, down);
            min_down = min16(min_down, down);
            sum_across = static_cast<int16_t>(sum_across + across);
            max_across = max16(max_across, across);
            min_across = min16(min_across, across);
        }
        const int16_t centre = rows[kFlatReach][x];
        const int16_t negative = mask16(centre < 0);
        const int16_t found =
            static_cast<int16_t>(stands_out(sum_down, max_down, min_down, negative, factor) |
                                 stands_out(sum_across, max_across, min_across, negative, factor));
        line[x] = static_cast<int16_t>(found & mask16(centre != 0));
    }
}

// Calls use(std::integral_constant<int, n>()) for n in 0..3.
template <typename Use>
CM_INLINE void with_constant(int n, Use use) {
    switch (n) {
        case 0:
            use(std::integral_constant<int, 0>());
            break;
        case 1:
            use(std::integral_constant<int, 1>());
            break;
        case 2:
            use(std::integral_constant<int, 2>());
            break;
        default:
            use(std::integral_constant<int, 3>());
            break;
    }
}

}  // namespace cm

#endif
