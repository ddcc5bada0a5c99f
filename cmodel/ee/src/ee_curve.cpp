#include "ee_curve.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "common.h"
#include "fixed_point.h"

namespace cm {
namespace {

template <typename Table>
void finish_table(Table& table) {
    table.is_constant = std::all_of(std::begin(table.entry), std::end(table.entry),
                                    [&](int32_t v) { return v == table.entry[0]; });
    std::copy_n(table.entry, 256, table.entry16);
}

// Four samples at a time, which come and go in one word each.
void look_up_bytes(const int16_t* in, int16_t* __restrict out, int width, const int16_t (&entry)[256]) {
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

template <typename Table>
void look_up(const int16_t* in, int16_t* __restrict out, int width, const Table& table) {
    if (table.is_constant) {
        std::fill_n(out, width, table.entry16[0]);
    } else {
        look_up_bytes(in, out, width, table.entry16);
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
        entry[v] = CM_LUT(v, in, out, slope, kKnots, 4);
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
        if (r[first_slot + kCurveOut + k] > 128) {
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
