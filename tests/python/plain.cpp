// The plain model on arrays, for tests in other languages.
#include <algorithm>

#include "plain_model.h"

// Runs a frame with the defaults but for `count` registers. `planes` are y, cb, cr (chroma_width wide), ynr,
// mmap and yfusion, row by row; the result has width * height samples.
extern "C" __attribute__((visibility("default"))) void plain_run(int classic, int count,
                                                                 const char* const* keys, const int* values,
                                                                 int width, int height, int chroma_width,
                                                                 const int32_t* const* planes, int y_depth,
                                                                 int fusion_depth, int32_t* out) {
    plain::Model m("NULL");
    for (int i = 0; i < count; ++i) {
        m.assign(m.name, keys[i], std::to_string(values[i]));
    }
    plain::Plane p[6];
    for (int i = 0; i < 6; ++i) {
        const bool chroma = i == 1 || i == 2;
        p[i] = plain::Plane(chroma ? chroma_width : width, height, 1,
                            i == 0   ? y_depth
                            : i == 5 ? fusion_depth
                                     : 8);
        std::copy_n(planes[i], p[i].data.size(), p[i].data.begin());
    }
    const plain::Plane made = classic != 0 ? m.ee_hw(p[0], p[1], p[2], p[3], p[4])
                                           : m.pre_ee_hw(p[0], p[1], p[2], p[3], p[4], &p[5]);
    std::copy(made.data.begin(), made.data.end(), out);
}
