#include "qelbase/platform/clipboard.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "qelbase/outside/system/clipboard.h"
#include "qelbase/outside/system/memory.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

class OpenedClipboard {
 public:
  OpenedClipboard() : m_is_open(OpenClipboard(nullptr) != 0) {}
  ~OpenedClipboard() {
    if (m_is_open) CloseClipboard();
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;

  explicit operator bool() const { return m_is_open; }

 private:
  bool m_is_open;
};

// The clipboard is open. The bytes include the closing zero.
bool put(UINT format, std::string_view bytes) {
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_DDESHARE, bytes.size());
  if (!block) return false;
  std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
  GlobalUnlock(block);
  if (SetClipboardData(format, block)) return true;
  GlobalFree(block);
  return false;
}

// Text in a block ends at its zero, or where the block does.
void assignWide(CStringW& text, const void* data, std::size_t size) {
  const std::wstring wide = FromUtf16Le({static_cast<const char*>(data), size});
  text = wide.c_str();
}

void assignNarrow(CStringW& text, const void* data, std::size_t size) {
  const std::string narrow(static_cast<const char*>(data), size);
  text = narrow.c_str();
}

}  // namespace

int CopyStringToClipboard(const wchar_t* text) {
  const OpenedClipboard clipboard;
  if (!clipboard) return 0;
  EmptyClipboard();
  try {
    const std::wstring_view all(text ? text : L"");
    return put(CF_UNICODETEXT, ToUtf16Le({all.data(), all.size() + 1})) ? 1 : 0;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

int CopyStringToClipboard(const char* text) {
  const OpenedClipboard clipboard;
  if (!clipboard) return 0;
  EmptyClipboard();
  const std::string_view all(text ? text : "");
  return put(CF_TEXT, {all.data(), all.size() + 1}) ? 1 : 0;
}

int GetTextFromClipboard(CStringW& text) {
  if (!IsClipboardFormatAvailable(CF_UNICODETEXT) && !IsClipboardFormatAvailable(CF_TEXT)) return 0;
  const OpenedClipboard clipboard;
  if (!clipboard) return 0;
  const bool is_wide = IsClipboardFormatAvailable(CF_UNICODETEXT) != 0;
  const HGLOBAL block = GetClipboardData(is_wide ? CF_UNICODETEXT : CF_TEXT);
  const void* data = block ? GlobalLock(block) : nullptr;
  if (!data) return 0;
  (is_wide ? assignWide : assignNarrow)(text, data, GlobalSize(block));
  GlobalUnlock(block);
  return 1;
}
