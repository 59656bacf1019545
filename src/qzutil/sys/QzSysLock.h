// QzSysLock.h: the plain exclusive lock under the process-wide locks of the
// frame (the log lock, the error lock, the memory lock).
#pragma once

#include "qzutil/frame/QzExport.h"

// A non-recursive mutex in opaque storage, so that no system header shows.
//
// Ownership: zero-initialised storage is a valid "not created" state, so a
//            global QzSysLock needs no constructor and loading the library
//            runs no code. Create before first use, Destroy after last.
// Threads:   Lock and Unlock from any thread; Create and Destroy while no
//            other thread can touch it.
// Invariant: never taken twice on one thread.
class QZUTIL_API QzSysLock {
public:
    void Create();
    void Destroy();
    void Lock();
    void Unlock();

private:
    alignas(8) unsigned char m_storage[64];
};

// Holds a QzSysLock for one scope.
class QzSysAutoLock {
public:
    explicit QzSysAutoLock(QzSysLock *lock) : m_lock(lock) { m_lock->Lock(); }
    ~QzSysAutoLock() { m_lock->Unlock(); }
    QzSysAutoLock(QzSysAutoLock const &) = delete;
    QzSysAutoLock &operator=(QzSysAutoLock const &) = delete;

private:
    QzSysLock *m_lock;
};
