#pragma once

#include <string>

namespace kavo::command {

//! Ends in `UnusableInput` where this command was built without the page. To be asked before the work.
//! \param option That asks for a page.
void RequirePage(const std::string& option);

//! One HTML file, with nothing beside it, that shows a result in a browser. Whatever texts the result holds
//! are data in it, never markup.
//! \param json The result, as `kavo plan` and `kavo bench` write it.
//! \param name Of the file it comes from, for the errors of `ParseResult`.
std::string MakePage(const std::string& json, const std::string& name);

}  // namespace kavo::command
