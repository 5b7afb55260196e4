#pragma once
// The application object of the framework, and its settings.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CObject.h"
#include "qelbase/outside/framework/CString.h"

// A program makes one object, before it uses what needs one; AfxGetApp gives it until it is
// destroyed. Without settings of its own the object keeps them in PROGRAM.ini in the user's
// configuration folder; after SetRegistryKey they lie in the registry.
//
//   registry   value ENTRY of HKEY_CURRENT_USER\Software\REGISTRY KEY\PROFILE NAME\SECTION: a
//   32-bit
//              word or a text. Reading makes the keys, too.
//   ini file   ENTRY of [SECTION] in the file PROFILE NAME (outside/system/profile.h)
//
// The object belongs to one thread at a time.
class QELBASE_API CWinApp : public CObject {
 public:
  // Becomes the application, if there is none. `name` is the application's name; null: the
  // program's, without folder and extension.
  explicit CWinApp(const wchar_t* name = nullptr);
  ~CWinApp() override;
  CWinApp(const CWinApp&) = delete;
  CWinApp& operator=(const CWinApp&) = delete;

  // From now on the settings are in the registry, below this key and the application's name.
  void SetRegistryKey(const wchar_t* key);

  // The number, or `otherwise` if there is no such entry, or one of another kind. An ini file's
  // entry that is no number is 0.
  [[nodiscard]] virtual UINT GetProfileInt(const wchar_t* section, const wchar_t* entry,
                                           int otherwise);
  // The text, or `otherwise` (null: empty).
  [[nodiscard]] virtual CStringW GetProfileString(const wchar_t* section, const wchar_t* entry,
                                                  const wchar_t* otherwise = nullptr);
  // 1, or 0 and the last error. A null text removes the entry, a null entry the section; what is
  // not there is removed too.
  virtual BOOL WriteProfileInt(const wchar_t* section, const wchar_t* entry, int value);
  virtual BOOL WriteProfileString(const wchar_t* section, const wchar_t* entry,
                                  const wchar_t* text);

  // Asks the user through the handler of messages.h, with the application's name as caption, and
  // gives the answer.
  virtual int DoMessageBox(const wchar_t* text, UINT type, UINT help_id);

  // Memory of malloc, which the object frees, or null. Who sets another pointer for a moment puts
  // the old one back.
  const wchar_t* m_pszAppName;
  const wchar_t* m_pszRegistryKey = nullptr;
  const wchar_t* m_pszExeName;       // the program's file without folder and extension
  const wchar_t* m_pszHelpFilePath;  // at first beside the program: PROGRAM.chm
  const wchar_t* m_pszProfileName;   // at first PROGRAM.ini
};

// The application object of the process, or null. Safe on any thread.
[[nodiscard]] QELBASE_API CWinApp* AfxGetApp();

// A message box of the application, or of the bare process if there is no object.
QELBASE_API int AfxMessageBox(const wchar_t* text, UINT type = 0, UINT help_id = 0);
