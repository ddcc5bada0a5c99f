// Photographs as files: JPEG, PNG, TIFF, PGM and PPM to samples in memory, and back.
//
// No global state: several threads may read and write pictures at the same time. Whatever is wrong is thrown
// as pictures::Error, one line that begins with the file's name; nothing is printed, and no file is left
// half-written.
#ifndef CMODEL_PICTURES_H
#define CMODEL_PICTURES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace pictures {

struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct FreeMemory {
    void operator()(uint8_t* p) const { std::free(p); }
};
using Memory = std::unique_ptr<uint8_t[], FreeMemory>;  // not cleared

// Fresh memory, not cleared; null when there is none.
Memory allocate(size_t size);

// What a PNG says of its colours beside an ICC profile; as libpng has it, in 1/100000.
struct PngColours {
    std::optional<int> srgb_intent;
    std::optional<int32_t> gamma;
    std::optional<std::array<int32_t, 8>> chromaticities;
};

// One picture, upright: the orientation that its file asked for is applied.
struct Picture {
    int width = 0, height = 0;  // at least 1
    int channels = 0;           // 1 grey, 2 grey and alpha, 3 red, green, blue, 4 the same and alpha
    int max = 255;              // the sample of full brightness, 1 to 65535; no sample is above it
    Memory memory;              // rows from the top without gaps, samples of a pixel side by side
    std::vector<uint8_t> icc;   // the colour profile; empty for none
    PngColours png;
    std::string remark;  // what a user should know of a file that was taken all the same; "" as a rule

    // Samples have a byte each up to a maximum of 255, else two in the machine's order.
    int sample_bytes() const { return max > 255 ? 2 : 1; }
    int colours() const { return channels < 3 ? 1 : 3; }
    bool has_alpha() const { return channels % 2 == 0; }
    size_t pixels() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
    size_t row_samples() const { return static_cast<size_t>(width) * static_cast<size_t>(channels); }
    size_t row_bytes() const { return row_samples() * static_cast<size_t>(sample_bytes()); }
    size_t bytes() const { return row_bytes() * static_cast<size_t>(height); }

    // Row y as samples of T: uint8_t or uint16_t, whichever sample_bytes() says.
    template <typename T>
    T* row(int y) {
        return static_cast<T*>(static_cast<void*>(memory.get() + static_cast<size_t>(y) * row_bytes()));
    }
    template <typename T>
    const T* row(int y) const {
        return const_cast<Picture*>(this)->row<T>(y);
    }
};

// A picture of this shape with memory that is not cleared. `name` stands in the message when there is none.
Picture new_picture(const std::string& name, int64_t width, int64_t height, int channels, int max);

// A picture of more pixels is refused before any memory is taken for it.
constexpr size_t kMostPixels = size_t{1} << 30;

// Reads the first picture of a file; which format it has is told by its first bytes.
//
// JPEG: 8 bits, grey or colour. PNG: all; fewer than 8 bits and palettes come as 8 bits. TIFF: grey and RGB
// of 8 and 16 bits as they are, fewer bits, palettes and YCbCr as 8 bits. PGM and PPM: P5 and P6 of any
// maximum. Refused: CMYK, alpha that is multiplied into the colours, samples of 32 bits, files that end early
// or are damaged (what libraries only warn of included, but for bytes too many, which become the remark).
Picture read_picture(const std::string& path, size_t most_pixels = kMostPixels);
// The same from a file's bytes.
Picture decode_picture(const uint8_t* bytes, size_t size, const std::string& name,
                       size_t most_pixels = kMostPixels);

// What a file begins like; kNone also if it cannot be read, or is a pipe, whose bytes can be had once only.
enum class Kind { kNone, kPgm, kPpm, kCompressed };
Kind kind_of(const std::string& path);

// Throws if a file of this name cannot hold such a picture whole: .png, .jpg or .jpeg (8 bits, no alpha),
// .tif or .tiff, .ppm (colour), .pgm (grey, no alpha), .pnm, in either case of letters. Asked before the
// work.
void require_format(const std::string& path, int channels, int max);
// Whether the name has one of these endings, other than those of PGM and PPM.
bool names_compressed_picture(const std::string& path);

// Writes a file of the format that its name says: into a file of another name in the same directory, which
// then takes its place. (A device or a pipe is written as it is.) JPEG is written with quality 95 and chroma
// of full width; PNG and TIFF samples of a maximum other than 255 and 65535 are scaled to the next of these,
// rounded, from which they can be had back.
void write_picture(const std::string& path, const Picture& picture);
// The bytes of such a file.
std::vector<uint8_t> encode_picture(const std::string& path, const Picture& picture);

// Writes a whole file in the same way. Throws Error.
void write_file(const std::string& path, const void* bytes, size_t size);

}  // namespace pictures

#endif
