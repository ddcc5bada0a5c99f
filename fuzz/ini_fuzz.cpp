// Register files of any bytes: every register ends up in its field, with the value that the plain
// loader finds. The first byte of an input chooses the instance name.
#include "ee_reg.h"
#include "fuzz.h"
#include "plain_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const plain::Model kModels[] = {plain::Model("NULL"), plain::Model("0"), plain::Model("_A9"),
                                           plain::Model("0123456789012345678901234567890123456789")};
    log_set_quiet(true);
    Input in{data, size};
    plain::Model want = kModels[in.byte() % std::size(kModels)];
    const std::string suffix = want.name.substr(2);
    const char* const instance = suffix.empty() ? "NULL" : suffix.c_str();
    const std::string text = in.rest(), path = write_file(scratch_path("in.ini"), text);
    want.load(path);
    INIT_EE_REG(instance);
    FUZZ_CHECK(LOAD_EE_INI(path.c_str()) == 0);
    const bool comparable = text.find('\0') == std::string::npos;  // the plain loader reads on past a NUL
    for (size_t slot = 0; slot < EE_REG_COUNT; ++slot) {
        const EE_REG_SLOT& loaded = ee_reg.hw.slot[slot];
        const plain::Register& r = want.registers[slot];
        const int64_t low = r.is_signed ? -(int64_t{1} << (r.width - 1)) : 0;
        FUZZ_CHECK(loaded.value >= low && loaded.value < low + (int64_t{1} << r.width));
        FUZZ_CHECK(!comparable || (loaded.value == r.value && (loaded.is_set == 1) == r.set));
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    using namespace std::string_literals;
    log_set_quiet(true);
    const std::string path = scratch_path("seed.ini");
    INIT_EE_REG("0");
    DUMP_EE_INI(path.c_str());
    return {
        "\x01"s + read_file(path),
        "\x01[ee0]\nreg_ee_total_gain = 300 ; c\nreg_ee_debug_mode : -1\n# c\n[x]\nreg_ee_enable=0\n"s,
        "\x01\xef\xbb\xbf[ee0]\r\nreg_ee_motion_lut_slope_0 = 4095\r\n   77\r\nreg_ee_enable\r\n = 3\n"s,
        "\0[ee]\nreg_ee_dark_luma_thr=99999999999999999999\nreg_ee_line_thr = -9223372036854775809x\n[ee"s,
        "\x03[ee01234567890123456789012345678]\nreg_ee_shoot_mode = 1"s};
}
