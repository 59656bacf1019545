// QzRawArena.cpp: the region and page layout of arenas, allocation from the
// lowest page with room, decommit of emptied pages, release of emptied
// regions, scrub patterns and the region checks.

#include "qzutil/memory/QzRawArena.h"

#include <cstring>
#include <initializer_list>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/memory/QzSysMemory.h"
#include "qzutil/memory/internal/QzAsanPoison.h"
#include "qzutil/memory/internal/QzMemoryInternal.h"
#include "qzutil/memory/internal/QzScrub.h"

// Region numbers are addresses shifted by this: every region is aligned to at
// least 64 KiB, so 32 bits hold any address below 2^48.
static constexpr unsigned kRegionNumberShift = 16;

// Header offsets of a multi-page region; a single-page region has only the
// two links, with its page header at kSinglePageHeader.
static constexpr unsigned kNextOffset = 0;
static constexpr unsigned kPrevOffset = 4;
static constexpr unsigned kFreeMaskOffset = 8;
static constexpr unsigned kUncommittedMaskOffset = 12;
static constexpr unsigned kFirstPageHeader = 16;
static constexpr unsigned kSinglePageHeader = 8;
static constexpr unsigned kPageHeaderSize = 8;  // free-list head, used count

// A page's tail may waste at most 1/128 of the page.
static constexpr unsigned kTailWasteDivisor = 128;

static unsigned char *Bytes(QzMemoryRegion *region)
{
    return reinterpret_cast<unsigned char *>(region);
}

static unsigned char const *Bytes(QzMemoryRegion const *region)
{
    return reinterpret_cast<unsigned char const *>(region);
}

// The 4-byte header words; the region base is aligned, so they are too.
static LtNat32 &Word(QzMemoryRegion *region, unsigned offset)
{
    return *reinterpret_cast<LtNat32 *>(Bytes(region) + offset);
}

static LtNat32 RegionNumber(QzMemoryRegion const *region)
{
    return static_cast<LtNat32>(reinterpret_cast<std::uintptr_t>(region) >> kRegionNumberShift);
}

static QzMemoryRegion *RegionFromNumber(LtNat32 number)
{
    return reinterpret_cast<QzMemoryRegion *>(static_cast<std::uintptr_t>(number)
                                              << kRegionNumberShift);
}

// A page header: the offset of the first free block in the region (0 for
// none), and the number of blocks in use.
struct QzMemoryPage {
    LtNat32 free_head;
    LtNat32 used;
};

// The free link in a free block's first word. Free blocks are poisoned, so
// the link is unpoisoned for the moment of the access.
static LtNat32 ReadLink(unsigned char const *block)
{
    QzUnpoison(block, sizeof(LtNat32));
    LtNat32 link;
    std::memcpy(&link, block, sizeof(link));
    QzPoison(block, sizeof(LtNat32));
    return link;
}

static void WriteLink(unsigned char *block, LtNat32 link)
{
    QzUnpoison(block, sizeof(LtNat32));
    std::memcpy(block, &link, sizeof(link));
    QzPoison(block, sizeof(LtNat32));
}

static unsigned LowestBit(unsigned mask)
{
    return static_cast<unsigned>(__builtin_ctz(mask));
}

static unsigned RoundUp(unsigned value, unsigned unit)
{
    return (value + unit - 1) / unit * unit;
}

QzRawArena::QzRawArena(unsigned object_size, unsigned alignment, unsigned region_size)
    : m_object_size(object_size), m_alignment(alignment), m_blocks_allocated(0),
      m_free_regions(nullptr), m_full_regions(nullptr)
{
    unsigned const unit = alignment > 4 ? alignment : 4;
    m_aligned_size = RoundUp(object_size > 4 ? object_size : 4, unit);
    unsigned const default_region = QzMemory::GetRegionSize();
    if (region_size == 0 || region_size == default_region) {
        m_region_size = default_region;
        unsigned page = QzMemory::GetPageSize();
        while (page < m_region_size &&
               ((page - kFirstPageHeader - kPageHeaderSize) % m_aligned_size + kFirstPageHeader +
                kPageHeaderSize) *
                       kTailWasteDivisor >
                   page)
            page *= 2;
        m_page_size = page;
    } else {
        m_region_size = region_size;
        m_page_size = region_size;
    }
    m_region_mask = ~static_cast<std::uintptr_t>(m_region_size - 1);
    m_page_mask = ~static_cast<std::uintptr_t>(m_page_size - 1);
    unsigned const pages = m_region_size / m_page_size;
    m_all_pages_mask = pages >= 32 ? 0xFFFFFFFEu : ((1u << pages) - 1) & ~1u;
}

