#include "kavo/util/log.h"

#include <gmock/gmock.h>

#include <thread>

#include "kavo/util/log_message.h"
#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using ::testing::StartsWith;

TEST(Log, FormatOfEachKindOfRecord) {
  const std::pair<LogRecord, std::string> cases[] = {
      {{LogLevel::kCritical, false, {}, {}, 0, "a"}, "kavo: critical: a"},
      {{LogLevel::kError, false, {}, {}, 0, "b"}, "kavo: error: b"},
      {{LogLevel::kWarning, false, {}, {}, 0, "c\nd"}, "kavo: warning: c\nd"},
      {{LogLevel::kInfo, false, {}, {}, 0, ""}, "kavo: info: "},
      {{LogLevel::kCritical, true, "n > 0", "a/b", 9, "No size"}, "kavo: fatal: No size [n > 0] at a/b:9"},
      {{LogLevel::kCritical, true, "n > 0", "a/b", 9, ""}, "kavo: fatal: [n > 0] at a/b:9"},
  };
  for (const auto& [record, line] : cases) {
    EXPECT_EQ(FormatLogRecord(record), line);
  }
}

TEST(Log, DefaultSinkWritesOneLineToStandardError) {
  const kavo::testing::LogCapture restores_the_sink;
  SetLogSink({});
  ::testing::internal::CaptureStderr();
  KAVO_LOG(LogLevel::kWarning) << "to the terminal";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "kavo: warning: to the terminal\n");
  EXPECT_FALSE(SetLogSink([](const LogRecord&) {})) << "the default is handed back as an empty function";
}

TEST(Log, SinkMayReplaceItself) {
  const kavo::testing::LogCapture log;
  const LogSink collect = SetLogSink({});
  int calls = 0;
  SetLogSink([&](const LogRecord&) {
    ++calls;
    SetLogSink(collect);
  });
  KAVO_LOG(LogLevel::kWarning) << "x";
  KAVO_LOG(LogLevel::kWarning) << "y";
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(log.warnings(), ElementsAre("y")) << "a sink that was handed back works as before";
}

TEST(Log, ThresholdIsPerThreadAndStartsAtWarning) {
  const kavo::testing::LogCapture log(static_cast<int>(LogLevel::kError));
  int initial = -100;
  std::thread([&initial] {
    initial = log_level_threshold;
    KAVO_LOG(LogLevel::kWarning) << "of the other thread";
    log_level_threshold = static_cast<int>(LogLevel::kInfo);
  }).join();
  KAVO_LOG(LogLevel::kWarning) << "of this thread";
  EXPECT_EQ(initial, static_cast<int>(LogLevel::kWarning));
  EXPECT_THAT(log.warnings(), ElementsAre("of the other thread"));
}

TEST(Log, RecordsOfManyThreadsAllArriveWhileSinksChange) {
  const kavo::testing::LogCapture log;
  const LogSink collect = SetLogSink({});
  SetLogSink(collect);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < 500; ++k) {
        KAVO_LOG(LogLevel::kWarning) << "record " << k;
      }
    });
  }
  for (int k = 0; k < 200; ++k) {
    SetLogSink([collect](const LogRecord& record) { collect(record); });
    SetLogSink(collect);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(log.warnings(), AllOf(SizeIs(4 * 500), Each(StartsWith("record "))));
}

}  // namespace
}  // namespace kavo::util
