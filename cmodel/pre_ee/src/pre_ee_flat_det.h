// Flat detection's configuration. The decision stands in pre_ee_flat_det.cpp, its 16-bit form in
// pre_ee_flat_det_16.cpp, what they look at around a pixel in the headers pre_ee_flat_det_evidence.
#ifndef CMODEL_PRE_EE_FLAT_DET_H
#define CMODEL_PRE_EE_FLAT_DET_H

#include "block.h"
#include "pre_ee_blocks.h"

namespace cm {

inline constexpr int kFlatReach = 3;  // rows and columns that windows and runs reach at most

struct FlatDet {
    // Thresholds and strengths in 1/1024, luma thresholds in codes of the fused luma.
    int32_t dark_luma_thr, bright_luma_thr;
    int dark_radius, bright_radius, line_half;
    int32_t dark_edge_thr, bright_edge_thr, line_thr;
    int32_t dark_strength, bright_strength, line_strength;

    void configure(const Registers& r, const BlockSetup&) {
        dark_luma_thr = r[reg_ee_dark_luma_thr];
        bright_luma_thr = r[reg_ee_bright_luma_thr];
        dark_radius = r[reg_ee_dark_edge_region];
        bright_radius = r[reg_ee_bright_edge_region];
        line_half = r[reg_ee_line_length];
        dark_edge_thr = r[reg_ee_dark_edge_thr];
        bright_edge_thr = r[reg_ee_bright_edge_thr];
        line_thr = r[reg_ee_line_thr];
        dark_strength = r[reg_ee_dark_edge_strength];
        bright_strength = r[reg_ee_bright_edge_strength];
        line_strength = r[reg_ee_line_strength];
    }

    bool fits_narrow() const {
        return dark_edge_thr < 4096 && bright_edge_thr < 4096 && line_thr * (2 * line_half + 1) < 32768 &&
               dark_strength < 32768 && bright_strength < 32768 && line_strength < 32768;
    }

    void run(const BlockRows<int32_t>& rows) const;
    void run(const BlockRows<int16_t>& rows) const;
    void report(const BlockReport& report) const;
};

}  // namespace cm

#endif
