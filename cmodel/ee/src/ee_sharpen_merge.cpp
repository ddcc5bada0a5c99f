// Merge: adds the limited delta to the noise-reduced luma and clamps the sum, on request to soft bounds
// that follow the luma: the nearer it is to black or white, the less room it gets.
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "fixed_point.h"
#include "row_io.h"
#include "row_targets.h"

namespace cm {

MergeConfig configure_merge(int out_depth) {
    return {pow2_mod32(out_depth) - Wrap(1), reg_value(reg_ee_soft_clamp_enable) == 1,
            reg_value(reg_ee_upper_bound_left_diff), reg_value(reg_ee_lower_bound_right_diff)};
}

CM_ROW_FUNCTION(merge_row,
                (const int32_t* delta, const int32_t* src, int32_t* __restrict out, int width,
                 const MergeConfig& c),
                (delta, src, out, width, c)) {
    const Wrap upper_offset = shl_mod32(Wrap(c.max_value) - c.upper_q8, 8) + Wrap(128);
    for (int x = 0; x < width; ++x) {
        const Wrap s = src[x];
        const int32_t upper = c.soft_clamp ? (s * c.upper_q8 + upper_offset) >> 8 : Wrap(c.max_value);
        const int32_t lower = c.soft_clamp ? (s * c.lower_q8 + 128) >> 8 : Wrap(0);
        out[x] = clamp32(s + delta[x], lower, upper);
    }
}

}  // namespace cm

void EE_SharpenMerge(const FRAME* delta, const FRAME* src, FRAME* out) {
    const cm::MergeConfig config = cm::configure_merge(out->depth);
    const int width = static_cast<int>(out->width);
    const cm::AlignedRow row = cm::output_row(width);
    cm::FrameReader delta_rows(*delta, width);
    cm::FrameReader src_rows(*src, width);
    for (int y = 0; y < static_cast<int>(out->height); ++y) {
        cm::merge_row(delta_rows.row(y), src_rows.row(y), row.get(), width, config);
        cm::write_row(*out, y, row.get(), width);
    }
}
