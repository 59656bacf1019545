// QzStreamBlock.cpp: chain links and their iterative destruction.

#include "qzutil/stream/QzStreamBlock.h"

#include <cstddef>

// The layout is part of what callers rely on: 4,080 bytes per link, payload
// at the first 8-byte boundary after the two pointers.
static_assert(sizeof(QzStreamBlock) == 4080, "a chain link is 4,080 bytes");
static_assert(sizeof(void *) == 8, "the payload offset below assumes 8-byte pointers");

// The storage's member initialiser is deliberately absent: writers fill the
// payload, and zeroing 4 KiB per block would double the cost of a save.
QzStreamBlock::QzStreamBlock() : m_data(m_storage)
{
    static_assert(offsetof(QzStreamBlock, m_storage) == 16, "payload at offset 16");
    static_assert(sizeof(QzStreamBlock) - offsetof(QzStreamBlock, m_storage) == kDataSize,
                  "payload fills the rest of the link");
}

QzStreamBlock::~QzStreamBlock()
{
    DestroyChain(m_next);
}

void QzStreamBlock::SetNext(QzStreamBlock *next)
{
    if (next == m_next)
        return;
    QzStreamBlock *old = m_next;
    m_next = next;
    DestroyChain(old);
}

// Each block is unlinked before it is deleted, so its destructor finds no
// successor and the depth stays one whatever the length of the chain.
void QzStreamBlock::DestroyChain(QzStreamBlock *first)
{
    while (first != nullptr) {
        QzStreamBlock *next = first->m_next;
        first->m_next = nullptr;
        delete first;
        first = next;
    }
}
