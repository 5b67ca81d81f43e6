#include "kavo/world/shapes/sphere_cover.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <variant>

#include "kavo/math/bounding_sphere.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"
#include "kavo/world/shapes/cover_outside_internal.h"
#include "kavo/world/shapes/cover_proof_internal.h"
#include "kavo/world/shapes/cover_region_internal.h"
#include "kavo/world/shapes/set_cover_internal.h"

namespace kavo {

namespace {

using internal::CoverOutside;
using internal::CoverRegion;

constexpr char kFile[] = "world/shapes/sphere_cover";

constexpr std::size_t kMaxSpheres = 20000;
// About 90 bytes each.
constexpr std::size_t kMaxCells = 6'000'000;

double SquaredDistance(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  const double x = a[0] - b[0];
  const double y = a[1] - b[1];
  const double z = a[2] - b[2];
  return x * x + y * y + z * z;
}

// Points under a tree.
class PointIndex {
 public:
  explicit PointIndex(const std::vector<Eigen::Vector3d>& points)
      : points_(points), tree_(BoundsOf(points)) {}

  // Calls `visit(index)` for all points in a ball.
  template <class Visit>
  void forEachWithin(const Eigen::Vector3d& center, double radius, const Visit& visit) const {
    internal::Bounds box{};
    for (int axis = 0; axis < 3; ++axis) {
      box.low[axis] = center[axis] - radius;
      box.high[axis] = center[axis] + radius;
    }
    tree_.findOverlapping(box, [&](std::uint32_t place) {
      const std::uint32_t index = tree_.items[place];
      if (SquaredDistance(points_[index], center) <= radius * radius) {
        visit(index);
      }
      return false;
    });
  }

 private:
  static std::vector<internal::Bounds> BoundsOf(const std::vector<Eigen::Vector3d>& points) {
    std::vector<internal::Bounds> bounds(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      for (int axis = 0; axis < 3; ++axis) {
        bounds[i].low[axis] = bounds[i].high[axis] = points[i][axis];
      }
    }
    return bounds;
  }

  const std::vector<Eigen::Vector3d>& points_;
  internal::BoundsTree tree_;
};

// Finds the cover of a region for one tolerance.
class CoverSearch {
 public:
  CoverSearch(const CoverRegion& region, CoverOutside& outside, double tolerance, std::size_t max_spheres)
      : region_(region),
        outside_(outside),
        tolerance_(tolerance),
        max_spheres_(max_spheres),
        directions_(1) {}

  // None if it would take too many.
  std::optional<std::vector<math::Sphere>> run();

 private:
  // A sphere about a place with the largest radius that there may be.
  struct Ball {
    Eigen::Vector3d center;
    double radius;
    // Whether the radius is proven, and not an estimate.
    bool is_exact;
  };

  // Radius of the disc that a ball covers of a plane whose tolerance it uses up.
  double discRadius(double radius) const {
    return std::sqrt(std::max(2.0 * radius * tolerance_ - tolerance_ * tolerance_, tolerance_ * tolerance_));
  }

  void choosePoints();
  void addGrown(const Eigen::Vector3d& point);
  void addEnclosing(const std::vector<Eigen::Vector3d>& points);
  void addAround(const Ball& ball, double share);
  void select(std::size_t num_chosen, std::size_t effort);
  void makeExact();
  std::vector<Eigen::Vector3d> findUncovered();

