#include "kavo/motion_planning/util/path_proof.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "kavo/kinematics/interface/frame_sweep.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/world/ball_model_internal.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/path_proof";

// What is taken from every bound for rounding, in parts of the lengths that it comes from. A place is the sum
// of some dozens of products along the robot, each off by 1e-16 of the largest length in it at most, and so
// is a distance: four orders below this. Of a robot of some metres this is a ten thousandth of the smallest
// gap that anybody asks for.
constexpr double kRounding = 1e-10;

using Model = kinematics::Kinematics;

double Norm(const Eigen::Vector3d& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// A joint that moves, and where its axis is.
struct MovingJoint {
  Eigen::Index coordinate;
  // By how much more than its coordinate it moves, and what stands in it for a coordinate of zero.
  double multiplier;
  double offset;
  bool slides;
  // The index of its own frame, whose origin is on the axis, and the axis in that frame.
  std::size_t frame;
  Eigen::Vector3d axis;
};

// A collision sphere, or a ball around some of one frame: what is far from all of these need not be asked of
// each.
struct Ball {
  std::size_t frame;
  // Among the spheres of the frame.
  std::size_t index;
  math::Sphere sphere;
  // With the padding of the frame, which obstacles have to keep.
  double padded_radius;
  // Those that it may touch.
  const kavo::internal::ObstacleSet* allowed;
  // The joints that carry it.
  const std::vector<std::size_t>* joints;
  // The balls that it is around; none for a collision sphere.
  std::size_t first_part = 0;
  std::size_t end_part = 0;

  bool HasParts() const { return first_part != end_part; }
  // How far from its centre those of its parts may be.
  double Extent() const { return HasParts() ? sphere.radius : 0.0; }
};

// Two balls that must not touch each other.
struct BallPair {
  std::size_t a;
  std::size_t b;
  // The joints between the two, from the first one to the second.
  const std::vector<std::size_t>* joints;
};

// The robot as a proof sees it.
class Arm {
 public:
  Arm(const RobotDescriptionInternal& robot, const kavo::internal::Snapshot& snapshot)
      : kinematics_(robot.kinematics()) {
    std::vector<Kinematics::FrameHandle> handles;
    std::vector<int> all;
    for (const std::string& name : kinematics_->frameNames()) {
      handles.push_back(kinematics_->frame(name));
      all.push_back(handles.back().index());
    }
    sweep_ = kinematics_->frameSweep(handles);
    const Model::Plan plan = robot.model().plan(all);
    FindJoints(plan);
    FindBalls(robot, snapshot, plan);
  }

  const std::vector<MovingJoint>& Joints() const { return joints_; }
  const std::vector<Ball>& Balls() const { return balls_; }
  // The balls around all spheres of a frame, and the pairs of those of frames that must not touch.
  const std::vector<std::size_t>& Roots() const { return roots_; }
  const std::vector<BallPair>& Pairs() const { return pairs_; }
  // The distance of the farthest sphere from the origin of its frame.
  double LargestOffset() const { return largest_offset_; }

  const std::string& FrameName(const Ball& ball) const { return kinematics_->frameNames()[ball.frame]; }

  // Of all frames; holds until the next call.
  const std::vector<math::RigidTransform>& Place(const Eigen::VectorXd& q) { return sweep_->compute(q); }

 private:
  void FindJoints(const Model::Plan& plan) {
    chains_.resize(plan.steps.size() + 1);
    for (std::size_t slot = 0; slot < plan.steps.size(); ++slot) {
      const Model::Step& step = plan.steps[slot];
      chains_[slot + 1] = chains_[static_cast<std::size_t>(step.parent + 1)];
      chains_[slot + 1].push_back(slot);
      MovingJoint& joint = joints_.emplace_back();
      joint.coordinate = step.coordinate;
      joint.multiplier = step.ratio ? std::fabs(step.ratio->multiplier) : 1.0;
      joint.offset = step.ratio ? std::fabs(step.ratio->offset) : 0.0;
      joint.slides = step.motion == Model::Motion::kPrismatic;
      // Every frame comes after the one it is attached to, so that the first one that a joint carries is its
      // own.
      const auto own =
          std::find_if(plan.frames.begin(), plan.frames.end(),
                       [&](const Model::Attachment& frame) { return frame.slot == static_cast<int>(slot); });
      joint.frame = static_cast<std::size_t>(own - plan.frames.begin());
      joint.axis = own->offset.transform.rotation.row(step.axis);
    }
  }

  void FindBalls(const RobotDescriptionInternal& robot, const kavo::internal::Snapshot& snapshot,
                 const Model::Plan& plan) {
    const auto chain = [&](std::size_t frame) -> const std::vector<std::size_t>& {
      return chains_[static_cast<std::size_t>(plan.frames[frame].slot + 1)];
    };
    // Pointers into it are kept, here and below.
    allowed_.reserve(robot.collision().frames.size());
    // By frame.
    std::map<std::size_t, std::size_t> roots;
    for (const std::string& name : robot.collision().frames) {
      const auto frame = static_cast<std::size_t>(kinematics_->frame(name).index());
      const std::vector<math::Sphere> spheres = robot.collision().spheresOf(name);
      const double padding = robot.collision().paddingOf(name);
      allowed_.push_back(snapshot.named(robot.collision().allowedObstaclesOf(name)));
      std::vector<Ball> of_frame;
      for (std::size_t i = 0; i < spheres.size(); ++i) {
        // What touches nothing is left out.
        if (spheres[i].radius >= 0.0) {
          of_frame.push_back(
              {frame, i, spheres[i], spheres[i].radius + padding, &allowed_.back(), &chain(frame)});
          largest_offset_ = std::max(largest_offset_, Norm(spheres[i].center));
        }
      }
      if (!of_frame.empty()) {
        roots[frame] = balls_.size();
        roots_.push_back(balls_.size());
        balls_.emplace_back();
        PutAround(of_frame.begin(), of_frame.end(), balls_.size() - 1);
      }
    }
    linkages_.reserve(robot.collision().pairs.size());
    for (const auto& [name_a, name_b] : robot.collision().pairs) {
      const auto a = static_cast<std::size_t>(kinematics_->frame(name_a).index());
      const auto b = static_cast<std::size_t>(kinematics_->frame(name_b).index());
      linkages_.push_back(Between(chain(a), chain(b)));
      if (roots.count(a) != 0 && roots.count(b) != 0) {
        pairs_.push_back({roots[a], roots[b], &linkages_.back()});
      }
    }
  }

  // Makes a ball around collision spheres, and below it balls around halves of halves of them.
  using BallIterator = std::vector<Ball>::iterator;
  void PutAround(BallIterator begin, BallIterator end, std::size_t place) {
    if (end - begin == 1) {
      balls_[place] = *begin;
      return;
    }
    std::vector<BallIterator> cuts = {begin};
    Split(begin, end, 2, cuts);
    Ball ball = *begin;
    ball.sphere = Around(begin, end);
    ball.padded_radius += ball.sphere.radius - begin->sphere.radius;
    ball.first_part = balls_.size();
    ball.end_part = balls_.size() + cuts.size() - 1;
    balls_[place] = ball;
    balls_.resize(ball.end_part);
    for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
      PutAround(cuts[i], cuts[i + 1], ball.first_part + i);
    }
  }

  // Halves them across their widest direction, and the halves again.
  static void Split(BallIterator begin, BallIterator end, int times, std::vector<BallIterator>& cuts) {
    if (times == 0 || end - begin == 1) {
      cuts.push_back(end);
      return;
    }
    int widest = 0;
    double largest = -1.0;
    for (int axis = 0; axis < 3; ++axis) {
      const auto less = [axis](const Ball& a, const Ball& b) {
        return a.sphere.center[axis] < b.sphere.center[axis];
      };
      const auto [low, high] = std::minmax_element(begin, end, less);
      if (const double extent = high->sphere.center[axis] - low->sphere.center[axis]; extent > largest) {
        largest = extent;
        widest = axis;
      }
    }
    std::sort(begin, end, [widest](const Ball& a, const Ball& b) {
      const double in_a = a.sphere.center[widest];
      const double in_b = b.sphere.center[widest];
      return in_a != in_b ? in_a < in_b : a.index < b.index;
    });
    const auto middle = begin + (end - begin) / 2;
    Split(begin, middle, times - 1, cuts);
    Split(middle, end, times - 1, cuts);
  }

  // About the middle of the box around their centres; larger by more than rounding.
  static math::Sphere Around(BallIterator begin, BallIterator end) {
    Eigen::Vector3d low = begin->sphere.center;
    Eigen::Vector3d high = low;
    for (auto ball = begin; ball != end; ++ball) {
      low = low.cwiseMin(ball->sphere.center);
      high = high.cwiseMax(ball->sphere.center);
    }
    math::Sphere around{0.5 * low + 0.5 * high, 0.0};
    for (auto ball = begin; ball != end; ++ball) {
      const double reach = Norm(ball->sphere.center - around.center) + ball->sphere.radius;
      around.radius = std::max(around.radius, reach + kRounding * (reach + Norm(around.center)));
    }
    return around;
  }

  // The joints of one chain down to what carries both, then those of the other one upwards.
  static std::vector<std::size_t> Between(const std::vector<std::size_t>& a,
                                          const std::vector<std::size_t>& b) {
    const auto [end_a, end_b] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    std::vector<std::size_t> between(a.rbegin(), std::make_reverse_iterator(end_a));
    between.insert(between.end(), end_b, b.end());
    return between;
  }

  std::unique_ptr<Kinematics> kinematics_;
  std::unique_ptr<FrameSweep> sweep_;
  std::vector<MovingJoint> joints_;
  // Those that a ball is around stand side by side.
  std::vector<Ball> balls_;
  std::vector<std::size_t> roots_;
  std::vector<BallPair> pairs_;
  // Of the frames with spheres.
  std::vector<kavo::internal::ObstacleSet> allowed_;
  // Of the base, then of each joint: the joints that carry it, itself last.
  std::vector<std::vector<std::size_t>> chains_;
  std::vector<std::vector<std::size_t>> linkages_;
  double largest_offset_ = 0.0;
};

