// Debug views and debug images: intermediates made visible in 8 bits.
#include <memory>

#include "ee_blocks.h"
#include "fixed_point.h"
#include "mirror.h"
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

void write_sign_image(const std::string& path, const FRAME& delta) {
    FRAME* const image = CM_NewFRAME(2, CM_FORMAT_RGB, delta.width, delta.height, 3, 8);
    const size_t pixels = size_t{delta.width} * delta.height;
    for (size_t i = 0; i < pixels; ++i) {
        const int32_t v = delta.data[i * delta.channels];
        image->data[3 * i] = v >= 0 ? min32(v, 255) : 0;
        image->data[3 * i + 1] = v < 0 ? min32(magnitude(v), 255) : 0;
    }
    CM_WritePPM(path.c_str(), image);
    CM_DelFRAME(image);
}

}  // namespace cm

int EE_GenDbgOut(uint32_t value, int is_signed, int shift) {
    return cm::debug_view(static_cast<int32_t>(value), is_signed, shift);
}
