#include "qelbase/outside/system/environment.h"

#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

std::mutex& environmentLock() {
  static std::mutex lock;
  return lock;
}

bool holdsPath(const std::string& name) {
  return name == "TMP" || name == "TEMP";
}

// The name under which the variable stands: `wanted` if there is one of that very name or none at
// all, else the first that differs in case only.
std::string storedName(std::string wanted) {
  if (std::getenv(wanted.c_str())) return wanted;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text(*entry);
    std::string name(text.substr(0, text.find('=')));
    if (strcasecmp(name.c_str(), wanted.c_str()) == 0) return name;
  }
  return wanted;
}

std::wstring toText(const std::string& name, const std::string& value) {
  return holdsPath(name) ? FromNative(value) : WideText(value);
}

// A closing separator of a path stays: who puts an old value back compares it.
bool toValue(const std::string& name, std::wstring_view text, std::string& value) {
  if (!holdsPath(name)) {
    value = NativeText(text);
    return true;
  }
  if (!ToNative(text, value)) return false;
  if (IsSeparator(text.back()) && !value.ends_with('/')) value += '/';
  return true;
}

int put(const char* name, const std::optional<std::string>& value) {
  return value ? setenv(name, value->c_str(), 1) : unsetenv(name);
}

std::optional<std::string> currentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::optional<std::string>(value) : std::nullopt;
}

// TMP and TMPDIR as they were before the library first changed TMP.
struct Before {
  std::optional<std::string> tmp;
  std::optional<std::string> tmpdir;
};
std::optional<Before> before_first_change;

std::string withoutClosingSlash(std::string path) {
  if (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

bool isPutBack(const std::optional<std::string>& tmp) {
  const std::optional<std::string>& old = before_first_change->tmp;
  if (!tmp || !old) return tmp.has_value() == old.has_value();
  return withoutClosingSlash(*tmp) == withoutClosingSlash(*old);
}

// TMPDIR goes along with TMP, and comes back as it was with TMP's first value.
int putTemporaryFolder(const std::optional<std::string>& value) {
  if (!before_first_change) before_first_change = {currentValue("TMP"), currentValue("TMPDIR")};
  const bool is_put_back = isPutBack(value);
  if (put("TMPDIR", is_put_back ? before_first_change->tmpdir : value) != 0) return -1;
  if (is_put_back) before_first_change.reset();
  return put("TMP", value);
}

int assign(const std::string& name, const std::string& text) {
  std::optional<std::string> value;
  if (!text.empty()) value = text;
  return name == "TMP" ? putTemporaryFolder(value) : put(name.c_str(), value);
}

bool isFolder(const std::string& native) {
  struct stat status {};
  return native.starts_with('/') && Calls().stat(native.c_str(), &status) == 0 &&
         S_ISDIR(status.st_mode);
}

std::string defaultTemporaryFolder(const char* other) {
  std::string folder = NativeEnvironmentValue(other);
  if (folder.empty()) folder = NativeEnvironmentValue("TMPDIR");
  return isFolder(folder) ? folder : "/tmp";
}

[[maybe_unused]] const bool supplied_at_load = (SupplyTemporaryFolder(), true);

}  // namespace

std::string NativeEnvironmentValue(const char* name) {
  const std::lock_guard guard(environmentLock());
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::optional<std::wstring> EnvironmentValue(std::wstring_view name) {
  const std::lock_guard guard(environmentLock());
  const std::string stored = storedName(NativeText(name));
  const char* value = std::getenv(stored.c_str());
  if (!value) return std::nullopt;
  return toText(stored, value);
}

std::string HomeFolder() {
  std::string set = NativeEnvironmentValue("HOME");
  if (set.starts_with('/')) return set;
  std::array<char, 16384> buffer;
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
  return found && found->pw_dir ? found->pw_dir : "/";
}

std::string BaseFolder(const char* variable, const char* usual) {
  std::string set = NativeEnvironmentValue(variable);
  return set.starts_with('/') ? set : HomeFolder() + usual;
}

void SupplyTemporaryFolder() {
  const LastErrorKeeper keeper;
  for (const auto& [name, other] : {std::pair{"TMP", "TEMP"}, std::pair{"TEMP", "TMP"}}) {
    if (!NativeEnvironmentValue(name).empty()) continue;
    setenv(name, defaultTemporaryFolder(other).c_str(), 1);
  }
}

DWORD GetEnvironmentVariableW(const wchar_t* name, wchar_t* buffer, DWORD size) {
  const std::optional<std::wstring> value = EnvironmentValue(name ? name : L"");
  SetLastError(value ? ERROR_SUCCESS : ERROR_ENVVAR_NOT_FOUND);
  return value ? HandOut(*value, buffer, size) : 0;
}

DWORD ExpandEnvironmentStringsA(const char* text, char* buffer, DWORD size) {
  std::string_view rest(text ? text : "");
  std::string expanded;
  for (std::size_t start = rest.find('%'); start != rest.npos; start = rest.find('%')) {
    const std::size_t end = rest.find('%', start + 1);
    if (end == rest.npos) break;
    const auto value = EnvironmentValue(Widen(rest.substr(start + 1, end - start - 1)));
    // The second sign of what is no variable may begin the next one.
    expanded += rest.substr(0, value ? start : end);
    if (value) expanded += Narrow(*value);
    rest.remove_prefix(value ? end + 1 : end);
  }
  expanded += rest;
  const std::size_t needed = expanded.size() + 1;
  if (needed <= size && buffer) std::memcpy(buffer, expanded.c_str(), needed);
  return static_cast<DWORD>(needed);
}

int _wputenv(const wchar_t* assignment) {
  const std::wstring_view text(assignment ? assignment : L"");
  const std::size_t equals = text.find(L'=');
  if (equals == 0 || equals == std::wstring_view::npos) {
    errno = EINVAL;
    return -1;
  }
  const std::lock_guard guard(environmentLock());
  const std::string name = storedName(NativeText(text.substr(0, equals)));
  const std::wstring_view value = text.substr(equals + 1);
  std::string native;
  if (!value.empty() && !toValue(name, value, native)) {
    errno = EINVAL;
    return -1;
  }
  return assign(name, native);
}

}  // namespace qel::sys
