// Gain by colour: a table over hue says how much a colour is sharpened, a curve over chroma amplitude
// how much of that applies. Grey keeps unit gain.
//
//   (cb, cr) --+-- CORDIC hue ------> hue table ---- h --+
//              +-- amplitude -------> curve -------- w --+--> ((128 - w) * 64 + w * h) >> 7
#include <algorithm>
#include <cstring>
#include <numeric>

#include "block_on_frames.h"
#include "chroma_polar.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

// Gain of every 8-bit chroma, by 256 * Cb + Cr; for frames that are not done before the table is.
using ChromaTable = int16_t[256 * 256];

struct ChromaGain {
    bool by_lowpass;
    bool above_unit;
    GainTable hue_gain;        // by hue
    CurveTable weight;         // share of the hue gain in 128ths, by amplitude
    const int16_t* by_chroma;  // a ChromaTable or null

    void configure(const Registers& r, const BlockSetup& setup);

    // Weights above the whole turn the gain's sign, and make the total gain larger than 16 bits hold.
    bool fits_narrow() const { return !above_unit; }

    template <typename T>
    void run(const BlockRows<T>& rows) const;

    // Intended: the one-channel map goes through the colour writer.
    void report(const BlockReport& report) const {
        if (above_unit) {
            report.log.record(LOG_ERROR, at::kChromaLevels,
                              "reg_ee_chroma_amp_lut_out is greater than 128\n");
        }
        if (report.images()) {
            write_plane_image(report.image_path("dbg_adptgain_chromawgt_8b.ppm"), PnmKind::kColour,
                              *report.out[0]);
        }
    }
};

// Hue, amplitude and blend, sample by sample.
CM_ROW_TEMPLATE(chroma_compute_row,
                (const T* cb, const T* cr, T* __restrict gain, int width, const ChromaGain& c),
                (cb, cr, gain, width, c)) {
    int32_t hue[kTile];
    int32_t amplitude[kTile];
    for (int64_t x0 = 0; x0 < width; x0 += kTile) {
        const int tile = tile_at(x0, width);
        for (int i = 0; i < tile; ++i) {
            const int32_t a = Wrap(cb[x0 + i]) - kChromaMid;
            const int32_t b = Wrap(cr[x0 + i]) - kChromaMid;
            hue[i] = cordic_hue(a, b);
            amplitude[i] = clamp32(approximate_length(a, b), 0, 255);
        }
        for (int i = 0; i < tile; ++i) {
            const int32_t w = c.weight.entry[amplitude[i]];
            gain[x0 + i] =
                static_cast<T>(((kUnitWeight - w) * kUnitGain + w * c.hue_gain.entry[hue[i]]) >> 7);
        }
    }
}

void chroma_lookup_row(const int32_t* cb, const int32_t* cr, int32_t* __restrict gain, int width,
                       const int16_t* __restrict table) {
    for (int x = 0; x < width; ++x) {
        gain[x] = table[cb[x] << 8 | cr[x]];
    }
}

// Four samples at a time, which come and go in one word each.
void chroma_lookup_row(const int16_t* cb, const int16_t* cr, int16_t* __restrict gain, int width,
                       const int16_t* __restrict table) {
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        uint64_t high, low, found = 0;
        std::memcpy(&high, cb + x, sizeof high);
        std::memcpy(&low, cr + x, sizeof low);
        const uint64_t index = high << 8 | low;  // 8-bit samples in lanes of 16 bits
        for (int shift = 0; shift < 64; shift += 16) {
            found |= uint64_t{static_cast<uint16_t>(table[index >> shift & 65535])} << shift;
        }
        std::memcpy(gain + x, &found, sizeof found);
    }
    for (; x < width; ++x) {
        gain[x] = table[cb[x] << 8 | cr[x]];
    }
}

CM_ROW_TEMPLATE(gather_bits_row, (const T* cb, const T* cr, int width, int32_t& bits),
                (cb, cr, width, bits)) {
    T any = 0;
    for (int x = 0; x < width; ++x) {
        any = static_cast<T>(any | cb[x] | cr[x]);
    }
    bits = any;
}

void ChromaGain::configure(const Registers& r, const BlockSetup& setup) {
    by_lowpass = r[reg_ee_chromaref_lpf_en] == 1;
    above_unit = curve_exceeds_unit(r, reg_ee_chroma_amp_lut_in_0);
    if (r[reg_ee_chroma_adptctrl_en] == 1) {
        hue_gain.set(r, reg_ee_chroma_adptctrl_lut_00, true);
    } else {
        hue_gain.set_constant(kUnitGain);
    }
    weight.set(r, reg_ee_chroma_amp_lut_in_0);
    by_chroma = nullptr;
    if (setup.pixels < kManyPixels) {
        return;
    }
    int16_t* const table = setup.memory.take<int16_t>(256 * 256);
    int32_t cb[256], cr[256], gain[256];
    std::iota(cr, cr + 256, 0);
    for (int u = 0; u < 256 && table != nullptr; ++u) {
        std::fill_n(cb, 256, u);
        chroma_compute_row(cb, cr, gain, 256, *this);
        std::copy_n(gain, 256, table + 256 * u);  // -64..438
    }
    by_chroma = table;
}

template <typename T>
void ChromaGain::run(const BlockRows<T>& rows) const {
    const T* const cb = rows.in[by_lowpass ? 2 : 0];
    const T* const cr = rows.in[by_lowpass ? 3 : 1];
    int32_t bits = by_chroma != nullptr ? 0 : ~0;
    if (sizeof(T) > sizeof(int16_t) && by_chroma != nullptr) {  // narrow rows hold 8-bit chroma anyway
        gather_bits_row(cb, cr, rows.width, bits);
    }
    if ((bits & ~255) == 0) {
        chroma_lookup_row(cb, cr, rows.out[0], rows.width, by_chroma);
    } else {
        chroma_compute_row(cb, cr, rows.out[0], rows.width, *this);
    }
}

// Intended: a block that is switched off takes the centred chroma as 128, not the sample.
constexpr BlockInput kFarWhenOff{.when_off = 2 * kChromaMid};

}  // namespace

const Block kChromaGain = make_block<ChromaGain>(
    {"EE_ChromaGain", "gain by hue and chroma amplitude", "`dbg_adptgain_chromawgt_8b.ppm`"},
    {kFarWhenOff, kFarWhenOff, kFarWhenOff, kFarWhenOff}, {{.shown = Shown::kSamples}});

}  // namespace cm

int CalcHue_Cordic(int a, int b) {
    return cm::cordic_hue(a, b);
}

int CalcSQRT(int a, int b) {
    return cm::approximate_length(a, b);
}

void EE_ChromaGain(const FRAME* Cb, const FRAME* Cr, const FRAME* ref, FRAME* gain) {
    cm::run_on_frames(cm::kChromaGain, {{Cb}, {Cr}, {ref, 1}, {ref, 2}}, {{gain}}, *gain);
}
