#include "kavo/world/shapes/cover_outside_internal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace kavo::internal {

namespace {

constexpr double kSqrt3 = 1.7320508075688774;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

double Dot(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double Norm(const Eigen::Vector3d& v) { return std::sqrt(Dot(v, v)); }

}  // namespace

std::unique_ptr<CoverOutside> CoverOutside::Make(const CoverRegion& region, double tolerance,
                                                 std::size_t max_cells) {
  std::unique_ptr<CoverOutside> outside(new CoverOutside(region, tolerance));
  if (!outside->divideAll(max_cells)) {
    return nullptr;
  }
  outside->flood();
  outside->markParents(0);
  outside->sampleBoundary();
  return outside;
}

CoverOutside::CoverOutside(const CoverRegion& region, double tolerance)
    : region_(region), tolerance_(tolerance), leaf_half_(0.25 * tolerance) {
  Cell root{};
  double reach = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    root.middle[axis] = region.bounds().middle(axis);
    reach = std::max(reach, region.bounds().high[axis] - root.middle[axis]);
  }
  // The outermost cells are to be outside.
  reach += 2.5 * tolerance;
  root.half = leaf_half_;
  while (root.half < reach) {
    root.half *= 2.0;
  }
  classify(root);
  cells_.push_back(root);
}

void CoverOutside::classify(Cell& cell) const {
  cell.near = region_.nearest(cell.middle);
  const double radius = kSqrt3 * cell.half + region_.rounding();
  if (cell.near.distance + radius <= tolerance_) {
    cell.kind = Kind::kNear;
    return;
  }
  if (!cell.is_decided && cell.near.distance > radius) {
    cell.is_decided = true;
    cell.is_inside = region_.contains(cell.middle);
  }
  if (cell.is_decided && cell.is_inside) {
    cell.kind = Kind::kNear;
  } else {
    cell.kind = cell.near.distance - radius > tolerance_ ? Kind::kFar : Kind::kMixed;
  }
}

void CoverOutside::divide(std::uint32_t index) {
  const auto first = static_cast<std::uint32_t>(cells_.size());
  const Cell parent = cells_[index];
  cells_[index].children = first;
  for (int corner = 0; corner < 8; ++corner) {
    Cell child{};
    child.half = 0.5 * parent.half;
    for (int axis = 0; axis < 3; ++axis) {
      child.middle[axis] = parent.middle[axis] + ((corner >> axis & 1) != 0 ? child.half : -child.half);
    }
    child.is_decided = parent.is_decided;
    child.is_inside = parent.is_inside;
    classify(child);
    child.is_outside = parent.is_outside && child.kind != Kind::kNear;
    cells_.push_back(child);
  }
}

bool CoverOutside::divideAll(std::size_t max_cells) {
  // Children come behind all that are to be divided before them.
  for (std::uint32_t i = 0; i < cells_.size(); ++i) {
    if (cells_[i].kind == Kind::kMixed && cells_[i].half > 1.5 * leaf_half_) {
      if (cells_.size() + 8 > max_cells) {
        return false;
      }
      divide(i);
    }
  }
  return true;
}

std::uint32_t CoverOutside::neighbour(std::uint32_t index, int axis, double side) const {
  Eigen::Vector3d point = cells_[index].middle;
  // Into the neighbour, however small that is.
  point[axis] += side * (cells_[index].half + 0.5 * leaf_half_);
  if (std::fabs(point[axis] - cells_[0].middle[axis]) > cells_[0].half) {
    return 0;
  }
  std::uint32_t found = 0;
  while (cells_[found].children != 0 && cells_[found].half > 1.5 * cells_[index].half) {
    const Cell& cell = cells_[found];
    found = cell.children + (point[0] > cell.middle[0] ? 1U : 0U) + (point[1] > cell.middle[1] ? 2U : 0U) +
            (point[2] > cell.middle[2] ? 4U : 0U);
  }
  return found;
}

void CoverOutside::flood() {
  std::uint32_t corner = 0;
  while (cells_[corner].children != 0) {
    corner = cells_[corner].children;
  }
  std::vector<std::uint32_t> reached{corner};
  std::vector<std::uint32_t> beside;
  cells_[corner].is_outside = true;
  while (!reached.empty()) {
    const std::uint32_t index = reached.back();
    reached.pop_back();
    for (int face = 0; face < 6; ++face) {
      const int axis = face / 2;
      const bool is_up = face % 2 == 1;
      beside.assign(1, neighbour(index, axis, is_up ? 1.0 : -1.0));
      if (beside[0] == 0) {
        continue;
      }
      // Of a neighbour that is divided, those parts that share the face.
      while (!beside.empty()) {
        const std::uint32_t other = beside.back();
        beside.pop_back();
        if (cells_[other].children != 0) {
          for (std::uint32_t child = 0; child < 8; ++child) {
            if ((child >> axis & 1U) == (is_up ? 0U : 1U)) {
              beside.push_back(cells_[other].children + child);
            }
          }
        } else if (cells_[other].kind != Kind::kNear && !cells_[other].is_outside) {
          cells_[other].is_outside = true;
          reached.push_back(other);
        }
      }
    }
  }
}

