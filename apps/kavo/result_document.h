#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kavo::command {

//! All of a file; "-" is standard input. Throws `UnusableInput`.
std::string ReadAll(const std::string& name);

//! What 'kavo plan' and 'kavo bench' write, from its text.
//! \param name Of the file it comes from, for errors: `UnusableInput` for what is no such result, and for one
//!     in a form that this version does not know.
nlohmann::ordered_json ParseResult(const std::string& text, const std::string& name);

}  // namespace kavo::command
