#include "pictures.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "large_pages.h"
#include "picture_formats.h"

namespace pictures {
namespace {

enum class Format { kJpeg, kPng, kTiff, kPgm, kPpm, kPnm };

const struct {
    const char* ending;
    Format format;
} kEndings[] = {{".png", Format::kPng},  {".jpg", Format::kJpeg},  {".jpeg", Format::kJpeg},
                {".tif", Format::kTiff}, {".tiff", Format::kTiff}, {".ppm", Format::kPpm},
                {".pgm", Format::kPgm},  {".pnm", Format::kPnm}};

std::optional<Format> format_of_name(const std::string& path) {
    std::string lower = path;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const auto& [ending, format] : kEndings) {
        if (lower.ends_with(ending)) {
            return format;
        }
    }
    return {};
}

std::optional<Format> format_of_bytes(const uint8_t* bytes, size_t size) {
    using namespace std::string_view_literals;
    const std::string_view file(static_cast<const char*>(static_cast<const void*>(bytes)), size);
    const auto begins = [&](std::string_view magic) { return file.starts_with(magic); };
    if (begins("\xff\xd8\xff"sv)) {
        return Format::kJpeg;
    }
    if (begins("\x89PNG\r\n\x1a\n"sv)) {
        return Format::kPng;
    }
    // Little and big byte order, and the same with 64-bit offsets.
    if (begins("II*\0"sv) || begins("MM\0*"sv) || begins("II+\0"sv) || begins("MM\0+"sv)) {
        return Format::kTiff;
    }
    if (begins("P5"sv) || begins("P6"sv)) {
        return Format::kPnm;
    }
    return {};
}

// Pixels of kBytes each, as orientation 2 to 8 wants them: every row of `to` walks through `from` with one
// step.
template <int kBytes>
void turn(const Picture& from, Picture& to, ptrdiff_t first, ptrdiff_t step_x, ptrdiff_t step_y) {
    constexpr int kTile = 32;  // keeps both sides in the cache where rows become columns
    for (int y0 = 0; y0 < to.height; y0 += kTile) {
        for (int x0 = 0; x0 < to.width; x0 += kTile) {
            for (int y = y0; y < std::min(y0 + kTile, to.height); ++y) {
                uint8_t* out = to.row<uint8_t>(y) + static_cast<ptrdiff_t>(x0) * kBytes;
                const uint8_t* in = from.memory.get() + (first + x0 * step_x + y * step_y) * kBytes;
                for (int x = x0; x < std::min(x0 + kTile, to.width); ++x) {
                    std::memcpy(out, in, kBytes);
                    out += kBytes;
                    in += step_x * kBytes;
                }
            }
        }
    }
}

Picture upright(Picture from, int orientation, const std::string& name) {
    if (orientation < 2 || orientation > 8) {
        return from;
    }
    const bool swaps = orientation > 4;
    Picture to = new_picture(name, swaps ? from.height : from.width, swaps ? from.width : from.height,
                             from.channels, from.max);
    // Where the left edge, and the top, of the upright picture lie in the stored one.
    const bool from_right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool from_bottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    const ptrdiff_t across = from_right ? -1 : 1;
    const ptrdiff_t down = (from_bottom ? -1 : 1) * static_cast<ptrdiff_t>(from.width);
    const ptrdiff_t first = (from_right ? from.width - 1 : 0) +
                            (from_bottom ? from.height - 1 : 0) * static_cast<ptrdiff_t>(from.width);
    const ptrdiff_t step_x = swaps ? down : across, step_y = swaps ? across : down;
    switch (from.channels * from.sample_bytes()) {
        case 1:
            turn<1>(from, to, first, step_x, step_y);
            break;
        case 2:
            turn<2>(from, to, first, step_x, step_y);
            break;
        case 3:
            turn<3>(from, to, first, step_x, step_y);
            break;
        case 4:
            turn<4>(from, to, first, step_x, step_y);
            break;
        case 6:
            turn<6>(from, to, first, step_x, step_y);
            break;
        default:
            turn<8>(from, to, first, step_x, step_y);
    }
    to.icc = std::move(from.icc);
    to.png = from.png;
    to.remark = std::move(from.remark);
    return to;
}

// The same picture with another maximum, not below its own: rounded, so that scaling back gives the samples
// again.
template <typename From, typename To>
void scale_samples(const Picture& from, Picture& to) {
    const auto max = static_cast<uint32_t>(from.max), wanted = static_cast<uint32_t>(to.max);
    for (int y = 0; y < from.height; ++y) {
        const From* const in = from.row<From>(y);
        To* const out = to.row<To>(y);
        for (size_t i = 0; i < from.row_samples(); ++i) {
            out[i] = static_cast<To>((uint64_t{in[i]} * wanted + max / 2) / max);
        }
    }
}

Picture scaled_to(int max, const Picture& from, const std::string& name) {
    Picture to = new_picture(name, from.width, from.height, from.channels, max);
    if (from.max > 255) {
        scale_samples<uint16_t, uint16_t>(from, to);
    } else {
        scale_samples<uint8_t, uint8_t>(from, to);
    }
    to.icc = from.icc;
    to.png = from.png;
    return to;
}

[[noreturn]] void fail_with_errno(const std::string& path, const char* done) {
    throw Error(path + " cannot be " + done + ": " + std::strerror(errno));
}

// A file descriptor that closes itself.
struct Descriptor {
    int fd;
    explicit Descriptor(int f) : fd(f) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    int close() {
        const int result = ::close(fd);
        fd = -1;
        return result;
    }
};

Bytes read_file(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.fd < 0) {
        fail_with_errno(path, "read");
    }
    struct stat info;
    Bytes bytes;
    size_t size = 0;
    if (::fstat(file.fd, &info) == 0 && S_ISREG(info.st_mode)) {
        bytes.resize(static_cast<size_t>(info.st_size) + 1);  // one more, to see the end
    }
    for (;;) {
        if (size == bytes.size()) {
            bytes.resize(std::max(size_t{1} << 16, 2 * size));
        }
        const ssize_t n = ::read(file.fd, bytes.data() + size, bytes.size() - size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            fail_with_errno(path, "read");
        }
        if (n == 0) {
            break;
        }
        size += static_cast<size_t>(n);
    }
    bytes.resize(size);
    return bytes;
}

