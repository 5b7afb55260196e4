#include "qelbase/settings/MSoftKey.h"

#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/registry.h"

MSoftKey::MSoftKey(const wchar_t* subkey, HKEY parent) {
  CommonInit(subkey, parent);
}

// The copy opens its key anew, by its name.
// NOLINTNEXTLINE(bugprone-copy-constructor-init)
MSoftKey::MSoftKey(const MSoftKey& other) : MRegKey() {
  AssignWithName(other);
}

MSoftKey& MSoftKey::operator=(const MSoftKey& other) {
  AssignWithName(other);
  return *this;
}

void MSoftKey::Init(const wchar_t* product, const wchar_t* version, const wchar_t* company) {
  m_ProductName = product ? CStringW(product) : GetDefaultProductName();
  m_ProductVersion = version ? version : L"";
  m_CompanyName = company ? company : L"!TestCompany";
}

CStringW MSoftKey::_GetSubKeyName() {
  CStringW path = L"software";
  for (const CStringW& name :
       {m_CompanyName, m_ProductName, m_ProductVersion, MRegKey::_GetSubKeyName()}) {
    path = JoinKeyPath(path, name);
  }
  return path;
}

CStringW MSoftKey::GetDefaultProductName() {
  constexpr DWORD kSize = 260;
  wchar_t file[kSize] = L"";
  qel::sys::GetModuleFileNameW(nullptr, file, kSize);
  CStringW name = file;
  name = name.Mid(name.ReverseFind(L'\\') + 1);
  const int dot = name.ReverseFind(L'.');
  return dot < 0 ? name : name.Left(dot);
}

MSoftKeyCU::MSoftKeyCU(const wchar_t* subkey) : MSoftKey(subkey, qel::sys::HKEY_CURRENT_USER) {}

MSoftKeyLM::MSoftKeyLM(const wchar_t* subkey) : MSoftKey(subkey, qel::sys::HKEY_LOCAL_MACHINE) {}
