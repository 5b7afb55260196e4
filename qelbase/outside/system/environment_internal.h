#pragma once
// What the other rooms of the ground floor need of the environment.

#include <optional>
#include <string>

namespace qel::sys {

// The value as Windows text, or nothing for a missing variable.
[[nodiscard]] std::optional<std::wstring> EnvironmentValue(std::wstring_view name);

// The value as it stands; empty for a missing variable. Exact case.
[[nodiscard]] std::string NativeEnvironmentValue(const char* name);

// Sets TMP and TEMP where they are missing. Done once when the library is loaded.
void SupplyTemporaryFolder();

}  // namespace qel::sys
