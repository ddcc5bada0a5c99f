// Whole-block operations: init, load, print, dump.
#include "ee_reg.h"

#include <regex.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "ee_reg_ini.h"
#include "ee_reg_table.h"
#include "fatal.h"

EE_REG ee_reg;

namespace {

constexpr const char* kSource = "ee_reg";

// ---- INI dump ----

// A header line: any of these characters (a bracket among them) up to a closing bracket.
class HeaderPattern {
  public:
    HeaderPattern() {
        const int success = regcomp(&pattern_, "^[[a-z0-9_]+]", REG_EXTENDED | REG_ICASE | REG_NOSUB);
        if (success != 0) {
            std::fputs("ee_reg: assertion `success==0' failed\n", stderr);
            std::abort();
        }
    }
    ~HeaderPattern() { regfree(&pattern_); }
    HeaderPattern(const HeaderPattern&) = delete;
    HeaderPattern& operator=(const HeaderPattern&) = delete;

    int match(const char* line) const { return regexec(&pattern_, line, 0, nullptr, 0); }

    std::string error_text(int code) const {
        char text[256];
        regerror(code, &pattern_, text, sizeof text);
        return text;
    }

  private:
    regex_t pattern_;
};

// A set as the dump sees it: its name in the file, how it is written, and how the log calls the dump.
struct DumpedSet {
    const char* operation;
    int log_line;
    std::string header;
    std::function<void(FILE*)> write;
};

// A line with its own line end; `next` is false at the end of the file.
class LineReader {
  public:
    explicit LineReader(FILE* in) : in_(in) {}
    ~LineReader() { std::free(line_); }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool next() { return (length_ = getline(&line_, &capacity_, in_)) >= 0; }
    const char* text() const { return line_; }
    size_t length() const { return static_cast<size_t>(length_); }

