#include "qelbase/paths/MDirectory.h"

#include <array>

#include "qelbase/outside/components/MString.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/listings.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/shell.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/folder_functions.h"

namespace {

using Buffer = std::array<wchar_t, qel::sys::MAX_PATH>;

constexpr std::uint32_t kCreate = 0x8000;

// The text of a call that gives its length, or 0 or more than the buffer holds on failure.
std::wstring TextOf(const Buffer& buffer, DWORD length) {
  return length < buffer.size() ? std::wstring(buffer.data(), length) : std::wstring();
}

std::wstring Executable() {
  std::wstring path(qel::sys::MAX_PATH, L'\0');
  while (true) {
    const auto size = static_cast<DWORD>(path.size());
    const DWORD length = qel::sys::GetModuleFileNameW(nullptr, path.data(), size);
    if (length < size) {
      path.resize(length);
      return path;
    }
    path.resize(2 * path.size());
  }
}

std::wstring Place(bool common, std::uint32_t common_number, std::uint32_t own_number) {
  return MDirectory::GetStandard(common ? common_number : own_number, false);
}

}  // namespace

namespace MDirectory {

std::wstring GetApplication() {
  const MFileName name(Executable().c_str(), false);
  return name.IS_EMPTY() ? std::wstring() : name.GET_DRIVE_DIR_PARTS(true);
}

std::wstring GetCurrent() {
  Buffer buffer;
  return TextOf(buffer, qel::sys::GetCurrentDirectoryW(buffer.size(), buffer.data()));
}

std::wstring GetTemporary() {
  Buffer buffer;
  return TextOf(buffer, qel::sys::GetTempPathW(buffer.size(), buffer.data()));
}

std::wstring GetTemporaryFileName(const std::wstring& prefix) {
  Buffer buffer{};
  const std::wstring folder = GetTemporary();
  const UINT number = qel::sys::GetTempFileNameW(folder.c_str(), prefix.c_str(), 0, buffer.data());
  return number != 0 ? buffer.data() : L"";
}

std::wstring GetSystemDrive() {
  Buffer buffer;
  const std::wstring folder =
      TextOf(buffer, qel::sys::GetWindowsDirectoryW(buffer.size(), buffer.data()));
  return folder.size() >= 2 && folder[1] == L':' ? folder.substr(0, 2) : std::wstring();
}

std::wstring GetStandard(std::uint32_t number, bool create) {
  Buffer buffer{};
  const bool found =
      GET_SPECIAL_FOLDER_PATH(buffer.data(), nullptr, number | (create ? kCreate : 0));
  return found ? buffer.data() : L"";
}

std::wstring GetPrograms(bool common) {
  return Place(common, 23, 2);
}
std::wstring GetProgramFiles(bool common) {
  return Place(common, 43, 38);
}
std::wstring GetDocuments(bool common) {
  return Place(common, 46, 5);
}
std::wstring GetApplicationData(bool common) {
  return Place(common, 35, 26);
}

bool GET_SPECIAL_FOLDER_PATH(wchar_t* buffer, HWND owner, std::uint32_t number) {
  return qel::sys::SHGetFolderPathW(owner, static_cast<int>(number), nullptr, 0, buffer) >= 0;
}

bool GET_EXECUTABLE_DIRECTORY(MFileName& result) {
  const std::wstring path = Executable();
  result.SET(path.c_str(), false);
  result.SET_FILE_PART(L"", 0);
  result.SET_EXT_PART(L"", 0);
  return !path.empty();
}

bool GET_WORKING_DIRECTORY(MFileName& result) {
  MFileName ini;
  GET_EXECUTABLE_DIRECTORY(ini);
  ini.SET_FILE_EXT_PARTS(L"qelware.ini", qel::sys::MAX_PATH, qel::sys::MAX_PATH);
  MString text;
  const bool found = text.LOAD_INI_STRING(ini.GET(), L"Sorvic", L"WorkingDirectory");
  result.SET(found ? text.C_STR() : L"", true);
  return found;
}

bool GET_PROJECT_DIRECTORY(MFileName& result) {
  return GET_WORKING_DIRECTORY(result);
}

bool IsDirectoryEmpty(const CStringW& path) {
  using namespace qel::sys;
  if (path.IsEmpty()) return true;
  CStringW pattern = path;
  AssurePathAppend(pattern, L"*.*");
  WIN32_FIND_DATAW found;
  const HANDLE listing = FindFirstFileW(pattern, &found);
  if (listing == INVALID_HANDLE_VALUE) return true;
  bool is_empty = true;
  do {
    const std::wstring name = found.cFileName;
    is_empty = name == L"." || name == L"..";
  } while (is_empty && FindNextFileW(listing, &found));
  FindClose(listing);
  return is_empty;
}

bool DirectoryHasAccess(const CStringW& path, std::uint32_t access) {
  using namespace qel::sys;
  const HANDLE folder = CreateFileW(path, access, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (folder == INVALID_HANDLE_VALUE) return GetLastError() != ERROR_ACCESS_DENIED;
  CloseHandle(folder);
  return true;
}

bool CopyDirectoryContents(const CStringW& from, const CStringW& to, bool show) {
  using namespace qel::sys;
  SHCreateDirectoryExW(nullptr, to, nullptr);
  // The lists end in two zeros.
  const std::wstring sources = std::wstring(from) + L"\\*.*" + L'\0';
  const std::wstring target = std::wstring(to) + L'\0';
  SHFILEOPSTRUCTW copy;
  copy.wFunc = FO_COPY;
  copy.pFrom = sources.c_str();
  copy.pTo = target.c_str();
  copy.fFlags = FOF_NORECURSION | FOF_NOERRORUI | FOF_NOCONFIRMMKDIR | FOF_NOCONFIRMATION;
  if (!show) copy.fFlags |= FOF_SILENT;
  return SHFileOperationW(&copy) == 0;
}

}  // namespace MDirectory
