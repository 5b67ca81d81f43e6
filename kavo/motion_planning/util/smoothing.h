#pragma once

#include <Eigen/Core>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/tree/node.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"

// A path is a list of configurations, start first; between two of them the robot moves straight in c-space,
// also where a joint turns without limits: from 3.1 to -3.1 it goes nearly once around.

namespace kavo::planning {

//! Whether the straight segment between two configurations is free, as far as points `step_size` apart tell.
//!
//! The points start + k * step are asked for in bisection order (middle first), then `q_end`; `q_start` is
//! not. A segment shorter than one step is free without any question, not even about `q_end`. A segment that
//! is not finite is not free. Lengths that differ from the environment's, and a segment of more steps than an
//! int can count, are fatal errors.
//! \param step_size Distance between two points, Euclidean; a fatal error unless positive.
KAVO_EXPORT bool IsValidPath(const std::shared_ptr<Environment>& environment, double step_size,
                             Eigen::VectorXd q_start, Eigen::VectorXd q_end);

//! The path with points in between, at most `step_size` (Euclidean, positive; not checked) apart along each
//! segment. All waypoints are kept. A segment ends where a step would come no nearer to its end, too short to
//! move or lost to rounding. On every segment but the
//! first the points start one step after the waypoint, also when that is beyond the segment's end: such a
//! point is still there, before the end. A path of fewer than two configurations gives an empty one.
KAVO_EXPORT std::vector<Eigen::VectorXd> DiscretizePath(const std::vector<Eigen::VectorXd>& path,
                                                        double step_size);

//! The configurations of the nodes, in order.
KAVO_EXPORT std::vector<Eigen::VectorXd> ConvertToConfigurations(
    const std::vector<std::shared_ptr<Node>>& nodes);

//! Removes the configurations strictly between two indices.
KAVO_EXPORT void RemoveConfigurations(std::vector<Eigen::VectorXd>& path, int first_index, int last_index);

//! Shortens a path by straight short cuts between waypoints, wherever `IsValidPath` allows one: first from
//! both ends, then from random waypoints (after Geraerts and Overmars, "Creating high-quality paths for
//! motion planning", 2007). The ends of the path stay; equal input and seed give equal output. In periodic
//! coordinates of the environment a short cut goes the short way round where that is valid, and all that
//! follows is turned: the path then ends at its end but for whole turns.
//! \param path At least two configurations; otherwise a fatal error.
//! \param step_size As for `IsValidPath`.
//! \param max_iterations Number of random waypoints to try.
//! \param seed Seed of the choice of waypoints.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.1, 1.5, 1.0}}, kavo::Pose3::FromTranslation({1.0, -0.25, 0.5}), "wall");
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, -1.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 1.0, 1.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//!
//! const std::vector<Eigen::VectorXd> path = {Eigen::Vector3d(0.2, 0.0, 0.5), Eigen::Vector3d(0.2, 0.8, 0.5),
//!                                            Eigen::Vector3d(0.6, 0.8, 0.5), Eigen::Vector3d(1.8, 0.8,
//!                                            0.5)};
//! assert(kavo::planning::ShortCircuitPath(path, environment, 0.01, 20, 1).size() == 3);
//! @endcode
KAVO_EXPORT std::vector<Eigen::VectorXd> ShortCircuitPath(const std::vector<Eigen::VectorXd>& path,
                                                          const std::shared_ptr<Environment>& environment,
                                                          double step_size, int max_iterations,
                                                          unsigned int seed);

//! A path after `ShortCircuitPathUntil`.
struct ShortenedPath {
  //! The shortened path.
  std::vector<Eigen::VectorXd> path;
  //! Whether the condition ended it: the path is as short as it was by then.
  bool was_stopped = false;
};

//! The same, ended early by a condition that is asked before every search for a short cut.
KAVO_EXPORT ShortenedPath ShortCircuitPathUntil(const StopCondition& stop_condition,
                                                const std::vector<Eigen::VectorXd>& path,
                                                const std::shared_ptr<Environment>& environment,
                                                double step_size, int max_iterations, unsigned int seed);

//! Index of the farthest waypoint that a binary search finds directly reachable from the one at
//! `start_index`, towards the end of the path if `forward`, else towards its beginning. The neighbour counts
//! as reachable without a question.
KAVO_EXPORT int GetShortCircuitIndex(int start_index, bool forward, const std::vector<Eigen::VectorXd>& path,
                                     const std::shared_ptr<Environment>& environment, double step_size);

//! One step of that binary search.
//! \param[in,out] index In: the candidate to test; out: the result of the search.
//! \param reachable_index The farthest index found reachable so far.
//! \param unreachable_index The nearest index found unreachable so far; the end of the path at first.
KAVO_EXPORT void ShortCircuitRecursive(int start_index, int& index, int reachable_index,
                                       int unreachable_index, const std::vector<Eigen::VectorXd>& path,
                                       const std::shared_ptr<Environment>& environment, double step_size);

}  // namespace kavo::planning
