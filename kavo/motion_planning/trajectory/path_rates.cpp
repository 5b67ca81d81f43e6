#include <algorithm>
#include <cmath>
#include <limits>

#include "kavo/motion_planning/trajectory/path_rates_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

double Length(const Eigen::VectorXd& direction) {
  double square = 0.0;
  for (Eigen::Index i = 0; i < direction.size(); ++i) {
    square += direction[i] * direction[i];
  }
  return std::sqrt(square);
}

}  // namespace

std::optional<Rates> RatesOf(const BlendedPath& path, const EndSpeeds& speeds) {
  KAVO_CHECK(speeds.start >= 0.0 && speeds.end >= 0.0 && std::isfinite(speeds.start + speeds.end),
             "motion_planning/trajectory/path_rates", 20)
      << "Speeds at the ends must be finite and not negative, got " << speeds.start << " and " << speeds.end
      << ".";
  if (path.Pieces().empty()) {
    return speeds.start == 0.0 && speeds.end == 0.0 ? std::optional(Rates{}) : std::nullopt;
  }
  return Rates{speeds.start / Length(path.Pieces().front().direction_in),
               speeds.end / Length(path.Pieces().back().direction_out)};
}

double LargestRate(const Eigen::VectorXd& direction, const Eigen::VectorXd& limits) {
  double largest = std::numeric_limits<double>::infinity();
  for (Eigen::Index i = 0; i < direction.size(); ++i) {
    if (direction[i] != 0.0) {
      largest = std::min(largest, limits[i] / std::fabs(direction[i]));
    }
  }
  return largest;
}

}  // namespace kavo::planning
