// QzStreamBlock.h: the fixed-size link of the chains that hold streamed bytes
// in memory (QzStreamBlockBuffer, QzStreamBlockStore).
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"

// One link of a singly linked chain: the next link, a pointer to the payload,
// and the payload itself, 4,080 bytes in all. The payload starts on the first
// 8-byte boundary after the two pointers (offset 16) and holds kDataSize
// bytes, so values written into it by a binary stream are naturally aligned.
// Blocks come from the allocator's size classes through the class operator
// new; the payload is not initialised.
//
// Ownership: a block owns the rest of its chain: deleting it, or replacing its
//            successor through SetNext, destroys every block after it.
//            Destruction is iterative, so a chain of any length can go
//            without deep recursion.
// Threads:   none of its own; a chain belongs to one thread at a time.
class QZUTIL_API QzStreamBlock {
public:
    QZ_DECLARE_ALLOCATORS()

    static constexpr int kDataSize = 4064;  // payload bytes of every block

    QzStreamBlock();
    ~QzStreamBlock();
    QzStreamBlock(QzStreamBlock const &) = delete;
    QzStreamBlock &operator=(QzStreamBlock const &) = delete;

    // The following link, or null at the end of the chain.
    QzStreamBlock *GetNext() const { return m_next; }
    // Links `next` (and its chain) after this block, taking ownership. The
    // chain that followed before is destroyed, unless it is `next` itself.
    void SetNext(QzStreamBlock *next);

    // The kDataSize bytes of payload, 8-aligned.
    unsigned char const *GetData() const { return m_data; }
    unsigned char *EditData() { return m_data; }

private:
    // Deletes `first` and every block after it, one at a time.
    static void DestroyChain(QzStreamBlock *first);

    QzStreamBlock *m_next = nullptr;  // owned
    unsigned char *m_data;            // always m_storage
    alignas(8) unsigned char m_storage[kDataSize];
};
