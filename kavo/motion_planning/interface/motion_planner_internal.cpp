#include "kavo/motion_planning/interface/motion_planner_internal.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <new>
#include <sstream>
#include <utility>
#include <variant>

#include "kavo/motion_planning/interface/param_value_internal.h"
#include "kavo/motion_planning/interface/parameters_internal.h"
#include "kavo/motion_planning/interface/query_work_internal.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/tesk_tree_util.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log_message.h"
#include "kavo/world/ball_model_internal.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/interface/motion_planner";
constexpr int kNumShortCuts = 20;
constexpr unsigned int kShortCutSeed = 42948;

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
    byMotions();
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
      by_motions_.reset();
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

template <typename Query>
auto MotionPlannerInternal::ask(const Query& query) {
  report_ = QueryReport{};
  internal::MotionQueries& queries = byMotions();
  auto answer = query(queries);
  report_ = queries.Report();
  return answer;
}

MotionPlanner::Results MotionPlannerInternal::planToCSpaceTarget(const Eigen::VectorXd& q_initial,
                                                                 const Eigen::VectorXd& q_target,
                                                                 bool generate_interpolated_path) {
  if (needs_rebuild_) {
    rebuild();
  }
  if (motion_planner_config_.planner == CSpacePlanner::kBiRrt) {
    return ask([&](internal::MotionQueries& queries) {
      return queries.PlanToConfiguration(q_initial, q_target, generate_interpolated_path);
    });
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
  if (by_motions_) {
    by_motions_->SetStopCondition(stop_condition);
  }
  stop_condition_ = std::move(stop_condition);
  rrt_connect_->SetStopCondition(std::move(of_rrt_connect));
  jt_rrt_->SetStopCondition(std::move(of_jt_rrt));
}

void MotionPlannerInternal::setRobot(std::shared_ptr<RobotDescription> robot_description) {
  KAVO_CHECK(robot_description != nullptr, kFile, 270);
  try {
    // Refused before anything is changed: the first of them says what is wrong.
    robot_environment_->SetRobot(*robot_description);
    if (by_motions_) {
      by_motions_->SetRobot(robot_description);
    }
  } catch (const std::bad_alloc&) {
    // They may no longer agree: the next query builds them anew, for the robot that there was.
    needs_rebuild_ = true;
    throw;
  }
  robot_description_ = std::move(robot_description);
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
  by_motions_.reset();
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

MotionPlanner::Results MotionPlannerInternal::plan(RRT& planner, const Eigen::VectorXd& q_initial,
                                                   const Eigen::VectorXd& target,
                                                   std::array<const std::unique_ptr<Tree>*, 2> trees,
                                                   bool generate_interpolated_path) {
  report_ = QueryReport{};
  report_.planner = &planner == rrt_connect_.get() ? ToString(CSpacePlanner::kRrtConnect) : "jt_rrt";
  const RobotEnvironment::Statistics before = robot_environment_->GetStatistics();
  const auto begin = std::chrono::steady_clock::now();
  const auto nodes = planner.TryToFindPath(q_initial, target);
  report_.search_seconds = internal::SecondsSince(begin);
  report_.num_iterations = planner.LastNumIterations();
  Results results = generateResults(nodes, generate_interpolated_path);
  const SearchStatus status = planner.LastStatus();
  internal::ReportWork(before, robot_environment_->GetStatistics(), report_);
  report_.first_invalid_interpolated =
      internal::FindInvalid(*robot_environment_, results.interpolated_path, stop_condition_);

  const bool is_invalid_start = status == SearchStatus::kInvalidStart;
  const bool is_invalid_target = status == SearchStatus::kInvalidTarget;
  if (!is_invalid_start && !is_invalid_target) {
    for (const std::unique_ptr<Tree>* tree : trees) {
      report_.num_nodes.push_back((*tree)->NumNodes());
    }
  } else if (is_invalid_start || &planner == rrt_connect_.get()) {
    report_.fault = robot_environment_->FindFault(is_invalid_start ? q_initial : target);
  }
  if (search_observer_) {
    showSearch(planner, q_initial, nodes);
  }
  // Last: a query that an exception has ended has none.
  report_.status = status;
  return results;
}

void MotionPlannerInternal::showSearch(const RRT& planner, const Eigen::VectorXd& q_initial,
                                       const std::optional<std::vector<std::shared_ptr<Node>>>& nodes) const {
  SearchRecord record;
  record.planner = report_.planner;
  if (nodes) {
    record.raw_path = ConvertToConfigurations(*nodes);
  }
  // Without nodes counted the trees are those of a query before.
  if (!report_.num_nodes.empty() && &planner == jt_rrt_.get()) {
    record.trees = {internal::RecordTree(*jt_rrt_c_space_tree_, SearchTree::Root::kStart)};
  } else if (!report_.num_nodes.empty()) {
    // The planner exchanges them as it goes.
    const bool is_first = rrt_connect_trees_[0]->Nodes().front()->Configuration() == q_initial;
    record.trees = {internal::RecordTree(*rrt_connect_trees_[is_first ? 0 : 1], SearchTree::Root::kStart),
                    internal::RecordTree(*rrt_connect_trees_[is_first ? 1 : 0], SearchTree::Root::kGoal)};
  }
  search_observer_(record);
}

MotionPlanner::Results MotionPlannerInternal::generateResults(
    const std::optional<std::vector<std::shared_ptr<Node>>>& nodes, bool generate_interpolated_path) {
  if (!nodes) {
    return {};
  }
  const std::vector<Eigen::VectorXd> raw = ConvertToConfigurations(*nodes);
  internal::ReportRawPath(raw, report_);
  const auto begin = std::chrono::steady_clock::now();
  ShortenedPath shortened =
      ShortCircuitPathUntil(stop_condition_, raw, robot_environment_, motion_planner_config_.step_size,
                            kNumShortCuts, kShortCutSeed);
  report_.shortening_seconds = internal::SecondsSince(begin);
  report_.was_shortening_stopped = shortened.was_stopped;
  Results results;
  results.path_found = true;
  results.path = std::move(shortened.path);
  if (generate_interpolated_path) {
    results.interpolated_path = DiscretizePath(results.path, motion_planner_config_.step_size);
  }
  return results;
}

internal::MotionQueries& MotionPlannerInternal::byMotions() {
  if (needs_rebuild_) {
    rebuild();
  }
  if (!by_motions_) {
    by_motions_.emplace(motion_planner_config_, robot_description_,
                        makeRobotEnvironment(motion_planner_config_.seed), stop_condition_, search_observer_);
  }
  return *by_motions_;
}

MotionPlanner::Results MotionPlannerInternal::planToGoals(const Eigen::VectorXd& q_initial,
                                                          const std::vector<Goal>& goals,
                                                          bool generate_interpolated_path) {
  return ask([&](internal::MotionQueries& queries) {
    return queries.PlanToGoals(q_initial, goals, generate_interpolated_path);
  });
}

LineMotion MotionPlannerInternal::planLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                           const LineOptions& options) {
  return ask([&](internal::MotionQueries& queries) { return queries.PlanLine(q_initial, goal, options); });
}

StagedResults MotionPlannerInternal::planStages(const Eigen::VectorXd& q_initial,
                                                const std::vector<Stage>& stages) {
  return ask([&](internal::MotionQueries& queries) { return queries.PlanStages(q_initial, stages); });
}

}  // namespace kavo::planning
