// The register block: names and defaults, loading, print, dump. Values, keys and lines of all registers
// are compared with a second table in program_test, loading and dumping of any bytes in the fuzz targets.
#include "ee_reg.h"

#include <sys/stat.h>

#include <atomic>
#include <map>
#include <thread>
#include <utility>

#include "ee_reg_ini.h"
#include "ee_reg_table.h"
#include "test_frames.h"

namespace {

namespace fs = std::filesystem;
using Records = std::vector<std::string>;

Records records;  // "LEVEL file:line text"

struct Shortage {
    long before, failing;  // so many allocations succeed, then so many fail
};
Shortage shortage = {};

[[maybe_unused]] bool fails() {
    if (shortage.failing == 0 || shortage.before-- > 0) return false;
    --shortage.failing;
    errno = ENOMEM;
    return true;
}

void note_record(log_Event* event) {
    const Shortage kept = std::exchange(shortage, {});
    char text[512];
    std::vsnprintf(text, sizeof text, event->fmt, event->args);
    records.push_back(std::string(log_level_string(event->level)) + " " + event->file + ":" +
                      std::to_string(event->line) + " " + text);
    shortage = kept;
}

class EeReg : public FileTest {
  protected:
    static void SetUpTestSuite() {
        log_set_quiet(true);
        log_add_callback(note_record, nullptr, LOG_TRACE);
    }
    void SetUp() override { init(nullptr); }

