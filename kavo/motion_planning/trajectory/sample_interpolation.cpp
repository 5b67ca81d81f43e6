#include "kavo/motion_planning/trajectory/sample_interpolation.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "kavo/math/bezier_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr Eigen::Index kDegree = 5;

using Difference = Eigen::Matrix<double, Eigen::Dynamic, kDegree + 1>;

// The same curve with as many control points as one of that degree.
Difference Elevated(Eigen::MatrixXd points) {
  for (Eigen::Index n = points.cols(); n <= kDegree; ++n) {
    Eigen::MatrixXd more(points.rows(), n + 1);
    more.col(0) = points.col(0);
    for (Eigen::Index i = 1; i < n; ++i) {
      const double share = static_cast<double>(i) / static_cast<double>(n);
      more.col(i) = share * points.col(i - 1) + (1.0 - share) * points.col(i);
    }
    more.col(n) = points.col(n - 1);
    points = std::move(more);
  }
  return points;
}

// A polynomial from one time to another, as a Bezier curve.
Difference OnInterval(Trajectory::Coefficients powers, double from, double to) {
  // By Horner's scheme, again and again: the powers of what is beyond `from`.
  for (Eigen::Index k = 0; k < powers.cols(); ++k) {
    for (Eigen::Index i = powers.cols() - 2; i >= k; --i) {
      powers.col(i) += from * powers.col(i + 1);
    }
  }
  Difference points = Difference::Zero(powers.rows(), kDegree + 1);
  double length = 1.0;
  for (Eigen::Index k = 0; k < powers.cols(); ++k, length *= to - from) {
    // Of i over k by `kDegree` over k.
    double share = 1.0;
    for (Eigen::Index i = kDegree; i >= k; --i) {
      points.col(i) += share * length * powers.col(k);
      share *= static_cast<double>(i - k) / static_cast<double>(i);
    }
  }
  return points;
}

}  // namespace

const char* ToString(SampleInterpolation interpolation) {
  switch (interpolation) {
    case SampleInterpolation::kLinear:
      return "linear";
    case SampleInterpolation::kCubic:
      return "cubic";
    case SampleInterpolation::kQuintic:
      return "quintic";
  }
  return "unknown";
}

Eigen::MatrixXd InterpolationCurve(const Trajectory::State& from, const Trajectory::State& to,
                                   SampleInterpolation interpolation) {
  const double t = to.time - from.time;
  const Eigen::Index n = from.position.size();
  switch (interpolation) {
    case SampleInterpolation::kLinear:
      break;
    case SampleInterpolation::kCubic:
      return (Eigen::MatrixXd(n, 4) << from.position, from.position + t / 3.0 * from.velocity,
              to.position - t / 3.0 * to.velocity, to.position)
          .finished();
    case SampleInterpolation::kQuintic:
      return (Eigen::MatrixXd(n, 6) << from.position, from.position + t / 5.0 * from.velocity,
              from.position + 2.0 * t / 5.0 * from.velocity + t * t / 20.0 * from.acceleration,
              to.position - 2.0 * t / 5.0 * to.velocity + t * t / 20.0 * to.acceleration,
              to.position - t / 5.0 * to.velocity, to.position)
          .finished();
  }
  return (Eigen::MatrixXd(n, 2) << from.position, to.position).finished();
}

double InterpolationDeviation(const Trajectory& trajectory, const std::vector<Trajectory::State>& samples,
                              SampleInterpolation interpolation) {
  double largest = 0.0;
  std::size_t index = 0;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    const double start = samples[i - 1].time;
    const double end = samples[i].time;
    KAVO_CHECK(0.0 <= start && start < end && end <= trajectory.Duration(),
               "motion_planning/trajectory/sample_interpolation", 20)
        << "Samples must ascend within the " << trajectory.Duration() << " s of their trajectory, got "
        << start << " before " << end << ".";
    Eigen::MatrixXd rest = InterpolationCurve(samples[i - 1], samples[i], interpolation);
    // Both are polynomials from one end of a piece or a sample to the next.
    for (double from = start; from < end;) {
      while (index + 1 < trajectory.NumPieces() && trajectory.PieceAt(index + 1).start <= from) {
        ++index;
      }
      const Trajectory::Piece piece = trajectory.PieceAt(index);
      const double to =
          index + 1 < trajectory.NumPieces() ? std::min(end, trajectory.PieceAt(index + 1).start) : end;
      const auto parts = math::SplitBezier(rest, to < end ? (to - from) / (end - from) : 1.0);
      const Difference difference =
          Elevated(parts.first) - OnInterval(piece.coefficients, from - piece.start, to - piece.start);
      largest = std::max(largest, difference.cwiseAbs().maxCoeff());
      rest = parts.second;
      from = to;
    }
  }
  return largest;
}

}  // namespace kavo::planning