  const CoverRegion& region_;
  CoverOutside& outside_;
  const double tolerance_;
  const std::size_t max_spheres_;
  util::RandomGenerator<Eigen::Vector3d> directions_;
  // What is to be covered, as far as the choice looks at it.
  std::vector<Eigen::Vector3d> points_;
  // What there is to choose from, or what is chosen.
  std::vector<Ball> balls_;
};

// Of the points as many as a fraction of the disc of the ball that covers one best is wide.
void CoverSearch::choosePoints() {
  constexpr double kSpacing = 0.3;
  const std::vector<Eigen::Vector3d> samples = outside_.samples();
  const PointIndex index(samples);
  std::vector<std::uint32_t> order(samples.size());
  for (std::uint32_t i = 0; i < order.size(); ++i) {
    order[i] = i;
  }
  util::RandomGenerator<double> random(1);
  for (std::size_t i = order.size(); i > 1; --i) {
    random.SetRange(0.0, static_cast<double>(i));
    std::swap(order[i - 1], order[std::min(static_cast<std::size_t>(random.Sample()), i - 1)]);
  }
  std::vector<bool> is_done(samples.size());
  for (const std::uint32_t sample : order) {
    if (is_done[sample]) {
      continue;
    }
    points_.push_back(samples[sample]);
    addGrown(samples[sample]);
    index.forEachWithin(samples[sample], kSpacing * discRadius(balls_.back().radius),
                        [&](std::uint32_t near) { is_done[near] = true; });
    is_done[sample] = true;
  }
}

// The ball about a point, and the largest that holds it.
void CoverSearch::addGrown(const Eigen::Vector3d& point) {
  Ball small{point, outside_.estimate(point).distance, false};
  Ball large{point, 0.0, false};
  large.radius = outside_.grow(point, large.center).distance;
  if (SquaredDistance(small.center, large.center) > 0.01 * tolerance_ * tolerance_) {
    balls_.push_back(small);
  }
  balls_.push_back(large);
}

// The ball about the middle of some points.
void CoverSearch::addEnclosing(const std::vector<Eigen::Vector3d>& points) {
  std::vector<math::Sphere> spheres;
  spheres.reserve(points.size());
  for (const Eigen::Vector3d& point : points) {
    spheres.push_back({point, 0.0});
  }
  const Eigen::Vector3d center = math::ComputeBoundingSphere(spheres).center;
  balls_.push_back({center, outside_.reach(center).distance, true});
}

// A few balls whose centres are near to another's.
void CoverSearch::addAround(const Ball& ball, double share) {
  constexpr int kCount = 10;
  const double length = share * discRadius(ball.radius);
  for (int i = 0; i < kCount; ++i) {
    Eigen::Vector3d direction = directions_.Sample();
    while (direction[0] * direction[0] + direction[1] * direction[1] + direction[2] * direction[2] > 1.0) {
      direction = directions_.Sample();
    }
    Ball other{ball.center + length * direction, 0.0, false};
    if (i % 2 == 0) {
      other.radius = outside_.estimate(other.center).distance;
    } else {
      const Eigen::Vector3d point = other.center;
      other.radius = outside_.grow(point, other.center).distance;
    }
    if (other.radius > 0.2 * tolerance_) {
      balls_.push_back(other);
    }
  }
}

// The best choice among the balls comes first, and is all that is left.
void CoverSearch::select(std::size_t num_chosen, std::size_t effort) {
  constexpr double kSlack = 0.01;
  const PointIndex index(points_);
  std::vector<std::vector<std::uint32_t>> sets(balls_.size());
  for (std::size_t i = 0; i < balls_.size(); ++i) {
    index.forEachWithin(balls_[i].center, balls_[i].radius - kSlack * tolerance_,
                        [&](std::uint32_t point) { sets[i].push_back(point); });
  }
  internal::SetCover cover(points_.size(), sets);
  for (std::uint32_t i = 0; i < num_chosen; ++i) {
    cover.choose(i);
  }
  cover.complete();
  std::vector<Ball> chosen;
  for (const std::uint32_t ball : cover.search(effort)) {
    chosen.push_back(balls_[ball]);
  }
  balls_ = std::move(chosen);
}

void CoverSearch::makeExact() {
  for (Ball& ball : balls_) {
    if (!ball.is_exact) {
      ball.radius = outside_.reach(ball.center).distance;
      ball.is_exact = true;
    }
  }
}

std::vector<Eigen::Vector3d> CoverSearch::findUncovered() {
  std::vector<math::Sphere> spheres;
  for (const Ball& ball : balls_) {
    spheres.push_back({ball.center, ball.radius});
  }
  return internal::FindUncovered(region_, spheres, 0.25 * tolerance_, 0.001 * tolerance_);
}

std::optional<std::vector<math::Sphere>> CoverSearch::run() {
  // In the first rounds new places are tried, in those that follow gaps are closed with what has been found
  // and balls about points in the gaps; at last by such balls alone, which comes to an end.
  constexpr int kTryingRounds = 3;
  constexpr int kClosingRounds = 12;
  constexpr std::size_t kFirstEffort = 6'000'000;
  constexpr std::size_t kEffort = 3'000'000;
  choosePoints();
  addEnclosing(points_);
  // Every fourth of the first ones is enough beside those that come to be tried near chosen ones.
  std::vector<Ball> first_balls;
  for (std::size_t i = 0; i < balls_.size(); i += 4) {
    first_balls.push_back(balls_[i]);
  }
  std::vector<Ball> good_balls;
  select(0, kFirstEffort);
  double share = 0.5;
  for (int round = 0;; ++round) {
    if (balls_.size() > 4 * max_spheres_) {
      return std::nullopt;
    }
    makeExact();
    const std::vector<Eigen::Vector3d> uncovered = findUncovered();
    if (round >= kTryingRounds && uncovered.empty()) {
      break;
    }
    points_.insert(points_.end(), uncovered.begin(), uncovered.end());
    const std::size_t num_chosen = balls_.size();
    good_balls.insert(good_balls.end(), balls_.begin(), balls_.end());
    for (std::size_t i = 0; i < num_chosen && round < kTryingRounds; ++i) {
      addAround(Ball(balls_[i]), share);
    }
    for (const Eigen::Vector3d& point : uncovered) {
      balls_.push_back({point, outside_.reach(point).distance, true});
      addGrown(point);
    }
    if (round < kTryingRounds) {
      balls_.insert(balls_.end(), first_balls.begin(), first_balls.end());
    } else {
      makeExact();
      good_balls.insert(good_balls.end(), balls_.begin() + static_cast<std::ptrdiff_t>(num_chosen),
                        balls_.end());
      balls_.insert(balls_.end(), good_balls.begin(), good_balls.end());
    }
    select(num_chosen, round < kTryingRounds + kClosingRounds ? kEffort : 0);
    share *= 0.7;
  }
  if (balls_.size() > max_spheres_) {
    return std::nullopt;
  }
  std::vector<math::Sphere> spheres;
  for (const Ball& ball : balls_) {
    spheres.push_back({ball.center, ball.radius});
  }
  return spheres;
}

std::optional<SphereCover> CoverWithin(const CoverRegion& region, double tolerance, std::size_t max_spheres) {
  const std::unique_ptr<CoverOutside> outside = CoverOutside::Make(region, tolerance, kMaxCells);
  if (outside == nullptr) {
    return std::nullopt;
  }
  std::optional<std::vector<math::Sphere>> spheres =
      CoverSearch(region, *outside, tolerance, max_spheres).run();
  if (!spheres) {
    return std::nullopt;
  }
  return SphereCover{std::move(*spheres), tolerance, tolerance};
}

// Parts that are all spheres are their own cover.
std::optional<SphereCover> OwnCover(const std::vector<CoverPart>& parts, double tolerance) {
  SphereCover cover{{}, 0.0, tolerance};
  for (const CoverPart& part : parts) {
    const auto* const sphere = std::get_if<SphereObstacle>(&part.shape);
    if (sphere == nullptr) {
      return std::nullopt;
    }
    cover.spheres.push_back({part.pose.translation(), sphere->radius});
  }
  return cover;
}

}  // namespace

SphereCover CoverBySpheres(const std::vector<CoverPart>& parts, const CoverOptions& options) {
  const CoverRegion region(parts);
  KAVO_CHECK(options.tolerance >= 0.0 && std::isfinite(options.tolerance), kFile, 300)
      << "The tolerance of a cover is to be positive, not " << options.tolerance << ".";
  KAVO_CHECK(options.max_spheres ? *options.max_spheres > 0 : options.tolerance > 0.0, kFile, 302)
      << "A cover of no spheres, or of tolerance zero without a largest number of spheres.";
  const std::size_t max_spheres = options.max_spheres.value_or(kMaxSpheres);
  if (std::optional<SphereCover> own = OwnCover(parts, options.tolerance);
      own && own->spheres.size() <= max_spheres) {
    return *own;
  }
  // Below that, rounding would be as large as what is measured.
  double low = std::max(options.tolerance, 1e-9 * region.diagonal() + 1e4 * region.rounding());
  if (options.tolerance > 1e-4 * region.diagonal()) {
    if (std::optional<SphereCover> cover = CoverWithin(region, low, max_spheres)) {
      return *cover;
    }
  }
  // One sphere is enough for a tolerance as large as the parts. From there on down, so that no cover of very
  // many spheres is looked for.
  double high = std::max(region.diagonal(), 2.0 * low);
  std::optional<SphereCover> best = CoverWithin(region, high, max_spheres);
  while (high > 1.01 * low) {
    const double middle = std::max(low, low > 0.3 * high ? std::sqrt(low * high) : 0.5 * high);
    std::optional<SphereCover> cover = CoverWithin(region, middle, max_spheres);
    if (cover) {
      best = std::move(cover);
      high = middle;
    } else {
      low = middle;
    }
  }
  return *best;
}

double DefaultCoverTolerance(const std::vector<CoverPart>& parts) {
  return std::min(std::max(CoverRegion(parts).diagonal() / 30.0, 0.001), 0.05);
}

}  // namespace kavo
