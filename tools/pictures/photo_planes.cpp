#include "photo_planes.h"

#include <algorithm>
#include <cstring>

#include "colour.h"
#include "row_targets.h"

namespace pictures {
namespace {

using cm::row_target;
using cm::RowTarget;

// Sums in 1/256 of a sample of any maximum to 8 bits, rounded once; at a maximum of 255 the same as
// cm::RgbToYcbcr.
class To8Bits {
  public:
    explicit To8Bits(int max) : max_(static_cast<uint64_t>(max)) {}

    uint8_t luma(cm::Wrap sum) const { return static_cast<uint8_t>(rounded(static_cast<int32_t>(sum))); }
    uint8_t chroma(cm::Wrap sum) const {
        const int32_t c = sum;
        return static_cast<uint8_t>(std::clamp(128 + (c < 0 ? -rounded(-c) : rounded(c)), 0, 255));
    }

  private:
    int rounded(int32_t sum) const {
        return static_cast<int>((static_cast<uint64_t>(sum) * 255 + max_ * 128) / (max_ * 256));
    }

    uint64_t max_;
};

struct PlaneRows {
    uint8_t *y, *cb, *cr;
};

// Three bytes a pixel, as nearly all photographs have them.
CM_ROW_FUNCTION(split_rgb_row,
                (const uint8_t* __restrict in, int width, uint8_t* __restrict luma, uint8_t* __restrict blue,
                 uint8_t* __restrict red),
                (in, width, luma, blue, red)) {
    const cm::RgbToYcbcr to(8);
    constexpr int kTile = 512;
    uint8_t r[kTile], g[kTile], b[kTile];
    for (int x0 = 0; x0 < width; x0 += kTile) {
        const int count = width - x0 < kTile ? width - x0 : kTile;
        for (int x = 0; x < count; ++x) {
            r[x] = in[3 * (x0 + x)];
            g[x] = in[3 * (x0 + x) + 1];
            b[x] = in[3 * (x0 + x) + 2];
        }
        for (int x = 0; x < count; ++x) {
            luma[x0 + x] = static_cast<uint8_t>(to.luma(r[x], g[x], b[x]));
        }
        for (int x = 0; x < (count + 1) / 2; ++x) {
            const int32_t red2 = r[2 * x], green2 = g[2 * x], blue2 = b[2 * x];
            blue[x0 / 2 + x] = static_cast<uint8_t>(to.clamp(to.cb(red2, green2, blue2)));
            red[x0 / 2 + x] = static_cast<uint8_t>(to.clamp(to.cr(red2, green2, blue2)));
        }
    }
}

CM_ROW_FUNCTION(change_rgb_row,
                (uint8_t* __restrict row, const uint8_t* __restrict before, const uint8_t* __restrict after,
                 int width),
                (row, before, after, width)) {
    for (int x = 0; x < width; ++x) {
        const int by = after[x] - before[x];
        const int r = row[3 * x] + by, g = row[3 * x + 1] + by, b = row[3 * x + 2] + by;
        row[3 * x] = static_cast<uint8_t>(r < 0 ? 0 : r > 255 ? 255 : r);
        row[3 * x + 1] = static_cast<uint8_t>(g < 0 ? 0 : g > 255 ? 255 : g);
        row[3 * x + 2] = static_cast<uint8_t>(b < 0 ? 0 : b > 255 ? 255 : b);
    }
}

// Of any maximum.
template <typename T>
void split_row(const T* in, int channels, int width, const To8Bits& to, PlaneRows out) {
    for (int x = 0; x < width; ++x) {
        const T* const p = in + static_cast<ptrdiff_t>(x) * channels;
        if (channels < 3) {
            out.y[x] = to.luma(256 * cm::Wrap(p[0]));
            continue;
        }
        out.y[x] = to.luma(cm::RgbToYcbcr::luma_256(p[0], p[1], p[2]));
        if (x % 2 == 0) {
            out.cb[x / 2] = to.chroma(cm::RgbToYcbcr::cb_256(p[0], p[1], p[2]));
            out.cr[x / 2] = to.chroma(cm::RgbToYcbcr::cr_256(p[0], p[1], p[2]));
        }
    }
}

// Luma at the picture's own depth.
template <typename T>
void luma_row(const T* in, int channels, int width, T* out) {
    for (int x = 0; x < width; ++x) {
        const T* const p = in + static_cast<ptrdiff_t>(x) * channels;
        out[x] =
            channels < 3 ? p[0] : static_cast<T>((cm::RgbToYcbcr::luma_256(p[0], p[1], p[2]) + 128) >> 8);
    }
}

// The change of luma in the picture's own depth, by the change in 8 bits + 255.
std::vector<int32_t> changes(int max) {
    std::vector<int32_t> table(511);
    for (int change = 0; change <= 255; ++change) {
        const auto at = static_cast<size_t>(change);
        table[255 + at] = (2 * change * max + 255) / 510;
        table[255 - at] = -table[255 + at];
    }
    return table;
}

template <int kChannels, typename T>
void change_row(T* __restrict row, const uint8_t* __restrict before, const uint8_t* __restrict after,
                int width, int max, const int32_t* table) {
    constexpr int kColours = kChannels < 3 ? 1 : 3;
    for (int x = 0; x < width; ++x) {
        const int by = table[255 + after[x] - before[x]];
        for (int c = 0; c < kColours; ++c) {
            T& sample = row[x * kChannels + c];
            sample = static_cast<T>(std::clamp(sample + by, 0, max));
        }
    }
}

template <int kChannels>
void change_rows(Picture& picture, const uint8_t* before, const uint8_t* after) {
    const std::vector<int32_t> table = changes(picture.max);
    for (int y = 0; y < picture.height; ++y) {
        const size_t at = static_cast<size_t>(y) * static_cast<size_t>(picture.width);
        if (picture.max > 255) {
            change_row<kChannels>(picture.row<uint16_t>(y), before + at, after + at, picture.width,
                                  picture.max, table.data());
        } else if (kChannels == 3 && picture.max == 255) {
            change_rgb_row(picture.row<uint8_t>(y), before + at, after + at, picture.width);
        } else {
            change_row<kChannels>(picture.row<uint8_t>(y), before + at, after + at, picture.width,
                                  picture.max, table.data());
        }
    }
}

Memory take(size_t size, const std::string& name) {
    Memory memory = allocate(size);
    if (memory == nullptr) {
        throw Error(name + ": no memory for its planes");
    }
    return memory;
}

}  // namespace

PhotoPlanes planes_of(const Picture& picture, const std::string& name) {
    PhotoPlanes planes{picture.width, picture.height, (picture.width - 1) / 2 + 1, {}, {}, {}};
    const size_t chroma = static_cast<size_t>(planes.chroma_width) * static_cast<size_t>(planes.height);
    planes.y = take(picture.pixels(), name);
    planes.cb = take(chroma, name);
    planes.cr = take(chroma, name);
    if (picture.colours() == 1) {
        std::memset(planes.cb.get(), 128, chroma);
        std::memset(planes.cr.get(), 128, chroma);
    }
    const To8Bits to(picture.max);
    for (int y = 0; y < picture.height; ++y) {
        const size_t row = static_cast<size_t>(y);
        const size_t at = row * static_cast<size_t>(planes.width),
                     half = row * static_cast<size_t>(planes.chroma_width);
        const PlaneRows out{planes.y.get() + at, planes.cb.get() + half, planes.cr.get() + half};
        if (picture.max > 255) {
            split_row(picture.row<uint16_t>(y), picture.channels, picture.width, to, out);
        } else if (picture.max == 255 && picture.channels == 3) {
            split_rgb_row(picture.row<uint8_t>(y), picture.width, out.y, out.cb, out.cr);
        } else {
            split_row(picture.row<uint8_t>(y), picture.channels, picture.width, to, out);
        }
    }
    return planes;
}

Picture luma_of(const Picture& picture, const std::string& name) {
    Picture luma = new_picture(name, picture.width, picture.height, 1, picture.max);
    for (int y = 0; y < picture.height; ++y) {
        if (picture.max > 255) {
            luma_row(picture.row<uint16_t>(y), picture.channels, picture.width, luma.row<uint16_t>(y));
        } else {
            luma_row(picture.row<uint8_t>(y), picture.channels, picture.width, luma.row<uint8_t>(y));
        }
    }
    return luma;
}

void change_luma(Picture& picture, const uint8_t* before, const uint8_t* after) {
    switch (picture.channels) {
        case 1:
            change_rows<1>(picture, before, after);
            break;
        case 2:
            change_rows<2>(picture, before, after);
            break;
        case 3:
            change_rows<3>(picture, before, after);
            break;
        default:
            change_rows<4>(picture, before, after);
    }
}

Picture copy_of(const Picture& picture, const std::string& name) {
    Picture copy = new_picture(name, picture.width, picture.height, picture.channels, picture.max);
    std::memcpy(copy.memory.get(), picture.memory.get(), picture.bytes());
    copy.icc = picture.icc;
    copy.png = picture.png;
    return copy;
}

void set_grey(Picture& picture, const uint8_t* grey) {
    // Black, with the change from black to the grey that is wanted.
    for (int y = 0; y < picture.height; ++y) {
        for (size_t i = 0; i < picture.row_samples(); ++i) {
            if (picture.has_alpha() &&
                i % static_cast<size_t>(picture.channels) + 1 == static_cast<size_t>(picture.channels)) {
                continue;
            }
            if (picture.max > 255) {
                picture.row<uint16_t>(y)[i] = 0;
            } else {
                picture.row<uint8_t>(y)[i] = 0;
            }
        }
    }
    const std::vector<uint8_t> black(picture.pixels());
    change_luma(picture, black.data(), grey);
}

Picture side_by_side(const Picture& before, const Picture& after, const std::string& name) {
    const int64_t width = int64_t{before.width} + kDivider + after.width;
    if (width > INT32_MAX) {
        throw Error(name + ": the pictures are too wide to stand side by side");
    }
    Picture both = new_picture(name, width, before.height, before.channels, before.max);
    const size_t pixel = before.row_bytes() / static_cast<size_t>(before.width);
    const auto column = [&](int x, int value) {
        for (int c = 0; c < both.channels; ++c) {
            const bool alpha = both.has_alpha() && c == both.channels - 1;
            const size_t at = static_cast<size_t>(before.width + x) * static_cast<size_t>(both.channels) +
                              static_cast<size_t>(c);
            for (int y = 0; y < both.height; ++y) {
                if (both.max > 255) {
                    both.row<uint16_t>(y)[at] = static_cast<uint16_t>(alpha ? both.max : value);
                } else {
                    both.row<uint8_t>(y)[at] = static_cast<uint8_t>(alpha ? both.max : value);
                }
            }
        }
    };
    for (int x = 0; x < kDivider; ++x) {
        column(x, x < kDivider / 3 || x >= kDivider - kDivider / 3 ? 0 : both.max);
    }
    for (int y = 0; y < both.height; ++y) {
        uint8_t* const row = both.row<uint8_t>(y);
        std::memcpy(row, before.row<uint8_t>(y), before.row_bytes());
        std::memcpy(row + static_cast<size_t>(before.width + kDivider) * pixel, after.row<uint8_t>(y),
                    after.row_bytes());
    }
    both.icc = before.icc;
    both.png = before.png;
    return both;
}

}  // namespace pictures
