#pragma once
// Objects that no end of the process destroys.

#include <cstddef>
#include <new>

namespace qel::sys {

class LastingObject {
 public:
  LastingObject(const LastingObject&) = delete;
  LastingObject& operator=(const LastingObject&) = delete;
  static void DestroyAll();  // in the reverse order of their making

 protected:
  using Destroy = void (*)(LastingObject& object);
  LastingObject() = default;
  void Keep(Destroy destroy);

 private:
  LastingObject* m_made_before = nullptr;
  Destroy m_destroy = nullptr;
};

// One object of static duration that stays when the process ends: static objects of users, exit
// handlers and threads may call the library to the very last moment. It is destroyed when the
// library is unloaded, after all other static objects of the library.
template <class T>
class Lasting : LastingObject {
 public:
  Lasting() {
    ::new (static_cast<void*>(m_memory)) T();
    Keep(destroy);
  }
  template <class Make>
  explicit Lasting(Make make) {
    ::new (static_cast<void*>(m_memory)) T(make());
    Keep(destroy);
  }

  T& operator*() { return *std::launder(reinterpret_cast<T*>(m_memory)); }

 private:
  static void destroy(LastingObject& object) { (*static_cast<Lasting&>(object)).~T(); }

  alignas(T) std::byte m_memory[sizeof(T)];
};

}  // namespace qel::sys
