// What flat detection looks for around a pixel, in its simplest terms: window sums, and runs of one sign.
#ifndef CMODEL_PRE_EE_FLAT_DET_EVIDENCE_H
#define CMODEL_PRE_EE_FLAT_DET_EVIDENCE_H

#include <algorithm>
#include <cstdint>

#include "ee_blocks.h"
#include "fixed_point.h"
#include "pre_ee_flat_det.h"

namespace cm {

// Rows around the current one, [kFlatReach], each with kFlatReach samples on both sides.
using Rows32 = const int32_t* const*;

// Sum of magnitudes over the (2r+1)x(2r+1) window around each pixel of a tile: down each column, then across.
CM_INLINE void sum_window(Rows32 rows, int64_t x0, int radius, int64_t* __restrict sum, int tile) {
    int64_t column[kTile + 2 * kFlatReach] = {};
    for (int dy = -radius; dy <= radius; ++dy) {
        const int32_t* const row = rows[kFlatReach + dy] + x0 - radius;
        for (int i = 0; i < tile + 2 * radius; ++i) {
            const int64_t v = row[i];
            column[i] += v < 0 ? -v : v;
        }
    }
    std::fill_n(sum, tile, 0);
    for (int dx = 0; dx <= 2 * radius; ++dx) {
        for (int x = 0; x < tile; ++x) {
            sum[x] += column[x + dx];
        }
    }
}

// (threshold * measure) >> 10 < evidence
CM_INLINE bool passes(int64_t threshold, int64_t measure, int64_t evidence) {
    return (threshold * measure) >> 10 < evidence;
}

// A run of taps through a pixel: their sum, and the extremes with 0 among them.
struct TapRun {
    int64_t sum = 0, max = 0, min = 0;

    CM_INLINE void add(int64_t tap) {
        sum += tap;
        max = std::max(max, tap);
        min = std::min(min, tap);
    }
    // Whether the sum, in the direction of the pixel's sign, stands out against the peak.
    CM_INLINE bool is_line(int32_t pixel, int64_t threshold) const {
        return pixel < 0 ? passes(threshold, -min, -sum) : pixel > 0 && passes(threshold, max, sum);
    }
};

// Whether a run of 2l+1 taps along the column or the row is a line. `threshold` counts for all taps.
CM_INLINE bool is_on_line(Rows32 rows, int64_t x, int half_length, int64_t threshold) {
    TapRun down, across;
    for (int k = -half_length; k <= half_length; ++k) {
        down.add(rows[kFlatReach + k][x]);
        across.add(rows[kFlatReach][x + k]);
    }
    const int32_t pixel = rows[kFlatReach][x];
    return down.is_line(pixel, threshold) || across.is_line(pixel, threshold);
}

}  // namespace cm

#endif
