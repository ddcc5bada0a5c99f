// Curves, interpolation and blends: worked values at the turning points, and that no argument traps.
#include <gtest/gtest.h>

#include <climits>
#include <random>

#include "common.h"

namespace {

constexpr int kMin = INT_MIN;
constexpr int kMax = INT_MAX;

TEST(Lut, FourKnots) {
    const int in[4] = {0, 64, 128, 256};
    const int out[4] = {0, 32, 32, 64};
    const int slope[3] = {8, 0, 4};
    const int steep[3] = {80, -5, -40};  // leave the segments, so the knots' outputs limit them
    const int shallow[3] = {4, 0, 2};    // end short of the knots' outputs
    const int high[3] = {kMax, kMax, kMax};
    struct {
        const int* slope;
        int x, expected;
    } const cases[] = {
        {slope, -5, 0},    {slope, 0, 0},      {slope, 32, 16},  {slope, 33, 16},  {slope, 64, 32},
        {slope, 128, 32},  {slope, 129, 32},   {slope, 132, 33}, {slope, 256, 64}, {slope, 257, 64},
        {steep, 5, 25},    {steep, 32, 32},    {steep, 65, 32},  {steep, 200, 32}, {steep, 300, 64},
        {shallow, 64, 16}, {shallow, 256, 48}, {high, 16, 0},  // the product wraps to -16
    };
    for (const auto& c : cases) EXPECT_EQ(CM_LUT(c.x, in, out, c.slope, 4, 4), c.expected) << c.x;

    // Falling: the clamp orders its bounds, the shift is arithmetic and counts modulo 32.
    const int fall_out[4] = {100, 50, 50, -20};
    const int fall_slope[3] = {-13, 0, -9};
    const int fall[][2] = {{3, 97}, {64, 50}, {255, -20}, {256, -20}};
    for (const auto& c : fall) EXPECT_EQ(CM_LUT(c[0], in, fall_out, fall_slope, 4, 36), c[1]) << c[0];
}

TEST(Lut, LineToAStop) {
    const int cases[][9] = {
        // x, x0, y0, y1, slope, shift; CM_LUT3, CM_LUT3_CLIP, CM_interp1
        {4, 4, 7, 90, 5, 2, 7, 7, 7},          // at the start
        {6, 4, 7, 90, 5, 2, 10, 9, 10},        // 10 / 4
        {6, 4, 7, 9, 5, 2, 9, 9, 9},           // stopped upwards
        {6, 4, 7, 2, -5, 2, 5, 4, 5},          // -10 / 4
        {99, 4, 7, 2, -5, 2, 2, 2, 2},         // stopped downwards
        {6, 4, 7, 7, -5, 2, 5, 4, 5},          // y0 = y1 stops upwards
        {5, 0, 0, 100, 1, 0, 5, 5, kMin + 5},  // no shift, no half; one of them adds 2^31
        {4, 4, 7, 90, 5, 32, 7, 7, 7},         // at the start the shift does not matter
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CM_LUT3(c[0], c[1], c[2], c[3], c[4], c[5]), c[6]) << c[0];
        EXPECT_EQ(CM_LUT3_CLIP(c[0], c[1], c[2], c[3], c[4], c[5]), c[7]) << c[0];
        EXPECT_EQ(CM_interp1(c[0], c[1], c[2], c[3], c[4], c[5]), c[8]) << c[0];
    }
}

