#include "tests/whole/use_library.h"

#include <qelbase/qelbase.h>

#include <vector>

namespace {

namespace sys = qel::sys;

std::wstring nameIn(const std::string& folder, const wchar_t* file) {
  return sys::Widen(folder, sys::CP_UTF8) + L"/" + file;
}

bool writeTagged(const std::wstring& name) {
  MFileTagged file;
  if (!file.OPEN_WRITE(name.c_str())) return false;
  MTag tag("DATA");
  const std::int32_t number = 42;
  bool good = file.WRITE_TAG_BEGIN(tag) && file.WRITE(&number, 1) == 1 && file.WRITE_TAG_END(tag);
  file.CLOSE();
  std::int32_t back = 0;
  good = good && file.GET_RESULT() == 0 && file.OPEN_READ(name.c_str()) &&
         file.FIND_TAG(nullptr, tag, 0, true) && file.READ(&back, 1) == 1;
  file.CLOSE();
  return good && back == number;
}

bool showProgress() {
  std::vector<UINT> seen;
  const HWND window = sys::CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
    seen.push_back(message);
    return 0;
  });
  MProgress::AttachUITarget(0, window);
  {
    const MStatusCallbackToMProgressImpl bridge;
    QelSDK::Common::IncrementalProgressReporter reporter(4);
    reporter.Increment(2);
  }
  MProgress::ResetUITargets();
  sys::DestroyWindow(window);
  return seen == std::vector<UINT>{2027, 2024, 2025, 2026};
}

bool keepSettings() {
  MSoftKey::Init(L"use", L"1", L"tests");
  MSoftKeyCU key;
  std::uint32_t number = 0;
  return key.SetRegDWORD(L"number", 7) && key.GetRegDWORD(L"number", number) && number == 7;
}

bool convertUnits() {
  MUserUnit::GetInstance().SetUnit(MUserUnit::UNIT_INCH);
  MInternalUnitsValue<double, 1> value;
  value.SetInDefaultInternalUnits(5.0);
  const bool in_inches = MUserUnit::GetInstance().ConvertFromMmToUI(25.4) == 1.0;
  MUserUnit::GetInstance().SetUnit(MUserUnit::UNIT_MILLIMETRE);
  return in_inches && value.GetInDefaultInternalUnits() == 5.0;
}

bool logLines() {
  namespace Logging = QelSDK::Common::Logging;
  int lines = 0;
  Logging::ILoggerConfiguration& configuration = Logging::GetLoggerConfiguration();
  configuration.AddHandler(
      0, [&](const Logging::LogInfo&) { ++lines; }, true);
  Logging::LogMessage message(L"line");
  Logging::GetLogger(L"tests.whole").LogFailure(message);
  configuration.RemoveHandlers();
  return lines == 1;
}

bool check() {
  COXCRC32 crc;
  return crc.CalculateBlock("123456789", 9, 0xFFFFFFFF) == 0x340BC6D9;
}

bool writeIni(const std::wstring& name) {
  MIniFile written, read;
  CStringW value;
  return written.SetValue(L"section", L"entry", L"value", false) &&
         written.WriteToFile(name.c_str(), nullptr) == 0 &&
         read.ReadFromFile(name.c_str(), 0) == 0 && read.GetValue(value, L"section", L"entry") &&
         value == L"value";
}

}  // namespace

std::string UseLibrary(const std::string& folder) {
  const struct {
    const char* name;
    bool good;
  } rooms[] = {
      {"tagged ", writeTagged(nameIn(folder, L"use.qel"))},
      {"progress ", showProgress()},
      {"settings ", keepSettings()},
      {"units ", convertUnits()},
      {"log ", logLines()},
      {"checks ", check()},
      {"ini ", writeIni(nameIn(folder, L"use.ini"))},
  };
  std::string failed;
  for (const auto& room : rooms) {
    if (!room.good) failed += room.name;
  }
  return failed;
}

// For a program that loads this as a module.
extern "C" __attribute__((visibility("default"))) const char* UseLibraryIn(const char* folder) {
  static std::string failed;
  failed = UseLibrary(folder);
  return failed.c_str();
}
