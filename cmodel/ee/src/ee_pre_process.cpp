// Pre-processing of the classic pipeline: cuts a single-pixel spike to the extremes of its eight
// neighbours.
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kCentre = 4;

template <typename Pick>
int pick_neighbour(const int* window, Pick pick) {
    int chosen = window[0];
    for (int k = 1; k < 9; ++k) {
        if (k != kCentre) {
            chosen = pick(chosen, window[k]);
        }
    }
    return chosen;
}

}  // namespace

CM_ROW_FUNCTION(pre_process_row, (Window rows, int32_t* __restrict out, int width), (rows, out, width)) {
    const int32_t* const above = rows[0];
    const int32_t* const here = rows[1];
    const int32_t* const below = rows[2];
    for (int x = 0; x < width; ++x) {
        int32_t hi = max32(here[x - 1], here[x + 1]);
        int32_t lo = min32(here[x - 1], here[x + 1]);
        for (int dx = -1; dx <= 1; ++dx) {
            hi = max32(hi, max32(above[x + dx], below[x + dx]));
            lo = min32(lo, min32(above[x + dx], below[x + dx]));
        }
        out[x] = clamp32(here[x], lo, hi);
    }
}

void report_pre_process(const FRAME& in, const FRAME& out) {
    CM_WritePPM5(debug_path("dbg_pre_proc_in_8b.ppm").c_str(), &in);
    CM_WritePPM5(debug_path("dbg_pre_proc_out_8b.ppm").c_str(), &out);
}

}  // namespace cm

int SelMin(const int* window) {
    return cm::pick_neighbour(window, cm::min32);
}

int SelMax(const int* window) {
    return cm::pick_neighbour(window, cm::max32);
}

void EE_PreProcess(const FRAME* in, FRAME* out) try {
    const bool enabled = cm::reg_value(reg_ee_pre_proc_enable) == 1;
    const int width = static_cast<int>(in->width);
    const cm::AlignedRow row = cm::output_row(width);
    cm::FrameWindow<1> window(*in, width);
    for (int y = 0; y < static_cast<int>(in->height); ++y) {
        const int32_t* const* const rows = window.around(y);
        if (enabled) {
            cm::pre_process_row(rows, row.get(), width);
            cm::write_row(*out, y, row.get(), width);
        } else {
            cm::write_row(*out, y, rows[1], width);
        }
    }
    if (dump_dbg_img != 0) {
        cm::report_pre_process(*in, *out);
    }
} catch (const std::bad_alloc&) {
    cm::fail_without_memory();
}
