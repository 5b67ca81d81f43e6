#include "apps/kavo/page.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>

#include "apps/kavo/command.h"
#include "apps/kavo/page_template.h"
#include "apps/kavo/result_document.h"
#include "kavo/formats/result_json_internal.h"

namespace kavo::command {

namespace {

using Json = nlohmann::ordered_json;

struct Escape {
  std::string_view what;
  std::string_view by;
};

template <std::size_t kSize>
std::string Escaped(const std::string& text, const Escape (&escapes)[kSize]) {
  std::string escaped;
  escaped.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const Escape* found = nullptr;
    for (const Escape& escape : escapes) {
      if (text.compare(i, escape.what.size(), escape.what) == 0) {
        found = &escape;
      }
    }
    if (found != nullptr) {
      escaped += found->by;
      i += found->what.size();
    } else {
      escaped += text[i++];
    }
  }
  return escaped;
}

// Within a script element: `</script>` would end it wherever it stands. The separators end lines for scripts
// of old, though not for JSON.
std::string EscapedJson(const std::string& json) {
  constexpr Escape kEscapes[] = {{"<", "\\u003c"}, {"\xe2\x80\xa8", "\\u2028"}, {"\xe2\x80\xa9", "\\u2029"}};
  return Escaped(json, kEscapes);
}

std::string EscapedText(const std::string& text) {
  constexpr Escape kEscapes[] = {{"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}};
  return Escaped(text, kEscapes);
}

std::string Title(const Json& document) {
  const auto text = [&](const char* key) {
    const auto found = document.find(key);
    return found != document.end() && found->is_string() ? found->get<std::string>() : std::string("?");
  };
  return document["format"] == formats::kPlanFormat ? "Kavo plan: " + text("robot") + ", " + text("status")
                                                    : "Kavo benchmark: " + text("robot");
}

}  // namespace

void RequirePage(const std::string& option) {
  if (FindPageTemplate() == nullptr) {
    throw UnusableInput(option +
                        ": this kavo was built without the page that shows results. In the source tree: "
                        "scripts/setup --viewer, then configure and build again");
  }
}

std::string MakePage(const std::string& json, const std::string& name) {
  RequirePage(name);
  const Json document = ParseResult(json, name);
  const PageTemplate& page = *FindPageTemplate();
  std::string text(page.before_title);
  text += EscapedText(Title(document));
  text += page.before_document;
  text += EscapedJson(document.dump());
  text += page.after_document;
  return text;
}

}  // namespace kavo::command
