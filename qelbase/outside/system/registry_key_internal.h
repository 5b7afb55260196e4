#pragma once
// One open key of the registry, closed by its owner.

#include <utility>

#include "qelbase/outside/system/registry.h"

namespace qel::sys {

// Movable, not copyable; empty until a call has put a key there. An object belongs to one thread at
// a time.
class RegistryKey {
 public:
  RegistryKey() = default;
  RegistryKey(RegistryKey&& other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
  ~RegistryKey() {
    if (m_key) RegCloseKey(m_key);
  }
  RegistryKey& operator=(RegistryKey&&) = delete;

  // For the result of a call that opens or makes a key; such calls leave it empty when they fail.
  HKEY* out() { return &m_key; }
  HKEY get() const { return m_key; }
  explicit operator bool() const { return m_key != nullptr; }

 private:
  HKEY m_key = nullptr;
};

}  // namespace qel::sys