bool write_all(int fd, const uint8_t* bytes, size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, bytes, size);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        bytes += std::max<ssize_t>(n, 0);
        size -= static_cast<size_t>(std::max<ssize_t>(n, 0));
    }
    return true;
}

}  // namespace

Memory allocate(size_t size) {
    Memory memory(static_cast<uint8_t*>(std::malloc(size)));
    cm::advise_large_pages(memory.get(), size);
    return memory;
}

Picture new_picture(const std::string& name, int64_t width, int64_t height, int channels, int max) {
    Picture picture;
    picture.width = static_cast<int>(width);
    picture.height = static_cast<int>(height);
    picture.channels = channels;
    picture.max = max;
    picture.memory = allocate(picture.bytes());
    if (picture.memory == nullptr) {
        throw Error(name + ": no memory for " + std::to_string(width) + "x" + std::to_string(height) +
                    " pixels");
    }
    return picture;
}

void Source::fail(std::string what) const {
    std::replace_if(
        what.begin(), what.end(), [](char c) { return c >= 0 && c < ' '; }, ' ');
    throw Error(name + ": " + what);
}

Picture Source::room(int64_t width, int64_t height, int channels, int max) const {
    if (width < 1 || height < 1) {
        fail("its size is " + std::to_string(width) + "x" + std::to_string(height));
    }
    if (width > INT32_MAX || height > INT32_MAX ||
        static_cast<size_t>(width) > most_pixels / static_cast<size_t>(height)) {
        fail("has " + std::to_string(width) + "x" + std::to_string(height) + " pixels; " +
             std::to_string(most_pixels) + " are the most");
    }
    return new_picture(name, width, height, channels, max);
}

Picture decode_picture(const uint8_t* bytes, size_t size, const std::string& name, size_t most_pixels) {
    const Source source{bytes, size, name, most_pixels};
    try {
        Stored stored;
        switch (format_of_bytes(bytes, size).value_or(Format::kPgm)) {
            case Format::kJpeg:
                stored = read_jpeg(source);
                break;
            case Format::kPng:
                stored = read_png(source);
                break;
            case Format::kTiff:
                stored = read_tiff(source);
                break;
            case Format::kPnm:
                stored = read_pnm(source);
                break;
            default:
                source.fail(size == 0 ? "is empty" : "is no JPEG, PNG, TIFF, PGM (P5) or PPM (P6) picture");
        }
        return upright(std::move(stored.picture), stored.orientation, name);
    } catch (const std::bad_alloc&) {
        source.fail("no memory to read it");
    }
}

