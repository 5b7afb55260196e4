#pragma once
// Messages by number, with an overlay of temporary texts.

#include <cstdint>
#include <map>
#include <string>

#include "qelbase/export.h"

// A temporary text hides the permanent one of its number until it is reset. Numbers have 32 bits.
// An object belongs to one thread at a time.
class QELBASE_API MStringTable {
 public:
  void SetMessageFor(long id, const std::wstring& text);
  void SetMessageForTemporary(long id, const std::wstring& text);
  void ResetTemporary(long id);
  [[nodiscard]] std::wstring GetMessageFor(long id) const;  // empty if there is none

 private:
  std::map<std::int32_t, std::wstring> m_messages;
  std::map<std::int32_t, std::wstring> m_temporary;
};
