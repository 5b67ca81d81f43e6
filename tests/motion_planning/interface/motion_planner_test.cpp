#include "kavo/motion_planning/interface/motion_planner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/motion_planner_internal.h"
#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/world/world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using planning::CSpacePlanner;
using planning::MotionPlannerConfig;
using planning::MotionPlannerInternal;
using planning::SearchStatus;
using testing::ExpectFatal;
using testing::LogCapture;
using testing::Vec;

using Limits = std::vector<MotionPlanner::Limit>;
using ParamValue = MotionPlanner::ParamValue;
using Path = std::vector<Eigen::VectorXd>;

const Eigen::VectorXd kStart = Vec({-0.4, 0.1, 0.2});
const Eigen::VectorXd kGoal = Vec({1.7, -0.2, -0.3});
const Eigen::Vector3d kTarget(-0.5, 1.0, 0.0);

// The three-link arm among two obstacles, and everything that is planned for it.
class MotionPlannerTest : public ::testing::Test {
 protected:
  MotionPlannerTest() {
    world_.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
    world_.add(BoxObstacle{{0.2, 0.4, 1.0}}, Pose3::FromTranslation({-0.4, 2.0, 0.0}), "box");
  }

  std::unique_ptr<MotionPlanner> Make() const { return CreateMotionPlanner(robot_, world_.view()); }

  std::unique_ptr<MotionPlanner> Make(const std::function<void(MotionPlannerConfig&)>& edit) const {
    MotionPlannerConfig config(robot_);
    edit(config);
    return std::make_unique<MotionPlannerInternal>(config, robot_, world_.view());
  }

  // What a planner answers to a few queries: a fingerprint of its settings and of where its random numbers
  // are.
  static std::vector<Path> Answers(MotionPlanner& planner, int num_rounds = 2) {
    std::vector<Path> answers;
    for (int i = 0; i < num_rounds; ++i) {
      answers.push_back(planner.planToCSpaceTarget(kStart, kGoal, true).interpolated_path);
      answers.push_back(planner.planToTaskSpaceTarget(kStart, kTarget, false).path);
    }
    return answers;
  }

  // The same for settings of poses.
  std::vector<Path> AnswersToPoses(MotionPlanner& planner) const {
    const auto kinematics = robot_->kinematics();
    const Pose3 pose = kinematics->pose(kGoal, kinematics->frame("tool"));
    std::vector<Path> answers;
    for (const Eigen::Vector3d& start : {Eigen::Vector3d(-0.4, 0.1, 0.2), Eigen::Vector3d(1.0, 1.0, 1.0)}) {
      answers.push_back(planner.planToPose(start, "tool", pose, false).path);
      answers.push_back(planner.planToGoals(start, {PoseGoal::Position("tool", kTarget)}, false).path);
    }
    return answers;
  }

  static void PlanByMotions(MotionPlannerConfig& config) { config.planner = CSpacePlanner::kBiRrt; }

  // Silences the notices about accelerator trees.
  LogCapture log_{static_cast<int>(LogLevel::kInfo)};
  std::shared_ptr<RobotDescription> robot_ = LoadThreeLinkArmRobotDescription();
  World world_;
};

