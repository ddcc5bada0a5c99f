// Bounds of what each block can make of its inputs, from the registers alone, along the chain
//
//   delta --> cored delta --+--> total delta --> limited delta --> merge
//                 gains ----+
//
// A total delta of 0 gives a limited delta of 0: what overshoot control adds for rounding is half a code.
#include "ee_no_effect.h"

#include <algorithm>

#include "common.h"
#include "ee_blocks.h"
#include "ee_curve.h"
#include "ee_reg_table.h"
#include "fixed_point.h"

namespace cm {
namespace {

constexpr int kCurveSlots = kCurveSlope + kKnots - 1;
constexpr int kTableSlots = 33;

struct Range {
    int32_t low, high;
    bool is_zero() const { return low == 0 && high == 0; }
    void include(int32_t v) {
        low = std::min(low, v);
        high = std::max(high, v);
    }
};

class Setting {
  public:
    explicit Setting(const EE_REG_HW& set) : set_(set) {}

    std::vector<std::vector<int>> find_reasons() const {
        if (value(reg_ee_enable) != 1) {
            return {{reg_ee_enable}};
        }
        if (find_debug_view(value(reg_ee_debug_mode)) != nullptr || !merge_passes_image()) {
            return {};
        }
        std::vector<std::vector<int>> reasons;
        const auto add_if = [&](bool holds, std::vector<int> slots) {
            if (holds) {
                reasons.push_back(std::move(slots));
            }
        };
        // A coring level below 0 would make a delta of nothing.
        add_if(largest_delta() == 0 && least_core() >= 0, texture_slots());
        add_if(value(reg_hf_blend_wgt) == 0 && value(reg_mf_blend_wgt) == 0,
               {reg_hf_blend_wgt, reg_mf_blend_wgt});
        add_if(value(reg_ee_total_gain) == 0, {reg_ee_total_gain});
        add_if(motion_gain().is_zero(), motion_slots());
        add_if(luma_gain().is_zero(), luma_slots());
        add_if(delta_gain().is_zero(), delta_slots());
        add_if(chroma_gain().is_zero(), chroma_slots());
        if (reasons.empty()) {
            add_if(largest_total_delta() == 0, weak_slots());
        }
        return reasons;
    }

  private:
    int32_t value(int slot) const { return set_[slot]; }

    int32_t curve(int first, int x) const {
        int knots[kCurveSlots];
        for (int k = 0; k < kCurveSlots; ++k) {
            knots[k] = value(first + k);
        }
        return CM_LUT(x, knots, knots + kCurveOut, knots + kCurveSlope, kKnots, kSlopeShift);
    }
    Range curve_range(int first) const {
        Range range{curve(first, 0), curve(first, 0)};
        for (int x = 1; x <= 256; ++x) {
            range.include(curve(first, x));
        }
        return range;
    }
    // Interpolation stays between the entries, which count four times.
    Range table_range(int switch_slot, int first, int entries) const {
        if (value(switch_slot) != 1) {
            return {kUnitGain, kUnitGain};
        }
        Range range{4 * value(first), 4 * value(first)};
        for (int k = 1; k < entries; ++k) {
            range.include(4 * value(first + k));
        }
        return range;
    }

    // ---- Deltas ----

    int32_t scaled(int strength_slot) const {
        return std::min((value(strength_slot) * kDeltaMax) >> 10, kDeltaMax);
    }
    bool has_dark() const { return value(reg_ee_dark_luma_thr) > 0; }
    bool has_lines() const { return value(reg_ee_line_thr) < 1024; }  // no mean exceeds its peak

    // Bright luma there always is; a flat part of it keeps its delta, but for a threshold of 0 only where all
    // deltas around are 0.
    int32_t largest_delta() const {
        const bool has_mid = value(reg_ee_bright_luma_thr) > value(reg_ee_dark_luma_thr);
        if (value(reg_ee_texture_mode) != 1 || has_mid || value(reg_ee_bright_edge_thr) > 0) {
            return kDeltaMax;
        }
        return std::max({has_dark() ? scaled(reg_ee_dark_edge_strength) : 0,
                         has_lines() ? scaled(reg_ee_line_strength) : 0,
                         scaled(reg_ee_bright_edge_strength)});
    }

    std::vector<int> texture_slots() const {
        return {reg_ee_texture_mode,
                reg_ee_bright_luma_thr,
                has_dark() ? reg_ee_dark_edge_strength : reg_ee_dark_luma_thr,
                reg_ee_bright_edge_thr,
                reg_ee_bright_edge_strength,
                has_lines() ? reg_ee_line_strength : reg_ee_line_thr};
    }

    // ---- Coring ----

    // The level is linear in the weight of the moving areas' level, which may exceed the whole, and goes with
    // 2^(depth - 15): the least is a negative one of 12 bits, or another of 8.
    int32_t least_core() const {
        const Range weight = curve_range(reg_ee_mcore_gain_lut_in_0);
        const bool by_brightness = value(reg_ee_luma_coring_en) == 1;
        int32_t least = INT32_MAX;
        for (int x = 0; x <= 256; ++x) {
            const int32_t still =
                by_brightness ? curve(reg_ee_luma_coring_lut_in_0, x) : value(reg_ee_total_coring);
            const int32_t moving =
                by_brightness ? curve(reg_ee_motion_coring_lut_in_0, x) : value(reg_ee_total_motion_coring);
            for (const int32_t w : {weight.low, weight.high}) {
                least = std::min(least, (kUnitWeight - w) * still + w * moving);
            }
        }
        return least >> (least < 0 ? 15 - 12 : 15 - 8);
    }

