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
template <typename T>
struct Factor {
    T value;
    T cap;

    Factor(int32_t factor, int64_t most_evidence) : value(factor), cap(std::numeric_limits<T>::max()) {
        if (std::is_same_v<T, int32_t> && factor > 0) {
            cap = static_cast<T>((most_evidence << kFactorBits) / factor + 1);
        }
    }
    CM_INLINE bool is_below(T measure, T evidence) const {
        return value * (measure < cap ? measure : cap) < evidence * (1 << kFactorBits);
    }
    // min((factor * |delta|) >> 10, 2047) with the sign of delta; the cap is where 2047 is reached.
    CM_INLINE int32_t scale(int32_t delta) const {
        const T mag = delta < 0 ? -static_cast<T>(delta) : static_cast<T>(delta);
        const T scaled = (value * (mag < cap ? mag : cap)) >> kFactorBits;
        return with_sign(delta, static_cast<int32_t>(scaled < kDeltaMax ? scaled : kDeltaMax));
    }
};

constexpr int64_t kMostEnergy = 49 * int64_t{FlatDetector::kDeltaBound};
constexpr int64_t kMostLine = 7 * int64_t{FlatDetector::kDeltaBound};

template <typename T>
struct FlatDetConfig {
    int32_t dark_luma_thr = reg_value(reg_ee_dark_luma_thr);
    int32_t bright_luma_thr = reg_value(reg_ee_bright_luma_thr);
    int dark_radius = reg_value(reg_ee_dark_edge_region);
    int bright_radius = reg_value(reg_ee_bright_edge_region);
    int line_half = reg_value(reg_ee_line_length);
    Factor<T> dark_edge{reg_value(reg_ee_dark_edge_thr), kMostEnergy};
    Factor<T> bright_edge{reg_value(reg_ee_bright_edge_thr), kMostEnergy};
    Factor<T> line{reg_value(reg_ee_line_thr) * (2 * line_half + 1), kMostLine};
    Factor<T> dark_strength{reg_value(reg_ee_dark_edge_strength), kDeltaMax + 1};
    Factor<T> bright_strength{reg_value(reg_ee_bright_edge_strength), kDeltaMax + 1};
    Factor<T> line_strength{reg_value(reg_ee_line_strength), kDeltaMax + 1};
};

// Sum of magnitudes over the (2R+1)x(2R+1) window: down each column, then across.
template <int R, typename T>
CM_INLINE void box_sum(Window rows, T* out, int width) {
    T column[kTile + 2 * R];
    for (int x0 = 0; x0 < width; x0 += kTile) {
        const int tile = width - x0 < kTile ? width - x0 : kTile;
        for (int i = 0; i < tile + 2 * R; ++i) {
            T s = 0;
            for (int k = kReach - R; k <= kReach + R; ++k) {
                const T v = rows[k][x0 + i - R];
                s += v < 0 ? -v : v;
            }
            column[i] = s;
        }
        for (int i = 0; i < tile; ++i) {
            T s = 0;
            for (int k = 0; k <= 2 * R; ++k) {
                s += column[i + k];
            }
            out[x0 + i] = s;
        }
    }
}

template <typename T>
CM_INLINE void box_sum(Window rows, int radius, T* out, int width) {
    switch (radius) {
        case 0:
            box_sum<0>(rows, out, width);
            break;
        case 1:
            box_sum<1>(rows, out, width);
            break;
        case 2:
            box_sum<2>(rows, out, width);
            break;
        default:
            box_sum<3>(rows, out, width);
            break;
    }
}

// A run of 2L+1 taps through a pixel: their sum, and the extremes with 0 among them.
template <typename T>
struct Run {
    T sum = 0;
    T max = 0;
    T min = 0;

    CM_INLINE void add(int32_t tap) {
        const T v = tap;
        sum += v;
        max = v > max ? v : max;
        min = v < min ? v : min;
    }
    // Whether the run's sum, in the direction of the centre's sign, stands out against its peak.
    CM_INLINE bool is_line(bool negative, const Factor<T>& line) const {
        return line.is_below(negative ? -min : max, negative ? -sum : sum);
    }
};

template <int L, typename T>
CM_INLINE void find_lines(Window rows, int32_t* line, int width, const Factor<T>& factor) {
    for (int x = 0; x < width; ++x) {
        Run<T> down;
        Run<T> across;
        for (int k = -L; k <= L; ++k) {
            down.add(rows[kReach + k][x]);
            across.add(rows[kReach][x + k]);
        }
        const int32_t centre = rows[kReach][x];
        const int down_line = down.is_line(centre < 0, factor);
        const int across_line = across.is_line(centre < 0, factor);
        line[x] = (down_line | across_line) & int{centre != 0};
    }
}

template <typename T>
CM_INLINE void find_lines(Window rows, int half_length, int32_t* line, int width, const Factor<T>& factor) {
    switch (half_length) {
        case 0:
            find_lines<0>(rows, line, width, factor);
            break;
        case 1:
            find_lines<1>(rows, line, width, factor);
            break;
        case 2:
            find_lines<2>(rows, line, width, factor);
            break;
        default:
            find_lines<3>(rows, line, width, factor);
            break;
    }
}

