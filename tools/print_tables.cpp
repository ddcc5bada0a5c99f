// Prints docs/registers.md, the tables of docs/stages.md, or the registers of ee.ini(5), from the tables of
// the model.
#include <cstdio>
#include <cstring>
#include <string>

#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "pipelines.h"

namespace {

using namespace cm;

// The place of a register in its curve or table.
std::string name_place(const RegRow& row) {
    const int n = row.place;
    switch (row.group) {
        case kCurve:
            return n < 4   ? ": knot " + std::to_string(n) + ", input"
                   : n < 8 ? ": knot " + std::to_string(n - 4) + ", output"
                           : ": slope after knot " + std::to_string(n - 8) + ", 16ths";
        case kTable:
            return *row.followers != '\0' ? ": at " + std::to_string(8 * n) : "";
        default:
            return "";
    }
}

// Names apart by blanks as a list in code type.
std::string list_names(std::string names) {
    if (names.empty()) {
        return "nothing";
    }
    for (size_t at = names.find(' '); at != names.npos; at = names.find(' ', at + 4)) {
        names.replace(at, 1, "`, `");
    }
    return "`" + names + "`";
}

void print_registers() {
    std::puts(
        "# Registers\n"
        "\n"
        "Printed by `print_tables registers` from `cmodel/ee/src/reg_parse/ee_reg_hw_def.inc`; change it "
        "there.\n"
        "\n"
        "Slots stand in the order of init, print and dump. A value is cut to its bits; signed registers\n"
        "are two's complement. Knots of a curve lie in 0..255, and so do the codes, 8 apart, of the\n"
        "33-entry tables, which are interpolated. What the blocks do with them is in "
        "[stages.md](stages.md).\n"
        "\n"
        "| slot | key | bits | signed | default | what it does | followed by |\n"
        "|---:|---|---:|---|---:|---|---|");
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        const RegRow& row = kRegTable[slot];
        std::printf("| %d | `%s` | %d | %s | %d | %s%s | %s |\n", slot, row.key, row.bits,
                    row.is_signed ? "yes" : "no", row.def, row.meaning, name_place(row).c_str(),
                    list_names(row.followers).c_str());
    }
}

// Text in which no character means anything to scdoc.
std::string plain(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += std::strchr("_*\\#`|[<~", c) != nullptr ? std::string("\\") + c : std::string(1, c);
    }
    return escaped;
}

// The range as "0..255 [32]", the default in brackets.
std::string range_of(const RegRow& row) {
    const int64_t least = row.is_signed ? -(int64_t{1} << (row.bits - 1)) : 0;
    const int64_t greatest = least + (int64_t{1} << row.bits) - 1;
    return std::to_string(least) + ".." + std::to_string(greatest) + " [" + std::to_string(row.def) + "]";
}

// The registers in ee.ini(5): single ones as items, the members of a curve or a table in columns.
void print_manual() {
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        const RegRow& row = kRegTable[slot];
        const std::string followers = *row.followers != '\0' ? std::string(" (") + row.followers + ")" : "";
        const std::string meaning = plain(row.meaning + followers);
        if (row.group == kSingle) {
            std::printf("*%s* = %s\n\t%s\n\n", plain(row.key).c_str(), plain(range_of(row)).c_str(),
                        meaning.c_str());
            continue;
        }
        if (row.place == 0) {
            const std::string key = row.key;
            std::printf("*%s*: %s\n\n```\n", plain(key.substr(0, key.find("_lut") + 4)).c_str(),
                        meaning.c_str());
        }
        const std::string place = name_place(row);  // ": at 8"
        const int column = place.empty() ? 0 : 16;
        std::printf("%-34s = %-*s%s\n", row.key, column, range_of(row).c_str(),
                    place.empty() ? "" : place.c_str() + 1);
        if (slot + 1 == EE_REG_COUNT || kRegTable[slot + 1].group == kSingle ||
            kRegTable[slot + 1].place == 0) {
            std::puts("```\n");
        }
    }
}

