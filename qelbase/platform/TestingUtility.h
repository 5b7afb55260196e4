#pragma once
// Points the logging at a fresh folder for a test run.

#include <string>

#include "qelbase/export.h"

// The configuration of the logging is the process's: set up and end on one thread.
namespace TestingUtility {

// Below the default path, without a suffix.
QELBASE_API bool SetupLoggingForTesting();

// Ends an earlier set-up, and from now on gives all lines to the debugger's output and to log.txt
// in the folder BASE/2024-Mar-05 14_07_09_SUFFIX, which is made unless it is there; its name (with
// a slash behind the base) goes into `run_folder`. False if there is nothing under the name of the
// base folder: the debugger's output then stays attached, and `run_folder` is as it was. A run
// folder that cannot be made throws boost::filesystem::filesystem_error, a time that is no local
// time std::runtime_error.
QELBASE_API bool SetupLoggingForTesting(std::wstring& run_folder, const std::wstring& base_folder,
                                        const std::wstring& suffix);

// Takes all handlers off the logging, if there was a set-up.
QELBASE_API void EndLoggingForTesting();

[[nodiscard]] QELBASE_API std::wstring GetDefaultPathForTesting();  // Z:/RigProbeOut

}  // namespace TestingUtility