TEST_F(MotionPlannerTest, AnswersAreThoseOfPlannersBuiltByHand) {
  const auto planner = Make();
  planning::RobotEnvironmentConfig config(robot_.get(), world_.view(), Vec({1.0, 1.0, 1.0}), 10000, 1234,
                                          1235);
  config.SetTaskSpaceLimits({Vec({-1.0, -1.0, -1.0}), Vec({1.0, 1.0, 1.0})});
  const auto environment = planning::CreateRobotEnvironment(config);
  const auto tree = [](const planning::DistanceMetric& metric, bool ids) {
    return planning::CreateBasicTree(3, metric, ids);
  };
  auto tree_a = tree(planning::L2Norm, false);
  auto tree_b = tree(planning::L2Norm, false);
  auto c_space_tree = tree(environment->CSpaceDistanceMetric(), true);
  auto task_space_tree = tree(planning::L2Norm, true);
  const auto connect = planning::CreateRRTConnect({0.1, 10000, 0.5}, environment, tree_a, tree_b);
  const auto jt_rrt =
      planning::CreateJtRRT({0.1, Eigen::Vector3d::Constant(0.01), 1e-5, 0.4, 0.1, 10000, false, 1236},
                            environment, c_space_tree, task_space_tree);
  const auto shortened = [&](const auto& nodes) {
    return planning::ShortCircuitPath(planning::ConvertToConfigurations(*nodes), environment, 0.1, 20, 42948);
  };

  const auto to_goal = planner->planToCSpaceTarget(kStart, kGoal, true);
  ASSERT_TRUE(to_goal.path_found);
  EXPECT_EQ(to_goal.path, shortened(connect->TryToFindPath(kStart, kGoal)));
  EXPECT_EQ(to_goal.interpolated_path, planning::DiscretizePath(to_goal.path, 0.1));
  const auto to_target = planner->planToTaskSpaceTarget(kStart, kTarget, false);
  ASSERT_TRUE(to_target.path_found);
  EXPECT_EQ(to_target.path, shortened(jt_rrt->TryToFindPath(kStart, kTarget)));
  EXPECT_TRUE(to_target.interpolated_path.empty());
}

TEST_F(MotionPlannerTest, EqualSettingsGiveEqualAnswers) {
  const auto planner = Make();
  const std::vector<Path> answers = Answers(*planner);
  EXPECT_EQ(answers, Answers(*Make()));
  for (const Path& path : answers) {
    EXPECT_FALSE(path.empty());
  }
  // Random sequences go on from query to query, until a changed setting starts them over.
  EXPECT_NE(answers, Answers(*planner));
  EXPECT_TRUE(planner->setParam("seed", 1234));
  EXPECT_EQ(answers, Answers(*planner));
  // The exploration fraction takes effect at once and starts nothing over.
  const auto same = Make();
  Answers(*same);
  EXPECT_TRUE(planner->setParam("c_space_planning_params/exploration_fraction", 0.5));
  EXPECT_EQ(Answers(*planner), Answers(*same));
}

TEST_F(MotionPlannerTest, PlanningByMotionsLeavesTheOtherPlannersAsTheyAre) {
  const auto planner = Make();
  const auto same = Make();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(planner->setParam("planner", "bi_rrt"));
    EXPECT_TRUE(planner->setParam("bi_rrt_params/samples", i == 1 ? "environment" : "low_discrepancy"));
    EXPECT_TRUE(planner->setParam("effort", i));
    const auto results = planner->planToCSpaceTarget(kStart, kGoal, true);
    ASSERT_TRUE(results.path_found);
    EXPECT_TRUE(results.path.front() == kStart && results.path.back() == kGoal);
    EXPECT_EQ(results.interpolated_path, planning::DivideEvenly(results.path, 0.1));
    const QueryReport report = planner->queryReport();
    EXPECT_EQ(report.planner, "bi_rrt");
    EXPECT_EQ(report.num_nodes.size(), 2u);
    EXPECT_GE(report.raw_length, (kGoal - kStart).norm());
    EXPECT_EQ(report.num_samples_drawn > 0, i == 1);
    EXPECT_TRUE(planner->setParam("planner", "rrt_connect"));
    ASSERT_EQ(Answers(*planner, 1), Answers(*same, 1));
    EXPECT_EQ(planner->queryReport().planner, "jt_rrt");
  }
}

