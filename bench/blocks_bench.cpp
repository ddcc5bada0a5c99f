// Time of each block's row datapath: one row of 1920 pixels that stays in the cache, on every target.
// The counter ns_per_pixel is what to compare.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "ee_blocks.h"
#include "ee_reg.h"
#include "line_buffer.h"
#include "pre_ee_blocks.h"
#include "row_targets.h"

namespace {

constexpr int kWidth = 1920;

// Padded rows of samples within lo .. hi.
class Rows {
  public:
    Rows(int count, int lo, int hi) : lines_(kWidth, count, count) {
        std::mt19937 random(1);
        std::uniform_int_distribution<int32_t> sample(lo, hi);
        for (int y = 0; y < count; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                lines_.line(y)[x] = sample(random);
            }
            lines_.pad(y);
            rows_.push_back(lines_.row(y));
        }
    }
    cm::Window window() const { return rows_.data(); }
    const int32_t* operator[](int y) const { return rows_[static_cast<size_t>(y)]; }
    int32_t* edit(int y) { return lines_.line(y); }

  private:
    cm::LineBuffer lines_;
    std::vector<const int32_t*> rows_;
};

void add(const std::string& name, const std::function<void()>& run) {
    static constexpr struct {
        cm::RowTarget target;
        const char* name;
    } kTargets[] = {
        {cm::RowTarget::kBaseline, "baseline"}, {cm::RowTarget::kV3, "v3"}, {cm::RowTarget::kV4, "v4"}};
    for (const auto& entry : kTargets) {
        if (entry.target > cm::best_row_target()) {
            continue;
        }
        benchmark::RegisterBenchmark((name + "/" + entry.name).c_str(), [run, target = entry.target](
                                                                            benchmark::State& state) {
            cm::set_row_target(target);
            for (auto _ : state) {
                run();
                benchmark::ClobberMemory();
            }
            state.counters["ns_per_pixel"] = benchmark::Counter(
                1e-9 * kWidth, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
        });
    }
}

}  // namespace

int main(int argc, char** argv) {
    using namespace cm;
    log_set_quiet(true);
    INIT_EE_REG(nullptr);
    ee_reg.hw.slot[reg_ee_dark_luma_thr].value = 80;
    ee_reg.hw.slot[reg_ee_bright_luma_thr].value = 160;
    ee_reg.hw.slot[reg_ee_dark_edge_thr].value = 60;
    ee_reg.hw.slot[reg_ee_bright_edge_thr].value = 60;
    ee_reg.hw.slot[reg_ee_line_thr].value = 700;

    Rows luma(7, 0, 255);
    Rows delta_in(7, -300, 300);
    Rows delta_fusion(7, -300, 300);
    Rows out(4, 0, 0);
    int32_t* const out0 = out.edit(0);
    int32_t* const out1 = out.edit(1);

    add("pre_ee_delta_sum", [&] { pre_ee_delta_sum_row(luma.window(), out0, out1, kWidth); });
    add("normalise_delta", [&] { normalise_delta_row(delta_in[0], out0, kWidth, 6); });
    const auto narrow = [](const Rows& rows, LineBufferOf<int16_t>& lines) {
        for (int y = 0; y < 7; ++y) {
            std::copy_n(rows[y], kWidth, lines.line(y));
            lines.pad(y);
        }
        return RowWindow<3, int16_t>(lines, 3);
    };
    LineBufferOf<int16_t> luma16(kWidth, 7, 7), in16(kWidth, 7, 7), fusion16(kWidth, 7, 7);
    const auto luma_window = narrow(luma, luma16);
    const auto in_window = narrow(delta_in, in16);
    const auto fusion_window = narrow(delta_fusion, fusion16);
    FlatDetector<Lanes16> detector(kWidth);
    add("flat_det_luma", [&] { detector.set_luma(luma_window.rows, luma_window.rows); });
    add("flat_det_band", [&] { detector.run_band(in_window.rows, fusion_window.rows, out0, out1); });
    FlatDetector<Lanes32> detector32(kWidth);
    detector32.set_luma(luma.window(), luma.window());
    add("flat_det_band_32",
        [&] { detector32.run_band(delta_in.window(), delta_fusion.window(), out0, out1); });
    add("classic_delta", [&] { classic_delta_row(luma.window(), out0, out1, kWidth); });
    add("pre_process", [&] { pre_process_row(luma.window(), out0, kWidth); });
    add("dup_chroma", [&] { dup_row(luma[0], out0, kWidth); });
    add("min_max_5x5", [&] { min_max_5x5_row(luma.window(), out0, out1, kWidth); });
    int64_t negative = 0;
    add("range", [&] { range_row(luma[0], luma[1], out0, kWidth, negative); });
    add("lpf_luma", [&] { lpf_luma_row(luma.window(), out0, kWidth); });
    add("lpf_chroma", [&] { lpf_chroma_row(luma[0], out0, kWidth); });
    const CoreConfig core = configure_core(8);
    add("core", [&] { core_row(luma[0], luma[1], luma[2], out0, kWidth, core); });
    const CoringConfig coring = configure_coring();
    add("coring", [&] { coring_row(delta_in[0], delta_in[1], luma[0], out0, kWidth, coring); });
    const ByteTable gain = configure_delta_gain();
    add("byte_table", [&] { byte_table_row(luma[0], out0, kWidth, gain); });
    const CurveTable curve = configure_motion_gain();
    add("curve", [&] { curve_row(luma[0], out0, kWidth, curve); });
    const ChromaGainConfig small_chroma = configure_chroma_gain(1);
    add("chroma_gain_computed", [&] { chroma_gain_row(luma[0], luma[1], out0, kWidth, small_chroma); });
    const ChromaGainConfig chroma = configure_chroma_gain(size_t{kWidth} * kWidth);
    Rows cb(1, 100, 140);
    Rows cr(1, 110, 150);
    add("chroma_gain_table", [&] { chroma_gain_row(cb[0], cr[0], out0, kWidth, chroma); });
    add("chroma_gain_table_build", [&] { configure_chroma_gain(size_t{kWidth} * kWidth); });
    add("total_gain", [&] { total_gain_row(luma[0], luma[1], luma[2], luma[3], out0, kWidth, 32); });
    add("total_delta", [&] { total_delta_row(delta_in[0], luma[0], out0, kWidth); });
    const ShootConfig shoot = configure_shoot();
    add("shoot_pro", [&] { shoot_pro_row(delta_in[0], luma[0], luma[1], luma[2], out0, kWidth, shoot); });
    add("shoot_classic", [&] { shoot_row(delta_in[0], luma[0], luma[1], luma[2], out0, kWidth, shoot); });
    const MergeConfig merge = configure_merge(8);
    add("merge", [&] { merge_row(delta_in[0], luma[0], out0, kWidth, merge); });
    add("debug_view", [&] { debug_view_row(delta_in[0], out0, kWidth, 8, 1, 0); });

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
