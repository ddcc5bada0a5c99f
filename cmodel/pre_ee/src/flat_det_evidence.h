// What flat detection looks for around a pixel: window sums, and runs of one sign.
#ifndef CMODEL_FLAT_DET_EVIDENCE_H
#define CMODEL_FLAT_DET_EVIDENCE_H

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "ee_blocks.h"
#include "fixed_point.h"

namespace cm {

inline constexpr int kFlatReach = 3;    // rows and columns that windows and runs reach at most
inline constexpr int kFactorBits = 10;  // thresholds and strengths are in 1/1024

// How wide the arithmetic on rows of T is: sums down a column and everything after. 16-bit rows hold samples
// of which seven add up in 16 bits; 32-bit rows hold anything.
template <typename T>
struct LaneOf;
template <>
struct LaneOf<int16_t> {
    using Column = int16_t;
    using Sum = int32_t;
    static constexpr int32_t kDeltaBound = 32767 / 7;
};
template <>
struct LaneOf<int32_t> {
    using Column = int64_t;
    using Sum = int64_t;
    static constexpr int32_t kDeltaBound = std::numeric_limits<int32_t>::max();
};

// All tests have the form "factor * measure < evidence * 1024", both sides non-negative, which is the
// hardware's (factor * measure) >> 10 < evidence. In 32 bits the measure is cut to a cap first: at the
// cap the left side already exceeds any evidence there can be, and the product still fits.
template <typename Sum>
struct Factor {
    Sum value;
    Sum cap;

    void set(int32_t factor, int64_t most_evidence) {
        value = factor;
        cap = std::numeric_limits<Sum>::max();
        if (std::is_same_v<Sum, int32_t> && factor > 0) {
            cap = static_cast<Sum>((most_evidence << kFactorBits) / factor + 1);
        }
    }
    CM_INLINE bool is_below(Sum measure, Sum evidence) const {
        return value * (measure < cap ? measure : cap) < evidence * (1 << kFactorBits);
    }
};

template <typename T>
CM_INLINE void find_extremes(const T* row, int width, T& low, T& high) {
    T min = row[0];
    T max = row[0];
    for (int x = 1; x < width; ++x) {
        min = row[x] < min ? row[x] : min;
        max = row[x] > max ? row[x] : max;
    }
    low = min;
    high = max;
}

// Sum of magnitudes over the (2R+1)x(2R+1) window: down each column, then across.
template <int R, typename T>
CM_INLINE void sum_box(const T* const* rows, int64_t x0, typename LaneOf<T>::Sum* __restrict out, int tile) {
    using Column = typename LaneOf<T>::Column;
    Column column[kTile + 2 * R];
    for (int i = 0; i < tile + 2 * R; ++i) {
        Column s = 0;
        CM_UNROLL
        for (int k = kFlatReach - R; k <= kFlatReach + R; ++k) {
            const Column v = rows[k][x0 + i - R];
            const Column mag = static_cast<Column>(v < 0 ? -v : v);
            s = static_cast<Column>(s + mag);
        }
        column[i] = s;
    }
    for (int i = 0; i < tile; ++i) {
        typename LaneOf<T>::Sum s = 0;
        CM_UNROLL
        for (int k = 0; k <= 2 * R; ++k) {
            s += column[i + k];
        }
        out[i] = s;
    }
}

template <typename T>
CM_INLINE void sum_box(const T* const* rows, int64_t x0, int radius, typename LaneOf<T>::Sum* out, int tile) {
    switch (radius) {
        case 0:
            sum_box<0>(rows, x0, out, tile);
            break;
        case 1:
            sum_box<1>(rows, x0, out, tile);
            break;
        case 2:
            sum_box<2>(rows, x0, out, tile);
            break;
        default:
            sum_box<3>(rows, x0, out, tile);
            break;
    }
}

// A run of 2L+1 taps through a pixel: their sum, and the extremes with 0 among them.
template <typename T>
struct TapRun {
    using Column = typename LaneOf<T>::Column;
    using Sum = typename LaneOf<T>::Sum;
    Column sum = 0;
    Column max = 0;
    Column min = 0;

    CM_INLINE void add(Column v) {
        sum = static_cast<Column>(sum + v);
        max = v > max ? v : max;
        min = v < min ? v : min;
    }
    // Whether the run's sum, in the direction of the centre's sign, stands out against its peak.
    CM_INLINE int32_t is_line(int32_t negative, const Factor<Sum>& line) const {
        const Sum peak = select<Sum>(negative, -Sum{min}, max);
        const Sum rise = select<Sum>(negative, -Sum{sum}, sum);
        return mask_of(line.is_below(peak, rise));
    }
};

// All ones where a pixel lies on a line, along its column or its row.
template <int L, typename T>
CM_INLINE void find_lines(const T* const* window, int64_t x0, int32_t* __restrict line, int tile,
                          const Factor<typename LaneOf<T>::Sum>& shared_factor) {
    const Factor<typename LaneOf<T>::Sum> factor = shared_factor;
    const T* rows[2 * kFlatReach + 1];
    for (int k = 0; k <= 2 * kFlatReach; ++k) {
        rows[k] = window[k] + x0;
    }
    for (int x = 0; x < tile; ++x) {
        TapRun<T> down;
        TapRun<T> across;
        CM_UNROLL
        for (int k = -L; k <= L; ++k) {
            down.add(rows[kFlatReach + k][x]);
            across.add(rows[kFlatReach][x + k]);
        }
        const int32_t centre = rows[kFlatReach][x];
        const int32_t negative = mask_of(centre < 0);
        const int32_t found = down.is_line(negative, factor) | across.is_line(negative, factor);
        line[x] = found & mask_of(centre != 0);
    }
}

template <typename T>
CM_INLINE void find_lines(const T* const* window, int64_t x0, int half_length, int32_t* line, int tile,
                          const Factor<typename LaneOf<T>::Sum>& factor) {
    switch (half_length) {
        case 0:
            find_lines<0>(window, x0, line, tile, factor);
            break;
        case 1:
            find_lines<1>(window, x0, line, tile, factor);
            break;
        case 2:
            find_lines<2>(window, x0, line, tile, factor);
            break;
        default:
            find_lines<3>(window, x0, line, tile, factor);
            break;
    }
}

}  // namespace cm

#endif
