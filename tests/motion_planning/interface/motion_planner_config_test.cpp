#include "kavo/motion_planning/interface/motion_planner_config.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <yaml-cpp/yaml.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/world/world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::LogCapture;
using testing::Vec;

constexpr char kGood[] = R"(
seed: 7
step_size: 0.2
max_iterations: 500
max_sampling: 600
distance_metric_weights: [1, 2, 3.5]
task_space_frame_name: tool
task_space_limits: [[-1, 1], [0.5, 0.5], [0, 2]]
tesk_tree_params: {max_num_nodes: 50, max_buffer_size: 60, num_nodes_cpu_gpu_crossover: 40}
c_space_planning_params: {exploration_fraction: 0.25}
task_space_planning_params:
  x_target_zone_tolerance: [0.1, 0.2, 0.3]
  x_target_final_tolerance: 0.001
  task_space_exploitation_fraction: 0.3
  task_space_exploration_fraction: 0.2
)";

// The good document with one piece of text replaced.
std::string Replaced(const std::string& text, const std::string& replacement) {
  std::string document = kGood;
  const std::size_t place = document.find(text);
  EXPECT_NE(place, std::string::npos) << text;
  return document.replace(place, text.size(), replacement);
}

MotionPlannerConfig Parse(const std::string& document) { return MotionPlannerConfig(YAML::Load(document)); }

TEST(MotionPlannerConfigTest, DefaultsOfARobot) {
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  const MotionPlannerConfig config(robot);
  EXPECT_EQ(config.seed, 1234);
  EXPECT_EQ(config.step_size, 0.1);
  EXPECT_EQ(config.max_iterations, 10000u);
  EXPECT_EQ(config.max_sampling, 10000u);
  EXPECT_EQ(config.distance_metric_weights, Vec({1.0, 1.0, 1.0}));
  EXPECT_EQ(config.task_space_frame_name, "tool");
  ASSERT_EQ(config.task_space_limits.size(), 3u);
  EXPECT_EQ(config.task_space_limits[2].lower, -1.0);
  EXPECT_EQ(config.task_space_limits[2].upper, 1.0);
  EXPECT_EQ(config.c_space_exploration_fraction, 0.5);
  EXPECT_EQ(config.x_target_zone_tolerance, Vec({0.01, 0.01, 0.01}));
  EXPECT_EQ(config.x_target_final_tolerance, 1e-5);
  EXPECT_EQ(config.task_space_exploitation_fraction, 0.4);
  EXPECT_EQ(config.task_space_exploration_fraction, 0.1);
  ASSERT_TRUE(config.tesk_tree_config.has_value());
  EXPECT_EQ(config.tesk_tree_config->dimension, 3);
  EXPECT_EQ(config.tesk_tree_config->max_num_nodes, 10000);
  EXPECT_EQ(config.tesk_tree_config->max_buffer_size, 30);
  EXPECT_EQ(config.tesk_tree_config->distance_metric_type, tesk::planning::DistanceMetricType::kL2Norm);
  EXPECT_FALSE(config.tesk_tree_config->distance_metric_weights.has_value());
  EXPECT_EQ(config.tesk_tree_config->num_nodes_cpu_gpu_crossover, 3000);
}

TEST(MotionPlannerConfigTest, ExampleFileHoldsTheDefaults) {
  const MotionPlannerConfig file(YAML::LoadFile(KAVO_EXAMPLES_DIR "/planner.yaml"));
  const std::shared_ptr<RobotDescription> robot = LoadFrankaRobotDescription();
  const MotionPlannerConfig defaults(robot);
  EXPECT_EQ(file.seed, defaults.seed);
  EXPECT_EQ(file.step_size, defaults.step_size);
  EXPECT_EQ(file.max_iterations, defaults.max_iterations);
  EXPECT_EQ(file.max_sampling, defaults.max_sampling);
  EXPECT_EQ(file.distance_metric_weights, defaults.distance_metric_weights);
  EXPECT_EQ(file.task_space_frame_name, defaults.task_space_frame_name);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(file.task_space_limits[i].lower, defaults.task_space_limits[i].lower);
    EXPECT_EQ(file.task_space_limits[i].upper, defaults.task_space_limits[i].upper);
  }
  EXPECT_FALSE(file.tesk_tree_config.has_value());
  EXPECT_EQ(file.c_space_exploration_fraction, defaults.c_space_exploration_fraction);
  EXPECT_EQ(file.x_target_zone_tolerance, defaults.x_target_zone_tolerance);
  EXPECT_EQ(file.x_target_final_tolerance, defaults.x_target_final_tolerance);
  EXPECT_EQ(file.task_space_exploitation_fraction, defaults.task_space_exploitation_fraction);
  EXPECT_EQ(file.task_space_exploration_fraction, defaults.task_space_exploration_fraction);
}

