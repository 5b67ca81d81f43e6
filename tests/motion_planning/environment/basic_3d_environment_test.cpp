#include "kavo/motion_planning/environment/basic_3d_environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

#include "kavo/world/world.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::LogCapture;
using testing::Vec;

kinematics::ConfigurationLimits UnitBox() { return {Vec({-1.0, -1.0, -1.0}), Vec({1.0, 1.0, 1.0})}; }

TEST(Basic3dEnvironmentTest, LimitsAreInclusiveAndObstaclesCount) {
  World world;
  world.add(SphereObstacle{0.25}, Pose3::FromTranslation({0.5, 0.0, 0.0}));
  const auto environment = CreateBasic3dEnvironment({world.view(), UnitBox(), 10, 1});
  EXPECT_EQ(environment->CSpaceDimension(), 3);
  EXPECT_EQ(environment->CSpaceDistanceMetric()(Vec({0.0, 3.0, 0.0}), Vec({0.0, 0.0, 4.0})), 5.0);
  const double beyond = std::nextafter(1.0, 2.0);
  for (const auto& [q, is_valid] :
       {std::pair(Vec({1.0, 1.0, 1.0}), true), std::pair(Vec({-1.0, -1.0, -1.0}), true),
        std::pair(Vec({0.0, beyond, 0.0}), false), std::pair(Vec({0.0, 0.0, -beyond}), false),
        std::pair(Vec({0.75, 0.0, 0.0}), false), std::pair(Vec({0.751, 0.0, 0.0}), true),
        std::pair(Vec({kNaN, 0.0, 0.0}), false), std::pair(Vec({0.0, kInf, 0.0}), false)}) {
    EXPECT_EQ(environment->IsValidConfiguration(q), is_valid) << q.transpose();
  }
  for (const auto& [q, length] :
       {std::pair(Vec({0.0, 0.0}), "2"), std::pair(Vec({0.0, 0.0, 0.0, 0.0}), "4")}) {
    ExpectFatal([&, &q = q] { environment->IsValidConfiguration(q); },
                "static_cast<size_t>(q.size()) == dimension_",
                "motion_planning/environment/basic_3d_environment", 89,
                std::string("Dimension of q [") + length +
                    "] must match number of configuration space coordinates [3].");
  }
  const kinematics::ConfigurationLimits flat(Vec({0.0, 0.0}), Vec({1.0, 1.0}));
  ExpectFatal([&] { Basic3dEnvironmentConfig(world.view(), flat, 10, 1); }, "q_limits.Dimension() == 3",
              "motion_planning/environment/basic_3d_environment", 27,
              "Dimension of 'q_limits' [2 for 'Basic3dWorldConfig' must be 3.");
  Basic3dEnvironmentConfig edited(world.view(), UnitBox(), 10, 1);
  edited.q_limits = flat;
  EXPECT_THROW(CreateBasic3dEnvironment(edited), util::FatalError);
}

TEST(Basic3dEnvironmentTest, MotionsAreProven) {
  World world;
  world.add(BoxObstacle{{1e-6, 0.5, 0.5}}, Pose3::FromTranslation({0.3, 0.0, 0.0}));
  const auto environment = CreateBasic3dEnvironment({world.view(), UnitBox(), 10, 1});
  const double beside = 0.25 + 2e-5;
  for (const auto& [from, to, is_valid] :
       {std::tuple(Vec({-1.0, 0.1, 0.0}), Vec({1.0, 0.1, 0.0}), false),
        std::tuple(Vec({-1.0, beside, 0.0}), Vec({1.0, beside, 0.0}), true),
        std::tuple(Vec({-1.0, 0.25, 0.0}), Vec({1.0, 0.25, 0.0}), false),
        std::tuple(Vec({0.3 + 2e-5, -1.0, 0.0}), Vec({0.3 + 2e-5, 1.0, 0.0}), true),
        std::tuple(Vec({-1.0, 0.9, 0.0}), Vec({-1.0, 1.1, 0.0}), false),
        std::tuple(Vec({-1.0, 0.9, 0.0}), Vec({kNaN, 0.9, 0.0}), false),
        std::tuple(Vec({0.5, 0.5, 0.5}), Vec({0.5, 0.5, 0.5}), true)}) {
    EXPECT_EQ(environment->IsValidMotion(from, to, 1.0), is_valid) << from.transpose();
  }
}

