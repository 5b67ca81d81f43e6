#include "kavo/motion_planning/environment/robot_collision_internal.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/math/bounding_sphere.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/sort.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning::internal {

namespace {

// Distance between the surfaces of two spheres, negative where they overlap.
double Gap(const math::Sphere& sphere_a, const math::RigidTransform& frame_a, const math::Sphere& sphere_b,
           const math::RigidTransform& frame_b) {
  const Eigen::Vector3d a = frame_a * sphere_a.center;
  const Eigen::Vector3d b = frame_b * sphere_b.center;
  const double dx = a[0] - b[0];
  const double dy = a[1] - b[1];
  const double dz = a[2] - b[2];
  return std::sqrt(dx * dx + dy * dy + dz * dz) - (sphere_a.radius + sphere_b.radius);
}

}  // namespace

RobotCollision::RobotCollision(const RobotEnvironmentConfig& config) : world_view_(config.world_view) {
  SetRobot(config);
}

// Frames with larger indices lie farther along the chain and are checked first: they collide most often.
void RobotCollision::SetRobot(const RobotEnvironmentConfig& config) {
  ++revision_;
  kinematics_ = config.Kinematics();
  collections_.clear();
  pairs_.clear();
  fixed_collections_.clear();
  const std::vector<std::string>& names = config.FrameNames();
  const std::vector<util::IndexedValue> order = util::Sort(
      names,
      [this](const std::string& name) { return static_cast<double>(kinematics_->frame(name).index()); },
      std::greater<>());
  std::vector<kavo::Kinematics::FrameHandle> frames;
  for (const util::IndexedValue& entry : order) {
    const std::string& name = names[entry.index];
    std::vector<math::Sphere> spheres = config.CollisionSpheres(name);
    for (std::size_t i = 0; i < spheres.size(); ++i) {
      const auto& [center, radius] = spheres[i];
      KAVO_CHECK(center.allFinite() && std::isfinite(radius) && radius >= 0.0,
                 "motion_planning/environment/robot_environment", 46)
          << "Collision sphere " << i << " of frame '" << name << "', of radius [" << radius << "] at ["
          << center.transpose() << "], must be finite, its radius not negative.";
    }
    const math::Sphere bounding_sphere = math::ComputeBoundingSphere(spheres, math::SebbMethod::kSmallest);
    collections_.push_back({name,
                            std::move(spheres),
                            bounding_sphere,
                            config.Collision().paddingOf(name),
                            config.Collision().allowedObstaclesOf(name),
                            {}});
    frames.push_back(kinematics_->frame(name));
  }
  sweep_ = kinematics_->frameSweep(frames);
  std::vector<int> indices;
  indices.reserve(frames.size());
  for (const kavo::Kinematics::FrameHandle& frame : frames) {
    indices.push_back(frame.index());
  }
  // A configuration takes its kinematics from a description of this library.
  const auto& model = dynamic_cast<const KinematicsInternal&>(*kinematics_).model();
  const kinematics::Kinematics::Plan plan = model.plan(indices);
  lane_sweep_ = std::make_unique<kinematics::internal::LaneSweep>(plan);
  if (base_) {
    lane_sweep_->setBase(*base_);
  }
  q_.resize(config.NumJoints());

  const auto find = [this](const std::string& name) {
    return std::find_if(collections_.begin(), collections_.end(),
                        [&](const auto& collection) { return collection.frame_name == name; });
  };
  for (const auto& [name_a, name_b] : config.CollisionPairs()) {
    const auto a = find(name_a);
    const auto b = find(name_b);
    // A frame without spheres touches nothing.
    if (a != collections_.end() && b != collections_.end()) {
      pairs_.emplace_back(a - collections_.begin(), b - collections_.begin());
    }
  }
  std::vector<RobotBalls::Frame> robot_frames;
  for (std::size_t i = 0; i < collections_.size(); ++i) {
    robot_frames.push_back({collections_[i].spheres, collections_[i].padding});
    if (plan.frames[i].slot < 0) {
      fixed_collections_.push_back(i);
    }
  }
  balls_.emplace(plan, *lane_sweep_, config.JointLimits(), robot_frames, pairs_);
  proof_.emplace(*balls_, *lane_sweep_, *sweep_, std::move(robot_frames));
}

void RobotCollision::SetBasePose(const Pose3& base_pose) {
  base_ = math::RigidTransform(base_pose);
  lane_sweep_->setBase(*base_);
  ++revision_;
}

