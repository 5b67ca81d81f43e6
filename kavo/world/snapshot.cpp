#include "kavo/math/constants_internal.h"
#include "kavo/world/snapshot_internal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <variant>

#include "kavo/math/rigid_transform.h"
#include "kavo/world/ball_model_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/world/snapshot.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kavo/world/bounds_walk-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

// Distances are computed with a relative error of some units in the last place, 2^-53. A query box that is
// larger by this share contains whatever the computed distance may call touching.
constexpr double kDistanceError = 1.0 / (1ULL << 44);

bool Touches(const BoundsGroup* groups, const Solid* solids, const double* center, double radius) {
  const double reach = radius + radius * kDistanceError;
  float low[3];
  float high[3];
  for (int axis = 0; axis < 3; ++axis) {
    const double margin = reach + std::fabs(center[axis]) * kDistanceError;
    low[axis] = Rounded(center[axis] - margin);
    high[axis] = Rounded(center[axis] + margin);
  }
  return FindOverlapping(groups, low, high, [&](std::uint32_t index) {
    return SignedDistance(solids[index], center) <= radius;
  });
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kavo::internal {

HWY_EXPORT(Touches);

namespace {

// The squares of lengths up to this are far from overflow, also after sums.
constexpr double kLargestPlainMagnitude = 1.0e100;

// Lengths of any finite size. Scaling by a power of two changes no digit.
double SignedDistanceAtAnyScale(const Solid& solid, const double* point) {
  const double magnitude = solid.magnitude + std::fabs(point[0]) + std::fabs(point[1]) + std::fabs(point[2]);
  if (magnitude <= kLargestPlainMagnitude) {
    return SignedDistance(solid, point);
  }
  constexpr double kDown = 0x1p-600;
  const double near[3] = {point[0] * kDown, point[1] * kDown, point[2] * kDown};
  return SignedDistance(solid.scaled(kDown), near) * 0x1p600;
}

// Cuts the obstacles into `parts` lists of about equal length, neighbours together, and appends the end of
// each.
template <typename Iterator>
void Split(Iterator begin, Iterator end, std::size_t parts, std::vector<Iterator>* cuts) {
  if (parts == 1) {
    cuts->push_back(end);
    return;
  }
  int widest = 0;
  double largest_spread = -1.0;
  for (int axis = 0; axis < 3; ++axis) {
    const auto less = [axis](const auto& a, const auto& b) { return a.middle(axis) < b.middle(axis); };
    const auto [low, high] = std::minmax_element(begin, end, less);
    const double spread = high->middle(axis) - low->middle(axis);
    if (spread > largest_spread) {
      largest_spread = spread;
      widest = axis;
    }
  }
  const std::size_t left_parts = parts / 2;
  const auto count = static_cast<std::size_t>(end - begin);
  const auto middle = begin + static_cast<std::ptrdiff_t>(count * left_parts / parts);
  std::nth_element(begin, middle, end, [widest](const auto& a, const auto& b) {
    return a.middle(widest) != b.middle(widest) ? a.middle(widest) < b.middle(widest) : a.item < b.item;
  });
  Split(begin, middle, left_parts, cuts);
  Split(middle, end, parts - left_parts, cuts);
}

// The version of `Touches` for this machine, looked up once for a snapshot instead of once for a query.
auto BestTouches() {
  if (!hwy::GetChosenTarget().IsInitialized()) {
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
  return &HWY_DYNAMIC_DISPATCH(Touches);
}

// Bounds are cut to what single precision holds; nearer than this they are whole.
constexpr double kLargestBound = 1.0e37;

// No solid in a lane is nearer to the point, as computed distances go: bounds are taken for wider than they
// are by more than their own rounding and that of a distance. Minus infinity where the point may be inside.
double LeastDistance(const BoundsGroup& group, std::size_t lane, const double* point) {
  double squared_distance = 0.0;
  double size = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    const auto low = static_cast<double>(group.low[axis][lane]);
    const auto high = static_cast<double>(group.high[axis][lane]);
    if (low > high) {
      return math::kInf;
    }
    const double gap = std::max(std::max(low - point[axis], point[axis] - high), 0.0);
    squared_distance += gap * gap;
    size += std::fabs(point[axis]) + (point[axis] < low ? std::fabs(low) : std::fabs(high));
  }
  const double distance = std::sqrt(squared_distance) - 0x1p-22 * size;
  return distance > 0.0 ? distance : -math::kInf;
}

// Goes over to a solid that is nearer, or as near and older.
void Consider(const Solid& solid, ObstacleHandle handle, const double* point,
              std::optional<WorldView::Nearest>& nearest) {
  const double distance = SignedDistanceAtAnyScale(solid, point);
  if (!nearest || distance < nearest->distance ||
      (distance == nearest->distance && handle.id() < nearest->obstacle.id())) {
    nearest = WorldView::Nearest{handle, distance};
  }
}

bool IsFinite(const double* point) {
  return std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2]);
}

}  // namespace

