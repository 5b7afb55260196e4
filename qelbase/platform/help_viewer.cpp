// Finds and loads the viewer of help files.

#include <array>
#include <string>

#include "qelbase/outside/system/environment.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/registry_key_internal.h"
#include "qelbase/platform/help_viewer_internal.h"

namespace qel::platform {

namespace {

using namespace qel::sys;

using Viewer = HWND (*)(HWND owner, const wchar_t* path, UINT command, std::uint64_t data);

constexpr const char* kServerKey = "CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32";
constexpr const char* kUsualName = "hhctrl.ocx";
constexpr std::uintptr_t kEntry = 15;
constexpr std::size_t kLongestPath = 260;

// The loaded module and its entry. A failure is for good.
HMODULE module = nullptr;
Viewer viewer = nullptr;
bool has_failed = false;

std::string expanded(const char* path) {
  std::array<char, kLongestPath> buffer{};
  const DWORD size =
      ExpandEnvironmentStringsA(path, buffer.data(), static_cast<DWORD>(buffer.size()));
  return size <= buffer.size() ? buffer.data() : "";
}

// What the registry names; empty if it names none.
std::string serverPath() {
  RegistryKey key;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, kServerKey, 0, KEY_READ, key.out()) != 0) return {};
  std::array<char, kLongestPath> buffer{};
  DWORD size = static_cast<DWORD>(buffer.size());
  DWORD type = REG_NONE;
  const LSTATUS code = RegQueryValueExA(key.get(), "", nullptr, &type, buffer.data(), &size);
  buffer.back() = '\0';
  if (code != 0) return {};
  return type == REG_EXPAND_SZ ? expanded(buffer.data()) : std::string(buffer.data());
}

HMODULE loadViewer() {
  const std::string path = serverPath();
  HMODULE loaded = path.empty() ? nullptr : LoadLibraryExA(path.c_str(), nullptr, 0);
  return loaded ? loaded : LoadLibraryExA(kUsualName, nullptr, 0);
}

Viewer findEntry() {
  const FARPROC entry = GetProcAddress(module, reinterpret_cast<const char*>(kEntry));
  return reinterpret_cast<Viewer>(entry);
}

}  // namespace

std::uint64_t CallHelpViewer(const wchar_t* path, UINT command, std::uint64_t data) {
  if (has_failed) return 0;
  const LastErrorKeeper keeper;
  if (!module) module = loadViewer();
  if (module && !viewer) viewer = findEntry();
  has_failed = !viewer;
  return viewer ? reinterpret_cast<std::uint64_t>(viewer(nullptr, path, command, data)) : 0;
}

}  // namespace qel::platform
