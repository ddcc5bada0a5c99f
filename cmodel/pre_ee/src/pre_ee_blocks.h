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

// sgn(sum) * min(|sum| >> shift, 2047), in place.
void normalise_delta_row(int32_t* sum, int width, int shift);

// 255 where the shifted magnitude is above 2047, else 0.
void delta_overflow_row(const int32_t* sum, int32_t* map, int width, int shift);

void report_pre_ee_delta(const std::string& tag, const FRAME& mf, const FRAME& hf, const FRAME& mf_over,
                         const FRAME& hf_over);

// ---- Flat detection ----

// What a pixel was taken for.
enum Texture : int32_t { kDarkFlat, kDarkEdge, kMidTone, kLine, kBrightEdge, kBrightFlat };

// Runs the block row by row. Windows reach three rows up and down.
class FlatDetector {
  public:
    // Reads the registers.
    explicit FlatDetector(int width);
    ~FlatDetector();

    // The brightness planes around the next row; what follows from them serves both bands of deltas.
    void set_luma(Window luma_in, Window luma_fusion);

    // One band of that row: the chosen deltas and what each pixel was taken for.
    void run_band(Window delta_in, Window delta_fusion, int32_t* out, int32_t* texture);

    // Samples within these bounds are worked on in 32 bits. Call use_wide_sums() before the first row
    // whose window holds a larger one; everything after it is worked on in 64 bits.
    static constexpr int32_t kLumaBound = 1 << 25;
    static constexpr int32_t kDeltaBound = 32767;
    void use_wide_sums();

  private:
    template <typename T>
    struct Engine;
    std::unique_ptr<Engine<int32_t>> narrow_;
    std::unique_ptr<Engine<int64_t>> wide_;
    int width_;
};

// Whether a row has a sample beyond -bound .. bound.
bool exceeds_bound(const int32_t* row, int width, int32_t bound);

void report_flat_det(const std::string& tag, const FRAME& texture);

}  // namespace cm

#endif
