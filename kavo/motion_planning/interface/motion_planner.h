#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/motion_planning/interface/goal.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/motion_planning/util/line_motion.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo {

//! Plans collision-free paths of one robot among the obstacles of a world: to a configuration (by
//! RRT-Connect, or by trees of whole motions that are proven free), to a position of one frame (by a
//! Jacobian-transpose RRT), to the pose of a frame or to any one of several goals (by trees of motions), and
//! along a line of the tool. Made by `CreateMotionPlanner`.
//!
//! Configurations hold one value for each c-space coordinate of the robot: radians, or metres for a prismatic
//! joint. Planners of equal settings and worlds give equal answers. One thread at a time.
//!
//! When memory runs out in the middle of a query (`std::bad_alloc`) the planner may be asked again; that
//! query has no status, and its random choices so far are spent.
//!
//! @code
//! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
//! kavo::World world;
//! world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
//! const auto planner = kavo::CreateMotionPlanner(robot, world.view());
//! planner->setParam("step_size", 0.05);
//! planner->setStopCondition(kavo::StopAfter(10.0));
//!
//! const Eigen::VectorXd start = robot->defaultCSpaceConfiguration();
//! Eigen::VectorXd target = start;
//! target[0] += 1.5;
//! const kavo::MotionPlanner::Results results = planner->planToCSpaceTarget(start, target, true);
//! assert(results.path_found && results.path.back() == target);
//! std::cout << planner->queryReport().num_validity_checks << " configurations checked\n";
//! @endcode
class KAVO_EXPORT MotionPlanner {
 public:
  //! A closed interval.
  struct Limit {
    double lower = 0.0;  //!< In the unit of what it limits.
    double upper = 0.0;  //!< In the unit of what it limits.
  };

  //! A value for `setParam`. Cheap to copy.
  //!
  //! A value made from a vector of doubles or limits is a view: it copies nothing, and the vector must live,
  //! unchanged, for as long as the value is used.
  class KAVO_EXPORT ParamValue {
   public:
    struct Impl;

    //! For settings that count.
    ParamValue(int value);  // NOLINT(google-explicit-constructor)
    //! For settings of a magnitude.
    ParamValue(double value);  // NOLINT(google-explicit-constructor)
    //! For settings with a value along x, y and z; copied.
    ParamValue(const Eigen::Vector3d& value);  // NOLINT(google-explicit-constructor)
    //! For settings with a value for each coordinate; a view.
    ParamValue(const std::vector<double>& value);  // NOLINT(google-explicit-constructor)
    //! For settings that are on or off.
    ParamValue(bool value);  // NOLINT(google-explicit-constructor)
    //! For settings that are names; copied.
    ParamValue(const std::string& value);  // NOLINT(google-explicit-constructor)
    //! As above; null is a fatal error.
    ParamValue(const char* value);  // NOLINT(google-explicit-constructor)
    //! For settings that are ranges; a view.
    ParamValue(const std::vector<Limit>& value);  // NOLINT(google-explicit-constructor)

    //! For planners, which read it.
    std::shared_ptr<const Impl> impl;
  };

  //! The answer to a query.
  struct Results {
    //! Whether there is a path.
    bool path_found = false;
    //! Waypoints, start first: the path goes straight in c-space from one to the next. Empty when none was
    //! found. Where a whole turn of a joint changes nothing (see `ExtractPeriodicCoordinates`) the planner
    //! goes the short way round: the path then leaves [-pi, pi] rather than jump, and the last waypoint is
    //! the target but for whole turns.
    std::vector<Eigen::VectorXd> path;
    //! `path` with points in between, no farther apart than the step size; empty unless asked for.
    //!
    //! Those of the planner "bi_rrt" divide each segment evenly. Those of the others stand one step apart
    //! from the start of each segment on. A short cut may have been checked from its other end, at points
    //! that lie between these: that all points of `path` are valid does not mean that all of these are.
    //! `QueryReport::first_invalid_interpolated` tells.
    std::vector<Eigen::VectorXd> interpolated_path;
    //! Of several goals the one that the path ends in.
    std::optional<std::size_t> goal = std::nullopt;
  };

