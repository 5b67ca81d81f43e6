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
  for (const auto& [type, distance] :
       {std::pair(DistanceMetricType::kL2Norm, 5.0), std::pair(DistanceMetricType::kSquaredL2Norm, 25.0),
        std::pair(DistanceMetricType::kWeightedSquaredL2Norm, 34.0)}) {
    EXPECT_EQ(CreateDistanceMetric(type, Vec({2.0, 1.0}))(Vec({0.0, 0.0}), Vec({3.0, 4.0})), distance);
  }
  EXPECT_EQ(L2Norm(Vec({}), Vec({})), 0.0);
  testing::ExpectFatal([] { CreateDistanceMetric(DistanceMetricType::kWeightedSquaredL2Norm, std::nullopt); },
                       "weights.has_value()", "motion_planning/tree/tesk_tree_util", 25, "");
}

TEST(DistanceMetricsTest, DifferentLengthsAndUnknownTypesAreReported) {
  const LogCapture log(0);
  EXPECT_TRUE(std::isnan(L2Norm(Vec({1.0, 2.0}), Vec({1.0, 2.0, 3.0}))));
  EXPECT_TRUE(std::isnan(SquaredL2Norm(Vec({1.0, 2.0}), Vec({1.0, 2.0, 3.0}))));
  EXPECT_FALSE(CreateDistanceMetric(static_cast<DistanceMetricType>(3), std::nullopt));
  const std::string lengths =
      "'q0' and 'q1' must have the same dimension. 'q0' has dimension 2 and 'q1' has dimension 3.";
  EXPECT_EQ(
      log.messages(LogLevel::kCritical),
      (std::vector<std::string>{lengths, lengths,
                                "Unhandled distance metric type in kavo::planning::CreateDistanceMetric()"}));
}

}  // namespace
}  // namespace kavo::planning
