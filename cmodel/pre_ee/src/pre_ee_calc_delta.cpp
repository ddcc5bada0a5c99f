// Deltas: one luma plane through a wide (MF) and a compact (HF) 5x5 band-pass kernel. The
// coefficients of each add up to 0, so a flat area has no delta.
//
// 8-bit luma gives eighths of a luma code (shift 6); any other depth is taken for 12 bits (shift 9).
#include <algorithm>

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "kernel.h"
#include "pre_ee_blocks.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr SymmetricKernel<2> kMfKernel = {{
    {192},
    {64, 0},
    {-32, -32, -16},
}};

// ---- In its simplest terms ----

template <typename T>
CM_INLINE void delta_tile(const BlockRows<T>& rows, int64_t x0, int tile, int shift) {
    int32_t sum[2][kTile];
    const FoldedRows<2, kTile> folded(rows.window[0], x0, tile);
    for (int i = 0; i < tile; ++i) {
        sum[0][i] = folded.sum(kMfKernel, i);
        sum[1][i] = folded.sum(kHfKernel, i);
    }
    for (int band = 0; band < 2; ++band) {
        T* const out = rows.out[band] + x0;
        for (int i = 0; i < tile; ++i) {
            out[i] = static_cast<T>(shift_magnitude(sum[band][i], shift, kDeltaMax));
        }
        T* const overflow = rows.out[2 + band];  // may be null
        for (int i = 0; i < tile && overflow != nullptr; ++i) {
            overflow[x0 + i] = magnitude(sum[band][i]) >> shift > kDeltaMax ? 255 : 0;
        }
    }
}

CM_ROW_FUNCTION(delta_row, (const BlockRows<int32_t>& rows, int shift), (rows, shift)) {
    for (int64_t x0 = 0; x0 < rows.width; x0 += kTile) {
        delta_tile(rows, x0, tile_at(x0, rows.width), shift);
    }
}

// ---- In 16 bits ----

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

struct PreCalcDelta {
    int shift;

    void configure(const Registers&, const BlockSetup& setup) { shift = setup.in_depth == 8 ? 6 : 9; }

    void run(const BlockRows<int32_t>& rows) const { delta_row(rows, shift); }
    void run(const BlockRows<int16_t>& rows) const { delta_row16(rows, shift); }

    void report(const BlockReport& report) const {
        if (!report.images()) {
            return;
        }
        const RowSource &mf = *report.out[0], &hf = *report.out[1];
        const RowSource &mf_over = *report.out[2], &hf_over = *report.out[3];
        write_sign_image(report.image_path("dbg_delta_MF_8b.ppm"), mf);
        write_sign_image(report.image_path("dbg_delta_HF_8b.ppm"), hf);
        // Intended: the grey MF image shows the HF magnitude; only the zero test looks at MF.
        write_magnitude_image(report.image_path("dbg_delta_MF_8b_gray.ppm"), mf, hf);
        write_magnitude_image(report.image_path("dbg_delta_HF_8b_gray.ppm"), hf, hf);
        write_magnitude_image(report.image_path("dbg_delta_MF_over_8b.ppm"), mf_over, mf_over);
        // Intended: the HF overflow map replaces the grey HF image.
        write_magnitude_image(report.image_path("dbg_delta_HF_8b_gray.ppm"), hf_over, hf_over);
    }
};

constexpr BlockOutput kDelta{.shown = Shown::kPicture};
constexpr BlockOutput kOverflow{.shown = Shown::kPicture, .optional = true};

}  // namespace

const Block kPreCalcDelta = make_block<PreCalcDelta>(
    {"PRE_EE_CalcDelta", "two 5x5 band-pass kernels; shift 6 for 8-bit luma, 9 for any other depth",
     "per tag (`Yin`, `Yfusion`): `TAG_dbg_delta_MF_8b.ppm`, `TAG_dbg_delta_HF_8b.ppm`, "
     "`TAG_dbg_delta_MF_8b_gray.ppm` (the HF magnitude, where MF is not 0), `TAG_dbg_delta_MF_over_8b.ppm`, "
     "`TAG_dbg_delta_HF_8b_gray.ppm` (ends up as the HF overflow map)"},
    {{.reach = 2, .padded = true, .when_off = 0}}, {kDelta, kDelta, kOverflow, kOverflow});

}  // namespace cm

void PRE_EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf, const char* tag) {
    // The overflow maps serve the images alone.
    const auto new_map = [&] {
        return dump_dbg_img != 0 ? CM_NewFRAME(in->file_type, CM_FORMAT_SINGLE, in->width, in->height, 1, 8)
                                 : nullptr;
    };
    FRAME* const mf_over = new_map();
    FRAME* const hf_over = new_map();
    cm::run_on_frames(cm::kPreCalcDelta, {{in}}, {{mf}, {hf}, {mf_over}, {hf_over}}, *in, tag);
    CM_DelFRAME(mf_over);
    CM_DelFRAME(hf_over);
}