QzRawArena::~QzRawArena()
{
    Release();
}

unsigned QzRawArena::PageBlocksOffset(unsigned page_index) const
{
    if (IsSinglePage())
        return kSinglePageHeader + kPageHeaderSize;
    if (page_index == 0)
        return kFirstPageHeader + kPageHeaderSize;
    return page_index * m_page_size + kPageHeaderSize;
}

unsigned QzRawArena::PageBlockCount(unsigned page_index) const
{
    unsigned const start = PageBlocksOffset(page_index);
    unsigned const page_end = IsSinglePage() ? m_region_size : (page_index + 1) * m_page_size;
    return (page_end - start) / m_aligned_size;
}

unsigned QzRawArena::GetBlocksPerPage() const
{
    return PageBlockCount(0);
}

static QzMemoryPage *PageHeader(QzMemoryRegion *region, unsigned offset)
{
    return reinterpret_cast<QzMemoryPage *>(Bytes(region) + offset);
}

QzMemoryRegion *QzRawArena::FindRegion(void const *block) const
{
    return reinterpret_cast<QzMemoryRegion *>(reinterpret_cast<std::uintptr_t>(block) &
                                              m_region_mask);
}

QzMemoryPage *QzRawArena::FindPage(void const *block, QzMemoryRegion *region) const
{
    if (IsSinglePage())
        return PageHeader(region, kSinglePageHeader);
    auto *page =
        reinterpret_cast<unsigned char *>(reinterpret_cast<std::uintptr_t>(block) & m_page_mask);
    if (page == Bytes(region))
        return PageHeader(region, kFirstPageHeader);
    return reinterpret_cast<QzMemoryPage *>(page);
}

static unsigned PageIndexOf(QzMemoryRegion const *region, void const *block, unsigned page_size)
{
    return static_cast<unsigned>((static_cast<unsigned char const *>(block) - Bytes(region)) /
                                 page_size);
}

QzMemoryRegion *QzRawArena::GetNextRegion(QzMemoryRegion *region) const
{
    return RegionFromNumber(Word(region, kNextOffset));
}

void QzRawArena::PushFront(QzMemoryRegion *region, QzMemoryRegion **list)
{
    Word(region, kPrevOffset) = 0;
    Word(region, kNextOffset) = *list != nullptr ? RegionNumber(*list) : 0;
    if (*list != nullptr)
        Word(*list, kPrevOffset) = RegionNumber(region);
    *list = region;
}

void QzRawArena::Unlink(QzMemoryRegion *region, QzMemoryRegion **list)
{
    QzMemoryRegion *next = RegionFromNumber(Word(region, kNextOffset));
    QzMemoryRegion *prev = RegionFromNumber(Word(region, kPrevOffset));
    if (prev != nullptr)
        Word(prev, kNextOffset) = Word(region, kNextOffset);
    else
        *list = next;
    if (next != nullptr)
        Word(next, kPrevOffset) = Word(region, kPrevOffset);
    Word(region, kNextOffset) = 0;
    Word(region, kPrevOffset) = 0;
}

void QzRawArena::FormatPage(QzMemoryRegion *region, unsigned page_index)
{
    bool const scrub = QzIsScrubMemory();
    unsigned const start = PageBlocksOffset(page_index);
    unsigned const count = PageBlockCount(page_index);
    unsigned const page_end = IsSinglePage() ? m_region_size : (page_index + 1) * m_page_size;
    unsigned char *base = Bytes(region);
    if (scrub)
        std::memset(base + start, kQzFreeByte, count * m_aligned_size);
    // Linked in rising order, so the list starts at the highest block.
    LtNat32 head = 0;
    for (unsigned i = 0; i < count; ++i) {
        unsigned const offset = start + i * m_aligned_size;
        std::memcpy(base + offset, &head, sizeof(head));
        head = offset;
    }
    unsigned const tail = start + count * m_aligned_size;
    if (scrub)
        std::memset(base + tail, kQzGuardByte, page_end - tail);
    QzPoison(base + start, page_end - start);
    unsigned const header = IsSinglePage()    ? kSinglePageHeader
                            : page_index == 0 ? kFirstPageHeader
                                              : page_index * m_page_size;
    QzMemoryPage *page = PageHeader(region, header);
    page->free_head = head;
    page->used = 0;
}

