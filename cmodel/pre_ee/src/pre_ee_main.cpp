// The program: one register setting and one frame in, the sharpened luma out.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "common.h"
#include "ee_reg.h"
#include "ee_reg_table.h"
#include "fatal.h"
#include "fixed_run.h"
#include "log_positions.h"
#include "pnm.h"

namespace {

// Words of the command line.
enum Arg {
    kProgram,
    kIniFile,
    kLogFile,
    kLogLevel,
    kInsName,
    kMode,
    kDbgPath,
    kDumpDbgImg,
    kY,
    kCb,
    kCr,
    kSrcYnr,
    kMmap,
    kOut,
    kYfusion,
    kWords
};

// A decimal integer; text without one is 0, and only the low 32 bits of a large one count.
int parse_int(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

[[noreturn]] void print_usage_and_exit(int argc, char** argv) {
    std::printf("Usage: %s ini_file log_file log_level ins_name mode dbg_path dump_dbg_img\n",
                argv[kProgram]);
    std::puts("Y_in Cb_in Cr_in src_ynr mmap_pix img_out");  // intended: without Yfusion
    std::puts("\tmode: 0: input is RGB;\t1: input is YCbCr 422 input");
    std::fputs("\tWhen mode=0, Y_in is RGB ppm and Cb_in/Cr_in are ignored.", stdout);
    for (int i = 0; i < argc && i < kWords; ++i) {
        if (i != kLogFile && i != kLogLevel) {  // intended: these two are left out
            std::printf("%s is input %d\n", argv[i], i);
        }
    }
    std::exit(cm::kExitFormat);
}

// What the words ask for.
struct Options {
    const char* ini_file;
    const char* log_path;
    int log_level;
    const char* instance;
    bool is_rgb;
    const char* dbg_dir;
    bool dump;
    const char* input[cm::kInputs];  // in the order of Plane
    const char* out;

    FILE* log = nullptr;  // never closed: records come until the end
};

Options parse_words(char** argv) {
    return {.ini_file = argv[kIniFile],
            .log_path = argv[kLogFile],
            .log_level = parse_int(argv[kLogLevel]),
            .instance = argv[kInsName],
            .is_rgb = parse_int(argv[kMode]) == 0,
            .dbg_dir = argv[kDbgPath],
            .dump = parse_int(argv[kDumpDbgImg]) != 0,
            .input = {argv[kY], argv[kCb], argv[kCr], argv[kSrcYnr], argv[kMmap], argv[kYfusion]},
            .out = argv[kOut]};
}

FILE* open_log(const char* path, int level) {
    FILE* const log = std::fopen(path, "a");
    if (log == nullptr) {
        cm::fatal(cm::kExitFile, "Unable to open log file '%s'\n", path);
    }
    log_add_fp(log, level);
    log_set_quiet(true);
    return log;
}

// Before the output is written: a run whose log is not whole has none.
void check_log(const Options& o) {
    if (std::ferror(o.log) != 0) {
        cm::fatal(cm::kExitFile, "Unable to write log file '%s'\n", o.log_path);
    }
}

cm::PackedImage read_plane(const char* path, cm::PlaneMemory& memory) {
    return cm::read_pnm(path, cm::PnmKind::kGrey, cm::at::kReadGrey, &memory);
}

const cm::RowSource& plane(const cm::InputPlanes& planes, cm::Plane which) {
    return *planes[cm::index_of(which)];
}

// Samples of a depth that the block does not take are used all the same, as they are.
void warn_about_depth(const char* name, int depth, const cm::DepthRange& takes) {
    if (depth < takes.least || depth > takes.greatest) {
        const std::string range = takes.least == takes.greatest ? "" : std::to_string(takes.least) + " to ";
        log_log(LOG_WARN, cm::at::kPlaneDepth.source, cm::at::kPlaneDepth.line,
                "%s has %d bits a sample; the block takes %s%d", name, depth, range.c_str(), takes.greatest);
    }
}

// Chroma is meant to have half the luma's width, rounded either way, and its height.
void warn_about_chroma_size(const cm::InputPlanes& planes) {
    const cm::RowSource& luma = plane(planes, cm::Plane::y);
    const cm::RowSource& cb = plane(planes, cm::Plane::cb);
    const cm::RowSource& cr = plane(planes, cm::Plane::cr);
    const auto is_half = [&](const cm::RowSource& chroma) {
        return chroma.height() == luma.height() &&
               (chroma.width() == luma.width() / 2 || chroma.width() == cm::half_up(luma.width()));
    };
    if (!is_half(cb) || !is_half(cr)) {
        log_log(LOG_WARN, cm::at::kChromaSize.source, cm::at::kChromaSize.line,
                "chroma is not half as wide as luma: Y is %dx%d, Cb %dx%d, Cr %dx%d; "
                "columns and rows outside are reflected",
                luma.width(), luma.height(), cb.width(), cb.height(), cr.width(), cr.height());
    }
}

// The blocks cut the path of a debug image where its buffer ends, so that several images may go to one file.
void warn_about_image_names(const Options& o) {
    const bool fused = cm::reg_value(reg_ee_texture_mode) == 1;
    const char* const longest = fused ? "Yfusion_dbg_delta_MF_over_8b.ppm" : "dbg_adptgain_chromawgt_8b.ppm";
    const size_t fitting = sizeof dbg_path - 1 - std::strlen("/") - std::strlen(longest);
    const size_t length = std::strlen(o.dbg_dir);
    if (dump_dbg_img != 0 && length > fitting) {
        log_log(LOG_WARN, cm::at::kImageNames.source, cm::at::kImageNames.line,
                "the debug directory's path has %zu characters: paths of debug images are cut at %zu, and "
                "images may replace each other; up to %zu leave them whole",
                length, sizeof dbg_path - 1, fitting);
    }
}

// The block is off: the luma goes out as it came in, at its own depth.
void write_copy(const cm::RowSource& luma, const Options& o) {
    const size_t width = static_cast<size_t>(luma.width());
    const size_t sample_bytes = static_cast<size_t>(cm::written_bytes(luma.depth()));
    const cm::Bytes packed = cm::allocate_bytes(width * sample_bytes * static_cast<size_t>(luma.height()));
    const cm::Bytes memory = cm::allocate_bytes(width * sizeof(int32_t));
    int32_t* const row = static_cast<int32_t*>(static_cast<void*>(memory.get()));
    for (int y = 0; y < luma.height(); ++y) {
        luma.read(y, 0, luma.width(), row);
        cm::pack_samples(row, width, static_cast<int>(sample_bytes),
                         packed.get() + static_cast<size_t>(y) * width * sample_bytes);
    }
    check_log(o);
    cm::write_pgm(o.out, static_cast<uint32_t>(width), static_cast<uint32_t>(luma.height()), luma.depth(),
                  packed.get());
}

void sharpen(const cm::InputPlanes& planes, cm::PlaneMemory& memory, const Options& o) {
    warn_about_image_names(o);
    cm::check_pre_ee_planes(planes);
    const cm::RowSource& luma = plane(planes, cm::Plane::y);
    const size_t width = static_cast<size_t>(luma.width());
    const size_t height = static_cast<size_t>(luma.height());
    const cm::Bytes packed = memory.take(width * height);
    cm::ByteSink sink(packed.get(), luma.width());
    cm::run_fixed(cm::kPreEe, planes, sink);
    check_log(o);
    cm::write_pgm(o.out, static_cast<uint32_t>(width), static_cast<uint32_t>(height), cm::kOutputDepth,
                  packed.get());
}

void run_ycbcr(const Options& o) {
    cm::PlaneMemory memory;
    cm::PackedImage images[cm::kInputs];
    std::optional<cm::PackedSource> sources[cm::kInputs];
    cm::InputPlanes planes;
    for (int i = 0; i < cm::kInputs; ++i) {
        images[i] = read_plane(o.input[i], memory);
        planes[i] = &sources[i].emplace(images[i]);
    }
    std::printf("depth of Yfusion is %d \n", plane(planes, cm::Plane::yfusion).depth());
    if (!cm::block_enabled()) {
        write_copy(plane(planes, cm::Plane::y), o);
        return;
    }
    static constexpr const char* kNames[cm::kInputs] = {"Y_in",    "Cb_in",    "Cr_in",
                                                        "src_ynr", "mmap_pix", "Yfusion"};
    for (int i = 0; i < cm::kInputs; ++i) {
        if (i != cm::index_of(cm::Plane::yfusion) || cm::reg_value(reg_ee_texture_mode) == 1) {
            warn_about_depth(kNames[i], planes[i]->depth(), cm::depths_of_input(i));
        }
    }
    warn_about_chroma_size(planes);
    sharpen(planes, memory, o);
}

// RGB input has no fused luma, so texture mode 1 cannot run; told before anything is read.
void refuse_texture_mode() {
    if (cm::block_enabled() && cm::reg_value(reg_ee_texture_mode) == 1) {
        constexpr const char* kMessage =
            "RGB input (mode 0) has no Yfusion: set reg_ee_texture_mode = 0, or give Y, Cb and Cr planes "
            "(mode 1)";
        log_log(LOG_FATAL, cm::at::kTextureInRgb.source, cm::at::kTextureInRgb.line, "%s", kMessage);
        cm::fatal(cm::kExitFormat, "%s\n", kMessage);
    }
}

void run_rgb(const Options& o) {
    refuse_texture_mode();
    cm::PlaneMemory memory;
    const cm::PackedImage rgb =
        cm::read_pnm(o.input[cm::index_of(cm::Plane::y)], cm::PnmKind::kColour, cm::at::kReadColour, &memory);
    // Intended: must be there and readable, and is not used; the converted luma is sharpened itself.
    cm::read_pnm(o.input[cm::index_of(cm::Plane::ynr)], cm::PnmKind::kColour, cm::at::kReadColour);
    const cm::PackedImage motion = read_plane(o.input[cm::index_of(cm::Plane::mmap)], memory);

    const cm::PackedChannelSource red(rgb, 0), green(rgb, 1), blue(rgb, 2);
    // Intended: chroma has the luma's width here and still goes through the half-width duplication, so
    // that the picture's left half colours the whole of it.
    const cm::ColourSource y(red, green, blue, cm::ColourSource::kLuma);
    const cm::ColourSource cb(red, green, blue, cm::ColourSource::kCb);
    const cm::ColourSource cr(red, green, blue, cm::ColourSource::kCr);
    const cm::PackedSource mmap(motion);
    const cm::InputPlanes planes = {&y, &cb, &cr, &y, &mmap, nullptr};
    if (!cm::block_enabled()) {
        write_copy(y, o);
        return;
    }
    warn_about_depth("Y_in", rgb.depth, {8, 8});  // its luma is what gets sharpened
    warn_about_depth("mmap_pix", motion.depth, {8, 8});
    sharpen(planes, memory, o);
}

}  // namespace

int main(int argc, char** argv) {
    cm::prepare_program();
    if (argc != kWords) {
        print_usage_and_exit(argc, argv);
    }
    Options o = parse_words(argv);
    std::snprintf(dbg_path, sizeof dbg_path, "%s", o.dbg_dir);
    dump_dbg_img = o.dump;
    o.log = open_log(o.log_path, o.log_level);

    INIT_EE_REG(o.instance);
    LOAD_EE_INI(o.ini_file);
    PRINT_EE_REG();
    // Intended: the text has its own name for reg_ee_enable.
    log_log(LOG_INFO, cm::at::kBlockEnable.source, cm::at::kBlockEnable.line, "reg_pre_ee_enable = %d",
            cm::reg_value(reg_ee_enable));

    if (o.is_rgb) {
        run_rgb(o);
    } else {
        run_ycbcr(o);
    }
    return 0;
}
