#include "kavo/util/log_message.h"

#include <gmock/gmock.h>

#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/log_capture.h"

namespace kavo::util {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr LogLevel kLevels[] = {LogLevel::kCritical, LogLevel::kError, LogLevel::kWarning, LogLevel::kInfo};

TEST(LogMessage, EachLevelAppearsFromItsThresholdOn) {
  for (int threshold = -1; threshold <= 4; ++threshold) {
    const kavo::testing::LogCapture log(threshold);
    std::vector<std::string> expected;
    for (const LogLevel level : kLevels) {
      const int number = static_cast<int>(level);
      KAVO_LOG(level) << "level " << number;
      if (number <= threshold) {
        expected.push_back("level " + std::to_string(number));
      }
    }
    std::vector<std::string> messages;
    for (const LogRecord& record : log.records()) {
      EXPECT_FALSE(record.fatal);
      EXPECT_EQ(record.condition + record.file, "");
      messages.push_back(record.message);
    }
    EXPECT_EQ(messages, expected) << "threshold " << threshold;
  }
}

TEST(LogMessage, TextThatIsNotWantedIsNotFormatted) {
  const kavo::testing::LogCapture log(static_cast<int>(LogLevel::kWarning));
  int formatted = 0;
  const auto format = [&formatted] { return ++formatted; };
  KAVO_LOG(LogLevel::kInfo) << format();
  KAVO_CHECK(true, "a/b", 1) << format();
  EXPECT_EQ(formatted, 0);
  KAVO_LOG(LogLevel::kWarning) << format();
  EXPECT_EQ(formatted, 1);
}

TEST(LogMessage, MacrosAreOneStatement) {
  const kavo::testing::LogCapture log;
  const std::vector<bool> choices = {true, false};
  for (const bool choice : choices) {
    if (choice)
      KAVO_LOG(LogLevel::kWarning) << "yes";
    else
      KAVO_LOG(LogLevel::kWarning) << "no";
  }
  EXPECT_THAT(log.warnings(), ElementsAre("yes", "no"));
}

TEST(LogMessage, BrokenPreconditionThrowsWhatWasLogged) {
  // Fatal reports are never silenced.
  const kavo::testing::LogCapture log(-1);
  const int size = 3;
  try {
    KAVO_CHECK(size < 2 && size != 7, "room/folder/file", 42) << "size is " << size << ", at most " << 1.5;
    FAIL() << "no exception";
  } catch (const FatalError& error) {
    EXPECT_EQ(error.condition(), "size < 2 && size != 7");
    EXPECT_EQ(error.file(), "room/folder/file");
    EXPECT_EQ(error.line(), 42);
    EXPECT_EQ(error.message(), "size is 3, at most 1.5");
    EXPECT_STREQ(error.what(),
                 "kavo: fatal: size is 3, at most 1.5 [size < 2 && size != 7] at room/folder/file:42");
  }
  const std::vector<LogRecord> records = log.records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_TRUE(records[0].fatal);
  EXPECT_EQ(records[0].level, LogLevel::kCritical);
  EXPECT_EQ(records[0].condition, "size < 2 && size != 7");
  EXPECT_EQ(records[0].file, "room/folder/file");
  EXPECT_EQ(records[0].line, 42);
  EXPECT_EQ(records[0].message, "size is 3, at most 1.5");
}

TEST(LogMessage, CheckWithoutTextThrowsToo) {
  const kavo::testing::LogCapture log;
  EXPECT_THROW(KAVO_CHECK(false, "a/b", 1), std::logic_error);
  EXPECT_EQ(log.records().at(0).message, "");
}

TEST(LogMessage, ErrorOutlivesItsCopies) {
  const kavo::testing::LogCapture log;
  std::exception_ptr thrown;
  try {
    KAVO_CHECK(false, "a/b", 7) << "text";
  } catch (const FatalError& error) {
    thrown = std::make_exception_ptr(error);
  }
  try {
    std::rethrow_exception(thrown);
  } catch (const FatalError& error) {
    EXPECT_EQ(error.message(), "text");
    EXPECT_STREQ(error.what(), "kavo: fatal: text [false] at a/b:7");
  }
}

TEST(LogMessage, StreamWithoutStringBufferGivesAnEmptyText) {
  const kavo::testing::LogCapture log;
  const std::ofstream file;
  LogMessage(LogLevel::kWarning) & file;
  EXPECT_THAT(log.warnings(), ElementsAre(""));
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
