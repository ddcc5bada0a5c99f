// Binary PGM/PPM files. Payloads move whole; headers are parsed with range checks.
#include "pnm.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <limits>

#include "checked_file.h"
#include "common.h"
#include "fatal.h"
#include "fixed_point.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr size_t kWriteChunk = size_t{1} << 16;
constexpr const char* kComment = "# Created by KORVEN DPU Model\n";

// ---- Reading ----

enum class LoadError { kNone, kNoData, kMagic, kSize, kMax, kRead };

// The magic line: at most 15 characters up to and including the newline; only two of them count.
LoadError read_magic(FILE* in, PnmKind kind) {
    char line[15];
    int n = 0;
    for (int c = 0; n < 15 && c != '\n' && (c = std::getc(in)) != EOF;) {
        line[n++] = static_cast<char>(c);
    }
    if (n == 0) {
        if (!std::ferror(in)) {
            errno = ENODATA;  // an empty file sets none
        }
        return LoadError::kNoData;
    }
    const bool ok = n >= 2 && line[0] == 'P' && line[1] == static_cast<char>(kind);
    return ok ? LoadError::kNone : LoadError::kMagic;
}

// Skips up to and including the next newline; false at end of file.
bool skip_line(FILE* in) {
    int c;
    while ((c = std::getc(in)) != EOF) {
        if (c == '\n') {
            return true;
        }
    }
    return false;
}

void skip_comments(FILE* in) {
    int c;
    while ((c = std::getc(in)) == '#') {
        skip_line(in);
    }
    if (c != EOF) {
        std::ungetc(c, in);
    }
}

