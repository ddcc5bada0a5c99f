// The border rule, stated once: reflect without repeating the edge sample.
#ifndef CMODEL_MIRROR_H
#define CMODEL_MIRROR_H

#include <cstddef>
#include <cstdint>

#include "common.h"

namespace cm {

// Index i of a line of n samples: -1 is 1, n is n-2; repeated until it is inside, so that every
// n >= 1 has a defined result (n = 1 always gives 0).
constexpr int mirror(int64_t i, int n) {
    if (i >= 0 && i < n) {
        return static_cast<int>(i);
    }
    if (n <= 1) {
        return 0;
    }
    const int64_t period = 2 * (int64_t{n} - 1);
    const int64_t phase = (i % period + period) % period;
    return static_cast<int>(phase < n ? phase : period - phase);
}

// Half of n samples, rounded up: the width of chroma, for any width.
constexpr int half_up(int n) {
    return n / 2 + n % 2;
}

// Channel c at (x, y), reflected against the frame's own size.
inline int32_t& sample(FRAME& f, int64_t x, int64_t y, int c) {
    const size_t column = static_cast<size_t>(mirror(x, static_cast<int>(f.width)));
    const size_t row = static_cast<size_t>(mirror(y, static_cast<int>(f.height)));
    return f.data[f.channels * (row * f.width + column) + static_cast<size_t>(c)];
}

inline int32_t sample(const FRAME& f, int64_t x, int64_t y, int c) {
    return sample(const_cast<FRAME&>(f), x, y, c);
}

}  // namespace cm

#endif
