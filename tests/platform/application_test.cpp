// The application object's settings, and the ini files behind them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "qelbase/outside/framework/CWinApp.h"
#include "qelbase/outside/system/environment.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/messages.h"
#include "qelbase/outside/system/profile.h"
#include "qelbase/outside/system/profile_internal.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"

#include "tests/platform/processes.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/RegistryFolder.h"

using namespace qel::sys;
using namespace qeltest;

namespace {

class Application : public testing::Test {
 protected:
  Application() { m_variables.set("XDG_CONFIG_HOME", (m_folder / "config").c_str()); }

  Variables m_variables;
  TempFolder m_folder;
  RegistryFolder m_registry;
};

TEST_F(Application, IsTheProgramsOwn) {
  EXPECT_EQ(AfxGetApp(), nullptr);
  {
    CWinApp app;
    CWinApp second(L"Second");
    EXPECT_EQ(AfxGetApp(), &app);
    EXPECT_STREQ(app.m_pszAppName, L"test_platform");
    EXPECT_STREQ(app.m_pszProfileName, L"test_platform.ini");
    EXPECT_TRUE(std::wstring(app.m_pszHelpFilePath).ends_with(L"\\test_platform.chm"));
    second.SetRegistryKey(L"Maker");
    EXPECT_STREQ(second.m_pszProfileName, L"Second");
    const MessageBoxHandler old =
        SetMessageBoxHandler([](HWND, const wchar_t* text, const wchar_t* caption, UINT type) {
          return std::wstring(text) + caption == L"really?test_platform" && type == 4 ? 6 : 0;
        });
    EXPECT_EQ(AfxMessageBox(L"really?", 4), 6);
    SetMessageBoxHandler(old);
  }
  EXPECT_EQ(AfxGetApp(), nullptr);

  const SystemCalls before = Calls();
  Calls().readlink = [](const char*, char* text, size_t) {
    return static_cast<ssize_t>(std::string_view("/opt/tool-1.0/app").copy(text, 17));
  };
  const CWinApp app;
  Calls() = before;
  EXPECT_STREQ(app.m_pszExeName, L"app");
  EXPECT_TRUE(std::wstring(app.m_pszHelpFilePath).ends_with(L"\\tool-1.0\\app.chm"));
}

TEST_F(Application, KeepsSettingsInEitherPlace) {
  for (const bool in_registry : {false, true}) {
    SCOPED_TRACE(in_registry);
    CWinApp app(L"Carver");
    if (in_registry) app.SetRegistryKey(L"Maker");
    EXPECT_EQ(app.GetProfileInt(L"Tip", L"n", -7), static_cast<UINT>(-7));
    EXPECT_EQ(app.GetProfileString(L"Tip", L"t", L"none"), L"none");
    EXPECT_TRUE(app.GetProfileString(L"Tip", L"t").IsEmpty());
    for (const int value : {0, -1, 0x7FFFFFFF}) {
      EXPECT_TRUE(app.WriteProfileInt(L"Tip", L"n", value));
      EXPECT_EQ(app.GetProfileInt(L"tip", L"N", 5), static_cast<UINT>(value));
    }
    for (const wchar_t* value : {L" \"W\xF6rk\" \x1F600", L"", L"'quoted'", L"a=b;c"}) {
      EXPECT_TRUE(app.WriteProfileString(L"Tip", L"t", value));
      EXPECT_EQ(app.GetProfileString(L"Tip", L"t", L"none"), value);
    }
    EXPECT_TRUE(app.WriteProfileString(L"Tip", L"n", nullptr));
    EXPECT_TRUE(app.WriteProfileString(L"Tip", L"n", nullptr));
    EXPECT_EQ(app.GetProfileInt(L"Tip", L"n", 5), 5u);
    EXPECT_TRUE(app.WriteProfileString(L"Tip", nullptr, nullptr));
    EXPECT_EQ(app.GetProfileString(L"Tip", L"t", L"none"), L"none");
    EXPECT_FALSE(app.WriteProfileInt(nullptr, L"n", 1));
  }
  CWinApp app(L"Carver");
  app.SetRegistryKey(L"Maker");
  app.WriteProfileString(L"Tip", L"n", L"t");  // as many bytes as a number has
  EXPECT_EQ(app.GetProfileInt(L"Tip", L"n", 5), 5u);
  app.WriteProfileInt(L"Tip", L"i", 5);
  EXPECT_EQ(app.GetProfileString(L"Tip", L"i", L"none"), L"none");
  (void)app.GetProfileInt(L"Read", L"n", 0);
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Maker\\Carver\\Read", 0, KEY_READ, &key),
            0);
  RegCloseKey(key);
}

