#include "kavo/util/clip_warning.h"

#include <gmock/gmock.h>

#include <cmath>

#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

TEST(ClipWarning, TellsValueRangeAndReplacement) {
  const kavo::testing::LogCapture log;
  LogClippedWarning(1.5, 1.0, -0.5, 1.0, "Invalid bias");
  LogClippedWarning(std::nan(""), 0.25, 0.25, 1e9, "Invalid step");
  EXPECT_THAT(log.warnings(),
              ::testing::ElementsAre("Invalid bias: [1.5] is outside of range [-0.5, 1]. Using [1].",
                                     "Invalid step: [nan] is outside of range [0.25, 1e+09]. Using [0.25]."));
}

}  // namespace
}  // namespace kavo::util
