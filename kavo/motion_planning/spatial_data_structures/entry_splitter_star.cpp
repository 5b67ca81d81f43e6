#include "kavo/motion_planning/spatial_data_structures/entry_splitter_star.h"

#include <algorithm>
#include <limits>

#include "kavo/motion_planning/spatial_data_structures/box_order_internal.h"
#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"

namespace kavo::planning {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// The boxes around the first `size` and around the other boxes of a sorted list.
std::pair<BoundingBox, BoundingBox> GroupBounds(const std::vector<BoundingBox>& sorted, int size) {
  const auto middle = sorted.begin() + size;
  return {BoundingBox(std::vector<BoundingBox>(sorted.begin(), middle)),
          BoundingBox(std::vector<BoundingBox>(middle, sorted.end()))};
}

// One split without boxes as objects: distributions are measured by boxes that grow from both ends of the
// list.
class RowSplit {
 public:
  RowSplit(const internal::BoxRows& boxes, int min_entries, int num_distributions)
      : dimension_(static_cast<std::size_t>(boxes.Dimension())),
        size_(boxes.Size()),
        are_points_(boxes.ArePoints()),
        min_entries_(min_entries),
        num_distributions_(num_distributions),
        corners_(static_cast<std::size_t>(size_) * 2 * dimension_),
        keys_(static_cast<std::size_t>(size_)),
        bounds_(static_cast<std::size_t>(num_distributions) * 4 * dimension_),
        running_(2 * dimension_) {
    for (int i = 0; i < size_; ++i) {
      boxes.Copy(i, Corners(i), Corners(i) + dimension_);
    }
  }

  int ChooseAxis() {
    double best = kInf;
    std::size_t axis = 0;
    for (std::size_t i = 0; i < dimension_; ++i) {
      const double margin = TotalMargin(i);
      if (margin < best) {
        best = margin;
        axis = i;
      }
    }
    return static_cast<int>(axis);
  }

  std::pair<std::vector<int>, std::vector<int>> Split(int axis) {
    Sort(static_cast<std::size_t>(axis), false);
    GrowBounds();
    double best = kInf;
    int size = min_entries_;
    for (int k = 0; k < num_distributions_; ++k) {
      const double overlap = Overlap(k);
      if (best > overlap) {
        best = overlap;
        size = min_entries_ + k;
      }
    }
    std::pair<std::vector<int>, std::vector<int>> groups;
    for (int i = 0; i < size_; ++i) {
      (i < size ? groups.first : groups.second).push_back(keys_[static_cast<std::size_t>(i)].index);
    }
    return groups;
  }

 private:
  double* Corners(int index) { return corners_.data() + static_cast<std::size_t>(index) * 2 * dimension_; }
  // The boxes of a distribution's two groups.
  double* Bounds(int k, int group) {
    return bounds_.data() + static_cast<std::size_t>(2 * k + group) * 2 * dimension_;
  }

  void Sort(std::size_t axis, bool by_max) {
    for (int i = 0; i < size_; ++i) {
      const double min = Corners(i)[axis];
      const double max = Corners(i)[dimension_ + axis];
      keys_[static_cast<std::size_t>(i)] = {by_max ? max : min, by_max ? min : max, i};
    }
    internal::SortBoxKeys(keys_, 0.0);
  }

  // Expands the box `running_` by the next of the sorted list.
  void Include(int position) {
    const double* const corners = Corners(keys_[static_cast<std::size_t>(position)].index);
    for (std::size_t axis = 0; axis < dimension_; ++axis) {
      running_[axis] = std::min(running_[axis], corners[axis]);
      running_[dimension_ + axis] = std::max(running_[dimension_ + axis], corners[dimension_ + axis]);
    }
  }

  void Restart(int position) {
    const double* const corners = Corners(keys_[static_cast<std::size_t>(position)].index);
    std::copy_n(corners, 2 * dimension_, running_.begin());
  }

  void GrowBounds() {
    Restart(0);
    for (int i = 1; i < min_entries_ + num_distributions_; ++i) {
      if (i >= min_entries_) {
        std::copy(running_.begin(), running_.end(), Bounds(i - min_entries_, 0));
      }
      Include(i);
    }
    Restart(size_ - 1);
    for (int i = size_ - 1; i >= min_entries_; --i) {
      Include(i);
      if (i < min_entries_ + num_distributions_) {
        std::copy(running_.begin(), running_.end(), Bounds(i - min_entries_, 1));
      }
    }
  }

