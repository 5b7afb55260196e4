// Help as an application shows it: what the viewer is asked for, and the way to a real viewer.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cwchar>

#include "qelbase/outside/framework/CWinApp.h"
#include "qelbase/outside/system/messages.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/CHtmlHelpWrapper.h"

#include "tests/platform/processes.h"
#include "tests/platform/recording_viewer.h"
#include "tests/support/RegistryFolder.h"

using namespace qel::sys;
using namespace qeltest;

namespace {

constexpr const wchar_t* kServer = L"CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32";

void registerViewer(DWORD type, const std::wstring& path) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, kServer, &key), 0);
  const std::string bytes = ToUtf16Le({path.c_str(), path.size() + 1});
  ASSERT_EQ(RegSetValueExW(key, L"", 0, type, bytes.data(), static_cast<DWORD>(bytes.size())), 0);
  RegCloseKey(key);
}

const wchar_t* copyOf(const wchar_t* text) {
  return wcsdup(text);
}

class Help : public testing::Test {
 protected:
  Help() {
    m_variables.set("QEL_VIEWER", RECORDING_VIEWER);
    registerViewer(REG_EXPAND_SZ, L"%QEL_viewer%");  // a native name is a path without a drive
    m_app.SetRegistryKey(L"QelTest");
    std::free(const_cast<wchar_t*>(m_app.m_pszHelpFilePath));
    m_app.m_pszHelpFilePath = copyOf(L"C:\\help\\app.chm");
    m_old = SetMessageBoxHandler([this](HWND, const wchar_t* text, const wchar_t*, UINT) {
      m_boxes.emplace_back(text);
      return IDOK;
    });
    record().calls.clear();
    record().missing.clear();
  }
  ~Help() override { SetMessageBoxHandler(m_old); }

  static Recording& record() {
    static void* const viewer = dlopen(RECORDING_VIEWER, RTLD_NOW);
    return *static_cast<Recording*>(dlsym(viewer, "recording"));
  }
  Recording::Call last() {
    return record().calls.empty() ? Recording::Call{} : record().calls.back();
  }

  Variables m_variables;
  RegistryFolder m_registry;
  CWinApp m_app{L"Carver"};
  MessageBoxHandler m_old;
  std::vector<std::wstring> m_boxes;
  CHtmlHelpWrapper m_help;
};

TEST_F(Help, LeadsEachNumberToItsViewerCommand) {
  struct Row {
    bool subtract;
    std::uint64_t data;
    std::uint64_t id;
    const wchar_t* box;  // null: nothing is shown
  };
  const Row rows[] = {
      {true, 0x10005, 5, L"Normal menuitem: 0x5"},
      {false, 0x10005, 0x10005, L"Normal menuitem: 0x10005"},
      {false, 0x8005, 0x8005, L"Normal menuitem: 0x8005"},
      {true, 0x20007, 7, L"Normal dialog: 0x7"},
      {true, 0x2FFFF, 0xFFFF, L"Normal dialog: 0xFFFF"},
      {true, 0x30000, 0, nullptr},
      {false, 0x4FFFF, 0, nullptr},
      {true, 0x50000, 0x50000, L"Normal control: 0x50000"},
      {false, 0x1234567890, 0x1234567890, L"Normal control: 0x34567890"},
  };
  m_app.WriteProfileInt(L"Tip", L"showid", 1);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.data);
    record().calls.clear();
    m_boxes.clear();
    m_help.SetSubtractHids(row.subtract);
    EXPECT_EQ(m_help.ShowHelp(row.data, 15), row.box ? 1 : 0);
    ASSERT_EQ(record().calls.size(), row.box ? 1u : 0u);
    if (!row.box) continue;
    EXPECT_EQ(last(), (Recording::Call{L"C:\\help\\app.chm", 15, row.id, {}}));
    EXPECT_EQ(m_boxes, std::vector<std::wstring>{row.box});
  }
  m_boxes.clear();
  EXPECT_EQ(m_help.ShowHelp(0x10005, 3), 1);
  EXPECT_EQ(last(), (Recording::Call{L"C:\\help\\app.chm", 0, 0x10005, {}}));
  EXPECT_TRUE(m_boxes.empty());
}

