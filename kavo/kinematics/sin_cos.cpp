#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/kinematics/sin_cos.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h, as Highway wants it.
#include <hwy/highway.h>

#ifndef KAVO_KINEMATICS_SIN_COS_ONCE
#define KAVO_KINEMATICS_SIN_COS_ONCE

namespace kavo::kinematics::internal {

// Up to here the quadrant number has at most 20 bits (or is 2^20), so that its products with the 33-bit parts
// of pi/2 are exact.
constexpr double kMediumLimit = 1647099.0;

// 1.5 * 2^52: adding it rounds a number below 2^51 to an integer, which then stands in the low bits.
constexpr double kRounder = 6755399441055744.0;

constexpr double kTwoOverPi = 0x1.45f306dc9c883p-1;
// pi/2 in parts of 33 bits, and the rest.
constexpr double kHalfPi1 = 0x1.921fb54400000p+0;
constexpr double kHalfPi2 = 0x1.0b4611a600000p-34;
constexpr double kHalfPi3 = 0x1.3198a2e000000p-69;
constexpr double kHalfPi4 = 0x1.b839a252049c1p-104;

// Minimax on [-pi/4, pi/4] by the Remez exchange: sin x = x + x^3 P(x^2), cos x = 1 - x^2/2 + x^4 Q(x^2).
// Errors 3.5e-18 and 4.7e-20 before the coefficients were rounded.
constexpr double kSin0 = -0x1.5555555555549p-3;
constexpr double kSin1 = 0x1.111111110f87ap-7;
constexpr double kSin2 = -0x1.a01a019c1199ap-13;
constexpr double kSin3 = 0x1.71de3577b6dc9p-19;
constexpr double kSin4 = -0x1.ae5e663abd5eep-26;
constexpr double kSin5 = 0x1.5d93010784d0fp-33;
constexpr double kCos0 = 0x1.555555555554cp-5;
constexpr double kCos1 = -0x1.6c16c16c1517ep-10;
constexpr double kCos2 = 0x1.a01a019cb1bd3p-16;
constexpr double kCos3 = -0x1.27e4f809f0441p-22;
constexpr double kCos4 = 0x1.1ee9ebe8f0870p-29;
constexpr double kCos5 = -0x1.8fae9c57f9ebfp-37;

}  // namespace kavo::kinematics::internal

#endif  // KAVO_KINEMATICS_SIN_COS_ONCE

HWY_BEFORE_NAMESPACE();
namespace kavo::kinematics::internal::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<double>;
using V = hn::Vec<D>;

// difference = a - b rounded; error = what the rounding cost (Knuth's exact subtraction).
inline void SubtractExactly(V a, V b, V& difference, V& error) {
  difference = hn::Sub(a, b);
  const V b_part = hn::Sub(a, difference);
  const V a_part = hn::Add(difference, b_part);
  error = hn::Add(hn::Sub(a, a_part), hn::Sub(b_part, b));
}

