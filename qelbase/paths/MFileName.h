#pragma once
// The value class in which the library passes file and folder names.

#include <cstddef>
#include <cstdint>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

// A file or directory name as four separately editable parts:
//
//   C:\a\b.txt  =  drive `C:\`  +  directory `a\`  +  file `b`  +  extension `.txt`
//
// POSITION_PATH_PARTS (path_functions.h) tells how a text is cut. Names are Windows paths on every
// platform; outside/system/names.h tells which native file one reaches.
//
// Pointers. GET, the conversion operator, GET_DRIVE_DIR_PARTS and GET_FILE_EXT_PARTS put their text
// together anew in a buffer of the object: the pointer lives until the next such call on the object
// or any change of it. GET_DRIVE_PART, GET_DIR_PART, GET_FILE_PART and GET_EXT_PART point into the
// parts and live until the part changes. None is ever null. An argument may be such a pointer of
// the same object. A null pointer counts as an empty text everywhere.
//
// Threads. No locks, and the getters write the buffer, also on a const object: an object belongs to
// one thread at a time. Separate objects are independent.
//
// Errors. Nothing here throws but an exhausted memory. Failures of the disk are the results told.
class QELBASE_API MFileName {
 public:
  // Bits of COMPARE.
  enum : std::uint16_t {
    COMPARE_DRIVE = 1,
    COMPARE_DIR = 2,
    COMPARE_FILE = 4,
    COMPARE_EXT = 8,
    COMPARE_ALL = 15,
    COMPARE_CASE = 0x1000,
  };

  MFileName();  // all parts empty
  MFileName(const wchar_t* path, bool is_directory);
  MFileName(const MFileName& other);
  // By the part setters, so an empty drive gives `\`; an empty extension gives a single dot.
  MFileName(const wchar_t* drive, const wchar_t* dir, const wchar_t* file, const wchar_t* ext);
  // SET of dir + `\` + file + `.` + ext (given without its dot, left out when empty); a leading `\`
  // is added where `dir` has no root.
  MFileName(const wchar_t* dir, const wchar_t* file, const wchar_t* ext, bool is_directory);
  MFileName& operator=(const MFileName& other);
  ~MFileName() = default;

  // Replaces all four parts. With `is_directory` the whole text names a directory.
  void SET(const wchar_t* path, bool is_directory);
  void FREE();                        // SET of an empty text
  void COPY(const MFileName& other);  // the four parts and the relative mode
  // Joins another name onto this one. A drive letter, a file and an extension of `other` replace
  // those here. Its directory replaces this one if its drive begins with `\`, else it is appended;
  // on the way `.\` is left out and each `..` goes up one directory, as far as there is one.
  // These rules look at single characters: they hold for any dot in the text. The joined directory
  // holds 259 characters; what is longer is cut there.
  void APPEND(const MFileName& other);
  MFileName& operator+=(const MFileName& other);

  // The whole name. A `\` is put between directory and file where none closes the directory; a name
  // that is a directory only, without a drive, reads with a leading `\`.
  const wchar_t* GET() const;
  operator const wchar_t*() const;
  // Drive and directory; a text that is not empty ends in a `\` or, without `with_separator`, has
  // one taken off.
  const wchar_t* GET_DRIVE_DIR_PARTS(bool with_separator) const;
  const wchar_t* GET_FILE_EXT_PARTS() const;
  const wchar_t* GET_DRIVE_PART() const;
  const wchar_t* GET_DIR_PART() const;
  const wchar_t* GET_FILE_PART() const;
  const wchar_t* GET_EXT_PART() const;

  // Sets `\` for an empty text, else closes the text with a `\`.
  void SET_DRIVE_PART(const wchar_t* drive);
  // Closes a text that is not empty with a `\`. `max_length` has no effect.
  void SET_DIR_PART(const wchar_t* dir, std::size_t max_length);
  // The characters \ / : < > | become blanks, then the text is cut to `max_length` characters.
  void SET_FILE_PART(const wchar_t* file, std::size_t max_length);
  // As SET_FILE_PART; a missing dot is put in front and doesn't count against `max_length`.
  void SET_EXT_PART(const wchar_t* ext, std::size_t max_length);
  // Cuts the name before its last dot and sets both parts; without a dot the extension is emptied.
  void SET_FILE_EXT_PARTS(const wchar_t* name, std::size_t max_file, std::size_t max_ext);

  // true takes a drive that is a bare `\` away, false gives `\` to a name without a drive. So a
  // name set from ..\a\b.txt reads \..\a\b.txt at first, and ..\a\b.txt after `true`.
  void SET_RELATIVE_PATH_MODE(bool on);

  bool IS_EMPTY() const;  // all four parts are
  // True if all parts that `flags` (COMPARE_...) asks for are equal; with no such flag, always.
  // Case is ignored by simple Unicode folding, whatever setlocale says, unless COMPARE_CASE is
  // given. A closing `\` of a directory does not count.
  bool COMPARE(const MFileName& other, std::uint16_t flags) const;
  bool operator==(const MFileName& other) const;  // COMPARE_ALL
  bool operator!=(const MFileName& other) const;

