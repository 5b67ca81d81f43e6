#include "kavo/motion_planning/interface/parameters.h"

#include <algorithm>
#include <initializer_list>
#include <limits>

#include "kavo/motion_planning/interface/parameters_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

using internal::Change;
using internal::ParameterRow;
using Config = MotionPlannerConfig;
using Effect = Change::Effect;
using Limits = std::vector<std::array<double, 2>>;

template <typename... Parts>
std::string Text(const Parts&... parts) {
  util::TextStream text;
  (text << ... << parts);
  return text.str();
}

Change Rejected(const std::string& name, const std::string& reason, const char* separator = "; ",
                const char* end = ".") {
  return {Effect::kRejected, reason, reason + separator + "'" + name + "' will not be updated" + end};
}

template <typename T>
Change NotPositive(const char* name, T value) {
  return Rejected(name, Text("'", name, "' [", value, "] must be positive"));
}

// Takes over a count.
template <typename T>
Change SetCount(const char* name, const ParameterValue& value, T& setting) {
  const std::int64_t count = std::get<std::int64_t>(value);
  if (count < 1) {
    return NotPositive(name, count);
  }
  setting = static_cast<T>(count);
  return {};
}

Change SetPositive(const char* name, const ParameterValue& value, double& setting) {
  const double number = std::get<double>(value);
  if (!(number > 0.0)) {
    return NotPositive(name, number);
  }
  setting = number;
  return {};
}

Change SetSeed(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetCount("seed", value, config.seed);
}

Change SetStepSize(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetPositive("step_size", value, config.step_size);
}

Change SetMaxIterations(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetCount("max_iterations", value, config.max_iterations);
}

Change SetMaxSampling(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetCount("max_sampling", value, config.max_sampling);
}

Change SetMaxNodes(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetCount("max_nodes", value, config.max_nodes);
}

Change SetDistanceMetricWeights(const ParameterValue& value, const RobotDescription& robot, Config& config) {
  const char* const name = "distance_metric_weights";
  const auto& weights = std::get<std::vector<double>>(value);
  if (weights.size() != robot.numCSpaceCoords()) {
    return Rejected(name,
                    Text("Number of 'distance_metric_weights' [", weights.size(),
                         "] must have same number of coordinates as 'RobotDescription' configuration space [",
                         robot.numCSpaceCoords(), "]"),
                    ". ");
  }
  config.distance_metric_weights.conservativeResize(static_cast<Eigen::Index>(weights.size()));
  for (std::size_t i = 0; i < weights.size(); ++i) {
    if (!(weights[i] > 0.0)) {
      return Rejected(name, "All 'distance_metric_weights' must be positive");
    }
    config.distance_metric_weights[static_cast<Eigen::Index>(i)] = weights[i];
  }
  return {};
}

Change SetTaskSpaceFrameName(const ParameterValue& value, const RobotDescription& robot, Config& config) {
  const auto& name = std::get<std::string>(value);
  robot.kinematics()->frame(name);
  config.task_space_frame_name = name;
  return {};
}

Change SetTaskSpaceLimits(const ParameterValue& value, const RobotDescription&, Config& config) {
  const char* const name = "task_space_limits";
  const auto& limits = std::get<Limits>(value);
  if (limits.size() != 3) {
    return Rejected(name, Text("Number of 'task_space_limits' [", limits.size(), "] must be 3"));
  }
  config.task_space_limits.resize(3);
  for (std::size_t i = 0; i < 3; ++i) {
    const auto [lower, upper] = limits[i];
    if (!(upper >= lower)) {
      return Rejected(name, "All 'task_space_limits' must have upper limits >= lower limits");
    }
    config.task_space_limits[i] = {lower, upper};
  }
  return {};
}

Change EnableTeskTree(const ParameterValue& value, const RobotDescription& robot, Config& config) {
  const bool enable = std::get<bool>(value);
  if (enable == config.tesk_tree_config.has_value()) {
    return {Effect::kNone};
  }
  config.tesk_tree_config.reset();
  if (enable) {
    config.tesk_tree_config = DefaultTeskTreeConfig(static_cast<int>(robot.numCSpaceCoords()));
  }
  return {};
}

