#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <vector>

#include "kavo/util/export.h"

namespace kavo {

namespace internal {
class PointTree;
}  // namespace internal

//! Points that a sensor saw, each standing for a ball around it. Immutable: instances are shared between all
//! that stands for the same points, through a `std::shared_ptr<const PointCloud>`.
//!
//! @code
//! const kavo::PointCloud cloud({{0.0, 0.0, 0.5}, {0.1, 0.0, 0.5}}, 0.02);
//! assert(cloud.points().size() == 2 && cloud.radius(1) == 0.02);
//! @endcode
class KAVO_EXPORT PointCloud {
 public:
  //! \param points At least one. Metres, in the frame of the cloud; one that is not finite, or beyond 1e30, is
  //!     a fatal error.
  //! \param radius Of the ball around each point: about half of the distance between neighbours leaves no
  //!     hole. Metres; fatal if negative or not finite.
  PointCloud(std::vector<Eigen::Vector3d> points, double radius);
  //! \param radii One for each point; another number of them is a fatal error.
  PointCloud(std::vector<Eigen::Vector3d> points, std::vector<double> radii);

  //! In the order given.
  const std::vector<Eigen::Vector3d>& points() const;
  //! Of the ball around a point, metres.
  //! \param point Index into `points()`; not checked.
  double radius(std::size_t point) const;

  //! For queries; shared by all copies.
  const std::shared_ptr<const internal::PointTree>& tree() const { return tree_; }

 private:
  std::shared_ptr<const internal::PointTree> tree_;
};

}  // namespace kavo
