// Makes one set of planes to measure with.
//
//   make_planes WIDTHxHEIGHT OUT_DIR [PHOTO.ppm]
//
// The photograph (8-bit P6 of any size) is scaled to cover the frame and cut at the centre; without one the
// sector star with noise serves. Written: y, cb, cr (4:2:2), ynr (low-passed luma), mmap (what changes when
// the picture moves by a few pixels), yfus, yfus12, and rgb.ppm.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "ee_hw.h"
#include "owned_frame.h"

namespace {

using Frame = cm::OwnedFrame;

Frame new_frame(uint32_t format, uint32_t width, uint32_t height, uint32_t channels) {
    return Frame(CM_NewFRAME(2, format, width, height, channels, 8));
}

// Bilinear, keeping the picture's shape.
Frame scale_to_cover(const FRAME& photo, uint32_t width, uint32_t height) {
    Frame out = new_frame(CM_FORMAT_RGB, width, height, 3);
    const double step = std::min(double(photo.width) / width, double(photo.height) / height);
    const double left = (photo.width - step * width) / 2;
    const double top = (photo.height - step * height) / 2;
    const auto at = [&](uint32_t x, uint32_t y, uint32_t c) {
        return photo
            .data[3 * (size_t{std::min(y, photo.height - 1)} * photo.width + std::min(x, photo.width - 1)) +
                  c];
    };
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const double px = left + step * x;
            const double py = top + step * y;
            const uint32_t ix = static_cast<uint32_t>(px);
            const uint32_t iy = static_cast<uint32_t>(py);
            const double fx = px - ix;
            const double fy = py - iy;
            for (uint32_t c = 0; c < 3; ++c) {
                const double above = at(ix, iy, c) * (1 - fx) + at(ix + 1, iy, c) * fx;
                const double below = at(ix, iy + 1, c) * (1 - fx) + at(ix + 1, iy + 1, c) * fx;
                out->data[3 * (size_t{y} * width + x) + c] =
                    static_cast<int32_t>(above * (1 - fy) + below * fy + 0.5);
            }
        }
    }
    return out;
}

Frame draw_star(uint32_t width, uint32_t height) {
    const Frame star = new_frame(CM_FORMAT_YCBCR, width, height, 3);
    GenPattern1(star.get());
    AddYNoise(star.get(), 0, 3);
    return Frame(CM_YCbCr2RGB(star.get()));
}

void write(const std::string& dir, const char* name, const FRAME& plane) {
    CM_WritePPM5((dir + "/" + name).c_str(), &plane);
}

}  // namespace

int main(int argc, char** argv) {
    uint32_t width = 0;
    uint32_t height = 0;
    if (argc < 3 || std::sscanf(argv[1], "%ux%u", &width, &height) != 2 || width < 2 || height < 2) {
        std::fprintf(stderr, "usage: %s WIDTHxHEIGHT OUT_DIR [PHOTO.ppm]\n", argv[0]);
        return 2;
    }
    log_set_quiet(true);
    const std::string dir = argv[2];
    Frame rgb;
    if (argc > 3) {
        const Frame photo(CM_ReadPPM(argv[3], 2));
        rgb = scale_to_cover(*photo, width, height);
    } else {
        rgb = draw_star(width, height);
    }
    const Frame ycbcr(CM_RGB2YCbCr(rgb.get()));
    const Frame luma = new_frame(CM_FORMAT_SINGLE, width, height, 1);
    const Frame cb = new_frame(CM_FORMAT_SINGLE, (width + 1) / 2, height, 1);
    const Frame cr = new_frame(CM_FORMAT_SINGLE, (width + 1) / 2, height, 1);
    CM_YCbCr444to422(ycbcr.get(), luma.get(), cb.get(), cr.get());
    const Frame lowpass = new_frame(CM_FORMAT_YCBCR, width, height, 3);
    EE_GenLPF3x3(luma.get(), luma.get(), luma.get(), lowpass.get());
    const Frame motion = new_frame(CM_FORMAT_SINGLE, width, height, 1);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const size_t here = size_t{y} * width + x;
            const size_t moved = size_t{y < 2 ? 0 : y - 2} * width + (x < 6 ? 0 : x - 6);
            motion->data[here] = std::abs(lowpass->data[3 * here] - lowpass->data[3 * moved]);
        }
    }
    write(dir, "y.pgm", *luma);
    write(dir, "cb.pgm", *cb);
    write(dir, "cr.pgm", *cr);
    write(dir, "ynr.pgm", *lowpass);
    write(dir, "mmap.pgm", *motion);
    write(dir, "yfus.pgm", *lowpass);
    // The same in 12 bits, the low ones from luma.
    const Frame deep = new_frame(CM_FORMAT_SINGLE, width, height, 1);
    deep->depth = 12;
    for (size_t i = 0; i < size_t{width} * height; ++i) {
        deep->data[i] = lowpass->data[3 * i] * 16 + luma->data[i] % 16;
    }
    write(dir, "yfus12.pgm", *deep);
    CM_WritePPM((dir + "/rgb.ppm").c_str(), rgb.get());
    return 0;
}
