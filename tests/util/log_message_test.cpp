#include "kavo/util/log_message.h"

#include <gmock/gmock.h>

#include <Eigen/Core>
#include <locale>
#include <stdexcept>

#include "kavo/util/to_string.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(LogMessage, EachLevelAppearsFromItsThresholdOn) {
  for (int threshold = -1; threshold <= 4; ++threshold) {
    const kavo::testing::LogCapture log(threshold);
    for (const LogLevel level :
         {LogLevel::kCritical, LogLevel::kError, LogLevel::kWarning, LogLevel::kInfo}) {
      const int number = static_cast<int>(level);
      int formatted = 0;
      KAVO_LOG(level) << "level " << number << ++formatted;
      EXPECT_EQ(formatted, number <= threshold ? 1 : 0) << "text that is not wanted is not formatted";
      EXPECT_EQ(log.messages(level).size(), static_cast<std::size_t>(formatted)) << "threshold " << threshold;
    }
  }
}

TEST(LogMessage, BrokenPreconditionThrowsWhatWasLogged) {
  const int size = 3;
  int formatted = 0;
  KAVO_CHECK(size == 3, "a/b", 1) << ++formatted;
  EXPECT_EQ(formatted, 0);
  const auto fail = [&] {
    KAVO_CHECK(size < 2 && size != 7, "room/file", 42) << "size " << size << ", not " << 1.5;
  };
  kavo::testing::ExpectFatal(fail, "size < 2 && size != 7", "room/file", 42, "size 3, not 1.5");
  kavo::testing::ExpectFatal([] { KAVO_CHECK(false, "a/b", 1); }, "false", "a/b", 1, "");

  const kavo::testing::LogCapture log(-1);  // Fatal reports are never silenced.
  std::exception_ptr thrown;
  try {
    fail();
  } catch (const FatalError& error) {
    thrown = std::make_exception_ptr(error);  // A copy, which outlives what was thrown.
  }
  ASSERT_EQ(log.records().size(), 1u);
  EXPECT_EQ(log.records()[0].level, LogLevel::kCritical);
  EXPECT_EQ(log.records()[0].file, "room/file");
  try {
    std::rethrow_exception(thrown);
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "kavo: fatal: size 3, not 1.5 [size < 2 && size != 7] at room/file:42");
  }
}

// Points between the thousands and a decimal comma.
struct OtherPunctuation : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(LogMessage, TextDoesNotDependOnTheGlobalLocale) {
  const std::locale former = std::locale::global(std::locale(std::locale(), new OtherPunctuation));
  const kavo::testing::LogCapture log;
  KAVO_LOG(LogLevel::kWarning) << 12345 << " " << 0.5 << " " << Eigen::Vector2d(1000.0, 0.25).transpose()
                               << " " << ToString(Eigen::Vector2d(1000.0, 0.25));
  std::locale::global(former);
  EXPECT_THAT(log.warnings(), ElementsAre("12345 0.5 1000 0.25 [1000 0.25]"));
}

TEST(LogMessage, SinkThatThrowsChangesNothing) {
  const kavo::testing::LogCapture restores_the_sink;
  int calls = 0;
  SetLogSink([&calls](const LogRecord&) {
    ++calls;
    throw std::runtime_error("disk full");
  });
  EXPECT_NO_THROW(KAVO_LOG(LogLevel::kWarning) << "lost");
  EXPECT_THROW(KAVO_CHECK(false, "a/b", 1) << "kept", FatalError);
  EXPECT_EQ(calls, 2);
  EXPECT_THAT(restores_the_sink.records(), IsEmpty());
}

}  // namespace
}  // namespace kavo::util
