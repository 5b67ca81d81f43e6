#include "kavo/kinematics/interface/inverse_kinematics.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/pose_descent_internal.h"
#include "kavo/kinematics/pose_lanes_internal.h"
#include "kavo/math/constants_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/sort.h"

namespace kavo {

namespace {

using kinematics::internal::PoseDescent;
using kinematics::internal::PoseLanes;
using kinematics::internal::PoseModel;

constexpr char kFile[] = "kinematics/interface/inverse_kinematics";

// Lanes that ended within this squared error are worth going on with in double precision; how far that goes.
constexpr double kWorthFinishing = 1e-3;
constexpr int kStepsToFinish = 12;
constexpr double kFallToFinish = 0.9;
constexpr int kStepsToFollow = 30;
// Where it is about how near it gets.
constexpr int kStepsToSettle = 100;

// Solutions nearer to one another count as one.
constexpr double kDistinct = 1e-3;

const RobotDescriptionInternal& Internal(const RobotDescription& robot) {
  // Says so if the description is of another kind.
  ExtractJointLimits(&robot);
  return static_cast<const RobotDescriptionInternal&>(robot);
}

PoseTarget Checked(PoseTarget target) {
  KAVO_CHECK(target.pose.isFinite() && target.tool.isFinite(), kFile, 33)
      << "The pose of the target, or that of the tool, has a coefficient that is not finite.";
  KAVO_CHECK(target.position_tolerance > 0.0 && target.orientation_tolerance > 0.0, kFile, 35)
      << "The tolerances are " << target.position_tolerance << " m and " << target.orientation_tolerance
      << " rad; both have to be positive.";
  if (target.orientation_tolerance >= math::kPi) {
    target.rotation_counts = {false, false, false};
  }
  return target;
}

// The end of SplitMix64 (Steele, Lea, Flood 2014).
std::uint64_t Mix(std::uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
  z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
  return z ^ (z >> 31);
}

// A number of [0, 1) for each place of a sequence.
double Uniform(std::uint64_t seed, std::uint64_t place) {
  return static_cast<double>(Mix(Mix(seed) + place * 0x9e3779b97f4a7c15) >> 11) * 0x1p-53;
}

}  // namespace

class InverseKinematics::Impl {
 public:
  Impl(const RobotDescriptionInternal& robot, int frame)
      : model_(robot.model(), frame, robot.jointLimits()),
        default_(robot.defaultCSpaceConfiguration()),
        descent_(model_),
        lanes_(model_),
        q_(static_cast<Eigen::Index>(model_.coordinates.size())),
        nearest_(q_.size()) {}

  InverseKinematicsResult solve(const PoseTarget& asked, const InverseKinematicsOptions& options) {
    const PoseTarget target = Checked(asked);
    KAVO_CHECK(options.max_solutions >= 1, kFile, 66) << "No solutions are asked for.";
    for (const Eigen::VectorXd& seed : options.seeds) {
      checkConfiguration(seed);
    }
    if (options.reference) {
      checkConfiguration(*options.reference);
    }
    anchor_ =
        options.reference ? *options.reference : (options.seeds.empty() ? default_ : options.seeds.front());
    model_.setAnchor(anchor_);
    descent_.setTarget(target);
    found_.clear();
    has_nearest_ = false;

    InverseKinematicsResult result;
    lanes_.setTarget(target);
    std::size_t num_seeds = 0;
    search(options, result, [&] {
      if (num_seeds == options.seeds.size()) {
        return false;
      }
      setLocal(options.seeds[num_seeds++], true);
      return true;
    });
    search(options, result, [&] {
      if (result.num_restarts == options.max_restarts) {
        return false;
      }
      setRestart(options.seed, options.first_restart + result.num_restarts++);
      return true;
    });
    if (found_.empty() && has_nearest_) {
      q_ = nearest_;
      descent_.settle(q_, kStepsToSettle, true);
      result.nearest = settled();
    }
    if (options.reference) {
      sortByDistance(result.solutions);
    }
    return result;
  }

