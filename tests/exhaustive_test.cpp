// Small domains in full: every value, or every pair of values, that a point operation can see, laid
// out as one frame, on every instruction set, against the plain model.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <utility>

#include "ee_hw.h"
#include "ee_reg.h"
#include "plain_model.h"
#include "row_targets.h"
#include "test_frames.h"

namespace {

using plain::I;
using plain::Plane;
using Planes = std::vector<Plane>;

template <class F>
Plane lay_out(int width, int height, F&& value) {
    Plane p(width, height, 1, 8);
    for (int i = 0; i < width * height; ++i) p.data[static_cast<size_t>(i)] = value(i % width, i / width);
    return p;
}

// Samples that run from `low` along a row, or down a column.
Plane across(int width, int height, int low = 0) {
    return lay_out(width, height, [&](int x, int) { return low + x; });
}
Plane down(int width, int height, int low = 0) {
    return lay_out(width, height, [&](int, int y) { return low + y; });
}

Frame to_frame(const Plane& p) {
    const auto size = [](int n) { return static_cast<uint32_t>(n); };
    return make_frame(CM_FORMAT_SINGLE, size(p.width), size(p.height), size(p.channels), p.depth, p.data);
}

// Register settings go to the library and to the model; a failure shows them.
class Exhaustive : public testing::Test {
  protected:
    Exhaustive() {
        log_set_quiet(true);
        INIT_EE_REG("NULL");
    }
    static void TearDownTestSuite() {
        std::printf("%zu samples of blocks on each instruction set\n", samples_);
    }
    void set(int slot, int value) {
        const std::string text = std::to_string(value);
        ee_reg_hw_load(&ee_reg.hw, "ee", ee_reg.hw.slot[slot].key, text.c_str());
        model_.assign("ee", ee_reg.hw.slot[slot].key, text);
    }
    // The block on each instruction set against the plain model; both read as many planes.
    template <class... P, class... F>
    void compare(Plane (*model)(plain::Model&, P...), void (*run)(F...), const Planes& in) {
        if (HasFailure()) return;
        samples_ += in[0].data.size();
        std::vector<Frame> frames;
        for (const Plane& p : in) frames.push_back(to_frame(p));
        const auto call = [&]<size_t... K>(std::index_sequence<K...>) {
            const Plane want = model(model_, in[K]...);
            for (const auto target : {cm::RowTarget::kBaseline, cm::RowTarget::kV3, cm::RowTarget::kV4}) {
                Plane marked = want;
                std::fill(marked.data.begin(), marked.data.end(), 0x5a5a5a5a);
                const Frame out = to_frame(marked);
                cm::set_row_target(target);
                run(frames[K].get()..., out.get());
                const auto at = std::mismatch(want.data.begin(), want.data.end(), out->data);
                if (at.first != want.data.end()) report(in, at.second - out->data, *at.second, *at.first);
            }
        };
        call(std::index_sequence_for<P...>());
    }

    // Tables of 33 entries: extremes, alternating, ramps, each entry alone.
    static constexpr int kTables = 6 + 33;
    void set_table(int first_slot, int n) {
        for (int k = 0; k < 33; ++k) {
            const int shapes[] = {0, 63, k % 2 * 63, (k + 1) % 2 * 63, std::min(2 * k, 63), 63 - k};
            set(first_slot + k, n < 6 ? shapes[n] : k == n - 6 ? 63 : 0);
        }
    }

    // Curves: any order of knots, ties and neighbours among them, by outputs of any shape, by slopes
    // of one or more signs up to the ends of their field.
    static constexpr int kCurves = 256 * 7 * 10;
    static plain::Curve curve(int n) {
        static const int knots[] = {0, 90, 91, 255};
        static const int outs[7][4] = {{0, 0, 0, 0},      {255, 255, 255, 255}, {0, 40, 200, 255},
                                       {255, 200, 40, 0}, {0, 255, 0, 255},     {128, 0, 128, 0},
                                       {40, 40, 128, 128}};
        static const int slopes[10] = {-2048, 7, 0, -16, 2047, -1, 16, -33, 1, 640};
        plain::Curve c{};
        for (int k = 0; k < 4; ++k) {
            c.in[k] = knots[n >> (2 * k) & 3];
            c.out[k] = outs[n / 256 % 7][k];
            if (k < 3) c.slope[k] = slopes[(n / 256 / 7 % 10 + k * (n % 3)) % 10];
        }
        return c;
    }
    void set_curve(int first_slot, const plain::Curve& c) {
        for (int k = 0; k < 4; ++k) {
            set(first_slot + k, c.in[k]);
            set(first_slot + 4 + k, c.out[k]);
            if (k < 3) set(first_slot + 8 + k, c.slope[k]);
        }
    }

