#pragma once
// A custom resource of raw bytes.

#include <cstddef>
#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/system/resources.h"

// Maps a resource of the application's module. It owns nothing: the bytes stay as long as the
// module is loaded. An object belongs to one thread at a time.
class QELBASE_API CQelResource {
 public:
  CQelResource() = default;
  ~CQelResource();
  CQelResource(const CQelResource&) = default;
  CQelResource& operator=(const CQelResource&) = default;

  // The module in which plain lookups search; null, as at start, is the program. For the whole
  // process; set it before texts are asked for.
  static void SetResInstance(HINSTANCE instance);
  [[nodiscard]] static HINSTANCE GetResInstance();

  // Name and type as FindResourceW takes them. False, and the last error, which is never 0 then, if
  // there is no such resource or it is empty.
  [[nodiscard]] bool Load(const wchar_t* name, const wchar_t* type);
  void Release();  // the size stays as it was

  [[nodiscard]] const std::byte* GetData() const;  // null unless loaded
  [[nodiscard]] std::uint64_t GetSizeInBytes() const;

  static HINSTANCE mh_AppInstance;

 private:
  qel::sys::HGLOBAL m_handle = nullptr;
  const std::byte* m_data = nullptr;
  std::uint64_t m_size = 0;
};
