// Time of each block's row datapath, by the table of the pipelines: one row of 1920 pixels that stays in the
// cache, as 16-bit (narrow) and as 32-bit (wide) samples, on every target. A block is named with the first
// plane that it writes. The counter ns_per_pixel is what to compare.
//
// Where the setting of a frame of few pixels makes do with less memory (a table of all chroma values is not
// worth it), that form has a row of its own, and so has making the setting.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "pipelines.h"
#include "row_targets.h"

namespace {

using namespace cm;

constexpr int kWidth = 1920;
constexpr int kDepth = 8;

// Every brightness class of texture detection is in use; the rest are defaults.
Registers some_registers() {
    Registers registers;
    registers.set(reg_ee_dark_luma_thr, 80);
    registers.set(reg_ee_bright_luma_thr, 160);
    registers.set(reg_ee_dark_edge_thr, 60);
    registers.set(reg_ee_bright_edge_thr, 60);
    registers.set(reg_ee_line_thr, 700);
    return registers;
}

// Padded rows of one plane.
template <typename T>
class Rows {
  public:
    explicit Rows(int count) : samples_(static_cast<size_t>(count) * kPitch) {
        for (int y = 0; y < count; ++y) {
            rows_.push_back(samples_.data() + static_cast<size_t>(y) * kPitch + kMargin);
        }
    }
    // Random samples of the plane's nominal depth.
    void fill(const PlaneRow& plane, int width, std::mt19937& random) {
        const int32_t full = (1 << plane.depth) - 1;
        std::uniform_int_distribution<int32_t> sample(std::max(plane.least, -full),
                                                      std::min(plane.greatest, full));
        for (T* const row : rows_) {
            std::generate_n(row, width, [&] { return static_cast<T>(sample(random)); });
            pad_row(row, width);
        }
    }
    T* const* rows() const { return rows_.data(); }

  private:
    static constexpr size_t kMargin = 64 / sizeof(T);
    static constexpr size_t kPitch = kWidth + 2 * kMargin;

    std::vector<T> samples_;
    std::vector<T*> rows_;
};

// A step of a pipeline, configured, with rows to work on.
template <typename T>
class Work {
  public:
    Work(const Step& step, Variant variant, size_t pixels) : block_(*step.block) {
        std::mt19937 random(1);
        config_ = memory_.take<uint8_t>(block_.config_size);
        configure(pixels);
        rows_.width = kWidth;
        rows_.events = &events_;
        for (int i = 0; i < block_.inputs; ++i) {
            const BlockInput& in = block_.in[i];
            Rows<T>& rows = planes_.emplace_back(2 * in.reach + 1);
            rows.fill(row_of(step.read(i, variant)), in.half_width ? half_up(kWidth) : kWidth, random);
            rows_.window[i] = rows.rows();
            rows_.in[i] = rows.rows()[in.reach];
        }
        for (int i = 0; i < block_.outputs; ++i) {
            rows_.out[i] = block_.out[i].optional ? nullptr : planes_.emplace_back(1).rows()[0];
        }
    }
    size_t memory() const { return memory_.held(); }
    void configure(size_t pixels) {
        block_.configure(config_, some_registers(), {kDepth, kDepth, pixels, memory_});
    }
    void run() {
        if constexpr (sizeof(T) == sizeof(int16_t)) {
            block_.run_narrow(config_, rows_);
        } else {
            block_.run(config_, rows_);
        }
    }

  private:
    const Block& block_;
    Memory memory_;
    void* config_;
    std::vector<Rows<T>> planes_;
    BlockRows<T> rows_;
    int64_t events_ = 0;
};

template <typename T>
void add_rows(const std::string& name, const std::shared_ptr<Work<T>>& work) {
    static constexpr const char* kTargets[] = {"baseline", "v3", "v4"};
    for (int target = 0; target <= static_cast<int>(best_row_target()); ++target) {
        benchmark::RegisterBenchmark((name + "/" + kTargets[target]).c_str(), [work, target](
                                                                                  benchmark::State& state) {
            set_row_target(static_cast<RowTarget>(target));
            for (auto _ : state) {
                work->run();
                benchmark::ClobberMemory();
            }
            state.counters["ns_per_pixel"] = benchmark::Counter(
                1e-9 * kWidth, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
        });
    }
}

template <typename T>
void add_step(const std::string& name, const Step& step, Variant variant) {
    const auto large = std::make_shared<Work<T>>(step, variant, kManyPixels);
    const auto small = std::make_shared<Work<T>>(step, variant, 1);
    add_rows(name, large);
    if (small->memory() < large->memory()) {
        add_rows(name + "/few pixels", small);
        benchmark::RegisterBenchmark((name + "/setting").c_str(), [step, variant](benchmark::State& state) {
            for (auto _ : state) {
                Work<T>(step, variant, kManyPixels);
            }
        });
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const Step& step : all_steps()) {
        if (step.block->outputs == 0) {
            continue;  // only a record
        }
        const Variant variant = (step.variants & kClassic) != 0   ? kClassic
                                : (step.variants & kTexture) != 0 ? kTexture
                                                                  : kPlain;
        const std::string name = std::string(step.block->name) + "/" + row_of(step.writes[0]).name;
        add_step<int16_t>(name + "/narrow", step, variant);
        add_step<int32_t>(name + "/wide", step, variant);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
