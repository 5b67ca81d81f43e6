#include "kavo/world/world.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <utility>
#include <variant>
#include <vector>

#include "kavo/util/log_message.h"
#include "kavo/world/world_state_internal.h"

namespace kavo {

namespace internal {

namespace {

Snapshot::Item ItemOf(ObstacleHandle handle, const ObstacleEntry& entry) {
  return entry.enabled ? Snapshot::Item{handle, Solid(entry.shape, entry.pose, entry.padding), entry.name,
                                        CompoundOf(entry.shape)}
                       : Snapshot::Item{handle, std::nullopt, nullptr, nullptr};
}

}  // namespace

ObstacleHandle WorldState::add(Entry entry) {
  // One counter for all worlds, so that no world takes the handle of another for its own.
  static std::atomic<std::uint64_t> next_id{1};
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::uint64_t id = next_id.fetch_add(1, std::memory_order_relaxed);
  entries_.append(id, std::move(entry));
  noteEdit(ObstacleHandle(id));
  return ObstacleHandle(id);
}

bool WorldState::move(ObstacleHandle obstacle, const Pose3& pose) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Entry* const entry = entries_.edit(obstacle.id());
  if (entry == nullptr) {
    return false;
  }
  entry->pose = pose;
  if (entry->enabled) {
    noteEdit(obstacle);
  }
  return true;
}

bool WorldState::setEnabled(ObstacleHandle obstacle, bool enabled) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Entry* const entry = entries_.edit(obstacle.id());
  if (entry == nullptr) {
    return false;
  }
  if (entry->enabled != enabled) {
    entry->enabled = enabled;
    noteEdit(obstacle);
  }
  return true;
}

bool WorldState::setPadding(ObstacleHandle obstacle, double padding) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Entry* const entry = entries_.edit(obstacle.id());
  if (entry == nullptr) {
    return false;
  }
  entry->padding = padding;
  if (entry->enabled) {
    noteEdit(obstacle);
  }
  return true;
}

bool WorldState::remove(ObstacleHandle obstacle) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Entry* const entry = entries_.find(obstacle.id());
  if (entry == nullptr) {
    return false;
  }
  const bool is_compound = CompoundOf(entry->shape) != nullptr;
  entries_.erase(obstacle.id());
  if (is_compound) {
    // What it is made of takes more memory than it takes time to make spares.
    spares_->clear();
  }
  noteEdit(obstacle);
  return true;
}

bool WorldState::get(ObstacleHandle obstacle, Entry* entry) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Entry* const found = entries_.find(obstacle.id());
  if (found == nullptr) {
    return false;
  }
  *entry = *found;
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
  entries_.forEach([&](std::uint64_t id, const Entry& /*entry*/) { handles.emplace_back(id); });
  return handles;
}

std::vector<std::pair<ObstacleHandle, WorldState::Entry>> WorldState::entries() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::pair<ObstacleHandle, Entry>> entries;
  entries.reserve(entries_.size());
  entries_.forEach(
      [&](std::uint64_t id, const Entry& entry) { entries.emplace_back(ObstacleHandle(id), entry); });
  return entries;
}

std::shared_ptr<WorldState> WorldState::copy() {
  auto copy = std::make_shared<WorldState>();
  const std::lock_guard<std::mutex> lock(mutex_);
  copy->entries_ = entries_.share();
  return copy;
}

std::shared_ptr<const Snapshot> WorldState::snapshot() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!latest_ || latest_->num_edits != num_edits_) {
    std::unique_ptr<Version> version = latest_ ? mendSnapshot() : nullptr;
    if (!version) {
      dropSnapshots();
      version = makeSnapshot();
    }
    const auto give_back = [spares = std::weak_ptr<SpareSnapshots>(spares_)](Version* unused) {
      std::unique_ptr<Version> owned(unused);
      if (const auto kept = spares.lock()) {
        kept->give(std::move(owned));
      }
    };
    latest_ = std::shared_ptr<Version>(version.release(), give_back);
  }
  return {latest_, &latest_->snapshot};
}

std::unique_ptr<WorldState::Version> WorldState::makeSnapshot() const {
  std::vector<Snapshot::Item> items;
  items.reserve(entries_.size());
  entries_.forEach(
      [&](std::uint64_t id, const Entry& entry) { items.push_back(ItemOf(ObstacleHandle(id), entry)); });
  return std::make_unique<Version>(Version{Snapshot(items), num_edits_, spares_->generation()});
}

// Null where that takes as long as to make one.
std::unique_ptr<WorldState::Version> WorldState::mendSnapshot() const {
  const auto num_missed = [this](const Version& version) { return num_edits_ - version.num_edits; };
  std::unique_ptr<Version> version = spares_->take();
  if (!version || num_missed(*version) > edited_.size()) {
    if (num_missed(*latest_) > edited_.size()) {
      return nullptr;
    }
    version = std::make_unique<Version>(*latest_);
    version->generation = spares_->generation();
  }
  for (std::uint64_t i = edited_.size() - num_missed(*version); i < edited_.size(); ++i) {
    const Entry* const entry = entries_.find(edited_[i].id());
    const Snapshot::Item item = entry != nullptr ? ItemOf(edited_[i], *entry)
                                                 : Snapshot::Item{edited_[i], std::nullopt, nullptr, nullptr};
    if (!version->snapshot.set(item)) {
      return nullptr;
    }
  }
  version->num_edits = num_edits_;
  return version;
}

