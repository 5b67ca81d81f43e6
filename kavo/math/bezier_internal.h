#pragma once

#include <Eigen/Core>
#include <utility>

//! Bezier curves, each given by its control points, one to a column and at least one: what has a degree n has
//! n + 1 of them. The curve is in their convex hull. Every coordinate is worked out by itself, in the same
//! order everywhere.

namespace kavo::math {

using BezierPoints = Eigen::Ref<const Eigen::MatrixXd>;

//! The point at a parameter, 0 to 1 from the first control point to the last, by de Casteljau's algorithm. A
//! coordinate that is the same in all control points is that on all of the curve.
inline Eigen::VectorXd BezierPoint(const BezierPoints& points, double t) {
  if (points.cols() == 2) {
    return points.col(0) + (points.col(1) - points.col(0)) * t;
  }
  Eigen::MatrixXd work = points;
  for (Eigen::Index n = points.cols() - 1; n > 0; --n) {
    for (Eigen::Index i = 0; i < n; ++i) {
      work.col(i) += (work.col(i + 1) - work.col(i)) * t;
    }
  }
  return work.col(0);
}

//! The parts of a curve before and after a parameter, each a curve over 0 to 1 of the same degree.
inline std::pair<Eigen::MatrixXd, Eigen::MatrixXd> SplitBezier(const BezierPoints& points, double t) {
  const Eigen::Index degree = points.cols() - 1;
  std::pair<Eigen::MatrixXd, Eigen::MatrixXd> parts(points, points);
  Eigen::MatrixXd& work = parts.second;
  for (Eigen::Index n = degree; n > 0; --n) {
    for (Eigen::Index i = 0; i < n; ++i) {
      work.col(i) += (work.col(i + 1) - work.col(i)) * t;
    }
    parts.first.col(degree - n + 1) = work.col(0);
  }
  return parts;
}

//! The derivative by the parameter, a curve of one degree less (of a single point: zero).
inline Eigen::MatrixXd BezierDerivative(const BezierPoints& points) {
  const Eigen::Index degree = points.cols() - 1;
  if (degree == 0) {
    return Eigen::MatrixXd::Zero(points.rows(), 1);
  }
  return static_cast<double>(degree) * (points.rightCols(degree) - points.leftCols(degree));
}

//! What no coordinate exceeds in size anywhere on a curve, by itself: the largest of its control points.
inline Eigen::VectorXd BezierBound(const BezierPoints& points) {
  return points.cwiseAbs().rowwise().maxCoeff();
}

}  // namespace kavo::math
