#include "apps/kavo/help.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <sstream>

#include "apps/kavo/text.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

constexpr std::size_t kWidth = 100;
constexpr std::size_t kColumn = 28;

std::string Wrapped(const std::string& text, std::size_t width) {
  std::string wrapped;
  std::size_t length = 0;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (length > 0) {
      const bool fits = length + 1 + word.size() <= width;
      wrapped += fits ? ' ' : '\n';
      length = fits ? length + 1 : 0;
    }
    wrapped += word;
    length += word.size();
  }
  return wrapped;
}

class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(kColumn); }

  std::string make_option_opts(const CLI::Option* option) const override {
    const std::string value = ValueName(*option);
    return value.empty() ? "" : " " + value;
  }

  std::string make_option_desc(const CLI::Option* option) const override {
    std::string text = option->get_description();
    if (option->get_required()) {
      text += " (required)";
    } else if (!option->get_default_str().empty()) {
      text += " (default: " + option->get_default_str() + ")";
    }
    return Wrapped(text, kWidth - kColumn);
  }

  std::string make_description(const CLI::App* app) const override {
    return Wrapped(app->get_description(), kWidth) + ".\n";
  }
};

}  // namespace

std::string ValueName(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) {
    return {};
  }
  // What follows are the names of validators.
  std::string name = option.get_type_name();
  name = name.substr(0, name.find(':'));
  return name.substr(0, name.find(" in ["));
}

std::string CheckPositive(const std::string& text) {
  return util::ParseNumber(text).value_or(0.0) > 0.0 ? "" : text + " is not a positive number";
}

std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter() { return std::make_shared<HelpFormatter>(); }

}  // namespace kavo::command
