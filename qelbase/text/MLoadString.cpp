#include "qelbase/text/MLoadString.h"

#include <algorithm>
#include <cstdarg>
#include <cwchar>
#include <limits>

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/resources.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/text/CQelResource.h"

namespace sys = qel::sys;

namespace {

constexpr std::size_t kErrorSize = 200;
constexpr std::size_t kFormattedSize = 1024;
constexpr std::size_t kFirstSize = 257;
constexpr std::size_t kGrowth = 256;

// Cut to `size` with its terminator; `size` is not 0.
void CopyCut(const wchar_t* text, wchar_t* buffer, std::size_t size) {
  const std::size_t length = std::min(std::wcslen(text), size - 1);
  std::wmemmove(buffer, text, length);
  buffer[length] = 0;
}

void PutErrorText(HINSTANCE module, unsigned id, wchar_t* buffer, std::size_t size) {
  const auto room = std::min<std::size_t>(size, std::numeric_limits<DWORD>::max());
  *buffer = 0;
  sys::GetModuleFileNameW(module, buffer, static_cast<DWORD>(room));
  const std::wstring text = QelStdBase::FormatString(
      L"ID=%u: can't load string from module: '%s', h=%lX", id, buffer,
      static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(module)));
  CopyCut(text.c_str(), buffer, std::min(size, kErrorSize));
}

class RC_StringLoader final : public IStringLoader {
 public:
  explicit RC_StringLoader(unsigned id) : m_id(id) {}
  const wchar_t* operator()(wchar_t* buffer, std::size_t size) override {
    return MLoadString(m_id, buffer, size);
  }

 private:
  unsigned m_id;
};

void LoadWhole(CStringW& text, IStringLoader& load) {
  wchar_t local[kFirstSize];
  if (std::wcslen(load(local, kFirstSize)) < kFirstSize - 2) {
    text = local;
    return;
  }
  // The text may have been cut: more room, until some is left over.
  std::size_t size = kFirstSize;
  std::size_t length;
  do {
    size += kGrowth;
    length = std::wcslen(load(text.GetBuffer(static_cast<int>(size)), size));
    text.ReleaseBuffer(static_cast<int>(length));
  } while (length + 3 > size);
}

}  // namespace

wchar_t* MLoadString(HINSTANCE module, unsigned id, wchar_t* buffer, std::size_t size) {
  if (size == 0) return buffer;
  *buffer = 0;
  if (id == 0) return buffer;
  std::wstring text;
  if (sys::LoadStringW(module, id, text)) {
    CopyCut(text.c_str(), buffer, size);
  } else {
    PutErrorText(module, id, buffer, size);
  }
  return buffer;
}

wchar_t* MLoadString(unsigned id, wchar_t* buffer, std::size_t size) {
  return MLoadString(CQelResource::GetResInstance(), id, buffer, size);
}

CStringW& MLoadString(CStringW& text, unsigned id) {
  RC_StringLoader load(id);
  LoadWhole(text, load);
  return text;
}

wchar_t* MLoadStringF(unsigned id, wchar_t* buffer, std::size_t size, ...) {
  MLoadString(id, buffer, size);
  if (size == 0 || *buffer == 0) return buffer;
  wchar_t formatted[kFormattedSize];
  va_list args;
  va_start(args, size);
  sys::wvsprintfW(formatted, buffer, args);
  va_end(args);
  CopyCut(formatted, buffer, size);
  return buffer;
}
