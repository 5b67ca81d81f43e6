// The run-time parameters of the planner: what names there are, and what each accepts.

#include <utility>

#include "kavo/motion_planning/interface/motion_planner_internal.h"
#include "kavo/motion_planning/interface/param_value_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/interface/motion_planner";

bool IsFraction(double value) { return value >= 0.0 && value <= 1.0; }

}  // namespace

bool MotionPlannerInternal::setParam(const std::string& param_name, ParamValue value) {
  using Impl = ParamValue::Impl;
  KAVO_CHECK(value.impl != nullptr, kFile, 182);
  const auto& data = value.impl->value;
  if (param_name == "seed") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 185);
    return setSeed(std::get<int>(data));
  }
  if (param_name == "step_size") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::FLOAT64, kFile, 188);
    return setStepSize(std::get<double>(data));
  }
  if (param_name == "max_iterations") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 191);
    return setMaxIterations(std::get<int>(data));
  }
  if (param_name == "max_sampling") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 194);
    return setMaxSampling(std::get<int>(data));
  }
  if (param_name == "distance_metric_weights") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::FLOAT64_VECTOR_ITER, kFile, 197);
    const auto& [weights, count] = std::get<Impl::View<double>>(data);
    return setDistanceMetricWeights(weights, count);
  }
  if (param_name == "task_space_frame_name") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::STRING, kFile, 200);
    return setTaskSpaceFrameName(std::get<std::string>(data));
  }
  if (param_name == "task_space_limits") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::LIMIT_VECTOR_ITER, kFile, 203);
    const auto& [limits, count] = std::get<Impl::View<Limit>>(data);
    return setTaskSpaceLimits(limits, count);
  }
  if (param_name == "enable_tesk_tree") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::BOOLEAN, kFile, 206);
    return enableTeskTree(std::get<bool>(data));
  }
  if (param_name == "tesk_tree_params/max_num_nodes") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 209);
    return setTeskTreeMaxNumNodes(std::get<int>(data));
  }
  if (param_name == "tesk_tree_params/max_buffer_size") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 212);
    return setTeskTreeMaxBufferSize(std::get<int>(data));
  }
  if (param_name == "tesk_tree_params/num_nodes_cpu_gpu_crossover") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 215);
    return setTeskTreeNumNodesCpuGpuCrossover(std::get<int>(data));
  }
  if (param_name == "c_space_planning_params/exploration_fraction") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::FLOAT64, kFile, 218);
    return setRrtConnectExplorationFraction(std::get<double>(data));
  }
  if (param_name == "task_space_planning_params/x_target_zone_tolerance") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::VECTOR3D, kFile, 221);
    return setJtRrtXTargetZoneTolerance(std::get<Eigen::Vector3d>(data));
  }
  if (param_name == "task_space_planning_params/x_target_final_tolerance") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::FLOAT64, kFile, 224);
    return setJtRrtXTargetFinalTolerance(std::get<double>(data));
  }
  if (param_name == "task_space_planning_params/task_space_exploration_fraction") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::FLOAT64, kFile, 228);
    return setJtRrtTaskSpaceExplorationFraction(std::get<double>(data));
  }
  if (param_name == "task_space_planning_params/task_space_exploitation_fraction") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::FLOAT64, kFile, 232);
    return setJtRrtTaskSpaceExploitationFraction(std::get<double>(data));
  }
  if (param_name == "max_nodes") {
    KAVO_CHECK(value.impl->data_type == ParamValue::Impl::DataType::INTEGER, kFile, 235);
    return setMaxNodes(std::get<int>(data));
  }
  KAVO_LOG(LogLevel::kWarning) << "Invalid param: '" << param_name << "'";
  return false;
}

bool MotionPlannerInternal::accept() {
  needs_rebuild_ = true;
  return true;
}

bool MotionPlannerInternal::setSeed(int seed) {
  if (seed < 1) {
    KAVO_LOG(LogLevel::kError) << "'seed' [" << seed << "] must be positive; 'seed' will not be updated.";
    return false;
  }
  motion_planner_config_.seed = seed;
  next_seed_ = seed;
  return accept();
}

bool MotionPlannerInternal::setStepSize(double step_size) {
  if (!(step_size > 0.0)) {
    KAVO_LOG(LogLevel::kError) << "'step_size' [" << step_size << "] must be positive; "
                               << "'step_size' will not be updated.";
    return false;
  }
  motion_planner_config_.step_size = step_size;
  return accept();
}

bool MotionPlannerInternal::setMaxIterations(int max_iterations) {
  if (max_iterations < 1) {
    KAVO_LOG(LogLevel::kError) << "'max_iterations' [" << max_iterations << "] must be positive; "
                               << "'max_iterations' will not be updated.";
    return false;
  }
  motion_planner_config_.max_iterations = static_cast<std::size_t>(max_iterations);
  return accept();
}

