// Inverse kinematics against the Levenberg-Marquardt solver of KDL, restarted at random until it is within
// the limits, on the same reachable poses of three arms in one run: shares solved and times. And what has no
// opponent: warm seeds, further solutions, poses next to singularities, targets out of reach.
//
// The program ends with an error where an answer misses its target, by the forward kinematics of either.

#include <Eigen/Core>
#include <Eigen/SVD>
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/inverse_kinematics.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/constants_internal.h"

namespace {

using kavo::math::kPi;

constexpr std::size_t kNumPoses = 1000;
constexpr int kRounds = 5;
constexpr std::uint64_t kMaxRestarts = 100;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

struct TurningJoint {
  Eigen::Vector3d origin;
  Eigen::Vector3d axis;
  double limit;
};

std::unique_ptr<kavo::RobotDescription> MakeArm(const std::vector<TurningJoint>& joints,
                                                const Eigen::Vector3d& tool) {
  kavo::RobotDescriptionBuilder builder("base");
  std::string parent = "base";
  for (std::size_t i = 0; i < joints.size(); ++i) {
    kavo::Joint joint;
    joint.name = "joint" + std::to_string(i + 1);
    joint.type = kavo::JointType::kRevolute;
    joint.parent_frame = parent;
    joint.child_frame = "link" + std::to_string(i + 1);
    joint.origin = kavo::Pose3::FromTranslation(joints[i].origin);
    joint.axis = joints[i].axis;
    joint.limits = kavo::kinematics::JointLimits{-joints[i].limit, joints[i].limit};
    builder.addJoint(joint);
    parent = joint.child_frame;
  }
  builder.addFrame("tool", parent, kavo::Pose3::FromTranslation(tool));
  return builder.build();
}

const Eigen::Vector3d kX = Eigen::Vector3d::UnitX();
const Eigen::Vector3d kY = Eigen::Vector3d::UnitY();
const Eigen::Vector3d kZ = Eigen::Vector3d::UnitZ();

// Three parallel axes after the first, and a wrist the axes of which do not meet in a point; every joint
// turns once around, the elbow half.
std::unique_ptr<kavo::RobotDescription> MakeOffsetWristArm() {
  return MakeArm({{{0.0, 0.0, 0.15}, kZ, 2.0 * kPi},
                  {{0.0, 0.12, 0.0}, kY, 2.0 * kPi},
                  {{0.0, 0.0, 0.45}, kY, kPi},
                  {{0.0, -0.02, 0.4}, kY, 2.0 * kPi},
                  {{0.0, 0.1, 0.0}, kZ, 2.0 * kPi},
                  {{0.0, 0.0, 0.1}, kY, 2.0 * kPi}},
                 {0.0, 0.1, 0.0});
}

// The last three axes meet in a point.
std::unique_ptr<kavo::RobotDescription> MakeSphericalWristArm() {
  return MakeArm({{{0.0, 0.0, 0.4}, kZ, 2.9},
                  {{0.05, 0.0, 0.0}, kY, 2.2},
                  {{0.0, 0.0, 0.45}, kY, 2.6},
                  {{0.1, 0.0, 0.05}, kX, 3.3},
                  {{0.35, 0.0, 0.0}, kY, 2.1},
                  {{0.0, 0.0, 0.0}, kX, 6.2}},
                 {0.1, 0.0, 0.0});
}

double Seconds(const std::chrono::steady_clock::time_point& begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

KDL::Vector ToKdl(const Eigen::Vector3d& v) { return {v[0], v[1], v[2]}; }

KDL::Frame ToKdl(const kavo::Pose3& pose) {
  const Eigen::Matrix3d r = pose.matrix();
  return {KDL::Rotation(r(0, 0), r(0, 1), r(0, 2), r(1, 0), r(1, 1), r(1, 2), r(2, 0), r(2, 1), r(2, 2)),
          ToKdl(pose.translation())};
}

// A robot, and the same one in KDL.
class Arm {
 public:
  Arm(std::string name, std::unique_ptr<kavo::RobotDescription> robot)
      : name_(std::move(name)),
        robot_(std::move(robot)),
        kinematics_(robot_->kinematics()),
        tool_(kinematics_->frame("tool")),
        limits_(kavo::ExtractJointLimits(robot_.get())),
        solver_(*robot_, "tool") {
    const auto& model = dynamic_cast<const kavo::RobotDescriptionInternal&>(*robot_).model();
    const auto plan = model.plan({tool_.index()});
    for (const auto& step : plan.steps) {
      const auto& origin = step.origin.transform;
      const Eigen::Vector3d axis = origin.rotation.col(step.axis) * step.sign;
      chain_.addSegment(KDL::Segment(
          KDL::Joint("", ToKdl(origin.translation), ToKdl(axis), KDL::Joint::RotAxis), ToKdl(origin.pose())));
    }
    chain_.addSegment(
        KDL::Segment(KDL::Joint(KDL::Joint::Fixed), ToKdl(plan.frames.front().offset.transform.pose())));
    forward_ = std::make_unique<KDL::ChainFkSolverPos_recursive>(chain_);
    // Within 1e-5 m and 1e-4 rad, in the norm that it stops by; thirty steps are best.
    Eigen::Matrix<double, 6, 1> weights;
    weights << 1.0, 1.0, 1.0, 0.1, 0.1, 0.1;
    inverse_ = std::make_unique<KDL::ChainIkSolverPos_LMA>(chain_, weights, 1e-5, 30);
  }

  const std::string& name() const { return name_; }
  const kavo::RobotDescription& robot() const { return *robot_; }
  kavo::InverseKinematics& solver() { return solver_; }

  Eigen::VectorXd random(std::mt19937& engine) const {
    Eigen::VectorXd q(static_cast<Eigen::Index>(limits_.size()));
    for (std::size_t c = 0; c < limits_.size(); ++c) {
      const double u = static_cast<double>(engine()) / 4294967295.0;
      q[static_cast<Eigen::Index>(c)] = u * limits_[c].max + (1.0 - u) * limits_[c].min;
    }
    return q;
  }

  // Up to 0.4 rad away.
  Eigen::VectorXd near(const Eigen::VectorXd& q, std::mt19937& engine) const {
    Eigen::VectorXd result = q;
    for (std::size_t c = 0; c < limits_.size(); ++c) {
      double& value = result[static_cast<Eigen::Index>(c)];
      value += 0.8 * static_cast<double>(engine()) / 4294967295.0 - 0.4;
      value = std::clamp(value, limits_[c].min, limits_[c].max);
    }
    return result;
  }

  // The least singular value of the Jacobian.
  double distanceFromSingularity(const Eigen::VectorXd& q) const {
    const auto n = static_cast<Eigen::Index>(limits_.size());
    Eigen::MatrixXd jacobian(6, n);
    jacobian.topRows(3) = kinematics_->positionJacobian(q, tool_);
    const Eigen::Matrix3d rotation = kinematics_->pose(q, tool_).matrix();
    for (Eigen::Index c = 0; c < n; ++c) {
      Eigen::VectorXd moved = q;
      moved[c] += 1e-6;
      const Eigen::Matrix3d turn = kinematics_->pose(moved, tool_).matrix() * rotation.transpose();
      jacobian.col(c).tail<3>() = Eigen::Vector3d(turn(2, 1), turn(0, 2), turn(1, 0)) / 1e-6;
    }
    return Eigen::JacobiSVD<Eigen::MatrixXd>(jacobian).singularValues().minCoeff();
  }

  kavo::PoseTarget target(const Eigen::VectorXd& q) const {
    kavo::PoseTarget target;
    target.pose = kinematics_->pose(q, tool_);
    return target;
  }

  // Whether a configuration is within the limits and has the pose, by both ways to place a frame.
  bool has(const Eigen::VectorXd& q, const kavo::PoseTarget& target) {
    KDL::JntArray joints(static_cast<unsigned>(q.size()));
    joints.data = q;
    for (std::size_t c = 0; c < limits_.size(); ++c) {
      const double value = q[static_cast<Eigen::Index>(c)];
      if (!(limits_[c].min <= value && value <= limits_[c].max)) {
        return false;
      }
    }
    KDL::Frame placed;
    forward_->JntToCart(joints, placed);
    const KDL::Twist rest = KDL::diff(placed, ToKdl(target.pose));
    const kavo::Pose3 ours = kinematics_->pose(q, tool_);
    return rest.vel.Norm() <= 1e-5 && rest.rot.Norm() <= 1e-4 &&
           (ours.translation() - target.pose.translation()).norm() <= 1e-5 &&
           ours.rotation().angularDistance(target.pose.rotation()) <= 1e-4;
  }

  // KDL's answer and the number of seeds that it took.
  std::pair<std::optional<Eigen::VectorXd>, std::uint64_t> solveByKdl(const kavo::PoseTarget& target,
                                                                      std::mt19937& engine) {
    const KDL::Frame goal = ToKdl(target.pose);
    KDL::JntArray begin(static_cast<unsigned>(limits_.size()));
    KDL::JntArray end(static_cast<unsigned>(limits_.size()));
    for (std::uint64_t seed = 1; seed <= kMaxRestarts; ++seed) {
      begin.data = random(engine);
      if (inverse_->CartToJnt(begin, goal, end) < 0 || !bring(end)) {
        continue;
      }
      return {end.data, seed};
    }
    return {std::nullopt, kMaxRestarts};
  }

 private:
  // By whole turns within the limits, of which KDL knows nothing.
  bool bring(KDL::JntArray& q) const {
    for (std::size_t c = 0; c < limits_.size(); ++c) {
      double& value = q.data[static_cast<Eigen::Index>(c)];
      value = std::remainder(value, 2.0 * kPi);
      value += value < limits_[c].min ? 2.0 * kPi : (value > limits_[c].max ? -2.0 * kPi : 0.0);
      if (!(limits_[c].min <= value && value <= limits_[c].max)) {
        return false;
      }
    }
    return true;
  }

  std::string name_;
  std::unique_ptr<kavo::RobotDescription> robot_;
  std::unique_ptr<kavo::Kinematics> kinematics_;
  kavo::Kinematics::FrameHandle tool_;
  std::vector<kavo::kinematics::JointLimits> limits_;
  kavo::InverseKinematics solver_;
  KDL::Chain chain_;
  std::unique_ptr<KDL::ChainFkSolverPos_recursive> forward_;
  std::unique_ptr<KDL::ChainIkSolverPos_LMA> inverse_;
};

// Times of one question each, the least of several rounds.
class Times {
 public:
  explicit Times(std::size_t count) : seconds_(count, 1e9) {}

  template <typename Call>
  void measure(std::size_t i, const Call& call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    seconds_[i] = std::min(seconds_[i], Seconds(begin));
  }

  double at(std::size_t i) const { return seconds_[i]; }
  double quantile(double share) const {
    std::vector<double> sorted = seconds_;
    std::sort(sorted.begin(), sorted.end());
    return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
  }
  double mean() const {
    double sum = 0.0;
    for (const double seconds : seconds_) {
      sum += seconds;
    }
    return sum / static_cast<double>(seconds_.size());
  }

  void print(const std::string& what) const {
    std::printf("  %-44s median %8.2f us, mean %8.2f, 95th percentile %8.2f, largest %8.2f\n", what.c_str(),
                1e6 * quantile(0.5), 1e6 * mean(), 1e6 * quantile(0.95), 1e6 * quantile(1.0));
  }

 private:
  std::vector<double> seconds_;
};

double Percent(std::size_t count, std::size_t of) {
  return 100.0 * static_cast<double>(count) / static_cast<double>(of);
}

// Searches for all targets, checks every answer, and counts the targets that have one.
std::size_t CountSolved(Arm& arm, const std::vector<kavo::PoseTarget>& targets, std::uint64_t max_restarts) {
  std::size_t count = 0;
  kavo::InverseKinematicsOptions options;
  options.max_restarts = max_restarts;
  for (const kavo::PoseTarget& target : targets) {
    const kavo::InverseKinematicsResult result = arm.solver().solve(target, options);
    count += result.solutions.empty() ? 0 : 1;
    for (const Eigen::VectorXd& q : result.solutions) {
      if (!arm.has(q, target)) {
        Fail(arm.name() + ": an answer misses its target");
      }
    }
  }
  return count;
}

void CompareReachable(Arm& arm, const std::vector<kavo::PoseTarget>& targets) {
  Times ours(targets.size());
  Times theirs(targets.size());
  std::size_t solved_by_kdl[2] = {};
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
      ours.measure(i, [&] { arm.solver().solve(targets[i]); });
    }
    std::mt19937 engine(3);
    for (std::size_t i = 0; i < targets.size(); ++i) {
      std::pair<std::optional<Eigen::VectorXd>, std::uint64_t> answer;
      theirs.measure(i, [&] { answer = arm.solveByKdl(targets[i], engine); });
      if (round == 0 && answer.first && arm.has(*answer.first, targets[i])) {
        solved_by_kdl[0] += answer.second <= 20 ? 1 : 0;
        ++solved_by_kdl[1];
      }
    }
  }
  std::printf("  solved within 20 seeds %.1f %%, within 100 %.1f %%; KDL %.1f %%, %.1f %%\n",
              Percent(CountSolved(arm, targets, 20), targets.size()),
              Percent(CountSolved(arm, targets, 100), targets.size()),
              Percent(solved_by_kdl[0], targets.size()), Percent(solved_by_kdl[1], targets.size()));
  ours.print("one solution");
  theirs.print("one solution, KDL");
  std::printf("ratio %8.1f  %s, medians\nratio %8.1f  %s, means\n", theirs.quantile(0.5) / ours.quantile(0.5),
              arm.name().c_str(), theirs.mean() / ours.mean(), arm.name().c_str());
}

