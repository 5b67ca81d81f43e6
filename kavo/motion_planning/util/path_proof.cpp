#include "kavo/motion_planning/util/path_proof.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/math/bezier_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/util/proof_arm_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/world/ball_model_internal.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/path_proof";

using internal::Ball;
using internal::BallPair;
using internal::MovingJoint;
using internal::Norm;

class Prover {
 public:
  using Verdict = PathProof::Verdict;

  // \param pieces Curves by their control points, one after the other: two for a straight one, one where the robot
  //     stands.
  Prover(const RobotDescription& robot, const WorldView& world_view,
         const std::vector<Eigen::MatrixXd>& pieces, const PathProofOptions& options,
         const StopCondition& stop_condition)
      : limits_(ExtractJointLimits(&robot)),
        // `ExtractJointLimits` has refused any other kind.
        snapshot_(kavo::internal::SnapshotOf(world_view)),
        arm_(dynamic_cast<const RobotDescriptionInternal&>(robot), *snapshot_),
        world_view_(world_view),
        pieces_(pieces),
        options_(options),
        stop_condition_(stop_condition),
        spreads_(robot.numCSpaceCoords()),
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
    for (const PathPlace& waypoint : Waypoints()) {
      if (!end_) {
        LookAt(waypoint, nullptr, all);
      }
    }
    for (std::size_t i = 0; i < pieces_.size() && !end_; ++i) {
      if (pieces_[i].cols() > 1) {
        segment_ = i;
        num_bounds_ = 0;
        Prove({0.0, 1.0, pieces_[i].cols() > 2 ? pieces_[i] : Eigen::MatrixXd(), 0}, all);
      }
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
  // A part of a segment: the range of its parameter, its own control points (none where it is straight) and
  // how often the segment was halved for it.
  struct Part {
    double begin;
    double end;
    Eigen::MatrixXd points;
    int depth;
  };

  // How far a coordinate may be from where it is in the middle of a part, and the size of the numbers that
  // this comes from, such that it is off by four units in the last place of that at most.
  struct Spread {
    double distance = 0.0;
    double size = 0.0;
    bool moves = false;
  };

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

  std::vector<PathPlace> Waypoints() const {
    std::vector<PathPlace> waypoints = {{0, 0.0, pieces_.front().col(0)}};
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      if (const Eigen::Index last = pieces_[i].cols() - 1; last > 0) {
        waypoints.push_back({i, 1.0, pieces_[i].col(last)});
      }
    }
    return waypoints;
  }

  // Limits bound each coordinate by itself, so that a straight segment is within them if its ends are.
  void CheckLimits() {
    for (const PathPlace& waypoint : Waypoints()) {
      for (std::size_t i = 0; i < limits_.size(); ++i) {
        const double value = waypoint.configuration[static_cast<Eigen::Index>(i)];
        const auto [lower, upper] = limits_[i];
        if (!proof_.bad && !(lower <= value && value <= upper && std::isfinite(value))) {
          Refuse(waypoint, i, value);
        }
        NoteLimit(i, value, waypoint);
      }
    }
    for (std::size_t piece = 0; piece < pieces_.size() && !proof_.bad; ++piece) {
      for (std::size_t i = 0; i < limits_.size() && pieces_[piece].cols() > 2 && !proof_.bad; ++i) {
        CheckCurve(piece, i);
      }
    }
  }

  void Refuse(const PathPlace& place, std::size_t coordinate, double value) {
    proof_.bad = {place, {}};
    proof_.bad->fault.limit = {coordinate, value, limits_[coordinate].min, limits_[coordinate].max};
  }

  void NoteLimit(std::size_t coordinate, double value, const PathPlace& place) {
    const double distance = MarginOf(coordinate, value);
    if (std::isfinite(distance) && (!proof_.limit_margin || distance < proof_.limit_margin->distance)) {
      proof_.limit_margin = {distance, coordinate, place};
    }
  }

  double MarginOf(std::size_t coordinate, double value) const {
    return std::min(value - limits_[coordinate].min, limits_[coordinate].max - value);
  }

