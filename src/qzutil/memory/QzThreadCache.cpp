// QzThreadCache.cpp: per-thread stocks of free small blocks in front of the
// small arenas. The memory lock is taken once per refill or hand-back of half
// a stock instead of once per block, which is where the allocator's time went.
//
// A stocked block is free to its arena's callers but counted as allocated by
// the arena: the histogram subtracts the stocks, and the arena counter adds
// what the stocks handed out. Pages and regions behind stocked blocks stay
// committed until the stock hands them back (at most a few KiB per class and
// thread), or the thread ends.

#include "qzutil/memory/internal/QzThreadCache.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "qzutil/memory/QzRawArena.h"
#include "qzutil/memory/internal/QzAsanPoison.h"
#include "qzutil/memory/internal/QzMemoryInternal.h"
#include "qzutil/memory/internal/QzMemoryTables.h"

// Classes 4 to 512 by 4; class 4 holds no link and is never stocked.
static constexpr unsigned kClasses = 128;
// A stock holds about this many bytes of a class, and 8 to 32 blocks.
static constexpr unsigned kStockBytes = 8192;
static constexpr unsigned kMinStock = 8;
static constexpr unsigned kMaxStock = 32;

namespace {

// One thread's stocks. Heads are written by the owning thread only (and by
// ForgetAll, when no thread is inside the allocator); counts and bytes are
// atomics because the histogram and the arena counter read them from other
// threads, under the memory lock.
struct ThreadCache {
    void *heads[kClasses];
    std::atomic<LtNat16> counts[kClasses];
    std::atomic<LtInt64> bytes;  // handed to callers less taken back
    ThreadCache *next;           // the registry; guarded by the memory lock
};

// Hands the stocks back when the thread ends. Touched once per thread, when
// its cache is made, so that the C++ runtime registers the destructor.
class CacheRetirer {
public:
    ~CacheRetirer();
    void Arm() { m_armed = true; }

private:
    bool m_armed = false;
};

}  // namespace

// The calling thread's cache. Initial-exec: one load from the thread pointer
// on the fast path, and only 8 bytes of static thread storage.
static thread_local ThreadCache *t_cache __attribute__((tls_model("initial-exec"))) = nullptr;
static thread_local CacheRetirer t_retirer;

static ThreadCache *g_caches;    // guarded by the memory lock
static LtInt64 g_retired_bytes;  // bytes of ended threads' caches; memory lock

static unsigned ClassIndex(unsigned rounded)
{
    return rounded / 4 - 1;
}

static unsigned StockLimit(unsigned rounded)
{
    unsigned const limit = kStockBytes / rounded;
    return limit < kMinStock ? kMinStock : (limit > kMaxStock ? kMaxStock : limit);
}

static void *ReadLink(void const *block)
{
    QzUnpoison(block, sizeof(void *));
    void *next;
    std::memcpy(&next, block, sizeof(next));
    QzPoison(block, sizeof(void *));
    return next;
}

static void WriteLink(void *block, void *next)
{
    QzUnpoison(block, sizeof(void *));
    std::memcpy(block, &next, sizeof(next));
    QzPoison(block, sizeof(void *));
}

static void Push(ThreadCache *cache, unsigned index, void *block, unsigned rounded)
{
    QzPoison(block, rounded);
    WriteLink(block, cache->heads[index]);
    cache->heads[index] = block;
    cache->counts[index].store(
        static_cast<LtNat16>(cache->counts[index].load(std::memory_order_relaxed) + 1),
        std::memory_order_relaxed);
}

static void *Pop(ThreadCache *cache, unsigned index)
{
    void *block = cache->heads[index];
    cache->heads[index] = ReadLink(block);
    cache->counts[index].store(
        static_cast<LtNat16>(cache->counts[index].load(std::memory_order_relaxed) - 1),
        std::memory_order_relaxed);
    return block;
}

// Adds to a count that only its owner changes.
static void AddBytes(ThreadCache *cache, LtInt64 delta)
{
    cache->bytes.store(cache->bytes.load(std::memory_order_relaxed) + delta,
                       std::memory_order_relaxed);
}

// Hands `count` stocked blocks of one class back to its arena. Memory lock held.
static void HandBackLocked(ThreadCache *cache, unsigned index, unsigned count)
{
    QzRawArena *arena = QzMemoryTables::Small((index + 1) * 4);
    for (unsigned i = 0; i < count && cache->heads[index] != nullptr; ++i)
        arena->Dealloc(Pop(cache, index));
}