// The operations of `EvaluateMedium` below, value by value and in the same order.
inline void EvaluateMedium(D d, V x, V& sin, V& cos) {
  const hn::RebindToUnsigned<D> du;
  const V rounder = hn::Set(d, kRounder);
  const V shifted = hn::Add(hn::Mul(x, hn::Set(d, kTwoOverPi)), rounder);
  const auto quadrant = hn::BitCast(du, shifted);
  const V k = hn::Sub(shifted, rounder);

  const V rest0 = hn::Sub(x, hn::Mul(k, hn::Set(d, kHalfPi1)));
  V rest1, rest2, error1, error2;
  SubtractExactly(rest0, hn::Mul(k, hn::Set(d, kHalfPi2)), rest1, error1);
  SubtractExactly(rest1, hn::Mul(k, hn::Set(d, kHalfPi3)), rest2, error2);
  const V low = hn::Sub(hn::Add(error1, error2), hn::Mul(k, hn::Set(d, kHalfPi4)));
  const V y = hn::Add(rest2, low);
  const V tail = hn::Sub(low, hn::Sub(y, rest2));

  const V z = hn::Mul(y, y);
  const V zz = hn::Mul(z, z);
  const V half = hn::Set(d, 0.5);
  const V s_low = hn::Add(hn::Set(d, kSin1), hn::Mul(z, hn::Set(d, kSin2)));
  const V s_mid = hn::Add(hn::Set(d, kSin3), hn::Mul(z, hn::Set(d, kSin4)));
  const V s_high = hn::Add(s_mid, hn::Mul(zz, hn::Set(d, kSin5)));
  const V s_poly = hn::Add(s_low, hn::Mul(zz, s_high));
  const V cube = hn::Mul(z, y);
  const V s_tail = hn::Sub(tail, hn::Mul(z, hn::Sub(hn::Mul(half, tail), hn::Mul(cube, s_poly))));
  const V sin_y = hn::Add(y, hn::Add(s_tail, hn::Mul(cube, hn::Set(d, kSin0))));

  const V c_low = hn::Add(hn::Set(d, kCos0), hn::Mul(z, hn::Set(d, kCos1)));
  const V c_mid = hn::Add(hn::Set(d, kCos2), hn::Mul(z, hn::Set(d, kCos3)));
  const V c_high = hn::Add(hn::Set(d, kCos4), hn::Mul(z, hn::Set(d, kCos5)));
  const V c_poly = hn::Add(c_low, hn::Mul(zz, hn::Add(c_mid, hn::Mul(zz, c_high))));
  const V one = hn::Set(d, 1.0);
  const V half_z = hn::Mul(half, z);
  const V head = hn::Sub(one, half_z);
  const V head_error = hn::Sub(hn::Sub(one, head), half_z);
  const V cos_y = hn::Add(head, hn::Add(head_error, hn::Sub(hn::Mul(zz, c_poly), hn::Mul(y, tail))));

  // An odd quadrant swaps the two; bit 1 of the quadrant is the sign of the sine, that of quadrant + 1 the
  // cosine's.
  const auto one_u = hn::Set(du, 1);
  const auto two_u = hn::Set(du, 2);
  const auto odd = hn::MaskFromVec(hn::BitCast(d, hn::Sub(hn::Zero(du), hn::And(quadrant, one_u))));
  const auto sin_sign = hn::ShiftLeft<62>(hn::And(quadrant, two_u));
  const auto cos_sign = hn::ShiftLeft<62>(hn::And(hn::Add(quadrant, one_u), two_u));
  sin = hn::Xor(hn::IfThenElse(odd, cos_y, sin_y), hn::BitCast(d, sin_sign));
  cos = hn::Xor(hn::IfThenElse(odd, sin_y, cos_y), hn::BitCast(d, cos_sign));
}

// One vector at p; the rare values beyond the limit (and NaN) are done again one by one.
inline void EvaluateVector(D d, const double* HWY_RESTRICT x, double* HWY_RESTRICT sin,
                           double* HWY_RESTRICT cos) {
  const V v = hn::LoadU(d, x);
  V s, c;
  EvaluateMedium(d, v, s, c);
  hn::StoreU(s, d, sin);
  hn::StoreU(c, d, cos);
  if (!hn::AllTrue(d, hn::Le(hn::Abs(v), hn::Set(d, kMediumLimit)))) {
    for (std::size_t i = 0; i < hn::Lanes(d); ++i) {
      internal::SinCos(x[i], sin + i, cos + i);
    }
  }
}