TEST(MotionPlannerConfigTest, ReadsEveryKey) {
  const MotionPlannerConfig config = Parse(kGood);
  EXPECT_EQ(config.seed, 7);
  EXPECT_EQ(config.step_size, 0.2);
  EXPECT_EQ(config.max_iterations, 500u);
  EXPECT_EQ(config.max_sampling, 600u);
  EXPECT_EQ(config.distance_metric_weights, Vec({1.0, 2.0, 3.5}));
  EXPECT_EQ(config.task_space_frame_name, "tool");
  EXPECT_EQ(config.task_space_limits[1].lower, 0.5);
  EXPECT_EQ(config.task_space_limits[2].upper, 2.0);
  ASSERT_TRUE(config.tesk_tree_config.has_value());
  EXPECT_EQ(config.tesk_tree_config->dimension, 3);
  EXPECT_EQ(config.tesk_tree_config->max_num_nodes, 50);
  EXPECT_EQ(config.tesk_tree_config->max_buffer_size, 60);
  EXPECT_EQ(config.tesk_tree_config->num_nodes_cpu_gpu_crossover, 40);
  // A buffer size switches the tree to the weighted metric.
  EXPECT_EQ(config.tesk_tree_config->distance_metric_type,
            tesk::planning::DistanceMetricType::kWeightedSquaredL2Norm);
  EXPECT_EQ(config.tesk_tree_config->distance_metric_weights, Vec({1.0, 2.0, 3.5}));
  EXPECT_EQ(config.c_space_exploration_fraction, 0.25);
  EXPECT_EQ(config.x_target_zone_tolerance, Vec({0.1, 0.2, 0.3}));
  EXPECT_EQ(config.x_target_final_tolerance, 0.001);
  EXPECT_EQ(config.task_space_exploitation_fraction, 0.3);
  EXPECT_EQ(config.task_space_exploration_fraction, 0.2);

  const std::string tree =
      "tesk_tree_params: {max_num_nodes: 50, max_buffer_size: 60, num_nodes_cpu_gpu_crossover: 40}";
  EXPECT_FALSE(Parse(Replaced(tree, "unknown_key: [1, {2: 3}]")).tesk_tree_config.has_value());
  EXPECT_EQ(Parse(Replaced("[1, 2, 3.5]", "[]")).distance_metric_weights.size(), 0);
  EXPECT_EQ(Parse(Replaced("seed: 7", "seed: 1")).seed, 1);
  // Not judged here.
  EXPECT_EQ(
      Parse(Replaced("exploration_fraction: 0.25", "exploration_fraction: 7")).c_space_exploration_fraction,
      7.0);
}

// Which exception of yaml-cpp a document ends in, and at which line (from 0; -1 for no place).
template <typename Exception>
void ExpectThrow(const std::string& document, int line) {
  try {
    Parse(document);
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.mark.line, line) << document;
    return;
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "another exception: " << exception.what() << document;
    return;
  }
  ADD_FAILURE() << "no exception" << document;
}

TEST(MotionPlannerConfigTest, BadDocumentsThrowWhatYamlThrows) {
  using Limits = std::vector<MotionPlanner::Limit>;
  const auto bad = [](auto type, int line, const std::string& text, const std::string& replacement) {
    ExpectThrow<YAML::TypedBadConversion<decltype(type)>>(Replaced(text, replacement), line);
  };
  // Missing, of the wrong kind, not a number, beyond the type. The map starts in line 1.
  for (const char* replacement : {"sead: 7", "seed: [7]", "seed: x", "seed: 7.5", "seed: 99999999999"}) {
    bad(int{}, 1, "seed: 7", replacement);
  }
  for (const char* replacement : {"a: 0", "step_size: {a: 1}", "step_size: fast", "step_size: ~"}) {
    bad(double{}, replacement[0] == 'a' ? 1 : 2, "step_size: 0.2", replacement);
  }
  for (const char* key : {"max_iterations", "max_sampling"}) {
    const std::string text = std::string(key) + (key[4] == 'i' ? ": 500" : ": 600");
    const int line = key[4] == 'i' ? 3 : 4;
    bad(0ul, 1, text, "a: 0");
    for (const char* value : {": [5]", ": -5", ": 1e30", ": 5.5", ": 99999999999999999999999"}) {
      bad(0ul, line, text, key + std::string(value));
    }
  }
  const std::string weights = "distance_metric_weights: [1, 2, 3.5]";
  bad(std::vector<double>{}, 1, weights, "a: 0");
  bad(std::vector<double>{}, 5, weights, "distance_metric_weights: 1");
  bad(double{}, 5, weights, "distance_metric_weights: [1, x, 3]");
  const std::string frame = "task_space_frame_name: tool";
  bad(std::string{}, 1, frame, "a: 0");
  bad(std::string{}, 6, frame, "task_space_frame_name: [tool]");
  bad(std::string{}, 6, frame, "task_space_frame_name: {tool: 1}");
  const std::string limits = "[[-1, 1], [0.5, 0.5], [0, 2]]";
  bad(Limits{}, 1, "task_space_limits: " + limits, "a: 0");
  bad(Limits{}, 7, limits, "3");
  bad(MotionPlanner::Limit{}, 7, limits, "[[-1, 1], [0, 1, 2], [0, 2]]");
  bad(MotionPlanner::Limit{}, 7, limits, "[[-1, 1], 0, [0, 2]]");
  bad(double{}, 7, limits, "[[-1, 1], [a, 1], [0, 2]]");
  bad(0ul, 8, "max_num_nodes: 50, ", "");
  bad(0ul, 8, "max_buffer_size: 60, ", "");
  bad(0ul, 8, ", num_nodes_cpu_gpu_crossover: 40", "");
  bad(0ul, 8, "max_num_nodes: 50", "max_num_nodes: many");
  bad(double{}, 9, "exploration_fraction: 0.25", "a: 0");
  bad(double{}, 9, "exploration_fraction: 0.25", "exploration_fraction: half");
  for (const char* value : {"[0.1, 0.2]", "[0.1, 0.2, 0.3, 0.4]", "0.1"}) {
    bad(Eigen::Vector3d{}, 11, "[0.1, 0.2, 0.3]", value);
  }
  bad(Eigen::Vector3d{}, 11, "x_target_zone_tolerance: [0.1, 0.2, 0.3]", "a: 0");
  for (const char* key :
       {"x_target_final_tolerance", "task_space_exploitation_fraction", "task_space_exploration_fraction"}) {
    bad(double{}, 11, key, "a");
  }
  // The maps themselves.
  for (const char* key : {"c_space_planning_params", "task_space_planning_params"}) {
    EXPECT_THROW(Parse(Replaced(key, "a")), YAML::InvalidNode);
  }
}

