// eetool ini: writes a register file, or rewrites its section, or checks it.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

#include "commands.h"
#include "ee_reg_ini.h"
#include "ee_reg_table.h"
#include "ini_findings.h"
#include "settings.h"

namespace eetool {
namespace {

struct Options {
    std::string out, check, minimal, instance = "NULL", other_instance;
    std::vector<std::string> set, diff;
    std::optional<uint64_t> seed;
    bool reset = false, complete = false, random = false;
};

// The text after "key=" as the register's value; nothing when it is no number that fits.
std::optional<int32_t> parse_fitting(const std::string& text, const cm::RegRow& row) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    const bool plain = !text.empty() && *end == '\0' && errno == 0 && value == static_cast<int32_t>(value);
    if (!plain || cm::reduce_to_field(static_cast<int32_t>(value), row.bits, row.is_signed) != value) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

void set_register(const std::string& assignment) {
    const size_t equals = assignment.find('=');
    const std::string key = assignment.substr(0, equals);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        const cm::RegRow& row = cm::kRegTable[slot];
        if (key != row.key) {
            continue;
        }
        const std::string text = equals == std::string::npos ? "" : assignment.substr(equals + 1);
        const std::optional<int32_t> value = parse_fitting(text, row);
        if (!value) {
            throw CLI::ValidationError("--set", assignment + ": the value is a decimal integer that fits " +
                                                    std::to_string(row.bits) +
                                                    (row.is_signed ? " signed" : "") + " bits");
        }
        ee_reg.hw.slot[slot].value = *value;
        return;
    }
    throw CLI::ValidationError("--set", assignment + ": there is no such register");
}

// What the loader and the dump both take for the name of a section: the dump would not find another one
// again, and would put [eeNAME] in the place of [ee_swNAME].
void check_instance(const std::string& name) {
    constexpr size_t kLongest = 29;
    constexpr const char* kCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_[";
    if (name.size() > kLongest || name.starts_with("_sw") ||
        name.find_first_not_of(kCharacters) != std::string::npos) {
        throw CLI::ValidationError("--instance", name +
                                                     ": no section can have this name; one of at most 29 "
                                                     "letters, digits, _ and [ works, unless it begins "
                                                     "with _sw");
    }
}

void set_registers(const Options& o) {
    for (const std::string& assignment : o.set) {
        set_register(assignment);
    }
}

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const { return fd_; }

  private:
    const int fd_;
};

bool names_file(const std::string& path, const struct stat& file) {
    struct stat named;
    return stat(path.c_str(), &named) == 0 && named.st_dev == file.st_dev && named.st_ino == file.st_ino;
}

// The file that is there, locked, or -1. Others rename theirs over it while they hold the lock.
int open_locked(const std::string& path) {
    for (;;) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0) {
            return -1;
        }
        int result;
        while ((result = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
        }
        if (result != 0) {
            std::fprintf(stderr, "eetool: %s cannot be locked: %s\n", path.c_str(), std::strerror(errno));
        }
        struct stat held;
        if (fstat(fd, &held) != 0 || names_file(path, held)) {
            return fd;
        }
        close(fd);
    }
}

std::string follow_links(std::filesystem::path path) {
    std::error_code ignored;
    for (int links = 0; links < 40 && std::filesystem::is_symlink(path, ignored); ++links) {
        path = path.parent_path() / std::filesystem::read_symlink(path, ignored);
    }
    return path;
}

