#pragma once
// Free functions on path text. None touches the disk, and all may run on any thread.

#include <cstdint>
#include <string>

#include "qelbase/export.h"

// Cuts `path` into the four parts of a file name; the one grammar of paths in the library. Paths
// are Windows paths on every platform: both `\` and `/` separate. The parts hold the text of the
// path unchanged: separators are not turned, `.` and `..` are not resolved.
//
//   path                    drive       dir       file  ext
//   C:\a\b.txt              C:\         a\        b     .txt
//   C:\a\b\                 C:\         a\b\                   no file
//   \\server\share\f.dat    \\server\   share\    f     .dat
//   \\?\C:\x\y.txt          \\?\        x\        y     .txt
//   ..\a\b.txt              \           ..\a\     b     .txt
//   C:a\b.txt                           a\        b     .txt    a drive without a root is dropped
//   .hidden                                             .hidden is all extension
//
// With `is_directory` the whole text names a directory: `drive` is its root, `dir` the rest as it
// stands, and `file` and `ext` stay empty. C:\a\b gives C:\ and a\b.
//
// A directory that ends in `/` is kept whole, like one that ends in `\`: a/b.c/ gives the directory
// a/b.c/ and no file.
//
// False, and four empty parts, for an empty path. `path` may be one of the outputs. The outputs are
// assigned to, so that strings used again keep their memory; only an exhausted memory throws.
QELBASE_API bool POSITION_PATH_PARTS(const std::wstring& path, std::wstring& drive,
                                     std::wstring& dir, std::wstring& file, std::wstring& ext,
                                     bool is_directory);

// Shortens `path` for display: three dots stand for the leading directories, and as many whole
// directories as fit are kept at the end. C:\Users\me\docs\report.txt in 20 characters is
// C:\...\report.txt. A path of up to `max_length` characters comes back unchanged, a null pointer
// counts as an empty text.
// File and extension are never cut, so the result can be longer than `max_length`; it can also be
// one character longer when it begins with the drive.
[[nodiscard]] QELBASE_API std::wstring ABREVIATE_PATH(const wchar_t* path, std::uint32_t max_length,
                                                      bool is_directory);

namespace MFileUtility {

// Takes the characters \ / * : ? < > | " out of a bare file name: at the very start they are
// deleted, elsewhere each becomes `_`. True if there was one. `:a?b` becomes `a_b`.
QELBASE_API bool FixFileName(std::wstring& name);

}  // namespace MFileUtility
