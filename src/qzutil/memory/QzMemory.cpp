// QzMemory.cpp: the allocator's paths by size, its counters and switches, the
// new-handler, regions, and start and stop.

#include "qzutil/memory/QzMemory.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/memory/QzRawArena.h"
#include "qzutil/memory/QzSysMemory.h"
#include "qzutil/memory/internal/QzMemoryInternal.h"
#include "qzutil/memory/internal/QzMemoryTables.h"
#include "qzutil/memory/internal/QzThreadCache.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysHeap.h"

// Larger single requests are programming faults (a negative size cast to
// unsigned, most often), not memory shortages.
static constexpr unsigned kMaxRequestSize = 0x7FF00000;

// Requests from here up get a region of their own: 128 regions of 64 KiB.
static constexpr unsigned kDirectRegionThreshold = 8u << 20;

// The spare reservation kept back for the heap.
static constexpr unsigned kSpareMallocRegionSize = 0x1000000;

// Environment switches are read up to this many characters.
static constexpr std::size_t kEnvironmentLimit = 512;

namespace {

struct Switch {
    int on;
    bool by_program;  // set by a setter: the environment no longer counts
};

// Counters in bytes. The arena and region counters change under the memory
// lock; the atomics let the getters read them without it.
struct Counters {
    std::atomic<LtNat64> arena;
    std::atomic<LtNat64> malloc;
    std::atomic<LtNat64> region;
    std::atomic<LtNat64> external;
};

// The registered external callbacks: a heap array, guarded by the memory lock.
struct ExternalCallbacks {
    QzMemory::ExternalMemoryCallback *items;
    unsigned count;
    unsigned capacity;
};

}  // namespace

QzComponent g_memory_component;
static bool g_built;  // arenas exist; kept up by a Terminate that found bytes held
static Switch g_scrub;
static Switch g_check;
static Switch g_force_malloc;
static Switch g_use_medium = {1, false};
static int g_force_malloc_region;
QzMemoryModes g_memory_modes;
static Counters g_counters;
static ExternalCallbacks g_callbacks;
static std::atomic<QzMemory::NewHandler> g_new_handler;
static void *g_spare_region;

// A request above the limit is fatal whatever a handler makes of the post.
static void CheckSize(unsigned size)
{
    if (size > kMaxRequestSize) {
        QzPostMemoryMessage(QzSysError::eERROR, u"QzMemory: Bad size %d\n", static_cast<int>(size));
        QzSysError::Abort();
    }
}

// Asks the new-handler whether to try again after a failed allocation.
static bool RetryAfterFailure(unsigned size, int try_only)
{
    QzMemory::NewHandler handler = g_new_handler.load();
    return handler != nullptr && handler(size, try_only) != 0;
}

