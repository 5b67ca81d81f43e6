#include "kavo/motion_planning/util/smoothing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>

#include "kavo/motion_planning/tree/node.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::Path;
using testing::ScriptedEnvironment;
using testing::Vec;

std::shared_ptr<ScriptedEnvironment> Plane(ScriptedEnvironment::Validity is_valid = testing::Free) {
  return std::make_shared<ScriptedEnvironment>(2, Path{}, std::move(is_valid));
}

Path OnALine(const std::vector<double>& coordinates) {
  Path path;
  for (const double x : coordinates) {
    path.push_back(Vec({x}));
  }
  return path;
}

TEST(IsValidPathTest, PreconditionsInOrder) {
  for (const auto& [step_size, start_size, end_size, line] :
       {std::tuple(0.0, 1, 2, 27), std::tuple(0.0, 2, 1, 28), std::tuple(0.0, 2, 2, 31),
        std::tuple(kNaN, 2, 2, 31)}) {
    const Eigen::VectorXd start = Eigen::VectorXd::Zero(start_size);
    const Eigen::VectorXd end = Eigen::VectorXd::Zero(end_size);
    ExpectFatal([&, step = step_size] { IsValidPath(Plane(), step, start, end); }, {},
                "motion_planning/util/smoothing", line, "");
  }
  EXPECT_THROW(IsValidPath(Plane(), 1e-12, Vec({0.0, 0.0}), Vec({1.0, 0.0})), util::FatalError);
}

TEST(IsValidPathTest, AsksMiddleFirstAndStopsAtTheFirstInvalidPoint) {
  const struct {
    double end;
    double invalid;
    std::vector<double> asked;
  } cases[] = {
      // A segment shorter than a step is not asked; one of exactly a step is, at its end by both rules.
      {0.0, 0.0, {}},
      {0.9, 0.9, {}},
      {1.0, kNaN, {1.0, 1.0}},
      {7.5, kNaN, {4.0, 2.0, 6.0, 1.0, 3.0, 5.0, 7.0, 7.5}},
      {7.5, 6.0, {4.0, 2.0, 6.0}},
      {7.5, 7.5, {4.0, 2.0, 6.0, 1.0, 3.0, 5.0, 7.0, 7.5}},
  };
  for (const auto& c : cases) {
    for (const int num_at_once : {1, 3, 8}) {
      const auto plane = std::make_shared<ScriptedEnvironment>(
          2, Path{}, [&](const Eigen::VectorXd& q) { return q[0] != c.invalid; }, num_at_once);
      const bool is_valid = IsValidPath(plane, 1.0, Vec({0.0, 0.0}), Vec({c.end, 0.0}));
      EXPECT_EQ(is_valid, c.asked.empty() || c.asked.back() != c.invalid) << c.end;
      std::vector<double> asked;
      for (const Eigen::VectorXd& q : plane->questions) {
        asked.push_back(q[0]);
      }
      EXPECT_EQ(asked, c.asked);
    }
  }
  // A segment that is not finite is not free.
  for (const double x : {kNaN, kInf, 1e200}) {
    EXPECT_FALSE(IsValidPath(Plane(), 0.1, Vec({0.0, 0.0}), Vec({x, 0.0})));
  }
}

TEST(DiscretizePathTest, HandWorkedPaths) {
  const struct {
    std::vector<double> path;
    double step_size;
    std::vector<double> expected;
  } cases[] = {
      {{}, 1.0, {}},
      {{1.0}, 1.0, {}},
      {{0.0, 1.0}, 0.25, {0.0, 0.25, 0.5, 0.75, 1.0}},
      // A later segment starts one step after its waypoint.
      {{0.0, 1.0, 2.25}, 0.5, {0.0, 0.5, 1.0, 1.5, 2.0, 2.25}},
      // One that is shorter than a step overshoots before its end.
      {{0.0, 1.0, 1.25}, 0.5, {0.0, 0.5, 1.0, 1.5, 1.25}},
      // Segments of no length repeat their point.
      {{2.0, 2.0, 2.0}, 0.5, {2.0, 2.0, 2.0, 2.0}},
      // Steps that do not move end.
      {{1.0, 2.0}, 1e-30, {1.0, 1.0, 2.0}},
      {{1.0, 1e300}, 0.5, {1.0, 1.0, 1e300}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DiscretizePath(OnALine(c.path), c.step_size), OnALine(c.expected));
  }
  // One coordinate is too large for the step, which passes the end beside it.
  const Path path = {Vec({1e16, 0.0}), Vec({1e16 + 2.0, 3.0})};
  const Path points = DiscretizePath(path, 1.2);
  EXPECT_EQ(points.back(), path.back());
  EXPECT_LE(points.size(), 6u);
}

