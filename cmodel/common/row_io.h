// Rows in and out: where a block's loop meets the planes it works on.
#ifndef CMODEL_ROW_IO_H
#define CMODEL_ROW_IO_H

#include <algorithm>
#include <cstdint>

#include "common.h"
#include "line_buffer.h"
#include "pnm.h"

namespace cm {

// One channel of a plane, read a row at a time. The plane is a FRAME, an array of 16-bit samples, a
// packed image as it came from its file, or (RGB input) one colour component computed from a packed RGB
// image. It is not owned.
class RowSource {
  public:
    explicit RowSource(const FRAME& frame, int channel = 0);
    explicit RowSource(const PackedImage& image);
    RowSource(const int16_t* samples, int width, int height);

    enum class Component { kLuma, kCb, kCr };
    RowSource(const PackedImage& rgb, Component component);

    int width() const { return width_; }
    int height() const { return height_; }
    int depth() const { return depth_; }

    // Whether no sample can lie beyond -bound .. bound. Files are judged by the bytes of a sample, frames
    // are looked through.
    bool within(int32_t bound) const;

    // Row y, reflected, into dst[0 .. width-1], columns reflected as well.
    void read(int64_t y, int32_t* dst, int width) const;

    // Row y as read() gives it: in `scratch`, or where the plane itself has it in that form.
    const int32_t* row(int64_t y, int32_t* scratch, int width) const;

    // Row y into dst[-kMaxReach .. width-1+kMaxReach].
    void read_padded(int64_t y, int32_t* dst, int width) const;

  private:
    enum class Kind { kFrame, kShort, kPacked, kRgb };

    void read_own_row(int y, int32_t* dst) const;
    void read_rgb_row(int y, int32_t* dst) const;

    Kind kind_;
    const FRAME* frame_ = nullptr;
    const PackedImage* packed_ = nullptr;
    const int16_t* short_ = nullptr;
    int channel_ = 0;  // of the frame
    Component component_ = Component::kLuma;
    int width_;
    int height_;
    int depth_;
    mutable AlignedRow own_row_;      // a row at the plane's own width, made when first needed
    mutable AlignedRow rgb_rows_[3];  // likewise, of each colour
};

// A row buffer at the loop's width, filled from one channel of a frame; what a block's frame
// function reads its inputs through.
class FrameReader {
  public:
    FrameReader(const FRAME& frame, int width, int channel = 0)
        : source_(frame, channel), width_(width), row_(allocate_row(static_cast<size_t>(width))) {}

    const int32_t* row(int64_t y) { return source_.row(y, row_.get(), width_); }

  private:
    RowSource source_;
    int width_;
    AlignedRow row_;
};

// Rows y-R .. y+R of channel 0 of a frame, padded, for a loop of its own width. Samples must fit T.
template <int R, typename T = int32_t>
class FrameWindow {
  public:
    static constexpr int kLines = 2 * R + 1;

    FrameWindow(const FRAME& frame, int width)
        : source_(frame), width_(width), row_(allocate_row(padded_width())) {
        for (Line& line : lines_) {
            line.samples = allocate_row<T>(padded_width());
        }
    }

    // rows[R] is row y. The rows of one window are neighbours after reflection too, so each has a
    // line of its own and is read only when it comes into view.
    const T* const* around(int64_t y) {
        for (int k = 0; k < kLines; ++k) {
            const int own_y = mirror(y + k - R, source_.height());
            Line& line = lines_[own_y % kLines];
            if (line.held != own_y) {
                source_.read_padded(own_y, row_.get() + kMaxReach, width_);
                std::copy_n(row_.get(), padded_width(), line.samples.get());
                line.held = own_y;
            }
            rows_[k] = line.samples.get() + kMaxReach;
        }
        return rows_;
    }

  private:
    struct Line {
        AlignedSamples<T> samples;
        int held = -1;
    };

    size_t padded_width() const { return static_cast<size_t>(width_) + 2 * kMaxReach; }

    RowSource source_;
    int width_;
    AlignedRow row_;
    Line lines_[kLines];
    const T* rows_[kLines];
};

// CM_NewFRAME(), not cleared on request: for frames of which every sample will be written.
FRAME* new_frame(uint32_t file_type, uint32_t format, uint32_t width, uint32_t height, uint32_t channels,
                 int depth, bool clear);

// Writes row[0 .. width-1] to one channel of row y; both coordinates are reflected against the
// frame, and of samples that meet in one place the last stays.
void write_row(FRAME& frame, int64_t y, const int32_t* row, int width, int channel = 0);

// A row that a frame function computes into before write_row().
inline AlignedRow output_row(int width) {
    return allocate_row(static_cast<size_t>(width));
}

}  // namespace cm

#endif
