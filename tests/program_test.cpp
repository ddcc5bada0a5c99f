// The built program, run as users run it, against the plain model and against literal expectations;
// and both library pipelines on frames that no file can hold. CMODEL_TEST_SEED and
// CMODEL_TEST_CASES choose other cases; a failing case says which and keeps its folder.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>

#include "ee_hw.h"
#include "ee_reg.h"
#include "plain_model.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace {

namespace fs = std::filesystem;
using plain::I;
using Files = std::map<std::string, std::string>;

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void spill(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

Files snapshot(const fs::path& dir) {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        if (entry.is_regular_file()) files[entry.path().string()] = slurp(entry.path());
    return files;
}

// '*' in the pattern stands for any text.
bool matches(const char* pattern, const char* text) {
    for (; *pattern && *pattern != '*'; ++pattern, ++text)
        if (*pattern != *text) return false;
    if (!*pattern) return !*text;
    for (;; ++text)
        if (matches(pattern + 1, text) || !*text) return matches(pattern + 1, text);
}
bool matches(const std::string& pattern, const std::string& text) {
    return matches(pattern.c_str(), text.c_str());
}

// ---- Running the program ------------------------------------------------------------------------

struct Result {
    int status;  // 1000 and the signal when one ended it
    std::string out, err;
};

Result run(std::vector<std::string> args, const std::function<void()>& meanwhile = {}) {
    std::FILE* const streams[2] = {std::tmpfile(), std::tmpfile()};
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int k = 0; k < 2; ++k) posix_spawn_file_actions_adddup2(&actions, fileno(streams[k]), k + 1);
    pid_t child = 0;
    if (posix_spawn(&child, PRE_EE_MAIN, &actions, nullptr, argv.data(), environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    if (meanwhile) meanwhile();
    int status = 0;
    for (int tries = 0; waitpid(child, &status, WNOHANG) == 0; usleep(200))
        if (++tries == 100000) kill(child, SIGKILL);  // it waits for a file that never comes
    std::string text[2];
    for (int k = 0; k < 2; ++k) {
        std::rewind(streams[k]);
        for (int c; (c = std::fgetc(streams[k])) != EOF;) text[k] += static_cast<char>(c);
        std::fclose(streams[k]);
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), text[0], text[1]};
}

// A folder of its own for one run: settings, log, planes, debug directory.
struct Scratch {
    fs::path dir;
    std::vector<std::string> args;
    bool keep = false;
    explicit Scratch(const std::string& name)
        : dir(fs::temp_directory_path() / ("cmodel_" + std::to_string(getpid()) + "_" + name)) {
        fs::create_directories(dir / "dbg");
        args = {PRE_EE_MAIN, at("set.ini"), at("run.log"), "0", "NULL", "1", at("dbg"), "0"};
        for (const char* f : {"y", "cb", "cr", "ynr", "mmap", "out", "fus"}) args.push_back(at(f));
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() {
        if (!keep) fs::remove_all(dir);
    }
    std::string at(const std::string& file) const { return (dir / file).string(); }
};

std::string log_pattern(const std::vector<plain::Record>& log) {
    const char* const names[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
    std::string text;
    for (const plain::Record& r : log) {
        char head[80], line[16] = "*";
        if (r.line >= 0) std::snprintf(line, sizeof line, "%03d", r.line);
        std::snprintf(head, sizeof head, "%-5s %-20s:%s: ", names[r.level], r.source.c_str(), line);
        text += head + r.text + "\n";
    }
    return text;
}

std::string without_times(const std::string& log) {
    std::istringstream in(log);
    std::string text;
    for (std::string line; std::getline(in, line); text += line + "\n")
        if (line.size() > 20 && line[4] == '-' && line[10] == ' ' && line[16] == ':') line.erase(0, 20);
    return text;
}

// "" or the first line in which a text differs from a pattern.
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
        if (it->second == bytes) continue;
        size_t i = 0, payload = 0;
        while (i < bytes.size() && i < it->second.size() && bytes[i] == it->second[i]) ++i;
        for (int line = 0; line < 4; ++line) payload = bytes.find('\n', payload) + 1;
        const auto value = [i](const std::string& s) {
            return i < s.size() ? std::to_string(static_cast<unsigned char>(s[i])) : "<end>";
        };
        return path + " byte " + std::to_string(i) + " (payload byte " +
               std::to_string(static_cast<long>(i) - static_cast<long>(payload)) + "): expected " +
               value(bytes) + ", got " + value(it->second) + "\n";
    }
    for (const auto& entry : got)
        if (!want.count(entry.first)) return entry.first + " should not exist\n";
    return "";
}

std::string compare_with_model(const Scratch& s) {
    Files before = snapshot(s.dir);
    const plain::Outcome want = plain::run_program(s.args);
    const Result got = run(s.args);
    std::string report;
    if (got.status != want.status)
        report +=
            "status: expected " + std::to_string(want.status) + ", got " + std::to_string(got.status) + "\n";
    report += first_difference("stdout", want.out, got.out);
    if (!matches(want.err, got.err)) report += "stderr: expected '" + want.err + "', got '" + got.err + "'\n";
    const std::string old_log = before[s.args[2]];
    report += first_difference("log", old_log + log_pattern(want.log), without_times(slurp(s.args[2])));
    for (const auto& [path, bytes] : want.files) before[fs::absolute(path).lexically_normal()] = bytes;
    Files after = snapshot(s.dir);
    before.erase(s.args[2]), after.erase(s.args[2]);
    return report + first_difference(before, after);
}

// ---- Random cases -------------------------------------------------------------------------------

struct Random {
    std::mt19937_64 engine;
    I below(I n) { return static_cast<I>(engine() % static_cast<uint64_t>(n)); }
    I between(I low, I high) { return low + below(high - low + 1); }
    bool chance(int percent) { return below(100) < percent; }
    template <class T>
    T pick(std::initializer_list<T> list) {
        return list.begin()[below(static_cast<I>(list.size()))];
    }
};

// A picture of values 0..65535 that the planes of one case are made from.
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

// One image file of the picture's values plus noise, at a max value; some come broken.
std::string draw_file(Random& r, const std::vector<I>& picture, int width, int height, I max, bool colour) {
    int depth = 0;
    while (depth < 32 && (I{1} << depth) < max) ++depth;
    const I noise = r.pick<I>({1, 1, 2, max / 20 + 1, max / 2 + 1}), wild = r.chance(5);
    std::string head = colour ? "P6" : "P5";
    if (r.chance(20)) head += r.pick<const char*>({" ", "\r", " # anything", " twelve more"});
    head += "\n";
    for (I n = r.chance(70) ? 0 : r.below(4); n > 0; --n)
        head += r.pick<const char*>({"#\n", "# 3 3 255\n", "##\r\n"});
    const std::string gap = r.pick<const char*>({" ", " ", "\n", " \t\n "});
    head += (r.chance(10) ? gap : "") + std::to_string(width) + gap + std::to_string(height) + "\n";
    head += std::to_string(max) + r.pick<const char*>({"\n", "\n", "\n", "\r\n", " tail\n"});
    std::string body;
    for (size_t i = 0; i < picture.size() * (colour ? 3 : 1); ++i) {
        I v = picture[i / (colour ? 3 : 1)] * max / 65535 + r.below(noise) - noise / 2;
        v = wild ? r.below(I{1} << 32) : std::min(std::max<I>(v, 0), max);
        for (int shift = 24; shift >= 0; shift -= 8)
            if (depth > shift) body += static_cast<char>(static_cast<uint8_t>(v >> shift));
    }
    if (r.chance(4)) body.resize(static_cast<size_t>(r.below(static_cast<I>(body.size()) + 1)));
    if (r.chance(5)) body += "more than needed";
    if (r.chance(1))
        head[static_cast<size_t>(r.below(static_cast<I>(head.size())))] = r.pick({'-', '0', 'x', '\n', '#'});
    if (r.chance(1)) return head.substr(0, static_cast<size_t>(r.below(static_cast<I>(head.size()) + 1)));
    return head + body;
}

// Register values as text, by key: few or all, in the useful range or anywhere.
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

void draw_case(Random& r, Scratch& s, I n) {
    const int width = static_cast<int>(r.chance(15) ? r.between(1, 4) : r.between(1, 24));
    const int height = static_cast<int>(r.chance(15) ? r.between(1, 4) : r.between(1, 20));
    const auto max_value = [&](int low, int high) {
        if (r.chance(2))
            return r.pick<I>({1, 2, 3, 256, 65536, 16777217, 4294967295, r.between(1, 4294967295)});
        const I top = (I{1} << r.between(low, high)) - 1;
        return r.chance(80) ? top : r.between(top / 2 + 2, top);
    };
    const I y_max = r.chance(85) ? 255 : max_value(8, 14), fusion_max = max_value(8, 20);
    const std::vector<I> picture = draw_picture(r, width, height), other = draw_picture(r, width, height);
    const bool rgb = r.chance(20);
    const std::string mode =
        rgb ? r.pick<const char*>({"0", "rgb"}) : r.pick<const char*>({"1", "2", " -7x"});
    int cw = (width + r.pick({0, 1})) / 2, ch = height;
    if (cw == 0 || r.chance(5))
        cw = static_cast<int>(r.between(1, width + 1)), ch = static_cast<int>(r.between(1, height + 1));
    const auto mistake = [&](int size) { return size + (r.chance(1) ? 1 : 0); };
    const auto plane = [&](const std::vector<I>& p, I max, bool colour = false) {
        const int h = mistake(height);
        std::vector<I> q(p);
        q.resize(static_cast<size_t>(width) * h, 77);
        return draw_file(r, q, width, h, max, colour);
    };
    spill(s.at("y"), plane(picture, y_max, rgb));
    spill(s.at("ynr"), plane(r.chance(90) ? picture : other, r.chance(90) ? y_max : 255, rgb));
    spill(s.at("mmap"), plane(r.chance(30) ? picture : draw_picture(r, width, height), max_value(8, 8)));
    spill(s.at("fus"), plane(r.chance(70) ? picture : other, fusion_max));
    for (const char* c : {"cb", "cr"})
        spill(s.at(c), draw_file(r, draw_picture(r, cw, ch), cw, ch, max_value(8, 8), false));

    auto settings = draw_settings(r, fusion_max);
    settings["reg_ee_texture_mode"] = r.chance(rgb ? 5 : 70) ? "1" : "0";
    s.args[4] =
        r.pick<const char*>({"NULL", "NULL", "0", "_b", "", "null", "a_suffix_longer_than_any_name_may_be"});
    spill(s.at("set.ini"), draw_ini(r, settings, plain::Model(s.args[4]).name));
    if (r.chance(2)) fs::remove(s.at("set.ini"));
    if (r.chance(10)) spill(s.at("run.log"), "an earlier line\n");
    s.args[3] = r.pick<const char*>({"0", "1", "1", "2", "3", "4", "5", "6", "-1", "x"});
    s.args[5] = mode;
    s.args[7] = r.pick<const char*>({"0", "0", "1", "2", "x"});
    while (n % 50 == 7 && s.args[6].size() < 1005) s.args[6] += "/.";  // image paths are cut at 1023
}

I from_environment(const char* name, I otherwise) {
    const char* const value = std::getenv(name);
    return value ? std::atoll(value) : otherwise;
}

TEST(Program, AgreesWithThePlainModel) {
    const I seed = from_environment("CMODEL_TEST_SEED", 20240917),
            cases = from_environment("CMODEL_TEST_CASES", 1000);
    std::printf("CMODEL_TEST_SEED=%ld, %ld cases\n", static_cast<long>(seed), static_cast<long>(cases));
    int failures = 0;
    for (I n = from_environment("CMODEL_TEST_FIRST", 0); n < cases && failures < 5; ++n) {
        Random r{std::mt19937_64(static_cast<uint64_t>(seed * 1000003 + n))};
        Scratch s("case" + std::to_string(n));
        draw_case(r, s, n);
        const std::string report = compare_with_model(s);
        s.keep = !report.empty();
        if (s.keep) {
            ++failures;
            std::string command;
            for (const std::string& a : s.args) command += " '" + a + "'";
            ADD_FAILURE() << "case " << n << " of seed " << seed << ", run as\n" << command << "\n" << report;
        }
    }
}

// ---- Fixed cases --------------------------------------------------------------------------------

std::string grey(int width, int height, const std::string& max = "255") {
    const std::string size = std::to_string(width) + " " + std::to_string(height);
    return "P5\n" + size + "\n" + max + "\n" + std::string(static_cast<size_t>(width) * height, 'n');
}

void lay_out(const Scratch& s) {
    for (const char* f : {"y", "ynr", "mmap", "fus"}) spill(s.at(f), grey(6, 4));
    for (const char* f : {"cb", "cr"}) spill(s.at(f), grey(3, 4));
    spill(s.at("set.ini"), "[ee]\nreg_ee_enable = 1\n");
}

TEST(Program, RefusesBadInput) {
    const struct {
        const char *name, *file, *bytes;
        int status;
        std::string err, log;  // patterns; log for the last lines
    } cases[] = {
        {"empty", "y", "", 1, "*/y: *\n", ""},
        {"magic", "y", "P6\n2 2\n255\n", 1, "Invalid image format (must be 'P5') (error loading '*/y')\n",
         ""},
        {"zero", "y", "P5\n0 4\n255\n", 1, "Invalid image size (error loading '*/y')\n", ""},
        {"negative", "cb", "P5\n3 -4\n255\n", 1, "Invalid image size (error loading '*/cb')\n", ""},
        {"overflow", "y", "P5\n4294967302 4\n255\n", 1, "Invalid image size (error loading '*/y')\n", ""},
        {"huge", "y", "P5\n2000000000 2000000000\n255\n", 1, "*", ""},
        {"comment", "y", "P5\n# never ends", 1, "Invalid image size (error loading '*/y')\n", ""},
        {"late comment", "y", "P5\n6 4\n# no\n255\n", 1, "Invalid max_rgb (error loading '*/y')\n", ""},
        {"max 0", "mmap", "P5\n6 4\n0\n", 1, "Invalid max_rgb (error loading '*/mmap')\n", ""},
        {"max 2^32", "fus", "P5\n6 4\n4294967296\n", 1, "Invalid max_rgb (error loading '*/fus')\n", ""},
        {"cut header", "y", "P5\n6 4\n255", 1, "Invalid max_rgb (error loading '*/y')\n", ""},
        {"other size", "ynr", "P5\n5 4\n255\nnnnnnnnnnnnnnnnnnnnn", 255, "*6*4*5*4*\n",
         "FATAL pre_ee_hw           :*"},
        {"small fusion", "fus", "P5\n6 3\n255\nnnnnnnnnnnnnnnnnnnn", 255, "*6*4*6*3*\n",
         "FATAL pre_ee_hw           :*"},
        {"odd chroma", "cr", "P5\n2 4\n255\nnnnnnnnn", 0, "", "WARN  pre_ee_main         :*"},
        {"short", "cr", "P5\n3 4\n255\nn", 0, "", "ERROR common              :*"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Scratch s("bad");
        lay_out(s);
        spill(s.at(c.file), c.bytes);
        const Result got = run(s.args);
        EXPECT_EQ(got.status, c.status);
        EXPECT_TRUE(matches(c.err, got.err)) << got.err;
        EXPECT_TRUE(matches("*\n" + c.log + "*", without_times(slurp(s.at("run.log")))))
            << slurp(s.at("run.log"));
        EXPECT_EQ(fs::exists(s.at("out")), c.status == 0);
    }
}

TEST(Program, CommandLine) {
    Scratch s("cli");
    lay_out(s);
    EXPECT_EQ(compare_with_model(s), "");
    for (const size_t words : {1, 3, 14, 16}) {  // usage text
        Scratch u("usage");
        u.args.resize(words, "one too many");
        const plain::Outcome want = plain::run_program(u.args);
        const Result got = run(u.args);
        EXPECT_EQ(got.status, 255);
        EXPECT_EQ(got.out, want.out);
    }
    std::vector<std::string> args = s.args;
    args[2] = s.at("no/such/log");
    Result got = run(args);
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "Unable to open log file '" + args[2] + "'\n");

    args = s.args;
    args[13] = "/dev/full";
    got = run(args);
    EXPECT_EQ(got.status, 1);
    EXPECT_TRUE(matches("*/dev/full*\n", got.err)) << got.err;

    args = s.args;
    args[5] = "0";  // RGB with the default texture mode 1
    fs::remove(s.at("out"));
    got = run(args);
    EXPECT_EQ(got.status, 255);
    EXPECT_TRUE(matches("*reg_ee_texture_mode*\n", got.err)) << got.err;
    EXPECT_TRUE(matches("*\nFATAL pre_ee_main         :*", without_times(slurp(args[2]))));
    EXPECT_FALSE(fs::exists(s.at("out")));

    const std::string bytes = slurp(s.at("ynr"));
    args = s.args;
    fs::remove(s.at("ynr"));
    got = run(args, [&] {  // a missing input is waited for
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        spill(s.at("made"), bytes);
        fs::rename(s.at("made"), s.at("ynr"));
    });
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "wait pre frame ready " + s.at("ynr") + "\n" + s.at("ynr") +
                           " ready\ndepth of Yfusion is 8 \n");

    Scratch onto("onto");  // output onto an input
    lay_out(onto);
    onto.args[13] = onto.at("fus");
    spill(onto.at("set.ini"), "[ee]\nreg_ee_total_gain =" + std::string(1999000, ' ') + "77\n");
    EXPECT_EQ(compare_with_model(onto), "");
}