// Adds to a counter that only the memory lock's holder changes.
static void AddLocked(std::atomic<LtNat64> &counter, LtNat64 bytes)
{
    counter.store(counter.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
}

static void SubtractLocked(std::atomic<LtNat64> &counter, LtNat64 bytes)
{
    counter.store(counter.load(std::memory_order_relaxed) - bytes, std::memory_order_relaxed);
}

// An environment switch is on when set, not empty and not "0".
static int ReadEnvironmentSwitch(char const *name)
{
    char const *value = std::getenv(name);
    if (value == nullptr || value[0] == '\0')
        return 0;
    std::size_t const length = strnlen(value, kEnvironmentLimit);
    return length == 1 && value[0] == '0' ? 0 : 1;
}

static void ReadSwitch(Switch *flag, char const *name)
{
    if (!flag->by_program)
        flag->on = ReadEnvironmentSwitch(name);
}

void QzMemory::Initialise()
{
    if (g_memory_component.Initialise("QzMemory", QZ_COMPONENT_INFO) == 0)
        return;
    // A Terminate that found bytes still held left everything standing, the
    // holds on the components below included.
    if (g_built)
        return;
    QzSysError::Initialise();
    QzSysMemory::Initialise();
    ReadSwitch(&g_scrub, "TY_SCRUB_MEMORY");
    ReadSwitch(&g_check, "TY_CHECK_MEMORY");
    g_memory_modes = {g_scrub.on != 0, g_check.on != 0};
    ReadSwitch(&g_force_malloc, "TY_FORCE_MALLOC");
    g_force_malloc_region = ReadEnvironmentSwitch("TY_FORCE_MALLOC_REGION");
    if (!g_use_medium.by_program)
        g_use_medium.on = ReadEnvironmentSwitch("TY_DISABLE_MEDIUM_BLOCK_ALLOCATORS") ? 0 : 1;
    unsigned const medium_arenas = QzMemoryTables::Build(g_use_medium.on != 0);
    if (medium_arenas != 0)
        QzPostMemoryMessage(QzSysError::eINFO, u"Created %d medium block allocators\n",
                            medium_arenas);
    g_built = true;
}

void QzMemory::Terminate()
{
    if (g_memory_component.Terminate() == 0)
        return;
    struct Held {
        LtNat64 bytes;
        LtWChar const *message;
    } const held[] = {
        {GetArenaMemoryAllocated(),
         u"%lld arena bytes still allocated at QzMemory::Terminate. Not terminating."},
        {GetMallocMemoryAllocated(),
         u"%lld malloc bytes still allocated at QzMemory::Terminate. Not terminating."},
        {GetRegionMemoryAllocated(),
         u"%lld region bytes still allocated at QzMemory::Terminate. Not terminating."},
    };
    bool any_held = false;
    for (Held const &counter : held) {
        if (counter.bytes != 0) {
            QzPostMemoryMessage(QzSysError::eWARNING, counter.message,
                                static_cast<long long>(counter.bytes));
            any_held = true;
        }
    }
    if (any_held)
        return;
    std::free(g_callbacks.items);
    g_callbacks = ExternalCallbacks{};
    ResetMaxRegionSize();
    ReleaseSpareMallocRegion();
    {
        // Stocked blocks belong to the arenas destroyed below.
        QzMemoryLockScope lock;
        QzThreadCacheForgetAllLocked();
    }
    QzMemoryTables::Destroy(g_check.on != 0);
    g_built = false;
    QzSysMemory::Terminate();
    QzSysError::Terminate();
}

int QzMemory::IsInitialised()
{
    return g_memory_component.IsInitialised();
}

static unsigned RoundToAlignment(unsigned size, QzMemory::Alignment alignment)
{
    unsigned const unit = alignment >= 8 ? 8u : 4u;
    if (size > 0xFFFFFFFFu - (unit - 1))
        return size;  // the size check refuses it anyway
    return (size + unit - 1) & ~(unit - 1);
}

static bool IsMedium(unsigned size)
{
    return g_use_medium.on != 0 && size > QzMemoryTables::kMaxSmallSize &&
           size <= QzMemoryTables::kMaxMediumSize;
}

// Large requests that get a region of their own.
static bool IsDirectRegion(unsigned size)
{
    return g_force_malloc_region == 0 &&
           (size >= kDirectRegionThreshold || size % QzMemory::GetRegionSize() == 0);
}

// An arena allocation under the memory lock, counted as `counted` bytes,
// retried while the new-handler frees memory.
static void *AllocFromArena(QzRawArena *arena, unsigned counted, unsigned size, int try_only)
{
    for (;;) {
        void *block;
        {
            QzMemoryLockScope lock;
            block = arena->Alloc();
            if (block != nullptr)
                AddLocked(g_counters.arena, counted);
        }
        if (block != nullptr || !RetryAfterFailure(size, try_only))
            return block;
    }
}

static void DeallocToArena(QzRawArena *arena, void *block, unsigned counted)
{
    QzMemoryLockScope lock;
    arena->Dealloc(block);
    SubtractLocked(g_counters.arena, counted);
}

// Where a heap block stands in for a direct region, the byte before the
// block says how far past the heap block's start it is.
static constexpr unsigned char kHeapOffset = 8;
static constexpr unsigned char kHeapOffsetAtRegionBoundary = 16;

// Committed address space of its own, counted as region bytes; a failure
// asks the new-handler with `handler_try_flag` and tries again while it frees
// memory. Null when it gives up.
static void *ReserveCountedRegion(unsigned size, int handler_try_flag)
{
    for (;;) {
        void *region = QzSysMemory::Reserve(size, QzSysMemory::eLIFETIME_NORMAL);
        if (region != nullptr && QzSysMemory::Commit(region, size)) {
            QzMemoryLockScope lock;
            AddLocked(g_counters.region, size);
            return region;
        }
        if (region != nullptr)
            QzSysMemory::Release(region, size);
        if (!RetryAfterFailure(size, handler_try_flag))
            return nullptr;
    }
}

static void *AllocDirectRegion(unsigned size, int try_only)
{
    // The handler is asked as for a try: the heap is still there.
    if (void *region = ReserveCountedRegion(size, 1))
        return region;
    auto *heap = static_cast<unsigned char *>(QzMemory::MallocEx(size + 16, try_only));
    if (heap == nullptr)
        return nullptr;
    unsigned char offset = kHeapOffset;
    // A region-aligned result would be taken for a region at release.
    if ((reinterpret_cast<std::uintptr_t>(heap + offset) & (QzMemory::GetRegionSize() - 1)) == 0)
        offset = kHeapOffsetAtRegionBoundary;
    heap[offset - 1] = offset;
    return heap + offset;
}

static void DeallocDirectRegion(void *block, unsigned size)
{
    auto *bytes = static_cast<unsigned char *>(block);
    if ((reinterpret_cast<std::uintptr_t>(bytes) & (QzMemory::GetRegionSize() - 1)) == 0) {
        QzSysMemory::Release(block, size);
        QzMemoryLockScope lock;
        SubtractLocked(g_counters.region, size);
        return;
    }
    unsigned char const offset = bytes[-1];
    if (offset != kHeapOffset && offset != kHeapOffsetAtRegionBoundary) {
        QzPostMemoryMessage(
            QzSysError::eERROR,
            u"Dealloc: Large Block %llx not region aligned and has invalid "
            u"offset %d",
            static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(block)),
            static_cast<int>(offset));
        return;
    }
    QzMemory::Free(bytes - offset);
}

