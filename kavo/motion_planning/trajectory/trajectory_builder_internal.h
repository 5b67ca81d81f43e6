#pragma once

#include <cstddef>
#include <vector>

#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/trajectory.h"

namespace kavo::planning {

//! Of the limits, what trajectories are planned for: the rest is for rounding.
inline constexpr double kUsedShare = 1.0 - 1e-9;

//! A trajectory along a blended path, part by part.
class TrajectoryBuilder {
 public:
  //! A part of a piece of the path on which the parameter is a polynomial in time. On a parabola there is no
  //! jerk, on a smooth blend no acceleration either.
  struct Part {
    std::size_t piece = 0;
    //! At the start of the part: the parameter within the piece, and its derivatives by time.
    double along = 0.0;
    double speed = 0.0;
    double acceleration = 0.0;
    double jerk = 0.0;
    double duration = 0.0;
  };

  //! \param path, limits Must outlive this object. A jerk among the limits is one to be kept.
  TrajectoryBuilder(const BlendedPath& path, const MotionLimits& limits) : path_(path), limits_(limits) {}

  //! In the order of the path. One that takes no time is left out.
  void Add(const Part& part);

  //! \param end_rate The rate of the parameter at the end.
  //! \return The trajectory, slowed down as a whole if rounding has taken it beyond a limit.
  Trajectory Build(double end_rate) const;

 private:
  std::vector<double> WaypointTimes() const;
  // How many times as long a trajectory has to take to keep all limits, about.
  double NeededTime(const Trajectory& trajectory) const;
  static void SlowDown(double times, Trajectory& trajectory);

  const BlendedPath& path_;
  const MotionLimits& limits_;
  std::vector<Part> parts_;
};

}  // namespace kavo::planning