Change NoTeskTree(const char* name) {
  const std::string reason = Text("Cannot set '", name, "' without first enabling TESK tree");
  return {Effect::kRejected, reason, reason};
}

Change SetMaxNumNodes(const ParameterValue& value, const RobotDescription&, Config& config) {
  const char* const name = "max_num_nodes";
  if (!config.tesk_tree_config) {
    return NoTeskTree(name);
  }
  const std::int64_t count = std::get<std::int64_t>(value);
  const std::int64_t crossover = config.tesk_tree_config->num_nodes_cpu_gpu_crossover;
  if (count >= 1 && !(count > crossover)) {
    return Rejected(name, Text("'max_num_nodes' [", count,
                               "] must be greater than 'num_nodes_cpu_gpu_crossover' [", crossover, "]"));
  }
  return SetCount(name, value, config.tesk_tree_config->max_num_nodes);
}

Change SetMaxBufferSize(const ParameterValue& value, const RobotDescription&, Config& config) {
  const char* const name = "max_buffer_size";
  return config.tesk_tree_config ? SetCount(name, value, config.tesk_tree_config->max_buffer_size)
                                 : NoTeskTree(name);
}

Change SetCrossover(const ParameterValue& value, const RobotDescription&, Config& config) {
  const char* const name = "num_nodes_cpu_gpu_crossover";
  if (!config.tesk_tree_config) {
    return NoTeskTree(name);
  }
  const std::int64_t count = std::get<std::int64_t>(value);
  const std::int64_t max_num_nodes = config.tesk_tree_config->max_num_nodes;
  if (count >= 1 && !(count < max_num_nodes)) {
    return Rejected(name, Text("'num_nodes_cpu_gpu_crossover' [", count,
                               "] must be less than 'max_num_nodes' [", max_num_nodes, "]"));
  }
  return SetCount(name, value, config.tesk_tree_config->num_nodes_cpu_gpu_crossover);
}

Change NoFraction(const char* name, double fraction) {
  return Rejected(name, Text("'", name, "' [", fraction, "] must be in range [0, 1]"));
}

bool IsFraction(double value) { return value >= 0.0 && value <= 1.0; }

Change SetExplorationFraction(const ParameterValue& value, const RobotDescription&, Config& config) {
  const double fraction = std::get<double>(value);
  if (!IsFraction(fraction)) {
    return NoFraction("exploration_fraction", fraction);
  }
  config.c_space_exploration_fraction = fraction;
  // Only that planner depends on it, and it holds no random state: nothing else has to start over.
  return {Effect::kRrtConnect};
}

Change SetZoneTolerance(const ParameterValue& value, const RobotDescription&, Config& config) {
  const auto& tolerance = std::get<std::vector<double>>(value);
  for (const double width : tolerance) {
    if (!(width > 0.0)) {
      return Rejected("x_target_zone_tolerance", "Each element of 'x_target_zone_tolerance' must be positive",
                      "; ", "");
    }
  }
  config.x_target_zone_tolerance = Eigen::Vector3d(tolerance[0], tolerance[1], tolerance[2]);
  return {};
}

Change SetFinalTolerance(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetPositive("x_target_final_tolerance", value, config.x_target_final_tolerance);
}

// Takes over a share of the task-space iterations; both together must not exceed one.
Change SetShare(const char* name, const ParameterValue& value, const char* other_name, double other,
                double& share) {
  const double fraction = std::get<double>(value);
  if (!IsFraction(fraction)) {
    return NoFraction(name, fraction);
  }
  if (fraction + other > 1.0) {
    return Rejected(name, Text("The sum of '", name, "' [", fraction, "] and '", other_name, "' [", other,
                               "] must be less than 1"));
  }
  share = fraction;
  return {};
}

