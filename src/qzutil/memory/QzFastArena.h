// QzFastArena.h: blocks of one size for objects that die together, bumped
// out of large chunks and thrown away all at once.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// A chunk in use or held for reuse. Records live apart from their chunks so
// that a chunk keeps QzMemory's alignment and its size to the byte.
struct QzFastArenaPage;

// Blocks of one size, handed out from chunks of QzMemory by bumping a
// pointer, with a free list of blocks given back. DeallocAll frees every
// block at once without visiting them (outside scrub mode) and keeps the
// chunks; no destructor of any object runs, that is the caller's matter.
//
// Stride:    the object size rounded up to the alignment (at least 4), and
//            at least 8, because a free block holds the next free block's
//            address in its first bytes. Chunks are 8-aligned, so blocks are
//            aligned to the alignment up to 8.
// Ownership: owns its chunks; Release and the destructor give them back to
//            QzMemory, whatever blocks are still out. Not copyable.
// Threads:   no lock; one owner at a time. Only chunk requests take the
//            memory lock, inside QzMemory.
// Invariant: every chunk is either in use (each block out, on the free list,
//            or not yet bumped) or held with all its blocks free; only the
//            current chunk, the one last taken, has blocks not yet bumped.
class QZUTIL_API QzFastArena {
public:
    // An arena to be set up by Init; it holds nothing and allocates nothing
    // before then.
    QzFastArena();
    // Chunks of QzMemory::GetBestBlockSize(256 * stride) bytes. These and
    // Init need QzMemory to be initialised.
    QzFastArena(unsigned object_size, unsigned alignment);
    // Chunks of QzMemory::GetBestBlockSize(page_size) bytes, raised to the
    // best size of one stride where that is smaller.
    QzFastArena(unsigned object_size, unsigned page_size, unsigned alignment);
    ~QzFastArena();
    QzFastArena(QzFastArena const &) = delete;
    QzFastArena &operator=(QzFastArena const &) = delete;

    // Releases whatever the arena holds, then sets it up as the three-value
    // constructor does.
    void Init(unsigned object_size, unsigned page_size, unsigned alignment);

    // A block of the object size, or null when QzMemory has none to give
    // (after its new-handler gave up). In scrub mode the object reads 0xCD
    // and the rest of the stride 0xFD.
    void *Alloc();
    // Gives back a block of this arena; null does nothing.
    void Dealloc(void *block);
    // Every block becomes free at once; the chunks stay for reuse.
    void DeallocAll();
    // Gives the held chunks back to QzMemory.
    void ReleaseFreePages();
    // DeallocAll, then ReleaseFreePages.
    void Release();
    // Takes over every block and chunk of `other`, which is left empty and
    // may be destroyed without touching them. Both arenas must have the same
    // stride and page size; otherwise ePRECONDITION is posted and nothing moves.
    void Merge(QzFastArena *other);

    // Chunks in use plus chunks held, and that in bytes.
    unsigned GetCommittedPages() const;
    LtNat64 GetCommittedMemory() const;
    // There is nothing to check in a fast arena: answers 1.
    int CheckArena() const { return 1; }

    unsigned GetObjectSize() const { return m_object_size; }
    unsigned GetAlignment() const { return m_alignment; }
    unsigned GetAlignedSize() const { return m_aligned_size; }
    unsigned GetPageSize() const { return m_page_size; }
    unsigned GetBlocksAllocated() const { return m_blocks_allocated; }

private:
    void *AllocFromNewPage();
    QzFastArenaPage *TakePage();
    void ScrubFreshBlock(unsigned char *block) const;
    void ScrubReleasedBlock(unsigned char *block) const;
    void ScrubPageInUse(QzFastArenaPage *page) const;
    // Bytes of a chunk taken by whole blocks; the tail behind them is unused.
    unsigned GetBlocksBytes() const { return m_page_size / m_aligned_size * m_aligned_size; }

    unsigned m_object_size = 0;
    unsigned m_alignment = 0;
    unsigned m_aligned_size = 0;  // block stride, bytes
    unsigned m_page_size = 0;     // chunk size, bytes
    unsigned m_blocks_allocated = 0;
    void *m_free_list = nullptr;         // blocks given back, linked through their first 8 bytes
    char *m_next_block = nullptr;        // bump pointer in the head chunk
    unsigned m_blocks_left = 0;          // unbumped blocks at m_next_block
    QzFastArenaPage *m_pages = nullptr;  // chunks in use
    QzFastArenaPage *m_pages_tail = nullptr;
    QzFastArenaPage *m_free_pages = nullptr;  // chunks held for reuse
};
