// Total delta: the cored delta times the total gain, magnitude cut to 2047.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_TEMPLATE(total_delta_row, (const T* delta, const T* gain_q8, T* __restrict out, int width),
                (delta, gain_q8, out, width)) {
    for (int x = 0; x < width; ++x) {
        const Wrap scaled = Wrap(magnitude(delta[x])) * Wrap(gain_q8[x]);
        out[x] = static_cast<T>(with_sign(delta[x], min32(scaled >> 8, kDeltaMax)));
    }
}

struct TotalDelta {
    void configure(const Registers&, const BlockSetup&) {}

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        total_delta_row(rows.in[0], rows.in[1], rows.out[0], rows.width);
    }

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_sign_image(report.image_path("dbg_delta_total_8b.ppm"), *report.out[0]);
        }
    }
};

}  // namespace

const Block kTotalDelta = make_block<TotalDelta>(
    {"EE_TotalDelta", "cored delta times total gain, magnitude at most 2047", "`dbg_delta_total_8b.ppm`"},
    {{}, {}}, {{.shown = Shown::kPicture}});

}  // namespace cm

void EE_TotalDelta(const FRAME* delta, const FRAME* gain, FRAME* out) {
    cm::run_on_frames(cm::kTotalDelta, {{delta}, {gain}}, {{out}}, *out);
}
