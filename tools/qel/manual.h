#pragma once
// Documents made from the table of commands, so that they cannot fall behind it.

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

namespace qel::tool {

// The manual page "qel" or "qel-<subsystem>", for man(1); empty for another name.
std::string ManualPage(const CLI::App& app, std::string_view page);

// The completion of all commands and options, for the shell of that name.
std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);

}  // namespace qel::tool