TEST_F(MotionPlannerTest, AcceptedParametersEqualAFreshPlannerWithThemAndWrongTypesAreFatal) {
  const std::vector<double> weights = {1.0, 2.0, 3.0};
  const Limits limits = {{-0.5, 0.5}, {0.25, 1.0}, {-1.0, -1.0}};
  const Eigen::Vector3d zone(0.2, 0.2, 0.2);
  const std::string tree = "tesk_tree_params/";
  const std::string jt = "task_space_planning_params/";
  const struct {
    std::string name;
    ParamValue value;
    std::function<void(MotionPlannerConfig&)> edit;
    std::string type;
    int line;
  } cases[] = {
      {"seed", 1, [](auto& c) { c.seed = 1; }, "INTEGER", 185},
      {"step_size", 0.05, [](auto& c) { c.step_size = 0.05; }, "FLOAT64", 188},
      {"max_iterations", 1, [](auto& c) { c.max_iterations = 1; }, "INTEGER", 191},
      {"max_sampling", 1, [](auto& c) { c.max_sampling = 1; }, "INTEGER", 194},
      {"max_nodes", 3, [](auto& c) { c.max_nodes = 3; }, "INTEGER", 235},
      {"distance_metric_weights", weights,
       [](auto& c) { c.distance_metric_weights = Eigen::Vector3d(1, 2, 3); }, "FLOAT64_VECTOR_ITER", 197},
      {"task_space_frame_name", "link3", [](auto& c) { c.task_space_frame_name = "link3"; }, "STRING", 200},
      {"task_space_limits", limits, [&](auto& c) { c.task_space_limits = limits; }, "LIMIT_VECTOR_ITER", 203},
      {"enable_tesk_tree", false, [](auto& c) { c.tesk_tree_config.reset(); }, "BOOLEAN", 206},
      {tree + "max_num_nodes", 3001, [](auto& c) { c.tesk_tree_config->max_num_nodes = 3001; }, "INTEGER",
       209},
      {tree + "max_buffer_size", 1, [](auto& c) { c.tesk_tree_config->max_buffer_size = 1; }, "INTEGER", 212},
      {tree + "num_nodes_cpu_gpu_crossover", 9999,
       [](auto& c) { c.tesk_tree_config->num_nodes_cpu_gpu_crossover = 9999; }, "INTEGER", 215},
      {"c_space_planning_params/exploration_fraction", 1.0,
       [](auto& c) { c.c_space_exploration_fraction = 1.0; }, "FLOAT64", 218},
      {jt + "x_target_zone_tolerance", zone, [&](auto& c) { c.x_target_zone_tolerance = zone; }, "VECTOR3D",
       221},
      {jt + "x_target_final_tolerance", 1e-3, [](auto& c) { c.x_target_final_tolerance = 1e-3; }, "FLOAT64",
       224},
      {jt + "task_space_exploration_fraction", 0.6, [](auto& c) { c.task_space_exploration_fraction = 0.6; },
       "FLOAT64", 228},
      {jt + "task_space_exploitation_fraction", 0.9,
       [](auto& c) { c.task_space_exploitation_fraction = 0.9; }, "FLOAT64", 232},
      {"planner", "bi_rrt", [](auto& c) { c.planner = CSpacePlanner::kBiRrt; }, "STRING", 238},
      {"bi_rrt_params/range", 0.3, [](auto& c) { c.bi_rrt.range = 0.3; }, "FLOAT64", 241},
      {"bi_rrt_params/balance", 100.0, [](auto& c) { c.bi_rrt.balance = 100.0; }, "FLOAT64", 244},
      {"bi_rrt_params/domain", 0.1, [](auto& c) { c.bi_rrt.domain = 0.1; }, "FLOAT64", 247},
      {"bi_rrt_params/samples", "environment",
       [](auto& c) { c.bi_rrt.samples = planning::BiRRTConfig::Samples::kEnvironment; }, "STRING", 250},
      {"effort", 0, [](auto& c) { c.effort = 0; }, "INTEGER", 253},
      {"pose_planning_params/position_tolerance", 1e-9, [](auto& c) { c.pose_position_tolerance = 1e-9; },
       "FLOAT64", 256},
      {"pose_planning_params/orientation_tolerance", 1e-9,
       [](auto& c) { c.pose_orientation_tolerance = 1e-9; }, "FLOAT64", 259},
      {"pose_planning_params/max_configurations", 1, [](auto& c) { c.max_pose_configurations = 1; },
       "INTEGER", 262},
  };
  EXPECT_EQ(std::size(cases), planning::Parameters().size());
  const std::vector<Path> defaults = Answers(*Make(), 1);
  const std::vector<Path> defaults_of_bi_rrt = Answers(*Make([](auto& c) { PlanByMotions(c); }), 1);
  const std::vector<Path> defaults_of_poses = AnswersToPoses(*Make());
  for (const auto& c : cases) {
    const auto tuned = Make();
    const bool is_of_poses = c.line > 253;
    const bool is_of_bi_rrt = c.line > 238 && !is_of_poses;
    if (is_of_bi_rrt) {
      tuned->setParam("planner", "bi_rrt");
      // Made already, and made anew with the setting.
      tuned->planToCSpaceTarget(kStart, kGoal, false);
    }
    EXPECT_TRUE(tuned->setParam(c.name, c.value)) << c.name;
    if (c.line == 253) {
      // Only shortening goes by it, and so the search goes on.
      tuned->setParam("bi_rrt_params/range", 0.0);
    }
    const auto answers_of = [&](MotionPlanner& planner) {
      return is_of_poses ? AnswersToPoses(planner) : Answers(planner, 1);
    };
    const std::vector<Path> answers = answers_of(*tuned);
    EXPECT_EQ(answers, answers_of(*Make([&](auto& config) {
                if (is_of_bi_rrt) {
                  PlanByMotions(config);
                }
                c.edit(config);
              })))
        << c.name;
    // The accelerator tree has no back-end, and its metric need not show.
    if (c.name.find("tesk_tree") == std::string::npos) {
      EXPECT_NE(answers, is_of_poses    ? defaults_of_poses
                         : is_of_bi_rrt ? defaults_of_bi_rrt
                                        : defaults)
          << c.name;
    }
    const ParamValue wrong = c.type == "INTEGER" ? ParamValue(1.0) : ParamValue(1);
    ExpectFatal([&] { tuned->setParam(c.name, wrong); },
                "value.impl->data_type == ParamValue::Impl::DataType::" + c.type,
                "motion_planning/interface/motion_planner", c.line, "");
  }
}

