#include "random_cases.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "ee_hw.h"
#include "ee_reg.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace fs = std::filesystem;

I from_environment(const char* name, I otherwise) {
    const char* const value = std::getenv(name);
    return value != nullptr ? std::atoll(value) : otherwise;
}

std::vector<I> draw_picture(Random& r, int width, int height) {
    std::vector<I> v(static_cast<size_t>(width) * height);
    const I style = r.below(8), a = r.below(65536), b = r.below(65536), at = r.below(width + height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const I styles[] = {r.below(65536),
                                r.below(4096),
                                65535 - r.below(4096),
                                a / 8,
                                (x + y < at ? a : b) / 2 + (x + y) * 32768 / (width + height),
                                (x % 5 == 0 ? a : b) ^ (y % 7 == 0 ? 0x3000 : 0),
                                r.below(2) * 65535,
                                (x / 3 + y / 4) % 2 ? a : b};
            v[static_cast<size_t>(y) * width + x] = styles[style];
        }
    if (style == 3 || r.chance(10)) v[static_cast<size_t>(r.below(static_cast<I>(v.size())))] = 65535;
    return v;
}

std::map<std::string, std::string> draw_settings(Random& r, I fusion_max) {
    std::map<std::string, std::string> set;
    const plain::Model defaults("NULL");
    const int changed = r.pick({3, 20, 100}), wild = r.pick({0, 0, 5});
    for (const plain::Register& reg : defaults.registers) {
        const I range = I{1} << reg.width;
        I value = r.chance(changed) ? r.below(range) : reg.value;
        if (reg.is_signed && value >= range / 2) value -= range;
        if (r.chance(wild)) value = r.pick<I>({-1, range, range * 3 + 1, 4294967300, -2147483648, -value});
        if (r.chance(98)) set[reg.key] = std::to_string(value);
        if (r.chance(wild)) set[reg.key] = r.pick<const char*>({"", "+7", "0x1", "abc", "1.9", "- 3", "007"});
    }
    for (const char* curve : {"luma_coring", "motion_coring", "mcore_gain", "chroma_amp", "motion"}) {
        if (r.chance(30)) continue;  // most curves have ordered knots and slopes that meet them
        I in = r.below(40), out = r.below(129);
        for (int k = 0; k < 4; ++k) {
            const std::string key = std::string("reg_ee_") + curve + "_lut_";
            set[key + "in_" + std::to_string(k)] = std::to_string(in);
            set[key + "out_" + std::to_string(k)] = std::to_string(out);
            const I step = r.between(1, 60), next = r.below(129);
            if (k < 3) set[key + "slope_" + std::to_string(k)] = std::to_string((next - out) * 16 / step);
            in += step, out = next;
        }
    }
    if (r.chance(80)) {  // thresholds amid the data
        const I dark = r.below(fusion_max + 2), bright = r.below(fusion_max + 2);
        set["reg_ee_dark_luma_thr"] = std::to_string(std::min(dark, bright));
        set["reg_ee_bright_luma_thr"] = std::to_string(std::max(dark, bright));
        for (const char* key : {"dark_edge_thr", "bright_edge_thr", "line_thr", "dark_edge_strength",
                                "bright_edge_strength", "line_strength"})
            set[std::string("reg_ee_") + key] = std::to_string(r.below(I{1} << r.between(1, 13)));
    }
    if (r.chance(40)) set["reg_ee_total_gain"] = std::to_string(r.between(100, 255));
    set["reg_ee_enable"] = r.chance(95) ? "1" : "0";
    set["reg_ee_debug_mode"] = std::to_string(r.chance(50) ? 0 : r.below(16));
    set["reg_ee_debug_shift_bit"] = std::to_string(r.below(8));
    return set;
}

std::string draw_ini(Random& r, const std::map<std::string, std::string>& set, const std::string& section) {
    const std::string eol = r.chance(20) ? "\r\n" : "\n";
    const bool tidy = r.chance(40);
    const auto odd = [&](int percent) { return !tidy && r.chance(percent); };
    std::string text = odd(20) ? "\xef\xbb\xbf" : "";
    if (odd(20))
        text += "reg_ee_total_gain = 3" + eol +
                r.pick<const char*>({"", " 9", "[ee_sw]", "[EE]", "[unclosed"}) + eol;
    if (odd(20)) text += "[other]" + eol + "reg_ee_debug_mode=5" + eol + " 6" + eol;
    text += (odd(10) ? "\t[" : "[") + (odd(5) ? "elsewhere" : section) + (odd(10) ? "] ; ours" : "]") + eol;
    for (const auto& [key, value] : set) {
        if (odd(1))
            text += r.pick<const char*>({"no separator", "[broken ;]", "=1", "", " ; aside", "#x=1", "  8"}) +
                    eol;
        if (odd(1))
            text +=
                key + r.pick<const char*>({" = 1", "=2 ; old", "x = 3", " ; = 4", " : 5", "\t=\t6"}) + eol;
        if (odd(1)) text += "[" + section + "2]" + eol + key + "=1" + eol + "[" + section + "]rest" + eol;
        text += key + r.pick<const char*>({" = ", "=", " : ", ":\t", " =  "}) + value;
        text += odd(10) ? r.pick<const char*>({" ; = 1", ";2", "\t;", "  "}) : "";
        text += eol;
        if (odd(3)) text += r.pick<const char*>({" ", "\t", "   "}) + std::to_string(r.below(300)) + eol;
    }
    if (odd(30)) text += "[ee_sw]" + eol + "x=1";
    return text;
}

static bool matches(const char* pattern, const char* text) {
    for (; *pattern && *pattern != '*'; ++pattern, ++text)
        if (*pattern != *text) return false;
    if (!*pattern) return !*text;
    for (;; ++text)
        if (matches(pattern + 1, text) || !*text) return matches(pattern + 1, text);
}
bool matches(const std::string& pattern, const std::string& text) {
    return matches(pattern.c_str(), text.c_str());
}

