// Texts of error codes.
#include "qelbase/outside/system/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cwchar>
#include <set>
#include <string>

#include "qelbase/platform/MSysError.h"

using namespace qel::sys;

namespace {

std::wstring raw(DWORD code, DWORD size = 200) {
  wchar_t buffer[200];
  const DWORD length = FormatMessageW(0x1200, nullptr, code, 0x400, buffer, size, nullptr);
  return {buffer, length};
}

TEST(SysError, HasATextOfItsOwnForEveryCodeThatCallsGive) {
  std::set<std::wstring> texts;
  std::set<DWORD> codes = {1,    2,    3,    12345, 32,   80,   87,         111,        123,
                           126,  161,  203,  234,   258,  259,  267,        317,        995,
                           1009, 1017, 1018, 1021,  1053, 1056, 1060,       1061,       1062,
                           1072, 1073, 1113, 1150,  1223, 1338, 1400,       1418,       1460,
                           1812, 1813, 1814, 1815,  1816, 1921, 0x80004005, 0x8000FFFF, 53};
  codes.erase(12345);
  for (int error = 1; error < 134; ++error) codes.insert(ErrorFromErrno(error));
  for (const DWORD code : codes) {
    const std::wstring text = raw(code);
    EXPECT_TRUE(text.ends_with(L".\r\n")) << code;
    EXPECT_TRUE(texts.insert(text).second) << code;
    EXPECT_TRUE(MSysError().Fill(code));
  }
  EXPECT_EQ(raw(0x80070006), raw(6));
}

TEST(SysError, FormatMessageNeverCutsAText) {
  const std::wstring text = raw(5);
  EXPECT_EQ(text, L"Access is denied.\r\n");
  EXPECT_EQ(raw(5, 20), text);
  EXPECT_EQ(raw(5, 19), L"");
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(raw(54321), L"");
  EXPECT_EQ(GetLastError(), ERROR_MR_MID_NOT_FOUND);
  wchar_t buffer[200];
  EXPECT_EQ(FormatMessageW(0x200, nullptr, 5, 0, buffer, 200, nullptr), 0U);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(SysError, FillsByCodeOrByTheLastError) {
  MSysError error;
  SetLastError(5);
  EXPECT_TRUE(error.Fill(0xFFFFFFFF));
  EXPECT_EQ(error.m_code, 5U);
  EXPECT_STREQ(error.m_text, L"Access is denied.");
  EXPECT_TRUE(error.Fill(0));
  EXPECT_EQ(error.m_code, 0U);
  EXPECT_STREQ(error.m_text, L"");
  EXPECT_FALSE(error.Fill(54321));
  EXPECT_STREQ(error.m_text, L"<error code=54321 (0x0000D431)>");
  CStringW text = L"old";
  EXPECT_EQ(&MSysErrorCode::LoadError(text, 0xFFFFFFFF00000005), &text);  // the low 32 bits
  EXPECT_EQ(text, L"Access is denied.");
}

TEST(SysError, FillKeepsToTheBuffer) {
  const auto fill = [](std::uint64_t size, unsigned long code, bool expected) {
    wchar_t buffer[64];
    std::wmemset(buffer, L'~', 64);
    EXPECT_EQ(MSysError::Fill(buffer, size, code), expected) << size;
    EXPECT_EQ(buffer[size], L'~') << size;
    return size == 0 ? std::wstring() : std::wstring(buffer);
  };
  EXPECT_EQ(fill(41, 54321, false), L"<error code=54321 (0x0000D431)>");
  EXPECT_EQ(fill(41, 0xFFFFFFFE, false), L"<error code=4294967294 (0xFFFFFFFE)>");
  EXPECT_EQ(fill(40, 54321, false), L"");
  EXPECT_EQ(fill(20, 5, false), L"");  // one place is kept back
  EXPECT_EQ(fill(21, 5, true), L"Access is denied.");
  EXPECT_EQ(fill(1, 5, false), L"");
  EXPECT_EQ(fill(1, 0, true), L"");
  fill(0, 5, false);
}

TEST(SysError, TheLastErrorIsNeverNothing) {
  SetLastError(0);
  EXPECT_EQ(QelGetLastError(), 1U);
  EXPECT_EQ(GetLastError(), 1U);
  SetLastError(32);
  EXPECT_EQ(QelGetLastError(), 32U);
}

}  // namespace
