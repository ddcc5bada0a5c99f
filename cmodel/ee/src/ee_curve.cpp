#include "ee_curve.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#if defined(__x86_64__) && defined(__GNUC__)
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // g++ 12 complains of its own header
#endif
#include <immintrin.h>
#endif

#include "common.h"
#include "ee_blocks.h"
#include "fixed_point.h"
#include "row_targets.h"

namespace cm {
namespace {

template <typename Table>
void finish_table(Table& table) {
    table.is_constant = std::all_of(std::begin(table.entry), std::end(table.entry),
                                    [&](int32_t v) { return v == table.entry[0]; });
    std::copy_n(table.entry, 256, table.entry16);
    table.fits_bytes =
        std::all_of(table.entry16, table.entry16 + 256, [](int v) { return v >= 0 && v <= 255; });
}

// Four samples at a time, which come and go in one word each.
void look_up_words(const int16_t* in, int16_t* __restrict out, int width, const int16_t* entry) {
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        uint64_t four, found = 0;
        std::memcpy(&four, in + x, sizeof four);
        for (int shift = 0; shift < 64; shift += 16) {
            found |= uint64_t{static_cast<uint16_t>(entry[four >> shift & 255])} << shift;
        }
        std::memcpy(out + x, &found, sizeof found);
    }
    for (; x < width; ++x) {
        out[x] = entry[in[x] & 255];
    }
}

#if defined(__x86_64__) && defined(__GNUC__)
// The same where the processor looks up bytes in its registers: 32 samples at a time in a table of 256 bytes.
__attribute__((target("arch=x86-64-v4,avx512vbmi"))) void look_up_registers(const int16_t* in, int16_t* out,
                                                                            int width, const int16_t* entry) {
    alignas(64) uint8_t bytes[256];
    std::copy_n(entry, 256, bytes);
    const __m512i t0 = _mm512_load_si512(bytes), t1 = _mm512_load_si512(bytes + 64);
    const __m512i t2 = _mm512_load_si512(bytes + 128), t3 = _mm512_load_si512(bytes + 192);
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m512i index = _mm512_castsi256_si512(_mm512_cvtepi16_epi8(_mm512_loadu_si512(in + x)));
        const __m512i low = _mm512_permutex2var_epi8(t0, index, t1);
        const __m512i high = _mm512_permutex2var_epi8(t2, index, t3);
        const __m512i found = _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
        _mm512_storeu_si512(out + x, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(found)));
    }
    look_up_words(in + x, out + x, width - x, entry);
}

bool has_register_tables() {
    static const bool has = __builtin_cpu_supports("avx512vbmi");
    return has && row_target() == RowTarget::kV4;
}
#else
constexpr auto look_up_registers = look_up_words;
bool has_register_tables() {
    return false;
}
#endif

void look_up_bytes(const int16_t* in, int16_t* out, int width, const int16_t* entry, bool fits_bytes) {
    (fits_bytes && has_register_tables() ? look_up_registers : look_up_words)(in, out, width, entry);
}

template <typename Table>
void look_up(const int16_t* in, int16_t* __restrict out, int width, const Table& table) {
    if (table.is_constant) {
        std::fill_n(out, width, table.entry16[0]);
    } else {
        look_up_bytes(in, out, width, table.entry16, table.fits_bytes);
    }
}

}  // namespace

void CurveTable::set(const Registers& r, int first_slot) {
    int in[kKnots];
    int out[kKnots];
    int slope[kKnots];
    for (int k = 0; k < kKnots; ++k) {
        in[k] = r[first_slot + k];
        out[k] = r[first_slot + kCurveOut + k];
        slope[k] = k < kKnots - 1 ? r[first_slot + kCurveSlope + k] : 0;
    }
    for (int v = 0; v <= 256; ++v) {
        entry[v] = CM_LUT(v, in, out, slope, kKnots, kSlopeShift);
    }
    finish();
}

void CurveTable::set_constant(int32_t value) {
    std::fill(std::begin(entry), std::end(entry), value);
    finish();
}

void CurveTable::finish() {
    finish_table(*this);
}

bool curve_exceeds_unit(const Registers& r, int first_slot) {
    for (int k = 0; k < kKnots; ++k) {
        if (r[first_slot + kCurveOut + k] > kUnitWeight) {
            return true;
        }
    }
    return false;
}

// With f eighths of the way from knot i to knot j: gain = (lut[j] * f + lut[i] * (8 - f) + 1) >> 1, four
// times the interpolated entry.
void GainTable::set(const Registers& r, int first_slot, bool circular) {
    for (int v = 0; v < 256; ++v) {
        const int i = v >> 3;
        const int j = circular ? (i + 1) % 32 : i + 1;
        const int f = v & 7;
        entry[v] = (r[first_slot + j] * f + r[first_slot + i] * (8 - f) + 1) >> 1;
    }
    finish();
}

void GainTable::set_constant(int32_t value) {
    std::fill(std::begin(entry), std::end(entry), value);
    finish();
}

void GainTable::finish() {
    finish_table(*this);
}

void curve_row(const int32_t* in, int32_t* __restrict out, int width, const CurveTable& table) {
    for (int x = 0; x < width; ++x) {
        out[x] = table.entry[clamp32(in[x], 0, 256)];
    }
}
void curve_row(const int16_t* in, int16_t* out, int width, const CurveTable& table) {
    look_up(in, out, width, table);
}
void gain_row(const int32_t* in, int32_t* __restrict out, int width, const GainTable& table) {
    for (int x = 0; x < width; ++x) {
        out[x] = table.entry[in[x] & 255];
    }
}
void gain_row(const int16_t* in, int16_t* out, int width, const GainTable& table) {
    look_up(in, out, width, table);
}

}  // namespace cm
