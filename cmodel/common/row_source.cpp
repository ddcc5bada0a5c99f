#include "row_source.h"

#include <algorithm>
#include <cstring>

#include "fixed_point.h"
#include "frame_internal.h"
#include "large_pages.h"
#include "row_targets.h"

namespace cm {
namespace {

constexpr int kTile = 512;

CM_ROW_TEMPLATE(convert_row, (const int32_t* in, T* __restrict out, int width), (in, out, width)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(in[x]);
    }
}

CM_ROW_FUNCTION(widen_row, (const int16_t* in, int32_t* __restrict out, int width), (in, out, width)) {
    for (int x = 0; x < width; ++x) {
        out[x] = in[x];
    }
}

CM_ROW_FUNCTION(saturate_row, (const int32_t* in, int16_t* __restrict out, int width), (in, out, width)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<int16_t>(clamp32(in[x], -32767, 32767));
    }
}

CM_ROW_FUNCTION(count_outside_row,
                (const int32_t* row, int width, int32_t low, int32_t high, int32_t& outside),
                (row, width, low, high, outside)) {
    int32_t count = 0;
    for (int x = 0; x < width; ++x) {
        count += row[x] < low || row[x] > high;
    }
    outside = count;
}

CM_ROW_TEMPLATE(luma_row,
                (const int32_t* r, const int32_t* g, const int32_t* b, T* __restrict out, int width,
                 const RgbToYcbcr& to),
                (r, g, b, out, width, to)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(to.clamp(to.luma(r[x], g[x], b[x])));
    }
}

CM_ROW_TEMPLATE(cb_row,
                (const int32_t* r, const int32_t* g, const int32_t* b, T* __restrict out, int width,
                 const RgbToYcbcr& to),
                (r, g, b, out, width, to)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(to.clamp(to.cb(r[x], g[x], b[x])));
    }
}

CM_ROW_TEMPLATE(cr_row,
                (const int32_t* r, const int32_t* g, const int32_t* b, T* __restrict out, int width,
                 const RgbToYcbcr& to),
                (r, g, b, out, width, to)) {
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<T>(to.clamp(to.cr(r[x], g[x], b[x])));
    }
}

// `count` samples, `step` apart.
template <typename T>
void gather_row(const int32_t* src, size_t step, int count, T* dst) {
    if (step == 1) {
        convert_row(src, dst, count);
        return;
    }
    for (int i = 0; i < count; ++i) {
        dst[i] = static_cast<T>(src[static_cast<size_t>(i) * step]);
    }
}

}  // namespace

bool RowSource::within(int32_t low, int32_t high, const Area& area) const {
    int32_t row[kTile];
    for (int y = area.y; y < area.y + area.height; ++y) {
        for (int64_t x0 = 0; x0 < area.width; x0 += kTile) {
            const int count = static_cast<int>(std::min<int64_t>(kTile, area.width - x0));
            int32_t outside = 0;
            read(y, area.x + x0, count, row);
            count_outside_row(row, count, low, high, outside);
            if (outside != 0) {
                return false;
            }
        }
    }
    return true;
}

void FrameSource::read_inside(int y, int x, int count, int32_t* dst) const {
    const size_t first = static_cast<size_t>(y) * static_cast<size_t>(width()) + static_cast<size_t>(x);
    gather_row(data_ + step_ * first, step_, count, dst);
}

void FrameSource::read_inside(int y, int x, int count, int16_t* dst) const {
    const size_t first = static_cast<size_t>(y) * static_cast<size_t>(width()) + static_cast<size_t>(x);
    gather_row(data_ + step_ * first, step_, count, dst);
}

// A whole file's samples may use all of their bytes, whatever the depth, and no more.
bool PackedSource::within(int32_t low, int32_t high, const Area& area) const {
    const int bits = 8 * image_.sample_bytes;
    const bool all_fit = image_.complete() && low <= 0 && bits < 31 && (1 << bits) - 1 <= high;
    return all_fit || RowSource::within(low, high, area);
}

void PackedSource::read_inside(int y, int x, int count, int32_t* dst) const {
    image_.read_row(static_cast<uint32_t>(y), 0, static_cast<uint32_t>(x), static_cast<uint32_t>(count), dst);
}