Solid::Solid(const ObstacleShape& shape, const Pose3& pose) {
  const math::RigidTransform transform(pose);
  for (int row = 0; row < 3; ++row) {
    center[row] = transform.translation[row];
    for (int column = 0; column < 3; ++column) {
      rotation[row][column] = transform.rotation(column, row);
    }
  }
  if (const auto* sphere = std::get_if<SphereObstacle>(&shape)) {
    kind = Kind::kSphere;
    radius = sphere->radius;
  } else if (const auto* box = std::get_if<BoxObstacle>(&shape)) {
    kind = Kind::kBox;
    for (int axis = 0; axis < 3; ++axis) {
      half[axis] = 0.5 * box->size[axis];
    }
  } else if (const auto* cylinder = std::get_if<CylinderObstacle>(&shape)) {
    kind = Kind::kCylinder;
    radius = cylinder->radius;
    half[2] = 0.5 * cylinder->height;
  } else if (const auto* capsule = std::get_if<CapsuleObstacle>(&shape)) {
    kind = Kind::kCapsule;
    radius = capsule->radius;
    half[2] = 0.5 * capsule->height;
  } else {
    kind = Kind::kHalfSpace;
  }
  magnitude = radius;
  for (int axis = 0; axis < 3; ++axis) {
    magnitude += std::fabs(center[axis]) + half[axis];
  }
}

Solid Solid::scaled(double factor) const {
  Solid result = *this;
  result.radius *= factor;
  result.magnitude *= factor;
  for (int axis = 0; axis < 3; ++axis) {
    result.center[axis] *= factor;
    result.half[axis] *= factor;
  }
  return result;
}

double SignedDistance(const Solid& solid, const double* point) {
  const double dx = point[0] - solid.center[0];
  const double dy = point[1] - solid.center[1];
  const double dz = point[2] - solid.center[2];
  if (solid.kind == Solid::Kind::kSphere) {
    return std::sqrt(dx * dx + dy * dy + dz * dz) - solid.radius;
  }
  const auto& r = solid.rotation;
  const double z = r[2][0] * dx + r[2][1] * dy + r[2][2] * dz;
  if (solid.kind == Solid::Kind::kHalfSpace) {
    return z;
  }
  const double x = r[0][0] * dx + r[0][1] * dy + r[0][2] * dz;
  const double y = r[1][0] * dx + r[1][1] * dy + r[1][2] * dz;
  const double beyond_z = std::fabs(z) - solid.half[2];
  const double outside_z = std::max(beyond_z, 0.0);
  if (solid.kind == Solid::Kind::kCapsule) {
    return std::sqrt(x * x + y * y + outside_z * outside_z) - solid.radius;
  }
  if (solid.kind == Solid::Kind::kCylinder) {
    const double beyond_side = std::sqrt(x * x + y * y) - solid.radius;
    const double nearest_face = std::max(beyond_side, beyond_z);
    if (nearest_face <= 0.0) {
      return nearest_face;
    }
    const double outside_side = std::max(beyond_side, 0.0);
    return std::sqrt(outside_side * outside_side + outside_z * outside_z);
  }
  const double beyond_x = std::fabs(x) - solid.half[0];
  const double beyond_y = std::fabs(y) - solid.half[1];
  const double nearest_face = std::max(std::max(beyond_x, beyond_y), beyond_z);
  if (nearest_face <= 0.0) {
    return nearest_face;
  }
  const double outside_x = std::max(beyond_x, 0.0);
  const double outside_y = std::max(beyond_y, 0.0);
  return std::sqrt(outside_x * outside_x + outside_y * outside_y + outside_z * outside_z);
}

