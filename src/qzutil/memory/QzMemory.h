// QzMemory.h: the library's allocator. Blocks carry no header: the caller
// gives the same size and alignment at release as at allocation.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// Class of statics over one process-wide allocator: size classes served by
// arenas over virtual memory, whole regions for large multiples of the
// region size, and the platform heap for the rest.
//
// Paths by size (rounded by alignment): up to 512 bytes the small table (128
// arenas, 4 to 512 in steps of 4); up to 16,256 the medium tables (computed
// at Initialise from the region size; off with
// TY_DISABLE_MEDIUM_BLOCK_ALLOCATORS); from 8 MiB, or a multiple of the
// region size, a direct region; exactly a size of the large table its arena;
// anything else the heap. GetBestBlockSize names the sizes that waste nothing.
//
// Sizes:     unsigned bytes. A request above 0x7FF00000 is a programming
//            fault: "QzMemory: Bad size %d\n" is posted as eERROR and the
//            fatal tail runs, unless the call is a Try form.
// Alignment: below 8 a block is rounded to a multiple of 4, from 8 up to a
//            multiple of 8; text passes 1.
// Threads:   every call may come from any thread; arena bookkeeping and the
//            counters are guarded by the memory lock. The new-handler runs
//            outside that lock, so it may free memory.
// Switches:  read from the environment at the first Initialise unless set by
//            program before: TY_SCRUB_MEMORY, TY_CHECK_MEMORY, TY_FORCE_MALLOC,
//            TY_FORCE_MALLOC_REGION, TY_DISABLE_MEDIUM_BLOCK_ALLOCATORS (on when
//            set, not empty and not "0").
// Lifetime:  a counted component; Initialise before the first allocation.
//            Terminate refuses (with warnings) while bytes are held.
class QZUTIL_API QzMemory {
public:
    using Alignment = unsigned;

    // Where a region goes in the address space; not looked at here.
    enum Lifetime : int {
        eLIFETIME_NORMAL = 0,
        eLIFETIME_TOP_DOWN = -1
    };

    // Called when an allocation fails, with the size asked and the try flag.
    // Non-zero means "memory was freed, try again".
    using NewHandler = int (*)(unsigned size, int try_only);

    // Reports bytes that some other allocator holds for the library.
    using ExternalMemoryCallback = LtNat64 (*)();

    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // A block, or null for size 0 or when memory runs out (after the
    // new-handler has had its say). The try flag switches off the size check
    // and is passed to the new-handler.
    static void *Alloc(unsigned size, Alignment alignment);
    static void *TryAlloc(unsigned size, Alignment alignment);
    static void *AllocEx(unsigned size, Alignment alignment, int try_only);

    // Releases a block of the size and alignment it was allocated with.
    // Null does nothing.
    static void Dealloc(void *block, unsigned size, Alignment alignment);

    // Equal sizes return the block; new size 0 releases it and gives null;
    // a null block allocates. Blocks that stay in one size class stay where
    // they are; otherwise the content up to the smaller size moves to the
    // returned block. On failure the old block is kept and null is returned.
    static void *Resize(void *block, unsigned old_size, unsigned new_size, Alignment alignment);

    // As Resize to GetBestBlockSize(new_size) (rounded by alignment), storing
    // the size of the returned block in *size.
    static void *Expand(void *block, unsigned *size, unsigned new_size, Alignment alignment);

    // Checks the size and returns the block unchanged.
    static void *Compact(void *block, unsigned size, Alignment alignment);

    // The block size at or above `size` that wastes nothing: up to 512 a
    // power of two (at least 4); up to 16,256 with medium blocks the next
    // medium ceiling; from the region size the power of two at or above;
    // between, the next size of the large table, or the region size. Sizes
    // above 0x80000000 come back unchanged.
    static unsigned GetBestBlockSize(unsigned size);

