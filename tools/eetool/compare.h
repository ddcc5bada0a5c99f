// Two files of one stage, sample by sample.
#ifndef CMODEL_EETOOL_COMPARE_H
#define CMODEL_EETOOL_COMPARE_H

#include <cstdint>
#include <map>
#include <string>

#include "stage_files.h"

namespace eetool {

// How two files differ. Samples with unknown digits differ, whatever the tolerance, and have no place in
// the figures of differences.
struct Difference {
    Size size;
    size_t differ = 0;  // samples, `unknown` among them
    size_t unknown = 0;
    int64_t most = 0;                              // magnitude of the largest difference
    double sum = 0;                                // of magnitudes
    size_t first = 0;                              // index of the first sample that differs
    int left = 0, right = 0, top = 0, bottom = 0;  // of the box around all that differ
    std::string expected, actual;                  // the first sample, as text

    // Samples by difference (actual less expected): bin k > 0 holds 2^(k-1) .. 2^k - 1, -k the negatives.
    std::map<int, size_t> histogram;

    int first_x() const { return static_cast<int>(first % static_cast<size_t>(size.width)); }
    int first_y() const { return static_cast<int>(first / static_cast<size_t>(size.width)); }
    double mean() const { return differ > unknown ? sum / static_cast<double>(differ - unknown) : 0; }
};

// Compares all samples; those that lie at most `tolerance` apart are equal. Throws Cannot for files that
// cannot be compared.
Difference compare_files(StageFile& expected, StageFile& actual, int64_t tolerance);

// The lines of a rectangle of a file, samples as text; columns and rows outside the picture are left out.
std::vector<std::vector<std::string>> read_window(StageFile& file, int x0, int y0, int x1, int y1);

// Writes a picture (P6) of the differences: black where equal, red where `actual` is above, blue where it is
// below, the brighter the more, white where digits are unknown.
void write_map(const std::string& path, StageFile& expected, StageFile& actual, int64_t tolerance);

}  // namespace eetool

#endif
