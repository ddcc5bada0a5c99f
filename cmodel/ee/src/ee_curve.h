// Register curves and gain tables, tabulated once a frame.
//
//   4-knot curve        out3 ...............____         33-knot table    knot k at code 8k, linear between
//                       out2         __.---'
//                       out1    _.--'                     entry 63 |   __
//                       out0 __/                                   |__/  \___.----
//                             in0  in1   in2   in3                 0   64   128 .. 256
#ifndef CMODEL_EE_CURVE_H
#define CMODEL_EE_CURVE_H

#include "ee_reg_table.h"

namespace cm {

// The slots of a 4-knot curve, from its first on: inputs, outputs, slopes in sixteenths.
inline constexpr int kKnots = 4;
inline constexpr int kCurveOut = kKnots;
inline constexpr int kCurveSlope = 2 * kKnots;
inline constexpr int kSlopeShift = 4;

// A curve for any input: knots lie in 0..255, so inputs below and above act as 0 and 256 do.
struct CurveTable {
    int32_t entry[257];
    int16_t entry16[256];  // the same, for rows of 8-bit samples; outputs fit
    bool is_constant, fits_bytes;

    void set(const Registers& r, int first_slot);
    void set_constant(int32_t value);
    // After entries were changed.
    void finish();
};

// Whether an output of the curve is above the whole of a weight in 128ths.
bool curve_exceeds_unit(const Registers& r, int first_slot);

// A gain that depends on the low eight bits of its input.
struct GainTable {
    int32_t entry[256];
    int16_t entry16[256];
    bool is_constant, fits_bytes;

    // 4 times the entry interpolated between the 33 registers. A circular table takes its entry 0 in place of
    // the 33rd.
    void set(const Registers& r, int first_slot, bool circular);
    void set_constant(int32_t value);
    void finish();
};

// 16-bit rows are of 8-bit samples.
void curve_row(const int32_t* in, int32_t* out, int width, const CurveTable& table);
void curve_row(const int16_t* in, int16_t* out, int width, const CurveTable& table);
void gain_row(const int32_t* in, int32_t* out, int width, const GainTable& table);
void gain_row(const int16_t* in, int16_t* out, int width, const GainTable& table);

}  // namespace cm

#endif
