// Between an interleaved 4:4:4 frame and separate planes with subsampled chroma.
//
// Chroma sample k of a plane lies at luma column (row) 2k, so even columns are copies in either
// direction. Columns in between are averages of their neighbours, rounded away from the mid-point of
// the luma depth so that both colour directions are treated alike.
#include <initializer_list>

#include "common.h"
#include "fatal.h"
#include "fixed_point.h"
#include "mirror.h"

using cm::sample;
using cm::Wrap;

namespace {

// Frames that have fewer than three channels, or planes that have no samples (a luma one column wide has no
// chroma column when the half is rounded down), end the program.
void require_frames(const FRAME& interleaved, const FRAME& Cb, const FRAME& Cr, const char* function) {
    if (interleaved.channels < 3) {
        cm::fatal(cm::kExitFormat, "%s: a frame of 3 channels is needed, not of %u\n", function,
                  interleaved.channels);
    }
    for (const FRAME* const plane : {&Cb, &Cr}) {
        if (plane->width == 0 || plane->height == 0) {
            cm::fatal(cm::kExitFormat, "%s: a chroma plane is %ux%u\n", function, plane->width,
                      plane->height);
        }
    }
}

// Averages of 2 and of 4 values, given their sum; half steps go away from the depth's mid-point.
class Average {
  public:
    explicit Average(int depth) : mid_(cm::pow2_mod32(Wrap(depth) - 1)), depth_(depth) {}

    int32_t of_two(Wrap sum) const { return divide<1>(sum); }
    int32_t of_four(Wrap sum) const { return divide<2>(sum); }

  private:
    // Of 2^kLog2 values.
    template <int kLog2>
    int32_t divide(Wrap sum) const {
        const Wrap centre = cm::pow2_mod32(depth_ + (kLog2 - 1));
        const Wrap m = (Wrap(cm::magnitude(sum - centre)) + (1 << (kLog2 - 1))) >> kLog2;
        return int32_t{sum} < int32_t{centre} ? mid_ - m : mid_ + m;
    }

    Wrap mid_;
    Wrap depth_;
};

// rows = 2 halves the chroma height as well.
int split_planes(const FRAME& src, FRAME& Y, FRAME& Cb, FRAME& Cr, uint32_t rows) {
    for (uint32_t y = 0; y < src.height; ++y) {
        for (uint32_t x = 0; x < src.width; ++x) {
            sample(Y, x, y, 0) = sample(src, x, y, 0);
            if (x % 2 == 0 && y % rows == 0) {
                sample(Cb, x / 2, y / rows, 0) = sample(src, x, y, 1);
                sample(Cr, x / 2, y / rows, 0) = sample(src, x, y, 2);
            }
        }
    }
    return 0;
}

int32_t upsample(const FRAME& plane, uint32_t x, uint32_t y, uint32_t rows, const Average& average) {
    const int64_t cx = x / 2;
    const int64_t cy = y / rows;
    const bool between_columns = x % 2 != 0;
    const bool between_rows = y % rows != 0;
    const Wrap here = sample(plane, cx, cy, 0);
    if (between_columns && between_rows) {
        return average.of_four(here + sample(plane, cx + 1, cy, 0) + sample(plane, cx, cy + 1, 0) +
                               sample(plane, cx + 1, cy + 1, 0));
    }
    if (between_columns) {
        return average.of_two(here + sample(plane, cx + 1, cy, 0));
    }
    if (between_rows) {
        return average.of_two(here + sample(plane, cx, cy + 1, 0));
    }
    return here;
}

int join_planes(const FRAME& Y, const FRAME& Cb, const FRAME& Cr, FRAME& dst, uint32_t rows) {
    const Average average(Y.depth);
    for (uint32_t y = 0; y < Y.height; ++y) {
        for (uint32_t x = 0; x < Y.width; ++x) {
            sample(dst, x, y, 0) = sample(Y, x, y, 0);
            sample(dst, x, y, 1) = upsample(Cb, x, y, rows, average);
            sample(dst, x, y, 2) = upsample(Cr, x, y, rows, average);
        }
    }
    return 0;
}

}  // namespace

int CM_YCbCr444to422(const FRAME* src, FRAME* Y, FRAME* Cb, FRAME* Cr) {
    require_frames(*src, *Cb, *Cr, "CM_YCbCr444to422");
    return split_planes(*src, *Y, *Cb, *Cr, 1);
}

int CM_YCbCr444to420(const FRAME* src, FRAME* Y, FRAME* Cb, FRAME* Cr) {
    require_frames(*src, *Cb, *Cr, "CM_YCbCr444to420");
    return split_planes(*src, *Y, *Cb, *Cr, 2);
}

int CM_YCbCr422to444(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* dst) {
    require_frames(*dst, *Cb, *Cr, "CM_YCbCr422to444");
    return join_planes(*Y, *Cb, *Cr, *dst, 1);
}

int CM_YCbCr420to444(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* dst) {
    require_frames(*dst, *Cb, *Cr, "CM_YCbCr420to444");
    return join_planes(*Y, *Cb, *Cr, *dst, 2);
}
