// What the page shows: planes of a photograph, the picture with another luma, stages, what curves look up.
// The samples are those of the model; nothing here goes back to it but the planes.
#include "picture.h"

#include <algorithm>
#include <cstring>

#include "colour.h"
#include "ee_hw.h"
#include "planes.h"

namespace {

using cm::clamp32;

uint8_t to_byte(int32_t v) {
    return static_cast<uint8_t>(clamp32(v, 0, 255));
}

void put_grey(uint8_t* pixel, int32_t v) {
    pixel[0] = pixel[1] = pixel[2] = to_byte(v);
    pixel[3] = 255;
}

const uint8_t* at(const cmodel_plane& plane, int x, int y) {
    return static_cast<const uint8_t*>(plane.data) + y * plane.row_stride + x * plane.step;
}

// Calls use(sample, i) for the samples of a rectangle, i counting them.
template <typename T, typename Use>
void for_samples(const cmodel_plane& plane, const page_rect& rect, Use use) {
    size_t i = 0;
    for (int row = 0; row < rect.height; ++row) {
        const uint8_t* bytes = at(plane, rect.x, rect.y + row);
        for (int x = 0; x < rect.width; ++x, ++i, bytes += sizeof(T)) {
            T sample;
            std::memcpy(&sample, bytes, sizeof sample);
            use(static_cast<int32_t>(sample), i);
        }
    }
}

template <typename Use>
void for_each_sample(const cmodel_plane& plane, const page_rect& rect, Use use) {
    switch (plane.type) {
        case CMODEL_U8:
            for_samples<uint8_t>(plane, rect, use);
            break;
        case CMODEL_U16:
            for_samples<uint16_t>(plane, rect, use);
            break;
        case CMODEL_S16:
            for_samples<int16_t>(plane, rect, use);
            break;
        default:
            for_samples<int32_t>(plane, rect, use);
    }
}

}  // namespace

void page_planes_of_photo(const uint8_t* rgba, int width, int height, uint8_t* y, uint8_t* cb, uint8_t* cr) {
    const cm::RgbToYcbcr to(8);
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x, rgba += 4) {
            *y++ = static_cast<uint8_t>(to.clamp(to.luma(rgba[0], rgba[1], rgba[2])));
            if (x % 2 == 0) {
                *cb++ = static_cast<uint8_t>(to.clamp(to.cb(rgba[0], rgba[1], rgba[2])));
                *cr++ = static_cast<uint8_t>(to.clamp(to.cr(rgba[0], rgba[1], rgba[2])));
            }
        }
    }
}

void page_photo_of_planes(const cmodel_plane* luma, const cmodel_plane* cb, const cmodel_plane* cr,
                          uint8_t* rgba) {
    for (int row = 0; row < luma->height; ++row) {
        const uint8_t* const blue = at(*cb, 0, std::min(row, cb->height - 1));
        const uint8_t* const red = at(*cr, 0, std::min(row, cr->height - 1));
        for (int x = 0; x < luma->width; ++x, rgba += 4) {
            // 1.402, 0.344, 0.714 and 1.772 in 1/256.
            const int32_t l = *at(*luma, x, row) * 256 + 128;
            const int32_t b = blue[std::min(x / 2, cb->width - 1)] - 128;
            const int32_t r = red[std::min(x / 2, cr->width - 1)] - 128;
            rgba[0] = to_byte((l + 359 * r) >> 8);
            rgba[1] = to_byte((l - 88 * b - 183 * r) >> 8);
            rgba[2] = to_byte((l + 454 * b) >> 8);
            rgba[3] = 255;
        }
    }
}

