// The register table, and the one way in which blocks read registers.
#ifndef CMODEL_EE_REG_TABLE_H
#define CMODEL_EE_REG_TABLE_H

#include <cstdint>
#include <string_view>

#include "ee_reg.h"

namespace cm {

// Registers that belong together: a curve is 4 knot inputs, 4 outputs and 3 slopes, a table its entries.
enum RegGroup : uint8_t { kSingle, kCurve, kTable };

struct RegRow {
    const char* key;
    int bits;
    bool is_signed;
    int32_t def;
    int line;  // the log line of records about this register
    RegGroup group;
    int place;              // in the group, from 0
    const char* followers;  // names of the blocks and pipelines that follow it, blanks between
    const char* meaning;    // of the group

    constexpr int32_t least() const { return is_signed ? -(1 << (bits - 1)) : 0; }
    constexpr int32_t greatest() const { return (1 << (is_signed ? bits - 1 : bits)) - 1; }

    // Whether the block or pipeline of that name follows it.
    constexpr bool is_followed_by(std::string_view name) const {
        const std::string_view all = followers;
        for (size_t at = all.find(name); at != all.npos; at = all.find(name, at + 1)) {
            const size_t end = at + name.size();
            if ((at == 0 || all[at - 1] == ' ') && (end == all.size() || all[end] == ' ')) {
                return true;
            }
        }
        return false;
    }
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
#define REG(key, bits, is_signed, def, group, place, followers, meaning) \
    {#key, bits, is_signed, def, log_line(key), group, place, followers, meaning},
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

// Slot of a key, or -1.
int find_register(std::string_view key);

// The registers of one setting, as plain numbers: unsigned fields zero-extended, signed ones sign-extended,
// whatever was stored.
class Registers {
  public:
    Registers() {
        for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
            value_[slot] = kRegTable[slot].def;
        }
    }
    explicit Registers(const EE_REG_HW& set) {
        for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
            this->set(slot, set.slot[slot].value);
        }
    }

    int32_t operator[](int slot) const { return value_[slot]; }
    void set(int slot, int32_t value) {
        value_[slot] = reduce_to_field(value, kRegTable[slot].bits, kRegTable[slot].is_signed);
    }
    bool operator==(const Registers&) const = default;

  private:
    int32_t value_[EE_REG_COUNT];
};

// A register of the process's own setting, ee_reg.
inline int32_t reg_value(int slot) {
    const RegRow& row = kRegTable[slot];
    return reduce_to_field(ee_reg.hw.slot[slot].value, row.bits, row.is_signed);
}

}  // namespace cm

#endif
