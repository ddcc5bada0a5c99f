// The register block: names and defaults, loading, print, dump.
#include "ee_reg.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ee_reg_table.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> records;  // "LEVEL file:line text"

void note_record(log_Event* event) {
    char text[512];
    std::vsnprintf(text, sizeof text, event->fmt, event->args);
    records.push_back(std::string(log_level_string(event->level)) + " " + event->file + ":" +
                      std::to_string(event->line) + " " + text);
}

class EeReg : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        log_set_quiet(true);
        log_add_callback(note_record, nullptr, LOG_TRACE);
    }
    void SetUp() override {
        char path[] = "/tmp/ee_reg_test.XXXXXX";
        ASSERT_NE(mkdtemp(path), nullptr);
        dir_ = path;
        ini_ = dir_ + "/a.ini";
        init(nullptr);
    }
    void TearDown() override { fs::remove_all(dir_); }

    static void init(const char* ins_name) {
        EXPECT_EQ(INIT_EE_REG(ins_name), 0);
        records.clear();
    }
    static void write(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string read(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    void load(const std::string& text) {
        write(ini_, text);
        records.clear();
        EXPECT_EQ(LOAD_EE_INI(ini_.c_str()), 0);
    }
    // The hardware set as the dump writes it.
    static std::string hw_section() {
        std::string text = "[" + std::string(ee_reg.hw.name) + "]\n";
        for (const cm::RegRow& row : cm::kRegTable) {
            text += std::string(row.key) + " = " +
                    std::to_string(cm::reg_value(static_cast<int>(&row - cm::kRegTable))) + "\n";
        }
        return text;
    }

    std::string dir_, ini_;
};

TEST_F(EeReg, InitNamesTheSetsAndResetsTheBlock) {
    const std::string suffix_36 = "abcdefghijklmnopqrstuvwxyz0123456789";
    const struct {
        const char* suffix;
        std::string hw, sw;
    } rows[] = {
        {"0", "ee0", "ee_sw0"},
        {suffix_36.c_str(), "ee" + suffix_36.substr(0, 29), "ee_sw" + suffix_36.substr(0, 26)},
        {"null", "eenull", "ee_swnull"},
        {"NULL", "ee", "ee_sw"},
        {nullptr, "ee", "ee_sw"},
    };
    for (const auto& row : rows) {
        ee_reg.hw.slot[reg_ee_total_gain] = {1, "", 1};
        init(row.suffix);
        EXPECT_EQ(ee_reg.hw.name, row.hw);
        EXPECT_EQ(ee_reg.sw.name, row.sw);
        EXPECT_EQ(ee_reg.hw.slot[reg_ee_total_gain].value, 32);
        EXPECT_STREQ(ee_reg.hw.slot[reg_ee_total_gain].key, "reg_ee_total_gain");
        EXPECT_EQ(ee_reg.hw.slot[reg_ee_total_gain].is_set, 0u);
    }
}

// Values, widths and lines of a register in each part of the table; the rest of the table is compared
// with a second one, through the program's log, in program_test.
TEST_F(EeReg, PrintListsTheBlock) {
    ee_reg.hw.slot[reg_ee_enable].value = 6;                       // a C caller may store anything;
    ee_reg.hw.slot[reg_ee_motion_lut_slope_2].value = 0x12345FFE;  // only the field shows
    PRINT_EE_REG();
    ASSERT_EQ(records.size(), 197u);
    const std::pair<size_t, const char*> rows[] = {
        {0, "ee_reg:95 [PRINT] Print ee Reg configurations ..."},
        {1, "ee_reg_hw_def:8 [ee]"},
        {2, "ee_reg_hw_def:10 ee.hw.reg_ee_enable = 0"},
        {4, "ee_reg_hw_def:17 ee.hw.reg_ee_texture_mode = 1"},
        {9, "ee_reg_hw_def:23 ee.hw.reg_ee_line_length = 2"},
        {13, "ee_reg_hw_def:28 ee.hw.reg_ee_bright_edge_strength = 0"},
        {15, "ee_reg_hw_def:31 ee.hw.reg_ee_line_strength = 0"},
        {16, "ee_reg_hw_def:36 ee.hw.reg_ee_shoot_mode = 0"},
        {191, "ee_reg_hw_def:211 ee.hw.reg_ee_motion_lut_slope_2 = -2"},
        {194, "ee_reg_hw_def:214 ee.hw.reg_ee_lower_bound_right_diff = 5"},
        {195, "ee_reg_sw_def:8 [ee_sw]"},
        {196, "ee_reg:98 [PRINT] Print ee Reg Done...."},
    };
    for (const auto& [index, text] : rows) {
        EXPECT_EQ(records[index], std::string("DEBUG ") + text);
    }
}

TEST_F(EeReg, LoadReadsEveryStyle) {
    const std::string gain = "reg_ee_total_gain=";
    const struct {
        std::string text;
        std::vector<std::pair<int, int>> set;  // slot, value
    } rows[] = {
        {"", {}},
        {"[ee]\nreg_ee_total_gain = 300\n", {{reg_ee_total_gain, 44}}},
        {"[ee]\n  reg_ee_total_gain:  +7  ; seven\nreg_ee_total_coring=9;x",
         {{reg_ee_total_gain, 7}, {reg_ee_total_coring, 9}}},
        {"\xEF\xBB\xBF[ee]\r\nreg_ee_total_gain = 7\r\n ; note\r\n# note\r\n\r\nreg_ee_shoot_mode = 1\r\n",
         {{reg_ee_total_gain, 7}, {reg_ee_shoot_mode, 1}}},
        {"[ee]\nreg_ee_total_gain = 7\n  8\n\t9\n", {{reg_ee_total_gain, 9}}},
        {"[ee]\nreg_ee_total_gain = 7\n[x]\nreg_ee_total_gain = 8\n[ee]\nreg_ee_total_gain = 9\n",
         {{reg_ee_total_gain, 9}}},
        {"reg_ee_total_gain = 7\n[EE]\nreg_ee_total_gain = 7\n[ee0]\nreg_ee_total_gain = 7\n[ee_sw]\n"
         "reg_ee_total_gain = 7\n",
         {}},
        {"[ee]\nREG_EE_TOTAL_GAIN = 7\nreg_ee_total = 7\nreg_ee_total_gain\n", {}},
        {"[ee]\nwhat is this\n[unclosed\nreg_ee_total_gain = 7\n", {{reg_ee_total_gain, 7}}},
        {"[ee]\nreg_ee_enable = 0x1\nreg_ee_total_gain = many\nreg_ee_total_coring =\nreg_ee_line_length = "
         "3.9",
         {{reg_ee_enable, 0}, {reg_ee_total_gain, 0}, {reg_ee_total_coring, 0}, {reg_ee_line_length, 3}}},
        {"[ee]\nreg_ee_enable = 2\nreg_ee_line_length = -1\nreg_ee_debug_shift_bit = 15\n"
         "reg_ee_debug_mode = 255\nreg_ee_luma_adptctrl_lut_32 = 64\nreg_ee_total_gain = 4294967297\n"
         "reg_ee_line_thr = -1\n",
         {{reg_ee_enable, 0},
          {reg_ee_line_length, 3},
          {reg_ee_debug_shift_bit, 7},
          {reg_ee_debug_mode, 15},
          {reg_ee_luma_adptctrl_lut_32, 0},
          {reg_ee_total_gain, 1},
          {reg_ee_line_thr, 1048575}}},
        {"[ee]\nreg_ee_mcore_gain_lut_slope_0 = -8\nreg_ee_mcore_gain_lut_slope_1 = 2047\n"
         "reg_ee_mcore_gain_lut_slope_2 = 2048\nreg_ee_motion_lut_slope_0 = 4095\n",
         {{reg_ee_mcore_gain_lut_slope_0, -8},
          {reg_ee_mcore_gain_lut_slope_1, 2047},
          {reg_ee_mcore_gain_lut_slope_2, -2048},
          {reg_ee_motion_lut_slope_0, -1}}},
        // A line may have 1,999,999 characters; of a longer one the rest is a line of its own.
        {"[ee]\n" + gain + std::string(1999979, '0') + "77\nreg_ee_enable = 0\n",
         {{reg_ee_total_gain, 77}, {reg_ee_enable, 0}}},
        {"[ee]\n" + gain + std::string(1999981, '0') + "77\nreg_ee_enable = 0\n",
         {{reg_ee_total_gain, 0}, {reg_ee_enable, 0}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 200));
        init(nullptr);
        load(row.text);
        uint32_t set = 0;
        for (const EE_REG_SLOT& slot : ee_reg.hw.slot) {
            set += slot.is_set;
        }
        EXPECT_EQ(set, row.set.size());
        for (const auto& [slot, value] : row.set) {
            EXPECT_EQ(ee_reg.hw.slot[slot].is_set, 1u);
            EXPECT_EQ(cm::reg_value(slot), value) << cm::kRegTable[slot].key;
        }
    }
}

TEST_F(EeReg, RegistersThatNoLoadSetAreReported) {
    init("1");
    EXPECT_EQ(LOAD_EE_INI((dir_ + "/none.ini").c_str()), 1);
    std::vector<std::string> expected = {"DEBUG ee_reg:47 [LOAD] Load ee INI configurations...",
                                         "DEBUG ee_reg:49 Can't handle ee_reg."};
    EXPECT_EQ(records, expected);

    load("[ee1]\nreg_ee_texture_mode = 0\n");
    load("[ee1]\nreg_ee_shoot_mode = 1\n");  // what the first load has set stays set
    expected[1] = "DEBUG ee_reg:52 [LOAD] Load ee Done...";
    for (const cm::RegRow& row : cm::kRegTable) {
        if (row.line != 17 && row.line != 36) {
            expected.push_back("ERROR ee_reg_hw_def:" + std::to_string(row.line) + " [REG] ee1.hw." +
                               row.key + " is not set in .ini file");
        }
    }
    EXPECT_EQ(records, expected);
}

TEST_F(EeReg, DumpReplacesItsSectionsAndNothingElse) {
    ee_reg.hw.slot[reg_ee_motion_lut_slope_0].value = -5;
    const std::string hw = hw_section();
    const std::string sw = "[ee_sw]\n";
    ASSERT_EQ(hw.substr(0, 23), "[ee]\nreg_ee_enable = 1\n");
    const struct {
        std::string before, after;
    } rows[] = {
        {"", hw + sw},
        {"[other]\nk = 1\n\n[ee]\nold = 1\n; note\n\n[ee_sw]\nx = 1\n",
         "[other]\nk = 1\n\n" + hw + "\n" + sw},
        {"[ee_sw]\nx = 1\n[ee]\nold = 1\n", sw + "\n" + hw},
        {"; top\r\n[ee]\r\nold = 1\r\n[other]\r\nk = 1\r\n[more]\r\n",
         "; top\r\n" + hw + "\n[other]\r\nk = 1\r\n[more]\r\n" + sw},
        {"[ee]\n1\n[ee]\n2\n", hw + "\n" + hw + sw},
        // Headers that are not quite the set's own are foreign, with all that follows.
        {"[ee] \na = 1\n[EE]\nb = 1\n[ee] ; c\nd = 1\n",
         "[ee] \na = 1\n[EE]\nb = 1\n[ee] ; c\nd = 1\n" + hw + sw},
        {"[ee0]\na = 1\n[ee]", "[ee0]\na = 1\n[ee]" + hw + sw},
        // What counts as a header ends the old section; what does not goes with it.
        {"[ee]\na\n[a-b]\nc = [d]\n [e]\nAB]f\ng\n", hw + "\nAB]f\ng\n" + sw},
        {"k = 1", "k = 1" + hw + sw},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.before);
        write(ini_, row.before);
        EXPECT_EQ(DUMP_EE_INI(ini_.c_str()), 0);
        EXPECT_EQ(read(ini_), row.after);
        EXPECT_FALSE(fs::exists(ini_ + ".temp"));
    }
}

