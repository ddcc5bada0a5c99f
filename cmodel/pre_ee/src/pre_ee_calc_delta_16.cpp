// The two deltas in 16 bits; pre_ee_calc_delta.cpp says what they are.
#include <algorithm>

#include "pre_ee_calc_delta.h"
#include "row_targets.h"

namespace cm {
namespace {

// Rows by distance from the current one: it alone, the two next to it, the two beyond; and the bits that
// occur.
struct Folded16 {
    int16_t row[3][kTile + 4];
    int16_t bits;

    CM_INLINE Folded16(const int16_t* const* rows, int64_t x0, int tile) {
        int16_t any = 0;
        for (int i = 0; i < tile + 4; ++i) {
            const int64_t x = x0 + i - 2;
            any = static_cast<int16_t>(any | rows[0][x] | rows[1][x] | rows[2][x] | rows[3][x] | rows[4][x]);
            row[0][i] = rows[2][x];
            row[1][i] = static_cast<int16_t>(rows[1][x] + rows[3][x]);
            row[2][i] = static_cast<int16_t>(rows[0][x] + rows[4][x]);
        }
        bits = any;
    }
    CM_INLINE int16_t pair(int dy, int dx, int i) const {
        return static_cast<int16_t>(row[dy][i + 2 - dx] + row[dy][i + 2 + dx]);
    }
};

// Luma of 0 to 255. All weights of the MF kernel are multiples of 16: its sum is 16 s, |s| <= 7140. The HF
// sum is 4 q + 9 r, r the four nearest taps; with t = q + (9 r >> 2), |t| <= 16320, it is 4 t and a rest of 0
// to 3, and of a negative one the magnitude is that of 4 (t + 1) unless the rest is 0. No delta passes 2047.
CM_INLINE void delta_tile16(const Folded16& f, int16_t* __restrict mf, int16_t* __restrict hf, int tile,
                            int shift) {
    using S = int16_t;
    for (int i = 0; i < tile; ++i) {
        const S centre = f.row[0][i + 2];
        const S near = static_cast<S>(f.pair(0, 1, i) + f.row[1][i + 2]);
        const S diagonal = f.pair(1, 1, i);
        const S far = static_cast<S>(f.pair(0, 2, i) + f.row[2][i + 2]);
        const S knight = static_cast<S>(f.pair(1, 2, i) + f.pair(2, 1, i));

        const S s = static_cast<S>(12 * centre + 4 * near - 2 * (far + knight) - f.pair(2, 2, i));
        const S s_negative = below16(s, 0);
        mf[i] = with_sign16(s_negative, static_cast<S>(with_sign16(s_negative, s) >> (shift - 4)));

        const S nine = static_cast<S>(9 * near);
        const S t = static_cast<S>(55 * centre - 9 * diagonal - 5 * far - knight + static_cast<S>(nine >> 2));
        const S t_negative = below16(t, 0);
        const S rest = static_cast<S>(static_cast<S>((nine & 3) + 3) >> 2);  // 1 unless it is 0
        const S mag = static_cast<S>(with_sign16(t_negative, t) - (rest & t_negative & 1));
        hf[i] = with_sign16(t_negative, static_cast<S>(mag >> (shift - 2)));
    }
}

CM_ROW_FUNCTION(delta_row16, (const BlockRows<int16_t>& rows, int shift), (rows, shift)) {
    for (int64_t x0 = 0; x0 < rows.width; x0 += kTile) {
        const int tile = tile_at(x0, rows.width);
        const Folded16 folded(rows.window[0], x0, tile);
        if ((folded.bits & ~255) != 0) {
            delta_tile(rows, x0, tile, shift);
            continue;
        }
        delta_tile16(folded, rows.out[0] + x0, rows.out[1] + x0, tile, shift);
        for (int band = 0; band < 2; ++band) {
            if (rows.out[2 + band] != nullptr) {
                std::fill_n(rows.out[2 + band] + x0, tile, int16_t{0});
            }
        }
    }
}

}  // namespace

void pre_ee_delta_row16(const BlockRows<int16_t>& rows, int shift) {
    delta_row16(rows, shift);
}

}  // namespace cm
