#pragma once

#include "kavo/util/export.h"

namespace kavo::planning {

//! How a node with too many entries is split in two.
enum class EntrySplitterType : int {
  //! Two far-apart seeds, the others to the one whose box grows less (Guttman, 1984). Fast.
  kBasic = 0,
  //! The axis by total margin, the position along it by least overlap (Beckmann et al., 1990). Better trees.
  kStar = 1,
};

//! How a child node is chosen for a box.
enum class SelectionMetric : int {
  //! The child whose box grows least in volume.
  kMinimumVolumeIncrease = 0,
  //! The child with the nearest centroid.
  kMinimumCentroidDistance = 1,
  //! The child whose growth adds least overlap with the others, among the few that grow least in volume.
  kApproxMinimumOverlapIncrease = 2,
};

//! Parameters of an R*-tree. One that exists is valid.
struct KAVO_EXPORT RStarTreeConfig {
  //! Parameters in the order of the fields. One that breaks the rule of its field is warned about and is a
  //! fatal error. The last five are not checked.
  RStarTreeConfig(int dimension_in, int min_entries_per_node_in, int max_entries_per_node_in,
                  int num_entries_to_prune_in, int max_approx_cost_evals_for_selection_in,
                  EntrySplitterType entry_splitter_type_in, SelectionMetric internal_node_selection_metric_in,
                  SelectionMetric leaf_parent_selection_metric_in,
                  SelectionMetric reinsertion_selection_metric_in,
                  SelectionMetric approx_nearest_neighbor_selection_metric_in);

  //! Number of coordinates of a configuration. Positive.
  int dimension;
  //! Least number of entries of every node but the root. At least 2.
  int min_entries_per_node;
  //! Largest number of entries of a node. At least twice the minimum.
  int max_entries_per_node;
  //! How many entries leave a node that overflows, to be inserted again (once on each level for each new
  //! value), before nodes are split. At most 1 + maximum - minimum; not positive: split at once.
  int num_entries_to_prune;
  //! How many children `kApproxMinimumOverlapIncrease` looks at closely. At most the maximum number of
  //! entries; that metric needs at least 1.
  int max_approx_cost_evals_for_selection;
  //! How a node that overflows is split.
  EntrySplitterType entry_splitter_type;
  //! Choice among children that are not leaves.
  SelectionMetric internal_node_selection_metric;
  //! Choice among leaves.
  SelectionMetric leaf_parent_selection_metric;
  //! Choice, on every level, for an entry that is inserted again.
  SelectionMetric reinsertion_selection_metric;
  //! Choice, on every level, in the descent of the approximate query, with which the exact one begins too.
  SelectionMetric approx_nearest_neighbor_selection_metric;
};

//! Whether a parameter keeps its rule; warns if not.
KAVO_EXPORT bool ValidateDimension(int dimension);
//! The same of another parameter, see the field.
KAVO_EXPORT bool ValidateMinEntriesPerNode(int min_entries_per_node);
//! The same of another parameter, see the field.
KAVO_EXPORT bool ValidateMaxEntriesPerNode(int min_entries_per_node, int max_entries_per_node);
//! The same of another parameter, see the field.
KAVO_EXPORT bool ValidateNumEntriesToPrune(int num_entries_to_prune, int min_entries_per_node,
                                           int max_entries_per_node);
//! The same of another parameter, see the field.
KAVO_EXPORT bool ValidateMaxApproxCostEvalsForSelection(int max_approx_cost_evals_for_selection,
                                                        int max_entries_per_node);

}  // namespace kavo::planning
