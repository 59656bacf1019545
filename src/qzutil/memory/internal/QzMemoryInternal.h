// QzMemoryInternal.h: what the allocator's own classes share: its message
// formatter, its switches and the memory lock. Internal: never installed.
#pragma once

#include <atomic>
#include <thread>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"

// Posts one of the allocator's messages (at most 512 wide characters)
// against the QzMemory component, id -1, no data.
void QzPostMemoryMessage(QzSysError::Severity severity, LtWChar const *format, ...);

// The scrub and check switches, read on every arena operation; set by
// QzMemory's setters and its first Initialise.
struct QzMemoryModes {
    bool scrub;
    bool check;
};
extern QzMemoryModes g_memory_modes;

inline bool QzIsScrubMemory()
{
    return g_memory_modes.scrub;
}

inline bool QzIsCheckMemory()
{
    return g_memory_modes.check;
}

// The memory lock: held only for the few instructions of an arena operation,
// so waiting spins (yielding the processor) rather than sleeping.
//
// Threads:   any thread; never taken twice on one thread.
// Ownership: a global of this type needs no constructor.
class QzSpinLock {
public:
    void Lock()
    {
        while (m_locked.exchange(true, std::memory_order_acquire)) {
            while (m_locked.load(std::memory_order_relaxed))
                std::this_thread::yield();
        }
    }
    void Unlock() { m_locked.store(false, std::memory_order_release); }

private:
    std::atomic<bool> m_locked{false};
};

// Holds a QzSpinLock for one scope.
class QzSpinLockScope {
public:
    explicit QzSpinLockScope(QzSpinLock *lock) : m_lock(lock) { m_lock->Lock(); }
    ~QzSpinLockScope() { m_lock->Unlock(); }
    QzSpinLockScope(QzSpinLockScope const &) = delete;
    QzSpinLockScope &operator=(QzSpinLockScope const &) = delete;

private:
    QzSpinLock *m_lock;
};
