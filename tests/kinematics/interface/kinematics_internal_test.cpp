#include "kavo/kinematics/interface/kinematics_internal.h"

#include <gtest/gtest.h>

#include "tests/kinematics/random_robot.h"
#include "tests/support/allocations.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using testing::RandomRobot;
using testing::RandomVec;
using testing::Vec;

const kinematics::Kinematics& ModelOf(const Kinematics& kinematics) {
  return dynamic_cast<const KinematicsInternal&>(kinematics).model();
}

// A model of somebody else: everything by asking ours, so that the sweep is the interface's own.
class ForeignKinematics : public Kinematics {
 public:
  explicit ForeignKinematics(const Kinematics& inner) : inner_(inner) {}
  std::size_t numCSpaceCoords() const override { return inner_.numCSpaceCoords(); }
  const std::vector<std::string>& frameNames() const override { return inner_.frameNames(); }
  FrameHandle frame(const std::string& name) const override { return inner_.frame(name); }
  Pose3 pose(const Eigen::VectorXd& q, const FrameHandle& f) const override { return inner_.pose(q, f); }
  Eigen::Vector3d position(const Eigen::VectorXd& q, const FrameHandle& f) const override {
    return inner_.position(q, f);
  }
  Eigen::MatrixXd positionJacobian(const Eigen::VectorXd& q, const FrameHandle& f) const override {
    return inner_.positionJacobian(q, f);
  }

 private:
  const Kinematics& inner_;
};

TEST(KinematicsInternal, PlacesFramesLikeRecursionAndDifferentiatesThem) {
  std::mt19937 engine(17);
  constexpr double kStep = 1e-5;
  for (int round = 0; round < 300; ++round) {
    const RandomRobot robot(engine, 1 + round % 14);
    const std::unique_ptr<Kinematics> kinematics = robot.description()->kinematics();
    ASSERT_EQ(kinematics->numCSpaceCoords(), static_cast<std::size_t>(robot.num_coordinates()));
    ASSERT_EQ(kinematics->frameNames().size(), robot.joints().size() + 1);
    const Eigen::VectorXd q = RandomVec(engine, robot.num_coordinates(), -4.0, 4.0);
    for (int joint = -1; joint < static_cast<int>(robot.joints().size()); ++joint) {
      const std::string name =
          joint < 0 ? "base" : robot.joints()[static_cast<std::size_t>(joint)].child_frame;
      const Kinematics::FrameHandle frame = kinematics->frame(name);
      EXPECT_EQ(kinematics->frameNames()[static_cast<std::size_t>(frame.index())], name);
      const Eigen::Isometry3d expected = robot.place(q, joint);
      const Pose3 pose = kinematics->pose(q, frame);
      EXPECT_LT((pose.matrix() - expected.linear()).cwiseAbs().maxCoeff(), 1e-12);
      EXPECT_LT((pose.translation() - expected.translation()).cwiseAbs().maxCoeff(), 1e-12);
      EXPECT_EQ(kinematics->position(q, frame), pose.translation());
      const Eigen::MatrixXd jacobian = kinematics->positionJacobian(q, frame);
      ASSERT_EQ(jacobian.rows(), 3);
      ASSERT_EQ(jacobian.cols(), q.size());
      for (Eigen::Index i = 0; i < q.size(); ++i) {
        const Eigen::VectorXd step = kStep * Eigen::VectorXd::Unit(q.size(), i);
        const Eigen::Vector3d slope =
            (robot.place(q + step, joint).translation() - robot.place(q - step, joint).translation()) /
            (2.0 * kStep);
        EXPECT_LT((jacobian.col(i) - slope).cwiseAbs().maxCoeff(), 1e-7) << name << " coordinate " << i;
      }
    }
  }
}

