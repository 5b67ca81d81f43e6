#include "tests/fuzz/use_robot.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::testing::UseRobot(kavo::formats::ParseRobot({"input", text}, std::nullopt, std::nullopt,
                                                      kavo::testing::OptionsOfReaders()));
  });
}