Change SetTaskSpaceExplorationFraction(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetShare("task_space_exploration_fraction", value, "task_space_exploitation_fraction",
                  config.task_space_exploitation_fraction, config.task_space_exploration_fraction);
}

Change SetTaskSpaceExploitationFraction(const ParameterValue& value, const RobotDescription&,
                                        Config& config) {
  return SetShare("task_space_exploitation_fraction", value, "task_space_exploration_fraction",
                  config.task_space_exploration_fraction, config.task_space_exploitation_fraction);
}

// Takes over the one of some values that `ToString` gives the text for.
template <typename T>
Change SetNamed(const char* name, const ParameterValue& value, std::initializer_list<T> values, Effect effect,
                T& setting) {
  const auto& text = std::get<std::string>(value);
  std::string known;
  for (const T candidate : values) {
    if (text == ToString(candidate)) {
      setting = candidate;
      return {effect};
    }
    known += Text(known.empty() ? "'" : " or '", ToString(candidate), "'");
  }
  return Rejected(name, Text("'", name, "' [", text, "] must be ", known));
}

Change SetPlanner(const ParameterValue& value, const RobotDescription&, Config& config) {
  // All planners stay as they are.
  return SetNamed("planner", value, {CSpacePlanner::kRrtConnect, CSpacePlanner::kBiRrt}, Effect::kNone,
                  config.planner);
}

Change SetAtLeast(const char* name, const ParameterValue& value, double least, double& setting) {
  const double number = std::get<double>(value);
  if (!(number >= least && number <= std::numeric_limits<double>::max())) {
    return Rejected(name, Text("'", name, "' [", number, "] must be finite and at least ", least));
  }
  setting = number;
  return {Effect::kBiRrt};
}

Change SetRange(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetAtLeast("range", value, 0.0, config.bi_rrt.range);
}

Change SetBalance(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetAtLeast("balance", value, 1.0, config.bi_rrt.balance);
}

Change SetDomain(const ParameterValue& value, const RobotDescription&, Config& config) {
  return SetAtLeast("domain", value, 0.0, config.bi_rrt.domain);
}

Change SetSamples(const ParameterValue& value, const RobotDescription&, Config& config) {
  using Samples = BiRRTConfig::Samples;
  return SetNamed("samples", value, {Samples::kLowDiscrepancy, Samples::kEnvironment}, Effect::kBiRrt,
                  config.bi_rrt.samples);
}

Change SetEffort(const ParameterValue& value, const RobotDescription&, Config& config) {
  const std::int64_t effort = std::get<std::int64_t>(value);
  if (effort < 0) {
    return Rejected("effort", Text("'effort' [", effort, "] must not be negative"));
  }
  config.effort = static_cast<int>(effort);
  return {Effect::kNone};
}

// Queries look at these when they begin: nothing is built from them.
Change AtOnce(Change change) {
  change.effect = change.effect == Effect::kRejected ? change.effect : Effect::kNone;
  return change;
}

Change SetPosePositionTolerance(const ParameterValue& value, const RobotDescription&, Config& config) {
  return AtOnce(SetPositive("position_tolerance", value, config.pose_position_tolerance));
}

Change SetPoseOrientationTolerance(const ParameterValue& value, const RobotDescription&, Config& config) {
  return AtOnce(SetPositive("orientation_tolerance", value, config.pose_orientation_tolerance));
}

Change SetMaxPoseConfigurations(const ParameterValue& value, const RobotDescription&, Config& config) {
  return AtOnce(SetCount("max_configurations", value, config.max_pose_configurations));
}

// The settings of the accelerator tree, also while it is off.
TeskTreeConfig TeskTree(const Config& config) {
  return config.tesk_tree_config.value_or(
      DefaultTeskTreeConfig(static_cast<int>(config.distance_metric_weights.size())));
}

std::vector<double> ToVector(const Eigen::VectorXd& vector) { return {vector.begin(), vector.end()}; }

