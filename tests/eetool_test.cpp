// The companion program, run as users run it, each case in an empty directory.
#include <sys/stat.h>
#include <sys/wait.h>

#include <sstream>

#include "ee_hw.h"
#include "ee_reg.h"
#include "test_frames.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

struct Result {
    int status;
    std::string text;  // both streams
};

Result run(const std::string& arguments) {
    const int status = std::system(("timeout 60 " EETOOL " " + arguments + " >said 2>&1").c_str());
    const Result result{WEXITSTATUS(status), read_file("said")};
    fs::remove("said");
    return result;
}

Lines lines_of(const std::string& text) {
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class Eetool : public FileTest {
  protected:
    void SetUp() override { log_set_quiet(true); }

    // A register file for instance 0; each replacement ("KEY = VALUE") stands in the place of its key's line.
    static std::string default_ini(const Lines& replacements = {}) {
        fs::remove("default.ini");
        run("ini --out default.ini --instance 0");
        std::string text = slurp("default.ini");
        for (const std::string& by : replacements) replace(text, by.substr(0, by.find(' ')), by);
        return text;
    }
    static void replace(std::string& text, const std::string& key, const std::string& line) {
        const size_t at = text.find("\n" + key + " ") + 1;
        text.replace(at, text.find('\n', at) - at, line);
    }
    // The same, but one that sharpens.
    static std::string plain_ini(Lines replacements = {}) {
        replacements.push_back("reg_ee_texture_mode = 0");
        return default_ini(replacements);
    }
    static Result check(const std::string& text, const std::string& more = "") {
        spill("x.ini", text);
        return run("ini --check x.ini --instance 0" + more);
    }
};

TEST_F(Eetool, ExamplesInTheHelpWork) {
    for (const std::string command : {"batch", "classic", "diff", "explain", "ini", "jobs", "list", "pattern",
                                      "planes", "results", "run", "sweep"}) {
        const Result help = run(command + " --help");
        int examples = 0;
        for (const std::string& line : lines_of(help.text.substr(help.text.find("Example:")))) {
            if (!line.starts_with("  eetool ")) continue;
            const Result result = run(line.substr(9));
            EXPECT_EQ(result.status, 0) << line << '\n' << result.text;
            ++examples;
        }
        EXPECT_GE(examples, 3) << command;
        EXPECT_FALSE(fs::is_empty("."));
    }
}

TEST_F(Eetool, TellsVersionAndCommit) {
    const Result result = run("--version");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.text.starts_with("eetool " CMODEL_VERSION " (commit ")) << result.text;
}

