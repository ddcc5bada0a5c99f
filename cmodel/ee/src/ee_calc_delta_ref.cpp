// Local range: how much the picture varies around a pixel. Luma codes.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_TEMPLATE(range_row, (const T* max, const T* min, T* __restrict range, int width, int64_t& negative),
                (max, min, range, width, negative)) {
    int32_t count = 0;
    for (int x = 0; x < width; ++x) {
        range[x] = static_cast<T>(int32_t{Wrap(max[x]) - Wrap(min[x])});
        count += range[x] < 0;
    }
    negative += count;
}

struct CalcDeltaRef {
    void configure(const Registers&, const BlockSetup&) {}

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        range_row(rows.in[0], rows.in[1], rows.out[0], rows.width, *rows.events);
    }

    void report(const BlockReport& report) const {
        for (int64_t i = 0; i < report.events; ++i) {
            report.log.record(LOG_ERROR, at::kNegativeRange, "[EE_CalcDeltaRef Error]: max_sad < 0");
        }
        if (report.images()) {
            write_plane_image(report.image_path("dbg_max_sad_8b.ppm"), PnmKind::kGrey, *report.out[0]);
        }
    }
};

}  // namespace

const Block kCalcDeltaRef =
    make_block<CalcDeltaRef>({"EE_CalcDeltaRef", "local maximum less local minimum", "`dbg_max_sad_8b.ppm`"},
                             {{}, {}}, {{.shown = Shown::kSamples}});

}  // namespace cm

void EE_CalcDeltaRef(const FRAME* max, const FRAME* min, FRAME* range) {
    cm::run_on_frames(cm::kCalcDeltaRef, {{max}, {min}}, {{range}}, *range);
}
