// The program: one register setting and one frame in, the sharpened luma out.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common.h"
#include "ee_reg.h"
#include "ee_reg_table.h"
#include "fatal.h"
#include "pnm.h"
#include "pre_ee_pipeline.h"

namespace {

constexpr const char* kSource = "pre_ee_main";
constexpr int kWords = 15;

FILE* log_file;  // never closed: records come until the end

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
    kYfusion
};

// A decimal integer; text without one is 0, and only the low 32 bits of a large one count.
int parse_int(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

[[noreturn]] void print_usage_and_exit(int argc, char** argv) {
    std::printf("Usage: %s ini_file log_file log_level ins_name mode dbg_path dump_dbg_img\n",
                argv[kProgram]);
    std::puts("Y_in Cb_in Cr_in src_ynr mmap_pix img_out");
    std::puts("\tmode: 0: input is RGB;\t1: input is YCbCr 422 input");
    std::fputs("\tWhen mode=0, Y_in is RGB ppm and Cb_in/Cr_in are ignored.", stdout);
    for (int i = 0; i < argc && i < kWords; ++i) {
        if (i != kLogFile && i != kLogLevel) {  // intended: these two are left out
            std::printf("%s is input %d\n", argv[i], i);
        }
    }
    std::exit(cm::kExitFormat);
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
void check_log(char** argv) {
    if (std::ferror(log_file) != 0) {
        cm::fatal(cm::kExitFile, "Unable to write log file '%s'\n", argv[kLogFile]);
    }
}

cm::PackedImage read_plane(const char* path, cm::PlaneMemory& memory) {
    return cm::read_pnm(path, cm::PnmKind::kGrey, 410, &memory);
}

// Chroma is meant to have half the luma's width, rounded either way, and its height.
void warn_about_chroma_size(const cm::EePlanes& planes) {
    const auto is_half = [&](const cm::RowSource& chroma) {
        const int width = planes.luma.width();
        return chroma.height() == planes.luma.height() &&
               (chroma.width() == width / 2 || chroma.width() == cm::half_up(width));
    };
    if (!is_half(planes.cb) || !is_half(planes.cr)) {
        log_log(LOG_WARN, kSource, __LINE__,
                "chroma is not half as wide as luma: Y is %dx%d, Cb %dx%d, Cr %dx%d; "
                "columns and rows outside are reflected",
                planes.luma.width(), planes.luma.height(), planes.cb.width(), planes.cb.height(),
                planes.cr.width(), planes.cr.height());
    }
}

// The blocks cut the path of a debug image where its buffer ends, so that several images may go to one file.
void warn_about_image_names(char** argv) {
    const bool fused = cm::reg_value(reg_ee_texture_mode) == 1;
    const char* const longest = fused ? "Yfusion_dbg_delta_MF_over_8b.ppm" : "dbg_adptgain_chromawgt_8b.ppm";
    const size_t fitting = sizeof dbg_path - 1 - std::strlen("/") - std::strlen(longest);
    const size_t length = std::strlen(argv[kDbgPath]);
    if (dump_dbg_img != 0 && length > fitting) {
        log_log(LOG_WARN, kSource, __LINE__,
                "the debug directory's path has %zu characters: paths of debug images are cut at %zu, and "
                "images may replace each other; up to %zu leave them whole",
                length, sizeof dbg_path - 1, fitting);
    }
}

// The block is off: the luma goes out as it came in, at its own depth.
void write_copy(const cm::RowSource& luma, char** argv) {
    const int width = luma.width();
    const size_t sample_bytes = static_cast<size_t>(cm::written_bytes(luma.depth()));
    const size_t row_bytes = static_cast<size_t>(width) * sample_bytes;
    const cm::AlignedRow row = cm::output_row(width);
    const cm::Bytes packed = cm::allocate_bytes(row_bytes * static_cast<size_t>(luma.height()));
    for (int y = 0; y < luma.height(); ++y) {
        luma.read(y, row.get(), width);
        cm::pack_samples(row.get(), static_cast<size_t>(width), static_cast<int>(sample_bytes),
                         packed.get() + static_cast<size_t>(y) * row_bytes);
    }
    check_log(argv);
    cm::write_pgm(argv[kOut], static_cast<uint32_t>(width), static_cast<uint32_t>(luma.height()),
                  luma.depth(), packed.get());
}

void sharpen(const cm::EePlanes& planes, cm::PlaneMemory& memory, char** argv) {
    warn_about_image_names(argv);
    cm::check_pre_ee_planes(planes);
    const size_t width = static_cast<size_t>(planes.luma.width());
    const size_t height = static_cast<size_t>(planes.luma.height());
    const cm::Bytes packed = memory.take(width * height);
    cm::ByteSink sink(packed.get(), planes.luma.width());
    cm::run_pre_ee(planes, sink);
    check_log(argv);
    cm::write_pgm(argv[kOut], static_cast<uint32_t>(width), static_cast<uint32_t>(height), 8, packed.get());
}

void run_ycbcr(char** argv) {
    cm::PlaneMemory memory;
    const cm::PackedImage luma = read_plane(argv[kY], memory);
    const cm::PackedImage cb = read_plane(argv[kCb], memory);
    const cm::PackedImage cr = read_plane(argv[kCr], memory);
    const cm::PackedImage image = read_plane(argv[kSrcYnr], memory);
    const cm::PackedImage motion = read_plane(argv[kMmap], memory);
    const cm::PackedImage fusion = read_plane(argv[kYfusion], memory);
    std::printf("depth of Yfusion is %d \n", fusion.depth);

    const cm::EePlanes planes{cm::RowSource(luma),  cm::RowSource(cb),     cm::RowSource(cr),
                              cm::RowSource(image), cm::RowSource(motion), cm::RowSource(fusion)};
    if (!cm::block_enabled()) {
        write_copy(planes.luma, argv);
        return;
    }
    warn_about_chroma_size(planes);
    sharpen(planes, memory, argv);
}

// RGB input has no fused luma, so texture mode 1 cannot run; told before anything is read.
void refuse_texture_mode() {
    if (cm::block_enabled() && cm::reg_value(reg_ee_texture_mode) == 1) {
        constexpr const char* kMessage =
            "RGB input (mode 0) has no Yfusion: set reg_ee_texture_mode = 0, or give Y, Cb and Cr planes "
            "(mode 1)";
        log_log(LOG_FATAL, kSource, __LINE__, "%s", kMessage);
        cm::fatal(cm::kExitFormat, "%s\n", kMessage);
    }
}

void run_rgb(char** argv) {
    refuse_texture_mode();
    cm::PlaneMemory memory;
    const cm::PackedImage rgb = cm::read_pnm(argv[kY], cm::PnmKind::kColour, 325, &memory);
    // Intended: must be there and readable, and is not used; the converted luma is sharpened itself.
    cm::read_pnm(argv[kSrcYnr], cm::PnmKind::kColour, 325);
    const cm::PackedImage motion = read_plane(argv[kMmap], memory);

    using Component = cm::RowSource::Component;
    // Intended: chroma has the luma's width here and still goes through the half-width duplication, so
    // that the picture's left half colours the whole of it.
    const cm::EePlanes planes{cm::RowSource(rgb, Component::kLuma),
                              cm::RowSource(rgb, Component::kCb),
                              cm::RowSource(rgb, Component::kCr),
                              cm::RowSource(rgb, Component::kLuma),
                              cm::RowSource(motion),
                              std::nullopt};
    if (!cm::block_enabled()) {
        write_copy(planes.luma, argv);
        return;
    }
    sharpen(planes, memory, argv);
}

}  // namespace

int main(int argc, char** argv) {
    cm::prepare_program();
    if (argc != kWords) {
        print_usage_and_exit(argc, argv);
    }
    std::snprintf(dbg_path, sizeof dbg_path, "%s", argv[kDbgPath]);
    dump_dbg_img = parse_int(argv[kDumpDbgImg]) != 0;
    log_file = open_log(argv[kLogFile], parse_int(argv[kLogLevel]));
    const int mode = parse_int(argv[kMode]);

    INIT_EE_REG(argv[kInsName]);
    LOAD_EE_INI(argv[kIniFile]);
    PRINT_EE_REG();
    // Intended: the text has its own name for reg_ee_enable.
    log_log(LOG_INFO, kSource, 94, "reg_pre_ee_enable = %d", cm::reg_value(reg_ee_enable));

    if (mode == 0) {
        run_rgb(argv);
    } else {
        run_ycbcr(argv);
    }
    return 0;
}