  virtual ~MotionPlanner();

  //! Changes one setting by name; it counts from the next query on. False, with a report, for a name that
  //! does not exist or a value out of range, which changes nothing (but see the two vectors below). A value
  //! of another type than the name's is a fatal error.
  //!
  //! | name | type | default |
  //! |---|---|---|
  //! | seed | int, at least 1 | 1234 |
  //! | step_size | double, positive | 0.1 |
  //! | max_iterations | int, at least 1 | 10000 |
  //! | max_sampling | int, at least 1 | 10000 |
  //! | distance_metric_weights | vector of doubles, one for each coordinate, positive | ones |
  //! | task_space_frame_name | string; an unknown frame is a fatal error | last frame of the robot |
  //! | task_space_limits | vector of 3 limits (x, y, z), metres in the robot's base frame | [-1, 1] each |
  //! | enable_tesk_tree | bool | true |
  //! | tesk_tree_params/max_num_nodes | int, above the crossover | 10000 |
  //! | tesk_tree_params/max_buffer_size | int, at least 1 | 30 |
  //! | tesk_tree_params/num_nodes_cpu_gpu_crossover | int, at least 1, below max_num_nodes | 3000 |
  //! | c_space_planning_params/exploration_fraction | double in [0, 1] | 0.5 |
  //! | task_space_planning_params/x_target_zone_tolerance | 3-vector, positive, metres | 0.01 each |
  //! | task_space_planning_params/x_target_final_tolerance | double, positive, metres | 1e-5 |
  //! | task_space_planning_params/task_space_exploration_fraction | double in [0, 1] | 0.1 |
  //! | task_space_planning_params/task_space_exploitation_fraction | double in [0, 1] | 0.4 |
  //! | max_nodes | int, at least 1 | 2000000 |
  //! | planner | string, "rrt_connect" or "bi_rrt": for queries to a configuration | rrt_connect |
  //! | bi_rrt_params/range | double, not negative; 0 chooses by the limits | 0 |
  //! | bi_rrt_params/balance | double, at least 1 | 2 |
  //! | bi_rrt_params/domain | double, not negative; 0 is everywhere | 3 |
  //! | bi_rrt_params/samples | string, "low_discrepancy" or "environment" | low_discrepancy |
  //! | effort | int, not negative: rounds in which paths of bi_rrt are shortened | 1 |
  //! | pose_planning_params/position_tolerance | double, positive, metres | 1e-4 |
  //! | pose_planning_params/orientation_tolerance | double, positive, radians | 1e-3 |
  //! | pose_planning_params/max_configurations | int, at least 1 | 64 |
  //!
  //! The last nine start nothing over but what they are about: the other planner, and queries to a position,
  //! go on in their random choices. What those from "planner" to "effort" mean is in `planning::BiRRTConfig`;
  //! the last three are for pose goals, see `planToGoals`.
  //!
  //! Weights other than one have no effect on queries to a configuration while accelerator trees are enabled,
  //! which measure the plain distance; a planner warns of that once.
  //!
  //! The two task-space fractions must not exceed 1 together. Weights and limits are taken over one by one:
  //! of a rejected vector the entries before the first bad one stay.
  virtual bool setParam(const std::string& param_name, ParamValue value) = 0;

  //! Takes the world as it is now.
  virtual void updateWorldView() = 0;

  //! A path to a configuration. Configurations of another length than the robot's are a fatal error; a start
  //! or target that is not valid is warned about and gives no path.
  virtual Results planToCSpaceTarget(const Eigen::VectorXd& q_initial, const Eigen::VectorXd& q_target,
                                     bool generate_interpolated_path) = 0;

  //! A path to a configuration in which the task-space frame is at a position (relative to the robot base,
  //! metres). It ends within the final tolerance of the target; where the last refinement does not get so
  //! far, a report at level 1 says so and the path ends as close as it got. That refinement, about the last
  //! `x_target_zone_tolerance` of the way, is not checked for collisions.
  virtual Results planToTaskSpaceTarget(const Eigen::VectorXd& q_initial, const Eigen::Vector3d& x_target,
                                        bool generate_interpolated_path) = 0;

