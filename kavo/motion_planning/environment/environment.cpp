#include "kavo/motion_planning/environment/environment.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kavo/math/bezier_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/environment/environment";

// Whether an environment finds points of a motion valid that are evenly spaced in its parameter.
// \param length At least that of the motion.
// \param point_at Gives the point at a parameter from 0 to 1.
template <class PointAt>
bool AreValid(const Environment& environment, double length, double resolution, const PointAt& point_at) {
  KAVO_CHECK(resolution > 0.0, kFile, 1) << "The resolution [" << resolution << "] must be positive.";
  if (!std::isfinite(length)) {
    return false;
  }
  const double num_parts = std::max(1.0, std::ceil(length / resolution));
  KAVO_CHECK(num_parts <= std::numeric_limits<int>::max(), kFile, 3)
      << "A motion of length [" << length << "] has too many parts of [" << resolution << "] to be checked.";
  // Each batch is spread over the whole motion: what touches shows sooner than from the start on.
  Eigen::MatrixXd points(environment.CSpaceDimension(), std::max(2, environment.NumAtOnce()));
  const double num_batches = std::ceil((num_parts + 1.0) / static_cast<double>(points.cols()));
  for (double first = 0.0; first < num_batches; first += 1.0) {
    Eigen::Index count = 0;
    for (double part = first; part <= num_parts; part += num_batches, ++count) {
      points.col(count) = point_at(part / num_parts);
    }
    if (environment.CountValid(points.leftCols(count)) < count) {
      return false;
    }
  }
  return true;
}

}  // namespace

Environment::~Environment() = default;

int Environment::CountValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const {
  int count = 0;
  Eigen::VectorXd q;
  while (count < configurations.cols()) {
    q = configurations.col(count);
    if (!IsValidConfiguration(q)) {
      break;
    }
    ++count;
  }
  return count;
}

bool Environment::IsValidMotion(const Eigen::Ref<const Eigen::VectorXd>& q_start,
                                const Eigen::Ref<const Eigen::VectorXd>& q_end, double resolution) const {
  KAVO_CHECK(q_start.size() == CSpaceDimension() && q_end.size() == CSpaceDimension(), kFile, 2)
      << "A motion from [" << q_start.size() << "] to [" << q_end.size() << "] coordinates does not fit the ["
      << CSpaceDimension() << "] of the configuration space.";
  const Eigen::VectorXd way = q_end - q_start;
  // The last point is the end itself, which rounding must not miss.
  return AreValid(*this, math::Distance(q_start, q_end), resolution, [&](double t) -> Eigen::VectorXd {
    return t < 1.0 ? Eigen::VectorXd(q_start + way * t) : Eigen::VectorXd(q_end);
  });
}

bool Environment::IsValidCurve(const Eigen::Ref<const Eigen::MatrixXd>& control_points,
                               double resolution) const {
  KAVO_CHECK(control_points.rows() == CSpaceDimension() && control_points.cols() > 0, kFile, 4)
      << "A curve of [" << control_points.cols() << "] control points of [" << control_points.rows()
      << "] coordinates does not fit the [" << CSpaceDimension() << "] of the configuration space.";
  double fastest = control_points.allFinite() ? 0.0 : std::numeric_limits<double>::infinity();
  const Eigen::MatrixXd derivative = math::BezierDerivative(control_points);
  for (Eigen::Index i = 0; i < derivative.cols(); ++i) {
    fastest = std::max(fastest, math::Norm(derivative.col(i)));
  }
  return AreValid(*this, fastest, resolution, [&](double t) -> Eigen::VectorXd {
    return t < 1.0 ? math::BezierPoint(control_points, t)
                   : Eigen::VectorXd(control_points.col(control_points.cols() - 1));
  });
}

}  // namespace kavo::planning
