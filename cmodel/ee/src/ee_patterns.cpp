// Test pictures and noise. Floating point is part of what they are: the order of operations and the
// constants decide the samples, and the number of rand() calls decides all later ones.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "ee_hw.h"
#include "fixed_point.h"
#include "mirror.h"

namespace {

constexpr int kNeutral = 128;
constexpr double kRandMax = 2147483647.0;

void put_pixel(FRAME& frame, int x, int y, int luma) {
    for (int c = 0; c < 3 && c < static_cast<int>(frame.channels); ++c) {
        cm::sample(frame, x, y, c) = c == 0 ? luma : kNeutral;
    }
}

// Whole degrees, 0..90, of a point in its quadrant, counted from the quadrant's first axis.
int quadrant_degrees(double adx, double ady) {
    if (adx == 0) {
        return 90;
    }
    if (ady == 0) {
        return 0;
    }
    const int theta = static_cast<int>(std::floor(std::atan(ady / adx) * 180.0 / 3.1415926536));
    if (theta < 0 || theta > 90) {
        std::printf("adx=%lg, ady=%lg => theta = %d\n", adx, ady, theta);
    }
    return theta;
}

// Which of the star's 40 sectors a point lies in, 0 to the right, clockwise on the screen.
int star_sector(double dx, double dy) {
    const int quadrant = dx >= 0 ? (dy >= 0 ? 0 : 3) : (dy >= 0 ? 1 : 2);
    const double across = std::fabs(dx);
    const double down = std::fabs(dy);
    const bool turned = quadrant == 1 || quadrant == 3;
    const int theta = turned ? quadrant_degrees(down, across) : quadrant_degrees(across, down);
    return (theta + 90 * quadrant) / 9;
}

// Toward zero; beyond the range of an int, to its end.
int to_int(double v) {
    constexpr double kLow = std::numeric_limits<int>::min();
    constexpr double kHigh = std::numeric_limits<int>::max();
    return static_cast<int>(v < kLow ? kLow : v > kHigh ? kHigh : v);
}

// Gaussian noise rounded to nearest, halves away from zero. Intended: the sign is that of a draw of its
// own, so each value costs two draws.
int draw_rounded(double mean, double sigma) {
    if (AWGN_generator(mean, sigma) >= 0) {
        return to_int(std::floor(AWGN_generator(mean, sigma) + 0.5));
    }
    return to_int(-std::floor(0.5 - AWGN_generator(mean, sigma)));
}

// Adds draw() to channel 0 of every pixel, rows outer, clamped to the frame's depth.
template <typename Draw>
void add_noise(FRAME& frame, Draw draw) {
    const int32_t max = cm::Wrap(cm::pow2_mod32(frame.depth)) - 1;
    for (uint32_t y = 0; y < frame.height; ++y) {
        for (uint32_t x = 0; x < frame.width; ++x) {
            int32_t& s = cm::sample(frame, x, y, 0);
            s = cm::clamp32(cm::Wrap(draw()) + cm::Wrap(s), 0, max);
        }
    }
}

}  // namespace

int GenPattern0(FRAME* frame) {
    constexpr int kBlock = 64;
    for (int y = 0; y < static_cast<int>(frame->height); ++y) {
        for (int x = 0; x < static_cast<int>(frame->width); ++x) {
            put_pixel(*frame, x, y, (x / kBlock + y / kBlock) % 2 != 0 ? 255 : 0);
        }
    }
    return 0;
}

int GenPattern1(FRAME* frame) {
    const int cx = static_cast<int>(frame->width >> 1);
    const int cy = static_cast<int>(frame->height >> 1);
    const int radius = (static_cast<int>(frame->height) - 200) >> 1;  // negative: no disc
    for (int y = 0; y < static_cast<int>(frame->height); ++y) {
        for (int x = 0; x < static_cast<int>(frame->width); ++x) {
            const double dx = x - cx;
            const double dy = y - cy;
            int luma = kNeutral;
            if (radius >= std::sqrt(dx * dx + dy * dy)) {
                const bool centre = dx == 0 && dy == 0;
                luma = !centre && star_sector(dx, dy) % 2 != 0 ? 192 : 64;
            }
            put_pixel(*frame, x, y, luma);
        }
    }
    return 0;
}

double AWGN_generator(double mean, double sigma) {
    double u;
    do {
        u = std::rand() / kRandMax;
    } while (u == 0);
    const double c = std::cos(std::rand() * 6.2831853072 / kRandMax);
    return std::sqrt(std::log(u) * -2.0) * c * sigma + mean;
}

int AddYNoise(FRAME* frame, int mean, int sigma) {
    add_noise(*frame, [=] { return draw_rounded(mean, sigma); });
    return 0;
}

int AddSpikeNoise(FRAME* frame) {
    add_noise(*frame, [] {
        const int t = static_cast<int>(AWGN_generator(0.0, 1.0));
        return std::abs(t) > 2 ? draw_rounded(0.0, 64.0) : 0;
    });
    return 0;
}
