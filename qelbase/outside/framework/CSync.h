#pragma once
// Locks of the framework: a critical section, and the object that holds it for a while.

#include <pthread.h>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

class QELBASE_API CSyncObject {
 public:
  CSyncObject() = default;
  virtual ~CSyncObject() = default;
  CSyncObject(const CSyncObject&) = delete;
  CSyncObject& operator=(const CSyncObject&) = delete;

  // Waits at most that many milliseconds, 0xFFFFFFFF for ever; 0 if it was not to be had.
  virtual BOOL Lock(DWORD timeout) = 0;
  virtual BOOL Unlock() = 0;
};

// A lock between the threads of a process. Its owner may lock it again, and unlocks it as often.
class QELBASE_API CCriticalSection final : public CSyncObject {
 public:
  CCriticalSection();  // throws a CResourceException by pointer if the system has none
  ~CCriticalSection() override;

  BOOL Lock();
  BOOL Lock(DWORD timeout) override;
  BOOL Unlock() override;  // 0 if the calling thread isn't the owner

 private:
  pthread_mutex_t m_mutex;
};

// Holds a lock from `Lock`, or from the construction if told to, until `Unlock` or its end. An
// object belongs to one thread.
class QELBASE_API CSingleLock {
 public:
  explicit CSingleLock(CSyncObject* object, BOOL initial_lock = 0);
  ~CSingleLock();
  CSingleLock(const CSingleLock&) = delete;
  CSingleLock& operator=(const CSingleLock&) = delete;

  BOOL Lock(DWORD timeout = 0xFFFFFFFF);
  BOOL Unlock();
  [[nodiscard]] BOOL IsLocked() const { return m_acquired; }

 private:
  CSyncObject* m_object;
  BOOL m_acquired = 0;
};
