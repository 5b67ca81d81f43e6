# Makes a source of tests from the examples in headers, which stand between `//! @code` and `//! @endcode`. In them
# `assert` is a check of the test.
#
# Called with SOURCE_DIR, the root of the repository, HEADERS, a list, and OUTPUT, the source to write.
cmake_minimum_required(VERSION 3.25)

set(begin_mark "//! @code\n")
set(end_mark "//! @endcode\n")

function(count_lines text result)
  string(REGEX REPLACE "[^\n]" "" ends "${text}")
  string(LENGTH "${ends}" count)
  set(${result} ${count} PARENT_SCOPE)
endfunction()

set(includes "")
set(tests "")
foreach(header IN LISTS HEADERS)
  file(READ "${header}" text)
  file(RELATIVE_PATH name "${SOURCE_DIR}" "${header}")
  string(MAKE_C_IDENTIFIER "${name}" test)
  string(APPEND includes "#include \"${name}\"\n")
  string(LENGTH "${begin_mark}" mark_length)
  # What is left of the file, and the line that it begins in.
  set(line 1)
  while(TRUE)
    string(FIND "${text}" "${begin_mark}" begin)
    if(begin EQUAL -1)
      break()
    endif()
    math(EXPR begin "${begin} + ${mark_length}")
    string(SUBSTRING "${text}" 0 ${begin} before)
    string(SUBSTRING "${text}" ${begin} -1 text)
    string(FIND "${text}" "${end_mark}" end)
    if(end EQUAL -1)
      message(FATAL_ERROR "${name}: an example does not end")
    endif()
    string(SUBSTRING "${text}" 0 ${end} code)
    string(SUBSTRING "${text}" ${end} -1 text)
    string(REGEX REPLACE "(^|\n) *//! ?" "\\1" code "${code}")
    count_lines("${before}" num_lines)
    math(EXPR line "${line} + ${num_lines}")
    string(APPEND tests "TEST(HeaderExamples, ${test}_${line}) {\n#line ${line} \"${name}\"\n${code}}\n\n")
    count_lines("${code}" num_lines)
    math(EXPR line "${line} + ${num_lines}")
  endwhile()
endforeach()
if(tests STREQUAL "")
  message(FATAL_ERROR "Found no examples")
endif()
file(
  WRITE "${OUTPUT}"
  "#include <gtest/gtest.h>

#include <cassert>
#include <iostream>

${includes}
#undef assert
#define assert(condition) ASSERT_TRUE(condition)

${tests}")