void *QzMemory::Alloc(unsigned size, Alignment alignment)
{
    return AllocEx(size, alignment, 0);
}

void *QzMemory::TryAlloc(unsigned size, Alignment alignment)
{
    return AllocEx(size, alignment, 1);
}

void *QzMemory::AllocEx(unsigned size, Alignment alignment, int try_only)
{
    if (size == 0)
        return nullptr;
    if (g_force_malloc.on)
        return MallocEx(size, try_only);
    if (!try_only)
        CheckSize(size);
    if (size <= QzMemoryTables::kMaxSmallSize) {
        unsigned const rounded = RoundToAlignment(size, alignment);
        if (void *block = QzThreadCacheAlloc(rounded))
            return block;
        return AllocFromArena(QzMemoryTables::Small(rounded), rounded, size, try_only);
    }
    if (IsMedium(size)) {
        QzRawArena *arena = QzMemoryTables::Medium(size);
        return AllocFromArena(arena, arena->GetObjectSize(), size, try_only);
    }
    if (IsDirectRegion(size))
        return AllocDirectRegion(size, try_only);
    if (QzRawArena *arena = QzMemoryTables::Large(size))
        return AllocFromArena(arena, size, size, try_only);
    return MallocEx(size, try_only);
}

void QzMemory::Dealloc(void *block, unsigned size, Alignment alignment)
{
    if (block == nullptr)
        return;
    if (g_force_malloc.on) {
        Free(block);
        return;
    }
    if (size <= QzMemoryTables::kMaxSmallSize) {
        unsigned const rounded = RoundToAlignment(size, alignment);
        if (!QzThreadCacheDealloc(block, rounded))
            DeallocToArena(QzMemoryTables::Small(rounded), block, rounded);
        return;
    }
    if (IsMedium(size)) {
        QzRawArena *arena = QzMemoryTables::Medium(size);
        DeallocToArena(arena, block, arena->GetObjectSize());
        return;
    }
    if (IsDirectRegion(size)) {
        DeallocDirectRegion(block, size);
        return;
    }
    if (QzRawArena *arena = QzMemoryTables::Large(size)) {
        DeallocToArena(arena, block, size);
        return;
    }
    Free(block);
}

