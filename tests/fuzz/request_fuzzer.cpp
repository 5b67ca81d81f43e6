#include "kavo/formats/request.h"

#include "tests/fuzz/fuzzer.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto robot = kavo::LoadThreeLinkArmRobotDescription();
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    const kavo::formats::Request request = kavo::formats::ParseRequest(text, "input");
    const Eigen::VectorXd start =
        kavo::formats::ConfigurationFromJoints(*robot, request.start, robot->defaultCSpaceConfiguration());
    kavo::testing::Require(start.allFinite());
    for (const kavo::formats::Request::Goal& goal : request.goals) {
      kavo::testing::Require(!goal.joints.empty() || !goal.positions.empty() || !goal.orientations.empty());
      for (const kavo::formats::Request::PositionTarget& target : goal.positions) {
        kavo::testing::Require(target.position.allFinite() && target.offset.allFinite());
      }
      for (const kavo::formats::Request::OrientationTarget& target : goal.orientations) {
        kavo::testing::Require(target.orientation.coeffs().allFinite() &&
                               target.tolerances.angles.allFinite());
      }
    }
  });
}
