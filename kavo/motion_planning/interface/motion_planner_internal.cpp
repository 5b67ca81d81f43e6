#include "kavo/motion_planning/interface/motion_planner_internal.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <utility>
#include <variant>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/interface/param_value_internal.h"
#include "kavo/motion_planning/interface/parameters_internal.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/tesk_tree_util.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log_message.h"
#include "kavo/world/ball_model_internal.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/interface/motion_planner";
constexpr int kNumShortCuts = 20;
constexpr unsigned int kShortCutSeed = 42948;

double SecondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// In the order of `Parameter::Type` and of `ParamValue::Impl::DataType`, which is the same.
constexpr const char* kDataTypes[] = {"INTEGER", "FLOAT64", "VECTOR3D",         "FLOAT64_VECTOR_ITER",
                                      "BOOLEAN", "STRING",  "LIMIT_VECTOR_ITER"};

ParameterValue ToParameterValue(const MotionPlanner::ParamValue::Impl& impl) {
  struct Convert {
    ParameterValue operator()(int value) const { return std::int64_t{value}; }
    ParameterValue operator()(double value) const { return value; }
    ParameterValue operator()(bool value) const { return value; }
    ParameterValue operator()(const std::string& value) const { return value; }
    ParameterValue operator()(const Eigen::Vector3d& value) const {
      return std::vector<double>{value[0], value[1], value[2]};
    }
    ParameterValue operator()(const MotionPlanner::ParamValue::Impl::View<double>& view) const {
      return std::vector<double>(view.first, view.first + static_cast<std::ptrdiff_t>(view.second));
    }
    ParameterValue operator()(const MotionPlanner::ParamValue::Impl::View<MotionPlanner::Limit>& view) const {
      std::vector<std::array<double, 2>> limits;
      for (auto limit = view.first; limits.size() < view.second; ++limit) {
        limits.push_back({limit->lower, limit->upper});
      }
      return limits;
    }
  };
  return std::visit(Convert(), impl.value);
}

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

}  // namespace

MotionPlannerInternal::MotionPlannerInternal(const MotionPlannerConfig& motion_planner_config,
                                             std::shared_ptr<RobotDescription> robot_description,
                                             const WorldView& world_view)
    : world_view_(world_view),
      robot_description_(std::move(robot_description)),
      motion_planner_config_(motion_planner_config),
      next_seed_(motion_planner_config_.seed) {
  validateMotionPlannerConfig();
  createRobotEnvironment();
  createRrtConnect();
  createJtRrt();
  if (motion_planner_config_.planner == CSpacePlanner::kBiRrt) {
    createBiRrt();
  }
}

bool MotionPlannerInternal::setParam(const std::string& param_name, ParamValue value) {
  KAVO_CHECK(value.impl != nullptr, kFile, 182);
  const internal::ParameterRow* const row = internal::FindParameterRow(param_name);
  if (row == nullptr) {
    KAVO_LOG(LogLevel::kWarning) << "Invalid param: '" << param_name << "'";
    return false;
  }
  const auto type = static_cast<std::size_t>(row->parameter.type);
  if (static_cast<std::size_t>(value.impl->data_type) != type) {
    const std::string condition =
        std::string("value.impl->data_type == ParamValue::Impl::DataType::") + kDataTypes[type];
    util::LogMessage(condition, kFile, row->line) & std::ostringstream();
  }
  const internal::Change change =
      row->set(ToParameterValue(*value.impl), *robot_description_, motion_planner_config_);
  switch (change.effect) {
    case internal::Change::Effect::kRejected:
      KAVO_LOG(LogLevel::kError) << change.report;
      return false;
    case internal::Change::Effect::kNone:
      return true;
    case internal::Change::Effect::kRrtConnect: {
      // Should memory run out half way, the next query has to build everything.
      const bool needs_rebuild = std::exchange(needs_rebuild_, true);
      createRrtConnect();
      needs_rebuild_ = needs_rebuild;
      return true;
    }
    case internal::Change::Effect::kBiRrt:
      bi_rrt_.reset();
      return true;
    case internal::Change::Effect::kAll:
      needs_rebuild_ = true;
      return true;
  }
  return false;
}

void MotionPlannerInternal::updateWorldView() {
  // The views of all environments are copies of one.
  robot_environment_->UpdateWorldView();
}

