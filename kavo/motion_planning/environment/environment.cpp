#include "kavo/motion_planning/environment/environment.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

Environment::~Environment() = default;

int Environment::CountValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const {
  int count = 0;
  Eigen::VectorXd q;
  while (count < configurations.cols()) {
    q = configurations.col(count);
    if (!IsValidConfiguration(q)) {
      break;
    }
    ++count;
  }
  return count;
}

bool Environment::IsValidMotion(const Eigen::Ref<const Eigen::VectorXd>& q_start,
                                const Eigen::Ref<const Eigen::VectorXd>& q_end, double resolution) const {
  constexpr char kFile[] = "motion_planning/environment/environment";
  KAVO_CHECK(resolution > 0.0, kFile, 1) << "The resolution [" << resolution << "] must be positive.";
  KAVO_CHECK(q_start.size() == CSpaceDimension() && q_end.size() == CSpaceDimension(), kFile, 2)
      << "A motion from [" << q_start.size() << "] to [" << q_end.size() << "] coordinates does not fit the ["
      << CSpaceDimension() << "] of the configuration space.";
  const Eigen::VectorXd way = q_end - q_start;
  const double length = math::Distance(q_start, q_end);
  if (!std::isfinite(length)) {
    return false;
  }
  // The last of them is the end itself, which rounding must not miss.
  const double num_parts = std::max(1.0, std::ceil(length / resolution));
  KAVO_CHECK(num_parts <= std::numeric_limits<int>::max(), kFile, 3)
      << "A motion of length [" << length << "] has too many parts of [" << resolution << "] to be checked.";
  // Each batch is spread over the whole motion: what touches shows sooner than from the start on.
  Eigen::MatrixXd points(q_start.size(), std::max(2, NumAtOnce()));
  const double num_batches = std::ceil((num_parts + 1.0) / static_cast<double>(points.cols()));
  for (double first = 0.0; first < num_batches; first += 1.0) {
    Eigen::Index count = 0;
    for (double part = first; part <= num_parts; part += num_batches, ++count) {
      if (part < num_parts) {
        points.col(count) = q_start + way * (part / num_parts);
      } else {
        points.col(count) = q_end;
      }
    }
    if (CountValid(points.leftCols(count)) < count) {
      return false;
    }
  }
  return true;
}

}  // namespace kavo::planning