    // The platform heap, counted by the true size of each block.
    static void *Malloc(unsigned size);
    static void *TryMalloc(unsigned size);
    static void *MallocEx(unsigned size, int try_only);
    static void *Realloc(void *block, unsigned size);
    static void *TryRealloc(void *block, unsigned size);
    static void *ReallocEx(void *block, unsigned size, int try_only);
    static void Free(void *block);

    // Whole regions, aligned to the region size: committed address space, or
    // with TY_FORCE_MALLOC_REGION heap blocks rounded up to a region boundary.
    static void *AllocRegion(unsigned size, Lifetime lifetime);
    static void *TryAllocRegion(unsigned size, Lifetime lifetime);
    static void *AllocRegionEx(unsigned size, Lifetime lifetime, int try_only);
    static void DeallocRegion(void *region, unsigned size, Lifetime lifetime);

    // Installs the new-handler and returns the old one. With a handler set,
    // a failing global operator new also asks it (with size 0) before
    // throwing.
    static NewHandler SetNewHandler(NewHandler handler);
    static NewHandler GetNewHandler();

    // Bytes held elsewhere on the library's behalf, counted into
    // GetMemoryAllocated.
    static void ReportExternalAlloc(unsigned size);
    static void ReportExternalDealloc(unsigned size);
    static void RegisterExternalMemoryAllocatedCB(ExternalMemoryCallback callback);
    static void UnregisterExternalMemoryAllocatedCB(ExternalMemoryCallback callback);

    // A 16 MiB reservation of address space kept back for the heap, given
    // up when memory runs short. Reserve answers 1 if one is held.
    static int ReserveSpareMallocRegion();
    static int HaveReservedSpareMallocRegion();
    static int ReleaseSpareMallocRegion();

    static void RestrictMaxRegionSize(unsigned limit);
    static void ResetMaxRegionSize();

    // Checks every arena's regions and the platform heaps; problems are
    // posted as eERROR.
    static void CheckMemory();

    // The switches. The first three setters mark the switch as set by
    // program, so that the environment no longer counts; set them before
    // the first Initialise.
    static void SetForceMalloc(int on);
    static int IsForceMalloc();
    static void SetScrubMemory(int on);
    static int IsScrubMemory();
    static void SetCheckMemory(int on);
    static int IsCheckMemory();
    static void SetUseMediumBlockAllocator(int on);
    static int IsUseMediumBlockAllocator();

    // Bytes: the system page and the region (allocation granularity).
    static unsigned GetPageSize();
    static unsigned GetRegionSize();
    // The largest block that fits a page, and a region, with their headers.
    static unsigned GetPageBlockSize();
    static unsigned GetRegionBlockSize();
    // 512; and 16,256 with medium blocks on, else 512.
    static unsigned GetMaxSmallBlockSize();
    static unsigned GetMaxMediumBlockSize();

    // Bytes held: in arenas, from the heap, in direct regions, reported as
    // external; direct is the first three, the total adds the external
    // counter and every registered callback's answer.
    static LtNat64 GetArenaMemoryAllocated();
    static LtNat64 GetMallocMemoryAllocated();
    static LtNat64 GetRegionMemoryAllocated();
    static LtNat64 GetExternalMemoryAllocated();
    static LtNat64 GetDirectMemoryAllocated();
    static LtNat64 GetMemoryAllocated();

    // A walk of the size classes for reports: 4 to 512 by 4, then each
    // medium arena's object size, then each best block size up to the region
    // size; NextSize answers 0 at the end. The other calls describe the
    // arena that serves a size of the walk (0 where none does).
    static unsigned GetHistogramFirstSize();
    static unsigned GetHistogramNextSize(unsigned size);
    static unsigned GetHistogramNumBlocks(unsigned size);
    static unsigned GetHistogramRegionSize(unsigned size);
    static LtNat64 GetHistogramCommittedMemory(unsigned size);
    static LtNat64 GetHistogramReservedMemory(unsigned size);
    static unsigned GetHistogramMaxBlockSize();
};
