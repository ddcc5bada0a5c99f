#include "clip.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>

#include "stage_files.h"

namespace eetool {
namespace {

constexpr size_t kMostHeader = 4096, kMostFrameLine = 256;
constexpr const char* kMagic = "YUV4MPEG2";

// A number that is the whole text.
bool parse_number(const std::string& text, int& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

// The colour of a header: 420, 420jpeg, 420paldv, 420mpeg2, 422, mono, and with the depth behind it 420p10,
// 422p12, mono16.
void take_colour(const std::string& tag, ClipFormat& format) {
    static const struct {
        const char* tag;
        Chroma chroma;
    } kEight[] = {{"", Chroma::k420},         {"420", Chroma::k420},      {"420jpeg", Chroma::k420},
                  {"420paldv", Chroma::k420}, {"420mpeg2", Chroma::k420}, {"422", Chroma::k422},
                  {"mono", Chroma::kMono}};
    for (const auto& known : kEight) {
        if (tag == known.tag) {
            format.chroma = known.chroma;
            format.depth = 8;
            return;
        }
    }
    static const struct {
        const char* start;
        Chroma chroma;
    } kDeep[] = {{"420p", Chroma::k420}, {"422p", Chroma::k422}, {"mono", Chroma::kMono}};
    for (const auto& known : kDeep) {
        int depth = 0;
        if (tag.starts_with(known.start) && parse_number(tag.substr(4), depth)) {
            if (depth < 9 || depth > 16) {
                throw Cannot("has C" + tag + "; samples of 8 to 16 bits are taken");
            }
            format.chroma = known.chroma;
            format.depth = depth;
            return;
        }
    }
    throw Cannot("has the chroma subsampling C" + tag + "; 420, 422 and mono are taken");
}

// The container that a file is, to judge by its first bytes; null for none that is known.
const char* container_of(const char* bytes, size_t size) {
    const auto has = [&](size_t at, const char* text, size_t length) {
        return size >= at + length && std::memcmp(bytes + at, text, length) == 0;
    };
    return has(4, "ftyp", 4) || has(4, "moov", 4) || has(4, "mdat", 4) ? "an MP4 file"
           : has(0, "RIFF", 4)                                         ? "an AVI file"
           : has(0, "\x1A\x45\xDF\xA3", 4)                             ? "a Matroska file"
           : has(0, kMagic, 9)                                         ? "a Y4M file"
                                                                       : nullptr;
}

constexpr size_t kSignature = 12;  // bytes that container_of() looks at

void check_raw(const char* bytes, size_t size, const auto& fail) {
    if (const char* const container = container_of(bytes, size)) {
        fail(std::string("is ") + container + ", not raw planes");
    }
}

std::string early_end(uint64_t frame, size_t have, size_t need) {
    return "frame " + std::to_string(frame) + " ends early: " + std::to_string(have) + " of " +
           std::to_string(need) + " bytes";
}

bool is_frame_line(const std::string& line) {
    return line == "FRAME" || line.starts_with("FRAME ");
}

// Rounds little-endian 16-bit samples to 8 bits and leaves them as the machine's; whether all fitted.
bool round_samples(uint8_t* samples, size_t count, int depth, uint8_t* dst) {
    const uint32_t half = uint32_t{1} << (depth - 9);
    const int shift = depth - 8;
    uint32_t all = 0;
    for (size_t i = 0; i < count; ++i) {
        uint16_t v;
        std::memcpy(&v, samples + 2 * i, 2);
        if constexpr (std::endian::native == std::endian::big) {
            v = static_cast<uint16_t>(v << 8 | v >> 8);
            std::memcpy(samples + 2 * i, &v, 2);
        }
        all |= v;
        dst[i] = static_cast<uint8_t>(std::min((v + half) >> shift, uint32_t{255}));
    }
    return all >> depth == 0;
}

cmodel_plane plane_of(uint8_t* samples, int type, int width, int height, int depth) {
    const ptrdiff_t bytes = type == CMODEL_U16 ? 2 : 1;
    return {samples, type, width, height, bytes * width, bytes, depth};
}

// Calls read_some(), which reads on from `done`, until there are `size` bytes or no more. False: errno says
// why.
template <typename ReadSome>
bool read_on(size_t size, size_t& done, ReadSome read_some) {
    while (done < size) {
        const ssize_t n = read_some();
        if (n < 0 && errno != EINTR) {
            return false;
        }
        if (n == 0) {
            break;
        }
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return true;
}

}  // namespace

RawFormat::RawFormat(const std::string& format_name, int width, int height, int depth) : name(format_name) {
    const bool known = name == "i420" || name == "nv12" || name == "i422" || name == "mono";
    if (!known) {
        throw Cannot("there is no raw format " + name + "; there are i420, nv12, i422 and mono");
    }
    if (width < 1 || height < 1 || width > kMostSide || height > kMostSide) {
        throw Cannot("raw frames of " + std::to_string(width) + "x" + std::to_string(height) + " cannot be");
    }
    if (depth < 8 || depth > (name == "nv12" ? 8 : 16)) {
        throw Cannot("raw " + name + " with " + std::to_string(depth) + " bits is not taken");
    }
    const Chroma chroma = name == "mono" ? Chroma::kMono : name == "i422" ? Chroma::k422 : Chroma::k420;
    format = {width, height, depth, chroma, name == "nv12"};
}

Y4mHeader parse_y4m_header(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word != kMagic) {
        throw Cannot("is no Y4M file: it does not begin with YUV4MPEG2");
    }
    Y4mHeader header;
    ClipFormat& format = header.format;
    while (words >> word) {
        const std::string value = word.substr(1);
        if (word[0] == 'W' || word[0] == 'H') {
            int& side = word[0] == 'W' ? format.width : format.height;
            if (!parse_number(value, side) || side < 1 || side > kMostSide) {
                throw Cannot("has a header with the size " + word);
            }
        } else if (word[0] == 'C') {
            header.colour = value;
        } else {
            header.others += " " + word;
        }
    }
    if (format.width == 0 || format.height == 0) {
        throw Cannot("has a header without a size");
    }
    take_colour(header.colour, format);
    return header;
}

std::string y4m_header_line(const Y4mHeader& header) {
    const ClipFormat& format = header.format;
    const bool deep = format.depth > 8;
    std::string others;
    std::istringstream words(header.others);
    for (std::string word; words >> word;) {
        if (!deep || !word.starts_with("XYSCSS=")) {  // tells the subsampling with the depth
            others += " " + word;
        }
    }
    std::string line = std::string(kMagic) + " W" + std::to_string(format.width) + " H" +
                       std::to_string(format.height) + others;
    if (!deep) {
        return line + (header.colour.empty() ? "" : " C" + header.colour) + "\n";
    }
    const bool mono = format.chroma == Chroma::kMono;
    return line + (mono ? " Cmono" : format.chroma == Chroma::k422 ? " C422" : " C420jpeg") + "\n";
}

Y4mHeader header_of(const RawFormat& raw, const std::string& rate) {
    const Chroma chroma = raw.format.chroma;
    return {raw.format, " F" + rate + " Ip A0:0",
            chroma == Chroma::kMono  ? "mono"
            : chroma == Chroma::k422 ? "422"
                                     : "420jpeg"};
}

// ---- From front to back ----

ClipStream::ClipStream(const std::string& path, const std::optional<RawFormat>& raw)
    : name_(path == "-" ? "standard input" : path),
      is_raw_(raw.has_value()),
      fd_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) {
        fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    widen_pipe(fd_);
    if (raw) {
        header_.format = raw->format;
        uint8_t start[kSignature];
        const size_t size = read(start, sizeof start);
        ahead_.assign(start, start + size);
        check_raw(ahead_.data(), ahead_.size(), [&](const std::string& what) { fail(what); });
        return;
    }
    std::string line;
    const bool whole = read_line(line, kMostHeader);
    if (!whole && line.starts_with(kMagic)) {
        fail("has a header that does not end");
    }
    try {
        header_ = parse_y4m_header(line);
    } catch (const Cannot& e) {
        fail(e.what());
    }
}

void ClipStream::fail(const std::string& what) const {
    throw Cannot(name_ + (what.starts_with("frame") ? ": " : " ") + what);
}

// What there is, up to `size` bytes; less only at the end.
size_t ClipStream::read(uint8_t* bytes, size_t size) {
    size_t done = std::min(size, ahead_.size());
    if (done > 0) {
        std::memcpy(bytes, ahead_.data(), done);
        ahead_.erase(0, done);
    }
    if (!read_on(size, done, [&] { return ::read(fd_, bytes + done, size - done); })) {
        fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    return done;
}

// Up to the next line end, which is not kept; false when there is none within `most` bytes.
bool ClipStream::read_line(std::string& line, size_t most) {
    uint8_t c = 0;
    while (line.size() < most && read(&c, 1) == 1) {
        if (c == '\n') {
            return true;
        }
        line += static_cast<char>(c);
    }
    return false;
}

bool ClipStream::next(std::vector<uint8_t>& frame) {
    const size_t need = header_.format.frame_bytes();
    if (!is_raw_) {
        std::string line;
        const bool whole = read_line(line, kMostFrameLine);
        if (line.empty() && !whole) {
            return false;
        }
        if (!whole || !is_frame_line(line)) {
            fail("frame " + std::to_string(frames_) + " does not begin with FRAME");
        }
    }
    frame.resize(std::max(frame.size(), need));
    const size_t have = read(frame.data(), need);
    if (is_raw_ && have == 0) {
        return false;
    }
    if (have < need) {
        fail(early_end(frames_, have, need));
    }
    ++frames_;
    return true;
}

// ---- Any frame ----

ClipFile::ClipFile(const std::string& path, const std::optional<RawFormat>& raw)
    : path_(path), raw_(raw), fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    struct stat info {};
    if (fd_ < 0 || fstat(fd_, &info) != 0) {
        fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        fail("is no regular file");
    }
    size_ = static_cast<uint64_t>(info.st_size);
    std::string start(kMostHeader, '\0');
    start.resize(read_at(0, start.data(), start.size()));
    if (raw_) {
        check_raw(start.data(), start.size(), [&](const std::string& what) { fail(what); });
        format_ = raw_->format;
        return;
    }
    const size_t end = start.find('\n');
    if (end == start.npos && start.starts_with(kMagic)) {
        fail("has a header that does not end");
    }
    try {
        format_ = parse_y4m_header(start.substr(0, end)).format;
    } catch (const Cannot& e) {
        fail(e.what());
    }
    end_ = end + 1;
}

void ClipFile::fail(const std::string& what) const {
    throw Cannot(path_ + (what.starts_with("frame") ? ": " : " ") + what);
}

size_t ClipFile::read_at(uint64_t at, void* bytes, size_t size) const {
    size_t done = 0;
    const auto read_some = [&] {
        return pread(fd_, static_cast<uint8_t*>(bytes) + done, size - done, static_cast<off_t>(at + done));
    };
    if (!read_on(size, done, read_some)) {
        fail(std::string("cannot be read: ") + std::strerror(errno));
    }
    return done;
}

// False at the end of the file.
bool ClipFile::find_next() {
    if (end_ >= size_) {
        return false;
    }
    uint64_t start = end_;
    if (!raw_) {
        std::string line(kMostFrameLine, '\0');
        line.resize(read_at(end_, line.data(), line.size()));
        const size_t end = line.find('\n');
        if (end == line.npos || !is_frame_line(line.substr(0, end))) {
            fail("frame " + std::to_string(starts_.size()) + " does not begin with FRAME");
        }
        start += end + 1;
    }
    const size_t need = format_.frame_bytes();
    if (size_ - start < need) {
        fail(early_end(starts_.size(), static_cast<size_t>(size_ - start), need));
    }
    starts_.push_back(start);
    end_ = start + need;
    return true;
}

uint64_t ClipFile::count() {
    while (find_next()) {
    }
    return starts_.size();
}

void ClipFile::read(uint64_t frame, std::vector<uint8_t>& bytes) {
    if (raw_ && size_ % format_.frame_bytes() != 0) {
        count();  // tells which frame is not whole
    }
    while (starts_.size() <= frame) {
        if (!find_next()) {
            fail("has no frame " + std::to_string(frame) + "; it has " + std::to_string(starts_.size()));
        }
    }
    const size_t need = format_.frame_bytes();
    bytes.resize(std::max(bytes.size(), need));
    const size_t have = read_at(starts_[frame], bytes.data(), need);
    if (have < need) {
        fail(early_end(frame, have, need));
    }
}

// ---- Planes ----

void ClipPlanes::set(const ClipFormat& format, uint8_t* bytes) {
    const size_t luma = format.luma_samples(), chroma = format.chroma_samples();
    const int width = format.width, height = format.height, depth = format.depth;
    const bool deep = depth > 8;
    if (deep) {
        luma_.resize(luma);
        own_.resize(2 * chroma);
        const bool luma_fits = round_samples(bytes, luma, depth, luma_.data());
        if (!luma_fits || !round_samples(bytes + 2 * luma, 2 * chroma, depth, own_.data())) {
            throw Cannot("has samples of more than " + std::to_string(depth) + " bits");
        }
    } else if (format.interleaved) {
        own_.resize(2 * chroma);
        for (size_t i = 0; i < chroma; ++i) {
            own_[i] = bytes[luma + 2 * i];
            own_[chroma + i] = bytes[luma + 2 * i + 1];
        }
    } else {
        own_.assign(bytes + luma, bytes + luma + 2 * chroma);
    }
    y = plane_of(deep ? luma_.data() : bytes, CMODEL_U8, width, height, 8);
    yfusion = plane_of(bytes, deep ? CMODEL_U16 : CMODEL_U8, width, height, depth);

    const size_t row = static_cast<size_t>(width + 1) / 2, rows = static_cast<size_t>(height);
    uint8_t* planes = own_.data();
    if (format.chroma == Chroma::kMono) {
        wide_.assign(2 * row * rows, 128);
        planes = wide_.data();
    } else if (format.chroma == Chroma::k420) {
        wide_.resize(2 * row * rows);
        for (size_t r = 0; r < 2 * rows; ++r) {
            const uint8_t* const src = own_.data() + (r < rows ? 0 : chroma) + r % rows / 2 * row;
            std::memcpy(wide_.data() + r * row, src, row);
        }
        planes = wide_.data();
    }
    cb = plane_of(planes, CMODEL_U8, static_cast<int>(row), height, 8);
    cr = plane_of(planes + row * rows, CMODEL_U8, static_cast<int>(row), height, 8);
}

}  // namespace eetool
