#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"

#include <cstdint>

#include "kavo/util/log_message.h"

namespace kavo::planning {

RStarTreeConfig::RStarTreeConfig(int dimension_in, int min_entries_per_node_in, int max_entries_per_node_in,
                                 int num_entries_to_prune_in, int max_approx_cost_evals_for_selection_in,
                                 EntrySplitterType entry_splitter_type_in,
                                 SelectionMetric internal_node_selection_metric_in,
                                 SelectionMetric leaf_parent_selection_metric_in,
                                 SelectionMetric reinsertion_selection_metric_in,
                                 SelectionMetric approx_nearest_neighbor_selection_metric_in)
    : dimension(dimension_in),
      min_entries_per_node(min_entries_per_node_in),
      max_entries_per_node(max_entries_per_node_in),
      num_entries_to_prune(num_entries_to_prune_in),
      max_approx_cost_evals_for_selection(max_approx_cost_evals_for_selection_in),
      entry_splitter_type(entry_splitter_type_in),
      internal_node_selection_metric(internal_node_selection_metric_in),
      leaf_parent_selection_metric(leaf_parent_selection_metric_in),
      reinsertion_selection_metric(reinsertion_selection_metric_in),
      approx_nearest_neighbor_selection_metric(approx_nearest_neighbor_selection_metric_in) {
  KAVO_CHECK(ValidateDimension(dimension), "motion_planning/spatial_data_structures/r_star_tree_config", 37);
  KAVO_CHECK(ValidateMinEntriesPerNode(min_entries_per_node),
             "motion_planning/spatial_data_structures/r_star_tree_config", 38);
  KAVO_CHECK(ValidateMaxEntriesPerNode(min_entries_per_node, max_entries_per_node),
             "motion_planning/spatial_data_structures/r_star_tree_config", 39);
  KAVO_CHECK(ValidateNumEntriesToPrune(num_entries_to_prune, min_entries_per_node, max_entries_per_node),
             "motion_planning/spatial_data_structures/r_star_tree_config", 42);
  KAVO_CHECK(
      ValidateMaxApproxCostEvalsForSelection(max_approx_cost_evals_for_selection, max_entries_per_node),
      "motion_planning/spatial_data_structures/r_star_tree_config", 44);
}

bool ValidateDimension(int dimension) {
  if (dimension > 0) {
    return true;
  }
  KAVO_LOG(LogLevel::kWarning) << "Number of spatial dimensions [" << dimension << "] must be positive.";
  return false;
}

bool ValidateMinEntriesPerNode(int min_entries_per_node) {
  if (min_entries_per_node > 1) {
    return true;
  }
  KAVO_LOG(LogLevel::kWarning) << "Minimum number of entries per node [" << min_entries_per_node
                               << "] must be >= 2.";
  return false;
}

bool ValidateMaxEntriesPerNode(int min_entries_per_node, int max_entries_per_node) {
  if (2 * std::int64_t{min_entries_per_node} <= max_entries_per_node) {
    return true;
  }
  KAVO_LOG(LogLevel::kWarning) << "Maximum number of entries per node [" << max_entries_per_node
                               << "] must be >= 2 * 'min_entries_per_node', where 'min_entries_per_node' is "
                               << min_entries_per_node;
  return false;
}

bool ValidateNumEntriesToPrune(int num_entries_to_prune, int min_entries_per_node, int max_entries_per_node) {
  if (num_entries_to_prune <= std::int64_t{max_entries_per_node} + 1 - min_entries_per_node) {
    return true;
  }
  KAVO_LOG(LogLevel::kWarning) << "Number of entries to prune [" << num_entries_to_prune
                               << "] must be <= (1 + 'max_entries_per_node' - 'min_entries_per_node'), "
                               << "where 'max_entries_per_node' is " << max_entries_per_node << " and "
                               << "'min_entries_per_node' is " << min_entries_per_node;
  return false;
}

bool ValidateMaxApproxCostEvalsForSelection(int max_approx_cost_evals_for_selection,
                                            int max_entries_per_node) {
  if (max_approx_cost_evals_for_selection <= max_entries_per_node) {
    return true;
  }
  KAVO_LOG(LogLevel::kWarning) << "Maximum number of cost evaluations for selection ["
                               << max_approx_cost_evals_for_selection << "] must be "
                               << "<= 'max_entries_per_node' [" << max_entries_per_node << "].";
  return false;
}

}  // namespace kavo::planning
