#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/interface/goal_draws_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning::internal {

namespace {

constexpr char kFile[] = "motion_planning/interface/goal_draws";

// How near to a pose inverse kinematics gets where it can.
constexpr double kFinePosition = 1e-5;
constexpr double kFineOrientation = 1e-4;
// What a goal leaves open is drawn from this much of it, so that fine solutions are within it.
constexpr double kShrunk = 0.95;

// Configurations and restarts of one draw from one pose.
constexpr std::size_t kAtOnce = 4;
constexpr std::uint64_t kRestartsAtOnce = 64;
// Random configurations of one draw within the tolerances of a configuration, and draws from it.
constexpr std::uint64_t kTriesAtOnce = 64;
constexpr std::uint64_t kMostDraws = 64;
// Restarts after which a pose that no configuration has is out of reach, one of which none is usable is
// given up, and one is used up that brings nothing new.
constexpr std::uint64_t kRestartsToReach = 256;
constexpr std::uint64_t kRestartsToUse = 4096;
constexpr std::uint64_t kIdleRestarts = 512;
// Configurations that are valid but not accepted, none of them, after which a pose is given up: to accept one
// may take long.
constexpr std::uint64_t kMostRefusals = 256;

bool IsFree(double tolerance) { return tolerance >= math::kPi; }

void Check(const PoseGoal& goal) {
  KAVO_CHECK(goal.pose.isFinite() && goal.tool.isFinite(), kFile, 1) << "The pose of a goal must be finite.";
  for (const std::optional<double>& tolerance : {goal.position_tolerance, goal.orientation_tolerance}) {
    KAVO_CHECK(!tolerance || *tolerance > 0.0, kFile, 2)
        << "The tolerance [" << *tolerance << "] of a goal must be positive.";
  }
  KAVO_CHECK(!goal.axis_tolerances || (goal.axis_tolerances->angles.array() > 0.0).all(), kFile, 3)
      << "The axis tolerances of a goal must be positive.";
  for (const PoseGoal::Region& region : goal.regions) {
    const bool has_inside = std::visit(
        [](const auto& shape) {
          using Shape = std::decay_t<decltype(shape)>;
          if constexpr (std::is_same_v<Shape, BoxObstacle>) {
            return (shape.size.array() >= 0.0).all() && shape.size.allFinite();
          } else if constexpr (std::is_same_v<Shape, SphereObstacle>) {
            return shape.radius >= 0.0 && std::isfinite(shape.radius);
          } else {
            return shape.radius >= 0.0 && shape.height >= 0.0 && std::isfinite(shape.radius + shape.height);
          }
        },
        region.shape);
    KAVO_CHECK(has_inside && region.pose.isFinite(), kFile, 4)
        << "A region of a goal must have finite sizes that are not negative, and a finite pose.";
  }
}

// A rotation by the turns of an axis tolerance. Put together as poses, whose products are the same
// everywhere.
Pose3 Turned(const Eigen::Vector3d& turns, PoseGoal::AxisTolerances::Parameterization by) {
  const auto about = [](double angle, const Eigen::Vector3d& axis) {
    double sin = 0.0;
    double cos = 0.0;
    kinematics::internal::SinCos(0.5 * angle, &sin, &cos);
    return Pose3::FromRotation({cos, sin * axis[0], sin * axis[1], sin * axis[2]});
  };
  if (by == PoseGoal::AxisTolerances::Parameterization::kEulerAngles) {
    return about(turns[0], Eigen::Vector3d::UnitX()) * about(turns[1], Eigen::Vector3d::UnitY()) *
           about(turns[2], Eigen::Vector3d::UnitZ());
  }
  const double angle = std::sqrt(turns[0] * turns[0] + turns[1] * turns[1] + turns[2] * turns[2]);
  return angle > 0.0 ? about(angle, turns / angle) : Pose3();
}

// Poses that a goal allows, apart from its own: draw after draw.
class PoseDraw {
 public:
  explicit PoseDraw(std::uint64_t seed) : generator_(static_cast<std::uint32_t>(seed)) {}

