#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo {

namespace tesk::planning {

//! The metrics that an accelerator tree knows; see distance_metrics.h.
enum class DistanceMetricType : int {
  kL2Norm = 0,
  kSquaredL2Norm = 1,
  kWeightedSquaredL2Norm = 2,
};

}  // namespace tesk::planning

namespace planning {

//! Configuration of the accelerator tree. Without that back-end only the dimension, the metric and the
//! periodic coordinates have an effect.
struct TeskTreeConfig {
  //! Dimension of the configuration space.
  int dimension = 0;
  //! Capacity of the accelerator tree.
  std::int64_t max_num_nodes = 0;
  //! Size of the accelerator's staging buffer.
  std::int64_t max_buffer_size = 0;
  //! How it measures distances.
  tesk::planning::DistanceMetricType distance_metric_type = tesk::planning::DistanceMetricType::kL2Norm;
  //! Weights of the weighted metric.
  std::optional<Eigen::VectorXd> distance_metric_weights;
  //! Number of nodes below which the accelerator tree would search on the CPU.
  std::int64_t num_nodes_cpu_gpu_crossover = 0;
  //! Coordinates in which distances go the short way round; see `PeriodicMetric`.
  std::vector<Eigen::Index> periodic_coordinates = {};
};

//! The metric of the given type. An unknown type is reported at level 0 and gives an empty function.
//! \param weights Weights of the weighted metric, which needs them (fatal error without); the others ignore
//!   them.
KAVO_EXPORT DistanceMetric CreateDistanceMetric(tesk::planning::DistanceMetricType type,
                                                const std::optional<Eigen::VectorXd>& weights);

//! The tree that stands in for the accelerator tree: this library is built without that back-end, so the
//! result is a `BasicTree` without node ids, and a report at level 1 says so. A weighted metric with another
//! number of weights than the dimension is a fatal error.
KAVO_EXPORT std::unique_ptr<Tree> CreateTeskTree(const TeskTreeConfig& config);

}  // namespace planning
}  // namespace kavo