// What the decision for one row of one band rests on.
template <typename T>
struct Evidence {
    const int32_t* luma;  // fused
    const int32_t* delta_in;
    const int32_t* delta_fusion;
    const T* dark_energy;  // window sums: fused deltas against fused luma
    const T* dark_luma;
    const T* bright_energy;  // the input's deltas against the input's luma
    const T* bright_luma;
    const int32_t* line;
};

template <typename T>
CM_INLINE void decide(const Evidence<T>& e, int32_t* out, int32_t* texture, int width,
                      const FlatDetConfig<T>& c) {
    for (int x = 0; x < width; ++x) {
        const int32_t di = e.delta_in[x];
        const int32_t df = e.delta_fusion[x];
        const bool dark_edge = c.dark_edge.is_below(e.dark_luma[x], e.dark_energy[x]);
        const bool bright_edge = c.bright_edge.is_below(e.bright_luma[x], e.bright_energy[x]);
        const bool line = e.line[x] != 0;

        const int32_t dark = c.dark_strength.scale(dark_edge ? di : df);
        const int32_t edge = c.bright_strength.scale(df);
        const int32_t bright = line ? c.line_strength.scale(df) : bright_edge ? edge : di;
        const int32_t bright_texture = line ? kLine : bright_edge ? kBrightEdge : kBrightFlat;

        const bool is_dark = e.luma[x] < c.dark_luma_thr;
        const bool is_mid = e.luma[x] < c.bright_luma_thr;
        out[x] = is_dark ? dark : is_mid ? df : bright;
        texture[x] = is_dark ? (dark_edge ? kDarkEdge : kDarkFlat) : is_mid ? +kMidTone : bright_texture;
    }
}

// The row functions, in 32 and in 64 bits.
CM_ROW_FUNCTION(box_sum_row, (Window rows, int radius, int32_t* out, int width), (rows, radius, out, width)) {
    box_sum(rows, radius, out, width);
}
CM_ROW_FUNCTION(box_sum_row, (Window rows, int radius, int64_t* out, int width), (rows, radius, out, width)) {
    box_sum(rows, radius, out, width);
}
CM_ROW_FUNCTION(line_row,
                (Window rows, int half_length, int32_t* line, int width, const Factor<int32_t>& factor),
                (rows, half_length, line, width, factor)) {
    find_lines(rows, half_length, line, width, factor);
}
CM_ROW_FUNCTION(line_row,
                (Window rows, int half_length, int32_t* line, int width, const Factor<int64_t>& factor),
                (rows, half_length, line, width, factor)) {
    find_lines(rows, half_length, line, width, factor);
}
CM_ROW_FUNCTION(decide_row,
                (const Evidence<int32_t>& e, int32_t* out, int32_t* texture, int width,
                 const FlatDetConfig<int32_t>& c),
                (e, out, texture, width, c)) {
    decide(e, out, texture, width, c);
}
CM_ROW_FUNCTION(decide_row,
                (const Evidence<int64_t>& e, int32_t* out, int32_t* texture, int width,
                 const FlatDetConfig<int64_t>& c),
                (e, out, texture, width, c)) {
    decide(e, out, texture, width, c);
}

CM_ROW_FUNCTION(count_beyond_row, (const int32_t* row, int width, int32_t bound, int32_t& count),
                (row, width, bound, count)) {
    int32_t n = 0;
    for (int x = 0; x < width; ++x) {
        n += row[x] > bound || row[x] < -bound;
    }
    count = n;
}

// Which brightness classes a row has at all.
CM_ROW_FUNCTION(count_classes_row,
                (const int32_t* luma, int width, int32_t dark_thr, int32_t bright_thr, int32_t& dark,
                 int32_t& bright),
                (luma, width, dark_thr, bright_thr, dark, bright)) {
    int32_t dark_count = 0;
    int32_t bright_count = 0;
    for (int x = 0; x < width; ++x) {
        dark_count += luma[x] < dark_thr;
        bright_count += luma[x] >= dark_thr && luma[x] >= bright_thr;
    }
    dark = dark_count;
    bright = bright_count;
}

}  // namespace

bool exceeds_bound(const int32_t* row, int width, int32_t bound) {
    int32_t count = 0;
    count_beyond_row(row, width, bound, count);
    return count != 0;
}

// Configuration and scratch rows for one width of arithmetic. Evidence that a row does not need (it
// has no dark, or no bright pixels) is left as it was; the decision does not look at it.
template <typename T>
struct FlatDetector::Engine {
    explicit Engine(int width)
        : dark_energy(static_cast<size_t>(width)),
          dark_luma(static_cast<size_t>(width)),
          bright_energy(static_cast<size_t>(width)),
          bright_luma(static_cast<size_t>(width)),
          line(static_cast<size_t>(width)) {}

