#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/util/export.h"

namespace kavo::kinematics {

//! Closed interval for each coordinate of a space. A value type.
//!
//! The bounds are taken as they are: whether a minimum may lie above its maximum is up to the user of the
//! limits.
class KAVO_EXPORT ConfigurationLimits {
 public:
  //! From two vectors of equal length; otherwise a fatal error.
  ConfigurationLimits(const Eigen::VectorXd& min, const Eigen::VectorXd& max);
  //! One coordinate for each entry.
  explicit ConfigurationLimits(const std::vector<JointLimits>& joint_limits);

  //! Number of coordinates.
  std::size_t Dimension() const { return dimension_; }
  //! The lower bounds, in the units of the coordinates.
  const Eigen::VectorXd& Min() const { return min_; }
  //! The upper bounds, in the units of the coordinates.
  const Eigen::VectorXd& Max() const { return max_; }
  //! Max() - Min().
  const Eigen::VectorXd& Range() const { return range_; }

 private:
  std::size_t dimension_;
  Eigen::VectorXd min_;
  Eigen::VectorXd max_;
  Eigen::VectorXd range_;
};

}  // namespace kavo::kinematics
