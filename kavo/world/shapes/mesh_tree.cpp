#include "kavo/world/shapes/mesh_tree_internal.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/world/shapes/cell_tree_internal.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::internal {

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

double Dot(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Eigen::Vector3d Cross(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

MeshTree::Corners CornersOf(const TriangleMesh& mesh, std::size_t index) {
  TriangleMesh::Triangle triangle = mesh.triangles()[index];
  std::sort(triangle.begin(), triangle.end());
  return {mesh.vertices()[triangle[0]], mesh.vertices()[triangle[1]], mesh.vertices()[triangle[2]]};
}

Bounds BoundsOf(const MeshTree::Corners& corners) {
  Bounds bounds{};
  for (int axis = 0; axis < 3; ++axis) {
    const auto [low, high] = std::minmax({corners[0][axis], corners[1][axis], corners[2][axis]});
    bounds.low[axis] = low;
    bounds.high[axis] = high;
  }
  return bounds;
}

Eigen::Vector3d NearestInSegment(const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                 const Eigen::Vector3d& point) {
  const Eigen::Vector3d way = b - a;
  const double length = Dot(way, way);
  const double along = Dot(point - a, way);
  // The square of a very short edge may vanish.
  return a + (length > 0.0 ? std::min(std::max(along / length, 0.0), 1.0) : 0.0) * way;
}

double SquaredDistance(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  const Eigen::Vector3d way = a - b;
  return Dot(way, way);
}

void Round(const Eigen::Vector3d& vector, float (&rounded)[3]) {
  for (int axis = 0; axis < 3; ++axis) {
    rounded[axis] = Rounded(vector[axis]);
  }
}

LaneTriangle InSinglePrecision(const MeshTree::Corners& corners) {
  const auto& [a, b, c] = corners;
  const Eigen::Vector3d to_b = b - a;
  const Eigen::Vector3d to_c = c - a;
  const Eigen::Vector3d normal = Cross(to_b, to_c);
  const double area = std::sqrt(Dot(normal, normal));
  const double squared_sides[3] = {Dot(to_b, to_b), Dot(to_c, to_c), SquaredDistance(b, c)};
  LaneTriangle triangle{};
  Round(a, triangle.corner);
  Round(to_b, triangle.to_b);
  Round(to_c, triangle.to_c);
  // A share of its length that is lost in the margin of the lanes.
  constexpr double kLeastWidth = 1e-7;
  if (area > kLeastWidth * std::max({squared_sides[0], squared_sides[1], squared_sides[2]})) {
    const Eigen::Vector3d unit = normal / area;
    Round(unit, triangle.normal);
    Round(Cross(to_c, unit), triangle.across_c);
    Round(Cross(unit, to_b), triangle.across_b);
    triangle.area = Rounded(area);
  }
  for (int side = 0; side < 3; ++side) {
    // Of a very short one any point of it will do.
    triangle.inverses[side] = squared_sides[side] > 1e-30 ? Rounded(1.0 / squared_sides[side]) : 0.0f;
  }
  return triangle;
}

// Pieces that a ray has crossed an odd number of times so far. There may be more than there is room for: then
// it is asked again, about those that come after.
class OddPieces {
 public:
  void toggle(std::uint32_t piece) {
    if (piece < first_ || piece >= end_) {
      return;
    }
    std::uint32_t* const place = std::lower_bound(pieces_, pieces_ + size_, piece);
    if (place != pieces_ + size_ && *place == piece) {
      std::move(place + 1, pieces_ + size_, place);
      --size_;
      return;
    }
    if (size_ == kRoom) {
      end_ = std::max(pieces_[--size_], piece);
      if (end_ == piece) {
        ++size_;
        return;
      }
    }
    std::move_backward(place, pieces_ + size_, pieces_ + size_ + 1);
    *place = piece;
    ++size_;
  }

  bool isEmpty() const { return size_ == 0; }

  // Goes on to the pieces that were left out; false without any.
  bool next() {
    first_ = end_;
    end_ = kNone;
    return first_ != kNone;
  }

 private:
  static constexpr std::size_t kRoom = 32;
  std::uint32_t pieces_[kRoom] = {};
  std::size_t size_ = 0;
  std::uint32_t first_ = 0;
  std::uint32_t end_ = kNone;
};

// A ray from a point along an axis.
struct Ray {
  Ray(const double* from, int axis_in, bool is_upward_in)
      : point(from), axis(axis_in), is_upward(is_upward_in) {}

  // The way that leaves a box soonest.
  Ray(const double* from, const Bounds& box) : point(from) {
    double shortest = std::numeric_limits<double>::infinity();
    for (int along = 0; along < 3; ++along) {
      const double up = box.high[along] - point[along];
      const double down = point[along] - box.low[along];
      if (std::min(up, down) < shortest) {
        shortest = std::min(up, down);
        axis = along;
        is_upward = up <= down;
      }
    }
  }

  Bounds bounds() const {
    Bounds bounds{};
    for (int along = 0; along < 3; ++along) {
      bounds.low[along] = point[along];
      bounds.high[along] = point[along];
    }
    (is_upward ? bounds.high : bounds.low)[axis] =
        is_upward ? std::numeric_limits<double>::infinity() : -std::numeric_limits<double>::infinity();
    return bounds;
  }

  // Which edges the plane of the ray and a second axis crosses is a matter of comparisons, and where it
  // crosses one of the edge alone, so that the triangles of a closed piece are crossed an even number of
  // times by the whole line whatever is rounded.
  bool crosses(const MeshTree::Corners& corners) const {
    const int side = (axis + 1) % 3;
    const int up = (axis + 2) % 3;
    double sides[2];
    double alongs[2];
    int num_crossed = 0;
    for (const auto& [from, to] : {std::pair(0, 1), std::pair(0, 2), std::pair(1, 2)}) {
      const Eigen::Vector3d& a = corners[static_cast<std::size_t>(from)];
      const Eigen::Vector3d& b = corners[static_cast<std::size_t>(to)];
      if ((a[up] > point[up]) != (b[up] > point[up])) {
        const double share = (point[up] - a[up]) / (b[up] - a[up]);
        sides[num_crossed] = Between(a[side], b[side], share);
        alongs[num_crossed] = Between(a[axis], b[axis], share);
        ++num_crossed;
      }
    }
    if (num_crossed == 0 || (sides[0] > point[side]) == (sides[1] > point[side])) {
      return false;
    }
    const double at = Between(alongs[0], alongs[1], (point[side] - sides[0]) / (sides[1] - sides[0]));
    return is_upward ? at > point[axis] : at < point[axis];
  }

  static double Between(double a, double b, double share) {
    return std::min(std::max(a + share * (b - a), std::min(a, b)), std::max(a, b));
  }

  const double* point;
  int axis = 0;
  bool is_upward = true;
};

}  // namespace

NearInTriangle NearestInTriangle(const MeshTree::Corners& corners, const Eigen::Vector3d& point) {
  const auto& [a, b, c] = corners;
  NearInTriangle nearest{NearestInSegment(a, b, point), 0.0};
  nearest.squared_distance = SquaredDistance(nearest.point, point);
  for (const Eigen::Vector3d& other : {NearestInSegment(a, c, point), NearestInSegment(b, c, point)}) {
    const double squared = SquaredDistance(other, point);
    if (squared < nearest.squared_distance) {
      nearest = {other, squared};
    }
  }
  const Eigen::Vector3d to_b = b - a;
  const Eigen::Vector3d to_c = c - a;
  const Eigen::Vector3d to_point = point - a;
  const Eigen::Vector3d normal = Cross(to_b, to_c);
  const double area = Dot(normal, normal);
  const double share_b = Dot(Cross(to_point, to_c), normal);
  const double share_c = Dot(Cross(to_b, to_point), normal);
  if (share_b > 0.0 && share_c > 0.0 && share_b + share_c < area) {
    // The normal of a narrow triangle is not known well. From the edges its point is no farther away than it
    // is wide, so that the error counts for no more than that.
    const double height = Dot(normal, point - nearest.point);
    const double squared_width =
        area / std::max({SquaredDistance(a, b), SquaredDistance(a, c), SquaredDistance(b, c)});
    const double squared = std::max(height * height / area, nearest.squared_distance - squared_width);
    if (squared < nearest.squared_distance) {
      const Eigen::Vector3d inwards = point - nearest.point - height / area * normal;
      nearest.point += Dot(inwards, inwards) <= squared_width ? inwards : Eigen::Vector3d::Zero();
      nearest.squared_distance = squared;
    }
  }
  return nearest;
}

MeshTree::MeshTree(const TriangleMesh& mesh)
    : Compound(Parts::kTriangles,
               {mesh.triangles().size(), [&mesh](std::size_t i) { return BoundsOf(CornersOf(mesh, i)); }}),
      bounds_{} {
  corners_.reserve(tree().items.size());
  closed_pieces_.reserve(tree().items.size());
  for (const std::uint32_t item : tree().items) {
    corners_.push_back(CornersOf(mesh, item));
    const std::uint32_t piece = mesh.pieces()[item];
    closed_pieces_.push_back(mesh.isPieceClosed(piece) ? piece : kNone);
  }
  std::vector<LaneTriangle> triangles;
  triangles.reserve(corners_.size());
  for (const Corners& corners : corners_) {
    triangles.push_back(InSinglePrecision(corners));
  }
  setTriangles(std::move(triangles));
  for (int axis = 0; axis < 3; ++axis) {
    const auto [low, high] =
        std::minmax_element(mesh.vertices().begin(), mesh.vertices().end(),
                            [axis](const auto& a, const auto& b) { return a[axis] < b[axis]; });
    bounds_.low[axis] = (*low)[axis];
    bounds_.high[axis] = (*high)[axis];
  }
  const auto is_closed = [this](std::size_t place) { return closed_pieces_[place] != kNone; };
  if (!mesh.isClosed() && mesh.numPieces() == 1) {
    return;
  }
  constexpr double kCellsForTriangle = 16.0;
  constexpr double kMostCells = 1 << 18;
  grid_.emplace(bounds_, std::min(kCellsForTriangle * static_cast<double>(corners_.size()), kMostCells));
  mark(*grid_, is_closed);
  grid_->fill([&](const double* point) { return crossesOdd(point); });
}

template <class IsMarked>
void MeshTree::mark(InsideGrid& grid, const IsMarked& is_marked) const {
  for (std::size_t place = 0; place < corners_.size(); ++place) {
    if (is_marked(place)) {
      grid.mark(BoundsOf(corners_[place]), [&](const std::array<double, 3>& middle, double reach) {
        const Eigen::Vector3d point(middle[0], middle[1], middle[2]);
        return NearestInTriangle(corners_[place], point).squared_distance <= reach * reach;
      });
    }
  }
}

const Compound* MeshTree::filling() const {
  std::call_once(filled_, [this] { fill(); });
  return filling_.get();
}

void MeshTree::fill() const {
  if (std::find(closed_pieces_.begin(), closed_pieces_.end(), kNone) == closed_pieces_.end()) {
    return;
  }
  // Fine enough to see the shape, coarse enough to be made in a moment.
  constexpr double kNumCells = 1 << 15;
  InsideGrid grid(bounds_, kNumCells);
  mark(grid, [](std::size_t) { return true; });
  std::vector<Octree::Cell> cells;
  grid.visitUnmarked([&](const std::array<double, 3>& middle, double size) {
    int num_odd = 0;
    for (int axis = 0; axis < 3; ++axis) {
      for (const bool is_upward : {false, true}) {
        const Ray ray(middle.data(), axis, is_upward);
        bool is_odd = false;
        tree().findOverlapping(ray.bounds(), [&](std::uint32_t place) {
          is_odd = is_odd != ray.crosses(corners_[place]);
          return false;
        });
        num_odd += is_odd ? 1 : 0;
      }
    }
    if (num_odd > 3) {
      cells.push_back({{middle[0], middle[1], middle[2]}, size});
    }
  });
  if (!cells.empty()) {
    filling_ = std::make_unique<const CellTree>(std::move(cells));
  }
}

double MeshTree::signedDistance(const double* point, Interior interior) const {
  const Eigen::Vector3d p(point[0], point[1], point[2]);
  const double distance = least(point, [&](std::uint32_t place) {
    return std::sqrt(NearestInTriangle(corners_[place], p).squared_distance);
  });
  return interior != Interior::kEmpty && contains(point) ? -distance : distance;
}

bool MeshTree::touches(const double* point, double radius, double padding, Interior interior) const {
  const Eigen::Vector3d p(point[0], point[1], point[2]);
  const auto touched = [&](std::uint32_t place) {
    return std::sqrt(NearestInTriangle(corners_[place], p).squared_distance) - padding <= radius;
  };
  return tree().findOverlapping(boundsAround(point, radius + padding), touched) ||
         (interior != Interior::kEmpty && contains(point));
}

MeshTree::Nearest MeshTree::nearest(const Eigen::Vector3d& point) const {
  Nearest nearest{std::numeric_limits<double>::infinity(), kNone, point};
  double least = nearest.distance;
  FindNearest(tree().groups.data(), point.data(), least, [&](std::uint32_t place, double& so_far) {
    const NearInTriangle near = NearestInTriangle(corners_[place], point);
    const double distance = std::sqrt(near.squared_distance);
    const std::uint32_t triangle = tree().items[place];
    if (distance < nearest.distance || (distance == nearest.distance && triangle < nearest.triangle)) {
      nearest = {distance, triangle, near.point};
      so_far = distance;
    }
  });
  return nearest;
}

bool MeshTree::contains(const double* point) const {
  if (!grid_) {
    return false;
  }
  for (int axis = 0; axis < 3; ++axis) {
    if (!(point[axis] >= bounds_.low[axis] && point[axis] <= bounds_.high[axis])) {
      return false;
    }
  }
  const InsideGrid::Side side = grid_->sideOf(point);
  return side == InsideGrid::Side::kUnknown ? crossesOdd(point) : side == InsideGrid::Side::kInside;
}

bool MeshTree::crossesOdd(const double* point) const {
  const Ray ray(point, bounds_);
  OddPieces odd;
  do {
    tree().findOverlapping(ray.bounds(), [&](std::uint32_t place) {
      if (closed_pieces_[place] != kNone && ray.crosses(corners_[place])) {
        odd.toggle(closed_pieces_[place]);
      }
      return false;
    });
  } while (odd.isEmpty() && odd.next());
  return !odd.isEmpty();
}

}  // namespace kavo::internal
