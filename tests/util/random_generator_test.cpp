#include "kavo/util/random_generator.h"

#include <gmock/gmock.h>

#include <limits>
#include <random>
#include <utility>

#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr int kIntMax = std::numeric_limits<int>::max();

double NextDouble(std::mt19937& engine, double min, double max) {
  const double u = static_cast<double>(engine()) / 4294967295.0;
  return u * max + (1.0 - u) * min;
}

TEST(RandomGenerator, DoublesAndVectorsFollowTheTwisterBitForBit) {
  for (const std::uint32_t seed : {0u, 1u, 5489u, 4294967295u}) {
    RandomGenerator<double> doubles(seed);
    RandomGenerator<Eigen::Vector3d> vectors(seed);
    std::mt19937 engine(seed);
    std::mt19937 vector_engine(seed);
    Eigen::Vector3d min(-1.0, -1.0, -1.0);
    Eigen::Vector3d max(1.0, 1.0, 1.0);
    for (int i = 0; i < 3000; ++i) {
      if (i == 1500) {  // A new range continues the same sequence.
        min = {-0.1, -3.0, 0.5};
        max = {1e6, -1.0, 8.0};
        doubles.SetRange(min[0], max[0]);
        vectors.SetRange(min, max);
      }
      ASSERT_EQ(doubles.Sample(), NextDouble(engine, min[0], max[0])) << "seed " << seed << ", draw " << i;
      const Eigen::Vector3d sample = vectors.Sample();
      for (int k = 0; k < 3; ++k) {
        ASSERT_EQ(sample[k], NextDouble(vector_engine, min[k], max[k])) << "seed " << seed << ", draw " << i;
      }
    }
  }
}

TEST(RandomGenerator, IntsAreTheRemainderOnTopOfTheMinimum) {
  RandomGenerator<int> generator(99);
  std::mt19937 engine(99);
  const auto expect_range = [&](int min, int max) {
    const std::uint64_t count = static_cast<std::uint64_t>(std::int64_t{max} - std::int64_t{min} + 1);
    for (int i = 0; i < 1000; ++i) {
      const std::int64_t expected = min + static_cast<std::int64_t>(engine() % count);
      ASSERT_EQ(generator.Sample(), expected) << "[" << min << ", " << max << "], draw " << i;
    }
  };
  expect_range(-1073741823, 1073741822);  // Until a range is set: half of the type's.
  const std::pair<int, int> ranges[] = {
      {1, 6}, {-3, 3}, {kIntMin, kIntMax}, {kIntMin, 0}, {kIntMax, kIntMax}};
  for (const auto& [min, max] : ranges) {
    generator.SetRange(min, max);
    expect_range(min, max);
  }
}

TEST(RandomGenerator, RangeOfOneValueYieldsExactlyThatAndUsesADraw) {
  RandomGenerator<double> generator(8);
  RandomGenerator<Eigen::Vector3d> vectors(8);
  for (const double value : {0.0, -0.1, 0.3, 1e-300, 1e300}) {
    generator.SetRange(value, value);
    vectors.SetRange(Eigen::Vector3d(-1.0, value, value), Eigen::Vector3d(1.0, value, value));
    for (int i = 0; i < 200; ++i) {
      ASSERT_EQ(generator.Sample(), value);
      ASSERT_EQ(vectors.Sample().tail<2>(), Eigen::Vector2d(value, value));
    }
  }
  std::mt19937 engine(8);
  engine.discard(1000);
  generator.SetRange(0.0, 1.0);
  EXPECT_EQ(generator.Sample(), NextDouble(engine, 0.0, 1.0));
}

TEST(RandomGenerator, RejectedRangeWarnsAndKeepsTheFormerOne) {
  const kavo::testing::LogCapture log;
  RandomGenerator<double> doubles(4);
  doubles.SetRange(2.5, 2.5);
  doubles.SetRange(1.0, -1e-7);
  EXPECT_EQ(doubles.Sample(), 2.5);
  RandomGenerator<int> ints(4);
  ints.SetRange(7, 7);
  ints.SetRange(kIntMax, kIntMin);
  EXPECT_EQ(ints.Sample(), 7);
  // One coordinate that is the wrong way round rejects the range as a whole; the first such one is named.
  RandomGenerator<Eigen::Vector3d> vectors(4);
  vectors.SetRange(Eigen::Vector3d(1.0, 2.0, 3.0), Eigen::Vector3d(1.0, 2.0, 3.0));
  vectors.SetRange(Eigen::Vector3d(5.0, 5.0, 1e-300), Eigen::Vector3d(6.0, 6.0, 0.0));
  vectors.SetRange(Eigen::Vector3d(0.0, 2.5, 9.0), Eigen::Vector3d(0.0, -2.5, 8.0));
  EXPECT_EQ(vectors.Sample(), Eigen::Vector3d(1.0, 2.0, 3.0));
  EXPECT_THAT(log.warnings(),
              ::testing::ElementsAre(
                  "Min [1] cannot be greater than max [-1e-07]. Range will not be updated.",
                  "Min [2147483647] cannot be greater than max [-2147483648]. Range will not be updated.",
                  "min(2) [1e-300] cannot be greater than max(2) [0]. Range will not be updated.",
                  "min(1) [2.5] cannot be greater than max(1) [-2.5]. Range will not be updated."));
}

}  // namespace
}  // namespace kavo::util
