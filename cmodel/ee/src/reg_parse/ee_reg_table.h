// The register table, and the one way in which blocks read registers.
#ifndef CMODEL_EE_REG_TABLE_H
#define CMODEL_EE_REG_TABLE_H

#include <cstdint>

#include "ee_reg.h"

namespace cm {

struct RegRow {
    const char* key;
    int bits;
    bool is_signed;
    int32_t def;
    int line;  // log line of records about this register
};

// Cuts a value to its field and extends the sign of a signed one.
constexpr int32_t reduce_to_field(int32_t value, int bits, bool is_signed) {
    const uint32_t field = static_cast<uint32_t>(value) & ((uint32_t{1} << bits) - 1);
    const uint32_t sign = is_signed ? uint32_t{1} << (bits - 1) : 0;
    return static_cast<int32_t>((field ^ sign) - sign);
}

// Each register has its own log line, which stays; there are gaps among the first fourteen slots.
constexpr int log_line(int slot) {
    return slot < 2    ? slot + 10
           : slot < 3  ? 17
           : slot < 8  ? slot + 16
           : slot < 12 ? slot + 17
           : slot < 14 ? slot + 18
                       : slot + 22;
}

inline constexpr RegRow kRegTable[] = {
#define REG(key, bits, is_signed, def) {#key, bits, is_signed, def, log_line(key)},
#include "ee_reg_hw_def.inc"
#undef REG
};

consteval bool defaults_fit() {
    for (const RegRow& row : kRegTable) {
        if (reduce_to_field(row.def, row.bits, row.is_signed) != row.def) {
            return false;
        }
    }
    return true;
}

// Keys are unique: each is an enumerator of EeRegSlot.
static_assert(EE_REG_COUNT == 193);
static_assert(defaults_fit(), "a register's default does not fit its field");

// A register's value, whatever was stored: unsigned fields zero-extended, signed ones sign-extended.
inline int32_t reg_value(int slot) {
    const RegRow& row = kRegTable[slot];
    return reduce_to_field(ee_reg.hw.slot[slot].value, row.bits, row.is_signed);
}

}  // namespace cm

#endif
