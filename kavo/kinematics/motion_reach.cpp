#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "kavo/kinematics/motion_reach_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"

namespace kavo::kinematics::internal {

namespace {

// Far above what rounding costs on the way along a robot, in double precision and to single precision.
constexpr double kToSpare = 1.0 + 1e-5;

float RoundedUp(double value) { return static_cast<float>(value * kToSpare); }

double Length(double x, double y, double z) { return std::sqrt(x * x + y * y + z * z); }

// The point before the transform.
Eigen::Vector3d Inverse(const math::RigidTransform& transform, const Eigen::Vector3d& point) {
  return math::Rotate(transform.rotation.transpose(), point - transform.translation);
}

}  // namespace

MotionReach::MotionReach(const Kinematics::Plan& plan, const std::vector<JointLimits>& limits)
    : steps_(plan.steps) {
  for (const Kinematics::Step& step : steps_) {
    const auto [min, max] = limits[static_cast<std::size_t>(step.coordinate)];
    if (std::isfinite(min) && std::isfinite(max)) {
      const double ends[2] = {step.value(min), step.value(max)};
      ranges_.push_back({0.5 * ends[0] + 0.5 * ends[1], std::fabs(0.5 * ends[1] - 0.5 * ends[0])});
    } else {
      ranges_.push_back({0.0, math::kInf});
    }
  }
}

math::JointReaches MotionReach::ofPoints(int slot, const std::vector<Eigen::Vector3d>& points) const {
  const std::vector<Passage> way = wayBetween(slot, -1);
  math::JointReaches reaches;
  for (const Eigen::Vector3d& point : points) {
    addReaches(way, point, reaches);
  }
  std::reverse(reaches.begin(), reaches.end());
  return reaches;
}

std::pair<math::JointReaches, math::JointReaches> MotionReach::ofDifferences(
    int slot_a, const std::vector<Eigen::Vector3d>& points_a, int slot_b,
    const std::vector<Eigen::Vector3d>& points_b) const {
  // How far a joint moves a point does not depend on the joints on its other side: one way along all of them
  // serves for every frame.
  const std::vector<Passage> way_from_a = wayBetween(slot_a, slot_b);
  math::JointReaches all_a;
  for (const Eigen::Vector3d& point : points_a) {
    addReaches(way_from_a, point, all_a);
  }
  const std::vector<Passage> way_from_b = wayBetween(slot_b, slot_a);
  math::JointReaches all_b;
  for (const Eigen::Vector3d& point : points_b) {
    addReaches(way_from_b, point, all_b);
  }
  const std::size_t num_joints = all_a.size();
  float sum = 0.0f;
  for (const math::JointReach& joint : all_b) {
    sum += joint.reach;
  }
  float least_sum = sum;
  std::size_t num_a = 0;
  for (std::size_t i = 0; i < num_joints; ++i) {
    sum += all_a[i].reach - all_b[num_joints - 1 - i].reach;
    if (sum < least_sum) {
      least_sum = sum;
      num_a = i + 1;
    }
  }
  all_a.resize(num_a);
  all_b.resize(num_joints - num_a);
  std::reverse(all_a.begin(), all_a.end());
  std::reverse(all_b.begin(), all_b.end());
  return {std::move(all_a), std::move(all_b)};
}

void MotionReach::getRates(const Eigen::VectorXd& distance, std::vector<float>& rates) const {
  rates.resize(steps_.size());
  for (std::size_t i = 0; i < steps_.size(); ++i) {
    const double multiplier = steps_[i].ratio ? steps_[i].ratio->multiplier : 1.0;
    rates[i] = RoundedUp(std::fabs(multiplier * distance[steps_[i].coordinate]));
  }
}

std::vector<MotionReach::Passage> MotionReach::wayBetween(int slot_a, int slot_b) const {
  std::vector<Passage> inwards;
  std::vector<Passage> outwards;
  // Every slot comes after the one that carries it.
  while (slot_a != slot_b) {
    const bool is_inwards = slot_a > slot_b;
    int& slot = is_inwards ? slot_a : slot_b;
    (is_inwards ? inwards : outwards).push_back({slot, is_inwards});
    slot = steps_[static_cast<std::size_t>(slot)].parent;
  }
  inwards.insert(inwards.end(), outwards.rbegin(), outwards.rend());
  return inwards;
}

// Follows a ball in which the point is, whatever the joints passed so far do: from the point outwards, a
// joint that turns takes its centre along an arc, and a ball around that arc, as much larger as the arc is
// wide, holds the point in all positions of the joint.
void MotionReach::addReaches(const std::vector<Passage>& way, const Eigen::Vector3d& point,
                             math::JointReaches& reaches) const {
  reaches.resize(way.size());
  Eigen::Vector3d center = point;
  double radius = 0.0;
  for (std::size_t i = 0; i < way.size(); ++i) {
    const auto slot = static_cast<std::size_t>(way[i].slot);
    const Kinematics::Step& step = steps_[slot];
    const Range& range = ranges_[slot];
    const math::RigidTransform& origin = step.origin.transform;
    const double direction = way[i].is_inwards ? 1.0 : -1.0;
    double reach = 0.0;
    if (step.motion == Kinematics::Motion::kPrismatic) {
      reach = Length(step.slide[0], step.slide[1], step.slide[2]);
      const bool is_endless = !std::isfinite(range.half_width);
      const Eigen::Vector3d shift =
          is_endless ? Eigen::Vector3d::Zero() : Eigen::Vector3d(step.slide * range.middle);
      center = way[i].is_inwards ? Eigen::Vector3d(origin * center + shift) : Inverse(origin, center - shift);
      radius += is_endless ? math::kInf : reach * range.half_width;
    } else {
      if (!way[i].is_inwards) {
        center = Inverse(origin, center);
      }
      const Eigen::Index u = (step.axis + 1) % 3;
      const Eigen::Index v = (step.axis + 2) % 3;
      const double from_axis = Length(center[u], center[v], 0.0);
      reach = from_axis + radius;
      if (range.half_width < 0.5 * math::kPi) {
        double sin_middle = 0.0;
        double cos_middle = 0.0;
        SinCos(direction * step.sign * range.middle, &sin_middle, &cos_middle);
        double sin_half = 0.0;
        double cos_half = 0.0;
        SinCos(range.half_width, &sin_half, &cos_half);
        const double x = center[u];
        const double y = center[v];
        center[u] = cos_half * (cos_middle * x - sin_middle * y);
        center[v] = cos_half * (sin_middle * x + cos_middle * y);
        radius += sin_half * from_axis;
      } else {
        center[u] = 0.0;
        center[v] = 0.0;
        radius += from_axis;
      }
      if (way[i].is_inwards) {
        center = origin * center;
      }
    }
    reaches[i].joint = static_cast<std::uint32_t>(slot);
    reaches[i].turns = step.motion != Kinematics::Motion::kPrismatic;
    reaches[i].reach = std::max(reaches[i].reach, RoundedUp(reach));
  }
}

}  // namespace kavo::kinematics::internal
