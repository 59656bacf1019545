// QzRawArena.h: arenas of one block size, carved from pages of regions of
// virtual memory that are committed as they fill and given back as they
// empty.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// A region's header; regions are aligned to their own size, so a block's
// region is its address masked. Opaque: the layout lives in QzRawArena.cpp.
struct QzMemoryRegion;
// A page's header: the head of its free-block list and its used count.
struct QzMemoryPage;

// Blocks of one size from regions of virtual memory, with no per-block header.
//
// Layout of a region of several pages: 4-byte words at offset 0 next region,
// 4 previous region (region numbers: address >> 16, 0 for none), 8 the mask
// of committed pages with a free block, 12 the mask of uncommitted pages, and
// page 0's header at 16 with its blocks from 24. Page i above 0 has its
// header at i * page size and its blocks 8 bytes later. A single-page region
// has next and previous, its page header at 8 and blocks from 16. Free blocks
// link through their first word, which holds the next free block's offset in
// the region (0 ends the list). Blocks of a new page go out from the top of
// the page downward.
//
// Ownership: owns its regions; Release and the destructor return them all,
//            whatever blocks are still out. Not copyable.
// Threads:   no lock: the owner guards an arena (QzMemory's arenas are
//            guarded by the memory lock).
// Invariant: a region is on the free list while it has a free or an
//            uncommitted page, else on the full list; empty pages other than
//            page 0 are decommitted, and an empty region is released at once.
class QZUTIL_API QzRawArena {
public:
    // Region size 0 means QzMemory::GetRegionSize(); then the page is the
    // smallest power of two from the system page up whose unused tail is at
    // most 1/128 of it. Any other region size makes the page the region.
    // Needs QzMemory to be initialised.
    QzRawArena(unsigned object_size, unsigned alignment, unsigned region_size);
    ~QzRawArena();
    QzRawArena(QzRawArena const &) = delete;
    QzRawArena &operator=(QzRawArena const &) = delete;

    // A block of the object size, or null when address space or memory runs
    // out. In scrub mode it reads 0xCD, with 0xFD behind the object.
    void *Alloc();
    // Releases a block of this arena; null does nothing.
    void Dealloc(void *block);
    void *Compact(void *block) { return block; }
    // Returns every region; the blocks allocated become 0.
    void Release();

    // The region holding `block` (its address masked), and its page header.
    QzMemoryRegion *FindRegion(void const *block) const;
    QzMemoryPage *FindPage(void const *block, QzMemoryRegion *region) const;

    // Consistency checks; each problem is posted as eERROR and ends the check
    // of that region. Return 1 when all is well.
    int CheckRegion(QzMemoryRegion *region) const;
    int CheckRegionList(QzMemoryRegion *list) const;
    int CheckArena() const;

    QzMemoryRegion *GetFullRegions() const { return m_full_regions; }
    QzMemoryRegion *GetFreeRegions() const { return m_free_regions; }
    // The successor of a region on its list, or null.
    QzMemoryRegion *GetNextRegion(QzMemoryRegion *region) const;
    // Number of regions on both lists.
    unsigned GetRegions() const { return CountRegions(); }
    unsigned CountRegions() const;
    unsigned GetCommittedPages() const;
    LtNat64 GetCommittedMemory() const;  // bytes
    LtNat64 GetReservedMemory() const;   // bytes

    unsigned GetObjectSize() const { return m_object_size; }
    unsigned GetAlignment() const { return m_alignment; }
    unsigned GetAlignedSize() const { return m_aligned_size; }
    unsigned GetRegionSize() const { return m_region_size; }
    unsigned GetPageSize() const { return m_page_size; }
    unsigned GetBlocksAllocated() const { return m_blocks_allocated; }
    // Blocks that one page (page 0 of a multi-page region: the fewest) holds.
    unsigned GetBlocksPerPage() const;

protected:
    // The allocation steps; `retry_with_handler` makes a failed reserve or
    // commit ask QzMemory's new-handler and begin again while it says so.
    void *AllocImpl(bool retry_with_handler);

private:
    bool IsSinglePage() const { return m_page_size == m_region_size; }
    QzMemoryRegion *CreateRegion();
    bool CommitPage(QzMemoryRegion *region, unsigned page_index);
    void FormatPage(QzMemoryRegion *region, unsigned page_index);
    void ReleaseRegion(QzMemoryRegion *region);
    void Unlink(QzMemoryRegion *region, QzMemoryRegion **list);
    void PushFront(QzMemoryRegion *region, QzMemoryRegion **list);
    bool IsOnList(QzMemoryRegion const *region, QzMemoryRegion *list) const;
    int CheckPage(QzMemoryRegion *region, unsigned page_index) const;
    unsigned PageBlocksOffset(unsigned page_index) const;
    unsigned PageBlockCount(unsigned page_index) const;
    void FillFreshBlock(unsigned char *block) const;
    void ScrubReleasedBlock(unsigned char *block) const;

    unsigned m_object_size;
    unsigned m_alignment;
    unsigned m_aligned_size;       // block stride
    unsigned m_region_size;        // bytes, a power of two of at least 64 KiB
    unsigned m_page_size;          // bytes, the unit of commitment
    std::uintptr_t m_region_mask;  // ~(region size - 1)
    std::uintptr_t m_page_mask;    // ~(page size - 1)
    unsigned m_all_pages_mask;     // bits 1 .. pages per region - 1
    unsigned m_blocks_allocated;
    QzMemoryRegion *m_free_regions;  // regions with a free or uncommitted page
    QzMemoryRegion *m_full_regions;
};

// A QzRawArena whose Alloc asks QzMemory's new-handler when a reserve or a
// commit fails, and begins again while the handler says it freed memory.
class QZUTIL_API QzArena : public QzRawArena {
public:
    QzArena(unsigned object_size, unsigned alignment);
    void *Alloc();
};