std::string log_pattern(const std::vector<plain::Record>& log) {
    const char* const names[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
    std::string text;
    for (const plain::Record& r : log) {
        char head[80];
        std::snprintf(head, sizeof head, "%-5s %-20s:%03d: ", names[r.level], r.source.c_str(), r.line);
        text += head + r.text + "\n";
    }
    return text;
}

std::string first_difference(const std::string& what, const std::string& pattern, const std::string& text) {
    std::istringstream a(pattern), b(text);
    std::string want, got;
    for (int n = 1;; ++n) {
        const bool more_a = !!std::getline(a, want), more_b = !!std::getline(b, got);
        if (!more_a && !more_b) return "";
        if (more_a != more_b || !matches(want, got))
            return what + " line " + std::to_string(n) + ": expected '" + (more_a ? want : "<end>") +
                   "', got '" + (more_b ? got : "<end>") + "'\n";
    }
}

std::string first_difference(const Files& want, const Files& got) {
    for (const auto& [path, bytes] : want) {
        const auto it = got.find(path);
        if (it == got.end()) return path + " is missing\n";
        const auto at = std::mismatch(bytes.begin(), bytes.end(), it->second.begin(), it->second.end());
        if (at.first != bytes.end() || at.second != it->second.end())
            return path + " differs from byte " + std::to_string(at.first - bytes.begin()) + "\n";
    }
    for (const auto& entry : got)
        if (!want.count(entry.first)) return entry.first + " should not exist\n";
    return "";
}

Files snapshot(const std::string& dir) {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        if (entry.is_regular_file()) files[entry.path().string()] = read_file(entry.path());
    return files;
}

FRAME* to_frame(const plain::Plane& p) {
    FRAME* const f = CM_NewFRAME(2, p.channels == 3 ? 1 : 2, static_cast<uint32_t>(p.width),
                                 static_cast<uint32_t>(p.height), static_cast<uint32_t>(p.channels), p.depth);
    std::copy(p.data.begin(), p.data.end(), f->data);
    return f;
}

std::vector<plain::Record>& captured_log() {
    static std::vector<plain::Record> log;
    static const int added = log_add_callback(
        [](log_Event* event) {
            char text[512];
            std::vsnprintf(text, sizeof text, event->fmt, event->args);
            static_cast<std::vector<plain::Record>*>(event->udata)
                ->push_back({event->level, event->file, event->line, text});
        },
        &log, 0);
    if (added != 0) std::abort();
    return log;
}

plain::Model load_both(const std::string& path) {
    captured_log().clear();
    INIT_EE_REG("NULL");
    LOAD_EE_INI(path.c_str());
    plain::Model model("NULL");
    model.load(path);
    return model;
}

std::string compare_pipelines(Random& r, const std::string& dir) {
    fs::remove_all(dir);
    fs::create_directory(dir);
    const std::string ini = write_file(dir + "/set.ini", draw_ini(r, draw_settings(r, 1 << 20), "ee"));
    plain::Model model = load_both(ini);
    model.dbg = dir;
    model.dump = r.chance(50);
    std::snprintf(dbg_path, sizeof dbg_path, "%s", dir.c_str());
    dump_dbg_img = model.dump;

    // A few are wider than the tiles in which some blocks work.
    const bool classic = r.chance(60), extreme = r.chance(10), large = r.chance(3);
    const int width = large ? r.size(500, 1100) : r.size(1, 14), height = r.size(1, large ? 4 : 12);
    const auto make = [&](int w, int channels, int depth) {
        plain::Plane p(w, height, channels, depth);
        const std::vector<I> picture = draw_picture(r, w * channels, height);
        for (size_t i = 0; i < picture.size(); ++i)
            p.data[i] = static_cast<int32_t>(extreme ? r.between(INT32_MIN + 1, INT32_MAX)
                                                     : (picture[i] << 4 >> (20 - depth)));
        return p;
    };
    const int half = (width + 1) / 2, channels = r.pick({1, 1, 2, 3}), depth = r.pick({8, 8, 8, 10, 12, 16});
    const plain::Plane p[6] = {make(width, channels, depth),   make(half, 1, 8),  make(half, 1, 8),
                               make(width, r.pick({1, 3}), 8), make(width, 1, 8), make(width, 1, 20)};
    const plain::Plane want = classic ? model.ee_hw(p[0], p[1], p[2], p[3], p[4])
                                      : model.pre_ee_hw(p[0], p[1], p[2], p[3], p[4], &p[5]);

    FRAME* f[6];
    for (int k = 0; k < 6; ++k) f[k] = to_frame(p[k]);
    cm::set_row_target(r.pick({cm::RowTarget::kBaseline, cm::RowTarget::kV3, cm::RowTarget::kV4}));
    FRAME* const got =
        classic ? ee_hw(f[0], f[1], f[2], f[3], f[4]) : pre_ee_hw(f[0], f[1], f[2], f[3], f[4], f[5]);
    const bool same = static_cast<int>(got->channels) == want.channels && got->depth == want.depth &&
                      got->format == (model.reg("ee_enable") == 0 ? f[classic ? 3 : 0]->format : 1u) &&
                      std::equal(want.data.begin(), want.data.end(), got->data);
    for (FRAME* const frame : f) CM_DelFRAME(frame);
    CM_DelFRAME(got);
    dump_dbg_img = 0;
    model.files[ini] = read_file(ini);
    return (same ? "" : "the output differs\n") +
           first_difference("log", log_pattern(model.log), log_pattern(captured_log())) +
           first_difference(model.files, snapshot(dir));
}