// ---- Library pipelines --------------------------------------------------------------------------

FRAME* to_frame(const plain::Plane& p) {
    FRAME* const f = CM_NewFRAME(2, p.channels == 3 ? 1 : 2, static_cast<uint32_t>(p.width),
                                 static_cast<uint32_t>(p.height), static_cast<uint32_t>(p.channels), p.depth);
    std::copy(p.data.begin(), p.data.end(), f->data);
    return f;
}

// Everything logged since the last clear(), by the one sink of this process.
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
    EXPECT_EQ(added, 0);
    return log;
}

// Frames reach where files do not: negative and full-range samples, three-channel luma, and the
// classic pipeline.
TEST(Library, PipelinesAgreeWithThePlainModel) {
    std::vector<plain::Record>& log = captured_log();
    log_set_quiet(true);
    const I seed = from_environment("CMODEL_TEST_SEED", 20240917),
            cases = from_environment("CMODEL_TEST_CASES", 1000);
    for (I n = 0; n < cases / 2 && !HasFailure(); ++n) {
        SCOPED_TRACE("frame case " + std::to_string(n) + " of seed " + std::to_string(seed));
        Random r{std::mt19937_64(static_cast<uint64_t>(seed * 1000033 + n))};
        Scratch s("frames");
        const int width = static_cast<int>(r.between(1, 14)), height = static_cast<int>(r.between(1, 12));
        const bool classic = r.chance(60), extreme = r.chance(10);
        const auto make = [&](int w, int h, int channels, int depth) {
            plain::Plane p(w, h, channels, depth);
            const std::vector<I> picture = draw_picture(r, w * channels, h);
            for (size_t i = 0; i < picture.size(); ++i)
                p.data[i] = static_cast<int32_t>(extreme ? r.between(INT32_MIN + 1, INT32_MAX)
                                                         : (picture[i] << 4 >> (20 - depth)));
            return p;
        };
        const int channels = r.pick({1, 1, 3}), depth = r.pick({8, 8, 8, 10, 12, 16});
        const plain::Plane planes[6] = {make(width, height, channels, depth),
                                        make((width + 1) / 2, height, 1, 8),
                                        make((width + 1) / 2, height, 1, 8),
                                        make(width, height, r.pick({1, 3}), 8),
                                        make(width, height, 1, 8),
                                        make(width, height, 1, 20)};
        const auto settings = draw_settings(r, 1 << 20);
        spill(s.at("set.ini"), draw_ini(r, settings, "ee"));
        plain::Model model("NULL");
        model.load(s.at("set.ini"));
        model.dbg = s.at("dbg");
        model.dump = r.chance(50);
        const plain::Plane want =
            classic ? model.ee_hw(planes[0], planes[1], planes[2], planes[3], planes[4])
                    : model.pre_ee_hw(planes[0], planes[1], planes[2], planes[3], planes[4], &planes[5]);

        log.clear();
        std::snprintf(dbg_path, sizeof dbg_path, "%s", model.dbg.c_str());
        dump_dbg_img = model.dump;
        INIT_EE_REG("NULL");
        LOAD_EE_INI(s.at("set.ini").c_str());
        FRAME* f[6];
        for (int k = 0; k < 6; ++k) f[k] = to_frame(planes[k]);
        cm::set_row_target(r.pick({cm::RowTarget::kBaseline, cm::RowTarget::kV3, cm::RowTarget::kV4}));
        FRAME* const got =
            classic ? ee_hw(f[0], f[1], f[2], f[3], f[4]) : pre_ee_hw(f[0], f[1], f[2], f[3], f[4], f[5]);
        EXPECT_EQ(got->channels, static_cast<uint32_t>(want.channels));
        EXPECT_EQ(got->depth, want.depth);
        EXPECT_EQ(got->format, model.reg("ee_enable") == 0 ? f[classic ? 3 : 0]->format : 1u);
        EXPECT_EQ(std::vector<int32_t>(got->data, got->data + want.data.size()), want.data);
        EXPECT_EQ(first_difference("log", log_pattern(model.log), log_pattern(log)), "");
        Files files = snapshot(s.dir);
        files.erase(s.at("set.ini"));
        EXPECT_EQ(first_difference(model.files, files), "");
        for (FRAME* const frame : f) CM_DelFRAME(frame);
        CM_DelFRAME(got);
        s.keep = HasFailure();
    }
    dump_dbg_img = 0;
}

