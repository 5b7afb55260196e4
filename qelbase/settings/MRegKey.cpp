#include "qelbase/settings/MRegKey.h"

#include <utility>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

constexpr DWORD kLongestSubkey = 260;

CStringW orEmpty(const wchar_t* text) {
  return text ? text : L"";
}

}  // namespace

MRegKey::MRegKey() = default;

MRegKey::MRegKey(HKEY handle, int owner) {
  Attach(handle, owner);
}

MRegKey::MRegKey(const wchar_t* subkey, MRegKey parent) {
  if (const HKEY handle = parent) {
    CommonInit(subkey, handle);
  } else {
    CommonInit(JoinKeyPath(parent._GetSubKeyName(), orEmpty(subkey)), parent.m_parent);
  }
  if (m_subkey.IsEmpty()) m_owner = 0;  // opening gives the parent's own handle
}

MRegKey::MRegKey(MRegKey& other)
    : m_handle(other.m_handle),
      m_subkey(other._GetSubKeyName()),
      m_parent(other.m_parent),
      m_last_error(other.m_last_error),
      m_owner(0) {}

MRegKey& MRegKey::operator=(MRegKey& other) {
  if (this == &other) return *this;
  const CStringW path = other._GetSubKeyName();
  AssignWithName(other);
  m_subkey = path;
  return *this;
}

void MRegKey::AssignWithName(const MRegKey& other) {
  if (this == &other) return;
  Close();
  m_handle = other.m_handle;
  m_subkey = other.m_subkey;
  m_parent = other.m_parent;
  m_last_error = other.m_last_error;
  m_owner = 0;
}

MRegKey::~MRegKey() {
  Close();
}

CStringW MRegKey::_GetSubKeyName() {
  return m_subkey;
}

CStringW MRegKey::JoinKeyPath(CStringW left, CStringW right) {
  const auto strip = [](CStringW& text) {
    int begin = 0, end = text.GetLength();
    while (begin < end && text[begin] == L'\\') ++begin;
    while (end > begin && text[end - 1] == L'\\') --end;
    text = text.Mid(begin, end - begin);
  };
  strip(left);
  strip(right);
  if (right.IsEmpty()) return left;
  if (!left.IsEmpty()) left += L'\\';
  return left += right;
}

// --- opening and closing ---

void MRegKey::CommonInit(const wchar_t* subkey, HKEY parent) {
  m_handle = nullptr;
  m_subkey = orEmpty(subkey);
  m_parent = parent;
  m_last_error = NO_HANDLE;
  m_owner = 1;
}

void MRegKey::Close() {
  if (m_handle && m_owner) RegCloseKey(m_handle);
  m_handle = nullptr;
  m_last_error = NO_HANDLE;
}

void MRegKey::Attach(HKEY handle, int owner) {
  Close();
  m_handle = handle;
  m_owner = owner;
}

int MRegKey::Open(const wchar_t* subkey, HKEY parent, int create) {
  Close();
  if (!parent) return 0;
  HKEY opened = nullptr;
  m_last_error =
      create ? RegCreateKeyW(parent, subkey, &opened) : RegOpenKeyW(parent, subkey, &opened);
  if (m_last_error == 0) m_handle = opened;
  return m_handle != nullptr;
}

int MRegKey::ValidHandle(int create) {
  if (m_handle) return 1;
  if (!m_parent) return 0;
  Open(_GetSubKeyName(), m_parent, create);
  return m_handle != nullptr;
}

int MRegKey::begin(int create) {
  m_last_error = NO_HANDLE;
  return ValidHandle(create);
}

MRegKey& MRegKey::Create() {
  begin(1);
  return *this;
}

MRegKey::operator HKEY() {
  ValidHandle(0);
  return m_handle;
}

bool MRegKey::operator!() {
  return !ValidHandle(0);
}

// --- subkeys ---

void MRegKey::GetParams(HKEY& parent, CStringW& subkey) {
  parent = m_parent;
  subkey = _GetSubKeyName();
}

int MRegKey::GetSubKeyName(std::uint32_t index, CStringW& name) {
  name.Empty();
  if (!begin(0)) return 0;
  wchar_t buffer[kLongestSubkey + 1] = L"";
  m_last_error = RegEnumKeyW(m_handle, index, buffer, kLongestSubkey + 1);
  if (m_last_error != 0) return 0;
  name = buffer;
  return 1;
}

void MRegKey::GetSubKeyNames(CStringArray& names) {
  names.RemoveAll();
  CStringW name;
  for (std::uint32_t i = 0; GetSubKeyName(i, name); ++i) names.Add(name);
}

int MRegKey::DeleteSubKey(const wchar_t* name) {
  m_last_error = NO_HANDLE;
  if (!name || !*name || !ValidHandle(0)) return 0;
  MRegKey child(name, MRegKey(m_handle, 0));
  const bool opened = !!child;
  m_last_error = child.m_last_error;
  if (!opened || IsVeryImportantSubKey(name)) return 0;
  CStringArray names;
  child.GetSubKeyNames(names);
  for (CStringArray::Index i = 0; i < names.GetSize(); ++i) {
    if (child.DeleteSubKey(names[i])) continue;
    m_last_error = child.m_last_error;
    return 0;
  }
  child.Close();
  return _DeleteSubKey(name);
}

int MRegKey::_DeleteSubKey(const wchar_t* subkey) {
  if (!begin(0)) return 0;
  m_last_error = RegDeleteKeyW(m_handle, subkey);
  return m_last_error == 0;
}

int MRegKey::IsVeryImportantSubKey(CStringW name) {
  const CStringW path = JoinKeyPath(_GetSubKeyName(), std::move(name));
  if (path.IsEmpty() || m_handle != HKEY_CLASSES_ROOT) return 0;
  for (const wchar_t* const important : {L"CLSID", L"AppID", L"TypeLib", L"Interface"}) {
    if (path.CompareNoCase(important) == 0) return 1;
  }
  return 0;
}
