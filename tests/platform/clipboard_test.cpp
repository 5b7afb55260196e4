// The clipboard without a desktop, and the blocks that go in and out.
#include "qelbase/platform/clipboard.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstring>
#include <thread>

#include "qelbase/outside/system/clipboard.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/memory.h"
#include "qelbase/outside/system/text.h"

#include "tests/platform/processes.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

using namespace qel::sys;
using namespace qeltest;

namespace {

class Clipboard : public testing::Test {
 protected:
  Clipboard() {
    m_variables.set("DISPLAY", nullptr);
    m_variables.set("XDG_RUNTIME_DIR", m_folder.path().c_str());
  }

  static std::wstring text() {
    CStringW text(L"unchanged");
    const int got = GetTextFromClipboard(text);
    return got ? std::wstring(text.GetString()) : L"none, " + std::wstring(text.GetString());
  }
  static std::size_t blockSize(UINT format) {
    EXPECT_TRUE(OpenClipboard(nullptr));
    const std::size_t size = GlobalSize(GetClipboardData(format));
    CloseClipboard();
    return size;
  }
  static HGLOBAL blockWith(std::string_view bytes) {
    const HGLOBAL block = GlobalAlloc(0x2002, bytes.size());
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
    return block;
  }
  static bool set(UINT format, std::string_view bytes) {
    return SetClipboardData(format, blockWith(bytes)) != nullptr;
  }
  // Whether another process can open it just now, and what stops it otherwise.
  static DWORD openingElsewhere() {
    return static_cast<DWORD>(runInChild([] {
                                _exit(OpenClipboard(nullptr) ? 0
                                                             : static_cast<int>(GetLastError()));
                              }).exit_code);
  }

