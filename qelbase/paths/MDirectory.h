#pragma once
// Places on the machine, and checks and copies of folders. All paths are Windows paths.
//
// Nothing here throws or logs. Everything is safe on any thread; the current folder and the
// environment that some functions read belong to the whole process.

#include <cstdint>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

class MFileName;

namespace MDirectory {

// -- Places. Empty if the system can't tell. Only the first and the third end in a backslash.

QELBASE_API std::wstring GetApplication();  // folder of the running program
QELBASE_API std::wstring GetCurrent();
QELBASE_API std::wstring GetTemporary();  // what TMP, else TEMP says, else /tmp
// Creates an empty file with a name of its own there, which begins with three characters of
// `prefix`; the caller removes it.
QELBASE_API std::wstring GetTemporaryFileName(const std::wstring& prefix);
QELBASE_API std::wstring GetSystemDrive();  // as "C:"
// A place by its number (shell.h has the table). Without `create` a folder that is missing gives
// the empty text; with it, one that can't be created.
QELBASE_API std::wstring GetStandard(std::uint32_t number, bool create);
// The place that all users share, or this user's own.
QELBASE_API std::wstring GetPrograms(bool common);
QELBASE_API std::wstring GetProgramFiles(bool common);  // common: components that programs share
QELBASE_API std::wstring GetDocuments(bool common);
QELBASE_API std::wstring GetApplicationData(bool common);
// As GetStandard, into a buffer of 260 characters. True on success. `owner` has no effect.
QELBASE_API bool GET_SPECIAL_FOLDER_PATH(wchar_t* buffer, HWND owner, std::uint32_t number);

// The program's folder as a name without file and extension. True if the system could tell.
QELBASE_API bool GET_EXECUTABLE_DIRECTORY(MFileName& result);
// What "WorkingDirectory" in section "Sorvic" of qelware.ini beside the program says, as a
// directory; empty and false without the file or the key. Both give the same.
QELBASE_API bool GET_WORKING_DIRECTORY(MFileName& result);
QELBASE_API bool GET_PROJECT_DIRECTORY(MFileName& result);

// -- Checks.

// True also for a folder that doesn't exist or can't be listed.
QELBASE_API bool IsDirectoryEmpty(const CStringW& path);
// False only if the system denies the kinds of access in the mask (CreateFileW); so a folder that
// doesn't exist gives true.
QELBASE_API bool DirectoryHasAccess(const CStringW& path, std::uint32_t access);
// Copies the files that lie directly in `from` into `to`, which is created with its parents; what
// is there under such a name is replaced. No sub-folder is copied. True if all were copied, and for
// a folder without files. `show` lets the shell show what it does.
QELBASE_API bool CopyDirectoryContents(const CStringW& from, const CStringW& to, bool show);

}  // namespace MDirectory