// A decimal number in 1..limit after optional white space and sign.
bool scan_number(FILE* in, uint64_t limit, uint64_t& value) {
    int c;
    do {
        c = std::getc(in);
    } while (c != EOF && std::isspace(c));
    const bool negative = c == '-';
    if (c == '-' || c == '+') {
        c = std::getc(in);
    }
    bool digits = false;
    value = 0;
    for (; c >= '0' && c <= '9'; c = std::getc(in)) {
        digits = true;
        value = value > limit ? value : value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (c != EOF) {
        std::ungetc(c, in);
    }
    return digits && !negative && value >= 1 && value <= limit;
}

LoadError read_header(FILE* in, PnmKind kind, PackedImage& image) {
    const LoadError magic = read_magic(in, kind);
    if (magic != LoadError::kNone) {
        return magic;
    }
    skip_comments(in);
    constexpr uint64_t kMaxSide = std::numeric_limits<int32_t>::max();
    uint64_t width = 0;
    uint64_t height = 0;
    uint64_t max_value = 0;
    if (!scan_number(in, kMaxSide, width) || !scan_number(in, kMaxSide, height)) {
        return LoadError::kSize;
    }
    // A frame of 32-bit samples must be addressable, whatever the file's own sample size.
    const uint64_t channels = kind == PnmKind::kColour ? 3 : 1;
    if (width * height > static_cast<uint64_t>(PTRDIFF_MAX) / (channels * sizeof(int32_t))) {
        return LoadError::kSize;
    }
    if (!scan_number(in, std::numeric_limits<uint32_t>::max(), max_value) || !skip_line(in)) {
        return LoadError::kMax;
    }
    image.width = static_cast<uint32_t>(width);
    image.height = static_cast<uint32_t>(height);
    image.channels = static_cast<uint32_t>(channels);
    image.max_value = static_cast<uint32_t>(max_value);
    image.depth = static_cast<int>(std::ceil(std::log2(static_cast<double>(max_value))));
    image.sample_bytes = (image.depth + 7) / 8;
    return LoadError::kNone;
}

// Prints what is wrong with a file; the texts are the ones that scripts look for. To be called before
// anything else sets errno.
void print_load_error(LoadError error, PnmKind kind, const char* path) {
    switch (error) {
        case LoadError::kNoData:
            std::perror(path);
            break;
        case LoadError::kMagic:
            std::fprintf(stderr, "Invalid image format (must be 'P%c') (error loading '%s')\n",
                         static_cast<char>(kind), path);
            break;
        case LoadError::kSize:
            std::fprintf(stderr, "Invalid image size (error loading '%s')\n", path);
            break;
        case LoadError::kMax:
            std::fprintf(stderr, "Invalid max_rgb (error loading '%s')\n", path);
            break;
        case LoadError::kRead:
            std::fprintf(stderr, "Unable to read file '%s': %s\n", path, std::strerror(errno));
            break;
        case LoadError::kNone:
            break;
    }
}

LoadError read_payload(FILE* in, PackedImage& image, PlaneMemory* memory) {
    const size_t size = image.samples() * static_cast<size_t>(image.sample_bytes);
    image.bytes = memory != nullptr ? memory->take(size) : allocate_bytes(size);
    image.present = size > 0 ? std::fread(image.bytes.get(), 1, size, in) : 0;
    return std::ferror(in) ? LoadError::kRead : LoadError::kNone;
}

void log_depth(const PackedImage& image, PnmKind kind, const LogPosition& position) {
    const int max_value = from_bits(image.max_value);
    if (kind == PnmKind::kColour) {
        log_log(LOG_DEBUG, position.source, position.line, "Color depth (%d) max_rgb:(%d)", image.depth,
                max_value);
    } else {
        log_log(LOG_DEBUG, position.source, position.line, "Color depth (%d) max_rgb:(%d)\n", image.depth,
                max_value);
    }
}

void log_missing_samples(const PackedImage& image, const char* path) {
    if (!image.complete()) {
        const size_t whole = image.present / static_cast<size_t>(image.sample_bytes);
        log_log(LOG_ERROR, at::kShortImage.source, at::kShortImage.line,
                "%s ends early: %zu of %zu samples are missing", path, image.samples() - whole,
                image.samples());
    }
}

// Opens, reads and closes. On an error the message has been printed and `image` is unfinished. An image
// larger than `room`, if given, is refused before any memory is taken for it.
LoadError load_pnm(const char* path, PnmKind kind, const LogPosition& position, PackedImage& image,
                   PlaneMemory* memory, const FRAME* room) {
    FILE* const in = CM_Fopen(path, "rb");
    LoadError error = read_header(in, kind, image);
    if (error == LoadError::kNone) {
        log_depth(image, kind, position);
        if (room != nullptr && (image.width > room->width || image.height > room->height)) {
            error = LoadError::kSize;
        } else {
            error = read_payload(in, image, memory);
        }
    }
    if (error != LoadError::kNone) {
        print_load_error(error, kind, path);
    }
    CM_Fclose(in);
    if (error == LoadError::kNone) {
        log_missing_samples(image, path);
    }
    return error;
}

// Big-endian samples of one plane, `step` bytes apart.
template <int kBytes, typename T>
CM_INLINE void decode_samples(const uint8_t* src, size_t step, uint32_t mask, T* __restrict dst, int count) {
    for (int x = 0; x < count; ++x) {
        uint32_t v = 0;
        for (int k = 0; k < kBytes; ++k) {
            v = v << 8 | src[static_cast<size_t>(x) * step + static_cast<size_t>(k)];
        }
        dst[x] = static_cast<T>(v & mask);
    }
}

CM_ROW_TEMPLATE(decode_row,
                (const uint8_t* src, size_t channels, int bytes, uint32_t mask, T* dst, int count),
                (src, channels, bytes, mask, dst, count)) {
    switch (bytes) {
        // The usual files, with steps that the compiler knows.
        case 1:
            if (channels == 1) {
                decode_samples<1>(src, 1, mask, dst, count);
            } else {
                decode_samples<1>(src, 3, mask, dst, count);
            }
            break;
        case 2:
            if (channels == 1) {
                decode_samples<2>(src, 2, mask, dst, count);
            } else {
                decode_samples<2>(src, 6, mask, dst, count);
            }
            break;
        case 0:
            decode_samples<0>(src, 0, mask, dst, count);
            break;
        case 3:
            decode_samples<3>(src, 3 * channels, mask, dst, count);
            break;
        default:
            decode_samples<4>(src, 4 * channels, mask, dst, count);
            break;
    }
}

// Sample number `index` of a file that may have ended before or within it.
int32_t decode_short_sample(const PackedImage& image, size_t index) {
    Wrap v = 0;
    for (int k = 0; k < image.sample_bytes; ++k) {
        const size_t at = index * static_cast<size_t>(image.sample_bytes) + static_cast<size_t>(k);
        v = v * 256 + (at < image.present ? image.bytes[at] : kEofByte);
    }
    return v;
}

void fill_frame(const PackedImage& image, FRAME& frame) {
    std::unique_ptr<int32_t[], FreeBytes> row(
        static_cast<int32_t*>(static_cast<void*>(allocate_bytes(image.width * sizeof(int32_t)).release())));
    for (uint32_t y = 0; y < image.height; ++y) {
        for (uint32_t c = 0; c < image.channels; ++c) {
            image.read_row(y, c, 0, image.width, row.get());
            int32_t* const dst = frame.data + size_t{frame.channels} * y * frame.width + c;
            for (uint32_t x = 0; x < image.width; ++x) {
                dst[size_t{frame.channels} * x] = row[x];
            }
        }
    }
}

FRAME* frame_from(const PackedImage& image, uint32_t file_type, uint32_t format) {
    FRAME* const frame =
        CM_NewFRAME(file_type, format, image.width, image.height, image.channels, image.depth);
    fill_frame(image, *frame);
    return frame;
}

// ---- Writing ----

void print_size(CheckedFile& out, PnmKind kind, uint32_t width, uint32_t height) {
    out.print("P%c\n%s%d %d\n", static_cast<char>(kind), kComment, static_cast<int>(width),
              static_cast<int>(height));
}

// Intended: the exponent of P6's max value counts modulo 32.
void print_header(CheckedFile& out, PnmKind kind, int width, int height, int depth) {
    print_size(out, kind, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
    if (kind == PnmKind::kGrey) {
        out.print("%u\n", written_max(depth));
    } else {
        out.print("%d\n", int32_t{pow2_mod32(depth) - Wrap(1)});
    }
}

void print_header(CheckedFile& out, PnmKind kind, const FRAME& frame) {
    print_header(out, kind, static_cast<int>(frame.width), static_cast<int>(frame.height), frame.depth);
}

CM_ROW_FUNCTION(grey_pixels_row, (const int32_t* src, uint8_t* __restrict dst, size_t count),
                (src, dst, count)) {
    for (size_t i = 0; i < count; ++i) {
        const uint8_t v = static_cast<uint8_t>(src[i]);
        dst[3 * i] = v;
        dst[3 * i + 1] = v;
        dst[3 * i + 2] = v;
    }
}

// Writes the samples of a frame chunk by chunk: channel 0 alone, or three samples a pixel (channels
// 0, 1, 2 of a three-channel frame, else channel 0 three times). `convert` maps a sample first.
template <typename Convert>
void write_samples(CheckedFile& out, const FRAME& frame, PnmKind kind, int sample_bytes, Convert convert) {
    const size_t pixels = size_t{frame.width} * frame.height;
    const size_t per_pixel = kind == PnmKind::kColour ? 3 : 1;
    const size_t channel_step = kind == PnmKind::kColour && frame.channels == 3 ? 1 : 0;
    const size_t chunk = kWriteChunk / (3 * 4);
    int32_t samples[kWriteChunk / 4];
    uint8_t bytes[kWriteChunk];
    for (size_t first = 0; first < pixels; first += chunk) {
        const size_t count = pixels - first < chunk ? pixels - first : chunk;
        const int32_t* const src = frame.data + first * frame.channels;
        for (size_t i = 0; i < count; ++i) {
            for (size_t k = 0; k < per_pixel; ++k) {
                samples[i * per_pixel + k] = convert(src[i * frame.channels + k * channel_step]);
            }
        }
        pack_samples(samples, count * per_pixel, sample_bytes, bytes);
        out.write(bytes, count * per_pixel * static_cast<size_t>(sample_bytes));
    }
}

// One-channel frames of 8 bits, as almost all debug images are, need no conversion.
void write_bytes(CheckedFile& out, const FRAME& frame, PnmKind kind) {
    const size_t pixels = size_t{frame.width} * frame.height;
    uint8_t bytes[kWriteChunk];
    for (size_t first = 0; first < pixels; first += kWriteChunk / 3) {
        const size_t count = std::min(pixels - first, kWriteChunk / 3);
        if (kind == PnmKind::kColour) {
            grey_pixels(frame.data + first, bytes, count);
            out.write(bytes, 3 * count);
        } else {
            pack_samples(frame.data + first, count, 1, bytes);
            out.write(bytes, count);
        }
    }
}

void write_frame(CheckedFile& out, const FRAME& frame, PnmKind kind) {
    if (frame.channels == 1 && frame.depth <= 8) {
        write_bytes(out, frame, kind);
    } else {
        write_samples(out, frame, kind, written_bytes(frame.depth), [](int32_t v) { return v; });
    }
}

void write_clipped(const char* path, const FRAME& frame, PnmKind kind, int target_depth,
                   const LogPosition& position) {
    CheckedFile out(path);
    print_size(out, kind, frame.width, frame.height);
    if (target_depth < 1 || target_depth > 32) {
        out.close();
        log_log(LOG_ERROR, position.source, position.line,
                "CM_WritePPM5_CLIP_target_depth error, target depth = '%d'", target_depth);
        std::exit(kExitFile);
    }
    // Intended: the exponent counts modulo 32, so a depth of 32 clips every sample to 0.
    const uint32_t limit = to_bits(pow2_mod32(target_depth)) - 1;
    out.print("%u\n", limit);
    write_samples(out, frame, kind, written_bytes(target_depth), [limit](int32_t v) -> int32_t {
        const uint32_t positive = v < 0 ? 0 : static_cast<uint32_t>(v);
        return static_cast<int32_t>(positive < limit ? positive : limit);
    });
    out.close();
}

}  // namespace

template <typename T>
void PackedImage::read_row(uint32_t y, uint32_t c, uint32_t x, uint32_t count, T* dst) const {
    const uint32_t mask = channels == 3 ? max_value : ~uint32_t{0};
    const size_t first = (size_t{y} * width + x) * channels + c;
    if ((first + (size_t{count} - 1) * channels + 1) * static_cast<size_t>(sample_bytes) <= present) {
        decode_row(bytes.get() + first * static_cast<size_t>(sample_bytes), channels, sample_bytes, mask, dst,
                   static_cast<int>(count));
        return;
    }
    // The file ends in or before these samples. The sample at which the end was met and, in each later
    // pixel, the first channel hold end-of-file bytes; the other channels were never reached.
    const size_t whole = present / static_cast<size_t>(sample_bytes);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t index = first + size_t{i} * channels;
        const bool reached = index <= whole || c == 0;
        const Wrap v = reached ? from_bits(to_bits(decode_short_sample(*this, index)) & mask) : Wrap(0);
        dst[i] = static_cast<T>(int32_t{v});
    }
}
template void PackedImage::read_row(uint32_t, uint32_t, uint32_t, uint32_t, int32_t*) const;
template void PackedImage::read_row(uint32_t, uint32_t, uint32_t, uint32_t, int16_t*) const;