TEST(Lut, Points) {
    const int single[][6] = {
        {0, 3, 0, 10, 2, 6},  {0, 3, 0, -10, 2, -6},
        {0, 3, 5, 10, 0, 5},  {0, 3, 5, 10, 9, 10},
        {0, 3, 5, 10, -9, 5}, {3, 0, 5, 10, -1, 10},
        {3, 0, 5, 10, 4, 5},  {3, 0, 5, 10, 1, 8},
        {4, 4, 5, 10, 3, 5},  {4, 4, 5, 10, 4, 5},
        {4, 4, 5, 10, 5, 5},  {1 << 20, 0, 0, 1 << 20, 0, 1 << 20},  // in between the product would wrap
    };
    for (const auto& c : single) EXPECT_EQ(CM_SingleIntp(c[0], c[1], c[2], c[3], c[4]), c[5]) << c[4];
    EXPECT_EQ(CM_SingleIntp(kMin, kMax, 0, kMin, kMin + 1), kMin) << "the distance wraps to -1";
    EXPECT_EQ(CM_SingleIntp(kMin, kMax, 0, 10, kMin + 1), -10);

    const int xs[4] = {0, 10, 10, 20};
    const int ys[4] = {5, 15, 40, 60};
    const int expected[][2] = {{-1, 5}, {0, 5}, {4, 9}, {10, 40}, {15, 50}, {20, 60}, {99, 60}};
    for (const auto& e : expected) EXPECT_EQ(CM_MultiIntp(xs, ys, 4, e[0]), e[1]) << e[0];
    const int not_rising[3] = {0, -7, 20};
    EXPECT_EQ(CM_MultiIntp(not_rising, ys, 3, 12), 15 + 25 * 19 / 27);
    const int gap[3] = {0, 0, 9};
    EXPECT_EQ(CM_MultiIntp(gap, ys, 2, 1), 15);
    EXPECT_EQ(CM_MultiIntp(xs, ys, 1, 77), 5);
    EXPECT_EQ(CM_MultiIntp(xs, ys, 0, 77), 0);

    const int table[5] = {0, 16, 16, -32, 64};
    const int interpolated[][2] = {{0, 0}, {1, 4}, {4, 16}, {9, 4}, {11, -20}, {13, -8}, {15, 40}, {16, 0}};
    for (const auto& e : interpolated) EXPECT_EQ(CM_LutBilinearInterp(table, e[0], 4, 2), e[1]) << e[0];
    EXPECT_EQ(CM_LutBilinearInterp(table, 2, 2, 2), kMin + 16) << "no fraction: the half is 2^31";
}

TEST(Lut, Slope) {
    const int cases[][6] = {
        {0, 3, 0, 1, 4, 5},  {0, 3, 1, 0, 4, -5},    {7, 7, 0, 3, 4, 48},
        {9, 2, 0, 3, 4, 48}, {0, 1, 0, 1, 31, kMin}, {kMin, kMax, 0, 3, 33, 6},  // distance wraps to -1
    };
    for (const auto& c : cases) EXPECT_EQ(cm_sw_get_slope(c[0], c[1], c[2], c[3], c[4]), c[5]) << c[0];
}

TEST(Lut, Blends) {
    const int cases[][8] = {
        // a, b, w, s; the four blends, the last about 128
        {10, 20, 3, 4, 18, 18, 18, 18},  // 290 / 16
        {20, 10, 3, 4, 12, 12, 12, 13},  // 190 / 16
        {200, 100, 1, 3, 113, 113, 113, 113},
        {100, 200, 1, 3, 188, 187, 187, 188},  // 187.5
        {-7, 5, 1, 1, -1, -1, -1, -1},
        {5, -7, 1, 1, -1, 0, -1, 0},
        {7, 7, 3, 3, 7, 7, 7, 7},
        {128, 128, 1, 1, 128, 128, 128, 128},
        {9, 4, 1, 0, kMin + 9, 10, 9, kMin + 10},                          // no fraction: the half is 2^31
        {kMax, -2, 1, 1, 1073741823, 1073741822, 1073741822, 1073741823},  // the difference wraps
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CM_BlendR(c[0], c[1], c[2], c[3]), c[4]) << c[0];
        EXPECT_EQ(CM_BlendIIR(c[0], c[1], c[2], c[3]), c[5]) << c[0];
        EXPECT_EQ(CM_BlendIIR_R(c[0], c[1], c[2], c[3]), c[6]) << c[0];
        EXPECT_EQ(CM_BlendIIR_C(c[0], c[1], c[2], c[3], 8), c[7]) << c[0];
    }
}

// Any argument is defined: nothing traps, nothing for the sanitizers to find.
TEST(Lut, AnyArgument) {
    std::mt19937 random(1);
    const int extremes[] = {kMin, kMin + 1, -33, -1, 0, 1, 2, 31, 32, 33, kMax - 1, kMax};
    for (int i = 0; i < 20000; ++i) {
        int v[12];
        for (int& k : v) k = static_cast<int>(random() % 4 == 0 ? random() : extremes[random() % 12]);
        CM_LUT(v[0], v, v + 4, v + 8, 4, v[1]);
        for (const auto curve : {CM_LUT3, CM_LUT3_CLIP, CM_interp1})
            curve(v[0], v[1], v[2], v[3], v[4], v[5]);
        for (const auto five : {CM_SingleIntp, cm_sw_get_slope, CM_BlendIIR_C})
            five(v[0], v[1], v[2], v[3], v[4]);
        for (const auto blend : {CM_BlendR, CM_BlendIIR, CM_BlendIIR_R}) blend(v[0], v[1], v[2], v[3]);
        CM_MultiIntp(v, v + 6, 6, v[0]);
        CM_LutBilinearInterp(v, v[0], v[1], 3);
    }
}

}  // namespace
