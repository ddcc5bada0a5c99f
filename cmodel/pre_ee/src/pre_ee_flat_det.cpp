// Flat detection: per pixel, which delta sharpening will use, the input's (di) or the fused luma's (df),
// and how strongly. Brightness is the fused luma's; evidence is the energy of the deltas against the
// luma in a window, and runs of deltas of one sign along the column or the row.
//
//   dark      edge (fused energy):        di * dark strength
//             flat:                       df * dark strength
//   mid-tone                              df
//   bright    line (fused deltas):        df * line strength
//             edge (the input's energy):  df * bright strength
//             flat:                       di
//
// Intended: the dark edge test measures the fused pair and outputs the input's delta, the bright edge
// test the other way round; a bright flat area keeps its delta unscaled.
#include <algorithm>
#include <limits>
#include <type_traits>
#include <vector>

#include "ee_reg_table.h"
#include "fixed_point.h"
#include "pnm.h"
#include "pre_ee_blocks.h"
#include "pre_ee_hw.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kReach = 3;
constexpr int kFactorBits = 10;  // thresholds and strengths are in 1/1024
constexpr int kTile = 512;

// All tests have the form "factor * measure < evidence * 1024", both sides non-negative, which is the
// hardware's (factor * measure) >> 10 < evidence. In 32 bits the measure is cut to a cap first: at the
// cap the left side already exceeds any evidence there can be, and the product still fits.
template <typename Sum>
struct Factor {
    Sum value;
    Sum cap;

    Factor(int32_t factor, int64_t most_evidence) : value(factor), cap(std::numeric_limits<Sum>::max()) {
        if (std::is_same_v<Sum, int32_t> && factor > 0) {
            cap = static_cast<Sum>((most_evidence << kFactorBits) / factor + 1);
        }
    }
    CM_INLINE bool is_below(Sum measure, Sum evidence) const {
        return value * (measure < cap ? measure : cap) < evidence * (1 << kFactorBits);
    }
};

template <typename Lanes>
struct FlatDetConfig {
    using Sum = typename Lanes::Sum;
    static constexpr int64_t kMostEnergy = 49 * int64_t{Lanes::kDeltaBound};
    static constexpr int64_t kMostLine = 7 * int64_t{Lanes::kDeltaBound};

    int32_t dark_luma_thr = reg_value(reg_ee_dark_luma_thr);
    int32_t bright_luma_thr = reg_value(reg_ee_bright_luma_thr);
    int dark_radius = reg_value(reg_ee_dark_edge_region);
    int bright_radius = reg_value(reg_ee_bright_edge_region);
    int line_half = reg_value(reg_ee_line_length);
    Factor<Sum> dark_edge{reg_value(reg_ee_dark_edge_thr), kMostEnergy};
    Factor<Sum> bright_edge{reg_value(reg_ee_bright_edge_thr), kMostEnergy};
    Factor<Sum> line{reg_value(reg_ee_line_thr) * (2 * line_half + 1), kMostLine};
    // Strengths; the cap is where 2047 is passed.
    Factor<Sum> dark_strength{reg_value(reg_ee_dark_edge_strength), kDeltaMax + 1};
    Factor<Sum> bright_strength{reg_value(reg_ee_bright_edge_strength), kDeltaMax + 1};
    Factor<Sum> line_strength{reg_value(reg_ee_line_strength), kDeltaMax + 1};
};

template <typename Lanes>
using Rows = const typename Lanes::Row* const*;

// Sum of magnitudes over the (2R+1)x(2R+1) window: down each column, then across.
template <typename Lanes, int R>
CM_INLINE void sum_box(Rows<Lanes> rows, typename Lanes::Sum* __restrict out, int width) {
    using Column = typename Lanes::Column;
    Column column[kTile + 2 * R];
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
        for (int i = 0; i < tile + 2 * R; ++i) {
            Column s = 0;
            CM_UNROLL
            for (int k = kReach - R; k <= kReach + R; ++k) {
                const Column v = rows[k][x0 + i - R];
                const Column mag = static_cast<Column>(v < 0 ? -v : v);
                s = static_cast<Column>(s + mag);
            }
            column[i] = s;
        }
        for (int i = 0; i < tile; ++i) {
            typename Lanes::Sum s = 0;
            CM_UNROLL
            for (int k = 0; k <= 2 * R; ++k) {
                s += column[i + k];
            }
            out[x0 + i] = s;
        }
    }
}

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

