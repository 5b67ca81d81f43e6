#include "kavo/motion_planning/environment/robot_environment_config.h"

#include <algorithm>
#include <utility>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr int kExampleTaskSpaceSeed = 142;

const RobotDescription& Given(const RobotDescription* robot_description) {
  KAVO_CHECK(robot_description != nullptr, "motion_planning/environment/robot_environment_config", 20)
      << "No robot description was given.";
  return *robot_description;
}

const RobotDescriptionInternal& Internal(const RobotDescription* robot_description) {
  const auto* const internal = dynamic_cast<const RobotDescriptionInternal*>(&Given(robot_description));
  KAVO_CHECK(internal != nullptr, "motion_planning/environment/robot_environment_config", 115)
      << "The robot description is not of this library's making.";
  return *internal;
}

}  // namespace

RobotEnvironmentConfig::RobotEnvironmentConfig(const RobotDescription* robot_description,
                                               const WorldView& world_view_in,
                                               const Eigen::VectorXd& distance_weights_in,
                                               int max_sampling_attempts_in, int c_space_seed_in,
                                               int task_space_seed_in)
    : world_view(world_view_in),
      max_sampling_attempts(max_sampling_attempts_in),
      c_space_seed(c_space_seed_in),
      task_space_seed(task_space_seed_in),
      distance_weights(distance_weights_in),
      kinematics_(Given(robot_description).kinematics()),
      num_joints_(static_cast<int>(kinematics_->numCSpaceCoords())),
      joint_limits_(ExtractJointLimits(robot_description)),
      periodic_coordinates_(ExtractPeriodicCoordinates(robot_description)),
      task_space_frame_(kinematics_->frame(LastOwnFrame(*robot_description))) {
  ValidateInput();
  AddCollisionSpheres(robot_description);
}

std::optional<kavo::Kinematics::FrameHandle> RobotEnvironmentConfig::SetTaskSpaceFrame(
    const std::string& frame_name) {
  const std::vector<std::string>& names = kinematics_->frameNames();
  if (std::find(names.begin(), names.end(), frame_name) == names.end()) {
    KAVO_LOG(LogLevel::kWarning) << "Unable to find \"" << frame_name << "\". Task space frame name will not "
                                 << "be updated";
    return std::nullopt;
  }
  task_space_frame_ = kinematics_->frame(frame_name);
  return task_space_frame_;
}

void RobotEnvironmentConfig::SetTaskSpaceLimits(kinematics::ConfigurationLimits task_space_limits) {
  KAVO_CHECK(task_space_limits.Dimension() == 3, "motion_planning/environment/robot_environment_config", 91)
      << "Dimension for 'task_space_limits' [" << task_space_limits.Dimension() << "] is expected to be 3.";
  task_space_limits_ = std::move(task_space_limits);
}

void RobotEnvironmentConfig::AddCollisionSphere(const std::string& frame_name, const math::Sphere& sphere) {
  collision_.addSphere(frame_name, sphere);
}

void RobotEnvironmentConfig::SetRobot(const RobotDescription* robot_description) {
  const RobotDescriptionInternal& robot = Internal(robot_description);
  const std::vector<kinematics::JointLimits> limits = robot.jointLimits();
  const bool fits = std::equal(limits.begin(), limits.end(), joint_limits_.begin(), joint_limits_.end(),
                               [](const auto& a, const auto& b) { return a.min == b.min && a.max == b.max; });
  KAVO_CHECK(fits, "motion_planning/environment/robot_environment_config", 90)
      << "Another form of a robot must have the same coordinates and limits.";
  const std::string task_space_frame =
      kinematics_->frameNames()[static_cast<std::size_t>(task_space_frame_.index())];
  kinematics_ = robot.kinematics();
  task_space_frame_ = kinematics_->frame(task_space_frame);
  collision_ = robot.collision();
}

void RobotEnvironmentConfig::ValidateInput() const {
  KAVO_CHECK(static_cast<int>(joint_limits_.size()) == num_joints_,
             "motion_planning/environment/robot_environment_config", 101)
      << "Only " << joint_limits_.size() << " 'joint_limits' provided for kinematics with " << num_joints_
      << " joints.";
  KAVO_CHECK(distance_weights.size() == num_joints_, "motion_planning/environment/robot_environment_config",
             104)
      << "Only " << distance_weights.size() << " 'distance_weights' provided for kinematics with "
      << num_joints_ << " joints.";
}

void RobotEnvironmentConfig::AddCollisionSpheres(const RobotDescription* robot_description) {
  const CollisionModel& added = Internal(robot_description).collision();
  if (collision_.frames.empty() && collision_.pairs.empty()) {
    collision_ = added;
    return;
  }
  for (const std::string& frame_name : added.frames) {
    for (const math::Sphere& sphere : added.spheresOf(frame_name)) {
      AddCollisionSphere(frame_name, sphere);
    }
  }
  for (const std::pair<std::string, std::string>& pair : added.pairs) {
    const auto& [a, b] = pair;
    const auto& pairs = collision_.pairs;
    if (std::find(pairs.begin(), pairs.end(), pair) == pairs.end() &&
        std::find(pairs.begin(), pairs.end(), std::pair(b, a)) == pairs.end()) {
      collision_.pairs.push_back(pair);
    }
  }
  for (const auto& [frame_name, padding] : added.paddings) {
    double& known = collision_.paddings[frame_name];
    known = std::max(known, padding);
  }
  for (const auto& [frame_name, obstacles] : added.allowed_obstacles) {
    std::vector<std::string>& known = collision_.allowed_obstacles[frame_name];
    known.insert(known.end(), obstacles.begin(), obstacles.end());
  }
}

RobotEnvironmentConfig BuildFrankaRobotEnvironmentConfig(const WorldView& world_view,
                                                         const Eigen::VectorXd& distance_weights,
                                                         int max_sampling_attempts, int c_space_seed) {
  return {LoadFrankaRobotDescription().get(),
          world_view,
          distance_weights,
          max_sampling_attempts,
          c_space_seed,
          kExampleTaskSpaceSeed};
}

RobotEnvironmentConfig BuildThreeLinkRobotEnvironmentConfig(const WorldView& world_view,
                                                            const Eigen::Vector3d& distance_weights,
                                                            int max_sampling_attempts, int c_space_seed) {
  return {LoadThreeLinkArmRobotDescription().get(),
          world_view,
          distance_weights,
          max_sampling_attempts,
          c_space_seed,
          kExampleTaskSpaceSeed};
}

}  // namespace kavo::planning