bool CoverOutside::markParents(std::uint32_t index) {
  if (cells_[index].children != 0) {
    bool is_outside = false;
    for (std::uint32_t child = 0; child < 8; ++child) {
      is_outside = markParents(cells_[index].children + child) || is_outside;
    }
    cells_[index].is_outside = is_outside;
  }
  return cells_[index].is_outside;
}

void CoverOutside::sampleBoundary() {
  std::vector<Bounds> bounds;
  for (const Cell& cell : cells_) {
    if (cell.children == 0 && cell.is_outside && cell.kind == Kind::kMixed && cell.near.distance > 0.0) {
      const Eigen::Vector3d way = cell.middle - cell.near.point;
      const double length = Norm(way);
      normals_.emplace_back(way / (length > 0.0 ? length : 1.0));
      boundary_.emplace_back(cell.near.point + tolerance_ * normals_.back());
      Bounds point{};
      for (int axis = 0; axis < 3; ++axis) {
        point.low[axis] = point.high[axis] = boundary_.back()[axis];
      }
      bounds.push_back(point);
    }
  }
  boundary_tree_ = BoundsTree(bounds);
}

bool CoverOutside::isOutside(const Eigen::Vector3d& point) const {
  std::uint32_t index = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (!(std::fabs(point[axis] - cells_[0].middle[axis]) <= cells_[0].half)) {
      return true;
    }
  }
  while (cells_[index].children != 0) {
    const Cell& cell = cells_[index];
    index = cell.children + (point[0] > cell.middle[0] ? 1U : 0U) + (point[1] > cell.middle[1] ? 2U : 0U) +
            (point[2] > cell.middle[2] ? 4U : 0U);
  }
  return cells_[index].is_outside;
}

std::optional<CoverOutside::Reach> CoverOutside::reachOverSurface(const Eigen::Vector3d& point) const {
  const CoverRegion::Near near = region_.nearest(point);
  const std::optional<double> depth = region_.signedDepth(near.distance, point);
  if (!depth) {
    return std::nullopt;
  }
  const double radius = *depth + tolerance_ - 2.0 * region_.rounding();
  if (!(radius > 0.0)) {
    return Reach{0.0, point};
  }
  const Eigen::Vector3d way = near.point - point;
  const double length = Norm(way);
  const double share = length > 0.0 ? radius / (*depth > 0.0 ? length : -length) : 0.0;
  return Reach{radius, point + share * way};
}

CoverOutside::Reach CoverOutside::estimate(const Eigen::Vector3d& point) const {
  if (const std::optional<Reach> reach = reachOverSurface(point)) {
    return *reach;
  }
  if (isOutside(point)) {
    return {0.0, point};
  }
  double nearest = kInfinity;
  std::uint32_t index = 0;
  FindNearest(boundary_tree_.groups.data(), point.data(), nearest, [&](std::uint32_t place, double& so_far) {
    const double distance = Norm(boundary_[boundary_tree_.items[place]] - point);
    if (distance < so_far) {
      so_far = distance;
      index = boundary_tree_.items[place];
    }
  });
  // The boundary goes on about straight to where it is nearest.
  const double height = Dot(boundary_[index] - point, normals_[index]);
  return {std::max(height, nearest - 0.1 * tolerance_), boundary_[index]};
}

CoverOutside::Reach CoverOutside::grow(const Eigen::Vector3d& point, Eigen::Vector3d& center) const {
  Reach first = estimate(point);
  center = point;
  const double length = Norm(point - first.contact);
  if (!(first.distance > 0.0 && length > 0.0)) {
    return first;
  }
  // Centres of balls that touch there lie on a ray. Balls on it hold those before them, until one meets the
  // outside elsewhere: it is shrunk until it touches there (as Ma, Bae and Choi, "3D medial axis point
  // approximation using nearest neighbors and the normal field", 2012).
  const double slack = 0.02 * tolerance_;
  const Eigen::Vector3d inwards = (point - first.contact) / length;
  Reach best = first;
  double largest = first.distance;
  double beyond = kInfinity;
  for (int i = 0; i < 12 && beyond - largest > 0.03 * largest; ++i) {
    const double radius = beyond < kInfinity ? beyond : 2.0 * largest;
    const Eigen::Vector3d middle = first.contact + radius * inwards;
    const Reach other = estimate(middle);
    if (other.distance >= radius - slack) {
      best = other;
      center = middle;
      largest = radius;
      if (beyond < kInfinity) {
        break;
      }
      continue;
    }
    const Eigen::Vector3d chord = other.contact - first.contact;
    const double along = 2.0 * Dot(chord, inwards);
    const double touching = along > 0.0 ? Dot(chord, chord) / along : 0.0;
    beyond = other.distance > 0.0 && touching > largest && touching < 0.98 * radius
                 ? touching
                 : 0.5 * (largest + radius);
  }
  return best;
}

