#include "kavo/util/random_generator.h"

#include <gmock/gmock.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr int kIntMax = std::numeric_limits<int>::max();

// The recurrence as Matsumoto and Nishimura write it, one word at a time from a growing list: slow, and
// independent of the standard library's engine.
class ReferenceTwister {
 public:
  explicit ReferenceTwister(std::uint32_t seed) {
    words_.push_back(seed);
    for (std::uint32_t i = 1; i < 624; ++i) {
      words_.push_back(1812433253u * (words_.back() ^ (words_.back() >> 30)) + i);
    }
  }

  std::uint32_t Next() {
    const std::size_t k = words_.size() - 624;
    const std::uint32_t y = (words_[k] & 0x80000000u) | (words_[k + 1] & 0x7fffffffu);
    std::uint32_t x = words_[k + 397] ^ (y >> 1) ^ ((y & 1u) != 0 ? 0x9908b0dfu : 0u);
    words_.push_back(x);
    x ^= x >> 11;
    x ^= (x << 7) & 0x9d2c5680u;
    x ^= (x << 15) & 0xefc60000u;
    return x ^ (x >> 18);
  }

  double NextDouble(double min, double max) {
    const double u = Next() / 4294967295.0;
    return u * max + (1.0 - u) * min;
  }

 private:
  std::vector<std::uint32_t> words_;
};

TEST(RandomGenerator, ReferenceKnowsThePublishedSequence) {
  ReferenceTwister twister(5489u);
  EXPECT_EQ(twister.Next(), 3499211612u);
  for (int i = 2; i < 10000; ++i) {
    twister.Next();
  }
  EXPECT_EQ(twister.Next(), 4123659995u);
}

TEST(RandomGenerator, DoublesFollowTheTwisterBitForBit) {
  for (const std::uint32_t seed : {0u, 1u, 5489u, 4294967295u}) {
    RandomGenerator<double> generator(seed);
    ReferenceTwister twister(seed);
    for (int i = 0; i < 1500; ++i) {
      ASSERT_EQ(generator.Sample(), twister.NextDouble(-1.0, 1.0)) << "seed " << seed << ", draw " << i;
    }
    // A new range continues the same sequence.
    generator.SetRange(-0.1, 1e6);
    for (int i = 0; i < 1500; ++i) {
      ASSERT_EQ(generator.Sample(), twister.NextDouble(-0.1, 1e6)) << "seed " << seed << ", draw " << i;
    }
  }
}

TEST(RandomGenerator, VectorsTakeOneDrawPerCoordinateInOrder) {
  RandomGenerator<Eigen::Vector3d> generator(17);
  ReferenceTwister twister(17);
  const auto expect_range = [&](const Eigen::Vector3d& min, const Eigen::Vector3d& max) {
    for (int k = 0; k < 500; ++k) {
      const Eigen::Vector3d sample = generator.Sample();
      for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(sample[i], twister.NextDouble(min[i], max[i]));
      }
    }
  };
  expect_range({-1.0, -1.0, -1.0}, {1.0, 1.0, 1.0});
  const Eigen::Vector3d min(-3.0, 2.0, 0.5);
  const Eigen::Vector3d max(-1.0, 2.0, 8.0);
  generator.SetRange(min, max);
  expect_range(min, max);
}

TEST(RandomGenerator, IntsAreTheRemainderOnTopOfTheMinimum) {
  const struct {
    int min;
    int max;
  } ranges[] = {{0, 1},
                {1, 6},
                {-3, 3},
                {5, 5},
                {kIntMin, kIntMax},
                {kIntMin, 0},
                {0, kIntMax},
                {kIntMin, kIntMin},
                {kIntMax, kIntMax}};
  for (const auto& [min, max] : ranges) {
    RandomGenerator<int> generator(99);
    generator.SetRange(min, max);
    ReferenceTwister twister(99);
    const std::uint64_t count = static_cast<std::uint64_t>(std::int64_t{max} - std::int64_t{min} + 1);
    for (int i = 0; i < 1000; ++i) {
      const std::int64_t expected = min + static_cast<std::int64_t>(twister.Next() % count);
      ASSERT_EQ(generator.Sample(), expected) << "[" << min << ", " << max << "], draw " << i;
    }
  }
}

TEST(RandomGenerator, IntStartsWithHalfOfTheTypesRange) {
  RandomGenerator<int> generator(3);
  ReferenceTwister twister(3);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(generator.Sample(), -1073741823 + static_cast<std::int64_t>(twister.Next() % 2147483646u));
  }
}