class Prover {
 public:
  using Verdict = PathProof::Verdict;

  Prover(const RobotDescription& robot, const WorldView& world_view, const std::vector<Eigen::VectorXd>& path,
         const PathProofOptions& options, const StopCondition& stop_condition)
      : limits_(ExtractJointLimits(&robot)),
        // `ExtractJointLimits` has refused any other kind.
        snapshot_(kavo::internal::SnapshotOf(world_view)),
        arm_(dynamic_cast<const RobotDescriptionInternal&>(robot), *snapshot_),
        world_view_(world_view),
        path_(path),
        options_(options),
        stop_condition_(stop_condition),
        axes_(arm_.Joints().size()),
        reaches_(arm_.Joints().size()),
        balls_(arm_.Balls().size()),
        moves_(arm_.Balls().size() * arm_.Joints().size()) {}

  PathProof Run() {
    CheckLimits();
    if (proof_.bad) {
      proof_.verdict = Verdict::kBeyondLimits;
      return proof_;
    }
    const Open all{arm_.Roots(), arm_.Pairs()};
    // The waypoints first: what is found there spares much of the search for the smallest clearance.
    for (std::size_t i = 0; i < path_.size() && !end_; ++i) {
      LookAt(PlaceOfWaypoint(i), 0.0, all);
    }
    for (std::size_t i = 0; i + 1 < path_.size() && !end_; ++i) {
      segment_ = i;
      num_bounds_ = 0;
      Prove(0.0, 1.0, all);
    }
    if (proof_.clearance) {
      proof_.clearance->obstacle_name = world_view_.name(proof_.clearance->obstacle);
    }
    proof_.verdict = end_.value_or(Verdict::kFree);
    if (IsRefused()) {
      proof_.verdict = smallest_ <= 0.0 ? Verdict::kTouches : Verdict::kTooNear;
      if (nearest_.fault.contact) {
        nearest_.fault.contact->obstacle_name = proof_.clearance->obstacle_name;
      }
      proof_.bad = nearest_;
    }
    return proof_;
  }

