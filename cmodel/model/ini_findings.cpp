// What is wrong in a register file, and what the model makes of it.
//
// The parser itself splits the file and the register block itself stores the values, so both are what a
// run would see. Lines are told apart by what the parser does with them: it is given one line at a time,
// and it calls back while that line is the current one.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "common.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_no_effect.h"
#include "ee_reg_ini.h"
#include "ini_findings.h"

namespace cm {
namespace {

constexpr const char* kMalformed = "\n";  // no section is called that

std::string format(const char* fmt, ...) CM_PRINTF(1, 2);
std::string format(const char* fmt, ...) {
    char text[1024];  // longer texts quote a longer part of the user's line than anyone wants to read
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    return text;
}

std::string fold_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// A section name without what people get wrong in it: case, blanks, separators.
std::string reduce_name(const std::string& name) {
    std::string reduced;
    std::copy_if(name.begin(), name.end(), std::back_inserter(reduced),
                 [](unsigned char c) { return std::isalnum(c) != 0; });
    return fold_case(reduced);
}

// Insertions, deletions and replacements that lead from a to b.
size_t edit_distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j + 1] + 1, row[j] + 1});
        }
    }
    return row.back();
}

// The register that an unknown key may have meant, as a question; nothing when none is near.
std::string suggest_key(const std::string& key) {
    if (key.size() > 100) {
        return "";
    }
    const char* nearest = nullptr;
    const std::string folded = fold_case(key);
    size_t least = key.size() / 3 + 1;
    for (const RegRow& row : kRegTable) {
        const std::string known = row.key;
        if (std::max(known.size(), key.size()) - std::min(known.size(), key.size()) >= least) {
            continue;  // so many insertions or deletions alone
        }
        const size_t distance = edit_distance(folded, known);
        if (distance < least) {
            least = distance;
            nearest = row.key;
        }
    }
    return nearest == nullptr ? "" : format("; did you mean %s?", nearest);
}

bool is_plain_number(const std::string& text) {
    const size_t digits = text.find_first_not_of("+-") == 1 ? 1 : 0;
    return text.size() > digits && text.find_first_not_of("0123456789", digits) == std::string::npos;
}

