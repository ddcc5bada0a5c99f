#include "row_targets.h"

namespace cm {

RowTarget best_row_target() {
#if defined(__x86_64__) && defined(__GNUC__)
    __builtin_cpu_init();
    const bool v3 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                    __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("fma");
    const bool v4 = v3 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                    __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
                    __builtin_cpu_supports("avx512vl");
    return v4 ? RowTarget::kV4 : v3 ? RowTarget::kV3 : RowTarget::kBaseline;
#else
    return RowTarget::kBaseline;
#endif
}

RowTarget current_row_target = best_row_target();

void set_row_target(RowTarget target) {
    current_row_target = target < best_row_target() ? target : best_row_target();
}

}  // namespace cm
