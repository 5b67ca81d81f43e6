#include "kavo/util/log.h"

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

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
  const LogRecord fatal{LogLevel::kCritical, true, "n > 0", "world/world", 9, "No size"};
  LogRecord fatal_without_text = fatal;
  fatal_without_text.message.clear();
  const struct {
    LogRecord record;
    std::string line;
  } cases[] = {
      {{LogLevel::kCritical, false, {}, {}, 0, "a"}, "kavo: critical: a"},
      {{LogLevel::kError, false, {}, {}, 0, "b"}, "kavo: error: b"},
      {{LogLevel::kWarning, false, {}, {}, 0, "c\nd"}, "kavo: warning: c\nd"},
      {{LogLevel::kInfo, false, {}, {}, 0, ""}, "kavo: info: "},
      {fatal, "kavo: fatal: No size [n > 0] at world/world:9"},
      {fatal_without_text, "kavo: fatal: [n > 0] at world/world:9"},
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
}

TEST(Log, SetLogSinkHandsBackTheFormerSink) {
  const kavo::testing::LogCapture restores_the_sink;
  std::vector<std::string> seen;
  const auto sink_named = [&seen](const std::string& name) {
    return [&seen, name](const LogRecord& record) { seen.push_back(name + ": " + record.message); };
  };
  SetLogSink(sink_named("a"));
  LogSink former = SetLogSink(sink_named("b"));
  KAVO_LOG(LogLevel::kWarning) << 1;
  SetLogSink(former);
  KAVO_LOG(LogLevel::kWarning) << 2;
  SetLogSink({});
  EXPECT_FALSE(SetLogSink(sink_named("c"))) << "the default is handed back as an empty function";
  EXPECT_THAT(seen, ElementsAre("b: 1", "a: 2"));
}

TEST(Log, SinkMayReplaceItself) {
  const kavo::testing::LogCapture restores_the_sink;
  int first = 0;
  int second = 0;
  SetLogSink([&](const LogRecord&) {
    ++first;
    SetLogSink([&second](const LogRecord&) { ++second; });
  });
  KAVO_LOG(LogLevel::kWarning) << "x";
  KAVO_LOG(LogLevel::kWarning) << "y";
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
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
  constexpr int kThreads = 4;
  constexpr int kRecords = 500;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < kRecords; ++k) {
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
  EXPECT_THAT(log.warnings(), AllOf(SizeIs(kThreads * kRecords), Each(StartsWith("record "))));
}

}  // namespace
}  // namespace kavo::util
