// Pre-processing of the classic pipeline: cuts a single-pixel spike to the extremes of its eight
// neighbours.
#include <algorithm>

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_TEMPLATE(pre_process_row, (const T* const* rows, T* __restrict out, int width), (rows, out, width)) {
    const T* const above = rows[0];
    const T* const here = rows[1];
    const T* const below = rows[2];
    for (int x = 0; x < width; ++x) {
        T hi = std::max(here[x - 1], here[x + 1]);
        T lo = std::min(here[x - 1], here[x + 1]);
        for (int dx = -1; dx <= 1; ++dx) {
            hi = std::max(hi, std::max(above[x + dx], below[x + dx]));
            lo = std::min(lo, std::min(above[x + dx], below[x + dx]));
        }
        out[x] = std::min(std::max(here[x], lo), hi);
    }
}

struct PreProcess {
    bool enabled;

    void configure(const Registers& r, const BlockSetup&) { enabled = r[reg_ee_pre_proc_enable] == 1; }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        if (enabled) {
            pre_process_row(rows.window[0], rows.out[0], rows.width);
        } else {
            std::copy_n(rows.in[0], rows.width, rows.out[0]);
        }
    }

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_plane_image(report.image_path("dbg_pre_proc_in_8b.ppm"), PnmKind::kGrey, *report.in[0]);
            write_plane_image(report.image_path("dbg_pre_proc_out_8b.ppm"), PnmKind::kGrey, *report.out[0]);
        }
    }
};

// The extreme, by `pick`, of a 3x3 window without its centre.
template <typename Pick>
int pick_neighbour(const int* window, Pick pick) {
    int chosen = window[0];
    for (const int k : {1, 2, 3, 5, 6, 7, 8}) {
        chosen = pick(chosen, window[k]);
    }
    return chosen;
}

}  // namespace

const Block kPreProcess = make_block<PreProcess>(
    {"EE_PreProcess", "cuts single-pixel spikes to the extremes of their eight neighbours",
     "`dbg_pre_proc_in_8b.ppm`, `dbg_pre_proc_out_8b.ppm`: luma before and after"},
    {{.reach = 1, .padded = true, .shown = Shown::kSamples}}, {{.shown = Shown::kSamples}});

}  // namespace cm

int SelMin(const int* window) {
    return cm::pick_neighbour(window, cm::min32);
}

int SelMax(const int* window) {
    return cm::pick_neighbour(window, cm::max32);
}

void EE_PreProcess(const FRAME* in, FRAME* out) {
    cm::run_on_frames(cm::kPreProcess, {{in}}, {{out}}, *in);
}
