// Test pictures at their turning points; noise against a replay of the same rand() sequence.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include "ee_hw.h"

namespace {

struct DeleteFrame {
    void operator()(FRAME* f) const { CM_DelFRAME(f); }
};
using Frame = std::unique_ptr<FRAME, DeleteFrame>;

Frame make_frame(uint32_t width, uint32_t height, uint32_t channels, int depth = 8) {
    return Frame(CM_NewFRAME(0, CM_FORMAT_YCBCR, width, height, channels, depth));
}

int luma(const FRAME& f, int x, int y) {
    return f.data[3 * (y * static_cast<int>(f.width) + x)];
}

TEST(Patterns, Checkerboard) {
    const Frame f = make_frame(130, 129, 3);
    Frame_Set_Constant(f.get(), 77);
    GenPattern0(f.get());
    const int expected[][3] = {{0, 0, 0},   {63, 63, 0},     {64, 0, 255},  {0, 64, 255},
                               {64, 64, 0}, {128, 127, 255}, {128, 128, 0}, {129, 63, 0}};
    for (const auto& e : expected) EXPECT_EQ(luma(*f, e[0], e[1]), e[2]) << e[0] << "," << e[1];
    for (int i = 0; i < 130 * 129; ++i) ASSERT_TRUE(f->data[3 * i + 1] == 128 && f->data[3 * i + 2] == 128);
}

TEST(Patterns, Star) {
    const Frame f = make_frame(141, 330, 3);  // centre 70,165; radius 65
    GenPattern1(f.get());
    const int expected[][3] = {
        {0, 0, 64},    {40, 0, 64},    {0, 40, 64},    {-40, 0, 64},    {0, -40, 64},
        {57, 10, 192}, {64, 10, 64},   {-10, 57, 192}, {-57, -10, 192}, {10, -57, 192},
        {57, -10, 64}, {-10, -57, 64}, {-57, 10, 64},  {10, 57, 64},  // the far side of a quadrant
        {39, 52, 192}, {39, 53, 128},  {0, 65, 64},    {0, 66, 128},    {70, 164, 128},
    };
    for (const auto& e : expected) EXPECT_EQ(luma(*f, 70 + e[0], 165 + e[1]), e[2]) << e[0] << "," << e[1];
    for (int i = 0; i < 141 * 330; ++i) ASSERT_TRUE(f->data[3 * i + 1] == 128 && f->data[3 * i + 2] == 128);

    // Radius 0 is the centre alone; a negative one is nothing.
    for (const uint32_t height : {200u, 198u, 1u}) {
        const Frame low = make_frame(4, height, 3);
        GenPattern1(low.get());
        for (int y = 0; y < static_cast<int>(height); ++y)
            for (int x = 0; x < 4; ++x)
                ASSERT_EQ(luma(*low, x, y), height == 200 && x == 2 && y == 100 ? 64 : 128) << x << "," << y;
    }
}

TEST(Noise, OneDraw) {
    std::srand(1);
    const int r0 = std::rand(), r1 = std::rand(), r2 = std::rand();
    ASSERT_EQ(r0, 1804289383) << "another rand(): the expected value below is for this one";
    ASSERT_EQ(r1, 846930886);
    std::srand(1);
    EXPECT_DOUBLE_EQ(AWGN_generator(10.0, 2.0), 9.070214737572284);
    EXPECT_EQ(std::rand(), r2);
}

// Samples against a replay: the old sample and the rounded last draw, clamped. Every draw has its place
// in the sequence.
TEST(Noise, Replay) {
    for (const bool spikes : {false, true}) {
        const Frame f = make_frame(80, 60, 2, 10);
        for (int i = 0; i < 80 * 60 * 2; ++i) f->data[i] = i * 1023 / 9599;
        const Frame before(CM_CopyFRAME(f.get()));
        std::srand(3);
        spikes ? AddSpikeNoise(f.get()) : AddYNoise(f.get(), -20, 90);
        const int next = std::rand();
        std::srand(3);
        int changed = 0;
        for (int i = 0; i < 80 * 60 * 2; ++i) {
            int expected = before->data[i];
            if (i % 2 == 0 && (!spikes || std::fabs(AWGN_generator(0, 1)) >= 3)) {
                const double mean = spikes ? 0 : -20, sigma = spikes ? 64 : 90;
                AWGN_generator(mean, sigma);
                expected += static_cast<int>(std::lround(AWGN_generator(mean, sigma)));
                ++changed;
            }
            ASSERT_EQ(f->data[i], expected < 0 ? 0 : expected > 1023 ? 1023 : expected) << i;
        }
        EXPECT_GT(changed, 3);
        EXPECT_EQ(next, std::rand());
    }
}

TEST(Noise, Limits) {
    const int cases[][4] = {
        // depth, sample, noise, result
        {8, 250, 5, 255},     {8, 250, 6, 255}, {8, 50, -50, 0},          {8, 50, -51, 0},
        {12, 4000, 95, 4095}, {32, 50, 9, 0},   {31, 50, 900000, 900050}, {8, -70, INT_MIN, 255},  // wraps
    };
    for (const auto& c : cases) {
        const Frame f = make_frame(1, 1, 1, c[0]);
        f->data[0] = c[1];
        AddYNoise(f.get(), c[2], 0);
        EXPECT_EQ(f->data[0], c[3]) << c[0] << " " << c[2];
    }
    // Draws beyond the range of an int.
    const Frame f = make_frame(20, 20, 1);
    AddYNoise(f.get(), INT_MAX, INT_MAX);
    for (int i = 0; i < 400; ++i) ASSERT_TRUE(f->data[i] >= 0 && f->data[i] <= 255);
}

}  // namespace
