#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <utility>

//! Bezier curves, each given by its control points, one to a column and at least one: what has a degree n has
//! n + 1 of them. The curve is in their convex hull. Every coordinate is worked out by itself, in the same
//! order everywhere.

namespace kavo::math {

using BezierPoints = Eigen::Ref<const Eigen::MatrixXd>;

//! One coordinate of the points at some parameters, each from 0 (the first control point) to 1 (the last
//! one), by Horner's scheme in Bernstein's form. Of two control points this is a + t (b - a). A coordinate
//! that is the same in all control points is that everywhere.
//! \param[out] values `kCount` of them.
template <std::size_t kCount>
void GetBezierCoordinate(const BezierPoints& points, Eigen::Index row, const double (&t)[kCount],
                         double* values) {
  const Eigen::Index degree = points.cols() - 1;
  const double first = points(row, 0);
  double powers[kCount];
  for (std::size_t k = 0; k < kCount; ++k) {
    powers[k] = t[k];
    values[k] = 0.0;
  }
  double binomial = 1.0;
  for (Eigen::Index i = 1; i < degree; ++i) {
    binomial = binomial * static_cast<double>(degree - i + 1) / static_cast<double>(i);
    const double weighted = binomial * (points(row, i) - first);
    for (std::size_t k = 0; k < kCount; ++k) {
      values[k] = (values[k] + powers[k] * weighted) * (1.0 - t[k]);
      powers[k] *= t[k];
    }
  }
  const double whole = points(row, degree) - first;
  for (std::size_t k = 0; k < kCount; ++k) {
    values[k] = first + (values[k] + powers[k] * whole);
  }
}

//! The point at a parameter.
inline Eigen::VectorXd BezierPoint(const BezierPoints& points, double t) {
  Eigen::VectorXd point(points.rows());
  for (Eigen::Index row = 0; row < points.rows(); ++row) {
    GetBezierCoordinate(points, row, {t}, &point[row]);
  }
  return point;
}

//! The parts of a curve before and after a parameter, each a curve over 0 to 1 of the same degree, by de
//! Casteljau's algorithm.
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
