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

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "flat_det_evidence.h"
#include "pre_ee_blocks.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

template <typename T>
struct FlatDetConfig {
    using Sum = typename LaneOf<T>::Sum;

    int32_t dark_luma_thr;
    int32_t bright_luma_thr;
    int dark_radius;
    int bright_radius;
    int line_half;
    Factor<Sum> dark_edge, bright_edge, line;
    Factor<Sum> dark_strength, bright_strength, line_strength;

    void configure(const Registers& r) {
        constexpr int64_t kMostEnergy = 49 * int64_t{LaneOf<T>::kDeltaBound};
        constexpr int64_t kMostLine = 7 * int64_t{LaneOf<T>::kDeltaBound};
        dark_luma_thr = r[reg_ee_dark_luma_thr];
        bright_luma_thr = r[reg_ee_bright_luma_thr];
        dark_radius = r[reg_ee_dark_edge_region];
        bright_radius = r[reg_ee_bright_edge_region];
        line_half = r[reg_ee_line_length];
        dark_edge.set(r[reg_ee_dark_edge_thr], kMostEnergy);
        bright_edge.set(r[reg_ee_bright_edge_thr], kMostEnergy);
        line.set(r[reg_ee_line_thr] * (2 * line_half + 1), kMostLine);
        // Of strengths the cap is where 2047 is passed.
        dark_strength.set(r[reg_ee_dark_edge_strength], kDeltaMax + 1);
        bright_strength.set(r[reg_ee_bright_edge_strength], kDeltaMax + 1);
        line_strength.set(r[reg_ee_line_strength], kDeltaMax + 1);
    }
};

// What the decision for one tile of one band rests on.
template <typename T>
struct Evidence {
    using Sum = typename LaneOf<T>::Sum;
    // Window sums: fused deltas against fused luma, the input's deltas against the input's luma.
    Sum dark_energy[kTile], dark_luma[kTile], bright_energy[kTile], bright_luma[kTile];
    int32_t line[kTile];
};

// The decision, pixel by pixel.
template <typename T>
CM_INLINE void decide(const T* luma, const T* delta_in, const T* delta_fusion, const Evidence<T>& e,
                      T* __restrict out, T* __restrict texture, int width, const FlatDetConfig<T>& shared) {
    using Sum = typename LaneOf<T>::Sum;
    const FlatDetConfig<T> c = shared;
    for (int x = 0; x < width; ++x) {
        const int32_t dark = mask_of(luma[x] < c.dark_luma_thr);
        const int32_t mid = mask_of(luma[x] < c.bright_luma_thr) & ~dark;
        const int32_t dark_edge = mask_of(c.dark_edge.is_below(e.dark_luma[x], e.dark_energy[x])) & dark;
        const int32_t line = e.line[x] & ~dark & ~mid;
        const int32_t bright_edge =
            mask_of(c.bright_edge.is_below(e.bright_luma[x], e.bright_energy[x])) & ~dark & ~mid & ~line;
        const int32_t bright_flat = ~(dark | mid | line | bright_edge);
        texture[x] = static_cast<T>((kDarkEdge & dark_edge) | (kMidTone & mid) | (kLine & line) |
                                    (kBrightEdge & bright_edge) | (kBrightFlat & bright_flat));

        // The chosen delta, and the strength that scales it unless it passes as it is.
        const int32_t delta = select<int32_t>(dark_edge | bright_flat, delta_in[x], delta_fusion[x]);
        const Sum strength =
            select(dark, c.dark_strength.value, select(line, c.line_strength.value, c.bright_strength.value));
        const Sum cap =
            select(dark, c.dark_strength.cap, select(line, c.line_strength.cap, c.bright_strength.cap));
        const Sum mag = delta < 0 ? -Sum{delta} : Sum{delta};
        const Sum scaled = (strength * (mag < cap ? mag : cap)) >> kFactorBits;
        const int32_t limited = static_cast<int32_t>(scaled < kDeltaMax ? scaled : Sum{kDeltaMax});
        out[x] = static_cast<T>(select<int32_t>(mid | bright_flat, delta, with_sign(delta, limited)));
    }
}