void SinCosAll(const double* HWY_RESTRICT x, double* HWY_RESTRICT sin, double* HWY_RESTRICT cos,
               std::size_t n) {
  const D d;
  const std::size_t lanes = hn::Lanes(d);
  if (n >= lanes) {
    std::size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
      EvaluateVector(d, x + i, sin + i, cos + i);
    }
    if (i < n) {
      // The last vector reaches back over values that are done already: it writes the same bits again.
      i = n - lanes;
      EvaluateVector(d, x + i, sin + i, cos + i);
    }
    return;
  }
  HWY_ALIGN double padded[HWY_MAX_BYTES / sizeof(double)] = {};
  HWY_ALIGN double padded_sin[HWY_MAX_BYTES / sizeof(double)];
  HWY_ALIGN double padded_cos[HWY_MAX_BYTES / sizeof(double)];
  std::copy_n(x, n, padded);
  EvaluateVector(d, padded, padded_sin, padded_cos);
  std::copy_n(padded_sin, n, sin);
  std::copy_n(padded_cos, n, cos);
}

}  // namespace kavo::kinematics::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::kinematics::internal {

HWY_EXPORT(SinCosAll);

namespace {

__extension__ using Uint128 = unsigned __int128;

// An argument less a multiple of pi/2: in [-pi/4, pi/4] to rounding, as the unevaluated sum value + tail.
struct Reduced {
  double value;
  double tail;
  std::uint64_t quadrant;
};

void SubtractExactly(double a, double b, double* difference, double* error) {
  *difference = a - b;
  const double b_part = a - *difference;
  const double a_part = *difference + b_part;
  *error = (a - a_part) + (b_part - b);
}

Reduced ReduceMedium(double x) {
  const double shifted = x * kTwoOverPi + kRounder;
  std::uint64_t quadrant;
  std::memcpy(&quadrant, &shifted, sizeof(quadrant));
  const double k = shifted - kRounder;

  const double rest0 = x - k * kHalfPi1;
  double rest1, rest2, error1, error2;
  SubtractExactly(rest0, k * kHalfPi2, &rest1, &error1);
  SubtractExactly(rest1, k * kHalfPi3, &rest2, &error2);
  const double low = (error1 + error2) - k * kHalfPi4;
  const double y = rest2 + low;
  return {y, low - (y - rest2), quadrant};
}

// The binary digits of 2/pi after the point, behind 64 zeros: enough for the largest double, 53 digits of it
// and 128 digits of the answer.
constexpr std::uint64_t kTwoOverPiDigits[] = {
    0x0000000000000000, 0xa2f9836e4e441529, 0xfc2757d1f534ddc0, 0xdb6295993c439041, 0xfe5163abdebbc561,
    0xb7246e3a424dd2e0, 0x06492eea09d1921c, 0xfe1deb1cb129a73e, 0xe88235f52ebb4484, 0xe99c7026b45f7e41,
    0x3991d639835339f4, 0x9c845f8bbdf9283b, 0x1ff897ffde05980f, 0xef2f118b5a0a6d1f, 0x6d367ecf27cb09b7,
    0x4f463f669e5fea2d, 0x7527bac7ebe5f17b, 0x3d0739f78a5292ea, 0x6bfb5fb11f8d5d08, 0x56033046fc7b6bab,
    0xf0cfbc209af4361d};

// 64 binary digits of 2/pi from the given one on.
std::uint64_t Digits(int first) {
  const int word = first / 64;
  const int shift = first % 64;
  const std::uint64_t high = kTwoOverPiDigits[word] << shift;
  return shift == 0 ? high : high | (kTwoOverPiDigits[word + 1] >> (64 - shift));
}

// Payne and Hanek: of x * 2/pi only the digits from weight 2 on matter, so only the digits of 2/pi that reach
// them are multiplied. Exact integer arithmetic on 192 digits: two before the point, 190 behind it.
Reduced ReduceLarge(double x) {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof(bits));
  const int exponent = static_cast<int>((bits >> 52) & 0x7ff) - 1075;
  const std::uint64_t mantissa = (bits & 0xfffffffffffff) | 0x10000000000000;