  private:
    void report(const Planes& in, std::ptrdiff_t pixel, int got, int want) const {
        testing::Message text;
        for (const Plane& p : in)
            for (int c = 0; c < p.channels; ++c)
                text << " " << p.data[static_cast<size_t>(pixel * p.channels + c)];
        text << ": " << got << ", not " << want << "\n";
        for (const EE_REG_SLOT& slot : ee_reg.hw.slot)
            if (slot.is_set) text << slot.key << " = " << slot.value << "\n";
        ADD_FAILURE() << "target " << static_cast<int>(cm::row_target()) << ", inputs" << text;
    }

    plain::Model model_{"NULL"};
    static inline size_t samples_ = 0;
};

TEST_F(Exhaustive, HueAndLength) {
    for (int a = -128; a <= 128; ++a)
        for (int b = -128; b <= 128; ++b) {
            ASSERT_EQ(CalcHue_Cordic(a, b), plain::hue_of(a, b)) << a << ", " << b;
            ASSERT_EQ(CalcSQRT(a, b), plain::length_of(a, b)) << a << ", " << b;
        }
}

// All chroma pairs, in a frame that is computed and in one that is large enough for the table.
TEST_F(Exhaustive, ChromaGain) {
    plain::Curve full = curve(0);
    std::fill_n(full.out, 4, 128);
    for (const int repeat : {1, 3}) {
        const Plane cb = lay_out(257, 256 * repeat, [](int x, int) { return x & 255; });
        const Plane cr = lay_out(257, 256 * repeat, [&](int, int y) { return y / repeat; });
        Plane ref(cb.width, cb.height, 3, 8);
        for (size_t i = 0; i < cb.data.size(); ++i)
            ref.data[3 * i] = 77, ref.data[3 * i + 1] = cr.data[i], ref.data[3 * i + 2] = cb.data[i];
        for (int n = 0; n < (repeat == 1 ? kTables : 6); ++n)
            for (const plain::Curve& c : {full, curve(n * 461 % kCurves)}) {
                set_table(reg_ee_chroma_adptctrl_lut_00, n);
                set_curve(reg_ee_chroma_amp_lut_in_0, c);
                set(reg_ee_chromaref_lpf_en, n % 2);
                set(reg_ee_chroma_adptctrl_en, n != 11);
                set(reg_ee_enable, n != 22);
                compare(plain::chroma_gain, EE_ChromaGain, {cb, cr, ref});
            }
    }
}

TEST_F(Exhaustive, Curves) {
    for (int n = 0; n < kCurves; ++n) {
        const plain::Curve c = curve(n);
        for (int x = -2; x <= 257; ++x) {
            const int y = CM_LUT(x, c.in, c.out, c.slope, 4, 4);
            if (y != c(x)) FAIL() << "curve " << n << " at " << x << ": " << y << ", not " << c(x);
        }
    }
    const Plane motion = across(256, 1);
    for (int n = 0; n < kCurves; n += 13) {
        set_curve(reg_ee_motion_lut_in_0, curve(n));
        set(reg_ee_enable, n % 17 != 0);
        compare(plain::motion_gain, EE_MotionGain, {motion});
    }
}

// All pairs of brightness and motion.
TEST_F(Exhaustive, CoringLevel) {
    for (int n = 0; n < 60; ++n) {
        Plane luma = across(258, 256);
        luma.depth = 8 + n % 4 * 2;
        set_curve(reg_ee_luma_coring_lut_in_0, curve(n * 2003 % kCurves));
        set_curve(reg_ee_motion_coring_lut_in_0, curve(n * 1009 % kCurves));
        set_curve(reg_ee_mcore_gain_lut_in_0, curve(n * 307 % kCurves));
        set(reg_ee_total_coring, n * 5 % 256);
        set(reg_ee_total_motion_coring, 255 - n);
        set(reg_ee_luma_coring_en, n % 5 != 0);
        set(reg_ee_lumaref_lpf_en, n % 2);
        set(reg_ee_enable, n % 11 != 0);
        compare(plain::calc_core, EE_CalcCore, {luma, across(258, 256, -1), down(258, 256)});
    }
}

TEST_F(Exhaustive, GainTables) {
    const Plane values = across(256, 1), others = across(256, 1, -255);
    for (int n = 0; n < 4 * kTables; ++n) {
        set_table(reg_ee_luma_adptctrl_lut_00, n / 4);
        set_table(reg_ee_delta_adptctrl_lut_00, n / 4);
        set(reg_ee_luma_adptctrl_en, n != 36);
        set(reg_ee_delta_adptctrl_en, n != 37);
        set(reg_ee_lumaref_lpf_en, n % 2);
        set(reg_ee_enable, n % 4 != 3);
        compare(plain::delta_gain, EE_CalcDeltaGain, {values});
        compare(plain::luma_gain, EE_LumaAdptGainCal, {values, others});
    }
}

// All pairs of delta and coring level, the two deltas in different orders.
TEST_F(Exhaustive, Coring) {
    const Plane mf = across(4095, 256, -2047), core = down(4095, 256);
    const Plane hf = lay_out(4095, 256, [](int x, int y) { return (x + 1370 * y) % 4095 - 2047; });
    for (const auto& [gain, mf_weight, hf_weight] : {std::array{128, 255, 0}, std::array{77, 128, 128},
                                                     std::array{255, 255, 255}, std::array{0, 1, 254}}) {
        set(reg_ee_mf_core_gain, gain);
        set(reg_mf_blend_wgt, mf_weight);
        set(reg_hf_blend_wgt, hf_weight);
        compare(plain::coring, EE_Coring, {mf, hf, core});
    }
}

template <bool kPro>
Plane shoot(plain::Model& m, const Plane& delta, const Plane& luma, const Plane& max, const Plane& min) {
    return plain::shoot(m, delta, luma, max, min, kPro);
}

// All deltas by the corners of luma and its extremes; settings that meet in every pair of levels of
// two registers.
TEST_F(Exhaustive, Shoot) {
    const auto corner = [](int divisor) {
        return lay_out(4096, 27, [=](int, int y) { return std::array{0, 9, 255}[y / divisor % 3]; });
    };
    const Planes in = {across(4096, 27, -2048), corner(9), corner(3), corner(1)};
    for (int n = 0; n < 26; ++n) {
        const int a = n / 5 % 5, b = n % 5;
        const int slots[] = {reg_ee_total_oshtthrd,     reg_ee_total_ushtthrd,   reg_ee_total_oshtthrd_clp,
                             reg_ee_total_ushtthrd_clp, reg_ee_shtctrl_oshtgain, reg_ee_shtctrl_ushtgain};
        for (int k = 0; k < 6; ++k) {
            const int level = k == 5 ? a : (b + k * a) % 5;
            set(slots[k], k < 4 ? std::array{0, 1, 7, 64, 255}[level] : std::array{0, 1, 15, 16, 63}[level]);
        }
        set(reg_ee_enable, n < 25);
        for (const int mode : {0, 1}) {
            set(reg_ee_shoot_mode, mode);
            compare(shoot<true>, EE_IOShootPro, in);
        }
        compare(shoot<false>, EE_IOShoot, in);
    }
}

// All pairs of delta and luma; of luma and each soft bound. Only a luma above 256 has its lower bound
// above the upper one.
TEST_F(Exhaustive, Merge) {
    for (int n = -1; n < 512; ++n) {
        set(reg_ee_soft_clamp_enable, n >= 0);
        set(reg_ee_upper_bound_left_diff, n & 255);
        set(reg_ee_lower_bound_right_diff, n < 256 ? n & 255 : 511 - n);
        const int rows = n % 64 == 63 || n < 1 ? 512 : 2;  // else from end to end
        const Plane delta = lay_out(300, rows, [&](int, int y) { return y * 511 / (rows - 1) - 256; });
        compare(plain::merge, EE_SharpenMerge, {delta, across(300, rows)});
    }
}

// All pairs of motion gain and strength; of luma and chroma gain; of delta and total gain.
TEST_F(Exhaustive, TotalGain) {
    const Plane mixed = lay_out(253, 504, [](int x, int y) { return (x * 7 + y * 64) % 253; });
    for (int strength = 0; strength < 256; ++strength) {
        set(reg_ee_total_gain, strength);
        const auto gain = [](int offset) {
            return lay_out(256, 4, [=](int, int y) { return (y + offset) % 4 * 71 + 39; });
        };
        compare(plain::total_gain, EE_TotalGain, {gain(0), gain(1), gain(3), across(256, 4)});
        if (strength % 51 == 0)
            compare(plain::total_gain, EE_TotalGain, {mixed, across(253, 504), down(253, 504, -64), mixed});
    }
    const Plane delta = across(4095, 256, -2047);
    for (int low = 0; low < 4096; low += 256)
        compare(plain::total_delta, EE_TotalDelta, {delta, down(4095, 256, low)});
}

TEST_F(Exhaustive, DebugView) {
    for (int shift = 0; shift < 40; ++shift)
        for (const int is_signed : {0, 1})
            for (int v = -4096; v < 4096; ++v) {
                const uint32_t bits = static_cast<uint32_t>(v);
                const I shifted = static_cast<int32_t>(bits << shift % 32);
                const I view = std::clamp<I>((shifted >> 3) + 128 * is_signed, 0, 255);
                ASSERT_EQ(EE_GenDbgOut(bits, is_signed, shift), view)
                    << v << " << " << shift << ", signed " << is_signed;
            }
}

TEST_F(Exhaustive, ExtremesWithoutTheCentre) {
    for (int at = 0; at < 9; ++at) {
        int low[] = {5, 5, 5, 5, 5, 5, 5, 5, 5, -7},
            high[] = {5, 5, 5, 5, 5, 5, 5, 5, 5, 77};  // nine and a mark
        low[at] = -1, high[at] = 9;
        EXPECT_EQ(SelMin(low), at == 4 ? 5 : -1) << at;
        EXPECT_EQ(SelMax(high), at == 4 ? 5 : 9) << at;
    }
}

}  // namespace