ParameterValue Count(std::uint64_t count) { return static_cast<std::int64_t>(count); }

// In the order of the reference of `MotionPlanner::setParam`.
const std::vector<ParameterRow>& Rows() {
  using Type = Parameter::Type;
  static const std::vector<ParameterRow> kRows = {
      {{"seed", Type::kInt, "Seeds all random choices; at least 1. Equal seeds give equal paths.",
        [](const Config& c) -> ParameterValue { return std::int64_t{c.seed}; }},
       185,
       SetSeed},
      {{"step_size", Type::kDouble,
        "Length of a step in c-space, in growing a tree and in checking and resampling a path; radians, or "
        "metres for prismatic joints. Smaller is safer and slower.",
        [](const Config& c) -> ParameterValue { return c.step_size; }},
       188,
       SetStepSize},
      {{"max_iterations", Type::kInt, "Extensions that one query may make before it gives up; at least 1.",
        [](const Config& c) { return Count(c.max_iterations); }},
       191,
       SetMaxIterations},
      {{"max_sampling", Type::kInt, "Random configurations that are tried for one that is valid; at least 1.",
        [](const Config& c) { return Count(c.max_sampling); }},
       194,
       SetMaxSampling},
      {{"distance_metric_weights", Type::kVector,
        "Weights of the squared distance between configurations, one for each coordinate, positive.",
        [](const Config& c) -> ParameterValue { return ToVector(c.distance_metric_weights); }},
       197,
       SetDistanceMetricWeights},
      {{"task_space_frame_name", Type::kString, "The frame that is taken to a target position.",
        [](const Config& c) -> ParameterValue { return c.task_space_frame_name; }},
       200,
       SetTaskSpaceFrameName},
      {{"task_space_limits", Type::kLimits,
        "The box of random positions when planning to a position: lower:upper for x, y and z, metres in the "
        "robot's base frame.",
        [](const Config& c) -> ParameterValue {
          std::vector<std::array<double, 2>> limits;
          for (const MotionPlanner::Limit& limit : c.task_space_limits) {
            limits.push_back({limit.lower, limit.upper});
          }
          return limits;
        }},
       203,
       SetTaskSpaceLimits},
      {{"enable_tesk_tree", Type::kBool,
        "Asks for accelerator trees. This build has none and takes plain trees, which then measure the plain "
        "distance instead of the weighted squared one.",
        [](const Config& c) -> ParameterValue { return c.tesk_tree_config.has_value(); }},
       206,
       EnableTeskTree},
      {{"tesk_tree_params/max_num_nodes", Type::kInt, "Capacity of an accelerator tree; above the crossover.",
        [](const Config& c) -> ParameterValue { return std::int64_t{TeskTree(c).max_num_nodes}; }},
       209,
       SetMaxNumNodes},
      {{"tesk_tree_params/max_buffer_size", Type::kInt, "Size of its staging buffer; at least 1.",
        [](const Config& c) -> ParameterValue { return std::int64_t{TeskTree(c).max_buffer_size}; }},
       212,
       SetMaxBufferSize},
      {{"tesk_tree_params/num_nodes_cpu_gpu_crossover", Type::kInt,
        "Number of nodes below which it would search on the CPU; at least 1, below max_num_nodes.",
        [](const Config& c) -> ParameterValue {
          return std::int64_t{TeskTree(c).num_nodes_cpu_gpu_crossover};
        }},
       215,
       SetCrossover},
      {{"c_space_planning_params/exploration_fraction", Type::kDouble,
        "Share of the extensions towards random configurations when planning to a configuration, in [0, 1]; "
        "the others head for the other tree.",
        [](const Config& c) -> ParameterValue { return c.c_space_exploration_fraction; }},
       218,
       SetExplorationFraction},
      {{"task_space_planning_params/x_target_zone_tolerance", Type::kVector3,
        "Half-widths of the zone around a target position from which the refinement, which is not checked "
        "for "
        "collisions, takes over: x, y, z, metres, positive. 0.03 is found far sooner than the default.",
        [](const Config& c) -> ParameterValue { return ToVector(c.x_target_zone_tolerance); }},
       221,
       SetZoneTolerance},
      {{"task_space_planning_params/x_target_final_tolerance", Type::kDouble,
        "Distance to the target position at which the refinement ends, metres, positive.",
        [](const Config& c) -> ParameterValue { return c.x_target_final_tolerance; }},
       224,
       SetFinalTolerance},
      {{"task_space_planning_params/task_space_exploration_fraction", Type::kDouble,
        "Share of the extensions towards random positions when planning to a position, in [0, 1].",
        [](const Config& c) -> ParameterValue { return c.task_space_exploration_fraction; }},
       228,
       SetTaskSpaceExplorationFraction},
      {{"task_space_planning_params/task_space_exploitation_fraction", Type::kDouble,
        "Share of the extensions that pull towards the target position, in [0, 1]; not more than 1 together "
        "with the share above.",
        [](const Config& c) -> ParameterValue { return c.task_space_exploitation_fraction; }},
       232,
       SetTaskSpaceExploitationFraction},
      {{"max_nodes", Type::kInt,
        "Nodes that the trees of one query may hold before it gives up; at least 1. It bounds the memory.",
        [](const Config& c) { return Count(c.max_nodes); }, true},
       235,
       SetMaxNodes},
      {{"planner", Type::kString,
        "What answers queries to a configuration: 'rrt_connect' walks in steps of step_size and checks the "
        "points between, 'bi_rrt' grows trees of whole motions, each of which is proven free.",
        [](const Config& c) -> ParameterValue { return std::string(ToString(c.planner)); }, true},
       238,
       SetPlanner},
      {{"bi_rrt_params/range", Type::kDouble,
        "Longest motion that a tree of bi_rrt grows by: radians, metres of a sliding joint compared with "
        "them by how far they move the robot; 0 chooses it by the limits.",
        [](const Config& c) -> ParameterValue { return c.bi_rrt.range; }, true},
       241,
       SetRange},
      {{"bi_rrt_params/balance", Type::kDouble,
        "A tree of bi_rrt goes on growing while the other one has at least this many times its nodes; at "
        "least 1. Much more than the default lets one of them grow in vain.",
        [](const Config& c) -> ParameterValue { return c.bi_rrt.balance; }, true},
       244,
       SetBalance},
      {{"bi_rrt_params/domain", Type::kDouble,
        "Samples of bi_rrt come from boxes around the nodes of the tree that grows, which reach this many "
        "ranges to either side in each coordinate; 0: from anywhere within the limits.",
        [](const Config& c) -> ParameterValue { return c.bi_rrt.domain; }, true},
       247,
       SetDomain},
      {{"bi_rrt_params/samples", Type::kString,
        "Where bi_rrt's random configurations come from: 'low_discrepancy' covers the domain evenly, "
        "'environment' draws valid configurations at random, from anywhere.",
        [](const Config& c) -> ParameterValue { return std::string(ToString(c.bi_rrt.samples)); }, true},
       250,
       SetSamples},
      {{"effort", Type::kInt,
        "Rounds in which paths of bi_rrt are shortened; 0: none. A measure of work and not of time, so that "
        "answers repeat.",
        [](const Config& c) -> ParameterValue { return std::int64_t{c.effort}; }, true},
       253,
       SetEffort},
      {{"pose_planning_params/position_tolerance", Type::kDouble,
        "How far from a goal's position a frame may end that is taken to a pose, metres, positive.",
        [](const Config& c) -> ParameterValue { return c.pose_position_tolerance; }, true},
       256,
       SetPosePositionTolerance},
      {{"pose_planning_params/orientation_tolerance", Type::kDouble,
        "How far it may be turned from the goal's orientation: the angle of the rotation that remains, "
        "radians, positive; pi or more leaves it free.",
        [](const Config& c) -> ParameterValue { return c.pose_orientation_tolerance; }, true},
       259,
       SetPoseOrientationTolerance},
      {{"pose_planning_params/max_configurations", Type::kInt,
        "Configurations that one pose goal stands for in a search; at least 1. They are found while the "
        "search goes on.",
        [](const Config& c) { return Count(c.max_pose_configurations); }, true},
       262,
       SetMaxPoseConfigurations},
  };
  return kRows;
}

