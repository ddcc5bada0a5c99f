// Line buffers: the few rows of a plane that a neighbourhood block looks up and down in.
#ifndef CMODEL_LINE_BUFFER_H
#define CMODEL_LINE_BUFFER_H

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "fatal.h"
#include "mirror.h"

namespace cm {

// Largest horizontal reach of any block (7x7 kernel, window radius 3).
inline constexpr int kMaxReach = 3;

// 32-bit samples on 64-byte lines, not cleared.
struct FreeAligned {
    void operator()(int32_t* p) const { std::free(p); }
};
using AlignedRow = std::unique_ptr<int32_t[], FreeAligned>;

inline AlignedRow allocate_row(size_t samples) {
    const size_t bytes = (samples * sizeof(int32_t) + 63) / 64 * 64;
    AlignedRow row(static_cast<int32_t*>(std::aligned_alloc(64, bytes)));
    if (row == nullptr) {
        fatal(kExitFile, "Unable to allocate memory\n");
    }
    return row;
}

// Copies the samples next to the ends outward, so that row[-reach] .. row[width - 1 + reach] exist.
inline void pad_row(int32_t* row, int width) {
    for (int k = 1; k <= kMaxReach; ++k) {
        row[-k] = row[mirror(-k, width)];
        row[width - 1 + k] = row[mirror(width - 1 + k, width)];
    }
}

// The last `lines` rows of a plane of width x height, each padded on both sides. Rows are filled in
// order; row(y) takes any y whose reflection is still held.
class LineBuffer {
  public:
    LineBuffer(int width, int height, int lines)
        : width_(width),
          height_(height),
          lines_(lines < height ? lines : height),
          pitch_((static_cast<size_t>(width) + 3 * kMargin - 1) / kMargin * kMargin),
          samples_(allocate_row(pitch_ * static_cast<size_t>(lines_))) {}

    // Where row y goes; call pad(y) once it is there.
    int32_t* line(int y) {
        assert(y >= 0 && y < height_);
        return samples_.get() + pitch_ * static_cast<size_t>(y % lines_) + kMargin;
    }
    void pad(int y) { pad_row(line(y), width_); }

    const int32_t* row(int y) const {
        return samples_.get() + pitch_ * static_cast<size_t>(mirror(y, height_) % lines_) + kMargin;
    }

  private:
    static constexpr size_t kMargin = 16;  // a multiple of 64 bytes, at least kMaxReach

    int width_;
    int height_;
    int lines_;
    size_t pitch_;
    AlignedRow samples_;
};

// Rows y-R .. y+R of a line buffer; rows[R] is row y.
template <int R>
struct RowWindow {
    const int32_t* rows[2 * R + 1];

    RowWindow(const LineBuffer& lines, int y) {
        for (int k = 0; k <= 2 * R; ++k) {
            rows[k] = lines.row(y + k - R);
        }
    }
};

}  // namespace cm

#endif
