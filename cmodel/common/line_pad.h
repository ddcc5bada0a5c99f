// Rows that blocks look left and right in.
#ifndef CMODEL_LINE_PAD_H
#define CMODEL_LINE_PAD_H

#include "mirror.h"

namespace cm {

// Most columns that a block looks left and right: 7x7 kernel, window of radius 3.
inline constexpr int kMaxReach = 3;

// Reflects the samples next to the ends outward: row[-kMaxReach] .. row[width - 1 + kMaxReach] are there
// then.
template <typename T>
void pad_row(T* row, int width) {
    if (width > kMaxReach) {  // mirror() without its loop
        for (int k = 1; k <= kMaxReach; ++k) {
            row[-k] = row[k];
            row[int64_t{width} - 1 + k] = row[int64_t{width} - 1 - k];
        }
        return;
    }
    for (int k = 1; k <= kMaxReach; ++k) {
        row[-k] = row[mirror(-k, width)];
        row[int64_t{width} - 1 + k] = row[mirror(int64_t{width} - 1 + k, width)];
    }
}

}  // namespace cm

#endif