TEST_F(Eetool, NamesTwentyMistakesWithTheirLines) {
    const struct {
        const char* at;  // key of the default line that is replaced, or "" for one added at the end
        const char* line;
        const char* finding;  // a part of it
    } mistakes[] = {
        {"", "reg_ee_total_gain = 40", "outside any section"},
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
    std::string text = default_ini();
    text.resize(text.find("[ee_sw0]"));  // so that what is added belongs to the registers
    for (const auto& m : mistakes) {
        const std::string line = m.line;
        if (&m == mistakes) {
            text = line + "\n" + text;
        } else if (*m.at != '\0') {
            replace(text, m.at, line);
        } else {
            text += line + "\n" + (line == "[sharpening]" ? "reg_ee_total_gain = 3\n" : "");
        }
    }
    const Lines lines = lines_of(text);
    std::string with_crlf = "\xEF\xBB\xBF";
    for (const std::string& line : lines) with_crlf += line + "\r\n";
    for (const std::string& file : {text, with_crlf}) {
        const Result result = check(file);
        EXPECT_EQ(result.status, 1);
        const Lines said = lines_of(result.text);
        for (const auto& m : mistakes) {
            const auto number = std::find(lines.begin(), lines.end(), m.line) - lines.begin() + 1;
            const std::string where = "x.ini:" + std::to_string(number) + ": ";
            EXPECT_TRUE(std::any_of(
                said.begin(), said.end(),
                [&](const std::string& s) { return s.starts_with(where) && s.find(m.finding) != s.npos; }))
                << where << m.finding << '\n'
                << result.text;
        }
    }
}

TEST_F(Eetool, FindsNothingElse) {
    std::string missing = plain_ini();
    missing.erase(missing.find("reg_ee_shoot_mode"), std::string("reg_ee_shoot_mode = 0\n").size());
    // From (64, 34) to (128, 68) the quotient lies between two slopes: 8.5.
    const auto with_slope = [](const std::string& slope) {
        return plain_ini({"reg_ee_mcore_gain_lut_out_0 = 2", "reg_ee_mcore_gain_lut_out_1 = 34",
                          "reg_ee_mcore_gain_lut_out_2 = 68", "reg_ee_mcore_gain_lut_slope_2 = 7",
                          "reg_ee_mcore_gain_lut_slope_1 = " + slope});
    };
    const std::string count = std::to_string(EE_REG_COUNT), well = "x.ini: all is well\n",
                      segment = " does not lead from (64, 34) to (128, 68): 8 or 9 would\n";
    const std::string texture =
        "reg_ee_texture_mode = 1, reg_ee_bright_luma_thr = 0, reg_ee_dark_luma_thr = 0, "
        "reg_ee_bright_edge_thr = 0, reg_ee_bright_edge_strength = 0, reg_ee_line_strength = 0";
    const struct {
        std::string text, said;
    } cases[] = {
        {plain_ini(), well},
        {default_ini(), "x.ini:15: pre_ee_main changes no picture with " + texture + "\n"},
        {plain_ini({"reg_hf_blend_wgt = 0", "reg_mf_blend_wgt = 0", "reg_ee_motion_lut_out_0 = 0",
                    "reg_ee_motion_lut_out_1 = 0", "reg_ee_motion_lut_out_2 = 0",
                    "reg_ee_motion_lut_out_3 = 0"}),
         "x.ini:33: pre_ee_main changes no picture with reg_hf_blend_wgt = 0, reg_mf_blend_wgt = 0\n"
         "x.ini:188: pre_ee_main changes no picture with reg_ee_motion_lut_out_0 to reg_ee_motion_lut_out_3 "
         "= 0\n"},
        // Comments, blanks, another instance, a step in a curve, a falling one, signs and leading zeros.
        {"; tuned by hand\n\n  # twice\n[ee1]\nreg_ee_total_gain = 3\n" +
             plain_ini({"reg_ee_mcore_gain_lut_in_3 = 254", "reg_ee_mcore_gain_lut_out_3 = 0",
                        "reg_ee_mcore_gain_lut_slope_2 = -8", "reg_ee_chroma_amp_lut_in_1 = 16",
                        "reg_ee_chroma_amp_lut_slope_1 = 5", "reg_ee_total_gain =  +0032 ; inline"}),
         well},
        // Long lines, whole as a run reads them.
        {"; " + std::string(200, 'c') + "\n" +
             plain_ini({"reg_ee_total_gain =" + std::string(300, ' ') + "40",
                        "reg_ee_total_coring = 9 ; " + std::string(174, 'x') + "reg_ee_total_coring = 64"}),
         well},
        // Only at the start of a file is a byte-order mark one. What follows a NUL is not read.
        {plain_ini({"reg_ee_total_gain = 40\n\xEF\xBB\xBF[ee0]"}) + std::string("; a\0b\n[ee\n", 10),
         "x.ini:20: this is no section, key or comment and is ignored: \xEF\xBB\xBF[ee0]\n"
         "x.ini:" +
             std::to_string(EE_REG_COUNT + 5) + ": this is no section, key or comment and is ignored: [ee\n"},
        {with_slope("7"), "x.ini:65: reg_ee_mcore_gain_lut_slope_1 = 7" + segment},
        {with_slope("8"), well},
        {with_slope("9"), well},
        {with_slope("10"), "x.ini:65: reg_ee_mcore_gain_lut_slope_1 = 10" + segment},
        {plain_ini({"reg_ee_chroma_amp_lut_in_1 = 15"}),
         "x.ini:175: reg_ee_chroma_amp_lut_slope_1 = 256 does not lead from (15, 0) to (16, 128): 2048 "
         "would, "
         "which -2048..2047 does not reach; move the knots apart\n"},
        {missing, "x.ini: 1 of " + count + " registers are not set and have their defaults\n" + well},
        {"[ee7]\nreg_ee_enable = 1\n",
         "x.ini:1: section [ee7] is not read; the registers' section is [ee0]\n"
         "x.ini:1: pre_ee_main changes no picture with " +
             texture +
             "\n"
             "x.ini:2: there is no section [ee0]: every register has its default\n"},
    };
    for (const auto& c : cases) {
        const Result result = check(c.text);
        EXPECT_EQ(result.text, c.said);
        EXPECT_EQ(result.status, c.said.ends_with(well) ? 0 : 1);
    }
    const Result complete = check(missing, " --complete");
    EXPECT_EQ(complete.text,
              "x.ini:" + count + ": [ee0] ends without reg_ee_shoot_mode, which has its default 0\n");
    EXPECT_EQ(complete.status, 1);
    for (const char* const path : {"absent.ini", "."}) {
        const Result result = run(std::string("ini --check ") + path);
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.text.find(path), std::string::npos);
    }
}

