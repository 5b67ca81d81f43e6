#include "kavo/motion_planning/environment/motion_proof_internal.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/math/bezier_internal.h"
#include "kavo/math/constants_internal.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning::internal {

namespace {

// The first placements are no farther apart than this in c-space: closer ones cost more than they save.
constexpr double kLargestSpacing = 0.5;
constexpr double kNumIntervals = kavo::internal::BallModel::kNumIntervals;
// An open run is divided so that each of its intervals becomes seven thirds: finer blocks decide more at
// once, but most of what is open needs little more.
constexpr std::size_t kIntervalsToBlock = 3;
// Metres. Below the first, lanes are not told from what rounding may cost in them; below the second nobody
// would miss what is not proven.
constexpr double kLeastInLanes = 2e-4;
constexpr double kLeastEnlargement = 1e-5;
// A ball without a radius may need placements as close as the second of these.
constexpr std::uint64_t kMostPlacements = 100000;
constexpr std::size_t kNumContacts = 12;
// What has not touched for so long is forgotten.
constexpr int kMostMisses = 30;
// Far above what rounding costs in a distance, for a robot and a world of ordinary size.
constexpr double kToSpare = 1.0 + 1e-9;

}  // namespace

MotionProof::MotionProof(RobotBalls& balls, kinematics::internal::LaneSweep& lane_sweep, FrameSweep& sweep,
                         std::vector<RobotBalls::Frame> frames)
    : balls_(balls), lane_sweep_(lane_sweep), sweep_(sweep), frames_(std::move(frames)) {}

bool MotionProof::IsFree(const WorldView& view, const std::optional<math::RigidTransform>& base,
                         const Eigen::Ref<const Eigen::VectorXd>& q_start,
                         const Eigen::Ref<const Eigen::VectorXd>& q_end) {
  curve_.resize(0, 0);
  q_start_ = q_start.data();
  way_ = q_end - q_start;
  return Prove(view, base);
}

bool MotionProof::IsFree(const WorldView& view, const std::optional<math::RigidTransform>& base,
                         const Eigen::Ref<const Eigen::MatrixXd>& control_points) {
  curve_ = control_points;
  way_ = math::BezierBound(math::BezierDerivative(curve_));
  return Prove(view, base);
}

bool MotionProof::Prove(const WorldView& view, const std::optional<math::RigidTransform>& base) {
  view_ = &view;
  base_ = &base;
  most_placements_ = work_.num_placements + kMostPlacements;
  double squared_length = 0.0;
  for (const double distance : way_) {
    squared_length += distance * distance;
  }
  const double length = std::sqrt(squared_length);
  const double num_blocks =
      length <= kLargestSpacing * kNumIntervals ? 1.0 : std::ceil(length / (kLargestSpacing * kNumIntervals));
  if (!(num_blocks * kNumIntervals < static_cast<double>(kMostPlacements))) {
    return false;
  }
  const double spacing = 1.0 / (num_blocks * kNumIntervals);
  for (double block = 0.0; block < num_blocks; block += 1.0) {
    const double begin = block / num_blocks;
    questions_.clear();
    if (!Place(begin, spacing)) {
      return ProveAllExactly(num_blocks * kNumIntervals);
    }
    if (TouchesAsBefore()) {
      return false;
    }
    if (block == 0.0) {
      GetRates();
      balls_.model.startMotion(rates_.data(), IsCurved() ? bends_.data() : nullptr,
                               static_cast<float>(kClearance));
    }
    lane_sweep_.placeAll();
    switch (balls_.model.askAll(view, questions_)) {
      case Verdict::kUnknown:
        return ProveAllExactly(num_blocks * kNumIntervals);
      case Verdict::kContact:
        Remember(balls_.model.contact());
        return false;
      case Verdict::kOpen:
        break;
    }
    if (!Divide(begin, spacing, 0)) {
      return false;
    }
  }
  return true;
}

