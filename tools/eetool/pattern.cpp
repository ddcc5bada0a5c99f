// eetool pattern: test pictures and noise.
#include <cstdio>
#include <cstdlib>
#include <map>

#include "commands.h"
#include "ee_hw.h"
#include "plane_files.h"
#include "scene.h"

namespace eetool {
namespace {

struct Options {
    std::string kind;
    uint32_t width = 640, height = 480;
    unsigned seed = 1;
    int mean = 0, sigma = 0;
    bool spikes = false;
    std::string in, y, cb, cr, rgb;
};

// A flat mid-grey, for noise to be seen on.
int fill_grey(FRAME* frame) {
    Frame_Set_Constant(frame, 128);
    return 0;
}

// A picture is a function that fills a three-channel 8-bit frame.
const std::map<std::string, int (*)(FRAME*)> kPictures = {
    {"checkerboard", GenPattern0}, {"star", GenPattern1}, {"noise", fill_grey}, {"scene", draw_scene}};

// A plane from a file as luma, with neutral chroma.
Frame read_luma(const std::string& path) {
    const Frame plane = read_frame(path, false);
    Frame frame(CM_NewFRAME(2, CM_FORMAT_YCBCR, plane->width, plane->height, 3, plane->depth));
    Frame_Set_Constant(frame.get(), plane->depth > 0 ? 1 << (plane->depth - 1) : 0);
    const size_t pixels = size_t{plane->width} * plane->height;
    for (size_t i = 0; i < pixels; ++i) {
        frame->data[3 * i] = plane->data[i];
    }
    return frame;
}

Frame draw(const Options& o) {
    if (!o.in.empty()) {
        return read_luma(o.in);
    }
    Frame frame(CM_NewFRAME(2, CM_FORMAT_YCBCR, o.width, o.height, 3, 8));
    kPictures.at(o.kind)(frame.get());
    return frame;
}

int run(const Options& o) {
    if (o.y.empty() && o.rgb.empty()) {
        throw CLI::RequiredError("--y or --rgb");
    }
    if (!o.in.empty() && o.kind != "noise") {
        throw CLI::ValidationError("--in", "only noise is added to an existing plane");
    }
    for (const std::string* const path : {&o.y, &o.cb, &o.cr, &o.rgb}) {
        if (!path->empty() && !can_write(*path)) {
            return report_cannot("written", *path);
        }
    }
    const Frame frame = draw(o);
    if (!o.rgb.empty() && frame->depth != 8) {
        std::fprintf(stderr, "eetool: --rgb needs 8-bit luma; %s has %d bits\n", o.in.c_str(), frame->depth);
        return kCannot;
    }

    std::srand(o.seed);
    const bool noise_unsaid = o.kind == "noise" && o.sigma == 0 && o.mean == 0 && !o.spikes;
    const int sigma = noise_unsaid ? 8 : o.sigma;
    if (sigma != 0 || o.mean != 0) {
        AddYNoise(frame.get(), o.mean, sigma);
    }
    if (o.spikes) {
        AddSpikeNoise(frame.get());
    }

    const Planes planes = split_planes(*frame);
    for (const auto& [path, plane] :
         {std::pair{&o.y, &planes.y}, std::pair{&o.cb, &planes.cb}, std::pair{&o.cr, &planes.cr}}) {
        if (!path->empty()) {
            CM_WritePPM5(path->c_str(), plane->get());
        }
    }
    if (!o.rgb.empty()) {
        const Frame rgb(CM_YCbCr2RGB(frame.get()));
        CM_WritePPM(o.rgb.c_str(), rgb.get());
    }
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    constexpr uint32_t kLargest = 16384;
    app.add_option("picture", o->kind, "checkerboard, star, noise (on mid-grey) or scene")
        ->option_text("(required)")
        ->required()
        ->check(CLI::IsMember(&kPictures));
    app.add_option("--width", o->width, "width of the picture")
        ->option_text("PIXELS [640]")
        ->check(CLI::Range(uint32_t{1}, kLargest));
    app.add_option("--height", o->height, "height of the picture")
        ->option_text("ROWS [480]")
        ->check(CLI::Range(uint32_t{1}, kLargest));
    app.add_option("--sigma", o->sigma, "add Gaussian noise of this strength; for noise 8 if nothing is said")
        ->option_text("N")
        ->check(CLI::Range(0, 1 << 20));
    app.add_option("--mean", o->mean, "mean of the Gaussian noise")
        ->option_text("N")
        ->check(CLI::Range(-(1 << 20), 1 << 20));
    app.add_flag("--spikes", o->spikes, "add single-pixel spikes");
    app.add_option("--seed", o->seed, "seed of the noise")->option_text("N [1]");
    app.add_option("--in", o->in, "noise only: add it to this plane (P5) of any size and depth")
        ->option_text("FILE")
        ->check(CLI::ExistingFile);
    app.add_option("--y", o->y, "write luma here (P5)")->option_text("FILE");
    app.add_option("--cb", o->cb, "write half-width chroma here (P5)")->option_text("FILE");
    app.add_option("--cr", o->cr, "write half-width chroma here (P5)")->option_text("FILE");
    app.add_option("--rgb", o->rgb, "write a colour picture here (P6)")->option_text("FILE");
    return [o] { return run(*o); };
}

}  // namespace

const Command kPattern = {
    "pattern", "Write a test picture, or add noise to a plane",
    "  eetool pattern checkerboard --width 320 --height 240 --rgb board.ppm\n"
    "  eetool pattern star --y y.pgm --cb cb.pgm --cr cr.pgm\n"
    "  eetool pattern noise --in y.pgm --sigma 4 --spikes --seed 7 --y noisy.pgm\n",
    "Pictures have 8 bits; only the scene, panels of text, skin, sky, texture and colours with a little\n"
    "noise, has colours. The star's radius is half the height "
    "less 100, so it\nneeds a height above 200. One seed gives one noise.\n",
    declare};

}  // namespace eetool
