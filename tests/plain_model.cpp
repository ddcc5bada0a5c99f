#include "plain_model.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace plain {
namespace {

// ---- Arithmetic: operands are 32-bit values held in 64 bits, fold() brings a result back ----------

I fold(I v) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}
I magnitude(I v) {
    return fold(v < 0 ? -v : v);
}
I with_sign_of(I s, I m) {
    return fold(s < 0 ? -m : m);
}
I power_of_two(int e) {
    return fold(I{1} << (e & 31));
}
I clip(I v, I lo, I hi) {
    return std::min(std::max(v, lo), hi);
}

// |v| >> shift, at most `limit`, with v's sign again.
I shift_magnitude(I v, int shift, I limit) {
    return with_sign_of(v, std::min(magnitude(v) >> shift, limit));
}

I mirror(I i, I n) {
    if (n == 1) return 0;
    while (i < 0 || i >= n) i = i < 0 ? -i : 2 * (n - 1) - i;
    return i;
}

template <class F>
Plane per_pixel(const Plane& size, int depth, F&& value) {
    Plane out(size.width, size.height, 1, depth);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) out.set(x, y, value(x, y));
    return out;
}

I kernel_sum(const Plane& in, int x, int y, const int* kernel, int reach) {
    I sum = 0;
    for (int dy = -reach; dy <= reach; ++dy)
        for (int dx = -reach; dx <= reach; ++dx) sum += *kernel++ * in(x + dx, y + dy);
    return fold(sum);
}

const int kMf5[25] = {-16, -32, -32, -32, -16, -32, 0,   64,  0,   -32, -32, 64, 192,
                      64,  -32, -32, 0,   64,  0,   -32, -16, -32, -32, -32, -16};
const int kHf5[25] = {0, -4,  -20, -4,  0, -4,  -36, 9, -36, -4,  -20, 9, 220,
                      9, -20, -4,  -36, 9, -36, -4,  0, -4,  -20, -4,  0};
const int kMf7[49] = {-1, -4, -7,  -8,  -7, -4,  -1,  -4, -12, -12, -8, -12, -12, -4, -7, -12, 15,
                      40, 15, -12, -7,  -8, -8,  40,  80, 40,  -8,  -8, -7,  -12, 15, 40, 15,  -12,
                      -7, -4, -12, -12, -8, -12, -12, -4, -1,  -4,  -7, -8,  -7,  -4, -1};
const int kLuma3[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
const int kChroma5[5] = {1, 4, 6, 4, 1};

// 33 knots, 8 codes apart; 4 times the table. A circular table has 32 knots.
I interpolate33(const std::vector<I>& lut, I v, bool circular) {
    const I i = (v >> 3) & 31, f = v & 7;
    I j = clip(i + 1, 1, 32);
    if (circular && j == 32) j = 0;
    return (lut[j] * f + lut[i] * (8 - f) + 1) >> 1;
}

}  // namespace

I hue_of(I a, I b) {
    if (a == 0 && b == 0) return 0;
    if (b == 0) return a < 1 ? 128 : 0;
    if (a == 0) return b < 1 ? 192 : 64;
    const bool differ = (a < 0) != (b < 0);
    const I quadrant = differ ? (a < 0 ? 64 : 192) : (a < 0 ? 128 : 0);
    I x = magnitude(differ ? b : a), y = magnitude(differ ? a : b), acc = 0, step = 64;
    const I rotate[7] = {64, 32, 16, 8, 4, 2, 1}, scale[7] = {64, 77, 80, 81, 81, 81, 81};
    for (int k = 0; k < 7; ++k) {
        const I s = y < 0 ? rotate[k] : -rotate[k];
        acc += y < 0 ? -step : step;
        const I x1 = fold(scale[k] * x - s * y + 32) >> 6;
        y = fold(s * x + scale[k] * y + 32) >> 6;
        x = x1;
        step >>= 1;
    }
    return (((acc + 1) >> 1) + quadrant) & 255;
}

I length_of(I a, I b) {
    const I lo = std::min(magnitude(a), magnitude(b)), hi = std::max(magnitude(a), magnitude(b));
    return std::max(fold(lo * 24 + hi * 127 + 64) >> 7, fold(lo * 71 + hi * 108 + 64) >> 7);
}

namespace {

Plane sign_image(const Plane& v) {
    Plane out(v.width, v.height, 3, 8);
    for (int y = 0; y < v.height; ++y)
        for (int x = 0; x < v.width; ++x) {
            const I t = v(x, y), m = std::min<I>(magnitude(t), 255);
            out.set3(x, y, t >= 0 ? m : 0, t < 0 ? m : 0, 0);
        }
    return out;
}

}  // namespace

Plane take_channel(const Plane& in, int c) {
    return per_pixel(in, in.depth, [&](int x, int y) { return in(x, y, c); });
}

Plane rgb_to_ycbcr(const Plane& rgb) {
    Plane out(rgb.width, rgb.height, 3, rgb.depth);
    const I half = power_of_two(rgb.depth - 1), max = fold(power_of_two(rgb.depth) - 1);
    const auto chroma = [&](I c) {
        const I m = fold(magnitude(c) + 128) >> 8;
        return clip(fold(c < 0 ? half - m : half + m), 0, max);
    };
    for (int y = 0; y < rgb.height; ++y)
        for (int x = 0; x < rgb.width; ++x) {
            const I r = rgb(x, y, 0), g = rgb(x, y, 1), b = rgb(x, y, 2);
            out.set3(x, y, clip(fold(77 * r + 150 * g + 29 * b + 128) >> 8, 0, max),
                     chroma(fold(131 * b - 44 * r - 87 * g)), chroma(fold(131 * r - 110 * g - 21 * b)));
        }
    return out;
}

