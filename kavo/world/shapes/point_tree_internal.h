#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/world/shapes/compound_internal.h"

namespace kavo::internal {

//! The balls around the points of a cloud, ready for queries.
class PointTree final : public Compound {
 public:
  //! \param radii One, or one for each point.
  PointTree(std::vector<Eigen::Vector3d> points, std::vector<double> radii);

  double signedDistance(const double* point, Interior interior) const override;
  bool touches(const double* point, double radius, double padding, Interior interior) const override;

  const std::vector<Eigen::Vector3d>& points() const { return points_; }
  double radius(std::size_t point) const { return radii_.size() == 1 ? radii_[0] : radii_[point]; }

 private:
  double distance(std::uint32_t place, const double* point) const;

  // In the order given.
  std::vector<Eigen::Vector3d> points_;
  std::vector<double> radii_;
};

}  // namespace kavo::internal
