#pragma once

#include <optional>

#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/time_optimal.h"
#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! A fast trajectory along a path that exceeds no limit of velocity, acceleration and jerk anywhere, with
//! continuous acceleration, from rest to rest.
//!
//! Blends are passed at constant speed, the largest at which their extremes keep the limits; a line in
//! between by ramps of limited jerk and acceleration that begin and end without acceleration, which is
//! optimal for the speeds that it has at its ends. That a blend is never used to change speed makes the whole
//! slower than the optimum: docs/trajectories.md says by how much.
//! \param path A smooth one, unless it has no blends; else a fatal error.
//! \param limits One for each coordinate (see `ValidateMotionLimits`), with a jerk; otherwise a fatal error.
KAVO_EXPORT Trajectory JerkLimitedTrajectory(const BlendedPath& path, const MotionLimits& limits);

//! The same with other speeds at the ends than zero, and no acceleration there. None where limits or the path
//! do not allow them, or where a path without length has any.
KAVO_EXPORT std::optional<Trajectory> JerkLimitedTrajectory(const BlendedPath& path,
                                                            const MotionLimits& limits,
                                                            const EndSpeeds& speeds);

}  // namespace kavo::planning
