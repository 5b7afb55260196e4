#pragma once
// File names: the one place where a Windows path turns into a native one and back.

#include <string>
#include <string_view>

#include "qelbase/export.h"

namespace qel::sys {

// The native (UTF-8 or raw byte) name that a Windows path reaches. Either separator counts, `\\?\`
// is taken off, `C:` is the root directory, another letter the root that was set for it, `\x` lies
// below the root, anything else below the current folder. `.` and `..` are resolved in the text;
// closing dots and blanks of the last component vanish, as does a closing separator. Behind `\\?\`
// nothing is resolved and no dot vanishes. Characters U+F001 to U+F0FF stand for one raw byte each,
// so that names that are no UTF-8, or hold `\`, `:` or `?`, survive the round trip.
// `C:a` lies below the current folder if that is on the drive, else below the drive's root.
//
//   C:\a\.\b\..\c.txt   /a/c.txt          a/b\c      a/b/c
//   C:\name. .           /name             ..\a       ../a
//   \\?\C:\name.         /name.            \a\b\      /a/b
//
// False, and the last error, for a path that reaches nothing: 3 for a drive letter without a root
// and for the empty text, 53 for a share without one, 123 for a refused character. `native` is then
// left as it was.
[[nodiscard]] QELBASE_API bool ToNative(std::wstring_view path, std::string& native);

// As ToNative, and also refuses (123) what the other system would refuse for a file or folder that
// does not exist yet: device names such as CON, with any extension. What exists under such a name
// passes. QEL_NATIVE_NAMES=1 in the environment lifts the refusal.
[[nodiscard]] QELBASE_API bool ToNativeForCreation(std::wstring_view path, std::string& native);

// The Windows path of an absolute native name: "/a/b" gives "C:\a\b", or the drive whose root is
// nearest above it; without such a drive "\a\b". A relative name gets its separators turned. What a
// Windows name cannot hold, a closing dot or blank too, is carried as told above. Never fails.
[[nodiscard]] QELBASE_API std::wstring FromNative(std::string_view native);

// Sets the native folder that a drive letter ('A' to 'Z', not case-sensitive) stands for; an empty
// text takes it away. `C` is "/" until set otherwise. For the whole process; safe on any thread.
QELBASE_API void SetDriveRoot(wchar_t drive, std::string_view native_root);

// Sets the native folder that the share root `\\server\` stands for; an empty text takes it away.
QELBASE_API void SetShareRoot(std::wstring_view server, std::string_view native_root);

}  // namespace qel::sys
