#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <set>
#include <unordered_map>
#include <utility>

#include "kavo/formats/surface_internal.h"
#include "kavo/formats/thinning_internal.h"

namespace kavo::formats {

namespace {

using Eigen::Vector3d;
using Triangle = std::array<std::uint32_t, 3>;

Eigen::AlignedBox3d BoundsOf(const std::vector<Vector3d>& points) {
  Eigen::AlignedBox3d bounds;
  for (const Vector3d& point : points) {
    bounds.extend(point);
  }
  return bounds;
}

// Makes coarser surfaces of one surface.
class Clustering {
 public:
  Clustering(const std::vector<Vector3d>& vertices, const std::vector<Triangle>& triangles)
      : vertices_(vertices), triangles_(triangles), bounds_(BoundsOf(vertices)) {
    std::vector<Vector3d> normals(vertices.size(), Vector3d::Zero());
    for (const Triangle& triangle : triangles) {
      const Vector3d normal = Normal(triangle);
      area_ += normal.norm() / 2.0;
      for (const std::uint32_t corner : triangle) {
        normals[corner] += normal;
      }
    }
    // Signs in directions to which faces along the axes are never parallel.
    const Vector3d directions[] = {{1.0, 0.6, 0.3}, {-0.3, 1.0, 0.6}, {-0.6, -0.3, 1.0}};
    for (const Vector3d& normal : normals) {
      std::uint64_t side = 0;
      for (const Vector3d& direction : directions) {
        side = 2 * side + (normal.dot(direction) > 0.0 ? 1 : 0);
      }
      sides_.push_back(side);
    }
  }

  // For about so many triangles.
  double CellFor(std::size_t num_triangles) const {
    const double least_area = 1e-6 * bounds_.diagonal().squaredNorm();
    return std::sqrt(2.0 * std::max(area_, least_area) / static_cast<double>(num_triangles));
  }

  // The triangles that are left with such a grid, of clusters.
  std::vector<Triangle> Cluster(double cell) {
    cell = std::max(cell, bounds_.diagonal().maxCoeff() / kMostCells);
    cluster_of_.clear();
    std::unordered_map<std::uint64_t, std::uint32_t> clusters;
    for (std::size_t i = 0; i < vertices_.size(); ++i) {
      std::uint64_t key = sides_[i];
      for (int axis = 0; axis < 3; ++axis) {
        const double index = std::floor((vertices_[i][axis] - bounds_.min()[axis]) / cell);
        key = (key << 20U) + static_cast<std::uint64_t>(index);
      }
      const auto next = static_cast<std::uint32_t>(clusters.size());
      cluster_of_.push_back(clusters.emplace(key, next).first->second);
    }
    num_clusters_ = clusters.size();
    std::set<Triangle> left;
    for (const Triangle& triangle : triangles_) {
      Triangle corners;
      for (std::size_t i = 0; i < 3; ++i) {
        corners[i] = cluster_of_[triangle[i]];
      }
      if (corners[0] != corners[1] && corners[1] != corners[2] && corners[2] != corners[0]) {
        std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
        left.insert(corners);
      }
    }
    return {left.begin(), left.end()};
  }