// A run of 2L+1 taps through a pixel: their sum, and the extremes with 0 among them.
template <typename Lanes>
struct Run {
    using Column = typename Lanes::Column;
    using Sum = typename Lanes::Sum;
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

template <typename Lanes, int L>
CM_INLINE void find_lines(Rows<Lanes> window, int32_t* __restrict line, int width,
                          const Factor<typename Lanes::Sum>& shared_factor) {
    const Factor<typename Lanes::Sum> factor = shared_factor;
    const typename Lanes::Row* rows[2 * kReach + 1];
    std::copy_n(window, 2 * kReach + 1, rows);
    for (int64_t x = 0; x < width; ++x) {
        Run<Lanes> down;
        Run<Lanes> across;
        CM_UNROLL
        for (int k = -L; k <= L; ++k) {
            down.add(rows[kReach + k][x]);
            across.add(rows[kReach][x + k]);
        }
        const int32_t centre = rows[kReach][x];
        const int32_t negative = mask_of(centre < 0);
        const int32_t found = down.is_line(negative, factor) | across.is_line(negative, factor);
        line[x] = found & mask_of(centre != 0);
    }
}

// What the decision for one row of one band rests on.
template <typename Lanes>
struct Evidence {
    using Row = typename Lanes::Row;
    using Sum = typename Lanes::Sum;
    const Row* luma;  // fused
    const Row* delta_in;
    const Row* delta_fusion;
    const Sum* dark_energy;  // window sums: fused deltas against fused luma
    const Sum* dark_luma;
    const Sum* bright_energy;  // the input's deltas against the input's luma
    const Sum* bright_luma;
    const int32_t* line;
};

template <typename Lanes>
CM_INLINE void decide(const Evidence<Lanes>& evidence, int32_t* __restrict out, int32_t* __restrict texture,
                      int width, const FlatDetConfig<Lanes>& config) {
    using Sum = typename Lanes::Sum;
    const Evidence<Lanes> e = evidence;
    const FlatDetConfig<Lanes> c = config;
    for (int x = 0; x < width; ++x) {
        const int32_t dark = mask_of(e.luma[x] < c.dark_luma_thr);
        const int32_t mid = mask_of(e.luma[x] < c.bright_luma_thr) & ~dark;
        const int32_t dark_edge = mask_of(c.dark_edge.is_below(e.dark_luma[x], e.dark_energy[x])) & dark;
        const int32_t line = e.line[x] & ~dark & ~mid;
        const int32_t bright_edge =
            mask_of(c.bright_edge.is_below(e.bright_luma[x], e.bright_energy[x])) & ~dark & ~mid & ~line;
        const int32_t bright_flat = ~(dark | mid | line | bright_edge);
        texture[x] = (kDarkEdge & dark_edge) | (kMidTone & mid) | (kLine & line) |
                     (kBrightEdge & bright_edge) | (kBrightFlat & bright_flat);

        // The chosen delta, and the strength that scales it unless it passes as it is.
        const int32_t delta = select<int32_t>(dark_edge | bright_flat, e.delta_in[x], e.delta_fusion[x]);
        const Sum strength =
            select(dark, c.dark_strength.value, select(line, c.line_strength.value, c.bright_strength.value));
        const Sum cap =
            select(dark, c.dark_strength.cap, select(line, c.line_strength.cap, c.bright_strength.cap));
        const Sum mag = delta < 0 ? -Sum{delta} : Sum{delta};
        const Sum scaled = (strength * (mag < cap ? mag : cap)) >> kFactorBits;
        const int32_t limited = static_cast<int32_t>(scaled < kDeltaMax ? scaled : Sum{kDeltaMax});
        out[x] = select<int32_t>(mid | bright_flat, delta, with_sign(delta, limited));
    }
}

CM_ROW_FUNCTION(find_range, (const int16_t* row, int width, int16_t& low, int16_t& high),
                (row, width, low, high)) {
    find_extremes(row, width, low, high);
}
CM_ROW_FUNCTION(find_range, (const int32_t* row, int width, int32_t& low, int32_t& high),
                (row, width, low, high)) {
    find_extremes(row, width, low, high);
}

// The row functions, one overload for each width of arithmetic.
#define CM_FLAT_DET_ROWS(Lanes)                                                                          \
    CM_ROW_FUNCTION(sum_box_row, (Rows<Lanes> rows, int radius, Lanes::Sum* out, int width),             \
                    (rows, radius, out, width)) {                                                        \
        switch (radius) {                                                                                \
            case 0:                                                                                      \
                sum_box<Lanes, 0>(rows, out, width);                                                     \
                break;                                                                                   \
            case 1:                                                                                      \
                sum_box<Lanes, 1>(rows, out, width);                                                     \
                break;                                                                                   \
            case 2:                                                                                      \
                sum_box<Lanes, 2>(rows, out, width);                                                     \
                break;                                                                                   \
            default:                                                                                     \
                sum_box<Lanes, 3>(rows, out, width);                                                     \
                break;                                                                                   \
        }                                                                                                \
    }                                                                                                    \
    CM_ROW_FUNCTION(                                                                                     \
        line_row,                                                                                        \
        (Rows<Lanes> rows, int half_length, int32_t* line, int width, const Factor<Lanes::Sum>& factor), \
        (rows, half_length, line, width, factor)) {                                                      \
        switch (half_length) {                                                                           \
            case 0:                                                                                      \
                find_lines<Lanes, 0>(rows, line, width, factor);                                         \
                break;                                                                                   \
            case 1:                                                                                      \
                find_lines<Lanes, 1>(rows, line, width, factor);                                         \
                break;                                                                                   \
            case 2:                                                                                      \
                find_lines<Lanes, 2>(rows, line, width, factor);                                         \
                break;                                                                                   \
            default:                                                                                     \
                find_lines<Lanes, 3>(rows, line, width, factor);                                         \
                break;                                                                                   \
        }                                                                                                \
    }                                                                                                    \
    CM_ROW_FUNCTION(decide_row,                                                                          \
                    (const Evidence<Lanes>& e, int32_t* out, int32_t* texture, int width,                \
                     const FlatDetConfig<Lanes>& c),                                                     \
                    (e, out, texture, width, c)) {                                                       \
        decide(e, out, texture, width, c);                                                               \
    }

CM_FLAT_DET_ROWS(Lanes16)
CM_FLAT_DET_ROWS(Lanes32)
CM_FLAT_DET_ROWS(Lanes64)
#undef CM_FLAT_DET_ROWS

}  // namespace

