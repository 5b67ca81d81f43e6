#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class FormatterBase;
class Option;
}  // namespace CLI

namespace kavo::command {

//! What stands for the value of an option in its help, such as "FILE"; empty for a flag.
std::string ValueName(const CLI::Option& option);

//! What an option does, with what it is unless given, or that it has to be given.
std::string Description(const CLI::Option& option);

//! The names of an option as they are typed, "-q", "--quiet".
std::vector<std::string> Names(const CLI::Option& option);

//! Looks at a command line before it is parsed: a text that names the first word that is no command or no
//! option of it, with the nearest that is; empty without one.
std::string FindMisspelling(const CLI::App& app, int argc, const char* const* argv);

//! What `CLI::Option::check` takes: an empty text for a number that is positive and finite, else a complaint.
std::string CheckPositive(const std::string& text);

//! Lays out the help of a command: lines of no more than 100 characters.
std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter();

}  // namespace kavo::command