  // In [-1, 1] each, in the unit ball, in the unit circle.
  Eigen::Vector3d InCube() {
    const double x = generator_.Sample();
    const double y = generator_.Sample();
    return {x, y, generator_.Sample()};
  }
  Eigen::Vector3d InBall() { return InSome(1.0); }
  Eigen::Vector3d InCircle() { return InSome(0.0); }

  Eigen::Vector3d operator()(const SphereObstacle& sphere) { return kShrunk * sphere.radius * InBall(); }
  Eigen::Vector3d operator()(const BoxObstacle& box) {
    return 0.5 * kShrunk * box.size.cwiseProduct(InCube());
  }
  Eigen::Vector3d operator()(const CylinderObstacle& cylinder) {
    const Eigen::Vector3d in_circle = kShrunk * cylinder.radius * InCircle();
    return {in_circle[0], in_circle[1], 0.5 * kShrunk * cylinder.height * generator_.Sample()};
  }

 private:
  // `z_counts`: whether the third coordinate does, as 1 or 0.
  Eigen::Vector3d InSome(double z_counts) {
    Eigen::Vector3d point;
    do {
      point = InCube();
    } while (point[0] * point[0] + point[1] * point[1] + z_counts * point[2] * point[2] > 1.0);
    return point;
  }

  util::RandomGenerator<double> generator_;
};

// Two Euler angles that are free together are more than inverse kinematics leaves free as such: the first of
// them, which is drawn. -1 where there is none.
int FreeAngleToDraw(const PoseGoal::AxisTolerances& tolerances) {
  int first = -1;
  int num_free = 0;
  for (int i = 2; i >= 0; --i) {
    if (IsFree(tolerances.angles[i])) {
      first = i;
      ++num_free;
    }
  }
  const bool is_euler =
      tolerances.parameterization == PoseGoal::AxisTolerances::Parameterization::kEulerAngles;
  return is_euler && num_free == 2 ? first : -1;
}

// The target that draw `k` of a goal goes to: the pose of the goal first, then others that it allows.
PoseTarget TargetOf(const PoseGoal& goal, std::uint64_t k, bool is_fine, std::uint32_t seed) {
  const double position_tolerance = *goal.position_tolerance;
  const double orientation_tolerance = *goal.orientation_tolerance;
  PoseDraw draw(seed + k);
  PoseTarget target;
  target.tool = goal.tool;
  target.position_tolerance = is_fine ? std::min(kFinePosition, position_tolerance) : position_tolerance;
  target.orientation_tolerance =
      is_fine ? std::min(kFineOrientation, orientation_tolerance) : orientation_tolerance;
  Eigen::Vector3d position = goal.pose.translation();
  if (!goal.regions.empty()) {
    const PoseGoal::Region& region = goal.regions[k % goal.regions.size()];
    position = region.pose * (k < goal.regions.size() ? Eigen::Vector3d(Eigen::Vector3d::Zero())
                                                      : std::visit(draw, region.shape));
  } else {
    for (std::size_t i = 0; i < 3; ++i) {
      target.position_counts[i] = !goal.free_translations[i];
    }
    if (k > 0 && position_tolerance > kFinePosition) {
      position = goal.pose * (kShrunk * (position_tolerance - kFinePosition) * draw.InBall());
    }
  }
  Pose3 turned;
  if (goal.axis_tolerances) {
    const Eigen::Vector3d& angles = goal.axis_tolerances->angles;
    Eigen::Vector3d turns = Eigen::Vector3d::Zero();
    const int drawn = FreeAngleToDraw(*goal.axis_tolerances);
    for (Eigen::Index i = 0; i < 3; ++i) {
      target.rotation_counts[static_cast<std::size_t>(i)] = i == drawn || !IsFree(angles[i]);
      if (k > 0 && i == drawn) {
        turns[i] = math::kPi * draw.InCube()[0];
      } else if (k > 0 && !IsFree(angles[i])) {
        turns[i] = kShrunk * std::max(angles[i] - kFineOrientation, 0.0) * draw.InCube()[0];
      }
    }
    target.orientation_tolerance = std::min(kFineOrientation, angles.minCoeff());
    turned = Turned(turns, goal.axis_tolerances->parameterization);
  } else {
    for (std::size_t i = 0; i < 3; ++i) {
      target.rotation_counts[i] = !goal.free_rotations[i] && !IsFree(orientation_tolerance);
    }
    if (k > 0 && !IsFree(orientation_tolerance) && orientation_tolerance > kFineOrientation) {
      turned = Turned(kShrunk * (orientation_tolerance - kFineOrientation) * draw.InBall(),
                      PoseGoal::AxisTolerances::Parameterization::kRotationVector);
    }
  }
  target.pose = Pose3(goal.pose.rotation(), position) * turned;
  return target;
}

// Whether draws should leave the goal's own pose: where it leaves so little open it gains nothing.
bool HasRoom(const PoseGoal& goal) {
  const auto is_wide = [](double tolerance) { return tolerance > 0.01 && !IsFree(tolerance); };
  return !goal.regions.empty() || *goal.position_tolerance > 1e-3 ||
         (goal.axis_tolerances ? goal.axis_tolerances->angles.unaryExpr(is_wide).any() ||
                                     FreeAngleToDraw(*goal.axis_tolerances) >= 0
                               : is_wide(*goal.orientation_tolerance));
}

}  // namespace

