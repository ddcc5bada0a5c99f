// The comparison goes through both files part by part. Where samples lie alike in both, equal bytes are equal
// samples and need no look of their own.
#include "compare.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>

namespace eetool {
namespace {

constexpr size_t kRun = 1024;  // samples that are tested for equality at once

int bin_of(int64_t difference) {
    const int bits = std::bit_width(static_cast<uint64_t>(difference < 0 ? -difference : difference));
    return difference < 0 ? -bits : bits;
}

const std::string* find_unknown(const Samples& part, size_t index) {
    const auto it = std::lower_bound(part.unknown.begin(), part.unknown.end(), index,
                                     [](const Unknown& u, size_t i) { return u.index < i; });
    return it != part.unknown.end() && it->index == index ? &it->digits : nullptr;
}

std::string text_of(const Samples& part, size_t index) {
    const std::string* const digits = find_unknown(part, index);
    return digits != nullptr ? *digits : std::to_string(part.value[index - part.first]);
}

void require_size(const StageFile& expected, const StageFile& actual) {
    if (expected.size() != actual.size()) {
        throw Cannot(expected.path() + " is " + expected.size().text() + " but " + actual.path() + " is " +
                     actual.size().text());
    }
}

// Calls `differ(index, difference, known)` for each pair that differs, in order.
template <typename Differ>
void for_each_difference(StageFile& expected, StageFile& actual, int64_t tolerance, Samples& e, Samples& a,
                         Differ differ) {
    require_size(expected, actual);
    const bool alike = !expected.is_text() && !actual.is_text() && expected.type() == actual.type();
    const size_t bytes = static_cast<size_t>(expected.type().bytes);
    while (expected.next(e)) {
        if (!actual.next(a)) {
            break;
        }
        if (alike && std::memcmp(e.bytes, a.bytes, e.count * bytes) == 0) {
            continue;
        }
        expected.decode(e);
        actual.decode(a);
        const bool all_known = e.unknown.empty() && a.unknown.empty();
        for (size_t i = 0; i < e.count; i += kRun) {
            const size_t stop = std::min(i + kRun, e.count);
            if (all_known && std::memcmp(&e.value[i], &a.value[i], (stop - i) * sizeof(int32_t)) == 0) {
                continue;
            }
            for (size_t k = i; k < stop; ++k) {
                const int64_t difference = int64_t{a.value[k]} - e.value[k];
                const bool known = all_known || (find_unknown(e, e.first + k) == nullptr &&
                                                 find_unknown(a, e.first + k) == nullptr);
                if (!known || difference > tolerance || difference < -tolerance) {
                    differ(e.first + k, difference, known);
                }
            }
        }
    }
}

}  // namespace

Difference compare_files(StageFile& expected, StageFile& actual, int64_t tolerance) {
    Difference found;
    found.size = expected.size();
    constexpr int kBins = 34;
    size_t bins[2 * kBins + 1] = {};
    Samples e, a;
    for_each_difference(expected, actual, tolerance, e, a, [&](size_t index, int64_t difference, bool known) {
        const int x = static_cast<int>(index % static_cast<size_t>(found.size.width));
        const int y = static_cast<int>(index / static_cast<size_t>(found.size.width));
        if (found.differ == 0) {
            found.first = index;
            found.expected = text_of(e, index);
            found.actual = text_of(a, index);
            found.left = found.right = x;
            found.top = y;
        }
        ++found.differ;
        found.left = std::min(found.left, x);
        found.right = std::max(found.right, x);
        found.bottom = y;
        if (!known) {
            ++found.unknown;
            return;
        }
        const int64_t magnitude = difference < 0 ? -difference : difference;
        found.most = std::max(found.most, magnitude);
        found.sum += static_cast<double>(magnitude);
        ++bins[kBins + bin_of(difference)];
    });
    for (int k = -kBins; k <= kBins; ++k) {
        if (const size_t count = bins[kBins + k]; count > 0) {
            found.histogram[k] = count;
        }
    }
    return found;
}

std::vector<std::vector<std::string>> read_window(StageFile& file, int x0, int y0, int x1, int y1) {
    const Size size = file.size();
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, size.width - 1);
    y1 = std::min(y1, size.height - 1);
    std::vector<std::vector<std::string>> rows(static_cast<size_t>(y1 - y0 + 1));
    Samples part;
    int y = y0, x = x0;
    while (y <= y1 && file.next(part)) {
        const auto index = [&] {
            return static_cast<size_t>(y) * static_cast<size_t>(size.width) + static_cast<size_t>(x);
        };
        while (y <= y1 && index() < part.first + part.count) {
            file.decode(part);
            rows[static_cast<size_t>(y - y0)].push_back(text_of(part, index()));
            x = x < x1 ? x + 1 : x0;
            y += x == x0 ? 1 : 0;
        }
    }
    return rows;
}

void write_map(const std::string& path, StageFile& expected, StageFile& actual, int64_t tolerance) {
    const Size size = expected.size();
    std::string picture = "P6\n" + std::to_string(size.width) + " " + std::to_string(size.height) + "\n255\n";
    const size_t start = picture.size();
    picture.resize(start + 3 * size.samples(), '\0');
    Samples e, a;
    for_each_difference(expected, actual, tolerance, e, a, [&](size_t index, int64_t difference, bool known) {
        char* const pixel = &picture[start + 3 * index];
        const int64_t magnitude = difference < 0 ? -difference : difference;
        // One step is seen already; doubling a difference adds as much each time.
        const char light = static_cast<char>(
            std::min(95 + 16 * static_cast<int>(std::bit_width(static_cast<uint64_t>(magnitude))), 255));
        if (!known) {
            std::fill_n(pixel, 3, '\xff');
        } else {
            pixel[difference > 0 ? 0 : 2] = light;
        }
    });
    write_text(path, picture);
}

}  // namespace eetool
