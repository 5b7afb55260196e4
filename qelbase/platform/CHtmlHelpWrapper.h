#pragma once
// Help for the user: topics, context help, text pop-ups, the tutorial and the getting-started book.

#include <cstdint>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

// What a window says of a request for help, 40 bytes.
struct tagHELPINFO {
  UINT cbSize;
  int iContextType;
  int iCtrlId;
  HANDLE hItemHandle;
  std::uint64_t dwContextId;
  qel::sys::POINT MousePos;
};
static_assert(sizeof(tagHELPINFO) == 40);

// Shows the help file of the application (CWinApp::m_pszHelpFilePath) in a viewer, a module that is
// found at the first call and stays loaded: the one that the registry names as the default value of
// HKEY_CLASSES_ROOT\CLSID\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\InprocServer32, else "hhctrl.ocx".
// docs/guides/help.md tells how to register one, and of the one that comes with this library.
//
// Without an application object or without a viewer nothing is shown, and nothing tells of it;
// after a first attempt in vain the viewer isn't looked for again. Settings are the application's,
// in the section "Tip": "StartUp", "current" and "showid".
//
// For the user interface's thread alone: no locks.
class QELBASE_API CHtmlHelpWrapper {
 public:
  // With `subtract_hids`, ShowHelp takes the offset of their range from command and dialog numbers.
  explicit CHtmlHelpWrapper(bool subtract_hids = false);
  CHtmlHelpWrapper(const CHtmlHelpWrapper&) = default;
  CHtmlHelpWrapper& operator=(const CHtmlHelpWrapper&) = default;
  virtual ~CHtmlHelpWrapper();

  // The one object of the process; never null.
  [[nodiscard]] static CHtmlHelpWrapper* Instance();

  void SetSubtractHids(bool subtract);
  [[nodiscard]] bool GetSubtractHids() const;

  // Where "showid" is read: these stand in for the application's registry key, profile name and
  // help path, each that is not empty. Null leaves the earlier one.
  void SetHelperRegistryPaths(const wchar_t* registry_key, const wchar_t* profile_name,
                              const wchar_t* help_path);

  // Controls whose help is a text pop-up; 65535 among them have none.
  void AddToTextOnly(const std::int32_t& control);
  [[nodiscard]] bool IsTextOnlyHelp(const std::int32_t& control) const;

  // Command 15 shows the help for a context number, any other command the topic that `data` leads
  // to. 0 for the numbers 0x30000 to 0x4FFFF, for which nothing is shown; otherwise 1.
  int ShowHelp(std::uint64_t data, std::uint32_t command);
  // Help for a control; `info` is not null. Always 1.
  int ShowHelp(const tagHELPINFO* info);
  // A topic of the help file, null for its first, in a window of this type, null for the usual one.
  // Always 1.
  int ShowTopic(const wchar_t* topic, const wchar_t* window);
  void ShowTutorial();  // tutorial.chm beside the help file

  // The next page of GettingStarted.chm beside the help file; after the last the first.
  void ShowGettingStarted();
  [[nodiscard]] bool ShowGettingStartedAtStartup() const;
  void SetShowGettingStartedAtStartup(const bool& on);

  static CHtmlHelpWrapper mg_htmlhelpwrapper;

 private:
  void _ShowID(const std::int32_t& mode, const std::int64_t& id);

  std::vector<std::int32_t> m_text_only;
  CStringW m_registry_key;
  CStringW m_profile_name;
  CStringW m_help_path;
  bool m_subtract_hids;
};
