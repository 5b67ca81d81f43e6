#include <algorithm>
#include <cstddef>
#include <iterator>
#include <numeric>

#include "kavo/math/bounding_sphere.h"
#include "kavo/motion_planning/environment/robot_balls_internal.h"

namespace kavo::planning::internal {

namespace {

using kavo::internal::BallModel;
using Indices = std::vector<std::size_t>;

// Larger bundles and twigs rule out more at once, smaller ones fit closer. Of many spheres bundles are as
// large as leaves few questions: their number grows with that of bundles, for pairs with its square.
constexpr std::size_t kLargestTwig = 4;

// Measured with arms of 59 to 1000 spheres.
std::size_t LargestBundle(std::size_t num_spheres) {
  return std::clamp<std::size_t>(num_spheres / 30, kLargestTwig, 64);
}

// Halves the spheres across their widest direction until the bundles are small.
void Split(const std::vector<math::Sphere>& spheres, Indices indices, std::size_t largest,
           std::vector<Indices>& bundles) {
  if (indices.size() <= largest) {
    bundles.push_back(std::move(indices));
    return;
  }
  Eigen::Index widest = 0;
  double largest_extent = -1.0;
  for (Eigen::Index axis = 0; axis < 3; ++axis) {
    const auto [low, high] = std::minmax_element(
        indices.begin(), indices.end(),
        [&](std::size_t a, std::size_t b) { return spheres[a].center[axis] < spheres[b].center[axis]; });
    const double extent = spheres[*high].center[axis] - spheres[*low].center[axis];
    if (extent > largest_extent) {
      largest_extent = extent;
      widest = axis;
    }
  }
  std::sort(indices.begin(), indices.end(), [&](std::size_t a, std::size_t b) {
    const double in_a = spheres[a].center[widest];
    const double in_b = spheres[b].center[widest];
    return in_a != in_b ? in_a < in_b : a < b;
  });
  const auto middle = indices.begin() + static_cast<std::ptrdiff_t>(indices.size() / 2);
  Split(spheres, Indices(indices.begin(), middle), largest, bundles);
  Split(spheres, Indices(middle, indices.end()), largest, bundles);
}

std::vector<Eigen::Vector3d> Centers(const BallModel::Bundle& bundle) {
  std::vector<Eigen::Vector3d> centers = {bundle.bound.center};
  for (const BallModel::Twig& twig : bundle.twigs) {
    for (const math::Sphere& ball : twig.balls) {
      centers.push_back(ball.center);
    }
  }
  return centers;
}

std::vector<Eigen::Vector3d> Centers(const BallModel::Part& part) {
  std::vector<Eigen::Vector3d> centers = {part.bound.center};
  for (const BallModel::Bundle& bundle : part.bundles) {
    const std::vector<Eigen::Vector3d> of_bundle = Centers(bundle);
    centers.insert(centers.end(), of_bundle.begin(), of_bundle.end());
  }
  return centers;
}

}  // namespace

RobotBalls::RobotBalls(const kinematics::Kinematics::Plan& plan,
                       const kinematics::internal::LaneSweep& lane_sweep,
                       const std::vector<kinematics::JointLimits>& limits, const std::vector<Frame>& frames,
                       const std::vector<std::pair<std::size_t, std::size_t>>& pairs)
    : reach(plan, limits), model(makeModel(plan, lane_sweep, frames, pairs)) {}

void RobotBalls::setExcept(std::size_t frame, const kavo::internal::ObstacleSet* except) {
  for (std::size_t i = 0; i < bundles.size(); ++i) {
    if (bundles[i].frame == frame) {
      bundles[i].except = except;
      model.setExcept(i, except);
    }
  }
}

BallModel RobotBalls::makeModel(const kinematics::Kinematics::Plan& plan,
                                const kinematics::internal::LaneSweep& lane_sweep,
                                const std::vector<Frame>& frames,
                                const std::vector<std::pair<std::size_t, std::size_t>>& pairs) {
  for (const kinematics::Kinematics::Attachment& attachment : plan.frames) {
    if (std::find(part_slots.begin(), part_slots.end(), attachment.slot) == part_slots.end()) {
      part_slots.push_back(attachment.slot);
    }
  }
  std::vector<BallModel::Part> parts(part_slots.size());
  std::size_t num_spheres = 0;
  for (const Frame& frame : frames) {
    num_spheres += frame.spheres.size();
  }
  // The bundles of each part side by side.
  std::vector<BallModel::Bundle> balls;
  for (std::size_t p = 0; p < parts.size(); ++p) {
    std::vector<math::Sphere> all;
    for (std::size_t frame = 0; frame < frames.size(); ++frame) {
      if (plan.frames[frame].slot != part_slots[p]) {
        continue;
      }
      parts[p].transform = lane_sweep.frames()[frame].part;
      const std::vector<math::Sphere>& spheres = frames[frame].spheres;
      Indices indices(spheres.size());
      std::iota(indices.begin(), indices.end(), std::size_t{0});
      std::vector<Indices> split;
      Split(spheres, std::move(indices), LargestBundle(num_spheres), split);
      for (Indices& of_bundle : split) {
        BallModel::Bundle bundle;
        bundle.padding = frames[frame].padding;
        std::vector<Indices> twigs;
        Split(spheres, std::move(of_bundle), kLargestTwig, twigs);
        bundles.push_back({frame, {}, p, {}, nullptr});
        std::vector<math::Sphere> balls_of_bundle;
        for (const Indices& of_twig : twigs) {
          BallModel::Twig twig;
          for (const std::size_t sphere : of_twig) {
            const auto& [center, radius] = spheres[sphere];
            twig.balls.push_back({lane_sweep.frames()[frame].offset * center, radius});
            bundles.back().spheres.push_back(sphere);
          }
          twig.bound = math::ComputeBoundingSphere(twig.balls);
          balls_of_bundle.insert(balls_of_bundle.end(), twig.balls.begin(), twig.balls.end());
          bundle.twigs.push_back(std::move(twig));
        }
        bundle.bound = math::ComputeBoundingSphere(balls_of_bundle);
        bundle.reaches = reach.ofPoints(part_slots[p], Centers(bundle));
        bundles.back().reaches = bundle.reaches;
        all.insert(all.end(), balls_of_bundle.begin(), balls_of_bundle.end());
        parts[p].bundles.push_back(bundle);
        balls.push_back(std::move(bundle));
      }
    }
    parts[p].bound = math::ComputeBoundingSphere(all);
    parts[p].reaches = reach.ofPoints(part_slots[p], {parts[p].bound.center});
    parts[p].is_fixed = part_slots[p] < 0;
  }

  // Rows of the bundles of the part that is listed first: it is farther along the chain.
  std::vector<BallModel::PartPair> part_pairs;
  for (std::size_t a = 0; a < bundles.size(); ++a) {
    for (std::size_t b = 0; b < bundles.size(); ++b) {
      const bool is_pair = std::any_of(pairs.begin(), pairs.end(), [&](const auto& pair) {
        return std::minmax(pair.first, pair.second) == std::minmax(bundles[a].frame, bundles[b].frame);
      });
      const std::size_t part_a = bundles[a].part;
      const std::size_t part_b = bundles[b].part;
      if (!is_pair || part_a > part_b || (part_a == part_b && a > b)) {
        continue;
      }
      const auto differences = [&](const std::vector<Eigen::Vector3d>& points_a,
                                   const std::vector<Eigen::Vector3d>& points_b) {
        return reach.ofDifferences(part_slots[part_a], points_a, part_slots[part_b], points_b);
      };
      auto pair = std::find_if(part_pairs.begin(), part_pairs.end(), [&](const BallModel::PartPair& known) {
        return known.a == part_a && known.b == part_b;
      });
      if (pair == part_pairs.end()) {
        auto [reaches_a, reaches_b] = differences({parts[part_a].bound.center}, {parts[part_b].bound.center});
        auto [all_a, all_b] = differences(Centers(parts[part_a]), Centers(parts[part_b]));
        part_pairs.push_back({part_a,
                              part_b,
                              std::move(reaches_a),
                              std::move(reaches_b),
                              std::move(all_a),
                              std::move(all_b),
                              {}});
        pair = std::prev(part_pairs.end());
      }
      if (pair->rows.empty() || pair->rows.back().bundle != a) {
        auto [reaches_a, reaches_b] = differences({balls[a].bound.center}, {parts[part_b].bound.center});
        pair->rows.push_back({a, std::move(reaches_a), std::move(reaches_b), {}});
      }
      auto [reaches_a, reaches_b] = differences(Centers(balls[a]), Centers(balls[b]));
      pair->rows.back().pairs.push_back({a, b, std::move(reaches_a), std::move(reaches_b)});
    }
  }
  for (const BallModel::PartPair& pair : part_pairs) {
    for (const BallModel::Row& row : pair.rows) {
      bundle_pairs.insert(bundle_pairs.end(), row.pairs.begin(), row.pairs.end());
    }
  }
  return {parts, part_pairs};
}

}  // namespace kavo::planning::internal
