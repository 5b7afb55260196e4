// What happens to the old file while a new one is written in its place: it waits under its backup
// name until everything that it holds and that was not written anew is safe in the new file.
#include <algorithm>
#include <string>
#include <unordered_map>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/tagged/MFileTagged.h"
#include "qelbase/tagged/TagNodes_internal.h"
#include "qelbase/tagged/storage_internal.h"
#include "qelbase/tagged/tags_internal.h"

using qel::tagged::TagChain;

namespace {

// The part of the backup that is still to be copied: records that follow each other there and go
// over unchanged, to `target`.
struct Run {
  std::int64_t begin;
  std::int64_t end;
  std::int64_t target;
};

// Leaves the file behind its head tag.
bool isTaggedFile(MFile& file) {
  MTag head;
  return head.READ(file) && qel::tagged::IsHead(head);
}

bool isInSameFolder(const std::wstring& a, const std::wstring& b) {
  std::string native_a;
  std::string native_b;
  if (!qel::sys::ToNative(a, native_a) || !qel::sys::ToNative(b, native_b)) return false;
  native_a.resize(native_a.rfind('/') + 1);
  native_b.resize(native_b.rfind('/') + 1);
  return native_a == native_b;
}

// `name` with the extension of a backup. Forms of a name that four parts can't hold, as `D:a.x`,
// are put plainly first.
MFileName backupNameOf(const std::wstring& name) {
  MFileName backup(name.c_str(), false);
  if (name.rfind(L"..", 0) == 0) backup.SET_RELATIVE_PATH_MODE(true);
  backup.SET_EXT_PART(L".bak", 256);
  std::string native;
  if (isInSameFolder(name, backup.GET()) || !qel::sys::ToNative(name, native)) return backup;
  backup.SET(qel::sys::FromNative(native).c_str(), false);
  backup.SET_EXT_PART(L".bak", 256);
  return backup;
}

// To the first free NAME.bak1, NAME.bak2...
bool moveAside(const MFileName& backup) {
  MFileName aside = backup;
  for (unsigned number = 1;; ++number) {
    aside.SET_EXT_PART((L".bak" + std::to_wstring(number)).c_str(), 256);
    if (qel::sys::_wrename(backup.GET(), aside.GET()) == 0) break;
    if (qel::sys::GetLastError() != qel::sys::ERROR_ALREADY_EXISTS) return false;
  }
  qel::tagged::LogFailure(L"In MFileTagged::_OPEN() : Kept '", aside.GET(),
                          L"', which an interrupted write left as '", backup.GET(), L"'");
  return true;
}

// Also if it is read-only, as the old file was. What can't be removed stays.
void remove(const MFileName& backup) {
  using namespace qel::sys;
  if (_wremove(backup.GET()) == 0) return;
  const DWORD attributes = GetFileAttributesW(backup.GET());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
  SetFileAttributesW(backup.GET(), attributes & ~FILE_ATTRIBUTE_READONLY);
  (void)_wremove(backup.GET());
}

// Whether the tag's header still stands in the backup as it would be written.
bool standsIn(MFile& backup, const MTag& tag) {
  qel::tagged::HeaderBytes bytes;
  return tag.m_data_position == tag.m_position + MTag::HeaderSize &&
         backup.SEEK(tag.m_position, 0) &&
         backup.READ(bytes.data(), bytes.size()) == bytes.size() &&
         bytes == qel::tagged::Encode(tag);
}

bool copyBytes(MFile& from, std::int64_t position, std::int64_t bytes, MFile& to) {
  return from.SEEK(position, 0) && to.COPY(from, bytes) == bytes;
}

// The tag now stands in the new file.
void place(MTag& tag, std::int64_t position) {
  tag.m_position = position;
  tag.m_data_position = position + MTag::HeaderSize;
  tag.m_written = true;
  tag.m_updated = false;
}

}  // namespace

