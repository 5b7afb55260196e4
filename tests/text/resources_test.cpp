#include "qelbase/outside/system/resources.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/text/CQelResource.h"
#include "qelbase/text/MBlobBuffer.h"
#include "qelbase/text/MLoadString.h"
#include "qelbase/text/MStringTable.h"
#include "qelbase/text/resource_strings.h"

namespace sys = qel::sys;

namespace {

// A shared object with resources of its own.
class Module {
 public:
  Module() : m_library(::dlopen(RESOURCE_MODULE, RTLD_NOW | RTLD_LOCAL)) {
    m_handle = sys::GetModuleHandleW(L"libresource_module.so");
  }
  ~Module() { ::dlclose(m_library); }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  HINSTANCE handle() const { return m_handle; }

 private:
  void* m_library;
  HINSTANCE m_handle;
};

std::wstring loaded(HINSTANCE module, UINT id) {
  std::wstring text = L"untouched";
  sys::LoadStringW(module, id, text);
  return text;
}

struct Wrapper final : IResStringWrapper {
  Wrapper() { SetMResStringWrapper(this); }
  ~Wrapper() { SetMResStringWrapper(nullptr); }
  bool LoadStringEx(std::wstring& text, unsigned id) override {
    text = L"text " + std::to_wstring(id);
    return id < 100;
  }
  std::int32_t LoadCharEx(wchar_t* buffer, unsigned first, unsigned second) override {
    *buffer = L'#';
    return static_cast<std::int32_t>(first * 10 + second);
  }
};

struct Buffer : MBlobBuffer {
  using MBlobBuffer::__Create_with_threshold;
  using MBlobBuffer::m_block;
  using MBlobBuffer::m_capacity;
  using MBlobBuffer::m_used;
};

}  // namespace

TEST(Resources, StringsOfTheProgramAndOfALoadedModule) {
  EXPECT_EQ(loaded(nullptr, 100), L"Größe 漢 𐍈");
  EXPECT_EQ(loaded(nullptr, 111), L"end of block");
  EXPECT_EQ(loaded(nullptr, 112), L"untouched");
  const Module module;
  ASSERT_NE(module.handle(), nullptr);
  EXPECT_EQ(loaded(module.handle(), 100), L"of the module");
  EXPECT_EQ(loaded(sys::GetModuleHandleW(nullptr), 111), L"end of block");
  CStringW text = L"old";
  EXPECT_FALSE(text.LoadStringW(112));
  EXPECT_EQ(text, CStringW(L"old"));
  EXPECT_TRUE(text.LoadStringW(module.handle(), 100));
  EXPECT_EQ(text, CStringW(L"of the module"));
}

TEST(Resources, StringsAreCutToTheBufferOrLentWhole) {
  wchar_t buffer[8];
  EXPECT_EQ(sys::LoadStringW(nullptr, 200, buffer, 8), 7);
  EXPECT_STREQ(buffer, L"1234567");
  EXPECT_EQ(sys::LoadStringW(nullptr, 200, buffer, 1), 0);
  EXPECT_STREQ(buffer, L"");
  EXPECT_EQ(sys::LoadStringW(nullptr, 200, buffer, -1), 0);
  const wchar_t* whole = nullptr;
  EXPECT_EQ(sys::LoadStringW(nullptr, 200, reinterpret_cast<wchar_t*>(&whole), 0), 20);
  EXPECT_STREQ(whole, L"12345678901234567890");
}

TEST(Resources, TheLanguageIsTheUsersElseEnglish) {
  sys::SetUserLanguage(0x0407);
  EXPECT_EQ(loaded(nullptr, 300), L"deutsch");
  sys::SetUserLanguage(0x0807);  // another country of the same language
  EXPECT_EQ(loaded(nullptr, 300), L"deutsch");
  sys::SetUserLanguage(0x0411);
  EXPECT_EQ(loaded(nullptr, 300), L"english");
  sys::SetUserLanguage(0);
  const wchar_t* block = sys::MakeIntResource(300 / 16 + 1);
  const wchar_t* strings = sys::MakeIntResource(sys::RT_STRING);
  EXPECT_NE(sys::FindResourceExW(nullptr, strings, block, 0x0407), nullptr);
  EXPECT_EQ(sys::FindResourceExW(nullptr, strings, block, 0x040C), nullptr);
  EXPECT_EQ(sys::GetLastError(), 1815u);
}

