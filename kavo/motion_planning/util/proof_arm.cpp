#include "kavo/motion_planning/util/proof_arm_internal.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace kavo::planning::internal {

namespace {

using Model = kinematics::Kinematics;

using BallIterator = std::vector<Ball>::iterator;

// Halves them across their widest direction, and the halves again.
void Split(BallIterator begin, BallIterator end, int times, std::vector<BallIterator>& cuts) {
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
math::Sphere Around(BallIterator begin, BallIterator end) {
  Eigen::Vector3d low = begin->sphere.center;
  Eigen::Vector3d high = low;
  for (auto ball = begin; ball != end; ++ball) {
    low = low.cwiseMin(ball->sphere.center);
    high = high.cwiseMax(ball->sphere.center);
  }
  math::Sphere around{0.5 * low + 0.5 * high, 0.0};
  for (auto ball = begin; ball != end; ++ball) {
    const double reach = Norm(ball->sphere.center - around.center) + ball->sphere.radius;
    around.radius = std::max(around.radius, reach + kProofRounding * (reach + Norm(around.center)));
  }
  return around;
}

// The joints of one chain down to what carries both, then those of the other one upwards.
std::vector<std::size_t> Between(const std::vector<std::size_t>& a, const std::vector<std::size_t>& b) {
  const auto [end_a, end_b] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  std::vector<std::size_t> between(a.rbegin(), std::make_reverse_iterator(end_a));
  between.insert(between.end(), end_b, b.end());
  return between;
}

}  // namespace

ProofArm::ProofArm(const RobotDescriptionInternal& robot, const kavo::internal::Snapshot& snapshot)
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

void ProofArm::FindJoints(const Model::Plan& plan) {
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

void ProofArm::FindBalls(const RobotDescriptionInternal& robot, const kavo::internal::Snapshot& snapshot,
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
void ProofArm::PutAround(BallIterator begin, BallIterator end, std::size_t place) {
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

}  // namespace kavo::planning::internal