TEST(RandomGenerator, IntReachesBothEnds) {
  RandomGenerator<int> generator(0);
  generator.SetRange(-2, 2);
  std::array<int, 5> counts{};
  for (int i = 0; i < 1000; ++i) {
    ++counts.at(static_cast<std::size_t>(generator.Sample() + 2));
  }
  for (const int count : counts) {
    EXPECT_GT(count, 150);
  }
}

// The ends of a range come up once in 2^32 draws each. These seeds, found by search, produce the largest and
// the smallest word early.
TEST(RandomGenerator, BothEndsComeUpExactly) {
  const struct {
    std::uint32_t seed;
    int draw;
    std::uint32_t word;
    double expected;
  } cases[] = {{5751081u, 281, 4294967295u, 0.7}, {7603642u, 141, 0u, -0.1}};
  for (const auto& [seed, draw, word, expected] : cases) {
    RandomGenerator<double> generator(seed);
    generator.SetRange(-0.1, 0.7);
    ReferenceTwister twister(seed);
    for (int i = 0; i < draw; ++i) {
      generator.Sample();
      twister.Next();
    }
    ASSERT_EQ(twister.Next(), word);
    EXPECT_EQ(generator.Sample(), expected);
  }
}

TEST(RandomGenerator, RangeOfOneValueYieldsExactlyThat) {
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
  // Draws were used up all the same.
  ReferenceTwister twister(8);
  for (int i = 0; i < 1000; ++i) {
    twister.Next();
  }
  generator.SetRange(0.0, 1.0);
  EXPECT_EQ(generator.Sample(), twister.NextDouble(0.0, 1.0));
}

TEST(RandomGenerator, RejectedRangeWarnsAndKeepsTheFormerOne) {
  const kavo::testing::LogCapture log;

  RandomGenerator<double> doubles(4);
  ReferenceTwister twister(4);
  doubles.SetRange(0.5, 0.25);
  EXPECT_EQ(doubles.Sample(), twister.NextDouble(-1.0, 1.0));
  doubles.SetRange(2.0, 3.0);
  doubles.SetRange(1.0, -1e-7);
  EXPECT_EQ(doubles.Sample(), twister.NextDouble(2.0, 3.0));

  RandomGenerator<int> ints(4);
  ints.SetRange(7, 7);
  ints.SetRange(kIntMax, kIntMin);
  EXPECT_EQ(ints.Sample(), 7);

  // One coordinate that is the wrong way round rejects the range as a whole; the first such coordinate is
  // named.
  RandomGenerator<Eigen::Vector3d> vectors(4);
  vectors.SetRange(Eigen::Vector3d(1.0, 2.0, 3.0), Eigen::Vector3d(1.0, 2.0, 3.0));
  vectors.SetRange(Eigen::Vector3d(5.0, 5.0, 0.5), Eigen::Vector3d(6.0, 6.0, 0.25));
  vectors.SetRange(Eigen::Vector3d(0.0, 2.5, 9.0), Eigen::Vector3d(0.0, -2.5, 8.0));
  vectors.SetRange(Eigen::Vector3d(1.0, 9.0, 9.0), Eigen::Vector3d(0.0, 8.0, 8.0));
  EXPECT_EQ(vectors.Sample(), Eigen::Vector3d(1.0, 2.0, 3.0));

  EXPECT_THAT(
      log.warnings(),
      ElementsAre("Min [0.5] cannot be greater than max [0.25]. Range will not be updated.",
                  "Min [1] cannot be greater than max [-1e-07]. Range will not be updated.",
                  "Min [2147483647] cannot be greater than max [-2147483648]. Range will not be updated.",
                  "min(2) [0.5] cannot be greater than max(2) [0.25]. Range will not be updated.",
                  "min(1) [2.5] cannot be greater than max(1) [-2.5]. Range will not be updated.",
                  "min(0) [1] cannot be greater than max(0) [0]. Range will not be updated."));
  EXPECT_EQ(log.records().size(), 6u);
}

TEST(RandomGenerator, ValidateRangeAcceptsEqualBounds) {
  const kavo::testing::LogCapture log;
  EXPECT_TRUE(ValidateRange(Eigen::Vector3d::Zero(), Eigen::Vector3d::Zero()));
  EXPECT_TRUE(ValidateRange(Eigen::Vector3d(-1.0, 0.0, 0.0), Eigen::Vector3d(1.0, 0.0, 1e-300)));
  EXPECT_THAT(log.records(), IsEmpty());
  EXPECT_FALSE(ValidateRange(Eigen::Vector3d(0.0, 0.0, 1e-300), Eigen::Vector3d::Zero()));
}

}  // namespace
}  // namespace kavo::util
