#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! How `BlendPath` rounds the corners of a path.
struct BlendOptions {
  //! How far a blend may be from the path, the largest over the coordinates (radians or metres). Zero: the
  //! robot stops at each corner. Not negative, finite; otherwise a fatal error.
  double deviation = 0.0;
  //! How much of either segment a blend may take: above 0, and 0.5 at most; otherwise a fatal error.
  double largest_share = 0.5;
  //! Whether the second derivative is continuous, as it has to be where the jerk is limited.
  bool is_smooth = false;
  //! The limits of velocity. Blends begin and end as long before and after their corner as these take the
  //! robot there. Empty: ones.
  Eigen::VectorXd top_speeds;
  //! Waypoints, by index, at which the robot is to stop whatever the deviation; the first and the last one
  //! count for nothing. One that the path does not have is a fatal error.
  std::vector<std::size_t> stops;
  //! For an environment that samples, see `Environment::IsValidCurve`.
  double resolution = 0.02;
};

//! A path of straight pieces and of blends between them: a curve in c-space without time in it.
//!
//! Its parameter s is the time that a piece takes at top speed. The derivative of q by s, the direction, is
//! continuous but for corners where the robot has to stop; on a blend it goes from the direction of one line
//! to that of the next as in + (out - in) h(s / length), with h(x) = x on a parabola, which makes the second
//! derivative constant, and h(x) = 3 x^2 - 2 x^3 on a smooth blend, which makes it zero at both ends.
class KAVO_EXPORT BlendedPath {
 public:
  //! A line, or the blend of a corner.
  struct KAVO_EXPORT Piece {
    //! A smooth blend has a continuous second derivative, a parabola has not.
    enum class Kind { kLine, kParabola, kSmooth };

    //! What it is.
    Kind kind = Kind::kLine;
    //! Where it begins, a configuration.
    Eigen::VectorXd start;
    //! Of a blend, where its two lines would meet. Of a line, not used.
    Eigen::VectorXd corner;
    //! Where it ends, a configuration: the start of the next piece.
    Eigen::VectorXd end;
    //! Derivative by s at the start; for a line that at the end, too.
    Eigen::VectorXd direction_in;
    //! Derivative by s at the end.
    Eigen::VectorXd direction_out;
    //! The range of s, positive.
    double length = 0.0;
    //! Whether the next piece goes on in another direction at once.
    bool stops_at_end = false;

    //! The piece as a Bezier curve, one control point to a column: two for a line, three for a parabola, five
    //! for a smooth blend.
    Eigen::MatrixXd ControlPoints() const;
  };

  //! Where a waypoint is passed: a piece and how far along it. On a blend that is its middle.
  struct Place {
    //! Index of the piece.
    std::size_t piece = 0;
    //! From 0 to the length of the piece.
    double along = 0.0;
  };

  //! Where the path begins.
  const Eigen::VectorXd& Start() const { return start_; }
  //! Empty for a path that goes nowhere.
  const std::vector<Piece>& Pieces() const { return pieces_; }
  //! Of every waypoint of the path as it came. Without pieces, meaningless.
  const std::vector<Place>& Places() const { return places_; }
  //! Whether its blends have a continuous second derivative.
  bool IsSmooth() const { return is_smooth_; }
  //! Corners that are blended.
  std::size_t NumBlends() const { return num_blends_; }
  //! Corners whose blend was made smaller since the environment refused a larger one.
  std::size_t NumTightened() const { return num_tightened_; }
  //! Corners, without the ends of the path, at which the robot stops.
  std::size_t NumStops() const { return num_stops_; }

 private:
  class Builder;
  friend KAVO_EXPORT BlendedPath BlendPath(const std::vector<Eigen::VectorXd>& path,
                                           const Environment& environment, const BlendOptions& options);

  Eigen::VectorXd start_;
  std::vector<Piece> pieces_;
  std::vector<Place> places_;
  bool is_smooth_ = false;
  std::size_t num_blends_ = 0;
  std::size_t num_tightened_ = 0;
  std::size_t num_stops_ = 0;
};

//! Waypoints that are nearer than this to the one before, or to the straight line that goes on, count as
//! repeated or as lying on the line (the largest over the coordinates).
inline constexpr double kPathTolerance = 1e-9;
//! How often a blend that is not valid is made half as large before the robot stops at its corner.
inline constexpr int kMaxBlendHalvings = 6;

//! Rounds the corners of a path by blends that lie in the triangle of their corner, so that they keep limits,
//! and take no more than half of each segment (Kunz and Stilman, "Time-optimal
//! trajectory generation for path following with bounded acceleration and velocity", 2012, with parabolas in
//! place of their circles). Each is asked of the environment (`Environment::IsValidCurve`), and made smaller
//! where it is not valid. Segments are taken for valid. Where the path turns back the robot stops.
//! \param path At least one configuration of the environment's dimension, all finite; otherwise a fatal
//!     error.
//!
//! @code
//! kavo::World world;
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, 0.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 2.0, 2.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//! kavo::planning::BlendOptions options;
//! options.deviation = 0.1;
//! const kavo::planning::BlendedPath path = kavo::planning::BlendPath(
//!     {Eigen::Vector3d(0.0, 0.0, 0.0), Eigen::Vector3d(1.0, 0.0, 0.0), Eigen::Vector3d(1.0, 1.0, 0.0)},
//!     *environment, options);
//! assert(path.Pieces().size() == 3 && path.NumBlends() == 1);
//! assert(path.Pieces()[1].ControlPoints().col(1) == Eigen::Vector3d(1.0, 0.0, 0.0));
//! @endcode
KAVO_EXPORT BlendedPath BlendPath(const std::vector<Eigen::VectorXd>& path, const Environment& environment,
                                  const BlendOptions& options = {});

}  // namespace kavo::planning