TEST_F(Eetool, RewritesOnlyItsOwnSection) {
    const std::string other = "[other]\nkey = 1\n\n";
    const auto expect = [&](const std::string& arguments, const Lines& replacements) {
        EXPECT_EQ(run("ini --out x.ini --instance 0" + arguments).status, 0);
        std::string registers = default_ini(replacements);
        registers.insert(registers.find("[ee_sw0]"), "\n[tail]\nlast = 2\n");
        EXPECT_EQ(slurp("x.ini"), other + registers);
    };
    spill("x.ini", other + "[ee0]\nreg_ee_total_gain = 7\n[tail]\nlast = 2");
    expect(" --set reg_ee_total_coring=9", {"reg_ee_total_gain = 7", "reg_ee_total_coring = 9"});
    EXPECT_EQ(run("ini --check x.ini --instance 0").text.find("registers are not set"), std::string::npos);
    for (const char* const bad : {"reg_ee_enable=2", "reg_ee_enable=1x", "reg_ee_enable", "nothing=1"})
        EXPECT_GE(run(std::string("ini --out x.ini --set ") + bad).status, 100) << bad;
    expect(" --reset", {});

    // A header that a rewrite would not see.
    const std::string hidden = "[ee0]\nreg_ee_total_gain = 7\n[my-section]\nkey = 1\n[tail]\n";
    spill("x.ini", hidden);
    EXPECT_EQ(run("ini --out x.ini --instance 0").status, 2);
    EXPECT_EQ(slurp("x.ini"), hidden);
    EXPECT_EQ(run("ini --out x.ini --instance 1").status, 0);
}

TEST_F(Eetool, WritesThroughLinksAndIntoPipes) {
    const std::string text = default_ini(), other = "[other]\nkey = 1\n";
    ASSERT_EQ(mkfifo("x.ini.temp", 0600), 0);  // of somebody else
    spill("x.ini", other);
    fs::permissions("x.ini", fs::perms(0640));
    fs::create_symlink("x.ini", "symbolic.ini");
    EXPECT_EQ(run("ini --out symbolic.ini --instance 1").text, "");
    fs::create_hard_link("x.ini", "hard.ini");
    EXPECT_EQ(run("ini --out symbolic.ini --instance 0").text, "");
    EXPECT_TRUE(fs::equivalent("x.ini", "hard.ini") && fs::is_symlink("symbolic.ini"));
    EXPECT_EQ(fs::status("x.ini").permissions(), fs::perms(0640));
    const std::string after = slurp("x.ini");
    EXPECT_TRUE(after.starts_with(other + "[ee1]\n") && after.ends_with("[ee_sw1]\n" + text)) << after;
    EXPECT_EQ(run("ini --out /dev/stdout --instance 0 | cat").text, text);
    EXPECT_EQ(run("ini --out x.ini.temp --instance 0 & cat x.ini.temp").text, text);
    EXPECT_EQ(run("ini --out /dev/zero").status, 0);
    EXPECT_EQ(run("ini --out /dev/full").text,
              "eetool: /dev/full cannot be written: No space left on device\n");
    EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 5) << "nothing is left over";
}