TEST_F(EeReg, DumpedFileLoadsBackAndSettles) {
    std::srand(1);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        ee_reg.hw.slot[slot].value = std::rand();
    }
    const std::string hw = hw_section();
    EXPECT_EQ(DUMP_EE_INI(ini_.c_str()), 0);
    EXPECT_EQ(read(ini_), hw + "[ee_sw]\n");
    EXPECT_EQ(records, (std::vector<std::string>{
                           "DEBUG ee_reg:79 [DUMP] Dump ee INI configurations in " + ini_ + "...",
                           "DEBUG ee_reg:86 [DUMP_EE_HW_INI] Dump INI configurations in " + ini_ + "...",
                           "DEBUG ee_reg:86 [DUMP_EE_HW_INI] Dump INI configurations in " + ini_ + " done",
                           "DEBUG ee_reg:87 [DUMP_EE_SW_INI] Dump INI configurations in " + ini_ + "...",
                           "DEBUG ee_reg:87 [DUMP_EE_SW_INI] Dump INI configurations in " + ini_ + " done",
                           "DEBUG ee_reg:82 [DUMP] Dump ee INI Done....",
                       }));

    init(nullptr);
    EXPECT_EQ(LOAD_EE_INI(ini_.c_str()), 0);
    EXPECT_EQ(records.size(), 2u) << "a dumped file sets every register";
    EXPECT_EQ(hw_section(), hw);
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(DUMP_EE_INI(ini_.c_str()), 0);
        EXPECT_EQ(read(ini_), hw + "\n[ee_sw]\n");
    }
}