// True when a block of `size` lives in the heap as a plain large block.
static bool IsHeapBlock(unsigned size)
{
    unsigned const largest_class =
        g_use_medium.on ? QzMemoryTables::kMaxMediumSize : QzMemoryTables::kMaxSmallSize;
    return size > largest_class && !IsDirectRegion(size) && QzMemoryTables::Large(size) == nullptr;
}

static bool IsSameClass(unsigned old_size, unsigned new_size, QzMemory::Alignment alignment)
{
    unsigned const small = QzMemoryTables::kMaxSmallSize;
    if (old_size <= small && new_size <= small)
        return RoundToAlignment(old_size, alignment) == RoundToAlignment(new_size, alignment);
    if (IsMedium(old_size) && IsMedium(new_size))
        return QzMemoryTables::Medium(old_size) == QzMemoryTables::Medium(new_size);
    return false;
}

void *QzMemory::Resize(void *block, unsigned old_size, unsigned new_size, Alignment alignment)
{
    if (old_size == new_size)
        return block;
    if (new_size == 0) {
        Dealloc(block, old_size, alignment);
        return nullptr;
    }
    if (block == nullptr)
        return AllocEx(new_size, alignment, 0);
    CheckSize(old_size);
    CheckSize(new_size);
    if (g_force_malloc.on)
        return ReallocEx(block, new_size, 0);
    if (IsSameClass(old_size, new_size, alignment))
        return block;
    if (IsHeapBlock(old_size) && IsHeapBlock(new_size))
        return ReallocEx(block, new_size, 0);
    void *moved = AllocEx(new_size, alignment, 0);
    if (moved == nullptr)
        return nullptr;  // the old block stays valid
    std::memcpy(moved, block, std::min(old_size, new_size));
    Dealloc(block, old_size, alignment);
    return moved;
}

void *QzMemory::Expand(void *block, unsigned *size, unsigned new_size, Alignment alignment)
{
    unsigned const best =
        new_size == 0 ? 0 : RoundToAlignment(GetBestBlockSize(new_size), alignment);
    void *result = Resize(block, *size, best, alignment);
    if (result != nullptr || best == 0)
        *size = best;
    return result;
}

void *QzMemory::Compact(void *block, unsigned size, Alignment)
{
    CheckSize(size);
    return block;
}

unsigned QzMemory::GetBestBlockSize(unsigned size)
{
    if (QzMemoryTables::IsBuilt())
        return QzMemoryTables::BestBlockSize(size);
    // Before the tables exist: the power of two, so buffers still double.
    if (size > 0x80000000u)
        return size;
    unsigned best = 4;
    while (best < size)
        best *= 2;
    return best;
}

void *QzMemory::Malloc(unsigned size)
{
    return MallocEx(size, 0);
}

void *QzMemory::TryMalloc(unsigned size)
{
    return MallocEx(size, 1);
}

void *QzMemory::MallocEx(unsigned size, int try_only)
{
    if (!try_only)
        CheckSize(size);
    for (;;) {
        void *block = std::malloc(size);
        if (block != nullptr) {
            g_counters.malloc += QzSysHeap::GetUsableSize(block);
            return block;
        }
        if (!RetryAfterFailure(size, try_only))
            return nullptr;
    }
}

