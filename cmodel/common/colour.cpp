// Colour-space conversion of whole frames.
#include "colour.h"

#include <cmath>
#include <cstdlib>

#include "common.h"
#include "fatal.h"
#include "log_positions.h"
#include "mirror.h"

namespace {

// The format, and the three channels that go with it.
void require_format(const FRAME& frame, uint32_t format, const cm::LogPosition& position,
                    const char* message) {
    if (frame.format != format || frame.channels < 3) {
        log_log(LOG_FATAL, position.source, position.line, "%s", message);
        std::exit(cm::kExitFormat);
    }
}

// Calls convert(in, out) with the three samples of each pixel of src.
template <typename Convert>
void convert_pixels(const FRAME& src, FRAME& dst, Convert convert) {
    for (uint32_t y = 0; y < src.height; ++y) {
        for (uint32_t x = 0; x < src.width; ++x) {
            const int32_t* const in = &cm::sample(const_cast<FRAME&>(src), x, y, 0);
            convert(in, &cm::sample(dst, x, y, 0));
        }
    }
}

FRAME* new_converted(const FRAME& src, uint32_t format) {
    return CM_NewFRAME(src.file_type, format, src.width, src.height, src.channels, src.depth);
}

int32_t round_to_byte(float f) {
    const double rounded = std::floor(static_cast<double>(f) + 0.5);
    return rounded < 0 ? 0 : rounded >= 255 ? 255 : static_cast<int32_t>(rounded);
}

// The factors and limits are those of 8-bit samples; intended for every depth.
void inverse(const int32_t* in, int32_t* out) {
    const double y = static_cast<float>(in[0]);
    const double cb = static_cast<double>(static_cast<float>(in[1])) - 128;
    const double cr = static_cast<double>(static_cast<float>(in[2])) - 128;
    out[0] = round_to_byte(static_cast<float>(y + cr * 1.371));
    out[1] = round_to_byte(static_cast<float>(y - cr * 0.6982 - cb * 0.3365));
    out[2] = round_to_byte(static_cast<float>(y + cb * 1.732));
}

}  // namespace

FRAME* CM_RGB2YCbCr(const FRAME* src) {
    require_format(*src, CM_FORMAT_RGB, cm::at::kRgbToYcbcrFormat, "RGB2YCbCr format error");
    FRAME* const dst = new_converted(*src, CM_FORMAT_YCBCR);
    const cm::RgbToYcbcr to(src->depth);
    convert_pixels(*src, *dst, [&to](const int32_t* in, int32_t* out) {
        out[0] = to.clamp(to.luma(in[0], in[1], in[2]));
        out[1] = to.clamp(to.cb(in[0], in[1], in[2]));
        out[2] = to.clamp(to.cr(in[0], in[1], in[2]));
    });
    return dst;
}

FRAME* CM_RGB2YCbCr_safe(const FRAME* src, FRAME* dst) {
    require_format(*src, CM_FORMAT_RGB, cm::at::kRgbToYcbcrSafeSource, "RGB2YCbCr format error");
    require_format(*dst, CM_FORMAT_YCBCR, cm::at::kRgbToYcbcrSafeTarget, "RGB2YCbCr format error");
    const cm::RgbToYcbcr to(src->depth);
    convert_pixels(*src, *dst, [&to](const int32_t* in, int32_t* out) {
        out[0] = to.luma(in[0], in[1], in[2]);
        out[1] = to.cb(in[0], in[1], in[2]);
        out[2] = to.cr(in[0], in[1], in[2]);
    });
    return dst;
}

FRAME* CM_YCbCr2RGB(const FRAME* src) {
    require_format(*src, CM_FORMAT_YCBCR, cm::at::kYcbcrToRgbFormat, "YCbCr2RGB format error");
    FRAME* const dst = new_converted(*src, CM_FORMAT_RGB);
    convert_pixels(*src, *dst, inverse);
    return dst;
}

void CM_YCbCr2RGB_safe(const FRAME* src, FRAME* dst) {
    require_format(*src, CM_FORMAT_YCBCR, cm::at::kYcbcrToRgbSafeFormat, "YCbCr2RGB format error");
    require_format(*dst, dst->format /* any */, cm::at::kYcbcrToRgbSafeFormat, "YCbCr2RGB format error");
    convert_pixels(*src, *dst, inverse);
}
