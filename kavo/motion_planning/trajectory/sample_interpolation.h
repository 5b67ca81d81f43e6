#pragma once

#include <Eigen/Core>
#include <vector>

#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! What a controller runs between two samples of a trajectory: straight on, or the polynomial of least degree
//! with their positions and velocities, or with their accelerations too.
enum class SampleInterpolation { kLinear, kCubic, kQuintic };

//! "linear", "cubic", "quintic".
KAVO_EXPORT const char* ToString(SampleInterpolation interpolation);

//! That piece as a Bezier curve over the time between the samples, one control point to a column: 2, 4 or 6.
KAVO_EXPORT Eigen::MatrixXd InterpolationCurve(const Trajectory::State& from, const Trajectory::State& to,
                                               SampleInterpolation interpolation);

//! How far, at the same time, a controller that interpolates samples is from the trajectory that they are of:
//! no coordinate by more than this (radians or metres), anywhere. By the control points of the difference,
//! which may be some times as large as that where it is small.
//! \param samples Ascending in time and within the trajectory, see `Trajectory::Samples`; otherwise a fatal
//!     error.
//!
//! @code
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, 0.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 2.0, 2.0));
//! kavo::World world;
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//! const kavo::planning::Trajectory trajectory =
//!     kavo::TimePath({Eigen::Vector3d(0.0, 0.0, 0.0), Eigen::Vector3d(2.0, 0.0, 0.0)}, *environment,
//!                    {Eigen::Vector3d::Ones(), Eigen::Vector3d::Ones(), {}})
//!         .trajectory;
//! const double deviation = kavo::planning::InterpolationDeviation(
//!     trajectory, trajectory.Samples(0.01), kavo::planning::SampleInterpolation::kCubic);
//! assert(deviation < 1e-4);
//! @endcode
KAVO_EXPORT double InterpolationDeviation(const Trajectory& trajectory,
                                          const std::vector<Trajectory::State>& samples,
                                          SampleInterpolation interpolation);

}  // namespace kavo::planning