PackedImage read_pnm(const char* path, PnmKind kind, const LogPosition& position, PlaneMemory* memory) {
    PackedImage image;
    if (load_pnm(path, kind, position, image, memory, nullptr) != LoadError::kNone) {
        std::exit(kExitFile);
    }
    return image;
}

std::string read_whole_pnm(const std::string& path, PnmKind kind, PackedImage& image,
                           std::vector<uint8_t>& room) {
    const auto cannot = [&](int error) { return path + " cannot be read: " + std::strerror(error); };
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return cannot(errno);
    }
    struct stat info;
    const bool is_file = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    FILE* const opened = is_file ? fdopen(fd, "rb") : nullptr;
    if (opened == nullptr) {
        const int error = errno;
        close(fd);
        return is_file ? cannot(error) : path + " is no regular file";
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> in(opened, std::fclose);
    const LoadError error = read_header(in.get(), kind, image);
    if (std::ferror(in.get()) != 0) {
        return cannot(errno);
    }
    const char grey = static_cast<char>(kind);
    switch (error) {
        case LoadError::kNone:
            break;
        case LoadError::kSize:
            return path + " has no size that an image can have";
        case LoadError::kMax:
            return path + " has no greatest value that an image can have";
        default:
            return path + " is no image of kind P" + grey;
    }
    const size_t size = image.samples() * static_cast<size_t>(image.sample_bytes);
    const size_t start = static_cast<size_t>(ftello(in.get()));
    const size_t there = std::min(size, static_cast<size_t>(info.st_size) - start);
    if (there == size) {
        room.resize(std::max(room.size(), size));
        image.bytes = Bytes(room.data(), FreeBytes{false});
        image.present = size > 0 ? std::fread(room.data(), 1, size, in.get()) : 0;
    }
    if (std::ferror(in.get()) != 0) {
        return cannot(errno);
    }
    return image.complete() && there == size ? ""
                                             : path + " ends early: " + std::to_string(there) + " of " +
                                                   std::to_string(size) + " bytes of samples";
}

