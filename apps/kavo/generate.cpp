#include "apps/kavo/generate.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "apps/kavo/help.h"
#include "apps/kavo/text.h"

namespace kavo::command {

namespace {

std::vector<const CLI::App*> Subcommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// Those that are meant to be seen.
std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

// Text for a manual page: a hyphen stays a hyphen, and no line begins a request.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '-' || c == '\\') {
      escaped += '\\';
    }
    const bool begins_line = escaped.empty() || escaped.back() == '\n';
    escaped += begins_line && (c == '.' || c == '\'') ? "\\&" : "";
    escaped += c == '\\' ? 'e' : c;
  }
  return escaped;
}

std::string ManOptions(const CLI::App& app) {
  std::string text;
  for (const CLI::Option* option : Options(app)) {
    text += ".TP\n.B " + Escaped(Join(Names(*option), ", ")) +
            (ValueName(*option).empty() ? "" : " " + Escaped(ValueName(*option))) + "\n" +
            Escaped(Description(*option)) + "\n";
  }
  return text;
}

}  // namespace

std::string ManPage(const CLI::App& app) {
  std::string text = ".TH KAVO 1 \"\" \"" + app.version() +
                     "\"\n.SH NAME\nkavo \\- plans motions of robot arms\n" + ".SH SYNOPSIS\n";
  for (const CLI::App* command : Subcommands(app)) {
    text += ".B kavo " + command->get_name() + "\n.RI [ options ]\n.br\n";
  }
  text += ".SH DESCRIPTION\n" + Escaped(app.get_description()) + ".\n.PP\n.nf\n" + Escaped(app.get_footer()) +
          "\n.fi\n" + ManOptions(app);
  for (const CLI::App* command : Subcommands(app)) {
    text += ".SH \"kavo " + command->get_name() + "\"\n" + Escaped(command->get_description()) + ".\n" +
            ManOptions(*command) + ".PP\n.nf\n" + Escaped(command->get_footer()) + "\n.fi\n";
  }
  return text;
}

std::string BashCompletion(const CLI::App& app) {
  std::vector<std::string> names;
  std::string cases;
  const auto add = [&](const std::string& pattern, const CLI::App& command) {
    std::vector<std::string> options;
    for (const CLI::Option* option : Options(command)) {
      for (const std::string& name : Names(*option)) {
        options.push_back(name);
      }
    }
    cases += "    " + pattern + ") words=\"" + Join(options, " ") + "\" ;;\n";
  };
  for (const CLI::App* command : Subcommands(app)) {
    names.push_back(command->get_name());
    add(command->get_name(), *command);
  }
  std::vector<std::string> top = names;
  for (const CLI::Option* option : Options(app)) {
    for (const std::string& name : Names(*option)) {
      top.push_back(name);
    }
  }
  // Words go into the array line by line: names of files may have blanks.
  return "# Completion of the command kavo for bash.\n"
         "_kavo() {\n"
         "  local word=\"${COMP_WORDS[COMP_CWORD]}\" before=\"${COMP_WORDS[COMP_CWORD-1]}\" words=\"\"\n"
         "  COMPREPLY=()\n"
         "  if ((COMP_CWORD == 1)); then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"" +
         Join(top, " ") +
         "\" -- \"$word\")\n"
         "    return\n"
         "  fi\n"
         "  case \"${COMP_WORDS[1]}\" in\n" +
         cases +
         "  esac\n"
         "  if [[ \"$word\" == -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
         "    return\n"
         "  fi\n"
         "  if [[ \"$before\" == --robot || \"$before\" == -r ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"franka three_link\" -- \"$word\")\n"
         "  elif [[ \"$before\" == help ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"" +
         Join(names, " ") +
         "\" -- \"$word\")\n"
         "    return\n"
         "  fi\n"
         "  mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- \"$word\")\n"
         "}\n"
         "complete -o filenames -F _kavo kavo\n";
}

}  // namespace kavo::command
