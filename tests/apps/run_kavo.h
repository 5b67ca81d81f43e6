#pragma once

#include <string>
#include <vector>

#include "tests/support/files.h"

namespace kavo::testing {

//! What a run of the command left behind.
struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

//! Runs the built command as a process of its own.
//! \param input What it reads on standard input.
//! \param signal With one ("INT"), it is sent after so many seconds.
Outcome RunKavo(const std::vector<std::string>& arguments, const std::string& input = {},
                const std::string& signal = {}, int seconds = 1);

}  // namespace kavo::testing
