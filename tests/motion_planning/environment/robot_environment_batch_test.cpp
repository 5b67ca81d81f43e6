#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/util/random_generator.h"
#include "kavo/world/world.h"
#include "tests/kinematics/random_robot.h"
#include "tests/motion_planning/environment/plain_check.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/allocations.h"
#include "tests/support/every_target.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"
#include "tests/world/random_scene.h"

namespace kavo::planning {
namespace {

using testing::kInf;
using testing::kNaN;
using testing::RandomVec;

// The questions that asking one by one would count.
std::uint64_t NumQuestions(const RobotEnvironment& environment, const Eigen::MatrixXd& batch) {
  const std::uint64_t before = environment.GetStatistics().num_validity_checks;
  environment.Environment::CountValid(batch);
  return environment.GetStatistics().num_validity_checks - before;
}

std::pair<int, std::uint64_t> AllAtOnce(const RobotEnvironment& environment,
                                        const Eigen::Ref<const Eigen::MatrixXd>& batch) {
  const std::uint64_t before = environment.GetStatistics().num_validity_checks;
  const int count = environment.CountValid(batch);
  return {count, environment.GetStatistics().num_validity_checks - before};
}

using BatchTest = testing::EveryTargetTest;

TEST_P(BatchTest, SaysWhatAskingOneByOneSays) {
  std::mt19937 engine(41);
  int num_whole = 0;
  int num_cut = 0;
  for (int round = 0; round < 200; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 14);
    const auto description = robot.withSpheres(engine);
    World world;
    // Now and then so far away, or so large, that single precision is no use.
    const double size = round % 10 == 0 ? 1e7 : (round % 10 == 1 ? 1e150 : 1.0);
    test::RandomScene scene(static_cast<std::uint32_t>(round));
    for (int i = 0; i < (round % 7 == 0 ? 100 : round % 12); ++i) {
      const ObstacleHandle obstacle =
          world.add(scene.bounded(i % test::RandomScene::kNumKinds, 0.3),
                    i % 5 == 0 ? Pose3::FromTranslation(scene.point(1.0)) : scene.pose(1.0),
                    i % 4 == 1 ? "allowed" : "other");
      world.setPadding(obstacle, i % 3 == 0 ? 0.02 : 0.0);
    }
    if (round % 6 == 0) {
      world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, -0.8}),
                round % 12 == 0 ? "allowed" : "");
    }
    if (size != 1.0) {
      world.add(BoxObstacle{{size, 0.1, size}}, Pose3::FromTranslation({0.0, 0.4, 0.25 * size}));
    }
    const auto n = static_cast<int>(description->numCSpaceCoords());
    const auto environment =
        CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(n), 10, 1, 2});
    Pose3 base;
    if (round % 3 == 0) {
      const Eigen::VectorXd v = RandomVec(engine, 7, -1.0, 1.0);
      base = Pose3(Eigen::Quaterniond(v[0], v[1], v[2], v[3]), v.tail<3>());
      environment->SetBasePose(base);
    }
    const testing::PlainCheck plain(*description, world, base);
    for (const int count : {0, 1, 7, 8, 9, 30}) {
      // Along a short segment, as planners ask, so that several in a row are free.
      const Eigen::VectorXd begin = RandomVec(engine, n, -2.9, 2.9);
      const Eigen::VectorXd step = RandomVec(engine, n, -0.02, 0.02);
      Eigen::MatrixXd batch(n, count);
      for (int k = 0; k < count; ++k) {
        batch.col(k) = begin + k * step;
      }
      if (n > 0 && count > 1 && engine() % 8 == 0) {
        const double specials[] = {kNaN, kInf, 3.0, std::nextafter(3.0, 4.0)};
        batch(engine() % static_cast<unsigned>(n), engine() % static_cast<unsigned>(count)) =
            specials[engine() % 4];
      }
      const std::pair<int, std::uint64_t> expected(plain.CountValid(batch),
                                                   NumQuestions(*environment, batch));
      ASSERT_EQ(AllAtOnce(*environment, batch), expected) << "round " << round << ", " << count;
      (expected.first == count ? num_whole : num_cut) += 1;
    }
  }
  // The comparison is worth something only if both answers come up.
  EXPECT_GT(num_whole, 300);
  EXPECT_GT(num_cut, 300);
}