TEST_F(MotionPlannerTest, RejectedParametersChangeNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> two = {1.0, 1.0};
  const Limits two_limits = {{0.0, 1.0}, {0.0, 1.0}};
  const std::string jt = "task_space_planning_params/";
  const auto positive = [](const std::string& name, const std::string& value) {
    return "'" + name + "' [" + value + "] must be positive; '" + name + "' will not be updated.";
  };
  const auto range = [](const std::string& name, const std::string& value) {
    return "'" + name + "' [" + value + "] must be in range [0, 1]; '" + name + "' will not be updated.";
  };
  const auto must = [](const std::string& name, const std::string& value, const std::string& rule) {
    return "'" + name + "' [" + value + "] must " + rule + "; '" + name + "' will not be updated.";
  };
  const auto sum = [](const std::string& name, const std::string& value, const std::string& other,
                      const std::string& other_value) {
    return "The sum of '" + name + "' [" + value + "] and '" + other + "' [" + other_value +
           "] must be less than 1; '" + name + "' will not be updated.";
  };
  const std::string zone =
      "Each element of 'x_target_zone_tolerance' must be positive; 'x_target_zone_tolerance' will not be "
      "updated";
  const struct {
    std::string name;
    ParamValue value;
    std::string message;
  } cases[] = {
      {"step_size", nan, positive("step_size", "nan")},
      {"max_sampling", -1, positive("max_sampling", "-1")},
      {"distance_metric_weights", two,
       "Number of 'distance_metric_weights' [2] must have same number of coordinates as 'RobotDescription' "
       "configuration space [3]. 'distance_metric_weights' will not be updated."},
      {"task_space_limits", two_limits,
       "Number of 'task_space_limits' [2] must be 3; 'task_space_limits' will not be updated."},
      {"tesk_tree_params/max_num_nodes", 3000,
       "'max_num_nodes' [3000] must be greater than 'num_nodes_cpu_gpu_crossover' [3000]; 'max_num_nodes' "
       "will not be updated."},
      {"tesk_tree_params/num_nodes_cpu_gpu_crossover", 10000,
       "'num_nodes_cpu_gpu_crossover' [10000] must be less than 'max_num_nodes' [10000]; "
       "'num_nodes_cpu_gpu_crossover' will not be updated."},
      {"c_space_planning_params/exploration_fraction", nan, range("exploration_fraction", "nan")},
      {jt + "x_target_zone_tolerance", Eigen::Vector3d(nan, 1.0, 1.0), zone},
      {jt + "x_target_final_tolerance", nan, positive("x_target_final_tolerance", "nan")},
      {jt + "task_space_exploration_fraction", -0.25, range("task_space_exploration_fraction", "-0.25")},
      {jt + "task_space_exploration_fraction", 0.61,
       sum("task_space_exploration_fraction", "0.61", "task_space_exploitation_fraction", "0.4")},
      {jt + "task_space_exploitation_fraction", 1.25, range("task_space_exploitation_fraction", "1.25")},
      {jt + "task_space_exploitation_fraction", 0.91,
       sum("task_space_exploitation_fraction", "0.91", "task_space_exploration_fraction", "0.1")},
      {"planner", "rrt", must("planner", "rrt", "be 'rrt_connect' or 'bi_rrt'")},
      {"bi_rrt_params/range", -1.0, must("range", "-1", "be finite and at least 0")},
      {"bi_rrt_params/balance", 0.5, must("balance", "0.5", "be finite and at least 1")},
      {"bi_rrt_params/domain", nan, must("domain", "nan", "be finite and at least 0")},
      {"bi_rrt_params/samples", "any", must("samples", "any", "be 'low_discrepancy' or 'environment'")},
      {"effort", -1, must("effort", "-1", "not be negative")},
  };
  const std::vector<Path> defaults = Answers(*Make());
  const auto planner = Make();
  const auto expect = [&](const std::string& name, const ParamValue& value, const std::string& message) {
    LogCapture log(static_cast<int>(LogLevel::kError));
    EXPECT_FALSE(planner->setParam(name, value)) << name;
    EXPECT_EQ(log.messages(LogLevel::kError), std::vector<std::string>{message});
    const LogCapture quiet(0);
    EXPECT_FALSE(planner->setParam(name, value)) << name;
    EXPECT_TRUE(quiet.records().empty());
  };
  for (const auto& c : cases) {
    expect(c.name, c.value, c.message);
  }
  for (const std::string name :
       {"seed", "max_iterations", "max_nodes", "tesk_tree_params/max_num_nodes",
        "tesk_tree_params/max_buffer_size", "tesk_tree_params/num_nodes_cpu_gpu_crossover"}) {
    expect(name, 0, positive(name.substr(name.find('/') + 1), "0"));
  }
  for (const char* name : {"Seed", "/seed", "seed ", ""}) {
    LogCapture log;
    EXPECT_FALSE(planner->setParam(name, 1));
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Invalid param: '" + std::string(name) + "'"});
  }
  // None of this has cost a random number or started any over.
  EXPECT_EQ(Answers(*planner), defaults);
}

