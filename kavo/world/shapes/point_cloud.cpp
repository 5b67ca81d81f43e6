#include "kavo/world/shapes/point_cloud.h"

#include <cmath>
#include <utility>

#include "kavo/util/log_message.h"
#include "kavo/world/shapes/point_tree_internal.h"

namespace kavo {

namespace internal {

namespace {

constexpr char kFile[] = "world/shapes/point_cloud";

Bounds BoundsOf(const Eigen::Vector3d& point, double radius) {
  Bounds bounds{};
  for (int axis = 0; axis < 3; ++axis) {
    bounds.low[axis] = point[axis] - radius;
    bounds.high[axis] = point[axis] + radius;
  }
  return bounds;
}

std::shared_ptr<const PointTree> MakeTree(std::vector<Eigen::Vector3d> points, std::vector<double> radii) {
  KAVO_CHECK(!points.empty(), kFile, 30) << "A point cloud has no points.";
  for (std::size_t i = 0; i < points.size(); ++i) {
    KAVO_CHECK(points[i].cwiseAbs().maxCoeff() <= Compound::kLargestLength && points[i].allFinite(), kFile,
               32)
        << "Point " << i << " of a cloud, at [" << points[i].transpose()
        << "], is not finite or too far away.";
  }
  for (std::size_t i = 0; i < radii.size(); ++i) {
    KAVO_CHECK(radii[i] >= 0.0 && radii[i] <= Compound::kLargestLength, kFile, 36)
        << "Radius [" << radii[i] << "] of point " << i << " of a cloud must be finite and not negative.";
  }
  return std::make_shared<const PointTree>(std::move(points), std::move(radii));
}

}  // namespace

PointTree::PointTree(std::vector<Eigen::Vector3d> points, std::vector<double> radii)
    : Compound(Parts::kBalls,
               {points.size(),
                [&](std::size_t i) { return BoundsOf(points[i], radii.size() == 1 ? radii[0] : radii[i]); }}),
      points_(std::move(points)),
      radii_(std::move(radii)) {}

double PointTree::signedDistance(const double* point, Interior) const {
  return least(point, [&](std::uint32_t place) { return distance(place, point); });
}

bool PointTree::touches(const double* point, double radius, double padding, Interior) const {
  return tree().findOverlapping(boundsAround(point, radius + padding), [&](std::uint32_t place) {
    return distance(place, point) - padding <= radius;
  });
}

double PointTree::distance(std::uint32_t place, const double* point) const {
  const std::uint32_t index = tree().items[place];
  const double x = point[0] - points_[index][0];
  const double y = point[1] - points_[index][1];
  const double z = point[2] - points_[index][2];
  return std::sqrt(x * x + y * y + z * z) - radius(index);
}

}  // namespace internal

PointCloud::PointCloud(std::vector<Eigen::Vector3d> points, double radius)
    : tree_(internal::MakeTree(std::move(points), {radius})) {}

PointCloud::PointCloud(std::vector<Eigen::Vector3d> points, std::vector<double> radii) {
  KAVO_CHECK(points.size() == radii.size(), internal::kFile, 70)
      << "A cloud of " << points.size() << " points has " << radii.size() << " radii.";
  tree_ = internal::MakeTree(std::move(points), std::move(radii));
}

const std::vector<Eigen::Vector3d>& PointCloud::points() const { return tree_->points(); }

double PointCloud::radius(std::size_t point) const { return tree_->radius(point); }

}  // namespace kavo
