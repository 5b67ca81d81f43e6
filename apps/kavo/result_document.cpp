#include "apps/kavo/result_document.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include "apps/kavo/command.h"
#include "kavo/formats/result_json_internal.h"

namespace kavo::command {

namespace {

using Json = nlohmann::ordered_json;

// Discarded for what is no JSON, and for what is nested deeper than any result: it would be taken apart by
// recursion.
Json Parse(const std::string& text) {
  constexpr int kMostDepth = 64;
  bool is_too_deep = false;
  const auto watch = [&](int depth, Json::parse_event_t, Json&) {
    is_too_deep = is_too_deep || depth > kMostDepth;
    return !is_too_deep;
  };
  Json document = Json::parse(text, watch, false);
  return is_too_deep ? Json(Json::value_t::discarded) : document;
}

}  // namespace

std::string ReadAll(const std::string& name) {
  std::ostringstream text;
  if (name == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  std::ifstream file(name, std::ios::binary);
  if (!(file && text << file.rdbuf())) {
    throw UnusableInput(name + ": cannot be read, or is empty");
  }
  return text.str();
}

nlohmann::ordered_json ParseResult(const std::string& text, const std::string& name) {
  Json document = Parse(text);
  const auto format = document.is_object() ? document.find("format") : document.end();
  if (document.is_discarded() || format == document.end() ||
      (*format != formats::kPlanFormat && *format != formats::kBenchFormat)) {
    throw UnusableInput(name + ": expected the JSON that 'kavo plan --json' or 'kavo bench --json' writes");
  }
  const auto version = document.find("format_version");
  if (version == document.end() || *version != formats::kFormatVersion) {
    throw UnusableInput(name + ": is in version " + (version == document.end() ? "?" : version->dump()) +
                        " of its format, this kavo shows version " + std::to_string(formats::kFormatVersion));
  }
  return document;
}

}  // namespace kavo::command