  //! What the last query did, and why it found no path if it found none.
  virtual QueryReport queryReport() const = 0;

  //! Ends queries once the condition holds: without a path, or where one was found already, with the path as
  //! short as it is by then. It is asked before every extension, every step of one, and every search for a
  //! short cut. One that never holds changes no answer; an empty one
  //! lifts it. See `StopAfter`. It must not call the planner; an exception that it throws leaves the query.
  virtual void setStopCondition(StopCondition stop_condition) = 0;

  //! The robot that is planned for.
  virtual std::shared_ptr<RobotDescription> robot() const = 0;

  //! Goes over to another form of the robot (see robot_variants.h), such as one that holds something: from
  //! the next query on. Settings stay, and random choices go on where they are. Fatal, without a change,
  //! unless it has the same coordinates and limits, and the task-space frame.
  virtual void setRobot(std::shared_ptr<RobotDescription> robot_description) = 0;

  //! Has the robot hold an object from the next query on: it is covered by spheres (see `CoverObject`), goes
  //! along with the robot, and touches what a link would touch. A form of the robot, as for `setRobot`.
  //! Fatal, without a change, for what `WithAttached` and `CoverObject` refuse, and for the name of an
  //! obstacle that the planner sees: what is attached is no longer in the world (see `AttachFromWorld`).
  virtual void attach(const AttachedObject& object) = 0;

  //! Takes from the robot what it holds: what was attached under a name, or the spheres of what came with a
  //! form of the robot. Fatal for another name, and for that of the task-space frame.
  virtual AttachedObject detach(const std::string& name) = 0;

  //! A path to any one of several goals: configurations and poses of frames. `Results::goal` is the one that
  //! it ends in, `QueryReport::goals` says what became of each. Goals that are of no use are left out; there
  //! is no path where that leaves none. The planner is "bi_rrt", whatever the setting of that name says: each
  //! motion of the path is proven free.
  //!
  //! A pose stands for configurations in which the frame has it, found by inverse kinematics: some before the
  //! search, more as it goes on without a path, at most `pose_planning_params/max_configurations`. How many
  //! are found when is a matter of counts, not of time. They meet the pose to within 1e-5 m and 1e-4 rad
  //! where they can, else within its tolerances; each is checked. What a goal leaves open (regions, and
  //! tolerances that are not small) is filled by random poses within it.
  //!
  //! No goal, a configuration of another length than the robot's, an unknown frame, a pose that is not finite
  //! and a tolerance that is not positive are fatal errors.
  //!
  //! @code
  //! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
  //! kavo::World world;
  //! world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
  //! const auto planner = kavo::CreateMotionPlanner(robot, world.view());
  //! kavo::PoseGoal below;
  //! below.pose = kavo::Pose3(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0), {0.5, 0.2, -0.3});
  //! kavo::PoseGoal above = below;
  //! above.pose = kavo::Pose3(below.pose.rotation(), {0.5, 0.2, 0.3});
  //! above.free_rotations[2] = true;  // Round about its own z axis the tool may stand as it likes.
  //! const Eigen::VectorXd start = robot->defaultCSpaceConfiguration();
  //! const kavo::MotionPlanner::Results results = planner->planToGoals(start, {below, above}, false);
  //! assert(results.path_found && results.goal == 1u);
  //! assert(planner->queryReport().goals[0].fault->contact->obstacle_name == "floor");
  //! @endcode
  virtual Results planToGoals(const Eigen::VectorXd& q_initial, const std::vector<Goal>& goals,
                              bool generate_interpolated_path) = 0;