// Random robots next to the configuration at which they begin to touch an obstacle or themselves, so near
// that single precision cannot tell: every lane must be what the exact check says.
TEST_P(BatchTest, DecidesAsTheExactCheckWhereContactBegins) {
  std::mt19937 engine(47);
  int num_boundaries = 0;
  for (int round = 0; round < 300; ++round) {
    const testing::RandomRobot robot(engine, 2 + round % 8);
    const auto description = robot.withSpheres(engine);
    World world;
    test::RandomScene scene(static_cast<std::uint32_t>(round));
    constexpr int kNumKinds = test::RandomScene::kNumKinds;
    const int kind = round % (kNumKinds + 2);
    if (kind < kNumKinds) {
      const ObstacleHandle obstacle =
          world.add(scene.bounded(kind, 0.8),
                    round % 4 == 0 ? Pose3::FromTranslation(scene.point(0.6)) : scene.pose(0.6));
      world.setPadding(obstacle, round % 3 == 0 ? 0.03 : 0.0);
    } else if (kind == kNumKinds) {
      world.setPadding(world.add(HalfSpaceObstacle{}, scene.pose(0.6)), round % 3 == 0 ? 0.03 : 0.0);
    } else if (round % 20 == 9) {
      // A face among the spheres, of a box that is large or hardly turned.
      const double size = round % 40 == 9 ? 1e5 : 0.4;
      const Eigen::Quaterniond turn(Eigen::AngleAxisd(size > 1.0 ? 0.0 : 1e-3, Eigen::Vector3d::UnitZ()));
      world.add(BoxObstacle{{size / 3.0, size, size}}, Pose3(turn, {size / 6.0 + 0.1, 0.0, 0.0}));
    }
    const auto n = static_cast<int>(description->numCSpaceCoords());
    const auto environment =
        CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(n), 10, 1, 2});
    const testing::PlainCheck plain(*description, world);
    for (int attempt = 0; attempt < 30; ++attempt) {
      Eigen::VectorXd free = RandomVec(engine, n, -2.9, 2.9);
      Eigen::VectorXd touching = RandomVec(engine, n, -2.9, 2.9);
      if (!plain.IsValid(free) || plain.IsValid(touching)) {
        continue;
      }
      const Eigen::VectorXd along = (touching - free).normalized();
      for (int i = 0; i < 50; ++i) {
        const Eigen::VectorXd middle = 0.5 * (free + touching);
        (plain.IsValid(middle) ? free : touching) = middle;
      }
      for (const double distance : {-3e-7, -1e-7, -3e-8, -1e-8, 0.0, 1e-8, 3e-8, 1e-7, 3e-7}) {
        const Eigen::MatrixXd batch = (free + distance * along).replicate(1, attempt % 2 == 0 ? 3 : 7);
        ASSERT_EQ(environment->CountValid(batch), plain.CountValid(batch))
            << "round " << round << ", " << distance;
      }
      ++num_boundaries;
    }
  }
  EXPECT_GT(num_boundaries, 300);
}

// A small ball on a rail through a closed mesh, mostly far from its surface.
TEST_P(BatchTest, KnowsTheInsideOfAMesh) {
  World world;
  world.add(MeshObstacle{test::RandomScene(61).mesh(1.0, false)}, Pose3());
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {1.0, 0.0, 0.0}, {{-2.0, 2.0}}});
  builder.addCollisionSphere("cart", {0.0, 0.01, 0.02}, 0.01);
  const auto description = builder.build();
  const auto environment =
      CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(1), 10, 1, 2});
  const testing::PlainCheck plain(*description, world);
  int num_valid = 0;
  for (int k = 0; k < 100; ++k) {
    const Eigen::MatrixXd batch = Eigen::MatrixXd::Constant(1, 3, -1.5 + 0.03 * k);
    num_valid += environment->CountValid(batch) == 3 ? 1 : 0;
    ASSERT_EQ(environment->CountValid(batch), plain.CountValid(batch)) << k;
  }
  EXPECT_GT(num_valid, 20);
  EXPECT_LT(num_valid, 80);
  EXPECT_FALSE(environment->IsValidMotion(Eigen::VectorXd::Zero(1), Eigen::VectorXd::Constant(1, 0.05), 1.0));
}