namespace {

// ---- Text and files -----------------------------------------------------------------------------

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    char text[4096];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    return text;
}

int to_int(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

std::string image_bytes(const Plane& f, bool colour) {
    std::string out =
        format("P%d\n# Created by KORVEN DPU Model\n%d %d\n", colour ? 6 : 5, f.width, f.height);
    if (colour)
        out += format("%d\n", static_cast<int>(fold(power_of_two(f.depth) - 1)));
    else
        out += format("%u\n", f.depth < 32 ? (1u << f.depth) - 1 : 4294967295u);
    for (int y = 0; y < f.height; ++y)
        for (int x = 0; x < f.width; ++x)
            for (int c = 0; c < (colour ? 3 : 1); ++c) {
                const I v = f(x, y, f.channels == 3 ? c : 0);
                for (int shift = (std::clamp(f.depth, 1, 32) - 1) / 8 * 8; shift >= 0; shift -= 8)
                    out += static_cast<char>(static_cast<uint8_t>(v >> shift));
            }
    return out;
}

// A decimal number as scanf's %d takes it, at pos; false when there is none or it is out of range.
bool scan_number(const std::string& s, size_t& pos, I low, I high, I& value) {
    while (pos < s.size() && std::isspace(static_cast<unsigned char>(s[pos]))) ++pos;
    bool minus = false, any = false;
    if (pos < s.size() && (s[pos] == '-' || s[pos] == '+')) minus = s[pos++] == '-';
    for (value = 0; pos < s.size() && s[pos] >= '0' && s[pos] <= '9'; ++pos, any = true)
        value = std::min<I>(value * 10 + (s[pos] - '0'), I{1} << 40);
    if (minus) value = -value;
    return any && value >= low && value <= high;
}

// First of `stops`, or of ";" after a blank, or the end.
size_t find_stop(const std::string& s, size_t pos, const char* stops) {
    for (bool blank = false; pos < s.size(); ++pos) {
        if (std::strchr(stops, s[pos]) || (blank && s[pos] == ';')) break;
        blank = std::isspace(static_cast<unsigned char>(s[pos]));
    }
    return pos;
}

std::string trim(const std::string& s) {
    const char* const blanks = " \t\n\v\f\r";
    const size_t first = s.find_first_not_of(blanks);
    return first == std::string::npos ? "" : s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

}  // namespace

I Plane::operator()(I x, I y, int c) const {
    return data[static_cast<size_t>(channels * (mirror(y, height) * width + mirror(x, width)) + c)];
}

void Plane::set(I x, I y, I value, int c) {
    data[static_cast<size_t>(channels * (mirror(y, height) * width + mirror(x, width)) + c)] =
        static_cast<int32_t>(fold(value));
}

// ---- Registers ----------------------------------------------------------------------------------

Model::Model(const std::string& instance) {
    const auto add = [this](const std::string& key, int width, I value, bool is_signed = false) {
        const int n = static_cast<int>(registers.size());
        const int early[] = {10, 11, 17, 19, 20, 21, 22, 23, 25, 26, 27, 28, 30, 31};
        registers.push_back({key, width, is_signed, value, n < 14 ? early[n] : n + 22, false});
    };
    const auto add_all = [&](const char* list) {  // "key:width:default ..."
        char key[64];
        int width, value, used;
        for (; std::sscanf(list, " %63[^:]:%d:%d%n", key, &width, &value, &used) == 3; list += used)
            add(std::string("reg_") + key, width, value);
    };
    const auto add_curve = [&](const std::string& key, std::vector<int> v) {
        for (int k = 0; k < 11; ++k) {
            const char* const part = k < 4 ? "in" : k < 8 ? "out" : "slope";
            add(format("reg_ee_%s_lut_%s_%d", key.c_str(), part, k % 4), k < 8 ? 8 : 12, v[k], k >= 8);
        }
    };
    const auto add_table = [&](const std::string& key, std::vector<int> v) {
        v.resize(33, 16);
        for (int k = 0; k < 33; ++k) add(format("reg_ee_%s_adptctrl_lut_%02d", key.c_str(), k), 6, v[k]);
    };
    add_all(
        "ee_enable:1:1 ee_debug_mode:4:0 ee_texture_mode:1:1 ee_dark_luma_thr:20:0 ee_bright_luma_thr:20:0 "
        "ee_dark_edge_region:2:2 ee_bright_edge_region:2:2 ee_line_length:2:2 ee_dark_edge_thr:20:0 "
        "ee_dark_edge_strength:20:0 ee_bright_edge_thr:20:0 ee_bright_edge_strength:20:0 ee_line_thr:20:0 "
        "ee_line_strength:20:0 ee_shoot_mode:1:0 ee_total_coring:8:1 ee_total_motion_coring:8:8 "
        "ee_total_gain:8:32 ee_total_oshtthrd:8:32 ee_total_ushtthrd:8:32 ee_debug_shift_bit:3:0 "
        "ee_pre_proc_enable:1:1 ee_lumaref_lpf_en:1:1 ee_luma_coring_en:1:0 ee_luma_adptctrl_en:1:1 "
        "ee_delta_adptctrl_en:1:1 ee_delta_adptctrl_shift:2:1 ee_chromaref_lpf_en:1:1 "
        "ee_chroma_adptctrl_en:1:1 ee_mf_core_gain:8:128 hf_blend_wgt:8:128 mf_blend_wgt:8:128");
    add_curve("luma_coring", {0, 64, 128, 192, 1, 1, 1, 1, 0, 0, 0});
    add_curve("motion_coring", {0, 64, 128, 192, 8, 8, 8, 8, 0, 0, 0});
    add_curve("mcore_gain", {0, 64, 128, 255, 0, 32, 64, 128, 8, 8, 8});
    add_table("luma", {});
    add_table("delta",
              {60, 56, 52, 48, 44, 40, 38, 36, 34, 32, 30, 28, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17});
    add_table("chroma", {16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                         16, 16, 16, 20, 24, 28, 30, 32, 30, 28, 24, 20});
    add_curve("chroma_amp", {0, 8, 16, 192, 0, 0, 128, 128, 0, 256, 0});
    add_all(
        "ee_shtctrl_oshtgain:6:4 ee_shtctrl_ushtgain:6:4 ee_total_oshtthrd_clp:8:255 "
        "ee_total_ushtthrd_clp:8:255");
    add_curve("motion", {0, 64, 128, 192, 128, 128, 128, 128, 0, 0, 0});
    add_all("ee_soft_clamp_enable:1:0 ee_upper_bound_left_diff:8:5 ee_lower_bound_right_diff:8:5");

    const std::string suffix = instance == "NULL" ? "" : instance;
    log.push_back({1, "ee_reg", 107, "[INIT] Init ee Reg configurations..."});
    name = ("ee" + suffix).substr(0, 31);
    sw_name = ("ee_sw" + suffix).substr(0, 31);
    log.push_back({1, "ee_reg", 110, "[INIT] Init ee Reg Done...."});
}

I Model::reg(const std::string& key) const {
    for (const Register& r : registers)
        if (r.key == "reg_" + key) return r.value;
    std::abort();
}

void Model::assign(const std::string& section, const std::string& key, const std::string& value) {
    if (section != name) return;
    for (Register& r : registers)
        if (r.key == key) {
            const I field = I{1} << r.width;
            r.value = to_int(value) & (field - 1);
            if (r.is_signed && r.value >= field / 2) r.value -= field;
            r.set = true;
        }
}

void Model::load(const std::string& path) {
    log.push_back({1, "ee_reg", 47, "[LOAD] Load ee INI configurations..."});
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        log.push_back({1, "ee_reg", 49, "Can't handle ee_reg."});
        return;
    }
    std::string section, key, raw;
    for (bool first = true; std::getline(in, raw); first = false) {
        if (first && raw.compare(0, 3, "\xef\xbb\xbf") == 0) raw.erase(0, 3);
        const std::string s = trim(raw);
        if (s.empty() || s[0] == ';' || s[0] == '#') continue;
        if (!key.empty() && s[0] != raw[0]) {  // indented below a key: one more value of it
            assign(section, key, s);
        } else if (s[0] == '[') {
            const size_t end = find_stop(s, 1, "]");
            if (end < s.size() && s[end] == ']') section = s.substr(1, end - 1), key.clear();
        } else {
            const size_t end = find_stop(s, 0, "=:");
            if (end == s.size() || s[end] == ';') continue;
            key = trim(s.substr(0, end));
            assign(section, key, s.substr(end + 1, find_stop(s, end + 1, "") - end - 1));
        }
    }
    log.push_back({1, "ee_reg", 52, "[LOAD] Load ee Done..."});
    for (const Register& r : registers)
        if (!r.set)
            log.push_back({4, "ee_reg_hw_def", r.line,
                           format("[REG] %s.hw.%s is not set in .ini file", name.c_str(), r.key.c_str())});
}

