#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kavo/formats/file_error.h"
#include "kavo/util/log.h"

namespace kavo::testing {

//! Hands the input to a reader as the text of a file. A `FileError` is a good answer; any other exception is
//! a finding, as is what the sanitizers stop. The library's log is silent meanwhile.
template <typename Reader>
int FuzzReader(const std::uint8_t* data, std::size_t size, Reader&& read) {
  util::SetLogSink([](const util::LogRecord&) {});
  try {
    // Byte by byte, because the types differ.
    read(std::string(data, data + size));
  } catch (const formats::FileError&) {
  }
  return 0;
}

//! Ends the program, and so makes a finding, unless the condition holds.
inline void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

}  // namespace kavo::testing

//! Called by libFuzzer with one input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