  Variables m_variables;
  TempFolder m_folder;
};

TEST_F(Clipboard, KeepsTextsWhole) {
  EXPECT_EQ(text(), L"none, unchanged");
  const std::wstring large(32 << 20, L'\x4E2D');  // 64 MB of units
  for (const std::wstring& wide : {std::wstring(), std::wstring(L"W\xF6rk \x1F600\r\n"),
                                   std::wstring(L"lone \xD800"), large}) {
    EXPECT_TRUE(CopyStringToClipboard(wide.c_str()));
    EXPECT_TRUE(text() == wide);
    EXPECT_EQ(blockSize(13), ToUtf16Le(wide).size() + 2);
  }
  for (const char* narrow : {"", "W\xC3\xB6rk\n"}) {
    EXPECT_TRUE(CopyStringToClipboard(narrow));
    EXPECT_FALSE(IsClipboardFormatAvailable(13));
    EXPECT_EQ(text(), Widen(narrow));
    EXPECT_EQ(blockSize(1), std::strlen(narrow) + 1);
  }
  EXPECT_TRUE(runInChild([] { _exit(text() == L"W\xF6rk\n" ? 0 : 1); }).exit_code == 0);
  EXPECT_TRUE(CopyStringToClipboard(L"wide"));
  EXPECT_FALSE(IsClipboardFormatAvailable(1));
}

TEST_F(Clipboard, PrefersWideTextAndBoundsWhatIsThere) {
  ASSERT_TRUE(OpenClipboard(nullptr));
  ASSERT_TRUE(set(1, std::string_view("narrow\0behind", 13)));
  ASSERT_TRUE(set(13, std::string_view("w\0i\0d\0e", 7)));  // no terminator, an odd byte
  CloseClipboard();
  EXPECT_EQ(text(), L"wid");
  EXPECT_EQ(blockSize(1), 7u);
  // Whoever damaged the files, reading ends in a text.
  for (const std::string& bytes : {std::string(), std::string("x"), std::string("\0\xD8y", 3)}) {
    writeBytes(m_folder / "qelbase/clipboard/format-13", bytes);
    EXPECT_EQ(text(), FromUtf16Le(bytes));
  }
  std::filesystem::resize_file(m_folder / "qelbase/clipboard/format-13", 2ull << 30);
  EXPECT_EQ(text(), L"none, unchanged");
}

TEST_F(Clipboard, IsOpenedByOneThreadOfOneProcess) {
  ASSERT_TRUE(CopyStringToClipboard(L"old"));
  EXPECT_EQ(openingElsewhere(), 0u);
  ASSERT_TRUE(OpenClipboard(nullptr));
  EXPECT_FALSE(OpenClipboard(nullptr));
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_EQ(openingElsewhere(), 5u);
  EXPECT_FALSE(CopyStringToClipboard(L"new"));
  std::thread([] {
    EXPECT_FALSE(OpenClipboard(nullptr));
    for (const bool done :
         {EmptyClipboard() != 0, CloseClipboard() != 0, GetClipboardData(13) != nullptr}) {
      EXPECT_FALSE(done);
      EXPECT_EQ(GetLastError(), 1418u);
    }
  }).join();
  EXPECT_EQ(text(), L"none, unchanged");
  // A fork of the opener is another process, and its end leaves the opener's rights alone.
  EXPECT_EQ(runInChild([] { _exit(CloseClipboard() ? 1 : 0); }).exit_code, 0);
  EXPECT_EQ(openingElsewhere(), 5u);
  EXPECT_TRUE(CloseClipboard());
  EXPECT_EQ(openingElsewhere(), 0u);
  EXPECT_EQ(text(), L"old");
}

TEST_F(Clipboard, IsFreeAgainWhenItsOpenerDies) {
  EXPECT_TRUE(runInChild([] {
                (void)OpenClipboard(nullptr);
                raise(SIGKILL);
              }).killed());
  EXPECT_EQ(openingElsewhere(), 0u);
  std::thread([] { EXPECT_TRUE(OpenClipboard(nullptr)); }).join();
  EXPECT_EQ(openingElsewhere(), 0u);
  EXPECT_TRUE(OpenClipboard(nullptr));
  CloseClipboard();
  EXPECT_FALSE(CloseClipboard());
}

TEST_F(Clipboard, OwnsTheBlocksItTook) {
  const HGLOBAL block = blockWith("text");
  EXPECT_EQ(SetClipboardData(1, block), nullptr);
  EXPECT_EQ(GetLastError(), 1418u);
  ASSERT_TRUE(OpenClipboard(nullptr));
  EXPECT_EQ(SetClipboardData(2, block), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(SetClipboardData(1, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), 6u);
  EXPECT_EQ(SetClipboardData(1, block), block);
  EXPECT_EQ(SetClipboardData(13, block), nullptr);  // not twice
  EXPECT_EQ(GlobalFree(block), block);
  EXPECT_EQ(std::string(static_cast<char*>(GlobalLock(block)), 4), "text");
  const HGLOBAL given = GetClipboardData(1);
  EXPECT_EQ(GlobalFree(given), given);
  EXPECT_EQ(GetClipboardData(13), nullptr);
  EXPECT_EQ(GetLastError(), 2u);
  CloseClipboard();
  for (const HGLOBAL gone : {block, given}) {
    EXPECT_EQ(GlobalLock(gone), nullptr);
    EXPECT_EQ(GetLastError(), 6u);
  }
}

TEST_F(Clipboard, EndsClosedWithoutMemory) {
  ASSERT_TRUE(CopyStringToClipboard(L"old"));
  const SystemCalls kept = Calls();
  Calls().malloc = [](size_t) -> void* { return nullptr; };
  const int wide = CopyStringToClipboard(L"new");
  const int narrow = CopyStringToClipboard("new");
  Calls() = kept;
  EXPECT_FALSE(wide || narrow);
  EXPECT_EQ(openingElsewhere(), 0u);
  EXPECT_EQ(text(), L"none, unchanged");
}

TEST_F(Clipboard, TellsOfEveryFailureAndStaysWhole) {
  int done = 0;
  const auto look = [&](const Fault& fault) {
    EXPECT_TRUE(done || fault.struck);
    const std::wstring now = text();
    EXPECT_TRUE(now == (done ? L"new" : L"none, unchanged") || (!done && now == L"old"))
        << Narrow(now);
    EXPECT_EQ(openingElsewhere(), 0u);
  };
  const auto prepare = [] { ASSERT_TRUE(CopyStringToClipboard(L"old")); };
  forEachFault(
      prepare, [&] { done = CopyStringToClipboard(L"new"); }, look);
  forEachKill(
      prepare, [] { (void)CopyStringToClipboard(L"new"); },
      [&](const Fault&) {
        const std::wstring now = text();
        EXPECT_TRUE(now == L"old" || now == L"new" || now == L"none, unchanged");
        EXPECT_EQ(openingElsewhere(), 0u);
      });
}

TEST(Blocks, CountTheirLocks) {
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 3);
  EXPECT_EQ(GlobalSize(block), 3u);
  EXPECT_EQ(std::string(static_cast<char*>(GlobalLock(block)), 3), std::string(3, '\0'));
  EXPECT_NE(GlobalLock(block), nullptr);
  EXPECT_TRUE(GlobalUnlock(block));
  SetLastError(1);
  EXPECT_FALSE(GlobalUnlock(block));
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_FALSE(GlobalUnlock(block));
  EXPECT_EQ(GetLastError(), 158u);
  EXPECT_EQ(GlobalFree(block), nullptr);
  for (const HGLOBAL none : {block, HGLOBAL{}}) {
    SetLastError(0);
    EXPECT_EQ(GlobalLock(none), nullptr);
    EXPECT_EQ(GetLastError(), 6u);
    EXPECT_EQ(GlobalSize(none), 0u);
    EXPECT_EQ(GlobalFree(none), none);
  }
  const HGLOBAL empty = GlobalAlloc(GMEM_MOVEABLE, 0);
  EXPECT_EQ(GlobalLock(empty), nullptr);
  EXPECT_EQ(GetLastError(), 157u);
  EXPECT_EQ(GlobalFree(empty), nullptr);
  const HGLOBAL fixed = GlobalAlloc(GMEM_FIXED, 8);
  EXPECT_EQ(GlobalLock(fixed), static_cast<const void*>(fixed));
  EXPECT_TRUE(GlobalUnlock(fixed));
  EXPECT_EQ(GlobalFree(fixed), nullptr);
  EXPECT_EQ(GlobalAlloc(GMEM_MOVEABLE, SIZE_MAX / 2), nullptr);
  EXPECT_EQ(GetLastError(), 8u);
}

}  // namespace