InverseKinematics& PoseSolvers::Of(const std::string& frame) {
  std::unique_ptr<InverseKinematics>& solver = solvers_[frame];
  if (!solver) {
    solver = std::make_unique<InverseKinematics>(*robot_, frame);
  }
  return *solver;
}

GoalDraws::GoalDraws(const std::vector<Goal>& goals, const Eigen::VectorXd& q_initial,
                     const MotionPlannerConfig& config, const RobotEnvironment& environment,
                     PoseSolvers& solvers)
    : q_initial_(q_initial),
      config_(config),
      environment_(environment),
      kinematics_(solvers.Robot().kinematics()),
      reports_(goals.size()) {
  KAVO_CHECK(!goals.empty(), kFile, 5) << "A query needs a goal.";
  for (std::size_t i = 0; i < goals.size(); ++i) {
    if (const auto* q = std::get_if<Eigen::VectorXd>(&goals[i])) {
      const Eigen::VectorXd zero = Eigen::VectorXd::Zero(environment.CSpaceDimension());
      AddRange(i, {*q, zero, zero});
      continue;
    }
    if (const auto* range = std::get_if<ConfigurationGoal>(&goals[i])) {
      AddRange(i, *range);
      continue;
    }
    PoseGoal pose = std::get<PoseGoal>(goals[i]);
    Check(pose);
    pose.frame = pose.frame.empty() ? config.task_space_frame_name : pose.frame;
    pose.position_tolerance = pose.position_tolerance.value_or(config.pose_position_tolerance);
    pose.orientation_tolerance = pose.orientation_tolerance.value_or(config.pose_orientation_tolerance);
    const bool has_room = HasRoom(pose);
    InverseKinematics& solver = solvers.Of(pose.frame);
    const Kinematics::FrameHandle frame = kinematics_->frame(pose.frame);
    poses_.push_back({i, std::move(pose), &solver, frame, has_room});
  }
}

std::optional<std::vector<Eigen::VectorXd>> GoalDraws::Draw() {
  std::vector<Eigen::VectorXd> drawn;
  bool may_go_on = false;
  for (Range& range : ranges_) {
    if (!range.is_exhausted) {
      may_go_on = true;
      DrawRange(range, drawn);
    }
  }
  for (Pose& pose : poses_) {
    if (!pose.is_exhausted) {
      may_go_on = true;
      DrawPose(pose, drawn);
    }
  }
  return may_go_on ? std::optional(std::move(drawn)) : std::nullopt;
}

