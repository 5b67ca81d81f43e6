#include "kavo/util/clip_warning.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>

#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ClipWarning, TellsValueRangeAndReplacement) {
  const kavo::testing::LogCapture log;
  LogClippedWarning(1.5, 1.0, 0.0, 1.0, "Invalid bias");
  LogClippedWarning(std::numeric_limits<double>::infinity(), 2.5, -0.5, 2.5, "Invalid gain");
  LogClippedWarning(std::numeric_limits<double>::quiet_NaN(), 0.25, 0.25, 1e9, "Invalid step");
  EXPECT_THAT(log.warnings(),
              ElementsAre("Invalid bias: [1.5] is outside of range [0, 1]. Using [1].",
                          "Invalid gain: [inf] is outside of range [-0.5, 2.5]. Using [2.5].",
                          "Invalid step: [nan] is outside of range [0.25, 1e+09]. Using [0.25]."));
  EXPECT_EQ(log.records().size(), 3u);
}

TEST(ClipWarning, IsSilentBelowTheWarningThreshold) {
  const kavo::testing::LogCapture log(static_cast<int>(LogLevel::kError));
  LogClippedWarning(1.5, 1.0, 0.0, 1.0, "Invalid bias");
  EXPECT_THAT(log.records(), IsEmpty());
}

}  // namespace
}  // namespace kavo::util
