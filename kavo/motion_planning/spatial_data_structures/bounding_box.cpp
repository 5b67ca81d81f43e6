#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/spatial_data_structures/box_order_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

kinematics::ConfigurationLimits LimitsOfUnion(const std::vector<BoundingBox>& boxes) {
  KAVO_CHECK(!boxes.empty(), "motion_planning/spatial_data_structures/bounding_box", 21)
      << "At least one box is required for construction.";
  Eigen::VectorXd min = boxes.front().Min();
  Eigen::VectorXd max = boxes.front().Max();
  for (const BoundingBox& box : boxes) {
    min = min.cwiseMin(box.Min());
    max = max.cwiseMax(box.Max());
  }
  return {min, max};
}

double SumOfSquares(double sum, double gap) {
  const double positive = std::max(0.0, gap);
  return sum + positive * positive;
}

}  // namespace

BoundingBox::BoundingBox(const kinematics::ConfigurationLimits& limits) : limits_(limits) {}

BoundingBox::BoundingBox(const std::vector<BoundingBox>& boxes) : limits_(LimitsOfUnion(boxes)) {}

Eigen::VectorXd BoundingBox::Centroid() const { return Min() + 0.5 * Extent(); }

double BoundingBox::Margin() const {
  double margin = 0.0;
  for (const double extent : Extent()) {
    margin += extent;
  }
  return margin;
}

double BoundingBox::Volume() const {
  double volume = 1.0;
  for (const double extent : Extent()) {
    volume *= extent;
  }
  return volume;
}

bool BoundingBox::Intersects(const BoundingBox& other) const {
  ValidateDimensions(other.Dimension());
  for (int axis = 0; axis < Dimension(); ++axis) {
    if (Min(axis) > other.Max(axis)) {
      return false;
    }
  }
  for (int axis = 0; axis < other.Dimension(); ++axis) {
    if (other.Min(axis) > Max(axis)) {
      return false;
    }
  }
  return true;
}

double BoundingBox::Overlap(const BoundingBox& other) const {
  ValidateDimensions(other.Dimension());
  double volume = 1.0;
  for (int axis = 0; axis < other.Dimension(); ++axis) {
    volume *= std::max(0.0, std::min(Max(axis), other.Max(axis)) - std::max(Min(axis), other.Min(axis)));
  }
  return volume;
}

double BoundingBox::VolumeIncreaseToInclude(const BoundingBox& other) const {
  ValidateDimensions(other.Dimension());
  double volume = 1.0;
  for (int axis = 0; axis < other.Dimension(); ++axis) {
    volume *= std::max(Max(axis), other.Max(axis)) - std::min(Min(axis), other.Min(axis));
  }
  return volume - Volume();
}

void BoundingBox::ExpandToInclude(const BoundingBox& other) {
  ValidateDimensions(other.Dimension());
  limits_ = kinematics::ConfigurationLimits(Min().cwiseMin(other.Min()), Max().cwiseMax(other.Max()));
}

double BoundingBox::DistanceTo(const Eigen::VectorXd& point) const {
  ValidateDimensions(static_cast<int>(point.size()));
  double sum = 0.0;
  for (Eigen::Index axis = 0; axis < point.size(); ++axis) {
    sum = SumOfSquares(sum, std::max(Min()[axis] - point[axis], point[axis] - Max()[axis]));
  }
  return std::sqrt(sum);
}

double BoundingBox::DistanceTo(const BoundingBox& other) const {
  ValidateDimensions(other.Dimension());
  double sum = 0.0;
  for (int axis = 0; axis < other.Dimension(); ++axis) {
    sum = SumOfSquares(sum, std::max(Min(axis) - other.Max(axis), other.Min(axis) - Max(axis)));
  }
  return std::sqrt(sum);
}

std::ostream& operator<<(std::ostream& stream, const BoundingBox& box) {
  return stream << "{[" << box.Min().transpose() << "], [" << box.Max().transpose() << "]}";
}

