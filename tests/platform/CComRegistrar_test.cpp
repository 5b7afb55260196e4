// Registration of a component, judged by what `qel reg` lists afterwards.
#include "qelbase/platform/CComRegistrar.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include "qelbase/outside/system/registry.h"
#include "qelbase/settings/MRegKey.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/RegistryFolder.h"

namespace {

using Param = CComRegistrar::ParamInit;

constexpr Param whole_server[] = {
    {CComRegistrar::paramClassId, L"12345678-0000-0000-0000-000000000001"},  // braces are added
    {CComRegistrar::paramServerPath, L"C:\\opt\\parts\\server.exe"},
    {CComRegistrar::paramServerKind, L"LSO"},
    {CComRegistrar::paramProgId, L"Parts.Server.1"},
    {CComRegistrar::paramName, L"Parts server"},
    {CComRegistrar::paramInterfaceId, L"{12345678-0000-0000-0000-000000000002"},
    {CComRegistrar::paramInterfaceName, L"IParts"},
    {CComRegistrar::paramLibraryId, L"{12345678-0000-0000-0000-000000000003}"},
    {CComRegistrar::paramLibraryName, nullptr},
    {CComRegistrar::paramLibraryVersion, L"1.0"},
    {CComRegistrar::paramEnd, nullptr},
};

constexpr const char* whole_listing = R"([HKEY_CLASSES_ROOT]
[HKEY_CLASSES_ROOT\\CLSID]
[HKEY_CLASSES_ROOT\\CLSID\\{12345678-0000-0000-0000-000000000001}]
@="Parts server"
[HKEY_CLASSES_ROOT\\CLSID\\{12345678-0000-0000-0000-000000000001}\\InprocHandler32]
@="ole32.dll"
[HKEY_CLASSES_ROOT\\CLSID\\{12345678-0000-0000-0000-000000000001}\\LocalServer32]
@="C:\\opt\\parts\\server.exe"
[HKEY_CLASSES_ROOT\\CLSID\\{12345678-0000-0000-0000-000000000001}\\ProgID]
@="Parts.Server.1"
[HKEY_CLASSES_ROOT\\Interface]
[HKEY_CLASSES_ROOT\\Interface\\{12345678-0000-0000-0000-000000000002}]
@="IParts"
[HKEY_CLASSES_ROOT\\Interface\\{12345678-0000-0000-0000-000000000002}\\ProxyStubClsid]
@="{00020420-0000-0000-C000-000000000046}"
[HKEY_CLASSES_ROOT\\Interface\\{12345678-0000-0000-0000-000000000002}\\ProxyStubClsid32]
@="{00020420-0000-0000-C000-000000000046}"
[HKEY_CLASSES_ROOT\\Interface\\{12345678-0000-0000-0000-000000000002}\\TypeLib]
@="{12345678-0000-0000-0000-000000000003}"
Version="1.0"
[HKEY_CLASSES_ROOT\\Parts.Server.1]
@="Parts server"
[HKEY_CLASSES_ROOT\\Parts.Server.1\\CLSID]
@="{12345678-0000-0000-0000-000000000001}"
[HKEY_CLASSES_ROOT\\TypeLib]
[HKEY_CLASSES_ROOT\\TypeLib\\{12345678-0000-0000-0000-000000000003}]
[HKEY_CLASSES_ROOT\\TypeLib\\{12345678-0000-0000-0000-000000000003}\\1.0]
@="Parts server"
[HKEY_CLASSES_ROOT\\TypeLib\\{12345678-0000-0000-0000-000000000003}\\1.0\\0]
[HKEY_CLASSES_ROOT\\TypeLib\\{12345678-0000-0000-0000-000000000003}\\1.0\\0\\win32]
@="C:\\opt\\parts\\server.exe"
[HKEY_CLASSES_ROOT\\TypeLib\\{12345678-0000-0000-0000-000000000003}\\1.0\\FLAGS]
@="0"
)";

