// Makes the demo's frame: six planes (4:2:2, 8-bit, the fused luma 12-bit) and a default INI file.
//
//   make_sample OUT_DIR INI_FILE
//
// The picture is the sector star on a checkerboard, slightly blurred so that there is something to
// sharpen; what the sensor saw (y) has noise and spikes, the noise-reduced luma (src_ynr) has not, and
// the right third of the picture moves.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "ee_hw.h"
#include "ee_reg.h"
#include "owned_frame.h"

namespace {

constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 480;

using Frame = cm::OwnedFrame;

Frame new_plane(uint32_t width, int depth) {
    return Frame(CM_NewFRAME(2, CM_FORMAT_SINGLE, width, kHeight, 1, depth));
}

// Star inside its disc, checkerboard around it; three channels, chroma neutral.
Frame draw_pattern() {
    Frame star(CM_NewFRAME(2, CM_FORMAT_YCBCR, kWidth, kHeight, 3, 8));
    const Frame board(CM_CopyFRAME(star.get()));
    GenPattern1(star.get());
    GenPattern0(board.get());
    for (size_t i = 0; i < size_t{3} * kWidth * kHeight; i += 3) {
        if (star->data[i] == 128) {
            star->data[i] = board->data[i] / 2 + 48;
        }
    }
    return star;
}

// Three colours side by side, strong at the top, grey at the bottom.
void colour_planes(FRAME& cb, FRAME& cr) {
    constexpr int kVector[3][2] = {{-30, 40}, {40, -20}, {-40, -40}};
    for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < cb.width; ++x) {
            const int* const vector = kVector[3 * x / cb.width];
            const int strength = static_cast<int>(kHeight - y);
            cb.data[y * cb.width + x] = 128 + vector[0] * strength / static_cast<int>(kHeight);
            cr.data[y * cr.width + x] = 128 + vector[1] * strength / static_cast<int>(kHeight);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s OUT_DIR INI_FILE\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    log_set_quiet(true);

    const Frame pattern = draw_pattern();
    const Frame luma(CM_CopySingleCh(pattern.get(), 0));
    const Frame blurred(CM_NewFRAME(2, CM_FORMAT_YCBCR, kWidth, kHeight, 3, 8));
    EE_GenLPF3x3(luma.get(), luma.get(), luma.get(), blurred.get());
    const Frame clean(CM_CopySingleCh(blurred.get(), 0));

    const Frame noisy(CM_CopyFRAME(clean.get()));
    std::srand(1);
    AddYNoise(noisy.get(), 0, 2);
    AddSpikeNoise(noisy.get());

    const Frame cb = new_plane(kWidth / 2, 8);
    const Frame cr = new_plane(kWidth / 2, 8);
    colour_planes(*cb, *cr);

    const Frame motion = new_plane(kWidth, 8);
    const Frame fusion = new_plane(kWidth, 12);
    for (size_t i = 0; i < size_t{kWidth} * kHeight; ++i) {
        motion->data[i] = i % kWidth > 2 * kWidth / 3 ? 160 : 0;
        fusion->data[i] = clean->data[i] * 16;
    }

    CM_WritePPM5((dir + "/y.pgm").c_str(), noisy.get());
    CM_WritePPM5((dir + "/cb.pgm").c_str(), cb.get());
    CM_WritePPM5((dir + "/cr.pgm").c_str(), cr.get());
    CM_WritePPM5((dir + "/src_ynr.pgm").c_str(), clean.get());
    CM_WritePPM5((dir + "/mmap.pgm").c_str(), motion.get());
    CM_WritePPM5((dir + "/yfusion.pgm").c_str(), fusion.get());

    INIT_EE_REG("0");
    return DUMP_EE_INI(argv[2]) == 0 ? 0 : 1;
}