void GoalDraws::AddRange(std::size_t goal, const ConfigurationGoal& range) {
  for (const Eigen::VectorXd* q : {&range.configuration, &range.below, &range.above}) {
    KAVO_CHECK(q->size() == environment_.CSpaceDimension(), kFile, 6)
        << "Goal " << goal << " has [" << q->size() << "] coordinates, the robot ["
        << environment_.CSpaceDimension() << "].";
  }
  KAVO_CHECK((range.below.array() >= 0.0).all() && (range.above.array() >= 0.0).all(), kFile, 7)
      << "The tolerances of a goal must not be negative.";
  const kinematics::ConfigurationLimits& limits = environment_.CSpaceCoordLimits();
  const Eigen::VectorXd& q = range.configuration;
  ranges_.push_back({goal, q, (q - range.below).cwiseMax(limits.Min()),
                     (q + range.above).cwiseMin(limits.Max()),
                     util::RandomGenerator<double>(static_cast<std::uint32_t>(config_.seed))});
  ranges_.back().generator.SetRange(0.0, 1.0);
}

// What is aimed at first; then, if it is of no use, and whenever the search goes on, others within the range.
void GoalDraws::DrawRange(Range& range, std::vector<Eigen::VectorXd>& drawn) {
  std::size_t num_taken =
      range.num_draws == 0 && TakeConfiguration(range.goal, range.aim, drawn) ? kAtOnce : 0;
  const bool has_width = (range.max - range.min).maxCoeff() > 0.0;
  for (std::uint64_t i = 0; has_width && i < kTriesAtOnce && num_taken < kAtOnce; ++i) {
    Eigen::VectorXd q = range.aim;
    for (Eigen::Index k = 0; k < q.size(); ++k) {
      if (range.min[k] < range.max[k]) {
        q[k] =
            std::min(range.min[k] + range.generator.Sample() * (range.max[k] - range.min[k]), range.max[k]);
      }
    }
    num_taken += TakeConfiguration(range.goal, q, drawn) ? 1 : 0;
  }
  ++range.num_draws;
  range.is_exhausted = !has_width || range.num_draws >= kMostDraws ||
                       reports_[range.goal].num_configurations >= config_.max_pose_configurations;
}

bool GoalDraws::TakeConfiguration(std::size_t goal, const Eigen::VectorXd& q,
                                  std::vector<Eigen::VectorXd>& drawn) {
  GoalReport& report = reports_[goal];
  if (environment_.IsValidMotion(q, q, config_.step_size)) {
    Take(goal, q, drawn);
    report.fault.reset();
    report.refused.reset();
    return true;
  }
  if (report.num_configurations == 0 && !report.fault && !report.is_too_close) {
    report.fault = environment_.FindFault(q);
    report.is_too_close = !report.fault;
    report.refused = q;
  }
  ++report.num_rejected;
  return false;
}

