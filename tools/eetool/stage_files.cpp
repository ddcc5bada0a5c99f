// Files of stages: each format's writer, and one reader that goes through a file part by part.
#include "stage_files.h"

#include <nettle/sha2.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <utility>

namespace eetool {
namespace {

constexpr size_t kBlock = size_t{1} << 16;  // bytes
constexpr int64_t kMostSide = int64_t{1} << 30;
constexpr bool kBigMachine = std::endian::native == std::endian::big;

const struct {
    Format format;
    const char* extension;
} kExtensions[] = {{Format::kNpy, "npy"}, {Format::kRaw, "raw"}, {Format::kRaw, "bin"}, {Format::kHex, "hex"},
                   {Format::kHex, "mem"}, {Format::kHex, "txt"}, {Format::kPgm, "pgm"}};

// Copies `count` samples, bytes turned round if so asked.
void copy_samples(const uint8_t* src, size_t count, int bytes, bool turn, uint8_t* dst) {
    const size_t step = static_cast<size_t>(bytes);
    if (!turn || bytes == 1) {
        std::memcpy(dst, src, count * step);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        std::reverse_copy(src + i * step, src + (i + 1) * step, dst + i * step);
    }
}

template <typename T, bool kTurn>
bool widen(const uint8_t* src, size_t count, int32_t* dst) {
    bool fits = true;
    for (size_t i = 0; i < count; ++i) {
        uint8_t raw[sizeof(T)];
        std::memcpy(raw, src + i * sizeof(T), sizeof(T));
        if (kTurn) {
            std::reverse(raw, raw + sizeof(T));
        }
        T v;
        std::memcpy(&v, raw, sizeof v);
        dst[i] = static_cast<int32_t>(v);  // NOLINT(bugprone-signed-char-misuse): bytes with a sign are meant
        if constexpr (sizeof(T) >= sizeof(int32_t)) {
            fits = fits && std::in_range<int32_t>(v);
        }
    }
    return fits;
}

// Samples of a type as 32-bit ones; whether all fitted.
template <bool kTurn>
bool widen(const SampleType& type, const uint8_t* src, size_t count, int32_t* dst) {
    switch (type.bytes) {
        case 1:
            return type.is_signed ? widen<int8_t, kTurn>(src, count, dst)
                                  : widen<uint8_t, kTurn>(src, count, dst);
        case 2:
            return type.is_signed ? widen<int16_t, kTurn>(src, count, dst)
                                  : widen<uint16_t, kTurn>(src, count, dst);
        case 4:
            return type.is_signed ? widen<int32_t, kTurn>(src, count, dst)
                                  : widen<uint32_t, kTurn>(src, count, dst);
        default:
            return type.is_signed ? widen<int64_t, kTurn>(src, count, dst)
                                  : widen<uint64_t, kTurn>(src, count, dst);
    }
}

// A file that is written whole or not at all.
class NewFile {
  public:
    explicit NewFile(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "wb")) {
        if (file_ == nullptr) {
            throw Cannot(path_ + " cannot be written: " + std::strerror(errno));
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (file_ != nullptr) {
            std::fclose(file_);
            unlink(path_.c_str());
        }
    }

    void write(const void* bytes, size_t size) {
        if (std::fwrite(bytes, 1, size, file_) != size) {
            fail();
        }
    }
    void write(const std::string& text) { write(text.data(), text.size()); }
    void close() {
        if (std::fflush(file_) != 0) {
            fail();
        }
        FILE* const file = file_;
        file_ = nullptr;
        if (std::fclose(file) != 0) {
            unlink(path_.c_str());
            fail();
        }
    }

  private:
    [[noreturn]] void fail() const {
        throw Cannot(path_ + " could not be written whole: " + std::strerror(errno));
    }

    const std::string path_;
    FILE* file_;
};

std::string npy_header(const SampleType& type, Size size) {
    const std::string descr =
        std::string(type.bytes == 1 ? "|" : "<") + (type.is_signed ? "i" : "u") + std::to_string(type.bytes);
    std::string text = "{'descr': '" + descr + "', 'fortran_order': False, 'shape': (" +
                       std::to_string(size.height) + ", " + std::to_string(size.width) + "), }";
    constexpr size_t kBefore = 10, kAlign = 64;
    text.append(kAlign - 1 - (kBefore + text.size()) % kAlign, ' ');
    text += '\n';
    std::string header("\x93NUMPY\x01\x00", 8);
    header += static_cast<char>(text.size() & 255);
    header += static_cast<char>(text.size() >> 8);
    return header + text;
}

// A row a line, each sample in all digits of its type.
void write_hex(NewFile& out, const SampleType& type, Size size, const uint8_t* samples) {
    static const char kDigits[] = "0123456789abcdef";
    const size_t width = static_cast<size_t>(size.width);
    std::vector<int32_t> row(width);
    std::string line;
    for (int y = 0; y < size.height; ++y) {
        widen<false>(type, samples + static_cast<size_t>(y) * width * static_cast<size_t>(type.bytes), width,
                     row.data());
        line.clear();
        for (const int32_t v : row) {
            for (int shift = 8 * type.bytes - 4; shift >= 0; shift -= 4) {
                line += kDigits[static_cast<uint32_t>(v) >> shift & 15];
            }
            line += ' ';
        }
        line.back() = '\n';
        out.write(line);
    }
}

}  // namespace

SampleType type_of(const cmodel_stage_info& stage) {
    const bool is_byte = stage.least >= 0 && stage.greatest <= 255;
    const bool is_short = stage.least >= -32768 && stage.greatest <= 32767;
    return {is_byte ? 1 : is_short ? 2 : 4, !is_byte, kBigMachine};
}

int model_type_of(const cmodel_stage_info& stage) {
    const int bytes = type_of(stage).bytes;
    return bytes == 1 ? CMODEL_U8 : bytes == 2 ? CMODEL_S16 : CMODEL_S32;
}

const cmodel_stage_info* find_stage(const std::string& name) {
    for (int i = 0; cmodel_pipeline(i) != nullptr; ++i) {
        const int at = cmodel_find_stage(cmodel_pipeline(i), name.c_str());
        if (at >= 0) {
            return cmodel_stage(cmodel_pipeline(i), at);
        }
    }
    return nullptr;
}

std::optional<Format> format_of(const std::string& path) {
    const size_t dot = path.find_last_of("./");
    if (dot != path.npos && path[dot] == '.') {
        for (const auto& known : kExtensions) {
            if (path.substr(dot + 1) == known.extension) {
                return known.format;
            }
        }
    }
    return std::nullopt;
}

const char* extension_of(Format format) {
    return std::find_if(std::begin(kExtensions), std::end(kExtensions),
                        [&](const auto& known) { return known.format == format; })
        ->extension;
}

std::string sha256_of(const void* samples, size_t count, const SampleType& type) {
    sha256_ctx hash;
    sha256_init(&hash);
    const uint8_t* src = static_cast<const uint8_t*>(samples);
    uint8_t block[kBlock];
    const size_t step = static_cast<size_t>(type.bytes);
    for (size_t part; count > 0; count -= part, src += part * step) {
        part = std::min(count, kBlock / step);
        copy_samples(src, part, type.bytes, !type.big_endian, block);
        sha256_update(&hash, part * step, block);
    }
    uint8_t digest[SHA256_DIGEST_SIZE];
    sha256_digest(&hash, sizeof digest, digest);
    std::string text;
    for (const uint8_t byte : digest) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

void write_stage(const std::string& path, Format format, const cmodel_stage_info& stage, Size size,
                 const void* samples) {
    const SampleType type = type_of(stage);
    const uint8_t* const src = static_cast<const uint8_t*>(samples);
    NewFile out(path);
    if (format == Format::kHex) {
        write_hex(out, type, size, src);
        out.close();
        return;
    }
    if (format == Format::kNpy) {
        out.write(npy_header(type, size));
    } else if (format == Format::kPgm) {
        const int max = (1 << std::bit_width(static_cast<uint32_t>(stage.greatest))) - 1;
        out.write("P5\n" + std::to_string(size.width) + " " + std::to_string(size.height) + "\n" +
                  std::to_string(std::max(max, 255)) + "\n");
    }
    const size_t step = static_cast<size_t>(type.bytes);
    uint8_t block[kBlock];
    for (size_t at = 0, part; at < size.samples(); at += part) {
        part = std::min(size.samples() - at, kBlock / step);
        copy_samples(src + at * step, part, type.bytes, (format == Format::kPgm) != type.big_endian, block);
        out.write(block, part * step);
    }
    out.close();
}

void write_text(const std::string& path, const std::string& text) {
    NewFile out(path);
    out.write(text);
    out.close();
}

std::string read_text(const std::string& path) {
    FILE* const file = std::fopen(path.c_str(), "rb");
    std::string text;
    char block[kBlock];
    for (size_t n; file != nullptr && (n = std::fread(block, 1, sizeof block, file)) > 0;) {
        text.append(block, n);
    }
    const int error = errno;
    const bool failed = file == nullptr || std::ferror(file) != 0;
    if (file != nullptr) {
        std::fclose(file);
    }
    if (failed) {
        throw Cannot(path + " cannot be read: " + std::strerror(error));
    }
    return text;
}

// ---- The reader ----

StageFile::StageFile(const std::string& path, const Expected& expected)
    : path_(path), file_(std::fopen(path.c_str(), "rb")) {
    if (file_ == nullptr) {
        fail_to_read();
    }
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);  // parts are large
    buffer_.resize(kBlock);
    const std::optional<Format> format = format_of(path);
    if (!format) {
        fail("has none of the extensions npy, raw, bin, hex, mem, txt and pgm, so its format is not known");
    }
    format_ = *format;
    if (format_ == Format::kNpy) {
        read_npy_header();
    } else if (format_ == Format::kPgm) {
        read_pgm_header();
    } else {
        need_size(expected);
        type_ = type_of(*expected.stage);
        type_.big_endian = false;
        bits_ = expected.bits;
    }
    if (expected.size && *expected.size != size_) {
        fail("is " + size_.text() + ", not " + expected.size->text());
    }
}

void StageFile::fail_to_read() const {
    fail(std::string("cannot be read: ") + std::strerror(errno));
}

void StageFile::need_size(const Expected& expected) {
    if (!expected.size) {
        fail("does not say its size; give --size WIDTHxHEIGHT, or a run.json beside it");
    }
    if (expected.stage == nullptr) {
        fail("does not say its type; name the stage with --stage");
    }
    size_ = *expected.size;
}

int StageFile::get() {
    if (at_ == end_) {
        errno = 0;
        end_ = std::fread(buffer_.data(), 1, kBlock, file_.get());
        at_ = 0;
        if (end_ == 0) {
            if (std::ferror(file_.get()) != 0) {
                fail_to_read();
            }
            return EOF;
        }
    }
    return buffer_[at_++];
}

void StageFile::set_size(uint64_t width, uint64_t height) {
    if (width < 1 || height < 1 || width > kMostSide || height > kMostSide) {
        fail("has a size that no stage has");
    }
    size_ = {static_cast<int>(width), static_cast<int>(height)};
}

void StageFile::read_npy_header() {
    const auto byte = [&] { return static_cast<uint32_t>(get()) & 255; };
    std::string magic;
    for (int i = 0; i < 6; ++i) {
        magic += static_cast<char>(byte());
    }
    const uint32_t version = byte();
    byte();
    if (magic != "\x93NUMPY" || version < 1 || version > 3) {
        fail("is no NumPy file");
    }
    size_t length = 0;
    for (int i = 0; i < (version == 1 ? 2 : 4); ++i) {
        length |= size_t{byte()} << 8 * i;
    }
    std::string text;
    for (int c; text.size() < std::min(length, kBlock) && (c = get()) != EOF;) {
        text += static_cast<char>(c);
    }
    if (text.size() < length) {
        fail("has a header that does not end");
    }
    // Blanks stand only between the parts.
    std::erase_if(text, [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
    const auto after = [&](const char* key) {
        const size_t at = text.find(key);
        return at != text.npos ? text.c_str() + at + std::strlen(key) : "";
    };
    const char* const descr = after("'descr':'");
    const bool known = std::strchr("<>|=", *descr) != nullptr && *descr != '\0' &&
                       (descr[1] == 'u' || descr[1] == 'i') && descr[2] != '\0' &&
                       std::strchr("1248", descr[2]) != nullptr && descr[3] == '\'';
    if (!known) {
        fail("is no NumPy file of integers");
    }
    type_ = {descr[2] - '0', descr[1] == 'i', *descr == '>' || (*descr == '=' && kBigMachine)};
    if (std::strncmp(after("'fortran_order':"), "False", 5) != 0) {
        fail("has its columns in order, not its rows; save it with numpy.ascontiguousarray()");
    }
    unsigned long long height = 0, width = 0;
    char close = 0;
    if (std::sscanf(after("'shape':("), "%10llu,%10llu%c", &height, &width, &close) != 3 || close != ')') {
        fail("is no array of rows and columns");
    }
    set_size(width, height);
}

uint64_t StageFile::read_pgm_number() {
    int c = get();
    while (c == '#' || (c != EOF && std::isspace(c))) {
        while (c == '#' && (c = get()) != EOF && c != '\n') {
            c = '#';
        }
        c = c == EOF ? EOF : get();
    }
    uint64_t value = 0;
    int digits = 0;
    for (; c >= '0' && c <= '9' && digits < 10; c = get(), ++digits) {
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (digits == 0 || c == EOF || std::isspace(c) == 0) {
        fail("is no PGM file (P5)");
    }
    return value;
}

void StageFile::read_pgm_header() {
    if (get() != 'P' || get() != '5') {
        fail("is no PGM file (P5)");
    }
    const uint64_t width = read_pgm_number(), height = read_pgm_number(), max = read_pgm_number();
    if (max < 1 || max > 65535) {
        fail("has a greatest value of " + std::to_string(max) + "; a PGM file has 1 to 65535");
    }
    set_size(width, height);
    type_ = {max < 256 ? 1 : 2, false, true};
}

bool StageFile::next(Samples& part) {
    const size_t count = std::min(kPart, size_.samples() - done_);
    if (count == 0) {
        return false;
    }
    part.first = done_;
    part.count = count;
    part.value.clear();
    part.unknown.clear();
    part.bytes = nullptr;
    const auto fail_early = [&](size_t have) {
        fail("ends early: " + std::to_string(done_ + have) + " of " + std::to_string(size_.samples()) +
             " samples (" + size_.text() + ")");
    };
    if (is_text()) {
        read_text_part(part, count);
        if (part.value.size() < count) {
            fail_early(part.value.size());
        }
        done_ += count;
        if (done_ == size_.samples() && read_token()) {
            fail("goes on after its " + std::to_string(done_) + " samples (" + size_.text() + ")");
        }
        return true;
    }
    const size_t step = static_cast<size_t>(type_.bytes), wanted = count * step;
    const size_t ahead = std::min(end_ - at_, wanted);  // left over from the header
    if (ahead > 0) {
        std::memmove(buffer_.data(), buffer_.data() + at_, end_ - at_);
        end_ -= at_;
        at_ = ahead;
    }
    size_t have = ahead;
    if (have < wanted) {
        buffer_.resize(std::max(buffer_.size(), wanted));
        at_ = end_ = 0;
        errno = 0;
        have += std::fread(buffer_.data() + have, 1, wanted - have, file_.get());
        if (std::ferror(file_.get()) != 0) {
            fail_to_read();
        }
    }
    if (have < wanted) {
        fail_early(have / step);
    }
    done_ += count;
    if (done_ == size_.samples() && (at_ < end_ || std::getc(file_.get()) != EOF)) {
        fail("goes on after its " + std::to_string(done_) + " samples (" + size_.text() + ")");
    }
    part.bytes = buffer_.data();
    return true;
}

void StageFile::decode(Samples& part) const {
    if (part.bytes == nullptr || !part.value.empty()) {
        return;
    }
    part.value.resize(part.count);
    const bool fits = type_.big_endian != kBigMachine
                          ? widen<true>(type_, part.bytes, part.count, part.value.data())
                          : widen<false>(type_, part.bytes, part.count, part.value.data());
    if (!fits) {
        fail("has samples that do not fit 32 bits");
    }
}

// ---- Hexadecimal text: digits, x and z among them, blanks, // and /* */ comments, @address ----

void StageFile::skip_comment() {
    const int kind = get();
    if (kind != '/' && kind != '*') {
        fail("has a '/' that begins no comment");
    }
    for (int c = get(), before = 0; c != EOF; before = c, c = get()) {
        if (kind == '/' ? c == '\n' : before == '*' && c == '/') {
            return;
        }
    }
    if (kind == '*') {
        fail("has a comment that does not end");
    }
}

// The next word into token_, without '_'; false at the end of the file.
bool StageFile::read_token() {
    token_.clear();
    for (int c; (c = get()) != EOF;) {
        const bool blank = c == ' ' || (c >= '\t' && c <= '\r');
        if (c == '/') {
            skip_comment();
        } else if (!blank && c != '_') {
            token_ += static_cast<char>(c);
        }
        if ((blank || c == '/') && !token_.empty()) {
            break;
        }
        if (token_.size() > 64) {
            fail("has a word of more than 64 characters, which is no sample");
        }
    }
    return !token_.empty();
}

// An address must be that of the next sample: samples between would be missing.
void StageFile::take_address() {
    const size_t next = done_;
    char* end = nullptr;
    const unsigned long long address = std::strtoull(token_.c_str() + 1, &end, 16);
    if (token_.size() < 2 || token_.size() > 16 || *end != '\0' || address != next) {
        fail("has the address '" + token_ + "' before sample " + std::to_string(next));
    }
}

void StageFile::read_text_part(Samples& part, size_t count) {
    const size_t before = done_;
    while (part.value.size() < count && read_token()) {
        if (token_[0] == '@') {
            done_ = before + part.value.size();
            take_address();
            done_ = before;
            continue;
        }
        const size_t index = before + part.value.size();
        uint64_t v = 0;
        bool is_number = true, is_known = true;
        for (const char c : token_) {
            const int digit = c >= '0' && c <= '9'   ? c - '0'
                              : c >= 'a' && c <= 'f' ? c - 'a' + 10
                              : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                     : -1;
            is_known = is_known && digit >= 0;
            is_number = is_number && (digit >= 0 || std::strchr("xXzZ", c) != nullptr);
            v = v << 4 | static_cast<uint64_t>(digit & 15);
        }
        const auto fail_here = [&](const std::string& what) {
            const size_t width = static_cast<size_t>(size_.width);
            fail("has " + what + " at x " + std::to_string(index % width) + ", y " +
                 std::to_string(index / width) + ": '" + token_ + "'");
        };
        if (!is_number) {
            fail_here("no number");
        }
        if (!is_known) {
            part.unknown.push_back({index, token_});
            part.value.push_back(0);
            continue;
        }
        const int bits = bits_ != 0 ? bits_ : static_cast<int>(4 * token_.size());
        const size_t leading = std::min(token_.find_first_not_of('0'), token_.size() - 1);
        if (token_.size() - leading > 16 || bits > 64 || (bits < 64 && v >> bits != 0)) {
            fail_here("a number of more than " + std::to_string(std::min(bits, 64)) + " bits");
        }
        int64_t value = static_cast<int64_t>(v);
        if (type_.is_signed && bits < 63 && v >> (bits - 1) != 0) {
            value -= int64_t{1} << bits;
        }
        if (!std::in_range<int32_t>(value)) {
            fail_here("a number that does not fit 32 bits");
        }
        part.value.push_back(static_cast<int32_t>(value));
    }
}

}  // namespace eetool
