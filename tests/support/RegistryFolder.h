#pragma once
// A registry of its own for a test, never the real one.

#include <string>

#include "qelbase/outside/system/registry_internal.h"

#include "tests/support/TempFolder.h"

namespace qeltest {

class RegistryFolder {
 public:
  explicit RegistryFolder(
      const std::filesystem::path& above = std::filesystem::temp_directory_path())
      : m_folder(above) {
    reopen();
  }
  ~RegistryFolder() { close(); }

  // As another process finds it: every connection is made anew, handles are gone.
  void reopen() const { qel::sys::registry::UseRegistryFolder(m_folder.path().string()); }
  void close() const { qel::sys::registry::UseRegistryFolder("/nowhere/qeltest"); }
  const TempFolder& folder() const { return m_folder; }
  std::filesystem::path file(std::string_view name) const { return m_folder / name; }

 private:
  TempFolder m_folder;
};

}  // namespace qeltest
