#include <algorithm>
#include <cmath>

#include "kavo/motion_planning/trajectory/trajectory_builder_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

using Part = TrajectoryBuilder::Part;
using Path = BlendedPath::Piece;

// By time, at its powers, for one coordinate. The path is expanded at where the part begins, so that nothing
// cancels; its steps are e = speed t + acceleration t^2 / 2 + jerk t^3 / 6.
template <typename Row>
void Expand(const Path& path, const Part& part, Eigen::Index i, Row&& row) {
  const double in = path.direction_in[i];
  const double turn = path.direction_out[i] - in;
  const double x = part.along / path.length;
  const double v = part.speed;
  const double a = part.acceleration;
  switch (path.kind) {
    case Path::Kind::kLine:
      row << path.start[i] + in * part.along, in * v, in * a / 2.0, in * part.jerk / 6.0, 0.0;
      break;
    case Path::Kind::kParabola: {
      const double slope = in + turn * x;
      const double curve = turn / path.length;
      row << path.start[i] + part.along * (in + turn * x / 2.0), slope * v, (slope * a + curve * v * v) / 2.0,
          curve * v * a / 2.0, curve * a * a / 8.0;
      break;
    }
    case Path::Kind::kSmooth: {
      const double by = v / path.length;
      row << path.start[i] + part.along * (in + turn * x * x * (1.0 - x / 2.0)),
          v * (in + turn * x * x * (3.0 - 2.0 * x)), v * by * turn * 3.0 * x * (1.0 - x),
          v * by * by * turn * (1.0 - 2.0 * x), -v * by * by * by * turn / 2.0;
      break;
    }
  }
}

double StepAfter(const Part& part, double t) {
  return t * (part.speed + t * (part.acceleration / 2.0 + t * part.jerk / 6.0));
}

}  // namespace

void TrajectoryBuilder::Add(const Part& part) {
  if (part.duration > 0.0) {
    parts_.push_back(part);
  }
}

std::vector<double> TrajectoryBuilder::WaypointTimes() const {
  const std::vector<BlendedPath::Place>& places = path_.Places();
  std::vector<double> times(places.size(), 0.0);
  const auto is_before = [](const BlendedPath::Place& place, std::size_t piece, double along) {
    return place.piece < piece || (place.piece == piece && place.along <= along);
  };
  std::size_t waypoint = 0;
  double start = 0.0;
  for (const Part& part : parts_) {
    for (; waypoint < places.size() && is_before(places[waypoint], part.piece, part.along); ++waypoint) {
      times[waypoint] = start;
    }
    const double end = part.along + StepAfter(part, part.duration);
    for (; waypoint < places.size() && is_before(places[waypoint], part.piece, end); ++waypoint) {
      double before = 0.0;
      double after = part.duration;
      for (double middle = 0.5 * after; before < middle && middle < after; middle = 0.5 * (before + after)) {
        (part.along + StepAfter(part, middle) < places[waypoint].along ? before : after) = middle;
      }
      times[waypoint] = start + after;
    }
    start += part.duration;
  }
  std::fill(times.begin() + static_cast<std::ptrdiff_t>(waypoint), times.end(), start);
  return times;
}

Trajectory TrajectoryBuilder::Build(double end_rate) const {
  const Eigen::Index dimension = path_.Start().size();
  Trajectory trajectory;
  trajectory.lower_ = trajectory.upper_ = path_.Start();
  for (const Path& piece : path_.Pieces()) {
    for (const Eigen::VectorXd* const q : {&piece.start, &piece.corner, &piece.end}) {
      if (q->size() > 0) {
        trajectory.lower_ = trajectory.lower_.cwiseMin(*q);
        trajectory.upper_ = trajectory.upper_.cwiseMax(*q);
      }
    }
  }
  trajectory.end_ = path_.Start();
  trajectory.end_velocity_ = Eigen::VectorXd::Zero(dimension);
  if (!path_.Pieces().empty()) {
    trajectory.end_ = path_.Pieces().back().end;
    if (end_rate > 0.0) {
      trajectory.end_velocity_ = end_rate * path_.Pieces().back().direction_out;
    }
  }
  trajectory.coefficients_.resize(dimension, static_cast<Eigen::Index>(5 * parts_.size()));
  trajectory.starts_.reserve(parts_.size());
  for (const Part& part : parts_) {
    const auto column = static_cast<Eigen::Index>(5 * trajectory.starts_.size());
    for (Eigen::Index i = 0; i < dimension; ++i) {
      Expand(path_.Pieces()[part.piece], part, i, trajectory.coefficients_.row(i).segment<5>(column));
    }
    trajectory.starts_.push_back(trajectory.duration_);
    trajectory.duration_ += part.duration;
  }
  trajectory.waypoint_times_ = WaypointTimes();

  KAVO_CHECK(std::isfinite(trajectory.duration_), "motion_planning/trajectory/trajectory_builder", 20)
      << "A path has no finite trajectory under its limits.";
  // Times are rounded anew each time, so that a little more may be needed.
  double spare = 1.0 - kUsedShare;
  for (double times = NeededTime(trajectory); times > 1.0; times = NeededTime(trajectory), spare *= 2.0) {
    SlowDown(times * (1.0 + spare), trajectory);
  }
  return trajectory;
}

double TrajectoryBuilder::NeededTime(const Trajectory& trajectory) const {
  const Trajectory::LimitUse use = trajectory.UseOf(limits_);
  // As the jerk goes with the third power of time, this is more than enough for it.
  return std::max({use.velocity, std::sqrt(use.acceleration), use.jerk});
}

void TrajectoryBuilder::SlowDown(double times, Trajectory& trajectory) {
  trajectory.duration_ *= times;
  trajectory.end_velocity_ /= times;
  for (std::vector<double>* const all : {&trajectory.starts_, &trajectory.waypoint_times_}) {
    for (double& time : *all) {
      time *= times;
    }
  }
  double power = 1.0;
  for (Eigen::Index k = 0; k < 5; ++k, power *= times) {
    for (Eigen::Index column = k; column < trajectory.coefficients_.cols(); column += 5) {
      trajectory.coefficients_.col(column) /= power;
    }
  }
}

}  // namespace kavo::planning
