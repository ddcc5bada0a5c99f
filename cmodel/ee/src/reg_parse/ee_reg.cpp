// Whole-block operations: init, load, print, dump.
#include "ee_reg.h"

#include <regex.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "ee_reg_ini.h"
#include "ee_reg_table.h"
#include "fatal.h"
#include "log_positions.h"

EE_REG ee_reg;

namespace {

// ---- INI dump ----

// A header line: any of these characters (a bracket among them) up to a closing bracket.
class HeaderPattern {
  public:
    HeaderPattern() : success_(regcomp(&pattern_, "^[[a-z0-9_]+]", REG_EXTENDED | REG_ICASE | REG_NOSUB)) {
        if (success_ != 0 && success_ != REG_ESPACE) {
            std::fputs("ee_reg: assertion `success==0' failed\n", stderr);
            std::abort();
        }
    }
    ~HeaderPattern() {
        if (compiled()) {
            regfree(&pattern_);
        }
    }
    HeaderPattern(const HeaderPattern&) = delete;
    HeaderPattern& operator=(const HeaderPattern&) = delete;

    bool compiled() const { return success_ == 0; }  // or there is no memory
    // regexec() may call it no match when it has no memory; malloc() leaves the reason in errno.
    int match(const char* line) const {
        errno = 0;
        const int result = regexec(&pattern_, line, 0, nullptr, 0);
        return result == REG_NOMATCH && errno == ENOMEM ? REG_ESPACE : result;
    }
    void get_error(int code, char* text, size_t size) const { regerror(code, &pattern_, text, size); }

  private:
    regex_t pattern_;
    const int success_;
};

// A set as the dump sees it: its name in the file, how it is written, and how the log calls the dump.
struct DumpedSet {
    const char* operation;
    cm::LogPosition position;
    const char* name;
    void (*write)(FILE*);

    bool is_header(std::string_view line) const {
        const std::string_view own = name;
        return line.starts_with('[') && line.substr(1).starts_with(own) &&
               (line.substr(1 + own.size()) == "]\n" || line.substr(1 + own.size()) == "]\r\n");
    }
};

// A line with its own line end; `next` is false at the end of the file, and where errno says why.
class LineReader {
  public:
    explicit LineReader(FILE* in) : in_(in) {}
    ~LineReader() { std::free(line_); }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool next() { return (length_ = getline(&line_, &capacity_, in_)) >= 0 && std::ferror(in_) == 0; }
    const char* text() const { return line_; }
    size_t length() const { return static_cast<size_t>(length_); }