TEST_F(MotionPlannerTest, VectorsAreTakenOverUpToTheFirstBadEntry) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto planner = Make();
  const std::vector<double> weights = {2.0, nan, 5.0};
  const Limits limits = {{-0.5, 0.5}, {1.0, 0.0}, {0.0, 0.0}};
  LogCapture log;
  EXPECT_FALSE(planner->setParam("distance_metric_weights", weights));
  EXPECT_FALSE(planner->setParam("task_space_limits", limits));
  EXPECT_EQ(
      log.messages(LogLevel::kError),
      (std::vector<std::string>{
          "All 'distance_metric_weights' must be positive; 'distance_metric_weights' will not be updated.",
          "All 'task_space_limits' must have upper limits >= lower limits; 'task_space_limits' will not be "
          "updated."}));
  // What was written shows once something else makes the planner rebuild, and not before.
  EXPECT_EQ(planner->planToTaskSpaceTarget(kStart, kTarget, false).path,
            Make()->planToTaskSpaceTarget(kStart, kTarget, false).path);
  planner->setParam("seed", 1234);
  EXPECT_EQ(Answers(*planner), Answers(*Make([](auto& c) {
              c.distance_metric_weights = Vec({2.0, 1.0, 1.0});
              c.task_space_limits[0] = {-0.5, 0.5};
            })));
}