class ComRegistrar : public testing::Test {
 protected:
  // What another process finds, from the key on.
  std::string list(const std::string& key = "HKCR") const {
    const std::string command = "QEL_REGISTRY='" + m_registry.folder().path().string() +
                                "' " QEL_PROGRAM " reg ls -r '" + key + "' 2>/dev/null";
    std::FILE* const out = popen(command.c_str(), "r");
    std::string text;
    for (int c = 0; (c = std::fgetc(out)) != EOF;) text += static_cast<char>(c);
    pclose(out);
    return text;
  }

  // Since when nothing has been written below a key.
  static std::uint64_t written(const wchar_t* path) {
    qel::sys::FILETIME time{};
    MRegKey key(path, MRegKey(qel::sys::HKEY_CLASSES_ROOT, 0));
    qel::sys::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr, &time);
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  }

  std::uintmax_t sizeOfLargestFile() const {
    std::uintmax_t largest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_registry.folder().path())) {
      if (entry.is_regular_file()) largest = std::max(largest, entry.file_size());
    }
    return largest;
  }

  qeltest::RegistryFolder m_registry;
};

TEST_F(ComRegistrar, WritesAWholeServerAndTakesItAway) {
  CComRegistrar server(whole_server);
  EXPECT_EQ(server.Get(CComRegistrar::paramClassId), L"{12345678-0000-0000-0000-000000000001}");
  EXPECT_EQ(server.Register(), 1);
  EXPECT_EQ(list(), whole_listing);

  const wchar_t* const class_key = L"CLSID\\{12345678-0000-0000-0000-000000000001}\\ProgID";
  const std::uint64_t before = written(class_key);
  const Param in_capitals[] = {{CComRegistrar::paramName, L"PARTS SERVER"},
                               {CComRegistrar::paramEnd, nullptr}};
  EXPECT_EQ(server.Register(in_capitals), 1);  // a change of case is none
  EXPECT_EQ(list(), whole_listing);
  EXPECT_EQ(written(class_key), before);

  MRegKey(L"AppID\\server.exe", MRegKey(qel::sys::HKEY_CLASSES_ROOT, 0)).SetRegStr(L"x", L"y");
  MRegKey(L"AppID\\other.exe", MRegKey(qel::sys::HKEY_CLASSES_ROOT, 0)).SetRegStr(L"x", L"y");
  EXPECT_EQ(server.UnRegister(), 1);
  EXPECT_EQ(server.UnRegister(), 1);  // nothing left
  EXPECT_EQ(list(), R"([HKEY_CLASSES_ROOT]
[HKEY_CLASSES_ROOT\\AppID]
[HKEY_CLASSES_ROOT\\AppID\\other.exe]
x="y"
[HKEY_CLASSES_ROOT\\CLSID]
[HKEY_CLASSES_ROOT\\Interface]
[HKEY_CLASSES_ROOT\\TypeLib]
[HKEY_CLASSES_ROOT\\TypeLib\\{12345678-0000-0000-0000-000000000003}]
)");
}

TEST_F(ComRegistrar, TakesAwayWhatTheListLacks) {
  CComRegistrar(whole_server).Register();
  CComRegistrar server(whole_server);
  server.Set(CComRegistrar::paramName, L"");
  server.Set(CComRegistrar::paramProgId, L"");
  server.Set(CComRegistrar::paramServerKind, L"LSO_NOAUTOSTART");  // servers stay as they are
  server.Set(CComRegistrar::paramLibraryVersion, L"");
  server.Register();
  const std::string classes = list("HKCR\\CLSID");
  EXPECT_EQ(classes.find("ProgID"), std::string::npos);
  EXPECT_EQ(classes.find("Parts server"), std::string::npos);
  EXPECT_EQ(classes.find("@=\"\""), std::string::npos);
  EXPECT_NE(classes.find("LocalServer32"), std::string::npos);
  EXPECT_EQ(list("HKCR\\Interface").find("TypeLib"), std::string::npos);
  EXPECT_NE(list("HKCR\\TypeLib").find("1.0"), std::string::npos);  // that tree is not looked at

  CComRegistrar name_only;
  name_only.Set(CComRegistrar::paramProgId, L"Parts.Server.1");
  name_only.Register();
  EXPECT_EQ(list("HKCR\\Parts.Server.1"), "[HKEY_CLASSES_ROOT\\\\Parts.Server.1]\n");
}

