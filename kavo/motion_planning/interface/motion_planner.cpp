#include "kavo/motion_planning/interface/motion_planner.h"

#include <utility>

#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/motion_planner_internal.h"
#include "kavo/motion_planning/interface/param_value_internal.h"
#include "kavo/motion_planning/interface/yaml_conversions_internal.h"
#include "kavo/util/log_message.h"

namespace kavo {

MotionPlanner::~MotionPlanner() = default;

namespace {

using Impl = MotionPlanner::ParamValue::Impl;

std::shared_ptr<const Impl> MakeImpl(Impl::Value value) {
  return std::make_shared<const Impl>(std::move(value));
}

}  // namespace

MotionPlanner::ParamValue::ParamValue(int value) : impl(MakeImpl(value)) {}
MotionPlanner::ParamValue::ParamValue(double value) : impl(MakeImpl(value)) {}
MotionPlanner::ParamValue::ParamValue(const Eigen::Vector3d& value) : impl(MakeImpl(value)) {}
MotionPlanner::ParamValue::ParamValue(const std::vector<double>& value)
    : impl(MakeImpl(Impl::View<double>(value.begin(), value.size()))) {}
MotionPlanner::ParamValue::ParamValue(bool value) : impl(MakeImpl(value)) {}
MotionPlanner::ParamValue::ParamValue(const std::string& value) : impl(MakeImpl(value)) {}
MotionPlanner::ParamValue::ParamValue(const char* value) {
  KAVO_CHECK(value != nullptr, "motion_planning/interface/motion_planner", 30);
  impl = MakeImpl(std::string(value));
}
MotionPlanner::ParamValue::ParamValue(const std::vector<Limit>& value)
    : impl(MakeImpl(Impl::View<Limit>(value.begin(), value.size()))) {}

std::unique_ptr<MotionPlanner> CreateMotionPlanner(std::shared_ptr<RobotDescription> robot_description,
                                                   const WorldView& world_view) {
  const planning::MotionPlannerConfig config(robot_description);
  return CreateMotionPlanner(config, std::move(robot_description), world_view);
}

std::unique_ptr<MotionPlanner> CreateMotionPlanner(const planning::MotionPlannerConfig& config,
                                                   std::shared_ptr<RobotDescription> robot_description,
                                                   const WorldView& world_view) {
  return std::make_unique<planning::MotionPlannerInternal>(config, std::move(robot_description), world_view);
}

std::unique_ptr<MotionPlanner> CreateMotionPlanner(const std::string& motion_planner_config_file,
                                                   std::shared_ptr<RobotDescription> robot_description,
                                                   const WorldView& world_view) {
  const planning::MotionPlannerConfig config(planning::internal::LoadYaml(motion_planner_config_file));
  return CreateMotionPlanner(config, std::move(robot_description), world_view);
}

}  // namespace kavo
