#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kavo/kinematics/sin_cos_internal.h"

namespace kavo::kinematics::internal {
namespace {

template <typename To, typename From>
To BitCast(From from) {
  To to;
  std::memcpy(&to, &from, sizeof(to));
  return to;
}

// Distance from the exact value in units of the last place of the value as a double.
double ErrorInUlp(double value, long double exact) {
  const double rounded = static_cast<double>(exact);
  const double ulp = std::nextafter(std::fabs(rounded), HUGE_VAL) - std::fabs(rounded);
  return static_cast<double>(std::fabs(static_cast<long double>(value) - exact)) / ulp;
}

double Uniform(std::mt19937_64& engine, double min, double max) {
  return min + (max - min) * (static_cast<double>(engine() >> 11) / 9007199254740992.0);
}

TEST(SinCos, WithinOneUlpOfTheSystemsLongDouble) {
  static_assert(std::numeric_limits<long double>::digits >= 64, "no wider type to compare with");
  std::mt19937_64 engine(3);
  const double two_pi = 6.283185307179586;
  std::vector<double> x;
  for (int i = 0; i < 400000; ++i) {
    x.insert(x.end(), {-two_pi + 2.0 * two_pi * i / 400000.0, Uniform(engine, -two_pi, two_pi),
                       std::ldexp(Uniform(engine, -1.0, 1.0), -static_cast<int>(engine() % 60)),
                       // Both sides of the change to the other reduction.
                       Uniform(engine, -1.6e6, 1.6e6), Uniform(engine, 1.6e6, 1.7e6)});
  }
  // The double nearest to a multiple of pi/2 and its neighbours: nearly everything cancels.
  for (int k = 1; k < 4000; ++k) {
    const double quarters = static_cast<double>(k * (std::acos(-1.0L) / 2.0L));
    x.insert(x.end(), {quarters, std::nextafter(quarters, 0.0), -std::nextafter(quarters, HUGE_VAL)});
  }
  std::vector<double> sin(x.size());
  std::vector<double> cos(x.size());
  SinCos(x.data(), sin.data(), cos.data(), x.size());
  for (std::size_t i = 0; i < x.size(); ++i) {
    ASSERT_LT(ErrorInUlp(sin[i], std::sin(static_cast<long double>(x[i]))), 0.8) << x[i];
    ASSERT_LT(ErrorInUlp(cos[i], std::cos(static_cast<long double>(x[i]))), 0.8) << x[i];
  }
}

TEST(SinCos, LargeArguments) {
  // Rounded from exact arithmetic with 1700 binary digits.
  const struct {
    double x;
    double sin;
    double cos;
  } cases[] = {
      {1647099.0, -0x1.4b02e5be91e9ep-2, 0x1.e4831257a62dap-1},
      {1e22, -0x1.b453ab76bf397p-1, 0x1.0be2cef01c8f4p-1},
      {0x1p1023, 0x1.205248cbdb760p-1, -0x1.a719f26c232bfp-1},
      {0x1.fffffffffffffp+1023, 0x1.452fc98b34e97p-8, -0x1.fffe62ecfab75p-1},
      // The double that comes closest to a multiple of pi/2.
      {0x1.6ac5b262ca1ffp+849, 1.0, -0x1.14ae72e6ba22fp-61},
  };
  for (const auto& c : cases) {
    for (const double sign : {1.0, -1.0}) {
      double sin, cos;
      SinCos(sign * c.x, &sin, &cos);
      EXPECT_LE(ErrorInUlp(sin, static_cast<long double>(sign * c.sin)), 1.0) << sign * c.x;
      EXPECT_LE(ErrorInUlp(cos, static_cast<long double>(c.cos)), 1.0) << sign * c.x;
    }
  }
}

TEST(SinCos, ValuesWithoutAnswerAndExactOnes) {
  for (const double x : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    double sin, cos;
    SinCos(x, &sin, &cos);
    EXPECT_TRUE(std::isnan(sin) && std::isnan(cos)) << x;
  }
  double sin, cos;
  SinCos(0.0, &sin, &cos);
  EXPECT_EQ(sin, 0.0);
  EXPECT_EQ(cos, 1.0);
  SinCos(5e-324, &sin, &cos);
  EXPECT_EQ(sin, 5e-324);
}

TEST(SinCos, SameBitsForEveryTargetAndLength) {
  std::mt19937_64 engine(5);
  std::vector<double> x = {0.0,       -0.0,       HUGE_VAL,           -HUGE_VAL, std::nan(""),
                           1647099.0, -1647099.0, 1647099.0000000002, 5e-324};
  for (int i = 0; i < 3000; ++i) {
    // Both reductions, and any pattern of bits at all.
    x.insert(x.end(),
             {Uniform(engine, -7.0, 7.0), Uniform(engine, -1.7e6, 1.7e6), BitCast<double>(engine())});
  }
  const auto same = [](double a, double b) {
    return BitCast<std::uint64_t>(a) == BitCast<std::uint64_t>(b) || (std::isnan(a) && std::isnan(b));
  };
  for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
    SCOPED_TRACE(hwy::TargetName(target));
    hwy::SetSupportedTargetsForTest(target);
    for (std::size_t n = 0; n < 41; ++n) {
      const std::size_t size = n == 0 ? x.size() : n - 1;
      std::vector<double> sin(size + 1, 7.0);
      std::vector<double> cos(size + 1, 7.0);
      SinCos(x.data() + n, sin.data(), cos.data(), size);
      for (std::size_t i = 0; i < size; ++i) {
        double expected_sin, expected_cos;
        SinCos(x[n + i], &expected_sin, &expected_cos);
        ASSERT_TRUE(same(sin[i], expected_sin) && same(cos[i], expected_cos)) << x[n + i] << " of " << size;
      }
      ASSERT_TRUE(sin[size] == 7.0 && cos[size] == 7.0) << size;
    }
  }
  hwy::SetSupportedTargetsForTest(0);
}

}  // namespace
}  // namespace kavo::kinematics::internal
