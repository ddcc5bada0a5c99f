// Settings as a whole: one at random, as a short text, and what differs between two.
#include "settings.h"

#include <algorithm>
#include <random>

#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_no_effect.h"
#include "ee_reg_name.h"

namespace eetool {
namespace {

using cm::kKnots;
using cm::kRegTable;
using cm::Registers;
using cm::RegRow;

// The generator is defined bit by bit; the distributions of the C++ library are not.
class Draw {
  public:
    explicit Draw(uint64_t seed) : random_(seed) {}
    int32_t below(int32_t n) { return static_cast<int32_t>(random_() % static_cast<uint64_t>(n)); }

  private:
    std::mt19937_64 random_;
};

void draw_single(Draw& draw, int slot, Registers& setting) {
    const RegRow& row = kRegTable[slot];
    int bits = row.bits;
    if (bits > 8) {
        bits = 1 + draw.below(bits);  // else almost all would be far above what pictures reach
    }
    setting.set(slot, draw.below(1 << bits));
}

// Knots at least 2 apart, so that every slope fits its field.
void draw_curve(Draw& draw, int first, Registers& setting) {
    constexpr int kLeastStep = 2, kMostStep = 84;
    const bool is_weight = first == reg_ee_chroma_amp_lut_in_0 || first == reg_ee_motion_lut_in_0;
    int in = draw.below(4), out = 0;
    for (int k = 0; k < kKnots; ++k) {
        const int next = draw.below(is_weight ? cm::kUnitWeight + 1 : 256);
        const int step = k == 0 ? 0 : kLeastStep + draw.below(kMostStep - kLeastStep);
        in += step;
        setting.set(first + k, in);
        setting.set(first + cm::kCurveOut + k, next);
        if (k > 0) {
            setting.set(first + cm::kCurveSlope + k - 1, (next - out) * (1 << cm::kSlopeShift) / step);
        }
        out = next;
    }
}

Registers draw_setting(Draw& draw) {
    Registers setting;
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        if (kRegTable[slot].group != cm::kCurve) {
            draw_single(draw, slot, setting);
        } else if (kRegTable[slot].place == 0) {
            draw_curve(draw, slot, setting);
        }
    }
    const int32_t one = setting[reg_ee_dark_luma_thr], other = setting[reg_ee_bright_luma_thr];
    setting.set(reg_ee_dark_luma_thr, std::min(one, other));
    setting.set(reg_ee_bright_luma_thr, std::max(one, other));
    setting.set(reg_ee_enable, 1);
    if (draw.below(8) != 0) {
        setting.set(reg_ee_debug_mode, 0);
    }
    return setting;
}

bool may_change_pictures(const Registers& setting) {
    EE_REG_HW set;
    ee_reg_hw_init(&set, nullptr);
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        set.slot[slot].value = setting[slot];
    }
    return cm::find_no_effect(set).empty();
}

// "reg_ee_motion_lut" and "in_1" of reg_ee_motion_lut_in_1.
constexpr size_t length_of_group(const std::string& key) {
    return key.rfind("_lut_") + 4;
}

}  // namespace

Registers random_setting(uint64_t seed) {
    Draw draw(seed);
    Registers setting = draw_setting(draw);
    while (!may_change_pictures(setting)) {
        setting = draw_setting(draw);
    }
    return setting;
}

std::vector<int> changed_slots(const Registers& setting) {
    std::vector<int> slots;
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        if (setting[slot] != kRegTable[slot].def) {
            slots.push_back(slot);
        }
    }
    return slots;
}

std::string ini_text(const Registers& setting, const char* instance, bool minimal) {
    char section[32];
    cm::set_instance_name(section, "ee", instance);
    std::string text = std::string("[") + section + "]\n";
    for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
        if (!minimal || setting[slot] != kRegTable[slot].def) {
            text += std::string(kRegTable[slot].key) + " = " + std::to_string(setting[slot]) + "\n";
        }
    }
    return text;
}

std::vector<std::string> differences(const Registers& a, const Registers& b) {
    std::vector<std::string> lines;
    for (int slot = 0; slot < EE_REG_COUNT;) {
        // A group and its members; another place 0 begins the next.
        const RegRow& row = kRegTable[slot];
        const std::string key = row.key;
        const bool single = row.group == cm::kSingle;
        const std::string name = single ? key : key.substr(0, length_of_group(key));
        std::string values;
        int end = slot;
        do {
            const std::string member = kRegTable[end].key;
            if (a[end] != b[end]) {
                values += values.empty() ? " " : ", ";
                values += single ? "" : member.substr(name.size() + 1) + " ";
                values += std::to_string(a[end]) + " -> " + std::to_string(b[end]);
            }
            ++end;
        } while (end < EE_REG_COUNT && kRegTable[end].group != cm::kSingle && kRegTable[end].place != 0);
        if (!values.empty()) {
            lines.push_back(name);
            lines.back().append(":").append(values).append("; ").append(row.meaning);
        }
        slot = end;
    }
    return lines;
}

}  // namespace eetool