  const int first = exponent + 62;
  const Uint128 low = Uint128{mantissa} * Digits(first + 128);
  const Uint128 middle = Uint128{mantissa} * Digits(first + 64) + static_cast<std::uint64_t>(low >> 64);
  std::uint64_t high = mantissa * Digits(first) + static_cast<std::uint64_t>(middle >> 64);
  Uint128 rest = (middle << 64) | static_cast<std::uint64_t>(low);

  // To the nearest multiple: the digits behind the point become a signed fraction in [-1/2, 1/2).
  std::uint64_t quadrant = high >> 62;
  bool negative = false;
  if (high & (std::uint64_t{1} << 61)) {
    ++quadrant;
    negative = true;
    rest = ~rest + 1;
    high = ~high + (rest == 0 ? 1 : 0);
  }
  high &= 0x3fffffffffffffff;

  // The leading 128 digits of the fraction, times pi/2 (125 digits behind the point), to 128 digits.
  int weight = -62;
  while (!(high >> 63)) {
    high = (high << 1) | static_cast<std::uint64_t>(rest >> 127);
    rest <<= 1;
    --weight;
  }
  constexpr std::uint64_t kHalfPiHigh = 0xc90fdaa22168c234;
  constexpr std::uint64_t kHalfPiLow = 0xc4c6628b80dc1cd1;
  const std::uint64_t next = static_cast<std::uint64_t>(rest >> 64);
  const Uint128 cross = Uint128{high} * kHalfPiLow;
  const Uint128 cross_carry = Uint128{next} * kHalfPiHigh;
  Uint128 product = Uint128{high} * kHalfPiHigh + (cross >> 64) + (cross_carry >> 64);
  // `product` counts units of 2^(weight - 63).
  const double head = std::ldexp(static_cast<double>(static_cast<std::uint64_t>(product >> 75)), weight + 12);
  const std::uint64_t below = static_cast<std::uint64_t>(product >> 11);
  const double low_part = std::ldexp(static_cast<double>(below), weight - 52);
  const double sign = (negative != (x < 0.0)) ? -1.0 : 1.0;
  const double value = head + low_part;
  const double tail = low_part - (value - head);
  return {sign * value, sign * tail, x < 0.0 ? 0 - quadrant : quadrant};
}

}  // namespace

void SinCos(const double* x, double* sin, double* cos, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(SinCosAll)(x, sin, cos, n);
}

void SinCos(double x, double* sin, double* cos) {
  if (!(std::fabs(x) <= std::numeric_limits<double>::max())) {
    *sin = *cos = math::kNaN;
    return;
  }
  const Reduced reduced = std::fabs(x) <= kMediumLimit ? ReduceMedium(x) : ReduceLarge(x);
  const double y = reduced.value;
  const double tail = reduced.tail;

  const double z = y * y;
  const double zz = z * z;
  const double s_high = (kSin3 + z * kSin4) + zz * kSin5;
  const double s_poly = (kSin1 + z * kSin2) + zz * s_high;
  const double cube = z * y;
  const double s_tail = tail - z * (0.5 * tail - cube * s_poly);
  const double sin_y = y + (s_tail + cube * kSin0);

  const double c_high = kCos4 + z * kCos5;
  const double c_poly = (kCos0 + z * kCos1) + zz * ((kCos2 + z * kCos3) + zz * c_high);
  const double half_z = 0.5 * z;
  const double head = 1.0 - half_z;
  const double head_error = (1.0 - head) - half_z;
  const double cos_y = head + (head_error + (zz * c_poly - y * tail));

  const bool odd = (reduced.quadrant & 1) != 0;
  const double sin_x = odd ? cos_y : sin_y;
  const double cos_x = odd ? sin_y : cos_y;
  *sin = (reduced.quadrant & 2) != 0 ? -sin_x : sin_x;
  *cos = ((reduced.quadrant + 1) & 2) != 0 ? -cos_x : cos_x;
}

}  // namespace kavo::kinematics::internal

#endif  // HWY_ONCE
