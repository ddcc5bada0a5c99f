// Merge: adds the limited delta to the noise-reduced luma and clamps the sum, on request to soft bounds
// that follow the luma: the nearer it is to black or white, the less room it gets.
//
//   white ^------.......______ upper bound, `left_diff` below white where luma is black
//         |
//         |______.......------ lower bound, `right_diff` above black where luma is white
//   black +-------------------> luma
#include "block_on_frames.h"
#include "ee_blocks.h"
#include "ee_hw.h"
#include "row_targets.h"

namespace cm {
namespace {

struct SharpenMerge {
    int32_t max_value;
    bool soft_clamp;
    int32_t upper_q8, lower_q8;

    void configure(const Registers& r, const BlockSetup& setup) {
        *this = {pow2_mod32(setup.out_depth) - Wrap(1), r[reg_ee_soft_clamp_enable] == 1,
                 r[reg_ee_upper_bound_left_diff], r[reg_ee_lower_bound_right_diff]};
    }

    void run(const BlockRows<int32_t>& rows) const;
    void run(const BlockRows<int16_t>& rows) const;
};

CM_ROW_FUNCTION(merge_row,
                (const int32_t* delta, const int32_t* src, int32_t* __restrict out, int width,
                 const SharpenMerge& shared),
                (delta, src, out, width, shared)) {
    const SharpenMerge c = shared;
    const Wrap upper_offset = shl_mod32(Wrap(c.max_value) - c.upper_q8, 8) + Wrap(128);
    for (int x = 0; x < width; ++x) {
        const Wrap s = src[x];
        const int32_t upper = c.soft_clamp ? (s * c.upper_q8 + upper_offset) >> 8 : Wrap(c.max_value);
        const int32_t lower = c.soft_clamp ? (s * c.lower_q8 + 128) >> 8 : Wrap(0);
        out[x] = clamp32(s + delta[x], lower, upper);
    }
}

void SharpenMerge::run(const BlockRows<int32_t>& rows) const {
    merge_row(rows.in[0], rows.in[1], rows.out[0], rows.width, *this);
}

// In 16 bits: 8-bit luma, whose bounds times 256 are below 65536.
CM_ROW_FUNCTION(merge_row16,
                (const int16_t* delta, const int16_t* src, int16_t* __restrict out, int width,
                 const SharpenMerge& c),
                (delta, src, out, width, c)) {
    const uint16_t upper_q8 = static_cast<uint16_t>(c.soft_clamp ? c.upper_q8 : 0);
    const uint16_t lower_q8 = static_cast<uint16_t>(c.soft_clamp ? c.lower_q8 : 0);
    const uint16_t upper_offset = static_cast<uint16_t>((255 - upper_q8) * 256 + 128);
    for (int x = 0; x < width; ++x) {
        const uint16_t s = static_cast<uint16_t>(src[x]);
        const int16_t upper = static_cast<int16_t>(static_cast<uint16_t>(s * upper_q8 + upper_offset) >> 8);
        const int16_t lower = static_cast<int16_t>(static_cast<uint16_t>(s * lower_q8 + 128) >> 8);
        out[x] = min16(max16(static_cast<int16_t>(src[x] + delta[x]), lower), upper);
    }
}

void SharpenMerge::run(const BlockRows<int16_t>& rows) const {
    merge_row16(rows.in[0], rows.in[1], rows.out[0], rows.width, *this);
}

}  // namespace

const Block kSharpenMerge = make_block<SharpenMerge>(
    {"EE_SharpenMerge", "adds the limited delta to the noise-reduced luma and clamps", ""}, {{}, {}}, {{}});

}  // namespace cm

void EE_SharpenMerge(const FRAME* delta, const FRAME* src, FRAME* out) {
    cm::run_on_frames(cm::kSharpenMerge, {{delta}, {src}}, {{out}}, *out);
}
