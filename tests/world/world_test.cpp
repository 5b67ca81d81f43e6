#include "kavo/world/world.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "kavo/util/fatal_error.h"
#include "tests/world/random_scene.h"

namespace kavo {
namespace {

using ::testing::HasSubstr;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Pose3 At(double x, double y, double z) { return Pose3::FromTranslation({x, y, z}); }

// The message of the fatal error that the call ends with, empty if it returns.
std::string FatalMessage(const std::function<void()>& call) {
  try {
    call();
  } catch (const util::FatalError& error) {
    return error.message();
  }
  return "";
}

TEST(World, RefusesBadSizesAndPosesAndStaysAsItWas) {
  const Pose3 origin;
  const Pose3 unturned(Eigen::Quaterniond(0.0, 0.0, 0.0, 0.0), Eigen::Vector3d::Zero());
  const struct {
    ObstacleShape shape;
    Pose3 pose;
    const char* message_part;
  } cases[] = {
      {SphereObstacle{0.0}, origin, "Sphere obstacle 'cup' of radius [0] must have positive"},
      {SphereObstacle{kNaN}, origin, "radius [nan]"},
      {BoxObstacle{}, origin, "Box obstacle 'cup' of size [0 0 0]"},
      {BoxObstacle{{1.0, -2.0, 3.0}}, origin, "size [1 -2 3]"},
      {BoxObstacle{{1.0, 2.0, kInfinity}}, origin, "size [1 2 inf]"},
      {CylinderObstacle{1.0, 0.0}, origin, "Cylinder obstacle 'cup' of radius [1] and height [0]"},
      {CapsuleObstacle{0.0, 1.0}, origin, "Capsule obstacle 'cup' of radius [0] and height [1]"},
      {CapsuleObstacle{1.0, -0.5}, origin, "radius [1] and height [-0.5]"},
      {ConeObstacle{1.0, kInfinity}, origin, "Cone obstacle 'cup' of radius [1] and height [inf]"},
      {MeshObstacle{}, origin, "Mesh obstacle 'cup' refers to nothing"},
      {PointCloudObstacle{}, origin, "Point cloud obstacle 'cup' refers to nothing"},
      {OctreeObstacle{}, origin, "Octree obstacle 'cup' refers to nothing"},
      {SphereObstacle{1.0}, At(0.0, kNaN, 2.0),
       "'cup' of radius [1] cannot be placed at translation [0 nan 2]"},
      {HalfSpaceObstacle{}, At(kInfinity, 0.0, 0.0), "Half-space obstacle 'cup' cannot be placed"},
      {SphereObstacle{1.0}, unturned, "quaternion x y z w ["},
  };
  World world;
  const ObstacleHandle kept = world.add(SphereObstacle{1.0}, At(5.0, 0.0, 0.0), "kept");
  for (const auto& [shape, pose, message_part] : cases) {
    EXPECT_THAT(FatalMessage([&, s = shape, p = pose] { world.add(s, p, "cup"); }), HasSubstr(message_part));
    EXPECT_EQ(world.numObstacles(), 1U);
    EXPECT_FALSE(world.view().inCollision({0.0, 0.0, 0.0}, 1.0)) << message_part;
  }
  EXPECT_THAT(FatalMessage([&] { world.move(kept, At(0.0, 0.0, kNaN)); }),
              HasSubstr("'kept' of radius [1] cannot be moved to translation [0 0 nan]"));
  for (const double padding : {-1e-9, kNaN, kInfinity}) {
    EXPECT_THAT(FatalMessage([&] { world.setPadding(kept, padding); }),
                HasSubstr("'kept' of radius [1] cannot be grown by ["));
  }
  EXPECT_EQ(world.padding(kept), 0.0);
  EXPECT_TRUE(world.view().inCollision({5.0, 0.0, 0.0}, 0.0));
  EXPECT_EQ(world.pose(kept).translation(), Eigen::Vector3d(5.0, 0.0, 0.0));
  world.add(CapsuleObstacle{1.0, 0.0}, origin);  // The least height that is allowed.
}

TEST(World, RefusesHandlesThatAreNotItsOwn) {
  World world;
  World other;
  const ObstacleHandle removed = world.add(SphereObstacle{1.0}, Pose3());
  world.add(SphereObstacle{1.0}, At(9.0, 0.0, 0.0));
  const ObstacleHandle foreign = other.add(SphereObstacle{1.0}, Pose3());
  world.remove(removed);
  for (const ObstacleHandle h : {removed, foreign, ObstacleHandle(0)}) {
    const std::function<void()> operations[] = {
        [&] { world.move(h, Pose3()); }, [&] { world.enable(h); },
        [&] { world.disable(h); },       [&] { world.isEnabled(h); },
        [&] { world.remove(h); },        [&] { world.shape(h); },
        [&] { world.pose(h); },          [&] { world.name(h); },
        [&] { world.padding(h); },       [&] { world.setPadding(h, 0.1); },
    };
    for (const auto& operation : operations) {
      EXPECT_EQ(FatalMessage(operation), "This world has no obstacle with handle [" + std::to_string(h.id()) +
                                             "]: it was removed or belongs to another world.");
    }
  }
  EXPECT_EQ(world.numObstacles(), 1U);
  EXPECT_TRUE(world.view().inCollision({9.0, 0.0, 0.0}, 0.0));
  EXPECT_TRUE(other.view().inCollision({0.0, 0.0, 0.0}, 0.0));
}

TEST(World, EditsShowInTheNextViewAndCopiesAreTheSameWorld) {
  World world;
  World copy = world;
  ObstacleHandle ball(0);
  const struct {
    std::function<void()> edit;
    bool at_origin;
    bool at_five;
    std::size_t num_obstacles;
  } steps[] = {
      {[] {}, false, false, 0},
      {[&] { ball = world.add(SphereObstacle{1.0}, Pose3(), "ball"); }, true, false, 1},
      {[&] { copy.enable(ball); }, true, false, 1},
      {[&] { copy.move(ball, At(5.0, 0.0, 0.0)); }, false, true, 1},
      {[&] { world.disable(ball); }, false, false, 1},
      {[&] { world.move(ball, Pose3()); }, false, false, 1},
      {[&] { copy.enable(ball); }, true, false, 1},
      {[&] { copy.add(SphereObstacle{1.0}, At(5.0, 0.0, 0.0)); }, true, true, 2},
      {[&] { world.remove(ball); }, false, true, 1},
  };
  WorldView view = world.view();
  for (const auto& step : steps) {
    SCOPED_TRACE(&step - steps);
    step.edit();
    view.update();
    EXPECT_EQ(world.obstacles().size(), step.num_obstacles);
    EXPECT_EQ(view.inCollision({0.0, 0.0, 0.0}, 0.0), step.at_origin);
    EXPECT_EQ(view.inCollision({5.0, 0.0, 0.0}, 0.0), step.at_five);
    EXPECT_EQ(copy.view().inCollision({0.0, 0.0, 0.0}, 0.0), step.at_origin);
    EXPECT_EQ(world.numObstacles(), step.num_obstacles);
  }
  const ObstacleHandle box = world.add(BoxObstacle{{1.0, 2.0, 3.0}}, Pose3(), "crate");
  EXPECT_EQ(std::get<BoxObstacle>(world.shape(box)).size, Eigen::Vector3d(1.0, 2.0, 3.0));
  EXPECT_EQ(world.name(box), "crate");
  EXPECT_TRUE(world.isEnabled(box));
  world.disable(box);
  EXPECT_FALSE(world.isEnabled(box));
}

using Answers = std::vector<std::tuple<bool, double, std::string>>;

Answers AnswersOf(const WorldView& view, const std::vector<Eigen::Vector3d>& points) {
  Answers answers;
  for (const Eigen::Vector3d& point : points) {
    const auto nearest = view.nearestObstacle(point);
    answers.emplace_back(view.inCollision(point, 0.2), nearest->distance, view.name(nearest->obstacle));
  }
  return answers;
}

// An edit mends a snapshot that was in use before. It must answer as one that is made anew; views that were
// not updated must not see any of it, nor copies, whose edits the world must not see.
TEST(World, EditedObstaclesAreWhereTheyWouldBeInANewWorld) {
  test::RandomScene random(31);
  World world;
  std::vector<ObstacleHandle> handles;
  int num_added = 0;
  const auto add = [&](const Pose3& pose) {
    const bool is_bounded = num_added % 50 != 0;
    handles.push_back(world.add(is_bounded ? random.bounded(num_added % test::RandomScene::kNumKinds, 0.4)
                                           : ObstacleShape(HalfSpaceObstacle{}),
                                is_bounded ? pose : At(0.0, 0.0, -3.5), std::to_string(num_added)));
    ++num_added;
  };
  for (int i = 0; i < 300; ++i) {
    add(random.pose(3.0));
  }
  const auto any = [&] {
    return static_cast<std::size_t>(random.integer(0, static_cast<int>(handles.size()) - 1));
  };
  struct Former {
    WorldView view;
    World copy;
    std::vector<Eigen::Vector3d> points;
    Answers answers;
  };
  std::vector<Former> former;
  for (int step = 0; step < 1500; ++step) {
    SCOPED_TRACE(step);
    const int edit = random.integer(0, 59);
    for (int i = edit == 0 ? 100 : random.integer(0, 2); i > 0; --i) {
      const ObstacleHandle handle = handles[any()];
      const Pose3 pose = world.pose(handle);
      // Nudged, put anywhere, or too far away for single precision.
      const int kind = random.integer(0, 199);
      const Eigen::Vector3d place =
          kind < 140 ? pose.translation() + random.point(0.05) : random.point(kind < 199 ? 3.0 : 1e9);
      world.move(handle, Pose3(pose.rotation(), place));
    }
    if (edit < 10) {
      const std::size_t removed = any();
      world.remove(handles[removed]);
      handles.erase(handles.begin() + static_cast<std::ptrdiff_t>(removed));
    } else if (edit < 20) {
      add(random.pose(3.0));
    } else if (edit < 25) {
      world.disable(handles[any()]);
    } else if (edit < 30) {
      world.enable(handles[any()]);
    } else if (edit < 35) {
      world.setPadding(handles[any()], random.uniform(0.0, 0.1));
    } else if (edit == 35) {
      // So many in one place that leaves get full, and soon gone again.
      const Pose3 pose = random.pose(2.0);
      for (int i = 0; i < 12; ++i) {
        add(Pose3(pose.rotation(), pose.translation() + random.point(0.1)));
      }
    } else if (edit == 36) {
      for (int i = 0; i < 12; ++i) {
        world.remove(handles.back());
        handles.pop_back();
      }
    }
    std::vector<Eigen::Vector3d> points(20);
    std::generate(points.begin(), points.end(), [&random] { return random.point(4.0); });
    World anew;
    for (const ObstacleHandle handle : handles) {
      if (world.isEnabled(handle)) {
        const ObstacleHandle copy = anew.add(world.shape(handle), world.pose(handle), world.name(handle));
        anew.setPadding(copy, world.padding(handle));
      }
    }
    former.push_back({world.view(), world.copy(), points, AnswersOf(anew.view(), points)});
    for (const Former& one : former) {
      ASSERT_EQ(AnswersOf(one.view, one.points), one.answers);
    }
    if (former.size() > 3) {
      const auto gone = former.begin() + random.integer(0, 2);
      ASSERT_EQ(AnswersOf(gone->copy.view(), gone->points), gone->answers);
      for (const ObstacleHandle handle : gone->copy.obstacles()) {
        gone->copy.move(handle, Pose3());
      }
      former.erase(gone);
    }
  }
}

// One obstacle goes back and forth between two places, so every snapshot must show it in exactly one of them,
// and a second obstacle, of which the first always stays clear, in its own.
TEST(World, MayBeEditedWhileOtherThreadsUpdateAndAsk) {
  const Eigen::Vector3d left(-5.0, 0.0, 0.0);
  const Eigen::Vector3d right(5.0, 0.0, 0.0);
  World world;
  const ObstacleHandle ball = world.add(SphereObstacle{1.0}, Pose3::FromTranslation(left));
  for (int i = 0; i < 20; ++i) {
    world.add(BoxObstacle{{0.5, 0.5, 0.5}}, At(i, 20.0, 0.0));
  }
  std::atomic<bool> done{false};
  std::thread editor([&] {
    for (int i = 0; !done; ++i) {
      world.move(ball, Pose3::FromTranslation(i % 2 == 0 ? right : left));
      if (i % 16 == 0) {
        const ObstacleHandle passing = world.add(CylinderObstacle{0.5, 1.0}, At(0.0, -20.0, 0.0));
        world.disable(passing);
        world.remove(passing);
      }
    }
  });
  std::atomic<int> wrong{0};
  std::atomic<int> sides_seen{0};
  const auto ask = [&] {
    WorldView view = world.view();
    int seen = 0;
    for (int i = 0; i < 3000 || (seen != 3 && i < 1000000); ++i) {
      view.update();
      const bool on_left = view.inCollision(left, 0.0);
      const bool on_right = view.inCollision(right, 0.0);
      seen |= (on_left ? 1 : 0) | (on_right ? 2 : 0);
      if (on_left == on_right || !view.inCollision({19.0, 20.0, 0.0}, 0.0)) {
        ++wrong;
      }
    }
    sides_seen |= seen;
  };
  std::thread first(ask);
  std::thread second(ask);
  first.join();
  second.join();
  done = true;
  editor.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(sides_seen, 3) << "the edits must have been seen";
  EXPECT_EQ(world.numObstacles(), 21U);
}

}  // namespace
}  // namespace kavo
