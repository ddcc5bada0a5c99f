// Prints docs/registers.md: keys, widths and defaults from the register table, what they do from here.
#include <cstdio>
#include <string>

#include "ee_reg_table.h"

namespace {

enum Kind { kOne, kCurve, kTable };

// One register, or the neighbouring slots of a curve (4 inputs, 4 outputs, 3 slopes) or of a table.
struct Description {
    int first;
    int last;
    Kind kind;
    const char* meaning;
    const char* readers;
};

#define ONE(key, meaning, readers) \
    { key, key, kOne, meaning, readers }
#define CURVE(prefix, meaning, readers) \
    { prefix##_in_0, prefix##_slope_2, kCurve, meaning, readers }

constexpr Description kDescriptions[] = {
    ONE(reg_ee_enable, "1: the block runs; 0: pipelines return a copy of their input",
        "both pipelines; blocks called alone, which take 0 as black or no delta"),
    ONE(reg_ee_debug_mode, "1 to 11: the output shows an intermediate", "both pipelines"),
    ONE(reg_ee_texture_mode, "1: flat detection chooses between the input's and the fused luma's deltas",
        "`pre_ee_hw`, `pre_ee_main`"),
    ONE(reg_ee_dark_luma_thr, "fused luma below it is dark, in codes of that plane, whatever its depth",
        "`PRE_EE_FlatDet`"),
    ONE(reg_ee_bright_luma_thr,
        "fused luma from it on is bright, what is not dark below it mid-tone; in the same codes",
        "`PRE_EE_FlatDet`"),
    ONE(reg_ee_dark_edge_region, "radius of the window of the dark edge test", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_bright_edge_region, "radius of the window of the bright edge test", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_line_length, "taps on each side of the pixel in the line test", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_dark_edge_thr, "least delta energy of a dark edge, 1024ths of the window's luma",
        "`PRE_EE_FlatDet`"),
    ONE(reg_ee_dark_edge_strength, "factor on dark deltas, 1024ths", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_bright_edge_thr, "least delta energy of a bright edge, 1024ths of the window's luma",
        "`PRE_EE_FlatDet`"),
    ONE(reg_ee_bright_edge_strength, "factor on deltas of bright edges, 1024ths", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_line_thr, "least mean delta along a line, 1024ths of its peak", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_line_strength, "factor on deltas of lines, 1024ths", "`PRE_EE_FlatDet`"),
    ONE(reg_ee_shoot_mode, "1: adds the unlimited delta once more", "`EE_IOShootPro`"),
    ONE(reg_ee_total_coring, "coring level of still areas, unless levels follow brightness", "`EE_CalcCore`"),
    ONE(reg_ee_total_motion_coring, "coring level of moving areas, unless levels follow brightness",
        "`EE_CalcCore`"),
    ONE(reg_ee_total_gain, "global strength; 32 is 1.0", "`EE_TotalGain`"),
    ONE(reg_ee_total_oshtthrd, "overshoot above the local maximum that passes whole, luma codes",
        "`EE_IOShootPro`, `EE_IOShoot`"),
    ONE(reg_ee_total_ushtthrd, "undershoot below the local minimum that passes whole, luma codes",
        "`EE_IOShootPro`, `EE_IOShoot`"),
    ONE(reg_ee_debug_shift_bit, "left shift of the debug view, before its right shift by 3",
        "both pipelines"),
    ONE(reg_ee_pre_proc_enable, "1: cuts single-pixel spikes", "`EE_PreProcess`"),
    ONE(reg_ee_lumaref_lpf_en, "1: brightness is that of the low-pass luma; 0: of luma itself",
        "`EE_CalcCore`, `EE_LumaAdptGainCal`"),
    ONE(reg_ee_luma_coring_en, "1: coring levels follow brightness; 0: they are fixed", "`EE_CalcCore`"),
    ONE(reg_ee_luma_adptctrl_en, "1: gain by brightness; 0: unit gain", "`EE_LumaAdptGainCal`"),
    ONE(reg_ee_delta_adptctrl_en, "1: gain by local range; 0: unit gain", "`EE_CalcDeltaGain`"),
    ONE(reg_ee_delta_adptctrl_shift, "no effect in the model", "nothing"),
    ONE(reg_ee_chromaref_lpf_en, "1: colour is that of the low-pass chroma; 0: of chroma itself",
        "`EE_ChromaGain`"),
    ONE(reg_ee_chroma_adptctrl_en, "1: gain by hue; 0: unit gain", "`EE_ChromaGain`"),
    ONE(reg_ee_mf_core_gain, "factor on the coring level of MF, 128ths", "`EE_Coring`"),
    ONE(reg_hf_blend_wgt, "weight of HF in the cored delta, 256ths", "`EE_Coring`"),
    ONE(reg_mf_blend_wgt, "weight of MF in the cored delta, 256ths", "`EE_Coring`"),
    CURVE(reg_ee_luma_coring_lut, "coring level of still areas by brightness", "`EE_CalcCore`"),
    CURVE(reg_ee_motion_coring_lut, "coring level of moving areas by brightness", "`EE_CalcCore`"),
    CURVE(reg_ee_mcore_gain_lut, "share of the moving areas' level by motion, 128ths", "`EE_CalcCore`"),
    {reg_ee_luma_adptctrl_lut_00, reg_ee_luma_adptctrl_lut_32, kTable, "gain by brightness, 16 is 1.0",
     "`EE_LumaAdptGainCal`"},
    {reg_ee_delta_adptctrl_lut_00, reg_ee_delta_adptctrl_lut_32, kTable, "gain by local range, 16 is 1.0",
     "`EE_CalcDeltaGain`"},
    {reg_ee_chroma_adptctrl_lut_00, reg_ee_chroma_adptctrl_lut_31, kTable, "gain by hue, 16 is 1.0",
     "`EE_ChromaGain`"},
    ONE(reg_ee_chroma_adptctrl_lut_32, "no effect in the model: past hue 255 comes entry 00", "nothing"),
    CURVE(reg_ee_chroma_amp_lut, "share of the gain by hue, by chroma amplitude, 128ths", "`EE_ChromaGain`"),
    ONE(reg_ee_shtctrl_oshtgain, "share of further overshoot that passes, 16ths",
        "`EE_IOShootPro`, `EE_IOShoot`"),
    ONE(reg_ee_shtctrl_ushtgain, "share of further undershoot that passes, 16ths",
        "`EE_IOShootPro`, `EE_IOShoot`"),
    ONE(reg_ee_total_oshtthrd_clp, "most further overshoot, luma codes", "`EE_IOShootPro`, `EE_IOShoot`"),
    ONE(reg_ee_total_ushtthrd_clp, "most further undershoot, luma codes", "`EE_IOShootPro`, `EE_IOShoot`"),
    CURVE(reg_ee_motion_lut, "gain by motion, 128 is 1.0", "`EE_MotionGain`"),
    ONE(reg_ee_soft_clamp_enable, "1: the output keeps to bounds that follow luma", "`EE_SharpenMerge`"),
    ONE(reg_ee_upper_bound_left_diff, "how far below white the upper bound is where luma is black",
        "`EE_SharpenMerge`"),
    ONE(reg_ee_lower_bound_right_diff, "how far above black the lower bound is where luma is white",
        "`EE_SharpenMerge`"),
};

#undef ONE
#undef CURVE

consteval bool follow_each_other() {
    int next = 0;
    for (const Description& d : kDescriptions) {
        if (d.first != next) {
            return false;
        }
        next = d.last + 1;
    }
    return next == EE_REG_COUNT;
}
static_assert(follow_each_other(), "every register needs a description, in slot order");

// The place of the n-th slot in its curve or table.
std::string name_place(Kind kind, int n) {
    switch (kind) {
        case kCurve:
            return n < 4   ? ": knot " + std::to_string(n) + ", input"
                   : n < 8 ? ": knot " + std::to_string(n - 4) + ", output"
                           : ": slope after knot " + std::to_string(n - 8) + ", 16ths";
        case kTable:
            return ": at " + std::to_string(8 * n);
        default:
            return "";
    }
}

}  // namespace

int main() {
    std::puts(
        "# Registers\n"
        "\n"
        "Printed by `tools/print_registers.cpp` from the register table; change it there.\n"
        "\n"
        "Slots stand in the order of init, print and dump. A value is cut to its bits; signed registers\n"
        "are two's complement. Knots of a curve lie in 0..255, and so do the codes, 8 apart, of the\n"
        "33-entry tables, which are interpolated. What the blocks do with them is in "
        "[stages.md](stages.md).\n"
        "\n"
        "With every register at its default `pre_ee_main` changes no sample: texture detection is on and "
        "its\n"
        "thresholds and strengths are 0. The files in `settings/` are meant to start from.\n"
        "\n"
        "| slot | key | bits | signed | default | what it does | read by |\n"
        "|---:|---|---:|---|---:|---|---|");
    for (const Description& d : kDescriptions) {
        for (int slot = d.first; slot <= d.last; ++slot) {
            const cm::RegRow& row = cm::kRegTable[slot];
            std::printf("| %d | `%s` | %d | %s | %d | %s%s | %s |\n", slot, row.key, row.bits,
                        row.is_signed ? "yes" : "no", row.def, d.meaning,
                        name_place(d.kind, slot - d.first).c_str(), d.readers);
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
