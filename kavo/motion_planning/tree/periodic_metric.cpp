#include "kavo/motion_planning/tree/periodic_metric.h"

#include <cmath>
#include <utility>

#include "kavo/math/constants_internal.h"

namespace kavo::planning {

double WholeTurns(double from, double to) { return std::round((to - from) / math::kTwoPi) * math::kTwoPi; }

void MoveNear(const Eigen::VectorXd& reference, const std::vector<Eigen::Index>& periodic_coordinates,
              Eigen::VectorXd& q) {
  for (const Eigen::Index i : periodic_coordinates) {
    if (i < reference.size() && i < q.size()) {
      q[i] += WholeTurns(q[i], reference[i]);
    }
  }
}

bool AreTurnsApart(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1,
                   const std::vector<Eigen::Index>& periodic_coordinates) {
  Eigen::VectorXd nearest = q1;
  MoveNear(q0, periodic_coordinates, nearest);
  return (nearest - q0).isZero(1e-9);
}

PeriodicMetric::PeriodicMetric(DistanceMetric metric, std::vector<Eigen::Index> periodic_coordinates)
    : metric_(std::move(metric)), periodic_coordinates_(std::move(periodic_coordinates)) {}

double PeriodicMetric::operator()(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const {
  // Trees call this once for each node: its memory is kept.
  thread_local Eigen::VectorXd nearest;
  nearest = q1;
  MoveNear(q0, periodic_coordinates_, nearest);
  return metric_(q0, nearest);
}

DistanceMetric WithPeriods(const DistanceMetric& metric,
                           const std::vector<Eigen::Index>& periodic_coordinates) {
  return periodic_coordinates.empty() ? metric : PeriodicMetric(metric, periodic_coordinates);
}

}  // namespace kavo::planning
