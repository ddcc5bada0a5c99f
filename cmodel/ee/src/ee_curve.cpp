#include "ee_curve.h"

#include <algorithm>

#include "common.h"
#include "fixed_point.h"
#include "row_targets.h"

namespace cm {
namespace {

template <typename Table>
bool all_equal(const Table& table) {
    return std::all_of(std::begin(table.entry), std::end(table.entry),
                       [&](int32_t v) { return v == table.entry[0]; });
}

CM_ROW_TEMPLATE(gather_bits_row, (const T* in, int width, int32_t& bits), (in, width, bits)) {
    T any = 0;
    for (int x = 0; x < width; ++x) {
        any = static_cast<T>(any | in[x]);
    }
    bits = any;
}

// Nothing to look up in a constant curve, nothing to clamp in a row of 8-bit values.
template <typename T>
void look_up_curve(const T* in, T* __restrict out, int width, const CurveTable& table) {
    if (table.is_constant) {
        std::fill_n(out, width, static_cast<T>(table.entry[0]));
        return;
    }
    int32_t bits = 0;
    gather_bits_row(in, width, bits);
    if ((bits & ~255) == 0) {
        for (int x = 0; x < width; ++x) {
            out[x] = static_cast<T>(table.entry[in[x]]);
        }
    } else {
        for (int x = 0; x < width; ++x) {
            out[x] = static_cast<T>(table.entry[clamp32(in[x], 0, 256)]);
        }
    }
}

template <typename T>
void look_up_gain(const T* in, T* __restrict out, int width, const GainTable& table) {
    if (table.is_constant) {
        std::fill_n(out, width, static_cast<T>(table.entry[0]));
        return;
    }
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(table.entry[in[x] & 255]);
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
    is_constant = all_equal(*this);
}

void CurveTable::set_constant(int32_t value) {
    std::fill(std::begin(entry), std::end(entry), value);
    is_constant = true;
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
    is_constant = all_equal(*this);
}

void GainTable::set_constant(int32_t value) {
    std::fill(std::begin(entry), std::end(entry), value);
    is_constant = true;
}

void curve_row(const int32_t* in, int32_t* out, int width, const CurveTable& table) {
    look_up_curve(in, out, width, table);
}
void curve_row(const int16_t* in, int16_t* out, int width, const CurveTable& table) {
    look_up_curve(in, out, width, table);
}
void gain_row(const int32_t* in, int32_t* out, int width, const GainTable& table) {
    look_up_gain(in, out, width, table);
}
void gain_row(const int16_t* in, int16_t* out, int width, const GainTable& table) {
    look_up_gain(in, out, width, table);
}

}  // namespace cm