Picture read_picture(const std::string& path, size_t most_pixels) {
    Bytes bytes;
    try {
        bytes = read_file(path);
    } catch (const std::bad_alloc&) {
        throw Error(path + ": no memory to read it");
    }
    return decode_picture(bytes.data(), bytes.size(), path, most_pixels);
}

Kind kind_of(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return Kind::kNone;
    }
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    uint8_t bytes[8] = {};
    const ssize_t n = file.fd < 0 ? 0 : ::read(file.fd, bytes, sizeof bytes);
    const auto format = format_of_bytes(bytes, static_cast<size_t>(std::max<ssize_t>(n, 0)));
    return !format                   ? Kind::kNone
           : *format != Format::kPnm ? Kind::kCompressed
           : bytes[1] == '5'         ? Kind::kPgm
                                     : Kind::kPpm;
}

bool names_compressed_picture(const std::string& path) {
    const std::optional<Format> format = format_of_name(path);
    return format && (*format == Format::kJpeg || *format == Format::kPng || *format == Format::kTiff);
}

void require_format(const std::string& path, int channels, int max) {
    const std::optional<Format> format = format_of_name(path);
    if (!format) {
        throw Error(path + ": a name ends in .png, .jpg, .tif, .ppm or .pgm, which says the format");
    }
    const bool alpha = channels % 2 == 0, colour = channels > 2;
    if (alpha && *format != Format::kPng && *format != Format::kTiff) {
        throw Error(path + ": the picture has alpha, which only .png and .tif hold");
    }
    if (max > 255 && *format == Format::kJpeg) {
        throw Error(path + ": the picture has more than 8 bits a sample, which .png, .tif and .ppm hold");
    }
    if (colour && *format == Format::kPgm) {
        throw Error(path + ": the picture has colours, which .png, .jpg, .tif and .ppm hold");
    }
    if (!colour && *format == Format::kPpm) {
        throw Error(path + ": the picture is grey, which .png, .jpg, .tif and .pgm hold");
    }
}

std::vector<uint8_t> encode_picture(const std::string& path, const Picture& picture) {
    require_format(path, picture.channels, picture.max);
    const Format format = *format_of_name(path);
    const bool is_pnm = format == Format::kPgm || format == Format::kPpm || format == Format::kPnm;
    const int full = picture.max > 255 ? 65535 : 255;
    try {
        if (picture.max != full && !is_pnm) {
            return encode_picture(path, scaled_to(full, picture, path));
        }
        return format == Format::kJpeg   ? write_jpeg(path, picture)
               : format == Format::kPng  ? write_png(path, picture)
               : format == Format::kTiff ? write_tiff(path, picture)
                                         : write_pnm(path, picture);
    } catch (const std::bad_alloc&) {
        throw Error(path + ": no memory to write it");
    }
}

void write_file(const std::string& path, const void* data, size_t size) {
    const auto* const bytes = static_cast<const uint8_t*>(data);
    struct stat info;
    const bool exists = ::stat(path.c_str(), &info) == 0;
    if (exists && !S_ISREG(info.st_mode)) {
        Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
        if (file.fd < 0 || !write_all(file.fd, bytes, size) || file.close() != 0) {
            fail_with_errno(path, "written");
        }
        return;
    }
    std::error_code error;
    const std::filesystem::path real =
        exists ? std::filesystem::canonical(path, error) : std::filesystem::path(path);
    if (error || (exists && ::access(real.c_str(), W_OK) != 0)) {
        fail_with_errno(path, "written");
    }
    static std::atomic<unsigned> count{0};  // of files, so that no two threads share a name
    const std::string passing = (real.parent_path() / ".eetool.").string() + std::to_string(::getpid()) +
                                "." + std::to_string(count.fetch_add(1));
    Descriptor file(::open(passing.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file.fd < 0) {
        fail_with_errno(path, "written");
    }
    const bool kept = !exists || ::fchmod(file.fd, info.st_mode & 07777) == 0;
    if (!kept || !write_all(file.fd, bytes, size) || file.close() != 0 ||
        std::rename(passing.c_str(), real.c_str()) != 0) {
        const int why = errno;
        ::unlink(passing.c_str());
        errno = why;
        fail_with_errno(path, "written");
    }
}

void write_picture(const std::string& path, const Picture& picture) {
    const Bytes bytes = encode_picture(path, picture);
    write_file(path, bytes.data(), bytes.size());
}

}  // namespace pictures