MotionPlanner::Results MotionPlannerInternal::planToCSpaceTarget(const Eigen::VectorXd& q_initial,
                                                                 const Eigen::VectorXd& q_target,
                                                                 bool generate_interpolated_path) {
  if (needs_rebuild_) {
    rebuild();
  }
  if (motion_planner_config_.planner == CSpacePlanner::kBiRrt) {
    return planToConfiguration(q_initial, q_target, generate_interpolated_path);
  }
  return plan(*rrt_connect_, q_initial, q_target, {&rrt_connect_trees_[0], &rrt_connect_trees_[1]},
              generate_interpolated_path);
}

MotionPlanner::Results MotionPlannerInternal::planToTaskSpaceTarget(const Eigen::VectorXd& q_initial,
                                                                    const Eigen::Vector3d& x_target,
                                                                    bool generate_interpolated_path) {
  if (needs_rebuild_) {
    rebuild();
  }
  return plan(*jt_rrt_, q_initial, x_target, {&jt_rrt_c_space_tree_, &jt_rrt_task_space_tree_},
              generate_interpolated_path);
}

void MotionPlannerInternal::setStopCondition(StopCondition stop_condition) {
  // Copies may fail, moves may not.
  StopCondition of_rrt_connect = stop_condition;
  StopCondition of_jt_rrt = stop_condition;
  StopCondition of_bi_rrt = stop_condition;
  stop_condition_ = std::move(stop_condition);
  rrt_connect_->SetStopCondition(std::move(of_rrt_connect));
  jt_rrt_->SetStopCondition(std::move(of_jt_rrt));
  if (bi_rrt_) {
    bi_rrt_->SetStopCondition(std::move(of_bi_rrt));
  }
}

void MotionPlannerInternal::setRobot(std::shared_ptr<RobotDescription> robot_description) {
  KAVO_CHECK(robot_description != nullptr, kFile, 270);
  // Refused before anything is changed: the first of them says what is wrong.
  robot_environment_->SetRobot(*robot_description);
  if (bi_rrt_environment_) {
    bi_rrt_environment_->SetRobot(*robot_description);
  }
  robot_description_ = std::move(robot_description);
  pose_solvers_.reset();
}

void MotionPlannerInternal::attach(const AttachedObject& object) {
  const auto& snapshot = *kavo::internal::SnapshotOf(world_view_);
  KAVO_CHECK(snapshot.named({object.name}).isEmpty(), kFile, 280)
      << "An object \"" << object.name << "\" cannot be attached: there is an obstacle of that name.";
  attached_objects_.reserve(attached_objects_.size() + 1);
  AttachedObject kept = object;
  setRobot(WithAttached(*robot_description_, CoverObject(object)));
  attached_objects_.push_back(std::move(kept));
}

AttachedObject MotionPlannerInternal::detach(const std::string& name) {
  KAVO_CHECK(name != motion_planner_config_.task_space_frame_name, kFile, 290)
      << "\"" << name << "\" is the task-space frame and cannot be detached.";
  AttachedObject detached;
  for (const AttachedBody& body : AttachedBodies(*robot_description_)) {
    if (body.name == name) {
      detached = {name, body.frame, body.pose, {}, body.touch_frames, body.allowed_obstacles, {}};
      for (const math::Sphere& sphere : body.spheres) {
        detached.parts.push_back({SphereObstacle{sphere.radius}, Pose3::FromTranslation(sphere.center)});
      }
    }
  }
  setRobot(WithoutAttached(*robot_description_, name));
  const auto known = std::find_if(attached_objects_.begin(), attached_objects_.end(),
                                  [&](const AttachedObject& object) { return object.name == name; });
  if (known != attached_objects_.end()) {
    detached = std::move(*known);
    attached_objects_.erase(known);
  }
  return detached;
}

