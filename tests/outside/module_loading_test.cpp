// Modules are loaded, counted, asked for their entries and freed.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::readBytes;
using qeltest::writeBytes;

// A copy of the loadable module under a name of its own, which nothing else has loaded.
class ModuleLoading : public testing::Test {
 protected:
  ModuleLoading() { fs::copy_file(LOADABLE_MODULE, folder / "libqelpart.so"); }
  std::string bytes() const { return readBytes(folder / "libqelpart.so"); }
  DWORD errorOf(const wchar_t* name) const {
    SetLastError(0);
    EXPECT_EQ(LoadLibraryW(name), nullptr) << fs::path(name);
    return GetLastError();
  }
  DWORD errorOfContent(const std::string& content) const {
    writeBytes(folder / "bad.dll", content);
    return errorOf(folder.wide("bad.dll").c_str());
  }
  qeltest::TempFolder folder;
};

int call15(HMODULE module, int number) {
  const FARPROC entry = GetProcAddress(module, reinterpret_cast<const char*>(std::uintptr_t{15}));
  return entry ? reinterpret_cast<int (*)(int)>(entry)(number) : -1;
}

TEST_F(ModuleLoading, EveryLoadCountsAndTheLastFreeUnloads) {
  const int descriptors = qeltest::openDescriptors();
  const HMODULE module = LoadLibraryW(folder.wide("qelpart").c_str());
  ASSERT_NE(module, nullptr) << GetLastError();
  EXPECT_EQ(LoadLibraryW(L"QelPart.dll"), module);
  EXPECT_EQ(
      LoadLibraryExA((folder / "qelpart.dll").c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH),
      module);
  EXPECT_EQ(FreeLibrary(module), 1);
  EXPECT_EQ(FreeLibrary(module), 1);
  EXPECT_EQ(GetModuleHandleW(L"qelpart"), module);
  EXPECT_EQ(call15(module, 100), 115);
  EXPECT_EQ(FreeLibrary(module), 1);
  EXPECT_EQ(GetModuleHandleW(L"qelpart"), nullptr);
  EXPECT_EQ(FreeLibrary(module), 0);
  EXPECT_EQ(GetLastError(), 126u);
  EXPECT_EQ(GetProcAddress(module, "DllGetVersion"), nullptr);
  EXPECT_EQ(GetLastError(), 126u);
  EXPECT_EQ(qeltest::openDescriptors(), descriptors);
}

TEST_F(ModuleLoading, AnEntryIsTheModulesOwn) {
  const HMODULE module = LoadLibraryW(folder.wide("libqelpart.so").c_str());
  ASSERT_NE(module, nullptr) << GetLastError();
  EXPECT_NE(GetProcAddress(module, "DllGetVersion"), nullptr);
  for (const char* name : {"DllGetVersio", "abort", "", reinterpret_cast<const char*>(16)}) {
    SetLastError(0);
    EXPECT_EQ(GetProcAddress(module, name), nullptr);
    EXPECT_EQ(GetLastError(), 127u);
  }
  EXPECT_NE(GetProcAddress(GetModuleHandleW(L"libc.so.6"), "abort"), nullptr);
  EXPECT_EQ(GetProcAddress(nullptr, "DllGetVersion"), nullptr);
  EXPECT_EQ(FreeLibrary(GetModuleHandleW(L"libc.so.6")), 0);  // not loaded by this call
  FreeLibrary(module);
}

TEST_F(ModuleLoading, BareNamesAreFoundByTheSystemsLoaderToo) {
  const HMODULE module = LoadLibraryW(L"libm.so.6");
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(FreeLibrary(module), 1);
}

TEST_F(ModuleLoading, WhatIsNoModuleOrNotWholeIsToldApartFromWhatIsMissing) {
  EXPECT_EQ(errorOf(L"surely-not"), 126u);
  EXPECT_EQ(errorOf(folder.wide("none.dll").c_str()), 126u);
  EXPECT_EQ(errorOf(folder.wide("none\\qelpart.dll").c_str()), 126u);
  EXPECT_EQ(errorOf(L""), 87u);
  std::string needs_more = bytes();
  needs_more.replace(needs_more.find("libc.so.6"), 9, "libq.no.6");
  EXPECT_EQ(errorOfContent(needs_more), 126u);
  EXPECT_EQ(errorOfContent(""), 193u);
  EXPECT_EQ(errorOfContent("MZ" + std::string(4000, '\0')), 193u);
  for (const std::size_t size : {std::size_t{63}, std::size_t{200}, bytes().size() / 2}) {
    EXPECT_EQ(errorOfContent(bytes().substr(0, size)), 193u) << size;
  }
  std::string other_machine = bytes();
  other_machine[18] ^= 1;
  EXPECT_EQ(errorOfContent(other_machine), 193u);
  EXPECT_EQ(LoadLibraryExA(LOADABLE_MODULE, nullptr, 2), nullptr);  // as a data file
  EXPECT_EQ(GetLastError(), 87u);
}

}  // namespace
