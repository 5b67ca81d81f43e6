#include "kavo/motion_planning/util/smoothing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "kavo/motion_planning/tree/node.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::Free;
using testing::RandomVec;
using testing::ScriptedEnvironment;
using testing::Vec;

using Path = std::vector<Eigen::VectorXd>;

std::shared_ptr<ScriptedEnvironment> Plane(ScriptedEnvironment::Validity is_valid) {
  return std::make_shared<ScriptedEnvironment>(2, Path{}, std::move(is_valid));
}

bool Blocked(const Eigen::VectorXd&) { return false; }

Path OnALine(std::initializer_list<double> coordinates) {
  Path path;
  for (const double x : coordinates) {
    path.push_back(Vec({x}));
  }
  return path;
}

TEST(IsValidPathTest, PreconditionsInOrder) {
  const std::shared_ptr<Environment> plane = Plane(Free);
  const std::string file = "motion_planning/util/smoothing";
  const Eigen::VectorXd one = Vec({0.0});
  const Eigen::VectorXd two = Vec({0.0, 0.0});
  ExpectFatal([&] { IsValidPath(plane, 0.0, one, two); }, "environment->CSpaceDimension() == q_start.size()",
              file, 27, "");
  ExpectFatal([&] { IsValidPath(plane, 0.0, two, one); }, "q_start.size() == q_end.size()", file, 28, "");
  for (const double step_size : {0.0, -1.0, std::nan("")}) {
    ExpectFatal([&] { IsValidPath(plane, step_size, two, two); }, "step_size > 0.", file, 31, "");
  }
  EXPECT_THROW(IsValidPath(plane, 1e-12, two, Vec({1.0, 0.0})), util::FatalError);
}

TEST(IsValidPathTest, SegmentShorterThanAStepIsNotAsked) {
  const auto blocked = Plane(Blocked);
  EXPECT_TRUE(IsValidPath(blocked, 1.0, Vec({0.0, 0.0}), Vec({0.9, 0.0})));
  EXPECT_TRUE(IsValidPath(blocked, 1.0, Vec({0.0, 0.0}), Vec({0.0, 0.0})));
  EXPECT_TRUE(blocked->questions.empty());
  // A length of exactly one step is asked, at its end by both rules.
  const auto free = Plane(Free);
  EXPECT_TRUE(IsValidPath(free, 1.0, Vec({0.0, 0.0}), Vec({1.0, 0.0})));
  EXPECT_EQ(free->questions, (Path{Vec({1.0, 0.0}), Vec({1.0, 0.0})}));
}

TEST(IsValidPathTest, AsksMiddleFirstAndStopsAtTheFirstInvalidPoint) {
  const auto free = Plane(Free);
  EXPECT_TRUE(IsValidPath(free, 1.0, Vec({0.0, 0.0}), Vec({7.5, 0.0})));
  std::vector<double> asked;
  for (const Eigen::VectorXd& q : free->questions) {
    asked.push_back(q[0]);
  }
  EXPECT_EQ(asked, (std::vector<double>{4.0, 2.0, 6.0, 1.0, 3.0, 5.0, 7.0, 7.5}));

  const auto wall = Plane([](const Eigen::VectorXd& q) { return q[0] != 6.0; });
  EXPECT_FALSE(IsValidPath(wall, 1.0, Vec({0.0, 0.0}), Vec({7.5, 0.0})));
  EXPECT_EQ(wall->questions.size(), 3u);
  const auto bad_end = Plane([](const Eigen::VectorXd& q) { return q[0] <= 7.0; });
  EXPECT_FALSE(IsValidPath(bad_end, 1.0, Vec({0.0, 0.0}), Vec({7.5, 0.0})));
}

TEST(IsValidPathTest, SegmentThatIsNotFiniteIsNotFree) {
  const auto free = Plane(Free);
  for (const double x : {std::nan(""), std::numeric_limits<double>::infinity(), 1e200}) {
    EXPECT_FALSE(IsValidPath(free, 0.1, Vec({0.0, 0.0}), Vec({x, 0.0})));
  }
}