TEST_P(BatchTest, TakesAnyAngleAndManyConfigurations) {
  // Where the arm is at the angle 0, which no lane must be taken for.
  World world;
  world.add(SphereObstacle{0.1}, Pose3::FromTranslation({0.75, 0.0, 0.0}));
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"turn", JointType::kRevolute, "base", "arm", {}, {0.0, 0.0, 1.0}, {{-2e6, 2e6}}});
  builder.addCollisionSphere("arm", {0.6, 0.0, 0.0}, 0.1);
  const auto description = builder.build();
  const auto environment =
      CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(1), 10, 1, 2});
  // Rows of a larger matrix, so that columns are not next to each other.
  Eigen::MatrixXd all(3, 1000);
  for (int k = 0; k < 1000; ++k) {
    all.col(k).setConstant(1e6 + 1e-3 * k);
  }
  const Eigen::Ref<const Eigen::MatrixXd> rows = all.middleRows(1, 1);
  const int count = environment->CountValid(rows);
  EXPECT_EQ(count, testing::PlainCheck(*description, world).CountValid(rows));
  EXPECT_GT(count, 8);
  EXPECT_LT(count, 1000);
  // From beyond what lanes reach to within, past no obstacle.
  const Eigen::MatrixXd across = Eigen::RowVectorXd::LinSpaced(8, 9.0, 7.0);
  EXPECT_EQ(environment->CountValid(across), 8);
  if (testing::CountsAllocations()) {
    const auto before = testing::NumAllocations();
    environment->CountValid(rows);
    EXPECT_EQ(testing::NumAllocations(), before);
  }
  testing::ExpectFatal([&] { environment->CountValid(all); },
                       "static_cast<size_t>(configurations.rows()) == dimension_",
                       "motion_planning/environment/robot_environment", 160,
                       "Dimension of configurations [3] must match number of configuration space coordinates "
                       "[1].");
}

TEST_P(BatchTest, TellsBallsApartWhoseSquaredDistanceVanishes) {
  World world;
  world.add(SphereObstacle{1e-26}, Pose3::FromTranslation({1.8e-26, 1.8e-26, 1.8e-26}));
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"turn", JointType::kRevolute, "base", "arm", {}, {0.0, 0.0, 1.0}, {{-1.0, 1.0}}});
  builder.addCollisionSphere("arm", {0.0, 0.0, 0.0}, 1e-26);
  const auto description = builder.build();
  const auto environment =
      CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(1), 10, 1, 2});
  EXPECT_EQ(environment->CountValid(Eigen::MatrixXd::Zero(1, 8)), 8);
}

