// Local extremes of luma, and the local range between them: how much the picture varies around a
// pixel. Luma codes in, luma codes out.
#include "ee_blocks.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

// Where the searches start. A minimum therefore never exceeds 255, whatever the luma's depth.
constexpr int32_t kMaxStart = 0;
constexpr int32_t kMinStart = 255;

// Columns done at a time: column extremes stay in the first-level cache.
constexpr int kTile = 512;

// Separable: extremes of each column of 2R+1 rows, then of 2R+1 neighbouring columns.
template <int R>
CM_INLINE void min_max_row(Window rows, int32_t* __restrict max, int32_t* __restrict min, int width) {
    int32_t column_max[kTile + 2 * R];
    int32_t column_min[kTile + 2 * R];
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
        for (int i = 0; i < tile + 2 * R; ++i) {
            const int64_t x = x0 + i - R;
            int32_t hi = rows[0][x];
            int32_t lo = rows[0][x];
            for (int k = 1; k <= 2 * R; ++k) {
                hi = max32(hi, rows[k][x]);
                lo = min32(lo, rows[k][x]);
            }
            column_max[i] = hi;
            column_min[i] = lo;
        }
        for (int i = 0; i < tile; ++i) {
            int32_t hi = kMaxStart;
            int32_t lo = kMinStart;
            for (int k = 0; k <= 2 * R; ++k) {
                hi = max32(hi, column_max[i + k]);
                lo = min32(lo, column_min[i + k]);
            }
            max[x0 + i] = hi;
            min[x0 + i] = lo;
        }
    }
}

using MinMaxRow = void (*)(Window, int32_t*, int32_t*, int);

template <int R>
void min_max_frame(const FRAME& in, FRAME& max, FRAME& min, MinMaxRow row_function) {
    const int width = static_cast<int>(in.width);
    const int height = static_cast<int>(in.height);
    FrameWindow<R> window(in, width);
    const AlignedRow max_row = output_row(width);
    const AlignedRow min_row = output_row(width);
    // Intended: one row more than the frame has; reflected, it writes again what is there.
    for (int64_t y = 0; y <= height; ++y) {
        row_function(window.around(y), max_row.get(), min_row.get(), width);
        write_row(max, y, max_row.get(), width);
        write_row(min, y, min_row.get(), width);
    }
}

}  // namespace

CM_ROW_FUNCTION(min_max_5x5_row, (Window rows, int32_t* __restrict max, int32_t* __restrict min, int width),
                (rows, max, min, width)) {
    min_max_row<2>(rows, max, min, width);
}

CM_ROW_FUNCTION(min_max_3x3_row, (Window rows, int32_t* __restrict max, int32_t* __restrict min, int width),
                (rows, max, min, width)) {
    min_max_row<1>(rows, max, min, width);
}

CM_ROW_FUNCTION(range_row,
                (const int32_t* max, const int32_t* min, int32_t* __restrict range, int width,
                 int64_t& negative),
                (max, min, range, width, negative)) {
    int32_t count = 0;
    for (int x = 0; x < width; ++x) {
        range[x] = Wrap(max[x]) - Wrap(min[x]);
        count += range[x] < 0;
    }
    negative += count;
}

void report_range(int64_t negative, const FRAME* range) {
    for (int64_t i = 0; i < negative; ++i) {
        log_log(LOG_ERROR, at::kNegativeRange.source, at::kNegativeRange.line,
                "[EE_CalcDeltaRef Error]: max_sad < 0");
    }
    if (range != nullptr) {
        CM_WritePPM5(debug_path("dbg_max_sad_8b.ppm").c_str(), range);
    }
}

}  // namespace cm

void EE_Cal5x5MinMax(const FRAME* in, FRAME* max, FRAME* min) {
    cm::min_max_frame<2>(*in, *max, *min, cm::min_max_5x5_row);
}

void EE_Cal3x3MinMax(const FRAME* in, FRAME* max, FRAME* min) {
    cm::min_max_frame<1>(*in, *max, *min, cm::min_max_3x3_row);
}

void EE_CalcDeltaRef(const FRAME* max, const FRAME* min, FRAME* range) try {
    const int width = static_cast<int>(range->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader max_rows(*max, width);
    cm::FrameReader min_rows(*min, width);
    int64_t negative = 0;
    for (int y = 0; y < static_cast<int>(range->height); ++y) {
        cm::range_row(max_rows.row(y), min_rows.row(y), out.get(), width, negative);
        cm::write_row(*range, y, out.get(), width);
    }
    cm::report_range(negative, dump_dbg_img != 0 ? range : nullptr);
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
