#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kavo/formats/file_error.h"
#include "tests/support/files.h"

namespace kavo::testing {

//! What a `FileError` that the call throws says; "no error" without one.
template <typename Call>
std::string FileErrorOf(Call&& call) {
  try {
    call();
  } catch (const formats::FileError& error) {
    return error.what();
  }
  return "no error";
}

//! Expects of each document of a table, tests/formats/data/faults/<table>.txt, the error that it stands
//! below.
//! \param parse `void(const std::string& document)`
template <typename Parse>
void ExpectFaults(const std::string& table, const Parse& parse) {
  const std::string mark = "\n### ";
  const std::string text = ReadFile(KAVO_SOURCE_DIR "/tests/formats/data/faults/" + table + ".txt") + mark;
  std::size_t begin = text.find(mark) + mark.size();
  ASSERT_LT(begin, text.size());
  while (begin < text.size()) {
    const std::size_t line_end = text.find('\n', begin);
    const std::size_t end = text.find(mark, line_end + 1);
    const std::string document = text.substr(line_end + 1, end - line_end - 1);
    EXPECT_EQ(FileErrorOf([&] { parse(document); }), text.substr(begin, line_end - begin)) << document;
    begin = end + mark.size();
  }
}

}  // namespace kavo::testing