TEST(Resources, TheErrorTellsWhatIsMissing) {
  const wchar_t* raw = sys::MakeIntResource(sys::RT_RCDATA);
  EXPECT_EQ(sys::FindResourceW(nullptr, L"nothing", raw), nullptr);
  EXPECT_EQ(sys::GetLastError(), 1814u);
  EXPECT_EQ(sys::FindResourceW(nullptr, L"#7", L"nothing"), nullptr);
  EXPECT_EQ(sys::GetLastError(), 1813u);
  HINSTANCE libc = sys::GetModuleHandleW(L"libc.so.6");
  EXPECT_EQ(sys::FindResourceW(libc, L"#7", raw), nullptr);
  EXPECT_EQ(sys::GetLastError(), 1812u);
  const sys::HRSRC found = sys::FindResourceW(nullptr, L"#7", raw);
  EXPECT_EQ(sys::LoadResource(libc, found), nullptr);
  EXPECT_EQ(sys::GetLastError(), 87u);
}

TEST(CQelResource, MapsRawBytes) {
  CQelResource resource;
  EXPECT_TRUE(resource.Load(L"#7", sys::MakeIntResource(sys::RT_RCDATA)));
  ASSERT_EQ(resource.GetSizeInBytes(), 9u);
  EXPECT_EQ(std::memcmp(resource.GetData(), "raw\0bytes", 9), 0);
  EXPECT_TRUE(resource.Load(L"nAMEd", L"custom"));
  EXPECT_EQ(resource.GetSizeInBytes(), 8u);
  resource.Release();
  EXPECT_EQ(resource.GetData(), nullptr);
  EXPECT_EQ(resource.GetSizeInBytes(), 8u);
  sys::SetLastError(sys::ERROR_SUCCESS);
  EXPECT_FALSE(resource.Load(L"Empty", sys::MakeIntResource(sys::RT_RCDATA)));
  EXPECT_EQ(sys::GetLastError(), 1u);
  const Module module;
  CQelResource::SetResInstance(module.handle());
  EXPECT_FALSE(resource.Load(L"#7", sys::MakeIntResource(sys::RT_RCDATA)));
  EXPECT_EQ(sys::GetLastError(), 1813u);
  CQelResource::SetResInstance(nullptr);
}

TEST(MLoadString, GivesTheStringOrAnErrorTextInItsPlace) {
  wchar_t buffer[300];
  EXPECT_STREQ(MLoadString(111, buffer, 300), L"end of block");
  EXPECT_STREQ(MLoadString(200, buffer, 5), L"1234");
  EXPECT_STREQ(MLoadString(200, buffer, 1), L"");
  EXPECT_STREQ(MLoadString(999, buffer, 1), L"");
  EXPECT_STREQ(MLoadString(0, buffer, 300), L"");
  wchar_t untouched[2] = L"x";
  EXPECT_STREQ(MLoadString(999, untouched, 0), L"x");
  wchar_t file[300];
  sys::GetModuleFileNameW(nullptr, file, 300);
  EXPECT_EQ(std::wstring(MLoadString(999, buffer, 300)),
            L"ID=999: can't load string from module: '" + std::wstring(file) + L"', h=0");
  EXPECT_STREQ(MLoadString(999, buffer, 40), L"ID=999: can't load string from module: ");
}

TEST(MLoadString, WholeTextsOfAnyLength) {
  CStringW text;
  for (const int length : {254, 255, 510, 511, 2000}) {
    MLoadString(text, static_cast<unsigned>(1000 + length));
    EXPECT_EQ(text.GetLength(), length);
    EXPECT_EQ(text.Right(3), CStringW(L"end"));
  }
  EXPECT_TRUE(MLoadString(text, 0).IsEmpty());
}

