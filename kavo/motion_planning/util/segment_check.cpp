#include <cmath>
#include <limits>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/util/segment_check_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning::internal {

bool SegmentCheck::IsValid(const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_end) {
  const Environment* const environment = environment_;
  const double step_size = step_size_;
  KAVO_CHECK(environment->CSpaceDimension() == q_start.size(), "motion_planning/util/smoothing", 27);
  KAVO_CHECK(q_start.size() == q_end.size(), "motion_planning/util/smoothing", 28);
  KAVO_CHECK(step_size > 0., "motion_planning/util/smoothing", 31);
  const double length = math::Distance(q_start, q_end);
  if (step_size > length) {
    return true;
  }
  if (!std::isfinite(length)) {
    return false;
  }
  step_ = q_end - q_start;
  math::SetLength(step_size, step_);
  const double num_steps = std::floor(length / math::Norm(step_));
  KAVO_CHECK(num_steps <= std::numeric_limits<int>::max(), "motion_planning/util/smoothing", 38)
      << "A segment of length [" << length << "] has too many steps of [" << step_size << "] to be checked.";
  order_.start(static_cast<int>(num_steps));
  bool is_last = false;
  while (!is_last) {
    Eigen::Index count = 0;
    while (count < batch_.cols() && !is_last) {
      const int k = order_.next();
      is_last = k == 0;
      if (is_last) {
        batch_.col(count++) = q_end;
      } else {
        batch_.col(count++) = q_start + k * step_;
      }
    }
    if (environment_->CountValid(batch_.leftCols(count)) < count) {
      return false;
    }
  }
  return true;
}

}  // namespace kavo::planning::internal