int written_bytes(int depth) {
    return depth <= 8 ? 1 : depth <= 16 ? 2 : depth <= 24 ? 3 : 4;
}

uint32_t written_max(int depth) {
    return depth < 32 ? to_bits(pow2_mod32(depth)) - 1 : ~uint32_t{0};
}

CM_ROW_TEMPLATE(pack_bytes_row, (const T* src, uint8_t* __restrict dst, size_t count), (src, dst, count)) {
    for (size_t i = 0; i < count; ++i) {
        dst[i] = static_cast<uint8_t>(src[i]);
    }
}

void pack_samples(const int32_t* src, size_t count, int sample_bytes, uint8_t* dst) {
    if (sample_bytes == 1) {
        pack_bytes_row(src, dst, count);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        const uint32_t v = static_cast<uint32_t>(src[i]);
        for (int shift = 8 * (sample_bytes - 1); shift >= 0; shift -= 8) {
            *dst++ = static_cast<uint8_t>(v >> shift);
        }
    }
}

void grey_pixels(const int32_t* src, uint8_t* dst, size_t count) {
    grey_pixels_row(src, dst, count);
}

void pack_samples(const int16_t* src, size_t count, uint8_t* dst) {
    pack_bytes_row(src, dst, count);
}

void write_rows(const std::string& path, PnmKind kind, int width, int height, int depth,
                const MakeRow& make_row) {
    CheckedFile out(path.c_str());
    print_header(out, kind, width, height, depth);
    // Some rows a write: each goes through the cache once, and the file system is called seldom.
    const size_t row_bytes = static_cast<size_t>(width) * static_cast<size_t>(written_bytes(depth)) *
                             (kind == PnmKind::kColour ? 3 : 1);
    const int rows_at_once = static_cast<int>(std::max<size_t>(1, 4 * kWriteChunk / row_bytes));
    const Bytes rows = allocate_bytes(row_bytes * static_cast<size_t>(rows_at_once));
    for (int first = 0; first < height; first += rows_at_once) {
        const int count = std::min(rows_at_once, height - first);
        for (int k = 0; k < count; ++k) {
            make_row(first + k, rows.get() + static_cast<size_t>(k) * row_bytes);
        }
        out.write(rows.get(), static_cast<size_t>(count) * row_bytes);
    }
    out.close();
}