void MotionPlannerInternal::validateMotionPlannerConfig() const {
  KAVO_CHECK(robot_description_ != nullptr, "motion_planning/interface/motion_planner", 260);
  KAVO_CHECK(motion_planner_config_.distance_metric_weights.size() ==
                 static_cast<int>(robot_description_->numCSpaceCoords()),
             "motion_planning/interface/motion_planner", 262)
      << "Invalid number of `distance_metric_weights` ["
      << motion_planner_config_.distance_metric_weights.size()
      << "]; must have same number of coordinates as `RobotDescription` configuration space ["
      << robot_description_->numCSpaceCoords() << "].";
  robot_description_->kinematics()->frame(motion_planner_config_.task_space_frame_name);
  // Of settings that were put together by hand.
  KAVO_CHECK(motion_planner_config_.task_space_limits.size() >= 3, "motion_planning/interface/motion_planner",
             268);
  KAVO_CHECK(motion_planner_config_.x_target_zone_tolerance.size() == 3,
             "motion_planning/interface/motion_planner", 269);
}

void MotionPlannerInternal::rebuild() {
  next_seed_ = motion_planner_config_.seed;
  createRobotEnvironment();
  createRrtConnect();
  createJtRrt();
  bi_rrt_.reset();
  needs_rebuild_ = false;
}

void MotionPlannerInternal::createRobotEnvironment() {
  robot_environment_ = makeRobotEnvironment(next_seed_);
  next_seed_ = static_cast<int>(static_cast<unsigned int>(next_seed_) + 2u);
}

std::shared_ptr<RobotEnvironment> MotionPlannerInternal::makeRobotEnvironment(int c_space_seed) const {
  // Seeds wrap around as the generators see them, in 32 bits.
  const int task_space_seed = static_cast<int>(static_cast<unsigned int>(c_space_seed) + 1u);
  RobotEnvironmentConfig config(
      robot_description_.get(), world_view_, motion_planner_config_.distance_metric_weights,
      static_cast<int>(motion_planner_config_.max_sampling), c_space_seed, task_space_seed);
  config.SetTaskSpaceFrame(motion_planner_config_.task_space_frame_name);
  Eigen::VectorXd min(3);
  Eigen::VectorXd max(3);
  for (Eigen::Index i = 0; i < 3; ++i) {
    const Limit& limit = motion_planner_config_.task_space_limits[static_cast<std::size_t>(i)];
    min[i] = limit.lower;
    max[i] = limit.upper;
  }
  config.SetTaskSpaceLimits(kinematics::ConfigurationLimits(min, max));
  return CreateRobotEnvironment(config);
}

std::unique_ptr<Tree> MotionPlannerInternal::createCSpaceRrtTree() const {
  if (motion_planner_config_.tesk_tree_config) {
    TeskTreeConfig config = *motion_planner_config_.tesk_tree_config;
    config.periodic_coordinates = robot_environment_->PeriodicCoordinates();
    return CreateTeskTree(config);
  }
  return CreateBasicTree(robot_description_->numCSpaceCoords(), robot_environment_->CSpaceDistanceMetric(),
                         false);
}

void MotionPlannerInternal::createRrtConnect() {
  has_warned_of_weights_ = has_warned_of_weights_ || WarnOfIdleWeights(motion_planner_config_);
  for (std::unique_ptr<Tree>& tree : rrt_connect_trees_) {
    tree = createCSpaceRrtTree();
  }
  RRTConnectConfig config(motion_planner_config_.step_size, motion_planner_config_.max_iterations,
                          motion_planner_config_.c_space_exploration_fraction);
  config.max_nodes = motion_planner_config_.max_nodes;
  rrt_connect_ = CreateRRTConnect(config, robot_environment_, rrt_connect_trees_[0], rrt_connect_trees_[1]);
  rrt_connect_->SetStopCondition(stop_condition_);
}

void MotionPlannerInternal::createJtRrt() {
  jt_rrt_c_space_tree_ = CreateBasicTree(static_cast<unsigned long>(robot_environment_->CSpaceDimension()),
                                         robot_environment_->CSpaceDistanceMetric(), true);
  jt_rrt_task_space_tree_ = CreateBasicTree(3, L2Norm, true);
  const int seed = next_seed_;
  next_seed_ = static_cast<int>(static_cast<unsigned int>(seed) + 1u);
  JtRRTConfig config(motion_planner_config_.step_size, motion_planner_config_.x_target_zone_tolerance,
                     motion_planner_config_.x_target_final_tolerance,
                     motion_planner_config_.task_space_exploitation_fraction,
                     motion_planner_config_.task_space_exploration_fraction,
                     motion_planner_config_.max_iterations, false, seed);
  config.max_nodes = motion_planner_config_.max_nodes;
  jt_rrt_ = CreateJtRRT(config, robot_environment_, jt_rrt_c_space_tree_, jt_rrt_task_space_tree_);
  jt_rrt_->SetStopCondition(stop_condition_);
}

