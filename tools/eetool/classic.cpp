// eetool classic: the classic pipeline over image files.
#include <cstdio>

#include "commands.h"
#include "ee_hw.h"
#include "ee_reg.h"
#include "plane_files.h"

namespace eetool {
namespace {

struct Options {
    std::string ini, instance = "NULL";
    std::string y, cb, cr, rgb, ynr, mmap, out;
    std::string log, debug_dir;
    int log_level = LOG_INFO;
};

constexpr int kFileType = 2;
constexpr int kDepth = 8;

// An image of another depth would run, and give nonsense.
Frame require_depth(FRAME* image, const std::string& path) {
    Frame frame(image);
    if (frame->depth != kDepth) {
        throw Cannot(path + " has " + std::to_string(frame->depth) + " bits a sample; the block takes " +
                     std::to_string(kDepth));
    }
    return frame;
}

// What the blocks cut is the path of an image, this one's first.
constexpr size_t kLongestDirectory = sizeof dbg_path - sizeof "/dbg_adptgain_chromawgt_8b.ppm";

Frame read_plane(const std::string& path) {
    return require_depth(read_frame(path, false).release(), path);
}

Planes read_colour(const Options& o) {
    if (o.rgb.empty()) {
        return {read_plane(o.y), read_plane(o.cb), read_plane(o.cr)};
    }
    const Frame rgb = require_depth(read_frame(o.rgb, true).release(), o.rgb);
    const Frame ycbcr(CM_RGB2YCbCr(rgb.get()));
    return split_planes(*ycbcr);
}

int run(const Options& o) {
    if (o.rgb.empty() && (o.y.empty() || o.cb.empty() || o.cr.empty())) {
        throw CLI::RequiredError("--y, --cb and --cr, or --rgb,");
    }
    if (!o.debug_dir.empty()) {
        if (o.debug_dir.size() > kLongestDirectory) {
            throw CLI::ValidationError("--debug-dir",
                                       "the path is too long: image names would be cut, which " +
                                           std::to_string(kLongestDirectory) + " characters leave whole");
        }
        std::snprintf(dbg_path, sizeof dbg_path, "%s", o.debug_dir.c_str());
        dump_dbg_img = 1;
    }
    FILE* log = nullptr;
    if (!o.log.empty()) {
        log = std::fopen(o.log.c_str(), "a");
        if (log == nullptr) {
            return report_cannot("written", o.log);
        }
        log_add_fp(log, o.log_level);
    }

    INIT_EE_REG(o.instance.c_str());
    if (!o.ini.empty() && LOAD_EE_INI(o.ini.c_str()) != 0) {
        return report_cannot("read", o.ini);
    }
    PRINT_EE_REG();

    const Planes planes = read_colour(o);
    const Frame image(o.ynr.empty() ? CM_CopyFRAME(planes.y.get()) : read_plane(o.ynr).release());
    const Frame motion(o.mmap.empty()
                           ? CM_NewFRAME(kFileType, CM_FORMAT_SINGLE, planes.y->width, planes.y->height, 1, 8)
                           : read_plane(o.mmap).release());
    const Frame sharpened(ee_hw(planes.y.get(), planes.cb.get(), planes.cr.get(), image.get(), motion.get()));
    // A run whose log is not whole has no output.
    if (log != nullptr && std::ferror(log) != 0) {
        std::fprintf(stderr, "eetool: %s could not be written whole\n", o.log.c_str());
        return kCannot;
    }
    CM_WritePPM5(o.out.c_str(), sharpened.get());
    return log == nullptr || std::fclose(log) == 0 ? kOk : report_cannot("written", o.log);
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    app.add_option("--ini", o->ini, "register setting; without it all registers have their defaults")
        ->option_text("FILE")
        ->check(CLI::ExistingFile);
    app.add_option("--instance", o->instance,
                   "registers are read from section [eeNAME]; without it from [ee]")
        ->option_text("NAME");
    CLI::Option* const y = app.add_option("--y", o->y, "luma, 8 bits (P5)")->option_text("FILE");
    CLI::Option* const cb =
        app.add_option("--cb", o->cb, "chroma, 8 bits (P5), half as wide as luma")->option_text("FILE");
    CLI::Option* const cr =
        app.add_option("--cr", o->cr, "chroma, 8 bits (P5), half as wide as luma")->option_text("FILE");
    app.add_option("--rgb", o->rgb, "a colour picture, 8 bits (P6), in place of --y, --cb and --cr")
        ->option_text("FILE")
        ->excludes(y)
        ->excludes(cb)
        ->excludes(cr);
    app.add_option("--ynr", o->ynr, "noise-reduced luma, 8 bits (P5), which is sharpened; without it luma is")
        ->option_text("FILE");
    app.add_option("--mmap", o->mmap, "motion map, 8 bits (P5); without it nothing moves")
        ->option_text("FILE");
    app.add_option("--out", o->out, "the sharpened luma (P5)")->option_text("FILE (required)")->required();
    CLI::Option* const log = app.add_option("--log", o->log, "log file, appended to")->option_text("FILE");
    app.add_option("--log-level", o->log_level, "least level that is logged, 0 (all) to 5 (fatal)")
        ->option_text("0..5 [2]")
        ->check(CLI::Range(int{LOG_TRACE}, int{LOG_FATAL}))
        ->needs(log);
    app.add_option("--debug-dir", o->debug_dir, "write debug images to this directory")
        ->option_text("DIR")
        ->check(CLI::ExistingDirectory);
    return [o] { return run(*o); };
}

}  // namespace

const Command kClassic = {
    "classic", "Run the classic pipeline on one frame",
    "  eetool pattern star --sigma 2 --y y.pgm --cb cb.pgm --cr cr.pgm\n"
    "  eetool ini --out ee.ini --set reg_ee_total_gain=64\n"
    "  eetool classic --ini ee.ini --y y.pgm --cb cb.pgm --cr cr.pgm --out sharp.pgm --log run.log\n",
    "An image that cannot be opened is waited for (\"wait pre frame ready PATH\" on standard output), so\n"
    "that frames can be handed over between processes; end a wait with Ctrl-C.\n",
    declare};

}  // namespace eetool