  std::optional<Eigen::VectorXd> follow(const Eigen::VectorXd& q, const PoseTarget& target,
                                        NearestPose* nearest) {
    checkConfiguration(q);
    anchor_ = q;
    descent_.setTarget(Checked(target));
    setLocal(q, false);
    if (descent_.descend(q_, kStepsToFollow, kFallToFinish, false) ||
        descent_.settle(q_, kStepsToSettle, false)) {
      return global(q_);
    }
    if (nearest != nullptr) {
      *nearest = settled();
    }
    return std::nullopt;
  }

 private:
  void checkConfiguration(const Eigen::VectorXd& q) const {
    KAVO_CHECK(q.size() == default_.size() && math::IsFinite(q), kFile, 122)
        << "A configuration has " << default_.size() << " finite entries; one with " << q.size()
        << " was given.";
  }

  void setLocal(const Eigen::VectorXd& q, bool may_turn) {
    for (Eigen::Index c = 0; c < q_.size(); ++c) {
      const PoseModel::Coordinate& coordinate = model_.coordinates[static_cast<std::size_t>(c)];
      q_[c] = coordinate.brought(q[coordinate.index], may_turn);
    }
  }

  void setRestart(std::uint32_t seed, std::uint64_t number) {
    const auto count = static_cast<std::uint64_t>(q_.size());
    for (std::uint64_t c = 0; c < count; ++c) {
      const PoseModel::Coordinate& coordinate = model_.coordinates[c];
      const kinematics::JointLimits range = coordinate.range();
      const double u = Uniform(seed, number * count + c);
      q_[static_cast<Eigen::Index>(c)] = coordinate.brought(u * range.max + (1.0 - u) * range.min, false);
    }
  }

  Eigen::VectorXd global(const Eigen::VectorXd& local) const {
    Eigen::VectorXd q = anchor_;
    for (Eigen::Index c = 0; c < local.size(); ++c) {
      q[model_.coordinates[static_cast<std::size_t>(c)].index] = local[c];
    }
    return q;
  }

  bool isKnown(const Eigen::VectorXd& q) const {
    return std::any_of(found_.begin(), found_.end(), [&](const Eigen::VectorXd& known) {
      double sum = 0.0;
      for (Eigen::Index c = 0; c < q.size(); ++c) {
        double difference = std::fabs(q[c] - known[c]);
        if (model_.coordinates[static_cast<std::size_t>(c)].turns) {
          difference = std::fmin(difference, math::kTwoPi - difference);
        }
        sum += difference * difference;
      }
      return sum < kDistinct * kDistinct;
    });
  }

  // Descends from configurations that `next` puts into `q_`, as long as it finds some, in all lanes.
  template <typename Next>
  void search(const InverseKinematicsOptions& options, InverseKinematicsResult& result, const Next& next) {
    std::uint32_t active = 0;
    const auto refill = [&](std::size_t lane) {
      if (next()) {
        lanes_.begin(lane, q_);
        active |= std::uint32_t{1} << lane;
      } else {
        active &= ~(std::uint32_t{1} << lane);
      }
    };
    if (result.solutions.size() == options.max_solutions) {
      return;
    }
    for (std::size_t lane = 0; lane < math::kNumLanes; ++lane) {
      refill(lane);
    }
    while (active != 0) {
      const std::uint32_t ended = lanes_.step() & active;
      for (std::size_t lane = 0; lane < math::kNumLanes; ++lane) {
        if ((ended >> lane & 1) == 0) {
          continue;
        }
        lanes_.get(lane, q_);
        const double squared = lanes_.squared(lane);
        if ((lanes_.isNear(lane) || squared < kWorthFinishing) && !isKnown(q_)) {
          finish(options, result);
          if (result.solutions.size() == options.max_solutions) {
            return;
          }
        } else {
          consider(squared);
        }
        refill(lane);
      }
    }
  }

  // Keeps `q_` if it is the nearest so far. Errors may be beyond all numbers.
  void consider(double squared) {
    if (!has_nearest_ || squared < nearest_squared_) {
      has_nearest_ = true;
      nearest_squared_ = std::isnan(squared) ? math::kInf : squared;
      nearest_ = q_;
    }
  }

  // From `q_` on in double precision.
  void finish(const InverseKinematicsOptions& options, InverseKinematicsResult& result) {
    if (!descent_.descend(q_, kStepsToFinish, kFallToFinish, true)) {
      consider(descent_.error().squared);
      return;
    }
    if (isKnown(q_)) {
      return;
    }
    found_.push_back(q_);
    Eigen::VectorXd q = global(q_);
    if (options.filter && !options.filter(q)) {
      ++result.num_filtered;
      return;
    }
    result.solutions.push_back(std::move(q));
  }