void MotionPlannerInternal::createBiRrt() {
  bi_rrt_environment_ = makeRobotEnvironment(motion_planner_config_.seed);
  BiRRTConfig config = motion_planner_config_.bi_rrt;
  config.scales = DistanceScales(*robot_description_, *bi_rrt_environment_,
                                 motion_planner_config_.distance_metric_weights);
  config.seed = static_cast<std::uint32_t>(motion_planner_config_.seed);
  config.max_iterations = motion_planner_config_.max_iterations;
  config.max_nodes = motion_planner_config_.max_nodes;
  bi_rrt_ = CreateBiRRT(config, bi_rrt_environment_);
  bi_rrt_->SetStopCondition(stop_condition_);
}

MotionPlanner::Results MotionPlannerInternal::plan(RRT& planner, const Eigen::VectorXd& q_initial,
                                                   const Eigen::VectorXd& target,
                                                   std::array<const std::unique_ptr<Tree>*, 2> trees,
                                                   bool generate_interpolated_path) {
  report_ = QueryReport{};
  report_.planner = &planner == rrt_connect_.get() ? ToString(CSpacePlanner::kRrtConnect) : "jt_rrt";
  const RobotEnvironment::Statistics before = robot_environment_->GetStatistics();
  const auto begin = std::chrono::steady_clock::now();
  const auto nodes = planner.TryToFindPath(q_initial, target);
  report_.search_seconds = SecondsSince(begin);
  report_.num_iterations = planner.LastNumIterations();
  Results results = generateResults(nodes, generate_interpolated_path);
  const SearchStatus status = planner.LastStatus();
  reportWork(before, robot_environment_->GetStatistics());
  report_.first_invalid_interpolated = findInvalid(*robot_environment_, results.interpolated_path);

  const bool is_invalid_start = status == SearchStatus::kInvalidStart;
  const bool is_invalid_target = status == SearchStatus::kInvalidTarget;
  if (!is_invalid_start && !is_invalid_target) {
    for (const std::unique_ptr<Tree>* tree : trees) {
      report_.num_nodes.push_back((*tree)->NumNodes());
    }
  } else if (is_invalid_start || &planner == rrt_connect_.get()) {
    report_.fault = robot_environment_->FindFault(is_invalid_start ? q_initial : target);
  }
  // Last: a query that an exception has ended has none.
  report_.status = status;
  return results;
}

MotionPlanner::Results MotionPlannerInternal::generateResults(
    const std::optional<std::vector<std::shared_ptr<Node>>>& nodes, bool generate_interpolated_path) {
  if (!nodes) {
    return {};
  }
  const std::vector<Eigen::VectorXd> raw = ConvertToConfigurations(*nodes);
  reportRawPath(raw);
  const auto begin = std::chrono::steady_clock::now();
  ShortenedPath shortened =
      ShortCircuitPathUntil(stop_condition_, raw, robot_environment_, motion_planner_config_.step_size,
                            kNumShortCuts, kShortCutSeed);
  report_.shortening_seconds = SecondsSince(begin);
  report_.was_shortening_stopped = shortened.was_stopped;
  Results results;
  results.path_found = true;
  results.path = std::move(shortened.path);
  if (generate_interpolated_path) {
    results.interpolated_path = DiscretizePath(results.path, motion_planner_config_.step_size);
  }
  return results;
}