TEST_F(MotionPlannerTest, AcceleratorTreeIsSwitchedOnWithItsDefaults) {
  bool has_warned = false;
  const auto planner = Make();
  EXPECT_TRUE(planner->setParam("tesk_tree_params/max_num_nodes", 5000));
  EXPECT_TRUE(planner->setParam("enable_tesk_tree", true));
  EXPECT_FALSE(planner->setParam("tesk_tree_params/num_nodes_cpu_gpu_crossover", 5000));
  EXPECT_TRUE(planner->setParam("enable_tesk_tree", false));
  log_.clear();
  EXPECT_TRUE(planner->planToCSpaceTarget(kStart, kGoal, false).path_found);
  EXPECT_TRUE(log_.records().empty());
  for (const char* name : {"max_num_nodes", "max_buffer_size", "num_nodes_cpu_gpu_crossover"}) {
    LogCapture log;
    EXPECT_FALSE(planner->setParam(std::string("tesk_tree_params/") + name, 5000));
    EXPECT_EQ(log.messages(LogLevel::kError), std::vector<std::string>{"Cannot set '" + std::string(name) +
                                                                       "' without first enabling TESK tree"});
  }
  // Weights have no effect on accelerator trees, which is said once.
  const std::vector<double> weights = {1.0, 2.0, 3.0};
  for (const bool is_enabled : {false, true, true}) {
    log_.clear();
    EXPECT_TRUE(planner->setParam("enable_tesk_tree", is_enabled));
    EXPECT_TRUE(planner->setParam("distance_metric_weights", weights));
    planner->planToCSpaceTarget(kStart, kGoal, false);
    EXPECT_EQ(log_.warnings().size(), is_enabled && !has_warned ? 1u : 0u);
    has_warned = is_enabled;
  }
  EXPECT_TRUE(planner->setParam("enable_tesk_tree", false));
  // Enabling anew starts from the defaults.
  EXPECT_TRUE(planner->setParam("enable_tesk_tree", true));
  EXPECT_TRUE(planner->setParam("tesk_tree_params/num_nodes_cpu_gpu_crossover", 5000));
}

TEST_F(MotionPlannerTest, BadSettingsAreFatalWhenThePlannerIsMade) {
  ExpectFatal([&] { Make([](auto& c) {
                      c.distance_metric_weights = Vec({1.0, 1.0});
                    }); },
              "motion_planner_config_.distance_metric_weights.size() == "
              "static_cast<int>(robot_description_->numCSpaceCoords())",
              "motion_planning/interface/motion_planner", 262,
              "Invalid number of `distance_metric_weights` [2]; must have same number of coordinates as "
              "`RobotDescription` configuration space [3].");
  const std::function<void(MotionPlannerConfig&)> edits[] = {
      [](auto& c) { c.task_space_frame_name = "nowhere"; }, [](auto& c) { c.task_space_limits.pop_back(); },
      [](auto& c) {
        c.x_target_zone_tolerance = Vec({1.0, 1.0});
      }};
  for (const auto& edit : edits) {
    EXPECT_THROW(Make(edit), util::FatalError);
  }
  EXPECT_THROW(CreateMotionPlanner(nullptr, world_.view()), util::FatalError);
  EXPECT_THROW(MotionPlannerInternal(MotionPlannerConfig(robot_), nullptr, world_.view()), util::FatalError);
  EXPECT_THROW(ParamValue(static_cast<const char*>(nullptr)), util::FatalError);
  ParamValue empty = 1;
  empty.impl.reset();
  EXPECT_THROW(Make()->setParam("seed", empty), util::FatalError);
  EXPECT_THROW(Make()->setParam("task_space_frame_name", "nowhere"), util::FatalError);
}

TEST_F(MotionPlannerTest, RebuiltPlannerSeesTheUpdatedWorld) {
  const auto planner = Make();
  ASSERT_TRUE(planner->planToCSpaceTarget(kStart, kGoal, false).path_found);
  // A wall across the goal, seen after the update only.
  world_.add(SphereObstacle{0.3}, Pose3::FromTranslation({-0.2, 0.9, 0.0}), "wall");
  EXPECT_TRUE(planner->planToCSpaceTarget(kStart, kGoal, false).path_found);
  planner->updateWorldView();
  EXPECT_FALSE(planner->planToCSpaceTarget(kStart, kGoal, false).path_found);
  EXPECT_TRUE(planner->setParam("step_size", 0.05));
  EXPECT_FALSE(planner->planToCSpaceTarget(kStart, kGoal, false).path_found);
  EXPECT_EQ(planner->queryReport().status, SearchStatus::kInvalidTarget);
}