bool write_all(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = pwrite(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
        if (n < 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

bool read_all(int fd, std::string& text) {
    char block[4096];
    ssize_t n;
    while ((n = pread(fd, block, sizeof block, static_cast<off_t>(text.size()))) > 0) {
        text.append(block, static_cast<size_t>(n));
    }
    return n == 0;
}

// Where the new text is put together: a file of a name of its own beside the target, which is left alone
// until the text is whole.
class WorkFile {
  public:
    explicit WorkFile(const std::string& target)
        : target_(follow_links(target)),
          path_(std::filesystem::path(target_).replace_filename(".eetool.XXXXXX")),
          dump_path_(path_ + ".temp"),
          fd_(mkstemp(path_.data())),
          is_ours_(fd_ >= 0) {
        std::copy(path_.begin(), path_.end(), dump_path_.begin());
        at_work = this;
        std::atexit(remove_left_behind);
    }
    ~WorkFile() {
        at_work = nullptr;
        remove();
    }
    WorkFile(const WorkFile&) = delete;
    WorkFile& operator=(const WorkFile&) = delete;

    // The old text with the sections of ee_reg in their places.
    bool write(std::string text) {
        if (!text.empty() && text.back() != '\n') {
            text += '\n';  // or a section put behind it would become a part of the line
        }
        return fd_ >= 0 && fchmod(fd_, 0600) == 0 && write_all(fd_, text) && DUMP_EE_INI(path_.c_str()) == 0;
    }

    bool read(std::string& text) const { return read_all(fd_, text); }

    // Takes the target's place. One that has several links, or an owner or an access list that cannot be
    // given away, is overwritten instead.
    bool replace(int old, const std::string& text) {
        struct stat info;
        if (fstat(old, &info) != 0) {
            return false;
        }
        if (info.st_nlink != 1 || !names_file(target_, info) ||
            fgetxattr(old, "system.posix_acl_access", nullptr, 0) > 0 ||
            fchown(fd_, info.st_uid, info.st_gid) != 0) {
            return overwrite(old, info.st_size, text);
        }
        if (fchmod(fd_, info.st_mode & 07777) != 0 || fsync(fd_) != 0 ||
            rename(path_.c_str(), target_.c_str()) != 0) {
            return false;
        }
        is_ours_ = false;
        return true;
    }

    // Becomes the target. False with EEXIST when there is one by now.
    bool create() {
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(fd_, 0666 & ~mask) != 0 || fsync(fd_) != 0) {
            return false;
        }
        if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) == 0) {
            is_ours_ = false;
            return true;
        }
        return errno == EINVAL && link(path_.c_str(), target_.c_str()) == 0;  // a file system without that
    }

  private:
    void remove() const {
        if (is_ours_) {
            unlink(path_.c_str());
            unlink(dump_path_.c_str());
        }
    }

    // What lacks memory ends the program from anywhere.
    static inline const WorkFile* at_work = nullptr;
    static void remove_left_behind() {
        if (at_work != nullptr) {
            at_work->remove();
        }
    }

    // The room is there before the first byte is written.
    bool overwrite(int old, off_t old_size, const std::string& text) {
        const off_t size = static_cast<off_t>(text.size());
        const int lacking = posix_fallocate(old, 0, size);
        if (lacking != 0) {
            [[maybe_unused]] const int result = ftruncate(old, old_size);
            errno = lacking;
            return false;
        }
        if (!write_all(old, text) || ftruncate(old, size) != 0 || fsync(old) != 0) {
            is_ours_ = false;
            const int error = errno;
            std::fprintf(stderr, "eetool: the whole text is in %s\n", path_.c_str());
            errno = error;
            return false;
        }
        return true;
    }

    const std::string target_;
    std::string path_;
    std::string dump_path_;  // is left over where a dump fails; the file comes after what needs memory
    const Descriptor fd_;
    bool is_ours_;  // the name still is, and goes with this
};

// What a file gives to a run.
bool load(int fd) {
    FILE* const in = fdopen(dup(fd), "r");
    if (in == nullptr) {
        return false;
    }
    const int error = cm::parse_ini(in, ee_reg_loader, &ee_reg).error;
    std::fclose(in);
    errno = error;
    return error == 0;
}

// Appends the settings of other sections, as the parser finds them. The dump may take their header for a
// line of ours.
bool find_foreign(const std::string& text, std::string& found) {
    const auto append = [](void* user, const char* section, const char* key, const char* value) {
        if (std::strcmp(section, ee_reg.hw.name) != 0 && std::strcmp(section, ee_reg.sw.name) != 0) {
            for (const char* const part : {section, key, value}) {
                static_cast<std::string*>(user)->append(part) += '\n';
            }
        }
        return 1;
    };
    errno = cm::parse_ini(text, append, &found).error;
    return errno == 0;
}