 private:
  // What is not proven yet on a part of a segment: indices of balls, for the obstacles, and pairs of them.
  struct Open {
    std::vector<std::size_t> balls;
    std::vector<BallPair> pairs;
  };

  // A ball where the robot was placed last.
  struct PlacedBall {
    std::uint64_t placement = 0;
    Eigen::Vector3d center;
  };

  PathPlace PlaceOfWaypoint(std::size_t i) const {
    return i == 0 ? PathPlace{0, 0.0, path_[0]} : PathPlace{i - 1, 1.0, path_[i]};
  }

  // Limits bound each coordinate by itself, so that a segment is within them if its ends are.
  void CheckLimits() {
    for (std::size_t w = 0; w < path_.size(); ++w) {
      for (std::size_t i = 0; i < limits_.size(); ++i) {
        const double value = path_[w][static_cast<Eigen::Index>(i)];
        const auto [lower, upper] = limits_[i];
        if (!proof_.bad && !(lower <= value && value <= upper && std::isfinite(value))) {
          proof_.bad = {PlaceOfWaypoint(w), {}};
          proof_.bad->fault.limit = {i, value, lower, upper};
        }
        const double distance = std::min(value - lower, upper - value);
        if (std::isfinite(distance) && (!proof_.limit_margin || distance < proof_.limit_margin->distance)) {
          proof_.limit_margin = {distance, i, PlaceOfWaypoint(w)};
        }
      }
    }
  }