void Model::print() {
    log.push_back({1, "ee_reg", 95, "[PRINT] Print ee Reg configurations ..."});
    log.push_back({1, "ee_reg_hw_def", 8, "[" + name + "]"});
    for (const Register& r : registers)
        log.push_back({1, "ee_reg_hw_def", r.line,
                       format("%s.hw.%s = %ld", name.c_str(), r.key.c_str(), static_cast<long>(r.value))});
    log.push_back({1, "ee_reg_sw_def", 8, "[" + sw_name + "]"});
    log.push_back({1, "ee_reg", 98, "[PRINT] Print ee Reg Done...."});
}

// ---- Blocks -------------------------------------------------------------------------------------

I Curve::operator()(I x) const {
    if (x <= in[0]) return out[0];
    if (x > in[3]) return out[3];
    int i = 0;
    while (in[i] < x) ++i;
    const int j = i - 1;
    const I y = fold((fold(slope[j] * fold(x - in[j])) >> 4) + out[j]);
    return clip(y, std::min(out[j], out[i]), std::max(out[j], out[i]));
}

namespace {

Curve curve(Model& m, const std::string& prefix) {
    const auto value = [&](const char* part, int k) {
        return static_cast<int>(m.reg(format("ee_%s_lut_%s_%d", prefix.c_str(), part, k)));
    };
    Curve c{};
    for (int k = 0; k < 4; ++k) {
        c.in[k] = value("in", k);
        c.out[k] = value("out", k);
        if (k < 3) c.slope[k] = value("slope", k);
    }
    return c;
}

std::vector<I> table(Model& m, const std::string& prefix) {
    std::vector<I> lut;
    for (int k = 0; k < 33; ++k) lut.push_back(m.reg(format("ee_%s_adptctrl_lut_%02d", prefix.c_str(), k)));
    return lut;
}

void save(Model& m, const std::string& file, const Plane& image, bool colour) {
    if (m.dump) m.files[(m.dbg + "/" + file).substr(0, 1023)] = image_bytes(image, colour);
}

}  // namespace

void extremes(const Plane& in, int reach, Plane& max, Plane& min) {
    max = min = Plane(in.width, in.height, 1, 8);
    for (int y = 0; y <= in.height; ++y)
        for (int x = 0; x < in.width; ++x) {
            I hi = 0, lo = 255;
            for (int dy = -reach; dy <= reach; ++dy)
                for (int dx = -reach; dx <= reach; ++dx) {
                    hi = std::max(hi, in(x + dx, y + dy));
                    lo = std::min(lo, in(x + dx, y + dy));
                }
            max.set(x, y, hi);
            min.set(x, y, lo);
        }
}

