// The edge-enhancement blocks from the inside: for each, its configuration (filled once a frame from
// the registers), its row datapath, and its report (log records and debug images, after the frame).
//
// Rows are 32-bit samples at luma width. A window is an array of row pointers, the middle one the
// current row, each with kMaxReach reflected samples on both sides.
#ifndef CMODEL_EE_BLOCKS_H
#define CMODEL_EE_BLOCKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "common.h"
#include "ee_hw.h"
#include "row_io.h"

namespace cm {

using Window = const int32_t* const*;

// ---- Debug images ----

// dbg_path/name or dbg_path/tag_name, at most 1023 characters.
std::string debug_path(const std::string& name);
std::string debug_path(const std::string& tag, const std::string& name);

// A signed plane as a colour image: positive values in the first channel, magnitudes of negative
// ones in the second, both saturating at 255.
void write_sign_image(const std::string& path, const RowSource& delta);

// ---- Debug views of the output ----

// value * factor through EE_GenDbgOut() for a whole row.
void debug_view_row(const int32_t* in, int32_t* out, int width, int factor, int is_signed, int shift);

// ---- Chroma duplication ----

// `in` holds half_up(width) samples.
void dup_row(const int32_t* in, int32_t* out, int width);

// ---- Local extremes and range ----

void min_max_5x5_row(Window rows, int32_t* max, int32_t* min, int width);
void min_max_3x3_row(Window rows, int32_t* max, int32_t* min, int width);

// Adds the number of negative ranges to `negative`.
void range_row(const int32_t* max, const int32_t* min, int32_t* range, int width, int64_t& negative);
void report_range(int64_t negative, const FRAME* range);  // `range` only when images are wanted

// ---- Low-pass references ----

void lpf_luma_row(Window rows, int32_t* out, int width);
void lpf_chroma_row(const int32_t* in, int32_t* out, int width);  // `in` padded

// ---- Curves and gain tables ----

// A gain that depends on the low eight bits of its input.
struct ByteTable {
    int32_t entry[256];
    bool is_constant;
};
void byte_table_row(const int32_t* in, int32_t* out, int width, const ByteTable& table);

// 33 knots, 8 codes apart, the registers from `first_slot` on; 4 times the interpolated entry. A
// circular table takes its entry 0 in place of the 33rd.
ByteTable tabulate_33_knots(int first_slot, bool circular);
ByteTable constant_table(int32_t value);

// A 4-knot register curve, for any input: knots lie in 0..255, so inputs below and above act as 0
// and 256 do.
struct CurveTable {
    int32_t entry[257];
    bool is_constant;
};
CurveTable tabulate_curve(int first_slot);
CurveTable constant_curve(int32_t value);
void curve_row(const int32_t* in, int32_t* out, int width, const CurveTable& table);

// The four outputs of a 4-knot curve, checked against 128 (unit weight).
bool curve_exceeds_unit(int first_slot);

// ---- Coring ----

struct CoreConfig {
    bool by_lowpass;    // brightness from the low-pass reference, else from luma itself
    CurveTable still;   // coring level of still areas, by brightness
    CurveTable motion;  // coring level of moving areas, by brightness
    CurveTable weight;  // share of the motion level in 128ths, by motion
    int shift;          // from levels in 8-bit codes times 128 to units of the luma's depth
};
CoreConfig configure_core(int luma_depth);
void core_row(const int32_t* luma, const int32_t* lowpass, const int32_t* motion, int32_t* core, int width,
              const CoreConfig& c);
void report_core(int luma_depth);

struct CoringConfig {
    int32_t mf_core_gain_q7;
    int32_t mf_wgt_q8;
    int32_t hf_wgt_q8;
};
CoringConfig configure_coring();
void coring_row(const int32_t* mf, const int32_t* hf, const int32_t* core, int32_t* out, int width,
                const CoringConfig& c);
void report_coring(const RowSource& cored);

// ---- Gains ----

ByteTable configure_delta_gain();
void report_delta_gain(const FRAME& range, const FRAME& gain);

struct LumaGainConfig {
    bool by_lowpass;
    ByteTable gain;
};
LumaGainConfig configure_luma_gain();

struct ChromaGainConfig {
    bool by_lowpass;
    ByteTable hue_gain;              // by hue
    CurveTable weight;               // share of the hue gain in 128ths, by amplitude
    std::vector<int16_t> by_chroma;  // gain by 256 * Cb + Cr; empty for small frames
};
ChromaGainConfig configure_chroma_gain(size_t pixels);  // of the frame; decides whether by_chroma pays
void chroma_gain_row(const int32_t* cb, const int32_t* cr, int32_t* gain, int width,
                     const ChromaGainConfig& c);
void report_chroma_levels();
void report_chroma_gain(const FRAME& gain);

CurveTable configure_motion_gain();
void report_motion_levels();

int32_t configure_total_gain();
void total_gain_row(const int32_t* delta, const int32_t* luma, const int32_t* chroma, const int32_t* motion,
                    int32_t* total, int width, int32_t strength);

void total_delta_row(const int32_t* delta, const int32_t* gain, int32_t* out, int width);
void report_total_delta(const RowSource& delta);

// ---- Overshoot and undershoot control ----

// Limits and margins in eighths of a luma code, gains in sixteenths.
struct ShootConfig {
    int32_t over_thr, under_thr;
    int32_t over_gain_q4, under_gain_q4;
    int32_t over_clip, under_clip;
    int32_t extra_delta;  // 1: the unlimited delta once more (IOShootPro only)
};
ShootConfig configure_shoot();
void shoot_pro_row(const int32_t* delta, const int32_t* luma, const int32_t* max, const int32_t* min,
                   int32_t* out, int width, const ShootConfig& c);
void shoot_row(const int32_t* delta, const int32_t* luma, const int32_t* max, const int32_t* min,
               int32_t* out, int width, const ShootConfig& c);
void report_shoot_pro_mode(const ShootConfig& c);
void report_shoot_entry();
void report_shoot(const RowSource& clamped);

// ---- Merge ----

struct MergeConfig {
    int32_t max_value;
    bool soft_clamp;
    int32_t upper_q8, lower_q8;
};
MergeConfig configure_merge(int out_depth);
void merge_row(const int32_t* delta, const int32_t* src, int32_t* out, int width, const MergeConfig& c);

// ---- Classic front end ----

void pre_process_row(Window rows, int32_t* out, int width);
void report_pre_process(const FRAME& in, const FRAME& out);

void classic_delta_row(Window rows, int32_t* mf, int32_t* hf, int width);
void report_classic_delta(const RowSource& mf, const RowSource& hf);

}  // namespace cm

#endif
