#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "kavo/util/fatal_error.h"
#include "tests/support/log_capture.h"

namespace kavo::testing {

//! Expects that the call ends in a fatal error with exactly these fields, and that the same report reached
//! the sink. Without a condition any will do: it restates the code.
template <typename Call>
void ExpectFatal(Call&& call, const std::optional<std::string>& condition, const std::string& file, int line,
                 const std::string& message) {
  const LogCapture log;
  try {
    call();
  } catch (const util::FatalError& error) {
    EXPECT_EQ(error.condition(), condition.value_or(error.condition()));
    EXPECT_EQ(error.file(), file);
    EXPECT_EQ(error.line(), line);
    EXPECT_EQ(error.message(), message);
    ASSERT_FALSE(log.records().empty());
    const util::LogRecord record = log.records().back();
    EXPECT_TRUE(record.fatal);
    EXPECT_EQ(record.condition, error.condition());
    EXPECT_EQ(record.line, line);
    EXPECT_EQ(record.message, message);
    return;
  }
  ADD_FAILURE() << "no fatal error; expected [" << condition.value_or("any") << "] at " << file << ":"
                << line;
}

}  // namespace kavo::testing
