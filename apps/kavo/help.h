#pragma once

#include <memory>
#include <string>

namespace CLI {
class FormatterBase;
class Option;
}  // namespace CLI

namespace kavo::command {

//! What stands for the value of an option in its help, such as "FILE"; empty for a flag.
std::string ValueName(const CLI::Option& option);

//! What `CLI::Option::check` takes: an empty text for a number that is positive and finite, else a complaint.
std::string CheckPositive(const std::string& text);

//! Lays out the help of a command: lines of no more than 100 characters.
std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter();

}  // namespace kavo::command
