// The INI parser. A line is one of, leading blanks aside:
//
//     ; or # ...         a comment
//     [NAME]             opens a section
//     NAME = VALUE       or NAME : VALUE, a setting
//     VALUE              indented, below a setting: one more value of it
//
// A ; after a blank begins a comment, too. Anything else is malformed and skipped.
#include "ini.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>

bool ini_use_stack = false;
bool ini_allow_realloc = false;
int ini_max_line = 200;
int ini_initial_alloc = 200;

namespace {

// Names of sections, and names that indented lines go on with, are cut to one character less.
constexpr size_t kNameSize = 50;

struct Free {
    void operator()(char* p) const { std::free(p); }
};

bool is_blank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

char* skip_blanks(char* text) {
    while (*text != '\0' && is_blank(*text)) {
        ++text;
    }
    return text;
}

// Ends the text before its trailing blanks.
char* strip_end(char* text) {
    for (char* end = text + std::strlen(text); end > text && is_blank(end[-1]);) {
        *--end = '\0';
    }
    return text;
}

// The first of `chars`, the ; of a comment, or the end.
char* find_any(char* text, const char* chars) {
    bool after_blank = false;
    for (; *text != '\0' && std::strchr(chars, *text) == nullptr && !(after_blank && *text == ';'); ++text) {
        after_blank = is_blank(*text);
    }
    return text;
}

void copy_name(char (&to)[kNameSize], const char* from) {
    const size_t length = std::strlen(from) < kNameSize ? std::strlen(from) : kNameSize - 1;
    std::memcpy(to, from, length);
    to[length] = '\0';
}

class Parser {
  public:
    Parser(ini_handler handler, void* user) : handler_(handler), user_(user) {}

    // Whether the line is well formed and was taken.
    bool take_line(char* line, bool is_first) {
        const bool has_mark = is_first && std::strncmp(line, "\xEF\xBB\xBF", 3) == 0;
        char* const text = skip_blanks(strip_end(has_mark ? line + 3 : line));
        if (*text == '\0' || *text == ';' || *text == '#') {
            return true;
        }
        if (name_[0] != '\0' && text > line) {
            *find_any(text, "") = '\0';
            return handler_(user_, section_, name_, strip_end(text)) != 0;
        }
        return *text == '[' ? open_section(text + 1) : take_setting(text);
    }

  private:
    bool open_section(char* text) {
        char* const end = find_any(text, "]");
        if (*end != ']') {
            return false;
        }
        *end = '\0';
        copy_name(section_, text);
        name_[0] = '\0';
        return true;
    }

    bool take_setting(char* text) {
        char* const end = find_any(text, "=:");
        if (*end != '=' && *end != ':') {
            return false;
        }
        *end = '\0';
        *find_any(end + 1, "") = '\0';
        const char* const value = strip_end(skip_blanks(end + 1));
        copy_name(name_, strip_end(text));
        return handler_(user_, section_, text, value) != 0;
    }

    ini_handler handler_;
    void* user_;
    char section_[kNameSize] = "";
    char name_[kNameSize] = "";
};

}  // namespace

int ini_parse_stream(ini_reader reader, void* stream, ini_handler handler, void* user) {
    const std::unique_ptr<char, Free> line(
        static_cast<char*>(std::malloc(static_cast<size_t>(ini_max_line))));
    if (line == nullptr) {
        return -2;
    }
    Parser parser(handler, user);
    int first_bad = 0;
    for (int number = 1; reader(line.get(), ini_max_line, stream) != nullptr; ++number) {
        if (!parser.take_line(line.get(), number == 1) && first_bad == 0) {
            first_bad = number;
        }
    }
    return first_bad;
}
