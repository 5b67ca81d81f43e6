#include "kavo/motion_planning/trajectory/blended_path.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/trajectory/blended_path";

// Two blends that share a segment leave a piece of it that is not lost in rounding.
constexpr double kUsedOfShare = 1.0 - 1e-6;

using Piece = BlendedPath::Piece;

// A waypoint that stays, and those that lie on the way to it.
struct Corner {
  std::size_t waypoint = 0;
  bool stops = false;
  struct Passed {
    std::size_t waypoint = 0;
    // Of the segment that ends at this corner, 0 to 1.
    double share = 0.0;
  };
  std::vector<Passed> passed;
};

double LargestDifference(const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
  double largest = 0.0;
  for (Eigen::Index i = 0; i < a.size(); ++i) {
    largest = std::max(largest, std::fabs(a[i] - b[i]));
  }
  return largest;
}

// How far along the ray from `from` through `through` a point is, `through` being at 1, if it is on that ray
// and farther than `beyond`; else nothing good.
double ShareOnRay(const Eigen::VectorXd& from, const Eigen::VectorXd& through, const Eigen::VectorXd& point,
                  double beyond) {
  double product = 0.0;
  double square = 0.0;
  for (Eigen::Index i = 0; i < from.size(); ++i) {
    product += (point[i] - from[i]) * (through[i] - from[i]);
    square += (through[i] - from[i]) * (through[i] - from[i]);
  }
  const double share = product / square;
  if (!(share > beyond)) {
    return 0.0;
  }
  for (Eigen::Index i = 0; i < from.size(); ++i) {
    if (!(std::fabs(from[i] + share * (through[i] - from[i]) - point[i]) <= kPathTolerance)) {
      return 0.0;
    }
  }
  return share;
}

// The path without repeated waypoints and without those that it passes straight. The ray of a run is that of
// its first segment, so that what is left out stays within twice the tolerance of the run, however many.
std::vector<Corner> FindCorners(const std::vector<Eigen::VectorXd>& path,
                                const std::vector<std::size_t>& stops) {
  std::vector<Corner> corners = {{0, false, {}}};
  const auto stops_at = [&](std::size_t waypoint) {
    return std::find(stops.begin(), stops.end(), waypoint) != stops.end();
  };
  // The second waypoint of the run, and how far along its ray the last corner is.
  std::size_t through = 0;
  double share = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    Corner& last = corners.back();
    if (LargestDifference(path[i], path[last.waypoint]) <= kPathTolerance) {
      last.passed.push_back({i, share});
      last.stops = last.stops || stops_at(i);
      // The path is to end where it ends.
      if (i + 1 == path.size() && corners.size() > 1) {
        std::swap(last.passed.back().waypoint, last.waypoint);
      }
      continue;
    }
    const std::size_t from = corners.size() > 1 ? corners[corners.size() - 2].waypoint : 0;
    const double further =
        corners.size() > 1 && !last.stops ? ShareOnRay(path[from], path[through], path[i], share) : 0.0;
    if (further > 0.0) {
      last.passed.push_back({last.waypoint, share});
      last.waypoint = i;
      last.stops = stops_at(i);
      share = further;
      continue;
    }
    for (Corner::Passed& passed : last.passed) {
      passed.share /= std::max(share, 1.0);
    }
    corners.push_back({i, stops_at(i), {}});
    through = i;
    share = 1.0;
  }
  for (Corner::Passed& passed : corners.back().passed) {
    passed.share /= std::max(share, 1.0);
  }
  return corners;
}

// From one corner to the next.
struct Segment {
  Eigen::VectorXd direction;
  double length = 0.0;
};

Segment MakeSegment(const Eigen::VectorXd& from, const Eigen::VectorXd& to, const Eigen::VectorXd& speeds) {
  Segment segment;
  for (Eigen::Index i = 0; i < from.size(); ++i) {
    segment.length = std::max(segment.length, std::fabs(to[i] - from[i]) / speeds[i]);
  }
  segment.direction = (to - from) / segment.length;
  return segment;
}