TEST(DiscretizePathTest, HandWorkedPaths) {
  EXPECT_TRUE(DiscretizePath({}, 1.0).empty());
  EXPECT_TRUE(DiscretizePath(OnALine({1.0}), 1.0).empty());
  const struct {
    Path path;
    double step_size;
    Path expected;
  } cases[] = {
      {OnALine({0.0, 1.0}), 0.25, OnALine({0.0, 0.25, 0.5, 0.75, 1.0})},
      // A later segment starts one step after its waypoint.
      {OnALine({0.0, 1.0, 2.25}), 0.5, OnALine({0.0, 0.5, 1.0, 1.5, 2.0, 2.25})},
      // One that is shorter than a step overshoots before its end.
      {OnALine({0.0, 1.0, 1.25}), 0.5, OnALine({0.0, 0.5, 1.0, 1.5, 1.25})},
      // Segments of no length repeat their point.
      {OnALine({2.0, 2.0, 2.0}), 0.5, OnALine({2.0, 2.0, 2.0, 2.0})},
      // Steps that do not move end.
      {OnALine({1.0, 2.0}), 1e-30, OnALine({1.0, 1.0, 2.0})},
      {OnALine({1.0, 1e300}), 0.5, OnALine({1.0, 1.0, 1e300})},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DiscretizePath(c.path, c.step_size), c.expected);
  }
  const Path path = DiscretizePath(OnALine({0.0, 1.0}), 0.3);
  ASSERT_EQ(path.size(), 5u);
  EXPECT_NEAR(path[3][0], 0.9, 1e-15);
  EXPECT_EQ(path[4][0], 1.0);
}

TEST(DiscretizePathTest, KeepsWaypointsAndBoundsTheStep) {
  std::mt19937 engine(11);
  for (int i = 0; i < 200; ++i) {
    Path path;
    for (unsigned int k = 0; k < 2 + engine() % 5; ++k) {
      path.push_back(RandomVec(engine, 3, -1.0, 1.0));
    }
    const double step_size = 0.05 + 0.3 * RandomVec(engine, 1, 0.0, 1.0)[0];
    const Path dense = DiscretizePath(path, step_size);
    EXPECT_EQ(dense.front(), path.front());
    EXPECT_EQ(dense.back(), path.back());
    auto from = dense.begin();
    for (const Eigen::VectorXd& waypoint : path) {
      from = std::find(from, dense.end(), waypoint);
      ASSERT_NE(from, dense.end());
    }
    for (std::size_t k = 1; k < dense.size(); ++k) {
      EXPECT_LE((dense[k] - dense[k - 1]).norm(), step_size * (1.0 + 1e-12));
    }
  }
}

TEST(SmoothingTest, ConvertsAndRemoves) {
  EXPECT_TRUE(ConvertToConfigurations({}).empty());
  const auto root = std::make_shared<Node>(Vec({1.0}));
  EXPECT_EQ(ConvertToConfigurations({root, std::make_shared<Node>(Vec({2.0}), root)}), OnALine({1.0, 2.0}));

  const struct {
    int first;
    int last;
    Path left;
  } cases[] = {{0, 4, OnALine({0.0, 4.0})},
               {2, 3, OnALine({0.0, 1.0, 2.0, 3.0, 4.0})},
               {1, 3, OnALine({0.0, 1.0, 3.0, 4.0})},
               {3, 1, OnALine({0.0, 1.0, 2.0, 3.0, 4.0})}};
  for (const auto& c : cases) {
    Path path = OnALine({0.0, 1.0, 2.0, 3.0, 4.0});
    RemoveConfigurations(path, c.first, c.last);
    EXPECT_EQ(path, c.left);
  }
}

// Waypoints on a wide arc, so that every segment between two of them is asked about, and an environment that
// answers by which two they are: a segment is free if its chord's middle is in the table.
class ArcTest : public ::testing::Test {
 protected:
  explicit ArcTest() {
    for (int i = 0; i < 9; ++i) {
      path_.push_back(Vec({10.0 * i, 1.0 * i * i}));
    }
  }

  std::shared_ptr<ScriptedEnvironment> Allowing(std::set<std::pair<int, int>> chords) {
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

  Path path_;
};

TEST_F(ArcTest, BinarySearchFindsTheFarthestItTests) {
  const struct {
    std::set<std::pair<int, int>> chords;
    int start;
    bool forward;
    int found;
  } cases[] = {
      {{{0, 8}}, 0, true, 8},                  // The end at once.
      {{}, 0, true, 1},                        // Down to the neighbour, which is taken without a question.
      {{{0, 4}}, 0, true, 4},                  // 8 no, 4 yes, 6 no, 5 no.
      {{{0, 4}, {0, 6}}, 0, true, 6},          // 8 no, 4 yes, 6 yes, 7 no.
      {{{0, 4}, {0, 6}, {0, 7}}, 0, true, 7},  // Next to the unreachable end.
      {{{0, 3}}, 0, true, 1},                  // 8, 4 and 2 no: 3 is never tested.
      {{{0, 8}}, 8, false, 0},
      {{{4, 8}, {2, 8}}, 8, false, 2},
      {{}, 8, false, 7},
      {{{2, 5}}, 2, true, 5},  // 8 no, 5 yes, 6 no.
      {{}, 7, true, 8},        // The end is the neighbour.
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GetShortCircuitIndex(c.start, c.forward, path_, Allowing(c.chords), 0.5), c.found)
        << c.start << " " << c.forward << " " << c.chords.size();
  }
}