QzMemoryRegion *QzRawArena::CreateRegion()
{
    void *address = QzSysMemory::ReserveAligned(m_region_size, QzSysMemory::eLIFETIME_NORMAL);
    if (address == nullptr)
        return nullptr;
    if (!QzSysMemory::Commit(address, m_page_size)) {
        QzSysMemory::Release(address, m_region_size);
        return nullptr;
    }
    auto *region = static_cast<QzMemoryRegion *>(address);
    if (!IsSinglePage()) {
        Word(region, kFreeMaskOffset) = 1;
        Word(region, kUncommittedMaskOffset) = m_all_pages_mask;
    }
    FormatPage(region, 0);
    PushFront(region, &m_free_regions);
    return region;
}

bool QzRawArena::CommitPage(QzMemoryRegion *region, unsigned page_index)
{
    if (!QzSysMemory::Commit(Bytes(region) + page_index * m_page_size, m_page_size))
        return false;
    FormatPage(region, page_index);
    Word(region, kUncommittedMaskOffset) &= ~(1u << page_index);
    Word(region, kFreeMaskOffset) |= 1u << page_index;
    return true;
}

void QzRawArena::ReleaseRegion(QzMemoryRegion *region)
{
    QzUnpoison(region, m_region_size);  // the next mapping here starts clean
    QzSysMemory::Release(region, m_region_size);
}

// Asks the new-handler after a failed reserve or commit; true means retry.
static bool RetryArena(bool retry_with_handler, unsigned aligned_size)
{
    if (!retry_with_handler)
        return false;
    QzMemory::NewHandler handler = QzMemory::GetNewHandler();
    return handler != nullptr && handler(aligned_size, 0) != 0;
}

void *QzRawArena::AllocImpl(bool retry_with_handler)
{
    for (;;) {
        QzMemoryRegion *region = m_free_regions;
        if (region == nullptr) {
            region = CreateRegion();
            if (region == nullptr) {
                if (RetryArena(retry_with_handler, m_aligned_size))
                    continue;
                return nullptr;
            }
        }
        if (QzIsCheckMemory())
            CheckRegion(region);

        unsigned page_index = 0;
        if (!IsSinglePage()) {
            unsigned const free_mask = Word(region, kFreeMaskOffset);
            if (free_mask != 0) {
                page_index = LowestBit(free_mask);
            } else {
                page_index = LowestBit(Word(region, kUncommittedMaskOffset));
                if (!CommitPage(region, page_index)) {
                    if (RetryArena(retry_with_handler, m_aligned_size))
                        continue;
                    return nullptr;
                }
            }
        }
        unsigned char *block = Bytes(region) + 0;
        QzMemoryPage *page = FindPage(Bytes(region) + page_index * m_page_size, region);
        block += page->free_head;
        page->free_head = ReadLink(block);
        ++page->used;
        if (page->free_head == 0) {
            bool full = true;
            if (!IsSinglePage()) {
                LtNat32 &free_mask = Word(region, kFreeMaskOffset);
                free_mask &= ~(1u << page_index);
                full = free_mask == 0 && Word(region, kUncommittedMaskOffset) == 0;
            }
            if (full) {
                Unlink(region, &m_free_regions);
                PushFront(region, &m_full_regions);
            }
        }
        QzUnpoison(block, m_object_size);
        if (QzIsScrubMemory())
            FillFreshBlock(block);
        ++m_blocks_allocated;
        return block;
    }
}

void *QzRawArena::Alloc()
{
    return AllocImpl(false);
}

// The free block's bytes behind its link must still read 0xDD; the first
// mismatch is reported with the fixed offset 4, and the block is filled anyway.
void QzRawArena::FillFreshBlock(unsigned char *block) const
{
    QzUnpoison(block, m_aligned_size);
    if (QzIsCheckMemory())
        QzVerifyScrubBytes(block, sizeof(LtNat32), m_aligned_size, kQzFreeByte, 4);
    std::memset(block, kQzFreshByte, m_object_size);
    std::memset(block + m_object_size, kQzGuardByte, m_aligned_size - m_object_size);
    QzPoison(block + m_object_size, m_aligned_size - m_object_size);
}

// With check on, the guard behind the object must be intact; then the whole
// block reads 0xDD again.
void QzRawArena::ScrubReleasedBlock(unsigned char *block) const
{
    QzUnpoison(block, m_aligned_size);
    if (QzIsCheckMemory())
        QzVerifyScrubBytes(block, m_object_size, m_aligned_size, kQzGuardByte);
    std::memset(block, kQzFreeByte, m_aligned_size);
}