Plane delta_ref(Model& m, const Plane& max, const Plane& min) {
    Plane range = per_pixel(max, 8, [&](int x, int y) {
        const I d = fold(max(x, y) - min(x, y));
        if (d < 0) m.log.push_back({4, "ee_hw", 214, "[EE_CalcDeltaRef Error]: max_sad < 0"});
        return d;
    });
    save(m, "dbg_max_sad_8b.ppm", range, false);
    return range;
}

Plane low_pass(const Plane& y, const Plane& cb, const Plane& cr) {
    Plane out(y.width, y.height, 3, 8);
    const auto chroma = [](const Plane& c, int px, int py) {
        I s = 0;
        for (int dx = -2; dx <= 2; ++dx) s += kChroma5[dx + 2] * c(px + dx, py);
        const I d = fold(s - 2048), m = magnitude(d) >> 4;
        return (d > 0 ? m : -m) + 128;
    };
    for (int py = 0; py < y.height; ++py)
        for (int px = 0; px < y.width; ++px)
            out.set3(px, py, kernel_sum(y, px, py, kLuma3, 1) >> 4, chroma(cb, px, py), chroma(cr, px, py));
    return out;
}

void pre_delta(Model& m, const Plane& in, Plane& mf, Plane& hf, const std::string& tag) {
    const int shift = in.depth == 8 ? 6 : 9;
    const bool on = m.reg("ee_enable") == 1;
    Plane over[2] = {Plane(in.width, in.height, 1, 8), Plane(in.width, in.height, 1, 8)};
    const auto band = [&](const int* kernel, Plane& overflow) {
        return per_pixel(in, 11, [&](int x, int y) {
            const I s = on ? kernel_sum(in, x, y, kernel, 2) : 0;
            if (magnitude(s) >> shift > 2047) overflow.set(x, y, 255);
            return shift_magnitude(s, shift, 2047);
        });
    };
    mf = band(kMf5, over[0]);
    hf = band(kHf5, over[1]);
    const auto gray = [&](const Plane& test) {
        return per_pixel(
            in, 8, [&](int x, int y) { return test(x, y) != 0 ? std::min<I>(magnitude(hf(x, y)), 255) : 0; });
    };
    const std::string prefix = tag == "Yin" ? "y" : "yfusion";
    m.stages[prefix + "_mf"] = mf, m.stages[prefix + "_mf_over"] = over[0];
    m.stages[prefix + "_hf"] = hf, m.stages[prefix + "_hf_over"] = over[1];
    save(m, tag + "_dbg_delta_MF_8b.ppm", sign_image(mf), true);
    save(m, tag + "_dbg_delta_HF_8b.ppm", sign_image(hf), true);
    save(m, tag + "_dbg_delta_MF_8b_gray.ppm", gray(mf), true);
    save(m, tag + "_dbg_delta_HF_8b_gray.ppm", gray(hf), true);
    save(m, tag + "_dbg_delta_MF_over_8b.ppm", over[0], true);
    save(m, tag + "_dbg_delta_HF_8b_gray.ppm", over[1], true);
}

Plane flat_det(Model& m, const Plane& in, const Plane& fusion, const Plane& delta_in,
               const Plane& delta_fusion, const std::string& tag) {
    const I dark_thr = m.reg("ee_dark_luma_thr"), bright_thr = m.reg("ee_bright_luma_thr");
    const I dark_edge = m.reg("ee_dark_edge_thr"), dark_gain = m.reg("ee_dark_edge_strength");
    const I bright_edge = m.reg("ee_bright_edge_thr"), bright_gain = m.reg("ee_bright_edge_strength");
    const I line_thr = m.reg("ee_line_thr"), line_gain = m.reg("ee_line_strength"),
            length = m.reg("ee_line_length");
    const I dark_reach = m.reg("ee_dark_edge_region"), bright_reach = m.reg("ee_bright_edge_region");
    const auto scale = [](I gain, I v) {
        return with_sign_of(v, std::min<I>((gain * std::abs(v)) >> 10, 2047));
    };
    const auto window = [](const Plane& p, int x, int y, I reach) {
        I sum = 0;
        for (I dy = -reach; dy <= reach; ++dy)
            for (I dx = -reach; dx <= reach; ++dx) sum += std::abs(p(x + dx, y + dy));
        return sum;
    };
    // A run of taps through (x, y), turned so that the centre counts as positive.
    const auto is_line = [&](int x, int y, int step_x, int step_y, I turn) {
        I sum = 0, peak = 0;
        for (I k = -length; k <= length; ++k) {
            const I tap = turn * delta_fusion(x + k * step_x, y + k * step_y);
            sum += tap;
            peak = std::max(peak, tap);
        }
        return sum > (line_thr * (2 * length + 1) * peak) >> 10;
    };
    Plane map(in.width, in.height, 3, 8);
    Plane out = per_pixel(in, 11, [&](int x, int y) {
        const I luma = fusion(x, y), di = delta_in(x, y), df = delta_fusion(x, y);
        if (luma < dark_thr) {
            const I a = window(delta_fusion, x, y, dark_reach), b = window(fusion, x, y, dark_reach);
            const bool edge = (dark_edge * b) >> 10 < a;
            if (edge) map.set3(x, y, 255, 255, 0);
            return scale(dark_gain, edge ? di : df);
        }
        if (luma < bright_thr) {
            map.set(x, y, 255);
            return df;
        }
        const I turn = df < 0 ? -1 : 1;
        if (df != 0 && (is_line(x, y, 0, 1, turn) || is_line(x, y, 1, 0, turn))) {
            map.set3(x, y, 255, 0, 255);
            return scale(line_gain, df);
        }
        const bool edge =
            (bright_edge * window(in, x, y, bright_reach)) >> 10 < window(delta_in, x, y, bright_reach);
        map.set3(x, y, edge ? 0 : 255, 255, 255);
        return edge ? scale(bright_gain, df) : di;
    });
    const int class_of_colour[8] = {0, -1, -1, 4, 2, 3, 1, 5};  // by red, green, blue
    m.stages[tag == "MF" ? "mf_texture" : "hf_texture"] = per_pixel(in, 3, [&](int x, int y) {
        return class_of_colour[(map(x, y) & 4) + (map(x, y, 1) & 2) + (map(x, y, 2) & 1)];
    });
    save(m, tag + "_dbg_delta_8b_FlatDet.ppm", map, true);
    return out;
}

