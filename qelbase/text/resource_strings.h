#pragma once
// Texts by number that the application supplies.

#include <cstdint>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

// Where the library's texts come from; the application implements it.
class QELBASE_API IResStringWrapper {
 public:
  // Puts the text of `id` into `text`; false if there is none.
  virtual bool LoadStringEx(std::wstring& text, unsigned id) = 0;
  // What the two numbers and the result mean is the implementer's choice.
  virtual std::int32_t LoadCharEx(wchar_t* buffer, unsigned first, unsigned second) = 0;

 protected:
  ~IResStringWrapper() = default;
};

// Installs the wrapper, or removes it with null. It is not owned, and must live until another is
// installed. As a rule once, at start; each text is asked for on the thread that needs it.
QELBASE_API void SetMResStringWrapper(IResStringWrapper* wrapper);

// The text of `id`, or an empty one.
QELBASE_API std::wstring QelResLoadStringEx(unsigned id);
// True if the wrapper has the text; else `text` stays as it was.
QELBASE_API bool QelResLoadStringEx(CStringW& text, unsigned id);
// The wrapper's result. Without a wrapper `text` becomes empty, and the result is false.
QELBASE_API bool QelResLoadStringEx(std::wstring& text, unsigned id);
// The wrapper's result. Without a wrapper `buffer` gets one zero character, and the result is 0.
QELBASE_API std::int32_t QelResLoadCharEx(wchar_t* buffer, unsigned first, unsigned second);
