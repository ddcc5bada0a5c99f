// The 16-bit form of every block against its plain form: random settings, rows at the ends of the planes'
// ranges, near them and all over, on every target.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string_view>
#include <vector>

#include "row_pipeline.h"
#include "row_targets.h"

namespace {

using namespace cm;

constexpr int kWidth = 560;  // more than a tile

template <typename T>
struct PlaneRows {
    std::vector<T> samples[2 * kMaxReach + 1];
    const T* row[2 * kMaxReach + 1];
};

// What 16-bit rows of a plane hold when the inputs are within their bounds.
struct Bounds {
    int32_t least, greatest;
};
Bounds bounds_of(Plane plane, int level) {
    const PlaneRow& row = row_of(plane);
    switch (plane) {
        case Plane::yfusion:
            return {0, level < 2 ? 255 : 4681};
        case Plane::coring_level:
            return {0, level == 0 ? 255 : row.greatest};
        case Plane::chroma_gain:
        case Plane::total_gain:
            return {0, plane == Plane::chroma_gain ? 252 : row.greatest};
        case Plane::total_delta:
            return {-2047, 2047};
        case Plane::local_range:
            return {0, 255};
        default:
            return {row.least, row.greatest == 4095 ? 255 : row.greatest};
    }
}

template <typename T>
void run_block(const Step& step, const void* config, Variant variant, const PlaneRows<T>* planes,
               std::vector<T> (&out)[kMostOutputs]) {
    const Block& block = *step.block;
    BlockRows<T> rows{};
    const T* window[kMostInputs][2 * kMaxReach + 1];
    int64_t events = 0;
    rows.width = kWidth;
    rows.events = &events;
    for (int i = 0; i < block.inputs; ++i) {
        const PlaneRows<T>& plane = planes[index_of(step.read(i, variant))];
        const int reach = block.in[i].reach;
        std::copy_n(plane.row + kMaxReach - reach, 2 * reach + 1, window[i]);
        rows.window[i] = window[i];
        rows.in[i] = window[i][reach];
    }
    for (int k = 0; k < block.outputs; ++k) {
        out[k].assign(kWidth, 77);
        rows.out[k] = out[k].data();
    }
    if constexpr (sizeof(T) == sizeof(int16_t)) {
        block.run_narrow(config, rows);
    } else {
        block.run(config, rows);
    }
}

TEST(Narrow, EveryBlockHasTheBitsOfItsPlainForm) {
    std::mt19937 random(20261121);
    const auto between = [&](int32_t low, int32_t high) {
        return std::uniform_int_distribution<int32_t>(low, high)(random);
    };
    int narrow_settings = 0;
    for (int round = 0; round < 480; ++round) {
        Registers registers;
        for (int slot = 0; slot < EE_REG_COUNT; ++slot) {
            const RegRow& row = kRegTable[slot];
            const int32_t high =
                row.bits == 20 ? (round % 2 != 0 ? 4095 : 1 << between(8, 15)) : row.greatest();
            const int end = between(0, 9);
            registers.set(slot, end == 0 ? row.least() : end == 1 ? high : between(row.least(), high));
            const std::string_view key = row.key;
            if ((row.is_followed_by("EE_ChromaGain") && row.bits == 8) ||
                key.starts_with("reg_ee_mcore_gain")) {
                registers.set(slot, between(0, 128));
            } else if (round % 4 == 1 && key.ends_with("_edge_thr")) {  // the largest windows' energy is near
                registers.set(slot, between(300, 1200));
            } else if (round % 4 == 1 && key.ends_with("_edge_region")) {
                registers.set(slot, 3);
            }
        }
        const int level = round % 3;  // 8-bit luma, small fused luma; more of both
        std::vector<PlaneRows<int16_t>> narrow(kPlanes);
        std::vector<PlaneRows<int32_t>> wide(kPlanes);
        for (int p = 0; p < kPlanes; ++p) {
            const Bounds b = bounds_of(static_cast<Plane>(p), level);
            const int style = between(0, 3);  // anywhere, near the least, near the greatest, only the ends
            for (int k = 0; k <= 2 * kMaxReach; ++k) {
                narrow[p].samples[k].resize(kWidth + 2 * kMaxReach);
                for (int16_t& v : narrow[p].samples[k]) {
                    const int32_t near = between(0, std::min(3, b.greatest - b.least));
                    v = static_cast<int16_t>(style == 0   ? between(b.least, b.greatest)
                                             : style == 1 ? b.least + near
                                             : style == 2 ? b.greatest - near
                                             : near % 2   ? b.least
                                                          : b.greatest);
                }
                wide[p].samples[k].assign(narrow[p].samples[k].begin(), narrow[p].samples[k].end());
                narrow[p].row[k] = narrow[p].samples[k].data() + kMaxReach;
                wide[p].row[k] = wide[p].samples[k].data() + kMaxReach;
            }
        }
        // Luma lies between its extremes.
        for (int x = 0; x < kWidth + 2 * kMaxReach; ++x) {
            const auto set = [&](Plane plane, int32_t v) {
                narrow[index_of(plane)].samples[kMaxReach][x] = static_cast<int16_t>(v);
                wide[index_of(plane)].samples[kMaxReach][x] = v;
            };
            const int32_t luma = narrow[index_of(Plane::y)].samples[kMaxReach][x];
            set(Plane::clean_y, luma);
            set(Plane::local_max, between(0, 3) == 0 ? luma : between(luma, 255));
            set(Plane::local_min, between(0, 3) == 0 ? luma : between(0, luma));
        }
        for (const PipelineRow* const pipeline : kPipelines) {
            registers.set(reg_ee_texture_mode, round % 2);
            ConfiguredPipeline configured;
            ASSERT_TRUE(configured.configure(*pipeline, registers, 8, round % 2 != 0 ? 8 : 12, kManyPixels));
            if (!configured.fits_narrow()) {
                continue;
            }
            ++narrow_settings;
            for (const RowTarget target : {RowTarget::kBaseline, RowTarget::kV3, RowTarget::kV4}) {
                set_row_target(target);
                for (int i = 0; i < configured.steps(); ++i) {
                    const Step& step = configured.step(i);
                    std::vector<int16_t> got[kMostOutputs];
                    std::vector<int32_t> want[kMostOutputs];
                    run_block(step, configured.config(i), configured.variant(), narrow.data(), got);
                    run_block(step, configured.config(i), configured.variant(), wide.data(), want);
                    for (int k = 0; k < step.block->outputs; ++k) {
                        for (int x = 0; x < kWidth; ++x) {
                            ASSERT_EQ(got[k][x], want[k][x])
                                << step.block->name << " output " << k << " at " << x << ", round " << round
                                << ", target " << static_cast<int>(target);
                        }
                    }
                }
            }
        }
    }
    set_row_target(best_row_target());
    EXPECT_GT(narrow_settings, 600);
}

}  // namespace
