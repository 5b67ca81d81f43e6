#include "kavo/motion_planning/tree/distance_metrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "kavo/motion_planning/tree/tesk_tree_util.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using tesk::planning::DistanceMetricType;
using testing::LogCapture;
using testing::Vec;

TEST(DistanceMetricsTest, HandWorkedDistances) {
  const Eigen::VectorXd a = Vec({0.0, 0.0});
  const Eigen::VectorXd b = Vec({3.0, 4.0});
  EXPECT_EQ(L2Norm(a, b), 5.0);
  EXPECT_EQ(SquaredL2Norm(a, b), 25.0);
  EXPECT_EQ(WeightedSquaredL2Norm(Vec({2.0, 1.0}))(a, b), 34.0);
  EXPECT_EQ(L2Norm(Vec({}), Vec({})), 0.0);
  EXPECT_EQ(WeightedSquaredL2Norm(Vec({}))(Vec({}), Vec({})), 0.0);
}

TEST(DistanceMetricsTest, DifferentLengthsAreReportedAndHaveNoDistance) {
  LogCapture log(0);
  EXPECT_TRUE(std::isnan(L2Norm(Vec({1.0, 2.0}), Vec({1.0, 2.0, 3.0}))));
  EXPECT_TRUE(std::isnan(SquaredL2Norm(Vec({1.0, 2.0}), Vec({1.0, 2.0, 3.0}))));
  const std::string message =
      "'q0' and 'q1' must have the same dimension. 'q0' has dimension 2 and 'q1' has dimension 3.";
  EXPECT_EQ(log.messages(LogLevel::kCritical), (std::vector<std::string>{message, message}));

  const LogCapture silent(-1);
  L2Norm(Vec({1.0}), Vec({}));
  EXPECT_TRUE(silent.records().empty());
}

TEST(DistanceMetricsTest, FactorySelectsByType) {
  const Eigen::VectorXd weights = Vec({2.0, 1.0});
  const Eigen::VectorXd a = Vec({0.0, 0.0});
  const Eigen::VectorXd b = Vec({3.0, 4.0});
  EXPECT_EQ(CreateDistanceMetric(DistanceMetricType::kL2Norm, weights)(a, b), 5.0);
  EXPECT_EQ(CreateDistanceMetric(DistanceMetricType::kSquaredL2Norm, weights)(a, b), 25.0);
  EXPECT_EQ(CreateDistanceMetric(DistanceMetricType::kWeightedSquaredL2Norm, weights)(a, b), 34.0);
  testing::ExpectFatal([] { CreateDistanceMetric(DistanceMetricType::kWeightedSquaredL2Norm, std::nullopt); },
                       "weights.has_value()", "motion_planning/tree/tesk_tree_util", 25, "");
}

TEST(DistanceMetricsTest, UnknownTypeIsReportedAndGivesAnEmptyFunction) {
  LogCapture log(0);
  const DistanceMetric metric = CreateDistanceMetric(static_cast<DistanceMetricType>(3), std::nullopt);
  EXPECT_FALSE(metric);
  EXPECT_THROW(metric(Vec({}), Vec({})), std::bad_function_call);
  EXPECT_EQ(
      log.messages(LogLevel::kCritical),
      std::vector<std::string>{"Unhandled distance metric type in kavo::planning::CreateDistanceMetric()"});
}

}  // namespace
}  // namespace kavo::planning
