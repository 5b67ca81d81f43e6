#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <variant>

#include "kavo/motion_planning/interface/motion_queries_internal.h"
#include "kavo/motion_planning/interface/query_work_internal.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/util/log_message.h"

namespace kavo::planning::internal {

namespace {

constexpr char kFile[] = "motion_planning/interface/motion_queries";

// What a unit of each coordinate counts in distances. A metre of a joint that slides is as far as it moves
// the robot, compared with what a radian does on the average.
Eigen::VectorXd DistanceScales(const RobotDescription& robot, const RobotEnvironment& environment,
                               const Eigen::VectorXd& weights) {
  Eigen::VectorXd scales(weights.size());
  for (Eigen::Index i = 0; i < weights.size(); ++i) {
    scales[i] = std::sqrt(weights[i]);
  }
  const std::vector<Eigen::Index> sliding = ExtractSlidingCoordinates(&robot);
  const Eigen::VectorXd speeds = environment.MotionSpeeds();
  double sum_of_turning = 0.0;
  double num_turning = 0.0;
  for (Eigen::Index i = 0; i < speeds.size(); ++i) {
    // One that swings a slide without end has no bound.
    if (std::isfinite(speeds[i]) && std::find(sliding.begin(), sliding.end(), i) == sliding.end()) {
      sum_of_turning += speeds[i];
      num_turning += 1.0;
    }
  }
  for (const Eigen::Index i : sliding) {
    if (speeds[i] > 0.0 && std::isfinite(speeds[i]) && sum_of_turning > 0.0) {
      scales[i] *= speeds[i] / (sum_of_turning / num_turning);
    }
  }
  return scales;
}

BiRRTConfig ConfigOfBiRrt(const MotionPlannerConfig& planner_config, const RobotDescription& robot,
                          const RobotEnvironment& environment) {
  BiRRTConfig config = planner_config.bi_rrt;
  config.scales = DistanceScales(robot, environment, planner_config.distance_metric_weights);
  config.seed = static_cast<std::uint32_t>(planner_config.seed);
  config.max_iterations = planner_config.max_iterations;
  config.max_nodes = planner_config.max_nodes;
  return config;
}

}  // namespace

MotionQueries::MotionQueries(const MotionPlannerConfig& config, std::shared_ptr<RobotDescription> robot,
                             std::shared_ptr<RobotEnvironment> environment,
                             const StopCondition& stop_condition, const SearchObserver& search_observer)
    : config_(config),
      robot_(std::move(robot)),
      environment_(std::move(environment)),
      bi_rrt_(CreateBiRRT(ConfigOfBiRrt(config, *robot_, *environment_), environment_)),
      pose_solvers_(robot_),
      search_observer_(search_observer) {
  SetStopCondition(stop_condition);
}

void MotionQueries::SetRobot(const std::shared_ptr<RobotDescription>& robot) {
  PoseSolvers pose_solvers(robot);
  environment_->SetRobot(*robot);
  pose_solvers_ = std::move(pose_solvers);
  robot_ = robot;
}

void MotionQueries::SetStopCondition(const StopCondition& stop_condition) {
  StopCondition of_bi_rrt = stop_condition;
  stop_condition_ = stop_condition;
  bi_rrt_->SetStopCondition(std::move(of_bi_rrt));
}

template <typename Connect>
MotionPlanner::Results MotionQueries::Plan(const Connect& connect, bool generate_interpolated_path) {
  report_ = QueryReport{};
  report_.planner = ToString(CSpacePlanner::kBiRrt);
  const RobotEnvironment::Statistics before = environment_->GetStatistics();
  auto begin = std::chrono::steady_clock::now();
  std::optional<BiRRT::Connection> connection = connect();
  report_.search_seconds = SecondsSince(begin);
  report_.num_iterations = bi_rrt_->LastNumIterations();
  Results results;
  std::vector<Eigen::VectorXd> raw_path;
  if (connection) {
    ReportRawPath(connection->path, report_);
    if (search_observer_) {
      raw_path = connection->path;
    }
    begin = std::chrono::steady_clock::now();
    ShortenedPath shortened =
        ShortenByMotions(std::move(connection->path), *environment_, {config_.effort, 0.0, stop_condition_});
    report_.shortening_seconds = SecondsSince(begin);
    report_.was_shortening_stopped = shortened.was_stopped;
    results.path_found = true;
    results.path = std::move(shortened.path);
    results.goal = connection->goal;
    if (generate_interpolated_path) {
      results.interpolated_path = DivideEvenly(results.path, config_.step_size);
    }
  }
  ReportWork(before, environment_->GetStatistics(), report_);
  report_.first_invalid_interpolated = FindInvalid(*environment_, results.interpolated_path, stop_condition_);
  const SearchStatus status = bi_rrt_->LastStatus();
  const bool has_trees = status != SearchStatus::kInvalidStart && status != SearchStatus::kInvalidTarget &&
                         status != SearchStatus::kStartTooClose && status != SearchStatus::kTargetTooClose;
  if (has_trees) {
    const std::array<std::uint64_t, 2> num_nodes = bi_rrt_->NumNodes();
    report_.num_nodes.assign(num_nodes.begin(), num_nodes.end());
  }
  if (search_observer_) {
    ShowTrees(std::move(raw_path));
  }
  return results;
}

void MotionQueries::ShowTrees(std::vector<Eigen::VectorXd> raw_path) const {
  SearchRecord record;
  record.planner = report_.planner;
  record.raw_path = std::move(raw_path);
  // Without nodes counted the trees are those of a query before.
  if (!report_.num_nodes.empty()) {
    record.trees.resize(2);
    record.trees[1].root = SearchTree::Root::kGoal;
    auto trees = bi_rrt_->Trees();
    for (std::size_t side = 0; side < trees.size(); ++side) {
      for (BiRRT::TreeNode& node : trees[side]) {
        record.trees[side].nodes.push_back(std::move(node.configuration));
        record.trees[side].parents.push_back(node.parent);
      }
    }
  }
  search_observer_(record);
}

MotionPlanner::Results MotionQueries::PlanToConfiguration(const Eigen::VectorXd& q_initial,
                                                          const Eigen::VectorXd& q_target,
                                                          bool generate_interpolated_path) {
  Results results =
      Plan([&] { return bi_rrt_->TryToConnect({q_initial}, {q_target}); }, generate_interpolated_path);
  // Of one goal that need not be said.
  results.goal.reset();
  const SearchStatus status = bi_rrt_->LastStatus();
  if (status == SearchStatus::kInvalidStart || status == SearchStatus::kInvalidTarget) {
    report_.fault = environment_->FindFault(status == SearchStatus::kInvalidStart ? q_initial : q_target);
  }
  // Last: a query that an exception has ended has none.
  report_.status = status;
  return results;
}

MotionPlanner::Results MotionQueries::PlanToGoals(const Eigen::VectorXd& q_initial,
                                                  const std::vector<Goal>& goals,
                                                  bool generate_interpolated_path) {
  GoalDraws draws(goals, q_initial, config_, *environment_, pose_solvers_);
  Results results = Plan([&] { return bi_rrt_->TryToConnect({q_initial}, [&] { return draws.Draw(); }); },
                         generate_interpolated_path);
  if (results.goal) {
    results.goal = draws.GoalOf(*results.goal);
  }
  SearchStatus status = bi_rrt_->LastStatus();
  report_.goals = draws.Reports();
  if (status == SearchStatus::kInvalidStart) {
    report_.fault = environment_->FindFault(q_initial);
  } else if (status == SearchStatus::kInvalidTarget) {
    const auto any = [&](const auto& is_so) {
      return std::any_of(report_.goals.begin(), report_.goals.end(), is_so);
    };
    if (any([](const GoalReport& goal) { return goal.is_too_close; })) {
      status = SearchStatus::kTargetTooClose;
    } else if (!any([](const GoalReport& goal) { return goal.fault.has_value(); }) &&
               any([](const GoalReport& goal) { return goal.nearest.has_value(); })) {
      status = SearchStatus::kUnreachableTarget;
    }
  }
  // Last, as above.
  report_.status = status;
  return results;
}

LineMotion MotionQueries::PlanLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                   const LineOptions& options) {
  report_ = QueryReport{};
  report_.planner = "line";
  const RobotEnvironment::Statistics before = environment_->GetStatistics();
  const auto begin = std::chrono::steady_clock::now();
  LineMotion motion = Follow(q_initial, goal, options, pose_solvers_);
  report_.search_seconds = SecondsSince(begin);
  report_.num_iterations = motion.path.size() - 1;
  ReportWork(before, environment_->GetStatistics(), report_);
  if (search_observer_) {
    search_observer_({report_.planner, {}, motion.path});
  }
  if (motion.IsComplete()) {
    ReportRawPath(motion.path, report_);
    report_.status = SearchStatus::kFound;
  } else if (motion.end == LineMotion::End::kStopped) {
    report_.status = SearchStatus::kStopped;
  } else if (motion.end == LineMotion::End::kInvalidStart) {
    report_.status = motion.fault ? SearchStatus::kInvalidStart : SearchStatus::kStartTooClose;
    report_.fault = motion.fault;
  } else {
    report_.status = SearchStatus::kLineEndsEarly;
  }
  return motion;
}