void classic_delta(Model& m, const Plane& in, Plane& mf, Plane& hf) {
    const I on = m.reg("ee_enable");
    const auto band = [&](const int* kernel, int reach) {
        return per_pixel(in, 11, [&](int x, int y) {
            return on == 1 ? shift_magnitude(kernel_sum(in, x, y, kernel, reach), 6, 2047) : 0;
        });
    };
    mf = band(kMf7, 3);
    hf = band(kHf5, 2);
    save(m, "dbg_delta_MF_8b.ppm", sign_image(mf), true);
    save(m, "dbg_delta_HF_8b.ppm", sign_image(hf), true);
}

Plane pre_process(Model& m, const Plane& in) {
    const bool enable = m.reg("ee_pre_proc_enable") == 1;
    Plane out = per_pixel(in, 8, [&](int x, int y) {
        I hi = INT32_MIN, lo = INT32_MAX;
        for (int k = 0; k < 9; ++k) {
            if (k == 4) continue;
            hi = std::max(hi, in(x + k % 3 - 1, y + k / 3 - 1));
            lo = std::min(lo, in(x + k % 3 - 1, y + k / 3 - 1));
        }
        return enable ? clip(in(x, y), lo, hi) : in(x, y);
    });
    save(m, "dbg_pre_proc_in_8b.ppm", in, false);
    save(m, "dbg_pre_proc_out_8b.ppm", out, false);
    return out;
}

Plane calc_core(Model& m, const Plane& y, const Plane& ref, const Plane& motion) {
    if (y.depth > 12)
        m.log.push_back(
            {4, "ee_hw", 307,
             "[EE_CalcCore]: depth > 12 and would cause error in the following shift operations\n"});
    const bool smooth = m.reg("ee_lumaref_lpf_en") == 1, curves = m.reg("ee_luma_coring_en") == 1;
    const Curve still_curve = curve(m, "luma_coring"), motion_curve = curve(m, "motion_coring");
    const Curve weight = curve(m, "mcore_gain");
    const I still = m.reg("ee_total_coring"), moving = m.reg("ee_total_motion_coring"),
            on = m.reg("ee_enable");
    return per_pixel(y, 11, [&](int px, int py) {
        const I level = smooth ? ref(px, py) : y(px, py), w = weight(on * motion(px, py));
        const I cs = curves ? still_curve(level) : still, cm = curves ? motion_curve(level) : moving;
        return fold((128 - w) * cs + w * cm) >> ((15 - y.depth) & 31);
    });
}

Plane coring(Model& m, const Plane& mf, const Plane& hf, const Plane& core) {
    const I gain = m.reg("ee_mf_core_gain"), mf_weight = m.reg("mf_blend_wgt"),
            hf_weight = m.reg("hf_blend_wgt");
    const auto cored = [](I v, I level) {
        return with_sign_of(v, std::max<I>(fold(magnitude(v) - level), 0));
    };
    Plane out = per_pixel(mf, 11, [&](int x, int y) {
        const I c = core(x, y);
        const I a = cored(mf(x, y), fold(c * gain) >> 7), b = cored(hf(x, y), c);
        return shift_magnitude(fold(a * mf_weight + b * hf_weight), 8, 2047);
    });
    save(m, "dbg_delta_core_8b.ppm", sign_image(out), true);
    return out;
}

Plane delta_gain(Model& m, const Plane& range) {
    const bool enable = m.reg("ee_delta_adptctrl_en") == 1;
    const std::vector<I> lut = table(m, "delta");
    Plane out = per_pixel(range, 8, [&](int x, int y) {
        return std::min<I>(enable ? interpolate33(lut, range(x, y), false) : 64, 255);
    });
    save(m, "dbg_delta_gain_8b.ppm", out, false);
    for (int bin = 0; m.dump && bin < 256; ++bin) {
        int count = 0;
        per_pixel(range, 8, [&](int x, int y) { return count += range(x, y) == bin; });
        m.log.push_back({1, "ee_hw", 402, format("delta_hist[%03d] = %d", bin, count)});
    }
    return out;
}

Plane luma_gain(Model& m, const Plane& y, const Plane& ref) {
    const bool smooth = m.reg("ee_lumaref_lpf_en") == 1, enable = m.reg("ee_luma_adptctrl_en") == 1;
    const std::vector<I> lut = table(m, "luma");
    const I on = m.reg("ee_enable");
    return per_pixel(y, 8, [&](int px, int py) {
        return enable ? interpolate33(lut, on * (smooth ? ref(px, py) : y(px, py)), false) : 64;
    });
}

Plane chroma_gain(Model& m, const Plane& cb, const Plane& cr, const Plane& ref) {
    const bool smooth = m.reg("ee_chromaref_lpf_en") == 1, enable = m.reg("ee_chroma_adptctrl_en") == 1;
    const std::vector<I> lut = table(m, "chroma");
    const Curve amplitude = curve(m, "chroma_amp");
    if (*std::max_element(amplitude.out, amplitude.out + 4) > 128)
        m.log.push_back({4, "ee_hw", 561, "reg_ee_chroma_amp_lut_out is greater than 128\n"});
    const bool on = m.reg("ee_enable") == 1;
    Plane out = per_pixel(cb, 8, [&](int x, int y) {
        const I b = on ? fold((smooth ? ref(x, y, 1) : cb(x, y)) - 128) : 128;
        const I r = on ? fold((smooth ? ref(x, y, 2) : cr(x, y)) - 128) : 128;
        const I w = amplitude(clip(length_of(b, r), 0, 255));
        const I h = enable ? interpolate33(lut, hue_of(b, r), true) : 64;
        return ((128 - w) * 64 + w * h) >> 7;
    });
    save(m, "dbg_adptgain_chromawgt_8b.ppm", out, true);
    return out;
}