  // A coordinate of a curve is within limits if it is in its control points; where one of them is beyond, or
  // nearer than anything so far, it is looked at on halves, which converges with the square of their length.
  void CheckCurve(std::size_t piece, std::size_t coordinate) {
    const auto row = static_cast<Eigen::Index>(coordinate);
    const Eigen::MatrixXd values = pieces_[piece].row(row);
    const double size = values.cwiseAbs().maxCoeff();
    if (!values.allFinite()) {
      Refuse({piece, 0.0, pieces_[piece].col(0)}, coordinate, values.sum());
      return;
    }
    const double rounding = 1e-12 * (1.0 + size);
    const auto look = [&](double begin, double end, const Eigen::MatrixXd& part,
                          const auto& recurse) -> void {
      double margin = std::numeric_limits<double>::infinity();
      for (Eigen::Index i = 0; i < part.cols(); ++i) {
        margin = std::min(margin, MarginOf(coordinate, part(0, i)));
      }
      const double middle = begin + 0.5 * (end - begin);
      if (std::isfinite(margin) && proof_.limit_margin && margin < proof_.limit_margin->distance - rounding &&
          begin < middle && middle < end) {
        const PathPlace place{piece, middle, math::BezierPoint(pieces_[piece], middle)};
        NoteLimit(coordinate, place.configuration[row], place);
        const auto [first, second] = math::SplitBezier(part, 0.5);
        recurse(begin, middle, first, recurse);
        recurse(middle, end, second, recurse);
      }
    };
    look(0.0, 1.0, values, look);
    if (proof_.limit_margin && proof_.limit_margin->coordinate == coordinate &&
        proof_.limit_margin->distance < -rounding) {
      const PathPlace& place = proof_.limit_margin->place;
      Refuse(place, coordinate, place.configuration[row]);
    }
  }

  void Prove(const Part& part, const Open& open) {
    const double middle = part.begin + 0.5 * (part.end - part.begin);
    if (!(part.begin < middle && middle < part.end) || num_bounds_ > options_.max_num_bounds) {
      end_ = Verdict::kUndecided;
      return;
    }
    const Open still_open =
        LookAt({segment_, middle, math::BezierPoint(pieces_[segment_], middle)}, &part, open);
    if (!still_open.balls.empty() || !still_open.pairs.empty()) {
      std::pair<Eigen::MatrixXd, Eigen::MatrixXd> halves;
      if (part.points.cols() > 0) {
        halves = math::SplitBezier(part.points, 0.5);
      }
      Prove({part.begin, middle, std::move(halves.first), part.depth + 1}, still_open);
      if (!end_) {
        Prove({middle, part.end, std::move(halves.second), part.depth + 1}, still_open);
      }
    }
  }