// Configuration and scratch rows. Evidence that a row does not need (it has no dark, or no bright
// pixels) is left as it was; the decision does not look at it.
template <typename Lanes>
struct FlatDetector<Lanes>::State {
    using Sum = typename Lanes::Sum;

    explicit State(int frame_width)
        : width(frame_width),
          dark_energy(static_cast<size_t>(width)),
          dark_luma(static_cast<size_t>(width)),
          bright_energy(static_cast<size_t>(width)),
          bright_luma(static_cast<size_t>(width)),
          line(static_cast<size_t>(width)) {}

    FlatDetConfig<Lanes> config;
    int width;
    std::vector<Sum> dark_energy, dark_luma, bright_energy, bright_luma;
    std::vector<int32_t> line;
    const typename Lanes::Row* luma = nullptr;
    bool has_dark = false;
    bool has_bright = false;
};

template <typename Lanes>
FlatDetector<Lanes>::FlatDetector(int width) : state_(std::make_unique<State>(width)) {}

template <typename Lanes>
FlatDetector<Lanes>::~FlatDetector() = default;

template <typename Lanes>
void FlatDetector<Lanes>::set_luma(RowWindows luma_in, RowWindows luma_fusion) {
    State& s = *state_;
    s.luma = luma_fusion[kReach];
    typename Lanes::Row low;
    typename Lanes::Row high;
    find_range(s.luma, s.width, low, high);
    s.has_dark = low < s.config.dark_luma_thr;
    s.has_bright = high >= s.config.dark_luma_thr && high >= s.config.bright_luma_thr;
    if (s.has_dark) {
        sum_box_row(luma_fusion, s.config.dark_radius, s.dark_luma.data(), s.width);
    }
    if (s.has_bright) {
        sum_box_row(luma_in, s.config.bright_radius, s.bright_luma.data(), s.width);
    }
}