  // Where the descent ended.
  NearestPose settled() {
    NearestPose nearest;
    nearest.q = global(q_);
    const kinematics::internal::PoseError& error = descent_.place(q_);
    nearest.position_error = error.position;
    nearest.orientation_error = descent_.angle();
    Eigen::VectorXd beyond = q_;
    descent_.step(beyond, descent_.damping(), false);
    for (std::size_t c = 0; c < model_.coordinates.size(); ++c) {
      if (descent_.blocked()[c] != 0) {
        nearest.coordinates_at_limits.push_back(static_cast<std::size_t>(model_.coordinates[c].index));
      }
    }
    return nearest;
  }

  void sortByDistance(std::vector<Eigen::VectorXd>& solutions) const {
    std::vector<Eigen::VectorXd> sorted;
    for (const util::IndexedValue& value :
         util::Sort(solutions, [&](const Eigen::VectorXd& q) { return math::SquaredDistance(q, anchor_); })) {
      sorted.push_back(std::move(solutions[value.index]));
    }
    solutions = std::move(sorted);
  }

  PoseModel model_;
  Eigen::VectorXd default_;
  // What coordinates that do not move the frame stay at.
  Eigen::VectorXd anchor_;
  PoseDescent descent_;
  PoseLanes lanes_;
  Eigen::VectorXd q_;
  std::vector<Eigen::VectorXd> found_;
  bool has_nearest_ = false;
  double nearest_squared_ = 0.0;
  Eigen::VectorXd nearest_;
};

InverseKinematics::InverseKinematics(const RobotDescription& robot, const std::string& frame) {
  const RobotDescriptionInternal& internal = Internal(robot);
  impl_ = std::make_unique<Impl>(internal, internal.model().frame(frame));
}

InverseKinematics::~InverseKinematics() = default;
InverseKinematics::InverseKinematics(InverseKinematics&&) noexcept = default;
InverseKinematics& InverseKinematics::operator=(InverseKinematics&&) noexcept = default;

InverseKinematicsResult InverseKinematics::solve(const PoseTarget& target,
                                                 const InverseKinematicsOptions& options) {
  return impl_->solve(target, options);
}

std::optional<Eigen::VectorXd> InverseKinematics::follow(const Eigen::VectorXd& q, const PoseTarget& target,
                                                         NearestPose* nearest) {
  return impl_->follow(q, target, nearest);
}

InverseKinematicsResult SolveInverseKinematics(const RobotDescription& robot, const std::string& frame,
                                               const PoseTarget& target,
                                               const InverseKinematicsOptions& options) {
  return InverseKinematics(robot, frame).solve(target, options);
}

std::string Explain(const RobotDescription& robot, const NearestPose& nearest) {
  util::TextStream text;
  text.precision(3);
  const bool is_far = nearest.position_error >= 1.0;
  text << "the nearest it got: " << (is_far ? 1.0 : 1e3) * nearest.position_error
       << (is_far ? " m, " : " mm, ") << nearest.orientation_error * (180.0 / math::kPi) << " degrees";
  const char* separator = "; ";
  for (const std::size_t coordinate : nearest.coordinates_at_limits) {
    text << separator << robot.cSpaceCoordName(coordinate);
    separator = ", ";
  }
  if (!nearest.coordinates_at_limits.empty()) {
    text << (nearest.coordinates_at_limits.size() == 1 ? " at its limit" : " at their limits");
  }
  return text.str();
}

std::string Explain(const RobotDescription& robot, const InverseKinematicsResult& result) {
  if (result.nearest) {
    return Explain(robot, *result.nearest);
  }
  util::TextStream text;
  if (!result.solutions.empty()) {
    text << result.solutions.size() << (result.solutions.size() == 1 ? " solution" : " solutions");
  } else if (result.num_filtered > 0) {
    text << result.num_filtered
         << (result.num_filtered == 1 ? " configuration has the pose, and was refused"
                                      : " configurations have the pose, and all were refused");
  } else {
    text << "there was nothing to begin at";
  }
  return text.str();
}

}  // namespace kavo