// Over a top, nearest to a wall there, and down again.
TEST(Basic3dEnvironmentTest, CurvesAreProvenAndByDefaultSampled) {
  World world;
  world.add(BoxObstacle{{0.5, 0.1, 0.5}}, Pose3::FromTranslation({0.0, 0.55 + 1e-5, 0.0}));
  const auto proven = CreateBasic3dEnvironment({world.view(), UnitBox(), 10, 1});
  testing::ScriptedEnvironment sampled(3, {}, [](const Eigen::VectorXd& q) { return !(q[1] > 0.499); });
  for (const auto& [control, above, is_free, is_seen_free] :
       {std::tuple(1.0, 0.0, true, false), std::tuple(1.0 + 3e-5, 0.0, false, false),
        std::tuple(0.996, 0.0, true, true), std::tuple(0.9, -0.9, true, true),
        std::tuple(0.5, kNaN, false, false)}) {
    Eigen::MatrixXd points(3, 3);
    points << -0.5, 0.0, 0.5, 0.0, control, 0.0, above, above, above;
    EXPECT_EQ(proven->IsValidCurve(points, 1.0), is_free) << control;
    sampled.questions.clear();
    EXPECT_EQ(sampled.IsValidCurve(points, 0.01), is_seen_free) << control;
    if (is_seen_free) {
      auto& seen = sampled.questions;
      std::sort(seen.begin(), seen.end(), [](const auto& a, const auto& b) { return a[0] < b[0]; });
      EXPECT_EQ(seen.front(), points.col(0));
      EXPECT_EQ(seen.back(), points.col(2));
      for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_LE((seen[i] - seen[i - 1]).norm(), 0.01);
      }
    }
  }
  EXPECT_FALSE(proven->IsValidCurve(1.1 * Eigen::MatrixXd::Identity(3, 3), 1.0));
}

TEST(Basic3dEnvironmentTest, GivesUpWithAWarning) {
  World world;
  const ObstacleHandle floor = world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, 2.0}));
  const auto environment = CreateBasic3dEnvironment({world.view(), UnitBox(), 20, 1});
  const auto untried = CreateBasic3dEnvironment({World().view(), UnitBox(), 0, 1});
  const LogCapture log;
  EXPECT_FALSE(environment->SampleConfiguration().has_value());
  EXPECT_FALSE(untried->SampleConfiguration().has_value());
  EXPECT_EQ(log.warnings(), std::vector<std::string>(2, "Unable to find a valid configuration."));

  // It stays usable; the world as it was counts until the view is updated.
  world.remove(floor);
  EXPECT_FALSE(environment->IsValidConfiguration(Vec({0.0, 0.0, 0.0})));
  environment->UpdateWorldView();
  EXPECT_TRUE(environment->SampleConfiguration().has_value());
}

TEST(Basic3dEnvironmentTest, LimitsWithNothingBetweenEndInAnEmptySample) {
  for (const auto& [low, high] : {std::pair(2.0, 1.0), std::pair(-kInf, kInf), std::pair(kNaN, kNaN)}) {
    const LogCapture log;
    const auto environment =
        CreateBasic3dEnvironment({World().view(), {Vec({-1.0, -1.0, low}), Vec({1.0, 1.0, high})}, 5, 1});
    if (low == 2.0) {
      EXPECT_EQ(log.warnings(),
                std::vector<std::string>{
                    "min(2) [2] cannot be greater than max(2) [1]. Range will not be updated."});
      EXPECT_EQ(environment->CSpaceCoordLimits().Min()[2], 2.0);
    }
    EXPECT_FALSE(environment->SampleConfiguration().has_value());
  }
}

}  // namespace
}  // namespace kavo::planning
