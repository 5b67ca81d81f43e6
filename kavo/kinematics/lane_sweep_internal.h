#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/kinematics/kinematics.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! One step of a kinematic program as the lanes run it: out = base * offset, then the motion of the joint.
//! Everything that does not change is worked out beforehand.
struct LaneStep {
  //! Runs such a step where the motion of its joint is known.
  using Run = void (*)(const LaneStep& step);

  //! For four lanes and for all.
  Run run_four = nullptr;
  Run run_all = nullptr;
  bool is_revolute = true;
  //! A rotation that takes axes to axes only picks columns; any other is multiplied by `rotation`.
  bool is_general = false;
  //! Coordinates of the translation that are not zero.
  std::uint8_t num_terms = 0;
  const math::LaneTransforms* base = nullptr;
  math::LaneTransforms* out = nullptr;
  //! Motion of the joint, in all lanes: sine (with `turn_sign`) and cosine, or the value of a sliding one.
  float* sine = nullptr;
  float* cosine = nullptr;
  //! The joint's value is multiplier * coordinate + summand.
  std::size_t coordinate = 0;
  double multiplier = 1.0;
  double summand = 0.0;
  //! Of the turned axes u and v and the axis w that stays (for no turn: x, y, z): which column it is, in
  //! entries of a row, which column of the base it comes from, and its sign.
  std::size_t to[3] = {};
  std::size_t from[3] = {};
  float sign[3] = {1.0f, 1.0f, 1.0f};
  float turn_sign = 1.0f;
  //! The columns of the base that the translation moves along, and how far.
  std::size_t term_from[3] = {};
  float term[3] = {};
  //! Columns u, v, w of the offset's rotation.
  float rotation[3][3] = {};
  //! Displacement per unit of a sliding joint, in the base.
  float slide[3] = {};
};

//! Places a list of frames for several configurations at once, one to a lane of wide vectors, in single
//! precision: fast enough to rule most things out, with a bound on how wrong it may be. What has to be known
//! better is asked of a `FrameSweep`.
//!
//! Owns its scratch memory: one thread at a time.
class KAVO_EXPORT LaneSweep {
 public:
  //! A frame of the plan: fixed to a part of the robot.
  struct Frame {
    //! Where the part is after a call of `compute`, in all lanes.
    const math::LaneTransforms* part;
    //! Pose of the frame in the part.
    math::RigidTransform offset;
  };

  //! Values of joints up to this (radians or metres) are placed to within the stated errors.
  static constexpr float kLargestValue = 8.0f;

  //! \param plan Of the wanted frames; see `Kinematics::plan`.
  explicit LaneSweep(const Kinematics::Plan& plan);
  LaneSweep(const LaneSweep&) = delete;
  LaneSweep& operator=(const LaneSweep&) = delete;

  //! The frames in the order of the plan; they stay where they are in memory.
  const std::vector<Frame>& frames() const { return frames_; }

  //! Where the part of a slot of the plan is after a call of `compute`; -1 is the base.
  const math::LaneTransforms& place(int slot) const { return places_[static_cast<std::size_t>(slot + 1)]; }

  //! Places the robot base; identity at first. Holds for later calls of `compute`.
  void setBase(const math::RigidTransform& base);

  //! Places the parts.
  //!
  //! \param coordinates Coordinate c of the configuration in lane i at [c * `math::kNumLanes` + i].
  //! \param num_lanes 4 or `math::kNumLanes`; lanes beyond are not placed.
  //! \return The lanes in which the placement means nothing, because a joint's value is too large or none.
  std::uint32_t compute(const double* coordinates, std::size_t num_lanes) {
    const std::uint32_t too_large = move(coordinates, num_lanes);
    placeAll();
    return too_large;
  }

  //! Begins with another placement: works out what the joints do. Parameters and result as of `compute`.
  std::uint32_t move(const double* coordinates, std::size_t num_lanes) {
    run_ = num_lanes == 4 ? &LaneStep::run_four : &LaneStep::run_all;
    num_placed_ = 0;
    return move_(steps_.data(), steps_.size(), coordinates, num_lanes);
  }

  //! The same for configurations along a motion, in all lanes.
  //! \param start, way Where each coordinate is at time zero, and how far it goes in one unit of time.
  //! \param times One for each lane.
  std::uint32_t moveAlong(const double* start, const double* way, const double* times) {
    run_ = &LaneStep::run_all;
    num_placed_ = 0;
    return move_along_(steps_.data(), steps_.size(), start, way, times);
  }

  //! The same for coordinates in single precision, and for joints that stand anywhere: what is stated of
  //! errors does not hold.
  //! \param coordinates Coordinate c of the configuration in lane i at [c * `math::kNumLanes` + i].
  void moveRoughly(const float* coordinates) {
    run_ = &LaneStep::run_all;
    num_placed_ = 0;
    move_roughly_(steps_.data(), steps_.size(), coordinates);
  }

  //! Goes on with it: places the parts up to that of a slot of the plan, unless they are placed already.
  void placeUpTo(int slot) {
    for (; static_cast<int>(num_placed_) <= slot; ++num_placed_) {
      (steps_[num_placed_].*run_)(steps_[num_placed_]);
    }
  }
  void placeAll() { placeUpTo(static_cast<int>(steps_.size()) - 1); }

 private:
  using MoveFunction = std::uint32_t (*)(const LaneStep* steps, std::size_t count, const double* coordinates,
                                         std::size_t num_lanes);
  using MoveRoughlyFunction = void (*)(const LaneStep* steps, std::size_t count, const float* coordinates);
  using MoveAlongFunction = std::uint32_t (*)(const LaneStep* steps, std::size_t count, const double* start,
                                              const double* way, const double* times);

  MoveFunction move_;
  MoveAlongFunction move_along_;
  MoveRoughlyFunction move_roughly_;
  LaneStep::Run LaneStep::*run_ = &LaneStep::run_all;
  std::size_t num_placed_ = 0;
  std::vector<LaneStep> steps_;
  // What the joints of the steps do.
  struct alignas(64) Motion {
    float sine[math::kNumLanes];
    float cosine[math::kNumLanes];
  };
  std::vector<Motion> motions_;
  // Where the base is, and after it one place for each step.
  std::vector<math::LaneTransforms> places_;
  std::vector<Frame> frames_;
};

}  // namespace kavo::kinematics::internal
