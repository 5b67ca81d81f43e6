#include "kavo/motion_planning/interface/motion_planner_config.h"

#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include <sstream>
#include <string>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/util/to_string.h"
#include "kavo/world/world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::LogCapture;

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

// Every setting, one a line.
std::string Text(const MotionPlannerConfig& config) {
  std::ostringstream text;
  text << "seed " << config.seed << "\nstep " << config.step_size << "\niterations " << config.max_iterations
       << "\nsampling " << config.max_sampling << "\nweights " << config.distance_metric_weights.transpose()
       << "\nframe " << config.task_space_frame_name << "\nlimits";
  for (const MotionPlanner::Limit& limit : config.task_space_limits) {
    text << " " << limit.lower << ":" << limit.upper;
  }
  text << "\nc-space exploration " << config.c_space_exploration_fraction << "\nzone "
       << config.x_target_zone_tolerance.transpose() << "\nfinal " << config.x_target_final_tolerance
       << "\nexploitation " << config.task_space_exploitation_fraction << "\nexploration "
       << config.task_space_exploration_fraction << "\nnodes " << config.max_nodes << "\nplanner "
       << ToString(config.planner) << " " << config.bi_rrt.range << " " << config.bi_rrt.balance << " "
       << config.bi_rrt.domain << " " << ToString(config.bi_rrt.samples) << " " << config.effort << "\n";
  if (const auto& tree = config.tesk_tree_config) {
    text << "tree " << tree->dimension << " " << tree->max_num_nodes << " " << tree->max_buffer_size << " "
         << tree->num_nodes_cpu_gpu_crossover << ", metric " << static_cast<int>(tree->distance_metric_type)
         << ", weights "
         << (tree->distance_metric_weights ? util::ToString(*tree->distance_metric_weights) : "none") << "\n";
  }
  return text.str();
}

TEST(MotionPlannerConfigTest, DefaultsOfARobotAndOfTheExampleFile) {
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  EXPECT_EQ(Text(MotionPlannerConfig(robot)), R"(seed 1234
step 0.1
iterations 10000
sampling 10000
weights 1 1 1
frame tool
limits -1:1 -1:1 -1:1
c-space exploration 0.5
zone 0.01 0.01 0.01
final 1e-05
exploitation 0.4
exploration 0.1
nodes 2000000
planner rrt_connect 0 2 3 low_discrepancy 1
tree 3 10000 30 3000, metric 0, weights none
)");
  const std::shared_ptr<RobotDescription> franka = LoadFrankaRobotDescription();
  MotionPlannerConfig defaults(franka);
  defaults.tesk_tree_config.reset();
  EXPECT_EQ(Text(MotionPlannerConfig(YAML::LoadFile(KAVO_EXAMPLES_DIR "/planner.yaml"))), Text(defaults));
}