Plane motion_gain(Model& m, const Plane& motion) {
    const Curve gain = curve(m, "motion");
    if (*std::max_element(gain.out, gain.out + 4) > 128)
        m.log.push_back({4, "ee_hw", 603, "reg_ee_motion_lut_out is greater than 128\n"});
    const I on = m.reg("ee_enable");
    return per_pixel(motion, 8, [&](int x, int y) { return gain(on * motion(x, y)); });
}

Plane total_gain(Model& m, const Plane& delta, const Plane& luma, const Plane& chroma, const Plane& motion) {
    const I strength = m.reg("ee_total_gain");
    return per_pixel(delta, 12, [&](int x, int y) {
        const I a = fold(motion(x, y) * strength) >> 6, b = fold(luma(x, y) * chroma(x, y)) >> 6;
        return std::min<I>(fold(fold(a * b) * delta(x, y)) >> 10, 4095);
    });
}

Plane total_delta(Model& m, const Plane& delta, const Plane& gain) {
    Plane out = per_pixel(delta, 11, [&](int x, int y) {
        const I d = delta(x, y);
        return with_sign_of(d, std::min<I>(fold(magnitude(d) * gain(x, y)) >> 8, 2047));
    });
    save(m, "dbg_delta_total_8b.ppm", sign_image(out), true);
    return out;
}

Plane shoot(Model& m, const Plane& delta, const Plane& y, const Plane& max, const Plane& min, bool pro) {
    const I over = m.reg("ee_total_oshtthrd"), under = m.reg("ee_total_ushtthrd");
    const I over_gain = m.reg("ee_shtctrl_oshtgain"), under_gain = m.reg("ee_shtctrl_ushtgain");
    const I over_clip = m.reg("ee_total_oshtthrd_clp"), under_clip = m.reg("ee_total_ushtthrd_clp");
    const I twice = pro ? m.reg("ee_shoot_mode") : 0, on = m.reg("ee_enable");
    m.log.push_back({2, "ee_hw", pro ? 688 : 745,
                     pro ? format("EE_IOShootPro: reg_ee_shoot_mode = %d", static_cast<int>(twice))
                         : "EE_IOShoot=============================="});
    Plane out = per_pixel(delta, 8, [&](int px, int py) {
        const I d = on * delta(px, py), luma = on * y(px, py);
        const I up = fold((over + (on * max(px, py) - luma)) * 8),
                dn = fold((on * min(px, py) - luma - under) * 8);
        I excess, base;
        if (d >= 0) {
            excess = std::max<I>(fold(d - up), 0);
            base = std::min(up, d);
            excess = pro ? fold(over_gain * excess + 8) / 16 + 4 : (fold(over_gain * excess) >> 4) + 4;
        } else {
            excess = std::min<I>(fold(d - dn), 0);
            base = std::max(dn, d);
            excess = pro ? fold(under_gain * excess - 8) / 16 - 4 : (fold(under_gain * excess) >> 4) - 4;
        }
        const I hi = std::min<I>(fold(up + over_clip * 8), 2047);
        const I lo = std::max<I>(fold(dn - under_clip * 8), -2048);
        const I r = clip(fold(base + excess + twice * d), lo, hi);
        return r > 0 ? magnitude(r) / 8 : -(magnitude(r) / 8);
    });
    save(m, "dbg_delta_iosht_8b.ppm", sign_image(out), true);
    return out;
}

Plane merge(Model& m, const Plane& delta, const Plane& src) {
    const bool soft = m.reg("ee_soft_clamp_enable") == 1;
    const I u = m.reg("ee_upper_bound_left_diff"), l = m.reg("ee_lower_bound_right_diff");
    return per_pixel(delta, 8, [&](int x, int y) {
        const I s = src(x, y);
        const I upper = soft ? fold(u * s + ((255 - u) << 8) + 128) >> 8 : 255;
        const I lower = soft ? fold(s * l + 128) >> 8 : 0;
        return clip(fold(s + delta(x, y)), lower, upper);
    });
}