TEST(KinematicsInternal, SweepGivesTheBitsOfSingleFramesAndAllocatesNothing) {
  std::mt19937 engine(23);
  for (int round = 0; round < 300; ++round) {
    const RandomRobot robot(engine, 1 + round % 14);
    const std::unique_ptr<Kinematics> kinematics = robot.description()->kinematics();
    const ForeignKinematics foreign(*kinematics);
    // Any frames in any order, some twice, sometimes none.
    std::vector<Kinematics::FrameHandle> frames;
    for (std::size_t i = engine() % 16; i > 0; --i) {
      frames.push_back(
          kinematics->frame(kinematics->frameNames()[engine() % kinematics->frameNames().size()]));
    }
    const std::unique_ptr<FrameSweep> sweep = kinematics->frameSweep(frames);
    const std::unique_ptr<FrameSweep> default_sweep = foreign.frameSweep(frames);
    for (int i = 0; i < 20; ++i) {
      const double range = i == 0 ? 1e9 : 4.0;
      const Eigen::VectorXd q = RandomVec(engine, robot.num_coordinates(), -range, range);
      const long before = testing::NumAllocations();
      const std::vector<math::RigidTransform>& transforms = sweep->compute(q);
      // The first call may set up the choice of instruction set.
      EXPECT_TRUE(round + i == 0 || testing::NumAllocations() == before);
      const std::vector<math::RigidTransform>& by_pose = default_sweep->compute(q);
      ASSERT_EQ(transforms.size(), frames.size());
      ASSERT_EQ(by_pose.size(), frames.size());
      for (std::size_t f = 0; f < frames.size(); ++f) {
        const math::RigidTransform expected = ModelOf(*kinematics).transform(q, frames[f].index());
        ASSERT_EQ(transforms[f].rotation, expected.rotation);
        ASSERT_EQ(transforms[f].translation, expected.translation);
        ASSERT_EQ(by_pose[f].translation, expected.translation);
        ASSERT_EQ(by_pose[f].rotation, expected.pose().matrix());
      }
    }
  }
}

TEST(KinematicsInternal, RejectsWrongLengthsUnknownFramesAndForeignHandles) {
  const std::unique_ptr<Kinematics> arm = LoadThreeLinkArmRobotDescription()->kinematics();
  const std::string file = "kinematics/interface/kinematics_internal";
  const Kinematics::FrameHandle tool = arm->frame("tool");
  const auto expect_all_fatal = [&](const Eigen::VectorXd& q, const Kinematics::FrameHandle& frame,
                                    const std::string& condition, int line, const std::string& message) {
    testing::ExpectFatal([&] { arm->pose(q, frame); }, condition, file, line, message);
    testing::ExpectFatal([&] { arm->position(q, frame); }, condition, file, line, message);
    testing::ExpectFatal([&] { arm->positionJacobian(q, frame); }, condition, file, line, message);
  };
  expect_all_fatal(
      Vec({1, 2}), tool, "static_cast<size_t>(cspace_config.size()) == numCSpaceCoords()", 110,
      "Length of the configuration [2] must match number of configuration space coordinates [3].");
  const std::string index_condition = "index >= 0 && static_cast<size_t>(index) < frameNames().size()";
  for (const int index : {-1, 5}) {
    const Kinematics::FrameHandle stray(index);
    const std::string message = "Frame handle with index [" + std::to_string(index) +
                                "] does not belong to this model, which has [5] frames.";
    expect_all_fatal(Vec({1, 2, 3}), stray, index_condition, 117, message);
    const std::vector<Kinematics::FrameHandle> frames = {tool, stray};
    testing::ExpectFatal([&] { arm->frameSweep(frames); }, index_condition, file, 117, message);
  }
  testing::ExpectFatal(
      [&] { arm->frame("Tool"); }, "found != frame_indices_.end()", "kinematics/kinematics", 160,
      "There is no frame \"Tool\". The frames are: \"base\", \"link1\", \"link2\", \"link3\", \"tool\".");
}

}  // namespace
}  // namespace kavo
