// Curves, interpolation and blends with the hardware's rounding.
#include "common.h"
#include "fixed_point.h"

int CM_LUT(int x, const int* in, const int* out, const int* slope, int n, int shift) {
    if (x <= in[0]) {
        return out[0];
    }
    if (x > in[n - 1]) {
        return out[n - 1];
    }
    int i = 0;
    while (in[i] < x) {
        ++i;
    }
    const int j = i - 1;
    const cm::Wrap rise = cm::shr_mod32(cm::Wrap(slope[j]) * (cm::Wrap(x) - cm::Wrap(in[j])), shift);
    return cm::clamp32(rise + out[j], cm::min32(out[j], out[i]), cm::max32(out[j], out[i]));
}