bool IsOfType(const ParameterValue& value, Parameter::Type type) {
  switch (type) {
    case Parameter::Type::kInt:
      return std::holds_alternative<std::int64_t>(value);
    case Parameter::Type::kDouble:
      return std::holds_alternative<double>(value);
    case Parameter::Type::kVector3:
      return std::holds_alternative<std::vector<double>>(value) &&
             std::get<std::vector<double>>(value).size() == 3;
    case Parameter::Type::kVector:
      return std::holds_alternative<std::vector<double>>(value);
    case Parameter::Type::kBool:
      return std::holds_alternative<bool>(value);
    case Parameter::Type::kString:
      return std::holds_alternative<std::string>(value);
    case Parameter::Type::kLimits:
      return std::holds_alternative<Limits>(value);
  }
  return false;
}

// `set` of a row, where a value of another type and an unknown frame are faults like others.
std::optional<std::string> TrySet(const ParameterRow& row, const ParameterValue& value,
                                  const RobotDescription& robot, Config& config) {
  if (!IsOfType(value, row.parameter.type)) {
    return Text("'", row.parameter.name, "' is given a value of another type");
  }
  if (row.set == &SetTaskSpaceFrameName) {
    const auto kinematics = robot.kinematics();
    const std::vector<std::string>& frames = kinematics->frameNames();
    const auto& name = std::get<std::string>(value);
    if (std::find(frames.begin(), frames.end(), name) == frames.end()) {
      std::string known;
      for (const std::string& frame : frames) {
        known += (known.empty() ? "'" : ", '") + frame + "'";
      }
      return Text("there is no frame '", name, "'; the robot has ", known);
    }
  }
  const Change change = row.set(value, robot, config);
  return change.effect == Effect::kRejected ? std::optional(change.reason) : std::nullopt;
}

}  // namespace

