// QzHeap.cpp: the forwarding of QzHeap to QzMemory.

#include "qzutil/memory/QzHeap.h"

#include "qzutil/memory/QzMemory.h"

// Heap blocks hold bytes and text; they need no alignment beyond QzMemory's.
static constexpr QzMemory::Alignment kHeapAlignment = 1;

QzHeap::QzHeap(unsigned min_size, unsigned max_size) : m_min_size(min_size), m_max_size(max_size)
{}

void *QzHeap::Alloc(unsigned size)
{
    return QzMemory::Alloc(size, kHeapAlignment);
}

void QzHeap::Dealloc(void *block, unsigned size)
{
    QzMemory::Dealloc(block, size, kHeapAlignment);
}

void *QzHeap::Resize(void *block, unsigned old_size, unsigned new_size)
{
    return QzMemory::Resize(block, old_size, new_size, kHeapAlignment);
}

void *QzHeap::Expand(void *block, unsigned *size, unsigned new_size)
{
    return QzMemory::Expand(block, size, new_size, kHeapAlignment);
}

void *QzHeap::Compact(void *block, unsigned size)
{
    return QzMemory::Compact(block, size, kHeapAlignment);
}
