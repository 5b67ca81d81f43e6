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
    : most_places_(2 * items.size() + 64),
      largest_magnitude_(kLargestPlainMagnitude),
      touches_(BestTouches()) {
  places_.reserve(items.size());
  // Of the bounded ones.
  std::vector<Bounds> bounds;
  std::vector<std::size_t> bounded;
  bounds.reserve(items.size());
  bounded.reserve(items.size());
  for (const Item& item : items) {
    Place& place = places_.emplace_back();
    place.handle = item.handle;
    if (!item.solid) {
      continue;
    }
    note(*item.solid);
    if (item.solid->kind == Solid::Kind::kHalfSpace) {
      addHalfSpace(item, place);
    } else {
      bounds.push_back(BoundsOf(*item.solid));
      bounded.push_back(places_.size() - 1);
    }
  }
  tree_ = ObstacleTree(bounds);
  const std::vector<std::uint32_t> order = tree_.takeItems();
  addRoom();
  for (std::uint32_t i = 0; i < order.size(); ++i) {
    if (order[i] != ObstacleTree::kNone) {
      const std::size_t item = bounded[order[i]];
      places_[item].index = i;
      put(i, items[item]);
    }
  }
}

void Snapshot::note(const Solid& solid) {
  if (!(solid.magnitude <= kLargestPlainMagnitude)) {
    largest_magnitude_ = -1.0;
  }
  has_plain_lanes_ = has_plain_lanes_ && solid.magnitude <= static_cast<double>(BallModel::kLargestLength);
}

const Snapshot::Place* Snapshot::find(ObstacleHandle obstacle) const {
  const auto found = std::lower_bound(
      places_.begin(), places_.end(), obstacle,
      [](const Place& place, ObstacleHandle handle) { return place.handle.id() < handle.id(); });
  return found != places_.end() && found->handle == obstacle ? &*found : nullptr;
}

// For what the tree has places for.
void Snapshot::addRoom() {
  solids_.resize(tree_.numPlaces());
  lanes_.solids.resize(tree_.numPlaces());
  tags_.resize(tree_.numPlaces());
}

void Snapshot::put(std::uint32_t index, const Item& item) {
  solids_[index] = *item.solid;
  lanes_.solids[index] = LaneSolid(*item.solid);
  tags_[index] = {item.handle, item.name, item.compound};
}

void Snapshot::addHalfSpace(const Item& item, Place& place) {
  place.is_half_space = true;
  place.index = static_cast<std::uint32_t>(half_spaces_.size());
  half_spaces_.push_back(*item.solid);
  lanes_.half_spaces.emplace_back(*item.solid);
  half_space_tags_.push_back({item.handle, item.name, nullptr});
}

void Snapshot::removeHalfSpace(Place& place) {
  // The last one takes its place.
  const std::uint32_t index = std::exchange(place.index, ObstacleTree::kNone);
  if (index + 1 < half_spaces_.size()) {
    half_spaces_[index] = half_spaces_.back();
    lanes_.half_spaces[index] = lanes_.half_spaces.back();
    half_space_tags_[index] = half_space_tags_.back();
    places_[static_cast<std::size_t>(find(half_space_tags_[index].handle) - places_.data())].index = index;
  }
  half_spaces_.pop_back();
  lanes_.half_spaces.pop_back();
  half_space_tags_.pop_back();
}

bool Snapshot::insert(const Item& item, Place& place) {
  const std::optional<std::uint32_t> index =
      tree_.insert(BoundsOf(*item.solid), [this](std::uint32_t from, std::uint32_t to) {
        addRoom();
        solids_[to] = solids_[from];
        lanes_.solids[to] = lanes_.solids[from];
        tags_[to] = std::exchange(tags_[from], Tag());
        places_[static_cast<std::size_t>(find(tags_[to].handle) - places_.data())].index = to;
      });
  if (index) {
    addRoom();
    place.index = *index;
    put(*index, item);
  }
  return index.has_value();
}

bool Snapshot::set(const Item& item) {
  // Where something is too large for single precision, or may have been until now, all has to be looked at.
  if (!has_plain_lanes_ ||
      (item.solid && !(item.solid->magnitude <= static_cast<double>(BallModel::kLargestLength)))) {
    return false;
  }
  const Place* const found = find(item.handle);
  if (found == nullptr) {
    if (!places_.empty() && item.handle.id() < places_.back().handle.id()) {
      return false;
    }
    places_.emplace_back().handle = item.handle;
  }
  Place& place =
      found != nullptr ? places_[static_cast<std::size_t>(found - places_.data())] : places_.back();
  const bool is_in = place.index != ObstacleTree::kNone;
  if (!item.solid) {
    if (is_in && place.is_half_space) {
      removeHalfSpace(place);
    } else if (is_in) {
      tree_.remove(place.index);
      tags_[place.index] = Tag();
      place.index = ObstacleTree::kNone;
    }
  } else if (item.solid->kind == Solid::Kind::kHalfSpace) {
    if (is_in) {
      half_spaces_[place.index] = *item.solid;
      lanes_.half_spaces[place.index] = LaneSolid(*item.solid);
    } else {
      addHalfSpace(item, place);
    }
  } else if (is_in) {
    tree_.move(place.index, BoundsOf(*item.solid));
    put(place.index, item);
  } else if (!insert(item, place)) {
    return false;
  }
  return !tree_.isPoor() && places_.size() <= most_places_;
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
  return groups() != nullptr && touches_(groups(), solids_.data(), except, point, radius);
}

std::string Snapshot::name(ObstacleHandle obstacle) const {
  const Place* const place = find(obstacle);
  if (place == nullptr || place->index == ObstacleTree::kNone) {
    return {};
  }
  const Tag& tag = (place->is_half_space ? half_space_tags_ : tags_)[place->index];
  return tag.name ? *tag.name : std::string();
}

ObstacleSet Snapshot::named(const std::vector<std::string>& names) const {
  const auto is_named = [&](const Tag& tag) {
    return tag.name && std::find(names.begin(), names.end(), *tag.name) != names.end();
  };
  ObstacleSet set;
  for (std::uint32_t i = 0; i < half_spaces_.size(); ++i) {
    if (is_named(half_space_tags_[i])) {
      set.addHalfSpace(i);
    }
  }
  for (std::uint32_t i = 0; i < solids_.size(); ++i) {
    if (is_named(tags_[i])) {
      set.addSolid(i);
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
    if (!tags_[i].isFree() && touches(solids_[i]) && !(except != nullptr && except->hasSolid(i))) {
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
      Consider(half_spaces_[i], half_space_tags_[i].handle, p, nearest);
    }
  }
  const auto consider_solid = [&](std::uint32_t i) {
    if (!tags_[i].isFree() && !(except != nullptr && except->hasSolid(i))) {
      Consider(solids_[i], tags_[i].handle, p, nearest);
    }
  };
  // To measure a few solids takes less than to find out which of them to measure.
  constexpr std::size_t kFewSolids = 16;
  const bool is_bounded =
      std::fabs(p[0]) + std::fabs(p[1]) + std::fabs(p[2]) <= std::min(largest_magnitude_, kLargestBound);
  if (is_bounded && solids_.size() > kFewSolids) {
    double least = nearest ? nearest->distance : math::kInf;
    FindNearest(groups(), p, least, [&](std::uint32_t index, double& so_far) {
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
