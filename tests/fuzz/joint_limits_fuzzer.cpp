#include "kavo/formats/joint_limits_file.h"

#include "tests/fuzz/fuzzer.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto robot = kavo::LoadFrankaRobotDescription();
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::planning::MotionLimits limits = kavo::planning::FrankaMotionLimits();
    kavo::formats::TakeJointLimits(kavo::formats::ParseJointLimits(text, "input"), *robot, limits);
    kavo::planning::ValidateMotionLimits(limits, 7);
  });
}