void PackedSource::read_inside(int y, int x, int count, int16_t* dst) const {
    image_.read_row(static_cast<uint32_t>(y), 0, static_cast<uint32_t>(x), static_cast<uint32_t>(count), dst);
}

void PackedChannelSource::read_inside(int y, int x, int count, int32_t* dst) const {
    image_.read_row(static_cast<uint32_t>(y), static_cast<uint32_t>(channel_), static_cast<uint32_t>(x),
                    static_cast<uint32_t>(count), dst);
}

void PackedChannelSource::read_inside(int y, int x, int count, int16_t* dst) const {
    image_.read_row(static_cast<uint32_t>(y), static_cast<uint32_t>(channel_), static_cast<uint32_t>(x),
                    static_cast<uint32_t>(count), dst);
}

bool ColourSource::within(int32_t low, int32_t high, const Area&) const {
    return low <= 0 && depth() < 31 && (1 << depth()) - 1 <= high;  // the conversion clamps to the depth
}

template <typename T>
void ColourSource::convert(int y, int x, int count, T* dst) const {
    const RgbToYcbcr to(depth());
    const auto row = component_ == kLuma ? luma_row<T> : component_ == kCb ? cb_row<T> : cr_row<T>;
    int32_t rgb[3][kTile];
    for (int64_t x0 = 0; x0 < count;) {
        const int columns = static_cast<int>(std::min<int64_t>((kTile - 1) / column_step_ + 1, count - x0));
        const int span = (columns - 1) * column_step_ + 1;
        const RowSource* const channels[3] = {&red_, &green_, &blue_};
        for (int c = 0; c < 3; ++c) {
            channels[c]->read(y, (x + x0) * column_step_, span, rgb[c]);
            for (int i = 1; i < columns && column_step_ > 1; ++i) {
                rgb[c][i] = rgb[c][i * column_step_];
            }
        }
        row(rgb[0], rgb[1], rgb[2], dst + x0, columns, to);
        x0 += columns;
    }
}

void FrameSink::put(int y, const int32_t* row) {
    write_row(frame_, y, row, static_cast<int>(frame_.width));
}

void FrameSink::put(int y, const int16_t* row) {
    int32_t* const dst = frame_.data + size_t{frame_.channels} * static_cast<size_t>(y) * frame_.width;
    if (frame_.channels == 1) {
        widen_row(row, dst, static_cast<int>(frame_.width));
        return;
    }
    for (size_t x = 0; x < frame_.width; ++x) {
        dst[x * frame_.channels] = row[x];
    }
}

void ByteSink::put(int y, const int32_t* row) {
    pack_samples(row, static_cast<size_t>(width_), 1, row_at(y));
}

void ByteSink::put(int y, const int16_t* row) {
    pack_samples(row, static_cast<size_t>(width_), row_at(y));
}

KeptPlane::KeptPlane(int width, int height, int depth, Precision precision)
    : RowSource(width, height, depth) {
    const size_t samples = static_cast<size_t>(width) * static_cast<size_t>(height);
    const size_t size = samples * (precision == kPicture ? sizeof(int16_t) : sizeof(int32_t));
    void* const memory = allocate_bytes(size).release();
    advise_large_pages(memory, size);
    if (precision == kPicture) {
        picture_.reset(static_cast<int16_t*>(memory));
    } else {
        samples_.reset(static_cast<int32_t*>(memory));
    }
}

void KeptPlane::put(int y, const int32_t* row) {
    if (picture_ != nullptr) {
        saturate_row(row, picture_.get() + at(y, 0), width());
    } else {
        std::copy_n(row, width(), samples_.get() + at(y, 0));
    }
}

void KeptPlane::put(int y, const int16_t* row) {
    if (picture_ != nullptr) {
        std::copy_n(row, width(), picture_.get() + at(y, 0));
    } else {
        widen_row(row, samples_.get() + at(y, 0), width());
    }
}

template <typename T>
void KeptPlane::copy_inside(int y, int x, int count, T* dst) const {
    if (samples_ != nullptr) {
        convert_row(samples_.get() + at(y, x), dst, count);
    } else if constexpr (sizeof(T) == sizeof(int16_t)) {
        std::copy_n(picture_.get() + at(y, x), count, dst);
    } else {
        widen_row(picture_.get() + at(y, x), dst, count);
    }
}

}  // namespace cm