  void Prove(double begin, double end, const Open& open) {
    const double middle = begin + 0.5 * (end - begin);
    if (!(begin < middle && middle < end) || num_bounds_ > options_.max_num_bounds) {
      end_ = Verdict::kUndecided;
      return;
    }
    const Eigen::VectorXd& from = path_[segment_];
    const Open still_open =
        LookAt({segment_, middle, from + (path_[segment_ + 1] - from) * middle}, 0.5 * (end - begin), open);
    if (!still_open.balls.empty() || !still_open.pairs.empty()) {
      for (const auto& [half_begin, half_end] : {std::pair(begin, middle), std::pair(middle, end)}) {
        if (!end_) {
          Prove(half_begin, half_end, still_open);
        }
      }
    }
  }

  // Measures the gaps at a place. Returns what may come nearer, or so near that it is not free, within a part
  // of the segment around it.
  Open LookAt(const PathPlace& place, double half_width, const Open& open) {
    Open still_open;
    if (stop_condition_ && stop_condition_()) {
      end_ = Verdict::kStopped;
      return still_open;
    }
    PlaceRobot(place, half_width);
    for (const std::size_t ball : open.balls) {
      LookAtBall(ball, place, still_open);
    }
    for (const BallPair& pair : open.pairs) {
      LookAtPair(pair, place, still_open);
    }
    return still_open;
  }

  void LookAtBall(std::size_t index, const PathPlace& place, Open& still_open) {
    if (end_) {
      return;
    }
    ++num_bounds_;
    const Ball& ball = arm_.Balls()[index];
    const Eigen::Vector3d& center = PlaceBall(index);
    if (!center.allFinite()) {
      GiveUpOn(ball, place);
      return;
    }
    const auto nearest = snapshot_->nearestObstacle(center, ball.allowed);
    if (!nearest) {
      return;
    }
    const double gap = nearest->distance - ball.padded_radius;
    const double bound = gap - Travel(index) - kRounding * (length_ + std::fabs(nearest->distance));
    if (ball.HasParts()) {
      if (!AreSettled(bound, proof_.clearance)) {
        for (std::size_t part = ball.first_part; part < ball.end_part; ++part) {
          LookAtBall(part, place, still_open);
        }
      }
      return;
    }
    if (!proof_.clearance || gap < proof_.clearance->distance) {
      const std::string& frame = arm_.FrameName(ball);
      proof_.clearance = {gap, frame, nearest->obstacle, {}, place};
      if (ConfigurationFault* const fault = NoteSmallest(gap, place)) {
        fault->contact = {frame, ball.index, center, ball.padded_radius, nearest->obstacle, {}, -gap};
      }
    }
    if (!IsSettled(bound, proof_.clearance->distance)) {
      still_open.balls.push_back(index);
    }
  }