  // Measures the gaps at a place. Returns what may come nearer, or so near that it is not free, within a part
  // of the segment around it, if it is not one where the robot stands (null).
  Open LookAt(const PathPlace& place, const Part* part, const Open& open) {
    Open still_open;
    if (stop_condition_ && stop_condition_()) {
      end_ = Verdict::kStopped;
      return still_open;
    }
    PlaceRobot(place, part);
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
    const double bound =
        gap - Travel(index) - internal::kProofRounding * (length_ + std::fabs(nearest->distance));
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
    const double bound = gap - Travel(pair) - internal::kProofRounding * length_;
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

  // On a straight segment in closed form. A curve is in the hull of its control points; those of a part come
  // from halving, each step of which is off by a unit in the last place.
  void FindSpreads(const PathPlace& place, const Part* part) {
    const Eigen::MatrixXd& points = pieces_[place.segment];
    const Eigen::Index degree = points.cols() - 1;
    for (std::size_t i = 0; i < spreads_.size(); ++i) {
      const auto row = static_cast<Eigen::Index>(i);
      Spread& spread = spreads_[i];
      if (part == nullptr) {
        spread = {};
      } else if (degree == 1) {
        const double a = points(row, 0);
        const double b = points(row, 1);
        spread = {0.5 * (part->end - part->begin) * std::fabs(b - a), std::fabs(a) + std::fabs(b), a != b};
      } else {
        spread.moves = (points.row(row).array() != points(row, 0)).any();
        spread.distance = (part->points.row(row).array() - place.configuration[row]).abs().maxCoeff();
        spread.size =
            points.row(row).cwiseAbs().maxCoeff() * static_cast<double>(2 + degree * (part->depth + 2));
      }
    }
  }

  // Also works out how far each joint moves things within a part of the segment: by the distance from its
  // axis times the chord of its turn, which is no longer than the arc, nor than the diameter; or by its
  // slide.
  void PlaceRobot(const PathPlace& place, const Part* part) {
    ++proof_.num_placements;
    frames_ = &arm_.Place(place.configuration);
    length_ = 0.0;
    for (const math::RigidTransform& frame : *frames_) {
      length_ = std::max(length_, Norm(frame.translation));
    }
    length_ += arm_.LargestOffset();
    FindSpreads(place, part);
    for (std::size_t j = 0; j < arm_.Joints().size(); ++j) {
      const MovingJoint& joint = arm_.Joints()[j];
      const Spread& spread = spreads_[static_cast<std::size_t>(joint.coordinate)];
      // Where nothing moves there is nothing to round either. Elsewhere the configuration of the middle is a
      // few units in the last place off: far out, those of a continuous joint are whole turns.
      constexpr double kUnit = std::numeric_limits<double>::epsilon();
      const double rounding = kUnit * (4.0 * joint.multiplier * spread.size + joint.offset);
      const double reach = spread.moves ? joint.multiplier * spread.distance + 2.0 * rounding : 0.0;
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
  internal::ProofArm arm_;
  WorldView world_view_;
  const std::vector<Eigen::MatrixXd>& pieces_;
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
  // By coordinate.
  std::vector<Spread> spreads_;
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
  for (std::size_t i = 0; i < path.size(); ++i) {
    KAVO_CHECK(static_cast<std::size_t>(path[i].size()) == robot.numCSpaceCoords(), kFile, 153)
        << "Waypoint " << i << " has " << path[i].size() << " coordinates, the robot "
        << robot.numCSpaceCoords() << ".";
  }
  std::vector<Eigen::MatrixXd> pieces;
  if (path.size() == 1) {
    pieces.emplace_back(path.front());
  }
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    Eigen::MatrixXd& piece = pieces.emplace_back(path[i].size(), 2);
    piece.col(0) = path[i];
    piece.col(1) = path[i + 1];
  }
  return ProveCurves(robot, world_view, pieces, options, stop_condition);
}

PathProof ProveCurves(const RobotDescription& robot, const WorldView& world_view,
                      const std::vector<Eigen::MatrixXd>& pieces, const PathProofOptions& options,
                      const StopCondition& stop_condition) {
  KAVO_CHECK(options.least_clearance > 0.0 && options.tolerance > 0.0, kFile, 151)
      << "The least clearance [" << options.least_clearance << "] and the tolerance [" << options.tolerance
      << "] must be positive.";
  KAVO_CHECK(!pieces.empty(), kFile, 154) << "There is no curve to look at.";
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    KAVO_CHECK(static_cast<std::size_t>(pieces[i].rows()) == robot.numCSpaceCoords() && pieces[i].cols() > 0,
               kFile, 155)
        << "Piece " << i << " has " << pieces[i].cols() << " control points of " << pieces[i].rows()
        << " coordinates, the robot " << robot.numCSpaceCoords() << ".";
    // What is not finite is refused later.
    KAVO_CHECK(i == 0 || !((pieces[i].col(0) - pieces[i - 1].rightCols<1>()).array().abs() > 1e-9).any(),
               kFile, 156)
        << "Piece " << i << " does not begin where the one before ends.";
  }
  return Prover(robot, world_view, pieces, options, stop_condition).Run();
}

}  // namespace kavo::planning