void MotionProof::GetRates() {
  balls_.reach.getRates(way_, rates_);
  if (IsCurved()) {
    balls_.reach.getRates(math::BezierBound(math::BezierDerivative(math::BezierDerivative(curve_))), bends_);
  }
}

bool MotionProof::Place(double begin, double spacing) {
  work_.num_placements += math::kNumLanes;
  double times[math::kNumLanes];
  for (std::size_t i = 0; i < math::kNumLanes; ++i) {
    times[i] = begin + static_cast<double>(i) * spacing;
  }
  balls_.model.startBlock(static_cast<float>(spacing) * (1.0f + 0x1p-20f));
  // Off the motion by rounding only, which the clearance has room for; so is the end.
  if (IsCurved()) {
    return MoveAlongCurve(times);
  }
  return lane_sweep_.moveAlong(q_start_, way_.data(), times) == 0;
}

bool MotionProof::MoveAlongCurve(const double (&times)[math::kNumLanes]) {
  coordinates_.resize(static_cast<std::size_t>(curve_.rows()) * math::kNumLanes);
  for (Eigen::Index c = 0; c < curve_.rows(); ++c) {
    math::GetBezierCoordinate(curve_, c, times,
                              coordinates_.data() + static_cast<std::size_t>(c) * math::kNumLanes);
  }
  return lane_sweep_.move(coordinates_.data(), math::kNumLanes) == 0;
}

int MotionProof::LastSlotOf(const Question& question) const {
  const auto [a, b] = balls_.model.bundlesOf(question);
  return std::max(SlotOf(a), SlotOf(b));
}

// What touched a moment ago is likely to touch again, and to ask costs little beside all there is to ask.
bool MotionProof::TouchesAsBefore() {
  const auto& snapshot = kavo::internal::SnapshotOf(*view_);
  if (contacts_snapshot_ != snapshot) {
    // What the questions name is of that snapshot.
    contacts_snapshot_ = snapshot;
    contacts_.clear();
  }
  for (std::size_t i = 0; i < contacts_.size(); ++i) {
    Contact& contact = contacts_[i];
    lane_sweep_.placeUpTo(contact.last_slot);
    if (balls_.model.touches(*view_, contact.question)) {
      contact.num_misses = 0;
      std::rotate(contacts_.begin(), contacts_.begin() + static_cast<std::ptrdiff_t>(i),
                  contacts_.begin() + static_cast<std::ptrdiff_t>(i) + 1);
      return true;
    }
    ++contact.num_misses;
  }
  while (!contacts_.empty() && contacts_.back().num_misses >= kMostMisses) {
    contacts_.pop_back();
  }
  return false;
}

void MotionProof::Remember(const Question& question) {
  if (contacts_.size() == kNumContacts) {
    contacts_.pop_back();
  }
  contacts_.insert(contacts_.begin(), {question, LastSlotOf(question), 0});
}

// Goes on with the questions from `first` on, which the block of placements has left open.
bool MotionProof::Divide(double begin, double spacing, std::size_t first) {
  const std::size_t last = questions_.size();
  std::uint32_t open = 0;
  for (std::size_t i = first; i < last; ++i) {
    open |= questions_[i].intervals;
  }
  while (open != 0) {
    int first_interval = 0;
    while (((open >> first_interval) & 1u) == 0) {
      ++first_interval;
    }
    int end_interval = first_interval;
    while (((open >> end_interval) & 1u) != 0) {
      ++end_interval;
    }
    const std::uint32_t run = (1u << end_interval) - (1u << first_interval);
    open &= ~run;
    float enlargement = 0.0f;
    for (std::size_t i = first; i < last; ++i) {
      if ((questions_[i].intervals & run) != 0) {
        questions_.push_back(Question(questions_[i]));
        enlargement =
            std::max(enlargement, balls_.model.enlargement(questions_[i], static_cast<float>(spacing)));
      }
    }
    ++work_.num_divisions;
    const double run_begin = begin + first_interval * spacing;
    const double run_end = begin + end_interval * spacing;
    bool is_free = false;
    if (enlargement > static_cast<float>(kLeastInLanes)) {
      is_free = ProveRun(run_begin, run_end, static_cast<std::size_t>(end_interval - first_interval), last);
    } else {
      items_.clear();
      for (std::size_t i = last; i < questions_.size(); ++i) {
        items_.push_back(MakeItem(questions_[i]));
      }
      is_free = ProveExactly(run_begin, run_end, 0);
    }
    if (!is_free) {
      return false;
    }
    questions_.resize(last);
  }
  return true;
}

