// Reads arbitrary bytes as an ini file in both forms, writes what was read, and reads that again:
// the second reading must give the same model.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "qelbase/outside/system/names.h"
#include "qelbase/settings/MIniFile.h"

namespace {

template <typename Visit>
void forEachValue(const MIniFile& ini, Visit visit) {
  CStringW key, name, value;
  void* section = nullptr;
  for (POSITION s = ini.GetStartPosition(); s;) {
    ini.GetNextAssoc(s, key, section);
    const auto& entries = static_cast<MIniFile::Section*>(section)->entries;
    for (POSITION e = entries.GetStartPosition(); e;) {
      entries.GetNextAssoc(e, name, value);
      visit(key, name, value);
    }
  }
}

// What the format does not keep: a line feed in front of a value.
bool isKept(const CStringW& value) {
  return !value.IsEmpty() && value[0] != L'\n';
}

void check(const MIniFile& ini, const std::wstring& file) {
  MIniFile again;
  if (ini.WriteToFile(file.c_str(), L"") != 0) std::abort();
  if (again.ReadFromFile(file.c_str(), 0) != 0) return;  // a value longer than a line may be
  bool has_bracket = false;  // such a name can read as a section's header
  forEachValue(ini, [&](const CStringW&, const CStringW& name, const CStringW&) {
    has_bracket = has_bracket || name[0] == L'[';
  });
  if (has_bracket) return;
  forEachValue(ini, [&](const CStringW& section, const CStringW& name, const CStringW& value) {
    CStringW kept;
    if (!isKept(value)) return;
    if (!again.GetValue(kept, section, name) || kept != value) std::abort();
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string folder =
      std::filesystem::temp_directory_path() / ("ini_fuzz." + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  for (const char* name : {"in.ini", "in_u.ini"}) {
    const std::string native = folder + "/" + name;
    std::FILE* file = std::fopen(native.c_str(), "wb");
    if (size > 0) std::fwrite(data, 1, size, file);
    std::fclose(file);
    MIniFile ini;
    ini.ReadFromFile(qel::sys::FromNative(folder + "/in.ini").c_str(), 0);
    check(ini, qel::sys::FromNative(folder + "/out.ini"));
  }
  std::filesystem::remove_all(folder);
  return 0;
}
