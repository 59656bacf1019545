// QzMemoryLock.cpp: the memory lock, and the allocator's messages, which wait
// for the lock's release when they are posted under it.

#include <cstdarg>
#include <cstring>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/internal/QzMemoryInternal.h"
#include "qzutil/sys/QzSysString.h"

// Internal messages are formatted into this many wide characters at most.
static constexpr int kMessageLimit = 512;

namespace {

// Messages posted while the memory lock is held wait here, guarded by that
// lock: a handler may allocate, and the lock is not recursive.
struct PendingPosts {
    static constexpr int kMax = 8;
    int count;
    int dropped;
    QzSysError::Severity severity[kMax];
    LtWChar text[kMax][kMessageLimit];
};

}  // namespace

QzSpinLock g_memory_lock;
std::atomic<std::thread::id> g_memory_lock_owner;
int g_memory_pending_posts;
static PendingPosts g_pending;  // guarded by g_memory_lock

void QzPostMemoryMessage(QzSysError::Severity severity, LtWChar const *format, ...)
{
    LtWChar message[kMessageLimit];
    va_list args;
    va_start(args, format);
    QzSysString::WideVsprintf(message, kMessageLimit, format, args);
    va_end(args);
    if (g_memory_lock_owner.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
        QzSysError::PostFixed(severity, &g_memory_component, -1, nullptr, 0, message);
        return;
    }
    if (g_pending.count == PendingPosts::kMax) {
        ++g_pending.dropped;
        return;
    }
    g_pending.severity[g_pending.count] = severity;
    std::memcpy(g_pending.text[g_pending.count], message, sizeof(message));
    ++g_pending.count;
    g_memory_pending_posts = g_pending.count;
}

void QzUnlockMemoryAndPostPending()
{
    PendingPosts posts;
    std::memcpy(&posts, &g_pending, sizeof(posts));
    g_pending.count = 0;
    g_pending.dropped = 0;
    g_memory_pending_posts = 0;
    g_memory_lock_owner.store(std::thread::id(), std::memory_order_relaxed);
    g_memory_lock.Unlock();
    for (int i = 0; i < posts.count; ++i)
        QzSysError::PostFixed(posts.severity[i], &g_memory_component, -1, nullptr, 0,
                              posts.text[i]);
    if (posts.dropped != 0)
        QzPostMemoryMessage(QzSysError::eWARNING,
                            u"QzMemory: %d more messages found under the memory lock were "
                            u"dropped\n",
                            posts.dropped);
}