TEST_F(ComRegistrar, RegistersTheRunningProgramByDefault) {
  CComRegistrar server;
  server.Set(CComRegistrar::paramClassId, L"{7}");
  server.Set(CComRegistrar::paramServerKind, L"INP");
  server.Register();
  const std::string listing = list("HKCR\\CLSID\\{7}\\InprocServer32");
  EXPECT_NE(listing.find("test_platform\""), std::string::npos) << listing;
  EXPECT_TRUE(server.Get(CComRegistrar::paramServerPath).IsEmpty());
  MRegKey(L"AppID\\test_platform", MRegKey(qel::sys::HKEY_CLASSES_ROOT, 0)).SetRegStr(L"x", L"y");
  server.UnRegister();
  EXPECT_EQ(list().find("test_platform"), std::string::npos);
}

TEST_F(ComRegistrar, RegistersCategoriesAndTellsWhereItCannot) {
  CComRegistrar server;
  server.Set(CComRegistrar::paramClassId, L"{7}");
  EXPECT_EQ(server.RegisterImplementedCategory(L""), 1);
  EXPECT_EQ(list(), "[HKEY_CLASSES_ROOT]\n");
  EXPECT_EQ(server.RegisterSafeForScripting(), 1);
  EXPECT_EQ(list("HKCR\\CLSID\\{7}\\Implemented Categories"),
            R"([HKEY_CLASSES_ROOT\\CLSID\\{7}\\Implemented Categories]
[HKEY_CLASSES_ROOT\\CLSID\\{7}\\Implemented Categories\\{7DD95801-9882-11CF-9FA9-00AA006C42C4}]
[HKEY_CLASSES_ROOT\\CLSID\\{7}\\Implemented Categories\\{7DD95802-9882-11CF-9FA9-00AA006C42C4}]
)");
  server.Set(CComRegistrar::paramClassId, std::wstring(300, L'x').c_str());  // no name of a key
  EXPECT_EQ(server.RegisterSafeForScripting(), 0);
}

TEST_F(ComRegistrar, KeepsTheProtectedKeys) {
  CComRegistrar(whole_server).Register();
  for (const wchar_t* name : {L"CLSID", L"clsid", L"Interface\\", L"TypeLib", L"AppID"}) {
    CComRegistrar server;
    server.Set(CComRegistrar::paramProgId, name);
    EXPECT_EQ(server.UnRegister(), 1);
  }
  EXPECT_EQ(list(), whole_listing);
}

// --- failures on the way ---

TEST_F(ComRegistrar, WritesTheRestWhereAKeyCannotBe) {
  CComRegistrar server(whole_server);
  server.Set(CComRegistrar::paramClassId, std::wstring(300, L'x').c_str());
  EXPECT_EQ(server.Register(), 1);
  const std::string listing = list();
  EXPECT_EQ(listing.find("CLSID\\"), std::string::npos);
  EXPECT_NE(listing.find("Parts.Server.1]\n@=\"Parts server\""), std::string::npos);
  EXPECT_NE(listing.find("\\1.0\\\\FLAGS]"), std::string::npos);
}

// The hive's log grows by what is written; it may have grown before.
TEST_F(ComRegistrar, IsWholeAfterADiskThatFilledUpOnTheWay) {
  CComRegistrar server(whole_server);
  bool was_partial = false;
  for (rlim_t more = 0; more < 200 * 1024; more += 12 * 1024) {
    server.UnRegister();
    m_registry.reopen();
    const qeltest::ChildEnd end = qeltest::runInChild([&] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlim_t size = sizeOfLargestFile() + more;
      const rlimit limit = {size, size};
      setrlimit(RLIMIT_FSIZE, &limit);
      if (server.Register() != 1) _exit(9);
    });
    EXPECT_EQ(end.exit_code, 0);
    const std::string listing = list();
    was_partial |= listing.find("Parts") != std::string::npos && listing != whole_listing;
    EXPECT_EQ(server.Register(), 1);
    EXPECT_EQ(list(), whole_listing);
  }
  EXPECT_TRUE(was_partial);
}

}  // namespace
