#include "kavo/world/world_view.h"

#include <utility>

#include "kavo/world/ball_model_internal.h"
#include "kavo/world/snapshot_internal.h"
#include "kavo/world/world_state_internal.h"

namespace kavo {

WorldView::WorldView(std::shared_ptr<internal::ViewState> state) : state_(std::move(state)) {}

void WorldView::update() { state_->snapshot = state_->world->snapshot(); }

bool WorldView::inCollision(const Eigen::Vector3d& center, double radius) const {
  return state_->snapshot->inCollision(center, radius);
}

std::optional<WorldView::Nearest> WorldView::nearestObstacle(const Eigen::Vector3d& point) const {
  return state_->snapshot->nearestObstacle(point);
}

std::string WorldView::name(ObstacleHandle obstacle) const { return state_->snapshot->name(obstacle); }

namespace internal {

struct ViewAccess {
  static const std::shared_ptr<const Snapshot>& snapshot(const WorldView& view) {
    return view.state_->snapshot;
  }
};

const std::shared_ptr<const Snapshot>& SnapshotOf(const WorldView& view) {
  return ViewAccess::snapshot(view);
}

}  // namespace internal

}  // namespace kavo
