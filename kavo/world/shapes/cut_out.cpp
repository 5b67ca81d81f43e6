#include "kavo/world/shapes/cut_out.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace kavo {

namespace {

// Spheres with the box around them: most of what is asked about is far from all.
class Cutter {
 public:
  explicit Cutter(const std::vector<math::Sphere>& spheres) : spheres_(spheres) {
    for (const math::Sphere& sphere : spheres) {
      min_ = min_.cwiseMin(sphere.center - Eigen::Vector3d::Constant(sphere.radius));
      max_ = max_.cwiseMax(sphere.center + Eigen::Vector3d::Constant(sphere.radius));
    }
  }

  // Whether a box that is rounded by a radius touches a sphere.
  bool touches(const Eigen::Vector3d& center, double half_edge, double radius) const {
    const double reach = half_edge + radius;
    if (((center.array() + reach) < min_.array()).any() || ((center.array() - reach) > max_.array()).any()) {
      return false;
    }
    return std::any_of(spheres_.begin(), spheres_.end(), [&](const math::Sphere& sphere) {
      double squared = 0.0;
      for (Eigen::Index axis = 0; axis < 3; ++axis) {
        const double beyond = std::max(std::fabs(sphere.center[axis] - center[axis]) - half_edge, 0.0);
        squared += beyond * beyond;
      }
      return std::sqrt(squared) <= sphere.radius + radius;
    });
  }

 private:
  const std::vector<math::Sphere>& spheres_;
  Eigen::Vector3d min_ = Eigen::Vector3d::Constant(std::numeric_limits<double>::infinity());
  Eigen::Vector3d max_ = Eigen::Vector3d::Constant(-std::numeric_limits<double>::infinity());
};

// Keeps what of a cell no sphere touches.
// \return As many cells of the smallest size as were cut.
std::size_t KeepUntouched(const Octree::Cell& cell, double smallest, const Cutter& cutter,
                          std::vector<Octree::Cell>& kept) {
  if (!cutter.touches(cell.center, 0.5 * cell.size, 0.0)) {
    kept.push_back(cell);
    return 0;
  }
  // Sizes are rounded.
  if (0.5 * cell.size < smallest * (1.0 - 1e-9)) {
    return 1;
  }
  std::size_t num_cut = 0;
  const double quarter = 0.25 * cell.size;
  for (int part = 0; part < 8; ++part) {
    const Eigen::Vector3d offset((part & 1) != 0 ? quarter : -quarter, (part & 2) != 0 ? quarter : -quarter,
                                 (part & 4) != 0 ? quarter : -quarter);
    num_cut += KeepUntouched({cell.center + offset, 0.5 * cell.size}, smallest, cutter, kept);
  }
  return num_cut;
}

}  // namespace

RemainingPoints CutOut(const std::shared_ptr<const PointCloud>& cloud,
                       const std::vector<math::Sphere>& spheres) {
  const Cutter cutter(spheres);
  std::vector<Eigen::Vector3d> points;
  std::vector<double> radii;
  for (std::size_t i = 0; i < cloud->points().size(); ++i) {
    if (!cutter.touches(cloud->points()[i], 0.0, cloud->radius(i))) {
      points.push_back(cloud->points()[i]);
      radii.push_back(cloud->radius(i));
    }
  }
  const std::size_t num_cut = cloud->points().size() - points.size();
  if (num_cut == 0) {
    return {cloud, 0};
  }
  if (points.empty()) {
    return {nullptr, num_cut};
  }
  return {std::make_shared<const PointCloud>(std::move(points), std::move(radii)), num_cut};
}

RemainingCells CutOut(const std::shared_ptr<const Octree>& octree, const std::vector<math::Sphere>& spheres) {
  const std::vector<Octree::Cell>& cells = octree->cells();
  const double smallest = std::min_element(cells.begin(), cells.end(), [](const auto& a, const auto& b) {
                            return a.size < b.size;
                          })->size;
  const Cutter cutter(spheres);
  std::vector<Octree::Cell> kept;
  std::size_t num_cut = 0;
  for (const Octree::Cell& cell : cells) {
    num_cut += KeepUntouched(cell, smallest, cutter, kept);
  }
  if (num_cut == 0) {
    return {octree, 0};
  }
  if (kept.empty()) {
    return {nullptr, num_cut};
  }
  return {std::make_shared<const Octree>(std::move(kept)), num_cut};
}

}  // namespace kavo
