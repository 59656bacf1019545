// QzHeap.h: a named size range of QzMemory, for code that is handed a heap
// to allocate from.
#pragma once

#include "qzutil/frame/QzExport.h"

// Forwards every call to QzMemory with alignment 1; the two sizes are kept
// for whoever asks, and limit nothing.
//
// Ownership: holds no memory of its own; blocks belong to QzMemory and go
//            back with the size they were allocated with.
// Threads:   any thread, as QzMemory.
class QZUTIL_API QzHeap {
public:
    // Sizes in bytes.
    QzHeap(unsigned min_size, unsigned max_size);

    unsigned GetMinSize() const { return m_min_size; }
    unsigned GetMaxSize() const { return m_max_size; }

    // As QzMemory::Alloc, Dealloc, Resize, Expand and Compact.
    void *Alloc(unsigned size);
    void Dealloc(void *block, unsigned size);
    void *Resize(void *block, unsigned old_size, unsigned new_size);
    void *Expand(void *block, unsigned *size, unsigned new_size);
    void *Compact(void *block, unsigned size);
    // Blocks are QzMemory's, so there is nothing to give back.
    void Release() {}

private:
    unsigned m_min_size;
    unsigned m_max_size;
};
