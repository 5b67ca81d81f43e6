#pragma once

#include <Eigen/Core>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/util/binary_search_order.h"

namespace kavo::planning::internal {

//! Checks straight segments as `IsValidPath` says, several configurations at once where the environment knows
//! how. Memory is kept from one segment to the next. The environment must outlive it.
class SegmentCheck {
 public:
  //! A step size that is not positive is a fatal error of the first check.
  SegmentCheck(const Environment& environment, double step_size)
      : environment_(&environment),
        step_size_(step_size),
        batch_(environment.CSpaceDimension(), environment.NumAtOnce()) {}

  bool IsValid(const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_end);

 private:
  const Environment* environment_;
  double step_size_;
  util::BinarySearchOrder order_;
  Eigen::VectorXd step_;
  // One configuration to a column.
  Eigen::MatrixXd batch_;
};

}  // namespace kavo::planning::internal