void BoundsGroup::enclose(std::size_t lane, const double* lowest, const double* highest) {
  for (int axis = 0; axis < 3; ++axis) {
    low[axis][lane] = Rounded(lowest[axis]);
    high[axis][lane] = Rounded(highest[axis]);
  }
}

BoundsGroup::BoundsGroup() {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (int axis = 0; axis < 3; ++axis) {
    std::fill(low[axis], low[axis] + kSize, kInfinity);
    std::fill(high[axis], high[axis] + kSize, -kInfinity);
  }
}

// The box along the world's axes around one bounded obstacle.
struct Snapshot::Bounds {
  Bounds(const Solid& solid, std::size_t item_in) : item(item_in) {
    const double reach = solid.radius + solid.half[0] + solid.half[1] + solid.half[2];
    for (int axis = 0; axis < 3; ++axis) {
      double extent = 0.0;
      for (int local = 0; local < 3; ++local) {
        extent += std::fabs(solid.rotation[local][axis]) * solid.half[local];
      }
      if (solid.kind == Solid::Kind::kCylinder) {
        const double x = solid.rotation[0][axis];
        const double y = solid.rotation[1][axis];
        extent += solid.radius * std::sqrt(x * x + y * y);
      } else {
        extent += solid.radius;
      }
      // The rotation is one to rounding only, which the computed distance sees and the true extent does not.
      extent += (reach + std::fabs(solid.center[axis])) * 0x1p-44;
      // Cut to finite numbers: the middle of an infinite box would be NaN, which no sorting survives.
      constexpr double kLargest = std::numeric_limits<double>::max();
      low[axis] = std::max(solid.center[axis] - extent, -kLargest);
      high[axis] = std::min(solid.center[axis] + extent, kLargest);
    }
  }

  double middle(int axis) const { return 0.5 * low[axis] + 0.5 * high[axis]; }

  double low[3];
  double high[3];
  std::size_t item;
};

namespace {

// The box around all boxes of a group, as it stands in the group above.
struct GroupBounds {
  double extent() const {
    double sum = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
      sum += static_cast<double>(high[axis]) - static_cast<double>(low[axis]);
    }
    return sum;
  }

  void put(BoundsGroup& parent, std::size_t lane) const {
    for (int axis = 0; axis < 3; ++axis) {
      parent.low[axis][lane] = low[axis];
      parent.high[axis][lane] = high[axis];
    }
  }

  float low[3];
  float high[3];
};

GroupBounds UnionOf(const BoundsGroup& group) {
  GroupBounds bounds{};
  for (int axis = 0; axis < 3; ++axis) {
    bounds.low[axis] = *std::min_element(group.low[axis], group.low[axis] + BoundsGroup::kSize);
    bounds.high[axis] = *std::max_element(group.high[axis], group.high[axis] + BoundsGroup::kSize);
  }
  return bounds;
}

}  // namespace

