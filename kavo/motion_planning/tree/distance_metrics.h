#pragma once

#include <Eigen/Core>
#include <functional>

#include "kavo/util/export.h"

namespace kavo::planning {

//! Distance between two configurations of equal length.
using DistanceMetric = std::function<double(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1)>;

//! Euclidean distance. Configurations of different lengths have none: reported at level 0, and the result is
//! NaN.
KAVO_EXPORT double L2Norm(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1);

//! Square of the Euclidean distance. Configurations of different lengths as in `L2Norm`.
KAVO_EXPORT double SquaredL2Norm(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1);

//! Sum over the coordinates of weight * difference squared.
class KAVO_EXPORT WeightedSquaredL2Norm {
 public:
  //! \param weights One weight for each coordinate; not validated.
  explicit WeightedSquaredL2Norm(const Eigen::VectorXd& weights);

  //! The lengths of `q0`, `q1` and the weights must be equal; this is not checked.
  double operator()(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const;

  //! As they were given.
  const Eigen::VectorXd& Weights() const { return weights_; }

 private:
  Eigen::VectorXd weights_;
};

//! Reports, at level 0, that two configurations differ in length.
KAVO_EXPORT void LogFatalDimensionMismatchError(int q0_dimension, int q1_dimension);

}  // namespace kavo::planning
