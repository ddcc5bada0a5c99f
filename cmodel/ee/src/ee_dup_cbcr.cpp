// Chroma duplication: brings half-width chroma to luma width by repeating each sample. No filter.
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_TEMPLATE(dup_row, (const T* in, T* __restrict out, int width), (in, out, width)) {
    for (int k = 0; k < width / 2; ++k) {
        out[2 * k] = in[k];
        out[2 * k + 1] = in[k];
    }
    if (width % 2 != 0) {
        out[width - 1] = in[width / 2];
    }
}

struct DupCbCr {
    void configure(const Registers&, const BlockSetup&) {}

    template <typename T>
    void run(const BlockRows<T>& rows) const {
        dup_row(rows.in[0], rows.out[0], rows.width);
        dup_row(rows.in[1], rows.out[1], rows.width);
    }
};

}  // namespace

const Block kDupCbCr = make_block<DupCbCr>({"EE_DupCbCr", "repeats each chroma sample, to luma width", ""},
                                           {{.half_width = true}, {.half_width = true}}, {{}, {}});

}  // namespace cm

void EE_DupCbCr(const FRAME* Cb, const FRAME* Cr, FRAME* CbOut, FRAME* CrOut) {
    cm::run_on_frames(cm::kDupCbCr, {{Cb}, {Cr}}, {{CbOut}, {CrOut}}, *CbOut);
}
