// The companion program, run as users run it, each case in an empty directory.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ee_hw.h"
#include "ee_reg.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

struct Result {
    int status;
    std::string text;  // both streams
};

class Eetool : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "eetool_test.XXXXXX").string();
        dir_ = mkdtemp(name.data());
        fs::current_path(dir_);
        log_set_quiet(true);
    }
    void TearDown() override {
        fs::current_path("/");
        fs::remove_all(dir_);
    }

    static Result run(const std::string& arguments) {
        FILE* const out = popen(("timeout 60 " EETOOL " " + arguments + " 2>&1").c_str(), "r");
        Result result{-1, {}};
        std::array<char, 4096> piece;
        while (std::fgets(piece.data(), piece.size(), out) != nullptr) result.text += piece.data();
        const int status = pclose(out);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result;
    }

    static Lines lines_of(const std::string& text) {
        Lines lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    static std::string read(const fs::path& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    static void write(const fs::path& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }

    // A register file for instance 0, as lines.
    static Lines default_ini() {
        run("ini --out default.ini --instance 0");
        return lines_of(read("default.ini"));
    }

    // The lines, each replacement ("KEY = VALUE") in the place of its key's line.
    static Lines replace(Lines lines, const Lines& replacements) {
        for (const std::string& by : replacements) lines.at(index_of(lines, by.substr(0, by.find(' ')))) = by;
        return lines;
    }
    static size_t index_of(const Lines& lines, const std::string& key) {
        const auto gives_key = [&](const std::string& line) { return line.starts_with(key + " "); };
        return static_cast<size_t>(std::find_if(lines.begin(), lines.end(), gives_key) - lines.begin());
    }

    // Checks the lines with an end of line each, in order.
    static Result check(const Lines& lines, const char* end = "\n", const char* begin = "") {
        std::string text = begin;
        for (const std::string& line : lines) text += line + end;
        write("x.ini", text);
        return run("ini --check x.ini --instance 0");
    }

    fs::path dir_;
};

TEST_F(Eetool, ExamplesInTheHelpWork) {
    for (const std::string command : {"classic", "ini", "pattern"}) {
        const Result help = run(command + " --help");
        int examples = 0;
        for (const std::string& line : lines_of(help.text.substr(help.text.find("Example:")))) {
            if (line.starts_with("  eetool ")) {
                const Result result = run(line.substr(9));
                EXPECT_EQ(result.status, 0) << line << '\n' << result.text;
                ++examples;
            }
        }
        EXPECT_GE(examples, 3) << command;
        EXPECT_FALSE(fs::is_empty(dir_));
    }
}

// Twenty mistakes, each with a part of its finding.
TEST_F(Eetool, NamesTwentyMistakesWithTheirLines) {
    struct Mistake {
        const char* at;  // key of the default line that is replaced, or "" for one added at the end
        const char* line;
        const char* finding;
    };
    const Mistake mistakes[] = {
        {"reg_ee_enable", "reg_ee_enalbe = 1", "no register reg_ee_enalbe; did you mean reg_ee_enable?"},
        {"reg_ee_debug_mode", "reg_ee_debug_mode = 16", "does not fit 0..15; it becomes 0"},
        {"reg_ee_dark_luma_thr", "reg_ee_dark_luma_thr = -1", "it becomes 1048575"},
        {"reg_ee_dark_edge_thr", "reg_ee_dark_edge_thr = 0x10", "no plain decimal number; it becomes 0"},
        {"reg_ee_line_thr", "reg_ee_line_thr = 12 # sensor B", "it becomes 12"},
        {"reg_ee_line_strength", "reg_ee_line_strength =", "it becomes 0"},
        {"reg_ee_total_gain", "reg_ee_total_gain = 300 ; strong", "reg_ee_total_gain: 300 does not fit"},
        {"reg_ee_total_coring", "reg_ee_total_coring 4", "no section, key or comment"},
        {"reg_ee_total_oshtthrd", "  reg_ee_total_oshtthrd = 9", "reg_ee_total_gain becomes 0"},
        {"reg_ee_luma_coring_lut_in_2", "reg_ee_luma_coring_lut_in_2 = 40", "= 40 is below"},
        {"reg_ee_mcore_gain_lut_slope_1", "reg_ee_mcore_gain_lut_slope_1 = 9", "(128, 64): 8 would"},
        {"reg_ee_mcore_gain_lut_slope_2", "reg_ee_mcore_gain_lut_slope_2 = -2049", "it becomes 2047"},
        {"reg_ee_bright_edge_thr", "reg_ee_bright_edge_thr = 99999999999999999999", "it becomes 1048575"},
        {"reg_ee_motion_lut_out_3", "reg_ee_motion_lut_out_3 = 129", "is above 128"},
        {"reg_ee_motion_lut_slope_2", "reg_ee_motion_lut_slope_2 = 4", "(192, 129): 0 would"},
        {"", "reg_ee_total_ushtthrd : 7", "stands in line 22 already; the value here holds: 7"},
        {"", "[EE0]", "section [EE0] is not read"},
        {"", "[sharpening]", "section [sharpening] is not read"},
        {"", "[ee0", "no section, key or comment"},
    };
    Lines lines = default_ini();
    lines.pop_back();  // the software set's header, so that what is added belongs to the registers
    std::map<size_t, std::string> expected;
    for (const Mistake& mistake : mistakes) {
        const size_t n = *mistake.at == '\0' ? lines.size() : index_of(lines, mistake.at);
        lines.resize(std::max(lines.size(), n + 1));
        lines[n] = mistake.line;
        expected[n + 2] = mistake.finding;
        if (lines.back().starts_with("[sh")) {
            lines.push_back("reg_ee_total_gain = 3");
        }
    }
    lines.insert(lines.begin(), "reg_ee_total_gain = 40");
    expected[1] = "outside any section";
    ASSERT_EQ(expected.size(), 20U);

    // A byte-order mark, CR LF and comments change nothing.
    for (const auto& [begin, end] : {std::pair{"", "\n"}, std::pair{"\xEF\xBB\xBF", "\r\n"}}) {
        const Result result = check(lines, end, begin);
        EXPECT_EQ(result.status, 1);
        for (const auto& [line, finding] : expected) {
            bool found = false;
            for (const std::string& said : lines_of(result.text)) {
                found = found || (said.starts_with("x.ini:" + std::to_string(line) + ": ") &&
                                  said.find(finding) != std::string::npos);
            }
            EXPECT_TRUE(found) << line << ": " << finding << '\n' << result.text;
        }
    }
}

// Findings that need a file of their own, all of them listed.
TEST_F(Eetool, FindsNothingElse) {
    Lines lines = default_ini();
    EXPECT_EQ(check(lines).text, "x.ini: all is well\n");

    // Comments, blanks, another instance, a step in a curve, a falling one, signs and leading zeros.
    Lines fine = replace(lines, {"reg_ee_mcore_gain_lut_in_3 = 254", "reg_ee_mcore_gain_lut_out_3 = 0",
                                 "reg_ee_mcore_gain_lut_slope_2 = -8", "reg_ee_chroma_amp_lut_in_1 = 16",
                                 "reg_ee_chroma_amp_lut_slope_1 = 5", "reg_ee_total_gain =  +0032 ; inline"});
    fine.insert(fine.begin(), {"; tuned by hand", "", "  # twice", "[ee1]", "reg_ee_total_gain = 3"});
    EXPECT_EQ(check(fine).text, "x.ini: all is well\n");

    // A quotient between two slopes: from (64, 34) to (128, 68) it is 8.5.
    for (const int slope : {7, 8, 9, 10}) {
        const Result result =
            check(replace(lines, {"reg_ee_mcore_gain_lut_out_0 = 2", "reg_ee_mcore_gain_lut_out_1 = 34",
                                  "reg_ee_mcore_gain_lut_out_2 = 68", "reg_ee_mcore_gain_lut_slope_2 = 7",
                                  "reg_ee_mcore_gain_lut_slope_1 = " + std::to_string(slope)}));
        const bool good = slope == 8 || slope == 9;
        EXPECT_EQ(result.status, good ? 0 : 1) << result.text;
        EXPECT_EQ(result.text.find(": 8 or 9 would") == std::string::npos, good) << result.text;
    }
    EXPECT_EQ(
        check(replace(lines, {"reg_ee_chroma_amp_lut_in_1 = 15"})).text,
        "x.ini:175: reg_ee_chroma_amp_lut_slope_1 = 256 does not lead from (15, 0) to (16, 128): 2048 would, "
        "which -2048..2047 does not reach; move the knots apart\n");
    Lines missing = lines;
    missing.erase(missing.begin() + 3);
    EXPECT_EQ(check(missing).text,
              "x.ini:193: [ee0] ends without reg_ee_texture_mode, which has its default 1\n");
    EXPECT_EQ(check({"[ee7]", "reg_ee_enable = 1"}).text,
              "x.ini:1: section [ee7] is not read; the registers' section is [ee0]\n"
              "x.ini:2: there is no section [ee0]: every register has its default\n");
    for (const char* const path : {"absent.ini", "."}) {
        const Result result = run(std::string("ini --check ") + path);
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.text.find(path), std::string::npos);
    }
}

