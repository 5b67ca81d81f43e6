#include "kavo/formats/srdf.h"

#include "tests/fuzz/use_robot.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::formats::RobotFileOptions options = kavo::testing::OptionsOfReaders();
    const kavo::formats::Srdf srdf = kavo::formats::ParseSrdf(text, "input");
    if (!srdf.groups.empty()) {
      options.group = srdf.groups.front().name;
    }
    const kavo::formats::FileText file = {"input", text};
    kavo::testing::UseRobot(
        kavo::formats::ParseRobot(kavo::testing::SmallArm(), file, std::nullopt, options));
  });
}