Snapshot::Snapshot(const std::vector<Item>& items)
    : largest_magnitude_(kLargestPlainMagnitude), touches_(BestTouches()) {
  std::vector<Bounds> bounds;
  bounds.reserve(items.size());
  const auto layout = std::make_shared<Layout>();
  layout->places.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (items[i].name) {
      layout->names.emplace_back(items[i].handle, items[i].name);
    }
    if (!(items[i].solid.magnitude <= kLargestPlainMagnitude)) {
      largest_magnitude_ = -1.0;
    }
    has_plain_lanes_ =
        has_plain_lanes_ && items[i].solid.magnitude <= static_cast<double>(BallModel::kLargestLength);
    if (items[i].solid.kind == Solid::Kind::kHalfSpace) {
      layout->places.emplace_back(items[i].handle, static_cast<std::uint32_t>(half_spaces_.size()));
      lanes_.half_spaces.emplace_back(items[i].solid);
      half_spaces_.push_back(items[i].solid);
      layout->half_space_handles.push_back(items[i].handle);
    } else {
      layout->places.emplace_back(items[i].handle, 0);
      bounds.emplace_back(items[i].solid, i);
    }
  }
  if (!bounds.empty()) {
    solids_.reserve(bounds.size());
    layout->handles.reserve(bounds.size());
    layout->leaves.reserve(bounds.size());
    groups_.resize(1);
    layout->parents.resize(1);
    fill(0, bounds.begin(), bounds.end(), items, *layout);
  }
  layout->leaf_extent = leaf_extent_;
  layout_ = layout;
}

void Snapshot::fill(std::size_t group, std::vector<Bounds>::iterator begin, std::vector<Bounds>::iterator end,
                    const std::vector<Item>& items, Layout& layout) {
  const auto count = static_cast<std::size_t>(end - begin);
  if (count <= BoundsGroup::kSize) {
    groups_[group].first = static_cast<std::uint32_t>(solids_.size());
    groups_[group].leaf = true;
    for (std::size_t lane = 0; lane < count; ++lane) {
      const Bounds& bounds = begin[static_cast<std::ptrdiff_t>(lane)];
      groups_[group].enclose(lane, bounds.low, bounds.high);
      layout.places[bounds.item].second = static_cast<std::uint32_t>(solids_.size());
      layout.leaves.push_back(static_cast<std::uint32_t>(group));
      layout.handles.push_back(items[bounds.item].handle);
      solids_.push_back(items[bounds.item].solid);
      lanes_.solids.emplace_back(items[bounds.item].solid);
    }
    leaf_extent_ += UnionOf(groups_[group]).extent();
    return;
  }

  const std::size_t num_leaves = (count + BoundsGroup::kSize - 1) / BoundsGroup::kSize;
  std::vector<std::vector<Bounds>::iterator> cuts = {begin};
  Split(begin, end, std::min(num_leaves, BoundsGroup::kSize), &cuts);
  const std::size_t first = groups_.size();
  groups_.resize(first + cuts.size() - 1);
  layout.parents.resize(groups_.size(), static_cast<std::uint32_t>(group));
  groups_[group].first = static_cast<std::uint32_t>(first);
  groups_[group].leaf = false;
  for (std::size_t lane = 0; lane + 1 < cuts.size(); ++lane) {
    fill(first + lane, cuts[lane], cuts[lane + 1], items, layout);
    UnionOf(groups_[first + lane]).put(groups_[group], lane);
  }
}

bool Snapshot::move(ObstacleHandle obstacle, const Solid& solid) {
  const auto found = std::lower_bound(
      layout_->places.begin(), layout_->places.end(), obstacle,
      [](const auto& place, ObstacleHandle handle) { return place.first.id() < handle.id(); });
  // Where something is too large for single precision, or may have been until now, all has to be looked at.
  if (found == layout_->places.end() || found->first != obstacle || !has_plain_lanes_ ||
      !(solid.magnitude <= static_cast<double>(BallModel::kLargestLength))) {
    return false;
  }
  const std::uint32_t place = found->second;
  if (solid.kind == Solid::Kind::kHalfSpace) {
    half_spaces_[place] = solid;
    lanes_.half_spaces[place] = LaneSolid(solid);
    return true;
  }
  solids_[place] = solid;
  lanes_.solids[place] = LaneSolid(solid);
  std::size_t group = layout_->leaves[place];
  leaf_extent_ -= UnionOf(groups_[group]).extent();
  const Bounds bounds(solid, 0);
  groups_[group].enclose(place - groups_[group].first, bounds.low, bounds.high);
  leaf_extent_ += UnionOf(groups_[group]).extent();
  while (group != 0) {
    const std::size_t parent = layout_->parents[group];
    UnionOf(groups_[group]).put(groups_[parent], group - groups_[parent].first);
    group = parent;
  }
  // By then every query looks at that much more; to make a tree anew takes as long as some thousand moves.
  constexpr double kLargestGrowth = 1.25;
  return leaf_extent_ <= kLargestGrowth * layout_->leaf_extent;
}