LineMotion MotionQueries::Follow(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                 const LineOptions& options, PoseSolvers& solvers) {
  LineOptions stopped = options;
  if (stop_condition_) {
    stopped.stop_condition = [&] {
      return stop_condition_() || (options.stop_condition && options.stop_condition());
    };
  }
  const std::string& frame = goal.frame.empty() ? config_.task_space_frame_name : goal.frame;
  Pose3 pose = goal.pose;
  if (goal.free_rotations == std::array{true, true, true}) {
    const auto kinematics = robot_->kinematics();
    const Pose3 tool = kinematics->pose(q_initial, kinematics->frame(frame)) * goal.tool;
    pose = Pose3(tool.rotation(), pose.translation());
  }
  return FollowLine(*robot_, *environment_, solvers.Of(frame), frame, goal.tool, q_initial, pose, stopped);
}

StagedResults MotionQueries::PlanStages(const Eigen::VectorXd& q_initial, const std::vector<Stage>& stages) {
  KAVO_CHECK(!stages.empty(), kFile, 300) << "A motion needs a stage.";
  for (const Stage& stage : stages) {
    KAVO_CHECK(!stage.line || (stage.goals.size() == 1 && std::holds_alternative<PoseGoal>(stage.goals[0])),
               kFile, 301)
        << "A line needs just one goal, a pose.";
  }
  // Of their own: those of the planner are in use while it asks.
  PoseSolvers solvers_ahead(robot_);
  StagedResults results;
  results.path = {q_initial};
  for (std::size_t i = 0; i < stages.size(); ++i) {
    std::optional<StagedResults::Ahead> ahead;
    // Whether the lines after the stage can be gone from where it ends.
    const auto leads_on = [&](const Eigen::VectorXd& q) {
      Eigen::VectorXd q_next = q;
      for (std::size_t k = i + 1; k < stages.size() && stages[k].line; ++k) {
        LineMotion line =
            Follow(q_next, std::get<PoseGoal>(stages[k].goals.front()), *stages[k].line, solvers_ahead);
        if (!line.IsComplete()) {
          if (!ahead || ahead->stage < k || (ahead->stage == k && ahead->line.fraction < line.fraction)) {
            line.path.clear();
            ahead = {k, std::move(line)};
          }
          return false;
        }
        q_next = line.path.back();
      }
      return true;
    };
    const Eigen::VectorXd q_start = results.path.back();
    StagedResults::Part part;
    part.first = results.path.size() - 1;
    std::vector<Eigen::VectorXd> path;
    if (stages[i].line) {
      part.line = PlanLine(q_start, std::get<PoseGoal>(stages[i].goals.front()), *stages[i].line);
      path = std::exchange(part.line->path, {});
      part.goal = part.line->IsComplete() ? std::optional<std::size_t>(0) : std::nullopt;
    } else {
      std::vector<Goal> goals = stages[i].goals;
      const bool looks_ahead = i + 1 < stages.size() && stages[i + 1].line;
      for (Goal& goal : goals) {
        auto* const pose = std::get_if<PoseGoal>(&goal);
        if (pose != nullptr && looks_ahead) {
          pose->accepts = [&leads_on, accepts = pose->accepts](const Eigen::VectorXd& q) {
            return (!accepts || accepts(q)) && leads_on(q);
          };
        }
      }
      Results of_stage = PlanToGoals(q_start, goals, false);
      path = std::move(of_stage.path);
      part.goal = of_stage.goal;
    }
    part.report = report_;
    if (!path.empty()) {
      results.path.insert(results.path.end(), path.begin() + 1, path.end());
    }
    part.last = results.path.size() - 1;
    const bool is_done = part.goal.has_value();
    if (!is_done) {
      part.ahead = std::move(ahead);
    }
    results.parts.push_back(std::move(part));
    if (!is_done) {
      return results;
    }
  }
  results.path_found = true;
  return results;
}

}  // namespace kavo::planning::internal
