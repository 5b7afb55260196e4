#include <atomic>

#include "qelbase/outside/system/lasting_internal.h"

// Of the C++ ABI: `function` runs when the process exits, or in __cxa_finalize for the same owner.
extern "C" int __cxa_atexit(void (*function)(void*), void* argument, void* owner) noexcept;
extern "C" void __cxa_finalize(void* owner) noexcept;

namespace qel::sys {

namespace {

constinit std::atomic<LastingObject*> last_made = nullptr;
constinit std::atomic<bool> is_exiting = false;

// The unloading of the library finalizes what the library itself owns. This owner is another one,
// so that the note is taken by an exit only.
char owner_of_note;

void noteExit(void*) {
  is_exiting = true;
}

// Both an unloading and an exit come here, behind the destructors of the library's static objects.
__attribute__((destructor(101))) void unload() {
  if (is_exiting) return;
  __cxa_finalize(&owner_of_note);
  LastingObject::DestroyAll();
}

}  // namespace

void LastingObject::Keep(Destroy destroy) {
  m_destroy = destroy;
  LastingObject* before = last_made.load();
  do {
    m_made_before = before;
  } while (!last_made.compare_exchange_weak(before, this));
  // Anew for each: those of a library that is there from the start are made before the exit's own
  // end is in its list, which runs backwards.
  __cxa_atexit(noteExit, nullptr, &owner_of_note);
}

void LastingObject::DestroyAll() {
  while (LastingObject* const object = last_made.load()) {
    last_made = object->m_made_before;
    object->m_destroy(*object);
  }
}

}  // namespace qel::sys