void MeasureWarm(Arm& arm, const std::vector<Eigen::VectorXd>& configurations) {
  std::mt19937 engine(5);
  std::vector<kavo::InverseKinematicsOptions> options(configurations.size());
  std::vector<kavo::PoseTarget> targets;
  for (std::size_t i = 0; i < configurations.size(); ++i) {
    targets.push_back(arm.target(configurations[i]));
    options[i].seeds = {arm.near(configurations[i], engine)};
    options[i].max_restarts = 0;
  }
  Times times(targets.size());
  std::size_t solved = 0;
  for (int round = 0; round < kRounds; ++round) {
    solved = 0;
    for (std::size_t i = 0; i < targets.size(); ++i) {
      times.measure(i, [&] { solved += arm.solver().solve(targets[i], options[i]).solutions.size(); });
    }
  }
  times.print("warm seed within 0.4 rad");
  std::printf("  solved from it alone %.1f %%\n", Percent(solved, targets.size()));
}

// Of the targets for which so many are found.
void MeasureFurther(Arm& arm, const std::vector<kavo::PoseTarget>& targets, std::size_t count) {
  Times first(targets.size());
  Times all(targets.size());
  std::vector<std::size_t> found(targets.size());
  kavo::InverseKinematicsOptions options;
  options.max_solutions = count;
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
      first.measure(i, [&] { arm.solver().solve(targets[i]); });
      all.measure(i, [&] { found[i] = arm.solver().solve(targets[i], options).solutions.size(); });
    }
  }
  std::vector<double> further;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    if (found[i] == count) {
      further.push_back((all.at(i) - first.at(i)) / static_cast<double>(count - 1));
    }
  }
  std::sort(further.begin(), further.end());
  std::printf(
      "  each solution after the first, up to %zu: median %.2f us (%.1f %% of the targets have them)\n",
      count, further.empty() ? 0.0 : 1e6 * further[further.size() / 2],
      Percent(further.size(), targets.size()));
}