namespace {

struct Chain {
    Plane cb, cr, max, min, range, ref, mf, hf, core, cored;
    Plane delta, luma, chroma, motion, total, total_delta, clamped;
};

// The blocks that both pipelines have in common, from the chroma planes to the local range, and from
// the coring level to the output: the merged luma, or a debug view of one intermediate.
void begin(Model& m, Chain& c, const Plane& y, const Plane& cb, const Plane& cr) {
    c.cb = per_pixel(y, 8, [&](int px, int py) { return cb(px >> 1, py); });
    c.cr = per_pixel(y, 8, [&](int px, int py) { return cr(px >> 1, py); });
    extremes(y, 2, c.max, c.min);
    c.range = delta_ref(m, c.max, c.min);
    c.ref = low_pass(y, c.cb, c.cr);
}

Plane finish(Model& m, Chain& c, const Plane& y, const Plane& src, const Plane& motion, int channels,
             bool pro) {
    c.core = calc_core(m, y, c.ref, motion);
    c.cored = coring(m, c.mf, c.hf, c.core);
    c.delta = delta_gain(m, c.range);
    c.luma = luma_gain(m, y, c.ref);
    c.chroma = chroma_gain(m, c.cb, c.cr, c.ref);
    c.motion = motion_gain(m, motion);
    c.total = total_gain(m, c.delta, c.luma, c.chroma, c.motion);
    c.total_delta = total_delta(m, c.cored, c.total);
    c.clamped = shoot(m, c.total_delta, y, c.max, c.min, pro);
    const Plane merged = merge(m, c.clamped, src);
    m.stages.insert({{"cb_full", c.cb},
                     {"cr_full", c.cr},
                     {"local_max", c.max},
                     {"local_min", c.min},
                     {"local_range", c.range},
                     {"lpf_y", take_channel(c.ref, 0)},
                     {"lpf_cb", take_channel(c.ref, 1)},
                     {"lpf_cr", take_channel(c.ref, 2)},
                     {"mf_delta", c.mf},
                     {"hf_delta", c.hf},
                     {"coring_level", c.core},
                     {"cored_delta", c.cored},
                     {"delta_gain", c.delta},
                     {"luma_gain", c.luma},
                     {"chroma_gain", c.chroma},
                     {"motion_gain", c.motion},
                     {"total_gain", c.total},
                     {"total_delta", c.total_delta},
                     {"limited_delta", c.clamped},
                     {"sharpened", merged}});
    const Plane* const shown[12] = {nullptr, &c.mf,     &c.hf,     &c.core,  &c.cored,       &c.delta,
                                    &c.luma, &c.chroma, &c.motion, &c.total, &c.total_delta, &c.clamped};
    const I mode = m.reg("ee_debug_mode"), shift = m.reg("ee_debug_shift_bit");
    const bool is_view = mode >= 1 && mode <= 11;
    const bool is_signed = is_view && "-++-++----++"[mode] == '+',
               times_8 = mode == 11 || (mode >= 6 && mode <= 8);
    Plane out(y.width, y.height, channels, 8);
    for (size_t i = 0; i < merged.data.size(); ++i) {
        for (int k = 0; k < channels; ++k) {
            I v = is_view ? 128 : pro && k > 0 ? 0 : merged.data[std::min(i + k, merged.data.size() - 1)];
            if (is_view && k == 0) {
                v = fold(I{shown[mode]->data[i]} * (times_8 ? 8 : 1) << shift) >> 3;
                v = clip(v + (is_signed ? 128 : 0), 0, 255);
            }
            out.data[i * channels + k] = static_cast<int32_t>(v);
        }
    }
    return out;
}

}  // namespace

// ---- Pipelines ----------------------------------------------------------------------------------

Plane Model::pre_ee_hw(const Plane& in, const Plane& cb, const Plane& cr, const Plane& ynr, const Plane& mmap,
                       const Plane* fusion) {
    if (reg("ee_enable") == 0) return in;
    const bool texture = reg("ee_texture_mode") == 1;
    const std::pair<const Plane*, const char*> sized[] = {
        {&ynr, "src_ynr"}, {&mmap, "mmap"}, {texture ? fusion : &in, "Yfusion"}};
    for (const auto& [p, plane] : sized)
        if (p->width != in.width || p->height != in.height) {
            const std::string text = format("Y is %dx%d but %s is %dx%d; they must have the same size",
                                            in.width, in.height, plane, p->width, p->height);
            log.push_back({5, "pre_ee_hw", 58, text});
            throw Exit{255, text + "\n"};
        }
    Chain c;
    begin(*this, c, in, cb, cr);
    log.push_back({2, "pre_ee_hw", texture ? 97 : 94, texture ? "texture mode is 1" : "texture mode is 0"});
    if (texture) {
        Plane fus_mf, fus_hf, in_mf, in_hf;
        pre_delta(*this, *fusion, fus_mf, fus_hf, "Yfusion");
        pre_delta(*this, in, in_mf, in_hf, "Yin");
        c.mf = flat_det(*this, in, *fusion, in_mf, fus_mf, "MF");
        c.hf = flat_det(*this, in, *fusion, in_hf, fus_hf, "HF");
    } else {
        pre_delta(*this, in, c.mf, c.hf, "Yin");
    }
    return finish(*this, c, in, ynr, mmap, in.channels, true);
}

Plane Model::ee_hw(const Plane& in, const Plane& cb, const Plane& cr, const Plane& image,
                   const Plane& motion) {
    if (reg("ee_enable") == 0) return image;
    Chain c;
    const Plane clean = stages["clean_y"] = pre_process(*this, in);
    begin(*this, c, clean, cb, cr);
    classic_delta(*this, clean, c.mf, c.hf);
    return finish(*this, c, clean, image, motion, in.channels, false);
}

// ---- Driver -------------------------------------------------------------------------------------

