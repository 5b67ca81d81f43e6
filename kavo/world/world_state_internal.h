#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle_table_internal.h"
#include "kavo/world/snapshot_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

//! Snapshots that nobody asks any more, kept because bringing one up to date after a few edits takes far less
//! than making one. Every operation may be called from any thread.
class SpareSnapshots {
 public:
  //! A snapshot as it is after so many edits.
  struct Version {
    Snapshot snapshot;
    std::uint64_t num_edits;
    std::uint64_t generation;
  };

  //! The one with the most edits; null without any.
  std::unique_ptr<Version> take();
  //! Keeps one, unless it is of an earlier generation or there are enough newer ones.
  void give(std::unique_ptr<Version> version);
  //! Drops all: a new generation begins.
  void clear();
  std::uint64_t generation() const;

 private:
  static bool IsOlder(const std::unique_ptr<Version>& a, const std::unique_ptr<Version>& b);

  mutable std::mutex mutex_;
  std::uint64_t generation_ = 0;
  // A view holds one snapshot, an environment may hold one or two from before.
  std::array<std::unique_ptr<Version>, 3> spares_;
};

//! What copies of a `World` and its views share. Every operation may be called from any thread.
class WorldState {
 public:
  using Entry = ObstacleEntry;

  ObstacleHandle add(Entry entry);
  //! Returns false, here and below, if the handle names no obstacle of this world.
  bool move(ObstacleHandle obstacle, const Pose3& pose);
  bool setEnabled(ObstacleHandle obstacle, bool enabled);
  bool setPadding(ObstacleHandle obstacle, double padding);
  bool remove(ObstacleHandle obstacle);
  bool get(ObstacleHandle obstacle, Entry* entry) const;
  std::size_t size() const;
  //! In the order of adding.
  std::vector<ObstacleHandle> handles() const;
  std::vector<std::pair<ObstacleHandle, Entry>> entries() const;

  //! A world with the same obstacles, by the same handles, that edits of this one do not touch.
  std::shared_ptr<WorldState> copy();

  //! The enabled obstacles as they are now. Made at the first call after an edit, from a former one where few
  //! obstacles were edited since, and shared until the next.
  std::shared_ptr<const Snapshot> snapshot();

 private:
  using Version = SpareSnapshots::Version;

  std::unique_ptr<Version> makeSnapshot() const;
  std::unique_ptr<Version> mendSnapshot() const;
  void noteEdit(ObstacleHandle obstacle);
  void dropSnapshots();

  mutable std::mutex mutex_;
  ObstacleTable entries_;
  // The last one that was asked for.
  std::shared_ptr<const Version> latest_;
  // How many edits there were, and what the last of them edited.
  std::uint64_t num_edits_ = 0;
  std::deque<ObstacleHandle> edited_;
  // What is handed out comes back here with its last user, unless the world is gone by then.
  std::shared_ptr<SpareSnapshots> spares_ = std::make_shared<SpareSnapshots>();
};

//! What copies of a `WorldView` share.
struct ViewState {
  std::shared_ptr<WorldState> world;
  std::shared_ptr<const Snapshot> snapshot;
};

}  // namespace kavo::internal