// Asks the questions from `first` on of finer blocks over a run of intervals.
bool MotionProof::ProveRun(double begin, double end, std::size_t num_intervals, std::size_t first) {
  const std::size_t last = questions_.size();
  const std::size_t num_blocks = (num_intervals + kIntervalsToBlock - 1) / kIntervalsToBlock;
  const double spacing = (end - begin) / (static_cast<double>(num_blocks) * kNumIntervals);
  for (std::size_t block = 0; block < num_blocks; ++block) {
    if (work_.num_placements >= most_placements_) {
      return false;
    }
    const double block_begin = begin + static_cast<double>(block) * kNumIntervals * spacing;
    if (!Place(block_begin, spacing)) {
      return false;
    }
    for (std::size_t i = first; i < last; ++i) {
      Question question = questions_[i];
      lane_sweep_.placeUpTo(LastSlotOf(question));
      const Verdict verdict = balls_.model.ask(*view_, question);
      if (verdict == Verdict::kContact) {
        Remember(question);
      }
      if (verdict != Verdict::kOpen) {
        return false;
      }
      if (question.intervals != 0) {
        questions_.push_back(question);
      }
    }
    if (!Divide(block_begin, spacing, last)) {
      return false;
    }
    questions_.resize(last);
  }
  return true;
}

bool MotionProof::ProveAllExactly(double num_parts) {
  GetRates();
  items_.clear();
  for (std::size_t i = 0; i < balls_.bundles.size(); ++i) {
    if (SlotOf(i) >= 0) {
      items_.push_back(MakeItem({Question::Kind::kSolid, static_cast<std::uint32_t>(i), 0, 0}));
    }
  }
  for (std::size_t i = 0; i < balls_.bundle_pairs.size(); ++i) {
    items_.push_back(MakeItem({Question::Kind::kPair, 0, static_cast<std::uint32_t>(i), 0}));
  }
  const std::size_t num_items = items_.size();
  for (double part = 0.0; part < num_parts; part += 1.0) {
    if (!ProveExactly(part / num_parts, (part + 1.0) / num_parts, 0)) {
      return false;
    }
    items_.resize(num_items);
  }
  return true;
}

// Proves the items from `first` on, by halving. Where it fails it leaves more items behind.
bool MotionProof::ProveExactly(double begin, double end, std::size_t first) {
  if (work_.num_placements >= most_placements_) {
    return false;
  }
  const std::size_t last = items_.size();
  std::vector<Eigen::Vector3d> at_begin;
  std::vector<Eigen::Vector3d> at_end;
  PlaceExactly(begin, first, at_begin);
  PlaceExactly(end, first, at_end);
  std::size_t place = 0;
  double enlargement = 0.0;
  for (std::size_t i = first; i < last; ++i) {
    const Item item = items_[i];
    const std::optional<bool> is_free =
        DecideExactly(item, end - begin, &at_begin[place], &at_end[place], enlargement);
    if (is_free && !*is_free) {
      return false;
    }
    if (!is_free) {
      items_.push_back(item);
    }
    place += NumBalls(item.a) + (item.is_pair ? NumBalls(item.b) : 0);
  }
  if (items_.size() == last) {
    return true;
  }
  // Also where the way is endless.
  if (!(enlargement > kLeastEnlargement && enlargement < math::kInf)) {
    return false;
  }
  ++work_.num_divisions;
  const double middle = 0.5 * begin + 0.5 * end;
  const std::size_t num_items = items_.size();
  if (!ProveExactly(begin, middle, last)) {
    return false;
  }
  items_.resize(num_items);
  if (!ProveExactly(middle, end, last)) {
    return false;
  }
  items_.resize(last);
  return true;
}

