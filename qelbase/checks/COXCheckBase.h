#pragma once
// The family of running check values: what all of them share.

#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CFile.h"
#include "qelbase/outside/system/types.h"

// A check value that runs over memory blocks and files. Blocks and files given one after the other
// continue one check; `Reset` starts anew. An object belongs to one thread at a time.
class QELBASE_API COXCheckBase {
 public:
  enum ESize { sizeNone = 0, size8 = 1, size16 = 2, size32 = 3 };

  COXCheckBase();
  explicit COXCheckBase(ESize size);
  COXCheckBase(const COXCheckBase& other);
  COXCheckBase& operator=(const COXCheckBase& other);

  // Virtual operations, in slot order.
  virtual ~COXCheckBase();

  // Makes `initial` the running value, folds `length` bytes into it and gives it, cut to the width
  // of the class. A length of 0 gives the cut initial value and leaves the uncut one running.
  virtual DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) = 0;

  // Goes on from the running value.
  virtual DWORD CalculateBlock(const void* data, DWORD length);

  // Reads the whole file, in blocks of 2048 bytes, while others may not write it. Throws a
  // `CFileException` (by pointer) if it cannot be opened or read; the running value is then what
  // it was before.
  virtual DWORD CalculateFile(std::wstring file_name);

  // Reads at most `length` bytes from the file's current position on, each time `block_size` bytes
  // or the rest. Ends without error where the file ends. One buffer of at most `block_size` bytes
  // serves the whole run; a length of 0xFFFFFFFF reads up to the end of files below 4 GiB. Gives
  // the running value as 32 bits. A `CFileException` passes, and the running value is put back.
  virtual DWORD CalculateFile(CFile* file, DWORD length, DWORD block_size);

  // Puts the running value back to 0xFFFFFFFF, which is all ones at any width.
  void Reset();

 protected:
  DWORD m_value;  // the running value; narrow classes read its low bits
  ESize m_size;
};
