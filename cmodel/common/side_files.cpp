// RAW planes, hexadecimal text, histograms, and a look at three neighbouring samples.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "checked_file.h"
#include "common.h"
#include "fatal.h"
#include "fixed_point.h"
#include "log_positions.h"
#include "mirror.h"
#include "pnm.h"

using cm::Wrap;

namespace {

constexpr size_t kRawBytes = 2;

void require_channel(const FRAME& frame, int c, const char* function) {
    if (c < 0 || static_cast<uint32_t>(c) >= frame.channels) {
        cm::fatal(cm::kExitFormat, "%s: no channel %d in a frame of %u\n", function, c, frame.channels);
    }
}

// Reads `size` bytes at an offset; how many there were.
size_t read_at(FILE* in, int64_t offset, uint8_t* dst, size_t size) {
    if (offset < 0 || fseeko(in, offset, SEEK_SET) != 0) {
        return 0;
    }
    return std::fread(dst, 1, size, in);
}

int32_t decode_raw(const uint8_t* row, size_t present, size_t x) {
    const size_t at = kRawBytes * x;
    const Wrap low = at < present ? row[at] : cm::kEofByte;
    const Wrap high = at + 1 < present ? row[at + 1] : cm::kEofByte;
    return low + high * 256;
}

void write_text(const char* path, const FRAME& frame, size_t channel) {
    cm::CheckedFile out(path);
    const int32_t* pixel = frame.data;
    for (uint32_t y = 0; y < frame.height; ++y) {
        for (uint32_t x = 0; x < frame.width; ++x, pixel += frame.channels) {
            out.print(x + 1 < frame.width ? "%x " : "%x\n", static_cast<uint32_t>(pixel[channel]));
        }
    }
    out.close();
}

}  // namespace

FRAME* CM_ReadRAW(const char* path, uint32_t format, int k, int layout, uint32_t width, uint32_t height,
                  int depth) {
    FILE* const in = CM_Fopen(path, "rb");
    FRAME* const frame = CM_NewFRAME(3, format, width, height, 1, depth);
    const size_t row_bytes = kRawBytes * width;
    const cm::Bytes row = cm::allocate_bytes(row_bytes);
    const int64_t first_plane = int64_t{k} + (layout == 2 ? 1 : 0);
    const int64_t planes_per_line = layout != 0 ? 3 : 2;
    size_t missing = 0;
    for (uint32_t y = 0; y < height; ++y) {
        int64_t offset = 0;
        if (__builtin_mul_overflow(first_plane + y * planes_per_line, int64_t{kRawBytes} * width, &offset)) {
            offset = -1;
        }
        const size_t present = read_at(in, offset, row.get(), row_bytes);
        if (std::ferror(in)) {
            cm::fatal(cm::kExitFile, "Unable to read file '%s': %s\n", path, std::strerror(errno));
        }
        missing += width - present / kRawBytes;
        for (size_t x = 0; x < width; ++x) {
            frame->data[size_t{y} * width + x] = decode_raw(row.get(), present, x);
        }
    }
    CM_Fclose(in);
    if (missing > 0) {
        log_log(LOG_ERROR, cm::at::kShortRaw.source, cm::at::kShortRaw.line,
                "%s ends early: %zu of %zu samples are missing", path, missing, size_t{width} * height);
    }
    return frame;
}

void CM_WriteRAW(const char* path, const FRAME* frame) {
    if (frame->format != CM_FORMAT_RAW_RGB) {
        log_log(LOG_FATAL, cm::at::kRawFormat.source, cm::at::kRawFormat.line, "File format != RAW_RGB");
        std::exit(cm::kExitFile);
    }
    cm::CheckedFile out(path);
    const size_t row_bytes = kRawBytes * frame->width;
    const cm::Bytes row = cm::allocate_bytes(row_bytes);
    const int32_t* pixel = frame->data;
    for (uint32_t y = 0; y < frame->height; ++y) {
        for (size_t x = 0; x < frame->width; ++x, pixel += frame->channels) {
            row[kRawBytes * x] = static_cast<uint8_t>(*pixel);
            row[kRawBytes * x + 1] = static_cast<uint8_t>(*pixel >> 8);
        }
        out.write(row.get(), row_bytes);
    }
    out.close();
}

void CM_WriteTXT(const char* path, const FRAME* frame) {
    write_text(path, *frame, 0);
}

void CM_WriteTXT_channel(const char* path, const FRAME* frame, int c) {
    require_channel(*frame, c, "CM_WriteTXT_channel");
    write_text(path, *frame, static_cast<size_t>(c));
}

HIST* CM_NewHIST(uint32_t bins, uint32_t second, uint32_t channels) {
    HIST* const hist = static_cast<HIST*>(std::malloc(sizeof(HIST)));
    if (hist == nullptr) {
        cm::fatal(cm::kExitFile, "(NewHIST) Unable to allocate HIST memory\n");
    }
    // At least one counter, so that an empty histogram is told from a failed allocation.
    const size_t counters = size_t{bins} * channels;
    const bool fits = counters <= PTRDIFF_MAX / sizeof(uint32_t);
    uint32_t* const data =
        fits ? static_cast<uint32_t*>(std::calloc(counters > 0 ? counters : 1, sizeof(uint32_t))) : nullptr;
    if (data == nullptr) {
        cm::fatal(cm::kExitFile, "(NewHIST) Unable to allocate data memory\n");
    }
    *hist = HIST{bins, second, channels, data};
    return hist;
}

void CM_DelHIST(HIST* hist) {
    if (hist != nullptr) {
        std::free(hist->data);
        std::free(hist);
    }
}

void CM_WriteHIST(const char* base, const HIST* hist) {
    static const char* const kSuffixes[] = {"_R", "_G", "_B", "_V", "_Y", "_IR"};
    for (uint32_t c = 0; c < hist->channels; ++c) {
        char* const path = CM_StringConcat(base, c < std::size(kSuffixes) ? kSuffixes[c] : "_");
        if (path == nullptr) {
            cm::fail_without_memory();
        }
        // Intended: a progress record, although its level says otherwise.
        log_log(LOG_FATAL, cm::at::kWriteHist.source, cm::at::kWriteHist.line, "[CM_WriteHIST] file_name :%s",
                path);
        cm::CheckedFile out(path);
        for (uint32_t b = 0; b < hist->bins; ++b) {
            out.print("%08x\n", hist->data[size_t{b} * hist->channels + c]);
        }
        out.close();
        std::free(path);
    }
}

char* CM_StringConcat(const char* a, const char* b) {
    const size_t a_size = std::strlen(a);
    const size_t b_size = std::strlen(b);
    char* const joined = static_cast<char*>(std::malloc(a_size + b_size + 1));
    if (joined != nullptr) {
        std::memcpy(joined, a, a_size);
        std::memcpy(joined + a_size, b, b_size + 1);
    }
    return joined;
}

void print_point_data_log(int x, int y, const FRAME* frame, int c, const char* name) {
    require_channel(*frame, c, "print_point_data_log");
    for (int dx = -1; dx <= 1; ++dx) {
        const int32_t at = Wrap(x) + dx;
        std::printf("x = %d, y = %d, %s = %d\n", at, y, name, cm::sample(*frame, at, y, c));
    }
}