std::uint64_t RobotCollision::Revision() {
  const std::shared_ptr<const kavo::internal::Snapshot>& snapshot = kavo::internal::SnapshotOf(world_view_);
  if (known_snapshot_ != snapshot) {
    known_snapshot_ = snapshot;
    ++revision_;
  }
  return revision_;
}

bool RobotCollision::Touches(const Eigen::VectorXd& q) {
  // NaN passes every limit, and a robot without spheres never asks the world.
  if (!math::IsFinite(q)) {
    return true;
  }
  if (collections_.empty()) {
    return false;
  }
  LookAtWorld();
  const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
  for (std::size_t i = 0; i < collections_.size(); ++i) {
    if (base_ ? CollectionTouches(collections_[i], *base_ * frames[i])
              : CollectionTouches(collections_[i], frames[i])) {
      return true;
    }
  }
  return !pairs_.empty() && TouchesItself(frames);
}

// Once for a world.
void RobotCollision::LookAtWorld() {
  const std::uint64_t revision = Revision();
  if (looked_at_ == revision) {
    return;
  }
  looked_at_ = revision;
  for (std::size_t i = 0; i < collections_.size(); ++i) {
    Collection& collection = collections_[i];
    if (!collection.allowed_obstacles.empty()) {
      collection.allowed = known_snapshot_->named(collection.allowed_obstacles);
      balls_->setExcept(i, collection.allowed.isEmpty() ? nullptr : &collection.allowed);
    }
  }
  if (!fixed_collections_.empty()) {
    LookAtFixedFrames();
  }
}

void RobotCollision::LookAtFixedFrames() {
  const std::vector<math::RigidTransform>& frames = sweep_->compute(Eigen::VectorXd::Zero(q_.size()));
  const auto any_touches = [&](double kept) {
    return std::any_of(fixed_collections_.begin(), fixed_collections_.end(), [&](std::size_t i) {
      return CollectionTouches(collections_[i], base_ ? *base_ * frames[i] : frames[i], kept);
    });
  };
  fixed_touch_ = any_touches(0.0);
  fixed_are_near_ = any_touches(MotionProof::kClearance);
}

bool RobotCollision::IsTouched(const Collection& collection, const Eigen::Vector3d& center,
                               double radius) const {
  return known_snapshot_->inCollision(center, radius, &collection.allowed);
}

bool RobotCollision::CollectionTouches(const Collection& collection, const math::RigidTransform& pose,
                                       double clearance) const {
  const double kept = collection.padding + clearance;
  if (!IsTouched(collection, pose * collection.bounding_sphere.center,
                 collection.bounding_sphere.radius + kept)) {
    return false;
  }
  for (const math::Sphere& sphere : collection.spheres) {
    if (IsTouched(collection, pose * sphere.center, sphere.radius + kept)) {
      return true;
    }
  }
  return false;
}

std::uint32_t RobotCollision::FindFree(const double* coordinates, std::uint32_t wanted,
                                       bool only_below_first) {
  if (wanted == 0 || collections_.empty()) {
    return wanted;
  }
  LookAtWorld();
  if (fixed_touch_) {
    return 0;
  }
  const std::size_t num_lanes = wanted < 1u << 4 ? 4 : math::kNumLanes;
  // Where a joint is beyond the lanes' range, its lane stands anywhere: what seems to touch there says
  // nothing.
  const std::uint32_t unplaced = wanted & lane_sweep_->compute(coordinates, num_lanes);
  kavo::internal::BallModel::Contacts contacts;
  contacts.wanted = wanted & ~unplaced;
  contacts.only_below_first = only_below_first;
  balls_->model.findContacts(world_view_, num_lanes, contacts);
  const std::uint32_t touching = wanted & ~unplaced & ~contacts.wanted;
  contacts.wanted = wanted;
  contacts.unsure |= unplaced;
  contacts.note(touching);
  for (int i = 0; (contacts.wanted & contacts.unsure) >> i != 0; ++i) {
    if ((((contacts.wanted & contacts.unsure) >> i) & 1u) != 0) {
      for (Eigen::Index c = 0; c < q_.size(); ++c) {
        q_[c] = coordinates[c * kBatch + i];
      }
      if (Touches(q_)) {
        contacts.note(1u << i);
      }
    }
  }
  return contacts.wanted;
}