  // Where the clusters of the last grid lie.
  std::vector<Vector3d> Places(double cell) const {
    struct Sum {
      Vector3d points = Vector3d::Zero();
      double num_points = 0.0;
      // Of the squared distances from the planes: x' A x - 2 b' x. All count alike, so that an edge stays one
      // where a narrow face meets a wide one.
      Eigen::Matrix3d a = Eigen::Matrix3d::Zero();
      Vector3d b = Vector3d::Zero();
    };
    std::vector<Sum> sums(num_clusters_);
    for (std::size_t i = 0; i < vertices_.size(); ++i) {
      sums[cluster_of_[i]].points += vertices_[i] - bounds_.min();
      sums[cluster_of_[i]].num_points += 1.0;
    }
    for (const Triangle& triangle : triangles_) {
      const Vector3d normal = Normal(triangle).stableNormalized();
      const double offset = normal.dot(vertices_[triangle[0]] - bounds_.min());
      for (const std::uint32_t corner : triangle) {
        Sum& sum = sums[cluster_of_[corner]];
        sum.a += normal * normal.transpose();
        sum.b += normal * offset;
      }
    }
    std::vector<Vector3d> places;
    for (const Sum& sum : sums) {
      const Vector3d mean = sum.points / sum.num_points;
      const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(sum.a);
      const Vector3d slope = sum.b - sum.a * mean;
      Vector3d step = Vector3d::Zero();
      // Along a face or an edge, nothing pulls.
      constexpr double kLeastShare = 1e-2;
      for (int i = 0; i < 3; ++i) {
        if (solver.eigenvalues()[i] > kLeastShare * solver.eigenvalues()[2]) {
          step += solver.eigenvectors().col(i) * solver.eigenvectors().col(i).dot(slope) /
                  solver.eigenvalues()[i];
        }
      }
      places.push_back(bounds_.min() + mean + (step.norm() < cell ? step : Vector3d::Zero()));
    }
    return places;
  }

  // From now on, vertices of one cell become one whichever way their surface faces.
  void JoinSides() { std::fill(sides_.begin(), sides_.end(), 0); }

  // All that is left of it if nothing else is.
  DrawnMesh Box() const {
    Surface box = SurfaceOf(bounds_);
    return {std::move(box.vertices), std::move(box.triangles), 0};
  }

 private:
  // Along an axis; each of three indices is one of 20 bits.
  static constexpr double kMostCells = 1e6;

  Vector3d Normal(const Triangle& triangle) const {
    const Vector3d& a = vertices_[triangle[0]];
    return (vertices_[triangle[1]] - a).cross(vertices_[triangle[2]] - a);
  }

  const std::vector<Vector3d>& vertices_;
  const std::vector<Triangle>& triangles_;
  Eigen::AlignedBox3d bounds_;
  double area_ = 0.0;
  // Of each vertex, one of eight: which way its surface faces.
  std::vector<std::uint64_t> sides_;
  std::vector<std::uint32_t> cluster_of_;
  std::size_t num_clusters_ = 0;
};

// The bits of a number of 21 bits, two zeros behind each.
std::uint64_t Spread(std::uint64_t bits) {
  bits = (bits | bits << 32U) & 0x1f00000000ffffU;
  bits = (bits | bits << 16U) & 0x1f0000ff0000ffU;
  bits = (bits | bits << 8U) & 0x100f00f00f00f00fU;
  bits = (bits | bits << 4U) & 0x10c30c30c30c30c3U;
  return (bits | bits << 2U) & 0x1249249249249249U;
}

}  // namespace

std::size_t FairLimit(std::vector<std::size_t> sizes, std::size_t budget) {
  std::sort(sizes.begin(), sizes.end());
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const std::size_t share = budget / (sizes.size() - i);
    if (sizes[i] > share) {
      return share;
    }
    budget -= sizes[i];
  }
  return sizes.empty() ? budget : sizes.back();
}