void page_show_picture(const uint8_t* photo, const cmodel_plane* before, const cmodel_plane* after,
                       const page_rect* rect, uint8_t* rgba) {
    for (int y = rect->y; y < rect->y + rect->height; ++y) {
        const uint8_t* const was = at(*before, rect->x, y);
        const uint8_t* const is = at(*after, rect->x, y);
        const uint8_t* own = photo + 4 * (static_cast<size_t>(y) * static_cast<size_t>(before->width) +
                                          static_cast<size_t>(rect->x));
        for (int x = 0; x < rect->width; ++x, own += 4, rgba += 4) {
            const int32_t change = is[x] - was[x];
            for (int c = 0; c < 3; ++c) {
                rgba[c] = to_byte(own[c] + change);
            }
            rgba[3] = 255;
        }
    }
}

void page_show_values(const cmodel_plane* values, const page_rect* rect, int shift, int is_signed,
                      uint8_t* rgba) {
    const int32_t middle = is_signed != 0 ? 128 : 0;
    for_each_sample(*values, *rect, [=](int32_t sample, size_t i) {
        const int64_t shown = int64_t{sample} << (shift + 8) >> 11;
        put_grey(rgba + 4 * i, static_cast<int32_t>(std::clamp<int64_t>(shown, -256, 256)) + middle);
    });
}

void page_show_classes(const cmodel_plane* classes, const page_rect* rect, uint8_t* rgba) {
    static constexpr uint8_t kColours[][3] = {{0, 0, 0},     {255, 255, 0}, {255, 0, 0},
                                              {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};
    for_each_sample(*classes, *rect, [=](int32_t sample, size_t i) {
        std::memcpy(rgba + 4 * i, kColours[clamp32(sample, 0, 5)], 3);
        rgba[4 * i + 3] = 255;
    });
}

void page_reduce(const uint8_t* rgba, int width, int height, int by, uint8_t* reduced) {
    const int columns = width / by, rows = height / by;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column, reduced += 4) {
            int32_t sum[3] = {};
            for (int dy = 0; dy < by; ++dy) {
                const uint8_t* pixel =
                    rgba + 4 * ((static_cast<size_t>(row * by + dy)) * static_cast<size_t>(width) +
                                static_cast<size_t>(column * by));
                for (int dx = 0; dx < by; ++dx, pixel += 4) {
                    for (int c = 0; c < 3; ++c) {
                        sum[c] += pixel[c];
                    }
                }
            }
            for (int c = 0; c < 3; ++c) {
                reduced[c] = static_cast<uint8_t>((sum[c] + by * by / 2) / (by * by));
            }
            reduced[3] = 255;
        }
    }
}

int page_stage_view(const char* stage) {
    for (const cm::DebugView& view : cm::kDebugViews) {
        if (std::strcmp(cm::row_of(view.plane).name, stage) == 0) {
            return 2 * (view.shift + (view.factor == 8 ? 3 : 0)) + (view.is_signed ? 1 : 0);
        }
    }
    for (const cm::PlaneRow& row : cm::kPlaneTable) {
        if (std::strcmp(row.name, stage) == 0) {
            return 2 * std::max(11 - row.depth, 0) + (row.is_signed() ? 1 : 0);
        }
    }
    return -1;
}

void page_count(int lookup, const cmodel_plane* a, const cmodel_plane* b, const page_rect* rect,
                uint32_t* bins) {
    std::fill_n(bins, 256, 0u);
    switch (lookup) {
        case PAGE_CLAMPED:
            for_each_sample(*a, *rect, [=](int32_t v, size_t) { ++bins[clamp32(v, 0, 255)]; });
            return;
        case PAGE_LOW_BITS:
            for_each_sample(*a, *rect, [=](int32_t v, size_t) { ++bins[v & 255]; });
            return;
        default:
            break;
    }
    for (int y = rect->y; y < rect->y + rect->height; ++y) {
        for (int x = rect->x; x < rect->x + rect->width; ++x) {
            const int blue = *at(*a, x, y) - 128, red = *at(*b, x, y) - 128;
            ++bins[lookup == PAGE_HUE ? CalcHue_Cordic(blue, red) : std::min(CalcSQRT(blue, red), 255)];
        }
    }
}
