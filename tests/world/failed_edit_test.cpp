// What holds of a world after memory ran out, at every single allocation of an edit or an update.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/world/world.h"
#include "tests/support/allocations.h"
#include "tests/world/random_scene.h"

namespace kavo {
namespace {

// What can be asked of a world and of a view of it, but for the numbers of its handles.
std::vector<double> Answers(const World& world, const WorldView& view) {
  std::vector<double> answers;
  for (const ObstacleHandle obstacle : world.obstacles()) {
    const Eigen::Vector3d place = world.pose(obstacle).translation();
    answers.insert(answers.end(),
                   {place[0], place[1], place[2], world.padding(obstacle),
                    world.isEnabled(obstacle) ? 1.0 : 0.0, static_cast<double>(world.name(obstacle).size())});
  }
  test::RandomScene scene(5);
  for (int i = 0; i < 40; ++i) {
    const Eigen::Vector3d point = scene.point(1.5);
    const std::optional<WorldView::Nearest> nearest = view.nearestObstacle(point);
    answers.push_back(nearest ? nearest->distance : 99.0);
    answers.push_back(view.inCollision(point, 0.1) ? 1.0 : 0.0);
  }
  return answers;
}

struct EditedWorld {
  World world;
  std::vector<ObstacleHandle> obstacles;
  // Edits are noted for the views that there are.
  std::optional<WorldView> view;

  explicit EditedWorld(int num_obstacles) {
    test::RandomScene scene(3);
    for (int i = 0; i < num_obstacles; ++i) {
      obstacles.push_back(world.add(scene.bounded(i % test::RandomScene::kNumKinds, 0.5), scene.pose(1.0)));
    }
    view = world.view();
  }
};

TEST(FailedEdit, LeavesAWorldUnchangedOrWhollyChanged) {
  if (!testing::FailsAllocations()) {
    GTEST_SKIP() << "no allocation can be made to fail in this build";
  }
  test::RandomScene scene(7);
  const ObstacleShape mesh = scene.bounded(5, 0.5);
  const Pose3 place = Pose3::FromTranslation({0.3, -0.2, 0.4});
  const std::string name = "a name that does not fit into the string itself";
  using Edit = std::function<void(EditedWorld&)>;
  const Edit edits[] = {
      [&](EditedWorld& edited) { edited.world.add(SphereObstacle{0.4}, place, name); },
      [&](EditedWorld& edited) { edited.world.add(mesh, place, name); },
      [&](EditedWorld& edited) { edited.world.move(edited.obstacles[1], place); },
      [&](EditedWorld& edited) { edited.world.move(edited.obstacles[5], place); },
      [&](EditedWorld& edited) { edited.world.disable(edited.obstacles[0]); },
      [&](EditedWorld& edited) { edited.world.setPadding(edited.obstacles[2], 0.1); },
      [&](EditedWorld& edited) { edited.world.remove(edited.obstacles[3]); },
      [&](EditedWorld& edited) { edited.world.remove(edited.obstacles[6]); },
  };
  long num_failures = 0;
  // The history of edits gets new memory every now and then.
  for (const int num_before : {0, 63, 64, 70}) {
    for (const Edit& edit : edits) {
      const long blocks = testing::NumBlocks();
      {
        const auto prepare = [&] {
          EditedWorld edited(8);
          for (int i = 0; i < num_before; ++i) {
            edited.world.move(edited.obstacles[7], Pose3::FromTranslation({0.01 * i, 0.0, 0.0}));
          }
          return edited;
        };
        EditedWorld twin = prepare();
        const std::vector<double> before = Answers(twin.world, twin.world.view());
        edit(twin);
        const std::vector<double> after = Answers(twin.world, twin.world.view());
        ASSERT_NE(before, after);
        for (long n = 0, done = 0; done == 0; ++n) {
          EditedWorld edited = prepare();
          done = testing::Survives(n, [&] { edit(edited); }) ? 1 : 0;
          num_failures += 1 - done;
          edited.view->update();
          const std::vector<double> left = Answers(edited.world, *edited.view);
          ASSERT_TRUE(left == after || (left == before && done == 0)) << n;
          ASSERT_EQ(left, Answers(edited.world, edited.world.view())) << n;
        }
      }
      EXPECT_EQ(testing::NumBlocks(), blocks);
    }
  }
  EXPECT_GT(num_failures, 20);
}

// Of few edits, that a snapshot is mended by, and of many, for which a new one is made.
TEST(FailedEdit, LeavesAViewAsItWasUntilItIsUpdated) {
  if (!testing::FailsAllocations()) {
    GTEST_SKIP() << "no allocation can be made to fail in this build";
  }
  for (const int num_edits : {1, 30, 200}) {
    for (const bool has_spare : {false, true}) {
      const long blocks = testing::NumBlocks();
      {
        EditedWorld edited(20);
        if (has_spare) {
          edited.world.move(edited.obstacles[0], Pose3());
          edited.view->update();
        }
        test::RandomScene scene(11);
        int num_failures = 0;
        for (bool done = false; !done; ++num_failures) {
          const auto obstacle = edited.obstacles[static_cast<std::size_t>(num_failures % 20)];
          const std::vector<double> before = Answers(World(), *edited.view);
          for (int i = 0; i < num_edits; ++i) {
            edited.world.move(i == 0 ? obstacle : edited.obstacles[static_cast<std::size_t>(i % 20)],
                              scene.pose(1.0));
          }
          if (num_edits > 1) {
            edited.world.remove(edited.world.add(scene.bounded(num_failures % 8, 0.3), scene.pose(1.0)));
            edited.world.add(scene.bounded((num_failures + 1) % 8, 0.3), scene.pose(1.0));
          }
          done = testing::Survives(num_failures, [&] { edited.view->update(); });
          if (!done) {
            ASSERT_EQ(Answers(World(), *edited.view), before) << num_failures;
          }
          edited.view->update();
          // A world put up anew knows of no failure.
          World other;
          for (const ObstacleHandle kept : edited.world.obstacles()) {
            other.add(edited.world.shape(kept), edited.world.pose(kept));
          }
          ASSERT_EQ(Answers(World(), *edited.view), Answers(World(), other.view())) << num_failures;
        }
        EXPECT_GT(num_failures, 0);
      }
      EXPECT_EQ(testing::NumBlocks(), blocks);
    }
  }
}

}  // namespace
}  // namespace kavo
