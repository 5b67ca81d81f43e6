#include "kavo/motion_planning/interface/motion_planner_config.h"

#include <filesystem>
#include <system_error>

#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/motion_planning/interface/yaml_conversions_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

// The value of a key of a map. yaml-cpp reports a missing key and a missing map in the same way; here a
// missing key is a value that does not convert, at the place of the map.
template <typename T>
T Read(const YAML::Node& map, const char* key) {
  const YAML::Node value = map[key];
  if (!value.IsDefined()) {
    throw YAML::TypedBadConversion<T>(map.Mark());
  }
  return value.as<T>();
}

std::string ReadScalar(const YAML::Node& map, const char* key) {
  const YAML::Node value = map[key];
  if (!value.IsDefined() || !value.IsScalar()) {
    throw YAML::TypedBadConversion<std::string>(value.IsDefined() ? value.Mark() : map.Mark());
  }
  return value.Scalar();
}

template <typename T>
void ReadIfThere(const YAML::Node& map, const char* key, T& setting) {
  if (map[key].IsDefined()) {
    setting = Read<T>(map, key);
  }
}

const RobotDescription& Given(const std::shared_ptr<RobotDescription>& robot_description) {
  KAVO_CHECK(robot_description != nullptr, "motion_planning/interface/motion_planner", 34);
  return *robot_description;
}

}  // namespace

MotionPlannerConfig::MotionPlannerConfig(const std::shared_ptr<RobotDescription>& robot_description)
    : distance_metric_weights(
          Eigen::VectorXd::Ones(static_cast<Eigen::Index>(Given(robot_description).numCSpaceCoords()))),
      task_space_frame_name(LastOwnFrame(*robot_description)),
      tesk_tree_config(DefaultTeskTreeConfig(static_cast<int>(robot_description->numCSpaceCoords()))) {}

const char* ToString(CSpacePlanner planner) {
  return planner == CSpacePlanner::kBiRrt ? "bi_rrt" : "rrt_connect";
}

MotionPlannerConfig::MotionPlannerConfig(const YAML::Node& node) : MotionPlannerConfig(node, true) {}

MotionPlannerConfig MotionPlannerConfig::ReadUnchecked(const YAML::Node& node) {
  return MotionPlannerConfig(node, false);
}

