// Total gain: the four gains and the global strength become one 12-bit gain, 256 for 1.0.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_TEMPLATE(total_gain_row,
                (const T* delta, const T* luma, const T* chroma, const T* motion, T* __restrict total,
                 int width, int32_t strength),
                (delta, luma, chroma, motion, total, width, strength)) {
    for (int x = 0; x < width; ++x) {
        const Wrap a = (Wrap(motion[x]) * strength) >> 6;
        const Wrap b = (Wrap(luma[x]) * Wrap(chroma[x])) >> 6;
        total[x] = static_cast<T>(min32((a * b * delta[x]) >> 10, kTotalGainMax));
    }
}

struct TotalGain {
    int32_t strength_q5;

    void configure(const Registers& r, const BlockSetup&) { strength_q5 = r[reg_ee_total_gain]; }

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        total_gain_row(rows.in[0], rows.in[1], rows.in[2], rows.in[3], rows.out[0], rows.width, strength_q5);
    }
};

}  // namespace

const Block kTotalGain = make_block<TotalGain>(
    {"EE_TotalGain", "product of the four gains and the global strength, at most 4095", ""}, {{}, {}, {}, {}},
    {{}});

}  // namespace cm

void EE_TotalGain(const FRAME* delta, const FRAME* luma, const FRAME* chroma, const FRAME* motion,
                  FRAME* total) {
    cm::run_on_frames(cm::kTotalGain, {{delta}, {luma}, {chroma}, {motion}}, {{total}}, *total);
}
