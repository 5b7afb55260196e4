#pragma once
// What the commands do to the disk, in one place. Names are native, in any bytes. All of it throws
// Trouble, with the system's words.

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "qelbase/outside/components/MFile.h"

namespace qel::tool {

// Words for the library's codes that a user meets.
std::string CodeText(std::uint32_t code);

// The name as the library is told it: absolute, as a Windows path.
std::wstring LibraryName(const std::string& native);
bool Exists(const std::string& native);
bool IsRegularFile(const std::string& native);
// Whether what stands under the name belongs to this user; a link counts itself.
bool IsOwn(const std::string& native);

// Opens a regular file for reading; a folder, a pipe or a device is turned down.
std::unique_ptr<MFile> OpenForReading(const std::string& native);

// Gives `part` the bytes of `native` ("-" is standard input), piece by piece, until it returns
// false. False if it did.
bool ForEachPiece(const std::string& native, const std::function<bool(std::string_view)>& part);

// Makes a file that does not exist yet, with what `write` writes; on failure it goes again. Not
// synced: for copies of what lies safe elsewhere.
void CreateFile(const std::string& native, const std::function<void(MFile&)>& write);

// Makes the folder unless it is there; the one above it must be.
void MakeFolder(const std::string& native);

// A file in the making, under a passing name beside the one that it is to have. The name's old
// content stays until Commit, and for good if Commit isn't reached: then the passing file goes.
class NewFile {
 public:
  // The file under `native`, or under what that links to, is to be replaced. It must be a regular
  // file that the caller may write.
  static NewFile Replacing(const std::string& native);
  // Nothing may exist under `native`.
  static NewFile Creating(const std::string& native);

  NewFile(NewFile&& other) noexcept;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  NewFile& operator=(NewFile&&) = delete;
  ~NewFile();

  // The new content; empty at first, open for reading and writing.
  MFile& file() { return *m_file; }

  // Everything is written, without error, and on the storage: the new file takes the name, with
  // the mode and the owner of the old one. On failure the name has the old content, but for one
  // case that the message tells: the folder itself could not be synced after the renaming.
  void Commit();

 private:
  NewFile(std::string native, bool replaces);
  void Open();
  void KeepModeAndOwner();
  void CheckUnchanged();
  void SyncFolder();
  [[noreturn]] void Fail(const std::string& what) const;

  std::string m_native;   // what the user called it
  std::string m_target;   // where it lies
  std::string m_passing;  // empty once it has its name
  struct stat m_old {};
  bool m_replaces;
  int m_fd = -1;
  std::unique_ptr<MFile> m_file;
};

// Throws Trouble with the file's own error if one of its operations has failed.
void ThrowOnError(const MFile& file, const std::string& native);

}  // namespace qel::tool