    int32_t largest_cored() const {
        const int32_t core = least_core();
        const int32_t mf_core = (core * value(reg_ee_mf_core_gain)) >> 7;
        const int32_t mf = std::max(largest_delta() - mf_core, 0);
        const int32_t hf = std::max(largest_delta() - core, 0);
        return std::min((mf * value(reg_mf_blend_wgt) + hf * value(reg_hf_blend_wgt)) >> 8, kDeltaMax);
    }

    // ---- Gains ----

    Range motion_gain() const { return curve_range(reg_ee_motion_lut_in_0); }
    Range luma_gain() const {
        return table_range(reg_ee_luma_adptctrl_en, reg_ee_luma_adptctrl_lut_00, kTableSlots);
    }
    Range delta_gain() const {
        return table_range(reg_ee_delta_adptctrl_en, reg_ee_delta_adptctrl_lut_00, kTableSlots);
    }
    // Below 0 when weights exceed the whole.
    Range chroma_gain() const {
        const Range hue =
            table_range(reg_ee_chroma_adptctrl_en, reg_ee_chroma_adptctrl_lut_00, kTableSlots - 1);
        const Range weight = curve_range(reg_ee_chroma_amp_lut_in_0);
        const auto blend = [](int32_t w, int32_t h) { return ((kUnitWeight - w) * kUnitGain + w * h) >> 7; };
        Range gain{blend(weight.low, hue.low), blend(weight.low, hue.low)};
        gain.include(blend(weight.low, hue.high));
        gain.include(blend(weight.high, hue.low));
        gain.include(blend(weight.high, hue.high));
        return gain;
    }
    static std::vector<int> motion_slots() { return join({}, reg_ee_motion_lut_out_0, kKnots); }
    static std::vector<int> luma_slots() {
        return join({reg_ee_luma_adptctrl_en}, reg_ee_luma_adptctrl_lut_00, kTableSlots);
    }
    static std::vector<int> delta_slots() {
        return join({reg_ee_delta_adptctrl_en}, reg_ee_delta_adptctrl_lut_00, kTableSlots);
    }
    static std::vector<int> chroma_slots() {
        return join(join({reg_ee_chroma_adptctrl_en}, reg_ee_chroma_adptctrl_lut_00, kTableSlots - 1),
                    reg_ee_chroma_amp_lut_out_0, kKnots);
    }

    // Magnitude; total gain below 0 turns deltas round.
    int32_t largest_total_delta() const {
        const int32_t a = (motion_gain().high * value(reg_ee_total_gain)) >> 6;
        const Range chroma = chroma_gain();
        const auto total = [&](int32_t chroma_end) {
            const int32_t b = (luma_gain().high * chroma_end) >> 6;
            const int32_t gain = (a * b * delta_gain().high) >> 10;
            return (largest_cored() * std::min(gain, kTotalGainMax)) >> 8;
        };
        return std::max(total(std::max(chroma.high, 0)), -total(std::min(chroma.low, 0)));
    }

    // What is below 1.0 along the chain.
    std::vector<int> weak_slots() const {
        std::vector<int> weak;
        const auto add_if = [&](bool holds, const std::vector<int>& slots) {
            if (holds) {
                weak.insert(weak.end(), slots.begin(), slots.end());
            }
        };
        add_if(largest_delta() < kDeltaMax, texture_slots());
        add_if(value(reg_hf_blend_wgt) + value(reg_mf_blend_wgt) < 256, {reg_hf_blend_wgt, reg_mf_blend_wgt});
        add_if(value(reg_ee_total_gain) < 32, {reg_ee_total_gain});
        add_if(motion_gain().high < kUnitWeight, motion_slots());
        add_if(luma_gain().high < kUnitGain, luma_slots());
        add_if(delta_gain().high < kUnitGain, delta_slots());
        add_if(chroma_gain().high < kUnitGain, chroma_slots());
        return weak;
    }

    // ---- Merge ----

    // Whether a delta of 0 leaves every sample as it is, with the soft clamp as well; its lower bound never
    // exceeds a sample.
    bool merge_passes_image() const {
        const int32_t upper = value(reg_ee_upper_bound_left_diff);
        for (int32_t s = 0; s <= 255 && value(reg_ee_soft_clamp_enable) == 1; ++s) {
            if ((s * upper + ((255 - upper) << 8) + 128) >> 8 < s) {
                return false;
            }
        }
        return true;
    }

    // Followed by `count` neighbouring slots.
    static std::vector<int> join(std::vector<int> slots, int first, int count) {
        for (int k = 0; k < count; ++k) {
            slots.push_back(first + k);
        }
        return slots;
    }

    const Registers set_;
};

}  // namespace

std::vector<std::vector<int>> find_no_effect(const EE_REG_HW& set) {
    return Setting(set).find_reasons();
}

}  // namespace cm