// Samples are those of drawing one after the other and asking about each at once, whatever has happened to
// the world and to the base since they were drawn ahead. A rail goes farther than lanes reach.
TEST_P(BatchTest, SamplesAreJudgedByTheWorldOfTheirCall) {
  const testing::LogCapture quiet;
  std::mt19937 engine(43);
  std::uint64_t num_accepted = 0;
  std::uint64_t num_rejected = 0;
  for (int round = 0; round < 60; ++round) {
    RobotDescriptionBuilder builder("base");
    builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {1.0, 0.0, 0.0}, {{-12.0, 12.0}}});
    builder.addJoint({"mast", JointType::kRevolute, "cart", "mast", {}, {0.0, 0.0, 1.0}, {{-3.0, 3.0}}});
    builder.addCollisionSphere("mast", {1.0, 0.0, 0.0}, 0.5)
        .addCollisionSphere("base", {0.0, 0.0, 0.0}, 0.25);
    builder.addCollisionPair("base", "mast");
    const auto description = builder.build();
    World world;
    WorldView view = world.view();
    const int attempts = 1 + round % 12;
    const RobotEnvironmentConfig config(description.get(), view, Eigen::VectorXd::Ones(2), attempts, round,
                                        2);
    const auto environment = CreateRobotEnvironment(config);
    const auto judge = CreateRobotEnvironment(config);
    util::RandomGenerator<double> rail(static_cast<std::uint32_t>(round));
    util::RandomGenerator<double> mast(static_cast<std::uint32_t>(round) + 1);
    rail.SetRange(-12.0, 12.0);
    mast.SetRange(-3.0, 3.0);
    std::vector<ObstacleHandle> obstacles;
    for (int call = 0; call < 30; ++call) {
      const Eigen::VectorXd v = RandomVec(engine, 3, -12.0, 12.0);
      const auto event = engine() % 8;
      if (event == 0) {
        obstacles.push_back(
            world.add(BoxObstacle{{4.0, 1.0, 1.0}}, Pose3::FromTranslation({v[0], 0.1 * v[1], 0.0})));
        // Not shown before an update, of which the environment learns from its copy of the view.
        if (engine() % 2 == 0) {
          view.update();
        }
      } else if (event == 1) {
        if (!obstacles.empty()) {
          world.remove(obstacles.back());
          obstacles.pop_back();
        }
        environment->UpdateWorldView();
      } else if (event == 2) {
        for (const auto& moved : {environment, judge}) {
          moved->SetBasePose(Pose3::FromTranslation({0.2 * v[0], 0.1 * v[1], 0.0}));
        }
      } else if (event == 3) {
        // A check between two calls takes the same lanes.
        environment->CountValid(Eigen::MatrixXd::Zero(2, 3));
      }
      std::optional<Eigen::VectorXd> expected;
      for (int attempt = 0; attempt < attempts && !expected; ++attempt) {
        const double x = rail.Sample();
        const Eigen::VectorXd q = testing::Vec({x, mast.Sample()});
        if (judge->IsValidConfiguration(q)) {
          expected = q;
        }
        (expected ? num_accepted : num_rejected) += 1;
      }
      ASSERT_EQ(environment->SampleConfiguration(), expected) << "round " << round << ", " << call;
    }
  }
  EXPECT_GT(num_accepted, 500u);
  EXPECT_GT(num_rejected, 500u);
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(BatchTest);

TEST(EnvironmentTest, BatchesOfARobotWithoutSpheresKnowEveryLimit) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"a", JointType::kPrismatic, "base", "a", {}, {1.0, 0.0, 0.0}, {{-1.0, 1.0}}});
  builder.addJoint({"b", JointType::kPrismatic, "a", "b", {}, {1.0, 0.0, 0.0}, {{-1.0, 1.0}}});
  const auto model = dynamic_cast<KinematicsInternal&>(*builder.build()->kinematics()).model();
  const RobotDescriptionInternal description(
      {model, {"a", "b"}, {{-kInf, kInf}, {kNaN, kNaN}}, Eigen::VectorXd::Zero(2), {}, {}});
  const auto environment =
      CreateRobotEnvironment({&description, World().view(), Eigen::VectorXd::Ones(2), 10, 1, 2});
  for (const double a : {0.0, 1e300, kInf, -kInf, kNaN}) {
    for (const double b : {0.0, -1e300, kInf, kNaN}) {
      const Eigen::MatrixXd batch = testing::Vec({a, b});
      EXPECT_EQ(environment->CountValid(batch), environment->IsValidConfiguration(batch) ? 1 : 0)
          << a << " " << b;
    }
  }
}

TEST(EnvironmentTest, AsksOneByOneUpToTheFirstInvalidConfiguration) {
  testing::ScriptedEnvironment environment(1, {}, [](const Eigen::VectorXd& q) { return q[0] < 3.0; });
  Eigen::MatrixXd batch(1, 6);
  batch << 0.0, 1.0, 2.0, 3.0, 1.0, 5.0;
  EXPECT_EQ(environment.CountValid(batch), 3);
  ASSERT_EQ(environment.questions.size(), 4u);
  EXPECT_EQ(environment.questions.back()[0], 3.0);
  EXPECT_EQ(environment.CountValid(batch.leftCols(2)), 2);
  EXPECT_EQ(environment.CountValid(batch.leftCols(0)), 0);
}

}  // namespace
}  // namespace kavo::planning