void GoalDraws::DrawPose(Pose& pose, std::vector<Eigen::VectorXd>& drawn) {
  GoalReport& report = reports_[pose.goal];
  // Where nothing gets as near to the pose as one would like, whatever is within the tolerance will do.
  const bool is_fine = pose.is_reached || pose.next_restart < kRestartsToReach / 2;
  InverseKinematicsOptions options;
  options.seed = static_cast<std::uint32_t>(config_.seed);
  options.max_solutions = std::min(
      kAtOnce, config_.max_pose_configurations - static_cast<std::size_t>(report.num_configurations));
  options.first_restart = pose.next_restart;
  options.max_restarts = kRestartsAtOnce;
  if (pose.has_room) {
    // A pose for each configuration.
    options.max_solutions = 1;
    options.max_restarts /= kAtOnce;
  }
  if (pose.num_draws == 0) {
    options.seeds = {q_initial_};
  }
  options.reference = q_initial_;
  options.filter = [&](const Eigen::VectorXd& q) { return IsUsable(pose, q); };
  bool brings_new = false;
  for (std::size_t i = 0; i < (pose.has_room ? kAtOnce : 1); ++i) {
    const std::uint64_t k = pose.has_room ? pose.num_draws : 0;
    ++pose.num_draws;
    const PoseTarget target = TargetOf(pose.pose, k, is_fine, options.seed);
    const InverseKinematicsResult result = pose.solver->solve(target, options);
    options.first_restart += result.num_restarts;
    report.num_restarts += result.num_restarts;
    const auto distance = [](const NearestPose& nearest) {
      return nearest.position_error + nearest.orientation_error;
    };
    if (result.nearest && (!report.nearest || distance(*result.nearest) < distance(*report.nearest))) {
      report.nearest = result.nearest;
    }
    for (const Eigen::VectorXd& q : result.solutions) {
      if (report.num_configurations < config_.max_pose_configurations) {
        Take(pose.goal, q, drawn);
        brings_new = true;
      }
    }
  }
  pose.num_idle_restarts =
      brings_new ? 0 : pose.num_idle_restarts + (options.first_restart - pose.next_restart);
  pose.next_restart = options.first_restart;
  if (pose.is_reached) {
    report.nearest.reset();
  }
  if (report.num_configurations > 0) {
    report.fault.reset();
    report.refused.reset();
    pose.is_exhausted = report.num_configurations >= config_.max_pose_configurations ||
                        pose.num_idle_restarts >= kIdleRestarts;
  } else {
    pose.is_exhausted = pose.next_restart >= (pose.is_reached ? kRestartsToUse : kRestartsToReach) ||
                        report.num_not_accepted >= kMostRefusals;
  }
}

bool GoalDraws::IsUsable(Pose& pose, const Eigen::VectorXd& q) {
  if (!IsWithin(pose, q)) {
    return false;
  }
  pose.is_reached = true;
  if (IsKnown(q)) {
    return false;
  }
  GoalReport& report = reports_[pose.goal];
  if (!environment_.IsValidMotion(q, q, config_.step_size)) {
    ++report.num_rejected;
    if (report.num_configurations == 0 && !report.fault) {
      report.fault = environment_.FindFault(q);
      report.is_too_close = report.is_too_close || !report.fault;
      report.refused = q;
    }
    return false;
  }
  if (pose.pose.accepts && !pose.pose.accepts(q)) {
    ++report.num_not_accepted;
    return false;
  }
  return true;
}

bool GoalDraws::IsWithin(const Pose& pose, const Eigen::VectorXd& q) const {
  const PoseError error = ErrorOf(pose.pose, kinematics_->pose(q, pose.frame) * pose.pose.tool);
  const double position_tolerance = pose.pose.regions.empty() ? *pose.pose.position_tolerance : kFinePosition;
  const double orientation_tolerance = pose.pose.axis_tolerances ? 0.0 : *pose.pose.orientation_tolerance;
  return error.position <= position_tolerance && error.orientation <= orientation_tolerance;
}

bool GoalDraws::IsKnown(const Eigen::VectorXd& q) const {
  return std::any_of(drawn_.begin(), drawn_.end(), [&](const Eigen::VectorXd& known) {
    double sum = 0.0;
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      sum += (q[i] - known[i]) * (q[i] - known[i]);
    }
    return sum < 1e-6;
  });
}

void GoalDraws::Take(std::size_t goal, const Eigen::VectorXd& q, std::vector<Eigen::VectorXd>& drawn) {
  drawn.push_back(q);
  drawn_.push_back(q);
  goal_of_drawn_.push_back(goal);
  ++reports_[goal].num_configurations;
}

}  // namespace kavo::planning::internal