void WorldState::noteEdit(ObstacleHandle obstacle) {
  if (!latest_) {
    return;
  }
  try {
    edited_.push_back(obstacle);
  } catch (const std::bad_alloc&) {
    // The edit is made: what follows it has to know, if not what was edited.
    dropSnapshots();
    return;
  }
  ++num_edits_;
  // Where more were edited, it is as well to look at all obstacles.
  if (edited_.size() > std::max<std::size_t>(64, entries_.size() / 16)) {
    edited_.pop_front();
  }
}

void WorldState::dropSnapshots() {
  latest_.reset();
  edited_.clear();
  spares_->clear();
}

// What is missing counts as older than all.
bool SpareSnapshots::IsOlder(const std::unique_ptr<Version>& a, const std::unique_ptr<Version>& b) {
  return b && (!a || a->num_edits < b->num_edits);
}

std::unique_ptr<SpareSnapshots::Version> SpareSnapshots::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::move(*std::max_element(spares_.begin(), spares_.end(), IsOlder));
}

void SpareSnapshots::give(std::unique_ptr<Version> version) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::unique_ptr<Version>& oldest = *std::min_element(spares_.begin(), spares_.end(), IsOlder);
  if (version->generation == generation_ && IsOlder(oldest, version)) {
    oldest.swap(version);
  }
}

void SpareSnapshots::clear() {
  std::array<std::unique_ptr<Version>, 3> dropped;
  const std::lock_guard<std::mutex> lock(mutex_);
  ++generation_;
  spares_.swap(dropped);
}

std::uint64_t SpareSnapshots::generation() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return generation_;
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
  std::string operator()(const ConeObstacle& cone) const {
    util::TextStream text;
    text << "Cone obstacle '" << name << "' of radius [" << cone.radius << "] and height [" << cone.height
         << "]";
    return text.str();
  }
  std::string operator()(const MeshObstacle&) const { return "Mesh obstacle '" + name + "'"; }
  std::string operator()(const PointCloudObstacle&) const { return "Point cloud obstacle '" + name + "'"; }
  std::string operator()(const OctreeObstacle&) const { return "Octree obstacle '" + name + "'"; }

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
  bool operator()(const ConeObstacle& cone) const { return IsLength(cone.radius) && IsLength(cone.height); }
  // Those without sizes, and those whose sizes were checked before.
  template <class Other>
  bool operator()(const Other&) const {
    return true;
  }
};

struct HasData {
  bool operator()(const MeshObstacle& mesh) const { return mesh.mesh != nullptr; }
  bool operator()(const PointCloudObstacle& cloud) const { return cloud.cloud != nullptr; }
  bool operator()(const OctreeObstacle& octree) const { return octree.octree != nullptr; }
  template <class Other>
  bool operator()(const Other&) const {
    return true;
  }
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

World::World() : World(std::make_shared<internal::WorldState>()) {}

World::World(std::shared_ptr<internal::WorldState> state) : state_(std::move(state)) {}

ObstacleHandle World::add(const ObstacleShape& shape, const Pose3& pose, std::string name) {
  KAVO_CHECK(std::visit(HasValidSize{}, shape), "world/world", 20)
      << std::visit(Description{name}, shape) << " must have positive and finite sizes.";
  KAVO_CHECK(std::visit(HasData{}, shape), "world/world", 22)
      << std::visit(Description{name}, shape) << " refers to nothing: its pointer is null.";
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

void World::setPadding(ObstacleHandle obstacle, double padding) {
  const internal::WorldState::Entry entry = Get(*state_, obstacle);
  KAVO_CHECK(std::isfinite(padding) && padding >= 0.0, "world/world", 70)
      << std::visit(Description{Name(entry)}, entry.shape) << " cannot be grown by [" << padding << "].";
  const bool known = state_->setPadding(obstacle, padding);
  KAVO_CHECK(known, "world/world", 71) << UnknownHandle(obstacle);
}

double World::padding(ObstacleHandle obstacle) const { return Get(*state_, obstacle).padding; }

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

std::vector<World::Obstacle> World::describe() const {
  std::vector<Obstacle> obstacles;
  for (auto& [handle, entry] : state_->entries()) {
    obstacles.push_back({handle, entry.shape, entry.pose, Name(entry), entry.enabled, entry.padding});
  }
  return obstacles;
}

std::size_t World::numObstacles() const { return state_->size(); }

World World::copy() const { return World(state_->copy()); }

WorldView World::view() const {
  auto view = std::make_shared<internal::ViewState>();
  view->world = state_;
  view->snapshot = state_->snapshot();
  return WorldView(std::move(view));
}

}  // namespace kavo
