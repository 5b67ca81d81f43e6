#include "kavo/world/shapes/cover_proof_internal.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace kavo::internal {

namespace {

// Makes up for rounding in the comparison of squares.
constexpr double kShrink = 1.0 - 0x1p-40;

class Proof {
 public:
  Proof(const CoverRegion& region, const std::vector<math::Sphere>& spheres, double spacing, double smallest)
      : region_(region), spheres_(spheres), spacing_(spacing), smallest_(smallest) {}

  // All cubes of one size before those of the next, so that what is not covered shows in large ones.
  std::vector<Eigen::Vector3d> run() {
    std::vector<Cube> cubes;
    std::vector<Cube> divided;
    std::vector<std::uint32_t> spheres(spheres_.size());
    std::vector<std::uint32_t> divided_spheres;
    Cube root{};
    double half = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
      root.middle[axis] = region_.bounds().middle(axis);
      half = std::max(half, region_.bounds().high[axis] - root.middle[axis]);
    }
    half += region_.rounding();
    for (std::uint32_t i = 0; i < spheres.size(); ++i) {
      spheres[i] = i;
    }
    root.end = static_cast<std::uint32_t>(spheres.size());
    cubes.push_back(root);
    for (; !cubes.empty(); half *= 0.5) {
      divided.clear();
      divided_spheres.clear();
      for (const Cube& cube : cubes) {
        const auto first = static_cast<std::uint32_t>(divided_spheres.size());
        bool is_inside = cube.is_inside;
        if (isSettled(cube, half, spheres, divided_spheres, is_inside)) {
          divided_spheres.resize(first);
          continue;
        }
        const auto end = static_cast<std::uint32_t>(divided_spheres.size());
        for (int corner = 0; corner < 8; ++corner) {
          Cube part{cube.middle, first, end, is_inside};
          for (int axis = 0; axis < 3; ++axis) {
            part.middle[axis] += (corner >> axis & 1) != 0 ? 0.5 * half : -0.5 * half;
          }
          divided.push_back(part);
        }
      }
      std::swap(cubes, divided);
      std::swap(spheres, divided_spheres);
    }
    return std::move(uncovered_);
  }

 private:
  struct Cube {
    Eigen::Vector3d middle;
    // The spheres that may meet it, in the list for its size.
    std::uint32_t begin;
    std::uint32_t end;
    // Whether it is known to be inside altogether.
    bool is_inside;
  };

  // Whether nothing is left to be shown about a cube. Else appends the spheres that meet it.
  bool isSettled(const Cube& cube, double half, const std::vector<std::uint32_t>& spheres,
                 std::vector<std::uint32_t>& meeting, bool& is_inside) {
    const auto first = static_cast<std::ptrdiff_t>(meeting.size());
    for (std::uint32_t i = cube.begin; i < cube.end; ++i) {
      const math::Sphere& sphere = spheres_[spheres[i]];
      double nearest = 0.0;
      double farthest = 0.0;
      for (int axis = 0; axis < 3; ++axis) {
        const double away = std::fabs(cube.middle[axis] - sphere.center[axis]);
        const double beyond = std::max(away - half, 0.0);
        nearest += beyond * beyond;
        farthest += (away + half) * (away + half);
      }
      const double squared = sphere.radius * sphere.radius * kShrink;
      if (farthest <= squared) {
        return true;
      }
      if (nearest <= squared) {
        meeting.push_back(spheres[i]);
      }
    }
    for (const Eigen::Vector3d& point : uncovered_) {
      if (isWithin(point, cube.middle, spacing_)) {
        return true;
      }
    }
    // A point of the region in the cube, or, where none is known, near to it.
    Eigen::Vector3d witness = cube.middle;
    bool is_in_cube = true;
    if (!is_inside) {
      const CoverRegion::Near near = region_.nearest(cube.middle);
      if (near.distance <= 1.7320508075688774 * half + region_.rounding()) {
        witness = near.point;
        for (int axis = 0; axis < 3; ++axis) {
          is_in_cube = is_in_cube && std::fabs(witness[axis] - cube.middle[axis]) <= half;
        }
      } else if (region_.contains(cube.middle)) {
        is_inside = true;
      } else {
        return true;
      }
    }
    const auto covers = [&](std::uint32_t sphere) {
      return isWithin(spheres_[sphere].center, witness, spheres_[sphere].radius);
    };
    if (half > smallest_ && (!is_in_cube || std::any_of(meeting.begin() + first, meeting.end(), covers))) {
      return false;
    }
    uncovered_.push_back(witness);
    return true;
  }

  static bool isWithin(const Eigen::Vector3d& center, const Eigen::Vector3d& point, double radius) {
    double squared = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
      const double away = point[axis] - center[axis];
      squared += away * away;
    }
    return squared <= radius * radius * kShrink;
  }

  const CoverRegion& region_;
  const std::vector<math::Sphere>& spheres_;
  const double spacing_;
  const double smallest_;
  std::vector<Eigen::Vector3d> uncovered_;
};

}  // namespace

std::vector<Eigen::Vector3d> FindUncovered(const CoverRegion& region,
                                           const std::vector<math::Sphere>& spheres, double spacing,
                                           double smallest) {
  return Proof(region, spheres, spacing, smallest).run();
}

}  // namespace kavo::internal
