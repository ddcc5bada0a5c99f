// Debug views and debug images: intermediates made visible in 8 bits.
#include <memory>

#include "ee_blocks.h"
#include "fixed_point.h"
#include "pnm.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr size_t kMaxPath = 1023;

// view = ((v << shift) >> 3) + (signed ? 128 : 0), clamped
CM_INLINE int32_t debug_view(int32_t value, int is_signed, int shift) {
    const Wrap t = Wrap(shl_mod32(value, shift) >> 3) + (is_signed != 0 ? 128 : 0);
    return clamp32(t, 0, 255);
}

}  // namespace

CM_ROW_FUNCTION(debug_view_row,
                (const int32_t* in, int32_t* __restrict out, int width, int factor, int is_signed, int shift),
                (in, out, width, factor, is_signed, shift)) {
    for (int x = 0; x < width; ++x) {
        out[x] = debug_view(Wrap(in[x]) * factor, is_signed, shift);
    }
}

std::string debug_path(const std::string& name) {
    return (std::string(dbg_path) + "/" + name).substr(0, kMaxPath);
}

std::string debug_path(const std::string& tag, const std::string& name) {
    return debug_path(tag + "_" + name);
}

CM_ROW_FUNCTION(sign_pixels_row, (const int32_t* delta, uint8_t* __restrict pixels, int width),
                (delta, pixels, width)) {
    for (int64_t x = 0; x < width; ++x) {
        pixels[3 * x] = static_cast<uint8_t>(clamp32(delta[x], 0, 255));
        pixels[3 * x + 1] = static_cast<uint8_t>(-clamp32(delta[x], -255, 0));
        pixels[3 * x + 2] = 0;
    }
}

void write_sign_image(const std::string& path, const RowSource& delta) {
    const AlignedRow scratch = output_row(delta.width());
    write_colour_rows(path.c_str(), static_cast<uint32_t>(delta.width()),
                      static_cast<uint32_t>(delta.height()), [&](uint32_t y, uint8_t* pixels) {
                          sign_pixels_row(delta.row(y, scratch.get(), delta.width()), pixels, delta.width());
                      });
}

}  // namespace cm

int EE_GenDbgOut(uint32_t value, int is_signed, int shift) {
    return cm::debug_view(static_cast<int32_t>(value), is_signed, shift);
}
