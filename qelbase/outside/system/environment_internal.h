#pragma once
// What the other rooms of the ground floor need of the environment.

#include <optional>
#include <string>

namespace qel::sys {

// The value as Windows text, or nothing for a missing variable.
[[nodiscard]] std::optional<std::wstring> EnvironmentValue(std::wstring_view name);

// The value as it stands; empty for a missing variable. Exact case.
[[nodiscard]] std::string NativeEnvironmentValue(const char* name);

// The native name of the user's home folder: HOME, or what the user database says, or "/".
[[nodiscard]] std::string HomeFolder();

// A base folder of the user (XDG base directories): the variable's value, or `usual` (which begins
// with a slash) below the home folder where it is not set to an absolute name.
[[nodiscard]] std::string BaseFolder(const char* variable, const char* usual);

// Sets TMP and TEMP where they are missing. Done once when the library is loaded.
void SupplyTemporaryFolder();

}  // namespace qel::sys
