#include "manual.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <vector>

namespace qel::tool {
namespace {

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option*) { return true; });
}

// roff takes a backslash, a hyphen and a dot or quote at a line's start for its own.
std::string Roff(std::string_view text) {
  std::string escaped;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) escaped += "\\&";
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      escaped += c;
    }
    line_start = c == '\n';
  }
  return escaped;
}

// Blank lines part paragraphs; indented lines are shown as they are.
std::string Paragraphs(const std::string& text) {
  std::string page;
  bool example = false;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    const bool indented = !line.empty() && line[0] == ' ';
    if (indented != example) page += indented ? ".PP\n.nf\n" : ".fi\n";
    example = indented;
    page += line.empty() ? ".PP\n" : Roff(line) + "\n";
    begin = end + 1;
  }
  return page + (example ? ".fi\n" : "");
}

// What the command adds to the text that it has from the one above it.
std::string OwnFooter(const CLI::App& command) {
  const CLI::App* above = command.get_parent();
  return above && above->get_footer() == command.get_footer() ? "" : command.get_footer();
}

std::string ValueOf(const CLI::Option& option) {
  return option.get_expected_min() == 0 ? "" : option.get_type_name();
}

// "FILE..." or "[INPUT]".
std::string PositionalText(const CLI::Option& option) {
  std::string text = option.get_name(true);
  if (option.get_expected_max() > 1) text += "...";
  return option.get_required() ? text : "[" + text + "]";
}

std::string Synopsis(const std::string& words, const CLI::App& command) {
  std::string line = ".B " + Roff(words) + "\n";
  std::string rest = "[\\fIoption\\fR]...";
  for (const CLI::Option* option : OptionsOf(command)) {
    if (option->get_positional()) rest += " \\fI" + Roff(PositionalText(*option)) + "\\fR";
  }
  return line + rest + "\n";
}

// "-h, --help".
std::string NamesOf(const CLI::Option& option) {
  std::string names = option.get_name(option.get_positional(), true);
  for (std::size_t comma = 0; (comma = names.find(',', comma)) != names.npos; ++comma) {
    names.insert(comma + 1, " ");
  }
  return names;
}

std::string OptionItem(const CLI::Option& option) {
  std::string item = ".TP\n\\fB" + Roff(NamesOf(option)) + "\\fR";
  if (!option.get_positional() && !ValueOf(option).empty()) {
    item += " \\fI" + Roff(ValueOf(option)) + "\\fR";
  }
  return item + "\n" + Roff(option.get_description()) + "\n";
}

std::string OptionItems(const CLI::App& command) {
  std::string items;
  for (const CLI::Option* option : OptionsOf(command)) items += OptionItem(*option);
  return items;
}

std::string CommandText(const std::string& words, const CLI::App& command) {
  return ".SS " + Roff(words) + "\n" + Synopsis(words, command) + ".PP\n" +
         Roff(command.get_description()) + ".\n" + Paragraphs(OwnFooter(command)) +
         OptionItems(command);
}

std::string Header(const std::string& page, const std::string& summary) {
  std::string title = page;
  std::transform(title.begin(), title.end(), title.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return ".TH " + Roff(title) + " 1 \"\" \"QelBase " QEL_VERSION "\"\n.SH NAME\n" + Roff(page) +
         " \\- " + Roff(summary) + "\n";
}

std::string SubsystemPage(const CLI::App& app, const CLI::App& subsystem) {
  const std::string words = "qel " + subsystem.get_name();
  std::string page = Header("qel-" + subsystem.get_name(), subsystem.get_description());
  page += ".SH SYNOPSIS\n";
  const auto commands = CommandsOf(subsystem);
  for (const CLI::App* command : commands) {
    if (command != commands.front()) page += ".br\n";
    page += Synopsis(words + " " + command->get_name(), *command);
  }
  if (commands.empty()) page += Synopsis(words, subsystem);
  page += ".SH DESCRIPTION\n" + Paragraphs(OwnFooter(subsystem));
  page += commands.empty() ? ".SH OPTIONS\n" + OptionItems(subsystem) : ".SH COMMANDS\n";
  for (const CLI::App* command : commands) page += CommandText(command->get_name(), *command);
  return page + ".SH EXIT STATUS\n" + Paragraphs(app.get_footer()) + ".SH SEE ALSO\n.BR qel (1)\n";
}

std::string MainPage(const CLI::App& app) {
  std::string page = Header("qel", app.get_description());
  page +=
      ".SH SYNOPSIS\n.B qel\n\\fIsubsystem\\fR \\fIcommand\\fR [\\fIoption\\fR]... "
      "[\\fIfile\\fR]...\n";
  page += ".SH SUBSYSTEMS\n";
  std::string others;
  for (const CLI::App* subsystem : CommandsOf(app)) {
    page += ".TP\n\\fB" + Roff(subsystem->get_name()) + "\\fR\n" +
            Roff(subsystem->get_description()) + "\n";
    others += ".BR qel\\-" + Roff(subsystem->get_name()) + " (1)\n";
  }
  return page + ".SH OPTIONS\n" + OptionItems(app) + ".SH EXIT STATUS\n" +
         Paragraphs(app.get_footer()) + ".SH SEE ALSO\n" + others;
}

// `"tag ls"*) choices="--json --hex" files=yes ;;` for each command; the longer ones first.
void AddCompletionCases(const CLI::App& app, const std::string& words, std::string& cases) {
  std::string choices;
  for (const CLI::App* command : CommandsOf(app)) {
    choices += command->get_name() + " ";
    AddCompletionCases(*command, words + (words.empty() ? "" : " ") + command->get_name(), cases);
  }
  const bool takes_files = choices.empty();
  for (const CLI::Option* option : OptionsOf(app)) {
    for (const std::string& name : option->get_snames()) choices += "-" + name + " ";
    for (const std::string& name : option->get_lnames()) choices += "--" + name + " ";
  }
  cases += "    \"" + words + (takes_files ? "\"*" : "\"") + ") choices=\"" + choices + "\"" +
           (takes_files ? " files=yes" : "") + " ;;\n";
}

std::string CompletionCases(const CLI::App& app) {
  std::string cases;
  AddCompletionCases(app, "", cases);
  return "  case $command in\n" + cases + "  esac\n";
}

}  // namespace

std::string ManualPage(const CLI::App& app, std::string_view page) {
  if (page == "qel") return MainPage(app);
  for (const CLI::App* subsystem : CommandsOf(app)) {
    if (page == "qel-" + subsystem->get_name()) return SubsystemPage(app, *subsystem);
  }
  return {};
}

std::string BashCompletion(const CLI::App& app) {
  return R"(# bash completion of qel
_qel() {
  local current=${COMP_WORDS[COMP_CWORD]} command= choices= files= i
  for ((i = 1; i < COMP_CWORD && i < 3; i++)); do
    [[ ${COMP_WORDS[i]} == -* ]] || command+="${command:+ }${COMP_WORDS[i]}"
  done
)" + CompletionCases(app) +
         R"(  if [[ $files && $current != -* ]]; then
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
  fi
}
complete -F _qel qel
)";
}

std::string ZshCompletion(const CLI::App& app) {
  return R"(#compdef qel
_qel() {
  local current=$PREFIX command= choices= files= i
  for ((i = 2; i < CURRENT && i < 4; i++)); do
    [[ ${words[i]} == -* ]] || command+="${command:+ }${words[i]}"
  done
)" + CompletionCases(app) +
         R"(  if [[ -n $files && $current != -* ]]; then
    _files
  else
    compadd -- ${=choices}
  fi
}
_qel "$@"
)";
}

}  // namespace qel::tool
