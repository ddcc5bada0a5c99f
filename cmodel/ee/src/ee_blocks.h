// The edge-enhancement blocks, each defined in the file named after it, and what several of them share.
#ifndef CMODEL_EE_BLOCKS_H
#define CMODEL_EE_BLOCKS_H

#include <string>

#include "block.h"
#include "planes.h"

namespace cm {

extern const Block kDupCbCr;
extern const Block kPreProcess;
extern const Block kCal5x5MinMax;
extern const Block kCal3x3MinMax;  // in no pipeline
extern const Block kCalcDeltaRef;
extern const Block kCalcDelta;
extern const Block kGenLpf3x3;
extern const Block kCalcCore;
extern const Block kCoring;
extern const Block kCalcDeltaGain;
extern const Block kLumaAdptGainCal;
extern const Block kChromaGain;
extern const Block kMotionGain;
extern const Block kTotalGain;
extern const Block kTotalDelta;
extern const Block kIOShootPro;
extern const Block kIOShoot;
extern const Block kSharpenMerge;

inline constexpr int32_t kUnitGain = 64;     // 1.0 of a gain
inline constexpr int32_t kUnitWeight = 128;  // the whole of a weight in 128ths
inline constexpr int32_t kChromaMid = 128;   // no colour

// Columns that a block works on at a time where it keeps something between two loops; it stays in the cache.
inline constexpr int kTile = 512;

// Columns from x0 on to the end of the tile, or of the row.
constexpr CM_INLINE int tile_at(int64_t x0, int width) {
    return static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
}

// Calls done(x0, count) for one tile of a row after another.
template <typename Do>
CM_INLINE void for_each_tile(int width, Do done) {
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        done(x0, tile_at(x0, width));
    }
}

// Rounds to a multiple of 2^-shift about a mid-point, symmetrically: toward it.
constexpr CM_INLINE int32_t round_toward(Wrap centred, int shift) {
    return with_sign(centred, magnitude(centred) >> shift);
}
constexpr CM_INLINE int16_t round_toward(Wrap16 centred, int shift) {
    const int16_t negative = below16(centred, 0);
    return with_sign16(negative, static_cast<int16_t>(with_sign16(negative, centred) >> shift));
}

// One view of the output: value * factor through EE_GenDbgOut().
void debug_view_row(const int32_t* in, int32_t* out, int width, const DebugView& view, int shift);
void debug_view_row(const int16_t* in, int16_t* out, int width, const DebugView& view, int shift);

// Debug images. A signed plane as a colour image: positive values in the first channel, magnitudes of
// negative ones in the second, both saturating at 255. Magnitudes of `shown` where `tested` is not 0, as grey
// pixels. A plane as it is, at its depth, as one channel or as grey pixels.
void write_sign_image(const std::string& path, const RowSource& delta);
void write_magnitude_image(const std::string& path, const RowSource& tested, const RowSource& shown);
void write_plane_image(const std::string& path, PnmKind kind, const RowSource& plane);

}  // namespace cm

#endif
