#include "tests/fuzz/place_scene.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::testing::PlaceScene(kavo::formats::ParseSceneText(text, "input"));
  });
}