bool QzRawArena::IsOnList(QzMemoryRegion const *region, QzMemoryRegion *list) const
{
    for (QzMemoryRegion *at = list; at != nullptr; at = GetNextRegion(at)) {
        if (at == region)
            return true;
    }
    return false;
}

void QzRawArena::Dealloc(void *pointer)
{
    if (pointer == nullptr)
        return;
    auto *block = static_cast<unsigned char *>(pointer);
    QzMemoryRegion *region = FindRegion(block);
    if (QzIsCheckMemory()) {
        if (!IsOnList(region, m_free_regions) && !IsOnList(region, m_full_regions)) {
            QzPostMemoryMessage(
                QzSysError::eERROR,
                u"Dealloc: Block %llx lies in region %llx which is not in arena %llx",
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(block)),
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(region)),
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(this)));
            return;
        }
        CheckRegion(region);
    }
    unsigned const page_index = IsSinglePage() ? 0 : PageIndexOf(region, block, m_page_size);
    QzMemoryPage *page = FindPage(block, region);
    if (page->free_head == 0) {
        bool region_was_full = true;
        if (!IsSinglePage()) {
            LtNat32 &free_mask = Word(region, kFreeMaskOffset);
            region_was_full = free_mask == 0 && Word(region, kUncommittedMaskOffset) == 0;
            free_mask |= 1u << page_index;
        }
        if (region_was_full) {
            Unlink(region, &m_full_regions);
            PushFront(region, &m_free_regions);
        }
    }
    if (QzIsScrubMemory())
        ScrubReleasedBlock(block);
    QzPoison(block, m_aligned_size);
    WriteLink(block, page->free_head);
    page->free_head = static_cast<LtNat32>(block - Bytes(region));
    --page->used;
    --m_blocks_allocated;
    if (page->used != 0)
        return;

    if (IsSinglePage()) {
        Unlink(region, &m_free_regions);
        ReleaseRegion(region);
        return;
    }
    LtNat32 &uncommitted = Word(region, kUncommittedMaskOffset);
    if (page_index != 0) {
        unsigned char *page_start = Bytes(region) + page_index * m_page_size;
        QzUnpoison(page_start, m_page_size);
        QzSysMemory::Decommit(page_start, m_page_size);
        Word(region, kFreeMaskOffset) &= ~(1u << page_index);
        uncommitted |= 1u << page_index;
    }
    if (uncommitted == m_all_pages_mask && PageHeader(region, kFirstPageHeader)->used == 0) {
        Unlink(region, &m_free_regions);
        ReleaseRegion(region);
    }
}

void QzRawArena::Release()
{
    for (QzMemoryRegion **list : {&m_free_regions, &m_full_regions}) {
        while (*list != nullptr) {
            QzMemoryRegion *region = *list;
            *list = GetNextRegion(region);
            ReleaseRegion(region);
        }
    }
    m_blocks_allocated = 0;
}

unsigned QzRawArena::CountRegions() const
{
    unsigned count = 0;
    for (QzMemoryRegion *list : {m_free_regions, m_full_regions}) {
        for (QzMemoryRegion *at = list; at != nullptr; at = GetNextRegion(at))
            ++count;
    }
    return count;
}

unsigned QzRawArena::GetCommittedPages() const
{
    if (IsSinglePage())
        return CountRegions();
    unsigned pages_per_region = m_region_size / m_page_size;
    unsigned committed = 0;
    for (QzMemoryRegion *list : {m_free_regions, m_full_regions}) {
        for (QzMemoryRegion *at = list; at != nullptr; at = GetNextRegion(at))
            committed +=
                pages_per_region -
                static_cast<unsigned>(__builtin_popcount(Word(at, kUncommittedMaskOffset)));
    }
    return committed;
}

LtNat64 QzRawArena::GetCommittedMemory() const
{
    return static_cast<LtNat64>(GetCommittedPages()) * m_page_size;
}

LtNat64 QzRawArena::GetReservedMemory() const
{
    return static_cast<LtNat64>(CountRegions()) * m_region_size;
}

static unsigned long long AddressOf(void const *pointer)
{
    return static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer));
}

