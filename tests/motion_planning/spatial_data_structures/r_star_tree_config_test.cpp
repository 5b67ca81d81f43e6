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
  EXPECT_EQ(Make(1, 2, std::numeric_limits<int>::max(), 4, 4).num_entries_to_prune, 4);
  EXPECT_EQ(Make(1, 2, 4, 3, 4).num_entries_to_prune, 3);
  EXPECT_EQ(Make(1, 2, 4, 0, 0).max_entries_per_node, 4);
  EXPECT_EQ(Make(7, 2, 4, -5, -1).max_approx_cost_evals_for_selection, -1);
  EXPECT_TRUE(log.records().empty());
}

TEST(RStarTreeConfigTest, BrokenRulesAreReportedInOrder) {
  const struct {
    std::vector<int> values;
    int line;
    std::string warning;
  } cases[] = {
      {{0, 1, 1, 9, 9}, 37, "Number of spatial dimensions [0] must be positive."},
      {{1, 1, 1, 9, 9}, 38, "Minimum number of entries per node [1] must be >= 2."},
      {{1, 2, 3, 9, 9},
       39,
       "Maximum number of entries per node [3] must be >= 2 * 'min_entries_per_node', where "
       "'min_entries_per_node' is 2"},
      {{1, 2, 4, 4, 9},
       42,
       "Number of entries to prune [4] must be <= (1 + 'max_entries_per_node' - "
       "'min_entries_per_node'), where 'max_entries_per_node' is 4 and 'min_entries_per_node' is 2"},
      {{1, 2, 4, 3, 5},
       44,
       "Maximum number of cost evaluations for selection [5] must be <= 'max_entries_per_node' [4]."},
  };
  for (const auto& c : cases) {
    const testing::LogCapture log;
    const auto make = [&] { Make(c.values[0], c.values[1], c.values[2], c.values[3], c.values[4]); };
    testing::ExpectFatal(make, {}, "motion_planning/spatial_data_structures/r_star_tree_config", c.line, "");
    // Once more for the warnings, which the capture above has taken.
    EXPECT_THROW(make(), util::FatalError);
    EXPECT_EQ(log.warnings(), std::vector{c.warning});
  }
}

}  // namespace
}  // namespace kavo::planning