  private:
    FILE* in_;
    char* line_ = nullptr;
    size_t capacity_ = 0;
    ssize_t length_ = 0;
};

void copy_line(const LineReader& line, FILE* out) {
    std::fwrite(line.text(), 1, line.length(), out);
}

// Closes a written file; false when any of it did not get there.
bool close_written(FILE* out) {
    const bool ok = std::ferror(out) == 0;
    return std::fclose(out) == 0 && ok;
}

int fail_dump(const std::string& path, const char* what) {
    log_log(LOG_ERROR, kSource, __LINE__, "cannot %s %s: %s", what, path.c_str(), std::strerror(errno));
    return -1;
}

// Copies the target, the set's own section replaced; says whether there was one.
bool rewrite_section(FILE* in, FILE* out, const DumpedSet& set) {
    const HeaderPattern pattern;
    bool skipping = false;
    bool found = false;
    bool newline_pending = false;
    LineReader line(in);
    while (line.next()) {
        const int result = pattern.match(line.text());
        if (result == REG_NOMATCH) {
            if (!skipping) {
                copy_line(line, out);
            }
        } else if (result != 0) {
            log_log(LOG_DEBUG, kSource, set.log_line, "error: %s\n", pattern.error_text(result).c_str());
        } else {
            if (newline_pending) {
                std::fputc('\n', out);
                newline_pending = false;
            }
            const std::string text(line.text(), line.length());
            if (text == set.header + "\n" || text == set.header + "\r\n") {
                set.write(out);
                skipping = found = newline_pending = true;
            } else {
                copy_line(line, out);
                skipping = false;
            }
        }
    }
    return found;
}

// Devices and pipes have no lines to keep, and reading them may never end.
bool keeps_content(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

int create_target(const std::string& path, const DumpedSet& set) {
    FILE* const out = std::fopen(path.c_str(), "w");
    if (out == nullptr) {
        return fail_dump(path, "write");
    }
    set.write(out);
    return close_written(out) ? 0 : fail_dump(path, "write");
}

int dump_set(const char* path_text, const DumpedSet& set) {
    const std::string path = path_text;
    const std::string work_path = path + ".temp";
    log_log(LOG_DEBUG, kSource, set.log_line, "[%s] Dump INI configurations in %s...", set.operation,
            path_text);

    FILE* const in = keeps_content(path) ? std::fopen(path.c_str(), "r") : nullptr;
    if (in == nullptr) {
        if (create_target(path, set) != 0) {
            return -1;
        }
    } else {
        if (access(path.c_str(), W_OK) != 0) {
            std::fclose(in);
            return fail_dump(path, "write");
        }
        FILE* work = std::fopen(work_path.c_str(), "w");
        if (work == nullptr) {
            std::fclose(in);
            return fail_dump(work_path, "write");
        }
        const bool found = rewrite_section(in, work, set);
        if (!found) {
            set.write(work);
        }
        const bool read_all = std::feof(in) != 0;  // anything but the end stopped the reader: an error
        std::fclose(in);
        if (!close_written(work) || !read_all) {
            const int result = read_all ? fail_dump(work_path, "write") : fail_dump(path, "read");
            unlink(work_path.c_str());
            return result;
        }

        work = std::fopen(work_path.c_str(), "r");
        FILE* const out = std::fopen(path.c_str(), "w");
        if (work == nullptr) {
            log_log(LOG_DEBUG, kSource, set.log_line, "error: no temp.ini file!");
            if (out != nullptr) {
                std::fclose(out);
            }
            return 0;
        }
        if (out == nullptr) {
            std::fclose(work);
            const int result = fail_dump(path, "write");
            unlink(work_path.c_str());
            return result;
        }
        LineReader line(work);
        while (line.next()) {
            copy_line(line, out);
        }
        const bool copied_all = std::feof(work) != 0;
        std::fclose(work);
        if (!close_written(out) || !copied_all) {
            return fail_dump(path, "finish (the whole text stays beside it, in .temp)");
        }
        unlink(work_path.c_str());
    }
    log_log(LOG_DEBUG, kSource, set.log_line, "[%s] Dump INI configurations in %s done", set.operation,
            path_text);
    return 0;
}

// ---- INI load ----

// False: there is no such file, or none that can be read. Anything that comes half-way, or that the process
// itself lacks, ends it: half a setting, or none of the one that is there, would follow in silence.
bool load_file(const char* path) {
    FILE* const in = std::fopen(path, "r");
    const bool opened = in != nullptr;
    int error = errno;
    if (opened) {
        error = cm::parse_ini(in, ee_reg_loader, &ee_reg).error;
        std::fclose(in);
    }
    const bool lacking = error == ENOMEM || error == EMFILE || error == ENFILE;
    if (error == ENOMEM) {
        cm::fatal(cm::kExitFile, "Unable to allocate memory\n");
    }
    if (lacking || (opened && error != 0 && error != EISDIR)) {
        cm::fatal(cm::kExitFile, "Unable to read file '%s': %s\n", path, std::strerror(error));
    }
    return error == 0;
}

}  // namespace

int INIT_EE_REG(const char* ins_name) {
    log_log(LOG_DEBUG, kSource, 107, "[INIT] Init ee Reg configurations...");
    ee_reg_hw_init(&ee_reg.hw, ins_name);
    ee_reg_sw_init(&ee_reg.sw, ins_name);
    log_log(LOG_DEBUG, kSource, 110, "[INIT] Init ee Reg Done....");
    return 0;
}

int ee_reg_loader(void* user, const char* section, const char* key, const char* value) {
    EE_REG* const block = static_cast<EE_REG*>(user);
    return ee_reg_hw_load(&block->hw, section, key, value) | ee_reg_sw_load(&block->sw, section, key, value);
}

int LOAD_EE_INI(const char* path) {
    log_log(LOG_DEBUG, kSource, 47, "[LOAD] Load ee INI configurations...");
    if (!load_file(path)) {
        log_log(LOG_DEBUG, kSource, 49, "Can't handle ee_reg.");
        return 1;
    }
    log_log(LOG_DEBUG, kSource, 52, "[LOAD] Load ee Done...");
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        if (ee_reg.hw.slot[slot].is_set != 1) {
            log_log(LOG_ERROR, "ee_reg_hw_def", cm::kRegTable[slot].line,
                    "[REG] %s.%s.%s is not set in .ini file", ee_reg.hw.name, "hw", cm::kRegTable[slot].key);
        }
    }
    return 0;
}

int PRINT_EE_REG(void) {
    log_log(LOG_DEBUG, kSource, 95, "[PRINT] Print ee Reg configurations ...");
    ee_reg_hw_print(&ee_reg.hw);
    ee_reg_sw_print(&ee_reg.sw);
    log_log(LOG_DEBUG, kSource, 98, "[PRINT] Print ee Reg Done....");
    return 0;
}

int DUMP_EE_INI(const char* path) {
    log_log(LOG_DEBUG, kSource, 79, "[DUMP] Dump ee INI configurations in %s...", path);
    if (DUMP_EE_HW_INI(path) != 0 || DUMP_EE_SW_INI(path) != 0) {
        return -1;
    }
    log_log(LOG_DEBUG, kSource, 82, "[DUMP] Dump ee INI Done....");
    return 0;
}

int DUMP_EE_HW_INI(const char* path) {
    return dump_set(path, {"DUMP_EE_HW_INI", 86, std::string("[") + ee_reg.hw.name + "]",
                           [](FILE* out) { ee_reg_hw_dump_ini(out, &ee_reg.hw); }});
}

int DUMP_EE_SW_INI(const char* path) {
    return dump_set(path, {"DUMP_EE_SW_INI", 87, std::string("[") + ee_reg.sw.name + "]",
                           [](FILE* out) { ee_reg_sw_dump_ini(out, &ee_reg.sw); }});
}