// One pass over a file, finding by finding.
class Checker {
  public:
    Checker(const char* instance, const Registers& start) {
        ee_reg_hw_init(&set_, instance);
        for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
            set_.slot[slot].value = start[slot];
        }
    }

    // 0, or the errno value of what kept it from the end of the file.
    int read(FILE* file) {
        file_ = file;
        const IniResult result = parse_ini(read_line, this, take_key, this);
        return result.error != 0 ? result.error : error_;
    }

    void finish(bool complete, IniFindings& found) {
        finish_sections(complete);
        check_effect();
        for (const Curve& curve : kCurves) {
            check_curve(curve);
        }
        std::stable_sort(findings_.begin(), findings_.end(),
                         [](const IniFinding& a, const IniFinding& b) { return a.line < b.line; });
        found.findings = std::move(findings_);
        found.unset = unset_;
        found.registers = Registers(set_);
    }

  private:
    // Knots in, knots out and slopes lie side by side in the table, from `first` on.
    struct Curve {
        int first;
        bool is_weight;  // outputs above 128 are more than the whole; a run logs an error
    };
    static constexpr Curve kCurves[] = {{reg_ee_luma_coring_lut_in_0, false},
                                        {reg_ee_motion_coring_lut_in_0, false},
                                        {reg_ee_mcore_gain_lut_in_0, false},
                                        {reg_ee_chroma_amp_lut_in_0, true},
                                        {reg_ee_motion_lut_in_0, true}};
    static constexpr size_t kLongestSection = 64;  // the parser cuts names to fewer characters
    static constexpr int kMaxSuggestions = 1000;   // each compares a key with all registers

    struct Section {
        std::string name;
        int line;
        int registers;  // keys of ours in it
    };

    void add(int line, std::string text) { findings_.push_back({line, std::move(text)}); }
    bool is_ours(const std::string& section) const { return section == set_.name; }

    // ---- Lines ----

    // The parser's reader, which takes what fgets() would, so that lines with a NUL are counted as well. The
    // line before is done with.
    static char* read_line(char* buffer, int size, void* user) {
        Checker& self = *static_cast<Checker*>(user);
        return self.keep_error([&] { self.finish_line(); }) ? self.take_line(buffer, size) : nullptr;
    }

    // The parser is C and would lose its line buffer to an exception. False: an error, now or before.
    template <typename Call>
    bool keep_error(Call call) {
        try {
            call();
        } catch (const std::bad_alloc&) {
            error_ = ENOMEM;
        }
        return error_ == 0;
    }

    char* take_line(char* buffer, int size) {
        int length = 0;
        for (int c = '\0'; c != '\n' && length + 1 < size && (c = getc_unlocked(file_)) != EOF;) {
            buffer[length++] = static_cast<char>(c);
        }
        if (std::ferror(file_) != 0) {
            error_ = errno;
        }
        if (length == 0 || error_ != 0) {
            return nullptr;
        }
        buffer[length] = '\0';
        line_ += line_ended_ ? 1 : 0;
        line_ended_ = buffer[length - 1] == '\n';
        has_key_ = false;
        return keep_error([&] { text_ = buffer; }) ? buffer : nullptr;
    }

    // A line that gave no key: blank, a comment, a section header or malformed.
    void finish_line() {
        const std::string section = line_ == 0 || has_key_ ? "" : parse_header(text_, line_ == 1, error_);
        if (section == kMalformed) {
            add(line_, format("this is no section, key or comment and is ignored: %.60s",
                              text_.substr(0, text_.find_last_not_of("\r\n") + 1).c_str()));
        } else if (!section.empty()) {
            section_ = section;
            last_key_.clear();
            sections_.push_back({section, line_, 0});
        }
        if (is_ours(section_)) {
            section_end_ = line_;
        }
    }

    // Asks the parser what it takes a line for: the section that it opens, none, or kMalformed. Only the
    // first line of a file may begin with a byte-order mark.
    static std::string parse_header(const std::string& line, bool is_first, int& error) {
        std::string section;
        section.reserve(kLongestSection);  // nothing may fail in the parser, which is C
        const auto take_section = [](void* user, const char* name, const char*, const char*) {
            *static_cast<std::string*>(user) = name;
            return 1;
        };
        const std::string text = (is_first ? "" : "\n") + line + "\nx=\n";
        const IniResult result = parse_ini(text, take_section, &section);
        if (result.error != 0) {
            error = result.error;
        }
        return result.bad_line != 0 ? kMalformed : section;
    }

    // ---- Keys ----

    static int take_key(void* user, const char* section, const char* key, const char* value) {
        Checker& self = *static_cast<Checker*>(user);
        return self.keep_error([&] { self.check_key(section, key, value); }) ? 1 : 0;
    }

    void check_key(const char* section, const std::string& key, const std::string& value) {
        has_key_ = true;
        const bool continued = !last_key_.empty() && std::isspace(static_cast<unsigned char>(text_[0])) != 0;
        last_key_ = key;
        const int slot = find_register(key);
        if (!is_ours(section)) {
            if (*section == '\0') {
                add(line_, format("%s stands outside any section and is ignored", key.c_str()));
            } else if (!sections_.empty()) {
                sections_.back().registers += slot >= 0 ? 1 : 0;
            }
            return;
        }
        if (slot < 0) {
            const std::string suggestion = suggestions_++ < kMaxSuggestions ? suggest_key(key) : "";
            add(line_, format("there is no register %s%s", key.c_str(), suggestion.c_str()));
            return;
        }
        ee_reg_hw_load(&set_, section, key.c_str(), value.c_str());
        if (continued) {
            add(line_, format("an indented line is one more value of the key above: %s becomes %d",
                              key.c_str(), set_.slot[slot].value));
        } else {
            check_value(slot, value);
        }
        if (line_of_[slot] != 0 && !continued) {
            add(line_, format("%s stands in line %d already; the value here holds: %d", key.c_str(),
                              line_of_[slot], set_.slot[slot].value));
        }
        line_of_[slot] = line_;
    }

    void check_value(int slot, const std::string& text) {
        const RegRow& row = kRegTable[slot];
        const int32_t stored = set_.slot[slot].value;
        const long long value = std::strtoll(text.c_str(), nullptr, 10);
        if (!is_plain_number(text)) {
            add(line_, format("%s: \"%.60s\" is no plain decimal number; it becomes %d", row.key,
                              text.c_str(), stored));
        } else if (value < row.least() || value > row.greatest()) {
            add(line_, format("%s: %.60s does not fit %d..%d; it becomes %d", row.key, text.c_str(),
                              row.least(), row.greatest(), stored));
        }
    }

    // ---- The whole file ----

    void finish_sections(bool complete) {
        bool found = false;
        for (const Section& section : sections_) {
            found = found || is_ours(section.name);
        }
        // Sections of other instances are as good as any other, unless nothing is there for this one.
        for (const Section& section : sections_) {
            const bool other_instance = section.name.starts_with("ee") && !section.name.starts_with("ee_sw");
            const bool resembles = reduce_name(section.name) == reduce_name(set_.name);
            const bool holds_ours = section.registers > 0 && !(other_instance && found);
            if (!is_ours(section.name) && (resembles || holds_ours)) {
                add(section.line, format("section [%s] is not read; the registers' section is [%s]",
                                         section.name.c_str(), set_.name));
            }
        }
        if (!found) {
            add(std::max(line_, 1),
                format("there is no section [%s]: every register has its default", set_.name));
            return;
        }
        for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
            if (line_of_[slot] != 0) {
                continue;
            }
            ++unset_;
            if (complete) {
                add(section_end_, format("[%s] ends without %s, which has its default %d", set_.name,
                                         kRegTable[slot].key, kRegTable[slot].def));
            }
        }
    }

    // "KEY = VALUE, ..."; of neighbours that have one value only the ends.
    std::string list_registers(const std::vector<int>& slots) const {
        std::string list;
        for (size_t i = 0; i < slots.size();) {
            const auto value = [&](size_t k) { return set_.slot[slots[k]].value; };
            size_t last = i;
            while (last + 1 < slots.size() && slots[last + 1] == slots[last] + 1 &&
                   value(last + 1) == value(i)) {
                ++last;
            }
            if (last - i < 2) {
                last = i;
            }
            const std::string range = last > i ? format(" to %s", kRegTable[slots[last]].key) : "";
            list += format("%s%s%s = %d", list.empty() ? "" : ", ", kRegTable[slots[i]].key, range.c_str(),
                           value(i));
            i = last + 1;
        }
        return list;
    }

    void check_effect() {
        for (const std::vector<int>& slots : find_no_effect(set_)) {
            add(line_of(slots), "pre_ee_main changes no picture with " + list_registers(slots));
        }
    }

    // ---- Curves ----

    // The line to blame for what two registers have between them: the one that gave the later of them.
    int line_of(const std::vector<int>& slots) const {
        int line = 0;
        for (const int slot : slots) {
            line = std::max(line, line_of_[slot]);
        }
        return line != 0 ? line : std::max(section_end_, 1);
    }

    void check_curve(const Curve& curve) {
        for (int k = 0; k < kKnots; ++k) {
            const int out = curve.first + kKnots + k;
            if (curve.is_weight && set_.slot[out].value > kUnitWeight) {
                add(line_of({out}), format("%s = %d is above %d, the whole weight; a run logs an error",
                                           kRegTable[out].key, set_.slot[out].value, kUnitWeight));
            }
            if (k + 1 < kKnots) {
                check_segment(curve.first + k, out, curve.first + 2 * kKnots + k);
            }
        }
    }

    // The slope from one knot to the next is their quotient in sixteenths: truncated, as
    // cm_sw_get_slope() has it, or rounded to nearest. Anything else lies farther from the next knot
    // than it has to. A segment of no width has no slope.
    void check_segment(int in, int out, int slope) {
        const int x0 = set_.slot[in].value, x1 = set_.slot[in + 1].value;
        const int y0 = set_.slot[out].value, y1 = set_.slot[out + 1].value;
        if (x1 < x0) {
            add(line_of({in, in + 1}), format("%s = %d is below %s = %d; knots must not fall",
                                              kRegTable[in + 1].key, x1, kRegTable[in].key, x0));
            return;
        }
        if (x1 == x0) {
            return;
        }
        constexpr int kShift = 4;
        const int truncated = cm_sw_get_slope(x0, x1, y0, y1, kShift);
        const int twice = cm_sw_get_slope(x0, x1, y0, y1, kShift + 1);
        const int nearest = (twice + (twice < 0 ? -1 : 1)) / 2;
        const int given = set_.slot[slope].value;
        const RegRow& row = kRegTable[slope];
        const int line = line_of_[slope] != 0 ? line_of_[slope] : line_of({in, in + 1, out, out + 1});
        const std::string segment =
            format("%s = %d does not lead from (%d, %d) to (%d, %d)", row.key, given, x0, y0, x1, y1);
        if (truncated < row.least() || truncated > row.greatest()) {
            add(line, format("%s: %d would, which %d..%d does not reach; move the knots apart",
                             segment.c_str(), truncated, row.least(), row.greatest()));
        } else if (given != truncated && given != nearest) {
            add(line, truncated == nearest
                          ? format("%s: %d would", segment.c_str(), truncated)
                          : format("%s: %d or %d would", segment.c_str(), truncated, nearest));
        }
    }

    EE_REG_HW set_ = {};
    FILE* file_ = nullptr;
    std::string text_;     // of the current line
    std::string section_;  // that it stands in
    std::string last_key_;
    int line_ = 0;
    bool line_ended_ = true;  // longer lines than the parser takes come in parts
    int error_ = 0;
    int suggestions_ = 0;
    int section_end_ = 0;  // last line of the registers' section
    int unset_ = 0;        // registers that the section lacks
    bool has_key_ = false;
    int line_of_[EE_REG_COUNT] = {};  // that gave the value that holds; 0 for none
    std::vector<Section> sections_;
    std::vector<IniFinding> findings_;
};

}  // namespace

int find_in_ini(FILE* file, const char* instance, const Registers& start, bool complete, IniFindings& found) {
    Checker checker(instance, start);
    const int error = checker.read(file);
    if (error == 0) {
        checker.finish(complete, found);
    }
    return error;
}

}  // namespace cm