template <typename Connect>
MotionPlanner::Results MotionPlannerInternal::planByMotions(const Connect& connect,
                                                            bool generate_interpolated_path) {
  if (!bi_rrt_) {
    createBiRrt();
  }
  report_ = QueryReport{};
  report_.planner = ToString(CSpacePlanner::kBiRrt);
  const RobotEnvironment::Statistics before = bi_rrt_environment_->GetStatistics();
  auto begin = std::chrono::steady_clock::now();
  std::optional<BiRRT::Connection> connection = connect();
  report_.search_seconds = SecondsSince(begin);
  report_.num_iterations = bi_rrt_->LastNumIterations();
  Results results;
  if (connection) {
    reportRawPath(connection->path);
    begin = std::chrono::steady_clock::now();
    ShortenedPath shortened = ShortenByMotions(std::move(connection->path), *bi_rrt_environment_,
                                               {motion_planner_config_.effort, 0.0, stop_condition_});
    report_.shortening_seconds = SecondsSince(begin);
    report_.was_shortening_stopped = shortened.was_stopped;
    results.path_found = true;
    results.path = std::move(shortened.path);
    results.goal = connection->goal;
    if (generate_interpolated_path) {
      results.interpolated_path = DivideEvenly(results.path, motion_planner_config_.step_size);
    }
  }
  reportWork(before, bi_rrt_environment_->GetStatistics());
  report_.first_invalid_interpolated = findInvalid(*bi_rrt_environment_, results.interpolated_path);
  const SearchStatus status = bi_rrt_->LastStatus();
  const bool has_trees = status != SearchStatus::kInvalidStart && status != SearchStatus::kInvalidTarget &&
                         status != SearchStatus::kStartTooClose && status != SearchStatus::kTargetTooClose;
  if (has_trees) {
    const std::array<std::uint64_t, 2> num_nodes = bi_rrt_->NumNodes();
    report_.num_nodes.assign(num_nodes.begin(), num_nodes.end());
  }
  return results;
}

MotionPlanner::Results MotionPlannerInternal::planToConfiguration(const Eigen::VectorXd& q_initial,
                                                                  const Eigen::VectorXd& q_target,
                                                                  bool generate_interpolated_path) {
  Results results = planByMotions([&] { return bi_rrt_->TryToConnect({q_initial}, {q_target}); },
                                  generate_interpolated_path);
  // Of one goal that need not be said.
  results.goal.reset();
  const SearchStatus status = bi_rrt_->LastStatus();
  if (status == SearchStatus::kInvalidStart || status == SearchStatus::kInvalidTarget) {
    report_.fault =
        bi_rrt_environment_->FindFault(status == SearchStatus::kInvalidStart ? q_initial : q_target);
  }
  // Last: a query that an exception has ended has none.
  report_.status = status;
  return results;
}

