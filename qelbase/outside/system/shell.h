#pragma once
// Deleting and renaming as a user's desktop does it: with a trash can, a question and a report.

#include <functional>
#include <string>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr UINT FO_COPY = 2;
inline constexpr UINT FO_DELETE = 3;
inline constexpr UINT FO_RENAME = 4;

inline constexpr WORD FOF_SILENT = 0x4;  // without effect: there is no progress window
inline constexpr WORD FOF_NOCONFIRMATION = 0x10;
inline constexpr WORD FOF_ALLOWUNDO = 0x40;
inline constexpr WORD FOF_FILESONLY = 0x80;  // a pattern leaves folders out
inline constexpr WORD FOF_NOCONFIRMMKDIR = 0x200;
inline constexpr WORD FOF_NOERRORUI = 0x400;
inline constexpr WORD FOF_NORECURSION = 0x1000;  // as FOF_FILESONLY

// Private codes of SHFileOperationW.
inline constexpr int DE_SAMEFILE = 0x71;
inline constexpr int DE_MANYSRC1DEST = 0x72;
inline constexpr int DE_DIFFDIR = 0x73;
inline constexpr int DE_INVALIDFILES = 0x7C;
inline constexpr int DE_DESTSUBTREE = 0x7D;

struct SHFILEOPSTRUCTW {
  void* hwnd = nullptr;  // not looked at
  UINT wFunc = 0;
  const wchar_t* pFrom = nullptr;  // a list: each text ends in a zero, the list in a second one
  const wchar_t* pTo = nullptr;
  WORD fFlags = 0;
  BOOL fAnyOperationsAborted = 0;  // out: 1 if the user said no
  void* hNameMappings = nullptr;
  const wchar_t* lpszProgressTitle = nullptr;
};

// FO_DELETE removes files and whole folders; the last component of a name may hold `*` and `?`.
// With FOF_ALLOWUNDO what has a full path goes to the trash can of the desktop (the freedesktop.org
// trash layout): the user's own if that is on the same file system, else that of the mounted one.
// Without a trash can there it stays and the call fails; it is never deleted for good instead. A
// relative name, or one without FOF_ALLOWUNDO, is deleted for good. Links are taken away
// themselves, never followed.
//
// FO_COPY copies files, and folders with all that is in them, under their own names into the folder
// that is the one target, which must exist; a single name without a pattern to a name that does not
// exist is copied under that name. A file of the name is replaced, whole or not at all. Links are
// followed for files; links to folders are left out. With FOF_FILESONLY or FOF_NORECURSION a
// pattern copies files alone. A pattern for all names finds an empty folder a success; any other
// without a match is 2.
//
// FO_RENAME gives one file or folder another name in the same folder and never replaces.
//
// Without FOF_NOCONFIRMATION a deletion asks first; without FOF_NOERRORUI a failure is reported.
// The first failure ends the call. Gives 0, one of the codes above, or the system's code. 0 with
// fAnyOperationsAborted set: the answer was no, and nothing was done. Other functions give 87.
QELBASE_API int SHFileOperationW(SHFILEOPSTRUCTW* operation);

// Asked once before a deletion, with the names as they were given. Without one the answer is yes.
using ShellQuestion = std::function<bool(const std::vector<std::wstring>& names, bool undoable)>;
// Told of a failure: the name and the result of the call. Without one nothing is shown.
using ShellReport = std::function<void(const std::wstring& name, int code)>;

// Each takes the place of the one before and gives that one back. For the whole process; they run
// on the thread of the call.
QELBASE_API ShellQuestion SetShellQuestion(ShellQuestion question);
QELBASE_API ShellReport SetShellReport(ShellReport report);

// The places of the user and of the machine, by number; `number` may have the bit 0x8000, which
// creates a missing folder. Without it a missing folder is a failure.
//
//   0 16  desktop          XDG_DESKTOP_DIR         2   programs XDG_DATA_HOME/applications 5
//   documents        XDG_DOCUMENTS_DIR       26  roaming data       XDG_CONFIG_HOME 13    music
//   XDG_MUSIC_DIR           28  local data         XDG_DATA_HOME 14    videos XDG_VIDEOS_DIR 39
//   pictures           XDG_PICTURES_DIR 40    profile          HOME                    23  common
//   programs    /usr/local/share/applications 35    common data      /var/lib                46
//   common documents   /usr/local/share/documents 38    program files    /opt                    43
//   their shared parts /opt/common 36 37 the system       /usr
//
// XDG_..._DIR come from the environment, else from $XDG_CONFIG_HOME/user-dirs.dirs, else they are
// the usual folder in HOME. `path` has room for 260 characters and gets no closing separator. 0, or
// a negative code made of the system's (0x80070000 plus it), and then an empty text.
// `owner`, `token` and `flags` are not looked at.
[[nodiscard]] QELBASE_API LONG SHGetFolderPathW(HWND owner, int number, HANDLE token, DWORD flags,
                                                wchar_t* path);

// Creates a folder with all its parents. 0; 183 if something of that name exists, 161 for a
// relative path, 267 for a device name, 206 for a name that is too long, or the system's code.
// `owner` and `security` are not looked at.
QELBASE_API int SHCreateDirectoryExW(void* owner, const wchar_t* path, const void* security);

}  // namespace qel::sys
