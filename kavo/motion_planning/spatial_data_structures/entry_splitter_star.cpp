#include "kavo/motion_planning/spatial_data_structures/entry_splitter_star.h"

#include <algorithm>

#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/spatial_data_structures/box_order_internal.h"
#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"

namespace kavo::planning {

namespace {

// Boxes that are to be split, without being objects: distributions are measured by boxes that grow from both
// ends of the list.
class StarSplit {
 public:
  StarSplit(const internal::BoxRows& boxes, int min_entries, int num_distributions)
      : StarSplit(boxes.Dimension(), boxes.Size(), boxes.ArePoints(), min_entries, num_distributions) {
    for (int i = 0; i < size_; ++i) {
      boxes.Copy(i, Corners(i), Corners(i) + dimension_);
    }
  }
  StarSplit(const std::vector<BoundingBox>& boxes, int dimension, int min_entries, int num_distributions)
      : StarSplit(dimension, static_cast<int>(boxes.size()), false, min_entries, num_distributions) {
    for (int i = 0; i < size_; ++i) {
      const BoundingBox& box = boxes[static_cast<std::size_t>(i)];
      std::copy_n(box.Min().data(), dimension_, Corners(i));
      std::copy_n(box.Max().data(), dimension_, Corners(i) + dimension_);
    }
  }

  int ChooseAxis() {
    double best = math::kInf;
    int best_axis = 0;
    for (int axis = 0; axis < static_cast<int>(dimension_); ++axis) {
      const double margin = TotalMargin(axis);
      if (margin < best) {
        best = margin;
        best_axis = axis;
      }
    }
    return best_axis;
  }

  double TotalMargin(int axis) {
    SortBy(axis, false);
    const double margin = MarginAcrossDistributions();
    if (are_points_) {
      return margin + margin;
    }
    SortBy(axis, true);
    return margin + MarginAcrossDistributions();
  }

  // The lists are cut in the order of the last sort; before one, in that in which they were given.
  void SortBy(int axis, bool by_max) {
    for (BoxKey& key : keys_) {
      const double min = Corners(key.index)[axis];
      const double max = Corners(key.index)[static_cast<int>(dimension_) + axis];
      key.key = by_max ? max : min;
      key.other = by_max ? min : max;
    }
    internal::SortBoxKeys(keys_, 0.0);
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

  int ChooseIndex() {
    GrowBounds();
    double best = math::kInf;
    int size = min_entries_;
    for (int k = 0; k < num_distributions_; ++k) {
      const double overlap = Overlap(k);
      if (best > overlap) {
        best = overlap;
        size = min_entries_ + k;
      }
    }
    return size;
  }

  std::pair<std::vector<int>, std::vector<int>> Split() {
    SortBy(ChooseAxis(), false);
    const int size = ChooseIndex();
    std::pair<std::vector<int>, std::vector<int>> groups;
    for (int i = 0; i < size_; ++i) {
      (i < size ? groups.first : groups.second).push_back(keys_[static_cast<std::size_t>(i)].index);
    }
    return groups;
  }

 private:
  using BoxKey = internal::BoxKey;

  StarSplit(int dimension, int size, bool are_points, int min_entries, int num_distributions)
      : dimension_(static_cast<std::size_t>(dimension)),
        size_(size),
        are_points_(are_points),
        min_entries_(min_entries),
        // Of fewer boxes than a full node has there are fewer places to cut.
        num_distributions_(std::max(0, std::min(num_distributions, size - min_entries))),
        corners_(static_cast<std::size_t>(size_) * 2 * dimension_),
        keys_(static_cast<std::size_t>(size_)),
        bounds_(static_cast<std::size_t>(num_distributions_) * 4 * dimension_),
        running_(2 * dimension_) {
    for (int i = 0; i < size_; ++i) {
      keys_[static_cast<std::size_t>(i)].index = i;
    }
  }

  double* Corners(int index) { return corners_.data() + static_cast<std::size_t>(index) * 2 * dimension_; }
  // The boxes of a distribution's two groups.
  double* Bounds(int k, int group) {
    return bounds_.data() + static_cast<std::size_t>(2 * k + group) * 2 * dimension_;
  }

  // Expands the box `running_` by the next of the list.
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
    if (num_distributions_ == 0) {
      return;
    }
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
  // The order of the list.
  std::vector<BoxKey> keys_;
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
  return StarSplit(boxes, dimension_, min_entries_per_node_, num_distributions_).Split();
}

std::pair<std::vector<int>, std::vector<int>> EntrySplitterStar::SplitRows(
    const internal::BoxRows& boxes) const {
  return StarSplit(boxes, min_entries_per_node_, num_distributions_).Split();
}

int EntrySplitterStar::ChooseSplitAxis(const std::vector<BoundingBox>& boxes) const {
  return StarSplit(boxes, dimension_, min_entries_per_node_, num_distributions_).ChooseAxis();
}

double EntrySplitterStar::TotalMargin(const std::vector<BoundingBox>& boxes, int axis) const {
  return StarSplit(boxes, dimension_, min_entries_per_node_, num_distributions_).TotalMargin(axis);
}

double EntrySplitterStar::MarginAcrossDistributions(const std::vector<BoundingBox>& boxes) const {
  return StarSplit(boxes, dimension_, min_entries_per_node_, num_distributions_).MarginAcrossDistributions();
}

int EntrySplitterStar::ChooseSplitIndex(const std::vector<BoundingBox>& boxes) const {
  return StarSplit(boxes, dimension_, min_entries_per_node_, num_distributions_).ChooseIndex();
}

std::shared_ptr<EntrySplitter> CreateEntrySplitterStar(int dimension, int min_entries_per_node,
                                                       int max_entries_per_node) {
  return std::make_shared<EntrySplitterStar>(dimension, min_entries_per_node, max_entries_per_node);
}

}  // namespace kavo::planning