TEST(MotionPlannerConfigTest, ValuesOutOfRangeAreFatal) {
  const std::string limit_condition = "limit.upper >= limit.lower";
  const struct {
    std::string text;
    std::string replacement;
    std::string condition;
    int line;
    std::string message;
  } cases[] = {
      {"seed: 7", "seed: 0", "seed > 0", 89, "`seed` must be positive."},
      {"seed: 7", "seed: -3", "seed > 0", 89, "`seed` must be positive."},
      {"step_size: 0.2", "step_size: 0.0", "step_size > 0.0", 93, "`step_size` must be positive."},
      {"step_size: 0.2", "step_size: .nan", "step_size > 0.0", 93, "`step_size` must be positive."},
      {"3.5]", "0]", "weight > 0.0", 107, "All `distance_metric_weights` must be positive"},
      {"3.5]", ".nan]", "weight > 0.0", 107, "All `distance_metric_weights` must be positive"},
      {", [0, 2]", "", "task_space_limits.size() == 3", 119,
       "Dimension of `task_space_limits` must be 3, withlimits corresponding to xyz axes."},
      {"[0, 2]", "[0, 2], [0, 1]", "task_space_limits.size() == 3", 119,
       "Dimension of `task_space_limits` must be 3, withlimits corresponding to xyz axes."},
      {"[0, 2]", "[2, 0.25]", limit_condition, 122, "Upper limit [0.25] must be >= lower limit [2]."},
      {"[0, 2]", "[.nan, 2]", limit_condition, 122, "Upper limit [2] must be >= lower limit [nan]."},
  };
  for (const auto& c : cases) {
    testing::ExpectFatal([&c] { Parse(Replaced(c.text, c.replacement)); }, c.condition,
                         "motion_planning/interface/motion_planner", c.line, c.message);
  }
}

TEST(MotionPlannerConfigTest, DocumentsOfTheWrongShapeThrow) {
  std::string bomb = "a: &a [x, x, x, x, x, x, x, x, x]\n";
  for (char name = 'b'; name < 'k'; ++name) {
    bomb += std::string(1, name) + ": &" + name + " [";
    for (int i = 0; i < 9; ++i) {
      bomb += std::string(i == 0 ? "*" : ", *") + static_cast<char>(name - 1);
    }
    bomb += "]\n";
  }
  bomb += Replaced("[1, 2, 3.5]", "*j");
  const std::string documents[] = {
      "", "just text", "[1, 2]", std::string(100000, '['), std::string("\0\1\xff\xfe", 4), bomb, "seed: 7"};
  for (const std::string& document : documents) {
    EXPECT_THROW(Parse(document), YAML::Exception) << document.substr(0, 40);
  }
}

TEST(MotionPlannerConfigTest, FilesAreReadOrThrow) {
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  const WorldView view = World().view();
  const std::filesystem::path folder =
      std::filesystem::path(::testing::TempDir()) / ("kavo_planner_config_" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const std::string file = (folder / "planner.yaml").string();
  std::ofstream(file) << kGood;
  const LogCapture log;
  EXPECT_NE(CreateMotionPlanner(file, robot, view), nullptr);
  EXPECT_THROW(CreateMotionPlanner((folder / "missing.yaml").string(), robot, view), YAML::BadFile);
  EXPECT_THROW(CreateMotionPlanner(folder.string(), robot, view), YAML::BadFile);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kavo::planning