template <typename Lanes>
void FlatDetector<Lanes>::run_band(RowWindows delta_in, RowWindows delta_fusion, int32_t* out,
                                   int32_t* texture) {
    State& s = *state_;
    if (s.has_dark) {
        sum_box_row(delta_fusion, s.config.dark_radius, s.dark_energy.data(), s.width);
    }
    if (s.has_bright) {
        line_row(delta_fusion, s.config.line_half, s.line.data(), s.width, s.config.line);
        sum_box_row(delta_in, s.config.bright_radius, s.bright_energy.data(), s.width);
    }
    const Evidence<Lanes> evidence{s.luma,
                                   delta_in[kReach],
                                   delta_fusion[kReach],
                                   s.dark_energy.data(),
                                   s.dark_luma.data(),
                                   s.bright_energy.data(),
                                   s.bright_luma.data(),
                                   s.line.data()};
    decide_row(evidence, out, texture, s.width, s.config);
}

template class FlatDetector<Lanes16>;
template class FlatDetector<Lanes32>;
template class FlatDetector<Lanes64>;

void report_flat_det(const std::string& tag, const RowSource& texture) {
    static constexpr uint8_t kColours[][3] = {
        {0, 0, 0},        // dark flat
        {255, 255, 0},    // dark edge
        {255, 0, 0},      // mid-tone
        {255, 0, 255},    // line
        {0, 255, 255},    // bright edge
        {255, 255, 255},  // bright flat
    };
    const std::string path = debug_path(tag, "dbg_delta_8b_FlatDet.ppm");
    const int width = texture.width();
    const AlignedRow scratch = output_row(width);
    write_colour_rows(path.c_str(), static_cast<uint32_t>(width), static_cast<uint32_t>(texture.height()),
                      [&](uint32_t y, uint8_t* pixels) {
                          const int32_t* const row = texture.row(y, scratch.get(), width);
                          for (int64_t x = 0; x < width; ++x) {
                              std::copy_n(kColours[row[x]], 3, pixels + 3 * x);
                          }
                      });
}

namespace {

template <typename Lanes>
bool fits(const FRAME& luma_in, const FRAME& luma_fusion, const FRAME& delta_in, const FRAME& delta_fusion) {
    return RowSource(luma_in).within(Lanes::kLumaBound) && RowSource(luma_fusion).within(Lanes::kLumaBound) &&
           RowSource(delta_in).within(Lanes::kDeltaBound) &&
           RowSource(delta_fusion).within(Lanes::kDeltaBound);
}

template <typename Lanes>
void run_frame(const FRAME& luma_in, const FRAME& luma_fusion, const FRAME& delta_in,
               const FRAME& delta_fusion, FRAME& out, FRAME& texture) {
    using Row = typename Lanes::Row;
    const int width = static_cast<int>(luma_in.width);
    FlatDetector<Lanes> detector(width);
    const AlignedRow out_row = output_row(width);
    const AlignedRow texture_row = output_row(width);
    FrameWindow<kReach, Row> luma_in_rows(luma_in, width);
    FrameWindow<kReach, Row> luma_fusion_rows(luma_fusion, width);
    FrameWindow<kReach, Row> delta_in_rows(delta_in, width);
    FrameWindow<kReach, Row> delta_fusion_rows(delta_fusion, width);
    for (int y = 0; y < static_cast<int>(luma_in.height); ++y) {
        detector.set_luma(luma_in_rows.around(y), luma_fusion_rows.around(y));
        detector.run_band(delta_in_rows.around(y), delta_fusion_rows.around(y), out_row.get(),
                          texture_row.get());
        write_row(out, y, out_row.get(), width);
        write_row(texture, y, texture_row.get(), width);
    }
}

}  // namespace
}  // namespace cm

void PRE_EE_FlatDet(const FRAME* Yin, const FRAME* Yfusion, const FRAME* delta_in, const FRAME* delta_fusion,
                    FRAME* out, const char* tag) try {
    FRAME* const texture = CM_NewFRAME(Yin->file_type, CM_FORMAT_SINGLE, Yin->width, Yin->height, 1, 8);
    const auto run =
        cm::fits<cm::Lanes16>(*Yin, *Yfusion, *delta_in, *delta_fusion)   ? cm::run_frame<cm::Lanes16>
        : cm::fits<cm::Lanes32>(*Yin, *Yfusion, *delta_in, *delta_fusion) ? cm::run_frame<cm::Lanes32>
                                                                          : cm::run_frame<cm::Lanes64>;
    run(*Yin, *Yfusion, *delta_in, *delta_fusion, *out, *texture);
    if (dump_dbg_img != 0) {
        cm::report_flat_det(tag, cm::RowSource(*texture));
    }
    CM_DelFRAME(texture);
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
