#include "kavo/motion_planning/util/line_motion.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "kavo/kinematics/angle_internal.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/motion_reach_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"
#include "kavo/math/motion_bound_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/line_motion";

// The parts that one step may be divided into.
constexpr std::uint64_t kTicks = 64;
constexpr double kMostSteps = 1e6;
// How far spare motion is drawn to the middle of a range in one step, try after try.
constexpr double kDraws[] = {0.0, 0.02, 0.05};
// Beyond this turn of a motion, or of its line, the bound of its angle does not hold.
constexpr double kLargestTurn = 1.0;

double Norm(const Eigen::Vector3d& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// From one pose to another: straight, and by an even turn the short way.
class Line {
 public:
  Line(const Pose3& from, const Pose3& to) : from_(from), to_(to) {
    Eigen::Quaterniond turn = (from.inverse() * to).rotation();
    if (turn.w() < 0.0) {
      turn.coeffs() = -turn.coeffs();
    }
    const double sine = Norm(turn.vec());
    axis_ = sine > 0.0 ? Eigen::Vector3d(turn.vec() / sine) : Eigen::Vector3d(Eigen::Vector3d::UnitZ());
    angle_ = 2.0 * kinematics::internal::Angle(sine, turn.w());
  }

  double Length() const { return Norm(to_.translation() - from_.translation()); }
  double Angle() const { return angle_; }

  Pose3 At(double fraction) const {
    if (fraction == 1.0) {
      return to_;
    }
    double sin = 0.0;
    double cos = 0.0;
    kinematics::internal::SinCos(0.5 * fraction * angle_, &sin, &cos);
    const Pose3 turn = Pose3::FromRotation({cos, sin * axis_[0], sin * axis_[1], sin * axis_[2]});
    return Pose3(from_.rotation(),
                 from_.translation() + fraction * (to_.translation() - from_.translation())) *
           turn;
  }

 private:
  Pose3 from_;
  Pose3 to_;
  Eigen::Vector3d axis_;
  double angle_;
};

class LineFollower {
 public:
  LineFollower(const RobotDescription& robot, const RobotEnvironment& environment, InverseKinematics& solver,
               const std::string& frame, const Pose3& tool, const LineOptions& options)
      : environment_(environment),
        solver_(solver),
        options_(options),
        limits_(ExtractJointLimits(&robot)),
        kinematics_(robot.kinematics()),
        frame_(kinematics_->frame(frame)) {
    target_.tool = tool;
    target_.position_tolerance = options.position_tolerance;
    target_.orientation_tolerance = options.orientation_tolerance;
    // `ExtractJointLimits` has refused any other kind.
    const auto plan = dynamic_cast<const RobotDescriptionInternal&>(robot).model().plan({frame_.index()});
    const kinematics::Kinematics::Attachment& attachment = plan.frames.front();
    reach_.emplace(plan, limits_);
    joints_ = reach_->ofPoints(attachment.slot, {attachment.offset.transform * tool.translation()});
  }

  LineMotion Follow(const Eigen::VectorXd& q_start, const Pose3& pose) {
    LineMotion motion;
    motion.path = {q_start};
    if (!environment_.IsValidMotion(q_start, q_start, options_.max_joint_step)) {
      motion.end = LineMotion::End::kInvalidStart;
      motion.fault = environment_.FindFault(q_start);
      return motion;
    }
    const Line line(kinematics_->pose(q_start, frame_) * target_.tool, pose);
    bool is_first = true;
    for (const double draw : kDraws) {
      LineMotion attempt = FollowDrawn(q_start, line, draw);
      const bool is_farther = is_first || attempt.fraction > motion.fraction;
      is_first = false;
      const bool is_last = attempt.IsComplete() || attempt.end == LineMotion::End::kStopped;
      if (is_farther || is_last) {
        motion = std::move(attempt);
      }
      if (is_last) {
        break;
      }
    }
    return motion;
  }

 private:
  LineMotion FollowDrawn(const Eigen::VectorXd& q_start, const Line& line, double draw) {
    LineMotion motion;
    motion.path = {q_start};
    const double num_steps = std::max(
        {1.0, std::ceil(line.Length() / options_.step), std::ceil(line.Angle() / options_.angle_step)});
    KAVO_CHECK(num_steps <= kMostSteps, kFile, 4)
        << "A line of [" << line.Length() << "] metres would take more than a million steps.";
    const auto all = static_cast<std::uint64_t>(num_steps) * kTicks;
    std::uint64_t done = line.Length() == 0.0 && line.Angle() == 0.0 ? all : 0;
    for (std::uint64_t ticks = kTicks; done < all;) {
      if (options_.stop_condition && options_.stop_condition()) {
        motion.end = LineMotion::End::kStopped;
        break;
      }
      ticks = std::min(ticks, all - done);
      const double share = static_cast<double>(ticks) / static_cast<double>(kTicks);
      target_.pose = line.At(static_cast<double>(done + ticks) / static_cast<double>(all));
      if (Advance(share * draw, motion)) {
        done += ticks;
        ticks = std::min(2 * ticks, kTicks);
      } else if (ticks == 1) {
        break;
      } else {
        ticks /= 2;
      }
    }
    motion.fraction = static_cast<double>(done) / static_cast<double>(all);
    if (done == all) {
      motion.end = LineMotion::End::kComplete;
      ForgetWhy(motion);
    }
    return motion;
  }

  static void ForgetWhy(LineMotion& motion) {
    motion.fault.reset();
    motion.blocked.reset();
    motion.nearest.reset();
    motion.jumping.reset();
  }

  // Whether there is a next waypoint at the target; notes why not.
  bool Advance(double draw, LineMotion& motion) {
    const Eigen::VectorXd& q = motion.path.back();
    ForgetWhy(motion);
    NearestPose nearest;
    const std::optional<Eigen::VectorXd> next = solver_.follow(Drawn(q, draw), target_, &nearest);
    if (!next) {
      motion.end = LineMotion::End::kUnreachable;
      motion.nearest = std::move(nearest);
      return false;
    }
    const Eigen::VectorXd way = *next - q;
    Eigen::Index farthest = 0;
    const bool is_jump = way.cwiseAbs().maxCoeff(&farthest) > options_.max_joint_step;
    const auto [deviation, angle] = Straying(way);
    if (is_jump || !(deviation <= options_.max_deviation && angle <= options_.max_angle)) {
      motion.end = is_jump ? LineMotion::End::kJump : LineMotion::End::kAstray;
      motion.jumping = static_cast<std::size_t>(farthest);
      return false;
    }
    if (!environment_.IsValidMotion(q, *next, options_.max_joint_step)) {
      motion.end = LineMotion::End::kContact;
      motion.fault = environment_.FindFault(*next);
      motion.blocked = *next;
      return false;
    }
    motion.deviation = std::max(motion.deviation, deviation);
    motion.angle = std::max(motion.angle, angle);
    motion.path.push_back(*next);
    return true;
  }

  // A configuration with each coordinate a little nearer to the middle of its range.
  Eigen::VectorXd Drawn(const Eigen::VectorXd& q, double draw) const {
    Eigen::VectorXd drawn = q;
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      const kinematics::JointLimits& limits = limits_[static_cast<std::size_t>(i)];
      const double way = 0.5 * limits.min + 0.5 * limits.max - q[i];
      if (std::isfinite(way)) {
        drawn[i] += std::clamp(way, -draw, draw);
      }
    }
    return drawn;
  }

  // How far the tool may be off the line and its even turn, anywhere on a motion by `way`.
  std::pair<double, double> Straying(const Eigen::VectorXd& way) {
    reach_->getRates(way, rates_);
    math::MotionBound bound;
    math::AddMotion(joints_, rates_.data(), bound);
    double turn = 0.0;
    double change_of_turn = 0.0;
    for (const math::JointReach& joint : joints_) {
      if (joint.turns) {
        const auto rate = static_cast<double>(rates_[joint.joint]);
        change_of_turn += rate * turn;
        turn += rate;
      }
    }
    // Between two even turns of less than this that begin and end near each other nothing is farther apart
    // than the ends, but for 1 / cos(turn / 4).
    constexpr double kSpread = 1.04;
    const double deviation = options_.position_tolerance + 0.125 * static_cast<double>(bound.acceleration);
    const double angle = kSpread * options_.orientation_tolerance + 0.125 * (1.0 + kSpread) * change_of_turn;
    const double largest_turn = turn + 2.0 * options_.orientation_tolerance;
    return {deviation, largest_turn <= kLargestTurn ? angle : math::kInf};
  }

  const RobotEnvironment& environment_;
  InverseKinematics& solver_;
  const LineOptions& options_;
  std::vector<kinematics::JointLimits> limits_;
  std::unique_ptr<Kinematics> kinematics_;
  Kinematics::FrameHandle frame_;
  PoseTarget target_;
  std::optional<kinematics::internal::MotionReach> reach_;
  // On the way to the tool's origin.
  math::JointReaches joints_;
  std::vector<float> rates_;
};

}  // namespace

