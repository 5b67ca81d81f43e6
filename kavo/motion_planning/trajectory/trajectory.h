#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! A motion in time: where a robot is, how fast, and how its speed changes, at every time from 0 to
//! `Duration()`. Made by `TimeOptimalTrajectory` or `JerkLimitedTrajectory`. Seconds; radians, or metres for
//! a coordinate that slides.
//!
//! It consists of pieces on which each coordinate is a polynomial of degree 4 in time. Position and velocity
//! are continuous where pieces meet, but for rounding.
class KAVO_EXPORT Trajectory {
 public:
  //! Where the robot is at a time (seconds), and how it moves: radians or metres, per second and its square.
  struct State {
    double time = 0.0;             //!< Seconds, from 0.
    Eigen::VectorXd position;      //!< Radians or metres.
    Eigen::VectorXd velocity;      //!< Per second.
    Eigen::VectorXd acceleration;  //!< Per second squared.
  };

  //! Of polynomials: a row for each coordinate, a column for each power of time, from the constant on.
  using Coefficients = Eigen::Matrix<double, Eigen::Dynamic, 5>;

  //! From `start` on, q(time) is the sum of column k times (time - start)^k.
  struct Piece {
    double start = 0.0;         //!< Seconds.
    double duration = 0.0;      //!< Seconds, positive.
    Coefficients coefficients;  //!< Of each coordinate.
  };

  //! How much of the limits is used at most anywhere: 1 is all of it.
  struct LimitUse {
    double velocity = 0.0;      //!< Of the limits of velocity.
    double acceleration = 0.0;  //!< Of the limits of acceleration.
    //! Of the limits of jerk, within pieces: where the acceleration jumps the jerk is not counted. Zero
    //! without such a limit.
    double jerk = 0.0;
  };

  //! Seconds.
  double Duration() const { return duration_; }
  //! Number of coordinates.
  Eigen::Index Dimension() const { return end_.size(); }

  //! Before 0 and after the duration, what it is then. NaN is a fatal error. No coordinate leaves the range
  //! that the waypoints of the path have. Where the acceleration jumps, it is the one after; at the end,
  //! zero.
  State At(double time) const;

  //! The states at all multiples of a period, but for one that is within a thousandth of a period of the end,
  //! and at the end. A period that is not positive, or one that gives more than ten million samples, is a
  //! fatal error.
  std::vector<State> Samples(double period) const;

  //! When each waypoint of the path is passed: where its corner is blended, the middle of the blend.
  const std::vector<double>& WaypointTimes() const { return waypoint_times_; }

  //! Number of polynomials that it consists of.
  std::size_t NumPieces() const { return starts_.size(); }
  //! One of these polynomials, in order of time; an index beyond is fatal.
  Piece PieceAt(std::size_t index) const;

  //! By the extremes of the polynomials, which are roots of quadratic ones. Fatal for limits of another
  //! dimension.
  LimitUse UseOf(const MotionLimits& limits) const;

 private:
  friend class TrajectoryBuilder;

  double duration_ = 0.0;
  // Of the pieces; coefficients by coordinate, five columns for each piece.
  std::vector<double> starts_;
  Eigen::MatrixXd coefficients_;
  Eigen::VectorXd end_;
  Eigen::VectorXd end_velocity_;
  Eigen::VectorXd lower_;
  Eigen::VectorXd upper_;
  std::vector<double> waypoint_times_;
};

}  // namespace kavo::planning
