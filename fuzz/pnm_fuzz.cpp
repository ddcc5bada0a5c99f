// Image readers on files of any bytes: a file is refused exactly when the plain reader refuses it, and
// else gives its samples. The first byte of an input chooses the reader, the rest is the file.
#include <cstring>

#include "common.h"
#include "fuzz.h"
#include "plain_model.h"

namespace {

enum Reader { kColour, kGrey, kSafe, kRaw, kReaders };

// Pixels that the header claims before any check, as a number that cannot overflow; 0 without a claim.
double claimed_pixels(const std::string& file) {
    size_t at = std::min(std::min(file.find('\n'), size_t{14}) + 1, file.size());
    while (at < file.size() && file[at] == '#') {
        at = std::min(file.find('\n', at), file.size() - 1) + 1;
    }
    double width = 0, height = 0;
    std::sscanf(file.c_str() + at, "%lf %lf", &width, &height);
    return width * height;
}

void check_fatal(const std::string& path, const std::optional<plain::Plane>& want, bool colour) {
    FRAME* frame = nullptr;
    const std::optional<int> status =
        exit_status([&] { frame = (colour ? CM_ReadPPM : CM_ReadPPM5)(path.c_str(), 9); });
    FUZZ_CHECK(status == (want ? std::nullopt : std::optional(1)));
    if (want) {
        FUZZ_CHECK(frame->file_type == 9 && frame->format == (colour ? CM_FORMAT_RGB : CM_FORMAT_SINGLE));
        FUZZ_CHECK(frame->depth == want->depth && static_cast<int>(frame->channels) == want->channels);
        FUZZ_CHECK(static_cast<int>(frame->width) == want->width &&
                   static_cast<int>(frame->height) == want->height);
        FUZZ_CHECK(std::memcmp(frame->data, want->data.data(), want->data.size() * sizeof(int32_t)) == 0);
        CM_DelFRAME(frame);
    }
}

// Into a frame of two channels, of which the reader may touch one, within the file's size.
void check_safe(const std::string& path, const std::optional<plain::Plane>& want) {
    constexpr int kSide = 9, kMark = 0x5a5a5a5a;
    FRAME* const frame = Frame_Set_Constant(CM_NewFRAME(1, CM_FORMAT_SINGLE, kSide, kSide, 2, 8), kMark);
    const bool fits = want && want->width <= kSide && want->height <= kSide;
    FUZZ_CHECK(CM_ReadPPM5_safe(path.c_str(), frame) == (fits ? 0 : -1));
    for (int i = 0; i < kSide * kSide * 2; ++i) {
        const int x = i / 2 % kSide, y = i / 2 / kSide;
        const bool filled = fits && i % 2 == 0 && x < want->width && y < want->height;
        FUZZ_CHECK(frame->data[i] == (filled ? (*want)(x, y) : kMark));
    }
    CM_DelFRAME(frame);
}

void check_raw(Input in) {
    const int32_t plane = static_cast<int32_t>(in.word()) >> in.byte() % 32;
    const int layout = in.byte() % 4;
    const uint32_t width = in.byte() % 32, height = in.byte() % 32;
    const std::string file = in.rest(), path = write_file(scratch_path("in.raw"), file);
    FRAME* const frame = CM_ReadRAW(path.c_str(), CM_FORMAT_RAW_RGB, plane, layout, width, height, 12);
    for (int64_t i = 0; i < int64_t{width} * height; ++i) {
        const int64_t line = int64_t{plane} + (layout == 2) + i / width * (layout == 0 ? 2 : 3);
        const int64_t at = 2 * (line * width + i % width), end = static_cast<int64_t>(file.size());
        const auto byte = [&](int64_t k) {
            return line >= 0 && k < end ? static_cast<uint8_t>(file[static_cast<size_t>(k)]) : -1;
        };
        FUZZ_CHECK(frame->data[i] == byte(at) + 256 * byte(at + 1));
    }
    CM_DelFRAME(frame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    log_set_quiet(true);
    Input in{data, size};
    const int reader = in.byte() % kReaders;
    if (reader == kRaw) {
        check_raw(in);
        return 0;
    }
    const double pixels = claimed_pixels(in.rest());
    const bool addressable = pixels * (reader == kColour ? 12 : 4) <= static_cast<double>(PTRDIFF_MAX);
    const bool large = addressable && pixels > 1 << 16;
    if (large && reader != kSafe) {
        return 0;  // may be right, and takes all memory; the safe reader takes none for it
    }
    const std::string path = write_file(scratch_path("in.pnm"), in.rest());
    std::optional<plain::Plane> want;
    static plain::Model model("0");
    model.log.clear();
    try {
        if (addressable && !large) want = model.read(path, reader == kColour);
    } catch (const plain::Exit&) {
    }
    if (reader == kSafe) {
        check_safe(path, want);
    } else {
        check_fatal(path, want, reader == kColour);
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    using namespace std::string_literals;
    return {"\0P6\n2 2\n255\nabcdefghijkl"s,
            "\0P6\n# comment\n#\n1 3\n1023\nab"s,
            "\x01P5\n3 2\n255\nabcdef"s,
            "\x01P5 3 4\n1 1\n1\n"s,
            "\x01P5\n1 1\n4294967295\n\x80\x01\x02\x03"s,
            "\x01P5\n4294967297 1\n255\n"s,
            "\x01P5\n2147483647 2147483647\n255\n"s,
            "\x02P5\n9 1\n16777215\nabcdefghijklmnopqrstuvwxyz0"s,
            "\x02P5\n2 0\n0\n"s,
            "\x02P5\n99999 99999\n255\n"s,
            "\x03\0\0\0\x01\0\x02\x02\x03"s + std::string(60, 'r'),
            "\x03\xff\xff\xff\xff\0\x01\x04\x04"s + std::string(60, 's')};
}
