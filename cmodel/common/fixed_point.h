// Integer operations with a rule of their own, each with one name and one home.
//
// The datapath's registers are 32 bits of two's complement: sums, differences and products wrap,
// comparisons are signed, shifts to the right are arithmetic. `Wrap` is such a register, so that a
// datapath can be written as its formula and has defined behaviour for every input.
#ifndef CMODEL_FIXED_POINT_H
#define CMODEL_FIXED_POINT_H

#include <cstdint>

#define CM_INLINE inline __attribute__((always_inline))
#define CM_INLINE_LAMBDA __attribute__((always_inline))

// Before a loop of a few fixed steps inside a row loop, so that the row loop vectorises.
#if defined(__clang__)
#define CM_UNROLL _Pragma("unroll")
#elif defined(__GNUC__)
#define CM_UNROLL _Pragma("GCC unroll 8")
#else
#define CM_UNROLL
#endif

namespace cm {

class Wrap {
  public:
    constexpr CM_INLINE Wrap(int32_t value) : bits_(static_cast<uint32_t>(value)) {}
    constexpr CM_INLINE operator int32_t() const { return static_cast<int32_t>(bits_); }

  private:
    uint32_t bits_;
};

constexpr CM_INLINE uint32_t to_bits(Wrap a) {
    return static_cast<uint32_t>(static_cast<int32_t>(a));
}
constexpr CM_INLINE Wrap from_bits(uint32_t bits) {
    return static_cast<int32_t>(bits);
}

// Both operands Wrap, or one of them a plain int32_t.
#define CM_WRAP_OPERATOR(op)                                  \
    constexpr CM_INLINE Wrap operator op(Wrap a, Wrap b) {    \
        return from_bits(to_bits(a) op to_bits(b));           \
    }                                                         \
    constexpr CM_INLINE Wrap operator op(Wrap a, int32_t b) { \
        return a op Wrap(b);                                  \
    }                                                         \
    constexpr CM_INLINE Wrap operator op(int32_t a, Wrap b) { \
        return Wrap(a) op b;                                  \
    }
CM_WRAP_OPERATOR(+)
CM_WRAP_OPERATOR(-)
CM_WRAP_OPERATOR(*)
#undef CM_WRAP_OPERATOR

constexpr CM_INLINE Wrap operator-(Wrap a) {
    return from_bits(0u - to_bits(a));
}
constexpr CM_INLINE Wrap operator>>(Wrap a, int n) {
    return static_cast<int32_t>(a) >> n;
}

constexpr CM_INLINE int32_t min32(int32_t a, int32_t b) {
    return a < b ? a : b;
}
constexpr CM_INLINE int32_t max32(int32_t a, int32_t b) {
    return a > b ? a : b;
}

// Conditions as masks, all ones or all zeros, for row loops whose selections the compiler would else
// turn into control flow.
constexpr CM_INLINE int32_t mask_of(bool condition) {
    return -int32_t{condition};
}

template <typename T>
constexpr CM_INLINE T select(int32_t mask, T a, T b) {
    return b ^ ((a ^ b) & T{mask});
}

// The lower bound first: when lo > hi the result is hi.
constexpr CM_INLINE int32_t clamp32(int32_t v, int32_t lo, int32_t hi) {
    return min32(max32(v, lo), hi);
}

// |v|; the most negative value is its own.
constexpr CM_INLINE int32_t magnitude(int32_t v) {
    return v < 0 ? -Wrap(v) : Wrap(v);
}

// `mag` with the sign of v; zero counts as positive.
constexpr CM_INLINE int32_t with_sign(int32_t v, int32_t mag) {
    return v < 0 ? -Wrap(mag) : Wrap(mag);
}

// Sign-and-magnitude step: |v| >> shift (so truncated toward zero), at most max, sign put back.
constexpr CM_INLINE int32_t shift_magnitude(int32_t v, int shift, int32_t max) {
    return with_sign(v, min32(magnitude(v) >> shift, max));
}

// Shifts and powers of two whose count counts modulo 32.
constexpr CM_INLINE int32_t shl_mod32(int32_t v, int n) {
    return from_bits(to_bits(v) << (n & 31));
}
constexpr CM_INLINE int32_t shr_mod32(int32_t v, int n) {
    return v >> (n & 31);
}
constexpr CM_INLINE int32_t pow2_mod32(int n) {
    return shl_mod32(1, n);
}

// The same register in 16 bits, so that one text serves both widths where no result is wider.
class Wrap16 {
  public:
    constexpr CM_INLINE Wrap16(int value) : value_(static_cast<int16_t>(value)) {}
    constexpr CM_INLINE operator int16_t() const { return value_; }
    friend constexpr CM_INLINE Wrap16 operator+(Wrap16 a, Wrap16 b) { return a.value_ + b.value_; }
    friend constexpr CM_INLINE Wrap16 operator-(Wrap16 a, Wrap16 b) { return a.value_ - b.value_; }
    friend constexpr CM_INLINE Wrap16 operator-(Wrap16 a, int b) { return a.value_ - b; }
    friend constexpr CM_INLINE Wrap16 operator+(Wrap16 a, int b) { return a.value_ + b; }
    friend constexpr CM_INLINE Wrap16 operator*(Wrap16 a, int b) { return a.value_ * b; }
    friend constexpr CM_INLINE Wrap16 operator>>(Wrap16 a, int n) { return a.value_ >> n; }

  private:
    int16_t value_;
};

template <typename T>
struct LaneFor {
    using type = Wrap;
};
template <>
struct LaneFor<int16_t> {
    using type = Wrap16;
};
template <typename T>
using LaneOf = typename LaneFor<T>::type;

// 16-bit operations, for rows whose samples and results fit: sums that are cut to 16 bits stay in 16-bit
// lanes. A product of two factors that were shifted left by 16 - n bits together is their product >> n, in
// one instruction.
constexpr CM_INLINE uint16_t high_product(uint16_t a, uint16_t b) {
    return static_cast<uint16_t>((uint32_t{a} * b) >> 16);
}
constexpr CM_INLINE int16_t high_product(int16_t a, int16_t b) {
    return static_cast<int16_t>((int32_t{a} * b) >> 16);
}
constexpr CM_INLINE int16_t magnitude16(int16_t v) {
    return static_cast<int16_t>(v < 0 ? -v : v);
}
constexpr CM_INLINE int16_t min16(int16_t a, int16_t b) {
    return a < b ? a : b;
}
constexpr CM_INLINE int16_t max16(int16_t a, int16_t b) {
    return a > b ? a : b;
}
constexpr CM_INLINE int16_t mask16(bool condition) {
    return static_cast<int16_t>(-int16_t{condition});
}
// All ones for a < b; their difference must fit. (Comparisons turn into control flow in long loops, this does
// not.)
constexpr CM_INLINE int16_t below16(int16_t a, int16_t b) {
    return static_cast<int16_t>(static_cast<int16_t>(a - b) >> 15);
}
constexpr CM_INLINE int16_t select16(int16_t mask, int16_t a, int16_t b) {
    return static_cast<int16_t>(b ^ ((a ^ b) & mask));
}
// `mag` with the sign of a mask that is all ones for negative.
constexpr CM_INLINE int16_t with_sign16(int16_t negative, int16_t mag) {
    return static_cast<int16_t>((mag ^ negative) - negative);
}

// Largest magnitude of a depth-11 delta.
inline constexpr int32_t kDeltaMax = 2047;
// Largest total gain, 256 for 1.0.
inline constexpr int32_t kTotalGainMax = 4095;

}  // namespace cm

#endif