bool MotionPlannerInternal::setMaxSampling(int max_sampling) {
  if (max_sampling < 1) {
    KAVO_LOG(LogLevel::kError) << "'max_sampling' [" << max_sampling << "] must be positive; "
                               << "'max_sampling' will not be updated.";
    return false;
  }
  motion_planner_config_.max_sampling = static_cast<std::size_t>(max_sampling);
  return accept();
}

bool MotionPlannerInternal::setMaxNodes(int max_nodes) {
  if (max_nodes < 1) {
    KAVO_LOG(LogLevel::kError) << "'max_nodes' [" << max_nodes << "] must be positive; "
                               << "'max_nodes' will not be updated.";
    return false;
  }
  motion_planner_config_.max_nodes = static_cast<std::uint64_t>(max_nodes);
  return accept();
}

bool MotionPlannerInternal::setDistanceMetricWeights(std::vector<double>::const_iterator weights,
                                                     std::size_t count) {
  if (count != robot_description_->numCSpaceCoords()) {
    KAVO_LOG(LogLevel::kError) << "Number of 'distance_metric_weights' [" << count
                               << "] must have same number of coordinates as 'RobotDescription' "
                               << "configuration space [" << robot_description_->numCSpaceCoords() << "]. "
                               << "'distance_metric_weights' will not be updated.";
    return false;
  }
  for (std::size_t i = 0; i < count; ++i, ++weights) {
    if (!(*weights > 0.0)) {
      KAVO_LOG(LogLevel::kError) << "All 'distance_metric_weights' must be positive; "
                                 << "'distance_metric_weights' will not be updated.";
      return false;
    }
    motion_planner_config_.distance_metric_weights[static_cast<Eigen::Index>(i)] = *weights;
  }
  return accept();
}

bool MotionPlannerInternal::setTaskSpaceFrameName(std::string task_space_frame_name) {
  robot_description_->kinematics()->frame(task_space_frame_name);
  motion_planner_config_.task_space_frame_name = std::move(task_space_frame_name);
  return accept();
}

bool MotionPlannerInternal::setTaskSpaceLimits(std::vector<Limit>::const_iterator limits, std::size_t count) {
  if (count != 3) {
    KAVO_LOG(LogLevel::kError) << "Number of 'task_space_limits' [" << count
                               << "] must be 3; 'task_space_limits' will not be updated.";
    return false;
  }
  for (std::size_t i = 0; i < count; ++i, ++limits) {
    if (!(limits->upper >= limits->lower)) {
      KAVO_LOG(LogLevel::kError) << "All 'task_space_limits' must have upper limits >= lower limits; "
                                 << "'task_space_limits' will not be updated.";
      return false;
    }
    motion_planner_config_.task_space_limits[i] = *limits;
  }
  return accept();
}

bool MotionPlannerInternal::enableTeskTree(bool enable) {
  std::optional<TeskTreeConfig>& config = motion_planner_config_.tesk_tree_config;
  if (enable == config.has_value()) {
    return true;
  }
  if (enable) {
    config = DefaultTeskTreeConfig(static_cast<int>(robot_description_->numCSpaceCoords()));
  } else {
    config.reset();
  }
  return accept();
}

bool MotionPlannerInternal::setTeskTreeMaxNumNodes(int max_num_nodes) {
  std::optional<TeskTreeConfig>& config = motion_planner_config_.tesk_tree_config;
  if (!config) {
    KAVO_LOG(LogLevel::kError) << "Cannot set 'max_num_nodes' without first enabling TESK tree";
    return false;
  }
  if (max_num_nodes < 1) {
    KAVO_LOG(LogLevel::kError) << "'max_num_nodes' [" << max_num_nodes << "] must be positive; "
                               << "'max_num_nodes' will not be updated.";
    return false;
  }
  if (!(max_num_nodes > config->num_nodes_cpu_gpu_crossover)) {
    KAVO_LOG(LogLevel::kError) << "'max_num_nodes' [" << max_num_nodes << "] must be greater than "
                               << "'num_nodes_cpu_gpu_crossover' [" << config->num_nodes_cpu_gpu_crossover
                               << "]; 'max_num_nodes' will not be updated.";
    return false;
  }
  config->max_num_nodes = max_num_nodes;
  return accept();
}

bool MotionPlannerInternal::setTeskTreeMaxBufferSize(int max_buffer_size) {
  std::optional<TeskTreeConfig>& config = motion_planner_config_.tesk_tree_config;
  if (!config) {
    KAVO_LOG(LogLevel::kError) << "Cannot set 'max_buffer_size' without first enabling TESK tree";
    return false;
  }
  if (max_buffer_size < 1) {
    KAVO_LOG(LogLevel::kError) << "'max_buffer_size' [" << max_buffer_size << "] must be positive; "
                               << "'max_buffer_size' will not be updated.";
    return false;
  }
  config->max_buffer_size = max_buffer_size;
  return accept();
}