std::string pgm_header(uint32_t width, uint32_t height, int depth) {
    return std::string("P5\n") + kComment + std::to_string(width) + " " + std::to_string(height) + "\n" +
           std::to_string(written_max(depth)) + "\n";
}

void write_pgm(const char* path, uint32_t width, uint32_t height, int depth, const uint8_t* packed) {
    CheckedFile out(path);
    print_header(out, PnmKind::kGrey, static_cast<int>(width), static_cast<int>(height), depth);
    out.write(packed, size_t{width} * height * static_cast<size_t>(written_bytes(depth)));
    out.close();
}

}  // namespace cm

FRAME* CM_ReadPPM(const char* path, uint32_t file_type) {
    return cm::frame_from(cm::read_pnm(path, cm::PnmKind::kColour, cm::at::kReadColour), file_type,
                          CM_FORMAT_RGB);
}

FRAME* CM_ReadPPM5(const char* path, uint32_t file_type) {
    return cm::frame_from(cm::read_pnm(path, cm::PnmKind::kGrey, cm::at::kReadGrey), file_type,
                          CM_FORMAT_SINGLE);
}

int CM_ReadPPM5_safe(const char* path, FRAME* frame) {
    cm::PackedImage image;
    if (cm::load_pnm(path, cm::PnmKind::kGrey, cm::at::kReadIntoFrame, image, nullptr, frame) !=
        cm::LoadError::kNone) {
        return -1;
    }
    cm::fill_frame(image, *frame);
    return 0;
}

void CM_WritePPM5(const char* path, const FRAME* frame) {
    cm::CheckedFile out(path);
    cm::print_header(out, cm::PnmKind::kGrey, *frame);
    cm::write_frame(out, *frame, cm::PnmKind::kGrey);
    out.close();
}

void CM_WritePPM(const char* path, const FRAME* frame) {
    cm::CheckedFile out(path);
    cm::print_header(out, cm::PnmKind::kColour, *frame);
    cm::write_frame(out, *frame, cm::PnmKind::kColour);
    out.close();
}

void CM_WritePPM_CLIP(const char* path, const FRAME* frame, int target_depth) {
    cm::write_clipped(path, *frame, cm::PnmKind::kColour, target_depth, cm::at::kClipColourDepth);
}

void CM_WritePPM5_CLIP(const char* path, const FRAME* frame, int target_depth) {
    cm::write_clipped(path, *frame, cm::PnmKind::kGrey, target_depth, cm::at::kClipGreyDepth);
}
