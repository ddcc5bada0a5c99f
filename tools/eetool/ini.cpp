// eetool ini: writes a register file, or rewrites its section, or checks it.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <vector>

#include "commands.h"
#include "ee_reg_table.h"

namespace eetool {
namespace {

struct Options {
    std::string out, check, instance = "NULL";
    std::vector<std::string> set;
    bool reset = false, complete = false;
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

// A section put after a last line without an end would become part of that line.
bool end_last_line(const std::string& path) {
    FILE* const file = std::fopen(path.c_str(), "r+b");
    if (file == nullptr) {
        return false;
    }
    bool ok = true;
    if (std::fseek(file, -1, SEEK_END) == 0 && std::fgetc(file) != '\n') {
        ok = std::fseek(file, 0, SEEK_END) == 0 && std::fputc('\n', file) != EOF;
    }
    return std::fclose(file) == 0 && ok;
}

int write_ini(const Options& o) {
    INIT_EE_REG(o.instance.c_str());
    std::error_code ignored;
    const bool exists = std::filesystem::exists(o.out, ignored);
    if (exists && !o.reset && LOAD_EE_INI(o.out.c_str()) != 0) {
        return report_cannot("read", o.out);
    }
    for (const std::string& assignment : o.set) {
        set_register(assignment);
    }
    if ((exists && !end_last_line(o.out)) || DUMP_EE_INI(o.out.c_str()) != 0) {
        return report_cannot("written", o.out);
    }
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    CLI::Option_group* const what = app.add_option_group("What to do");
    CLI::Option* const out =
        what->add_option("--out", o->out, "write this file, or rewrite its section")->option_text("FILE");
    CLI::Option* const check =
        what->add_option("--check", o->check, "print what is wrong in this file, one finding a line")
            ->option_text("FILE");
    what->require_option(1);
    app.add_option("--instance", o->instance, "the section is [eeNAME]; without it [ee]")
        ->option_text("NAME");
    app.add_option("--set", o->set, "give a register this value; may be repeated")
        ->option_text("KEY=VALUE")
        ->needs(out)
        ->allow_extra_args(false);
    app.add_flag("--reset", o->reset, "start from the defaults, whatever the file has")->needs(out);
    app.add_flag("--complete", o->complete, "every register that is not set is a finding")->needs(check);
    return [o] { return o->check.empty() ? write_ini(*o) : check_ini(o->check, o->instance, o->complete); };
}

}  // namespace

const Command kIni = {
    "ini", "Write, rewrite or check a register file",
    "  eetool ini --out ee.ini --instance 0\n"
    "  eetool ini --out ee.ini --instance 0 --set reg_ee_texture_mode=0 --set reg_ee_total_gain=64\n"
    "  eetool ini --check ee.ini --instance 0\n",
    "--out on a file that is not there writes every register's default. On one that is, the section is\n"
    "written anew with the values that the file gives, defaults where it gives none, and other sections\n"
    "stay; comments and unknown keys inside the section go.\n"
    "--check ends with status 0 when all is well, 1 with findings, 2 when the file cannot be read.\n"
    "Registers that are not set are counted, and are findings with --complete.\n",
    declare};

}  // namespace eetool