  // -- On the disk. Each works on GET or GET_DRIVE_DIR_PARTS, and so ends pointers of this object.
  // An answer about the disk holds for the moment of the question.

  bool DOES_EXIST() const;         // of any kind, folders too; false if that can't be found out
  std::int64_t FILE_SIZE() const;  // in bytes; -1 for what is no file or can't be asked
  // What exists may be written to, or nothing exists. Looks at the read-only attribute alone, so it
  // is true in a folder that doesn't exist.
  bool IS_WRITABLE() const;
  bool IS_UPDATABLE() const;  // the file could be opened for update just now
  // Creates the folder of drive and directory with all that is missing on the way. True also if it
  // exists already.
  bool CREATE_DIRECTORY() const;
  // Removes the file; without a file part, the folder with all that is in it (what hangs on a
  // symbolic link is left alone, only the link goes). True if anything was removed, so also for a
  // tree that could be removed in part only. An empty name and a root are refused.
  bool REMOVE();
  // Moves the file, or without a file part the folder of drive and directory, to the recycle bin
  // (so a name such as .hidden, which is all extension, stands for its folder here). `confirm` asks
  // the user through the shell's hook. False if it failed or was cancelled.
  bool REMOVE_SHELL(bool confirm);
  // Renames what REMOVE_SHELL would remove to the name `target`. `show_errors` lets the shell tell
  // the user of errors.
  bool RENAME_SHELL(MFileName& target, bool show_errors);
  // Copies the content of `source` to this name. True for a name equal to this one but for case,
  // without looking at the disk, and for another name of the very file, which stays as it is. False
  // if a file can't be opened; a copy that then fails on the way is not told.
  bool COPY_FILE(const MFileName& source) const;

  // This name becomes that of the module's file (null: the program's); false and unchanged for an
  // unknown module. Names are cut at 260 characters.
  bool FILL_WITH_MODULE_PATH(HINSTANCE module);
  // This name becomes the current or the temporary folder, all of it in drive and directory. Always
  // true; the name is empty if the folder can't be told, or is none.
  bool FILL_WITH_WORKING_PATH();
  bool FILL_WITH_TEMPORARY_PATH();

  // Appends the first of the numbers 1 to 999 to the file part that makes a name nothing exists at,
  // with zeros on the left up to `width` digits. False, and unchanged, if all 999 exist.
  bool ADD_UNIQUE_INDEX(std::uint8_t width);
  // Makes a name in the folder `dir` at which nothing exists, from `prefix`, a number and `ext`,
  // and gives the number after the one taken.
  //   dir     null or empty: the temporary folder
  //   prefix  null: "~qel", and `width` has no effect. Cut so that folder, prefix, number and
  //           extension stay within 255 characters; the number is never cut
  //   ext     null: ".tmp"
  //   index   the first number to try. 65535: the counter of the process, which begins at 1 and
  //           moves on with each such call, whether or not the file is created
  //   width   1 to 127: zeros on the left up to so many digits; anything else: none
  // The number wraps after 65535. If something exists at all 65536 names, the name is emptied, so
  // that it can't be mistaken for a free one, and the first number is returned.
  // Nothing is created: of two threads or processes both may be given one name.
  std::uint16_t SET_TEMP_NAME(const wchar_t* dir, const wchar_t* prefix, const wchar_t* ext,
                              std::uint16_t index, std::int32_t width);

  // Cuts the file part to 256 characters, and replaces each of $ \ / : * ? " < > | by `_`.
  void MAKE_SAFE();
  bool IsSafe() const;  // MAKE_SAFE would change nothing, and the file part is not empty

  // Whether file part, extension (with its dot), or both fit a mask, ignoring case. A mask is a
  // prefix test: `?` stands for any character, `*` ends the comparison with true, and so does the
  // end of either text. An empty part fits an empty mask and ".*" alone.
  bool FILTER_FILE(const wchar_t* mask) const;
  bool FILTER_EXT(const wchar_t* mask) const;
  bool FILTER(const wchar_t* file_mask, const wchar_t* ext_mask) const;

 protected:
  // Compare two texts, with COMPARE_CASE in `flags` exactly.
  static bool _COMPARE_PARTS(const wchar_t* a, const wchar_t* b, std::uint16_t flags);
  static bool _COMPARE_DIR_PARTS(const wchar_t* a, const wchar_t* b, std::uint16_t flags);
  void _INIT();  // sets the relative mode to false

  std::wstring m_drive;  // the root with its closing separator: `C:\`, `\\server\`, `\`
  std::wstring m_dir;    // below the root, as a rule closed by `\`: `a\b\`
  std::wstring m_file;
  std::wstring m_ext;           // with its dot
  mutable std::wstring m_text;  // what a joining getter put together last
  bool m_relative;              // the last value given to SET_RELATIVE_PATH_MODE
};
