// Gain by local range: flat areas and strong edges can be sharpened less than what lies between.
#include <algorithm>

#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_hw.h"

namespace cm {
namespace {

struct CalcDeltaGain {
    GainTable gain;

    void configure(const Registers& r, const BlockSetup&) {
        if (r[reg_ee_delta_adptctrl_en] != 1) {
            gain.set_constant(kUnitGain);
            return;
        }
        gain.set(r, reg_ee_delta_adptctrl_lut_00, false);
    }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        gain_row(rows.in[0], rows.out[0], rows.width, gain);
    }

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_plane_image(report.image_path("dbg_delta_gain_8b.ppm"), PnmKind::kGrey, *report.out[0]);
            report_histogram(*report.in[0], report.log);
        }
    }

    // Ranges that are no 8-bit value are not counted.
    static void report_histogram(const RowSource& range, RecordLog& log) {
        int32_t histogram[256] = {};
        int32_t row[kTile];
        for (int y = 0; y < range.height(); ++y) {
            for_each_tile(range.width(), [&](int64_t x0, int tile) {
                range.read(y, x0, tile, row);
                std::for_each(row, row + tile, [&](int32_t v) {
                    if (v >= 0 && v <= 255) {
                        ++histogram[v];
                    }
                });
            });
        }
        for (int bin = 0; bin < 256; ++bin) {
            log.record(LOG_DEBUG, at::kDeltaHistogram, "delta_hist[%03d] = %d", bin, histogram[bin]);
        }
    }
};

}  // namespace

const Block kCalcDeltaGain =
    make_block<CalcDeltaGain>({"EE_CalcDeltaGain", "gain by local range",
                               "`dbg_delta_gain_8b.ppm`, and a histogram of the ranges in the log"},
                              {{.shown = Shown::kSamples}}, {{.shown = Shown::kSamples}});

}  // namespace cm

void EE_CalcDeltaGain(const FRAME* range, FRAME* gain) {
    cm::run_on_frames(cm::kCalcDeltaGain, {{range}}, {{gain}}, *range);
}
