// Stages as files: NumPy's .npy, raw little-endian samples, hexadecimal text and PGM.
#ifndef CMODEL_EETOOL_STAGE_FILES_H
#define CMODEL_EETOOL_STAGE_FILES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cmodel.h"

namespace eetool {

// What keeps a command from its end, as one line without "eetool: ". Commands end with kCannot then.
struct Cannot : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// How samples lie in a file or in memory.
struct SampleType {
    int bytes = 1;  // 1, 2, 4 or 8
    bool is_signed = false;
    bool big_endian = false;
    bool operator==(const SampleType&) const = default;
    std::string name() const { return (is_signed ? "int" : "uint") + std::to_string(8 * bytes); }
};

// The smallest of uint8, int16 and int32 that holds a stage, and the same for the model object.
SampleType type_of(const cmodel_stage_info& stage);
int model_type_of(const cmodel_stage_info& stage);

// The stage of that name in either pipeline, whose ranges are the same; null for none.
const cmodel_stage_info* find_stage(const std::string& name);

enum class Format { kNpy, kRaw, kHex, kPgm };
std::optional<Format> format_of(const std::string& path);  // by its last name
const char* extension_of(Format format);

struct Size {
    int width = 0, height = 0;
    bool operator==(const Size&) const = default;
    size_t samples() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
    std::string text() const { return std::to_string(width) + "x" + std::to_string(height); }
};

// SHA-256 of samples, big-endian in as many bytes as they have, in hexadecimal. `samples` are in the
// machine's order unless they are said to be big-endian.
std::string sha256_of(const void* samples, size_t count, const SampleType& type);

// Writes a whole stage from samples of type_of(stage). Throws Cannot, and leaves no file then.
void write_stage(const std::string& path, Format format, const cmodel_stage_info& stage, Size size,
                 const void* samples);
// Writes a small text. Throws Cannot, and leaves no file then.
void write_text(const std::string& path, const std::string& text);
// Reads one. Throws Cannot.
std::string read_text(const std::string& path);

// What a file does not say of itself.
struct Expected {
    const cmodel_stage_info* stage = nullptr;  // null: not known
    std::optional<Size> size;
    int bits = 0;  // of a sample in text; 0: four a digit
};

// A sample of a text whose digits are not all known.
struct Unknown {
    size_t index;  // in the file
    std::string digits;
};

// A part of a file, samples in the order of the rows.
struct Samples {
    size_t first = 0, count = 0;
    std::vector<int32_t> value;      // 0 where unknown; empty unless asked for
    std::vector<Unknown> unknown;    // in order
    const uint8_t* bytes = nullptr;  // as they lie in the file; null for text
};

// One stage's file, read from front to back in parts of kPart samples. Everything throws Cannot when the file
// is not what it should be: unreadable, of another size, too short or too long, samples that are no numbers
// or do not fit 32 bits.
class StageFile {
  public:
    static constexpr size_t kPart = size_t{1} << 16;

    StageFile(const std::string& path, const Expected& expected);
    StageFile(const StageFile&) = delete;
    StageFile& operator=(const StageFile&) = delete;

    const std::string& path() const { return path_; }
    Size size() const { return size_; }
    bool is_text() const { return format_ == Format::kHex; }
    const SampleType& type() const { return type_; }

    // The next part into `part`, whose values are left for decode() unless it is text; false after the last.
    bool next(Samples& part);
    void decode(Samples& part) const;

  private:
    struct CloseFile {
        void operator()(FILE* file) const { std::fclose(file); }
    };

    [[noreturn]] void fail(const std::string& what) const { throw Cannot(path_ + " " + what); }
    [[noreturn]] void fail_to_read() const;
    int get();  // the next byte, or EOF
    void read_npy_header();
    void read_pgm_header();
    uint64_t read_pgm_number();
    void set_size(uint64_t width, uint64_t height);
    void need_size(const Expected& expected);
    void read_text_part(Samples& part, size_t count);
    bool read_token();
    void skip_comment();
    void take_address();

    std::string path_;
    std::unique_ptr<FILE, CloseFile> file_;
    Format format_;
    SampleType type_;
    int bits_ = 0;
    Size size_;
    size_t done_ = 0;
    std::vector<uint8_t> buffer_;  // the part at hand; of text, what is read ahead
    size_t at_ = 0, end_ = 0;
    std::string token_;
};

}  // namespace eetool

#endif
