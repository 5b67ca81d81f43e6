#include "kavo/motion_planning/rrt/jt_rrt.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/rrt/look_ahead_internal.h"
#include "kavo/motion_planning/rrt/rrt_util.h"
#include "kavo/motion_planning/tree/node.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"
#include "kavo/util/to_string.h"

namespace kavo::planning {

namespace {

// A shorter step in c-space is no use: the target pulls at a right angle to what the joints can do.
constexpr double kMinStep = 1e-6;
// Steps that the refinement may take.
constexpr int kRefinementBudget = 1001;
// Factor by which the refinement shortens its steps when it starts to swing.
constexpr double kStepReduction = 1.4;
// Towards a position a walk could circle for ever; no useful one comes near this many steps.
constexpr int kMaxStepsToPosition = 10000;

double Dot(const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
  double sum = 0.0;
  for (Eigen::Index i = 0; i < a.size(); ++i) {
    sum += a[i] * b[i];
  }
  return sum;
}

bool Opposes(const Eigen::VectorXd& step, const Eigen::VectorXd& previous_step) {
  return Dot(math::WithLength(step, 1.0), math::WithLength(previous_step, 1.0)) < 0.0;
}

}  // namespace

JtRRTConfig::JtRRTConfig(double edge_length_in, const Eigen::Vector3d& x_target_zone_tolerance_in,
                         double x_target_final_tolerance_in, double task_space_exploitation_fraction_in,
                         double task_space_exploration_fraction_in, std::size_t max_iterations_in,
                         bool use_approx_closest_in, int seed_in)
    : edge_length(edge_length_in),
      x_target_zone_tolerance(x_target_zone_tolerance_in),
      x_target_final_tolerance(x_target_final_tolerance_in),
      task_space_exploitation_fraction(task_space_exploitation_fraction_in),
      task_space_exploration_fraction(task_space_exploration_fraction_in),
      max_iterations(max_iterations_in),
      use_approx_closest(use_approx_closest_in),
      seed(seed_in) {}

void ValidateJtRRTConfig(const JtRRTConfig& config) {
  for (Eigen::Index i = 0; i < 3; ++i) {
    KAVO_CHECK(config.x_target_zone_tolerance(i) > 0., "motion_planning/rrt/jt_rrt", 39)
        << "Each element of 'x_target_zone_tolerance' [" << config.x_target_zone_tolerance.transpose()
        << "] must be positive.";
  }
  KAVO_CHECK(config.x_target_final_tolerance > 0., "motion_planning/rrt/jt_rrt", 45)
      << "'x_target_final_tolerance' [" << config.x_target_final_tolerance << "] must be positive.";
  KAVO_CHECK(config.edge_length > 0., "motion_planning/rrt/jt_rrt", 49)
      << "'edge_length' [" << config.edge_length << "] must be positive.";
  KAVO_CHECK((config.task_space_exploration_fraction >= 0.) && (config.task_space_exploration_fraction <= 1.),
             "motion_planning/rrt/jt_rrt", 54)
      << "'task_space_exploration_fraction' [" << config.task_space_exploration_fraction
      << "] must be in range [0, 1].";
  KAVO_CHECK(
      (config.task_space_exploitation_fraction >= 0.) && (config.task_space_exploitation_fraction <= 1.),
      "motion_planning/rrt/jt_rrt", 59)
      << "'task_space_exploitation_fraction' [" << config.task_space_exploitation_fraction
      << "] must be in range [0, 1].";
  const double total_task_space_fraction =
      config.task_space_exploration_fraction + config.task_space_exploitation_fraction;
  KAVO_CHECK(total_task_space_fraction <= 1., "motion_planning/rrt/jt_rrt", 65)
      << "Total task space fraction, 'task_space_exploration_fraction' + "
      << "'task_space_exploitation_fraction' [" << total_task_space_fraction << "] must be in range [0, 1].";
}

JtRRT::JtRRT(const JtRRTConfig& config, const std::shared_ptr<RobotEnvironment>& environment,
             std::unique_ptr<Tree>& c_space_tree, std::unique_ptr<Tree>& task_space_tree)
    : config_(config),
      total_task_space_fraction_(config.task_space_exploration_fraction +
                                 config.task_space_exploitation_fraction),
      environment_(environment),
      c_space_tree_(&c_space_tree),
      task_space_tree_(&task_space_tree),
      q_dimension_(environment->CSpaceDimension()),
      mode_sampler_(static_cast<std::uint32_t>(config.seed)),
      candidate_sampler_(static_cast<std::uint32_t>(config.seed) ^ 12345u),
      jacobian_(Eigen::MatrixXd::Zero(3, q_dimension_)),
      look_ahead_(std::make_unique<internal::LookAhead>(*environment)) {
  mode_sampler_.SetRange(0.0, 1.0);
  ValidateTreeDimension(c_space_tree, q_dimension_);
  ValidateTreeDimension(task_space_tree, 3);
  KAVO_CHECK(environment_->CSpaceDimension() == q_dimension_, "motion_planning/rrt/jt_rrt", 189)
      << "World dimension [" << environment_->CSpaceDimension() << "] does not match JtRRT dimension ["
      << q_dimension_ << "]";
  const std::optional<Eigen::Vector3d> maybe_sample = environment_->SampleTaskSpace();
  KAVO_CHECK(maybe_sample.has_value(), "motion_planning/rrt/jt_rrt", 206)
      << "RobotEnvironment does NOT support task space sampling.";
  KAVO_CHECK(c_space_tree->SupportsNodeId(), "motion_planning/rrt/jt_rrt", 113);
  KAVO_CHECK(task_space_tree->SupportsNodeId(), "motion_planning/rrt/jt_rrt", 114);
}

JtRRT::~JtRRT() = default;

std::optional<std::vector<std::shared_ptr<Node>>> JtRRT::TryToFindPath(const Eigen::VectorXd& q_initial,
                                                                       const Eigen::VectorXd& x_target) {
  StartSearch();
  ValidateJtRRTConfig(config_);
  if (!ValidateConfiguration(*environment_, q_initial, SearchStatus::kInvalidStart)) {
    return std::nullopt;
  }
  KAVO_CHECK(x_target.size() == 3, "motion_planning/rrt/jt_rrt", 123);
  x_target_ = x_target;
  q_target_node_.reset();
  const auto make_root = [](const Eigen::VectorXd& configuration) {
    Node root(configuration);
    root.SetId(0);
    return root;
  };
  // Both before the trees are cleared: the arguments may refer to nodes that go with their old contents.
  const Node c_root = make_root(q_initial);
  const Node x_root = make_root(environment_->TaskSpacePosition(q_initial));
  CSpaceTree().ClearAndSetRoot(c_root);
  TaskSpaceTree().ClearAndSetRoot(x_root);
  candidates_.clear();
  if (!math::IsFinite(x_target_)) {
    status_ = SearchStatus::kInvalidTarget;
    KAVO_LOG(LogLevel::kWarning) << "Invalid target position, [" << x_target_.transpose() << "].";
    return std::nullopt;
  }

  while (!q_target_node_) {
    if (!MayExtend(config_.max_iterations)) {
      return std::nullopt;
    }
    const double r = mode_sampler_.Sample();
    if (r < config_.task_space_exploitation_fraction) {
      Extend(x_target_, ExtensionMode::TASK_SPACE_EXPLOITATION);
    } else if (r < total_task_space_fraction_) {
      const std::optional<Eigen::Vector3d> sample = environment_->SampleTaskSpace();
      if (!sample) {
        status_ = SearchStatus::kSamplingFailed;
        return std::nullopt;
      }
      Extend(*sample, ExtensionMode::TASK_SPACE_EXPLORATION);
    } else {
      const std::optional<Eigen::VectorXd> sample = environment_->SampleConfiguration();
      if (!sample) {
        status_ = SearchStatus::kSamplingFailed;
        return std::nullopt;
      }
      Extend(*sample, ExtensionMode::C_SPACE_EXPLORATION);
    }
    ++num_iterations_;
  }

  ExtendToTarget();
  KAVO_CHECK(q_target_node_.has_value(), "motion_planning/rrt/jt_rrt", 169)
      << "PathToTarget() has undefined behavior if target not yet reached";
  status_ = SearchStatus::kFound;
  std::vector<std::shared_ptr<Node>> path = CSpaceTree().Backtrace(*q_target_node_);
  std::reverse(path.begin(), path.end());
  return path;
}

std::vector<Eigen::VectorXd> JtRRT::GetAllValidatedConfigurations() const {
  std::vector<Eigen::VectorXd> configurations;
  ExtractConfigurations(CSpaceTree().Nodes(), configurations);
  return configurations;
}

std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> JtRRT::GetAllValidatedEdges() const {
  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> edges;
  ExtractEdges(CSpaceTree().Nodes(), edges);
  return edges;
}

bool JtRRT::IsInTargetZone(const Eigen::VectorXd& x) const {
  for (Eigen::Index i = 0; i < 3; ++i) {
    const double tolerance = config_.x_target_zone_tolerance[i];
    if (!(x_target_[i] - tolerance <= x[i] && x[i] <= x_target_[i] + tolerance)) {
      return false;
    }
  }
  return true;
}

void JtRRT::ValidateGoalDimension(ExtensionMode mode, const Eigen::VectorXd& goal) const {
  switch (mode) {
    case ExtensionMode::TASK_SPACE_EXPLOITATION:
    case ExtensionMode::TASK_SPACE_EXPLORATION:
      KAVO_CHECK(goal.size() == 3, "motion_planning/rrt/jt_rrt", 255);
      return;
    case ExtensionMode::C_SPACE_EXPLORATION:
      KAVO_CHECK(q_dimension_ == goal.size(), "motion_planning/rrt/jt_rrt", 258);
      return;
  }
  KAVO_LOG(LogLevel::kCritical) << "Undefined mode";
}

std::optional<JtRRT::Twins> JtRRT::SelectExtensionNodes(ExtensionMode mode, const Eigen::VectorXd& goal) {
  if (mode == ExtensionMode::TASK_SPACE_EXPLOITATION && candidates_.empty()) {
    return std::nullopt;
  }
  const bool in_c_space = mode == ExtensionMode::C_SPACE_EXPLORATION;
  Tree& search_tree = in_c_space ? CSpaceTree() : TaskSpaceTree();
  Tree& partner_tree = in_c_space ? TaskSpaceTree() : CSpaceTree();
  std::shared_ptr<Node> node =
      (config_.use_approx_closest ? search_tree.GetApproxClosest(goal) : search_tree.GetClosest(goal)).node;
  if (mode == ExtensionMode::TASK_SPACE_EXPLOITATION) {
    auto candidate = std::lower_bound(candidates_.begin(), candidates_.end(), *node->TryGetId());
    if (candidate == candidates_.end() || *candidate != *node->TryGetId()) {
      candidate_sampler_.SetRange(0, static_cast<int>(candidates_.size()) - 1);
      candidate = candidates_.begin() + candidate_sampler_.Sample();
      const std::optional<std::shared_ptr<Node>> drawn = search_tree.TryGetNode(*candidate);
      if (!drawn) {
        return std::nullopt;
      }
      node = *drawn;
    }
    candidates_.erase(candidate);
  }
  const std::optional<std::shared_ptr<Node>> partner = partner_tree.TryGetNode(*node->TryGetId());
  if (!partner) {
    return std::nullopt;
  }
  return in_c_space ? Twins{node, *partner} : Twins{*partner, node};
}

Eigen::VectorXd JtRRT::JacobianTransposeStep(const Eigen::VectorXd& q, const Eigen::VectorXd& x,
                                             const Eigen::VectorXd& goal) const {
  environment_->GetTaskSpacePositionJacobian(q, jacobian_);
  const Eigen::VectorXd dx = math::StepToward(x, goal, config_.edge_length);
  Eigen::VectorXd dq(q_dimension_);
  for (Eigen::Index i = 0; i < q_dimension_; ++i) {
    dq[i] = jacobian_(0, i) * dx[0] + jacobian_(1, i) * dx[1] + jacobian_(2, i) * dx[2];
  }
  return dq;
}

Eigen::VectorXd JtRRT::CalculateQExtension(ExtensionMode mode, const Eigen::VectorXd& goal,
                                           const Eigen::VectorXd& q, const Eigen::VectorXd& x) const {
  if (mode == ExtensionMode::C_SPACE_EXPLORATION) {
    return math::StepToward(q, goal, config_.edge_length);
  }
  const Eigen::VectorXd dq = JacobianTransposeStep(q, x, goal);
  return math::Norm(dq) > kMinStep ? math::WithLength(dq, config_.edge_length) : dq;
}

JtRRT::Course JtRRT::CourseFrom(ExtensionMode mode, const Eigen::VectorXd& goal, const Eigen::VectorXd& q,
                                const Eigen::VectorXd& previous_dq) const {
  Course course;
  course.x = environment_->TaskSpacePosition(q);
  course.is_in_target_zone = IsInTargetZone(course.x);
  if (course.is_in_target_zone) {
    return course;
  }
  const bool in_c_space = mode == ExtensionMode::C_SPACE_EXPLORATION;
  const double distance =
      in_c_space ? CSpaceTree().Distance(q, goal) : TaskSpaceTree().Distance(course.x, goal);
  if (config_.edge_length > distance) {
    return course;
  }
  course.dq = previous_dq;
  if (!in_c_space) {
    course.dq = CalculateQExtension(mode, goal, q, course.x);
    if (math::Norm(course.dq) < kMinStep || Opposes(course.dq, previous_dq)) {
      return course;
    }
  }
  course.goes_on = true;
  return course;
}

unsigned int JtRRT::DualInsert(const Eigen::VectorXd& q, const Eigen::VectorXd& x, Twins& parents) {
  const auto id = static_cast<unsigned int>(CSpaceTree().NumNodes());
  Node c_node(q, parents.c_node);
  Node x_node(x, parents.x_node);
  c_node.SetId(id);
  x_node.SetId(id);
  parents.c_node = CSpaceTree().Adopt(std::move(c_node));
  parents.x_node = TaskSpaceTree().Adopt(std::move(x_node));
  return id;
}

void JtRRT::Extend(Eigen::VectorXd goal, ExtensionMode mode) {
  ValidateGoalDimension(mode, goal);
  std::optional<Twins> twins = SelectExtensionNodes(mode, goal);
  if (!twins) {
    return;
  }
  if (mode == ExtensionMode::C_SPACE_EXPLORATION) {
    MoveNear(twins->c_node->Configuration(), environment_->PeriodicCoordinates(), goal);
  }
  Eigen::VectorXd dq =
      CalculateQExtension(mode, goal, twins->c_node->Configuration(), twins->x_node->Configuration());
  if (math::Norm(dq) < kMinStep) {
    return;
  }
  const Eigen::VectorXd& min = environment_->CSpaceCoordLimits().Min();
  const Eigen::VectorXd& max = environment_->CSpaceCoordLimits().Max();
  Eigen::VectorXd q_new = (twins->c_node->Configuration() + dq).cwiseMax(min).cwiseMin(max);
  bool has_inner_coordinate = false;
  for (Eigen::Index i = 0; i < q_new.size(); ++i) {
    has_inner_coordinate |= min[i] < q_new[i] && q_new[i] < max[i];
  }
  if (!has_inner_coordinate) {
    return;
  }

  // Where the walk goes from the configurations that were looked ahead to.
  std::deque<Course> courses;
  Eigen::VectorXd last_dq = dq;
  const auto advance = [&](Eigen::VectorXd& q) {
    courses.push_back(CourseFrom(mode, goal, q, last_dq));
    last_dq = courses.back().dq;
    return courses.back().goes_on && math::Advance(last_dq, q);
  };
  look_ahead_->Start();
  for (int i = 0; mode == ExtensionMode::C_SPACE_EXPLORATION || i < kMaxStepsToPosition; ++i) {
    // The next twins are two nodes.
    if (ShouldStop() || !math::IsFinite(q_new) || !look_ahead_->IsValid(q_new, advance) ||
        !MayGrow(CSpaceTree().NumNodes() + TaskSpaceTree().NumNodes() + 1, config_.max_nodes)) {
      return;
    }
    Course course;
    if (courses.empty()) {
      course = CourseFrom(mode, goal, q_new, dq);
      last_dq = course.dq;
    } else {
      course = std::move(courses.front());
      courses.pop_front();
    }
    const unsigned int id = DualInsert(q_new, course.x, *twins);
    if (mode != ExtensionMode::TASK_SPACE_EXPLOITATION) {
      candidates_.push_back(id);
    }
    if (course.is_in_target_zone) {
      q_target_node_ = twins->c_node;
      return;
    }
    dq = course.dq;
    // Unlike the first, this step may leave the limits; the validity check then ends the walk.
    if (!course.goes_on || !math::Advance(dq, q_new)) {
      return;
    }
  }
}

void JtRRT::ExtendToTarget() {
  const auto ReachedTargetZone = [this] { return q_target_node_.has_value(); };
  KAVO_CHECK(ReachedTargetZone(), "motion_planning/rrt/jt_rrt", 381);
  const Eigen::VectorXd q_start = (*q_target_node_)->Configuration();
  const Eigen::VectorXd q_goal = GetCSpaceTarget(q_start);
  Twins parents{*q_target_node_, *TaskSpaceTree().TryGetNode(*(*q_target_node_)->TryGetId())};
  const Eigen::VectorXd step = math::StepToward(q_start, q_goal, config_.edge_length);
  // The refinement makes no more steps; where lengths overflow, their ratio says nothing.
  const double num_steps =
      std::min(double{kRefinementBudget}, std::floor(math::Distance(q_start, q_goal) / config_.edge_length));
  for (int k = 1; k <= num_steps; ++k) {
    const Eigen::VectorXd q = q_start + k * step;
    DualInsert(q, environment_->TaskSpacePosition(q), parents);
  }
  DualInsert(q_goal, environment_->TaskSpacePosition(q_goal), parents);
  q_target_node_ = parents.c_node;
}

Eigen::VectorXd JtRRT::GetCSpaceTarget(const Eigen::VectorXd& q0) const {
  KAVO_CHECK(environment_->IsValidConfiguration(q0), "motion_planning/rrt/jt_rrt", 398);
  Eigen::VectorXd q = q0;
  Eigen::VectorXd x = environment_->TaskSpacePosition(q);
  double scale = 1.0;
  Eigen::VectorXd previous_direction;
  for (int countdown = kRefinementBudget; countdown > 0; --countdown) {
    if (!(math::Distance(x, x_target_) > config_.x_target_final_tolerance)) {
      return q;
    }
    const Eigen::VectorXd dq = JacobianTransposeStep(q, x, x_target_);
    if (math::Norm(dq) < kMinStep) {
      break;
    }
    const Eigen::VectorXd direction = math::WithLength(dq, 1.0);
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      q[i] += direction[i] * config_.edge_length * scale;
    }
    x = environment_->TaskSpacePosition(q);
    if (previous_direction.size() > 0 && Dot(direction, previous_direction) < 0.0) {
      scale /= kStepReduction;
    }
    previous_direction = direction;
  }
  KAVO_LOG(LogLevel::kError) << "Unable to find c-space target from the given warm start "
                             << util::ToString(q0) << ". Closest valid c-space target found is "
                             << util::ToString(q)
                             << ". Task space position for returned c-space configuration is "
                             << util::ToString(x) << ". This task space position is "
                             << math::Distance(x, x_target_) << " away from task space target "
                             << "[" << x_target_.transpose() << "]"
                             << ".";
  return q;
}

std::shared_ptr<JtRRT> CreateJtRRT(const JtRRTConfig& config,
                                   const std::shared_ptr<RobotEnvironment>& environment,
                                   std::unique_ptr<Tree>& c_space_tree,
                                   std::unique_ptr<Tree>& task_space_tree) {
  return std::make_shared<JtRRT>(config, environment, c_space_tree, task_space_tree);
}

}  // namespace kavo::planning
