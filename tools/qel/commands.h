#pragma once
// The one table of the program: a sub-command a subsystem.

#include <CLI/CLI.hpp>
#include <vector>

#include "session.h"

namespace qel::tool {

struct Subsystem {
  const char* name;     // "tag"
  const char* summary;  // one line
  // Adds the commands of the subsystem, with their callbacks, to its sub-command. The session
  // outlives the app.
  void (*add)(CLI::App& app, Session& session);
};

// A subsystem joins the program by one static object of this kind in its own source file.
class Registration {
 public:
  explicit Registration(const Subsystem& subsystem);
};

// All that have joined, by name.
const std::vector<Subsystem>& Subsystems();

// Runs the command line in this process and gives its exit code.
int RunTool(int argc, const char* const* argv);

}  // namespace qel::tool
