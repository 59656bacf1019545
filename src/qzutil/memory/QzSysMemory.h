// QzSysMemory.h: the platform's virtual memory as the allocator sees it:
// regions of address space reserved, committed page by page, decommitted and
// released.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// Class of statics. Initialise reads the system page size, the allocation
// granularity (the region size: the larger of 64 KiB and the page size) and
// the width of the address space once, and creates the lock of the cache of
// released regions; the other calls are valid while the component is up.
//
// Sizes are in bytes and are rounded up to whole system pages; addresses
// given to Commit, Decommit and Release must be page aligned. Failures are
// results, never exceptions; the reserve calls log their own failures.
//
// Threads:   Initialise and Terminate on the start-up thread; every other
//            call from any thread. The cache of released regions has a lock
//            of its own, held only to take or put one entry, never across a
//            system call.
// Ownership: a reservation belongs to its caller until Release.
class QZUTIL_API QzSysMemory {
public:
    // Where a reservation should go. Top-down placement is what mmap does
    // anyway, so both values are handled alike; any other value is normal.
    enum Lifetime : int {
        eLIFETIME_NORMAL = 0,
        eLIFETIME_TOP_DOWN = -1,
    };

    static void Initialise();
    // The last Terminate unmaps the regions still in the cache.
    static void Terminate();
    static int IsInitialised();

    // Bytes; 0 before Initialise.
    static unsigned GetPageSize();
    static unsigned GetRegionSize();

    // Reserves `size` bytes of address space at a multiple of the region size,
    // with no access and no memory behind it until Commit. A region-sized
    // request takes a region from the cache of released ones first. Returns
    // the start, or null after logging "QzSysMemory::Reserve: Failed to
    // reserve size %d" when the system refuses, for a size of 0, and for a
    // reservation that would reach 2^48 (the allocator's region numbers have
    // 32 bits of 64 KiB units).
    static void *Reserve(unsigned size, Lifetime lifetime);

    // Reserves `size` bytes at a multiple of `size`, which must be a
    // power-of-two multiple of the region size; for the region size itself
    // this is Reserve. A larger size is tried up to 100 times, each failure
    // logged as by Reserve; after a failure "QzSysMemory::ReserveAligned:
    // Allocating at %llx, size %d, returned 0 %d times" is logged. If nothing
    // could be reserved, or the result is not aligned, the fatal tail runs
    // (QzSysError::Abort) and the call never returns; otherwise the start.
    static void *ReserveAligned(unsigned size, Lifetime lifetime);

    // Makes reserved pages readable and writable; pages never written read
    // zero. Returns 1, or 0 if a page is not reserved, the address is not
    // page aligned, or the system refuses the memory.
    static int Commit(void *address, unsigned size);

    // Gives the pages' memory back and makes them inaccessible, keeping the
    // address space; a later Commit gives zero pages. Returns 1, or 0 on an
    // address that is not reserved or not page aligned.
    static int Decommit(void *address, unsigned size);

    // Gives back a reservation, committed or not, with the address and size
    // that Reserve or ReserveAligned gave. A region-sized release may be kept
    // decommitted in a cache of at most 64 regions for the next Reserve; its
    // memory goes back to the system all the same. Null does nothing. A
    // failure (an address never reserved) is logged as "QzSysMemory::Release:
    // Failed to release %llx, size %d".
    static void Release(void *address, unsigned size);

    // Guard reservations that cap the largest free block of address space
    // would need about 2^47 / limit mappings here, far past the kernel's map
    // limit, so the restriction is not applied. The first call while the
    // component is up logs "QzSysMemory::RestrictMaxRegionSize: ignored on a
    // 64-bit address space"; nothing else happens.
    static void RestrictMaxRegionSize(unsigned limit);
    // Nothing to undo: see RestrictMaxRegionSize.
    static void ResetMaxRegionSize();

    // Validates nothing and logs nothing: glibc's heap offers no walk that
    // reports damage instead of aborting. It checks its own chunks on every
    // free, and sanitizer builds check every access.
    static void CheckHeaps();

    // Bits of the user address space: the bit length of the last byte of the
    // highest mapping (the vsyscall page excluded), read at Initialise.
    // 47 on x86-64 with 4-level page tables; 0 before Initialise.
    static unsigned GetAddressSpaceBits();

    // Bytes reserved through this class and not yet released, whole pages;
    // regions waiting in the cache count as released.
    static LtNat64 GetReservedBytes();
};
