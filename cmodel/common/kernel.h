// Kernels with the symmetry of the square, folded: taps that reflections and the swap of x and y map
// onto each other are added before they are weighted, so that a 5x5 kernel costs 6 products and a 7x7
// kernel 10.
#ifndef CMODEL_KERNEL_H
#define CMODEL_KERNEL_H

#include "fixed_point.h"

namespace cm {

// Weights of a (2R+1)x(2R+1) kernel by distance from the centre: weight[a][b] is that of the taps a
// away along one axis and b along the other, a >= b. (Entries with a < b are not looked at.)
template <int R>
struct SymmetricKernel {
    int32_t weight[R + 1][R + 1];
};

// Rows at the same distance from the middle row, added; the middle row for d = 0. Column x of the
// tile that starts at x0 is at [x - x0 + R].
template <int R, int kTile>
struct FoldedRows {
    int32_t row[R + 1][kTile + 2 * R];

    template <typename T>
    CM_INLINE FoldedRows(const T* const* rows, int64_t x0, int tile) {
        for (int i = 0; i < tile + 2 * R; ++i) {
            const int64_t x = x0 + i - R;
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
        CM_UNROLL
        for (int a = 0; a <= N; ++a) {
            CM_UNROLL
            for (int b = 0; b <= a; ++b) {
                s = s + ring(a, b, i + R) * kernel.weight[a][b];
            }
        }
        return s;
    }

  private:
    // All taps at distances (a, b), a >= b, around column x.
    CM_INLINE Wrap ring(int a, int b, int x) const {
        if (a == 0) {
            return row[0][x];
        }
        if (b == 0) {
            return pair(0, a, x) + Wrap(row[a][x]);
        }
        return a == b ? pair(a, a, x) : pair(a, b, x) + pair(b, a, x);
    }
    CM_INLINE Wrap pair(int dy, int dx, int x) const { return Wrap(row[dy][x - dx]) + Wrap(row[dy][x + dx]); }
};

// Fine detail, 5x5; both pipelines' HF delta.
inline constexpr SymmetricKernel<2> kHfKernel = {{
    {220},
    {9, -36},
    {-20, -4, 0},
}};

}  // namespace cm

#endif