// A blend at a corner that begins and ends `reach` away from it.
Piece MakeBlend(const Segment& in, const Eigen::VectorXd& corner, const Segment& out, double reach,
                bool is_smooth) {
  Piece piece;
  piece.kind = is_smooth ? Piece::Kind::kSmooth : Piece::Kind::kParabola;
  piece.start = corner - reach * in.direction;
  piece.corner = corner;
  piece.end = corner + reach * out.direction;
  piece.direction_in = in.direction;
  piece.direction_out = out.direction;
  piece.length = 2.0 * reach;
  return piece;
}

// How far from its corner a blend may begin. At each s it is h's integral from its two lines, the most in the
// middle: by a quarter of reach * (out - in) on a parabola, by 3/16 of it on a smooth blend.
double LargestReach(const Segment& in, const Segment& out, const BlendOptions& options) {
  const double turn = LargestDifference(in.direction, out.direction);
  return std::min((options.is_smooth ? 16.0 / 3.0 : 4.0) * options.deviation / turn,
                  kUsedOfShare * options.largest_share * std::min(in.length, out.length));
}

bool TurnsBack(const Segment& in, const Segment& out) {
  const Eigen::VectorXd back = -out.direction;
  return LargestDifference(in.direction, back) * std::min(in.length, out.length) <= kPathTolerance;
}

Piece MakeLine(const Segment& segment, const Eigen::VectorXd& from, const Eigen::VectorXd& to,
               double length) {
  Piece line;
  line.start = from;
  line.end = to;
  line.direction_in = line.direction_out = segment.direction;
  line.length = length;
  return line;
}

void CheckInput(const std::vector<Eigen::VectorXd>& path, Eigen::Index dimension,
                const BlendOptions& options) {
  KAVO_CHECK(!path.empty(), kFile, 20) << "A path to blend has at least one waypoint.";
  for (const Eigen::VectorXd& q : path) {
    KAVO_CHECK(q.size() == dimension && q.allFinite(), kFile, 21)
        << "Waypoints must have " << dimension << " finite coordinates, got [" << q.transpose() << "].";
  }
  KAVO_CHECK(options.deviation >= 0.0 && std::isfinite(options.deviation), kFile, 22)
      << "The deviation of blends must be finite and not negative, got " << options.deviation << ".";
  KAVO_CHECK(options.largest_share > 0.0 && options.largest_share <= 0.5, kFile, 25)
      << "The share of blends in a segment must be above 0, and 0.5 at most, got " << options.largest_share
      << ".";
  for (const std::size_t waypoint : options.stops) {
    KAVO_CHECK(waypoint < path.size(), kFile, 24)
        << "A path of " << path.size() << " waypoints cannot be stopped on at waypoint " << waypoint << ".";
  }
  const Eigen::VectorXd& speeds = options.top_speeds;
  KAVO_CHECK(speeds.size() == 0 ||
                 (speeds.size() == dimension && (speeds.array() > 0.0).all() && speeds.allFinite()),
             kFile, 23)
      << "Top speeds must be " << dimension << " positive numbers, got [" << speeds.transpose() << "].";
}

}  // namespace

Eigen::MatrixXd Piece::ControlPoints() const {
  const Eigen::Index n = start.size();
  if (kind == Kind::kLine) {
    return (Eigen::MatrixXd(n, 2) << start, end).finished();
  }
  if (kind == Kind::kParabola) {
    return (Eigen::MatrixXd(n, 3) << start, corner, end).finished();
  }
  return (Eigen::MatrixXd(n, 5) << start, 0.5 * (start + corner), corner, 0.5 * (corner + end), end)
      .finished();
}

