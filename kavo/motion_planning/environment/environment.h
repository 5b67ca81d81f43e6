#pragma once

#include <Eigen/Core>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! What a planner knows of the space that it plans in. One environment serves one thread at a time.
//!
//! @code
//! // A point in a square with a hole.
//! class Square : public kavo::planning::Environment {
//!  public:
//!   int CSpaceDimension() const override { return 2; }
//!   const kavo::kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
//!   const kavo::planning::DistanceMetric& CSpaceDistanceMetric() const override { return metric_; }
//!   bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
//!     return (q.array().abs() <= 1.0).all() && q.norm() > 0.5;
//!   }
//!   std::optional<Eigen::VectorXd> SampleConfiguration() const override {
//!     Eigen::VectorXd q = Eigen::Vector2d::Zero();
//!     while (!IsValidConfiguration(q)) {
//!       q << sampler_.Sample(), sampler_.Sample();
//!     }
//!     return q;
//!   }
//!
//!  private:
//!   kavo::kinematics::ConfigurationLimits limits_{Eigen::Vector2d(-1.0, -1.0), Eigen::Vector2d(1.0, 1.0)};
//!   kavo::planning::DistanceMetric metric_ = kavo::planning::L2Norm;
//!   mutable kavo::util::RandomGenerator<double> sampler_{1};
//! };
//!
//! const auto found = kavo::planning::FindPath(std::make_shared<Square>(), {0.1, 1000, 0.5},
//!                                             Eigen::Vector2d(-0.8, 0.0), Eigen::Vector2d(0.8, 0.0));
//! assert(found && found.path.size() > 2);
//! @endcode
class KAVO_EXPORT Environment {
 public:
  virtual ~Environment();

  //! Number of c-space coordinates.
  virtual int CSpaceDimension() const = 0;

  //! The closed range of each coordinate, in its unit.
  virtual const kinematics::ConfigurationLimits& CSpaceCoordLimits() const = 0;

  //! The distance by which planners look for the nearest configuration.
  virtual const DistanceMetric& CSpaceDistanceMetric() const = 0;

  //! Whether `q` lies within the limits and touches nothing. A length other than `CSpaceDimension()` is a
  //! fatal error in the environments of this library.
  virtual bool IsValidConfiguration(const Eigen::VectorXd& q) const = 0;

  //! A random valid configuration; empty, with a warning, if none was found. Each call goes on in one random
  //! sequence.
  virtual std::optional<Eigen::VectorXd> SampleConfiguration() const = 0;

  //! How many configurations, from the first on, are valid before one is not: what asking
  //! `IsValidConfiguration` one by one, up to the first invalid one, would say. An environment that knows how
  //! to check several at once overrides this default, which does just that.
  //! \param configurations One to a column; `CSpaceDimension()` rows, any other number is a fatal error.
  virtual int CountValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const;

  //! Whether a whole motion is valid: every configuration from `q_start` straight to `q_end`, both included.
  //! Nothing goes the short way round here: where a whole turn of a coordinate changes nothing, the caller
  //! has chosen between `q_end` and its turns.
  //!
  //! An environment that can prove this for every point between the two overrides this default, which asks
  //! `CountValid` about evenly spaced points and so may miss what reaches in between two of them. A motion
  //! that is not finite is not valid.
  //! \param q_start, q_end Lengths other than `CSpaceDimension()` are a fatal error.
  //! \param resolution Largest distance of two points (Euclidean, in c-space) for an environment that
  //!     samples; positive, or a fatal error there. One that proves does not look at it.
  virtual bool IsValidMotion(const Eigen::Ref<const Eigen::VectorXd>& q_start,
                             const Eigen::Ref<const Eigen::VectorXd>& q_end, double resolution) const;

  //! The same of a motion along a Bezier curve, every configuration of it: the blend of a corner, or what a
  //! controller runs between two samples.
  //!
  //! As above, an environment that can prove this overrides the default, which asks about points that are
  //! evenly spaced in the parameter of the curve. One that proves may refuse a curve of which a control point
  //! is beyond the limits, although the curve is within them.
  //! \param control_points One to a column, from where the curve begins to where it ends: two are the straight
  //!     motion, one is a configuration. None, or rows other than `CSpaceDimension()`, are a fatal error.
  //! \param resolution See `IsValidMotion`; bounds the distance of two points along the curve.
  virtual bool IsValidCurve(const Eigen::Ref<const Eigen::MatrixXd>& control_points, double resolution) const;

  //! How many configurations `CountValid` checks in little more time than one. Planners look that many steps
  //! ahead; with 1, the default, an environment is asked about a configuration only when all before it are
  //! known to be valid and used. An environment of several at once must not change in the middle of a query,
  //! unless it is a `RobotEnvironment`.
  int NumAtOnce() const { return num_at_once_; }

  //! The coordinates, ascending, in which a whole turn (2 pi) changes nothing; none unless the environment
  //! says so. Their limits are infinite, and the metric measures the short way round (see `PeriodicMetric`).
  //! Planners then head for a goal the short way round and store configurations beside their parents: a path
  //! goes straight from waypoint to waypoint, and may leave [-pi, pi].
  const std::vector<Eigen::Index>& PeriodicCoordinates() const { return periodic_coordinates_; }

 protected:
  //! \param num_at_once See `NumAtOnce`; less than 1 counts as 1.
  //! \param periodic_coordinates See `PeriodicCoordinates`.
  explicit Environment(int num_at_once = 1, std::vector<Eigen::Index> periodic_coordinates = {})
      : num_at_once_(num_at_once < 1 ? 1 : num_at_once),
        periodic_coordinates_(std::move(periodic_coordinates)) {}
  Environment(const Environment&) = default;             //!< For derived classes.
  Environment& operator=(const Environment&) = default;  //!< For derived classes.

 private:
  int num_at_once_;
  std::vector<Eigen::Index> periodic_coordinates_;
};

}  // namespace kavo::planning
