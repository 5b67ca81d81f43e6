#include "kavo/formats/srdf.h"

#include "tests/fuzz/use_robot.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::formats::RobotFileOptions options;
    // Not what is read here, and it takes a build that is made for this seconds.
    options.cover = false;
    options.self_collision = true;
    const kavo::formats::Srdf srdf = kavo::formats::ParseSrdf(text, "input");
    if (!srdf.groups.empty()) {
      options.group = srdf.groups.front().name;
    }
    const kavo::formats::FileText file = {"input", text};
    kavo::testing::UseRobot(
        kavo::formats::ParseRobot(kavo::testing::SmallArm(), file, std::nullopt, options));
  });
}
