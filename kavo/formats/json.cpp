#include <algorithm>

#include "kavo/formats/json_internal.h"

namespace kavo::formats {

namespace {

using Json = nlohmann::ordered_json;

std::string Dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

void Print(const Json& value, const std::string& indent, std::string* text) {
  const bool is_flat =
      std::all_of(value.begin(), value.end(), [](const Json& element) { return element.is_primitive(); });
  if (!value.is_structured() || value.empty() || (value.is_array() && is_flat)) {
    *text += Dump(value);
    return;
  }
  const std::string inner = indent + "  ";
  char separator = value.is_array() ? '[' : '{';
  for (const auto& [key, element] : value.items()) {
    *text += separator + ("\n" + inner);
    if (value.is_object()) {
      *text += Dump(key) + ": ";
    }
    Print(element, inner, text);
    separator = ',';
  }
  *text += "\n" + indent + (value.is_array() ? ']' : '}');
}

}  // namespace

std::string JsonText(const Json& value) {
  std::string text;
  Print(value, "", &text);
  return text + "\n";
}

std::string JsonString(const std::string& text) { return Dump(text); }

}  // namespace kavo::formats
