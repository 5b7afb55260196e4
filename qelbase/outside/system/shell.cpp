#include "qelbase/outside/system/shell.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <string_view>
#include <utility>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/folder_walk_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/shell_internal.h"
#include "qelbase/outside/system/trash_internal.h"

namespace qel::sys {

namespace {

std::mutex hooks_lock;
ShellQuestion question_hook;
ShellReport report_hook;

template <class Hook>
Hook current(const Hook& hook) {
  const std::lock_guard guard(hooks_lock);
  return hook;
}

template <class Hook>
Hook replace(Hook& hook, Hook by) {
  const std::lock_guard guard(hooks_lock);
  return std::exchange(hook, std::move(by));
}

std::vector<std::wstring> namesOf(const wchar_t* list) {
  std::vector<std::wstring> names;
  while (list && *list) {
    names.emplace_back(list);
    list += names.back().size() + 1;
  }
  return names;
}

using Outcome = ShellOutcome;

int codeOf(int error, const std::string& native) {
  return static_cast<int>(ErrorOfPath(error, native));
}

// --- deleting ----------------------------------------------------------------------------------

int deleteOne(const std::string& native, bool undoable) {
  if (NameOf(native).empty() || NameOf(native) == "." || NameOf(native) == "..") {
    return DE_INVALIDFILES;
  }
  if (!undoable) return static_cast<int>(RemoveTree(native));
  return MoveToTrash(native) == 0 ? 0 : codeOf(errno, native);
}

int deleteMatching(const std::wstring& path, bool undoable, bool files_only) {
  const auto [folder, pattern] = SplitLast(path);
  std::string native;
  if (!ToNative(folder.empty() ? L"." : folder, native)) return DE_INVALIDFILES;
  const std::optional<std::vector<std::string>> names = NamesIn(native);
  if (!names) return codeOf(errno, native + "/.");
  int matches = 0;
  for (const std::string& name : *names) {
    if (!MatchesPattern(FromNative(name), pattern)) continue;
    const std::string full = (native == "/" ? "" : native) + "/" + name;
    struct stat status {};
    const bool is_folder = Calls().lstat(full.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (files_only && is_folder) continue;
    if (const int code = deleteOne(full, undoable); code != 0) return code;
    ++matches;
  }
  return matches > 0 ? 0 : static_cast<int>(ERROR_FILE_NOT_FOUND);
}

int deleteNamed(const std::wstring& path, WORD flags) {
  const bool undoable = (flags & FOF_ALLOWUNDO) != 0 && IsAbsolute(path);
  if (SplitLast(path).second.find_first_of(L"*?") != std::wstring::npos) {
    return deleteMatching(path, undoable, (flags & (FOF_FILESONLY | FOF_NORECURSION)) != 0);
  }
  std::string native;
  return ToNative(path, native) ? deleteOne(native, undoable) : DE_INVALIDFILES;
}

Outcome deleteAll(const std::vector<std::wstring>& names, SHFILEOPSTRUCTW& operation) {
  const ShellQuestion question = current(question_hook);
  const bool asks = (operation.fFlags & FOF_NOCONFIRMATION) == 0 && question;
  if (asks && !question(names, (operation.fFlags & FOF_ALLOWUNDO) != 0)) {
    operation.fAnyOperationsAborted = 1;
    return {};
  }
  for (const std::wstring& name : names) {
    if (const int code = deleteNamed(name, operation.fFlags); code != 0) return {code, name};
  }
  return {};
}

// --- renaming ----------------------------------------------------------------------------------

int renameNamed(const std::wstring& from, const std::wstring& to) {
  std::string source;
  std::string target;
  if (!ToNative(from, source) || !ToNativeForCreation(to, target)) return DE_INVALIDFILES;
  if (source == target) return DE_SAMEFILE;
  if (ParentOf(source) != ParentOf(target)) return DE_DIFFDIR;
  return RenameNoReplace(source, target) == 0 ? 0 : codeOf(errno, source);
}

Outcome renameAll(const std::vector<std::wstring>& from, const std::vector<std::wstring>& to) {
  if (from.size() != 1 || to.size() != 1) return {DE_MANYSRC1DEST, from.front()};
  return {renameNamed(from.front(), to.front()), from.front()};
}

Outcome perform(SHFILEOPSTRUCTW& operation) {
  const std::vector<std::wstring> names = namesOf(operation.pFrom);
  const bool known = operation.wFunc >= FO_COPY && operation.wFunc <= FO_RENAME;
  if (!known) return {static_cast<int>(ERROR_INVALID_PARAMETER)};
  if (names.empty()) return {DE_INVALIDFILES};
  if (operation.wFunc == FO_DELETE) return deleteAll(names, operation);
  const std::vector<std::wstring> targets = namesOf(operation.pTo);
  if (operation.wFunc == FO_COPY) return CopyAll(names, targets, operation.fFlags);
  return renameAll(names, targets);
}

// 0, or the system's code. What another process creates meanwhile is welcome on the way.
DWORD createChain(const std::string& native) {
  if (Calls().mkdir(native.c_str(), 0777) == 0) return ERROR_SUCCESS;
  if (errno != ENOENT || native == "/") return ErrorOfPath(errno, native);
  const DWORD code = createChain(ParentOf(native));
  if (code != ERROR_SUCCESS && code != ERROR_ALREADY_EXISTS) return code;
  return Calls().mkdir(native.c_str(), 0777) == 0 ? ERROR_SUCCESS : ErrorOfPath(errno, native);
}

}  // namespace

std::pair<std::wstring, std::wstring> SplitLast(const std::wstring& path) {
  const std::size_t start = path.find_last_of(L"\\/:") + 1;
  return {path.substr(0, start), path.substr(start)};
}

int SHFileOperationW(SHFILEOPSTRUCTW* operation) {
  operation->fAnyOperationsAborted = 0;
  const Outcome outcome = perform(*operation);
  const ShellReport report = current(report_hook);
  const bool reports = outcome.code != 0 && (operation->fFlags & FOF_NOERRORUI) == 0 && report;
  if (reports) report(outcome.name, outcome.code);
  return outcome.code;
}

ShellQuestion SetShellQuestion(ShellQuestion question) {
  return replace(question_hook, std::move(question));
}

ShellReport SetShellReport(ShellReport report) {
  return replace(report_hook, std::move(report));
}

int SHCreateDirectoryExW(void* /*owner*/, const wchar_t* path, const void* /*security*/) {
  const std::wstring_view text(path ? path : L"");
  if (!IsAbsolute(text)) return static_cast<int>(ERROR_BAD_PATHNAME);
  std::string native;
  if (!ToNative(text, native)) return static_cast<int>(GetLastError());
  if (IsRefusedForCreation(native)) return static_cast<int>(ERROR_DIRECTORY);
  return static_cast<int>(createChain(native));
}

}  // namespace qel::sys
