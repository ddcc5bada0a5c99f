// Clips: Y4M and raw planes, read frame by frame from files or pipes; frames as planes of the model; Y4M
// written.
//
// Of a frame the model sees, by these rules:
//   luma     measured and sharpened with 8 bits: deeper luma is rounded, (v + 2^(d-9)) >> (d-8), at most 255
//   yfusion  luma as it is, with its own depth
//   chroma   8 bits, rounded alike; of 4:2:0 row y is row y / 2 of the clip; mono has 128 everywhere
// Odd sizes have chroma rounded up.
#ifndef CMODEL_BATCH_CLIP_H
#define CMODEL_BATCH_CLIP_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cmodel.h"
#include "fd.h"

namespace eetool {

inline constexpr int kMostSide = 1 << 16;  // of a clip's frames

enum class Chroma { kMono, k420, k422 };

// What a frame looks like in a clip: planes of 8-bit, or little-endian 16-bit samples.
struct ClipFormat {
    int width = 0, height = 0;
    int depth = 8;  // 8 to 16
    Chroma chroma = Chroma::k420;
    bool interleaved = false;  // Cb and Cr in pairs (NV12)

    size_t sample_bytes() const { return depth > 8 ? 2 : 1; }
    size_t luma_samples() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
    int chroma_width() const { return chroma == Chroma::kMono ? 0 : (width + 1) / 2; }
    int chroma_height() const { return chroma == Chroma::k420 ? (height + 1) / 2 : height; }
    size_t chroma_samples() const {  // of each
        return static_cast<size_t>(chroma_width()) * static_cast<size_t>(chroma_height());
    }
    size_t frame_bytes() const { return (luma_samples() + 2 * chroma_samples()) * sample_bytes(); }
};

// A clip without a header: i420, nv12, i422 or mono. Throws Cannot for another name, a size outside
// 1..65536, a depth outside 8..16, and NV12 deeper than 8 bits.
struct RawFormat {
    RawFormat(const std::string& name, int width, int height, int depth);
    std::string name;
    ClipFormat format;
};

struct Y4mHeader {
    ClipFormat format;
    std::string others;  // the parameters but W, H and C, each with a blank before it
    std::string colour;  // the text after C; "" for none
};

// From the first line, without its end. Throws Cannot with what is wrong, without a path.
Y4mHeader parse_y4m_header(const std::string& line);

// The header of a clip with 8 bits a sample that has the chroma of `header` (or of a raw clip, at `rate`
// frames a second, "25:1").
std::string y4m_header_line(const Y4mHeader& header);
Y4mHeader header_of(const RawFormat& raw, const std::string& rate);

// A clip read from front to back: a file, or "-" for standard input. Everything throws Cannot, which names
// the clip and the frame: what is no clip, a header that ends, a frame that is not whole, bytes after the
// last one.
class ClipStream {
  public:
    ClipStream(const std::string& path, const std::optional<RawFormat>& raw);

    const Y4mHeader& header() const { return header_; }
    // The next frame into the first bytes of `frame`, which grows as needed; false after the last one.
    bool next(std::vector<uint8_t>& frame);

  private:
    [[noreturn]] void fail(const std::string& what) const;
    size_t read(uint8_t* bytes, size_t size);
    bool read_line(std::string& line, size_t most);

    const std::string name_;
    const bool is_raw_;
    const Fd fd_;
    Y4mHeader header_;
    uint64_t frames_ = 0;  // read
    std::string ahead_;    // read and not yet used
};

// A clip file of which any frame is read. Throws like ClipStream.
class ClipFile {
  public:
    ClipFile(const std::string& path, const std::optional<RawFormat>& raw);

    const std::string& path() const { return path_; }
    const std::optional<RawFormat>& raw() const { return raw_; }
    const ClipFormat& format() const { return format_; }
    // Goes through the whole file.
    uint64_t count();
    void read(uint64_t frame, std::vector<uint8_t>& bytes);

  private:
    [[noreturn]] void fail(const std::string& what) const;
    size_t read_at(uint64_t at, void* bytes, size_t size) const;
    bool find_next();

    const std::string path_;
    const std::optional<RawFormat> raw_;
    const Fd fd_;
    ClipFormat format_;
    uint64_t size_ = 0;
    std::vector<uint64_t> starts_;  // of the samples of the frames found so far
    uint64_t end_ = 0;              // where the next frame begins
};

// A frame of a clip as planes that the model takes.
class ClipPlanes {
  public:
    // `bytes` has a whole frame and is referred to. Throws Cannot for samples that the depth does not hold.
    void set(const ClipFormat& format, uint8_t* bytes);

    cmodel_plane y, cb, cr, yfusion;
    // The chroma with 8 bits at its own size, Cb then Cr: what a Y4M clip of 8 bits has after luma.
    const std::vector<uint8_t>& own_chroma() const { return own_; }

  private:
    std::vector<uint8_t> luma_, own_, wide_;
};

}  // namespace eetool

#endif
