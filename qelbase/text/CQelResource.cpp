#include "qelbase/text/CQelResource.h"

#include "qelbase/outside/system/errors.h"

namespace sys = qel::sys;

constinit HINSTANCE CQelResource::mh_AppInstance = nullptr;

void CQelResource::SetResInstance(HINSTANCE instance) {
  mh_AppInstance = instance;
}
HINSTANCE CQelResource::GetResInstance() {
  return mh_AppInstance;
}

CQelResource::~CQelResource() {
  Release();
}

bool CQelResource::Load(const wchar_t* name, const wchar_t* type) {
  Release();
  const sys::HRSRC resource = sys::FindResourceW(mh_AppInstance, name, type);
  if (!resource) return false;
  m_handle = sys::LoadResource(mh_AppInstance, resource);
  if (m_handle) {
    m_size = sys::SizeofResource(mh_AppInstance, resource);
    if (m_size != 0) m_data = static_cast<const std::byte*>(sys::LockResource(m_handle));
  }
  if (m_data) return true;
  const DWORD error = sys::GetLastError();  // 0 for a resource without bytes, as no call fails
  Release();
  sys::SetLastError(error != sys::ERROR_SUCCESS ? error : 1);
  return false;
}

void CQelResource::Release() {
  m_handle = nullptr;
  m_data = nullptr;
}

const std::byte* CQelResource::GetData() const {
  return m_data;
}
std::uint64_t CQelResource::GetSizeInBytes() const {
  return m_size;
}
