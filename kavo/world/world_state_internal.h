#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/snapshot_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

//! What copies of a `World` and its views share. Every operation may be called from any thread.
class WorldState {
 public:
  struct Entry {
    ObstacleShape shape;
    Pose3 pose;
    //! Null for an empty one. Shared with the snapshots.
    std::shared_ptr<const std::string> name;
    bool enabled = true;
  };

  ObstacleHandle add(Entry entry);
  //! Returns false, here and below, if the handle names no obstacle of this world.
  bool move(ObstacleHandle obstacle, const Pose3& pose);
  bool setEnabled(ObstacleHandle obstacle, bool enabled);
  bool remove(ObstacleHandle obstacle);
  bool get(ObstacleHandle obstacle, Entry* entry) const;
  std::size_t size() const;
  //! In the order of adding.
  std::vector<ObstacleHandle> handles() const;

  //! The enabled obstacles as they are now. Built at the first call after an edit and shared until the next.
  std::shared_ptr<const Snapshot> snapshot();

 private:
  mutable std::mutex mutex_;
  // Handles grow in the order of adding.
  std::map<std::uint64_t, Entry> entries_;
  std::shared_ptr<const Snapshot> snapshot_;
};

//! What copies of a `WorldView` share.
struct ViewState {
  std::shared_ptr<WorldState> world;
  std::shared_ptr<const Snapshot> snapshot;
};

}  // namespace kavo::internal
