#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/kinematics/interface/pose_target.h"
#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/kinematics/pose_descent_internal.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! A value in all lanes.
struct alignas(sizeof(float) * math::kNumLanes) Lanes {
  float values[math::kNumLanes] = {};
};

//! Brings a frame to a pose from several configurations at once, one to a lane of wide vectors, in single
//! precision: the descents of `PoseDescent` up to where that takes over.
//!
//! What happens in a lane depends on nothing that is in another one, nor on which lane it is. Owns its
//! scratch memory: one thread at a time.
class KAVO_EXPORT PoseLanes {
 public:
  //! \param model Must outlive this.
  explicit PoseLanes(const PoseModel& model);
  PoseLanes(const PoseLanes&) = delete;
  PoseLanes& operator=(const PoseLanes&) = delete;

  void setTarget(const PoseTarget& target);

  //! Puts a configuration into a lane.
  void begin(std::size_t lane, const Eigen::VectorXd& q);

  //! Goes one step in all lanes.
  //! \return The lanes that were near the target before it, or in which the error has stopped to fall.
  std::uint32_t step() {
    sweep_.moveRoughly(program_.values);
    sweep_.placeAll();
    return step_(program_);
  }

  //! Whether a lane was near the target before the last step.
  bool isNear(std::size_t lane) const { return patience_.values[lane] < 0.0f; }
  //! The squared error of a lane before the last step, as of `PoseError`.
  double squared(std::size_t lane) const { return static_cast<double>(squared_.values[lane]); }
  //! Where a lane is.
  void get(std::size_t lane, Eigen::VectorXd& q) const;

  //! A joint, and what its motion does to the frame.
  struct Joint {
    //! Where it is if it turns, or what carries it if it slides.
    const math::LaneTransforms* place;
    bool is_revolute;
    //! Whether another joint follows the same coordinate before it.
    bool adds;
    std::size_t coordinate;
    //! The column of its axis.
    std::size_t column;
    //! Its share of a unit of the coordinate, with the sign of the axis; the same as a displacement.
    float scale;
    float slide[3];
  };

  struct Coordinate {
    bool turns;
    float min, max, unit;
  };

  //! How the rotation counts.
  enum class Rotation : std::uint8_t { kWhole, kAboutTwoOrNone, kAboutOne };

  //! All that a step works on.
  struct Program {
    std::vector<Joint> joints;
    std::vector<Coordinate> coordinates;
    //! What carries the frame, and the tool in it: the columns of its rotation, and its translation.
    const math::LaneTransforms* part;
    float tool[4][3];
    //! For each axis, zero where the position does not count.
    float position_scale[3];
    Rotation rotation;
    //! For each axis one or zero, and the one that matters: the free one or the only one.
    float rotation_scale[3];
    std::size_t axis;
    //! As of `PoseRoom`: of the position, of the rotation.
    float room[2];
    //! Squares of what is near, in the units of the error.
    float near_position, near_rotation;
    //! All lanes, coordinate by coordinate: value (of those that turn, on the turn around zero), -1 or 1 at
    //! the lower or the upper limit, slope of half the squared error, and six derivatives.
    float* values;
    float* at_limit;
    float* slopes;
    float* derivatives;
    float* squared;
    //! The error that has to be undercut, and the number of steps since it was: negative when near.
    float* bound;
    float* patience;
  };

 private:
  using StepFunction = std::uint32_t (*)(const Program& program);

  const PoseModel& model_;
  LaneSweep sweep_;
  StepFunction step_;
  Program program_;
  std::vector<Lanes> coordinates_, at_limit_, slopes_, derivatives_;
  Lanes squared_, bound_, patience_;
};

}  // namespace kavo::kinematics::internal
