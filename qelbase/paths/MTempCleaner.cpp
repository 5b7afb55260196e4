#include "qelbase/paths/MTempCleaner.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/environment.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/listings_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/paths/folder_functions.h"
#include "qelbase/paths/run_folders_internal.h"

namespace {

using namespace qel::sys;

// Names that are taken are skipped up to here; nobody starts so many runs in one second.
constexpr unsigned kMostAttempts = 100'000;

void LogFailure(const CStringW& folder, std::uint32_t code) {
  using namespace QelSDK::Common::Logging;
  LogMessage message(L"In MTempCleaner::Init() : Could not take the folder '");
  message << folder.GetString() << L"' : " << code;
  GetLogger(L"lib.qelbase").LogFailure(message);
}

CStringW TimePart() {
  const std::tm now = LocalTime();
  char text[16] = {};
  std::strftime(text, sizeof text, "_%H_%M_%S_", &now);
  return CStringW(text);
}

CStringW Parent(const CStringW& path) {
  return path.Left(path.ReverseFind(L'\\'));
}

// Whether the next attempt may do better: the name was taken, or a sweep of another run passed by
// between the creation and the lock.
bool IsCuredByAnotherAttempt(std::uint32_t code) {
  return code == ERROR_ALREADY_EXISTS || code == ERROR_FILE_NOT_FOUND ||
         code == ERROR_PATH_NOT_FOUND || code == ERROR_SHARING_VIOLATION;
}

// 0 or the code. The folder is made here or not at all.
std::uint32_t CreateAndLock(const CStringW& folder, MFolderLocker& lock, bool& created) {
  created = false;
  const std::uint32_t code = CreatePrivateFolder(folder);
  if (code != 0) return code;
  created = true;
  return lock.Lock(folder);
}

bool HasArchive(const CStringW& path) {
  const DWORD attributes = GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_ARCHIVE) != 0;
}

// Takes "_" and so many digits off the end.
bool TakeNumber(std::wstring_view& text, std::size_t least, std::size_t most) {
  const std::size_t bar = text.rfind(L'_');
  if (bar == text.npos) return false;
  const std::wstring_view digits = text.substr(bar + 1);
  text.remove_suffix(text.size() - bar);
  return digits.size() >= least && digits.size() <= most &&
         digits.find_first_not_of(L"0123456789") == digits.npos;
}

}  // namespace

MTempCleaner::MTempCleaner(const wchar_t* name, const MFileName* file) : m_entry_name(name) {
  SetFileName(file);
}

MTempCleaner::MTempCleaner(const CStringW& name, const MFileName* file)
    : MTempCleaner(name.GetString(), file) {}

MTempCleaner::~MTempCleaner() {
  Finish();
}

void MTempCleaner::SetEntryName(const wchar_t* name) {
  if (m_active || !name) return;
  MFileName file(name, false);
  file.MAKE_SAFE();
  m_entry_name = file.GET_FILE_PART();
}

void MTempCleaner::SetEntryName(const CStringW& name) {
  SetEntryName(name.GetString());
}

void MTempCleaner::SetFileName(const MFileName* file) {
  if (!file) return;
  m_file_name = *file;
  m_use_file = true;
}

// Sets m_cur_path to a new folder that m_lock holds; false, and the reason is logged, if there is
// none to be had.
bool MTempCleaner::_TakeFolder() {
  std::uint32_t code = 0;
  for (unsigned attempt = 1; attempt <= kMostAttempts; ++attempt) {
    m_cur_path = m_old_tmp + m_entry_name + TimePart();
    m_cur_path.AppendFormat(L"%lu", static_cast<unsigned long>(attempt));
    if (!m_old_tmp.IsEmpty()) mkdirchain(Parent(m_cur_path));
    bool created = false;
    code = CreateAndLock(m_cur_path, m_lock, created);
    if (code == 0) return true;
    // A folder that can't be created below a missing root is missing for good.
    if (!IsCuredByAnotherAttempt(code) || (!created && code != ERROR_ALREADY_EXISTS)) {
      if (created) RemoveDirectoryW(m_cur_path);
      break;
    }
  }
  LogFailure(m_cur_path, code);
  m_cur_path.Empty();
  return false;
}

