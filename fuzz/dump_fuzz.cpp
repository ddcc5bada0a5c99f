// Dumping onto a file of any bytes: what is not ours stays, our sections hold what was dumped, and where
// both were found a second dump changes nothing. The first bytes of an input set registers.
#include <unistd.h>

#include <cctype>

#include "ee_reg.h"
#include "fuzz.h"

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

Parts take_apart(const std::string& text) {
    Parts parts;
    bool ours = false;
    for (size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string line = text.substr(at, end - at);
        const bool hw = line == "[ee0]\n" || line == "[ee0]\r\n";
        const bool sw = line == "[ee_sw0]\n" || line == "[ee_sw0]\r\n";
        ours = is_header(line) ? hw || sw : ours;
        parts.hw |= hw;
        parts.sw |= sw;
        if (!ours) {
            parts.foreign += line;
            // Or a header without its opening bracket, which ends our section for the dump only.
            parts.decorated |= line.find("[ee0]") != line.npos || (is_header(line) && line[0] != '[');
        }
    }
    return parts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    log_set_quiet(true);
    Input in{data, size};
    INIT_EE_REG("0");
    for (int n = in.byte() % 8; n > 0; --n) {
        ee_reg.hw.slot[in.byte() % EE_REG_COUNT].value = static_cast<int32_t>(in.word());  // dumped reduced
    }
    const std::string text = in.rest(), path = write_file(scratch_path("kept.ini"), text);
    const std::string fresh = scratch_path("fresh.ini");
    unlink(fresh.c_str());
    FUZZ_CHECK(DUMP_EE_INI(fresh.c_str()) == 0);
    const auto dump = [&] {
        FUZZ_CHECK(DUMP_EE_INI(path.c_str()) == 0 && access((path + ".temp").c_str(), F_OK) != 0);
        return read_file(path);
    };
    const std::string once = dump(), twice = dump(), thrice = dump();
    const Parts before = take_apart(text);
    const bool both_found = before.hw && before.sw;
    if (!both_found && !text.empty() && text.back() != '\n') {
        return 0;  // a header that is appended sits on the last line
    }
    const Parts after = take_apart(once);
    FUZZ_CHECK(after.foreign == before.foreign && after.hw && after.sw);
    FUZZ_CHECK(take_apart(twice).foreign == before.foreign);
    FUZZ_CHECK(thrice == twice && (!both_found || twice == once));

    INIT_EE_REG("0");
    FUZZ_CHECK(LOAD_EE_INI(fresh.c_str()) == 0);
    const EE_REG want = ee_reg;
    INIT_EE_REG("0");
    FUZZ_CHECK(LOAD_EE_INI(path.c_str()) == 0);
    for (int slot = 0; slot < EE_REG_COUNT && !before.decorated; ++slot) {
        FUZZ_CHECK(ee_reg.hw.slot[slot].value == want.hw.slot[slot].value);
        FUZZ_CHECK(ee_reg.hw.slot[slot].is_set == 1);
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    using namespace std::string_literals;
    const std::string registers = "\x02\x05\xff\xff\xff\xff\x80\0\0\x0c\x01"s;
    return {registers,
            registers + "; mine\n[a]\nb = 2\n\n[ee0]\nreg_ee_enable = 0\r\n[ee_sw0]\r\n[z]\nlast = 1",
            registers + "[ee1]\na = 1\n[ee0]\nb\n[ee0]\nc\n[_[x]tail\nd",
            registers + "[ee0] ; decorated\nreg_ee_enable = 0\n[EE0]\n[ee_sw0]x\n",
            registers + "key = 1\n\n\n[ee0]"s};
}
