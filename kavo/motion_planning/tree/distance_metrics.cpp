#include "kavo/motion_planning/tree/distance_metrics.h"

#include <cmath>

#include "kavo/math/constants_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

double L2Norm(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) {
  return std::sqrt(SquaredL2Norm(q0, q1));
}

double SquaredL2Norm(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) {
  if (q0.size() != q1.size()) {
    LogFatalDimensionMismatchError(static_cast<int>(q0.size()), static_cast<int>(q1.size()));
    return math::kNaN;
  }
  return math::SquaredDistance(q0, q1);
}

WeightedSquaredL2Norm::WeightedSquaredL2Norm(const Eigen::VectorXd& weights) : weights_(weights) {}

double WeightedSquaredL2Norm::operator()(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const {
  double sum = 0.0;
  for (Eigen::Index i = 0; i < q1.size(); ++i) {
    const double difference = q0[i] - q1[i];
    sum += weights_[i] * (difference * difference);
  }
  return sum;
}

void LogFatalDimensionMismatchError(int q0_dimension, int q1_dimension) {
  KAVO_LOG(LogLevel::kCritical) << "'q0' and 'q1' must have the same dimension. 'q0' has dimension "
                                << q0_dimension << " and 'q1' has dimension " << q1_dimension << ".";
}

}  // namespace kavo::planning
