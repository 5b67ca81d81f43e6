#include "apps/kavo/help.h"

#include <CLI/CLI.hpp>
#include <algorithm>
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

  std::string make_option_name(const CLI::Option* option, bool is_positional) const override {
    return is_positional ? option->get_name(true) : Join(Names(*option), ",");
  }

  std::string make_option_desc(const CLI::Option* option) const override {
    return Wrapped(Description(*option), kWidth - kColumn);
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

std::string Description(const CLI::Option& option) {
  std::string text = option.get_description();
  if (option.get_required()) {
    text += " (required)";
  } else if (!option.get_default_str().empty()) {
    text += " (default: " + option.get_default_str() + ")";
  }
  return text;
}

std::vector<std::string> Names(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  for (const std::string& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

std::string FindMisspelling(const CLI::App& app, int argc, const char* const* argv) {
  if (argc < 2 || argv[1][0] == '-') {
    return {};
  }
  std::vector<std::string> commands;
  const CLI::App* command = nullptr;
  for (const CLI::App* known : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands.push_back(known->get_name());
    command = known->get_name() == argv[1] ? known : command;
  }
  if (command == nullptr) {
    return "there is no command '" + Printable(argv[1]) + "'" + Suggestion(argv[1], commands);
  }
  std::vector<std::string> options;
  for (const CLI::Option* option : command->get_options()) {
    const std::vector<std::string> names = Names(*option);
    options.insert(options.end(), names.begin(), names.end());
  }
  for (int i = 2; i < argc; ++i) {
    const std::string word(argv[i]);
    const std::string name = word.substr(0, word.find('='));
    if (word == "--") {
      break;
    }
    if (word.rfind("--", 0) == 0 && std::find(options.begin(), options.end(), name) == options.end()) {
      return "'kavo " + command->get_name() + "' has no option '" + Printable(name) + "'" +
             Suggestion(name, options);
    }
  }
  return {};
}

std::string CheckPositive(const std::string& text) {
  return util::ParseNumber(text).value_or(0.0) > 0.0 ? "" : text + " is not a positive number";
}

std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter() { return std::make_shared<HelpFormatter>(); }

}  // namespace kavo::command
