// QzSysLockPosix.cpp: QzSysLock over a pthread mutex in opaque storage.

#include "qzutil/sys/QzSysLock.h"

#include <pthread.h>

#include <new>

static_assert(sizeof(pthread_mutex_t) <= 64, "QzSysLock storage too small for the mutex");
static_assert(alignof(pthread_mutex_t) <= 8, "QzSysLock storage under-aligned for the mutex");

static pthread_mutex_t *MutexOf(unsigned char *storage)
{
    return std::launder(reinterpret_cast<pthread_mutex_t *>(storage));
}

void QzSysLock::Create()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
#ifndef NDEBUG
    // Debug builds catch a lock taken twice or released by another thread.
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
#endif
    new (m_storage) pthread_mutex_t;
    pthread_mutex_init(MutexOf(m_storage), &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void QzSysLock::Destroy()
{
    pthread_mutex_destroy(MutexOf(m_storage));
}

void QzSysLock::Lock()
{
    pthread_mutex_lock(MutexOf(m_storage));
}

void QzSysLock::Unlock()
{
    pthread_mutex_unlock(MutexOf(m_storage));
}
