// Total delta: the cored delta times the total gain, magnitude cut to 2047. (Gains below zero, which weights
// above the whole can make, are not cut.)
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_FUNCTION(total_delta_row,
                (const int32_t* delta, const int32_t* gain_q8, int32_t* __restrict out, int width),
                (delta, gain_q8, out, width)) {
    for (int x = 0; x < width; ++x) {
        const Wrap scaled = Wrap(magnitude(delta[x])) * Wrap(gain_q8[x]);
        out[x] = with_sign(delta[x], min32(scaled >> 8, kDeltaMax));
    }
}

// In 16 bits: gains of 0 to 4095.
CM_ROW_FUNCTION(total_delta_row16,
                (const int16_t* delta, const int16_t* gain_q8, int16_t* __restrict out, int width),
                (delta, gain_q8, out, width)) {
    for (int x = 0; x < width; ++x) {
        const int16_t negative = below16(delta[x], 0);
        const uint16_t scaled = high_product(static_cast<uint16_t>(with_sign16(negative, delta[x]) << 4),
                                             static_cast<uint16_t>(gain_q8[x] << 4));
        out[x] = with_sign16(negative, min16(static_cast<int16_t>(scaled), kDeltaMax));
    }
}

struct TotalDelta {
    void configure(const Registers&, const BlockSetup&) {}

    void run(const BlockRows<int32_t>& rows) const {
        total_delta_row(rows.in[0], rows.in[1], rows.out[0], rows.width);
    }
    void run(const BlockRows<int16_t>& rows) const {
        total_delta_row16(rows.in[0], rows.in[1], rows.out[0], rows.width);
    }

    void report(const BlockReport& report) const {
        if (report.images()) {
            write_sign_image(report.image_path("dbg_delta_total_8b.ppm"), *report.out[0]);
        }
    }
};

}  // namespace

const Block kTotalDelta = make_block<TotalDelta>(
    {"EE_TotalDelta", "cored delta times total gain, cut to 2047 unless the gain is negative",
     "`dbg_delta_total_8b.ppm`"},
    {{}, {}}, {{.shown = Shown::kPicture}});

}  // namespace cm

void EE_TotalDelta(const FRAME* delta, const FRAME* gain, FRAME* out) {
    cm::run_on_frames(cm::kTotalDelta, {{delta}, {gain}}, {{out}}, *out);
}