// Lists the tags of the old file and renames it to its backup name. True also if there is none; a
// file that is there but can't be read whole is left alone.
bool MFileTagged::setAside(const std::wstring& given_name) {
  if (!MFile::_OPEN(given_name.c_str(), 1)) {
    if (qel::sys::GetLastError() != qel::sys::ERROR_FILE_NOT_FOUND) return false;
    RESET_RESULT();
    return true;
  }
  const bool is_whole = scan();
  MFile::CLOSE();
  if (GET_RESULT() != 0) return false;
  const std::wstring name = qel::tagged::FollowLinks(given_name);
  const MFileName backup = backupNameOf(name);
  if (qel::tagged::IsSameEntry(name, backup.GET())) {
    return _Fail(qel::sys::ERROR_SHARING_VIOLATION);
  }
  if (!clearBackupName(backup, is_whole) || qel::sys::_wrename(name.c_str(), backup.GET()) != 0) {
    return _Fail(qel::sys::GetLastError());
  }
  if (!qel::tagged::SyncFolderOf(name)) {
    const std::uint32_t code = qel::sys::GetLastError();
    (void)qel::sys::_wrename(backup.GET(), name.c_str());
    return _Fail(code);
  }
  m_backup_name = backup;
  return true;
}

// Removes an older backup, or moves it aside if an interrupted write left it. False, with the last
// error, if the name can't be used.
bool MFileTagged::clearBackupName(const MFileName& backup, bool file_is_whole) const {
  MFile old(qel::tagged::BufferSize);
  if (!old.OPEN_READ(backup.GET())) return old.GET_RESULT() == qel::sys::ERROR_FILE_NOT_FOUND;
  const bool needed = isNeeded(old, file_is_whole);
  if (old.GET_RESULT() != 0) return false;
  old.CLOSE();
  if (needed) return moveAside(backup);
  remove(backup);
  return true;
}

// Whether a backup has records that the file, as it was listed, lacks.
bool MFileTagged::isNeeded(MFile& backup, bool file_is_whole) const {
  if (!isTaggedFile(backup)) return false;
  std::unordered_map<std::uint64_t, std::int64_t> left;
  for (const MTag& tag : TagChain(m_tags)) ++left[qel::tagged::KeyOf(tag)];
  bool has_any = false;
  bool has_more = false;
  qel::tagged::WalkRecords(backup, [&](const MTag& tag) {
    has_any = true;
    if (--left[qel::tagged::KeyOf(tag)] < 0) has_more = true;
  });
  return has_more || (has_any && !file_is_whole);
}

void MFileTagged::CLOSE() {
  if ((_MODE() & 2) != 0 && !m_backup_name.IS_EMPTY()) {
    if (keepOldTags() && SYNC() && qel::tagged::SyncFolderOf(m_backup_name.GET())) {
      remove(m_backup_name);
    } else {
      const std::uint32_t code = qel::sys::GetLastError();
      _Fail(code != 0 ? code : qel::sys::ERROR_IO_DEVICE);
      qel::tagged::LogFailure(L"In MFileTagged::CLOSE() : Could not finish '", GET_FILENAME(),
                              L"', its old content stays in '", m_backup_name.GET(), L"', error ",
                              GET_RESULT());
    }
  }
  MFile::CLOSE();
}

// Adds the old tags that were not written. True if all of them went over whole.
bool MFileTagged::keepOldTags() {
  MTag* tag = m_tags;
  while (tag && tag->m_written) tag = tag->m_next;
  if (!tag) return true;
  MFile backup(qel::tagged::BufferSize);
  if (backup.OPEN_READ(m_backup_name.GET()) && copyUnwritten(backup)) return true;
  const std::uint32_t code = backup.GET_RESULT();
  return _Fail(code != 0 ? code : qel::sys::ERROR_IO_DEVICE);
}

bool MFileTagged::copyUnwritten(MFile& backup) {
  Run run{0, 0, TELL()};
  const auto finishRun = [&](std::int64_t next) {
    const bool copied = copyBytes(backup, run.begin, run.end - run.begin, *this);
    run = {next, next, TELL()};
    return copied;
  };
  for (MTag& tag : TagChain(m_tags)) {
    if (tag.m_written) continue;
    const bool unchanged = !m_nodes->handed_out || standsIn(backup, tag);
    const std::int64_t body = tag.m_data_position;
    if ((!unchanged || tag.m_position != run.end) && !finishRun(tag.m_position)) return false;
    if (unchanged) {
      run.end = body + tag.m_skip;
      place(tag, run.target + (body - MTag::HeaderSize - run.begin));
    } else {
      if (!tag.WRITE(*this) || !copyBytes(backup, body, tag.m_skip, *this)) return false;
      run = {body + tag.m_skip, body + tag.m_skip, TELL()};
    }
  }
  return finishRun(0);
}
