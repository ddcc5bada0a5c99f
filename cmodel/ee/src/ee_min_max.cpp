// Local extremes: the largest and the smallest luma around a pixel. Luma codes in, luma codes out.
#include <algorithm>

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

// Where the searches start. A minimum therefore never exceeds 255, whatever the luma's depth.
constexpr int kMaxStart = 0;
constexpr int kMinStart = 255;

// Separable: extremes of each column of 2R+1 rows, then of 2R+1 neighbouring columns.
template <int R, typename T>
CM_INLINE void min_max_tile(const T* const* rows, int64_t x0, int tile, T* __restrict max,
                            T* __restrict min) {
    T column_max[kTile + 2 * R];
    T column_min[kTile + 2 * R];
    for (int i = 0; i < tile + 2 * R; ++i) {
        const int64_t x = x0 + i - R;
        T hi = rows[0][x];
        T lo = rows[0][x];
        for (int k = 1; k <= 2 * R; ++k) {
            hi = std::max(hi, rows[k][x]);
            lo = std::min(lo, rows[k][x]);
        }
        column_max[i] = hi;
        column_min[i] = lo;
    }
    for (int i = 0; i < tile; ++i) {
        T hi = kMaxStart;
        T lo = kMinStart;
        for (int k = 0; k <= 2 * R; ++k) {
            hi = std::max(hi, column_max[i + k]);
            lo = std::min(lo, column_min[i + k]);
        }
        max[x0 + i] = hi;
        min[x0 + i] = lo;
    }
}

CM_ROW_TEMPLATE(min_max_5x5_row, (const T* const* rows, T* max, T* min, int width), (rows, max, min, width)) {
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        min_max_tile<2>(rows, x0, tile_at(x0, width), max, min);
    }
}

CM_ROW_TEMPLATE(min_max_3x3_row, (const T* const* rows, T* max, T* min, int width), (rows, max, min, width)) {
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        min_max_tile<1>(rows, x0, tile_at(x0, width), max, min);
    }
}

template <int R>
struct MinMax {
    void configure(const Registers&, const BlockSetup&) {}

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        const auto row = R == 2 ? min_max_5x5_row<T> : min_max_3x3_row<T>;
        row(rows.window[0], rows.out[0], rows.out[1], rows.width);
    }
};

}  // namespace

const Block kCal5x5MinMax = make_block<MinMax<2>>({"EE_Cal5x5MinMax", "extremes of the 5x5 window", ""},
                                                  {{.reach = 2, .padded = true}}, {{}, {}});
const Block kCal3x3MinMax = make_block<MinMax<1>>({"EE_Cal3x3MinMax", "extremes of the 3x3 window", ""},
                                                  {{.reach = 1, .padded = true}}, {{}, {}});

}  // namespace cm

// Intended: one row more than the frame has; reflected, it writes again what is there.
void EE_Cal5x5MinMax(const FRAME* in, FRAME* max, FRAME* min) {
    cm::run_on_frames(cm::kCal5x5MinMax, {{in}}, {{max}, {min}}, *in, "", 1);
}

void EE_Cal3x3MinMax(const FRAME* in, FRAME* max, FRAME* min) {
    cm::run_on_frames(cm::kCal3x3MinMax, {{in}}, {{max}, {min}}, *in, "", 1);
}