TEST_F(Help, ShowsTextsForSomeControlsAndPagesForTheOthers) {
  m_app.WriteProfileInt(L"Tip", L"showid", 1);
  tagHELPINFO info{.cbSize = 40,
                   .iContextType = 1,
                   .iCtrlId = 0xFFFF,
                   .hItemHandle = nullptr,
                   .dwContextId = 0x30001,
                   .MousePos = {-3, 4}};
  m_help.SetSubtractHids(true);
  EXPECT_EQ(m_help.ShowHelp(&info), 1);
  EXPECT_EQ(last(), (Recording::Call{L"C:\\help\\app.chm", 15, 0x30001, {}}));
  EXPECT_EQ(m_boxes.back(), L"Context HTML: 0x30001");
  for (const int control : {0xFFFF, 12}) m_help.AddToTextOnly(control);
  EXPECT_EQ(m_help.ShowHelp(&info), 1);
  EXPECT_EQ(record().calls.size(), 1u);
  info.iCtrlId = 12;
  EXPECT_EQ(m_help.ShowHelp(&info), 1);
  EXPECT_EQ(last(), (Recording::Call{L"C:\\help\\app.chm::\\Help.txt", 14, 0, {}}));
  EXPECT_EQ(m_boxes.back(), L"Context Text: 0x30001");
  const auto popup = last().popup;
  EXPECT_EQ(popup.size, 72);
  EXPECT_EQ(popup.string, 0x30001u);
  EXPECT_EQ(popup.text, nullptr);
  EXPECT_EQ(popup.point.x, -3);
  EXPECT_EQ(popup.point.y, 4);
  EXPECT_EQ(popup.foreground, 0xFFFFFFFFu);
  EXPECT_EQ(popup.background, 0xD0FFFFu);
  EXPECT_EQ(popup.margins.left, -1);
  EXPECT_EQ(popup.margins.top, 0);
  EXPECT_EQ(popup.margins.right + popup.margins.bottom, -2);
  const CHtmlHelpWrapper copy = m_help;
  EXPECT_TRUE(copy.IsTextOnlyHelp(12) && copy.GetSubtractHids());
}

TEST_F(Help, BuildsThePathOfTopicsAndSiblings) {
  m_help.ShowTopic(L"a/b.htm", L"main");
  m_help.ShowTopic(nullptr, L"main");
  m_help.ShowTopic(L"a.htm", nullptr);
  m_help.ShowTutorial();
  std::vector<std::wstring> paths;
  for (const auto& call : record().calls) paths.push_back(call.path);
  EXPECT_EQ(paths, (std::vector<std::wstring>{
                       L"C:\\help\\app.chm::/a/b.htm>main", L"C:\\help\\app.chm>main",
                       L"C:\\help\\app.chm::/a.htm", L"C:\\help\\tutorial.chm"}));
}

TEST_F(Help, TurnsThePagesOfTheGettingStartedBook) {
  const auto showPage = [this] {
    m_help.ShowGettingStarted();
    return m_app.GetProfileInt(L"Tip", L"current", 0);
  };
  EXPECT_EQ(showPage(), 32769u);
  EXPECT_EQ(last(), (Recording::Call{L"C:\\help\\GettingStarted.chm", 15, 32768, {}}));
  record().missing = {32770};
  EXPECT_EQ(showPage(), 32770u);
  EXPECT_EQ(showPage(), 32769u);
  EXPECT_EQ(last().data, 32768u);
  record().missing = {32768, 32769};
  EXPECT_EQ(showPage(), 32768u);
  EXPECT_EQ(showPage(), 32768u);
  EXPECT_TRUE(m_help.ShowGettingStartedAtStartup());
  m_help.SetShowGettingStartedAtStartup(false);
  EXPECT_FALSE(m_help.ShowGettingStartedAtStartup());
  EXPECT_EQ(m_app.GetProfileInt(L"Tip", L"StartUp", 7), 0u);
  m_app.WriteProfileInt(L"Tip", L"StartUp", 2);
  EXPECT_FALSE(m_help.ShowGettingStartedAtStartup());
}

TEST_F(Help, ReadsShowidWhereItIsTold) {
  const wchar_t* const key = m_app.m_pszRegistryKey;
  const wchar_t* const profile = m_app.m_pszProfileName;
  m_help.SetHelperRegistryPaths(L"Shared", L"Guide", nullptr);
  m_help.SetHelperRegistryPaths(nullptr, L"", nullptr);  // an empty one changes nothing
  m_help.ShowHelp(5, 15);
  EXPECT_TRUE(m_boxes.empty());
  CWinApp other(L"Carver");
  other.SetRegistryKey(L"Shared");
  other.WriteProfileInt(L"Tip", L"showid", 1);
  m_help.ShowHelp(5, 15);
  EXPECT_EQ(m_boxes.size(), 1u);
  EXPECT_EQ(m_app.m_pszRegistryKey, key);
  EXPECT_EQ(m_app.m_pszProfileName, profile);
}

TEST(HelpWithoutApplication, ShowsNothing) {
  CHtmlHelpWrapper& help = *CHtmlHelpWrapper::Instance();
  EXPECT_FALSE(help.GetSubtractHids());
  EXPECT_EQ(help.ShowHelp(5, 15), 1);
  EXPECT_EQ(help.ShowTopic(L"a", nullptr), 1);
  help.ShowGettingStarted();
  EXPECT_TRUE(help.ShowGettingStartedAtStartup());
}

// --- with a program of its own -------------------------------------------------------------------