bool Snapshot::inCollision(const Eigen::Vector3d& center, double radius) const {
  const double point[3] = {center[0], center[1], center[2]};
  const double magnitude =
      std::fabs(point[0]) + std::fabs(point[1]) + std::fabs(point[2]) + std::fabs(radius);
  if (!(magnitude <= largest_magnitude_)) {
    return inCollisionAtAnyScale(point, radius);
  }
  if (radius < 0.0) {
    return false;
  }
  for (const Solid& half_space : half_spaces_) {
    if (SignedDistance(half_space, point) <= radius) {
      return true;
    }
  }
  return !groups_.empty() && touches_(groups_.data(), solids_.data(), point, radius);
}

std::string Snapshot::name(ObstacleHandle obstacle) const {
  const auto found = std::find_if(layout_->names.begin(), layout_->names.end(),
                                  [&](const auto& entry) { return entry.first == obstacle; });
  return found != layout_->names.end() ? *found->second : std::string();
}

bool Snapshot::inCollisionAtAnyScale(const double* center, double radius) const {
  if (!IsFinite(center) || !std::isfinite(radius)) {
    return true;
  }
  const auto touched = [&](const Solid& solid) { return SignedDistanceAtAnyScale(solid, center) <= radius; };
  return radius >= 0.0 && (std::any_of(half_spaces_.begin(), half_spaces_.end(), touched) ||
                           std::any_of(solids_.begin(), solids_.end(), touched));
}

std::optional<WorldView::Nearest> Snapshot::nearestObstacle(const Eigen::Vector3d& point) const {
  const double p[3] = {point[0], point[1], point[2]};
  std::optional<WorldView::Nearest> nearest;
  if (!IsFinite(p)) {
    return nearest;
  }
  for (std::size_t i = 0; i < half_spaces_.size(); ++i) {
    Consider(half_spaces_[i], layout_->half_space_handles[i], p, nearest);
  }
  // To measure a few solids takes less than to find out which of them to measure.
  constexpr std::size_t kFewSolids = 16;
  const bool is_bounded =
      std::fabs(p[0]) + std::fabs(p[1]) + std::fabs(p[2]) <= std::min(largest_magnitude_, kLargestBound);
  if (is_bounded && solids_.size() > kFewSolids) {
    findNearest(p, 0, nearest);
  } else {
    for (std::size_t i = 0; i < solids_.size(); ++i) {
      Consider(solids_[i], layout_->handles[i], p, nearest);
    }
  }
  return nearest;
}

// The nearest boxes of a group first, and only those that may hold a solid as near as the nearest so far.
void Snapshot::findNearest(const double* point, std::size_t group,
                           std::optional<WorldView::Nearest>& nearest) const {
  const BoundsGroup& bounds = groups_[group];
  struct Part {
    double distance;
    std::size_t index;
  };
  Part parts[BoundsGroup::kSize];
  std::size_t num_parts = 0;
  for (std::size_t lane = 0; lane < BoundsGroup::kSize; ++lane) {
    const double distance = LeastDistance(bounds, lane, point);
    // An empty lane is infinitely far.
    if (distance < math::kInf) {
      std::size_t place = num_parts++;
      for (; place > 0 && parts[place - 1].distance > distance; --place) {
        parts[place] = parts[place - 1];
      }
      parts[place] = {distance, bounds.first + lane};
    }
  }
  for (std::size_t i = 0; i < num_parts && !(nearest && parts[i].distance > nearest->distance); ++i) {
    if (bounds.leaf) {
      Consider(solids_[parts[i].index], layout_->handles[parts[i].index], point, nearest);
    } else {
      findNearest(point, parts[i].index, nearest);
    }
  }
}

}  // namespace kavo::internal
#endif  // HWY_ONCE