// Every failure says -1, names the file in an ERROR record, and leaves the target as it was.
TEST_F(EeReg, DumpThatCannotWriteSaysSo) {
    const std::string old_text = "[ee]\nold = 1\n";
    const std::string target = dir_ + "/" + std::string(240, 'd') + ".ini";
    const std::string work = target + ".temp";
    const auto expect_failure = [&](const std::string& dumped, const std::string& blamed) {
        SCOPED_TRACE(blamed);
        records.clear();
        EXPECT_EQ(DUMP_EE_INI(dumped.c_str()), -1);
        ASSERT_FALSE(records.empty());
        EXPECT_EQ(records.back().substr(0, 5), "ERROR");
        EXPECT_NE(records.back().find(" " + blamed + ": "), std::string::npos) << records.back();
    };
    expect_failure(dir_ + "/none/a.ini", dir_ + "/none/a.ini");
    expect_failure(dir_, dir_);
    fs::create_symlink("/dev/full", dir_ + "/full");
    expect_failure(dir_ + "/full", dir_ + "/full");

    write(target, old_text);
    fs::create_directory(work);
    expect_failure(target, work);
    fs::remove(work);
    fs::create_symlink("/dev/full", work);
    expect_failure(target, work);
    fs::remove(work);

    // A read-only target; for root, who may write anything, as another user.
    const bool root = geteuid() == 0;
    fs::permissions(dir_, fs::perms::all);
    fs::permissions(target, fs::perms::owner_read | fs::perms::others_read);
    ASSERT_EQ(root ? seteuid(65534) : 0, 0);
    expect_failure(target, target);
    ASSERT_EQ(root ? seteuid(0) : 0, 0);
    EXPECT_EQ(read(target), old_text);
    EXPECT_FALSE(fs::exists(work));
}

}  // namespace
