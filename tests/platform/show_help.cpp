// Shows help as an application does: show_help HELP-FILE STEP..., each step a word and its
// argument: context:NUMBER, topic:TOPIC, popup:NUMBER, register:VIEWER. Prints the result of each,
// or the fault that came of it.
#include <qelbase/qelbase.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

int registerViewer(const std::wstring& path) {
  HKEY key = nullptr;
  qel::sys::RegCreateKeyW(qel::sys::HKEY_CLASSES_ROOT,
                          L"CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32", &key);
  const std::string bytes = qel::sys::ToUtf16Le({path.c_str(), path.size() + 1});
  return qel::sys::RegSetValueExW(key, L"", 0, qel::sys::REG_SZ, bytes.data(),
                                  static_cast<DWORD>(bytes.size()));
}

int run(const std::wstring& step, const std::wstring& argument) {
  CHtmlHelpWrapper& help = *CHtmlHelpWrapper::Instance();
  const ULONG number = qel::sys::wcstoul(argument.c_str(), nullptr, 0);
  if (step == L"context") return help.ShowHelp(number, 15);
  if (step == L"topic") return help.ShowTopic(argument.c_str(), L"main");
  if (step == L"register") return registerViewer(argument);
  tagHELPINFO info{};
  info.iCtrlId = 7;
  info.dwContextId = number;
  help.AddToTextOnly(info.iCtrlId);
  return help.ShowHelp(&info);
}

}  // namespace

int main(int count, char** arguments) {
  CWinApp app;
  app.SetRegistryKey(L"QelTest");
  std::free(const_cast<wchar_t*>(app.m_pszHelpFilePath));
  app.m_pszHelpFilePath = wcsdup(qel::sys::FromNative(arguments[1]).c_str());
  for (int i = 2; i < count; ++i) {
    const std::wstring step = qel::sys::Widen(arguments[i], qel::sys::CP_UTF8);
    const std::size_t colon = step.find(L':');
    try {
      std::printf("%d\n", run(step.substr(0, colon), step.substr(colon + 1)));
    } catch (const MException& fault) {
      std::printf("%ls", fault.GetName());  // which ends its line
    }
    std::fflush(stdout);
  }
  return 0;
}