const char* ToString(LineMotion::End end) {
  switch (end) {
    case LineMotion::End::kComplete:
      return "complete";
    case LineMotion::End::kInvalidStart:
      return "invalid start";
    case LineMotion::End::kUnreachable:
      return "unreachable";
    case LineMotion::End::kJump:
      return "jump";
    case LineMotion::End::kContact:
      return "contact";
    case LineMotion::End::kAstray:
      return "astray";
    case LineMotion::End::kStopped:
      return "stopped";
  }
  return "unknown";
}

LineMotion FollowLine(const RobotDescription& robot, const RobotEnvironment& environment,
                      InverseKinematics& solver, const std::string& frame, const Pose3& tool,
                      const Eigen::VectorXd& q_start, const Pose3& pose, const LineOptions& options) {
  for (const double option :
       {options.step, options.angle_step, options.position_tolerance, options.orientation_tolerance,
        options.max_deviation, options.max_angle, options.max_joint_step}) {
    KAVO_CHECK(option > 0.0, kFile, 1) << "Each option of a line must be positive, not [" << option << "].";
  }
  KAVO_CHECK(static_cast<std::size_t>(q_start.size()) == robot.numCSpaceCoords(), kFile, 2)
      << "The start has [" << q_start.size() << "] coordinates, the robot [" << robot.numCSpaceCoords()
      << "].";
  KAVO_CHECK(pose.isFinite() && tool.isFinite(), kFile, 3) << "The poses of a line must be finite.";
  return LineFollower(robot, environment, solver, frame, tool, options).Follow(q_start, pose);
}

}  // namespace kavo::planning
