#include "kavo/motion_planning/util/motion_shortening.h"

#include <gtest/gtest.h>

#include <random>

#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/rrt/bi_rrt.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/fatal_error.h"
#include "tests/motion_planning/exact_balls.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::Balls;
using testing::ExpectValid;
using testing::Path;
using testing::RandomVec;
using testing::UnitBox;
using testing::Vec;

double Length(const Path& path) {
  double length = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    length += (path[i] - path[i - 1]).norm();
  }
  return length;
}

TEST(MotionShorteningTest, PathsGetShorterAndConsistOfMotionsThatWereFoundValid) {
  const testing::LogCapture log;
  std::mt19937 engine(11);
  double lengths[4] = {};
  int num_stopped = 0;
  for (std::uint32_t seed = 0; seed < 400; ++seed) {
    const int dimension = 2 + static_cast<int>(seed % 5);
    const auto balls = UnitBox(dimension);
    for (int i = 0; i < 3 * dimension; ++i) {
      balls->balls.emplace_back(RandomVec(engine, dimension, 0.0, 1.0), 0.25);
    }
    BiRRTConfig config;
    config.range = 0.2;
    config.seed = seed;
    config.max_iterations = 500;
    const auto planner = CreateBiRRT(config, balls);
    const auto found = planner->TryToConnect({RandomVec(engine, dimension, 0.0, 1.0)},
                                             {RandomVec(engine, dimension, 0.0, 1.0)});
    if (!found || found->path.size() < 4) {
      continue;
    }
    for (int effort = 0; effort < 4; ++effort) {
      const ShortenedPath shortened = ShortenByMotions(found->path, *balls, {effort, 0.01, {}});
      EXPECT_FALSE(shortened.was_stopped);
      ExpectValid(*balls, shortened.path);
      EXPECT_TRUE(shortened.path.front() == found->path.front() &&
                  shortened.path.back() == found->path.back());
      EXPECT_LE(Length(shortened.path), Length(found->path));
      lengths[effort] += Length(shortened.path);
    }
    // Stopped wherever, it is a path of its own right.
    const int num_before = balls->num_motions;
    ShortenByMotions(found->path, *balls, {3, 0.01, {}});
    const int num_motions = balls->num_motions - num_before;
    EXPECT_LE(num_motions, 3 * 128);
    int left = static_cast<int>(engine() % static_cast<std::uint32_t>(num_motions));
    const ShortenedPath stopped =
        ShortenByMotions(found->path, *balls, {3, 0.01, [&] { return left-- == 0; }});
    EXPECT_TRUE(stopped.was_stopped);
    EXPECT_EQ(left, -1);
    ExpectValid(*balls, stopped.path);
    ++num_stopped;
  }
  EXPECT_GT(num_stopped, 30);
  EXPECT_LT(lengths[1], 0.85 * lengths[0]);
  EXPECT_LT(lengths[2], 0.99 * lengths[1]);
  EXPECT_LT(lengths[3], lengths[2]);
}

TEST(MotionShorteningTest, WaysRoundAJointThatNeedNotBeAreTurned) {
  Balls ring(Vec({-testing::kInf, 0.0}), Vec({testing::kInf, 1.0}), {0});
  const Path around = {Vec({3.0, 0.5}), Vec({1.0, 0.5}), Vec({-1.0, 0.5}), Vec({-3.0, 0.5}),
                       Vec({-3.0, 0.1})};
  const Path shortened = ShortenByMotions(around, ring).path;
  ASSERT_EQ(shortened.size(), 2u);
  ExpectValid(ring, shortened);
  EXPECT_DOUBLE_EQ(shortened.back()[0], -3.0 + math::kTwoPi);
  // What stands in the way there leaves it as it runs.
  for (int turn = -2; turn <= 2; ++turn) {
    for (double y = 0.0; y < 1.01; y += 0.05) {
      ring.balls.emplace_back(Vec({math::kPi + turn * math::kTwoPi, y}), 0.05);
    }
  }
  EXPECT_EQ(ShortenByMotions(around, ring).path, (Path{around.front(), around.back()}));
}

TEST(MotionShorteningTest, DivisionsAreEvenAndNeverBeyond) {
  EXPECT_EQ(DivideEvenly({Vec({0.0, 0.0}), Vec({1.0, 0.0}), Vec({1.0, 0.0}), Vec({1.0, 0.3})}, 0.4),
            (Path{Vec({0.0, 0.0}), Vec({1.0 / 3.0, 0.0}), Vec({2.0 / 3.0, 0.0}), Vec({1.0, 0.0}),
                  Vec({1.0, 0.0}), Vec({1.0, 0.3})}));
  EXPECT_EQ(DivideEvenly({Vec({2.0})}, 0.4), Path{Vec({2.0})});
  EXPECT_THROW(DivideEvenly({Vec({2.0})}, 0.0), util::FatalError);
  EXPECT_THROW(ShortenByMotions({}, *UnitBox(1)), util::FatalError);
  EXPECT_THROW(ShortenByMotions({Vec({0.0, 0.0})}, *UnitBox(1)), util::FatalError);
}

}  // namespace
}  // namespace kavo::planning