  void LookAtPair(const BallPair& pair, const PathPlace& place, Open& still_open) {
    if (end_) {
      return;
    }
    ++num_bounds_;
    const Ball& a = arm_.Balls()[pair.a];
    const Ball& b = arm_.Balls()[pair.b];
    const double distance = Norm(PlaceBall(pair.a) - PlaceBall(pair.b));
    if (!std::isfinite(distance)) {
      GiveUpOn(a, place);
      return;
    }
    const double gap = distance - a.sphere.radius - b.sphere.radius;
    const double bound = gap - Travel(pair) - kRounding * length_;
    if (a.HasParts() || b.HasParts()) {
      if (!AreSettled(bound, proof_.self_clearance)) {
        const bool of_a = a.HasParts() && (!b.HasParts() || a.sphere.radius >= b.sphere.radius);
        const Ball& larger = of_a ? a : b;
        for (std::size_t part = larger.first_part; part < larger.end_part; ++part) {
          LookAtPair({of_a ? part : pair.a, of_a ? pair.b : part, pair.joints}, place, still_open);
        }
      }
      return;
    }
    if (!proof_.self_clearance || gap < proof_.self_clearance->distance) {
      proof_.self_clearance = {gap, {arm_.FrameName(a), arm_.FrameName(b)}, place};
      if (ConfigurationFault* const fault = NoteSmallest(gap, place)) {
        fault->self_contact = {{arm_.FrameName(a), arm_.FrameName(b)}, {a.index, b.index}, -gap};
      }
    }
    if (!IsSettled(bound, proof_.self_clearance->distance)) {
      still_open.pairs.push_back(pair);
    }
  }

  // What is wrong at the place of the smallest gap so far, for the caller to fill in; null if it was not
  // that.
  ConfigurationFault* NoteSmallest(double gap, const PathPlace& place) {
    if (gap >= smallest_) {
      return nullptr;
    }
    smallest_ = gap;
    nearest_ = {place, {}};
    return &nearest_.fault;
  }

  void GiveUpOn(const Ball& ball, const PathPlace& place) {
    end_ = Verdict::kUndecided;
    proof_.bad = {place, {}};
    proof_.bad->fault.unplaced_frame = arm_.FrameName(ball);
  }

  bool IsRefused() const { return smallest_ < options_.least_clearance; }

  // Whether a part with such a lower bound on a gap is free (unless the path is known not to be) and cannot
  // lower the smallest clearance by more than the tolerance.
  bool IsSettled(double bound, double smallest) const {
    return (bound > 0.0 || IsRefused()) && bound >= smallest - options_.tolerance;
  }

  // The same for all parts of a ball, from a bound on their gaps. Where they are within an obstacle that
  // bound means nothing.
  template <class Clearance>
  bool AreSettled(double bound, const std::optional<Clearance>& clearance) const {
    return bound > 0.0 && clearance && IsSettled(bound, clearance->distance);
  }

  // Also works out how far each joint moves things within half the width of a part of the segment: by the
  // distance from its axis times the chord of its turn, which is no longer than the arc, nor than the
  // diameter; or by its slide.
  void PlaceRobot(const PathPlace& place, double half_width) {
    ++proof_.num_placements;
    frames_ = &arm_.Place(place.configuration);
    length_ = 0.0;
    for (const math::RigidTransform& frame : *frames_) {
      length_ = std::max(length_, Norm(frame.translation));
    }
    length_ += arm_.LargestOffset();
    const bool moves = half_width > 0.0;
    const Eigen::VectorXd& from = path_[place.segment];
    const Eigen::VectorXd& to = path_[place.segment + (moves ? 1 : 0)];
    for (std::size_t j = 0; j < arm_.Joints().size(); ++j) {
      const MovingJoint& joint = arm_.Joints()[j];
      const double a = from[joint.coordinate];
      const double b = to[joint.coordinate];
      // Where nothing moves there is nothing to round either. Elsewhere the configuration of the middle is a
      // few units in the last place off: far out, those of a continuous joint are whole turns.
      constexpr double kUnit = std::numeric_limits<double>::epsilon();
      const double rounding = kUnit * (4.0 * joint.multiplier * (std::fabs(a) + std::fabs(b)) + joint.offset);
      const double reach = a == b ? 0.0 : joint.multiplier * (half_width * std::fabs(b - a)) + 2.0 * rounding;
      reaches_[j] = joint.slides ? reach : std::min(reach, 2.0);
      axes_[j] = math::Rotate((*frames_)[joint.frame].rotation, joint.axis);
    }
  }

