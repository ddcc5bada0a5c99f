// The decisions of the blocks, taken once more for one pixel, in words. Values are those of the stages
// themselves; only what lies between them is worked out here.
#include "reasons.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "common.h"
#include "ee_hw.h"
#include "pre_ee_blocks.h"

namespace cm {
namespace {

using Lines = std::vector<std::string>;

std::string str(int64_t v) {
    return std::to_string(v);
}

// In luma codes what is in eighths.
std::string codes(int64_t eighths) {
    const int64_t magnitude = std::abs(eighths);
    static const char* const kParts[] = {"", ".125", ".25", ".375", ".5", ".625", ".75", ".875"};
    return (eighths < 0 ? "-" : "") + str(magnitude / 8) + kParts[magnitude % 8];
}

// ---- Curves and tables ----

struct Curve {
    int in[4], out[4], slope[4];
};

Curve read_curve(const Pixel& p, const std::string& name) {
    Curve c{};
    for (int k = 0; k < 4; ++k) {
        c.in[k] = p.reg(name + "_in_" + str(k));
        c.out[k] = p.reg(name + "_out_" + str(k));
        c.slope[k] = k < 3 ? p.reg(name + "_slope_" + str(k)) : 0;
    }
    return c;
}

int32_t curve_value(const Pixel& p, const std::string& name, int32_t x) {
    const Curve c = read_curve(p, name);
    return CM_LUT(std::clamp(x, 0, 256), c.in, c.out, c.slope, 4, 4);
}

// Where on its curve an input lies: before the first knot, past the last, or on a segment.
std::string curve_place(const Pixel& p, const std::string& name, int32_t x) {
    const Curve c = read_curve(p, name);
    const auto knot = [&](int k) { return "(" + str(c.in[k]) + ", " + str(c.out[k]) + ")"; };
    x = std::clamp(x, 0, 256);
    if (x <= c.in[0]) {
        return name + ", before knot 0 " + knot(0);
    }
    if (x > c.in[3]) {
        return name + ", past knot 3 " + knot(3);
    }
    int k = 1;
    while (c.in[k] < x) {
        ++k;
    }
    const int64_t free = c.out[k - 1] + ((int64_t{x} - c.in[k - 1]) * c.slope[k - 1] >> 4);
    const int64_t value = curve_value(p, name, x);
    return name + ", segment " + str(k - 1) + " from " + knot(k - 1) + " to " + knot(k) + ", slope " +
           str(c.slope[k - 1]) + "/16" + (free != value ? ", which stops at the knots" : "");
}

std::string table_place(const Pixel& p, const std::string& name, int32_t x, bool circular) {
    const int32_t low = x & 255, i = low >> 3, j = circular ? (i + 1) % 32 : i + 1;
    const auto entry = [&](int k) {
        const std::string key = name + (k < 10 ? "_0" : "_") + str(k);
        return str(k) + " (" + str(p.reg(key)) + ")";
    };
    return name + ", between entries " + entry(i) + " and " + entry(j) + ", " + str(low & 7) +
           "/8 of the way" + (low != x ? "; the table sees the low 8 bits, " + str(low) : "");
}

// Brightness as coring and the gain by brightness see it.
const char* brightness(const Pixel& p) {
    return p.reg("reg_ee_lumaref_lpf_en") == 1 ? "lpf_y" : p.luma();
}

// ---- Flat detection ----

int64_t window_sum(const Pixel& p, const char* plane, int radius) {
    int64_t sum = 0;
    for (int dy = -radius; dy <= radius; ++dy) {
        for (int dx = -radius; dx <= radius; ++dx) {
            sum += std::abs(int64_t{p.plane_at(plane, dx, dy)});
        }
    }
    return sum;
}

std::string edge_test(const Pixel& p, const std::string& tone, const char* delta, const char* luma) {
    const int radius = p.reg("reg_ee_" + tone + "_edge_region");
    const int64_t threshold = p.reg("reg_ee_" + tone + "_edge_thr");
    const int64_t energy = window_sum(p, delta, radius), level = window_sum(p, luma, radius);
    const int64_t least = threshold * level >> 10;
    return "energy of " + std::string(delta) + " in " + str(2 * radius + 1) + "x" + str(2 * radius + 1) +
           " is " + str(energy) + (least < energy ? ", above " : ", not above ") + str(least) + " (reg_ee_" +
           tone + "_edge_thr " + str(threshold) + "/1024 of " + luma + " " + str(level) + ")";
}

// The run along one axis, in the direction of the pixel's sign.
std::string line_test(const Pixel& p, const char* delta, bool down) {
    const int half = p.reg("reg_ee_line_length");
    const int32_t centre = p.plane(delta);
    int64_t sum = 0, peak = 0;
    for (int k = -half; k <= half; ++k) {
        const int64_t v = p.plane_at(delta, down ? 0 : k, down ? k : 0);
        sum += centre < 0 ? -v : v;
        peak = std::max(peak, centre < 0 ? -v : v);
    }
    const int64_t least = (int64_t{2 * half + 1} * p.reg("reg_ee_line_thr") * peak) >> 10;
    return std::string("run along the ") + (down ? "column" : "row") + " adds up to " + str(sum) +
           (centre != 0 && least < sum ? ", above " : ", not above ") + str(least);
}

Lines texture_reasons(const Pixel& p, const std::string& band) {
    static const char* const kClasses[] = {"dark flat", "dark edge",   "mid-tone",
                                           "line",      "bright edge", "bright flat"};
    static_assert(std::size(kClasses) == kBrightFlat + 1);
    const std::string in = "y_" + band, fused = "yfusion_" + band;
    const int32_t texture = p.plane((band + "_texture").c_str());
    const int32_t luma = p.plane("yfusion");
    Lines lines = {std::string("class: ") + kClasses[std::clamp<int32_t>(texture, kDarkFlat, kBrightFlat)]};
    if (texture <= kDarkEdge) {
        lines.push_back("fused luma " + str(luma) +
                        " is below reg_ee_dark_luma_thr = " + str(p.reg("reg_ee_dark_luma_thr")));
        lines.push_back(edge_test(p, "dark", fused.c_str(), "yfusion"));
    } else if (texture == kMidTone) {
        lines.push_back("fused luma " + str(luma) +
                        " is from reg_ee_dark_luma_thr = " + str(p.reg("reg_ee_dark_luma_thr")) +
                        " and below reg_ee_bright_luma_thr = " + str(p.reg("reg_ee_bright_luma_thr")));
    } else {
        lines.push_back("fused luma " + str(luma) +
                        " is from reg_ee_bright_luma_thr = " + str(p.reg("reg_ee_bright_luma_thr")));
        lines.push_back(line_test(p, fused.c_str(), true));
        lines.push_back(line_test(p, fused.c_str(), false));
        if (texture > kLine) {
            lines.push_back(edge_test(p, "bright", in.c_str(), "y"));
        }
    }
    return lines;
}

Lines chosen_delta_reasons(const Pixel& p, const std::string& band) {
    const std::string delta = band + "_delta";
    const int32_t texture = p.plane((band + "_texture").c_str());
    const std::string chosen = (texture == kDarkEdge || texture == kBrightFlat ? "y_" : "yfusion_") + band;
    const int32_t from = p.plane(chosen.c_str());
    if (texture == kMidTone || texture == kBrightFlat) {
        return {chosen + " = " + str(from) + " as it is"};
    }
    const std::string key = texture <= kDarkEdge ? "reg_ee_dark_edge_strength"
                            : texture == kLine   ? "reg_ee_line_strength"
                                                 : "reg_ee_bright_edge_strength";
    const int64_t scaled = int64_t{p.reg(key)} * std::abs(int64_t{from}) >> 10;
    return {chosen + " = " + str(from) + " times " + key + " = " + str(p.reg(key)) + "/1024" +
            (scaled > 2047 ? ", cut from " + str(scaled) + " to 2047" : "")};
}

Lines delta_reasons(const Pixel& p, const std::string& band) {
    if (p.classic) {
        return {};
    }
    if (p.reg("reg_ee_texture_mode") == 1) {
        return chosen_delta_reasons(p, band);
    }
    return p.plane(("y_" + band + "_over").c_str()) != 0 ? Lines{"limiter: cut to 2047"} : Lines{};
}

// ---- Coring ----

Lines coring_level_reasons(const Pixel& p) {
    const char* const reference = brightness(p);
    const int32_t light = p.plane(reference), motion = p.plane("mmap");
    const bool by_light = p.reg("reg_ee_luma_coring_en") == 1;
    const auto level = [&](const char* what, const std::string& fixed, const std::string& curve) {
        return std::string(what) + " level " +
               (by_light ? str(curve_value(p, curve, light)) + ": " + reference + " " + str(light) + " on " +
                               curve_place(p, curve, light)
                         : str(p.reg(fixed)) + ": " + fixed);
    };
    const std::string share = "reg_ee_mcore_gain_lut";
    return {level("still", "reg_ee_total_coring", "reg_ee_luma_coring_lut"),
            level("moving", "reg_ee_total_motion_coring", "reg_ee_motion_coring_lut"),
            "share of the moving level " + str(curve_value(p, share, motion)) + "/128: mmap " + str(motion) +
                " on " + curve_place(p, share, motion)};
}

Lines cored_delta_reasons(const Pixel& p) {
    const int64_t level = p.plane("coring_level");
    const int64_t own[] = {level * p.reg("reg_ee_mf_core_gain") >> 7, level};
    const char* const planes[] = {"mf_delta", "hf_delta"};
    const char* const weights[] = {"reg_mf_blend_wgt", "reg_hf_blend_wgt"};
    Lines lines;
    int64_t sum = 0;
    for (int k = 0; k < 2; ++k) {
        const int64_t delta = p.plane(planes[k]), magnitude = std::abs(delta);
        const int64_t left = std::max<int64_t>(magnitude - own[k], 0);
        sum += (delta < 0 ? -left : left) * p.reg(weights[k]);
        lines.push_back(std::string(planes[k]) + " " + str(delta) + " less level " + str(own[k]) +
                        " leaves " + (left == 0 ? "nothing" : str(delta < 0 ? -left : left)) + ", weight " +
                        str(p.reg(weights[k])) + "/256");
    }
    if (std::abs(sum) >> 8 > 2047) {
        lines.push_back("limiter: cut from " + str(std::abs(sum) >> 8) + " to 2047");
    }
    return lines;
}

// ---- Gains ----

Lines table_reasons(const Pixel& p, const char* enable, const std::string& table, const char* plane) {
    if (p.reg(enable) != 1) {
        return {std::string("unit gain: ") + enable + " = 0"};
    }
    return {std::string(plane) + " " + str(p.plane(plane)) + " in " +
            table_place(p, table, p.plane(plane), false)};
}

Lines chroma_gain_reasons(const Pixel& p) {
    const bool smooth = p.reg("reg_ee_chromaref_lpf_en") == 1;
    // Chroma beyond its depth may wrap.
    const auto centred = [&](const char* plane) {
        return static_cast<int>(static_cast<uint32_t>(p.plane(plane)) - 128);
    };
    const int cb = centred(smooth ? "lpf_cb" : "cb_full"), cr = centred(smooth ? "lpf_cr" : "cr_full");
    const int hue = CalcHue_Cordic(cb, cr), amplitude = std::clamp(CalcSQRT(cb, cr), 0, 255);
    const std::string curve = "reg_ee_chroma_amp_lut";
    Lines lines;
    lines.push_back(p.reg("reg_ee_chroma_adptctrl_en") == 1
                        ? "hue " + str(hue) + " in " + table_place(p, "reg_ee_chroma_adptctrl_lut", hue, true)
                        : "unit gain for every hue: reg_ee_chroma_adptctrl_en = 0");
    lines.push_back("share of the gain by hue " + str(curve_value(p, curve, amplitude)) + "/128: amplitude " +
                    str(amplitude) + " on " + curve_place(p, curve, amplitude));
    return lines;
}

Lines total_gain_reasons(const Pixel& p) {
    const int64_t a = int64_t{p.plane("motion_gain")} * p.reg("reg_ee_total_gain") >> 6;
    const int64_t b = int64_t{p.plane("luma_gain")} * p.plane("chroma_gain") >> 6;
    const int64_t product = a * b * p.plane("delta_gain") >> 10;
    return product > 4095 ? Lines{"limiter: cut from " + str(product) + " to 4095"} : Lines{};
}

Lines total_delta_reasons(const Pixel& p) {
    const int64_t scaled = std::abs(int64_t{p.plane("cored_delta")}) * p.plane("total_gain") >> 8;
    return scaled > 2047 ? Lines{"limiter: cut from " + str(scaled) + " to 2047"} : Lines{};
}

// ---- Over- and undershoot, merge ----

// One direction of the control; magnitudes in eighths of a code, seen in the direction of the delta.
Lines limited_delta_reasons(const Pixel& p) {
    const int64_t delta = p.plane("total_delta"), luma = p.plane(p.luma());
    const bool over = delta >= 0;
    const std::string side = over ? "oshtthrd" : "ushtthrd", word = over ? "overshoot" : "undershoot";
    const int64_t extreme = p.plane(over ? "local_max" : "local_min");
    const int64_t room = ((over ? extreme - luma : luma - extreme) + p.reg("reg_ee_total_" + side)) * 8;
    const int64_t size = std::abs(delta), excess = std::max<int64_t>(size - room, 0);
    const int64_t gain = p.reg(over ? "reg_ee_shtctrl_oshtgain" : "reg_ee_shtctrl_ushtgain");
    // The older block divides the excess of undershoot towards minus infinity.
    const int64_t product = gain * excess;
    const int64_t passed = !p.classic ? (product + 8) / 16 : over ? product >> 4 : -(-product >> 4);
    const int64_t again = !p.classic && p.reg("reg_ee_shoot_mode") == 1 ? size : 0;
    const int64_t free = std::min(room, size) + passed + 4 + again;
    const int64_t most = over ? 2047 : 2048;
    const int64_t clip = room + int64_t{p.reg("reg_ee_total_" + side + "_clp")} * 8;
    const int64_t limit = std::min(clip, most);
    Lines lines;
    lines.push_back("room for " + word + ": " + codes(room) + " codes (" +
                    (over ? "local_max " : "local_min ") + str(extreme) + ", " + p.luma() + " " + str(luma) +
                    ", reg_ee_total_" + side + " " + str(p.reg("reg_ee_total_" + side)) + ")");
    if (excess > 0) {
        lines.push_back("limiter: " + word + " threshold; of an excess of " + codes(excess) + " codes " +
                        str(gain) + "/16 pass, cut by " + codes(excess - passed));
    }
    if (again > 0) {
        lines.push_back("the delta once more: reg_ee_shoot_mode = 1");
    }
    if (free > limit && free / 8 != limit / 8) {
        lines.push_back(
            "limiter: " + (clip < most ? word + " clip, reg_ee_total_" + side + "_clp" : "range") +
            "; cut by " + str(free / 8 - limit / 8));
    }
    if (lines.size() == 1 || (lines.size() == 2 && again > 0)) {
        lines.push_back("limiter: none");
    }
    return lines;
}

Lines sharpened_reasons(const Pixel& p) {
    const int64_t source = p.plane("ynr"), sum = source + p.plane("limited_delta");
    const bool soft = p.reg("reg_ee_soft_clamp_enable") == 1;
    const int64_t left = p.reg("reg_ee_upper_bound_left_diff"),
                  right = p.reg("reg_ee_lower_bound_right_diff");
    const int64_t upper = soft ? (source * left + (255 - left) * 256 + 128) >> 8 : 255;
    const int64_t lower = soft ? (source * right + 128) >> 8 : 0;
    const std::string bound = soft ? "soft clamp, " : "clamp, ";
    if (sum > upper) {
        return {"limiter: " + bound + "cut by " + str(sum - upper) + " to " + str(upper)};
    }
    if (sum < lower) {
        return {"limiter: " + bound + "raised by " + str(lower - sum) + " to " + str(lower)};
    }
    return {"limiter: none"};
}

Lines clean_y_reasons(const Pixel& p) {
    const int64_t cut = int64_t{p.plane("y")} - p.plane("clean_y");
    return {p.reg("reg_ee_pre_proc_enable") != 1 ? "as it is: reg_ee_pre_proc_enable = 0"
            : cut == 0                           ? "no spike"
                                                 : "spike, cut by " + str(cut)};
}

}  // namespace

std::vector<std::string> reasons_of(const std::string& stage, const Pixel& pixel) {
    static constexpr struct {
        const char* stage;
        Lines (*reasons)(const Pixel&);
    } kReasons[] = {
        {"clean_y", clean_y_reasons},
        {"mf_texture", [](const Pixel& p) { return texture_reasons(p, "mf"); }},
        {"hf_texture", [](const Pixel& p) { return texture_reasons(p, "hf"); }},
        {"mf_delta", [](const Pixel& p) { return delta_reasons(p, "mf"); }},
        {"hf_delta", [](const Pixel& p) { return delta_reasons(p, "hf"); }},
        {"coring_level", coring_level_reasons},
        {"cored_delta", cored_delta_reasons},
        {"delta_gain",
         [](const Pixel& p) {
             return table_reasons(p, "reg_ee_delta_adptctrl_en", "reg_ee_delta_adptctrl_lut", "local_range");
         }},
        {"luma_gain",
         [](const Pixel& p) {
             return table_reasons(p, "reg_ee_luma_adptctrl_en", "reg_ee_luma_adptctrl_lut", brightness(p));
         }},
        {"chroma_gain", chroma_gain_reasons},
        {"motion_gain",
         [](const Pixel& p) {
             return Lines{"mmap " + str(p.plane("mmap")) + " on " +
                          curve_place(p, "reg_ee_motion_lut", p.plane("mmap"))};
         }},
        {"total_gain", total_gain_reasons},
        {"total_delta", total_delta_reasons},
        {"limited_delta", limited_delta_reasons},
        {"sharpened", sharpened_reasons},
    };
    const auto* const it = std::find_if(std::begin(kReasons), std::end(kReasons),
                                        [&](const auto& row) { return row.stage == stage; });
    return it != std::end(kReasons) ? it->reasons(pixel) : Lines{};
}

}  // namespace cm
