#pragma once

#include <Eigen/Core>
#include <vector>

#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! The whole turns, in radians, that take an angle as near as they can to another; zero, exactly, where the
//! two are less than half a turn apart.
KAVO_EXPORT double WholeTurns(double from, double to);

//! Adds whole turns (2 pi) to the periodic coordinates of `q` such that each comes as near as it can to that
//! of `reference`. Coordinates less than half a turn apart stay as they are.
//! \param periodic_coordinates Those that either configuration does not have are passed over.
KAVO_EXPORT void MoveNear(const Eigen::VectorXd& reference,
                          const std::vector<Eigen::Index>& periodic_coordinates, Eigen::VectorXd& q);

//! Whether two configurations are one but for whole turns of periodic coordinates and 1e-9 of rounding.
//! Beyond some millions of turns a number is too coarse for that.
KAVO_EXPORT bool AreTurnsApart(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1,
                               const std::vector<Eigen::Index>& periodic_coordinates);

//! A distance the short way round: that to the nearest of the configurations that are one by whole turns of
//! periodic coordinates.
class KAVO_EXPORT PeriodicMetric {
 public:
  //! \param metric The distance without regard to turns. It must not grow when two values of a periodic
  //!     coordinate come nearer to each other, as for all metrics of this library.
  PeriodicMetric(DistanceMetric metric, std::vector<Eigen::Index> periodic_coordinates);

  //! Lengths as the metric asks for.
  double operator()(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const;

  //! The distance without regard to turns.
  const DistanceMetric& Metric() const { return metric_; }
  //! In which a whole turn changes nothing.
  const std::vector<Eigen::Index>& PeriodicCoordinates() const { return periodic_coordinates_; }

 private:
  DistanceMetric metric_;
  std::vector<Eigen::Index> periodic_coordinates_;
};

//! `metric` itself where there is no periodic coordinate, else a `PeriodicMetric`.
KAVO_EXPORT DistanceMetric WithPeriods(const DistanceMetric& metric,
                                       const std::vector<Eigen::Index>& periodic_coordinates);

}  // namespace kavo::planning
