#pragma once

#include <string_view>

namespace kavo::command {

//! The page that shows a plan or a benchmark in a browser, in three pieces of UTF-8.
//!
//! A page is `before_title + title + before_document + document + after_document`. The title is text of HTML,
//! so `&` and `<` are written `&amp;` and `&lt;`. The document is JSON inside a `<script>`, so it must not
//! contain `<`: write `\u003c`.
struct PageTemplate {
  std::string_view before_title;
  std::string_view before_document;
  std::string_view after_document;
};

//! The page, or null where the command was built without it: see `scripts/setup --viewer`. It lives as long
//! as the program.
const PageTemplate* FindPageTemplate();

}  // namespace kavo::command
