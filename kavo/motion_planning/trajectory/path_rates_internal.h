#pragma once

#include <Eigen/Core>
#include <optional>

#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/time_optimal.h"

namespace kavo::planning {

//! Rates of the parameter of a path.
struct Rates {
  double start = 0.0;
  double end = 0.0;
};

//! The rates at which a path begins and ends at given speeds. None for a path without length where one is not
//! zero.
std::optional<Rates> RatesOf(const BlendedPath& path, const EndSpeeds& speeds);

//! The largest factor with which a direction keeps limits, one for each coordinate.
double LargestRate(const Eigen::VectorXd& direction, const Eigen::VectorXd& limits);

}  // namespace kavo::planning
