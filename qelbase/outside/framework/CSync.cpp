#include "qelbase/outside/framework/CSync.h"

#include <cerrno>
#include <ctime>

#include "qelbase/outside/framework/CResourceException.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/syscalls_internal.h"

namespace {

constexpr DWORD kForEver = 0xFFFFFFFF;

timespec After(DWORD milliseconds) {
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_sec += milliseconds / 1000;
  end.tv_nsec += long{milliseconds % 1000} * 1'000'000;
  if (end.tv_nsec >= 1'000'000'000) {
    end.tv_nsec -= 1'000'000'000;
    ++end.tv_sec;
  }
  return end;
}

}  // namespace

CCriticalSection::CCriticalSection() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int error = qel::sys::Calls().mutex_init(&m_mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  if (error == 0) return;
  CResourceException::ThrowOsError(static_cast<LONG>(qel::sys::ErrorFromErrno(error)));
}

CCriticalSection::~CCriticalSection() {
  pthread_mutex_destroy(&m_mutex);
}

BOOL CCriticalSection::Lock() {
  return Lock(kForEver);
}

BOOL CCriticalSection::Lock(DWORD timeout) {
  if (timeout == kForEver) return pthread_mutex_lock(&m_mutex) == 0;
  if (timeout == 0) return pthread_mutex_trylock(&m_mutex) == 0;
  const timespec end = After(timeout);
  return pthread_mutex_clocklock(&m_mutex, CLOCK_MONOTONIC, &end) == 0;
}

BOOL CCriticalSection::Unlock() {
  return pthread_mutex_unlock(&m_mutex) == 0;
}

CSingleLock::CSingleLock(CSyncObject* object, BOOL initial_lock) : m_object(object) {
  if (initial_lock) Lock();
}

CSingleLock::~CSingleLock() {
  Unlock();
}

BOOL CSingleLock::Lock(DWORD timeout) {
  if (!m_acquired) m_acquired = m_object->Lock(timeout);
  return m_acquired;
}

BOOL CSingleLock::Unlock() {
  if (m_acquired) m_acquired = !m_object->Unlock();
  return !m_acquired;
}
