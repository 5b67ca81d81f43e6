#include "tests/fuzz/use_robot.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::formats::RobotFileOptions options;
    options.cover_tolerance = 0.02;
    options.self_collision = true;
    kavo::testing::UseRobot(kavo::formats::ParseRobot({"input", text}, std::nullopt, std::nullopt, options));
  });
}