  private:
    FILE* in_;
    char* line_ = nullptr;
    size_t capacity_ = 0;
    ssize_t length_ = 0;
};

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Closes a written file; false when any of it did not get there.
bool close_written(File file) {
    const bool ok = std::ferror(file.get()) == 0;
    return std::fclose(file.release()) == 0 && ok;
}

// errno stays for the caller. No part of a dump throws: its memory comes from malloc().
int fail_dump(const char* path, const char* what) {
    const int error = errno;
    log_log(LOG_ERROR, cm::at::kDumpFailed.source, cm::at::kDumpFailed.line, "cannot %s %s: %s", what, path,
            std::strerror(error));
    errno = error;
    return -1;
}

// Copies the target, the set's own section replaced or appended. False when not all of it could be read.
bool rewrite_section(FILE* in, FILE* out, const DumpedSet& set, const HeaderPattern& pattern) {
    bool skipping = false;
    bool found = false;
    bool newline_pending = false;
    LineReader line(in);
    while (line.next()) {
        const int result = pattern.match(line.text());
        if (result == REG_NOMATCH) {
            if (!skipping) {
                std::fwrite(line.text(), 1, line.length(), out);
            }
        } else if (result != 0) {
            char text[256];
            pattern.get_error(result, text, sizeof text);
            log_log(LOG_DEBUG, set.position.source, set.position.line, "error: %s\n", text);
            if (result == REG_ESPACE) {
                errno = ENOMEM;
                return false;
            }
        } else {
            if (newline_pending) {
                std::fputc('\n', out);
                newline_pending = false;
            }
            skipping = set.is_header({line.text(), line.length()});
            if (skipping) {
                set.write(out);
                found = newline_pending = true;
            } else {
                std::fwrite(line.text(), 1, line.length(), out);
            }
        }
    }
    if (std::feof(in) == 0 || std::ferror(in) != 0) {
        return false;
    }
    if (!found) {
        set.write(out);
    }
    return true;
}

// Devices and pipes have no lines to keep, and reading them may never end.
int create_target(const char* path, const DumpedSet& set, bool is_new) {
    File out(std::fopen(path, "w"));
    if (out == nullptr) {
        return fail_dump(path, "write");
    }
    set.write(out.get());
    if (close_written(std::move(out))) {
        return 0;
    }
    const int result = fail_dump(path, "write");
    struct stat info;
    if (is_new && lstat(path, &info) == 0 && S_ISREG(info.st_mode)) {
        unlink(path);
    }
    return result;
}

// Through the work file. Whatever may lack is asked for before the target is touched: its content is read,
// both files are open for writing, and the work file gives back what was written.
int replace_section(const char* path, const char* work_path, const DumpedSet& set,
                    const HeaderPattern& pattern) {
    const File in(std::fopen(path, "r"));
    if (in == nullptr) {
        return fail_dump(path, "read");
    }
    File out(std::fopen(path, "r+"));
    if (out == nullptr) {
        return fail_dump(path, "write");
    }
    const File work(std::fopen(work_path, "w+"));
    if (work == nullptr || std::fseek(work.get(), 0, SEEK_SET) != 0) {
        return fail_dump(work_path, "write");
    }
    const auto give_up = [&](const char* blamed, const char* what) {
        const int result = fail_dump(blamed, what);
        unlink(work_path);
        return result;
    };
    if (!rewrite_section(in.get(), work.get(), set, pattern)) {
        return give_up(path, "read");
    }
    if (std::fflush(work.get()) != 0 || std::ferror(work.get()) != 0) {
        return give_up(work_path, "write");
    }
    char block[4096];
    std::rewind(work.get());
    size_t size = std::fread(block, 1, sizeof block, work.get());
    if (size == 0) {
        errno = std::ferror(work.get()) != 0 ? errno : ENODATA;
        log_log(LOG_DEBUG, set.position.source, set.position.line, "error: no temp.ini file!");
        return give_up(work_path, "read");
    }

    std::setvbuf(out.get(), nullptr, _IONBF, 0);
    bool ok = ftruncate(fileno(out.get()), 0) == 0;
    while (ok && size > 0) {
        ok = std::fwrite(block, 1, size, out.get()) == size;
        size = std::fread(block, 1, sizeof block, work.get());
    }
    if (!close_written(std::move(out)) || !ok || std::ferror(work.get()) != 0) {
        return fail_dump(path, "finish (the whole text stays beside it, in .temp)");
    }
    unlink(work_path);
    return 0;
}

int dump_set(const char* path, const DumpedSet& set) {
    const HeaderPattern pattern;
    log_log(LOG_DEBUG, set.position.source, set.position.line, "[%s] Dump INI configurations in %s...",
            set.operation, path);
    const size_t work_size = std::strlen(path) + sizeof ".temp";
    const std::unique_ptr<char, decltype(&std::free)> work_path(static_cast<char*>(std::malloc(work_size)),
                                                                std::free);
    if (!pattern.compiled() || work_path == nullptr) {
        errno = ENOMEM;
        return fail_dump(path, "write");
    }
    std::snprintf(work_path.get(), work_size, "%s.temp", path);
    struct stat info;
    const bool is_there = stat(path, &info) == 0;
    if (!is_there && errno != ENOENT) {
        return fail_dump(path, "write");
    }
    const int result = is_there && S_ISREG(info.st_mode)
                           ? replace_section(path, work_path.get(), set, pattern)
                           : create_target(path, set, !is_there);
    if (result == 0) {
        log_log(LOG_DEBUG, set.position.source, set.position.line, "[%s] Dump INI configurations in %s done",
                set.operation, path);
    }
    return result;
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
    log_log(LOG_DEBUG, cm::at::kInitBegin.source, cm::at::kInitBegin.line,
            "[INIT] Init ee Reg configurations...");
    ee_reg_hw_init(&ee_reg.hw, ins_name);
    ee_reg_sw_init(&ee_reg.sw, ins_name);
    log_log(LOG_DEBUG, cm::at::kInitDone.source, cm::at::kInitDone.line, "[INIT] Init ee Reg Done....");
    return 0;
}

int ee_reg_loader(void* user, const char* section, const char* key, const char* value) {
    EE_REG* const block = static_cast<EE_REG*>(user);
    return ee_reg_hw_load(&block->hw, section, key, value) | ee_reg_sw_load(&block->sw, section, key, value);
}

int LOAD_EE_INI(const char* path) {
    log_log(LOG_DEBUG, cm::at::kLoadBegin.source, cm::at::kLoadBegin.line,
            "[LOAD] Load ee INI configurations...");
    if (!load_file(path)) {
        log_log(LOG_DEBUG, cm::at::kLoadFailed.source, cm::at::kLoadFailed.line, "Can't handle ee_reg.");
        return 1;
    }
    log_log(LOG_DEBUG, cm::at::kLoadDone.source, cm::at::kLoadDone.line, "[LOAD] Load ee Done...");
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        if (ee_reg.hw.slot[slot].is_set != 1) {
            log_log(LOG_ERROR, cm::at::kPrintHardwareSet.source, cm::kRegTable[slot].line,
                    "[REG] %s.%s.%s is not set in .ini file", ee_reg.hw.name, "hw", cm::kRegTable[slot].key);
        }
    }
    return 0;
}

int PRINT_EE_REG(void) {
    log_log(LOG_DEBUG, cm::at::kPrintBegin.source, cm::at::kPrintBegin.line,
            "[PRINT] Print ee Reg configurations ...");
    ee_reg_hw_print(&ee_reg.hw);
    ee_reg_sw_print(&ee_reg.sw);
    log_log(LOG_DEBUG, cm::at::kPrintDone.source, cm::at::kPrintDone.line, "[PRINT] Print ee Reg Done....");
    return 0;
}

int DUMP_EE_INI(const char* path) {
    log_log(LOG_DEBUG, cm::at::kDumpBegin.source, cm::at::kDumpBegin.line,
            "[DUMP] Dump ee INI configurations in %s...", path);
    if (DUMP_EE_HW_INI(path) != 0 || DUMP_EE_SW_INI(path) != 0) {
        return -1;
    }
    log_log(LOG_DEBUG, cm::at::kDumpDone.source, cm::at::kDumpDone.line, "[DUMP] Dump ee INI Done....");
    return 0;
}

int DUMP_EE_HW_INI(const char* path) {
    return dump_set(path, {"DUMP_EE_HW_INI", cm::at::kDumpHardwareSet, ee_reg.hw.name,
                           [](FILE* out) { ee_reg_hw_dump_ini(out, &ee_reg.hw); }});
}

int DUMP_EE_SW_INI(const char* path) {
    return dump_set(path, {"DUMP_EE_SW_INI", cm::at::kDumpSoftwareSet, ee_reg.sw.name,
                           [](FILE* out) { ee_reg_sw_dump_ini(out, &ee_reg.sw); }});
}