TEST_F(ArcTest, ShortensFromBothEndsThenAtRandom) {
  const auto at = [this](std::initializer_list<std::size_t> indices) {
    Path path;
    for (const std::size_t i : indices) {
      path.push_back(path_[i]);
    }
    return path;
  };
  EXPECT_EQ(ShortCircuitPath(path_, Allowing({{0, 8}}), 0.5, 20, 1), at({0, 8}));
  EXPECT_EQ(ShortCircuitPath(path_, Allowing({{0, 4}}), 0.5, 0, 1), at({0, 4, 5, 6, 7, 8}));
  EXPECT_EQ(ShortCircuitPath(path_, Allowing({{0, 4}, {4, 8}, {5, 8}, {6, 8}}), 0.5, 0, 1), at({0, 4, 8}));
  // Reachable only from an inner waypoint: enough random tries find it, none does not.
  EXPECT_EQ(ShortCircuitPath(path_, Allowing({{2, 5}}), 0.5, 0, 1), path_);
  EXPECT_EQ(ShortCircuitPath(path_, Allowing({{2, 5}}), 0.5, 100, 1), at({0, 1, 2, 5, 6, 7, 8}));
}

TEST_F(ArcTest, RandomWaypointsAreInnerOnesOfWhatIsLeft) {
  // From waypoint 2 the search finds 5, as long as 8 is six places on; from 5 it finds 8 at once.
  const auto environment = Allowing({{2, 5}, {5, 8}});
  for (unsigned int seed = 0; seed < 60; ++seed) {
    std::mt19937 engine(seed);
    std::vector<std::size_t> left = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    Path expected;
    for (int iteration = 0; iteration < 4; ++iteration) {
      const std::size_t tried = left[1 + engine() % (left.size() - 2)];
      if (tried == 2 && left.size() == 9) {
        left = {0, 1, 2, 5, 6, 7, 8};
      } else if (tried == 5) {
        left.erase(std::find(left.begin(), left.end(), 5u) + 1, left.end() - 1);
      }
    }
    for (const std::size_t i : left) {
      expected.push_back(path_[i]);
    }
    EXPECT_EQ(ShortCircuitPath(path_, environment, 0.5, 4, seed), expected) << "seed " << seed;
  }
}

TEST(ShortCircuitPathTest, SmallPathsAreLeftAlone) {
  ExpectFatal([] { ShortCircuitPath(OnALine({1.0}), nullptr, 1.0, 1, 1); }, "path.size() > 1",
              "motion_planning/util/smoothing", 134, "");
  const auto blocked = std::make_shared<ScriptedEnvironment>(1, Path{}, Blocked);
  EXPECT_EQ(ShortCircuitPath(OnALine({0.0, 9.0}), blocked, 1.0, 20, 1), OnALine({0.0, 9.0}));
  EXPECT_TRUE(blocked->questions.empty());
}

TEST(ShortCircuitPathTest, ResultIsShorterStillValidAndRepeatable) {
  const auto plane = Plane([](const Eigen::VectorXd& q) { return q.norm() > 1.0; });
  std::mt19937 engine(5);
  bool seed_matters = false;
  for (int i = 0; i < 50; ++i) {
    // A walk around the disc, too long to be cut short from its ends alone.
    Path path;
    for (int k = 0; k < 60; ++k) {
      const double angle = 0.3 * k;
      const double radius = 1.02 + 0.2 * RandomVec(engine, 1, 0.0, 1.0)[0];
      path.push_back(Vec({radius * std::cos(angle), radius * std::sin(angle)}));
    }
    const Path shortened = ShortCircuitPath(path, plane, 0.01, 20, 42);
    EXPECT_EQ(shortened, ShortCircuitPath(path, plane, 0.01, 20, 42));
    seed_matters |= ShortCircuitPath(path, plane, 0.01, 1, 42) != ShortCircuitPath(path, plane, 0.01, 1, 43);
    EXPECT_LT(shortened.size(), path.size());
    EXPECT_EQ(shortened.front(), path.front());
    EXPECT_EQ(shortened.back(), path.back());
    for (std::size_t k = 1; k < shortened.size(); ++k) {
      const bool was_segment = std::find(path.begin(), path.end(), shortened[k]) -
                                   std::find(path.begin(), path.end(), shortened[k - 1]) ==
                               1;
      EXPECT_TRUE(was_segment || IsValidPath(plane, 0.01, shortened[k - 1], shortened[k]) ||
                  IsValidPath(plane, 0.01, shortened[k], shortened[k - 1]));
    }
  }
  EXPECT_TRUE(seed_matters);
}

}  // namespace
}  // namespace kavo::planning