void add(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ", ") + item;
}

// The registers of a block; a curve or a table by its prefix.
std::string list_registers(const Block& block) {
    std::string list;
    for (const RegRow& row : kRegTable) {
        if (!row.is_followed_by(block.name) || (row.group != kSingle && row.place != 0)) {
            continue;
        }
        const std::string key = row.key;
        add(list, "`" + (row.group == kSingle ? key : key.substr(0, key.find("_lut") + 4)) + "`");
    }
    return list;
}

std::string list_reads(const Step& step) {
    std::string list;
    for (int i = 0; i < step.block->inputs; ++i) {
        const int reach = step.block->in[i].reach;
        const Plane plane = step.reads[i];
        add(list, plane == Plane::luma ? "luma" : std::string("`") + row_of(plane).name + "`");
        list += reach > 0 ? " (" + std::to_string(reach) + " rows up and down)" : "";
    }
    return list;
}

std::string list_writes(const Step& step) {
    std::string list;
    for (int i = 0; i < step.block->outputs; ++i) {
        add(list, std::string("`") + row_of(step.writes[i]).name + "`");
    }
    return list;
}

std::string name_variants(int variants) {
    return variants == (kPlain | kTexture | kClassic) ? "all"
           : variants == (kPlain | kTexture)          ? "pre_ee"
           : variants == kPlain                       ? "pre_ee, texture mode 0"
           : variants == kTexture                     ? "pre_ee, texture mode 1"
                                                      : "classic";
}

void print_stages() {
    std::puts(
        "## Blocks\n"
        "\n"
        "Each row of the picture goes through the blocks of its pipeline in this order. \"Luma\" is `y`, in "
        "the\n"
        "classic pipeline `clean_y`.\n"
        "\n"
        "| block | in | what it does | reads | writes | registers | debug images |\n"
        "|---|---|---|---|---|---|---|");
    for (const Step& step : all_steps()) {
        if (step.block->outputs > 0) {
            std::printf("| `%s` | %s | %s | %s | %s | %s | %s |\n", step.block->name,
                        name_variants(step.variants).c_str(), step.block->summary, list_reads(step).c_str(),
                        list_writes(step).c_str(), list_registers(*step.block).c_str(), step.block->images);
        }
    }
    std::puts(
        "\n"
        "## Planes\n"
        "\n"
        "The inputs, then the stages: what the blocks write. The range is what a stage can take over all "
        "register\n"
        "settings and inputs within their depth.\n"
        "\n"
        "| plane | what it is | unit | depth | least | greatest |\n"
        "|---|---|---|---:|---:|---:|");
    for (const PlaneRow& plane : kPlaneTable) {
        std::printf("| `%s` | %s | %s | %d | %d | %d |\n", plane.name, plane.meaning, plane.unit, plane.depth,
                    plane.least, plane.greatest);
    }
    std::puts(
        "\n"
        "## Debug views\n"
        "\n"
        "`reg_ee_debug_mode` replaces the output by `plane * factor << reg_ee_debug_shift_bit >> 3`, plus "
        "128 if\n"
        "signed, clamped to 0..255. Modes 0 and 12 to 15 show the sharpened luma.\n"
        "\n"
        "| mode | plane | factor | signed | shift that suits |\n"
        "|---:|---|---:|---|---:|");
    for (const DebugView& view : kDebugViews) {
        std::printf("| %d | `%s` | %d | %s | %d |\n", view.mode, row_of(view.plane).name, view.factor,
                    view.is_signed ? "yes" : "no", view.shift);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "registers") == 0) {
        print_registers();
    } else if (argc == 2 && std::strcmp(argv[1], "stages") == 0) {
        print_stages();
    } else if (argc == 2 && std::strcmp(argv[1], "manual") == 0) {
        print_manual();
    } else {
        std::fprintf(stderr, "usage: print_tables registers|stages|manual\n");
        return 2;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
