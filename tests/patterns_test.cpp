// Test pictures at their turning points; noise against a replay of the same rand() sequence.
#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "ee_hw.h"
#include "test_frames.h"

namespace {

// Luma at points counted from (left, top), and neutral chroma everywhere.
void expect_points(int (*generate)(FRAME*), uint32_t width, uint32_t height, int left, int top,
                   std::initializer_list<std::array<int, 3>> points) {
    const Frame f = make_frame(CM_FORMAT_YCBCR, width, height, 3, 8);
    Frame_Set_Constant(f, 77);
    generate(f);
    for (const auto& [x, y, luma] : points)
        EXPECT_EQ(f->data[3 * ((top + y) * static_cast<int>(width) + left + x)], luma) << x << "," << y;
    for (size_t i = 0; i < size_t{width} * height; ++i)
        ASSERT_TRUE(f->data[3 * i + 1] == 128 && f->data[3 * i + 2] == 128);
}

TEST(Patterns, TurningPoints) {
    expect_points(GenPattern0, 130, 129, 0, 0,
                  {{0, 0, 0}, {63, 63, 0}, {64, 0, 255}, {0, 64, 255}, {64, 64, 0}, {128, 127, 255}});
    // The star: axes, the near and the far side of each quadrant, the rim (radius 65).
    expect_points(GenPattern1, 141, 330, 70, 165,
                  {{0, 0, 64}, {40, 0, 64}, {0, 40, 64}, {-40, 0, 64}, {0, -40, 64}});
    expect_points(GenPattern1, 141, 330, 70, 165,
                  {{57, 10, 192}, {-10, 57, 192}, {-57, -10, 192}, {10, -57, 192}, {64, 10, 64}});
    expect_points(GenPattern1, 141, 330, 70, 165,
                  {{57, -10, 64}, {-10, -57, 64}, {-57, 10, 64}, {10, 57, 64}, {70, 164, 128}});
    expect_points(GenPattern1, 141, 330, 70, 165, {{39, 52, 192}, {39, 53, 128}, {0, 65, 64}, {0, 66, 128}});
    // Radius 0 is the centre alone; a negative one is nothing.
    expect_points(GenPattern1, 4, 200, 2, 100, {{0, 0, 64}, {1, 0, 128}, {0, -1, 128}, {-1, 0, 128}});
    expect_points(GenPattern1, 4, 198, 2, 99, {{0, 0, 128}});
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
        const Frame f = make_frame(CM_FORMAT_YCBCR, 80, 60, 2, 10);
        for (int i = 0; i < 80 * 60 * 2; ++i) f->data[i] = i * 1023 / 9599;
        Samples expected = samples_of(*f);
        std::srand(3);
        spikes ? AddSpikeNoise(f) : AddYNoise(f, -20, 90);
        const int next = std::rand();
        std::srand(3);
        for (size_t i = 0; i < expected.size(); i += 2) {
            if (spikes && std::fabs(AWGN_generator(0, 1)) < 3) continue;
            const double mean = spikes ? 0 : -20, sigma = spikes ? 64 : 90;
            AWGN_generator(mean, sigma);
            const int sum = expected[i] + static_cast<int>(std::lround(AWGN_generator(mean, sigma)));
            expected[i] = std::clamp(sum, 0, 1023);
        }
        EXPECT_EQ(samples_of(*f), expected);
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
        const Frame f = make_plane(1, 1, {c[1]}, c[0]);
        AddYNoise(f, c[2], 0);
        EXPECT_EQ(f->data[0], c[3]) << c[0] << " " << c[2];
    }
    // Draws beyond the range of an int are its largest value.
    const Frame f = make_plane(20, 20, {});
    AddYNoise(f, INT_MAX, 1000);
    EXPECT_EQ(samples_of(*f), Samples(400, 255));
}

}  // namespace
