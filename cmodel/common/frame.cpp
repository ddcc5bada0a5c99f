// Frames: create, copy, split, merge, shift, free.
#include <cstdlib>
#include <cstring>

#include "common.h"
#include "fatal.h"
#include "fixed_point.h"
#include "frame_internal.h"
#include "large_pages.h"
#include "log_positions.h"
#include "mirror.h"

char dbg_path[1024];
int dump_dbg_img;

namespace {

size_t sample_count(const FRAME& f) {
    return size_t{f.width} * f.height * f.channels;
}

// Samples for free(), at least one, so that an empty frame is told from a failed allocation; null when
// there is no memory.
int32_t* allocate_samples(size_t samples, bool clear) {
    if (samples > PTRDIFF_MAX / sizeof(int32_t)) {
        return nullptr;
    }
    const size_t size = (samples > 0 ? samples : 1) * sizeof(int32_t);
    void* const memory = clear ? std::calloc(1, size) : std::malloc(size);
    cm::advise_large_pages(memory, size);
    return static_cast<int32_t*>(memory);
}

}  // namespace

FRAME* cm::new_frame(uint32_t file_type, uint32_t format, uint32_t width, uint32_t height, uint32_t channels,
                     int depth, bool clear) {
    size_t samples = 0;
    const bool fits = !__builtin_mul_overflow(size_t{width} * height, size_t{channels}, &samples);
    FRAME* const frame = static_cast<FRAME*>(std::malloc(sizeof(FRAME)));
    int32_t* const data = fits ? allocate_samples(samples, clear) : nullptr;
    if (frame == nullptr || data == nullptr) {
        fail_without_memory();
    }
    *frame = FRAME{file_type, format, 0, width, height, channels, depth, data};
    return frame;
}

void cm::write_row(FRAME& frame, int64_t y, const int32_t* row, int width, int channel) {
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

FRAME* CM_NewFRAME(uint32_t file_type, uint32_t format, uint32_t width, uint32_t height, uint32_t channels,
                   int depth) {
    return cm::new_frame(file_type, format, width, height, channels, depth, true);
}

void CM_DelFRAME(FRAME* frame) {
    if (frame == nullptr || frame->data == nullptr) {
        return;
    }
    std::free(frame->data);
    std::free(frame);
}

FRAME* CM_CopyFRAME(const FRAME* src) {
    FRAME* const copy =
        CM_NewFRAME(src->file_type, src->format, src->width, src->height, src->channels, src->depth);
    std::memcpy(copy->data, src->data, sample_count(*src) * sizeof(int32_t));
    return copy;
}

FRAME* CM_CopySingleCh(const FRAME* src, int channel) {
    if (channel < 0 || static_cast<uint32_t>(channel) >= src->channels) {
        cm::fatal(cm::kExitFormat, "CM_CopySingleCh: no channel %d in a frame of %u\n", channel,
                  src->channels);
    }
    FRAME* const plane =
        CM_NewFRAME(src->file_type, CM_FORMAT_SINGLE, src->width, src->height, 1, src->depth);
    const size_t pixels = size_t{src->width} * src->height;
    for (size_t i = 0; i < pixels; ++i) {
        plane->data[i] = src->data[i * src->channels + static_cast<size_t>(channel)];
    }
    return plane;
}

void CM_CopyFrame(const FRAME* src, FRAME* dst) {
    const uint32_t channels = src->channels < dst->channels ? src->channels : dst->channels;
    for (uint32_t y = 0; y < src->height; ++y) {
        for (uint32_t x = 0; x < src->width; ++x) {
            for (uint32_t c = 0; c < channels; ++c) {
                cm::sample(*dst, x, y, static_cast<int>(c)) = cm::sample(*src, x, y, static_cast<int>(c));
            }
        }
    }
}

void CM_CopyFrame_1to3(const FRAME* src, FRAME* dst) {
    if (src->channels != 1) {
        log_log(LOG_FATAL, cm::at::kCopySource.source, cm::at::kCopySource.line,
                "CM_CopytFrame_1to3 error, src channel != 1");
    }
    if (dst->channels != 3) {
        log_log(LOG_FATAL, cm::at::kCopyTarget.source, cm::at::kCopyTarget.line,
                "CM_CopyFrame_1to3 error, dst channel != 3");
        return;
    }
    for (uint32_t y = 0; y < src->height; ++y) {
        for (uint32_t x = 0; x < src->width; ++x) {
            for (int c = 0; c < 3; ++c) {
                cm::sample(*dst, x, y, c) = cm::sample(*src, x, y, 0);
            }
        }
    }
}

FRAME* CM_Merge3Ch(const FRAME* c0, const FRAME* c1, const FRAME* c2, FRAME* dst) {
    const FRAME* const planes[3] = {c0, c1, c2};
    const int channels = dst->channels < 3 ? static_cast<int>(dst->channels) : 3;
    for (uint32_t y = 0; y < dst->height; ++y) {
        for (uint32_t x = 0; x < dst->width; ++x) {
            for (int c = 0; c < channels; ++c) {
                cm::sample(*dst, x, y, c) = cm::sample(*planes[c], x, y, 0);
            }
        }
    }
    return dst;
}

FRAME* Frame_Set_Constant(FRAME* frame, int value) {
    const size_t n = sample_count(*frame);
    for (size_t i = 0; i < n; ++i) {
        frame->data[i] = value;
    }
    return frame;
}

FRAME* CM_Frame_Shift(const FRAME* src, int n) {
    FRAME* const out = CM_NewFRAME(src->file_type, src->format, src->width, src->height, src->channels,
                                   cm::Wrap(src->depth) - n);
    const size_t count = sample_count(*src);
    for (size_t i = 0; i < count; ++i) {
        out->data[i] = cm::shr_mod32(src->data[i], n);
    }
    return out;
}

FRAME* CM_GetField(const FRAME* src, int parity) {
    const uint32_t height = src->height / 2;
    FRAME* const field = CM_NewFRAME(static_cast<uint32_t>(parity), src->format, src->width, height,
                                     src->channels, src->depth);
    const size_t row = size_t{src->width} * src->channels;
    for (uint32_t y = 0; y < height; ++y) {
        const size_t src_y = 2 * size_t{y} + (parity != 0 ? 1 : 0);
        std::memcpy(field->data + y * row, src->data + src_y * row, row * sizeof(int32_t));
    }
    return field;
}

void CM_SetField(FRAME* dst, const FRAME* field, int parity) {
    const uint32_t channels = field->channels < dst->channels ? field->channels : dst->channels;
    for (uint32_t y = 0; y < dst->height / 2; ++y) {
        const int64_t dst_y = 2 * int64_t{y} + (parity != 0 ? 1 : 0);
        for (uint32_t x = 0; x < dst->width; ++x) {
            for (uint32_t c = 0; c < channels; ++c) {
                cm::sample(*dst, x, dst_y, static_cast<int>(c)) =
                    cm::sample(*field, x, y, static_cast<int>(c));
            }
        }
    }
}
