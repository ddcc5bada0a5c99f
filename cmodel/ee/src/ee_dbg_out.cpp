// Debug views and debug images: intermediates made visible in 8 bits.
#include <algorithm>

#include "ee_blocks.h"
#include "ee_hw.h"
#include "fixed_point.h"
#include "pnm.h"
#include "row_targets.h"

namespace cm {
namespace {

// view = ((v << shift) >> 3) + (signed ? 128 : 0), clamped
CM_INLINE int32_t debug_view(int32_t value, bool is_signed, int shift) {
    const Wrap t = Wrap(shl_mod32(value, shift) >> 3) + (is_signed ? 128 : 0);
    return clamp32(t, 0, 255);
}

CM_ROW_TEMPLATE(view_row, (const T* in, T* __restrict out, int width, const DebugView& view, int shift),
                (in, out, width, view, shift)) {
    const int factor = view.factor;
    const bool is_signed = view.is_signed;
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(debug_view(Wrap(in[x]) * factor, is_signed, shift));
    }
}

CM_ROW_FUNCTION(sign_pixels_row, (const int32_t* delta, uint8_t* __restrict pixels, int width),
                (delta, pixels, width)) {
    for (int64_t x = 0; x < width; ++x) {
        pixels[3 * x] = static_cast<uint8_t>(clamp32(delta[x], 0, 255));
        pixels[3 * x + 1] = static_cast<uint8_t>(-clamp32(delta[x], -255, 0));
        pixels[3 * x + 2] = 0;
    }
}

CM_ROW_FUNCTION(magnitude_row, (const int32_t* tested, int32_t* shown, int width), (tested, shown, width)) {
    for (int x = 0; x < width; ++x) {
        shown[x] = min32(magnitude(shown[x]), 255) & mask_of(tested[x] != 0);
    }
}

// Room for a row of each of the images' planes.
struct ImageRows {
    explicit ImageRows(const RowSource& size)
        : width(size.width()), memory(allocate_bytes(2 * sizeof(int32_t) * static_cast<size_t>(width))) {}
    int32_t* row(int i) { return static_cast<int32_t*>(static_cast<void*>(memory.get())) + i * width; }

    int width;
    Bytes memory;
};

}  // namespace

void debug_view_row(const int32_t* in, int32_t* out, int width, const DebugView& view, int shift) {
    view_row(in, out, width, view, shift);
}

void debug_view_row(const int16_t* in, int16_t* out, int width, const DebugView& view, int shift) {
    view_row(in, out, width, view, shift);
}

std::string BlockReport::image_path(const char* name) const {
    const std::string tagged = *tag != '\0' ? std::string(tag) + "_" + name : name;
    return (std::string(image_dir) + "/" + tagged).substr(0, kMaxImagePath);
}

void write_sign_image(const std::string& path, const RowSource& delta) {
    ImageRows rows(delta);
    write_rows(path, PnmKind::kColour, rows.width, delta.height(), 8, [&](int y, uint8_t* pixels) {
        delta.read(y, 0, rows.width, rows.row(0));
        sign_pixels_row(rows.row(0), pixels, rows.width);
    });
}

void write_magnitude_image(const std::string& path, const RowSource& tested, const RowSource& shown) {
    ImageRows rows(shown);
    write_rows(path, PnmKind::kColour, rows.width, shown.height(), 8, [&](int y, uint8_t* pixels) {
        tested.read(y, 0, rows.width, rows.row(0));
        shown.read(y, 0, rows.width, rows.row(1));
        magnitude_row(rows.row(0), rows.row(1), rows.width);
        grey_pixels(rows.row(1), pixels, static_cast<size_t>(rows.width));
    });
}

void write_plane_image(const std::string& path, PnmKind kind, const RowSource& plane) {
    ImageRows rows(plane);
    const size_t width = static_cast<size_t>(rows.width);
    const int sample_bytes = written_bytes(plane.depth());
    write_rows(path, kind, rows.width, plane.height(), plane.depth(), [&](int y, uint8_t* pixels) {
        plane.read(y, 0, rows.width, rows.row(0));
        if (kind == PnmKind::kGrey) {
            pack_samples(rows.row(0), width, sample_bytes, pixels);
        } else if (sample_bytes == 1) {
            grey_pixels(rows.row(0), pixels, width);
        } else {
            for (size_t i = 0; i < 3 * width; ++i) {
                pack_samples(rows.row(0) + i / 3, 1, sample_bytes,
                             pixels + i * static_cast<size_t>(sample_bytes));
            }
        }
    });
}

}  // namespace cm

int EE_GenDbgOut(uint32_t value, int is_signed, int shift) {
    return cm::debug_view(static_cast<int32_t>(value), is_signed != 0, shift);
}
