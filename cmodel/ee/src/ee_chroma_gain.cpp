// Gain by colour: a table over hue says how much a colour is sharpened, a curve over chroma amplitude
// how much of that applies. Grey keeps unit gain.
//
//   (cb, cr) --+-- CORDIC hue ------> hue table ---- h --+
//              +-- amplitude -------> curve -------- w --+--> ((128 - w) * 64 + w * h) >> 7
#include <algorithm>

#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int32_t kChromaMid = 128;
constexpr int32_t kUnitGain = 64;

// CORDIC steps: tangent and scale of each, in 64ths. The scale compensates step by step, so the vector
// keeps its length and the precision of its 8-bit inputs.
constexpr int kSteps = 7;
constexpr int32_t kTangentQ6[kSteps] = {64, 32, 16, 8, 4, 2, 1};
constexpr int32_t kScaleQ6[kSteps] = {64, 77, 80, 81, 81, 81, 81};

// Rotates the vector, folded into the first quadrant, onto the x axis and adds up the turns.
CM_INLINE int32_t cordic_hue(int32_t a, int32_t b) {
    const int32_t a_below = mask_of(a < 0);
    const int32_t signs_differ = mask_of((a ^ b) < 0);
    const int32_t quadrant = select(signs_differ, select(a_below, 64, 192), select(a_below, 128, 0));
    Wrap x = select(signs_differ, magnitude(b), magnitude(a));
    Wrap y = select(signs_differ, magnitude(a), magnitude(b));
    int32_t turn = 0;  // 512ths of a turn
    CM_UNROLL
    for (int k = 0; k < kSteps; ++k) {
        const int32_t step = 64 >> k;
        const int32_t up = static_cast<int32_t>(y) >> 31;  // -1 when the vector lies below the axis
        const Wrap s = (kTangentQ6[k] ^ ~up) - ~up;        // tangent when below, else its negative
        turn += (step ^ up) - up;
        const Wrap next_x = (x * kScaleQ6[k] - s * y + 32) >> 6;
        y = (s * x + y * kScaleQ6[k] + 32) >> 6;
        x = next_x;
    }
    const int32_t hue = (((turn + 1) >> 1) + quadrant) & 255;
    // On the axes the hue is exact.
    const int32_t on_a_axis = select(a_below, 128, 0);  // the zero vector counts as hue 0
    const int32_t on_b_axis = select(mask_of(b < 0), 192, 64);
    return select(mask_of(b == 0), on_a_axis, select(mask_of(a == 0), on_b_axis, hue));
}

// sqrt(a*a + b*b) as the larger of two tangents to the circle, weights in 128ths.
CM_INLINE int32_t approximate_length(int32_t a, int32_t b) {
    const int32_t abs_a = magnitude(a);
    const int32_t abs_b = magnitude(b);
    const Wrap lo = min32(abs_a, abs_b);
    const Wrap hi = max32(abs_a, abs_b);
    const int32_t near_axis = (lo * 24 + hi * 127 + 64) >> 7;
    const int32_t near_diagonal = (lo * 71 + hi * 108 + 64) >> 7;
    return max32(near_axis, near_diagonal);
}

constexpr int kTile = 512;

// Frames of fewer pixels are done before a table of all chroma values is.
constexpr size_t kTableWorthwhile = 3 * 256 * 256;

}  // namespace

// Hue, amplitude and blend, sample by sample.
CM_ROW_FUNCTION(chroma_compute_row,
                (const int32_t* cb, const int32_t* cr, int32_t* __restrict gain, int width,
                 const ChromaGainConfig& c),
                (cb, cr, gain, width, c)) {
    int32_t hue[kTile];
    int32_t amplitude[kTile];
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = static_cast<int>(width - x0 < kTile ? width - x0 : kTile);
        for (int i = 0; i < tile; ++i) {
            const int32_t a = Wrap(cb[x0 + i]) - kChromaMid;
            const int32_t b = Wrap(cr[x0 + i]) - kChromaMid;
            hue[i] = cordic_hue(a, b);
            amplitude[i] = clamp32(approximate_length(a, b), 0, 255);
        }
        for (int i = 0; i < tile; ++i) {
            const int32_t w = c.weight.entry[amplitude[i]];
            gain[x0 + i] = ((128 - w) * kUnitGain + w * c.hue_gain.entry[hue[i]]) >> 7;
        }
    }
}

