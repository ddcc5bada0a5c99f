// Pictures of any bytes: one is refused in one line that begins with its name, or has all its samples, which
// come back from a PNG as they are.
#include <cstring>

#include "fuzz.h"
#include "pictures.h"

namespace {

pictures::Picture decode(const uint8_t* data, size_t size) {
    constexpr size_t kMostPixels = 1 << 16;
    return pictures::decode_picture(data, size, "in", kMostPixels);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pictures::Picture picture;
    try {
        picture = decode(data, size);
    } catch (const pictures::Error& e) {
        FUZZ_CHECK(std::strncmp(e.what(), "in: ", 4) == 0 && std::strlen(e.what()) > 4);
        FUZZ_CHECK(std::strchr(e.what(), '\n') == nullptr);
        return 0;
    }
    FUZZ_CHECK(picture.width > 0 && picture.height > 0 && picture.channels >= 1 && picture.channels <= 4);
    FUZZ_CHECK(picture.max >= 1 && picture.max <= 65535);
    for (int y = 0; y < picture.height; ++y) {
        for (size_t i = 0; i < picture.row_samples(); ++i) {
            FUZZ_CHECK((picture.max > 255 ? picture.row<uint16_t>(y)[i] : picture.row<uint8_t>(y)[i]) <=
                       picture.max);
        }
    }
    const std::vector<uint8_t> png = pictures::encode_picture("out.png", picture);
    const pictures::Picture again = decode(png.data(), png.size());
    FUZZ_CHECK(again.width == picture.width && again.height == picture.height);
    FUZZ_CHECK(again.channels == picture.channels && again.max == (picture.max > 255 ? 65535 : 255));
    FUZZ_CHECK(again.max != picture.max ||
               std::memcmp(again.memory.get(), picture.memory.get(), picture.bytes()) == 0);
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    std::vector<std::string> seeds = {"P5 # grey\n3 1 9\nabc"};
    for (const int channels : {1, 2, 3, 4}) {
        for (const int max : {255, 65535}) {
            pictures::Picture picture = pictures::new_picture("seed", 9, 7, channels, max);
            for (size_t i = 0; i < picture.bytes(); ++i) {
                picture.memory[i] = static_cast<uint8_t>(i * i / 5);
            }
            for (const char* const name : {"seed.png", "seed.tif", "seed.jpg", "seed.pnm"}) {
                try {
                    const std::vector<uint8_t> bytes = pictures::encode_picture(name, picture);
                    seeds.emplace_back(bytes.begin(), bytes.end());
                } catch (const pictures::Error&) {  // the format does not hold it
                }
            }
        }
    }
    return seeds;
}