// One block: what the library and the plain model make of the same planes.
struct Block {
    const char* name;
    int inputs;
    int outputs;
    std::function<void(FRAME* const* in, FRAME* const* out)> run;
    std::function<void(plain::Model&, const plain::Plane* in, plain::Plane* out)> define;
};

const std::vector<Block>& blocks() {
    using P = const plain::Plane*;
    using M = plain::Model&;
    static const std::vector<Block> all = {
        {"min_max_5x5", 1, 2, [](auto i, auto o) { EE_Cal5x5MinMax(i[0], o[0], o[1]); },
         [](M, P i, auto o) { plain::extremes(i[0], 2, o[0], o[1]); }},
        {"min_max_3x3", 1, 2, [](auto i, auto o) { EE_Cal3x3MinMax(i[0], o[0], o[1]); },
         [](M, P i, auto o) { plain::extremes(i[0], 1, o[0], o[1]); }},
        {"delta_ref", 2, 1, [](auto i, auto o) { EE_CalcDeltaRef(i[0], i[1], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::delta_ref(m, i[0], i[1]); }},
        {"low_pass", 3, 1, [](auto i, auto o) { EE_GenLPF3x3(i[0], i[1], i[2], o[0]); },
         [](M, P i, auto o) { o[0] = plain::low_pass(i[0], i[1], i[2]); }},
        {"pre_delta", 1, 2, [](auto i, auto o) { PRE_EE_CalcDelta(i[0], o[0], o[1], "T"); },
         [](M m, P i, auto o) { plain::pre_delta(m, i[0], o[0], o[1], "T"); }},
        {"flat_det", 4, 1, [](auto i, auto o) { PRE_EE_FlatDet(i[0], i[1], i[2], i[3], o[0], "T"); },
         [](M m, P i, auto o) { o[0] = plain::flat_det(m, i[0], i[1], i[2], i[3], "T"); }},
        {"classic_delta", 1, 2, [](auto i, auto o) { EE_CalcDelta(i[0], o[0], o[1]); },
         [](M m, P i, auto o) { plain::classic_delta(m, i[0], o[0], o[1]); }},
        {"pre_process", 1, 1, [](auto i, auto o) { EE_PreProcess(i[0], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::pre_process(m, i[0]); }},
        {"core", 3, 1, [](auto i, auto o) { EE_CalcCore(i[0], i[1], i[2], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::calc_core(m, i[0], i[1], i[2]); }},
        {"coring", 3, 1, [](auto i, auto o) { EE_Coring(i[0], i[1], i[2], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::coring(m, i[0], i[1], i[2]); }},
        {"delta_gain", 1, 1, [](auto i, auto o) { EE_CalcDeltaGain(i[0], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::delta_gain(m, i[0]); }},
        {"luma_gain", 2, 1, [](auto i, auto o) { EE_LumaAdptGainCal(i[0], i[1], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::luma_gain(m, i[0], i[1]); }},
        {"chroma_gain", 3, 1, [](auto i, auto o) { EE_ChromaGain(i[0], i[1], i[2], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::chroma_gain(m, i[0], i[1], i[2]); }},
        {"motion_gain", 1, 1, [](auto i, auto o) { EE_MotionGain(i[0], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::motion_gain(m, i[0]); }},
        {"total_gain", 4, 1, [](auto i, auto o) { EE_TotalGain(i[0], i[1], i[2], i[3], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::total_gain(m, i[0], i[1], i[2], i[3]); }},
        {"total_delta", 2, 1, [](auto i, auto o) { EE_TotalDelta(i[0], i[1], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::total_delta(m, i[0], i[1]); }},
        {"shoot_pro", 4, 1, [](auto i, auto o) { EE_IOShootPro(i[0], i[1], i[2], i[3], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::shoot(m, i[0], i[1], i[2], i[3], true); }},
        {"shoot", 4, 1, [](auto i, auto o) { EE_IOShoot(i[0], i[1], i[2], i[3], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::shoot(m, i[0], i[1], i[2], i[3], false); }},
        {"merge", 2, 1, [](auto i, auto o) { EE_SharpenMerge(i[0], i[1], o[0]); },
         [](M m, P i, auto o) { o[0] = plain::merge(m, i[0], i[1]); }},
    };
    return all;
}

// Every block alone, on every instruction set, enabled or not, on samples of any magnitude; planes
// after the first may have a size of their own. Once in a while a plane is larger than the row tiles
// and the chroma table's threshold.
TEST(Library, BlocksAgreeWithThePlainModel) {
    log_set_quiet(true);
    dump_dbg_img = 0;
    const I seed = from_environment("CMODEL_TEST_SEED", 20240917),
            cases = from_environment("CMODEL_TEST_CASES", 1000);
    for (I n = 0; n < cases && !HasFailure(); ++n) {
        Random r{std::mt19937_64(static_cast<uint64_t>(seed * 7000003 + n))};
        const Block& block = blocks()[static_cast<size_t>(n) % blocks().size()];
        SCOPED_TRACE(std::string(block.name) + ", case " + std::to_string(n) + " of seed " +
                     std::to_string(seed));
        Scratch s("block");
        auto settings = draw_settings(r, 1 << 20);
        if (r.chance(20)) settings["reg_ee_enable"] = "0";
        spill(s.at("set.ini"), draw_ini(r, settings, "ee"));
        plain::Model model("NULL");
        model.load(s.at("set.ini"));
        INIT_EE_REG("NULL");
        LOAD_EE_INI(s.at("set.ini").c_str());

        const bool large = r.chance(3);
        const int width = static_cast<int>(large ? r.between(500, 1100) : r.between(1, 40));
        const int height = static_cast<int>(large ? r.between(1, 260) : r.between(1, 12));
        const I magnitude = r.pick({255, 255, 2047, 4000, 32000, 1 << 21, INT32_MAX});
        const I low = magnitude == 255 ? 0 : -magnitude;
        const int depth = r.pick({8, 8, 10, 12, 16});
        std::vector<plain::Plane> in, want(2);
        std::vector<FRAME*> frames, got;
        for (int k = 0; k < block.inputs; ++k) {
            const bool own_size = k > 0 && !large && r.chance(20);
            plain::Plane p(own_size ? static_cast<int>(r.between(1, 30)) : width,
                           own_size ? static_cast<int>(r.between(1, 14)) : height, k > 0 ? 3 : r.pick({1, 3}),
                           depth);
            for (int32_t& v : p.data) v = static_cast<int32_t>(r.between(low, magnitude));
            in.push_back(p);
            frames.push_back(to_frame(p));
        }
        model.log.clear();
        block.define(model, in.data(), want.data());
        const cm::RowTarget targets[] = {cm::RowTarget::kBaseline, cm::RowTarget::kV3, cm::RowTarget::kV4};
        for (const cm::RowTarget target : targets) {
            cm::set_row_target(target);
            got.clear();
            for (int k = 0; k < block.outputs; ++k) {
                got.push_back(CM_NewFRAME(2, 2, static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                                          static_cast<uint32_t>(want[k].channels), want[k].depth));
                Frame_Set_Constant(got.back(), 0x5a5a5a5a);
            }
            captured_log().clear();
            block.run(frames.data(), got.data());
            EXPECT_EQ(first_difference("log", log_pattern(model.log), log_pattern(captured_log())), "");
            for (int k = 0; k < block.outputs; ++k) {
                const std::vector<int32_t> samples(got[k]->data, got[k]->data + want[k].data.size());
                const auto at = std::mismatch(samples.begin(), samples.end(), want[k].data.begin());
                EXPECT_TRUE(at.first == samples.end())
                    << "target " << static_cast<int>(target) << ", output " << k << ", " << width << "x"
                    << height << ", sample " << at.first - samples.begin() << ": " << *at.first << ", not "
                    << *at.second;
                CM_DelFRAME(got[k]);
            }
        }
        for (FRAME* const frame : frames) CM_DelFRAME(frame);
        s.keep = HasFailure();
    }
}

}  // namespace
