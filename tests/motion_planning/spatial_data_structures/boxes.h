#pragma once

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"
#include "tests/support/vectors.h"

namespace kavo::testing {

inline planning::BoundingBox Box(const Eigen::VectorXd& min, const Eigen::VectorXd& max) {
  return planning::BoundingBox(kinematics::ConfigurationLimits(min, max));
}

inline planning::BoundingBox Box(std::initializer_list<double> min, std::initializer_list<double> max) {
  return Box(Vec(min), Vec(max));
}

inline planning::BoundingBox Point(std::initializer_list<double> q) { return Box(q, q); }

//! A box with corners on a coarse lattice or anywhere, often a point.
inline planning::BoundingBox RandomBox(std::mt19937& engine, int dimension) {
  const bool lattice = engine() % 2 == 0;
  Eigen::VectorXd min = RandomVec(engine, dimension, -2.0, 2.0);
  if (lattice) {
    min = min.array().round();
  }
  if (engine() % 3 == 0) {
    return Box(min, min);
  }
  Eigen::VectorXd max = min + RandomVec(engine, dimension, 0.0, 2.0);
  if (lattice) {
    max = max.array().ceil();
  }
  return Box(min, max);
}

//! The split of the R*-tree in its plainest form: each list sorted, each distribution measured by itself.
inline std::pair<std::vector<int>, std::vector<int>> PlainStarSplit(
    const std::vector<planning::BoundingBox>& boxes, int min_entries) {
  using planning::BoundingBoxBound;
  const auto order = [&boxes](int axis, BoundingBoxBound bound) {
    return SortBoundingBoxIndices(boxes, axis, bound, planning::BoundingBoxOrder::kAscending, 0.0);
  };
  const auto bounds = [&boxes](const std::vector<int>& indices, std::size_t begin, std::size_t end) {
    std::vector<planning::BoundingBox> group;
    for (std::size_t i = begin; i < end; ++i) {
      group.push_back(boxes[static_cast<std::size_t>(indices[i])]);
    }
    return planning::BoundingBox(group);
  };
  const auto first_size = static_cast<std::size_t>(min_entries);
  const std::size_t last_size = boxes.size() - first_size;
  double best_margin = std::numeric_limits<double>::infinity();
  int best_axis = 0;
  for (int axis = 0; axis < boxes.front().Dimension(); ++axis) {
    double total = 0.0;
    for (const BoundingBoxBound bound : {BoundingBoxBound::kMin, BoundingBoxBound::kMax}) {
      double margin = 0.0;
      for (std::size_t size = first_size; size <= last_size; ++size) {
        margin += bounds(order(axis, bound), 0, size).Margin();
        margin += bounds(order(axis, bound), size, boxes.size()).Margin();
      }
      total += margin;
    }
    if (total < best_margin) {
      best_margin = total;
      best_axis = axis;
    }
  }
  const std::vector<int> sorted = order(best_axis, BoundingBoxBound::kMin);
  double best_overlap = std::numeric_limits<double>::infinity();
  std::size_t best_size = first_size;
  for (std::size_t size = first_size; size <= last_size; ++size) {
    const double overlap = bounds(sorted, 0, size).Overlap(bounds(sorted, size, boxes.size()));
    if (overlap < best_overlap) {
      best_overlap = overlap;
      best_size = size;
    }
  }
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(best_size);
  return {{sorted.begin(), middle}, {middle, sorted.end()}};
}

}  // namespace kavo::testing