// Blends at one corner after the other, each with the line before it.
class BlendedPath::Builder {
 public:
  Builder(const std::vector<Eigen::VectorXd>& path, const Environment& environment,
          const BlendOptions& options)
      : path_(path),
        environment_(environment),
        options_(options),
        corners_(FindCorners(path, options.stops)) {
    const Eigen::VectorXd speeds =
        options.top_speeds.size() > 0 ? options.top_speeds : Eigen::VectorXd::Ones(path.front().size());
    for (std::size_t i = 1; i < corners_.size(); ++i) {
      segments_.push_back(MakeSegment(PointOf(i - 1), PointOf(i), speeds));
    }
    blended_.start_ = path.front();
    blended_.places_.resize(path.size());
    blended_.is_smooth_ = options.is_smooth;
  }

  BlendedPath Build() {
    for (std::size_t i = 1; i < corners_.size(); ++i) {
      std::optional<Piece> blend = i + 1 < corners_.size() ? FindBlend(i) : std::nullopt;
      AddLineTo(i, blend);
      if (blend) {
        blended_.places_[corners_[i].waypoint] = {blended_.pieces_.size(), 0.5 * blend->length};
        blended_.pieces_.push_back(*std::move(blend));
        ++blended_.num_blends_;
      } else if (i + 1 < corners_.size()) {
        blended_.pieces_.back().stops_at_end = true;
        ++blended_.num_stops_;
      }
    }
    return std::move(blended_);
  }

 private:
  const Eigen::VectorXd& PointOf(std::size_t corner) const { return path_[corners_[corner].waypoint]; }

  // None where the robot has to stop.
  std::optional<Piece> FindBlend(std::size_t corner) {
    const Segment& in = segments_[corner - 1];
    const Segment& out = segments_[corner];
    if (options_.deviation == 0.0 || corners_[corner].stops || TurnsBack(in, out)) {
      return {};
    }
    double reach = LargestReach(in, out, options_);
    for (int halvings = 0; halvings <= kMaxBlendHalvings; ++halvings, reach *= 0.5) {
      Piece blend = MakeBlend(in, PointOf(corner), out, reach, options_.is_smooth);
      if (environment_.IsValidCurve(blend.ControlPoints(), options_.resolution)) {
        blended_.num_tightened_ += halvings > 0 ? 1 : 0;
        return blend;
      }
    }
    return {};
  }

  // From where the last piece ends to where the blend at a corner begins, or to the corner.
  void AddLineTo(std::size_t corner, const std::optional<Piece>& blend) {
    const Segment& segment = segments_[corner - 1];
    const bool is_after_blend = !blended_.pieces_.empty() && !blended_.pieces_.back().stops_at_end;
    const double reach = is_after_blend ? 0.5 * blended_.pieces_.back().length : 0.0;
    const double length = segment.length - reach - (blend ? 0.5 * blend->length : 0.0);
    const std::size_t piece = blended_.pieces_.size();
    // What would be passed on a blend beside its middle is passed where that ends.
    for (const Corner::Passed& passed : corners_[corner].passed) {
      blended_.places_[passed.waypoint] = {piece,
                                           std::clamp(passed.share * segment.length - reach, 0.0, length)};
    }
    blended_.places_[corners_[corner].waypoint] = {piece, length};
    blended_.pieces_.push_back(
        MakeLine(segment, blended_.pieces_.empty() ? path_.front() : blended_.pieces_.back().end,
                 blend ? blend->start : PointOf(corner), length));
  }

  const std::vector<Eigen::VectorXd>& path_;
  const Environment& environment_;
  const BlendOptions& options_;
  std::vector<Corner> corners_;
  // Segment i ends at corner i + 1.
  std::vector<Segment> segments_;
  BlendedPath blended_;
};

BlendedPath BlendPath(const std::vector<Eigen::VectorXd>& path, const Environment& environment,
                      const BlendOptions& options) {
  CheckInput(path, environment.CSpaceDimension(), options);
  return BlendedPath::Builder(path, environment, options).Build();
}

}  // namespace kavo::planning