// The centres of the balls of the items in the world, one item after the other.
void MotionProof::PlaceExactly(double t, std::size_t first, std::vector<Eigen::Vector3d>& centers) {
  ++work_.num_placements;
  q_.resize(way_.size());
  if (IsCurved()) {
    q_ = math::BezierPoint(curve_, t);
  } else {
    for (Eigen::Index c = 0; c < q_.size(); ++c) {
      q_[c] = q_start_[c] + t * way_[c];
    }
  }
  const std::vector<math::RigidTransform>& frames = sweep_.compute(q_);
  for (std::size_t i = first; i < items_.size(); ++i) {
    const std::size_t both[] = {items_[i].a, items_[i].b};
    for (std::size_t side = 0; side < (items_[i].is_pair ? 2 : 1); ++side) {
      const std::size_t bundle = both[side];
      const math::RigidTransform& frame = frames[balls_.bundles[bundle].frame];
      const math::RigidTransform pose = *base_ ? **base_ * frame : frame;
      for (std::size_t k = 0; k < NumBalls(bundle); ++k) {
        centers.push_back(pose * SphereOf(bundle, k).center);
      }
    }
  }
}

// Whether the balls of an item are free between two placements; empty where that is not decided.
// \param enlargement Grows to how far those reach that are not.
std::optional<bool> MotionProof::DecideExactly(const Item& item, double spacing, const Eigen::Vector3d* from,
                                               const Eigen::Vector3d* to, double& enlargement) const {
  bool is_decided = true;
  const std::size_t num_a = NumBalls(item.a);
  const std::size_t num_b = item.is_pair ? NumBalls(item.b) : 1;
  const RobotBalls::Bundle& bundle = balls_.bundles[item.a];
  const double padding = frames_[bundle.frame].padding;
  const auto& snapshot = *kavo::internal::SnapshotOf(*view_);
  for (std::size_t i = 0; i < num_a; ++i) {
    for (std::size_t k = 0; k < num_b; ++k) {
      const double radius =
          SphereOf(item.a, i).radius + (item.is_pair ? SphereOf(item.b, k).radius : padding);
      const double kept = radius + (item.is_pair ? 2.0 : 1.0) * kClearance;
      const double reach = item.bound.enlarged(kept, spacing) * kToSpare;
      const auto touches = [&](const Eigen::Vector3d* at, double within) {
        return item.is_pair ? !(math::Distance(at[i], at[num_a + k]) > within)
                            : snapshot.inCollision(at[i], within, bundle.except);
      };
      if (touches(from, reach) || touches(to, reach)) {
        if (touches(from, radius) || touches(to, radius)) {
          return false;
        }
        enlargement = std::max(enlargement, reach - kept);
        is_decided = false;
      }
    }
  }
  return is_decided ? std::optional(true) : std::nullopt;
}

MotionProof::Item MotionProof::MakeItem(const Question& question) const {
  const auto [a, b] = balls_.model.bundlesOf(question);
  Item item{a, b, question.kind == Question::Kind::kPair, {}};
  if (item.is_pair) {
    const auto& pair = balls_.bundle_pairs[question.object];
    AddMotion(pair.reaches_a, item.bound);
    AddMotion(pair.reaches_b, item.bound);
  } else {
    AddMotion(balls_.bundles[a].reaches, item.bound);
  }
  return item;
}

void MotionProof::AddMotion(const math::JointReaches& reaches, math::MotionBound& bound) const {
  math::AddMotion(reaches, rates_.data(), bound);
  if (IsCurved()) {
    math::AddBend(reaches, bends_.data(), bound);
  }
}

const math::Sphere& MotionProof::SphereOf(std::size_t bundle, std::size_t k) const {
  const RobotBalls::Bundle& balls = balls_.bundles[bundle];
  return frames_[balls.frame].spheres[balls.spheres[k]];
}

}  // namespace kavo::planning::internal
