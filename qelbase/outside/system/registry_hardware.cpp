// The keys that tell of the processors, read from the machine at each start of the process.

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/machine_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::registry {

namespace {

void insertValue(Connection& connection, KeyId key, const std::wstring& name, DWORD type,
                 const std::string& data) {
  const std::string bytes = NameBytes(name);
  const std::string folded = NameBytes(FoldCase(name));
  connection.prepare("INSERT INTO entries(key, folded, name, type, data) VALUES(?, ?, ?, ?, ?)")
      .bind(key)
      .bind(std::string_view(folded))
      .bind(std::string_view(bytes))
      .bind(static_cast<std::int64_t>(type))
      .bindBytes(data)
      .run();
}

}  // namespace

void FillHardware(Connection& connection) {
  const ProcessorTexts processor = CurrentProcessorTexts();
  std::string speed(4, '\0');
  const std::uint32_t megahertz = ReadProcessorSpeed();
  for (int i = 0; i < 4; ++i) speed[static_cast<std::size_t>(i)] = char(megahertz >> (8 * i));
  const DWORD count = CountProcessors();
  for (DWORD i = 0; i < count; ++i) {
    KeyId key = 0;
    const std::wstring path = L"DESCRIPTION\\System\\CentralProcessor\\" + std::to_wstring(i);
    if (MakePath(connection, kRoot, path, FileTimeNow(), key) != ERROR_SUCCESS) return;
    const std::pair<const wchar_t*, const std::string*> texts[] = {
        {L"ProcessorNameString", &processor.name},
        {L"VendorIdentifier", &processor.vendor},
        {L"Identifier", &processor.identifier}};
    for (const auto& [name, text] : texts) {
      insertValue(connection, key, name, REG_SZ, ToUtf16Le(Widen(*text, CP_UTF8) + L'\0'));
    }
    insertValue(connection, key, L"~MHz", REG_DWORD, speed);
  }
}

}  // namespace qel::sys::registry
