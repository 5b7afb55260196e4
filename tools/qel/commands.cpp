#include "commands.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <string_view>

#include "manual.h"

namespace qel::tool {
namespace {

std::vector<Subsystem>& Table() {
  static std::vector<Subsystem> table;
  return table;
}

constexpr const char* kExitCodes =
    "Exit status: 0 all is sound, 1 something was found, 2 wrong use or a file that cannot be read "
    "or written.";

void AddSubsystems(CLI::App& app, Session& session) {
  app.require_subcommand(1);
  app.set_version_flag("--version", QEL_VERSION);
  app.footer(kExitCodes);
  for (const Subsystem& subsystem : Subsystems()) {
    CLI::App* command = app.add_subcommand(subsystem.name, subsystem.summary);
    command->require_subcommand(1);
    subsystem.add(*command, session);
  }
}

// The documents that the build makes from the tables; they are no commands for users.
bool Generate(const CLI::App& app, const std::vector<std::string_view>& words, Session& session) {
  if (words.size() == 2 && words[0] == "--generate-man") {
    session.Print(ManualPage(app, words[1]));
    return true;
  }
  if (words.size() == 2 && words[0] == "--generate-completion") {
    session.Print(words[1] == "zsh" ? ZshCompletion(app) : BashCompletion(app));
    return true;
  }
  return false;
}

void ParseAndRun(CLI::App& app, int argc, const char* const* argv, Session& session) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version are no errors to CLI11; everything else is wrong use.
    if (app.exit(error, std::cout, std::cerr) != 0) session.Raise(kTrouble);
    std::cout.flush();
  } catch (const Trouble& trouble) {
    session.Complain(trouble);
  } catch (const std::exception& error) {
    session.Complain(Trouble("internal", error.what()));
  }
}

}  // namespace

Registration::Registration(const Subsystem& subsystem) {
  const auto later = std::find_if(Table().begin(), Table().end(), [&](const Subsystem& other) {
    return std::string_view(subsystem.name) < other.name;
  });
  Table().insert(later, subsystem);
}

const std::vector<Subsystem>& Subsystems() {
  return Table();
}

int RunTool(int argc, const char* const* argv) {
  Session session("qel");
  CLI::App app("Look at and change what the library keeps on the disk", "qel");
  AddSubsystems(app, session);
  if (!Generate(app, {argv + std::min(argc, 1), argv + argc}, session)) {
    ParseAndRun(app, argc, argv, session);
  }
  session.Finish();
  return session.exit_code();
}

}  // namespace qel::tool