bool MotionPlannerInternal::setTeskTreeNumNodesCpuGpuCrossover(int num_nodes_cpu_gpu_crossover) {
  std::optional<TeskTreeConfig>& config = motion_planner_config_.tesk_tree_config;
  if (!config) {
    KAVO_LOG(LogLevel::kError) << "Cannot set 'num_nodes_cpu_gpu_crossover' without first enabling TESK tree";
    return false;
  }
  if (num_nodes_cpu_gpu_crossover < 1) {
    KAVO_LOG(LogLevel::kError) << "'num_nodes_cpu_gpu_crossover' [" << num_nodes_cpu_gpu_crossover
                               << "] must be positive; 'num_nodes_cpu_gpu_crossover' will not be updated.";
    return false;
  }
  if (!(num_nodes_cpu_gpu_crossover < config->max_num_nodes)) {
    KAVO_LOG(LogLevel::kError) << "'num_nodes_cpu_gpu_crossover' [" << num_nodes_cpu_gpu_crossover
                               << "] must be less than 'max_num_nodes' [" << config->max_num_nodes
                               << "]; 'num_nodes_cpu_gpu_crossover' will not be updated.";
    return false;
  }
  config->num_nodes_cpu_gpu_crossover = num_nodes_cpu_gpu_crossover;
  return accept();
}

bool MotionPlannerInternal::setRrtConnectExplorationFraction(double exploration_fraction) {
  if (!IsFraction(exploration_fraction)) {
    KAVO_LOG(LogLevel::kError) << "'exploration_fraction' [" << exploration_fraction
                               << "] must be in range [0, 1]; 'exploration_fraction' will not be updated.";
    return false;
  }
  motion_planner_config_.c_space_exploration_fraction = exploration_fraction;
  // Only this planner depends on it, and it holds no random state: nothing else has to start over, unless
  // memory runs out half way.
  const bool needs_rebuild = std::exchange(needs_rebuild_, true);
  createRrtConnect();
  needs_rebuild_ = needs_rebuild;
  return true;
}

bool MotionPlannerInternal::setJtRrtXTargetZoneTolerance(const Eigen::Vector3d& x_target_zone_tolerance) {
  for (Eigen::Index i = 0; i < 3; ++i) {
    if (!(x_target_zone_tolerance[i] > 0.0)) {
      KAVO_LOG(LogLevel::kError) << "Each element of 'x_target_zone_tolerance' must be positive; "
                                 << "'x_target_zone_tolerance' will not be updated";
      return false;
    }
  }
  motion_planner_config_.x_target_zone_tolerance = x_target_zone_tolerance;
  return accept();
}

bool MotionPlannerInternal::setJtRrtXTargetFinalTolerance(double x_target_final_tolerance) {
  if (!(x_target_final_tolerance > 0.0)) {
    KAVO_LOG(LogLevel::kError) << "'x_target_final_tolerance' [" << x_target_final_tolerance
                               << "] must be positive; 'x_target_final_tolerance' will not be updated.";
    return false;
  }
  motion_planner_config_.x_target_final_tolerance = x_target_final_tolerance;
  return accept();
}

bool MotionPlannerInternal::setJtRrtTaskSpaceExplorationFraction(double task_space_exploration_fraction) {
  if (!IsFraction(task_space_exploration_fraction)) {
    KAVO_LOG(LogLevel::kError) << "'task_space_exploration_fraction' [" << task_space_exploration_fraction
                               << "] must be in range [0, 1]; "
                               << "'task_space_exploration_fraction' will not be updated.";
    return false;
  }
  const double exploitation_fraction = motion_planner_config_.task_space_exploitation_fraction;
  if (task_space_exploration_fraction + exploitation_fraction > 1.0) {
    KAVO_LOG(LogLevel::kError) << "The sum of 'task_space_exploration_fraction' ["
                               << task_space_exploration_fraction << "] and "
                               << "'task_space_exploitation_fraction' [" << exploitation_fraction
                               << "] must be less than 1; 'task_space_exploration_fraction' will not be "
                               << "updated.";
    return false;
  }
  motion_planner_config_.task_space_exploration_fraction = task_space_exploration_fraction;
  return accept();
}

bool MotionPlannerInternal::setJtRrtTaskSpaceExploitationFraction(double task_space_exploitation_fraction) {
  if (!IsFraction(task_space_exploitation_fraction)) {
    KAVO_LOG(LogLevel::kError) << "'task_space_exploitation_fraction' [" << task_space_exploitation_fraction
                               << "] must be in range [0, 1]; "
                               << "'task_space_exploitation_fraction' will not be updated.";
    return false;
  }
  const double exploration_fraction = motion_planner_config_.task_space_exploration_fraction;
  if (task_space_exploitation_fraction + exploration_fraction > 1.0) {
    KAVO_LOG(LogLevel::kError) << "The sum of 'task_space_exploitation_fraction' ["
                               << task_space_exploitation_fraction << "] and "
                               << "'task_space_exploration_fraction' [" << exploration_fraction
                               << "] must be less than 1; 'task_space_exploitation_fraction' will not be "
                               << "updated.";
    return false;
  }
  motion_planner_config_.task_space_exploitation_fraction = task_space_exploitation_fraction;
  return accept();
}

}  // namespace kavo::planning