int QzRawArena::CheckPage(QzMemoryRegion *region, unsigned page_index) const
{
    unsigned const header = IsSinglePage()    ? kSinglePageHeader
                            : page_index == 0 ? kFirstPageHeader
                                              : page_index * m_page_size;
    QzMemoryPage const *page = PageHeader(region, header);
    unsigned const capacity = PageBlockCount(page_index);
    unsigned char const *page_start =
        Bytes(region) + (IsSinglePage() ? 0 : page_index * m_page_size);
    if (page->used > capacity) {
        QzPostMemoryMessage(QzSysError::eERROR,
                            u"Memory Page %llx , size %d, block size %d has invalid used "
                            u"blocks %d\n",
                            AddressOf(page_start), m_page_size, m_aligned_size, page->used);
        return 0;
    }
    unsigned const first = PageBlocksOffset(page_index);
    unsigned const end = first + capacity * m_aligned_size;
    LtNat32 offset = page->free_head;
    // A sound list has at most `capacity` entries; more means a cycle.
    for (unsigned steps = 0; offset != 0 && steps <= capacity; ++steps) {
        unsigned char const *block = Bytes(region) + offset;
        if (offset < first || offset >= end) {
            QzPostMemoryMessage(QzSysError::eERROR,
                                u"Free Block %llx , size %d, is out of range for page %llx, "
                                u"size %d\n",
                                AddressOf(block), m_aligned_size, AddressOf(page_start),
                                m_page_size);
            return 0;
        }
        if ((offset - first) % m_aligned_size != 0) {
            QzPostMemoryMessage(QzSysError::eERROR,
                                u"Free Block %llx , size %d, on page %llx points into middle "
                                u"of block\n",
                                AddressOf(block), m_aligned_size, AddressOf(page_start));
            return 0;
        }
        offset = ReadLink(block);
    }
    return 1;
}

int QzRawArena::CheckRegion(QzMemoryRegion *region) const
{
    std::uintptr_t const next = static_cast<std::uintptr_t>(Word(region, kNextOffset))
                                << kRegionNumberShift;
    std::uintptr_t const prev = static_cast<std::uintptr_t>(Word(region, kPrevOffset))
                                << kRegionNumberShift;
    if ((next & ~m_region_mask) != 0) {
        QzPostMemoryMessage(QzSysError::eERROR,
                            u"Memory Region %llx has invalid next pointer %llx\n",
                            AddressOf(region), static_cast<unsigned long long>(next));
        return 0;
    }
    if ((prev & ~m_region_mask) != 0) {
        QzPostMemoryMessage(QzSysError::eERROR,
                            u"Memory Region %llx has invalid prev pointer %llx\n",
                            AddressOf(region), static_cast<unsigned long long>(prev));
        return 0;
    }
    if (IsSinglePage())
        return CheckPage(region, 0);
    LtNat32 const uncommitted = Word(region, kUncommittedMaskOffset);
    LtNat32 const free_mask = Word(region, kFreeMaskOffset);
    if ((uncommitted & ~m_all_pages_mask) != 0) {
        QzPostMemoryMessage(QzSysError::eERROR,
                            u"Memory Region %llx has invalid uncommited pages mask %x (at most "
                            u"%x bits can be set)\n",
                            AddressOf(region), uncommitted, m_all_pages_mask);
        return 0;
    }
    if ((free_mask & ~(m_all_pages_mask | 1u)) != 0) {
        QzPostMemoryMessage(QzSysError::eERROR,
                            u"Memory Region %llx has invalid free pages mask %x (at most %x bits "
                            u"can be set)\n",
                            AddressOf(region), free_mask, m_all_pages_mask | 1u);
        return 0;
    }
    unsigned const pages = m_region_size / m_page_size;
    for (unsigned i = 0; i < pages; ++i) {
        if ((uncommitted & (1u << i)) == 0 && !CheckPage(region, i))
            return 0;
    }
    return 1;
}

int QzRawArena::CheckRegionList(QzMemoryRegion *list) const
{
    int ok = 1;
    for (QzMemoryRegion *at = list; at != nullptr; at = GetNextRegion(at)) {
        if (!CheckRegion(at))
            ok = 0;
    }
    return ok;
}

int QzRawArena::CheckArena() const
{
    int const free_ok = CheckRegionList(m_free_regions);
    int const full_ok = CheckRegionList(m_full_regions);
    return free_ok && full_ok ? 1 : 0;
}

QzArena::QzArena(unsigned object_size, unsigned alignment) : QzRawArena(object_size, alignment, 0)
{}

void *QzArena::Alloc()
{
    return AllocImpl(true);
}