    void set_luma(Window luma_in, Window luma_fusion, int width) {
        luma = luma_fusion[kReach];
        int32_t dark = 0;
        int32_t bright = 0;
        count_classes_row(luma, width, config.dark_luma_thr, config.bright_luma_thr, dark, bright);
        has_dark = dark != 0;
        has_bright = bright != 0;
        if (has_dark) {
            box_sum_row(luma_fusion, config.dark_radius, dark_luma.data(), width);
        }
        if (has_bright) {
            box_sum_row(luma_in, config.bright_radius, bright_luma.data(), width);
        }
    }

    void run_band(Window delta_in, Window delta_fusion, int32_t* out, int32_t* texture, int width) {
        if (has_dark) {
            box_sum_row(delta_fusion, config.dark_radius, dark_energy.data(), width);
        }
        if (has_bright) {
            line_row(delta_fusion, config.line_half, line.data(), width, config.line);
            box_sum_row(delta_in, config.bright_radius, bright_energy.data(), width);
        }
        const Evidence<T> evidence{luma,
                                   delta_in[kReach],
                                   delta_fusion[kReach],
                                   dark_energy.data(),
                                   dark_luma.data(),
                                   bright_energy.data(),
                                   bright_luma.data(),
                                   line.data()};
        decide_row(evidence, out, texture, width, config);
    }

    FlatDetConfig<T> config;
    std::vector<T> dark_energy, dark_luma, bright_energy, bright_luma;
    std::vector<int32_t> line;
    const int32_t* luma = nullptr;
    bool has_dark = false;
    bool has_bright = false;
};

FlatDetector::FlatDetector(int width) : narrow_(std::make_unique<Engine<int32_t>>(width)), width_(width) {}
FlatDetector::~FlatDetector() = default;

void FlatDetector::use_wide_sums() {
    if (wide_ == nullptr) {
        wide_ = std::make_unique<Engine<int64_t>>(width_);
    }
}

void FlatDetector::set_luma(Window luma_in, Window luma_fusion) {
    if (wide_ != nullptr) {
        wide_->set_luma(luma_in, luma_fusion, width_);
    } else {
        narrow_->set_luma(luma_in, luma_fusion, width_);
    }
}

void FlatDetector::run_band(Window delta_in, Window delta_fusion, int32_t* out, int32_t* texture) {
    if (wide_ != nullptr) {
        wide_->run_band(delta_in, delta_fusion, out, texture, width_);
    } else {
        narrow_->run_band(delta_in, delta_fusion, out, texture, width_);
    }
}

void report_flat_det(const std::string& tag, const FRAME& texture) {
    static constexpr int32_t kColours[][3] = {
        {0, 0, 0},       // dark flat
        {255, 255, 0},   // dark edge
        {255, 0, 0},     // mid-tone
        {255, 0, 255},   // line
        {0, 255, 255},   // bright edge
        {255, 255, 255}  // bright flat
    };
    FRAME* const map = CM_NewFRAME(texture.file_type, CM_FORMAT_RGB, texture.width, texture.height, 3, 8);
    const size_t pixels = size_t{texture.width} * texture.height;
    for (size_t i = 0; i < pixels; ++i) {
        std::copy_n(kColours[texture.data[i]], 3, map->data + 3 * i);
    }
    CM_WritePPM(debug_path(tag, "dbg_delta_8b_FlatDet.ppm").c_str(), map);
    CM_DelFRAME(map);
}

}  // namespace cm

void PRE_EE_FlatDet(const FRAME* Yin, const FRAME* Yfusion, const FRAME* delta_in, const FRAME* delta_fusion,
                    FRAME* out, const char* tag) {
    const int width = static_cast<int>(Yin->width);
    const auto within = [](const FRAME& frame, int32_t bound) {
        const size_t samples = size_t{frame.width} * frame.height * frame.channels;
        return std::all_of(frame.data, frame.data + samples,
                           [bound](int32_t v) { return v >= -bound && v <= bound; });
    };
    cm::FlatDetector detector(width);
    if (!within(*Yin, detector.kLumaBound) || !within(*Yfusion, detector.kLumaBound) ||
        !within(*delta_in, detector.kDeltaBound) || !within(*delta_fusion, detector.kDeltaBound)) {
        detector.use_wide_sums();
    }
    FRAME* const texture = CM_NewFRAME(Yin->file_type, CM_FORMAT_SINGLE, Yin->width, Yin->height, 1, 8);
    const cm::AlignedRow out_row = cm::output_row(width);
    const cm::AlignedRow texture_row = cm::output_row(width);
    cm::FrameWindow<3> luma_in(*Yin, width);
    cm::FrameWindow<3> luma_fusion(*Yfusion, width);
    cm::FrameWindow<3> in_rows(*delta_in, width);
    cm::FrameWindow<3> fusion_rows(*delta_fusion, width);
    for (int y = 0; y < static_cast<int>(Yin->height); ++y) {
        detector.set_luma(luma_in.around(y), luma_fusion.around(y));
        detector.run_band(in_rows.around(y), fusion_rows.around(y), out_row.get(), texture_row.get());
        cm::write_row(*out, y, out_row.get(), width);
        cm::write_row(*texture, y, texture_row.get(), width);
    }
    if (dump_dbg_img != 0) {
        cm::report_flat_det(tag, *texture);
    }
    CM_DelFRAME(texture);
}
