// Samples worked by hand, some for each block, at its turning points. All registers are 0 but the block's
// enable and what a test sets. The comments show the working where it is not a copy or a plain sum.
#include <gtest/gtest.h>

#include <utility>

#include "ee_hw.h"
#include "ee_reg.h"
#include "pre_ee_hw.h"
#include "test_frames.h"

namespace {

using Row = Samples;  // the inputs' samples of one pixel, then the output's

void set(std::initializer_list<std::pair<int, int>> values) {
    for (const auto& [slot, value] : values) ee_reg.hw.slot[slot].value = value;
}
// From the first slot of a curve or table.
void set_from(int slot, const Samples& values) {
    for (const int v : values) ee_reg.hw.slot[slot++].value = v;
}

class Worked : public testing::Test {
  protected:
    Worked() {
        log_set_quiet(true);
        INIT_EE_REG("NULL");
        for (EE_REG_SLOT& slot : ee_reg.hw.slot) slot.value = 0;
        set({{reg_ee_enable, 1}});
    }
};

// A block that works pixel by pixel.
template <class... F>
void expect(void (*block)(F...), const std::vector<Row>& rows, int depth = 8) {
    std::vector<Frame> planes;
    for (size_t k = 0; k < sizeof...(F); ++k) {
        planes.push_back(make_plane(static_cast<uint32_t>(rows.size()), 1, {}, depth));
        for (size_t i = 0; i < rows.size(); ++i) planes[k]->data[i] = rows[i][k];
    }
    planes.back() = make_plane(static_cast<uint32_t>(rows.size()), 1, Samples(rows.size(), 12345), depth);
    const auto call = [&]<size_t... K>(std::index_sequence<K...>) {
        block(planes[K].get()...);
    };
    call(std::index_sequence_for<F...>());
    for (size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(planes.back()->data[i], rows[i].back()) << testing::PrintToString(rows[i]);
}

// A square picture; `other` but for what is set.
struct Picture {
    Frame frame;
    uint32_t size;
    Picture(uint32_t n, int other = 0, int depth = 8)
        : frame(make_plane(n, n, Samples(size_t{n} * n, other), depth)), size(n) {}
    operator FRAME*() const { return frame; }
    int32_t& at(uint32_t x, uint32_t y) const { return frame->data[y * size + x]; }
    int32_t& centre() const { return at(size / 2, size / 2); }
    Picture& with(uint32_t x, uint32_t y, int v) { return at(x, y) = v, *this; }
};

TEST_F(Worked, PreDelta) {
    // Depth, the centre, its four neighbours, all others; MF, HF. Over 64 at 8 bits, else over 512, cut
    // towards 0: 192 * 255 = 48960, 220 * 255 = 56100; 192 * 4095 = 1535.6 * 512, 220 * 4095 = 1759.6 * 512;
    // 384 and 440 are below 512, 576 and 660 are not. With the neighbours 192 + 4 * 64 = 448 and 220 + 4 * 9
    // = 256: 448 * 2340 is 2047.5 * 512, 448 * 2341 is 2048.4 * 512 and limited; 4095 gives 3583.1 and
    // 2047.5, 1023 895.1 and 511.5.
    const int rows[][6] = {{8, 255, 0, 0, 765, 876},
                           {8, 0, 255, 255, -765, -876},
                           {12, 4095, 0, 0, 1535, 1759},
                           {10, 2, 0, 0, 0, 0},
                           {10, 3, 0, 0, 1, 1},
                           {10, 0, 2, 2, 0, 0},
                           {10, 0, 3, 3, -1, -1},
                           {12, 2340, 2340, 0, 2047, 1170},
                           {12, 2341, 2341, 0, 2047, 1170},
                           {12, 0, 0, 2341, -2047, -1170},
                           {12, 4095, 4095, 0, 2047, 2047},
                           {10, 1023, 1023, 0, 895, 511}};
    Picture mf(5), hf(5);
    for (const auto& [depth, centre, beside, other, want_mf, want_hf] : rows) {
        Picture in(5, other, depth);
        in.with(2, 2, centre).with(1, 2, beside).with(3, 2, beside).with(2, 1, beside).with(2, 3, beside);
        PRE_EE_CalcDelta(in, mf, hf, "T");
        EXPECT_EQ(Row({mf.centre(), hf.centre()}), Row({want_mf, want_hf})) << centre << ", " << other;
    }
    set({{reg_ee_enable, 0}});
    PRE_EE_CalcDelta(Picture(5).with(2, 2, 255), mf, hf, "T");
    EXPECT_EQ(Row({mf.centre(), hf.centre()}), Row({0, 0}));
}

TEST_F(Worked, ClassicDelta) {
    // The centre, all others; MF, HF: over 64 at any depth. 80, 220; 80 * 1023 = 1278.8 * 64; 3516.6 is
    // limited.
    const int rows[][4] = {{1, 0, 1, 3}, {0, 1, -1, -3}, {1023, 0, 1278, 2047}, {0, 1023, -1278, -2047}};
    Picture mf(7), hf(7);
    for (const auto& row : rows) {
        EE_CalcDelta(Picture(7, row[1], 10).with(3, 3, row[0]), mf, hf);
        EXPECT_EQ(Row({mf.centre(), hf.centre()}), Row({row[2], row[3]})) << row[0];
    }
}

// 64 on black shows the kernels, alike in all eight directions: at (0, 0), (1, 0), (1, 1), (2, 0) and so on.
TEST_F(Worked, Kernels) {
    Picture mf(9), hf(9), mf_7x7(9), hf_classic(9);
    const Picture in = std::move(Picture(9).with(4, 4, 64));
    PRE_EE_CalcDelta(in, mf, hf, "T");
    EE_CalcDelta(in, mf_7x7, hf_classic);
    const Row hf_5x5 = {220, 9, -36, -20, -4, 0, 0, 0, 0, 0};
    const std::vector<std::pair<const Picture&, Row>> kernels = {
        {mf, {192, 64, 0, -32, -32, -16, 0, 0, 0, 0}},
        {mf_7x7, {80, 40, 15, -8, -12, -12, -8, -7, -4, -1}},
        {hf, hf_5x5},
        {hf_classic, hf_5x5}};
    for (const auto& [got, want] : kernels)
        for (uint32_t y = 1; y < 8; ++y)
            for (uint32_t x = 1; x < 8; ++x) {
                const uint32_t dx = x < 4 ? 4 - x : x - 4, dy = y < 4 ? 4 - y : y - 4;
                const uint32_t far = std::max(dx, dy), near = std::min(dx, dy);
                EXPECT_EQ(got.at(x, y), want[far * (far + 1) / 2 + near]) << dx << ", " << dy;
            }
}

// Yin, fused luma, the input's delta, the fused one.
const auto flat_det = +[](const FRAME* y, const FRAME* fusion, const FRAME* in, const FRAME* fused,
                          FRAME* out) { PRE_EE_FlatDet(y, fusion, in, fused, out, "T"); };

TEST_F(Worked, FlatDetectionOfOnePixel) {
    // Halves; 1.5; 2; a pixel alone is not above its own peak.
    set({{reg_ee_dark_luma_thr, 100}, {reg_ee_bright_luma_thr, 200}, {reg_ee_line_thr, 1024}});
    set({{reg_ee_dark_edge_thr, 512}, {reg_ee_dark_edge_strength, 1536}});
    set({{reg_ee_bright_edge_thr, 512}, {reg_ee_bright_edge_strength, 2048}});
    // 99 / 2 = 49.5, cut, is not below 49: flat. 1.5 times the fused delta, 73.5; beside an edge the input's.
    expect(flat_det, {{255, 99, -7, 49, 73}, {255, 99, -7, -49, -73}, {255, 99, -7, 50, -10}});
    expect(flat_det, {{255, 99, 0, -50, 0}, {255, 0, 2047, 1, 2047}, {255, 0, -2047, 1, -2047}});
    expect(flat_det, {{255, 0, 2047, 0, 0}});                                // 0 is not below 0: flat
    expect(flat_det, {{255, 100, 5, -33, -33}, {255, 199, 5, 2047, 2047}});  // neither dark nor bright
    // 101 / 2 = 50.5, cut, is not below 50: the input's delta; beside an edge the fused one, twice.
    expect(flat_det, {{101, 200, 50, 9, 50}, {101, 200, -50, 9, -50}, {101, 200, -51, 9, 18}});
    expect(flat_det, {{101, 200, 51, -9, -18}, {101, 200, 51, 0, 0}, {101, 200, 51, -1024, -2047}});
    // (2^20 - 1)(2^20 - 2) has more than 32 bits, the lowest of which would be negative.
    set({{reg_ee_dark_luma_thr, 1048575}, {reg_ee_dark_edge_thr, 1048575}});
    set({{reg_ee_dark_edge_strength, 1024}});
    expect(flat_det, {{0, 1048574, 3, 5, 5}});
}

TEST_F(Worked, FlatDetectionAlongLines) {
    set({{reg_ee_line_length, 1}, {reg_ee_bright_edge_thr, 1048575}});  // no edges: without a line, 77
    // Threshold, strength, three taps, the result. 1023 * 3 * 8 / 1024 = 23.98, cut to 23, is below 24, and
    // -23 above -24; 1024ths make 24. 300 * 8 / 1024 = 2.3. 800 * 3 * 8 / 1024 = 18.75, cut to 18. Sums of 0
    // are not above 0; without a delta there is no line; 4096 * 512 is limited.
    const int rows[][6] = {
        {1023, 512, 8, 8, 8, 4},     {1024, 512, 8, 8, 8, 77},    {1023, 300, -8, -8, -8, -2},
        {1024, 300, -8, -8, -8, 77}, {800, 1024, 8, 3, 8, 3},     {800, 1024, 8, 2, 8, 77},
        {800, 1024, -8, -2, -8, 77}, {800, 1024, -8, -3, -8, -3}, {0, 1024, 9, 5, -14, 77},
        {0, 1024, 9, 0, 9, 77},      {0, 4096, 1, 512, 1, 2047},  {0, 4096, -1, -512, -1, -2047}};
    for (const auto& row : rows)
        for (const bool column : {false, true}) {
            // The other direction goes against it: no line.
            const int against = row[3] < 0 ? 2000 : -2000;
            Picture fused(3), out(3);
            for (uint32_t k = 0; k < 3; ++k) fused.with(1, k, against).with(k, 1, against);
            for (uint32_t k = 0; k < 3; ++k) fused.with(column ? 1 : k, column ? k : 1, row[2 + k]);
            set({{reg_ee_line_thr, row[0]}, {reg_ee_line_strength, row[1]}});
            flat_det(Picture(3, 255), Picture(3, 255), Picture(3, 77), fused, out);
            EXPECT_EQ(out.centre(), row[5]) << row[3] << (column ? " down" : " across");
        }
}

TEST_F(Worked, FlatDetectionInWindows) {
    set({{reg_ee_dark_edge_thr, 1024}, {reg_ee_bright_edge_thr, 1024}, {reg_ee_line_thr, 1024}});
    const Picture luma(5, 10), more = std::move(Picture(5, -10).with(0, 4, -11)), none(5), three(5, 3);
    Picture out(5);
    for (const auto& [radius, is_edge] : {std::pair{1, false}, {2, true}}) {  // 251 > 250, with the corner
        // A dark edge is one of the fused pair and takes the input's delta.
        set({{reg_ee_dark_luma_thr, 11}, {reg_ee_dark_edge_region, radius}});
        set({{reg_ee_dark_edge_strength, 1024}});
        flat_det(none, luma, three, more, out);
        EXPECT_EQ(out.centre(), is_edge ? 3 : -10);
        // A bright one is of the input's pair and takes the fused delta.
        set({{reg_ee_dark_luma_thr, 0}, {reg_ee_bright_edge_region, radius}});
        set({{reg_ee_bright_edge_strength, 1024}});
        flat_det(luma, none, more, three, out);
        EXPECT_EQ(out.centre(), is_edge ? 3 : -10);
    }
    // Beyond the corner the picture goes on as before it, so (1, 1) counts four times: 20 > 18.
    set({{reg_ee_dark_luma_thr, 11}, {reg_ee_dark_edge_region, 1}});
    Picture small(3);
    flat_det(none, Picture(3, 2), Picture(3, 3), Picture(3).with(1, 1, 5), small);
    EXPECT_EQ(small.at(0, 0), 3);
}

TEST_F(Worked, LowPass) {
    const int rows[][3] = {
        // Cb of two taps with weights 4 and 1; from the mid-point of 128 * 16 cut towards it
        {126, 128, 128}, {128, 113, 128}, {124, 128, 127}, {124, 127, 127},  // -8, -15, -16, -17
        {128, 143, 128}, {132, 128, 129}, {112, 129, 125},                   // 15, 16, -63
    };
    Frame out = make_frame(CM_FORMAT_YCBCR, 5, 5, 3, 8);
    const int32_t* const centre = out->data + 3 * 12;
    for (const auto& row : rows) {
        Picture cb(5, 128), cr(5, 128);
        cb.with(1, 2, row[0]).with(4, 2, row[1]).with(2, 1, 0).with(2, 3, 255);  // no column counts
        cr.with(3, 2, row[0]).with(0, 2, row[1]).with(1, 1, 0).with(1, 3, 255);
        EE_GenLPF3x3(Picture(5, 7), cb, cr, out);
        EXPECT_EQ(Row(centre, centre + 3), Row({7, row[2], row[2]})) << row[0] << ", " << row[1];
    }
    const auto luma = [&](uint32_t x, uint32_t y) { return out->data[3 * (y * 5 + x)]; };
    EE_GenLPF3x3(Picture(5).with(2, 2, 255), Picture(5), Picture(5, 255), out);
    EXPECT_EQ(Row({luma(2, 2), luma(1, 2), luma(2, 3), luma(3, 3), luma(0, 2)}), Row({63, 31, 31, 15, 0}));
    EXPECT_EQ(Row(centre + 1, centre + 3), Row({0, 255}));
    EE_GenLPF3x3(Picture(5).with(1, 0, 255), Picture(5), Picture(5), out);
    EXPECT_EQ(Row({luma(0, 0), luma(1, 0), luma(0, 1)}), Row({63, 63, 31})) << "seen twice from the border";
}

TEST_F(Worked, CoringLevel) {
    set({{reg_ee_total_coring, 10}, {reg_ee_total_motion_coring, 21}});
    set_from(reg_ee_mcore_gain_lut_in_0, {0, 64, 128, 255, 0, 64, 128, 128, 16, 16, 0});  // motion, to 128
    expect(EE_CalcCore, {{0, 0, 0, 10}, {0, 0, 64, 15}, {0, 0, 127, 20}, {0, 0, 128, 21}, {0, 0, 255, 21}});
    expect(EE_CalcCore, {{0, 0, 0, 160}, {0, 0, 64, 248}, {0, 0, 127, 334}}, 12);  // 2677 / 8 = 334.6
    expect(EE_CalcCore, {{0, 0, 64, 62}}, 10);                                     // 1984 / 32
    set({{reg_ee_luma_coring_en, 1}});
    set_from(reg_ee_luma_coring_lut_in_0, {16, 32, 48, 64, 0, 40, 40, 8, 40, 0, -31});
    set_from(reg_ee_motion_coring_lut_in_0, {0, 100, 200, 255, 0, 100, 200, 255, 16, 16, 16});  // brightness
    expect(EE_CalcCore, {{16, 49, 0, 0}, {17, 49, 0, 2}, {32, 0, 0, 40}, {48, 0, 0, 40}, {65, 0, 0, 8}});
    expect(EE_CalcCore, {{49, 17, 0, 38}, {64, 0, 0, 9}});    // -31 / 16, down; -31: short of the knot
    expect(EE_CalcCore, {{17, 9, 255, 17}, {17, 9, 64, 9}});  // (2 + 17) / 2
    set({{reg_ee_lumaref_lpf_en, 1}});
    expect(EE_CalcCore, {{17, 49, 0, 38}, {49, 17, 255, 17}});
    set({{reg_ee_enable, 0}});
    expect(EE_CalcCore, {{49, 17, 255, 2}});
    set({{reg_ee_enable, 1}, {reg_ee_luma_coring_en, 0}, {reg_ee_total_motion_coring, 0}});
    set_from(reg_ee_mcore_gain_lut_in_0, {0, 0, 0, 0, 200, 200, 200, 200});
    expect(EE_CalcCore, {{0, 0, 0, -6}});  // (128 - 200) * 10 / 128 = -5.6, down
}

TEST_F(Worked, Coring) {
    set({{reg_ee_mf_core_gain, 128}, {reg_mf_blend_wgt, 128}, {reg_hf_blend_wgt, 128}});
    expect(EE_Coring, {{10, 0, 10, 0}, {9, -9, 10, 0}, {11, 0, 10, 0}, {12, 0, 10, 1}, {-12, 0, 10, -1}});
    expect(EE_Coring, {{-13, 0, 10, -1}, {0, 12, 10, 1}, {0, -13, 10, -1}});  // -3 / 2, towards 0
    expect(EE_Coring, {{12, -12, 10, 0}, {12, -14, 10, -1}});                 // (2 - 4) / 2
    set({{reg_mf_blend_wgt, 200}, {reg_hf_blend_wgt, 100}});                  // 1000 - 300, 300, 200
    expect(EE_Coring, {{5, -3, 0, 2}, {-5, 3, 0, -2}, {1, 1, 0, 1}, {-1, -1, 0, -1}, {1, 0, 0, 0}});
    set({{reg_ee_mf_core_gain, 77}, {reg_mf_blend_wgt, 128}, {reg_hf_blend_wgt, 128}});
    expect(EE_Coring, {{8, 0, 10, 1}, {7, 0, 10, 0}, {0, 8, 10, 0}});  // 10 * 77 / 128 = 6.02
    set({{reg_ee_mf_core_gain, 0}, {reg_mf_blend_wgt, 255}, {reg_hf_blend_wgt, 1}});
    expect(EE_Coring, {{2047, 2047, 0, 2047}, {2047, 2047, 256, 2046}});  // (2047 * 255 + 1791) / 256
    set({{reg_hf_blend_wgt, 255}});
    expect(EE_Coring, {{2047, 2047, 0, 2047}, {-2047, -2047, 0, -2047}, {2047, -2047, 0, 0}});
}

TEST_F(Worked, LocalExtremes) {
    Picture max(5), min(5);
    const Picture in = std::move(Picture(5, 100).with(0, 0, 7).with(4, 4, 250));
    EE_Cal5x5MinMax(in, max, min);
    EXPECT_EQ(Row({max.at(2, 2), min.at(2, 2), max.at(3, 3), min.at(3, 3)}), Row({250, 7, 250, 100}));
    EE_Cal3x3MinMax(in, max, min);
    EXPECT_EQ(Row({max.at(2, 2), min.at(2, 2), max.at(3, 3), min.at(1, 1)}), Row({100, 100, 250, 7}));
    for (const auto block : {EE_Cal5x5MinMax, EE_Cal3x3MinMax}) {
        block(Picture(5, 300), max, min);
        EXPECT_EQ(Row({max.centre(), min.centre()}), Row({300, 255}));
        block(Picture(5, -5), max, min);
        EXPECT_EQ(Row({max.centre(), min.centre()}), Row({0, -5}));
    }
    expect(EE_CalcDeltaRef, {{250, 7, 243}, {9, 9, 0}, {5, 9, -4}});
}

TEST_F(Worked, GainsByRangeAndBrightness) {
    for (const int table : {reg_ee_delta_adptctrl_lut_00, reg_ee_luma_adptctrl_lut_00}) {
        set_from(table, {15, 20, 3});
        set_from(table + 31, {63, 60});
    }
    expect(EE_CalcDeltaGain, {{0, 64}, {255, 64}});
    expect(EE_LumaAdptGainCal, {{0, 8, 64}});
    set({{reg_ee_delta_adptctrl_en, 1}, {reg_ee_luma_adptctrl_en, 1}});
    // (15 * 7 + 20 + 1) / 2; (15 + 20) * 2 + 1/2; (20 * 7 + 3 + 1) / 2; (20 + 3 * 7 + 1) / 2; (63 + 60 * 7 +
    // 1) / 2
    const std::vector<Row> rows = {{0, 60},  {1, 63},  {4, 70},    {8, 80},   {9, 72},
                                   {15, 21}, {16, 12}, {248, 252}, {255, 242}};
    expect(EE_CalcDeltaGain, rows);
    std::vector<Row> by_luma, by_reference;
    for (const Row& row : rows)
        by_luma.push_back({row[0], 8, row[1]}), by_reference.push_back({8, row[0], row[1]});
    expect(EE_LumaAdptGainCal, by_luma);
    set({{reg_ee_lumaref_lpf_en, 1}});
    expect(EE_LumaAdptGainCal, by_reference);
    set({{reg_ee_enable, 0}});
    expect(EE_LumaAdptGainCal, {{255, 255, 60}});  // that of black
}

TEST_F(Worked, HueAndLength) {
    // (71 + 108) * 10 / 128 = 14.5, cut. (100, -15) turns (15, 100): by 64, 96, 112, 120, 116, 114 and 115
    // 512ths, so 58 after 192.
    const int rows[][4] = {{0, 0, 0, 0},        {1, 0, 0, 1},           {0, 1, 64, 1},
                           {-1, 0, 128, 1},     {0, -128, 192, 127},    {10, 10, 34, 14},
                           {-10, 10, 98, 14},   {-10, -10, 162, 14},    {10, -10, 226, 14},
                           {50, 20, 16, 53},    {100, 1, 1, 99},        {1, 100, 64, 99},
                           {128, 128, 33, 179}, {-128, -128, 161, 179}, {100, -15, 250, 102}};
    for (const auto& row : rows) {
        EXPECT_EQ(CalcHue_Cordic(row[0], row[1]), row[2]) << row[0] << ", " << row[1];
        EXPECT_EQ(CalcSQRT(row[0], row[1]), row[3]) << row[0] << ", " << row[1];
    }
}

// Cb, Cr, and their low-pass values as planes of their own.
const auto chroma_gain =
    +[](const FRAME* cb, const FRAME* cr, const FRAME* cb_lpf, const FRAME* cr_lpf, FRAME* out) {
        const Frame ref = make_frame(CM_FORMAT_YCBCR, out->width, 1, 3, 8);
        for (size_t i = 0; i < out->width; ++i) {
            ref->data[3 * i] = 200;
            ref->data[3 * i + 1] = cb_lpf->data[i];
            ref->data[3 * i + 2] = cr_lpf->data[i];
        }
        EE_ChromaGain(cb, cr, ref, out);
    };

TEST_F(Worked, ChromaGain) {
    const int table = reg_ee_chroma_adptctrl_lut_00;
    set_from(table, {32, 16, 16, 16, 16, 24, 16, 16, 8});
    set({{table + 16, 5}, {table + 31, 1}, {table + 32, 63}});
    set_from(reg_ee_chroma_amp_lut_in_0, {0, 50, 100, 255, 0, 0, 128, 128, 0, 41, 0});
    expect(chroma_gain, {{255, 128, 0, 0, 64}});
    set({{reg_ee_chroma_adptctrl_en, 1}});
    expect(chroma_gain, {{128, 128, 0, 0, 64}, {178, 128, 0, 0, 64}});  // length 50: no weight yet
    expect(chroma_gain, {{179, 128, 0, 0, 65}});   // 51: 41 / 16 = 2; (126 * 64 + 2 * 128) / 128
    expect(chroma_gain, {{228, 128, 0, 0, 126}});  // 99: 41 * 49 / 16 = 125; (3 * 64 + 125 * 128) / 128
    // Hues 0, 64, 128.
    expect(chroma_gain, {{255, 128, 0, 0, 128}, {128, 255, 0, 0, 32}, {0, 128, 0, 0, 20}});
    expect(chroma_gain, {{228, 113, 0, 0, 35}});  // 250: (32 * 2 + 1 * 6 + 1) / 2; the 33rd entry is not read
    set({{reg_ee_chromaref_lpf_en, 1}});
    expect(chroma_gain, {{255, 128, 128, 255, 32}});
    set({{reg_ee_enable, 0}});
    expect(chroma_gain, {{255, 128, 128, 255, 68}});  // chroma (128, 128), hue 33: (16 * 7 + 24 + 1) / 2
    set({{reg_ee_enable, 1}});
    set_from(reg_ee_chroma_amp_lut_out_0, {255, 255, 255, 255});  // beyond 128: from 64 away
    expect(chroma_gain, {{0, 0, 255, 128, 191}});                 // (-127 * 64 + 255 * 128) / 128 = 191.5
    set({{table, 63}});
    expect(chroma_gain, {{0, 0, 255, 128, 438}});
    set({{table, 0}});
    expect(chroma_gain, {{0, 0, 255, 128, -64}});  // -63.5, down
}

TEST_F(Worked, MotionGain) {
    set_from(reg_ee_motion_lut_in_0, {10, 20, 30, 40, 100, 60, 60, 129, -65, 0, 110});
    expect(EE_MotionGain, {{0, 100}, {10, 100}, {11, 95}, {20, 60}});  // -4.1, down; -40.6 is beyond the knot
    expect(EE_MotionGain, {{30, 60}, {31, 66}, {40, 128}, {41, 129}, {255, 129}});  // 68.75: short of it
    set({{reg_ee_enable, 0}, {reg_ee_motion_lut_in_0, 0}});
    expect(EE_MotionGain, {{255, 100}});
}

TEST_F(Worked, TotalGain) {
    expect(EE_TotalGain, {{252, 252, 252, 255, 0}});
    set({{reg_ee_total_gain, 32}});
    expect(EE_TotalGain, {{64, 64, 64, 128, 256}, {64, 64, 64, 1, 0}});  // delta, luma, chroma, motion; 1/2
    expect(EE_TotalGain, {{64, 64, 64, 3, 4}, {64, 63, 65, 128, 252}});  // 96 / 64 = 1; 4095 / 64 = 63
    expect(EE_TotalGain, {{64, 64, -64, 128, -256}, {15, 64, -1, 128, -1}});  // no lower limit; -0.9, down
    set({{reg_ee_total_gain, 130}});                                          // 130 * 128 / 64 = 260
    expect(EE_TotalGain, {{251, 64, 64, 128, 4078}, {252, 64, 64, 128, 4095}, {253, 64, 64, 128, 4095}});
    set({{reg_ee_total_gain, 255}});
    expect(EE_TotalGain, {{252, 252, 252, 255, 4095}});
}

TEST_F(Worked, TotalDelta) {
    expect(EE_TotalDelta, {{1, 255, 0}, {-1, 255, 0}, {-1, 256, -1}, {-3, 171, -2}});  // 513 / 256
    expect(EE_TotalDelta, {{2047, 256, 2047}, {2047, 257, 2047}, {-2047, 4095, -2047}, {0, 4095, 0}});
}

// Delta in eighths, luma, local maximum and minimum; out in codes.
TEST_F(Worked, Shoot) {
    const std::vector<Row> plain = {
        {0, 100, 120, 80, 0},    {3, 100, 120, 80, 0},  {4, 100, 120, 80, 1},   {11, 100, 120, 80, 1},
        {12, 100, 120, 80, 2},   {-3, 100, 120, 80, 0}, {-4, 100, 120, 80, -1}, {-11, 100, 120, 80, -1},
        {-12, 100, 120, 80, -2}, {16, 118, 120, 80, 2},  // 16 + 4 is cut to 2 codes
        {99, 118, 120, 80, 2},   {99, 120, 120, 80, 0}, {-99, 82, 120, 80, -2},
    };
    expect(EE_IOShootPro, plain);
    expect(EE_IOShoot, plain);
    set({{reg_ee_total_oshtthrd, 3}, {reg_ee_total_ushtthrd, 5}});
    const std::vector<Row> beyond = {
        {19, 9, 9, 9, 2}, {20, 9, 9, 9, 3}, {30, 9, 9, 9, 3}, {-60, 9, 9, 9, -5}};
    expect(EE_IOShootPro, beyond);
    expect(EE_IOShoot, beyond);
    set({{reg_ee_total_oshtthrd, 0}, {reg_ee_total_ushtthrd, 0}});

    set({{reg_ee_total_oshtthrd_clp, 10}, {reg_ee_total_ushtthrd_clp, 10}});
    expect(EE_IOShootPro, {{5, 200, 100, 200, -90}});  // lo = -80 is above hi = -800 + 80, which wins
    set({{reg_ee_shtctrl_oshtgain, 16}, {reg_ee_shtctrl_ushtgain, 16}});
    const std::vector<Row> whole = {
        // 16 + 64 + 4; 95; 96; 104 is cut to 16 + 80; 2040 + 7 + 4 is cut to 2047, or to -2048
        {80, 118, 120, 80, 10},     {91, 118, 120, 80, 11},   {92, 118, 120, 80, 12},
        {100, 118, 120, 80, 12},    {-80, 82, 120, 80, -10},  {-91, 82, 120, 80, -11},
        {-92, 82, 120, 80, -12},    {-100, 82, 120, 80, -12}, {2047, 0, 255, 0, 255},
        {-2047, 255, 255, 0, -256},
    };
    expect(EE_IOShootPro, whole);
    expect(EE_IOShoot, whole);
    set({{reg_ee_shtctrl_oshtgain, 1}, {reg_ee_shtctrl_ushtgain, 1}});
    // 16 + (183 + 8) / 16 + 4 = 31, then 32, either sign; classic: 191 / 16; -177 / 16 down.
    expect(EE_IOShootPro, {{199, 118, 120, 80, 3}, {200, 118, 120, 80, 4}});
    expect(EE_IOShootPro, {{-199, 82, 120, 80, -3}, {-200, 82, 120, 80, -4}});
    expect(EE_IOShoot, {{207, 118, 120, 80, 3}, {208, 118, 120, 80, 4}});
    expect(EE_IOShoot, {{-192, 82, 120, 80, -3}, {-193, 82, 120, 80, -4}});
    set({{reg_ee_shoot_mode, 1}});
    expect(EE_IOShootPro, {{12, 100, 120, 80, 3}, {-12, 100, 120, 80, -3}});  // 12 + 4 + 12
    expect(EE_IOShootPro, {{100, 118, 120, 80, 12}});                         // 16 + 5 + 4 + 100 is cut to 96
    expect(EE_IOShoot, {{12, 100, 120, 80, 2}});
    set({{reg_ee_enable, 0}});
    expect(EE_IOShootPro, {{100, 100, 120, 80, 0}});
}

TEST_F(Worked, Merge) {
    expect(EE_SharpenMerge, {{55, 200, 255}, {56, 200, 255}, {-1, 200, 199}, {-5, 5, 0}, {-6, 5, 0}});
    expect(EE_SharpenMerge, {{22, 1000, 1022}, {24, 1000, 1023}}, 10);
    set({{reg_ee_soft_clamp_enable, 1}});
    expect(EE_SharpenMerge, {{56, 200, 255}, {-6, 5, 0}});
    set({{reg_ee_upper_bound_left_diff, 128}});  // luma / 2 + 127 + 1/2
    expect(EE_SharpenMerge, {{76, 100, 176}, {77, 100, 177}, {78, 100, 177}, {-100, 100, 0}});
    set({{reg_ee_upper_bound_left_diff, 0}, {reg_ee_lower_bound_right_diff, 128}});
    expect(EE_SharpenMerge, {{-49, 100, 51}, {-50, 100, 50}, {-51, 100, 50}, {200, 100, 255}});
    set({{reg_ee_upper_bound_left_diff, 255}, {reg_ee_lower_bound_right_diff, 255}});
    expect(EE_SharpenMerge, {{10, 0, 0}, {10, 255, 254}, {-10, 255, 254}, {0, 200, 199}});  // 199.2 + 1/2
}

TEST_F(Worked, PreProcess) {
    const int rows[][3] = {{0, 18, 18}, {1, 9, 10}, {1, 10, 10}, {1, 13, 13}, {1, 17, 17}, {1, 18, 17}};
    for (const auto& [enabled, centre, want] : rows) {
        const Frame out = make_plane(3, 3, {});
        set({{reg_ee_pre_proc_enable, enabled}});
        EE_PreProcess(make_plane(3, 3, {11, 17, 12, 13, centre, 14, 16, 10, 15}), out);
        EXPECT_EQ(out->data[4], want) << centre;
    }
}

TEST_F(Worked, DuplicatedChroma) {
    const Frame cb = make_plane(5, 1, {}), cr = make_plane(5, 1, {});
    EE_DupCbCr(make_plane(3, 1, {10, 20, 30}), make_plane(3, 1, {1, 2, 3}), cb, cr);
    EXPECT_EQ(samples_of(*cb), Row({10, 10, 20, 20, 30}));
    EXPECT_EQ(samples_of(*cr), Row({1, 1, 2, 2, 3}));
}

TEST_F(Worked, DebugView) {
    const int rows[][4] = {
        {2039, 0, 0, 254},  {2040, 0, 0, 255},  {2048, 0, 0, 255}, {-1, 0, 0, 0},
        {0, 1, 0, 128},     {-1, 1, 0, 127},  // down
        {-8, 1, 0, 127},    {-9, 1, 0, 126},    {-1024, 1, 0, 0},  {-1025, 1, 0, 0},
        {1016, 1, 0, 255},  {1024, 1, 0, 255},  {1, 1, 3, 129},    {80, 0, 32, 10},  // no shift
        {1 << 29, 0, 3, 0}, {1 << 28, 0, 3, 0},                                      // lost; negative
    };
    for (const auto& row : rows)
        EXPECT_EQ(EE_GenDbgOut(static_cast<uint32_t>(row[0]), row[1], row[2]), row[3]) << row[0];
}

// A dot of 110 on 100, to be drawn on 77: the output's centre in each debug mode, shifted by 3.
TEST_F(Worked, Pipelines) {
    set({{reg_ee_total_coring, 8},
         {reg_ee_mf_core_gain, 128},
         {reg_mf_blend_wgt, 128},
         {reg_hf_blend_wgt, 128},
         {reg_ee_luma_adptctrl_en, 1},
         {reg_ee_total_gain, 255},
         {reg_ee_total_oshtthrd, 255},
         {reg_ee_debug_shift_bit, 3},
         {reg_ee_motion_lut_out_0, 20}});
    set_from(reg_ee_luma_adptctrl_lut_00, Samples(33, 3));
    const Picture y = std::move(Picture(9, 100).with(4, 4, 110)), grey(9, 128), image(9, 77), still(9);
    const Row pre_ee = {
        78,              // 77 + 1
        128 + 30,        // MF: 192 * 10 / 64
        128 + 34,        // HF: 220 * 10 / 64
        8,               // level
        128 + 24,        // (30 - 8 + 34 - 8) / 2
        128 + 64,        // gain by range
        3 * 4 * 8, 255,  // by brightness; by colour, 64 * 8
        20 * 8,          // by motion
        59,              // 20 * 255 / 64 = 79; 79 * 12 * 64 / 1024
        128 + 5,         // 24 * 59 / 256
        128 + 8,         // (5 + 4) / 8 = 1
        78,        78,  78, 78,
    };
    Row classic = pre_ee;
    for (const uint32_t mode : {0u, 12u, 13u, 14u, 15u}) classic[mode] = 77;
    classic[1] = 128 + 12;  // 80 * 10 / 64
    classic[4] = 128 + 15;  // (12 - 8 + 34 - 8) / 2
    classic[10] = 128 + 3;  // 15 * 59 / 256
    classic[11] = 128;      // (3 + 4) / 8
    for (int mode = 0; mode < 16; ++mode) {
        set({{reg_ee_debug_mode, mode}});
        const Frame a(pre_ee_hw(y, grey, grey, image, still, nullptr)), b(ee_hw(y, grey, grey, image, still));
        EXPECT_EQ(a->data[40], pre_ee[static_cast<size_t>(mode)]) << mode;
        EXPECT_EQ(b->data[40], classic[static_cast<size_t>(mode)]) << "classic, " << mode;
    }
    set({{reg_ee_enable, 0}});
    const Frame a(pre_ee_hw(y, grey, grey, image, still, nullptr)), b(ee_hw(y, grey, grey, image, still));
    EXPECT_EQ(a->data[40], 110);
    EXPECT_EQ(b->data[40], 77);
}

}  // namespace