void *QzMemory::Realloc(void *block, unsigned size)
{
    return ReallocEx(block, size, 0);
}

void *QzMemory::TryRealloc(void *block, unsigned size)
{
    return ReallocEx(block, size, 1);
}

void *QzMemory::ReallocEx(void *block, unsigned size, int try_only)
{
    if (block == nullptr)
        return MallocEx(size, try_only);
    if (size == 0) {
        Free(block);
        return nullptr;
    }
    if (!try_only)
        CheckSize(size);
    std::size_t const old_true_size = QzSysHeap::GetUsableSize(block);
    for (;;) {
        void *moved = std::realloc(block, size);
        if (moved != nullptr) {
            g_counters.malloc += QzSysHeap::GetUsableSize(moved);
            g_counters.malloc -= old_true_size;
            return moved;
        }
        if (!RetryAfterFailure(size, try_only))
            return nullptr;  // the old block stays valid and counted
    }
}

void QzMemory::Free(void *block)
{
    if (block == nullptr)
        return;
    g_counters.malloc -= QzSysHeap::GetUsableSize(block);
    std::free(block);
}

void *QzMemory::AllocRegion(unsigned size, Lifetime lifetime)
{
    return AllocRegionEx(size, lifetime, 0);
}

void *QzMemory::TryAllocRegion(unsigned size, Lifetime lifetime)
{
    return AllocRegionEx(size, lifetime, 1);
}

void *QzMemory::AllocRegionEx(unsigned size, Lifetime, int try_only)
{
    if (!try_only)
        CheckSize(size);
    unsigned const region_size = GetRegionSize();
    if (g_force_malloc_region) {
        // A heap block rounded up to a region boundary, with the heap
        // pointer in the word before the region.
        auto *heap = static_cast<unsigned char *>(MallocEx(region_size + size, try_only));
        if (heap == nullptr)
            return nullptr;
        std::uintptr_t const start = reinterpret_cast<std::uintptr_t>(heap);
        auto *region = reinterpret_cast<unsigned char *>(
            (start + region_size) & ~static_cast<std::uintptr_t>(region_size - 1));
        std::memcpy(region - sizeof(void *), &heap, sizeof(void *));
        return region;
    }
    return ReserveCountedRegion(size, try_only);
}

void QzMemory::DeallocRegion(void *region, unsigned size, Lifetime)
{
    if (region == nullptr)
        return;
    if (g_force_malloc_region) {
        void *heap;
        std::memcpy(&heap, static_cast<unsigned char *>(region) - sizeof(void *), sizeof(void *));
        Free(heap);
        return;
    }
    QzSysMemory::Release(region, size);
    QzMemoryLockScope lock;
    SubtractLocked(g_counters.region, size);
}

// The global operator new's handler while a QzMemory handler is set: the
// size of the failed request is unknown here, so the handler is told 0.
static void NewHandlerTrampoline()
{
    QzMemory::NewHandler handler = g_new_handler.load();
    if (handler == nullptr || handler(0, 0) == 0)
        throw std::bad_alloc();
}

QzMemory::NewHandler QzMemory::SetNewHandler(NewHandler handler)
{
    NewHandler old = g_new_handler.exchange(handler);
    std::set_new_handler(handler != nullptr ? NewHandlerTrampoline : nullptr);
    return old;
}

QzMemory::NewHandler QzMemory::GetNewHandler()
{
    return g_new_handler.load();
}

void QzMemory::ReportExternalAlloc(unsigned size)
{
    g_counters.external += size;
}

void QzMemory::ReportExternalDealloc(unsigned size)
{
    g_counters.external -= size;
}

