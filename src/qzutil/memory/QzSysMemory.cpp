// QzSysMemory.cpp: the component over the platform's virtual memory:
// aligned reservations by trimming an over-sized one, the accounting of
// reserved bytes, and the cache of released regions.

#include "qzutil/memory/QzSysMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/QzSysLock.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysHeap.h"
#include "qzutil/sys/internal/QzSysVirtualMemory.h"

// The unit of address space: 64 KiB, the granularity that the region layout
// and its numbers were designed for, or the page where pages are larger.
static constexpr unsigned kMinRegionSize = 64 * 1024;

// The allocator stores a region as its address in 64 KiB units in 32 bits,
// so no reserved byte may lie at or above 2^48.
static constexpr std::uintptr_t kAddressLimit = std::uintptr_t{1} << 48;

// Attempts of ReserveAligned before the fatal tail.
static constexpr int kMaxAlignedAttempts = 100;

// Released regions kept for reuse: enough to spare the unmap and map pair
// when a few block buffers come and go, little address space when idle.
static constexpr unsigned kMaxCachedRegions = 64;

// Used when the mapping table cannot be read: x86-64's user address space.
static constexpr unsigned kDefaultAddressSpaceBits = 47;

static QzComponent g_sys_memory_component;
static unsigned g_page_size;           // bytes; 0 while not initialised
static unsigned g_region_size;         // bytes: the larger of 64 KiB and the page size
static unsigned g_address_space_bits;  // set at Initialise

// Decommitted region-sized reservations, released by callers and waiting for
// the next region-sized Reserve. Guarded by g_cache_lock, which exists while
// the component is up; outside that time nothing is cached.
static QzSysLock g_cache_lock;
static void *g_cached_regions[kMaxCachedRegions];
static unsigned g_cached_count;  // guarded by g_cache_lock

// Page-rounded bytes handed out and not yet released.
static std::atomic<LtNat64> g_reserved_bytes;

// Set by the first RestrictMaxRegionSize after the component came up.
static std::atomic<bool> g_restrict_logged;

static std::size_t RoundUpToPage(unsigned size)
{
    std::size_t page = g_page_size;
    return (std::size_t{size} + page - 1) / page * page;
}

static LtNat64 AddressOf(void const *address)
{
    return reinterpret_cast<std::uintptr_t>(address);
}

static void LogReserveFailure(unsigned size)
{
    char text[96];  // the longest text is 60 bytes: it always fits
    (void)QzSysString::Sprintf(text, sizeof text,
                               "QzSysMemory::Reserve: Failed to reserve size %d\n", size);
    QzSysError::LogUTF8String(text);
}

// Reserves `bytes` (whole pages) at a multiple of `alignment` (whole pages):
// maps bytes + alignment - page, then unmaps the head before the first
// aligned address and the tail behind the block. Null if the system refuses,
// if a trim fails, or if the block would reach kAddressLimit.
[[nodiscard]] static char *ReserveTrimmed(std::size_t bytes, std::size_t alignment)
{
    std::size_t span = bytes + alignment - g_page_size;
    auto *mapped = static_cast<char *>(QzSysVirtualMemory::MapReserved(span));
    if (mapped == nullptr)
        return nullptr;
    std::uintptr_t start = reinterpret_cast<std::uintptr_t>(mapped);
    std::size_t head = (alignment - start % alignment) % alignment;
    std::size_t tail = span - head - bytes;
    char *block = mapped + head;
    // A trim can fail only where a split passes the kernel's map count; the
    // whole remaining mapping then goes back, which needs no split.
    if (head != 0 && !QzSysVirtualMemory::Unmap(mapped, head)) {
        (void)QzSysVirtualMemory::Unmap(mapped, span);
        return nullptr;
    }
    if (tail != 0 && !QzSysVirtualMemory::Unmap(block + bytes, tail)) {
        (void)QzSysVirtualMemory::Unmap(block, bytes + tail);
        return nullptr;
    }
    if (start + head + bytes > kAddressLimit) {
        (void)QzSysVirtualMemory::Unmap(block, bytes);  // a whole mapping of ours
        return nullptr;
    }
    return block;
}

// True for a size that the cache keeps: a region, while the cache's lock
// exists. Before the first Initialise the region size is still 0.
static bool IsCachedSize(unsigned size)
{
    return size == g_region_size && size != 0 && g_sys_memory_component.IsInitialised();
}

[[nodiscard]] static void *TakeCachedRegion()
{
    QzSysAutoLock hold(&g_cache_lock);
    return g_cached_count == 0 ? nullptr : g_cached_regions[--g_cached_count];
}

// Keeps a decommitted region for reuse. Returns 1, or 0 when the cache is full.
[[nodiscard]] static int PutCachedRegion(void *region)
{
    QzSysAutoLock hold(&g_cache_lock);
    if (g_cached_count == kMaxCachedRegions)
        return 0;
    g_cached_regions[g_cached_count++] = region;
    return 1;
}

static unsigned BitLength(std::uintptr_t value)
{
    unsigned bits = 0;
    for (; value != 0; value >>= 1)
        ++bits;
    return bits;
}

static unsigned ReadAddressSpaceBits()
{
    std::uintptr_t end = QzSysVirtualMemory::FindHighestMappingEnd();
    // The last byte decides: an end of exactly 2^47 still fits in 47 bits.
    return end != 0 ? BitLength(end - 1) : kDefaultAddressSpaceBits;
}

