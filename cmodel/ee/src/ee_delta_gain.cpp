// Tables shared by the gain blocks, and the gain by local range: flat areas and strong edges can be
// sharpened less than what lies between.
#include <algorithm>

#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int32_t kUnitGain = 64;
constexpr int32_t kMaxGain = 255;

}  // namespace

// Knot k stands at code 8k. With f eighths of the way from knot i to knot j:
// gain = (lut[j] * f + lut[i] * (8 - f) + 1) >> 1, four times the interpolated entry.
ByteTable tabulate_33_knots(int first_slot, bool circular) {
    ByteTable table;
    table.is_constant = true;
    for (int v = 0; v < 256; ++v) {
        const int i = v >> 3;
        const int j = circular ? (i + 1) % 32 : i + 1;
        const int f = v & 7;
        table.entry[v] = (reg_value(first_slot + j) * f + reg_value(first_slot + i) * (8 - f) + 1) >> 1;
        table.is_constant &= table.entry[v] == table.entry[0];
    }
    return table;
}

ByteTable constant_table(int32_t value) {
    ByteTable table;
    std::fill_n(table.entry, 256, value);
    table.is_constant = true;
    return table;
}

void byte_table_row(const int32_t* in, int32_t* __restrict out, int width, const ByteTable& table) {
    if (table.is_constant) {
        std::fill_n(out, width, table.entry[0]);
        return;
    }
    for (int x = 0; x < width; ++x) {
        out[x] = table.entry[in[x] & 255];
    }
}

// The slots of a curve: four inputs, four outputs, three slopes (sixteenths).
CurveTable tabulate_curve(int first_slot) {
    int in[4];
    int out[4];
    int slope[3];
    for (int k = 0; k < 4; ++k) {
        in[k] = reg_value(first_slot + k);
        out[k] = reg_value(first_slot + 4 + k);
        if (k < 3) {
            slope[k] = reg_value(first_slot + 8 + k);
        }
    }
    CurveTable table;
    table.is_constant = true;
    for (int v = 0; v <= 256; ++v) {
        table.entry[v] = CM_LUT(v, in, out, slope, 4, 4);
        table.is_constant &= table.entry[v] == table.entry[0];
    }
    return table;
}

CurveTable constant_curve(int32_t value) {
    CurveTable table;
    std::fill_n(table.entry, 257, value);
    table.is_constant = true;
    return table;
}

CM_ROW_FUNCTION(any_bits_row, (const int32_t* in, int width, int32_t& bits), (in, width, bits)) {
    int32_t any = 0;
    for (int x = 0; x < width; ++x) {
        any |= in[x];
    }
    bits = any;
}

// Nothing to look up in a constant curve, nothing to clamp in a row of 8-bit values.
void curve_row(const int32_t* in, int32_t* __restrict out, int width, const CurveTable& table) {
    if (table.is_constant) {
        std::fill_n(out, width, table.entry[0]);
        return;
    }
    int32_t bits = 0;
    any_bits_row(in, width, bits);
    if ((bits & ~255) == 0) {
        for (int x = 0; x < width; ++x) {
            out[x] = table.entry[in[x]];
        }
    } else {
        for (int x = 0; x < width; ++x) {
            out[x] = table.entry[clamp32(in[x], 0, 256)];
        }
    }
}

bool curve_exceeds_unit(int first_slot) {
    for (int k = 0; k < 4; ++k) {
        if (reg_value(first_slot + 4 + k) > 128) {
            return true;
        }
    }
    return false;
}

ByteTable configure_delta_gain() {
    if (reg_value(reg_ee_delta_adptctrl_en) != 1) {
        return constant_table(kUnitGain);
    }
    ByteTable table = tabulate_33_knots(reg_ee_delta_adptctrl_lut_00, false);
    for (int32_t& entry : table.entry) {
        entry = min32(entry, kMaxGain);
    }
    return table;
}

// The image, then a histogram of the ranges; ranges that are no 8-bit value are not counted.
void report_delta_gain(const FRAME& range, const FRAME& gain) {
    CM_WritePPM5(debug_path("dbg_delta_gain_8b.ppm").c_str(), &gain);
    int32_t histogram[256] = {};
    const size_t pixels = size_t{range.width} * range.height;
    for (size_t i = 0; i < pixels; ++i) {
        const int32_t v = range.data[i * range.channels];
        if (v >= 0 && v <= 255) {
            ++histogram[v];
        }
    }
    for (int bin = 0; bin < 256; ++bin) {
        log_log(LOG_DEBUG, at::kDeltaHistogram.source, at::kDeltaHistogram.line, "delta_hist[%03d] = %d", bin,
                histogram[bin]);
    }
}

}  // namespace cm

void EE_CalcDeltaGain(const FRAME* range, FRAME* gain) try {
    const cm::ByteTable table = cm::configure_delta_gain();
    const int width = static_cast<int>(range->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader range_rows(*range, width);
    for (int y = 0; y < static_cast<int>(range->height); ++y) {
        cm::byte_table_row(range_rows.row(y), out.get(), width, table);
        cm::write_row(*gain, y, out.get(), width);
    }
    if (dump_dbg_img != 0) {
        cm::report_delta_gain(*range, *gain);
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
