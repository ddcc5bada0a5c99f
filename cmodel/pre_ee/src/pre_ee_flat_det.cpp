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
// In the code di is delta_in, df delta_fusion. Intended: the dark edge test measures the fused pair and
// outputs the input's delta, the bright edge test the other way round; a bright flat area keeps its delta
// unscaled.
#include <algorithm>
#include <iterator>

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "pre_ee_blocks.h"
#include "pre_ee_flat_det.h"
#include "pre_ee_flat_det_evidence.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace cm {

namespace {

// ---- In its simplest terms ----

struct Decision {
    int32_t delta;
    Texture texture;
};

// sgn(delta) * min((strength * |delta|) >> 10, 2047)
CM_INLINE int32_t scale(int64_t strength, int64_t delta) {
    const int64_t scaled = std::min<int64_t>((strength * (delta < 0 ? -delta : delta)) >> 10, kDeltaMax);
    return static_cast<int32_t>(delta < 0 ? -scaled : scaled);
}

CM_INLINE Decision decide(int32_t luma, int32_t delta_in, int32_t delta_fusion, bool dark_edge, bool line,
                          bool bright_edge, const FlatDet& c) {
    if (luma < c.dark_luma_thr) {
        return dark_edge ? Decision{scale(c.dark_strength, delta_in), kDarkEdge}
                         : Decision{scale(c.dark_strength, delta_fusion), kDarkFlat};
    }
    if (luma < c.bright_luma_thr) {
        return {delta_fusion, kMidTone};
    }
    if (line) {
        return {scale(c.line_strength, delta_fusion), kLine};
    }
    return bright_edge ? Decision{scale(c.bright_strength, delta_fusion), kBrightEdge}
                       : Decision{delta_in, kBrightFlat};
}

CM_ROW_FUNCTION(flat_det_row, (const BlockRows<int32_t>& rows, const FlatDet& shared), (rows, shared)) {
    const FlatDet c = shared;
    const int64_t line_thr = int64_t{c.line_thr} * (2 * c.line_half + 1);
    int64_t dark_luma[kTile], bright_luma[kTile], dark_energy[kTile], bright_energy[kTile];
    for (int64_t x0 = 0; x0 < rows.width; x0 += kTile) {
        const int tile = tile_at(x0, rows.width);
        const int32_t* const luma = rows.in[1] + x0;
        sum_window(rows.window[1], x0, c.dark_radius, dark_luma, tile);
        sum_window(rows.window[0], x0, c.bright_radius, bright_luma, tile);
        for (int band = 0; band < 2 && rows.out[2 * band] != nullptr; ++band) {
            const Rows32 delta_in = rows.window[2 + 2 * band];
            const Rows32 delta_fusion = rows.window[3 + 2 * band];
            const int32_t* const in = delta_in[kFlatReach] + x0;
            const int32_t* const fusion = delta_fusion[kFlatReach] + x0;
            int32_t* const out = rows.out[2 * band] + x0;
            int32_t* const texture =
                rows.out[2 * band + 1] != nullptr ? rows.out[2 * band + 1] + x0 : nullptr;
            sum_window(delta_fusion, x0, c.dark_radius, dark_energy, tile);
            sum_window(delta_in, x0, c.bright_radius, bright_energy, tile);
            for (int i = 0; i < tile; ++i) {
                const bool is_bright = luma[i] >= c.dark_luma_thr && luma[i] >= c.bright_luma_thr;
                const Decision d =
                    decide(luma[i], in[i], fusion[i], passes(c.dark_edge_thr, dark_luma[i], dark_energy[i]),
                           is_bright && is_on_line(delta_fusion, x0 + i, c.line_half, line_thr),
                           passes(c.bright_edge_thr, bright_luma[i], bright_energy[i]), c);
                out[i] = d.delta;
                if (texture != nullptr) {
                    texture[i] = d.texture;
                }
            }
        }
    }
}

}  // namespace

void FlatDet::run(const BlockRows<int32_t>& rows) const {
    flat_det_row(rows, *this);
}

// ---- Report ----

namespace {

void write_texture_image(const std::string& path, const RowSource& texture) {
    static constexpr uint8_t kColours[][3] = {
        {0, 0, 0},        // kDarkFlat
        {255, 255, 0},    // kDarkEdge
        {255, 0, 0},      // kMidTone
        {255, 0, 255},    // kLine
        {0, 255, 255},    // kBrightEdge
        {255, 255, 255},  // kBrightFlat
    };
    static_assert(std::size(kColours) == kBrightFlat + 1);
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

}  // namespace

void FlatDet::report(const BlockReport& report) const {
    if (report.images() && report.out[3] == nullptr) {
        write_texture_image(report.image_path("dbg_delta_8b_FlatDet.ppm"), *report.out[1]);
    } else if (report.images()) {
        write_texture_image(report.image_path("MF_dbg_delta_8b_FlatDet.ppm"), *report.out[1]);
        write_texture_image(report.image_path("HF_dbg_delta_8b_FlatDet.ppm"), *report.out[3]);
    }
}

namespace {

constexpr BlockOutput kTextureOut{.shown = Shown::kPicture, .optional = true};
constexpr BlockInput kWindow{.reach = kFlatReach, .padded = true};

}  // namespace

// Inputs: luma, fused luma, then of one or two bands the delta of each. Outputs of each band: the chosen
// deltas, and what each pixel was taken for.
const Block kFlatDet = make_block<FlatDet>(
    {"PRE_EE_FlatDet", "chooses and scales one of the two deltas by brightness, edges and lines",
     "per tag (`MF`, `HF`): `TAG_dbg_delta_8b_FlatDet.ppm`"},
    {kWindow, kWindow, kWindow, kWindow, kWindow, kWindow}, {{}, kTextureOut, {}, kTextureOut}, kDeltaMax);

}  // namespace cm

void PRE_EE_FlatDet(const FRAME* Yin, const FRAME* Yfusion, const FRAME* delta_in, const FRAME* delta_fusion,
                    FRAME* out, const char* tag) {
    FRAME* const texture = CM_NewFRAME(Yin->file_type, CM_FORMAT_SINGLE, Yin->width, Yin->height, 1, 8);
    // One band: the other's outputs are not wanted, and its inputs only have to be there.
    cm::run_on_frames(cm::kFlatDet,
                      {{Yin}, {Yfusion}, {delta_in}, {delta_fusion}, {delta_in}, {delta_fusion}},
                      {{out}, {texture}, {nullptr}, {nullptr}}, *Yin, tag);
    CM_DelFRAME(texture);
}
