#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/kinematics/motion_reach_internal.h"
#include "kavo/math/sphere.h"
#include "kavo/world/ball_model_internal.h"

namespace kavo::planning::internal {

//! The collision spheres of a robot, put in order for a `BallModel`: the frames that are fixed to one another
//! are one part, and the spheres of a frame make small bundles of neighbours.
struct RobotBalls {
  //! The spheres of one frame, in the coordinates of the frame, and how far from obstacles they have to stay.
  struct Frame {
    std::vector<math::Sphere> spheres;
    double padding = 0.0;
  };

  //! A bundle of a frame.
  struct Bundle {
    //! Index of the frame among those given, and of the balls among the spheres of that frame.
    std::size_t frame = 0;
    std::vector<std::size_t> spheres;
    std::size_t part = 0;
    math::JointReaches reaches;
    //! Obstacles that are of no account, as in the model; null for none.
    const kavo::internal::ObstacleSet* except = nullptr;
  };

  //! \param frames As the plan has them.
  //! \param pairs Indices of frames that must not touch each other.
  RobotBalls(const kinematics::Kinematics::Plan& plan, const kinematics::internal::LaneSweep& lane_sweep,
             const std::vector<kinematics::JointLimits>& limits, const std::vector<Frame>& frames,
             const std::vector<std::pair<std::size_t, std::size_t>>& pairs);

  //! As `BallModel::setExcept`, for all bundles of a frame.
  void setExcept(std::size_t frame, const kavo::internal::ObstacleSet* except);

  kinematics::internal::MotionReach reach;
  //! As the model numbers them.
  std::vector<Bundle> bundles;
  std::vector<kavo::internal::BallModel::BundlePair> bundle_pairs;
  //! The slot of each part; -1 is the base.
  std::vector<int> part_slots;
  kavo::internal::BallModel model;

 private:
  kavo::internal::BallModel makeModel(const kinematics::Kinematics::Plan& plan,
                                      const kinematics::internal::LaneSweep& lane_sweep,
                                      const std::vector<Frame>& frames,
                                      const std::vector<std::pair<std::size_t, std::size_t>>& pairs);
};

}  // namespace kavo::planning::internal
