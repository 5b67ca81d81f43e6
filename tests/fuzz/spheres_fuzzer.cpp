#include "tests/fuzz/use_robot.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    const kavo::formats::FileText file = {"input", text};
    kavo::testing::UseRobot(kavo::formats::ParseRobot(kavo::testing::SmallArm(), std::nullopt, file,
                                                      kavo::testing::OptionsOfReaders()));
  });
}