void MTempCleaner::Init() {
  if (m_active) return;
  if (m_use_file) {
    m_old_tmp = m_file_name.GET();
    m_old_temp = m_old_tmp;
  } else {
    m_old_tmp = EnvironmentValue(L"TMP").value_or(L"");
    m_old_temp = EnvironmentValue(L"TEMP").value_or(L"");
  }
  AssurePath(m_old_tmp);
  if (!_TakeFolder()) return;
  qel::paths::DescribeHolder(m_cur_path);
  m_active = true;
  _SetTmpPath(m_cur_path, true);
  _SetTmpPath(m_cur_path, false);
  _DeletePath(m_old_tmp, m_entry_name + L"*");
}

void MTempCleaner::Finish() {
  if (!m_active) return;
  _SetTmpPath(m_old_tmp, true);
  _SetTmpPath(m_old_temp, false);
  m_lock.Unlock();
  _DeletePath(m_cur_path, nullptr);
  m_active = false;
}

void MTempCleaner::Pause() {
  m_active = false;
  _SetTmpPath(m_old_tmp, true);
  _SetTmpPath(m_old_temp, false);
}

void MTempCleaner::Resume() {
  m_active = true;
  _SetTmpPath(m_cur_path, true);
  _SetTmpPath(m_cur_path, false);
}

std::int32_t MTempCleaner::EnumerateRootTempFolders() {
  return _DoOperationOnPath(OPERATION_COUNT, m_old_tmp, m_entry_name + L"*");
}

std::int32_t MTempCleaner::_SetTmpPath(const wchar_t* path, bool tmp) {
  if (m_use_file) {
    m_file_name.SET(path, true);
  } else {
    const CStringW name = tmp ? L"TMP=" : L"TEMP=";
    _wputenv(name + path);
  }
  return 1;
}

std::optional<std::wstring> MTempCleaner::EntryNameOf(std::wstring_view folder) {
  constexpr std::size_t most_digits = 10;  // of a 32-bit number
  bool is_run = TakeNumber(folder, 1, most_digits);
  for (int part = 0; part < 3; ++part) is_run = is_run && TakeNumber(folder, 2, 2);
  return is_run ? std::optional<std::wstring>(folder) : std::nullopt;
}

std::int32_t MTempCleaner::DeleteDeadRun(const wchar_t* path) {
  MFolderLocker probe;
  return path ? qel::paths::DeleteRunFolder(path, probe) : -1;
}

std::int32_t MTempCleaner::_DeletePath(const wchar_t* path, const wchar_t* pattern) {
  return _DoOperationOnPath(OPERATION_DELETE, path, pattern);
}

// Without an entry name every name answers to the pattern.
bool MTempCleaner::_IsOurs(const wchar_t* entry) const {
  return !m_entry_name.IsEmpty() || EntryNameOf(entry) == L"";
}

std::int32_t MTempCleaner::_DoOperationOnPath(EPathOperation operation, const wchar_t* path,
                                              const wchar_t* pattern) {
  if (!m_active) return 0;
  CStringW folder = path;
  if (pattern) AssurePath(folder);
  EntryList entries;
  const CStringW search = pattern ? folder + pattern : folder;
  if (ListEntries(search.GetString(), entries) != 0) return -1;
  std::int32_t result = 1, count = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Entry entry = entries[i];
    const CStringW name = entry.name();
    if (IsDots(entry.native) || entry.is_link || !_IsOurs(name)) continue;
    const CStringW full = pattern ? folder + name : folder;
    if (operation == OPERATION_COUNT) {
      count += entry.is_folder ? 1 : 0;
    } else if (entry.is_folder) {
      (void)qel::paths::DeleteRunFolder(full, m_probe_lock);
    } else if (HasArchive(full) && qel::paths::IsOwn(full) && _wremove(full) != 0) {
      --result;
    }
  }
  return operation == OPERATION_COUNT ? count : result;
}

MTempCleaner::MPauser::MPauser(MTempCleaner* cleaner) : m_cleaner(cleaner) {
  if (m_cleaner) m_cleaner->Pause();
}

MTempCleaner::MPauser::~MPauser() {
  if (m_cleaner) m_cleaner->Resume();
}

MTempCleaner::MPauser& MTempCleaner::MPauser::operator=(const MPauser& other) = default;
