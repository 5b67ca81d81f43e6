#include "kavo/world/world.h"

#include <atomic>
#include <cmath>
#include <utility>
#include <variant>
#include <vector>

#include "kavo/util/log_message.h"
#include "kavo/world/world_state_internal.h"

namespace kavo {

namespace internal {

ObstacleHandle WorldState::add(Entry entry) {
  // One counter for all worlds, so that no world takes the handle of another for its own.
  static std::atomic<std::uint64_t> next_id{1};
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::uint64_t id = next_id.fetch_add(1, std::memory_order_relaxed);
  entries_.emplace(id, std::move(entry));
  snapshot_.reset();
  return ObstacleHandle(id);
}

bool WorldState::move(ObstacleHandle obstacle, const Pose3& pose) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(obstacle.id());
  if (found == entries_.end()) {
    return false;
  }
  found->second.pose = pose;
  snapshot_.reset();
  return true;
}

bool WorldState::setEnabled(ObstacleHandle obstacle, bool enabled) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(obstacle.id());
  if (found == entries_.end()) {
    return false;
  }
  found->second.enabled = enabled;
  snapshot_.reset();
  return true;
}

bool WorldState::remove(ObstacleHandle obstacle) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (entries_.erase(obstacle.id()) == 0) {
    return false;
  }
  snapshot_.reset();
  return true;
}

bool WorldState::get(ObstacleHandle obstacle, Entry* entry) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(obstacle.id());
  if (found == entries_.end()) {
    return false;
  }
  *entry = found->second;
  return true;
}

std::size_t WorldState::size() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

std::vector<ObstacleHandle> WorldState::handles() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<ObstacleHandle> handles;
  handles.reserve(entries_.size());
  for (const auto& [id, entry] : entries_) {
    handles.emplace_back(id);
  }
  return handles;
}

std::shared_ptr<const Snapshot> WorldState::snapshot() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!snapshot_) {
    std::vector<Snapshot::Item> items;
    items.reserve(entries_.size());
    for (const auto& [id, entry] : entries_) {
      if (entry.enabled) {
        items.push_back({ObstacleHandle(id), Solid(entry.shape, entry.pose), entry.name});
      }
    }
    snapshot_ = std::make_shared<const Snapshot>(items);
  }
  return snapshot_;
}

}  // namespace internal

namespace {

bool IsLength(double length) { return std::isfinite(length) && length > 0.0; }

// The obstacle in words, with its sizes: what a reader needs to find it in a scene.
struct Description {
  std::string operator()(const SphereObstacle& sphere) const {
    util::TextStream text;
    text << "Sphere obstacle '" << name << "' of radius [" << sphere.radius << "]";
    return text.str();
  }
  std::string operator()(const BoxObstacle& box) const {
    util::TextStream text;
    text << "Box obstacle '" << name << "' of size [" << box.size[0] << " " << box.size[1] << " "
         << box.size[2] << "]";
    return text.str();
  }
  std::string operator()(const CylinderObstacle& cylinder) const {
    util::TextStream text;
    text << "Cylinder obstacle '" << name << "' of radius [" << cylinder.radius << "] and height ["
         << cylinder.height << "]";
    return text.str();
  }
  std::string operator()(const CapsuleObstacle& capsule) const {
    util::TextStream text;
    text << "Capsule obstacle '" << name << "' of radius [" << capsule.radius << "] and height ["
         << capsule.height << "]";
    return text.str();
  }
  std::string operator()(const HalfSpaceObstacle&) const { return "Half-space obstacle '" + name + "'"; }