    static void init(const char* ins_name) {
        EXPECT_EQ(INIT_EE_REG(ins_name), 0);
        records.clear();
    }
    static void load(const std::string& text) {
        records.clear();
        const auto caller_line = ini_max_line;
        EXPECT_EQ(LOAD_EE_INI(spill("a.ini", text)), 0);
        EXPECT_EQ(ini_max_line, caller_line) << "the process's own parser switches";
    }
    // The hardware set as the dump writes it.
    static std::string hw_section() {
        std::string text = "[ee]\n";
        for (const cm::RegRow& row : cm::kRegTable) {
            text += std::string(row.key) + " = " +
                    std::to_string(cm::reg_value(static_cast<int>(&row - cm::kRegTable))) + "\n";
        }
        return text;
    }
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
    const EE_REG_SLOT& gain = ee_reg.hw.slot[reg_ee_total_gain];
    for (const auto& row : rows) {
        ee_reg.hw.slot[reg_ee_total_gain] = {1, "", 1};
        init(row.suffix);
        EXPECT_EQ(ee_reg.hw.name, row.hw);
        EXPECT_EQ(ee_reg.sw.name, row.sw);
        EXPECT_TRUE(gain.value == 32 && gain.key == std::string("reg_ee_total_gain") && gain.is_set == 0);
    }
}

TEST_F(EeReg, ResultsOfTheCalls) {
    EE_REG_HW* const hw = &ee_reg.hw;
    EE_REG_SW* const sw = &ee_reg.sw;
    FILE* const none = std::fopen("/dev/null", "w");
    EXPECT_EQ((Samples{INIT_EE_REG("0"), ee_reg_hw_init(hw, "0"), ee_reg_sw_init(sw, "0"), PRINT_EE_REG(),
                       ee_reg_hw_print(hw), ee_reg_sw_print(sw), ee_reg_hw_dump_ini(none, hw),
                       ee_reg_sw_dump_ini(none, sw)}),
              Samples(8, 0));
    EXPECT_EQ((Samples{ee_reg_loader(&ee_reg, "ee0", "reg_ee_enable", "0"), ee_reg_hw_load(hw, "a", "b", "1"),
                       ee_reg_hw_load(hw, "ee0", "b", "1"), ee_reg_hw_load(hw, "ee0", "reg_ee_enable", "1"),
                       ee_reg_sw_load(sw, "ee_sw0", "b", "1")}),
              Samples(5, 1));
    std::fclose(none);
}

TEST_F(EeReg, PrintShowsFieldsOfWhatACallerStored) {
    ee_reg.hw.slot[reg_ee_enable].value = 6;
    ee_reg.hw.slot[reg_ee_motion_lut_slope_2].value = 0x12345FFE;
    PRINT_EE_REG();
    ASSERT_EQ(records.size(), EE_REG_COUNT + 4u);
    EXPECT_EQ(records[2], "DEBUG ee_reg_hw_def:10 ee.hw.reg_ee_enable = 0");
    EXPECT_EQ(records[191], "DEBUG ee_reg_hw_def:211 ee.hw.reg_ee_motion_lut_slope_2 = -2");
}

// As at program start: all bytes 0, the sets have no name, so a load takes what stands under no header.
TEST_F(EeReg, WorksBeforeTheInit) {
    ee_reg = {};
    load("reg_ee_total_gain = 7\n");
    records.clear();
    PRINT_EE_REG();
    EXPECT_EQ(records.at(19), "DEBUG ee_reg_hw_def:39 .hw.reg_ee_total_gain = 7");
    EXPECT_EQ(DUMP_EE_HW_INI("b.ini"), 0);
    EXPECT_EQ(slurp("b.ini"), hw_section().erase(1, 2));
}

TEST_F(EeReg, LoadReadsEveryStyle) {
    const std::string gain = "reg_ee_total_gain=";
    const struct {
        std::string text;
        std::map<int, int> set;  // slot, value
    } rows[] = {
        {"[ee]\n  reg_ee_total_gain:  +7  ; seven\nreg_ee_total_coring=9;x",
         {{reg_ee_total_gain, 7}, {reg_ee_total_coring, 9}}},
        {"\xEF\xBB\xBF[ee]\r\nreg_ee_total_gain = 7\r\n  8\r\n\t300\r\n[ee0]\r\nreg_ee_total_coring = 7\r\n",
         {{reg_ee_total_gain, 44}}},
        {"[ee]\nreg_ee_enable = 0x1\nreg_ee_line_length = -1\nreg_ee_mcore_gain_lut_slope_2 = 2048\n",
         {{reg_ee_enable, 0}, {reg_ee_line_length, 3}, {reg_ee_mcore_gain_lut_slope_2, -2048}}},
        // A line may have 1,999,999 characters; of a longer one the rest is a line of its own.
        {"[ee]\n" + gain + std::string(1999979, '0') + "77\n", {{reg_ee_total_gain, 77}}},
        {"[ee]\n" + gain + std::string(1999981, '0') + "77\n", {{reg_ee_total_gain, 0}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 200));
        init(nullptr);
        load(row.text);
        EE_REG other;
        ee_reg_hw_init(&other.hw, nullptr);
        EXPECT_EQ(cm::parse_ini(row.text, ee_reg_loader, &other).error, 0);
        std::map<int, int> set;
        for (int slot = 0; slot < EE_REG_COUNT; ++slot)
            EXPECT_EQ(other.hw.slot[slot].value, ee_reg.hw.slot[slot].value) << "from memory";
        for (int slot = 0; slot < EE_REG_COUNT; ++slot)
            if (ee_reg.hw.slot[slot].is_set != 0) set[slot] = cm::reg_value(slot);
        EXPECT_EQ(set, row.set);
    }
}

TEST_F(EeReg, ThreadsLoadSetsOfTheirOwn) {
    const std::string text =
        "[ee]\nreg_ee_total_gain =" + std::string(300, ' ') + "40\nreg_ee_total_coring = 9";
    std::atomic<int> wrong = 0;
    const auto load_often = [&] {
        for (int i = 0; i < 2000; ++i) {
            EE_REG block;
            ee_reg_hw_init(&block.hw, nullptr);
            cm::parse_ini(text, ee_reg_loader, &block);
            wrong += block.hw.slot[reg_ee_total_gain].value + block.hw.slot[reg_ee_total_coring].value != 49;
        }
    };
    std::thread beside(load_often);
    load_often();
    beside.join();
    EXPECT_EQ(wrong, 0);
    load(text);
}

TEST_F(EeReg, RegistersThatNoLoadSetAreReported) {
    init("1");
    EXPECT_EQ(LOAD_EE_INI("none.ini"), 1);
    EXPECT_EQ(records.back(), "DEBUG ee_reg:49 Can't handle ee_reg.");
    load("[ee1]\nreg_ee_texture_mode = 0\nno separator\n");
    load("[ee1]\nreg_ee_shoot_mode = 1\n");  // what the first load has set stays set
    Records expected = {"DEBUG ee_reg:47 [LOAD] Load ee INI configurations...",
                        "DEBUG ee_reg:52 [LOAD] Load ee Done..."};
    for (const cm::RegRow& row : cm::kRegTable) {
        if (row.line != 17 && row.line != 36) {
            expected.push_back("ERROR ee_reg_hw_def:" + std::to_string(row.line) + " [REG] ee1.hw." +
                               row.key + " is not set in .ini file");
        }
    }
    EXPECT_EQ(records, expected);
}

TEST_F(EeReg, DumpReplacesItsSectionsAndNothingElse) {
    ee_reg.hw.slot[reg_ee_enable].value = 6;
    ee_reg.hw.slot[reg_ee_motion_lut_slope_0].value = -5;
    const std::string hw = hw_section(), sw = "[ee_sw]\n";
    ASSERT_EQ(hw.substr(0, 23), "[ee]\nreg_ee_enable = 0\n");
    const struct {
        std::string before, after;
    } rows[] = {
        {"", hw + sw},
        {hw + sw, hw + "\n" + sw},
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
    };
    for (const auto& row : rows) {
        records.clear();
        EXPECT_EQ(DUMP_EE_INI(spill("a.ini", row.before)), 0);
        EXPECT_EQ(slurp("a.ini"), row.after) << row.before;
        EXPECT_FALSE(fs::exists("a.ini.temp"));
        EXPECT_EQ(records, (Records{
                               "DEBUG ee_reg:79 [DUMP] Dump ee INI configurations in a.ini...",
                               "DEBUG ee_reg:86 [DUMP_EE_HW_INI] Dump INI configurations in a.ini...",
                               "DEBUG ee_reg:86 [DUMP_EE_HW_INI] Dump INI configurations in a.ini done",
                               "DEBUG ee_reg:87 [DUMP_EE_SW_INI] Dump INI configurations in a.ini...",
                               "DEBUG ee_reg:87 [DUMP_EE_SW_INI] Dump INI configurations in a.ini done",
                               "DEBUG ee_reg:82 [DUMP] Dump ee INI Done....",
                           }));
    }
}

// Every failure says -1, names the file in an ERROR record, and leaves the target as it was.
TEST_F(EeReg, DumpThatCannotWriteSaysSo) {
    const auto expect_failure = [](const std::string& target, const std::string& blamed) {
        records.clear();
        EXPECT_EQ(DUMP_EE_INI(target.c_str()), -1);
        const std::string last = records.empty() ? "" : records.back();
        EXPECT_TRUE(last.starts_with("ERROR") && last.find(" " + blamed + ": ") != last.npos) << last;
    };
    fs::create_symlink("/dev/full", "full");
    for (const char* const target : {"none/a.ini", ".", "full"}) expect_failure(target, target);

    const std::string target = std::string(240, 'd') + ".ini", work = target + ".temp";
    spill(target.c_str(), "[ee]\nold = 1\n");
    fs::create_directory(work);
    expect_failure(target, work);
    fs::remove(work);
    fs::create_symlink("/dev/full", work);
    expect_failure(target, work);
    ASSERT_EQ(mkfifo(work.c_str(), 0600), 0);
    expect_failure(target, work);
    fs::remove(work);

    // A target that may not be written, or not be read; for root, who may do anything, as another user.
    const bool root = geteuid() == 0;
    fs::permissions(".", fs::perms::all);
    for (const int mode : {0444, 0222}) {
        fs::permissions(target, fs::perms(mode));
        ASSERT_EQ(root ? seteuid(65534) : 0, 0);
        expect_failure(target, target);
        ASSERT_EQ(root ? seteuid(0) : 0, 0);
    }
    fs::permissions(target, fs::perms(0644));
    EXPECT_EQ(slurp(target.c_str()), "[ee]\nold = 1\n");
    EXPECT_FALSE(fs::exists(work));
}

#ifndef __SANITIZE_ADDRESS__
// Each allocation of a dump fails in turn, alone or with all that follow.
TEST_F(EeReg, DumpWithoutMemorySaysSo) {
    const std::string old = "[other]\nk = 1\n[ee]\nold = 1\n", half = "[other]\nk = 1\n" + hw_section();
    for (const long failing : {1L, 1000000L}) {
        int failures = 0;
        for (long before = 0, left = 0; left != failing; ++before) {
            spill("a.ini", old);
            shortage = {before, failing};
            const int result = DUMP_EE_INI("a.ini");
            left = std::exchange(shortage, {}).failing;
            const std::string after = slurp("a.ini");
            EXPECT_TRUE(result == 0 ? after == half + "[ee_sw]\n" : after == old || after == half) << after;
            EXPECT_TRUE(result == 0 || records.back().starts_with("ERROR")) << records.back();
            EXPECT_FALSE(fs::exists("a.ini.temp"));
            failures += result != 0;
        }
        EXPECT_GT(failures, 20);
    }
}
#endif

}  // namespace

#ifndef __SANITIZE_ADDRESS__
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    return fails() ? nullptr : __libc_calloc(n, size);
}
void* realloc(void* p, size_t size) {
    return fails() ? nullptr : __libc_realloc(p, size);
}
}
#endif
