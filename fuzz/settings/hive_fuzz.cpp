// Restores from arbitrary bytes as a hive file: a code or a tree that can be walked, and what was
// there before stays whole when it fails.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/registry_internal.h"

using namespace qel::sys;

namespace {

// What the tree holds; bounded, as each key is visited once.
std::size_t walk(HKEY key) {
  std::size_t count = 1;
  wchar_t name[256];
  for (DWORD i = 0; RegEnumKeyW(key, i, name, 256) == 0 && count < 1000; ++i) {
    HKEY child = nullptr;
    if (RegOpenKeyW(key, name, &child) != 0 || child == key) continue;
    count += walk(child);
    RegCloseKey(child);
  }
  std::vector<wchar_t> value(16384);
  DWORD size = 16384, type = 0, bytes = 0;
  for (DWORD i = 0; i < 1000; ++i, size = 16384) {
    if (RegEnumValueW(key, i, value.data(), &size, nullptr, &type, nullptr, &bytes) != 0) break;
  }
  return count;
}

const std::filesystem::path& folder() {
  static const std::filesystem::path kept = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "qelfuzz.XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    registry::UseRegistryFolder(pattern);
    std::atexit([] { std::filesystem::remove_all(folder()); });
    return std::filesystem::path(pattern);
  }();
  return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::filesystem::path file = folder() / "fuzzed";
  std::ofstream(file, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  HKEY key = nullptr;
  if (RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\Fuzz", &key) != 0) std::abort();
  if (RegSetValueExW(key, L"before", 0, REG_DWORD, "1234", 4) != 0) std::abort();
  const LSTATUS code = RegRestoreKeyW(key, FromNative(file.string()).c_str(), REG_FORCE_RESTORE);
  if (code == 0) {
    walk(key);
  } else if (RegQueryValueExW(key, L"before", nullptr, nullptr, nullptr, nullptr) != 0) {
    std::abort();
  }
  RegCloseKey(key);
  return 0;
}
