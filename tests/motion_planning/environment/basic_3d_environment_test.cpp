#include "kavo/motion_planning/environment/basic_3d_environment.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "kavo/world/world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::LogCapture;
using testing::Vec;

kinematics::ConfigurationLimits UnitBox() { return {Vec({-1.0, -1.0, -1.0}), Vec({1.0, 1.0, 1.0})}; }

TEST(Basic3dEnvironmentTest, LimitsAreInclusiveAndObstaclesCount) {
  World world;
  world.add(SphereObstacle{0.25}, Pose3::FromTranslation({0.5, 0.0, 0.0}));
  const auto environment = CreateBasic3dEnvironment({world.view(), UnitBox(), 10, 1});
  EXPECT_EQ(environment->CSpaceDimension(), 3);
  EXPECT_EQ(environment->CSpaceCoordLimits().Max(), Vec({1.0, 1.0, 1.0}));
  EXPECT_EQ(environment->CSpaceDistanceMetric()(Vec({0.0, 3.0, 0.0}), Vec({0.0, 0.0, 4.0})), 5.0);

  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInf = std::numeric_limits<double>::infinity();
  const double beyond = std::nextafter(1.0, 2.0);
  const struct {
    Eigen::VectorXd q;
    bool is_valid;
  } cases[] = {
      {Vec({0.0, 0.0, 0.0}), true},     {Vec({1.0, 1.0, 1.0}), true},      {Vec({-1.0, -1.0, -1.0}), true},
      {Vec({0.0, beyond, 0.0}), false}, {Vec({0.0, 0.0, -beyond}), false}, {Vec({0.5, 0.0, 0.0}), false},
      {Vec({0.75, 0.0, 0.0}), false},   {Vec({0.751, 0.0, 0.0}), true},    {Vec({kNaN, 0.0, 0.0}), false},
      {Vec({0.0, kInf, 0.0}), false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(environment->IsValidConfiguration(c.q), c.is_valid) << c.q.transpose();
  }
}

TEST(Basic3dEnvironmentTest, WrongLengthsAreFatal) {
  const World world;
  const auto environment = CreateBasic3dEnvironment({world.view(), UnitBox(), 10, 1});
  for (const auto& [q, length] :
       {std::pair(Vec({0.0, 0.0}), "2"), std::pair(Vec({0.0, 0.0, 0.0, 0.0}), "4")}) {
    ExpectFatal([&, &q = q] { environment->IsValidConfiguration(q); },
                "static_cast<size_t>(q.size()) == dimension_",
                "motion_planning/environment/basic_3d_environment", 89,
                std::string("Dimension of q [") + length +
                    "] must match number of configuration space coordinates [3].");
  }
  ExpectFatal(
      [&] {
        Basic3dEnvironmentConfig(world.view(), {Vec({0.0, 0.0}), Vec({1.0, 1.0})}, 10, 1);
      },
      "q_limits.Dimension() == 3", "motion_planning/environment/basic_3d_environment", 27,
      "Dimension of 'q_limits' [2 for 'Basic3dWorldConfig' must be 3.");
}

TEST(Basic3dEnvironmentTest, SamplesAreValidAndRepeatWithTheSeed) {
  World world;
  world.add(BoxObstacle{{1.0, 3.0, 3.0}}, Pose3::FromTranslation({0.5, 0.0, 0.0}));
  const Basic3dEnvironmentConfig config(world.view(), {Vec({-1.0, 2.0, -3.0}), Vec({1.0, 2.0, 0.0})}, 1000,
                                        99);
  const auto environment = CreateBasic3dEnvironment(config);
  const auto twin = CreateBasic3dEnvironment(config);
  bool any_obstructed_x = false;
  for (int i = 0; i < 200; ++i) {
    const auto q = environment->SampleConfiguration();
    ASSERT_TRUE(q.has_value());
    EXPECT_TRUE(environment->IsValidConfiguration(*q));
    EXPECT_EQ((*q)[1], 2.0);
    EXPECT_EQ(*q, *twin->SampleConfiguration());
    any_obstructed_x |= (*q)[0] >= 0.0;
  }
  // The box spans y in [-1.5, 1.5] only.
  EXPECT_TRUE(any_obstructed_x);
}

TEST(Basic3dEnvironmentTest, GivesUpWithAWarning) {
  World world;
  const ObstacleHandle floor = world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, 2.0}));
  const auto environment = CreateBasic3dEnvironment({world.view(), UnitBox(), 20, 1});
  const auto untried = CreateBasic3dEnvironment({World().view(), UnitBox(), 0, 1});
  LogCapture log;
  EXPECT_FALSE(environment->SampleConfiguration().has_value());
  EXPECT_FALSE(untried->SampleConfiguration().has_value());
  const std::string warning = "Unable to find a valid configuration.";
  EXPECT_EQ(log.warnings(), (std::vector<std::string>{warning, warning}));

  // It stays usable; the world as it was counts until the view is updated.
  world.remove(floor);
  EXPECT_FALSE(environment->IsValidConfiguration(Vec({0.0, 0.0, 0.0})));
  environment->UpdateWorldView();
  EXPECT_TRUE(environment->SampleConfiguration().has_value());
}

TEST(Basic3dEnvironmentTest, ReversedLimitsWarnAndLeaveNothingValid) {
  const World world;
  LogCapture log;
  const auto environment =
      CreateBasic3dEnvironment({world.view(), {Vec({-1.0, -1.0, 2.0}), Vec({1.0, 1.0, 1.0})}, 5, 1});
  EXPECT_EQ(log.warnings(), std::vector<std::string>{
                                "min(2) [2] cannot be greater than max(2) [1]. Range will not be updated."});
  EXPECT_EQ(environment->CSpaceCoordLimits().Min()[2], 2.0);
  EXPECT_FALSE(environment->SampleConfiguration().has_value());
}

TEST(Basic3dEnvironmentTest, LimitsThatAreNoNumbersEndInAnEmptySample) {
  const World world;
  const LogCapture log;
  for (const double bound :
       {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    const auto environment =
        CreateBasic3dEnvironment({world.view(), {Vec({-bound, -1.0, -1.0}), Vec({bound, 1.0, 1.0})}, 5, 1});
    EXPECT_FALSE(environment->SampleConfiguration().has_value());
  }
}

}  // namespace
}  // namespace kavo::planning
