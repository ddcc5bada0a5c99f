// The built program, run as users run it, against the plain model and against literal expectations;
// and both library pipelines on frames that no file can hold. CMODEL_TEST_SEED and
// CMODEL_TEST_CASES choose other cases; a failing case says which and keeps its folder.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>
#include <thread>

#include "ee_hw.h"
#include "ee_no_effect.h"
#include "ee_reg_table.h"
#include "pre_ee_hw.h"
#include "random_cases.h"
#include "row_targets.h"

namespace {

namespace fs = std::filesystem;

// ---- Running the program ------------------------------------------------------------------------

struct Result {
    int status;  // 124 when it waits for a file that never comes
    std::string out, err;
};

std::string command_line(const std::vector<std::string>& args) {
    std::string line;
    for (const std::string& a : args) line += "'" + a + "' ";
    return line;
}

Result run(const std::vector<std::string>& args) {
    const std::string out = fs::temp_directory_path() / ("cmodel_out_" + std::to_string(getpid()));
    const int status =
        std::system(("exec timeout 20 " + command_line(args) + ">" + out + " 2>" + out + ".err").c_str());
    const Result result{WEXITSTATUS(status), read_file(out), read_file(out + ".err")};
    fs::remove(out), fs::remove(out + ".err");
    return result;
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

std::string without_times(const std::string& log) {
    std::istringstream in(log);
    std::string text;
    for (std::string line; std::getline(in, line); text += line + "\n")
        if (line.size() > 20 && line[4] == '-' && line[10] == ' ' && line[16] == ':') line.erase(0, 20);
    return text;
}

// "" or how the status, the streams, the log or any file of a run differ from the prediction.
std::string compare_with_model(const Scratch& s) {
    Files before = snapshot(s.dir);
    const plain::Outcome want = plain::run_program(s.args);
    const Result got = run(s.args);
    std::string report;
    if (got.status != want.status) report += "status " + std::to_string(got.status) + "\n";
    report += first_difference("stdout", want.out, got.out);
    if (!matches(want.err, got.err)) report += "stderr: expected '" + want.err + "', got '" + got.err + "'\n";
    report += first_difference("log", without_times(before[s.args[2]]) + log_pattern(want.log),
                               without_times(read_file(s.args[2])));
    for (const auto& [path, bytes] : want.files) before[fs::absolute(path).lexically_normal()] = bytes;
    Files after = snapshot(s.dir);
    before.erase(s.args[2]), after.erase(s.args[2]);
    return report + first_difference(before, after);
}

// ---- Random cases -------------------------------------------------------------------------------

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

void draw_case(Random& r, Scratch& s, I n) {
    const bool large = n % 100 == 50;  // enough for a table of all chroma values
    const int width = large ? 450 : r.size(1, r.chance(15) ? 4 : 24);
    const int height = large ? 440 : r.size(1, r.chance(15) ? 4 : 20);
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
    if (cw == 0 || r.chance(5)) cw = r.size(1, width + 1), ch = r.size(1, height + 1);
    const auto plane = [&](std::vector<I> p, I max, bool colour = false) {
        const int h = height + (r.chance(1) ? 1 : 0);  // a mistake
        p.resize(static_cast<size_t>(width) * h, 77);
        return draw_file(r, p, width, h, max, colour);
    };
    write_file(s.at("y"), plane(picture, y_max, rgb));
    write_file(s.at("ynr"), plane(r.chance(90) ? picture : other, r.chance(90) ? y_max : 255, rgb));
    write_file(s.at("mmap"), plane(r.chance(30) ? picture : draw_picture(r, width, height), max_value(8, 8)));
    write_file(s.at("fus"), plane(r.chance(70) ? picture : other, fusion_max));
    for (const char* c : {"cb", "cr"})
        write_file(s.at(c), draw_file(r, draw_picture(r, cw, ch), cw, ch, max_value(8, 8), false));

    auto settings = draw_settings(r, fusion_max);
    settings["reg_ee_texture_mode"] = r.chance(rgb ? 5 : 70) ? "1" : "0";
    s.args[4] =
        r.pick<const char*>({"NULL", "NULL", "0", "_b", "", "null", "a_suffix_longer_than_any_name_may_be"});
    write_file(s.at("set.ini"), draw_ini(r, settings, plain::Model(s.args[4]).name));
    if (r.chance(2)) fs::remove(s.at("set.ini"));
    if (r.chance(10)) write_file(s.at("run.log"), "an earlier line\n");
    s.args[3] = r.pick<const char*>({"0", "1", "1", "2", "3", "4", "5", "6", "-1", "x"});
    s.args[5] = mode;
    s.args[7] = r.pick<const char*>({"0", "0", "1", "2", "x"});
    while (n % 50 == 7 && s.args[6].size() < 1005) s.args[6] += "/.";  // image paths are cut at 1023
}

const I kSeed = from_environment("CMODEL_TEST_SEED", 20240917);
const I kCases = from_environment("CMODEL_TEST_CASES", 1000);

Random generator(I factor, I n) {
    return {std::mt19937_64(static_cast<uint64_t>(kSeed * factor + n))};
}

TEST(Program, AgreesWithThePlainModel) {
    int failures = 0;
    for (I n = from_environment("CMODEL_TEST_FIRST", 0); n < kCases && failures < 5; ++n) {
        Random r = generator(1000003, n);
        Scratch s("case" + std::to_string(n));
        draw_case(r, s, n);
        const std::string report = compare_with_model(s);
        s.keep = !report.empty();
        failures += s.keep;
        EXPECT_EQ(report, "") << "case " << n << " of seed " << kSeed << ", run as\n" << command_line(s.args);
    }
}

// ---- Fixed cases --------------------------------------------------------------------------------

void lay_out(const Scratch& s) {
    for (const char* f : {"y", "ynr", "mmap", "fus"})
        write_file(s.at(f), "P5\n6 4\n255\n" + std::string(6 * 4, 'n'));
    for (const char* f : {"cb", "cr"}) write_file(s.at(f), "P5\n3 4\n255\n" + std::string(3 * 4, 'n'));
    write_file(s.at("set.ini"), "[ee]\nreg_ee_enable = 1\n");
}

TEST(Program, RefusesBadInput) {
    const struct {
        const char *file, *bytes;
        int status;
        std::string err, log;  // patterns; log for the last lines
    } cases[] = {
        {"y", "", 1, "*/y: *\n", ""},
        {"y", "P6\n2 2\n255\n", 1, "Invalid image format (must be 'P5') (error loading '*/y')\n", ""},
        {"cb", "P5\n3 -4\n255\n", 1, "Invalid image size (error loading '*/cb')\n", ""},
        {"y", "P5\n2000000000 2000000000\n255\n", 1, "*", ""},
        {"y", "P5\n6 4\n# no\n255\n", 1, "Invalid max_rgb (error loading '*/y')\n", ""},
        {"fus", "P5\n6 4\n4294967296\n", 1, "Invalid max_rgb (error loading '*/fus')\n", ""},
        {"ynr", "P5\n5 4\n255\nn", 255, "*6*4*5*4*\n", "FATAL pre_ee_hw           :*"},
        {"fus", "P5\n6 3\n255\nn", 255, "*6*4*6*3*\n", "FATAL pre_ee_hw           :*"},
        {"cr", "P5\n2 4\n255\nnnnnnnnn", 0, "", "WARN  pre_ee_main         :*"},
        {"cr", "P5\n3 4\n255\nn", 0, "", "ERROR common              :*"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        Scratch s("bad");
        lay_out(s);
        write_file(s.at(c.file), c.bytes);
        const Result got = run(s.args);
        EXPECT_EQ(got.status, c.status);
        EXPECT_TRUE(matches(c.err, got.err)) << got.err;
        EXPECT_TRUE(matches("*\n" + c.log + "*", without_times(read_file(s.at("run.log")))))
            << read_file(s.at("run.log"));
        EXPECT_EQ(fs::exists(s.at("out")), c.status == 0);
    }
}

TEST(Program, CommandLine) {
    Scratch s("cli");
    lay_out(s);
    const auto run_with = [&](size_t index, const std::string& value) {
        std::vector<std::string> args = s.args;
        args[index] = value;
        fs::remove(s.at("out"));
        return run(args);
    };
    Result got = run_with(2, "/no/such/log");
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "Unable to open log file '/no/such/log'\n");
    got = run_with(13, "/dev/full");
    EXPECT_EQ(got.status, 1);
    EXPECT_TRUE(matches("*/dev/full*\n", got.err)) << got.err;
    got = run_with(5, "0");  // RGB with the default texture mode 1
    EXPECT_EQ(got.status, 255);
    EXPECT_TRUE(matches("*reg_ee_texture_mode*\n", got.err)) << got.err;
    EXPECT_TRUE(matches("*\nFATAL pre_ee_main         :*", without_times(read_file(s.at("run.log")))));
    EXPECT_FALSE(fs::exists(s.at("out")));
    for (const size_t words : {1, 3, 14, 16}) {  // usage text
        Scratch u("usage");
        u.args.resize(words, "one too many");
        got = run(u.args);
        EXPECT_EQ(got.status, 255);
        EXPECT_EQ(got.out, plain::run_program(u.args).out);
    }

    fs::rename(s.at("ynr"), s.at("made"));  // a missing input is waited for
    std::thread maker([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        fs::rename(s.at("made"), s.at("ynr"));
    });
    got = run(s.args);
    maker.join();
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "wait pre frame ready " + s.at("ynr") + "\n" + s.at("ynr") +
                           " ready\ndepth of Yfusion is 8 \n");

    for (const size_t length : {990, 991}) {  // the longest path of a debug image fits, and is cut
        s.args[6].resize(length, '/');
        s.args[7] = "1";
        EXPECT_EQ(run(s.args).status, 0);
        EXPECT_EQ(fs::exists(s.at("dbg/Yfusion_dbg_delta_MF_over_8b.ppm")), length == 990);
        const std::string log = read_file(s.at("run.log"));
        EXPECT_EQ(log.find("WARN") != log.npos, length == 991);
        fs::remove_all(s.at("dbg")), fs::create_directory(s.at("dbg"));
    }
    s.args[6] = s.at("dbg");

    s.args[13] = s.at("fus");  // output onto an input
    write_file(s.at("set.ini"), "[ee]\nreg_ee_total_gain =" + std::string(1999000, ' ') + "77\n");
    EXPECT_EQ(compare_with_model(s), "");
}

// ---- Library ------------------------------------------------------------------------------------

TEST(Library, PipelinesAgreeWithThePlainModel) {
    log_set_quiet(true);
    for (I n = 0; n < kCases / 2 && !HasFailure(); ++n) {
        Random r = generator(1000033, n);
        Scratch s("frames");
        EXPECT_EQ(compare_pipelines(r, s.dir), "") << "frame case " << n << " of seed " << kSeed;
        s.keep = HasFailure();
    }
}

// Settings that are said to sharpen nothing, 1,000 frames of each kind. The registers of one reason are near
// the values that make it hold, mostly at the first; the rest is drawn.
TEST(Library, SettingsWithoutEffectChangeNothing) {
    log_set_quiet(true);
    Random r = generator(9000011, 0);
    const struct {
        const char* name;
        std::vector<std::array<int, 4>> near;  // first slot, slots, least and most
    } kinds[] = {
        {"enable", {{reg_ee_enable, 1, 0, 0}}},
        {"texture",
         {{reg_ee_texture_mode, 1, 1, 1},
          {reg_ee_dark_luma_thr, 2, 0, 1 << 18},
          {reg_ee_dark_edge_thr, 5, 0, 1 << 11},
          {reg_ee_line_thr, 1, 1022, 1026},
          {reg_ee_line_strength, 1, 0, 1 << 11}}},
        {"blend", {{reg_hf_blend_wgt, 2, 0, 0}}},
        {"gain", {{reg_ee_total_gain, 1, 0, 0}}},
        {"motion", {{reg_ee_motion_lut_out_0, 4, 0, 0}}},
        {"luma", {{reg_ee_luma_adptctrl_lut_00, 33, 0, 0}}},
        {"delta", {{reg_ee_delta_adptctrl_lut_00, 33, 0, 0}}},
        {"chroma", {{reg_ee_chroma_adptctrl_lut_00, 32, 0, 0}, {reg_ee_chroma_amp_lut_out_0, 4, 127, 130}}},
        {"product",
         {{reg_hf_blend_wgt, 2, 1, 2}, {reg_ee_total_gain, 1, 1, 2}, {reg_ee_motion_lut_out_0, 4, 20, 70}}},
    };
    for (const auto& kind : kinds) {
        int frames = 0;
        for (int tries = 0; frames < 1000 && tries < 200000 && !HasFailure(); ++tries) {
            INIT_EE_REG("NULL");
            for (const auto& [key, value] : draw_settings(r, 1 << 20))
                ee_reg_hw_load(&ee_reg.hw, "ee", key.c_str(), value.c_str());
            for (const auto& [first, slots, least, most] : kind.near)
                for (int k = 0; k < slots; ++k)
                    ee_reg.hw.slot[first + k].value = r.chance(85) ? least : r.size(least, most);
            if (cm::find_no_effect(ee_reg.hw).empty()) continue;
            const int width = r.size(1, 16), height = r.size(1, 12);
            const int depths[6] = {r.pick({8, 8, 9, 10, 12}), 8, 8, 8, 8, r.size(8, 20)};
            FRAME* f[6];
            for (int k = 0; k < 6; ++k) {
                plain::Plane p(k == 1 || k == 2 ? (width + 1) / 2 : width, height, 1, depths[k]);
                const std::vector<I> picture = draw_picture(r, p.width, height);
                for (size_t i = 0; i < picture.size(); ++i)
                    p.data[i] = static_cast<int32_t>(picture[i] << 4 >> (20 - p.depth));
                f[k] = to_frame(p);
            }
            FRAME* const out = pre_ee_hw(f[0], f[1], f[2], f[3], f[4], f[5]);
            const FRAME* const want = cm::reg_value(reg_ee_enable) == 1 ? f[3] : f[0];
            EXPECT_TRUE(std::equal(want->data, want->data + width * height, out->data))
                << kind.name << ", frame " << frames << " of seed " << kSeed;
            CM_DelFRAME(out);
            for (FRAME* const frame : f) CM_DelFRAME(frame);
            ++frames;
        }
        EXPECT_EQ(frames, 1000) << kind.name;
    }
}

// One block: what the library and the plain model make of the same planes.
struct Block {
    const char* name;
    int inputs;
    int outputs;
    std::function<void(FRAME* const* in, FRAME* const* out)> run;
    std::function<void(plain::Model&, const plain::Plane* in, plain::Plane* out)> model;
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
    for (I n = 0; n < kCases && !HasFailure(); ++n) {
        Random r = generator(7000003, n);
        const Block& block = blocks()[static_cast<size_t>(n) % blocks().size()];
        Scratch s("block");
        auto settings = draw_settings(r, 1 << 20);
        if (r.chance(20)) settings["reg_ee_enable"] = "0";
        plain::Model model = load_both(write_file(s.at("set.ini"), draw_ini(r, settings, "ee")));

        const bool large = r.chance(3);
        const int width = large ? r.size(500, 1100) : r.size(1, 40);
        const int height = r.size(1, large ? 260 : 12);
        const I magnitude = r.pick({255, 255, 2047, 4000, 32000, 1 << 21, INT32_MAX});
        const I low = magnitude == 255 ? 0 : -magnitude;
        const int depth = r.pick({8, 8, 10, 12, 14, 16});
        std::vector<plain::Plane> in, want(2);
        std::vector<FRAME*> frames;
        for (int k = 0; k < block.inputs; ++k) {
            const bool own_size = k > 0 && !large && r.chance(20);
            plain::Plane p(own_size ? r.size(1, 30) : width, own_size ? r.size(1, 14) : height,
                           k > 0 ? 3 : r.pick({1, 2, 3}), depth);
            for (int32_t& v : p.data) v = static_cast<int32_t>(r.between(low, magnitude));
            in.push_back(p);
            frames.push_back(to_frame(p));
        }
        model.log.clear();
        model.dbg = s.at("dbg");
        model.dump = r.chance(15);
        dump_dbg_img = model.dump;
        std::snprintf(dbg_path, sizeof dbg_path, "%s", model.dbg.c_str());
        block.model(model, in.data(), want.data());
        const cm::RowTarget targets[] = {cm::RowTarget::kBaseline, cm::RowTarget::kV3, cm::RowTarget::kV4};
        for (const cm::RowTarget target : targets) {
            SCOPED_TRACE(testing::Message()
                         << block.name << ", case " << n << " of seed " << kSeed << ", target "
                         << static_cast<int>(target) << ", " << width << "x" << height);
            cm::set_row_target(target);
            FRAME* got[2] = {};
            for (int k = 0; k < block.outputs; ++k) {
                // Sometimes with a channel that is not written.
                const int channels = want[k].channels + (want[k].channels == 1 && r.chance(20) ? 1 : 0);
                plain::Plane blank(want[k].width, want[k].height, channels, want[k].depth);
                std::fill(blank.data.begin(), blank.data.end(), 0x5a5a5a5a);
                got[k] = to_frame(blank);
            }
            captured_log().clear();
            block.run(frames.data(), got);
            EXPECT_EQ(first_difference("log", log_pattern(model.log), log_pattern(captured_log())), "");
            EXPECT_EQ(first_difference(model.files, snapshot(model.dbg)), "");
            for (int k = 0; k < block.outputs; ++k) {
                const std::vector<int32_t>& data = want[k].data;
                const size_t step = got[k]->channels / static_cast<uint32_t>(want[k].channels);
                size_t same = 0;
                while (same < data.size() && got[k]->data[same * step] == data[same] &&
                       (step == 1 || got[k]->data[same * step + 1] == 0x5a5a5a5a))
                    ++same;
                EXPECT_EQ(same, data.size()) << "the first sample that differs in output " << k;
                CM_DelFRAME(got[k]);
            }
        }
        for (FRAME* const frame : frames) CM_DelFRAME(frame);
        dump_dbg_img = 0;
        s.keep = HasFailure();
    }
}

}  // namespace
