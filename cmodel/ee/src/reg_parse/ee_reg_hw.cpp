// Operations on the hardware register set; each walks the table once, in slot order.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string_view>

#include "ee_reg_name.h"
#include "ee_reg_table.h"
#include "log_positions.h"

namespace {

// The decimal number a value text begins with, as atoi() reads it where a long has 64 bits; text without one
// is 0, and only the low 32 bits of a large number count.
int32_t parse_value(const char* text) {
    return static_cast<int32_t>(std::strtoll(text, nullptr, 10));
}

// Slots in the order of their keys.
constexpr auto kSlotsByKey = [] {
    std::array<int, EE_REG_COUNT> slots{};
    std::iota(slots.begin(), slots.end(), 0);
    std::sort(slots.begin(), slots.end(),
              [](int a, int b) { return std::string_view(cm::kRegTable[a].key) < cm::kRegTable[b].key; });
    return slots;
}();

// What print and dump show: the register's own bits, sign-extended if it is signed.
long shown_value(const EE_REG_HW* set, int slot) {
    const cm::RegRow& row = cm::kRegTable[slot];
    return cm::reduce_to_field(set->slot[slot].value, row.bits, row.is_signed);
}

}  // namespace

// Keeps nothing between calls: threads may load sets of their own.
int cm::find_register(std::string_view key) {
    const auto found = std::lower_bound(kSlotsByKey.begin(), kSlotsByKey.end(), key,
                                        [](int slot, std::string_view k) { return kRegTable[slot].key < k; });
    return found != kSlotsByKey.end() && kRegTable[*found].key == key ? *found : -1;
}

int ee_reg_hw_init(EE_REG_HW* set, const char* ins_name) {
    cm::set_instance_name(set->name, "ee", ins_name);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        set->slot[slot] = {cm::kRegTable[slot].def, cm::kRegTable[slot].key, 0};
    }
    return 0;
}

int ee_reg_hw_load(EE_REG_HW* set, const char* section, const char* key, const char* value) {
    if (std::strcmp(section, set->name) != 0) {
        return 1;
    }
    const int slot = cm::find_register(key);
    if (slot >= 0) {
        const cm::RegRow& row = cm::kRegTable[slot];
        set->slot[slot].value = cm::reduce_to_field(parse_value(value), row.bits, row.is_signed);
        set->slot[slot].is_set = 1;
    }
    return 1;
}

int ee_reg_hw_print(const EE_REG_HW* set) {
    log_log(LOG_DEBUG, cm::at::kPrintHardwareSet.source, cm::at::kPrintHardwareSet.line, "[%s]", set->name);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        log_log(LOG_DEBUG, cm::at::kPrintHardwareSet.source, cm::kRegTable[slot].line, "%s.%s.%s = %ld",
                set->name, "hw", cm::kRegTable[slot].key, shown_value(set, slot));
    }
    return 0;
}

int ee_reg_hw_dump_ini(FILE* stream, const EE_REG_HW* set) {
    std::fprintf(stream, "[%s]\n", set->name);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        std::fprintf(stream, "%s = %ld\n", cm::kRegTable[slot].key, shown_value(set, slot));
    }
    return 0;
}
