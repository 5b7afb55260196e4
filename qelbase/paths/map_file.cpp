#include <algorithm>
#include <atomic>
#include <cerrno>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/paths/map_file_internal.h"

namespace qel::paths {

namespace {

using sys::Calls;
using sys::Descriptor;

constexpr std::wstring_view kDivider = L"->";
constexpr std::size_t kLongestLine = 529;  // characters
constexpr off_t kLargestFile = off_t{16} << 20;
constexpr char kEndOfText = 0x1A;
constexpr std::uint32_t kReadFault = 30;
constexpr std::uint32_t kWriteFault = 29;

std::wstring_view Trimmed(std::wstring_view text) {
  while (!text.empty() && sys::IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && sys::IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

// The name as listings give it: with what no Windows name can hold carried.
std::wstring ListedName(std::wstring_view name) {
  const std::string native = sys::NativeText(name);
  return native.find('/') == native.npos ? sys::FromNative(native) : std::wstring(name);
}

void ParseLine(std::wstring_view line, std::vector<MapRecord>& records) {
  line = Trimmed(line);
  if (line.size() >= 2 && line.front() == L'[' && line.back() == L']') return;
  const std::size_t divider = line.find(kDivider);
  if (divider == line.npos) return;
  const std::wstring_view name = Trimmed(line.substr(0, divider));
  const std::wstring_view mapped = Trimmed(line.substr(divider + kDivider.size()));
  if (name.empty() || mapped.empty()) return;
  records.push_back({ListedName(name), std::wstring(mapped)});
}

// A longer line goes on as the next one.
void ParseLongLine(std::string_view bytes, std::vector<MapRecord>& records) {
  const std::wstring line = sys::WideText(bytes.substr(0, bytes.find('\0')));
  for (std::size_t at = 0; at < line.size(); at += kLongestLine) {
    ParseLine(std::wstring_view(line).substr(at, kLongestLine), records);
  }
}

std::uint32_t CodeOf(int error, const std::string& native) {
  const std::uint32_t code = sys::ErrorOfPath(error, native);
  return code != 0 ? code : kWriteFault;
}

// A passing name beside `native` that no other writer has.
std::string PassingName(const std::string& native) {
  static std::atomic<unsigned> count{0};
  return native + ".new-" + std::to_string(getpid()) + "-" + std::to_string(++count);
}

bool Sync(int descriptor) {
  return sys::UntilNotInterrupted([&] { return Calls().fsync(descriptor); }) == 0;
}

// False and errno.
bool WriteNew(const std::string& native, mode_t mode, const std::string& bytes) {
  Descriptor file = Descriptor::open(native, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (!file) return false;
  const bool keeps_mode = mode == 0 || Calls().fchmod(file.get(), mode) == 0;
  return keeps_mode && sys::WriteAll(file.get(), bytes.data(), bytes.size()) && Sync(file.get()) &&
         file.close();
}

}  // namespace

std::vector<MapRecord> ParseMapFile(std::string_view bytes) {
  std::vector<MapRecord> records;
  bytes = bytes.substr(0, bytes.find(kEndOfText));
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size());
    ParseLongLine(bytes.substr(0, end), records);
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
  }
  return records;
}

std::string MapFileText(const MapRecord& record) {
  return sys::NativeText(L"\n" + record.name + std::wstring(kDivider) + record.mapped);
}

bool IsRecordable(const MapRecord& record) {
  const std::vector<MapRecord> found = ParseMapFile(MapFileText(record));
  return found.size() == 1 && found[0].name == record.name && found[0].mapped == record.mapped;
}

std::uint32_t ReadMapFile(const wchar_t* path, std::vector<MapRecord>& records) {
  records.clear();
  std::string native;
  struct stat status {};
  if (!sys::ToNative(path, native)) return 0;
  const Descriptor file = Descriptor::open(native, O_RDONLY | O_NONBLOCK);
  if (!file || Calls().fstat(file.get(), &status) != 0 || S_ISDIR(status.st_mode)) return 0;
  if (status.st_size > kLargestFile || !S_ISREG(status.st_mode)) return kReadFault;
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t size = sys::ReadUpTo(file.get(), bytes.data(), bytes.size());
  if (size < 0) return kReadFault;
  records = ParseMapFile(std::string_view(bytes).substr(0, static_cast<std::size_t>(size)));
  return 0;
}

std::uint32_t ReplaceMapFile(const wchar_t* path, const std::string& bytes) {
  std::string native;
  if (!sys::ToNativeForCreation(path, native)) return sys::GetLastError();
  struct stat old {};
  const bool exists = Calls().stat(native.c_str(), &old) == 0;
  if (exists && (S_ISDIR(old.st_mode) || sys::IsReadOnly(old))) return sys::ERROR_ACCESS_DENIED;
  const std::string passing = PassingName(native);
  const bool replaced = WriteNew(passing, exists ? old.st_mode & 07777 : 0, bytes) &&
                        Calls().rename(passing.c_str(), native.c_str()) == 0;
  if (replaced) return 0;
  const int error = errno;
  Calls().unlink(passing.c_str());
  return CodeOf(error, native);
}

bool IsPassingMapFile(std::wstring_view name, std::wstring_view map_name) {
  constexpr std::wstring_view mark = L".new-";
  return name.starts_with(map_name) && name.substr(map_name.size()).starts_with(mark);
}

AppendedRecord::AppendedRecord(const wchar_t* path) {
  struct stat status {};
  if (!sys::ToNativeForCreation(path, m_native)) return;
  constexpr int flags = O_WRONLY | O_APPEND | O_NONBLOCK;
  Descriptor file = Descriptor::open(m_native, flags);
  if (!file && errno == ENOENT) {
    file = Descriptor::open(m_native, flags | O_CREAT | O_EXCL);
    m_is_new = bool(file);
    if (!file) file = Descriptor::open(m_native, flags);  // somebody else was faster
  }
  if (!file || Calls().fstat(file.get(), &status) != 0) return;
  if (!m_is_new && sys::IsReadOnly(status)) return;
  m_old_size = status.st_size;
  m_descriptor = file.release();
}

AppendedRecord::~AppendedRecord() {
  takeBack();
}

std::uint32_t AppendedRecord::write(const MapRecord& record) {
  const std::string bytes = MapFileText(record);
  return sys::WriteAll(m_descriptor, bytes.data(), bytes.size()) ? 0 : CodeOf(errno, m_native);
}

std::uint32_t AppendedRecord::keep() {
  Descriptor file(std::exchange(m_descriptor, -1));
  if (file.close()) return 0;
  const std::uint32_t code = CodeOf(errno, m_native);
  file = Descriptor::open(m_native, O_WRONLY);
  m_descriptor = file.release();
  takeBack();
  return code;
}

void AppendedRecord::takeBack() {
  if (m_descriptor < 0) return;
  const sys::LastErrorKeeper keeper;
  const Descriptor file(std::exchange(m_descriptor, -1));
  if (m_is_new) {
    Calls().unlink(m_native.c_str());
  } else {
    Calls().ftruncate(file.get(), m_old_size);
  }
}

}  // namespace qel::paths
