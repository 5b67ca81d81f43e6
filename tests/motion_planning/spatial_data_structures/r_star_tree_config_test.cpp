#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"

namespace kavo::planning {
namespace {

RStarTreeConfig Make(int dimension, int min_entries, int max_entries, int num_to_prune, int max_evals) {
  const auto undefined = static_cast<SelectionMetric>(9);
  return {dimension, min_entries, max_entries, num_to_prune, max_evals, static_cast<EntrySplitterType>(7),
          undefined, undefined,   undefined,   undefined};
}

TEST(RStarTreeConfigTest, ValuesAtTheEdgeAreAccepted) {
  const testing::LogCapture log;
  Make(1, 2, 4, 3, 4);
  Make(7, 2, 4, -5, -1);
  EXPECT_TRUE(log.records().empty());
}

TEST(RStarTreeConfigTest, BrokenRulesAreReportedInOrder) {
  const auto expect = [](const std::vector<int>& v, int line, const std::string& condition,
                         const std::string& warning) {
    const auto make = [&v] { Make(v[0], v[1], v[2], v[3], v[4]); };
    testing::ExpectFatal(make, condition, "motion_planning/spatial_data_structures/r_star_tree_config", line,
                         "");
    const testing::LogCapture log;
    EXPECT_THROW(make(), util::FatalError);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{warning});
  };
  expect({0, 1, 1, 9, 9}, 37, "ValidateDimension(dimension)",
         "Number of spatial dimensions [0] must be positive.");
  expect({1, 1, 1, 9, 9}, 38, "ValidateMinEntriesPerNode(min_entries_per_node)",
         "Minimum number of entries per node [1] must be >= 2.");
  expect({1, 2, 3, 9, 9}, 39, "ValidateMaxEntriesPerNode(min_entries_per_node, max_entries_per_node)",
         "Maximum number of entries per node [3] must be >= 2 * 'min_entries_per_node', where "
         "'min_entries_per_node' is 2");
  expect({1, 2, 4, 4, 9}, 42,
         "ValidateNumEntriesToPrune(num_entries_to_prune, min_entries_per_node, max_entries_per_node)",
         "Number of entries to prune [4] must be <= (1 + 'max_entries_per_node' - 'min_entries_per_node'), "
         "where 'max_entries_per_node' is 4 and 'min_entries_per_node' is 2");
  expect({1, 2, 4, 3, 5}, 44,
         "ValidateMaxApproxCostEvalsForSelection(max_approx_cost_evals_for_selection, max_entries_per_node)",
         "Maximum number of cost evaluations for selection [5] must be <= 'max_entries_per_node' [4].");
  const testing::LogCapture log;
  EXPECT_FALSE(ValidateMaxEntriesPerNode(std::numeric_limits<int>::max(), 4));
  EXPECT_TRUE(ValidateNumEntriesToPrune(4, 2, std::numeric_limits<int>::max()));
}

}  // namespace
}  // namespace kavo::planning