  // Its centre. Works out by how much each joint moves it, those that do not carry it too: what they carry
  // then moves relative to it.
  const Eigen::Vector3d& PlaceBall(std::size_t i) {
    PlacedBall& placed = balls_[i];
    if (placed.placement != proof_.num_placements) {
      placed.placement = proof_.num_placements;
      const Ball& ball = arm_.Balls()[i];
      placed.center = (*frames_)[ball.frame] * ball.sphere.center;
      double* const moves = moves_.data() + i * reaches_.size();
      for (std::size_t j = 0; j < reaches_.size(); ++j) {
        const MovingJoint& joint = arm_.Joints()[j];
        moves[j] = reaches_[j];
        if (!joint.slides && moves[j] > 0.0) {
          moves[j] *=
              Norm(axes_[j].cross(placed.center - (*frames_)[joint.frame].translation)) + ball.Extent();
        }
      }
    }
    return placed.center;
  }

  // How far a ball may move, from the base on: each joint finds it as far from its axis as in the middle.
  double Travel(std::size_t ball) const {
    const double* const moves = moves_.data() + ball * reaches_.size();
    double travel = 0.0;
    for (const std::size_t j : *arm_.Balls()[ball].joints) {
      travel += moves[j];
    }
    return travel;
  }

  // How far two balls may move relative to each other, seen from the place between them from where it is
  // least: the joints on one side of it move the one, the others the other.
  double Travel(const BallPair& pair) const {
    const double* const moves_a = moves_.data() + pair.a * reaches_.size();
    const double* const moves_b = moves_.data() + pair.b * reaches_.size();
    double travel = 0.0;
    for (const std::size_t j : *pair.joints) {
      travel += moves_b[j];
    }
    double least = travel;
    for (const std::size_t j : *pair.joints) {
      travel += moves_a[j] - moves_b[j];
      least = std::min(least, travel);
    }
    return least;
  }

  std::vector<kinematics::JointLimits> limits_;
  std::shared_ptr<const kavo::internal::Snapshot> snapshot_;
  Arm arm_;
  WorldView world_view_;
  const std::vector<Eigen::VectorXd>& path_;
  const PathProofOptions& options_;
  const StopCondition& stop_condition_;

  std::size_t segment_ = 0;
  // Of the segment.
  std::uint64_t num_bounds_ = 0;
  // The smallest gap so far, of both kinds, and what would be wrong there.
  double smallest_ = std::numeric_limits<double>::infinity();
  PathCheck::Bad nearest_;
  // Why the proof ended early.
  std::optional<Verdict> end_;
  PathProof proof_;

  // The robot where it was placed last: its frames, the largest length in them, and for each joint its axis
  // and how far it moves what is a metre from the axis (or anything, if it slides).
  const std::vector<math::RigidTransform>* frames_ = nullptr;
  double length_ = 0.0;
  std::vector<Eigen::Vector3d> axes_;
  std::vector<double> reaches_;
  std::vector<PlacedBall> balls_;
  // By ball, then joint.
  std::vector<double> moves_;
};

}  // namespace

const char* ToString(PathProof::Verdict verdict) {
  switch (verdict) {
    case PathProof::Verdict::kFree:
      return "proven free";
    case PathProof::Verdict::kTouches:
      return "touches";
    case PathProof::Verdict::kTooNear:
      return "comes too near";
    case PathProof::Verdict::kBeyondLimits:
      return "beyond limits";
    case PathProof::Verdict::kUndecided:
      return "undecided";
    case PathProof::Verdict::kStopped:
      return "stopped";
  }
  return "unknown";
}

PathProof ProvePath(const RobotDescription& robot, const WorldView& world_view,
                    const std::vector<Eigen::VectorXd>& path, const PathProofOptions& options,
                    const StopCondition& stop_condition) {
  KAVO_CHECK(!path.empty(), kFile, 150) << "There is no configuration to look at.";
  KAVO_CHECK(options.least_clearance > 0.0 && options.tolerance > 0.0, kFile, 151)
      << "The least clearance [" << options.least_clearance << "] and the tolerance [" << options.tolerance
      << "] must be positive.";
  for (std::size_t i = 0; i < path.size(); ++i) {
    KAVO_CHECK(static_cast<std::size_t>(path[i].size()) == robot.numCSpaceCoords(), kFile, 153)
        << "Waypoint " << i << " has " << path[i].size() << " coordinates, the robot "
        << robot.numCSpaceCoords() << ".";
  }
  return Prover(robot, world_view, path, options, stop_condition).Run();
}

}  // namespace kavo::planning
