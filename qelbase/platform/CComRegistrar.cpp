#include "qelbase/platform/CComRegistrar.h"

#include <algorithm>
#include <array>
#include <string>

#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/paths/path_functions.h"
#include "qelbase/settings/MRegKey.h"

namespace {

MRegKey classesRoot() {
  return {qel::sys::HKEY_CLASSES_ROOT, 0};
}

MRegKey keyAt(const CStringW& path) {
  return {path, classesRoot()};
}

// The parent is opened first, if it is there: a handle that the passing copy opens stays open.
void update(MRegKey& parent, const wchar_t* subkey, const wchar_t* text,
            const wchar_t* name = nullptr) {
  static_cast<void>(!parent);
  MRegKey(subkey, MRegKey(parent)).UpdRegStr(name, text);
}

CStringW inBraces(CStringW text) {
  if (text.IsEmpty()) return text;
  if (text[0] != L'{') text = L"{" + text;
  if (text[text.GetLength() - 1] != L'}') text += L"}";
  return text;
}

bool hasBraces(CComRegistrar::REGPARAM number) {
  return number == CComRegistrar::paramClassId || number == CComRegistrar::paramInterfaceId ||
         number == CComRegistrar::paramLibraryId;
}

CStringW fileNameOf(const CStringW& path) {
  std::wstring drive;
  std::wstring folder;
  std::wstring file;
  std::wstring extension;
  POSITION_PATH_PARTS(path.GetString(), drive, folder, file, extension, false);
  return (file + extension).c_str();
}

void deleteTree(const CStringW& path) {
  classesRoot().DeleteSubKey(path);
}

}  // namespace

CComRegistrar::CComRegistrar(const ParamInit* list) {
  InitParams(list);
}

CComRegistrar::~CComRegistrar() = default;

CStringW CComRegistrar::Get(REGPARAM number) const {
  return number < GetSize() ? GetAt(number) : CStringW();
}

void CComRegistrar::Set(REGPARAM number, CStringW text) {
  SetAtGrow(number, hasBraces(number) ? inBraces(std::move(text)) : text);
}

void CComRegistrar::InitParams(const ParamInit* list) {
  for (; list && list->number != paramEnd; ++list) Set(list->number, list->text);
}

CStringW CComRegistrar::_GetServerPath() const {
  CStringW path = Get(paramServerPath);
  if (!path.IsEmpty()) return path;
  std::array<wchar_t, qel::sys::MAX_PATH> program{};
  qel::sys::GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
  return program.data();
}

bool CComRegistrar::_HasLibrary() const {
  return !Get(paramLibraryId).IsEmpty() && !Get(paramLibraryVersion).IsEmpty();
}

int CComRegistrar::Register(const ParamInit* list) {
  InitParams(list);
  if (!Get(paramClassId).IsEmpty()) _RegisterClass();
  if (!Get(paramProgId).IsEmpty()) _RegisterProgId();
  if (!Get(paramInterfaceId).IsEmpty()) _RegisterInterface();
  if (_HasLibrary()) _RegisterLibrary();
  return 1;
}

void CComRegistrar::_RegisterClass() const {
  MRegKey key = keyAt(L"CLSID\\" + Get(paramClassId));
  key.UpdRegStrE(nullptr, Get(paramName));
  if (Get(paramProgId).IsEmpty()) {
    key.DeleteSubKey(L"ProgID");
  } else {
    update(key, L"ProgID", Get(paramProgId));
  }
  _RegisterServer(key);
}

// Keys of another kind from an earlier registration stay.
void CComRegistrar::_RegisterServer(MRegKey& key) const {
  const CStringW kind = Get(paramServerKind);
  if (kind == L"LS" || kind == L"LSO") update(key, L"LocalServer32", _GetServerPath());
  if (kind == L"LSO") update(key, L"InprocHandler32", L"ole32.dll");
  if (kind == L"INP") update(key, L"InprocServer32", _GetServerPath());
}

void CComRegistrar::_RegisterProgId() const {
  MRegKey key = keyAt(Get(paramProgId));
  key.UpdRegStrE(nullptr, Get(paramName));
  if (Get(paramClassId).IsEmpty()) {
    key.DeleteSubKey(L"CLSID");
  } else {
    update(key, L"CLSID", Get(paramClassId));
  }
}

void CComRegistrar::_RegisterInterface() const {
  constexpr const wchar_t* marshaler = L"{00020420-0000-0000-C000-000000000046}";
  MRegKey key = keyAt(L"Interface\\" + Get(paramInterfaceId));
  key.UpdRegStrE(nullptr, Get(paramInterfaceName));
  update(key, L"ProxyStubClsid", marshaler);
  update(key, L"ProxyStubClsid32", marshaler);
  if (_HasLibrary()) {
    update(key, L"TypeLib", Get(paramLibraryId));
    update(key, L"TypeLib", Get(paramLibraryVersion), L"Version");
  } else {
    key.DeleteSubKey(L"TypeLib");
  }
}

void CComRegistrar::_RegisterLibrary() const {
  MRegKey key = keyAt(L"TypeLib\\" + Get(paramLibraryId) + L"\\" + Get(paramLibraryVersion));
  const CStringW name = Get(paramLibraryName);
  key.UpdRegStrE(nullptr, name.IsEmpty() ? Get(paramName) : name);
  update(key, L"FLAGS", L"0");
  update(key, L"0\\win32", _GetServerPath());
}

int CComRegistrar::UnRegister(const ParamInit* list) {
  InitParams(list);
  if (!Get(paramProgId).IsEmpty()) deleteTree(Get(paramProgId));
  if (!Get(paramClassId).IsEmpty()) {
    deleteTree(L"CLSID\\" + Get(paramClassId));
    deleteTree(L"AppID\\" + Get(paramClassId));
  }
  if (const CStringW file = fileNameOf(_GetServerPath()); !file.IsEmpty()) {
    deleteTree(L"AppID\\" + file);
  }
  if (!Get(paramInterfaceId).IsEmpty()) deleteTree(L"Interface\\" + Get(paramInterfaceId));
  if (_HasLibrary()) {
    deleteTree(L"TypeLib\\" + Get(paramLibraryId) + L"\\" + Get(paramLibraryVersion));
  }
  return 1;
}

int CComRegistrar::RegisterImplementedCategory(CStringW category) {
  category = inBraces(std::move(category));
  if (category.IsEmpty()) return 1;
  MRegKey key = keyAt(L"CLSID\\" + Get(paramClassId) + L"\\Implemented Categories\\" + category);
  return !key.Create() ? 0 : 1;
}

int CComRegistrar::RegisterSafeForScripting() {
  return RegisterImplementedCategory(L"7DD95801-9882-11CF-9FA9-00AA006C42C4") != 0 &&
         RegisterImplementedCategory(L"7DD95802-9882-11CF-9FA9-00AA006C42C4") != 0;
}
