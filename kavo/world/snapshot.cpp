#include "kavo/world/snapshot_internal.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/math/constants_internal.h"
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

bool Touches(const BoundsGroup* groups, const Solid* solids, const ObstacleSet* except, const double* center,
             double radius) {
  const double reach = radius + radius * kDistanceError;
  float low[3];
  float high[3];
  for (int axis = 0; axis < 3; ++axis) {
    const double margin = reach + std::fabs(center[axis]) * kDistanceError;
    low[axis] = Rounded(center[axis] - margin);
    high[axis] = Rounded(center[axis] + margin);
  }
  return FindOverlapping(groups, low, high, [&](std::uint32_t index) {
    return internal::Touches(solids[index], center, radius) &&
           !(except != nullptr && except->hasSolid(index));
  });
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kavo::internal {

HWY_EXPORT(Touches);

namespace {

// The version of `Touches` for this machine, looked up once for a snapshot instead of once for a query.
auto BestTouches() {
  if (!hwy::GetChosenTarget().IsInitialized()) {
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
  return &HWY_DYNAMIC_DISPATCH(Touches);
}

// Bounds are cut to what single precision holds; nearer than this they are whole.
constexpr double kLargestBound = 1.0e37;

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

Snapshot::Snapshot(const std::vector<Item>& items)
    : largest_magnitude_(kLargestPlainMagnitude), touches_(BestTouches()) {
  const auto layout = std::make_shared<Layout>();
  layout->places.reserve(items.size());
  // Of the bounded ones.
  std::vector<Bounds> bounds;
  std::vector<std::size_t> bounded;
  bounds.reserve(items.size());
  bounded.reserve(items.size());
  for (const Item& item : items) {
    if (item.name) {
      layout->names.emplace_back(item.handle, item.name);
    }
    if (item.compound) {
      layout->compounds.push_back(item.compound);
    }
    if (!(item.solid.magnitude <= kLargestPlainMagnitude)) {
      largest_magnitude_ = -1.0;
    }
    has_plain_lanes_ =
        has_plain_lanes_ && item.solid.magnitude <= static_cast<double>(BallModel::kLargestLength);
    if (item.solid.kind == Solid::Kind::kHalfSpace) {
      layout->places.emplace_back(item.handle, static_cast<std::uint32_t>(half_spaces_.size()));
      lanes_.half_spaces.emplace_back(item.solid);
      half_spaces_.push_back(item.solid);
      layout->half_space_handles.push_back(item.handle);
    } else {
      bounds.push_back(BoundsOf(item.solid));
      bounded.push_back(layout->places.size());
      layout->places.emplace_back(item.handle, 0);
    }
  }
  if (!bounds.empty()) {
    BoundsTree tree(bounds);
    groups_ = std::move(tree.groups);
    solids_.reserve(bounds.size());
    lanes_.solids.reserve(bounds.size());
    layout->handles.reserve(bounds.size());
    for (const std::uint32_t place : tree.items) {
      const std::size_t item = bounded[place];
      layout->places[item].second = static_cast<std::uint32_t>(solids_.size());
      layout->handles.push_back(items[item].handle);
      solids_.push_back(items[item].solid);
      lanes_.solids.emplace_back(items[item].solid);
    }
    linkGroups(*layout);
  }
  layout->leaf_extent = leaf_extent_;
  layout_ = layout;
}

void Snapshot::linkGroups(Layout& layout) {
  layout.leaves.resize(solids_.size());
  layout.parents.resize(groups_.size());
  for (std::uint32_t i = 0; i < groups_.size(); ++i) {
    const BoundsGroup& group = groups_[i];
    if (group.leaf) {
      leaf_extent_ += GroupBounds(group).extent();
    }
    for (std::uint32_t lane = 0; lane < BoundsGroup::kSize; ++lane) {
      if (group.low[0][lane] <= group.high[0][lane]) {
        (group.leaf ? layout.leaves : layout.parents)[group.first + lane] = i;
      }
    }
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
  leaf_extent_ -= GroupBounds(groups_[group]).extent();
  groups_[group].enclose(place - groups_[group].first, BoundsOf(solid));
  leaf_extent_ += GroupBounds(groups_[group]).extent();
  while (group != 0) {
    const std::size_t parent = layout_->parents[group];
    GroupBounds(groups_[group]).put(groups_[parent], group - groups_[parent].first);
    group = parent;
  }
  // By then every query looks at that much more; to make a tree anew takes as long as some thousand moves.
  constexpr double kLargestGrowth = 1.25;
  return leaf_extent_ <= kLargestGrowth * layout_->leaf_extent;
}

bool Snapshot::inCollision(const Eigen::Vector3d& center, double radius, const ObstacleSet* except) const {
  const double point[3] = {center[0], center[1], center[2]};
  const double magnitude =
      std::fabs(point[0]) + std::fabs(point[1]) + std::fabs(point[2]) + std::fabs(radius);
  if (!(magnitude <= largest_magnitude_)) {
    return inCollisionAtAnyScale(point, radius, except);
  }
  if (radius < 0.0) {
    return false;
  }
  for (std::uint32_t i = 0; i < half_spaces_.size(); ++i) {
    if (Touches(half_spaces_[i], point, radius) && !(except != nullptr && except->hasHalfSpace(i))) {
      return true;
    }
  }
  return !groups_.empty() && touches_(groups_.data(), solids_.data(), except, point, radius);
}

std::string Snapshot::name(ObstacleHandle obstacle) const {
  const auto found = std::find_if(layout_->names.begin(), layout_->names.end(),
                                  [&](const auto& entry) { return entry.first == obstacle; });
  return found != layout_->names.end() ? *found->second : std::string();
}

ObstacleSet Snapshot::named(const std::vector<std::string>& names) const {
  ObstacleSet set;
  for (const auto& [handle, name] : layout_->names) {
    if (std::find(names.begin(), names.end(), *name) == names.end()) {
      continue;
    }
    for (std::uint32_t i = 0; i < half_spaces_.size(); ++i) {
      if (layout_->half_space_handles[i] == handle) {
        set.addHalfSpace(i);
      }
    }
    for (std::uint32_t i = 0; i < solids_.size(); ++i) {
      if (layout_->handles[i] == handle) {
        set.addSolid(i);
      }
    }
  }
  return set;
}

bool Snapshot::inCollisionAtAnyScale(const double* center, double radius, const ObstacleSet* except) const {
  if (!IsFinite(center) || !std::isfinite(radius)) {
    return true;
  }
  if (radius < 0.0) {
    return false;
  }
  const auto touches = [&](const Solid& solid) { return SignedDistanceAtAnyScale(solid, center) <= radius; };
  for (std::uint32_t i = 0; i < half_spaces_.size(); ++i) {
    if (touches(half_spaces_[i]) && !(except != nullptr && except->hasHalfSpace(i))) {
      return true;
    }
  }
  for (std::uint32_t i = 0; i < solids_.size(); ++i) {
    if (touches(solids_[i]) && !(except != nullptr && except->hasSolid(i))) {
      return true;
    }
  }
  return false;
}

std::optional<WorldView::Nearest> Snapshot::nearestObstacle(const Eigen::Vector3d& point,
                                                            const ObstacleSet* except) const {
  const double p[3] = {point[0], point[1], point[2]};
  std::optional<WorldView::Nearest> nearest;
  if (!IsFinite(p)) {
    return nearest;
  }
  for (std::uint32_t i = 0; i < half_spaces_.size(); ++i) {
    if (!(except != nullptr && except->hasHalfSpace(i))) {
      Consider(half_spaces_[i], layout_->half_space_handles[i], p, nearest);
    }
  }
  const auto consider_solid = [&](std::uint32_t i) {
    if (!(except != nullptr && except->hasSolid(i))) {
      Consider(solids_[i], layout_->handles[i], p, nearest);
    }
  };
  // To measure a few solids takes less than to find out which of them to measure.
  constexpr std::size_t kFewSolids = 16;
  const bool is_bounded =
      std::fabs(p[0]) + std::fabs(p[1]) + std::fabs(p[2]) <= std::min(largest_magnitude_, kLargestBound);
  if (is_bounded && solids_.size() > kFewSolids) {
    double least = nearest ? nearest->distance : math::kInf;
    FindNearest(groups_.data(), p, least, [&](std::uint32_t index, double& so_far) {
      consider_solid(index);
      so_far = nearest ? nearest->distance : math::kInf;
    });
  } else {
    for (std::uint32_t i = 0; i < solids_.size(); ++i) {
      consider_solid(i);
    }
  }
  return nearest;
}

}  // namespace kavo::internal
#endif  // HWY_ONCE
