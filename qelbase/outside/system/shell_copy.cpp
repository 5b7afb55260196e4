#include <cerrno>
#include <optional>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/shell.h"
#include "qelbase/outside/system/shell_internal.h"

namespace qel::sys {

namespace {

int codeOf(int error, const std::string& native) {
  return static_cast<int>(ErrorOfPath(error, native));
}

std::string joined(const std::string& folder, const std::string& name) {
  return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

bool isFolder(const std::string& native) {
  struct stat status {};
  return Calls().stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isSame(const struct stat& a, const std::string& native) {
  struct stat b {};
  return Calls().stat(native.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int copyOne(const std::string& from, const std::string& to);

int copyFolder(const std::string& from, const std::string& to) {
  if (to.starts_with(from + "/")) return DE_DESTSUBTREE;
  if (Calls().mkdir(to.c_str(), 0777) != 0 && !(errno == EEXIST && isFolder(to))) {
    return codeOf(errno, to);
  }
  const std::optional<std::vector<std::string>> names = NamesIn(from);
  if (!names) return codeOf(errno, from);
  for (const std::string& name : *names) {
    if (const int code = copyOne(joined(from, name), joined(to, name)); code != 0) return code;
  }
  return 0;
}

// A link to a folder is left out: it might lead back up.
int copyOne(const std::string& from, const std::string& to) {
  struct stat kept {};
  struct stat status {};
  if (Calls().lstat(from.c_str(), &kept) != 0 || Calls().stat(from.c_str(), &status) != 0) {
    return codeOf(errno, from);
  }
  if (isSame(status, to)) return DE_SAMEFILE;
  if (S_ISDIR(kept.st_mode)) return copyFolder(from, to);
  if (S_ISDIR(status.st_mode)) return 0;
  return CopyReplacing(from, to) == 0 ? 0 : codeOf(errno, to);
}

bool matchesAll(const std::wstring& pattern) {
  return pattern == L"*" || pattern == L"*.*";
}

int copyMatching(const std::wstring& path, const std::string& target, bool files_only) {
  const auto [folder, pattern] = SplitLast(path);
  std::string native;
  if (!ToNative(folder.empty() ? L"." : folder, native)) return DE_INVALIDFILES;
  const std::optional<std::vector<std::string>> names = NamesIn(native);
  if (!names) return codeOf(errno, joined(native, "."));
  int matches = 0;
  for (const std::string& name : *names) {
    if (!MatchesPattern(FromNative(name), pattern)) continue;
    const std::string full = joined(native, name);
    if (files_only && isFolder(full)) continue;
    if (const int code = copyOne(full, joined(target, name)); code != 0) return code;
    ++matches;
  }
  return matches > 0 || matchesAll(pattern) ? 0 : static_cast<int>(ERROR_FILE_NOT_FOUND);
}

int copyNamed(const std::wstring& path, const std::string& target, bool single, WORD flags) {
  const bool into = isFolder(target);
  if (SplitLast(path).second.find_first_of(L"*?") != std::wstring::npos) {
    if (!into) return static_cast<int>(ERROR_PATH_NOT_FOUND);
    return copyMatching(path, target, (flags & (FOF_FILESONLY | FOF_NORECURSION)) != 0);
  }
  std::string native;
  if (!ToNative(path, native)) return DE_INVALIDFILES;
  if (!into && !single) return static_cast<int>(ERROR_PATH_NOT_FOUND);
  return copyOne(native, into ? joined(target, NameOf(native)) : target);
}

}  // namespace

ShellOutcome CopyAll(const std::vector<std::wstring>& from, const std::vector<std::wstring>& to,
                     WORD flags) {
  std::string target;
  if (to.size() != 1 || !ToNativeForCreation(to.front(), target)) return {DE_INVALIDFILES};
  for (const std::wstring& name : from) {
    const int code = copyNamed(name, target, from.size() == 1, flags);
    if (code != 0) return {code, name};
  }
  return {};
}

}  // namespace qel::sys
