#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/formats/surface_internal.h"

namespace kavo::formats {

namespace {

using Point = Eigen::Vector2d;

// Positive where c is to the left of the way from a to b.
double Turn(const Point& a, const Point& b, const Point& c) {
  return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

// The corners in a plane that the polygon is seen best from, so that it runs to the left.
std::vector<Point> Flattened(const std::vector<Eigen::Vector3d>& vertices,
                             const std::vector<std::uint32_t>& corners) {
  // Twice the area of the polygon's shadow along each axis (Newell, 1972).
  Eigen::Vector3d shadow = Eigen::Vector3d::Zero();
  for (std::size_t i = 0; i < corners.size(); ++i) {
    const Eigen::Vector3d& a = vertices[corners[i]];
    const Eigen::Vector3d& b = vertices[corners[(i + 1) % corners.size()]];
    for (int axis = 0; axis < 3; ++axis) {
      const int u = (axis + 1) % 3;
      const int v = (axis + 2) % 3;
      shadow[axis] += (a[u] - b[u]) * (a[v] + b[v]);
    }
  }
  int axis = 0;
  for (int i = 1; i < 3; ++i) {
    axis = std::fabs(shadow[i]) > std::fabs(shadow[axis]) ? i : axis;
  }
  int u = (axis + 1) % 3;
  int v = (axis + 2) % 3;
  if (shadow[axis] < 0.0) {
    std::swap(u, v);
  }
  std::vector<Point> points;
  points.reserve(corners.size());
  for (const std::uint32_t corner : corners) {
    points.emplace_back(vertices[corner][u], vertices[corner][v]);
  }
  return points;
}

}  // namespace

void Surface::addPolygon(const std::vector<std::uint32_t>& corners) {
  const std::vector<Point> points =
      corners.size() > 3 ? Flattened(vertices, corners) : std::vector<Point>(corners.size());
  // What is left of the polygon, as places in it.
  std::vector<std::size_t> left(corners.size());
  for (std::size_t i = 0; i < left.size(); ++i) {
    left[i] = i;
  }
  // So that a polygon of many corners without an ear in sight comes to an end.
  std::size_t num_tests = 0;
  const std::size_t max_tests = 1000 * corners.size();
  const auto is_ear = [&](std::size_t i) {
    const Point& a = points[left[(i + left.size() - 1) % left.size()]];
    const Point& b = points[left[i]];
    const Point& c = points[left[(i + 1) % left.size()]];
    if (!(Turn(a, b, c) > 0.0)) {
      return false;
    }
    for (const std::size_t other : left) {
      const Point& p = points[other];
      ++num_tests;
      if (p != a && p != b && p != c && Turn(a, b, p) >= 0.0 && Turn(b, c, p) >= 0.0 &&
          Turn(c, a, p) >= 0.0) {
        return false;
      }
    }
    return true;
  };
  const auto add = [&](std::size_t a, std::size_t b, std::size_t c) {
    triangles.push_back({corners[left[a]], corners[left[b]], corners[left[c]]});
  };
  std::size_t at = 1;
  for (std::size_t since_last = 0; left.size() > 3 && since_last < left.size() && num_tests < max_tests;
       ++since_last) {
    at %= left.size();
    if (is_ear(at)) {
      add((at + left.size() - 1) % left.size(), at, (at + 1) % left.size());
      left.erase(left.begin() + static_cast<std::ptrdiff_t>(at));
      since_last = 0;
    } else {
      ++at;
    }
  }
  for (std::size_t i = 2; i < left.size(); ++i) {
    add(0, i - 1, i);
  }
}

Surface SurfaceOf(const Eigen::AlignedBox3d& box) {
  Surface surface;
  // Bits 0, 1 and 2 of the index are the ends along x, y and z.
  for (int i = 0; i < 8; ++i) {
    surface.vertices.push_back(box.corner(static_cast<Eigen::AlignedBox3d::CornerType>(i)));
  }
  surface.triangles = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                       {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
  return surface;
}

std::shared_ptr<const TriangleMesh> MakeMesh(const Surface& surface) {
  const auto bounds_something = [&](const std::array<std::uint32_t, 3>& triangle) {
    const Eigen::Vector3d& a = surface.vertices[triangle[0]];
    const Eigen::Vector3d& b = surface.vertices[triangle[1]];
    const Eigen::Vector3d& c = surface.vertices[triangle[2]];
    return a != b && b != c && c != a;
  };
  return std::any_of(surface.triangles.begin(), surface.triangles.end(), bounds_something)
             ? std::make_shared<const TriangleMesh>(surface.vertices, surface.triangles)
             : nullptr;
}

}  // namespace kavo::formats
