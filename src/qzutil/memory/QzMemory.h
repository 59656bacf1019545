// QzMemory.h: the library's allocator. Blocks carry no header: the caller
// gives the same size and alignment at release as at allocation.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// Class of statics over one process-wide allocator.
//
// In this build every block comes from the platform heap (force malloc), and
// is counted by its true size; arenas and regions come behind the same calls.
//
// Sizes:     unsigned bytes. A request above 0x7FF00000 is a programming
//            fault: "QzMemory: Bad size %d\n" is posted as eERROR and the
//            fatal tail runs, unless the call is a Try form.
// Alignment: below 8 a block is rounded to a multiple of 4, from 8 up to a
//            multiple of 8; text passes 1.
// Threads:   every call may come from any thread; the counters are guarded
//            by the memory lock. The new-handler runs outside that lock.
// Lifetime:  a counted component; Initialise before the first allocation.
class QZUTIL_API QzMemory {
public:
    using Alignment = unsigned;

    // Called when an allocation fails, with the size asked and the try flag.
    // Non-zero means "memory was freed, try again".
    using NewHandler = int (*)(unsigned size, int try_only);

    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // A block, or null for size 0 or when memory runs out (after the
    // new-handler has had its say; Try forms never ask it).
    static void *Alloc(unsigned size, Alignment alignment);
    static void *TryAlloc(unsigned size, Alignment alignment);
    static void *AllocEx(unsigned size, Alignment alignment, int try_only);

    // Releases a block of the size and alignment it was allocated with.
    // Null does nothing.
    static void Dealloc(void *block, unsigned size, Alignment alignment);

    // Equal sizes return the block; new size 0 releases it and gives null;
    // a null block allocates. Otherwise the content up to the smaller size
    // moves to the returned block. On failure the old block is kept and null
    // is returned.
    static void *Resize(void *block, unsigned old_size, unsigned new_size, Alignment alignment);

    // As Resize to GetBestBlockSize(new_size) (rounded by alignment), storing
    // the size of the returned block in *size.
    static void *Expand(void *block, unsigned *size, unsigned new_size, Alignment alignment);

    // Checks the size and returns the block unchanged.
    static void *Compact(void *block, unsigned size, Alignment alignment);

    // The block size at or above `size` that wastes nothing: 4 up to 4, else
    // the power of two at or above `size` (the size classes of the small
    // blocks, continued upwards), so that buffers that grow by it double.
    // Sizes above 0x80000000 come back unchanged.
    static unsigned GetBestBlockSize(unsigned size);

    // The platform heap, counted by the true size of each block.
    static void *Malloc(unsigned size);
    static void *TryMalloc(unsigned size);
    static void *MallocEx(unsigned size, int try_only);
    static void *Realloc(void *block, unsigned size);
    static void *TryRealloc(void *block, unsigned size);
    static void *ReallocEx(void *block, unsigned size, int try_only);
    static void Free(void *block);

    // Installs the new-handler and returns the old one. With a handler set,
    // a failing global operator new also asks it before throwing.
    static NewHandler SetNewHandler(NewHandler handler);
    static NewHandler GetNewHandler();

    // The force-malloc switch. Setting it by program overrides the
    // environment. In this build every block is a heap block either way.
    static void SetForceMalloc(int on);
    static int IsForceMalloc();

    // Bytes held: by the heap path, and in all.
    static LtNat64 GetMallocMemoryAllocated();
    static LtNat64 GetMemoryAllocated();
};
