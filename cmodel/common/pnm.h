// Binary PGM/PPM files as packed samples, the form in which the driver keeps its planes.
#ifndef CMODEL_PNM_H
#define CMODEL_PNM_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "log_positions.h"
#include "plane_memory.h"

namespace cm {

inline constexpr int kEofByte = -1;  // what a byte past the end of a file counts as

enum class PnmKind : char { kGrey = '5', kColour = '6' };

// One image as it stands in its file: interleaved samples of 0..4 big-endian bytes. A file that
// ends early has fewer bytes than its size asks for; samples beyond them read as end-of-file bytes.
struct PackedImage {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;
    uint32_t max_value = 0;
    int depth = 0;         // ceil(log2(max_value))
    int sample_bytes = 0;  // depth rounded up to bytes
    size_t present = 0;    // bytes that the file had
    Bytes bytes;

    size_t samples() const { return size_t{width} * height * channels; }
    bool complete() const { return present == samples() * static_cast<size_t>(sample_bytes); }

    // Samples x .. x + count - 1 of channel c in row y. Those that do not fit T keep their low bits.
    template <typename T>
    void read_row(uint32_t y, uint32_t c, uint32_t x, uint32_t count, T* dst) const;
};

// Reads a whole file, unlocked and closed on return. `position` is that of the depth record. The
// samples come from `memory`, which must outlive them, or from the heap. A bad header ends the program.
PackedImage read_pnm(const char* path, PnmKind kind, const LogPosition& position,
                     PlaneMemory* memory = nullptr);

// Reads a whole regular file that nobody writes meanwhile; its samples lie in `room`, which grows as needed.
// Nothing waits, locks, logs or ends the program. Returns "", or what is wrong, as one line that begins with
// the path: also of a file that ends early, for which no memory is taken.
std::string read_whole_pnm(const std::string& path, PnmKind kind, PackedImage& image,
                           std::vector<uint8_t>& room);

// Bytes a sample takes in a file of this depth (1..4), and the P5 header's max value.
int written_bytes(int depth);
uint32_t written_max(int depth);

// Big-endian samples, `count` of them; of bytes, one each.
void pack_samples(const int32_t* src, size_t count, int sample_bytes, uint8_t* dst);
void pack_samples(const int16_t* src, size_t count, uint8_t* dst);

// Writes a P6 (or P5) file row by row; `make_row` fills three samples a pixel (or one), big-endian. A failing
// write ends the program.
using MakeRow = std::function<void(int y, uint8_t* pixels)>;
void write_rows(const std::string& path, PnmKind kind, int width, int height, int depth,
                const MakeRow& make_row);

// One sample as three equal channels, bits above the eighth dropped.
void grey_pixels(const int32_t* src, uint8_t* dst, size_t count);

// What stands before the samples of a P5 file of this model's.
std::string pgm_header(uint32_t width, uint32_t height, int depth);

// Writes a whole P5 file from packed samples. A failing write ends the program.
void write_pgm(const char* path, uint32_t width, uint32_t height, int depth, const uint8_t* packed);

}  // namespace cm

#endif
