// QzThreadCache.h: a small per-thread stock of free blocks of each small size
// class, so that most small allocations and releases take no lock.
// Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"

// A block of the small class `rounded` (8 to 512, a multiple of 4) from the
// calling thread's stock, refilled from the class's arena under the memory
// lock when empty. Null when the stock cannot serve (scrub or check on, no
// stock could be made, the arena is out of memory): the caller takes the
// locked path.
void *QzThreadCacheAlloc(unsigned rounded);

// Takes a released block of the small class `rounded` into the calling
// thread's stock, handing half of a full stock back to the arena under the
// memory lock. False when the stock cannot take it (as above).
bool QzThreadCacheDealloc(void *block, unsigned rounded);

// Bytes that the stocks have handed to callers, less those they took back,
// over all threads, live and ended. Call with the memory lock held.
LtInt64 QzThreadCacheHeldBytesLocked();

// Free blocks of the class `rounded` waiting in stocks. Memory lock held.
unsigned QzThreadCacheStockedBlocksLocked(unsigned rounded);

// Forgets every stock and the byte counts, when the arenas they came from are
// destroyed. Memory lock held; no other thread may be inside the allocator.
void QzThreadCacheForgetAllLocked();
