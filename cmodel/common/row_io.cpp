#include "row_io.h"

#include <cstring>

#include "colour.h"
#include "row_targets.h"

namespace cm {
namespace {

#define CM_COMPONENT_ROW(component)                                                                 \
    CM_ROW_FUNCTION(component##_row,                                                                \
                    (const int32_t* r, const int32_t* g, const int32_t* b, int32_t* out, int width, \
                     const RgbToYcbcr& to),                                                         \
                    (r, g, b, out, width, to)) {                                                    \
        for (int x = 0; x < width; ++x) {                                                           \
            out[x] = to.clamp(to.component(r[x], g[x], b[x]));                                      \
        }                                                                                           \
    }
CM_COMPONENT_ROW(luma)
CM_COMPONENT_ROW(cb)
CM_COMPONENT_ROW(cr)
#undef CM_COMPONENT_ROW

CM_ROW_FUNCTION(widen_row, (const int16_t* in, int32_t* __restrict out, int width), (in, out, width)) {
    for (int x = 0; x < width; ++x) {
        out[x] = in[x];
    }
}

CM_ROW_FUNCTION(count_beyond_row, (const int32_t* row, int width, int32_t bound, int32_t& beyond),
                (row, width, bound, beyond)) {
    int32_t count = 0;
    for (int x = 0; x < width; ++x) {
        count += row[x] > bound || row[x] < -bound;
    }
    beyond = count;
}

}  // namespace

RowSource::RowSource(const FRAME& frame, int channel)
    : kind_(Kind::kFrame),
      frame_(&frame),
      channel_(channel),
      width_(static_cast<int>(frame.width)),
      height_(static_cast<int>(frame.height)),
      depth_(frame.depth) {}

RowSource::RowSource(const PackedImage& image)
    : kind_(Kind::kPacked),
      packed_(&image),
      width_(static_cast<int>(image.width)),
      height_(static_cast<int>(image.height)),
      depth_(image.depth) {}

RowSource::RowSource(const int16_t* samples, int width, int height)
    : kind_(Kind::kShort), short_(samples), width_(width), height_(height), depth_(8) {}

RowSource::RowSource(const PackedImage& rgb, Component component) : RowSource(rgb) {
    kind_ = Kind::kRgb;
    component_ = component;
    for (AlignedRow& row : rgb_rows_) {
        row = allocate_row(rgb.width);
    }
}

void RowSource::read_rgb_row(int y, int32_t* dst) const {
    for (uint32_t c = 0; c < 3; ++c) {
        packed_->read_row(static_cast<uint32_t>(y), c, rgb_rows_[c].get());
    }
    const RgbToYcbcr to(depth_);
    const auto row = component_ == Component::kLuma ? luma_row
                     : component_ == Component::kCb ? cb_row
                                                    : cr_row;
    row(rgb_rows_[0].get(), rgb_rows_[1].get(), rgb_rows_[2].get(), dst, width_, to);
}

void RowSource::read_own_row(int y, int32_t* dst) const {
    if (kind_ == Kind::kRgb) {
        read_rgb_row(y, dst);
        return;
    }
    if (kind_ == Kind::kPacked) {
        packed_->read_row(static_cast<uint32_t>(y), 0, dst);
        return;
    }
    if (kind_ == Kind::kShort) {
        widen_row(short_ + static_cast<size_t>(y) * static_cast<size_t>(width_), dst, width_);
        return;
    }
    const size_t step = frame_->channels;
    const int32_t* const src =
        frame_->data + step * static_cast<size_t>(y) * frame_->width + static_cast<size_t>(channel_);
    if (step == 1) {
        std::memcpy(dst, src, frame_->width * sizeof(int32_t));
        return;
    }
    for (size_t x = 0; x < frame_->width; ++x) {
        dst[x] = src[x * step];
    }
}

bool RowSource::within(int32_t bound) const {
    if (kind_ == Kind::kRgb) {
        return depth_ < 31 && (1 << depth_) - 1 <= bound;
    }
    if (kind_ == Kind::kShort) {
        return bound >= 32768;
    }
    if (kind_ == Kind::kPacked) {
        // Samples may use all of their bytes, whatever the depth; past the end of the file they are
        // negative, and of a magnitude just above that.
        const int bits = 8 * packed_->sample_bytes;
        return bits <= 24 && (1 << bits) + (1 << bits) / 255 <= bound;
    }
    const size_t step = frame_->channels;
    const size_t samples = step * frame_->width * frame_->height;
    if (step != 1) {
        for (size_t i = static_cast<size_t>(channel_); i < samples; i += step) {
            if (frame_->data[i] > bound || frame_->data[i] < -bound) {
                return false;
            }
        }
        return true;
    }
    constexpr size_t kChunk = 4096;
    for (size_t first = 0; first < samples; first += kChunk) {
        int32_t beyond = 0;
        count_beyond_row(frame_->data + first, static_cast<int>(std::min(kChunk, samples - first)), bound,
                         beyond);
        if (beyond != 0) {
            return false;
        }
    }
    return true;
}

void RowSource::read(int64_t y, int32_t* dst, int width) const {
    const int own_y = mirror(y, height_);
    if (width == width_) {
        read_own_row(own_y, dst);
        return;
    }
    if (own_row_ == nullptr) {
        own_row_ = allocate_row(static_cast<size_t>(width_));
    }
    read_own_row(own_y, own_row_.get());
    for (int x = 0; x < width; ++x) {
        dst[x] = own_row_[static_cast<size_t>(mirror(x, width_))];
    }
}

const int32_t* RowSource::row(int64_t y, int32_t* scratch, int width) const {
    if (kind_ == Kind::kFrame && frame_->channels == 1 && width <= width_) {
        return frame_->data + static_cast<size_t>(mirror(y, height_)) * frame_->width;
    }
    read(y, scratch, width);
    return scratch;
}

void RowSource::read_padded(int64_t y, int32_t* dst, int width) const {
    read(y, dst, width);
    if (width == width_) {
        pad_row(dst, width);
        return;
    }
    for (int k = 1; k <= kMaxReach; ++k) {
        dst[-k] = own_row_[static_cast<size_t>(mirror(-k, width_))];
        dst[int64_t{width} - 1 + k] = own_row_[static_cast<size_t>(mirror(int64_t{width} - 1 + k, width_))];
    }
}

void write_row(FRAME& frame, int64_t y, const int32_t* row, int width, int channel) {
    const size_t own_y = static_cast<size_t>(mirror(y, static_cast<int>(frame.height)));
    int32_t* const dst = frame.data + frame.channels * own_y * frame.width + channel;
    if (frame.channels == 1 && static_cast<int>(frame.width) == width) {
        std::memcpy(dst, row, frame.width * sizeof(int32_t));
        return;
    }
    for (int x = 0; x < width; ++x) {
        dst[frame.channels * static_cast<size_t>(mirror(x, static_cast<int>(frame.width)))] = row[x];
    }
}

}  // namespace cm
