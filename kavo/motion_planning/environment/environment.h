#pragma once

#include <Eigen/Core>
#include <optional>

#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! What a planner knows of the space that it plans in. One environment serves one thread at a time.
class KAVO_EXPORT Environment {
 public:
  virtual ~Environment();

  //! Number of c-space coordinates.
  virtual int CSpaceDimension() const = 0;

  virtual const kinematics::ConfigurationLimits& CSpaceCoordLimits() const = 0;

  virtual const DistanceMetric& CSpaceDistanceMetric() const = 0;

  //! Whether `q` lies within the limits and touches nothing. A length other than `CSpaceDimension()` is a
  //! fatal error.
  virtual bool IsValidConfiguration(const Eigen::VectorXd& q) const = 0;

  //! A random valid configuration; empty, with a warning, if none was found. Each call goes on in one random
  //! sequence.
  virtual std::optional<Eigen::VectorXd> SampleConfiguration() const = 0;

 protected:
  Environment() = default;
  Environment(const Environment&) = default;
  Environment& operator=(const Environment&) = default;
};

}  // namespace kavo::planning
