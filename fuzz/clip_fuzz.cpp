// Clips of any bytes: read from front to back and frame by frame they give the same frames, or the same
// message. The first byte of an input chooses Y4M or what the raw planes are.
#include "clip.h"

#include <cstring>

#include "fuzz.h"
#include "stage_files.h"

namespace {

using Frames = std::vector<std::string>;

std::string text_of(const std::vector<uint8_t>& bytes, size_t size) {
    return {reinterpret_cast<const char*>(bytes.data()), size};
}

// The planes hold what they say, within their depth.
void check_planes(const eetool::ClipFormat& format, std::string frame) {
    eetool::ClipPlanes planes;
    try {
        planes.set(format, reinterpret_cast<uint8_t*>(frame.data()));
    } catch (const eetool::Cannot&) {
        FUZZ_CHECK(format.depth > 8);
        return;
    }
    FUZZ_CHECK(planes.own_chroma().size() == 2 * format.chroma_samples());
    FUZZ_CHECK(planes.cb.width == (format.width + 1) / 2 && planes.cr.height == format.height);
    uint32_t sum = 0;
    for (const cmodel_plane* const p : {&planes.y, &planes.cb, &planes.cr}) {
        for (int y = 0; y < p->height; ++y) {
            sum += *(static_cast<const uint8_t*>(p->data) + y * p->row_stride + (p->width - 1) * p->step);
        }
    }
    FUZZ_CHECK(sum <= 255U * 3U * static_cast<uint32_t>(format.height));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const uint8_t kind = in.byte();
    std::optional<eetool::RawFormat> raw;
    if (kind % 4 != 0) {
        static const char* const kFormats[] = {"", "i420", "i422", "mono"};
        const uint8_t shape = in.byte();
        raw.emplace(kind % 64 == 63 ? "nv12" : kFormats[kind % 4], 1 + shape % 16, 1 + shape / 16,
                    kind % 64 == 63 ? 8 : 8 + kind / 4 % 9);
    }
    const std::string path = write_file(scratch_path("in.clip"), in.rest());
    Frames streamed, found;
    std::string stream_error, file_error;
    eetool::ClipFormat format;
    try {
        eetool::ClipStream stream(path, raw);
        format = stream.header().format;
        std::vector<uint8_t> bytes;
        while (format.frame_bytes() < size_t{1} << 20 && stream.next(bytes)) {
            streamed.push_back(text_of(bytes, format.frame_bytes()));
        }
    } catch (const eetool::Cannot& e) {
        stream_error = e.what();
        FUZZ_CHECK(stream_error.size() > path.size());
    }
    try {
        eetool::ClipFile file(path, raw);
        std::vector<uint8_t> bytes;
        const size_t need = file.format().frame_bytes();
        for (uint64_t n = 0; need < size_t{1} << 20 && n < file.count(); ++n) {
            file.read(n, bytes);
            found.push_back(text_of(bytes, need));
        }
    } catch (const eetool::Cannot& e) {
        file_error = e.what();
    }
    FUZZ_CHECK(stream_error == file_error);
    FUZZ_CHECK(!file_error.empty() || found == streamed);
    for (const std::string& frame : streamed) {
        check_planes(format, frame);
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    using namespace std::string_literals;
    const std::string frame = "FRAME\n" + std::string(40, '\1');
    return {"\0YUV4MPEG2 W3 H2 F25:1 Ip A1:1 C420jpeg XYSCSS=420JPEG\n"s + frame.substr(0, 16),
            "\0YUV4MPEG2 W2 H3 C422\nFRAME Ip\n"s + std::string(12, 'y') + "FRAME\n" + std::string(12, 'z'),
            "\0YUV4MPEG2 W5 H4 Cmono10\n"s + frame,
            "\0YUV4MPEG2 W2 H2 C420p16\n"s + frame.substr(0, 18),
            "\0YUV4MPEG2 W99999 H65536 C444\n"s,
            "\x01\x12"s + std::string(36, 'i'),
            "\x06\x21"s + std::string(24, 'j'),
            "\x27\x33"s + std::string(64, '\2'),
            "\x3f\x11"s + std::string(12, 'n'),
            "\x01\x12\0\0\0\x20"
            "ftypisom"s};
}