MotionPlanner::Results MotionPlannerInternal::planToGoals(const Eigen::VectorXd& q_initial,
                                                          const std::vector<Goal>& goals,
                                                          bool generate_interpolated_path) {
  internal::GoalDraws draws(goals, q_initial, motion_planner_config_, environmentOfMotions(), poseSolvers());
  Results results =
      planByMotions([&] { return bi_rrt_->TryToConnect({q_initial}, [&] { return draws.Draw(); }); },
                    generate_interpolated_path);
  if (results.goal) {
    results.goal = draws.GoalOf(*results.goal);
  }
  SearchStatus status = bi_rrt_->LastStatus();
  report_.goals = draws.Reports();
  if (status == SearchStatus::kInvalidStart) {
    report_.fault = bi_rrt_environment_->FindFault(q_initial);
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

LineMotion MotionPlannerInternal::planLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                           const LineOptions& options) {
  const RobotEnvironment& environment = environmentOfMotions();
  report_ = QueryReport{};
  report_.planner = "line";
  const RobotEnvironment::Statistics before = environment.GetStatistics();
  const auto begin = std::chrono::steady_clock::now();
  LineMotion motion = followLine(q_initial, goal, options, poseSolvers());
  report_.search_seconds = SecondsSince(begin);
  report_.num_iterations = motion.path.size() - 1;
  reportRawPath(motion.path);
  reportWork(before, environment.GetStatistics());
  if (motion.IsComplete()) {
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

LineMotion MotionPlannerInternal::followLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                             const LineOptions& options, internal::PoseSolvers& solvers) {
  LineOptions stopped = options;
  if (stop_condition_) {
    stopped.stop_condition = [&] {
      return stop_condition_() || (options.stop_condition && options.stop_condition());
    };
  }
  const std::string& frame = goal.frame.empty() ? motion_planner_config_.task_space_frame_name : goal.frame;
  Pose3 pose = goal.pose;
  if (goal.IsPosition()) {
    const auto kinematics = robot_description_->kinematics();
    pose = Pose3(kinematics->pose(q_initial, kinematics->frame(frame)).rotation(), pose.translation());
  }
  return FollowLine(*robot_description_, environmentOfMotions(), solvers.Of(frame), frame, goal.tool,
                    q_initial, pose, stopped);
}

StagedResults MotionPlannerInternal::planStages(const Eigen::VectorXd& q_initial,
                                                const std::vector<Stage>& stages) {
  KAVO_CHECK(!stages.empty(), kFile, 300) << "A motion needs a stage.";
  for (const Stage& stage : stages) {
    KAVO_CHECK(!stage.line || (stage.goals.size() == 1 && std::holds_alternative<PoseGoal>(stage.goals[0])),
               kFile, 301)
        << "A line needs just one goal, a pose.";
  }
  // Of their own: those of the planner are in use while it asks.
  internal::PoseSolvers solvers_ahead(robot_description_);
  StagedResults results;
  results.path = {q_initial};
  for (std::size_t i = 0; i < stages.size(); ++i) {
    // Whether the lines after the stage can be gone from where it ends.
    const auto leads_on = [&](const Eigen::VectorXd& q) {
      Eigen::VectorXd q_next = q;
      for (std::size_t k = i + 1; k < stages.size() && stages[k].line; ++k) {
        const LineMotion line =
            followLine(q_next, std::get<PoseGoal>(stages[k].goals.front()), *stages[k].line, solvers_ahead);
        if (!line.IsComplete()) {
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
      part.line = planLine(q_start, std::get<PoseGoal>(stages[i].goals.front()), *stages[i].line);
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
      Results of_stage = planToGoals(q_start, goals, false);
      path = std::move(of_stage.path);
      part.goal = of_stage.goal;
    }
    part.report = report_;
    if (!path.empty()) {
      results.path.insert(results.path.end(), path.begin() + 1, path.end());
    }
    part.last = results.path.size() - 1;
    const bool is_done = part.goal.has_value();
    results.parts.push_back(std::move(part));
    if (!is_done) {
      return results;
    }
  }
  results.path_found = true;
  return results;
}

RobotEnvironment& MotionPlannerInternal::environmentOfMotions() {
  if (needs_rebuild_) {
    rebuild();
  }
  if (!bi_rrt_) {
    createBiRrt();
  }
  return *bi_rrt_environment_;
}

internal::PoseSolvers& MotionPlannerInternal::poseSolvers() {
  if (!pose_solvers_) {
    pose_solvers_.emplace(robot_description_);
  }
  return *pose_solvers_;
}

void MotionPlannerInternal::reportRawPath(const std::vector<Eigen::VectorXd>& path) {
  report_.num_raw_waypoints = path.size();
  for (std::size_t i = 1; i < path.size(); ++i) {
    report_.raw_length += math::Distance(path[i - 1], path[i]);
  }
}

void MotionPlannerInternal::reportWork(const RobotEnvironment::Statistics& before,
                                       const RobotEnvironment::Statistics& after) {
  report_.num_validity_checks = after.num_validity_checks - before.num_validity_checks;
  report_.num_samples_drawn = after.num_samples_drawn - before.num_samples_drawn;
  report_.num_samples_rejected = after.num_samples_rejected - before.num_samples_rejected;
  report_.num_motions = after.num_motions - before.num_motions;
  report_.num_placements = after.num_placements - before.num_placements;
  report_.num_divisions = after.num_divisions - before.num_divisions;
}

std::optional<std::size_t> MotionPlannerInternal::findInvalid(
    const RobotEnvironment& environment, const std::vector<Eigen::VectorXd>& configurations) const {
  Eigen::MatrixXd batch(environment.CSpaceDimension(), environment.NumAtOnce());
  for (std::size_t first = 0; first < configurations.size() && !(stop_condition_ && stop_condition_());) {
    Eigen::Index count = 0;
    for (; count < batch.cols() && first + static_cast<std::size_t>(count) < configurations.size(); ++count) {
      batch.col(count) = configurations[first + static_cast<std::size_t>(count)];
    }
    const int num_valid = environment.CountValid(batch.leftCols(count));
    first += static_cast<std::size_t>(num_valid);
    if (num_valid < count) {
      return first;
    }
  }
  return std::nullopt;
}

}  // namespace kavo::planning
