#pragma once

#include <Eigen/Core>
#include <cmath>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/frame_sweep.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/math/sphere.h"
#include "kavo/world/obstacle_set_internal.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning::internal {

//! What is taken from every bound for rounding, in parts of the lengths that it comes from. A place is the
//! sum of some dozens of products along the robot, each off by 1e-16 of the largest length in it at most, and
//! so is a distance: four orders below this. Of a robot of some metres this is a ten thousandth of the
//! smallest gap that anybody asks for.
inline constexpr double kProofRounding = 1e-10;

//! The length of a vector, its sum in order.
inline double Norm(const Eigen::Vector3d& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

//! A joint that moves, and where its axis is.
struct MovingJoint {
  Eigen::Index coordinate;
  //! By how much more than its coordinate it moves, and what stands in it for a coordinate of zero.
  double multiplier;
  double offset;
  bool slides;
  //! The index of its own frame, whose origin is on the axis, and the axis in that frame.
  std::size_t frame;
  Eigen::Vector3d axis;
};

//! A collision sphere, or a ball around some of one frame: what is far from all of these need not be asked of
//! each.
struct Ball {
  std::size_t frame;
  //! Among the spheres of the frame.
  std::size_t index;
  math::Sphere sphere;
  //! With the padding of the frame, which obstacles have to keep.
  double padded_radius;
  //! Those that it may touch.
  const kavo::internal::ObstacleSet* allowed;
  //! The joints that carry it.
  const std::vector<std::size_t>* joints;
  //! The balls that it is around; none for a collision sphere.
  std::size_t first_part = 0;
  std::size_t end_part = 0;

  bool HasParts() const { return first_part != end_part; }
  //! How far from its centre those of its parts may be.
  double Extent() const { return HasParts() ? sphere.radius : 0.0; }
};

//! Two balls that must not touch each other.
struct BallPair {
  std::size_t a;
  std::size_t b;
  //! The joints between the two, from the first one to the second.
  const std::vector<std::size_t>* joints;
};

//! A robot as a proof sees it: joints that move, and balls around balls of its collision spheres.
class ProofArm {
 public:
  ProofArm(const RobotDescriptionInternal& robot, const kavo::internal::Snapshot& snapshot);

  const std::vector<MovingJoint>& Joints() const { return joints_; }
  const std::vector<Ball>& Balls() const { return balls_; }
  //! The balls around all spheres of a frame, and the pairs of those of frames that must not touch.
  const std::vector<std::size_t>& Roots() const { return roots_; }
  const std::vector<BallPair>& Pairs() const { return pairs_; }
  //! The distance of the farthest sphere from the origin of its frame.
  double LargestOffset() const { return largest_offset_; }

  const std::string& FrameName(const Ball& ball) const { return kinematics_->frameNames()[ball.frame]; }

  //! Of all frames; holds until the next call.
  const std::vector<math::RigidTransform>& Place(const Eigen::VectorXd& q) { return sweep_->compute(q); }

 private:
  using BallIterator = std::vector<Ball>::iterator;

  void FindJoints(const kinematics::Kinematics::Plan& plan);
  void FindBalls(const RobotDescriptionInternal& robot, const kavo::internal::Snapshot& snapshot,
                 const kinematics::Kinematics::Plan& plan);
  void PutAround(BallIterator begin, BallIterator end, std::size_t place);

  std::unique_ptr<Kinematics> kinematics_;
  std::unique_ptr<FrameSweep> sweep_;
  std::vector<MovingJoint> joints_;
  // Those that a ball is around stand side by side.
  std::vector<Ball> balls_;
  std::vector<std::size_t> roots_;
  std::vector<BallPair> pairs_;
  // Of the frames with spheres.
  std::vector<kavo::internal::ObstacleSet> allowed_;
  // Of the base, then of each joint: the joints that carry it, itself last.
  std::vector<std::vector<std::size_t>> chains_;
  std::vector<std::vector<std::size_t>> linkages_;
  double largest_offset_ = 0.0;
};

}  // namespace kavo::planning::internal