  //! A path on which a tool goes straight to a pose while its orientation turns evenly, as in approach and
  //! retreat. Every motion of it is proven free, and it stays near the line as the options say; see
  //! `planning::FollowLine`. A goal that is a position alone (`PoseGoal::Position`) keeps the orientation
  //! that the frame has; otherwise regions, tolerances and what is free do not matter here.
  virtual planning::LineMotion planLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                        const planning::LineOptions& options) = 0;

  //! A path of several stages, one after another, such as to a pose beside an object and on along a line.
  //! Where lines follow a pose, it is taken only in configurations from which they can be gone. Fatal without
  //! a stage, and as `planToGoals` and `planLine`. `queryReport` is of the last stage tried.
  //!
  //! @code
  //! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
  //! kavo::World world;
  //! world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
  //! const auto planner = kavo::CreateMotionPlanner(robot, world.view());
  //! kavo::PoseGoal beside;
  //! beside.pose = kavo::Pose3(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0), {0.5, 0.2, 0.4});
  //! kavo::PoseGoal at = beside;
  //! at.pose = kavo::Pose3(beside.pose.rotation(), {0.5, 0.2, 0.25});
  //! const Eigen::VectorXd start = robot->defaultCSpaceConfiguration();
  //! const kavo::planning::LineOptions line;
  //! const auto results = planner->planStages(start, {{{beside}}, {{at}, line}, {{beside}, line},
  //! {{start}}}); assert(results.path_found && results.parts.size() == 4 && results.path.back() == start);
  //! @endcode
  virtual StagedResults planStages(const Eigen::VectorXd& q_initial, const std::vector<Stage>& stages) = 0;

  //! Has each search shown to an observer from now on: its trees, and its path before that is shortened. An
  //! empty one lifts it. Answers stay the same; a query takes as much longer as it takes to copy the trees.
  //!
  //! @code
  //! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadThreeLinkArmRobotDescription();
  //! kavo::World world;
  //! world.add(kavo::SphereObstacle{0.3}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
  //! const auto planner = kavo::CreateMotionPlanner(robot, world.view());
  //! std::vector<kavo::SearchRecord> searches;
  //! planner->setSearchObserver([&](const kavo::SearchRecord& search) { searches.push_back(search); });
  //! planner->planToCSpaceTarget(Eigen::Vector3d(-0.4, 0.1, 0.2), Eigen::Vector3d(1.7, -0.2, -0.3), false);
  //! assert(searches.size() == 1 && searches[0].trees.size() == 2);
  //! assert(searches[0].raw_path.size() == planner->queryReport().num_raw_waypoints);
  //! @endcode
  virtual void setSearchObserver(SearchObserver observer) = 0;

  //! A path to the pose of a frame, see `planToGoals`.
  Results planToPose(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                     bool generate_interpolated_path) {
    return planToGoals(q_initial, {goal}, generate_interpolated_path);
  }

  //! The same, relative to the robot's base and within the tolerances that are set.
  Results planToPose(const Eigen::VectorXd& q_initial, const std::string& frame, const Pose3& pose,
                     bool generate_interpolated_path) {
    PoseGoal goal;
    goal.frame = frame;
    goal.pose = pose;
    return planToPose(q_initial, goal, generate_interpolated_path);
  }

 protected:
  MotionPlanner() = default;
  MotionPlanner(const MotionPlanner&) = default;             //!< For derived classes.
  MotionPlanner& operator=(const MotionPlanner&) = default;  //!< For derived classes.
};

//! A planner with the default settings.
//! \param robot_description The robot, as this library's builder or loaders made it.
//! \param world_view The obstacles. Copies of a view share one snapshot: updating any of them updates the
//!     planner's.
KAVO_EXPORT std::unique_ptr<MotionPlanner> CreateMotionPlanner(
    std::shared_ptr<RobotDescription> robot_description, const WorldView& world_view);

//! A planner with the settings of a YAML file; see examples/planner.yaml for its keys. A file that cannot be
//! read or lacks a key throws an exception of yaml-cpp (derived from `std::runtime_error`), a value out of
//! range a fatal error.
KAVO_EXPORT std::unique_ptr<MotionPlanner> CreateMotionPlanner(
    const std::string& motion_planner_config_file, std::shared_ptr<RobotDescription> robot_description,
    const WorldView& world_view);

}  // namespace kavo