TEST_F(Eetool, RefusesNamesThatNoSectionCanHave) {
    for (const char* const bad :
         {"my-i", "a]b", "a ;b", "a\nb", "_sw0", "b\xC3\xA4", "123456789012345678901234567890"})
        EXPECT_EQ(run("ini --out x.ini --instance '" + std::string(bad) + "'").status, 105) << bad;
    EXPECT_FALSE(fs::exists("x.ini"));
    for (const std::string set : {" --set reg_ee_total_gain=7", ""})  // the second time they are loaded
        for (const std::string name : {"''", "NULL", "_s", "a[B_9", "12345678901234567890123456789"})
            EXPECT_EQ(run("ini --out x.ini --instance " + name + set).text, "");
    const Lines said = lines_of(slurp("x.ini"));
    EXPECT_EQ(std::count(said.begin(), said.end(), "reg_ee_total_gain = 7"), 4) << "'' and NULL are one";
}

TEST_F(Eetool, ComparesShortensAndDrawsSettings) {
    const std::string text = plain_ini({"reg_ee_total_gain = 64", "reg_ee_motion_lut_in_1 = 70"});
    spill("a.ini", plain_ini());
    spill("b.ini", text);
    const Result diff = run("ini --diff a.ini b.ini --instance 0");
    EXPECT_EQ(diff.text,
              "reg_ee_total_gain: 32 -> 64; global strength; 32 is 1.0\n"
              "reg_ee_motion_lut: in_1 64 -> 70; gain by motion, 128 is 1.0\n");
    EXPECT_EQ(diff.status, 1);
    const Result shorter = run("ini --minimal b.ini --instance 0");
    EXPECT_EQ(shorter.text,
              "[ee0]\nreg_ee_texture_mode = 0\nreg_ee_total_gain = 64\nreg_ee_motion_lut_in_1 = 70\n");
    EXPECT_EQ(run("ini --diff a.ini absent.ini").status, 2);
    EXPECT_GE(run("ini --random").status, 100);
    for (int seed = 1; seed <= 40; ++seed) {
        const std::string drawn = run("ini --random --instance 0 --seed " + std::to_string(seed)).text;
        const Result well = check(drawn, " --complete");
        EXPECT_EQ(well.status, 0) << seed << ": " << well.text;
        spill("y.ini", run("ini --minimal x.ini --instance 0").text);
        EXPECT_EQ(run("ini --diff x.ini y.ini --instance 0").status, 0) << seed;
        EXPECT_EQ(drawn.ends_with("\nreg_ee_lower_bound_right_diff = 149\n"), seed == 7)
            << "as on other machines";
    }
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
    EXPECT_NE(slurp("run.log").find("ee3.hw.reg_ee_total_gain = 90"), std::string::npos);
    EXPECT_TRUE(fs::exists("dbg_delta_core_8b.ppm"));

    INIT_EE_REG("3");
    ASSERT_EQ(LOAD_EE_INI("ee.ini"), 0);
    const auto read = [](const char* path) { return Frame(CM_ReadPPM5(path, 2)); };
    EXPECT_EQ(read("cb.pgm")->width, 161U);
    const Frame expected(
        ee_hw(read("y.pgm"), read("cb.pgm"), read("cr.pgm"), read("ynr.pgm"), read("mmap.pgm")));
    EXPECT_EQ(samples_of(*read("a.pgm")), samples_of(*expected));
    EXPECT_NE(samples_of(*read("a.pgm")), samples_of(*read("ynr.pgm")));
    // The picture is grey, so colour conversion there and back leaves luma alone.
    EXPECT_EQ(samples_of(*read("b.pgm")), samples_of(*read("c.pgm")));

    // A directory's name that leaves the images' names whole, and one that is a character longer.
    std::string directory = ".";
    while (directory.size() < 993) directory += "/.";
    const auto files = [] { return std::distance(fs::directory_iterator("."), {}); };
    const auto before = files();
    EXPECT_EQ(run(classic + planes + "--out c.pgm --debug-dir " + directory).status, 0);
    EXPECT_EQ(files(), before) << "images of the same names as in \".\"";
    EXPECT_EQ(run(classic + planes + "--out d.pgm --debug-dir " + directory + "/").status, 105);

    EXPECT_GE(run("classic --y y.pgm --out d.pgm").status, 100);
    spill("deep.pgm", "P5\n321 260\n65535\n" + std::string(2 * 321 * 260, 'n'));
    for (const char* const plane : {"--ynr", "--mmap"})
        EXPECT_EQ(run(classic + planes + "--out d.pgm " + plane + " deep.pgm").text,
                  "eetool: deep.pgm has 16 bits a sample; the block takes 8\n");
    EXPECT_GE(run("classic --rgb rgb.ppm --y y.pgm --out d.pgm").status, 100);
    EXPECT_NE(run("classic --ini absent.ini --rgb rgb.ppm --out d.pgm").text.find("absent.ini"),
              std::string::npos);
    const Result full = run(classic + planes + "--out d.pgm --log /dev/full --log-level 1");
    EXPECT_EQ(full.status, 2);
    EXPECT_EQ(full.text, "eetool: /dev/full could not be written whole\n");
    EXPECT_FALSE(fs::exists("d.pgm"));
}