// Evidence that no pixel of the row needs (there are no dark, or no bright ones) is not looked for. The
// decision computes with it and drops the result, so it is 0: whatever lay there might overflow.
CM_ROW_TEMPLATE(flat_det_row, (const BlockRows<T>& rows, const FlatDetConfig<T>& c), (rows, c)) {
    const T* const luma = rows.in[1];
    T low;
    T high;
    find_extremes(luma, rows.width, low, high);
    const bool has_dark = low < c.dark_luma_thr;
    const bool has_bright = high >= c.dark_luma_thr && high >= c.bright_luma_thr;
    const int bands = rows.out[2] != nullptr ? 2 : 1;
    Evidence<T> evidence;
    if (!has_dark) {
        std::fill_n(evidence.dark_energy, kTile, 0);
        std::fill_n(evidence.dark_luma, kTile, 0);
    }
    if (!has_bright) {
        std::fill_n(evidence.bright_energy, kTile, 0);
        std::fill_n(evidence.bright_luma, kTile, 0);
        std::fill_n(evidence.line, kTile, 0);
    }
    for (int64_t x0 = 0; x0 < rows.width; x0 += kTile) {
        const int tile = tile_at(x0, rows.width);
        if (has_dark) {
            sum_box(rows.window[1], x0, c.dark_radius, evidence.dark_luma, tile);
        }
        if (has_bright) {
            sum_box(rows.window[0], x0, c.bright_radius, evidence.bright_luma, tile);
        }
        for (int band = 0; band < bands; ++band) {
            const T* const* const delta_in = rows.window[2 + 2 * band];
            const T* const* const delta_fusion = rows.window[3 + 2 * band];
            if (has_dark) {
                sum_box(delta_fusion, x0, c.dark_radius, evidence.dark_energy, tile);
            }
            if (has_bright) {
                find_lines(delta_fusion, x0, c.line_half, evidence.line, tile, c.line);
                sum_box(delta_in, x0, c.bright_radius, evidence.bright_energy, tile);
            }
            decide(luma + x0, delta_in[kFlatReach] + x0, delta_fusion[kFlatReach] + x0, evidence,
                   rows.out[2 * band] + x0, rows.out[2 * band + 1] + x0, tile, c);
        }
    }
}

struct FlatDet {
    FlatDetConfig<int16_t> narrow;
    FlatDetConfig<int32_t> wide;

    void configure(const Registers& r, const BlockSetup&) {
        narrow.configure(r);
        wide.configure(r);
    }

    void run(const BlockRows<int16_t>& rows) const { flat_det_row(rows, narrow); }
    void run(const BlockRows<int32_t>& rows) const { flat_det_row(rows, wide); }

    void report(const BlockReport& report) const {
        if (report.images() && report.out[3] == nullptr) {
            write_texture_image(report.image_path("dbg_delta_8b_FlatDet.ppm"), *report.out[1]);
        } else if (report.images()) {
            write_texture_image(report.image_path("MF_dbg_delta_8b_FlatDet.ppm"), *report.out[1]);
            write_texture_image(report.image_path("HF_dbg_delta_8b_FlatDet.ppm"), *report.out[3]);
        }
    }

    static void write_texture_image(const std::string& path, const RowSource& texture) {
        static constexpr uint8_t kColours[][3] = {
            {0, 0, 0},        // dark flat
            {255, 255, 0},    // dark edge
            {255, 0, 0},      // mid-tone
            {255, 0, 255},    // line
            {0, 255, 255},    // bright edge
            {255, 255, 255},  // bright flat
        };
        write_rows(path, PnmKind::kColour, texture.width(), texture.height(), 8, [&](int y, uint8_t* pixels) {
            int16_t row[kTile];
            for_each_tile(texture.width(), [&](int64_t x0, int tile) {
                texture.read(y, x0, tile, row);
                for (int i = 0; i < tile; ++i) {
                    std::copy_n(kColours[row[i]], 3, pixels + 3 * (x0 + i));
                }
            });
        });
    }
};

constexpr BlockInput kWindow{.reach = kFlatReach, .padded = true};

}  // namespace

// Inputs: luma, fused luma, then of one or two bands the delta of each. Outputs of each band: the chosen
// deltas, and what each pixel was taken for.
const Block kFlatDet = make_block<FlatDet>(
    {"PRE_EE_FlatDet", "chooses and scales one of the two deltas by brightness, edges and lines",
     "per tag (`MF`, `HF`): `TAG_dbg_delta_8b_FlatDet.ppm`"},
    {kWindow, kWindow, kWindow, kWindow, kWindow, kWindow},
    {{}, {.shown = Shown::kPicture}, {}, {.shown = Shown::kPicture}}, LaneOf<int16_t>::kDeltaBound);

}  // namespace cm

void PRE_EE_FlatDet(const FRAME* Yin, const FRAME* Yfusion, const FRAME* delta_in, const FRAME* delta_fusion,
                    FRAME* out, const char* tag) {
    FRAME* const texture = CM_NewFRAME(Yin->file_type, CM_FORMAT_SINGLE, Yin->width, Yin->height, 1, 8);
    cm::run_on_frames(cm::kFlatDet,
                      {{Yin}, {Yfusion}, {delta_in}, {delta_fusion}, {delta_in}, {delta_fusion}},
                      {{out}, {texture}, {nullptr}, {nullptr}}, *Yin, tag);
    CM_DelFRAME(texture);
}