CoverOutside::Candidate CoverOutside::makeCandidate(std::uint32_t index, const Eigen::Vector3d& point) const {
  const Cell& cell = cells_[index];
  Candidate candidate{0.0, index, {}};
  double squared = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    const double low = cell.middle[axis] - cell.half;
    const double high = cell.middle[axis] + cell.half;
    candidate.contact[axis] = std::min(std::max(point[axis], low), high);
    const double beyond = candidate.contact[axis] - point[axis];
    squared += beyond * beyond;
  }
  candidate.distance = std::sqrt(squared);
  if (cell.children != 0 || cell.kind != Kind::kMixed) {
    return candidate;
  }
  // Whatever of the cell is outside is more than `clear` away from the point of the region that is nearest to
  // its middle, in a direction that differs from that of the middle by less than an angle. By the law of
  // cosines that keeps it away from `point`.
  const double clear = tolerance_ - cell.near.error;
  const Eigen::Vector3d up = cell.middle - cell.near.point;
  const Eigen::Vector3d down = cell.near.point - point;
  const double height = Norm(up);
  const double depth = Norm(down);
  const double radius = kSqrt3 * cell.half;
  if (height > radius && depth > 0.0 && clear > 0.0) {
    const double sin_angle = radius / height;
    const double cos_angle = std::sqrt(1.0 - sin_angle * sin_angle);
    const double cos_turn = std::min(std::max(Dot(up, down) / (height * depth), -1.0), 1.0);
    const double sin_turn = std::sqrt(1.0 - cos_turn * cos_turn);
    const double least = cos_turn * cos_angle - sin_turn * sin_angle;
    // Where the two angles exceed half a turn, or the nearest point is not at `clear`, the box has to do.
    if (cos_turn > -cos_angle && least * depth > -clear) {
      const double distance =
          std::sqrt(std::max(clear * clear + depth * depth + 2.0 * clear * depth * least, 0.0));
      if (distance > candidate.distance) {
        candidate.distance = distance;
        candidate.contact = cell.near.point + (tolerance_ / height) * up;
      }
    }
  }
  return candidate;
}

CoverOutside::Reach CoverOutside::reach(const Eigen::Vector3d& point) {
  constexpr double kPrecision = 0.005;
  constexpr double kSmallest = 0.125;
  // Where very much of the boundary is equally far, less precision has to do.
  constexpr int kMostDivided = 200;
  if (const std::optional<Reach> reach = reachOverSurface(point)) {
    return *reach;
  }
  const auto is_farther = [](const Candidate& a, const Candidate& b) {
    return a.distance != b.distance ? a.distance > b.distance : a.cell > b.cell;
  };
  if (isOutside(point)) {
    return {0.0, point};
  }
  // From inside, whatever is outside is behind the surface and the tolerance; for most shapes that is all.
  const double depth = region_.depth(point);
  const double behind = depth > 0.0 ? depth + tolerance_ - region_.rounding() : 0.0;
  const Reach about = estimate(point);
  if (behind > about.distance - 2.0 * kPrecision * tolerance_) {
    return {behind, about.contact};
  }
  double at_most = kInfinity;
  int num_divided = 0;
  heap_.assign(1, makeCandidate(0, point));
  while (!heap_.empty()) {
    std::pop_heap(heap_.begin(), heap_.end(), is_farther);
    const Candidate nearest = heap_.back();
    heap_.pop_back();
    if (cells_[nearest.cell].children == 0) {
      const Cell& cell = cells_[nearest.cell];
      if (cell.kind == Kind::kFar || nearest.distance >= at_most - kPrecision * tolerance_ ||
          cell.half <= 1.5 * kSmallest * leaf_half_ || ++num_divided > kMostDivided) {
        return {std::max(nearest.distance - region_.rounding(), behind), nearest.contact};
      }
      divide(nearest.cell);
    }
    for (std::uint32_t i = cells_[nearest.cell].children; i < cells_[nearest.cell].children + 8; ++i) {
      if (!cells_[i].is_outside) {
        continue;
      }
      const Candidate candidate = makeCandidate(i, point);
      if (cells_[i].children == 0 && cells_[i].near.distance > tolerance_) {
        at_most = std::min(at_most, Norm(cells_[i].middle - point));
      }
      if (candidate.distance <= at_most) {
        heap_.push_back(candidate);
        std::push_heap(heap_.begin(), heap_.end(), is_farther);
      }
    }
  }
  return {0.0, point};
}

std::vector<Eigen::Vector3d> CoverOutside::samples() const {
  std::vector<Eigen::Vector3d> points;
  for (const Cell& cell : cells_) {
    if (cell.children != 0) {
      continue;
    }
    if (cell.is_outside ? cell.kind == Kind::kMixed : cell.near.distance <= kSqrt3 * cell.half) {
      points.push_back(cell.near.point);
    } else if (!cell.is_outside && (cell.is_decided ? cell.is_inside : region_.contains(cell.middle))) {
      points.push_back(cell.middle);
    }
  }
  return points;
}

}  // namespace kavo::internal