TEST_F(Eetool, PhotographsComeBackInTheirColours) {
    const std::string said = "eetool: without --ini the setting is settings/mild.ini\n";
    const std::string none = " --set reg_ee_total_gain=0", off = " --set reg_ee_enable=0";
    const auto require = [](const std::string& arguments, const std::string& text = "") {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0) << arguments << '\n' << result.text;
        EXPECT_EQ(result.text.substr(0, text.size()), text) << arguments;
    };
    require("pattern star --width 211 --height 250 --sigma 5 --y mmap.pgm --rgb grey.ppm");
    std::string colours = "P6\n211 250\n255\n";
    for (int i = 0; i < 3 * 211 * 250; ++i) colours += static_cast<char>(i * 7 / 5 ^ i / 633);
    spill("p.ppm", colours);
    require("run --photo p.ppm --out a.png" + none, said);
    require("run --photo a.png --out b.tif" + off, said);
    require("run --photo b.tif --out c.ppm --before-after d.ppm" + none, said);
    const auto same = [](const std::string& a, const std::string& b) {
        constexpr size_t kPixels = 211 * 250;
        return a.size() > kPixels && b.size() > kPixels &&
               a.substr(a.size() - kPixels) == b.substr(b.size() - kPixels);
    };
    EXPECT_TRUE(slurp("c.ppm") == slurp("p.ppm"));
    EXPECT_EQ(slurp("d.ppm").substr(0, 15), "P6\n428 250\n255\n");
    require("run --photo p.ppm --out e.ppm", said);
    EXPECT_TRUE(slurp("e.ppm") != slurp("p.ppm"));
    // A view in place of the colours; all its kPixels are grey.
    require("run --photo p.ppm --out f.ppm --set reg_ee_debug_mode=3", said);
    const std::string view = slurp("f.ppm");
    for (size_t i = 15; i < view.size(); i += 3)
        ASSERT_TRUE(view[i] == view[i + 1] && view[i] == view[i + 2]);

    // The program makes the same of the planes. Here every plane is a file of its own kind.
    require("run --photo p.ppm --out fused.png" + off), require("run --photo mmap.pgm --out m.png" + off);
    require("ini --out t.ini --set reg_ee_total_gain=99 --set reg_ee_dark_edge_strength=900");
    for (const std::string& more : {std::string(), std::string("fused.png")}) {
        const std::string luma = "grey.ppm",
                          beside = more.empty() ? "" : " --ynr grey.ppm --motion m.png --fusion ";
        require("planes " + luma + " planes" + beside + more);
        const std::string d = "planes/";
        const std::string program = PRE_EE_MAIN " t.ini run.log 1 NULL 1 . 0 ";
        ASSERT_EQ(std::system((program + d + "y.pgm " + d + "cb.pgm " + d + "cr.pgm " + d + "src_ynr.pgm " +
                               d + "mmap.pgm want.pgm " + d + "yfusion.pgm >said")
                                  .c_str()),
                  0);
        const std::string model =
            more.empty() ? "" : " --ynr planes/src_ynr.pgm --mmap m.png --yfusion " + more;
        require("run --ini t.ini --photo planes/y.pgm --out got.pgm" + model);
        EXPECT_TRUE(same(slurp("got.pgm"), slurp("want.pgm")));
        require("run --ini t.ini --y planes/y.pgm --cb planes/cb.pgm --cr planes/cr.pgm --out got.png" +
                (more.empty() ? " --yfusion planes/y.pgm" : model));
        require("run --photo got.png --out got.pgm" + off);
        EXPECT_TRUE(same(slurp("got.pgm"), slurp("want.pgm")));
    }
    require("classic --rgb fused.png --out got.pgm"), require("classic --rgb p.ppm --out want.pgm");
    EXPECT_TRUE(same(slurp("got.pgm"), slurp("want.pgm")));

    // What cannot be leaves one line, and the file that was there.
    spill("cut.png", slurp("a.png").substr(0, 9000));
    spill("out.png", "as it was");
    const struct {
        const char* arguments;
        const char* text;  // the end of what is said
    } bad[] = {{"run --photo cut.png --out out.png", "eetool: cut.png: ends early\n"},
               {"run --photo t.ini --out out.png",
                "eetool: t.ini: is no JPEG, PNG, TIFF, PGM (P5) or PPM (P6) picture\n"},
               {"run --photo none.jpg --out out.png",
                "eetool: none.jpg cannot be read: No such file or directory\n"},
               {"run --photo p.ppm --mmap p.ppm --out out.png",
                "eetool: p.ppm has colours; a grey picture is wanted\n"},
               {"run --photo p.ppm --mmap a.png --out out.png",
                "eetool: a.png has colours; a grey picture is wanted\n"},
               {"run --photo p.ppm --out out.pgm",
                "eetool: out.pgm: the picture has colours, which .png, .jpg, .tif and .ppm hold\n"},
               {"run --photo p.ppm --out none/out.png",
                "none/out.png cannot be written: No such file or directory\n"},
               {"planes cut.png planes", "eetool: cut.png: ends early\n"},
               {"planes p.ppm planes2 --fusion m.png --motion d.ppm", ""}};
    for (const auto& b : bad) {
        const Result result = run(b.arguments);
        EXPECT_TRUE(result.status == 2 || *b.text == '\0') << b.arguments;
        EXPECT_NE(result.status, 0);
        EXPECT_TRUE(result.text.ends_with(b.text)) << result.text;
        EXPECT_EQ(slurp("out.png"), "as it was");
        EXPECT_FALSE(fs::exists("out.pgm") || fs::exists("planes2"));
    }
}