void QzMemory::RegisterExternalMemoryAllocatedCB(ExternalMemoryCallback callback)
{
    QzMemoryLockScope lock;
    if (g_callbacks.count == g_callbacks.capacity) {
        unsigned const capacity = g_callbacks.capacity == 0 ? 4 : g_callbacks.capacity * 2;
        auto *items = static_cast<ExternalMemoryCallback *>(
            std::realloc(g_callbacks.items, capacity * sizeof(ExternalMemoryCallback)));
        if (items == nullptr) {
            QzPostMemoryMessage(QzSysError::eERROR,
                                u"QzMemory: no memory to register an external memory callback\n");
            return;
        }
        g_callbacks.items = items;
        g_callbacks.capacity = capacity;
    }
    g_callbacks.items[g_callbacks.count++] = callback;
}

void QzMemory::UnregisterExternalMemoryAllocatedCB(ExternalMemoryCallback callback)
{
    QzMemoryLockScope lock;
    for (unsigned i = 0; i < g_callbacks.count; ++i) {
        if (g_callbacks.items[i] == callback) {
            g_callbacks.items[i] = g_callbacks.items[--g_callbacks.count];
            return;
        }
    }
}

int QzMemory::ReserveSpareMallocRegion()
{
    if (g_spare_region != nullptr)
        return 1;
    g_spare_region = QzSysMemory::Reserve(kSpareMallocRegionSize, QzSysMemory::eLIFETIME_NORMAL);
    if (g_spare_region == nullptr)
        return 0;
    QzPostMemoryMessage(QzSysError::eINFO,
                        u"ReserveSpareMallocRegion: Reserved region of %d MB for malloc",
                        static_cast<int>(kSpareMallocRegionSize >> 20));
    return 1;
}

int QzMemory::HaveReservedSpareMallocRegion()
{
    return g_spare_region != nullptr ? 1 : 0;
}

int QzMemory::ReleaseSpareMallocRegion()
{
    if (g_spare_region == nullptr)
        return 0;
    QzSysMemory::Release(g_spare_region, kSpareMallocRegionSize);
    g_spare_region = nullptr;
    return 1;
}

void QzMemory::RestrictMaxRegionSize(unsigned limit)
{
    QzSysMemory::RestrictMaxRegionSize(limit);
}

void QzMemory::ResetMaxRegionSize()
{
    QzSysMemory::ResetMaxRegionSize();
}

void QzMemory::CheckMemory()
{
    {
        QzMemoryLockScope lock;
        for (unsigned i = 0; QzRawArena *arena = QzMemoryTables::ArenaAt(i); ++i)
            arena->CheckArena();
    }
    QzSysMemory::CheckHeaps();
}

void QzMemory::SetForceMalloc(int on)
{
    g_force_malloc = {on, true};
}

int QzMemory::IsForceMalloc()
{
    return g_force_malloc.on;
}

void QzMemory::SetScrubMemory(int on)
{
    g_scrub = {on, true};
    g_memory_modes.scrub = on != 0;
}

int QzMemory::IsScrubMemory()
{
    return g_scrub.on;
}

void QzMemory::SetCheckMemory(int on)
{
    g_check = {on, true};
    g_memory_modes.check = on != 0;
}

int QzMemory::IsCheckMemory()
{
    return g_check.on;
}

// Marked as set by program too: the switch only takes effect when the tables
// are built, at the first Initialise, and should not be undone there.
void QzMemory::SetUseMediumBlockAllocator(int on)
{
    g_use_medium = {on, true};
}

int QzMemory::IsUseMediumBlockAllocator()
{
    return g_use_medium.on;
}

unsigned QzMemory::GetPageSize()
{
    return QzSysMemory::GetPageSize();
}

unsigned QzMemory::GetRegionSize()
{
    return QzSysMemory::GetRegionSize();
}

// A page block leaves room for the page header; a region block for the
// region's and the first page's headers.
unsigned QzMemory::GetPageBlockSize()
{
    return GetPageSize() - 8;
}

unsigned QzMemory::GetRegionBlockSize()
{
    return GetRegionSize() - 24;
}

