// Flat detection in 16 bits; pre_ee_flat_det.cpp says what it does.
#include <algorithm>

#include "ee_blocks.h"
#include "pre_ee_flat_det.h"
#include "pre_ee_flat_det_evidence_16.h"
#include "row_targets.h"

namespace cm {
namespace {

// All ones or zeros, pixel by pixel; what no pixel of the tile needs is left as it was, and not looked at.
struct Evidence16 {
    int16_t dark_edge[kTile], bright_edge[kTile], line[kTile];
};

template <bool kTexture>
CM_INLINE void decide16(const int16_t* luma, const int16_t* delta_in, const int16_t* delta_fusion,
                        const Evidence16& e, int16_t* __restrict out, int16_t* __restrict texture, int tile,
                        const FlatDet& c) {
    const int16_t dark_thr = static_cast<int16_t>(std::min(c.dark_luma_thr, 16384));
    const int16_t bright_thr = static_cast<int16_t>(std::min(c.bright_luma_thr, 16384));
    const int16_t dark_strength = static_cast<int16_t>(c.dark_strength);
    const int16_t bright_strength = static_cast<int16_t>(c.bright_strength);
    const int16_t line_strength = static_cast<int16_t>(c.line_strength);
    for (int x = 0; x < tile; ++x) {
        const int16_t dark = below16(luma[x], dark_thr);
        const int16_t mid = static_cast<int16_t>(below16(luma[x], bright_thr) & ~dark);
        const int16_t bright = static_cast<int16_t>(~(dark | mid));
        const int16_t line = static_cast<int16_t>(e.line[x] & bright);
        const int16_t bright_flat = static_cast<int16_t>(bright & ~line & ~e.bright_edge[x]);
        const int16_t dark_edge = static_cast<int16_t>(dark & e.dark_edge[x]);
        const int16_t delta =
            select16(static_cast<int16_t>(dark_edge | bright_flat), delta_in[x], delta_fusion[x]);
        const int16_t strength =
            select16(dark, dark_strength, select16(line, line_strength, bright_strength));
        const int16_t negative = below16(delta, 0);
        const uint16_t scaled = high_product(static_cast<uint16_t>(with_sign16(negative, delta) << 5),
                                             static_cast<uint16_t>(strength << 1));
        const int16_t limited =
            with_sign16(negative, static_cast<int16_t>(std::min<uint16_t>(scaled, kDeltaMax)));
        out[x] = select16(static_cast<int16_t>(mid | bright_flat), delta, limited);
        if constexpr (kTexture) {
            const int bright_edge = bright & ~line & e.bright_edge[x];
            texture[x] = static_cast<int16_t>((kDarkEdge & dark_edge) | (kMidTone & mid) | (kLine & line) |
                                              (kBrightEdge & bright_edge) | (kBrightFlat & bright_flat));
        }
    }
}

CM_ROW_FUNCTION(flat_det_row16, (const BlockRows<int16_t>& rows, const FlatDet& c), (rows, c)) {
    EdgeLevels dark_level, bright_level;
    Evidence16 evidence{};
    for (int64_t x0 = 0; x0 < rows.width; x0 += kTile) {
        const int tile = tile_at(x0, rows.width);
        const int16_t* const luma = rows.in[1] + x0;
        int16_t low = luma[0];
        int16_t high = luma[0];
        for (int x = 1; x < tile; ++x) {
            low = min16(low, luma[x]);
            high = max16(high, luma[x]);
        }
        const bool has_dark = low < c.dark_luma_thr;
        const bool has_bright = high >= c.dark_luma_thr && high >= c.bright_luma_thr;
        if (has_dark) {
            with_constant(c.dark_radius, [&](auto r) CM_INLINE_LAMBDA {
                find_edge_levels<decltype(r)::value>(rows.window[1], x0, c.dark_edge_thr, dark_level, tile);
            });
        }
        if (has_bright) {
            with_constant(c.bright_radius, [&](auto r) CM_INLINE_LAMBDA {
                find_edge_levels<decltype(r)::value>(rows.window[0], x0, c.bright_edge_thr, bright_level,
                                                     tile);
            });
        }
        for (int band = 0; band < 2 && rows.out[2 * band] != nullptr; ++band) {
            const Rows16 delta_in = rows.window[2 + 2 * band];
            const Rows16 delta_fusion = rows.window[3 + 2 * band];
            if (has_dark) {
                with_constant(c.dark_radius, [&](auto r) CM_INLINE_LAMBDA {
                    find_edges<decltype(r)::value>(delta_fusion, x0, dark_level, evidence.dark_edge, tile);
                });
            }
            if (has_bright) {
                with_constant(c.line_half, [&](auto l) CM_INLINE_LAMBDA {
                    find_lines16<decltype(l)::value>(delta_fusion, x0, c.line_thr, evidence.line, tile);
                });
                with_constant(c.bright_radius, [&](auto r) CM_INLINE_LAMBDA {
                    find_edges<decltype(r)::value>(delta_in, x0, bright_level, evidence.bright_edge, tile);
                });
            }
            const int16_t* const in = delta_in[kFlatReach] + x0;
            const int16_t* const fusion = delta_fusion[kFlatReach] + x0;
            int16_t* const out = rows.out[2 * band] + x0;
            if (int16_t* const texture = rows.out[2 * band + 1]) {
                decide16<true>(luma, in, fusion, evidence, out, texture + x0, tile, c);
            } else {
                decide16<false>(luma, in, fusion, evidence, out, nullptr, tile, c);
            }
        }
    }
}

}  // namespace

void FlatDet::run(const BlockRows<int16_t>& rows) const {
    flat_det_row16(rows, *this);
}

}  // namespace cm
