#pragma once

#include <string>

// Uses something of each room as an application does, with files in `folder` and the registry of
// the environment. Gives what did not work, a word each; empty if all did.
std::string UseLibrary(const std::string& folder);