TEST_F(Application, LivesWithoutSettings) {
  CWinApp app(L"Carver");
  std::free(const_cast<wchar_t*>(app.m_pszProfileName));
  app.m_pszProfileName = nullptr;
  EXPECT_EQ(app.GetProfileInt(L"Tip", L"n", 5), 5u);
  EXPECT_EQ(app.GetProfileString(L"Tip", L"n", L"none"), L"none");
  EXPECT_FALSE(app.WriteProfileInt(L"Tip", L"n", 5));
}

TEST(Profile, ReadsNumbersAsTheSystemDoes) {
  const std::pair<const wchar_t*, int> rows[] = {
      {L"12", 12}, {L" -3x", -3}, {L"0x1F", 31}, {L"-0X2", -2},       {L"x", 0},
      {L"+", 0},   {L"0x", 0},    {L"010", 10},  {L"4294967295", -1},
  };
  for (const auto& [text, number] : rows) EXPECT_EQ(ProfileNumber(text), number) << Narrow(text);
}

TEST(Profile, ChangesOneLineAlone) {
  struct Row {
    const wchar_t* before;
    const wchar_t* entry;  // null: the section goes
    const wchar_t* value;  // null: the entry goes
    const wchar_t* after;
  };
  const Row rows[] = {
      {L"", L"e", L"1", L"[s]\ne=1\n"},
      {L"[a]\r\nx=1", L"e", L"1", L"[a]\r\nx=1\r\n\r\n[s]\r\ne=1\r\n"},
      {L"[S]\n;E=0\n E = 0 \n\n[b]\ne=2\n", L"e", L"1", L"[S]\n;E=0\ne=1\n\n[b]\ne=2\n"},
      {L"[s]\na=1\n\n\n[b]\n", L"e", L"1", L"[s]\na=1\ne=1\n\n\n[b]\n"},
      {L"[s]", L"e", L" 1", L"[s]\ne=\" 1\"\n"},
      {L"e=0\n[s]\ne=1\r\ne=2\n", L"e", nullptr, L"e=0\n[s]\n"},
      {L"e=0\n[s]\ne=1\n;c\n[b]\n[ s ]\nf\n[c]", nullptr, nullptr, L"e=0\n[b]\n[c]"},
  };
  for (const Row& row : rows) {
    ProfileEdit edit{L"s", {}, {}};
    if (row.entry) edit.entry = row.entry;
    if (row.value) edit.value = row.value;
    EXPECT_EQ(EditedProfile(row.before, edit), row.after);
  }
}

