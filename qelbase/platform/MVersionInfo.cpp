#include "qelbase/platform/MVersionInfo.h"

#include <array>
#include <compare>
#include <cstring>

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/framework/CurrentInstance.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/platform/MVersionInfo_internal.h"

using namespace qel::sys;

namespace {

constexpr std::uint16_t kWestern = 1252;

using Version = std::array<std::uint32_t, 4>;

Version partsOf(std::uint32_t first, std::uint32_t second) {
  return {first >> 16, first & 0xFFFF, second >> 16, second & 0xFFFF};
}

Version fileVersionOf(const VS_FIXEDFILEINFO& info) {
  return partsOf(info.dwFileVersionMS, info.dwFileVersionLS);
}

std::uint32_t part(const Version& version, int index) {
  return index >= 0 && index < 4 ? version[static_cast<std::size_t>(index)] : 0;
}

// Empty if the module has no file name, or one that is too long.
std::wstring fileOf(HMODULE module) {
  std::array<wchar_t, MAX_PATH> file{};
  const DWORD length = GetModuleFileNameW(module, file.data(), file.size());
  return {file.data(), length < file.size() ? length : 0};
}

}  // namespace

MVersionInfo::MVersionInfo() : tagVS_FIXEDFILEINFO{} {}

MVersionInfo::MVersionInfo(const MVersionInfo& other) : tagVS_FIXEDFILEINFO{} {
  *this = other;
}

MVersionInfo& MVersionInfo::operator=(const MVersionInfo& other) {
  if (this == &other) return *this;
  static_cast<tagVS_FIXEDFILEINFO&>(*this) = other;
  m_language = other.m_language;
  m_code_page = other.m_code_page;
  m_block.reset();
  m_block_size = other.m_block_size;
  if (!other.m_block) return *this;
  m_block = std::make_unique<std::byte[]>(m_block_size);
  std::memcpy(m_block.get(), other.m_block.get(), m_block_size);
  return *this;
}

MVersionInfo::~MVersionInfo() = default;

bool MVersionInfo::GET_FILE_VERSION_INFO(const MFileName& file) {
  m_code_page = kWestern;
  static_cast<tagVS_FIXEDFILEINFO&>(*this) = {};
  const std::wstring name = file.GET();
  const DWORD size = GetFileVersionInfoSizeW(name.c_str(), nullptr);
  if (size == 0) return false;
  m_block_size = size;
  m_block = std::make_unique<std::byte[]>(size);
  if (!GetFileVersionInfoW(name.c_str(), 0, size, m_block.get())) return false;
  const void* value = nullptr;
  UINT length = 0;
  if (!VerQueryValueW(m_block.get(), L"\\", &value, &length) || length < sizeof(VS_FIXEDFILEINFO))
    return false;
  std::memcpy(static_cast<tagVS_FIXEDFILEINFO*>(this), value, sizeof(VS_FIXEDFILEINFO));
  std::array<std::uint16_t, 2> translation{};
  if (VerQueryValueW(m_block.get(), L"\\VarFileInfo\\Translation", &value, &length) &&
      length >= sizeof translation) {
    std::memcpy(translation.data(), value, sizeof translation);
    m_language = translation[0];
    m_code_page = translation[1];
  }
  return dwSignature == VS_FFI_SIGNATURE;
}

bool MVersionInfo::GET_MODULE_VERSION_INFO(const wchar_t* module) {
  const HMODULE handle = module ? GetModuleHandleW(module) : GetCurrentInstance();
  if (module && !handle) return false;
  const std::wstring file = fileOf(handle);
  return !file.empty() && GET_FILE_VERSION_INFO(MFileName(file.c_str(), false));
}

std::uint32_t MVersionInfo::GET_VERSION_VALUE(int index) const {
  return part(fileVersionOf(*this), index);
}

std::uint32_t MVersionInfo::GET_PRODUCT_VERSION_VALUE(int index) const {
  return part(partsOf(dwProductVersionMS, dwProductVersionLS), index);
}

bool MVersionInfo::GET_VALUE(const wchar_t* name, CStringW& result) const {
  if (!m_block || !name) return false;
  const std::wstring path =
      QelStdBase::FormatString(L"\\StringFileInfo\\%04x%04x\\%s", m_language, m_code_page, name);
  const void* value = nullptr;
  if (!VerQueryValueW(m_block.get(), path.c_str(), &value, nullptr)) return false;
  result = static_cast<const wchar_t*>(value);
  return true;
}

CStringW MVersionInfo::GET_FILE_VERSION(const wchar_t* format, const wchar_t* order) {
  if (!format || !*format || !order || !*order) return {};
  if (!m_block) static_cast<void>(GET_FILE_VERSION_INFO(MFileName(fileOf(nullptr).c_str(), false)));
  if (!m_block) return {};
  Version numbers{};
  for (std::size_t i = 0; i < numbers.size() && order[i] != 0; ++i) {
    if (order[i] >= L'1' && order[i] <= L'4') numbers[i] = GET_VERSION_VALUE(order[i] - L'1');
  }
  return QelStdBase::FormatString(format, numbers[0], numbers[1], numbers[2], numbers[3]);
}

bool MVersionInfo::operator==(const MVersionInfo& other) const {
  return fileVersionOf(*this) == fileVersionOf(other);
}

bool MVersionInfo::operator<(const MVersionInfo& other) const {
  return fileVersionOf(*this) < fileVersionOf(other);
}

bool MVersionInfo::operator>(const MVersionInfo& other) const {
  return fileVersionOf(*this) > fileVersionOf(other);
}

// --- the version that a library tells of itself --------------------------------------------------

namespace {

QelSDK::Common::Logging::ILogger& GetLibraryLogger() {
  static QelSDK::Common::Logging::ILogger& logger =
      QelSDK::Common::Logging::GetLogger(L"lib.qelbase");
  return logger;
}

template <typename... Pieces>
bool fail(const Pieces&... pieces) {
  QelSDK::Common::Logging::LogMessage line(L"In MVersionInfoDLL::GET_VERSION_INFO() : ");
  (line << ... << pieces);
  GetLibraryLogger().LogFailure(line);
  return false;
}

}  // namespace

MVersionInfoDLL::MVersionInfoDLL() : DLLVERSIONINFO{sizeof(DLLVERSIONINFO), 0, 0, 0, 0} {}

MVersionInfoDLL::~MVersionInfoDLL() = default;

bool MVersionInfoDLL::GET_VERSION_INFO(const wchar_t* library) {
  const HMODULE module = LoadLibraryW(library);
  if (!module) return fail(L"Error loading '", library ? library : L"", L"' into memory");
  const FARPROC entry = GetProcAddress(module, "DllGetVersion");
  std::int32_t result = -1;
  if (entry) {
    static_cast<DLLVERSIONINFO&>(*this) = {sizeof(DLLVERSIONINFO), 0, 0, 0, 0};
    result = reinterpret_cast<std::int32_t (*)(DLLVERSIONINFO*)>(entry)(this);
  }
  FreeLibrary(module);
  if (!entry) return fail(L"Could not retrieve 'DllGetVersion' function address.");
  return result >= 0 || fail(L"Could execute the 'DllGetVersion' function.");
}