TEST(MotionPlannerConfigTest, ReadsEveryKey) {
  // A buffer size switches the tree to the weighted metric.
  EXPECT_EQ(Text(Parse(kGood)), R"(seed 7
step 0.2
iterations 500
sampling 600
weights   1   2 3.5
frame tool
limits -1:1 0.5:0.5 0:2
c-space exploration 0.25
zone 0.1 0.2 0.3
final 0.001
exploitation 0.3
exploration 0.2
nodes 2000000
planner rrt_connect 0 2 3 low_discrepancy 1
tree 3 50 60 40, metric 2, weights [1 2 3.5]
)");
  const std::string tree =
      "tesk_tree_params: {max_num_nodes: 50, max_buffer_size: 60, num_nodes_cpu_gpu_crossover: 40}";
  EXPECT_FALSE(Parse(Replaced(tree, "unknown_key: [1, {2: 3}]")).tesk_tree_config.has_value());
  EXPECT_EQ(Parse(Replaced("[1, 2, 3.5]", "[]")).distance_metric_weights.size(), 0);
  EXPECT_EQ(Parse(Replaced("seed: 7", "seed: 1")).seed, 1);
  EXPECT_EQ(Parse(Replaced("seed: 7", "seed: 7\nmax_nodes: 9")).max_nodes, 9u);
  const MotionPlannerConfig by_motions = Parse(
      Replaced("seed: 7",
               "seed: 7\nplanner: bi_rrt\neffort: 3\nbi_rrt_params: {range: 1.5, balance: 3, domain: 0, "
               "samples: environment}"));
  EXPECT_NE(Text(by_motions).find("planner bi_rrt 1.5 3 0 environment 3\n"), std::string::npos);
  EXPECT_EQ(Parse(Replaced("seed: 7", "seed: 7\nbi_rrt_params: {domain: 4}")).bi_rrt.domain, 4.0);
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
  // Missing (the map starts in line 1), of the wrong kind, not a number, beyond the type: each kind of value
  // once.
  for (const char* replacement : {"sead: 7", "seed: [7]", "seed: 7.5", "seed: 99999999999"}) {
    bad(int{}, 1, "seed: 7", replacement);
  }
  bad(double{}, 2, "step_size: 0.2", "step_size: fast");
  bad(0ul, 3, "max_iterations: 500", "max_iterations: -5");
  bad(0ul, 1, "max_sampling: 600", "a: 0");
  bad(CSpacePlanner{}, 1, "seed: 7", "planner: [bi_rrt]\nseed: 7");
  bad(BiRRTConfig::Samples{}, 1, "seed: 7", "bi_rrt_params: {samples: any}\nseed: 7");
  const std::string weights = "distance_metric_weights: [1, 2, 3.5]";
  bad(std::vector<double>{}, 5, weights, "distance_metric_weights: 1");
  bad(double{}, 5, weights, "distance_metric_weights: [1, x, 3]");
  bad(std::string{}, 1, "task_space_frame_name: tool", "a: 0");
  bad(std::string{}, 6, "task_space_frame_name: tool", "task_space_frame_name: [tool]");
  const std::string limits = "[[-1, 1], [0.5, 0.5], [0, 2]]";
  bad(Limits{}, 7, limits, "3");
  bad(MotionPlanner::Limit{}, 7, limits, "[[-1, 1], [0, 1, 2], [0, 2]]");
  bad(double{}, 7, limits, "[[-1, 1], [a, 1], [0, 2]]");
  for (const char* text :
       {"max_num_nodes: 50, ", "max_buffer_size: 60, ", ", num_nodes_cpu_gpu_crossover: 40"}) {
    bad(0ul, 8, text, "");
  }
  bad(double{}, 9, "exploration_fraction: 0.25", "a: 0");
  for (const char* value : {"[0.1, 0.2]", "[0.1, 0.2, 0.3, 0.4]", "0.1"}) {
    bad(Eigen::Vector3d{}, 11, "[0.1, 0.2, 0.3]", value);
  }
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
  const struct {
    std::string text;
    std::string replacement;
    int line;
    std::string message;
  } cases[] = {
      {"seed: 7", "seed: 0", 89, "`seed` must be positive."},
      {"step_size: 0.2", "step_size: .nan", 93, "`step_size` must be positive."},
      {"3.5]", ".nan]", 107, "All `distance_metric_weights` must be positive"},
      {", [0, 2]", "", 119,
       "Dimension of `task_space_limits` must be 3, withlimits corresponding to xyz axes."},
      {"[0, 2]", "[.nan, 2]", 122, "Upper limit [2] must be >= lower limit [nan]."},
  };
  for (const auto& c : cases) {
    testing::ExpectFatal([&c] { Parse(Replaced(c.text, c.replacement)); }, {},
                         "motion_planning/interface/motion_planner", c.line, c.message);
  }
}

TEST(MotionPlannerConfigTest, FilesAreReadOrThrow) {
  const std::shared_ptr<RobotDescription> robot = LoadFrankaRobotDescription();
  const WorldView view = World().view();
  const LogCapture quiet;
  EXPECT_NE(CreateMotionPlanner(KAVO_EXAMPLES_DIR "/planner.yaml", robot, view), nullptr);
  for (const char* file : {KAVO_EXAMPLES_DIR "/missing.yaml", KAVO_EXAMPLES_DIR}) {
    EXPECT_THROW(CreateMotionPlanner(file, robot, view), YAML::BadFile);
  }
}

}  // namespace
}  // namespace kavo::planning