const ParameterRow* internal::FindParameterRow(const std::string& name) {
  const auto row = std::find_if(Rows().begin(), Rows().end(),
                                [&](const ParameterRow& known) { return known.parameter.name == name; });
  return row == Rows().end() ? nullptr : &*row;
}

const std::vector<Parameter>& Parameters() {
  static const std::vector<Parameter> kParameters = [] {
    std::vector<Parameter> parameters;
    for (const ParameterRow& row : Rows()) {
      parameters.push_back(row.parameter);
    }
    return parameters;
  }();
  return kParameters;
}

std::optional<std::string> SetParameter(const std::string& name, const ParameterValue& value,
                                        const RobotDescription& robot, MotionPlannerConfig& config) {
  const ParameterRow* const row = internal::FindParameterRow(name);
  if (row == nullptr) {
    return Text("there is no parameter '", name, "'");
  }
  if (const auto* count = std::get_if<std::int64_t>(&value);
      count != nullptr && *count > std::numeric_limits<int>::max()) {
    return Text("'", name, "' [", *count, "] is too large");
  }
  return TrySet(*row, value, robot, config);
}

std::optional<std::string> FindSettingFault(const MotionPlannerConfig& config,
                                            const RobotDescription& robot) {
  // Each setting is set to what it is.
  MotionPlannerConfig same = config;
  for (const ParameterRow& row : Rows()) {
    const bool is_of_tree = std::string(row.parameter.name).rfind("tesk_tree_params/", 0) == 0;
    if (is_of_tree && !config.tesk_tree_config) {
      continue;
    }
    if (auto fault = TrySet(row, row.parameter.value(config), robot, same)) {
      return fault;
    }
  }
  return std::nullopt;
}

}  // namespace kavo::planning
