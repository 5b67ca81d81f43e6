#pragma once

#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

// Both follow from the definition of the command line: nothing has to be kept in step by hand.

//! The manual page, in the form that `man` reads.
std::string ManPage(const CLI::App& app);

//! The completion script for bash.
std::string BashCompletion(const CLI::App& app);

}  // namespace kavo::command
