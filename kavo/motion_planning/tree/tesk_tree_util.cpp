#include "kavo/motion_planning/tree/tesk_tree_util.h"

#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

DistanceMetric CreateDistanceMetric(tesk::planning::DistanceMetricType type,
                                    const std::optional<Eigen::VectorXd>& weights) {
  switch (type) {
    case tesk::planning::DistanceMetricType::kL2Norm:
      return L2Norm;
    case tesk::planning::DistanceMetricType::kSquaredL2Norm:
      return SquaredL2Norm;
    case tesk::planning::DistanceMetricType::kWeightedSquaredL2Norm:
      KAVO_CHECK(weights.has_value(), "motion_planning/tree/tesk_tree_util", 25);
      return WeightedSquaredL2Norm(*weights);
  }
  KAVO_LOG(LogLevel::kCritical) << "Unhandled distance metric type in kavo::planning::CreateDistanceMetric()";
  return {};
}

std::unique_ptr<Tree> CreateTeskTree(const TeskTreeConfig& config) {
  KAVO_LOG(LogLevel::kError) << "TESK not enabled in build. Creating 'BasicTree' instead of 'TeskTree'";
  const DistanceMetric metric =
      CreateDistanceMetric(config.distance_metric_type, config.distance_metric_weights);
  const bool is_weighted =
      config.distance_metric_type == tesk::planning::DistanceMetricType::kWeightedSquaredL2Norm;
  KAVO_CHECK(!is_weighted || config.distance_metric_weights->size() == config.dimension,
             "motion_planning/tree/tesk_tree_util", 40)
      << "A tree of dimension [" << config.dimension << "] cannot weigh with ["
      << config.distance_metric_weights->size() << "] weights.";
  return CreateBasicTree(static_cast<unsigned long>(config.dimension),
                         WithPeriods(metric, config.periodic_coordinates), false);
}

}  // namespace kavo::planning
