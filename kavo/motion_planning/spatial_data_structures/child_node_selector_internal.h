#pragma once

#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Chooses the child of a node into which a new box goes. Immutable.
class KAVO_INTERNAL_EXPORT ChildNodeSelector {
 public:
  //! No child.
  static constexpr int kNone = -1;

  //! \param max_approx_cost_evals How many children the approximate rule looks at closely.
  explicit ChildNodeSelector(int max_approx_cost_evals);

  //! Position of the chosen one of a node's children.
  //! \param children Their boxes.
  //! \return An unknown metric is reported at level 0 and gives none.
  int SelectChildNode(const internal::BoxRows& children, internal::BoxRef box, SelectionMetric metric) const;

  //! The first child that grows least in volume; none if all grow without bounds.
  int MinimumVolumeIncreaseNode(const internal::BoxRows& children, internal::BoxRef box) const;

  //! Among the few children that grow least in volume, the one whose growth adds least overlap with all
  //! other children; among equals the one that grows least. None if no child may be looked at.
  int ApproxMinimumOverlapIncreaseNode(const internal::BoxRows& children, internal::BoxRef box) const;

 private:
  int max_approx_cost_evals_;
};

}  // namespace kavo::planning