int report_loss(const std::string& path) {
    std::fprintf(stderr,
                 "eetool: %s is left alone: a section right after [%s] or [%s] has other characters than "
                 "letters, digits, _ and [ in its name and would go with it; it can stand before them\n",
                 path.c_str(), ee_reg.hw.name, ee_reg.sw.name);
    return kCannot;
}

// A device or a pipe, which has nothing to be kept.
int write_stream(const Options& o) {
    INIT_EE_REG(o.instance.c_str());
    set_registers(o);
    FILE* const out = std::fopen(o.out.c_str(), "w");
    if (out == nullptr) {
        return report_cannot("written", o.out);
    }
    ee_reg_hw_dump_ini(out, &ee_reg.hw);
    ee_reg_sw_dump_ini(out, &ee_reg.sw);
    const bool ok = std::fflush(out) == 0 && std::ferror(out) == 0;
    return std::fclose(out) == 0 && ok ? kOk : report_cannot("written", o.out);
}

int write_ini(const Options& o) {
    check_instance(o.instance);
    struct stat info;
    if (stat(o.out.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
        return write_stream(o);
    }
    for (;;) {
        const Descriptor old(open_locked(o.out));
        const bool exists = old >= 0;
        if (!exists && errno != ENOENT) {
            const int error = errno;
            const bool readable = access(o.out.c_str(), R_OK) == 0;
            errno = error;
            return report_cannot(readable ? "written" : "read", o.out);
        }
        INIT_EE_REG(o.instance.c_str());
        std::string text;
        if (exists && (!read_all(old, text) || (!o.reset && !load(old)))) {
            return report_cannot("read", o.out);
        }
        set_registers(o);
        WorkFile work(o.out);
        std::string new_text, foreign, new_foreign;
        if (!work.write(text) || !work.read(new_text) || !find_foreign(text, foreign) ||
            !find_foreign(new_text, new_foreign)) {
            return report_cannot("written", o.out);
        }
        if (new_foreign != foreign) {
            return report_loss(o.out);
        }
        if (exists ? work.replace(old, new_text) : work.create()) {
            return kOk;
        }
        if (exists || errno != EEXIST) {
            return report_cannot("written", o.out);
        }
    }
}

// False, and errno says why, when the file cannot be read.
bool find_in_file(const std::string& path, const std::string& instance, bool complete,
                  cm::IniFindings& found) {
    FILE* const file = std::fopen(path.c_str(), "r");
    const int error = file != nullptr ? cm::find_in_ini(file, instance.c_str(), {}, complete, found) : errno;
    if (file != nullptr) {
        std::fclose(file);
    }
    errno = error;
    return error == 0;
}

// The registers as a run has them from this file; what is wrong in it goes to standard error.
bool read_setting(const std::string& path, const std::string& instance, cm::Registers& setting) {
    cm::IniFindings found;
    if (!find_in_file(path, instance, false, found)) {
        report_cannot("read", path);
        return false;
    }
    for (const cm::IniFinding& finding : found.findings) {
        std::fprintf(stderr, "eetool: %s:%d: %s\n", path.c_str(), finding.line, finding.text.c_str());
    }
    setting = found.registers;
    return true;
}

int print(const std::string& text) {
    const bool ok = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && ok ? kOk : report_cannot("written", "standard output");
}

int print_differences(const Options& o) {
    cm::Registers a, b;
    const std::string& other = o.other_instance.empty() ? o.instance : o.other_instance;
    if (!read_setting(o.diff[0], o.instance, a) || !read_setting(o.diff[1], other, b)) {
        return kCannot;
    }
    std::string text;
    for (const std::string& line : differences(a, b)) {
        text += line + "\n";
    }
    const int status = print(text.empty() ? "the registers have the same values\n" : text);
    return status != kOk ? status : text.empty() ? kOk : kFindings;
}

int print_minimal(const Options& o) {
    check_instance(o.instance);
    cm::Registers setting;
    return read_setting(o.minimal, o.instance, setting) ? print(ini_text(setting, o.instance.c_str(), true))
                                                        : int{kCannot};
}

int print_random(const Options& o) {
    check_instance(o.instance);
    return print(ini_text(random_setting(*o.seed), o.instance.c_str(), false));
}

int check_ini(const Options& o) {
    cm::IniFindings found;
    if (!find_in_file(o.check, o.instance, o.complete, found)) {
        return report_cannot("read", o.check);
    }
    for (const cm::IniFinding& finding : found.findings) {
        std::printf("%s:%d: %s\n", o.check.c_str(), finding.line, finding.text.c_str());
    }
    if (found.unset > 0 && !o.complete) {
        std::printf("%s: %d of %d registers are not set and have their defaults\n", o.check.c_str(),
                    found.unset, EE_REG_COUNT);
    }
    if (found.findings.empty()) {
        std::printf("%s: all is well\n", o.check.c_str());
    }
    return found.findings.empty() ? kOk : kFindings;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    CLI::Option_group* const what = app.add_option_group("What to do");
    CLI::Option* const out =
        what->add_option("--out", o->out, "write this file, or rewrite its section")->option_text("FILE");
    CLI::Option* const check =
        what->add_option("--check", o->check, "print what is wrong in this file, one finding a line")
            ->option_text("FILE");
    CLI::Option* const diff =
        what->add_option("--diff", o->diff, "print what differs by value between two files, with meanings")
            ->option_text("A B")
            ->expected(2);
    what->add_option("--minimal", o->minimal, "print only what differs from the defaults in this file")
        ->option_text("FILE");
    CLI::Option* const random =
        what->add_flag("--random", o->random, "print a setting at random in which --check finds nothing");
    what->require_option(1);
    app.add_option("--seed", o->seed, "a seed gives the same setting everywhere")
        ->option_text("N")
        ->needs(random);
    app.add_option("--instance", o->instance, "the section is [eeNAME]; without it [ee]")
        ->option_text("NAME");
    app.add_option("--other-instance", o->other_instance, "the section of the second file")
        ->option_text("NAME")
        ->needs(diff);
    app.add_option("--set", o->set, "give a register this value; may be repeated")
        ->option_text("KEY=VALUE")
        ->needs(out)
        ->allow_extra_args(false);
    app.add_flag("--reset", o->reset, "start from the defaults, whatever the file has")->needs(out);
    app.add_flag("--complete", o->complete, "every register that is not set is a finding")->needs(check);
    return [o] {
        if (o->random && !o->seed) {
            throw CLI::RequiredError("--seed");
        }
        return o->random             ? print_random(*o)
               : !o->minimal.empty() ? print_minimal(*o)
               : !o->diff.empty()    ? print_differences(*o)
               : !o->check.empty()   ? check_ini(*o)
                                     : write_ini(*o);
    };
}

}  // namespace

const Command kIni = {
    "ini", "Write, rewrite, check or compare register files",
    "  eetool ini --out ee.ini --instance 0\n"
    "  eetool ini --out ee.ini --instance 0 --set reg_ee_texture_mode=0 --set reg_ee_total_gain=64\n"
    "  eetool ini --check ee.ini --instance 0\n"
    "  eetool ini --random --seed 7 >drawn.ini\n"
    "  eetool ini --minimal drawn.ini\n",
    "--out on a file that is not there writes every register's default. On one that is, the section is\n"
    "written anew with the values that the file gives, defaults where it gives none, and other sections\n"
    "stay; comments and unknown keys inside the section go.\n"
    "--check ends with status 0 when all is well, 1 with findings, 2 when the file cannot be read.\n"
    "Registers that are not set are counted, and are findings with --complete.\n"
    "--diff ends with 0 when all values are the same, 1 when some differ, 2 when a file cannot be read; a\n"
    "register that a file does not set has its default.\n",
    declare};

}  // namespace eetool
