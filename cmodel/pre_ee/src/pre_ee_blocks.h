// The texture-detection blocks from the inside; see ee_blocks.h for the conventions.
#ifndef CMODEL_PRE_EE_BLOCKS_H
#define CMODEL_PRE_EE_BLOCKS_H

#include <cstdint>
#include <memory>
#include <string>

#include "ee_blocks.h"

namespace cm {

// ---- Directional delta ----

// Shift from kernel sums to deltas: 8-bit luma or any other.
int configure_pre_ee_delta(int depth);

// Kernel sums of one row, before the normalising shift. The window has two rows on each side.
void pre_ee_delta_sum_row(Window rows, int32_t* mf_sum, int32_t* hf_sum, int width);

// sgn(sum) * min(|sum| >> shift, 2047).
void normalise_delta_row(const int32_t* sum, int32_t* out, int width, int shift);
void normalise_delta_row(const int32_t* sum, int16_t* out, int width, int shift);

// 255 where the shifted magnitude is above 2047, else 0.
void delta_overflow_row(const int32_t* sum, int32_t* map, int width, int shift);

void report_pre_ee_delta(const std::string& tag, const RowSource& mf, const RowSource& hf,
                         const RowSource& mf_over, const RowSource& hf_over);

// ---- Flat detection ----

// What a pixel was taken for.
enum Texture : int32_t { kDarkFlat = 0, kDarkEdge, kMidTone, kLine, kBrightEdge, kBrightFlat };

// How wide the block's arithmetic is: sample rows, sums down a column, and everything after. The
// narrowest that the samples allow is the fastest; all give the same results.
struct Lanes16 {
    using Row = int16_t;
    using Column = int16_t;
    using Sum = int32_t;
    static constexpr int32_t kLumaBound = 32767 / 7;
    static constexpr int32_t kDeltaBound = 32767 / 7;
};
struct Lanes32 {
    using Row = int32_t;
    using Column = int32_t;
    using Sum = int32_t;
    static constexpr int32_t kLumaBound = 1 << 25;
    static constexpr int32_t kDeltaBound = 32767;
};
struct Lanes64 {
    using Row = int32_t;
    using Column = int64_t;
    using Sum = int64_t;
    static constexpr int32_t kLumaBound = INT32_MAX;
    static constexpr int32_t kDeltaBound = INT32_MAX;
};

// Runs the block row by row. Windows reach three rows up and down.
template <typename Lanes>
class FlatDetector {
  public:
    using RowWindows = const typename Lanes::Row* const*;

    // Reads the registers.
    explicit FlatDetector(int width);
    ~FlatDetector();

    // The brightness planes around the next row; what follows from them serves both bands of deltas.
    void set_luma(RowWindows luma_in, RowWindows luma_fusion);

    // One band of that row: the chosen deltas and what each pixel was taken for.
    void run_band(RowWindows delta_in, RowWindows delta_fusion, int32_t* out, int32_t* texture);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

void report_flat_det(const std::string& tag, const RowSource& texture);

}  // namespace cm

#endif