  double MarginAcrossDistributions() {
    GrowBounds();
    double sum = 0.0;
    for (int k = 0; k < num_distributions_; ++k) {
      for (const int group : {0, 1}) {
        const double* const bounds = Bounds(k, group);
        double margin = 0.0;
        for (std::size_t axis = 0; axis < dimension_; ++axis) {
          margin += bounds[dimension_ + axis] - bounds[axis];
        }
        sum += margin;
      }
    }
    return sum;
  }

  double TotalMargin(std::size_t axis) {
    Sort(axis, false);
    const double margin = MarginAcrossDistributions();
    if (are_points_) {
      return margin + margin;
    }
    Sort(axis, true);
    return margin + MarginAcrossDistributions();
  }

  double Overlap(int k) {
    const double* const first = Bounds(k, 0);
    const double* const second = Bounds(k, 1);
    double volume = 1.0;
    for (std::size_t axis = 0; axis < dimension_; ++axis) {
      volume *= std::max(0.0, std::min(first[dimension_ + axis], second[dimension_ + axis]) -
                                  std::max(first[axis], second[axis]));
    }
    return volume;
  }

  std::size_t dimension_;
  int size_;
  bool are_points_;
  int min_entries_;
  int num_distributions_;
  std::vector<double> corners_;
  std::vector<internal::BoxKey> keys_;
  std::vector<double> bounds_;
  std::vector<double> running_;
};

}  // namespace

EntrySplitterStar::EntrySplitterStar(int dimension, int min_entries_per_node, int max_entries_per_node)
    : dimension_(dimension),
      min_entries_per_node_(min_entries_per_node),
      max_entries_per_node_(max_entries_per_node),
      num_distributions_(max_entries_per_node - 2 * min_entries_per_node + 2) {}

std::pair<std::vector<int>, std::vector<int>> EntrySplitterStar::SplitEntries(
    const std::vector<BoundingBox>& boxes) const {
  const int axis = ChooseSplitAxis(boxes);
  const int split = ChooseSplitIndex(
      SortBoundingBoxes(boxes, axis, BoundingBoxBound::kMin, BoundingBoxOrder::kAscending, 0.0));
  const std::vector<int> order =
      SortBoundingBoxIndices(boxes, axis, BoundingBoxBound::kMin, BoundingBoxOrder::kAscending, 0.0);
  return {std::vector<int>(order.begin(), order.begin() + split),
          std::vector<int>(order.begin() + split, order.end())};
}

std::pair<std::vector<int>, std::vector<int>> EntrySplitterStar::SplitRows(
    const internal::BoxRows& boxes) const {
  if (boxes.Size() - 1 != max_entries_per_node_ || boxes.Dimension() != dimension_ ||
      num_distributions_ < 1) {
    return EntrySplitter::SplitRows(boxes);
  }
  RowSplit split(boxes, min_entries_per_node_, num_distributions_);
  return split.Split(split.ChooseAxis());
}

int EntrySplitterStar::ChooseSplitAxis(const std::vector<BoundingBox>& boxes) const {
  double best = kInf;
  int best_axis = 0;
  for (int axis = 0; axis < dimension_; ++axis) {
    const double margin = TotalMargin(boxes, axis);
    if (margin < best) {
      best = margin;
      best_axis = axis;
    }
  }
  return best_axis;
}

double EntrySplitterStar::TotalMargin(const std::vector<BoundingBox>& boxes, int axis) const {
  double sum = 0.0;
  for (const BoundingBoxBound bound : {BoundingBoxBound::kMin, BoundingBoxBound::kMax}) {
    sum +=
        MarginAcrossDistributions(SortBoundingBoxes(boxes, axis, bound, BoundingBoxOrder::kAscending, 0.0));
  }
  return sum;
}

double EntrySplitterStar::MarginAcrossDistributions(const std::vector<BoundingBox>& boxes) const {
  double sum = 0.0;
  for (int k = 0; k < num_distributions_; ++k) {
    const auto [first, second] = GroupBounds(boxes, min_entries_per_node_ + k);
    sum += first.Margin();
    sum += second.Margin();
  }
  return sum;
}

int EntrySplitterStar::ChooseSplitIndex(const std::vector<BoundingBox>& boxes) const {
  double best = kInf;
  int size = min_entries_per_node_;
  for (int k = 0; k < num_distributions_; ++k) {
    const auto [first, second] = GroupBounds(boxes, min_entries_per_node_ + k);
    const double overlap = first.Overlap(second);
    if (best > overlap) {
      best = overlap;
      size = min_entries_per_node_ + k;
    }
  }
  return size;
}

std::shared_ptr<EntrySplitter> CreateEntrySplitterStar(int dimension, int min_entries_per_node,
                                                       int max_entries_per_node) {
  return std::make_shared<EntrySplitterStar>(dimension, min_entries_per_node, max_entries_per_node);
}

}  // namespace kavo::planning