// Makes the calling thread's cache on its first use; null if it cannot.
static ThreadCache *Cache()
{
    // Plain malloc: the cache must not come from the allocator it serves.
    auto *cache = static_cast<ThreadCache *>(std::calloc(1, sizeof(ThreadCache)));
    if (cache == nullptr)
        return nullptr;
    {
        QzMemoryLockScope lock;
        cache->next = g_caches;
        g_caches = cache;
    }
    t_cache = cache;
    t_retirer.Arm();
    return cache;
}

CacheRetirer::~CacheRetirer()
{
    ThreadCache *cache = t_cache;
    if (!m_armed || cache == nullptr)
        return;
    {
        QzMemoryLockScope lock;
        if (QzMemoryTables::IsBuilt()) {
            for (unsigned index = 1; index < kClasses; ++index)
                HandBackLocked(cache, index, cache->counts[index].load());
        }
        g_retired_bytes += cache->bytes.load(std::memory_order_relaxed);
        for (ThreadCache **link = &g_caches; *link != nullptr; link = &(*link)->next) {
            if (*link == cache) {
                *link = cache->next;
                break;
            }
        }
    }
    t_cache = nullptr;
    std::free(cache);
}

static bool MayStock()
{
    return !QzIsScrubMemory() && !QzIsCheckMemory();
}

// Fills half a stock from the class's arena; false if none came.
static bool Refill(ThreadCache *cache, unsigned index, unsigned rounded)
{
    QzRawArena *arena = QzMemoryTables::Small(rounded);
    unsigned const refill = StockLimit(rounded) / 2;
    QzMemoryLockScope lock;
    for (unsigned i = 0; i < refill; ++i) {
        void *block = arena->Alloc();
        if (block == nullptr)
            break;
        Push(cache, index, block, rounded);
    }
    return cache->heads[index] != nullptr;
}

void *QzThreadCacheAlloc(unsigned rounded)
{
    if (rounded < sizeof(void *) || !MayStock())
        return nullptr;
    ThreadCache *cache = t_cache != nullptr ? t_cache : Cache();
    if (cache == nullptr)
        return nullptr;
    unsigned const index = ClassIndex(rounded);
    if (cache->heads[index] == nullptr && !Refill(cache, index, rounded))
        return nullptr;
    void *block = Pop(cache, index);
    QzUnpoison(block, rounded);
    AddBytes(cache, rounded);
    return block;
}

bool QzThreadCacheDealloc(void *block, unsigned rounded)
{
    if (rounded < sizeof(void *) || !MayStock())
        return false;
    ThreadCache *cache = t_cache != nullptr ? t_cache : Cache();
    if (cache == nullptr)
        return false;
    unsigned const index = ClassIndex(rounded);
    unsigned const limit = StockLimit(rounded);
    if (cache->counts[index].load(std::memory_order_relaxed) >= limit) {
        QzMemoryLockScope lock;
        HandBackLocked(cache, index, limit / 2);
    }
    Push(cache, index, block, rounded);
    AddBytes(cache, -static_cast<LtInt64>(rounded));
    return true;
}

LtInt64 QzThreadCacheHeldBytesLocked()
{
    LtInt64 total = g_retired_bytes;
    for (ThreadCache *cache = g_caches; cache != nullptr; cache = cache->next)
        total += cache->bytes.load(std::memory_order_relaxed);
    return total;
}

unsigned QzThreadCacheStockedBlocksLocked(unsigned rounded)
{
    if (rounded < sizeof(void *) || rounded > kClasses * 4 || rounded % 4 != 0)
        return 0;
    unsigned total = 0;
    for (ThreadCache *cache = g_caches; cache != nullptr; cache = cache->next)
        total += cache->counts[ClassIndex(rounded)].load(std::memory_order_relaxed);
    return total;
}

void QzThreadCacheForgetAllLocked()
{
    for (ThreadCache *cache = g_caches; cache != nullptr; cache = cache->next) {
        for (unsigned index = 0; index < kClasses; ++index) {
            cache->heads[index] = nullptr;
            cache->counts[index].store(0, std::memory_order_relaxed);
        }
        cache->bytes.store(0, std::memory_order_relaxed);
    }
    g_retired_bytes = 0;
}
