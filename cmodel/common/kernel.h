// Symmetric kernels, folded: taps at the same distance from the centre are added before they are
// weighted, so that a 5x5 kernel costs 9 products and a 7x7 kernel 16.
#ifndef CMODEL_KERNEL_H
#define CMODEL_KERNEL_H

#include "fixed_point.h"

namespace cm {

// The quarter of a (2R+1)x(2R+1) kernel that decides the rest: weight[|dy|][|dx|].
template <int R>
struct SymmetricKernel {
    int32_t weight[R + 1][R + 1];
};

// Rows at the same distance from the middle row, added; the middle row for d = 0. Column x of the
// tile that starts at x0 is at [x - x0 + R].
template <int R, int kTile>
struct FoldedRows {
    int32_t row[R + 1][kTile + 2 * R];

    CM_INLINE FoldedRows(const int32_t* const* rows, int x0, int tile) {
        for (int i = 0; i < tile + 2 * R; ++i) {
            const int x = x0 + i - R;
            row[0][i] = rows[R][x];
            for (int d = 1; d <= R; ++d) {
                row[d][i] = Wrap(rows[R - d][x]) + Wrap(rows[R + d][x]);
            }
        }
    }

    // The kernel's sum at column i of the tile.
    template <int N>
    CM_INLINE Wrap sum(const SymmetricKernel<N>& kernel, int i) const {
        static_assert(N <= R);
        Wrap s = 0;
        for (int dy = 0; dy <= N; ++dy) {
            const int32_t* const line = row[dy] + i + R;
            s = s + Wrap(line[0]) * kernel.weight[dy][0];
            for (int dx = 1; dx <= N; ++dx) {
                s = s + (Wrap(line[-dx]) + Wrap(line[dx])) * kernel.weight[dy][dx];
            }
        }
        return s;
    }
};

// Fine detail, 5x5; both pipelines' HF delta.
inline constexpr SymmetricKernel<2> kHfKernel = {{
    {220, 9, -20},
    {9, -36, -4},
    {-20, -4, 0},
}};

}  // namespace cm

#endif
