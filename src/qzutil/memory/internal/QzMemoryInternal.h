// QzMemoryInternal.h: what the allocator's own classes share: its message
// formatter, its switches and the memory lock. Internal: never installed.
#pragma once

#include <atomic>
#include <thread>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"

// Posts one of the allocator's messages (at most 512 wide characters)
// against the QzMemory component, id -1, no data. Under the memory lock the
// post waits for the lock's release.
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

class QzComponent;
extern QzComponent g_memory_component;  // QzMemory's; the allocator posts against it

// The memory lock over QzMemory's arenas, its counters and the thread caches'
// registry; and the thread that holds it, so that a post from under it waits.
extern QzSpinLock g_memory_lock;
extern std::atomic<std::thread::id> g_memory_lock_owner;
// Posts waiting for the lock's release; guarded by the lock.
extern int g_memory_pending_posts;

// Releases the lock, then posts what waited.
void QzUnlockMemoryAndPostPending();

// Holds the memory lock for one scope.
class QzMemoryLockScope {
public:
    QzMemoryLockScope()
    {
        g_memory_lock.Lock();
        g_memory_lock_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    ~QzMemoryLockScope()
    {
        if (g_memory_pending_posts != 0) {
            QzUnlockMemoryAndPostPending();
            return;
        }
        g_memory_lock_owner.store(std::thread::id(), std::memory_order_relaxed);
        g_memory_lock.Unlock();
    }
    QzMemoryLockScope(QzMemoryLockScope const &) = delete;
    QzMemoryLockScope &operator=(QzMemoryLockScope const &) = delete;
};
