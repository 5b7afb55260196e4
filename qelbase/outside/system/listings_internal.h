#pragma once
// Entries of folders with no more asked of the system than their kind.

#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/types.h"

namespace qel::sys {

struct Entry {
  std::wstring name;
  bool is_folder;  // or a link to one
  bool is_link;
};

// The entries that answer to `path` as in FindFirstFileW, in its order. 0 or the code, and then
// `entries` is empty.
[[nodiscard]] DWORD ListEntries(std::wstring_view path, std::vector<Entry>& entries);

// All entries of an open folder in that order, without `.` and `..`; is_folder is false for every
// link. Reads from the folder's beginning. 0 or errno.
[[nodiscard]] int ListOpenFolder(int folder, std::vector<Entry>& entries);

// Sorts by upper-cased name; names that are equal so, by code.
void SortEntries(std::vector<Entry>& entries);

}  // namespace qel::sys