DrawnMesh ThinMesh(const std::vector<Vector3d>& vertices, const std::vector<Triangle>& triangles,
                   std::size_t limit) {
  if (triangles.size() <= limit) {
    return {vertices, triangles, triangles.size()};
  }
  constexpr int kMostTries = 8;
  Clustering clustering(vertices, triangles);
  DrawnMesh thinned;
  double best_cell = 0.0;
  for (const bool keeps_sides : {true, false}) {
    if (!keeps_sides) {
      clustering.JoinSides();
    }
    double cell = clustering.CellFor(limit);
    for (int i = 0; i < kMostTries; ++i) {
      std::vector<Triangle> left = clustering.Cluster(cell);
      const double used = static_cast<double>(left.size()) / static_cast<double>(limit);
      if (used <= 1.0 && left.size() > thinned.triangles.size()) {
        best_cell = cell;
        thinned.triangles = std::move(left);
      }
      if (used > 0.85 && used <= 1.0) {
        break;
      }
      cell *= std::clamp(std::sqrt(used / 0.93), 0.25, 4.0);
    }
    if (best_cell > 0.0) {
      break;
    }
  }
  if (thinned.triangles.empty()) {
    thinned = clustering.Box();
  } else {
    clustering.Cluster(best_cell);
    const std::vector<Vector3d> places = clustering.Places(best_cell);
    std::unordered_map<std::uint32_t, std::uint32_t> indices;
    for (Triangle& triangle : thinned.triangles) {
      for (std::uint32_t& corner : triangle) {
        const auto [place, is_new] =
            indices.emplace(corner, static_cast<std::uint32_t>(thinned.vertices.size()));
        if (is_new) {
          thinned.vertices.push_back(places[corner]);
        }
        corner = place->second;
      }
    }
  }
  thinned.num_triangles = triangles.size();
  return thinned;
}

std::vector<Vector3d> ThinPoints(const std::vector<Vector3d>& points, std::size_t limit) {
  if (points.size() <= limit) {
    return points;
  }
  // In the order of a curve through ever smaller cubes (Morton, 1966): points of one cube stand together.
  constexpr unsigned kBits = 21;
  const Eigen::AlignedBox3d bounds = BoundsOf(points);
  const double scale = (std::exp2(kBits) - 1.0) / std::max(bounds.diagonal().maxCoeff(), 1e-300);
  std::vector<std::pair<std::uint64_t, std::size_t>> order;
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::uint64_t code = 0;
    for (int axis = 0; axis < 3; ++axis) {
      const double index = (points[i][axis] - bounds.min()[axis]) * scale;
      code |= Spread(static_cast<std::uint64_t>(index)) << static_cast<unsigned>(axis);
    }
    order.emplace_back(code, i);
  }
  std::sort(order.begin(), order.end());
  // One of each cube, with the largest cubes of which there are enough.
  std::vector<std::size_t> of_cubes;
  for (unsigned shift = 3 * kBits; shift > 0 && of_cubes.size() < limit;) {
    shift -= 3;
    of_cubes.clear();
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (i == 0 || order[i].first >> shift != order[i - 1].first >> shift) {
        of_cubes.push_back(order[i].second);
      }
    }
  }
  std::vector<Vector3d> thinned;
  const std::size_t size = std::min(limit, of_cubes.size());
  for (std::size_t i = 0; i < size; ++i) {
    thinned.push_back(points[of_cubes[i * of_cubes.size() / size]]);
  }
  return thinned;
}

std::vector<Octree::Cell> ThinCells(const std::vector<Octree::Cell>& cells, std::size_t limit) {
  std::vector<Octree::Cell> thinned = cells;
  while (thinned.size() > limit) {
    const auto by_size = [](const Octree::Cell& a, const Octree::Cell& b) { return a.size < b.size; };
    const double size = 2.0 * std::min_element(thinned.begin(), thinned.end(), by_size)->size;
    std::vector<std::array<double, 3>> cubes;
    std::vector<Octree::Cell> coarser;
    for (const Octree::Cell& cell : thinned) {
      if (cell.size > 1.01 * size) {
        coarser.push_back(cell);
      } else {
        const Vector3d index = (cell.center / size).array().floor();
        cubes.push_back({index.x(), index.y(), index.z()});
      }
    }
    std::sort(cubes.begin(), cubes.end());
    cubes.erase(std::unique(cubes.begin(), cubes.end()), cubes.end());
    for (const auto& [x, y, z] : cubes) {
      coarser.push_back({(Vector3d(x, y, z).array() + 0.5) * size, size});
    }
    thinned = std::move(coarser);
  }
  return thinned;
}

}  // namespace kavo::formats