// The same from the table over all 8-bit chroma.
static void chroma_lookup_row(const int32_t* cb, const int32_t* cr, int32_t* __restrict gain, int width,
                              const int16_t* __restrict table) {
    for (int x = 0; x < width; ++x) {
        gain[x] = table[cb[x] << 8 | cr[x]];
    }
}

CM_ROW_FUNCTION(gather_bits_row, (const int32_t* cb, const int32_t* cr, int width, int32_t& bits),
                (cb, cr, width, bits)) {
    int32_t any = 0;
    for (int x = 0; x < width; ++x) {
        any |= cb[x] | cr[x];
    }
    bits = any;
}

ChromaGainConfig configure_chroma_gain(size_t pixels) {
    ChromaGainConfig c;
    c.by_lowpass = reg_value(reg_ee_chromaref_lpf_en) == 1;
    c.hue_gain = reg_value(reg_ee_chroma_adptctrl_en) == 1
                     ? tabulate_33_knots(reg_ee_chroma_adptctrl_lut_00, true)
                     : constant_table(kUnitGain);
    c.weight = tabulate_curve(reg_ee_chroma_amp_lut_in_0);
    if (pixels >= kTableWorthwhile) {
        c.by_chroma.resize(256 * 256);
        int32_t cb[256], cr[256], gain[256];
        for (int v = 0; v < 256; ++v) {
            cr[v] = v;
        }
        for (int u = 0; u < 256; ++u) {
            std::fill_n(cb, 256, u);
            chroma_compute_row(cb, cr, gain, 256, c);
            std::copy_n(gain, 256, c.by_chroma.begin() + 256 * u);  // -64..438
        }
    }
    return c;
}

void chroma_gain_row(const int32_t* cb, const int32_t* cr, int32_t* gain, int width,
                     const ChromaGainConfig& c) {
    int32_t bits = ~0;
    if (!c.by_chroma.empty()) {
        gather_bits_row(cb, cr, width, bits);
    }
    if ((bits & ~255) == 0) {
        chroma_lookup_row(cb, cr, gain, width, c.by_chroma.data());
    } else {
        chroma_compute_row(cb, cr, gain, width, c);
    }
}

void report_chroma_levels() {
    if (curve_exceeds_unit(reg_ee_chroma_amp_lut_in_0)) {
        log_log(LOG_ERROR, at::kChromaLevels.source, at::kChromaLevels.line,
                "reg_ee_chroma_amp_lut_out is greater than 128\n");
    }
}

// Intended: the one-channel map goes through the colour writer.
void report_chroma_gain(const FRAME& gain) {
    CM_WritePPM(debug_path("dbg_adptgain_chromawgt_8b.ppm").c_str(), &gain);
}

}  // namespace cm

int CalcHue_Cordic(int a, int b) {
    return cm::cordic_hue(a, b);
}

int CalcSQRT(int a, int b) {
    return cm::approximate_length(a, b);
}

void EE_ChromaGain(const FRAME* Cb, const FRAME* Cr, const FRAME* ref, FRAME* gain) try {
    cm::report_chroma_levels();
    const cm::ChromaGainConfig config = cm::configure_chroma_gain(size_t{gain->width} * gain->height);
    const int width = static_cast<int>(gain->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader cb(config.by_lowpass ? *ref : *Cb, width, config.by_lowpass ? 1 : 0);
    cm::FrameReader cr(config.by_lowpass ? *ref : *Cr, width, config.by_lowpass ? 2 : 0);
    // Intended: a disabled block takes the centred chroma as 128, not the sample.
    const bool enabled = cm::reg_value(reg_ee_enable) == 1;
    const cm::AlignedRow off = cm::output_row(width);
    for (int x = 0; x < width; ++x) {
        off[static_cast<size_t>(x)] = 2 * cm::kChromaMid;
    }
    for (int y = 0; y < static_cast<int>(gain->height); ++y) {
        cm::chroma_gain_row(enabled ? cb.row(y) : off.get(), enabled ? cr.row(y) : off.get(), out.get(),
                            width, config);
        cm::write_row(*gain, y, out.get(), width);
    }
    if (dump_dbg_img != 0) {
        cm::report_chroma_gain(*gain);
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
