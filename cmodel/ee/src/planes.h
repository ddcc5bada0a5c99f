// Planes: what blocks read and write. A plane that a block of a pipeline writes is a stage, which can be
// kept, dumped and compared under the plane's name.
#ifndef CMODEL_PLANES_H
#define CMODEL_PLANES_H

#include <cstdint>

namespace cm {

enum class Plane : uint8_t {
#define PLANE(name, depth, least, greatest, unit, meaning) name,
#include "planes.inc"
#undef PLANE
    count,
    luma,  // in the table of blocks: `y` or `clean_y`, whichever the pipeline measures on
    none
};

inline constexpr int kPlanes = static_cast<int>(Plane::count);
inline constexpr int kInputs = static_cast<int>(Plane::cb_full);  // planes before it come from outside

constexpr int index_of(Plane plane) {
    return static_cast<int>(plane);
}

struct PlaneRow {
    const char* name;
    int depth;
    int32_t least;
    int32_t greatest;
    const char* unit;
    const char* meaning;

    constexpr bool is_signed() const { return least < 0; }
};

inline constexpr PlaneRow kPlaneTable[] = {
#define PLANE(name, depth, least, greatest, unit, meaning) {#name, depth, least, greatest, unit, meaning},
#include "planes.inc"
#undef PLANE
};

constexpr const PlaneRow& row_of(Plane plane) {
    return kPlaneTable[index_of(plane)];
}

// Bits of an input's samples that the blocks take.
struct DepthRange {
    int least, greatest;
};
constexpr DepthRange depths_of_input(int input) {
    return input == index_of(Plane::y)         ? DepthRange{8, 12}
           : input == index_of(Plane::yfusion) ? DepthRange{8, 20}
                                               : DepthRange{8, 8};
}

// What reg_ee_debug_mode shows in place of the sharpened luma.
struct DebugView {
    int mode;
    Plane plane;
    int factor;
    bool is_signed;
    int shift;  // the reg_ee_debug_shift_bit that shows most of the usual values
};

// Intended: the delta gain shows as signed, the coring level does not.
inline constexpr DebugView kDebugViews[] = {
    {1, Plane::mf_delta, 1, true, 0},       {2, Plane::hf_delta, 1, true, 0},
    {3, Plane::coring_level, 1, false, 3},  {4, Plane::cored_delta, 1, true, 0},
    {5, Plane::delta_gain, 1, true, 2},     {6, Plane::luma_gain, 8, false, 0},
    {7, Plane::chroma_gain, 8, false, 0},   {8, Plane::motion_gain, 8, false, 0},
    {9, Plane::total_gain, 1, false, 0},    {10, Plane::total_delta, 1, true, 0},
    {11, Plane::limited_delta, 8, true, 0},
};

// The view of a debug mode; null for the modes that show the sharpened luma.
constexpr const DebugView* find_debug_view(int mode) {
    for (const DebugView& view : kDebugViews) {
        if (view.mode == mode) {
            return &view;
        }
    }
    return nullptr;
}

}  // namespace cm

#endif