void MeasureSingular(Arm& arm) {
  std::mt19937 engine(7);
  std::vector<std::pair<double, Eigen::VectorXd>> configurations;
  for (std::size_t i = 0; i < 50 * kNumPoses; ++i) {
    const Eigen::VectorXd q = arm.random(engine);
    configurations.emplace_back(arm.distanceFromSingularity(q), q);
  }
  std::sort(configurations.begin(), configurations.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<kavo::PoseTarget> targets;
  for (std::size_t i = 0; i < kNumPoses; ++i) {
    targets.push_back(arm.target(configurations[i].second));
  }
  Times times(targets.size());
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
      times.measure(i, [&] { arm.solver().solve(targets[i]); });
    }
  }
  times.print("next to a singularity");
  std::printf("  solved there %.1f %% (the most singular 2 %%, singular values below %.4f)\n",
              Percent(CountSolved(arm, targets, kMaxRestarts), targets.size()),
              configurations[kNumPoses - 1].first);
}

void MeasureOutOfReach(Arm& arm) {
  std::mt19937 engine(9);
  std::vector<kavo::PoseTarget> targets;
  for (std::size_t i = 0; i < kNumPoses; ++i) {
    targets.push_back(arm.target(arm.random(engine)));
    const Eigen::Vector3d& position = targets.back().pose.translation();
    targets.back().pose = kavo::Pose3(targets.back().pose.rotation(),
                                      position * ((1.6 + 0.001 * static_cast<double>(i)) / position.norm()));
  }
  Times times(targets.size());
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
      times.measure(i, [&] {
        const kavo::InverseKinematicsResult result = arm.solver().solve(targets[i]);
        if (!result.solutions.empty() || Explain(arm.robot(), result).empty()) {
          Fail(arm.name() + ": reached what is out of reach");
        }
      });
    }
  }
  times.print("out of reach, explained");
}

void Run(Arm arm) {
  std::printf("%s\n", arm.name().c_str());
  std::mt19937 engine(1);
  std::vector<Eigen::VectorXd> configurations;
  std::vector<kavo::PoseTarget> targets;
  for (std::size_t i = 0; i < kNumPoses; ++i) {
    configurations.push_back(arm.random(engine));
    targets.push_back(arm.target(configurations.back()));
  }
  CompareReachable(arm, targets);
  MeasureWarm(arm, configurations);
  MeasureFurther(arm, targets, 2);
  MeasureFurther(arm, targets, 4);
  MeasureSingular(arm);
  MeasureOutOfReach(arm);
}

}  // namespace

int main() {
  Run(Arm("7 joints, the built-in arm", kavo::LoadFrankaRobotDescription()));
  Run(Arm("6 joints, offset wrist", MakeOffsetWristArm()));
  Run(Arm("6 joints, spherical wrist", MakeSphericalWristArm()));
}