void QzSysMemory::Initialise()
{
    if (g_sys_memory_component.Initialise("QzSysMemory", QZ_COMPONENT_INFO) == 0)
        return;
    QzSysError::Initialise();
    g_page_size = QzSysHeap::GetSystemPageSize();
    g_region_size = g_page_size > kMinRegionSize ? g_page_size : kMinRegionSize;
    g_address_space_bits = ReadAddressSpaceBits();
    g_restrict_logged.store(false);
    g_cached_count = 0;
    g_cache_lock.Create();
}

void QzSysMemory::Terminate()
{
    if (g_sys_memory_component.Terminate() == 0)
        return;
    // No other thread may use the component now, so the cache needs no lock.
    for (unsigned i = 0; i < g_cached_count; ++i) {
        if (!QzSysVirtualMemory::Unmap(g_cached_regions[i], g_region_size))
            QzSysError::LogUTF8String(
                "QzSysMemory::Terminate: Failed to release a cached region\n");
    }
    g_cached_count = 0;
    g_cache_lock.Destroy();
    QzSysError::Terminate();
}

int QzSysMemory::IsInitialised()
{
    return g_sys_memory_component.IsInitialised();
}

unsigned QzSysMemory::GetPageSize()
{
    return g_page_size;
}

unsigned QzSysMemory::GetRegionSize()
{
    return g_region_size;
}

void *QzSysMemory::Reserve(unsigned size, Lifetime)
{
    if (IsCachedSize(size)) {
        if (void *cached = TakeCachedRegion()) {
            g_reserved_bytes += g_region_size;
            return cached;
        }
    }
    std::size_t bytes = RoundUpToPage(size);
    char *block = bytes != 0 ? ReserveTrimmed(bytes, g_region_size) : nullptr;
    if (block == nullptr) {
        LogReserveFailure(size);
        return nullptr;
    }
    g_reserved_bytes += bytes;
    return block;
}

void *QzSysMemory::ReserveAligned(unsigned size, Lifetime lifetime)
{
    if (size == g_region_size)
        return Reserve(size, lifetime);  // every reservation is region aligned
    std::size_t bytes = RoundUpToPage(size);
    char *block = nullptr;
    int failures = 0;
    while (block == nullptr && failures < kMaxAlignedAttempts) {
        block = bytes != 0 ? ReserveTrimmed(bytes, bytes) : nullptr;
        if (block == nullptr) {
            LogReserveFailure(size);
            ++failures;
        }
    }
    char text[160];
    if (failures > 0) {
        (void)QzSysString::Sprintf(
            text, sizeof text,
            "QzSysMemory::ReserveAligned: Allocating at %llx, size %d, returned 0 %d times\n",
            AddressOf(block), size, failures);
        QzSysError::LogUTF8String(text);
    }
    if (block == nullptr)
        QzSysError::Abort();
    if (AddressOf(block) % bytes != 0) {
        // The trim arithmetic guarantees alignment; a miss means the system
        // moved the block, and every region lookup by mask would go wrong.
        LtNat64 wanted = AddressOf(block) / bytes * bytes + bytes;
        (void)QzSysString::Sprintf(
            text, sizeof text,
            "QzSysMemory::ReserveAligned: Allocating at %llx, size %d, returned block at %llx\n",
            wanted, size, AddressOf(block));
        QzSysError::LogUTF8String(text);
        QzSysError::Abort();
    }
    g_reserved_bytes += bytes;
    return block;
}

int QzSysMemory::Commit(void *address, unsigned size)
{
    return QzSysVirtualMemory::ProtectReadWrite(address, size);
}

int QzSysMemory::Decommit(void *address, unsigned size)
{
    return QzSysVirtualMemory::Decommit(address, size);
}

void QzSysMemory::Release(void *address, unsigned size)
{
    if (address == nullptr)
        return;
    std::size_t bytes = RoundUpToPage(size);
    // The decommit runs outside the cache's lock; a region that does not fit
    // in the cache is unmapped.
    if (IsCachedSize(size) && QzSysVirtualMemory::Decommit(address, bytes) &&
        PutCachedRegion(address)) {
        g_reserved_bytes -= bytes;
        return;
    }
    if (!QzSysVirtualMemory::Unmap(address, bytes)) {
        char text[96];
        (void)QzSysString::Sprintf(text, sizeof text,
                                   "QzSysMemory::Release: Failed to release %llx, size %d\n",
                                   AddressOf(address), size);
        QzSysError::LogUTF8String(text);
        return;
    }
    g_reserved_bytes -= bytes;
}

void QzSysMemory::RestrictMaxRegionSize(unsigned)
{
    if (!g_restrict_logged.exchange(true))
        QzSysError::LogUTF8String(
            "QzSysMemory::RestrictMaxRegionSize: ignored on a 64-bit address space\n");
}

void QzSysMemory::ResetMaxRegionSize()
{}

void QzSysMemory::CheckHeaps()
{}

unsigned QzSysMemory::GetAddressSpaceBits()
{
    return g_address_space_bits;
}

LtNat64 QzSysMemory::GetReservedBytes()
{
    return g_reserved_bytes.load();
}
