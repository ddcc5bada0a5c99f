#include "ee_reg_ini.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace cm {
namespace {

// The parser's switches for a line buffer of two million characters. The process may use the parser for
// files of its own, so they are put back.
class LongLines {
  public:
    LongLines() {
        ini_use_stack = false;
        ini_allow_realloc = false;
        ini_max_line = ini_initial_alloc = 2000000;
    }
    ~LongLines() {
        ini_use_stack = use_stack_;
        ini_allow_realloc = allow_realloc_;
        ini_max_line = max_line_;
        ini_initial_alloc = initial_alloc_;
    }
    LongLines(const LongLines&) = delete;
    LongLines& operator=(const LongLines&) = delete;

  private:
    static inline std::recursive_mutex mutex_;
    const std::lock_guard<std::recursive_mutex> lock_{mutex_};
    decltype(ini_use_stack) use_stack_ = ini_use_stack;
    decltype(ini_allow_realloc) allow_realloc_ = ini_allow_realloc;
    decltype(ini_max_line) max_line_ = ini_max_line;
    decltype(ini_initial_alloc) initial_alloc_ = ini_initial_alloc;
};

// The parser takes a read error for the end, so it is noted here. fgets() gives no line that an error cut.
struct FileReader {
    FILE* in;
    int error;

    static char* read(char* line, int size, void* stream) {
        FileReader& self = *static_cast<FileReader*>(stream);
        char* const result = std::fgets(line, size, self.in);
        if (result == nullptr && std::ferror(self.in) != 0) {
            self.error = errno;
        }
        return result;
    }
};

char* read_text(char* line, int size, void* stream) {
    std::string_view& rest = *static_cast<std::string_view*>(stream);
    if (rest.empty()) {
        return nullptr;
    }
    const size_t length = std::min({rest.find('\n'), rest.size() - 1, static_cast<size_t>(size) - 2}) + 1;
    std::memcpy(line, rest.data(), length);
    line[length] = '\0';
    rest.remove_prefix(length);
    return line;
}

}  // namespace

IniResult parse_ini(ini_reader reader, void* stream, ini_handler handler, void* user) {
    const LongLines long_lines;
    const int result = ini_parse_stream(reader, stream, handler, user);
    return result < 0 ? IniResult{0, ENOMEM} : IniResult{result, 0};
}

IniResult parse_ini(FILE* in, ini_handler handler, void* user) {
    FileReader reader{in, 0};
    IniResult result = parse_ini(FileReader::read, &reader, handler, user);
    if (result.error == 0) {
        result.error = reader.error;
    }
    return result;
}

IniResult parse_ini(std::string_view text, ini_handler handler, void* user) {
    return parse_ini(read_text, &text, handler, user);
}

}  // namespace cm
