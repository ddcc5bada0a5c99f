#include "plane_array.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace cm {
namespace {

constexpr int kChunk = 256;

// Calls use(S()) with the C++ type of a sample type.
template <typename Use>
void with_type(int type, Use use) {
    switch (type) {
        case CMODEL_U8:
            use(uint8_t{});
            break;
        case CMODEL_S8:
            use(int8_t{});
            break;
        case CMODEL_U16:
            use(uint16_t{});
            break;
        case CMODEL_S16:
            use(int16_t{});
            break;
        case CMODEL_U32:
            use(uint32_t{});
            break;
        case CMODEL_S32:
            use(int32_t{});
            break;
        default:
            break;
    }
}

uint8_t* sample_at(const cmodel_plane& plane, int x, int y) {
    return static_cast<uint8_t*>(plane.data) + plane.row_stride * y + plane.step * x;
}

// Samples lie at any alignment, so they are copied before they are looked at; a whole chunk at once where
// they are neighbours.
template <typename S, typename T>
void load(const uint8_t* src, ptrdiff_t step, int count, T* dst) {
    if (step == ptrdiff_t{sizeof(S)}) {
        S chunk[kChunk];
        for (int x0 = 0; x0 < count; x0 += kChunk) {
            const int n = std::min(kChunk, count - x0);
            std::memcpy(chunk, src + static_cast<size_t>(x0) * sizeof(S), static_cast<size_t>(n) * sizeof(S));
            for (int i = 0; i < n; ++i) {
                dst[x0 + i] = static_cast<T>(chunk[i]);
            }
        }
        return;
    }
    for (int i = 0; i < count; ++i) {
        S v;
        std::memcpy(&v, src + step * i, sizeof v);
        dst[i] = static_cast<T>(v);
    }
}

template <typename S, typename T>
bool store(const T* row, ptrdiff_t step, int count, uint8_t* dst) {
    int lost = 0;
    if (step == ptrdiff_t{sizeof(S)}) {
        S chunk[kChunk];
        for (int x0 = 0; x0 < count; x0 += kChunk) {
            const int n = std::min(kChunk, count - x0);
            for (int i = 0; i < n; ++i) {
                chunk[i] = static_cast<S>(row[x0 + i]);
                lost |= static_cast<int64_t>(chunk[i]) != row[x0 + i];
            }
            std::memcpy(dst + static_cast<size_t>(x0) * sizeof(S), chunk, static_cast<size_t>(n) * sizeof(S));
        }
        return lost != 0;
    }
    for (int i = 0; i < count; ++i) {
        const S v = static_cast<S>(row[i]);
        lost |= static_cast<int64_t>(v) != row[i];
        std::memcpy(dst + step * i, &v, sizeof v);
    }
    return lost != 0;
}

}  // namespace

int bytes_of_type(int type) {
    int bytes = 0;
    with_type(type, [&](auto v) { bytes = static_cast<int>(sizeof v); });
    return bytes;
}

bool type_holds(int type, int64_t least, int64_t greatest) {
    bool holds = false;
    with_type(type, [&](auto v) {
        using Limits = std::numeric_limits<decltype(v)>;
        holds = least >= int64_t{Limits::min()} && greatest <= int64_t{Limits::max()};
    });
    return holds;
}

bool ArraySource::within(int32_t low, int32_t high, const Area& area) const {
    bool all_fit = false;
    with_type(plane_.type, [&](auto v) {
        using Limits = std::numeric_limits<decltype(v)>;
        all_fit = low <= int64_t{Limits::min()} && high >= int64_t{Limits::max()};
    });
    return all_fit || RowSource::within(low, high, area);
}

void ArraySource::read_inside(int y, int x, int count, int32_t* dst) const {
    with_type(plane_.type,
              [&](auto v) { load<decltype(v)>(sample_at(plane_, x, y), plane_.step, count, dst); });
}

void ArraySource::read_inside(int y, int x, int count, int16_t* dst) const {
    with_type(plane_.type,
              [&](auto v) { load<decltype(v)>(sample_at(plane_, x, y), plane_.step, count, dst); });
}

void ArraySink::put(int y, const int32_t* row) {
    with_type(plane_.type, [&](auto v) {
        lost_ |= store<decltype(v)>(row, plane_.step, width_, sample_at(plane_, x_, y));
    });
}

void ArraySink::put(int y, const int16_t* row) {
    with_type(plane_.type, [&](auto v) {
        lost_ |= store<decltype(v)>(row, plane_.step, width_, sample_at(plane_, x_, y));
    });
}

}  // namespace cm
