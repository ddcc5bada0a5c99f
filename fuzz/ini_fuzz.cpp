// Register files of any bytes. Loading puts every register into its field, with the value that the plain
// loader finds. Dumping onto the same file leaves there what is not ours, our sections load back, and where
// both were found a second dump changes nothing. The first byte of an input chooses the instance name.
#include <unistd.h>

#include <cctype>

#include "ee_reg.h"
#include "fuzz.h"
#include "plain_model.h"

namespace {

// A line that starts a section: letters, digits, "_" and "[", at least one, then "]".
bool is_header(const std::string& line) {
    size_t n = 0;
    while (std::isalnum(static_cast<unsigned char>(line[n])) || line[n] == '_' || line[n] == '[') {
        ++n;
    }
    return n > 0 && line[n] == ']';
}

struct Parts {
    std::string foreign;  // lines outside our sections
    bool hw = false, sw = false;
    bool decorated = false;  // a line that a loader may take for our header, and the dump does not
};

Parts take_apart(const std::string& text, const EE_REG& sets) {
    const std::string hw_header = "[" + std::string(sets.hw.name) + "]",
                      sw_header = "[" + std::string(sets.sw.name) + "]";
    Parts parts;
    bool ours = false;
    for (size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string line = text.substr(at, end - at);
        const bool hw = line == hw_header + "\n" || line == hw_header + "\r\n";
        const bool sw = line == sw_header + "\n" || line == sw_header + "\r\n";
        ours = is_header(line) ? hw || sw : ours;
        parts.hw |= hw;
        parts.sw |= sw;
        if (!ours) {
            parts.foreign += line;
            // Or a header without its opening bracket, which ends our section for the dump only.
            parts.decorated |= line.find(hw_header) != line.npos || (is_header(line) && line[0] != '[');
        }
    }
    return parts;
}

void check_loaded(const plain::Model& want) {
    for (size_t slot = 0; slot < EE_REG_COUNT; ++slot) {
        const EE_REG_SLOT& loaded = ee_reg.hw.slot[slot];
        const plain::Register& r = want.registers[slot];
        const int64_t low = r.is_signed ? -(int64_t{1} << (r.width - 1)) : 0;
        FUZZ_CHECK(r.value >= low && r.value < low + (int64_t{1} << r.width));
        FUZZ_CHECK(loaded.value == r.value && (loaded.is_set == 1) == r.set);
    }
}

void check_dumped(const std::string& path, const char* instance) {
    const auto dump = [&] {
        FUZZ_CHECK(DUMP_EE_INI(path.c_str()) == 0 && access((path + ".temp").c_str(), F_OK) != 0);
        return read_file(path);
    };
    const EE_REG dumped = ee_reg;
    const std::string text = read_file(path), once = dump(), twice = dump(), thrice = dump();
    const Parts before = take_apart(text, dumped);
    const bool both_found = before.hw && before.sw;
    if (!both_found && !text.empty() && text.back() != '\n') {
        return;  // a header that is appended sits on the last line
    }
    const Parts after = take_apart(once, dumped);
    FUZZ_CHECK(after.foreign == before.foreign && after.hw && after.sw);
    FUZZ_CHECK(take_apart(twice, dumped).foreign == before.foreign);
    FUZZ_CHECK(thrice == twice && (!both_found || twice == once));

    INIT_EE_REG(instance);
    FUZZ_CHECK(LOAD_EE_INI(path.c_str()) == 0);
    for (int slot = 0; slot < EE_REG_COUNT && !before.decorated; ++slot) {
        FUZZ_CHECK(ee_reg.hw.slot[slot].value == dumped.hw.slot[slot].value);
        FUZZ_CHECK(ee_reg.hw.slot[slot].is_set == 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const plain::Model kModels[] = {plain::Model("NULL"), plain::Model("0"), plain::Model("_A9"),
                                           plain::Model("0123456789012345678901234567890123456789")};
    log_set_quiet(true);
    Input in{data, size};
    plain::Model want = kModels[in.byte() % std::size(kModels)];
    const std::string suffix = want.name.substr(2);
    const char* const instance = suffix.empty() ? "NULL" : suffix.c_str();
    const std::string path = write_file(scratch_path("in.ini"), in.rest());
    want.load(path);
    INIT_EE_REG(instance);
    FUZZ_CHECK(LOAD_EE_INI(path.c_str()) == 0);
    if (in.rest().find('\0') == std::string::npos) {
        check_loaded(want);  // the plain loader reads on past a NUL
    }
    check_dumped(path, instance);
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    using namespace std::string_literals;
    log_set_quiet(true);
    INIT_EE_REG("0");
    const std::string path = scratch_path("seed.ini");
    DUMP_EE_INI(path.c_str());
    return {
        "\x01"s + read_file(path),
        "\x01[ee0]\nreg_ee_total_gain = 300 ; c\nreg_ee_debug_mode : -1\n# c\n[x]\nreg_ee_enable=0\n"s,
        "\x01\xef\xbb\xbf[ee0]\r\nreg_ee_motion_lut_slope_0 = 4095\r\n   77\r\nreg_ee_enable\r\n = 3\n"s,
        "\0[ee]\nreg_ee_dark_luma_thr=99999999999999999999\nreg_ee_line_thr = -9223372036854775809x\n[ee"s,
        "\x03[ee01234567890123456789012345678]\nreg_ee_shoot_mode = 1"s,
        "\x01; mine\n[a]\nb = 2\n\n[ee0]\nreg_ee_enable = 0\r\n[ee_sw0]\r\n[z]\nlast = 1"s,
        "\x01[ee1]\na = 1\n[ee0]\nb\n[ee0]\nc\n[_[x]tail\nd"s,
        "\x01[ee0] ; decorated\nreg_ee_enable = 0\n[EE0]\n[ee_sw0]x\n"s};
}