Eigen::VectorXd RobotCollision::MotionSpeeds() const {
  Eigen::VectorXd speeds = Eigen::VectorXd::Zero(q_.size());
  for (const RobotBalls::Bundle& bundle : balls_->bundles) {
    for (Eigen::Index c = 0; c < q_.size(); ++c) {
      std::vector<float> rates;
      balls_->reach.getRates(Eigen::VectorXd::Unit(q_.size(), c), rates);
      math::MotionBound bound;
      math::AddMotion(bundle.reaches, rates.data(), bound);
      speeds[c] = std::max(speeds[c], static_cast<double>(bound.speed));
    }
  }
  return speeds;
}

bool RobotCollision::TouchesItself(const std::vector<math::RigidTransform>& frames) const {
  for (const auto& [a, b] : pairs_) {
    if (MayTouch(a, b, frames)) {
      for (const math::Sphere& sphere_a : collections_[a].spheres) {
        for (const math::Sphere& sphere_b : collections_[b].spheres) {
          if (!(Gap(sphere_a, frames[a], sphere_b, frames[b]) > 0.0)) {
            return true;
          }
        }
      }
    }
  }
  return false;
}

// False only where no spheres of the two frames touch: rounding errors are far below the tolerance.
bool RobotCollision::MayTouch(std::size_t a, std::size_t b,
                              const std::vector<math::RigidTransform>& frames) const {
  const math::Sphere& sphere_a = collections_[a].bounding_sphere;
  const math::Sphere& sphere_b = collections_[b].bounding_sphere;
  double size = sphere_a.radius + sphere_b.radius;
  for (int i = 0; i < 3; ++i) {
    size += std::fabs(sphere_a.center[i]) + std::fabs(sphere_b.center[i]) +
            std::fabs(frames[a].translation[i]) + std::fabs(frames[b].translation[i]);
  }
  return !(Gap(sphere_a, frames[a], sphere_b, frames[b]) > 1e-12 * size);
}

std::optional<ConfigurationFault::SelfContact> RobotCollision::DeepestSelfContact(const Eigen::VectorXd& q) {
  std::optional<ConfigurationFault::SelfContact> deepest;
  const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
  for (const auto& [a, b] : pairs_) {
    for (std::size_t i = 0; i < collections_[a].spheres.size(); ++i) {
      for (std::size_t k = 0; k < collections_[b].spheres.size(); ++k) {
        const double depth =
            -Gap(collections_[a].spheres[i], frames[a], collections_[b].spheres[k], frames[b]);
        if (depth >= 0.0 && (!deepest || depth > deepest->depth)) {
          deepest = {{collections_[a].frame_name, collections_[b].frame_name}, {i, k}, depth};
        }
      }
    }
  }
  return deepest;
}

std::optional<ConfigurationFault::Contact> RobotCollision::DeepestContact(const Eigen::VectorXd& q) {
  std::optional<ConfigurationFault::Contact> deepest;
  LookAtWorld();
  const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
  for (std::size_t i = 0; i < collections_.size(); ++i) {
    const math::RigidTransform pose = base_ ? *base_ * frames[i] : frames[i];
    for (std::size_t k = 0; k < collections_[i].spheres.size(); ++k) {
      const math::Sphere& sphere = collections_[i].spheres[k];
      const Eigen::Vector3d center = pose * sphere.center;
      const double reach = sphere.radius + collections_[i].padding;
      if (!IsTouched(collections_[i], center, reach)) {
        continue;
      }
      const auto nearest = known_snapshot_->nearestObstacle(center, &collections_[i].allowed);
      if (nearest && (!deepest || reach - nearest->distance > deepest->depth)) {
        deepest = {collections_[i].frame_name, k, center, reach, nearest->obstacle, {},
                   reach - nearest->distance};
      }
    }
  }
  if (deepest) {
    // A sphere that just touches may lie outside by a rounding error here.
    deepest->depth = std::max(0.0, deepest->depth);
    deepest->obstacle_name = world_view_.name(deepest->obstacle);
  }
  return deepest;
}

std::optional<std::string> RobotCollision::UnplacedFrame(const Eigen::VectorXd& q) {
  const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
  for (std::size_t i = 0; i < collections_.size(); ++i) {
    const math::RigidTransform pose = base_ ? *base_ * frames[i] : frames[i];
    for (const math::Sphere& sphere : collections_[i].spheres) {
      if (!(pose * sphere.center).allFinite()) {
        return collections_[i].frame_name;
      }
    }
  }
  return std::nullopt;
}

}  // namespace kavo::planning::internal