TEST_F(MotionPlannerTest, ReportSaysWhatIsWrongWithAConfiguration) {
  const auto planner = Make();
  EXPECT_EQ(planner->queryReport().status, SearchStatus::kNone);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    Eigen::VectorXd start;
    Eigen::VectorXd goal;
    SearchStatus status;
    std::size_t coordinate;
  } cases[] = {{Vec({0.0, -9.0, 0.0}), kGoal, SearchStatus::kInvalidStart, 1},
               {kStart, Vec({0.0, 0.0, 9.0}), SearchStatus::kInvalidTarget, 2},
               {kStart, Vec({nan, 0.0, 0.0}), SearchStatus::kInvalidTarget, 0}};
  for (const auto& c : cases) {
    const auto results = planner->planToCSpaceTarget(c.start, c.goal, true);
    EXPECT_FALSE(results.path_found);
    EXPECT_TRUE(results.path.empty() && results.interpolated_path.empty());
    const QueryReport report = planner->queryReport();
    EXPECT_EQ(report.status, c.status);
    ASSERT_TRUE(report.fault && report.fault->limit);
    EXPECT_EQ(report.fault->limit->coordinate, c.coordinate);
    EXPECT_FALSE(report.fault->contact.has_value());
  }

  // Stretched out towards the ball of radius 0.3 at (1.7, 0.6).
  const Eigen::VectorXd touching = Vec({std::atan2(0.6, 1.7), 0.0, 0.0});
  planner->planToTaskSpaceTarget(touching, kTarget, false);
  const QueryReport report = planner->queryReport();
  EXPECT_EQ(report.status, SearchStatus::kInvalidStart);
  ASSERT_TRUE(report.fault && report.fault->contact);
  const auto& contact = *report.fault->contact;
  EXPECT_EQ(contact.obstacle_name, "ball");
  EXPECT_NEAR(contact.depth, 0.3 + contact.radius - (contact.center - Eigen::Vector3d(1.7, 0.6, 0.0)).norm(),
              1e-12);
}

TEST_F(MotionPlannerTest, ReportCountsTheSearch) {
  const auto planner = Make();
  const auto results = planner->planToCSpaceTarget(kStart, kGoal, false);
  ASSERT_TRUE(results.path_found);
  const QueryReport report = planner->queryReport();
  EXPECT_EQ(report.status, SearchStatus::kFound);
  EXPECT_FALSE(report.fault.has_value());
  ASSERT_EQ(report.num_nodes.size(), 2u);
  // Each node but the roots has been checked, and so have start and goal.
  EXPECT_GE(report.num_validity_checks, report.num_nodes[0] + report.num_nodes[1]);
  EXPECT_GE(report.num_samples_drawn, report.num_samples_rejected);
  EXPECT_GE(report.num_iterations, 1u);
  EXPECT_GT(report.search_seconds, 0.0);
  EXPECT_GE(report.num_raw_waypoints, results.path.size());
  EXPECT_GE(report.raw_length, (kGoal - kStart).norm());

  EXPECT_TRUE(planner->setParam("max_iterations", 1));
  EXPECT_FALSE(planner->planToTaskSpaceTarget(kStart, kTarget, false).path_found);
  EXPECT_EQ(planner->queryReport().status, SearchStatus::kIterationsSpent);
  EXPECT_EQ(planner->queryReport().num_iterations, 1u);
}

TEST_F(MotionPlannerTest, ReportTellsWhereTheInterpolatedPathDoesNotHold) {
  const planning::RobotEnvironmentConfig config(robot_.get(), world_.view(), Vec({1.0, 1.0, 1.0}), 1, 1, 1);
  const auto environment = planning::CreateRobotEnvironment(config);
  int num_invalid = 0;
  const auto planner = Make();
  for (int seed = 1; seed < 100; ++seed) {
    // Whether it is asked for changes nothing else.
    EXPECT_TRUE(planner->setParam("seed", seed));
    const Path path = planner->planToCSpaceTarget(kStart, kGoal, false).path;
    const QueryReport without = planner->queryReport();
    EXPECT_FALSE(without.first_invalid_interpolated.has_value());
    EXPECT_TRUE(planner->setParam("seed", seed));
    const auto results = planner->planToCSpaceTarget(kStart, kGoal, true);
    const QueryReport report = planner->queryReport();
    ASSERT_EQ(results.path, path);
    ASSERT_EQ(report.num_validity_checks, without.num_validity_checks);
    std::optional<std::size_t> expected;
    for (std::size_t i = 0; i < results.interpolated_path.size() && !expected; ++i) {
      if (!environment->IsValidConfiguration(results.interpolated_path[i])) {
        expected = i;
      }
    }
    ASSERT_EQ(report.first_invalid_interpolated, expected) << seed;
    num_invalid += expected ? 1 : 0;
  }
  EXPECT_GT(num_invalid, 0);
}