MotionPlannerConfig::MotionPlannerConfig(const YAML::Node& node, bool checks_ranges) {
  seed = Read<int>(node, "seed");
  if (checks_ranges) {
    KAVO_CHECK(seed > 0, "motion_planning/interface/motion_planner", 89) << "`seed` must be positive.";
  }
  step_size = Read<double>(node, "step_size");
  if (checks_ranges) {
    KAVO_CHECK(step_size > 0.0, "motion_planning/interface/motion_planner", 93)
        << "`step_size` must be positive.";
  }
  max_iterations = Read<unsigned long>(node, "max_iterations");
  max_sampling = Read<unsigned long>(node, "max_sampling");

  const auto weights = Read<std::vector<double>>(node, "distance_metric_weights");
  distance_metric_weights.resize(static_cast<Eigen::Index>(weights.size()));
  Eigen::Index num_weights = 0;
  for (const double weight : weights) {
    if (checks_ranges) {
      KAVO_CHECK(weight > 0.0, "motion_planning/interface/motion_planner", 107)
          << "All `distance_metric_weights` must be positive";
    }
    distance_metric_weights[num_weights++] = weight;
  }

  task_space_frame_name = ReadScalar(node, "task_space_frame_name");
  task_space_limits = Read<std::vector<MotionPlanner::Limit>>(node, "task_space_limits");
  if (checks_ranges) {
    KAVO_CHECK(task_space_limits.size() == 3, "motion_planning/interface/motion_planner", 119)
        << "Dimension of `task_space_limits` must be 3, withlimits corresponding to xyz axes.";
    for (const MotionPlanner::Limit& limit : task_space_limits) {
      KAVO_CHECK(limit.upper >= limit.lower, "motion_planning/interface/motion_planner", 122)
          << "Upper limit [" << limit.upper << "] must be >= lower limit [" << limit.lower << "].";
    }
  }

  if (const YAML::Node tree = node["tesk_tree_params"]; tree.IsDefined()) {
    tesk_tree_config = DefaultTeskTreeConfig(static_cast<int>(num_weights));
    tesk_tree_config->max_num_nodes = static_cast<std::int64_t>(Read<unsigned long>(tree, "max_num_nodes"));
    // A buffer size of one's own goes with the metric of the planner.
    tesk_tree_config->max_buffer_size =
        static_cast<std::int64_t>(Read<unsigned long>(tree, "max_buffer_size"));
    tesk_tree_config->distance_metric_type = tesk::planning::DistanceMetricType::kWeightedSquaredL2Norm;
    tesk_tree_config->distance_metric_weights = distance_metric_weights;
    tesk_tree_config->num_nodes_cpu_gpu_crossover =
        static_cast<std::int64_t>(Read<unsigned long>(tree, "num_nodes_cpu_gpu_crossover"));
  }

  c_space_exploration_fraction = Read<double>(node["c_space_planning_params"], "exploration_fraction");
  const YAML::Node task_space = node["task_space_planning_params"];
  x_target_zone_tolerance = Read<Eigen::Vector3d>(task_space, "x_target_zone_tolerance");
  x_target_final_tolerance = Read<double>(task_space, "x_target_final_tolerance");
  task_space_exploitation_fraction = Read<double>(task_space, "task_space_exploitation_fraction");
  task_space_exploration_fraction = Read<double>(task_space, "task_space_exploration_fraction");

  if (node["max_nodes"].IsDefined()) {
    max_nodes = Read<std::uint64_t>(node, "max_nodes");
    if (checks_ranges) {
      KAVO_CHECK(max_nodes > 0, "motion_planning/interface/motion_planner", 152)
          << "`max_nodes` must be positive.";
    }
  }
  ReadIfThere(node, "planner", planner);
  if (const YAML::Node map = node["bi_rrt_params"]; map.IsDefined()) {
    ReadIfThere(map, "range", bi_rrt.range);
    ReadIfThere(map, "balance", bi_rrt.balance);
    ReadIfThere(map, "domain", bi_rrt.domain);
    ReadIfThere(map, "samples", bi_rrt.samples);
  }
  ReadIfThere(node, "effort", effort);
  if (const YAML::Node map = node["pose_planning_params"]; map.IsDefined()) {
    ReadIfThere(map, "position_tolerance", pose_position_tolerance);
    ReadIfThere(map, "orientation_tolerance", pose_orientation_tolerance);
    ReadIfThere(map, "max_configurations", max_pose_configurations);
  }
}

YAML::Node internal::LoadYaml(const std::string& file) {
  std::error_code unused;
  if (std::filesystem::is_directory(file, unused)) {
    throw YAML::BadFile(file);
  }
  return YAML::LoadFile(file);
}

bool WarnOfIdleWeights(const MotionPlannerConfig& config) {
  const std::optional<TeskTreeConfig>& tree = config.tesk_tree_config;
  if (!tree || tree->distance_metric_type == tesk::planning::DistanceMetricType::kWeightedSquaredL2Norm ||
      (config.distance_metric_weights.array() == 1.0).all()) {
    return false;
  }
  KAVO_LOG(LogLevel::kWarning) << "'distance_metric_weights' have no effect on queries to a configuration: "
                               << "accelerator trees measure the plain distance. They have one with "
                               << "'enable_tesk_tree' false.";
  return true;
}

TeskTreeConfig DefaultTeskTreeConfig(int dimension) {
  TeskTreeConfig config;
  config.dimension = dimension;
  config.max_num_nodes = 10000;
  config.max_buffer_size = 30;
  config.distance_metric_type = tesk::planning::DistanceMetricType::kL2Norm;
  config.num_nodes_cpu_gpu_crossover = 3000;
  return config;
}

}  // namespace kavo::planning
