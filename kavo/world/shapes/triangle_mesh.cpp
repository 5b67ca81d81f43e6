#include "kavo/world/shapes/triangle_mesh.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>
#include <utility>

#include "kavo/util/log_message.h"
#include "kavo/world/shapes/mesh_tree_internal.h"

namespace kavo {

namespace {

constexpr char kFile[] = "world/shapes/triangle_mesh";
constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

// Finds numbers for places and for triangles: equal ones have one number. Larger than twice their count, so
// that it never fills up.
template <class IsEqual>
class Numbering {
 public:
  Numbering(std::size_t most, IsEqual is_equal) : is_equal_(std::move(is_equal)) {
    std::size_t size = 16;
    while (size < 2 * most) {
      size *= 2;
    }
    slots_.assign(size, kNone);
  }

  // The number that is known for an equal one, or `next`, which is then known.
  std::uint32_t find(std::uint64_t hash, std::uint32_t next) {
    // Multiplied and folded, so that what differs in few bits lies far apart.
    hash *= 0x9e3779b97f4a7c15ULL;
    std::size_t slot = static_cast<std::size_t>(hash ^ (hash >> 32)) & (slots_.size() - 1);
    while (slots_[slot] != kNone) {
      if (is_equal_(slots_[slot])) {
        return slots_[slot];
      }
      slot = (slot + 1) & (slots_.size() - 1);
    }
    slots_[slot] = next;
    return next;
  }

 private:
  IsEqual is_equal_;
  std::vector<std::uint32_t> slots_;
};

std::uint64_t Mix(std::uint64_t hash, std::uint64_t value) {
  return (hash ^ (value + (hash << 6) + (hash >> 2))) * 0xff51afd7ed558ccdULL;
}

std::uint64_t HashOf(const Eigen::Vector3d& place) {
  std::uint64_t hash = 0;
  for (int axis = 0; axis < 3; ++axis) {
    // Minus zero is the same place as zero.
    const double coordinate = place[axis] + 0.0;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &coordinate, sizeof bits);
    hash = Mix(hash, bits);
  }
  return hash;
}

bool IsSamePlace(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}

TriangleMesh::Triangle Sorted(TriangleMesh::Triangle triangle) {
  std::sort(triangle.begin(), triangle.end());
  return triangle;
}

}  // namespace

TriangleMesh::TriangleMesh(const std::vector<Eigen::Vector3d>& vertices,
                           const std::vector<Triangle>& triangles) {
  KAVO_CHECK(vertices.size() < kNone && triangles.size() < kNone / 4, kFile, 80)
      << "A mesh of " << vertices.size() << " vertices and " << triangles.size()
      << " triangles is too large.";
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    KAVO_CHECK(vertices[i].allFinite(), kFile, 83)
        << "Vertex " << i << " of a mesh, at [" << vertices[i].transpose() << "], is not finite.";
    KAVO_CHECK(vertices[i].cwiseAbs().maxCoeff() <= internal::Compound::kLargestLength, kFile, 84)
        << "Vertex " << i << " of a mesh, at [" << vertices[i].transpose() << "], is too far away.";
  }
  // The first vertex at each place, then its number among those that are used.
  std::uint32_t current = 0;
  const auto is_same_place = [&](std::uint32_t other) {
    return IsSamePlace(vertices[other], vertices[current]);
  };
  Numbering<decltype(is_same_place)> places(vertices.size(), is_same_place);
  std::vector<std::uint32_t> first(vertices.size());
  for (; current < vertices.size(); ++current) {
    first[current] = places.find(HashOf(vertices[current]), current);
  }
  std::vector<std::uint32_t> numbers(vertices.size(), kNone);

  Triangle sorted{};
  const auto is_same_triangle = [&](std::uint32_t other) { return Sorted(triangles_[other]) == sorted; };
  Numbering<decltype(is_same_triangle)> known(triangles.size(), is_same_triangle);
  triangles_.reserve(triangles.size());
  for (std::size_t i = 0; i < triangles.size(); ++i) {
    Triangle triangle{};
    for (std::size_t k = 0; k < 3; ++k) {
      KAVO_CHECK(triangles[i][k] < vertices.size(), kFile, 103)
          << "Triangle " << i << " of a mesh has vertex " << triangles[i][k] << " of " << vertices.size()
          << ".";
      triangle[k] = first[triangles[i][k]];
    }
    if (triangle[0] == triangle[1] || triangle[1] == triangle[2] || triangle[2] == triangle[0]) {
      continue;
    }
    for (std::uint32_t& vertex : triangle) {
      if (numbers[vertex] == kNone) {
        numbers[vertex] = static_cast<std::uint32_t>(vertices_.size());
        vertices_.push_back(vertices[vertex]);
      }
      vertex = numbers[vertex];
    }
    sorted = Sorted(triangle);
    const auto next = static_cast<std::uint32_t>(triangles_.size());
    if (known.find(Mix(Mix(sorted[0], sorted[1]), sorted[2]), next) == next) {
      triangles_.push_back(triangle);
    }
  }
  KAVO_CHECK(!triangles_.empty(), kFile, 124) << "A mesh has no triangle with three different corners.";
  findPieces();
  tree_ = std::make_shared<const internal::MeshTree>(*this);
}

