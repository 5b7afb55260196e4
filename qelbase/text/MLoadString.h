#pragma once
// Strings of a module's string table, with an error text in the place of a missing one.

#include <cstddef>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

// Each gives `buffer`, which gets the string cut to `size` - 1 characters and terminated; with size
// 0 it isn't touched. Id 0 is the empty text. A string that is missing or empty is replaced by
// "ID=...: can't load string from module: '...', h=...". Without a module the string comes from
// CQelResource::mh_AppInstance. Any thread may call.
QELBASE_API wchar_t* MLoadString(HINSTANCE module, unsigned id, wchar_t* buffer, std::size_t size);
QELBASE_API wchar_t* MLoadString(unsigned id, wchar_t* buffer, std::size_t size);

// The string of any length.
QELBASE_API CStringW& MLoadString(CStringW& text, unsigned id);

// The string, cut to the buffer, as a format for the arguments (as wvsprintfW has it, which stops
// at 1023 characters).
QELBASE_API wchar_t* MLoadStringF(unsigned id, wchar_t* buffer, std::size_t size, ...);

// A text that is put into a buffer of whatever size.
class QELBASE_API IStringLoader {
 public:
  // Fills the buffer with at most `size` characters, the terminator included, and gives it.
  virtual const wchar_t* operator()(wchar_t* buffer, std::size_t size) = 0;

 protected:
  ~IStringLoader() = default;
};
