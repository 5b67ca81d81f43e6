#include <algorithm>

#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/spatial_data_structures/child_node_selector_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

using internal::BoxRef;
using internal::BoxRows;
using internal::EntryBuffer;

ChildNodeSelector::ChildNodeSelector(int max_approx_cost_evals)
    : max_approx_cost_evals_(max_approx_cost_evals) {}

int ChildNodeSelector::SelectChildNode(const BoxRows& children, BoxRef box, SelectionMetric metric) const {
  switch (metric) {
    case SelectionMetric::kMinimumVolumeIncrease:
      return MinimumVolumeIncreaseNode(children, box);
    case SelectionMetric::kMinimumCentroidDistance:
      return children.NearestCentroid(box);
    case SelectionMetric::kApproxMinimumOverlapIncrease:
      return ApproxMinimumOverlapIncreaseNode(children, box);
  }
  KAVO_LOG(LogLevel::kCritical) << "Undefined metric.";
  return kNone;
}

int ChildNodeSelector::MinimumVolumeIncreaseNode(const BoxRows& children, BoxRef box) const {
  EntryBuffer<double> costs(children.PaddedSize());
  children.VolumeIncreases(box, costs.data());
  double best = math::kInf;
  int best_child = kNone;
  for (int i = 0; i < children.Size(); ++i) {
    if (costs[i] < best) {
      best = costs[i];
      best_child = i;
      if (best == 0.0) {
        break;
      }
    }
  }
  return best_child;
}

int ChildNodeSelector::ApproxMinimumOverlapIncreaseNode(const BoxRows& children, BoxRef box) const {
  struct Candidate {
    double increase;
    int child;
  };
  const int num_children = children.Size();
  EntryBuffer<double> overlaps(children.PaddedSize());
  EntryBuffer<double> enlarged_overlaps(children.PaddedSize());
  EntryBuffer<Candidate> candidates(num_children);
  children.VolumeIncreases(box, overlaps.data());
  for (int i = 0; i < num_children; ++i) {
    candidates[i] = {overlaps[i], i};
  }
  const int num_candidates = std::clamp(max_approx_cost_evals_, 0, num_children);
  // A total order, so that the answer does not depend on how equal increases happen to be partitioned; NaN
  // comes last.
  std::partial_sort(candidates.data(), candidates.data() + num_candidates, candidates.data() + num_children,
                    [](const Candidate& a, const Candidate& b) {
                      const bool a_is_number = a.increase == a.increase;
                      const bool b_is_number = b.increase == b.increase;
                      if (!a_is_number || !b_is_number || a.increase == b.increase) {
                        return a_is_number == b_is_number ? a.child < b.child : a_is_number;
                      }
                      return a.increase < b.increase;
                    });

  const int dimension = children.Dimension();
  EntryBuffer<double> corners(4 * dimension);
  double* const min = corners.data();
  double* const max = min + dimension;
  double* const enlarged_min = max + dimension;
  double* const enlarged_max = enlarged_min + dimension;
  double best_overlap_increase = math::kInf;
  double best_volume_increase = math::kInf;
  int best_child = kNone;
  for (int k = 0; k < num_candidates; ++k) {
    const Candidate candidate = candidates[k];
    children.Copy(candidate.child, min, max);
    for (int axis = 0; axis < dimension; ++axis) {
      enlarged_min[axis] = std::min(min[axis], box.min[axis]);
      enlarged_max[axis] = std::max(max[axis], box.max[axis]);
    }
    children.Overlaps({enlarged_min, enlarged_max}, {min, max}, enlarged_overlaps.data(), overlaps.data());
    double enlarged_sum = 0.0;
    double sum = 0.0;
    for (int i = 0; i < num_children; ++i) {
      if (i != candidate.child) {
        enlarged_sum += enlarged_overlaps[i];
        sum += overlaps[i];
      }
    }
    const double overlap_increase = enlarged_sum - sum;
    if (overlap_increase < best_overlap_increase ||
        (overlap_increase == best_overlap_increase && candidate.increase < best_volume_increase)) {
      best_overlap_increase = overlap_increase;
      best_volume_increase = candidate.increase;
      best_child = candidate.child;
      // Overlap never shrinks, and the candidates that follow grow no less: none can replace this one.
      if (overlap_increase == 0.0) {
        break;
      }
    }
  }
  return best_child;
}

}  // namespace kavo::planning