unsigned QzMemory::GetMaxSmallBlockSize()
{
    return QzMemoryTables::kMaxSmallSize;
}

unsigned QzMemory::GetMaxMediumBlockSize()
{
    return g_use_medium.on ? QzMemoryTables::kMaxMediumSize : QzMemoryTables::kMaxSmallSize;
}

LtNat64 QzMemory::GetArenaMemoryAllocated()
{
    // The locked paths' count, and what the thread stocks handed out.
    QzMemoryLockScope lock;
    return g_counters.arena.load(std::memory_order_relaxed) +
           static_cast<LtNat64>(QzThreadCacheHeldBytesLocked());
}

LtNat64 QzMemory::GetMallocMemoryAllocated()
{
    return g_counters.malloc.load(std::memory_order_relaxed);
}

LtNat64 QzMemory::GetRegionMemoryAllocated()
{
    return g_counters.region.load(std::memory_order_relaxed);
}

LtNat64 QzMemory::GetExternalMemoryAllocated()
{
    return g_counters.external.load(std::memory_order_relaxed);
}

LtNat64 QzMemory::GetDirectMemoryAllocated()
{
    return GetArenaMemoryAllocated() + GetMallocMemoryAllocated() + GetRegionMemoryAllocated();
}

LtNat64 QzMemory::GetMemoryAllocated()
{
    LtNat64 total = GetDirectMemoryAllocated() + GetExternalMemoryAllocated();
    // Each callback runs outside the lock, which is taken again to find the
    // next: a callback may allocate, or unregister itself.
    for (unsigned i = 0;; ++i) {
        ExternalMemoryCallback callback = nullptr;
        {
            QzMemoryLockScope lock;
            if (i < g_callbacks.count)
                callback = g_callbacks.items[i];
        }
        if (callback == nullptr)
            return total;
        total += callback();
    }
}

unsigned QzMemory::GetHistogramFirstSize()
{
    return 4;
}

unsigned QzMemory::GetHistogramNextSize(unsigned size)
{
    if (size < QzMemoryTables::kMaxSmallSize)
        return size + 4;
    if (g_use_medium.on && size < QzMemoryTables::kMaxMediumSize) {
        if (unsigned const medium = QzMemoryTables::NextMediumSize(size))
            return medium;
    }
    unsigned const next = GetBestBlockSize(size + 1);
    return next < GetRegionSize() ? next : 0;
}

unsigned QzMemory::GetHistogramNumBlocks(unsigned size)
{
    QzMemoryLockScope lock;
    QzRawArena const *arena = QzMemoryTables::ArenaForSize(size);
    if (arena == nullptr)
        return 0;
    // Blocks waiting in thread stocks are free to callers.
    return arena->GetBlocksAllocated() - QzThreadCacheStockedBlocksLocked(size);
}

unsigned QzMemory::GetHistogramRegionSize(unsigned size)
{
    QzRawArena const *arena = QzMemoryTables::ArenaForSize(size);
    return arena != nullptr ? arena->GetRegionSize() : 0;
}

LtNat64 QzMemory::GetHistogramCommittedMemory(unsigned size)
{
    QzMemoryLockScope lock;
    QzRawArena const *arena = QzMemoryTables::ArenaForSize(size);
    return arena != nullptr ? arena->GetCommittedMemory() : 0;
}

LtNat64 QzMemory::GetHistogramReservedMemory(unsigned size)
{
    QzMemoryLockScope lock;
    QzRawArena const *arena = QzMemoryTables::ArenaForSize(size);
    return arena != nullptr ? arena->GetReservedMemory() : 0;
}

// The largest block that an arena serves: the last size of the walk.
unsigned QzMemory::GetHistogramMaxBlockSize()
{
    unsigned largest = 0;
    for (unsigned size = GetHistogramFirstSize(); size != 0; size = GetHistogramNextSize(size))
        largest = size;
    return largest;
}
