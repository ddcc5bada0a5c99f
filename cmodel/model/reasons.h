// Why a stage has its value at a pixel.
#ifndef CMODEL_REASONS_H
#define CMODEL_REASONS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace cm {

// What a reason rests on.
struct Pixel {
    bool classic;
    // A plane, an input or a stage, so many columns and rows away, reflected at the borders.
    std::function<int32_t(const char* plane, int dx, int dy)> plane_at;
    std::function<int32_t(const std::string& key)> reg;

    int32_t plane(const char* name) const { return plane_at(name, 0, 0); }
    const char* luma() const { return classic ? "clean_y" : "y"; }
};

// What decided the value of the stage, a line each: the class, segment or limiter that acted, and by how
// much. Empty for stages that are plain arithmetic.
std::vector<std::string> reasons_of(const std::string& stage, const Pixel& pixel);

}  // namespace cm

#endif