TEST(SmoothingTest, ConvertsAndRemoves) {
  const auto root = std::make_shared<Node>(Vec({1.0}));
  EXPECT_EQ(ConvertToConfigurations({root, std::make_shared<Node>(Vec({2.0}), root)}), OnALine({1.0, 2.0}));
  const std::vector<double> all = {0.0, 1.0, 2.0, 3.0, 4.0};
  for (const auto& [first, last, left] :
       {std::tuple(0, 4, std::vector{0.0, 4.0}), std::tuple(2, 3, all),
        std::tuple(1, 3, std::vector{0.0, 1.0, 3.0, 4.0}), std::tuple(3, 1, all)}) {
    Path path = OnALine(all);
    RemoveConfigurations(path, first, last);
    EXPECT_EQ(path, OnALine(left));
  }
}

// Waypoints on a wide arc, so that every segment between two of them is asked about, and an environment that
// answers by which two they are: a segment is free if its chord's middle is in the table.
class ArcTest : public ::testing::Test {
 protected:
  ArcTest() {
    for (int i = 0; i < 9; ++i) {
      path_.push_back(Vec({10.0 * i, 1.0 * i * i}));
    }
  }

  std::shared_ptr<ScriptedEnvironment> Allowing(const std::set<std::pair<int, int>>& chords) {
    return Plane([this, chords](const Eigen::VectorXd& q) {
      for (const auto& [i, k] : chords) {
        const Eigen::VectorXd& a = path_[static_cast<std::size_t>(i)];
        const Eigen::VectorXd& b = path_[static_cast<std::size_t>(k)];
        const double along = (q - a).dot(b - a) / (b - a).squaredNorm();
        if (along > -1e-9 && along < 1 + 1e-9 && (a + along * (b - a) - q).norm() < 1e-9) {
          return true;
        }
      }
      return false;
    });
  }

  Path At(const std::vector<std::size_t>& indices) const {
    Path path;
    for (const std::size_t i : indices) {
      path.push_back(path_[i]);
    }
    return path;
  }

  Path path_;
};

TEST_F(ArcTest, BinarySearchFindsTheFarthestItTests) {
  const struct {
    std::set<std::pair<int, int>> chords;
    int start;
    bool forward;
    int found;
  } cases[] = {
      {{{0, 8}}, 0, true, 8},          // The end at once.
      {{}, 0, true, 1},                // Down to the neighbour, which is taken without a question.
      {{{0, 4}}, 0, true, 4},          // 8 no, 4 yes, 6 no, 5 no.
      {{{0, 4}, {0, 6}}, 0, true, 6},  // 8 no, 4 yes, 6 yes, 7 no.
      {{{0, 3}}, 0, true, 1},          // 8, 4 and 2 no: 3 is never tested.
      {{{4, 8}, {2, 8}}, 8, false, 2},
      {{{2, 5}}, 2, true, 5},  // 8 no, 5 yes, 6 no.
      {{}, 7, true, 8},        // The end is the neighbour.
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GetShortCircuitIndex(c.start, c.forward, path_, Allowing(c.chords), 0.5), c.found)
        << c.start << " " << c.forward << " " << c.chords.size();
  }
}

TEST_F(ArcTest, ShortensFromBothEndsThenAtRandom) {
  const struct {
    std::set<std::pair<int, int>> chords;
    int num_iterations;
    std::vector<std::size_t> left;
  } cases[] = {
      {{{0, 8}}, 20, {0, 8}},
      {{{0, 4}, {4, 8}, {5, 8}, {6, 8}}, 0, {0, 4, 8}},
      // Reachable only from an inner waypoint: enough random tries find it, none does not.
      {{{2, 5}}, 0, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ShortCircuitPath(path_, Allowing(c.chords), 0.5, c.num_iterations, 1), At(c.left));
  }
}

TEST_F(ArcTest, RandomWaypointsAreInnerOnesOfWhatIsLeft) {
  // From waypoint 2 the search finds 5, as long as 8 is six places on; from 5 it finds 8 at once.
  const auto environment = Allowing({{2, 5}, {5, 8}});
  for (unsigned int seed = 0; seed < 60; ++seed) {
    std::mt19937 engine(seed);
    std::vector<std::size_t> left = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    for (int iteration = 0; iteration < 4; ++iteration) {
      const std::size_t tried = left[1 + engine() % (left.size() - 2)];
      if (tried == 2 && left.size() == 9) {
        left = {0, 1, 2, 5, 6, 7, 8};
      } else if (tried == 5) {
        left.erase(std::find(left.begin(), left.end(), 5u) + 1, left.end() - 1);
      }
    }
    EXPECT_EQ(ShortCircuitPath(path_, environment, 0.5, 4, seed), At(left)) << "seed " << seed;
  }
}

TEST(ShortCircuitPathTest, SmallPathsAreLeftAlone) {
  ExpectFatal([] { ShortCircuitPath(OnALine({1.0}), nullptr, 1.0, 1, 1); }, "path.size() > 1",
              "motion_planning/util/smoothing", 134, "");
  const auto blocked = std::make_shared<ScriptedEnvironment>(1, Path{}, [](const auto&) { return false; });
  EXPECT_EQ(ShortCircuitPath(OnALine({0.0, 9.0}), blocked, 1.0, 20, 1), OnALine({0.0, 9.0}));
  EXPECT_TRUE(blocked->questions.empty());
}

}  // namespace
}  // namespace kavo::planning