std::size_t TriangleMesh::numOpenEdges() const {
  return std::accumulate(num_open_edges_.begin(), num_open_edges_.end(), std::size_t{0});
}

double TriangleMesh::distance(const Eigen::Vector3d& point) const { return tree_->nearest(point).distance; }

bool TriangleMesh::contains(const Eigen::Vector3d& point) const { return tree_->contains(point.data()); }

void TriangleMesh::findPieces() {
  // An edge of a triangle, the smaller vertex first.
  struct Side {
    std::uint64_t edge;
    std::uint32_t triangle;
  };
  std::vector<Side> sides;
  sides.reserve(3 * triangles_.size());
  for (std::uint32_t i = 0; i < triangles_.size(); ++i) {
    for (std::size_t k = 0; k < 3; ++k) {
      const auto [a, b] = std::minmax(triangles_[i][k], triangles_[i][(k + 1) % 3]);
      sides.push_back({std::uint64_t{a} << 32 | b, i});
    }
  }
  std::sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) {
    return a.edge != b.edge ? a.edge < b.edge : a.triangle < b.triangle;
  });

  // A forest of the triangles of each piece, the first triangle at the root.
  std::vector<std::uint32_t> parents(triangles_.size());
  std::iota(parents.begin(), parents.end(), 0U);
  const auto find_root = [&](std::uint32_t triangle) {
    while (parents[triangle] != triangle) {
      parents[triangle] = parents[parents[triangle]];
      triangle = parents[triangle];
    }
    return triangle;
  };
  for (std::size_t i = 1; i < sides.size(); ++i) {
    if (sides[i].edge == sides[i - 1].edge) {
      const std::uint32_t a = find_root(sides[i - 1].triangle);
      const std::uint32_t b = find_root(sides[i].triangle);
      parents[std::max(a, b)] = std::min(a, b);
    }
  }
  pieces_.assign(triangles_.size(), 0);
  for (std::uint32_t i = 0; i < triangles_.size(); ++i) {
    const std::uint32_t root = find_root(i);
    if (root == i) {
      pieces_[i] = static_cast<std::uint32_t>(num_open_edges_.size());
      num_open_edges_.push_back(0);
    } else {
      pieces_[i] = pieces_[root];
    }
  }
  for (std::size_t begin = 0, end = 0; begin < sides.size(); begin = end) {
    while (end < sides.size() && sides[end].edge == sides[begin].edge) {
      ++end;
    }
    if ((end - begin) % 2 != 0) {
      ++num_open_edges_[pieces_[sides[begin].triangle]];
    }
  }
}

}  // namespace kavo
