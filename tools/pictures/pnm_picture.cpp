// PGM (P5) and PPM (P6) of any maximum, comments anywhere before it.
#include <algorithm>
#include <bit>
#include <cstring>

#include "picture_formats.h"

namespace pictures {
namespace {

class Header {
  public:
    explicit Header(const Source& source) : source_(source) {}

    uint32_t number() {
        const size_t before = at_;
        skip_blanks();
        uint64_t value = 0;
        const size_t first = at_;
        for (; at_ < source_.size && source_.bytes[at_] >= '0' && source_.bytes[at_] <= '9'; ++at_) {
            value = std::min<uint64_t>(value * 10 + (source_.bytes[at_] - '0'), uint64_t{1} << 32);
        }
        if (first == before || at_ == first || value > INT32_MAX) {
            fail();
        }
        return static_cast<uint32_t>(value);
    }
    // Past the one blank that ends the header.
    size_t end() const {
        if (at_ >= source_.size || !is_blank(source_.bytes[at_])) {
            fail();
        }
        return at_ + 1;
    }

  private:
    static bool is_blank(uint8_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    [[noreturn]] void fail() const { source_.fail("its header is bad"); }

    // Blanks, and comments to the end of their line.
    void skip_blanks() {
        bool comment = false;
        for (; at_ < source_.size; ++at_) {
            const uint8_t c = source_.bytes[at_];
            comment = comment ? c != '\n' : c == '#';
            if (!comment && !is_blank(c)) {
                return;
            }
        }
    }

    const Source& source_;
    size_t at_ = 2;
};

}  // namespace

Stored read_pnm(const Source& source) {
    const int channels = source.bytes[1] == '6' ? 3 : 1;
    Header header(source);
    const uint32_t width = header.number(), height = header.number(), max = header.number();
    const size_t first = header.end();
    if (max < 1 || max > 65535) {
        source.fail("its maximum is " + std::to_string(max) + ", not 1 to 65535");
    }
    Stored stored{source.room(width, height, channels, static_cast<int>(max))};
    Picture& picture = stored.picture;
    const size_t present = source.size - first;
    if (present < picture.bytes()) {
        source.fail("ends early: " + std::to_string(present) + " of " + std::to_string(picture.bytes()) +
                    " bytes of samples");
    }
    if (present > picture.bytes()) {
        picture.remark = "has bytes after its first picture, which are not read";
    }
    const uint8_t* in = source.bytes + first;
    uint32_t greatest = 0;
    for (int y = 0; y < picture.height; ++y) {
        if (picture.sample_bytes() == 1) {
            std::memcpy(picture.row<uint8_t>(y), in, picture.row_bytes());
            for (size_t i = 0; i < picture.row_samples(); ++i) {
                greatest = std::max<uint32_t>(greatest, in[i]);
            }
        } else {
            uint16_t* const out = picture.row<uint16_t>(y);
            for (size_t i = 0; i < picture.row_samples(); ++i) {
                out[i] = static_cast<uint16_t>(in[2 * i] << 8 | in[2 * i + 1]);
                greatest = std::max<uint32_t>(greatest, out[i]);
            }
        }
        in += picture.row_bytes();
    }
    if (greatest > max) {
        source.fail("has a sample of " + std::to_string(greatest) + ", above its maximum of " +
                    std::to_string(max));
    }
    return stored;
}

Bytes write_pnm(const std::string&, const Picture& picture) {
    const std::string header = std::string(picture.channels == 3 ? "P6" : "P5") + "\n" +
                               std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n" +
                               std::to_string(picture.max) + "\n";
    Bytes bytes(header.size() + picture.bytes());
    std::copy(header.begin(), header.end(), bytes.begin());
    uint8_t* const out = bytes.data() + header.size();
    std::memcpy(out, picture.memory.get(), picture.bytes());
    if (picture.sample_bytes() == 2 && std::endian::native == std::endian::little) {
        for (size_t i = 0; i < picture.bytes(); i += 2) {
            std::swap(out[i], out[i + 1]);
        }
    }
    return bytes;
}

}  // namespace pictures