TEST_F(Eetool, SweepsTellWhatRunsDo) {
    constexpr int kWidth = 320, kHeight = 130;
    ASSERT_EQ(run("pattern scene --width 320 --height 130 --y scene.pgm --rgb scene.ppm").status, 0);
    ASSERT_EQ(run("ini --out none.ini --set reg_ee_enable=0").status, 0);
    const std::string axes =
        "reg_ee_total_gain=0,90 reg_ee_total_oshtthrd+reg_ee_delta_adptctrl_lut_02..03=20";
    const Result grey = run("sweep --photo scene.pgm " + axes + " --at 300,10 --out sheet.ppm");
    const Lines lines = lines_of(grey.text);
    ASSERT_EQ(lines.size(), 5U) << grey.text;
    EXPECT_EQ(lines[2].substr(lines[2].find(" 0.0")), " 0.0      0.00     0.00       0.0     0      0");
    EXPECT_EQ(lines[4], "crop at 220,65: 200x130 pixels around it");

    const std::string set =
        " --set reg_ee_total_gain=90 --set reg_ee_total_oshtthrd=20 --set "
        "reg_ee_delta_adptctrl_lut_02=20 --set reg_ee_delta_adptctrl_lut_03=20";
    ASSERT_EQ(run("run --photo scene.pgm --out sharp.pgm" + set).status, 0);
    const Frame before(CM_ReadPPM5("scene.pgm", 2)), after(CM_ReadPPM5("sharp.pgm", 2));
    int changed = 0, beyond = 0, over = 0, under = 0, count[2] = {}, sum[2] = {};
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            int least = 255, most = 0;
            for (int j = std::max(y - 2, 0); j <= std::min(y + 2, kHeight - 1); ++j)
                for (int i = std::max(x - 2, 0); i <= std::min(x + 2, kWidth - 1); ++i) {
                    least = std::min(least, before->data[j * kWidth + i]);
                    most = std::max(most, before->data[j * kWidth + i]);
                }
            const int v = after->data[y * kWidth + x], change = std::abs(v - before->data[y * kWidth + x]);
            changed += change != 0, beyond += v > most || v < least;
            over = std::max(over, v - most), under = std::max(under, least - v);
            if (most - least >= 48) ++count[0], sum[0] += change;
            if (most - least <= 16) ++count[1], sum[1] += change;
        }
    char want[99];
    std::snprintf(want, sizeof want, "  %9.1f  %8.2f  %7.2f  %8.1f  %4d  %5d",
                  100.0 * changed / (kWidth * kHeight), 1.0 * sum[0] / count[0], 1.0 * sum[1] / count[1],
                  100.0 * beyond / (kWidth * kHeight), over, under);
    EXPECT_TRUE(lines[3].ends_with(want)) << lines[3] << '\n' << want;

    // The second setting's crop, in colour: what a run makes there. Place and setting differ most.
    ASSERT_EQ(run("run --photo scene.ppm --out sharp.ppm" + set).status, 0);
    const Result colour = run("sweep --photo scene.ppm " + axes + " --crop 40x30 --out sheet.ppm");
    int x = 0, y = 0;
    ASSERT_EQ(std::sscanf(lines_of(colour.text)[4].c_str(), "crop at %d,%d:", &x, &y), 2) << colour.text;
    const Frame sheet(CM_ReadPPM("sheet.ppm", 2)), sharp(CM_ReadPPM("sharp.ppm", 2));
    const int top = static_cast<int>(sheet->height) - 6 - 30, left = 6 + 40 + 6;
    for (int j = 0; j < 30; ++j)
        for (int i = 0; i < 3 * 40; ++i)
            ASSERT_EQ(sheet->data[((top + j) * static_cast<int>(sheet->width) + left) * 3 + i],
                      sharp->data[((y - 15 + j) * kWidth + x - 20) * 3 + i]);
    const std::pair<const char*, int> bad[] = {
        {"reg_ee_total_gain=256", 2}, {"reg_ee_total_gain=a", 2}, {"reg_ee_total_gain", 105},
        {"total_gain=1", 105},        {"ini=absent.ini", 2},      {"reg_ee_enable=1 --at 320,0", 105}};
    for (const auto& [axis, status] : bad)
        EXPECT_EQ(run(std::string("sweep --photo scene.pgm --out none.png ") + axis).status, status) << axis;
    EXPECT_FALSE(fs::exists("none.png"));
    EXPECT_EQ(run("sweep --photo scene.pgm ini=none.ini").status, 0);
}

}  // namespace
