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

// Samples on 64-byte lines, not cleared.
struct FreeAligned {
    void operator()(void* p) const { std::free(p); }
};
template <typename T>
using AlignedSamples = std::unique_ptr<T[], FreeAligned>;
using AlignedRow = AlignedSamples<int32_t>;

template <typename T = int32_t>
AlignedSamples<T> allocate_row(size_t samples) {
    const size_t bytes = (samples * sizeof(T) + 63) / 64 * 64;
    AlignedSamples<T> row(static_cast<T*>(std::aligned_alloc(64, bytes > 0 ? bytes : 64)));
    if (row == nullptr) {
        fail_without_memory();
    }
    return row;
}

// Copies the samples next to the ends outward, so that row[-reach] .. row[width - 1 + reach] exist.
template <typename T>
void pad_row(T* row, int width) {
    for (int k = 1; k <= kMaxReach; ++k) {
        row[-k] = row[mirror(-k, width)];
        row[int64_t{width} - 1 + k] = row[mirror(int64_t{width} - 1 + k, width)];
    }
}

// The last `lines` rows of a plane of width x height, each padded on both sides. Rows are filled in
// order; row(y) takes any y whose reflection is still held.
template <typename T>
class LineBufferOf {
  public:
    LineBufferOf(int width, int height, int lines)
        : width_(width),
          height_(height),
          lines_(lines < height ? lines : height),
          pitch_((static_cast<size_t>(width) + 3 * kMargin - 1) / kMargin * kMargin),
          samples_(allocate_row<T>(pitch_ * static_cast<size_t>(lines_))) {}

    // Where row y goes; call pad(y) once it is there.
    T* line(int y) {
        assert(y >= 0 && y < height_);
        return samples_.get() + pitch_ * static_cast<size_t>(y % lines_) + kMargin;
    }
    void pad(int y) { pad_row(line(y), width_); }

    const T* row(int64_t y) const {
        return samples_.get() + pitch_ * static_cast<size_t>(mirror(y, height_) % lines_) + kMargin;
    }

  private:
    static constexpr size_t kMargin = 64 / sizeof(T);  // one 64-byte line, at least kMaxReach samples

    int width_;
    int height_;
    int lines_;
    size_t pitch_;
    AlignedSamples<T> samples_;
};
using LineBuffer = LineBufferOf<int32_t>;

// Rows y-R .. y+R of a line buffer; rows[R] is row y.
template <int R, typename T = int32_t>
struct RowWindow {
    const T* rows[2 * R + 1];

    RowWindow(const LineBufferOf<T>& lines, int64_t y) {
        for (int k = 0; k <= 2 * R; ++k) {
            rows[k] = lines.row(y + k - R);
        }
    }
};

}  // namespace cm

#endif
