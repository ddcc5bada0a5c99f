#include "scene.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "label.h"

namespace eetool {
namespace {

constexpr int kWidth = 160, kHeight = 120;  // of a panel
constexpr int kFine = 4;  // points a pixel, each way; coordinates within panels are in these

struct Colour {
    int y, cb, cr;
};

uint32_t hashed(int x, int y, uint32_t salt) {
    uint32_t h =
        static_cast<uint32_t>(x) * 0x9e3779b1U ^ static_cast<uint32_t>(y) * 0x85ebca77U ^ salt * 0xc2b2ae3dU;
    h = (h ^ h >> 15) * 0x2c1b3c6dU;
    h = (h ^ h >> 12) * 0x297a2d39U;
    return h ^ h >> 15;
}

// Smooth noise of -128..127 whose grains are `wide` and `high` points.
int grain(int u, int v, int wide, int high, uint32_t salt) {
    const auto corner = [&](int dx, int dy) {
        return static_cast<int>(hashed(u / wide + dx, v / high + dy, salt) & 255) - 128;
    };
    const int fx = u % wide, fy = v % high;
    const int top = (corner(0, 0) * (wide - fx) + corner(1, 0) * fx) / wide;
    const int bottom = (corner(0, 1) * (wide - fx) + corner(1, 1) * fx) / wide;
    return (top * (high - fy) + bottom * fy) / high;
}

// About Gaussian, of that standard deviation.
int noise(int x, int y, int sigma) {
    int sum = 0;
    for (uint32_t k = 0; k < 4; ++k) {
        sum += static_cast<int>(hashed(x, y, 77 + k) & 1023) - 512;
    }
    return sum * sigma / 591;  // four such numbers together deviate by 591
}

// Whether one of the lines of a text, with letters `size` pixels to a dot, covers the point.
bool in_text(int u, int v, int size, std::initializer_list<std::string_view> lines) {
    const int dot = size * kFine, x = (u - 8 * kFine) / dot, y = (v - 8 * kFine) / dot;
    if (u < 8 * kFine || v < 8 * kFine || y / 10 >= static_cast<int>(lines.size()) || y % 10 >= 7 ||
        x % 6 >= 5) {
        return false;
    }
    const std::string_view line = lines.begin()[y / 10];
    return x / 6 < static_cast<int>(line.size()) &&
           pictures::letter_covers(line[static_cast<size_t>(x / 6)], x % 6, y % 10);
}

// 0 to `period` and back.
int wave(int v, int period) {
    const int at = v % (2 * period);
    return at < period ? at : 2 * period - at;
}

int ramp(int v, int from, int to, int low, int high) {
    return low + (high - low) * (std::clamp(v, from, to) - from) / (to - from);
}

Colour point(int panel, int u, int v) {
    const int x = u / kFine, y = v / kFine;
    switch (panel) {
        case 0:
            return {in_text(u, v, 2, {"sharp text", "on paper", "0123456789", "fine edges", "in lines"})
                        ? 50
                        : 210,
                    128, 128};
        case 1:
            return {in_text(u, v, 3, {"light", "on dark", "edges"}) ? 200 : 60, 128, 128};
        case 2: {
            const int contrast = 8 << y / 30;
            return {128 + (x / 20 % 2 == 0 ? contrast : -contrast) / 2, 128, 128};
        }
        case 3:
            return {(x + 7 * y) % 120 < 14 || (y + 5 * x) % 130 < 10 ? 70 : 190, 128, 128};
        case 4:
            return {ramp(x, 0, 160, 150, 195) + grain(u, v, 12, 12, 1) / 24, 112, 150};
        case 5: {
            const bool hair = y > 20 && y < 50 && (x + 2 * y + grain(u, v, 40, 40, 2) / 12) % 9 < 2;
            const int lip = (x - 80) * (x - 80) / 9 + (y - 88) * (y - 88);
            return hair        ? Colour{90, 120, 138}
                   : lip < 200 ? Colour{125, 112, 168}
                               : Colour{165 + grain(u, v, 12, 12, 3) / 24, 112, 150};
        }
        case 6:
            return {ramp(y, 0, 120, 165, 200), 145, 118};
        case 7:
            return {ramp(y, 0, 120, 60, 25), 132, 126};
        case 8:
            return {32 + wave(u + grain(u, v, 60, 60, 4) / 16, 12) + wave(v, 10) / 2, 124, 131};
        case 9:
            return {in_text(u, v, 3, {"dark", "night", "56789"}) ? 48 : 24, 130, 127};
        case 10:
            return x / 16 % 2 == 0 ? Colour{90, 95, 215} : Colour{75, 205, 110};
        case 11:
            return (x - 80) * (x - 80) + (y - 60) * (y - 60) < 45 * 45 ? Colour{120, 70, 85}
                   : (x + y) / 12 % 2 == 0                             ? Colour{110, 165, 165}
                                                                       : Colour{135, 128, 128};
        case 12:
            return {110 + grain(u + v / 3, v, 10, 60, 5) / 4 + grain(u + 480 - v / 4, v, 14, 80, 6) / 5, 108,
                    118};
        case 13:
            return {140 + (wave(u, 8) + wave(v, 8) - 8) * 2, 122, 136};
        case 14:
            return {(ramp(x, 34, 46, 70, 190) + ramp(x, 104, 128, 0, -120)) -
                        (y < 60 ? 0 : ramp(y, 60, 66, 0, 30)),
                    128, 128};
        default: {
            const int d = ((x - 80) * (x - 80) + (y - 60) * (y - 60));
            return {88 + wave(d, 340) * 80 / 340, 128, 128};
        }
    }
}

bool is_soft(int panel) {
    return panel != 3;
}

int noise_of(int panel) {
    switch (panel) {
        case 6:
            return 3;
        case 7:
        case 9:
            return 4;
        case 8:
            return 2;
        default:
            return 1;
    }
}

int panel_of(int x, int y) {
    return y / kHeight % 4 * 4 + x / kWidth % 4;
}

Colour pixel(int x, int y) {
    const int panel = panel_of(x, y), px = x % kWidth * kFine, py = y % kHeight * kFine;
    if (!is_soft(panel)) {
        return point(panel, px, py);
    }
    Colour sum{0, 0, 0};
    for (int dy = 0; dy < kFine; ++dy) {
        for (int dx = 0; dx < kFine; ++dx) {
            const Colour c = point(panel, px + dx, py + dy);
            sum = {sum.y + c.y, sum.cb + c.cb, sum.cr + c.cr};
        }
    }
    constexpr int kPoints = kFine * kFine;
    return {sum.y / kPoints, sum.cb / kPoints, sum.cr / kPoints};
}

}  // namespace

int draw_scene(FRAME* frame) {
    const int width = static_cast<int>(frame->width), height = static_cast<int>(frame->height);
    std::vector<Colour> sharp(static_cast<size_t>(width) * static_cast<size_t>(height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            sharp[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)] = pixel(x, y);
        }
    }
    static constexpr int kWeights[3] = {1, 2, 1};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int panel = panel_of(x, y);
            Colour sum{8, 8, 8};
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = std::clamp(x + dx, 0, width - 1), ny = std::clamp(y + dy, 0, height - 1);
                    const bool here = is_soft(panel) && panel_of(nx, ny) == panel;
                    const Colour& c = sharp[static_cast<size_t>(here ? ny : y) * static_cast<size_t>(width) +
                                            static_cast<size_t>(here ? nx : x)];
                    const int weight = kWeights[dx + 1] * kWeights[dy + 1];
                    sum = {sum.y + weight * c.y, sum.cb + weight * c.cb, sum.cr + weight * c.cr};
                }
            }
            int32_t* const out =
                frame->data +
                (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3;
            out[0] = std::clamp(sum.y / 16 + noise(x, y, noise_of(panel)), 0, 255);
            out[1] = sum.cb / 16;
            out[2] = sum.cr / 16;
        }
    }
    return 0;
}

}  // namespace eetool
