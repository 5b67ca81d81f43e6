#pragma once

#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Chooses the child of a node into which a new box goes. Immutable.
class KAVO_INTERNAL_EXPORT ChildNodeSelector {
 public:
  //! What each child of a node would cost, in order.
  using Cost = void (internal::BoxRows::*)(internal::BoxRef box, double* costs) const;
  //! No child.
  static constexpr int kNone = -1;

  //! \param max_approx_cost_evals How many children the approximate rule looks at closely.
  explicit ChildNodeSelector(int max_approx_cost_evals);

  //! Position of the chosen one of a node's children.
  //! \param children Their boxes.
  //! \return An unknown metric is reported at level 0 and gives none.
  int SelectChildNode(const internal::BoxRows& children, internal::BoxRef box, SelectionMetric metric) const;

  //! The first child of least cost; none if no cost is below infinity.
  int ExactMinimumValueNode(const internal::BoxRows& children, internal::BoxRef box, Cost cost) const;

  //! Among the few children that grow least in volume, the one whose growth adds least overlap with all
  //! other children; among equals the one that grows least. None if no child may be looked at.
  int ApproxMinimumOverlapIncreaseNode(const internal::BoxRows& children, internal::BoxRef box) const;

 private:
  int max_approx_cost_evals_;
  Cost volume_increase_ = &internal::BoxRows::VolumeIncreases;
  Cost centroid_distance_ = &internal::BoxRows::CentroidDistances;
};

}  // namespace kavo::planning
