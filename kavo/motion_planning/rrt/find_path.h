#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/rrt/basic_rrt.h"
#include "kavo/motion_planning/rrt/bi_rrt.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/rrt/search_status.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! What `FindPath` does beside searching.
struct FindPathOptions {
  //! Whether a path is shortened: as `ShortCircuitPath` does it, in steps of one edge length, or by
  //! `ShortenByMotions`.
  bool shorten = true;
  //! Random waypoints that `ShortCircuitPath` tries.
  int num_short_cuts = 20;
  //! Of the choice of those waypoints.
  unsigned int short_cut_seed = 1;
  //! Ends the search, or leaves the path as short as it is by then.
  StopCondition stop_condition;
  //! Work that `ShortenByMotions` may spend.
  int effort = kDefaultEffort;
};

//! What `FindPath` found.
struct FoundPath {
  //! How the search ended.
  SearchStatus status = SearchStatus::kNone;
  //! From the start to the target (in periodic coordinates of the environment: to the target but for whole
  //! turns). Empty unless the status is `kFound`.
  std::vector<Eigen::VectorXd> path;
  //! Whether the stop condition ended the shortening.
  bool was_shortening_stopped = false;
  //! Waypoints before the path was shortened.
  std::uint64_t num_raw_waypoints = 0;
  //! Extensions that the search made.
  std::uint64_t num_iterations = 0;
  //! Nodes of its trees at the end.
  std::uint64_t num_nodes = 0;

  //! Whether there is a path.
  explicit operator bool() const { return status == SearchStatus::kFound; }
};

//! A path in any environment, such as one of your own: `CreateRRTConnect` with plain trees under the
//! environment's metric, and `ShortCircuitPath`. One query after the other goes on in the environment's
//! random sequence.
//! \param environment Fatal without one.
//! \param q_start, q_target A length other than the environment's dimension is fatal; a configuration that is
//!     not valid gives a status and a warning.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.1, 1.5, 1.0}}, kavo::Pose3::FromTranslation({1.0, -0.25, 0.5}), "wall");
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, -1.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 1.0, 1.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//!
//! const kavo::planning::RRTConnectConfig config(/*edge_length=*/0.1, /*max_iterations=*/10000,
//!                                               /*exploration_fraction=*/0.5);
//! const kavo::planning::FoundPath found = kavo::planning::FindPath(
//!     environment, config, Eigen::Vector3d(0.5, 0.0, 0.5), Eigen::Vector3d(1.5, 0.0, 0.5));
//! assert(found && found.path.back() == Eigen::Vector3d(1.5, 0.0, 0.5));
//! @endcode
KAVO_EXPORT FoundPath FindPath(const std::shared_ptr<Environment>& environment,
                               const RRTConnectConfig& config, const Eigen::VectorXd& q_start,
                               const Eigen::VectorXd& q_target, const FindPathOptions& options = {});

//! The same by `CreateBasicRRT`, in three dimensions and one tree.
KAVO_EXPORT FoundPath FindPath(const std::shared_ptr<Environment>& environment, const BasicRRTConfig& config,
                               const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_target,
                               const FindPathOptions& options = {});

//! The same by `CreateJtRRT`, to a position of the task-space frame (metres, relative to the robot's base).
//! \param environment Must sample task space.
KAVO_EXPORT FoundPath FindPath(const std::shared_ptr<RobotEnvironment>& environment,
                               const JtRRTConfig& config, const Eigen::VectorXd& q_start,
                               const Eigen::Vector3d& x_target, const FindPathOptions& options = {});

//! The same by whole motions: `CreateBiRRT` and `ShortenByMotions`. Every motion of the path was found valid
//! by `Environment::IsValidMotion`, which an environment may override by an exact answer.
KAVO_EXPORT FoundPath FindPath(const std::shared_ptr<Environment>& environment, const BiRRTConfig& config,
                               const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_target,
                               const FindPathOptions& options = {});

}  // namespace kavo::planning