class HelpProgram : public testing::Test {
 protected:
  HelpProgram() {
    const auto book = m_folder / "app";
    std::filesystem::create_directories(book / "a b");
    writeBytes(book / "index.html", "first");
    writeBytes(book / "a b" / "c.html", "page");
    writeBytes(book / "context.map",
               "# numbers\n32773 a b/c.html#part\r\n0x8006 none.html\n8x bad\n0x10007 "
               "../app/index.html\n");
    writeBytes(book / "Help.txt", ".topic 5\nno\n.topic 0x6\n\nA <text>\r\n & more\n\n.topic 7\n");
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) m_variables.set(name, nullptr);
    m_variables.set("QEL_REGISTRY", (m_folder / "registry").c_str());
    m_variables.set("XDG_RUNTIME_DIR", m_folder.path().c_str());
    std::filesystem::create_directory(m_folder / "registry");
  }

  Output show(const std::string& steps) {
    return runLine(std::string(SHOW_HELP) + " " + (m_folder / "app.chm").string() + " " + steps +
                   " 2>&1");
  }
  std::string uri(const std::string& tail) {
    return "Help: file://" + (m_folder / "app").string() + "/" + tail + "\n";
  }

  Variables m_variables;
  TempFolder m_folder;
};

TEST_F(HelpProgram, ReachesThePagesOfABookThroughTheRealViewer) {
  const std::string viewer = "register:" HELP_VIEWER " ";
  const auto shown = [&](const std::string& step) { return show(viewer + step).text; };
  EXPECT_EQ(shown("context:32773"), "0\n" + uri("a%20b/c.html#part") + "1\n");
  EXPECT_EQ(shown("topic:a\\ b/c.html"), "0\n" + uri("a%20b/c.html") + "1\n");
  EXPECT_EQ(shown("topic:"), "0\n" + uri("index.html") + "1\n");
  EXPECT_EQ(shown("popup:6"), "0\nHelp: A <text>\n & more\n1\n");
  for (const char* missing : {"context:0x8006", "context:8", "context:0x10007", "popup:8",
                              "topic:../app/index.html", "topic:/etc/passwd", "topic:a"}) {
    EXPECT_EQ(shown(missing), "0\n1\n") << missing;
  }
}

TEST_F(HelpProgram, OpensTheBrowserOnADesktop) {
  const std::string opened = (m_folder / "opened").string();
  writeBytes(m_folder / "xdg-open", "#!/bin/sh\nprintf %s \"$1\" >" + opened + ".part\nmv " +
                                        opened + ".part " + opened + "\n");
  std::filesystem::permissions(m_folder / "xdg-open", std::filesystem::perms::owner_all);
  m_variables.set("PATH", (m_folder.path().string() + ":" + std::getenv("PATH")).c_str());
  m_variables.set("DISPLAY", ":none");
  const auto openedBy = [&](const std::string& step) {
    EXPECT_EQ(show("register:" HELP_VIEWER " " + step).text, "0\n1\n");
    for (int i = 0; i < 1000 && !std::filesystem::exists(opened); ++i) usleep(10000);
    const std::string uri = readBytes(opened);
    std::filesystem::remove(opened);
    return uri;
  };
  EXPECT_EQ("Help: " + openedBy("topic:index.html#x") + "\n", uri("index.html#x"));
  const std::string page = openedBy("popup:6");
  EXPECT_EQ(page, "file://" + (m_folder / "qelbase/help.html").string());
  EXPECT_NE(readBytes(m_folder / "qelbase/help.html").find("A &lt;text>\n &amp; more"),
            std::string::npos);
}

TEST_F(HelpProgram, FindsAViewerByNameGivesUpForGoodAndOutlivesOneThatCrashes) {
  const auto beside = std::filesystem::path(SHOW_HELP).parent_path() / "hhctrl.ocx";
  writeBytes(m_folder / "broken.so", "no module");
  const std::string broken = "register:" + (m_folder / "broken.so").string();
  // After a failure in vain a good viewer comes too late.
  EXPECT_EQ(show(broken + " topic: register:" HELP_VIEWER " topic:").text, "0\n1\n0\n1\n");
  const std::string entryless = "register:" + (m_folder / "x.so").string();
  writeBytes(m_folder / "x.cpp", "int other() { return 0; }\n");
  ASSERT_EQ(runLine("c++ -shared -fPIC -o " + (m_folder / "x.so").string() + " " +
                    (m_folder / "x.cpp").string())
                .exit_code,
            0);
  EXPECT_EQ(show(entryless + " topic: register:" HELP_VIEWER " topic:").text, "0\n1\n0\n1\n");
  m_variables.set("QEL_FAULTS", "1");
  EXPECT_EQ(show("register:" CRASHING_VIEWER " topic: topic:").text,
            "0\nEXCEPTION_ACCESS_VIOLATION\nEXCEPTION_ACCESS_VIOLATION\n");
  std::error_code ignored;
  std::filesystem::remove(beside, ignored);
  std::filesystem::create_symlink(HELP_VIEWER, beside);
  EXPECT_EQ(show("register:/nowhere/viewer.so topic:").text, "0\n" + uri("index.html") + "1\n");
  std::filesystem::remove(beside);
}

}  // namespace