  const std::string& name;
};

struct HasValidSize {
  bool operator()(const SphereObstacle& sphere) const { return IsLength(sphere.radius); }
  bool operator()(const BoxObstacle& box) const {
    return IsLength(box.size[0]) && IsLength(box.size[1]) && IsLength(box.size[2]);
  }
  bool operator()(const CylinderObstacle& cylinder) const {
    return IsLength(cylinder.radius) && IsLength(cylinder.height);
  }
  bool operator()(const CapsuleObstacle& capsule) const {
    return IsLength(capsule.radius) && (capsule.height == 0.0 || IsLength(capsule.height));
  }
  bool operator()(const HalfSpaceObstacle&) const { return true; }
};

std::string PoseText(const Pose3& pose) {
  const Eigen::Quaterniond rotation = pose.rotation();
  const Eigen::Vector3d& translation = pose.translation();
  util::TextStream text;
  text << "translation [" << translation[0] << " " << translation[1] << " " << translation[2]
       << "], quaternion x y z w [" << rotation.x() << " " << rotation.y() << " " << rotation.z() << " "
       << rotation.w() << "]";
  return text.str();
}

std::string UnknownHandle(ObstacleHandle obstacle) {
  return "This world has no obstacle with handle [" + std::to_string(obstacle.id()) +
         "]: it was removed or belongs to another world.";
}

internal::WorldState::Entry Get(const internal::WorldState& state, ObstacleHandle obstacle) {
  internal::WorldState::Entry entry;
  const bool known = state.get(obstacle, &entry);
  KAVO_CHECK(known, "world/world", 10) << UnknownHandle(obstacle);
  return entry;
}

std::string Name(const internal::WorldState::Entry& entry) {
  return entry.name ? *entry.name : std::string();
}

}  // namespace

World::World() : state_(std::make_shared<internal::WorldState>()) {}

ObstacleHandle World::add(const ObstacleShape& shape, const Pose3& pose, std::string name) {
  KAVO_CHECK(std::visit(HasValidSize{}, shape), "world/world", 20)
      << std::visit(Description{name}, shape) << " must have positive and finite sizes.";
  KAVO_CHECK(pose.isFinite(), "world/world", 21)
      << std::visit(Description{name}, shape) << " cannot be placed at " << PoseText(pose) << ".";
  return state_->add(
      {shape, pose, name.empty() ? nullptr : std::make_shared<const std::string>(std::move(name)), true});
}

void World::move(ObstacleHandle obstacle, const Pose3& pose) {
  const internal::WorldState::Entry entry = Get(*state_, obstacle);
  KAVO_CHECK(pose.isFinite(), "world/world", 30)
      << std::visit(Description{Name(entry)}, entry.shape) << " cannot be moved to " << PoseText(pose) << ".";
  const bool known = state_->move(obstacle, pose);
  KAVO_CHECK(known, "world/world", 31) << UnknownHandle(obstacle);
}

void World::enable(ObstacleHandle obstacle) {
  const bool known = state_->setEnabled(obstacle, true);
  KAVO_CHECK(known, "world/world", 40) << UnknownHandle(obstacle);
}

void World::disable(ObstacleHandle obstacle) {
  const bool known = state_->setEnabled(obstacle, false);
  KAVO_CHECK(known, "world/world", 50) << UnknownHandle(obstacle);
}

bool World::isEnabled(ObstacleHandle obstacle) const { return Get(*state_, obstacle).enabled; }

void World::remove(ObstacleHandle obstacle) {
  const bool known = state_->remove(obstacle);
  KAVO_CHECK(known, "world/world", 60) << UnknownHandle(obstacle);
}

ObstacleShape World::shape(ObstacleHandle obstacle) const { return Get(*state_, obstacle).shape; }

Pose3 World::pose(ObstacleHandle obstacle) const { return Get(*state_, obstacle).pose; }

std::string World::name(ObstacleHandle obstacle) const { return Name(Get(*state_, obstacle)); }

bool World::contains(ObstacleHandle obstacle) const {
  internal::WorldState::Entry unused;
  return state_->get(obstacle, &unused);
}

std::vector<ObstacleHandle> World::obstacles() const { return state_->handles(); }

std::size_t World::numObstacles() const { return state_->size(); }

WorldView World::view() const {
  auto view = std::make_shared<internal::ViewState>();
  view->world = state_;
  view->snapshot = state_->snapshot();
  return WorldView(std::move(view));
}

}  // namespace kavo