Plane Model::read(const std::string& path, bool colour) {
    std::ifstream in(path, std::ios::binary);
    const std::string s{std::istreambuf_iterator<char>(in), {}};
    const std::string where = " (error loading '" + path + "')\n";
    const char digit = colour ? '6' : '5';
    if (s.empty()) throw Exit{1, path + ": *"};
    if (s[0] != 'P' || s.size() < 2 || s[1] != digit)
        throw Exit{1, format("Invalid image format (must be 'P%c')", digit) + where};
    size_t pos = std::min(s.find('\n') + 1, size_t{15});  // no newline: find() + 1 is 0
    if (pos == 0) pos = std::min(s.size(), size_t{15});
    while (pos < s.size() && s[pos] == '#') {
        pos = s.find('\n', pos);
        pos = pos == std::string::npos ? s.size() : pos + 1;
    }
    I width, height, max;
    if (!scan_number(s, pos, 1, INT32_MAX, width) || !scan_number(s, pos, 1, INT32_MAX, height))
        throw Exit{1, "Invalid image size" + where};
    if (!scan_number(s, pos, 1, 4294967295, max) || (pos = s.find('\n', pos)) == std::string::npos)
        throw Exit{1, "Invalid max_rgb" + where};
    const size_t start = ++pos;
    const int depth = static_cast<int>(std::ceil(std::log2(static_cast<double>(max))));
    log.push_back(
        {1, "common", colour ? 325 : 410,
         format("Color depth (%d) max_rgb:(%d)%s", depth, static_cast<int>(fold(max)), colour ? "" : "\n")});
    Plane out(static_cast<int>(width), static_cast<int>(height), colour ? 3 : 1, depth);
    bool ended = false;
    const auto byte = [&]() -> I {
        if (pos < s.size()) return static_cast<unsigned char>(s[pos++]);
        ended = true;
        return -1;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < out.channels; ++c) {
                I v = 0;
                for (int shift = 24; shift >= 0; shift -= 8)
                    if (depth > shift) v += byte() * (I{1} << shift);
                out.set(x, y, colour ? fold(v) & max : v, c);
                if (ended) break;
            }
    const size_t sample_bytes = (depth + 7) / 8, all = out.data.size();
    if (ended)
        log.push_back({4, "common", 441,
                       format("%s ends early: %zu of %zu samples are missing", path.c_str(),
                              all - (s.size() - start) / sample_bytes, all)});
    return out;
}

static Outcome print_usage(const std::vector<std::string>& args) {
    Outcome r;
    r.status = 255;
    r.out = "Usage: " + args[0] +
            " ini_file log_file log_level ins_name mode dbg_path dump_dbg_img\n"
            "Y_in Cb_in Cr_in src_ynr mmap_pix img_out\n"
            "\tmode: 0: input is RGB;\t1: input is YCbCr 422 input\n"
            "\tWhen mode=0, Y_in is RGB ppm and Cb_in/Cr_in are ignored.";
    for (size_t i = 0; i < args.size() && i < 15; ++i)
        if (i != 2 && i != 3) r.out += args[i] + " is input " + std::to_string(i) + "\n";
    return r;
}

Outcome run_program(const std::vector<std::string>& args) {
    if (args.size() != 15) return print_usage(args);
    Outcome r;
    Model m(args[4]);
    m.dbg = args[6].substr(0, 1023);
    m.dump = to_int(args[7]) != 0;
    m.load(args[1]);
    m.print();
    const bool enable = m.reg("ee_enable") == 1;
    m.log.push_back({2, "pre_ee_main", 94, format("reg_pre_ee_enable = %d", enable)});
    const auto check_depth = [&](const char* plane, int depth, int least, int most) {
        if (enable && (depth < least || depth > most))
            m.log.push_back({3, "pre_ee_main", 126,
                             format("%s has %d bits a sample; the block takes %s%d", plane, depth,
                                    least == most ? "" : format("%d to ", least).c_str(), most)});
    };
    try {
        Plane y, cb, cr, ynr, mmap, fusion;
        if (to_int(args[5]) != 0) {
            y = m.read(args[8], false);
            cb = m.read(args[9], false);
            cr = m.read(args[10], false);
            ynr = m.read(args[11], false);
            mmap = m.read(args[12], false);
            fusion = m.read(args[14], false);
            r.out = format("depth of Yfusion is %d \n", fusion.depth);
            check_depth("Y_in", y.depth, 8, 12);
            check_depth("Cb_in", cb.depth, 8, 8);
            check_depth("Cr_in", cr.depth, 8, 8);
            check_depth("src_ynr", ynr.depth, 8, 8);
            check_depth("mmap_pix", mmap.depth, 8, 8);
            if (m.reg("ee_texture_mode") == 1) check_depth("Yfusion", fusion.depth, 8, 20);
            const auto odd = [&](const Plane& c) {
                return c.height != y.height || (c.width != y.width / 2 && c.width != (y.width + 1) / 2);
            };
            if (enable && (odd(cb) || odd(cr)))
                m.log.push_back({3, "pre_ee_main", 131,
                                 format("chroma is not half as wide as luma: Y is %dx%d, Cb %dx%d, Cr %dx%d; "
                                        "columns and rows outside are reflected",
                                        y.width, y.height, cb.width, cb.height, cr.width, cr.height)});
        } else {
            if (enable && m.reg("ee_texture_mode") == 1) {
                const std::string text =
                    "RGB input (mode 0) has no Yfusion: set reg_ee_texture_mode = 0, or give "
                    "Y, Cb and Cr planes (mode 1)";
                m.log.push_back({5, "pre_ee_main", 102, text});
                throw Exit{255, text + "\n"};
            }
            const Plane rgb = m.read(args[8], true);
            m.read(args[11], true);
            mmap = m.read(args[12], false);
            check_depth("Y_in", rgb.depth, 8, 8);
            check_depth("mmap_pix", mmap.depth, 8, 8);
            const Plane ycc = rgb_to_ycbcr(rgb);
            y = ynr = take_channel(ycc, 0);
            cb = take_channel(ycc, 1);
            cr = take_channel(ycc, 2);
        }
        const size_t whole = m.reg("ee_texture_mode") == 1 ? 990 : 993, length = args[6].size();
        if (enable && m.dump && length > whole)
            m.log.push_back(
                {3, "pre_ee_main", 144,
                 format("the debug directory's path has %zu characters: paths of debug images are cut "
                        "at 1023, and images may replace each other; up to %zu leave them whole",
                        length, whole)});
        const Plane out = m.pre_ee_hw(y, cb, cr, ynr, mmap, &fusion);
        m.files[args[13]] = image_bytes(out, false);
    } catch (const Exit& e) {
        r.status = e.status;
        r.err = e.err;
    }
    for (const Record& record : m.log)
        if (record.level >= to_int(args[3])) r.log.push_back(record);
    r.files = m.files;
    return r;
}

}  // namespace plain
