// Chroma duplication: brings half-width chroma to luma width by repeating each sample. No filter.
#include "ee_blocks.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {

CM_ROW_FUNCTION(dup_row, (const int32_t* in, int32_t* __restrict out, int width), (in, out, width)) {
    for (int k = 0; k < width / 2; ++k) {
        out[2 * k] = in[k];
        out[2 * k + 1] = in[k];
    }
    if (width % 2 != 0) {
        out[width - 1] = in[width / 2];
    }
}

}  // namespace cm

void EE_DupCbCr(const FRAME* Cb, const FRAME* Cr, FRAME* CbOut, FRAME* CrOut) {
    const int width = static_cast<int>(CbOut->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader cb(*Cb, cm::half_up(width));
    cm::FrameReader cr(*Cr, cm::half_up(width));
    for (int y = 0; y < static_cast<int>(CbOut->height); ++y) {
        cm::dup_row(cb.row(y), out.get(), width);
        cm::write_row(*CbOut, y, out.get(), width);
        cm::dup_row(cr.row(y), out.get(), width);
        cm::write_row(*CrOut, y, out.get(), width);
    }
}
