#include "plane_array.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "row_targets.h"

namespace cm {
namespace {

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

// Samples S and rows of D.
template <typename S, typename D>
struct Types {
    using Sample = S;
    using Row = D;
};

// Samples lie at any alignment, so they are copied; where they are neighbours the compiler makes vectors of
// it.
template <typename T>
CM_INLINE void load_sample(const uint8_t* src, typename T::Row* dst) {
    typename T::Sample v;
    std::memcpy(&v, src, sizeof v);
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): signed samples are numbers
    *dst = static_cast<typename T::Row>(v);
}

// Not 0: the type does not hold the value.
template <typename T>
CM_INLINE int32_t store_sample(int32_t wanted, uint8_t* dst) {
    using Sample = typename T::Sample;
    const Sample v = static_cast<Sample>(wanted);
    std::memcpy(dst, &v, sizeof v);
    // In 32 bits, of which an unsigned sample holds those that are not negative.
    return std::is_same_v<Sample, uint32_t> ? wanted & INT32_MIN : static_cast<int32_t>(v) ^ wanted;
}

CM_ROW_TEMPLATE(load_row, (const uint8_t* src, typename T::Row* __restrict dst, int count),
                (src, dst, count)) {
    for (int i = 0; i < count; ++i) {
        load_sample<T>(src + static_cast<size_t>(i) * sizeof(typename T::Sample), dst + i);
    }
}

CM_ROW_TEMPLATE(store_row, (const typename T::Row* row, uint8_t* __restrict dst, int count, int32_t& lost),
                (row, dst, count, lost)) {
    int32_t any = 0;
    for (int i = 0; i < count; ++i) {
        any |= store_sample<T>(row[i], dst + static_cast<size_t>(i) * sizeof(typename T::Sample));
    }
    lost = any;
}

template <typename S, typename T>
void load(const uint8_t* src, ptrdiff_t step, int count, T* dst) {
    if (step == ptrdiff_t{sizeof(S)}) {
        load_row<Types<S, T>>(src, dst, count);
        return;
    }
    for (int i = 0; i < count; ++i) {
        load_sample<Types<S, T>>(src + step * i, dst + i);
    }
}

template <typename S, typename T>
bool store(const T* row, ptrdiff_t step, int count, uint8_t* dst) {
    int32_t lost = 0;
    if (step == ptrdiff_t{sizeof(S)}) {
        store_row<Types<S, T>>(row, dst, count, lost);
        return lost != 0;
    }
    for (int i = 0; i < count; ++i) {
        lost |= store_sample<Types<S, T>>(row[i], dst + step * i);
    }
    return lost != 0;
}

// Rows of a small rectangle lie too far apart for the processor to foresee the next: it is told.
void prefetch_row(const cmodel_plane& plane, int y, int x, int count) {
    constexpr int kAhead = 4, kLine = 64, kFewBytes = 2048;
    const ptrdiff_t bytes = plane.step * count;
    if (y < plane.height - kAhead && bytes > 0 && bytes <= kFewBytes) {
        const uint8_t* const row = sample_at(plane, x, y + kAhead);
        for (ptrdiff_t at = 0; at < bytes; at += kLine) {
            __builtin_prefetch(row + at);
        }
    }
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
    prefetch_row(plane_, y, x, count);
    with_type(plane_.type,
              [&](auto v) { load<decltype(v)>(sample_at(plane_, x, y), plane_.step, count, dst); });
}

void ArraySource::read_inside(int y, int x, int count, int16_t* dst) const {
    prefetch_row(plane_, y, x, count);
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