TEST_F(Application, KeepsTheFormOfAnIniFile) {
  const std::wstring file = m_folder.wide("x.ini");
  const std::string start = "\xFF;raw \xC3\n[a]\nb=1\n";
  const auto change = [&] { return WritePrivateProfileStringW(L"a", L"b", L"2", file.c_str()); };
  for (const std::string& mark : {std::string(), std::string("\xEF\xBB\xBF")}) {
    writeBytes(m_folder / "x.ini", mark + start);
    ASSERT_TRUE(change());
    EXPECT_EQ(readBytes(m_folder / "x.ini"), mark + "\xFF;raw \xC3\n[a]\nb=2\n");
  }
  writeBytes(m_folder / "x.ini", "\xFF\xFE" + ToUtf16Le(L"[a]\r\nb=\xD800\r\n"));
  chmod((m_folder / "x.ini").c_str(), 0640);
  std::filesystem::create_symlink(m_folder / "x.ini", m_folder / "link.ini");
  ASSERT_TRUE(WritePrivateProfileStringW(L"a", L"c", L"1", m_folder.wide("link.ini").c_str()));
  EXPECT_EQ(readBytes(m_folder / "x.ini"), "\xFF\xFE" + ToUtf16Le(L"[a]\r\nb=\xD800\r\nc=1\r\n"));
  EXPECT_TRUE(std::filesystem::is_symlink(m_folder / "link.ini"));
  EXPECT_EQ(std::filesystem::status(m_folder / "x.ini").permissions(),
            std::filesystem::perms(0640));
  wchar_t text[4];
  EXPECT_EQ(GetPrivateProfileStringW(L"a", L"none", L"long one", text, 4, file.c_str()), 3u);
  EXPECT_STREQ(text, L"lon");
  struct Row {
    const wchar_t* section;
    const wchar_t* entry;
    const wchar_t* value;
    DWORD code;
  };
  const Row refused[] = {{nullptr, L"b", L"1", 87}, {L"a]", L"b", L"1", 87},
                         {L"a", L" ", L"1", 87},    {L"a", L"b=", L"1", 87},
                         {L"a", L";b", L"1", 87},   {L"a", L"[b", L"1", 87},
                         {L"a", L"b", L"1\n2", 87}, {L"a", L"b", L"1", 5}};
  chmod((m_folder / "x.ini").c_str(), 0444);
  for (const Row& row : refused) {
    EXPECT_FALSE(WritePrivateProfileStringW(row.section, row.entry, row.value, file.c_str()));
    EXPECT_EQ(GetLastError(), row.code);
  }
}

TEST_F(Application, LosesNoSettingToOthersOrToFaults) {
  const std::wstring file = m_folder.wide("x.ini");
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 4; ++writer) {
    writers.emplace_back([&, writer] {
      for (int i = 0; i < 25; ++i) {
        const std::wstring entry = std::to_wstring(writer) + L"." + std::to_wstring(i);
        EXPECT_TRUE(WritePrivateProfileStringW(L"s", entry.c_str(), L"1", file.c_str()));
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string all = readBytes(m_folder / "x.ini");
  EXPECT_EQ(std::count(all.begin(), all.end(), '='), 100);
  const std::string old = "[s]\na=1\n";
  const std::string changed = "[s]\na=2\n";
  BOOL done = 0;
  const auto prepare = [&] { writeBytes(m_folder / "x.ini", old); };
  const auto write = [&] { done = WritePrivateProfileStringW(L"s", L"a", L"2", file.c_str()); };
  const auto look = [&](const Fault&) {
    const std::string now = readBytes(m_folder / "x.ini");
    EXPECT_TRUE(now == changed || now == old);
    if (done) {
      EXPECT_EQ(now, changed);
    }
  };
  forEachFault(prepare, write, look);
  done = 0;
  forEachKill(prepare, write, look);
}

TEST_F(Application, ExpandsVariables) {
  m_variables.set("QEL_A", "x");
  const std::pair<const char*, const char*> rows[] = {
      {"%QEL_A%\\%qel_a%", "x\\x"}, {"%none%QEL_A%", "%nonex"}, {"100%", "100%"}, {"%%", "%%"}};
  for (const auto& [text, expanded] : rows) {
    char buffer[16] = "old";
    EXPECT_EQ(ExpandEnvironmentStringsA(text, buffer, 16), std::strlen(expanded) + 1);
    EXPECT_STREQ(buffer, expanded);
  }
  char small[2] = "o";
  EXPECT_EQ(ExpandEnvironmentStringsA("ab", small, 2), 3u);
  EXPECT_STREQ(small, "o");
}

}  // namespace