std::vector<int> SortBoundingBoxIndices(const std::vector<BoundingBox>& boxes, int axis,
                                        BoundingBoxBound bound, BoundingBoxOrder order, double tolerance) {
  std::vector<internal::BoxKey> keys;
  keys.reserve(boxes.size());
  for (const BoundingBox& box : boxes) {
    const bool by_max = bound == BoundingBoxBound::kMax;
    keys.push_back({by_max ? box.Max(axis) : box.Min(axis), by_max ? box.Min(axis) : box.Max(axis),
                    static_cast<int>(keys.size())});
  }
  internal::SortBoxKeys(keys, tolerance);
  if (order == BoundingBoxOrder::kDescending) {
    std::reverse(keys.begin(), keys.end());
  }
  std::vector<int> indices;
  indices.reserve(keys.size());
  for (const internal::BoxKey& key : keys) {
    indices.push_back(key.index);
  }
  return indices;
}

std::vector<BoundingBox> SortBoundingBoxes(const std::vector<BoundingBox>& boxes, int axis,
                                           BoundingBoxBound bound, BoundingBoxOrder order, double tolerance) {
  std::vector<BoundingBox> sorted;
  sorted.reserve(boxes.size());
  for (const int index : SortBoundingBoxIndices(boxes, axis, bound, order, tolerance)) {
    sorted.push_back(boxes[static_cast<std::size_t>(index)]);
  }
  return sorted;
}

void SortBoundingBoxesInPlace(std::vector<BoundingBox>& boxes, int axis, BoundingBoxBound bound,
                              BoundingBoxOrder order, double tolerance) {
  boxes = SortBoundingBoxes(boxes, axis, bound, order, tolerance);
}

void DistributeIndexAndUpdateBounds(int index, const BoundingBox& box,
                                    std::pair<std::vector<int>, std::vector<int>>& groups,
                                    std::pair<BoundingBox, BoundingBox>& bounds) {
  if (bounds.second.VolumeIncreaseToInclude(box) > bounds.first.VolumeIncreaseToInclude(box)) {
    groups.first.push_back(index);
    bounds.first.ExpandToInclude(box);
  } else {
    groups.second.push_back(index);
    bounds.second.ExpandToInclude(box);
  }
}

void AddAllRemainingIndicesIfNeeded(int min_entries, EnumeratedBoxes& remaining, std::vector<int>& group) {
  // Unsigned on purpose: what a group above its minimum lacks is a huge number, which nothing remaining
  // equals.
  const std::uint32_t num_lacking =
      static_cast<std::uint32_t>(min_entries) - static_cast<std::uint32_t>(group.size());
  if (remaining.boxes.size() == num_lacking) {
    group.insert(group.end(), remaining.indices.begin(), remaining.indices.end());
    remaining.boxes.clear();
    remaining.indices.clear();
  }
}

std::pair<std::pair<int, int>, double> GetMaximallySeparatedIndices(const std::vector<BoundingBox>& boxes,
                                                                    int axis) {
  if (boxes.empty()) {
    return {{0, 0}, std::copysign(math::kNaN, -1.0)};
  }
  double lowest_min = math::kInf;
  double highest_min = -math::kInf;
  double lowest_max = math::kInf;
  double highest_max = -math::kInf;
  int highest_min_index = 0;
  int lowest_max_index = 0;
  int index = 0;
  for (const BoundingBox& box : boxes) {
    const double min = box.Min(axis);
    const double max = box.Max(axis);
    if (min < lowest_min) {
      lowest_min = min;
    }
    if (min > highest_min) {
      highest_min = min;
      highest_min_index = index;
    }
    if (max < lowest_max) {
      lowest_max = max;
      lowest_max_index = index;
    }
    if (max > highest_max) {
      highest_max = max;
    }
    ++index;
  }
  double separation = std::abs(highest_min - lowest_max);
  if (separation > 1e-12) {
    separation /= highest_max - lowest_min;
  }
  return {{highest_min_index, lowest_max_index}, separation};
}

}  // namespace kavo::planning
