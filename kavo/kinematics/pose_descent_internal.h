#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/pose_target.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/kinematics/step_internal.h"
#include "kavo/math/rigid_transform.h"

namespace kavo::kinematics::internal {

//! One frame of a robot, and the coordinates that move it. Configurations below are of these alone, in order.
struct PoseModel {
  struct Coordinate {
    //! Of the robot's coordinates.
    Eigen::Index index = 0;
    JointLimits limits;
    //! Whether every joint that it moves comes back after a whole turn, of which the limits leave room for
    //! one.
    bool turns = false;
    //! Where the turn begins on which it is looked for.
    double turn_begin = 0.0;
    //! What counts as much as a radian.
    double unit = 1.0;

    //! Where random values come from.
    JointLimits range() const;
    //! The nearest value within the limits, or of those that turn, the same angle on the turn looked at.
    double brought(double q, bool may_turn) const;
  };

  PoseModel(const Kinematics& model, int frame, const std::vector<JointLimits>& limits);

  //! Looks for coordinates that turn on the turn around those of a configuration of the robot.
  void setAnchor(const Eigen::VectorXd& anchor);

  //! Its steps go by these coordinates.
  Kinematics::Plan plan;
  std::vector<Coordinate> coordinates;
  //! Metres that count as much as one radian.
  double unit_length = 1.0;
};

//! What remains between a frame and its target.
struct PoseError {
  //! Metres.
  double position = 0.0;
  //! Sine of half the angle.
  double half_angle_sine = 0.0;
  //! Squares of both as far as they are beyond the room of the target, the position in the model's unit, the
  //! rotation as twice that sine.
  double squared = 0.0;
};

//! How far a frame may be from a target without being drawn to it, in the units of the squared error: most of
//! a tolerance, but nothing of a fine one, which is as well met in the middle.
struct PoseRoom {
  PoseRoom() = default;
  PoseRoom(const PoseTarget& target, double unit_length);

  double position = 0.0;
  double rotation = 0.0;
};

//! Brings a frame to a pose by damped least squares in double precision, step by step.
//!
//! Everything is worked out in the coordinates of the target, so that what remains is where the frame is.
class PoseDescent {
 public:
  //! \param model Must outlive this.
  explicit PoseDescent(const PoseModel& model);

  void setTarget(const PoseTarget& target);

  //! Places the frame. Holds for the calls below.
  const PoseError& place(const Eigen::VectorXd& q);
  const PoseError& error() const { return error_; }
  bool isReached() const;
  //! The angle that remains.
  double angle() const;

  //! The coordinates that stand at a limit while the error falls beyond it.
  const std::vector<char>& blocked() const { return blocked_; }

  //! Goes one step from the configuration that was placed last, of which `q` is one.
  void step(Eigen::VectorXd& q, double damping, bool may_turn);
  //! That is best on the way to a target within reach.
  double damping() const;

  //! Places and steps until the target is reached or the error no longer falls.
  //! \param fall Share below which some steps in a row have to bring the squared error.
  //! \return Whether it is reached; `q` is placed.
  bool descend(Eigen::VectorXd& q, int max_steps, double fall, bool may_turn);

  //! Goes where the error is least, or until the target is reached, without a step uphill (Marquardt 1963).
  //! What else goes to and fro about the nearest place to a target that is out of reach.
  //! \return As of `descend`.
  bool settle(Eigen::VectorXd& q, int max_steps, bool may_turn);

  //! Of the target.
  const PoseTarget& target() const { return target_; }

 private:
  // Rows of the equations that are one vector.
  struct Block {
    int begin = 0;
    int end = 0;
    // How long the vector may be at no error.
    double room = 0.0;
    // What is left of it beyond that, as a share, and of what is along it.
    double share = 1.0;
    double share_along = 1.0;
    double direction[3] = {};
  };

  void setErrorRows();
  void setColumns(const Eigen::VectorXd& q);
  void leaveRoom(Block& block);
  void leaveRoom(const Block& block, double* column) const;

  const PoseModel& model_;
  PoseTarget target_;
  double half_tolerance_sine_ = 0.0;
  PoseRoom room_;
  // The plan from the target on, to the tool.
  Kinematics::Plan plan_;
  std::vector<Columns> slots_;
  std::vector<double> values_, sines_, cosines_;
  math::RigidTransform placed_;
  // Vector part and real part of the remaining rotation.
  double rotation_[4] = {};
  PoseError error_;
  // What remains, row by row, and its derivatives, coordinate by coordinate.
  int num_rows_ = 0;
  double rows_[6] = {};
  Block blocks_[2];
  std::vector<double> columns_;
  std::vector<char> blocked_;
};

}  // namespace kavo::kinematics::internal