TEST(MLoadString, FormatsFilledWithArguments) {
  wchar_t buffer[40];
  EXPECT_STREQ(MLoadStringF(101, buffer, 40, 3u, L"four"), L"3 of four at 100%");
  EXPECT_STREQ(MLoadStringF(101, buffer, 6, 3u, L"four"), L"3 of");
  EXPECT_STREQ(MLoadStringF(0, buffer, 40, 3u, L"four"), L"");
}

TEST(QelResLoadString, AsksTheWrapperAndDiffersInWhatFailureLeaves) {
  CStringW text = L"old";
  std::wstring wide = L"old";
  wchar_t c[] = L"x";
  EXPECT_FALSE(QelResLoadStringEx(text, 5) || QelResLoadStringEx(wide, 5));
  EXPECT_EQ(text, CStringW(L"old"));
  EXPECT_EQ(wide, L"");
  EXPECT_EQ(QelResLoadCharEx(c, 1, 2), 0);
  EXPECT_EQ(c[0], 0);
  const Wrapper wrapper;
  EXPECT_FALSE(QelResLoadStringEx(text, 500) || QelResLoadStringEx(wide, 500));
  EXPECT_EQ(text, CStringW(L"old"));
  EXPECT_EQ(wide, L"text 500");
  EXPECT_TRUE(QelResLoadStringEx(text, 5));
  EXPECT_EQ(text, CStringW(L"text 5"));
  EXPECT_EQ(QelResLoadStringEx(7), L"text 7");
  EXPECT_EQ(QelResLoadCharEx(c, 4, 2), 42);
}

TEST(MStringTable, TemporaryTextsHidePermanentOnes) {
  MStringTable table;
  table.SetMessageFor(5, L"a");
  table.SetMessageForTemporary(5, L"b");
  const MStringTable copy = table;
  EXPECT_EQ(table.GetMessageFor(5), L"b");
  table.ResetTemporary(5);
  table.ResetTemporary(5);
  EXPECT_EQ(table.GetMessageFor(5), L"a");
  EXPECT_EQ(table.GetMessageFor((1L << 32) + 5), L"a");
  EXPECT_EQ(table.GetMessageFor(-5), L"");
  EXPECT_EQ(copy.GetMessageFor(5), L"b");
}

TEST(MBlobBuffer, KeepsItsBlockWithinTheThreshold) {
  struct Step {
    int size, keep, relative;
    std::uint64_t capacity, used;
  };
  Buffer buffer;
  for (const Step& step :
       {Step{100, 0, 0, 1024, 100}, Step{2000, 1, 0, 2048, 2000}, Step{100, 1, 0, 1024, 100},
        Step{50, 1, 1, 1024, 150}, Step{1024, 1, 0, 1024, 1024}, Step{1025, 1, 0, 2048, 1025},
        Step{1024, 1, 0, 2048, 1024}, Step{1023, 0, 0, 1024, 1023}, Step{-5000, 0, 1, 0, 0}}) {
    std::byte* block = buffer.__Create_with_threshold(step.size, step.keep, step.relative);
    EXPECT_EQ(buffer.m_capacity, step.capacity) << step.size;
    EXPECT_EQ(buffer.m_used, step.used) << step.size;
    if (block && step.keep == 0) std::memset(block, 7, 100);
    EXPECT_TRUE(!block || block[99] == std::byte{7}) << step.size;
  }
}

TEST(MBlobBuffer, CopiesFromItsOwnBlock) {
  Buffer buffer;
  std::byte* block = buffer.Create("0123456789", 10);
  EXPECT_EQ(buffer.Create(block, 10), block);
  block = buffer.Create(block + 3, 7);
  EXPECT_EQ(std::memcmp(block, "3456789", 7), 0);
  EXPECT_EQ(buffer.Create(block, 0), nullptr);
  EXPECT_EQ(buffer.m_capacity, 0u);
}
