// Deltas: one luma plane through a wide (MF) and a compact (HF) 5x5 band-pass kernel. The
// coefficients of each add up to 0, so a flat area has no delta.
//
// 8-bit luma gives eighths of a luma code (shift 6); any other depth is taken for 12 bits (shift 9).
#include "pre_ee_calc_delta.h"
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "pre_ee_blocks.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

CM_ROW_FUNCTION(delta_row, (const BlockRows<int32_t>& rows, int shift), (rows, shift)) {
    for (int64_t x0 = 0; x0 < rows.width; x0 += kTile) {
        delta_tile(rows, x0, tile_at(x0, rows.width), shift);
    }
}

struct PreCalcDelta {
    int shift;

    void configure(const Registers&, const BlockSetup& setup) { shift = setup.in_depth == 8 ? 6 : 9; }

    void run(const BlockRows<int32_t>& rows) const { delta_row(rows, shift); }
    void run(const BlockRows<int16_t>& rows) const { pre_ee_delta_row16(rows, shift); }

    void report(const BlockReport& report) const {
        if (!report.images()) {
            return;
        }
        const RowSource &mf = *report.out[0], &hf = *report.out[1];
        const RowSource &mf_over = *report.out[2], &hf_over = *report.out[3];
        write_sign_image(report.image_path("dbg_delta_MF_8b.ppm"), mf);
        write_sign_image(report.image_path("dbg_delta_HF_8b.ppm"), hf);
        // Intended: the grey MF image shows the HF magnitude; only the zero test looks at MF.
        write_magnitude_image(report.image_path("dbg_delta_MF_8b_gray.ppm"), mf, hf);
        write_magnitude_image(report.image_path("dbg_delta_HF_8b_gray.ppm"), hf, hf);
        write_magnitude_image(report.image_path("dbg_delta_MF_over_8b.ppm"), mf_over, mf_over);
        // Intended: the HF overflow map replaces the grey HF image.
        write_magnitude_image(report.image_path("dbg_delta_HF_8b_gray.ppm"), hf_over, hf_over);
    }
};

constexpr BlockOutput kDelta{.shown = Shown::kPicture};
constexpr BlockOutput kOverflow{.shown = Shown::kPicture, .optional = true};

}  // namespace

const Block kPreCalcDelta = make_block<PreCalcDelta>(
    {"PRE_EE_CalcDelta", "two 5x5 band-pass kernels; shift 6 for 8-bit luma, 9 for any other depth",
     "per tag (`Yin`, `Yfusion`): `TAG_dbg_delta_MF_8b.ppm`, `TAG_dbg_delta_HF_8b.ppm`, "
     "`TAG_dbg_delta_MF_8b_gray.ppm` (the HF magnitude, where MF is not 0), `TAG_dbg_delta_MF_over_8b.ppm`, "
     "`TAG_dbg_delta_HF_8b_gray.ppm` (ends up as the HF overflow map)"},
    {{.reach = 2, .padded = true, .when_off = 0}}, {kDelta, kDelta, kOverflow, kOverflow});

}  // namespace cm

void PRE_EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf, const char* tag) {
    // The overflow maps serve the images alone.
    const auto new_map = [&] {
        return dump_dbg_img != 0 ? CM_NewFRAME(in->file_type, CM_FORMAT_SINGLE, in->width, in->height, 1, 8)
                                 : nullptr;
    };
    FRAME* const mf_over = new_map();
    FRAME* const hf_over = new_map();
    cm::run_on_frames(cm::kPreCalcDelta, {{in}}, {{mf}, {hf}, {mf_over}, {hf_over}}, *in, tag);
    CM_DelFRAME(mf_over);
    CM_DelFRAME(hf_over);
}