TEST_F(Eetool, RewritesOnlyItsOwnSection) {
    write("x.ini", "[other]\nkey = 1\n\n[ee0]\nreg_ee_total_gain = 7\n[tail]\nlast = 2");
    EXPECT_EQ(run("ini --out x.ini --instance 0 --set reg_ee_total_coring=9").status, 0);
    const std::string text = read("x.ini");
    for (const char* const part : {"[other]\nkey = 1\n\n[ee0]\nreg_ee_enable = 1\n", "[tail]\nlast = 2\n",
                                   "\nreg_ee_total_gain = 7\n", "\nreg_ee_total_coring = 9\n"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(run("ini --check x.ini --instance 0").status, 0);
    EXPECT_EQ(run("ini --out x.ini --instance 0 --reset").status, 0);
    EXPECT_EQ(read("x.ini").find("reg_ee_total_gain = 7"), std::string::npos);

    const std::string before = read("x.ini");
    for (const char* const bad : {"reg_ee_enable=2", "reg_ee_enable=1x", "reg_ee_enable", "nothing=1"})
        EXPECT_GE(run(std::string("ini --out x.ini --set ") + bad).status, 100) << bad;
    EXPECT_EQ(read("x.ini"), before);
}

// The same frame as planes and as a colour picture, through the program and through the library.
TEST_F(Eetool, ClassicRunsTheLibrarysPipeline) {
    const std::string planes = "--y y.pgm --cb cb.pgm --cr cr.pgm ";
    const std::string classic = "classic --ini ee.ini --instance 3 ";
    for (const std::string& arguments :
         {"pattern star --width 321 --height 260 --sigma 5 --spikes --rgb rgb.ppm " + planes,
          std::string("pattern checkerboard --width 321 --height 260 --y mmap.pgm"),
          std::string("pattern noise --in y.pgm --seed 5 --y ynr.pgm"),
          std::string("ini --out ee.ini --instance 3 --set reg_ee_total_gain=90"),
          classic + planes +
              "--ynr ynr.pgm --mmap mmap.pgm --out a.pgm --log run.log --log-level 1 --debug-dir .",
          classic + "--rgb rgb.ppm --out b.pgm", classic + planes + "--out c.pgm"}) {
        const Result result = run(arguments);
        ASSERT_EQ(result.status, 0) << arguments << '\n' << result.text;
    }
    EXPECT_NE(read("run.log").find("ee3.hw.reg_ee_total_gain = 90"), std::string::npos);
    EXPECT_TRUE(fs::exists("dbg_delta_core_8b.ppm"));

    INIT_EE_REG("3");
    ASSERT_EQ(LOAD_EE_INI("ee.ini"), 0);
    FRAME* frames[5];
    const char* const paths[] = {"y.pgm", "cb.pgm", "cr.pgm", "ynr.pgm", "mmap.pgm"};
    for (int k = 0; k < 5; ++k) frames[k] = CM_ReadPPM5(paths[k], 2);
    EXPECT_EQ(frames[1]->width, 161U);
    FRAME* const expected = ee_hw(frames[0], frames[1], frames[2], frames[3], frames[4]);
    CM_WritePPM5("expected.pgm", expected);
    EXPECT_TRUE(read("a.pgm") == read("expected.pgm"));
    EXPECT_FALSE(read("a.pgm") == read("ynr.pgm"));
    CM_DelFRAME(expected);
    for (FRAME* const frame : frames) CM_DelFRAME(frame);

    // The picture is grey, so colour conversion there and back leaves luma alone.
    EXPECT_TRUE(read("b.pgm") == read("c.pgm"));

    EXPECT_GE(run("classic --y y.pgm --out d.pgm").status, 100);
    EXPECT_GE(run("classic --rgb rgb.ppm --y y.pgm --out d.pgm").status, 100);
    EXPECT_NE(run("classic --ini absent.ini --rgb rgb.ppm --out d.pgm").text.find("absent.ini"),
              std::string::npos);
    EXPECT_FALSE(fs::exists("d.pgm"));
}

}  // namespace