TEST_F(MotionPlannerTest, StopConditionEndsQueriesWherever) {
  const std::vector<Path> undisturbed = Answers(*Make());
  // Stop at the n-th question: searching, then shortening, then not any more.
  int num_stopped = 0;
  int num_shortened = 0;
  bool is_undisturbed = false;
  for (int n = 1; !is_undisturbed; ++n) {
    ASSERT_LT(n, 10000);
    int num_questions = 0;
    const auto planner = Make();
    planner->setStopCondition([&] { return ++num_questions >= n; });
    const auto results = planner->planToCSpaceTarget(kStart, kGoal, true);
    const bool found = results.path_found;
    const QueryReport report = planner->queryReport();
    EXPECT_EQ(report.status, found ? SearchStatus::kFound : SearchStatus::kStopped);
    EXPECT_EQ(results.interpolated_path.empty(), !found);
    is_undisturbed = found && !report.was_shortening_stopped;
    if (is_undisturbed) {
      EXPECT_EQ(results.interpolated_path, undisturbed[0]);
    } else {
      // A found path that is resampled asks once more whether to look at that.
      EXPECT_EQ(num_questions, found ? n + 1 : n);
      ++(found ? num_shortened : num_stopped);
      if (found) {
        // As far as it is shorter; at the first question, not at all.
        EXPECT_EQ(results.path.front(), kStart);
        EXPECT_EQ(results.path.back(), kGoal);
        EXPECT_EQ(results.path.size() == report.num_raw_waypoints, num_shortened == 1);
      }
      // Ready for the next query, as if nothing had been asked before.
      planner->setStopCondition(nullptr);
      EXPECT_TRUE(planner->setParam("seed", 1234));
      EXPECT_EQ(planner->planToCSpaceTarget(kStart, kGoal, true).interpolated_path, undisturbed[0]);
    }
  }
  EXPECT_GT(num_stopped, 3);
  EXPECT_GT(num_shortened, 1);

  const auto planner = Make();
  // An exception of the condition leaves the query, and no word of an earlier one.
  planner->setStopCondition([]() -> bool { throw std::runtime_error("enough"); });
  EXPECT_THROW(planner->planToTaskSpaceTarget(kStart, kTarget, false), std::runtime_error);
  EXPECT_EQ(planner->queryReport().status, SearchStatus::kNone);
  // It is heard within one extension too, of which a tiny step makes a practically endless one.
  int num_questions = 0;
  planner->setStopCondition([&] { return ++num_questions >= 1000; });
  EXPECT_TRUE(planner->setParam("step_size", 1e-12));
  EXPECT_FALSE(planner->planToCSpaceTarget(kStart, kGoal, false).path_found);
  EXPECT_EQ(planner->queryReport().status, SearchStatus::kStopped);
  EXPECT_EQ(planner->queryReport().num_iterations, 1u);
  // A condition stays in force when the planner is rebuilt.
  planner->setStopCondition(StopAfter(0.0));
  EXPECT_TRUE(planner->setParam("seed", 5));
  EXPECT_FALSE(planner->planToTaskSpaceTarget(kStart, kTarget, false).path_found);
  EXPECT_EQ(planner->queryReport().status, SearchStatus::kStopped);
}

TEST(StopAfterTest, EndsOfItsRange) {
  EXPECT_TRUE(StopAfter(0.0)());
  EXPECT_TRUE(StopAfter(-1.0)());
  EXPECT_TRUE(StopAfter(std::nan(""))());
  EXPECT_FALSE(StopAfter(1e9)());
  EXPECT_FALSE(StopAfter(std::numeric_limits<double>::infinity())());
}

}  // namespace
}  // namespace kavo
