#include "qelbase/paths/MFolderLocker.h"

#include <algorithm>
#include <utility>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/paths/folder_functions.h"

namespace {

using namespace qel::sys;

constexpr DWORD kLockViolation = 33;
constexpr DWORD kPause = 300;         // ms between two tries
constexpr DWORD kLongestWait = 3000;  // ms

// Null, and the code.
HANDLE OpenLockFile(const CStringW& name, std::uint32_t& code) {
  const DWORD start = GetTickCount();
  while (true) {
    const HANDLE file =
        CreateFileW(name, GENERIC_READ, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) return file;
    code = std::max<DWORD>(GetLastError(), 1);
    if (code != kLockViolation) return nullptr;
    Sleep(kPause);
    if (GetTickCount() - start > kLongestWait) return nullptr;
  }
}

HANDLE OpenFolder(const wchar_t* path) {
  const LastErrorKeeper keeper;
  const HANDLE folder =
      CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  return folder == INVALID_HANDLE_VALUE ? nullptr : folder;
}

}  // namespace

const wchar_t* const MFolderLocker::mgp_lock_file_name = L"__fold__.lock";

MFolderLocker::MFolderLocker(const wchar_t* path) {
  if (path) Lock(path);
}

MFolderLocker::~MFolderLocker() {
  Unlock();
}

std::uint32_t MFolderLocker::Lock(const wchar_t* path) {
  if (m_handle && !IsAbsolutePath(path)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return ERROR_INVALID_PARAMETER;
  }
  CStringW name = path;
  AssurePathAppend(name, mgp_lock_file_name);
  if (m_handle && name.CompareNoCase(m_path) == 0) return 0;
  Unlock();
  std::uint32_t code = 0;
  m_handle = OpenLockFile(name, code);
  if (!m_handle) return code;
  m_path = name;
  m_folder = OpenFolder(path);
  return 0;
}

std::uint32_t MFolderLocker::Unlock() {
  if (HANDLE folder = std::exchange(m_folder, nullptr)) CloseHandle(folder);
  HANDLE file = std::exchange(m_handle, nullptr);
  m_path.Empty();
  if (!file || CloseHandle(file)) return 0;
  return std::max<DWORD>(GetLastError(), 1);
}
