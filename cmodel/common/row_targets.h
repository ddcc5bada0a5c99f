// Row datapaths, each compiled for several x86-64 levels behind one name.
//
// A row datapath is plain integer C++ without branches on data, written once:
//
//     CM_ROW_FUNCTION(scale_row, (const int32_t* in, int32_t* out, int width, int gain),
//                     (in, out, width, gain)) {
//         for (int x = 0; x < width; ++x) { out[x] = in[x] * gain; }
//     }
//
// defines scale_row(...), which runs the version for the current target. The body is the same for
// all of them, so every target gives the same bits; only the compiler's choice of instructions
// differs. Elsewhere than on x86-64 there is one version.
//
// CM_ROW_TEMPLATE() defines a template, for rows of samples of type T.
#ifndef CMODEL_ROW_TARGETS_H
#define CMODEL_ROW_TARGETS_H

#include "fixed_point.h"

namespace cm {

// x86-64 baseline (SSE2); x86-64-v3 (AVX2); x86-64-v4 (AVX-512 F, BW, CD, DQ, VL).
enum class RowTarget { kBaseline, kV3, kV4 };

// The best target that this machine runs.
RowTarget best_row_target();

// The target in use: the best one unless another was set. set_row_target() takes no better one than
// the machine has, and is meant for tests and measurements.
extern RowTarget current_row_target;
inline RowTarget row_target() {
    return current_row_target;
}
void set_row_target(RowTarget target);

}  // namespace cm

#if defined(__x86_64__) && defined(__GNUC__)
// 512-bit vectors: with 16-bit samples they gain a fifth of the time of 256-bit ones.
#if defined(__clang__)
#define CM_TARGET_V4 __attribute__((target("arch=x86-64-v4")))
#else
#define CM_TARGET_V4 __attribute__((target("arch=x86-64-v4,prefer-vector-width=512")))
#endif
#define CM_TARGET_V3 __attribute__((target("arch=x86-64-v3")))
#define CM_ROW_VERSIONS(head, linkage, name, params, with, args) \
    head static CM_INLINE void name##_datapath params;           \
    head CM_TARGET_V4 static void name##_v4 params {             \
        name##_datapath with args;                               \
    }                                                            \
    head CM_TARGET_V3 static void name##_v3 params {             \
        name##_datapath with args;                               \
    }                                                            \
    head static void name##_baseline params {                    \
        name##_datapath with args;                               \
    }                                                            \
    head linkage void name params {                              \
        switch (row_target()) {                                  \
            case RowTarget::kV4:                                 \
                name##_v4 with args;                             \
                return;                                          \
            case RowTarget::kV3:                                 \
                name##_v3 with args;                             \
                return;                                          \
            default:                                             \
                name##_baseline with args;                       \
                return;                                          \
        }                                                        \
    }                                                            \
    head static CM_INLINE void name##_datapath params
#else
#define CM_ROW_VERSIONS(head, linkage, name, params, with, args) head linkage void name params
#endif

#define CM_EMPTY
#define CM_ROW_FUNCTION(name, params, args) CM_ROW_VERSIONS(CM_EMPTY, CM_EMPTY, name, params, CM_EMPTY, args)
#define CM_ROW_TEMPLATE(name, params, args) \
    CM_ROW_VERSIONS(template <typename T>, static, name, params, <T>, args)

#endif
