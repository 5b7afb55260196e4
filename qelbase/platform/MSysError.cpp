#include "qelbase/platform/MSysError.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <limits>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

std::uint32_t resolved(unsigned long code) {
  const auto low = static_cast<std::uint32_t>(code);
  return low == MSysError::CURRENT ? GetLastError() : low;
}

void dropLineEnds(wchar_t* text) {
  for (wchar_t* end = text + std::wcslen(text);
       end != text && (end[-1] == L'\r' || end[-1] == L'\n'); --end) {
    end[-1] = L'\0';
  }
}

}  // namespace

bool MSysError::Fill(unsigned long code) {
  m_code = resolved(code);
  return Fill(m_text, std::size(m_text), m_code);
}

bool MSysError::Fill(wchar_t* buffer, std::uint64_t size, unsigned long code) {
  if (!buffer || size == 0) return false;
  buffer[0] = L'\0';
  const std::uint32_t number = resolved(code);
  if (number == ERROR_SUCCESS) return true;
  constexpr std::uint64_t largest = std::numeric_limits<DWORD>::max();
  constexpr DWORD user_language = 0x400;
  const bool has_text =
      FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, number,
                     user_language, buffer, static_cast<DWORD>(std::min(size - 1, largest)),
                     nullptr) != 0;
  constexpr std::uint64_t room_for_number = 40;
  if (!has_text && size > room_for_number) {
    wsprintfW(buffer, L"<error code=%lu (0x%08lX)>", static_cast<unsigned long>(number),
              static_cast<unsigned long>(number));
  }
  buffer[size - 1] = L'\0';
  dropLineEnds(buffer);
  return has_text;
}

CStringW& MSysErrorCode::LoadError(CStringW& text, unsigned long code) {
  MSysError error;
  error.Fill(code);
  return text = error.m_text;
}

unsigned long QelGetLastError() {
  if (GetLastError() == ERROR_SUCCESS) SetLastError(1);
  return GetLastError();
}
