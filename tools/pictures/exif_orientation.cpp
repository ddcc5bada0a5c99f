// The one tag of Exif data that matters here. A library would read all of it, the notes of camera makers
// included.
#include "picture_formats.h"

namespace pictures {

int exif_orientation(const uint8_t* bytes, size_t size) {
    constexpr uint32_t kOrientation = 0x0112, kShort = 3;
    constexpr size_t kEntry = 12;
    if (size < 8 || bytes[0] != bytes[1] || (bytes[0] != 'I' && bytes[0] != 'M')) {
        return 1;
    }
    const auto number = [&](size_t at, size_t length) {
        uint32_t value = 0;
        for (size_t i = 0; i < length; ++i) {
            value = value << 8 | bytes[bytes[0] == 'M' ? at + i : at + length - 1 - i];
        }
        return value;
    };
    const size_t directory = number(4, 4);
    if (directory > size - 2) {
        return 1;
    }
    const size_t entries = number(directory, 2);
    for (size_t i = 0; i < entries && directory + 2 + (i + 1) * kEntry <= size; ++i) {
        const size_t entry = directory + 2 + i * kEntry;
        if (number(entry, 2) == kOrientation && number(entry + 2, 2) == kShort) {
            const uint32_t value = number(entry + 8, 2);
            return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
        }
    }
    return 1;
}

}  // namespace pictures
