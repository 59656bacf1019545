// QzFastArena.cpp: the bump and free-list allocation of fast arenas, their
// chunk bookkeeping, merging, and the scrub patterns and checks.

#include "qzutil/memory/QzFastArena.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/memory/internal/QzAsanPoison.h"
#include "qzutil/memory/internal/QzMemoryInternal.h"
#include "qzutil/memory/internal/QzScrub.h"

struct QzFastArenaPage {
    QzFastArenaPage *next;
    char *chunk;  // m_page_size bytes from QzMemory, alignment kChunkAlignment
};

// Chunks and their records come from QzMemory with this alignment, which is
// also the largest block alignment an arena honours.
static constexpr unsigned kChunkAlignment = 8;

// A free block's first bytes hold the next free block's address. Blocks of a
// 4-aligned stride may put it off its natural alignment, hence memcpy.
static constexpr unsigned kLinkSize = sizeof(void *);

// The default chunk holds this many blocks, before rounding to a best size.
static constexpr unsigned kBlocksPerDefaultPage = 256;

#ifdef QZ_HAS_ASAN
static constexpr bool kPoisonsMemory = true;
#else
static constexpr bool kPoisonsMemory = false;
#endif

static void *ReadLink(void const *block)
{
    QzUnpoison(block, kLinkSize);
    void *next;
    std::memcpy(&next, block, kLinkSize);
    QzPoison(block, kLinkSize);
    return next;
}

static void WriteLink(void *block, void *next)
{
    QzUnpoison(block, kLinkSize);
    std::memcpy(block, &next, kLinkSize);
    QzPoison(block, kLinkSize);
}

static unsigned AlignedSizeFor(unsigned object_size, unsigned alignment)
{
    unsigned const unit = alignment > 4 ? alignment : 4;
    unsigned const size = object_size > kLinkSize ? object_size : kLinkSize;
    return (size + unit - 1) / unit * unit;
}

// 256 strides, kept within 32 bits; a size that large fails QzMemory's size
// check at the first chunk.
static unsigned DefaultPageRequest(unsigned object_size, unsigned alignment)
{
    LtNat64 const request =
        static_cast<LtNat64>(AlignedSizeFor(object_size, alignment)) * kBlocksPerDefaultPage;
    return request > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(request);
}

static QzFastArenaPage *LastPage(QzFastArenaPage *list)
{
    while (list->next != nullptr)
        list = list->next;
    return list;
}

QzFastArena::QzFastArena() = default;

QzFastArena::QzFastArena(unsigned object_size, unsigned alignment)
{
    Init(object_size, DefaultPageRequest(object_size, alignment), alignment);
}

QzFastArena::QzFastArena(unsigned object_size, unsigned page_size, unsigned alignment)
{
    Init(object_size, page_size, alignment);
}

QzFastArena::~QzFastArena()
{
    Release();
}

void QzFastArena::Init(unsigned object_size, unsigned page_size, unsigned alignment)
{
    Release();
    m_object_size = object_size;
    m_alignment = alignment;
    m_aligned_size = AlignedSizeFor(object_size, alignment);
    m_page_size = QzMemory::GetBestBlockSize(page_size);
    // A chunk must hold at least one block, or Alloc could never succeed.
    if (m_page_size < m_aligned_size)
        m_page_size = QzMemory::GetBestBlockSize(m_aligned_size);
}

void *QzFastArena::Alloc()
{
    unsigned char *block;
    if (m_free_list != nullptr) {
        block = static_cast<unsigned char *>(m_free_list);
        m_free_list = ReadLink(block);
    } else if (m_blocks_left != 0) {
        block = reinterpret_cast<unsigned char *>(m_next_block);
        m_next_block += m_aligned_size;
        --m_blocks_left;
    } else {
        block = static_cast<unsigned char *>(AllocFromNewPage());
        if (block == nullptr)
            return nullptr;
    }
    QzUnpoison(block, m_object_size);
    if (QzIsScrubMemory())
        ScrubFreshBlock(block);
    ++m_blocks_allocated;
    return block;
}

// Makes a held or new chunk the current one and returns its first block, or
// null when QzMemory has no chunk or record to give.
void *QzFastArena::AllocFromNewPage()
{
    QzFastArenaPage *page = TakePage();
    if (page == nullptr)
        return nullptr;
    page->next = m_pages;
    if (m_pages == nullptr)
        m_pages_tail = page;
    m_pages = page;
    m_blocks_left = m_page_size / m_aligned_size - 1;
    m_next_block = page->chunk + m_aligned_size;
    return page->chunk;
}

// A held chunk, else a new one: its whole blocks read 0xDD and its tail 0xFD,
// and all of it is poisoned until handed out.
QzFastArenaPage *QzFastArena::TakePage()
{
    if (m_free_pages != nullptr) {
        QzFastArenaPage *page = m_free_pages;
        m_free_pages = page->next;
        return page;
    }
    void *record = QzMemory::Alloc(sizeof(QzFastArenaPage), kChunkAlignment);
    if (record == nullptr)
        return nullptr;
    auto *chunk = static_cast<char *>(QzMemory::Alloc(m_page_size, kChunkAlignment));
    if (chunk == nullptr) {
        QzMemory::Dealloc(record, sizeof(QzFastArenaPage), kChunkAlignment);
        return nullptr;
    }
    unsigned const blocks_bytes = GetBlocksBytes();
    std::memset(chunk, kQzFreeByte, blocks_bytes);
    std::memset(chunk + blocks_bytes, kQzGuardByte, m_page_size - blocks_bytes);
    QzPoison(chunk, m_page_size);
    return new (record) QzFastArenaPage{nullptr, chunk};
}

// The bytes behind the free link must still read 0xDD. A finding is reported
// at the link's end, whatever byte differed, as the region arenas do; the
// block is filled anyway.
void QzFastArena::ScrubFreshBlock(unsigned char *block) const
{
    QzUnpoison(block, m_aligned_size);
    if (QzIsCheckMemory())
        QzVerifyScrubBytes(block, kLinkSize, m_aligned_size, kQzFreeByte,
                           static_cast<int>(kLinkSize));
    std::memset(block, kQzFreshByte, m_object_size);
    std::memset(block + m_object_size, kQzGuardByte, m_aligned_size - m_object_size);
    QzPoison(block + m_object_size, m_aligned_size - m_object_size);
}

// With check on the guard behind the object must be intact; then the whole
// block reads 0xDD again.
void QzFastArena::ScrubReleasedBlock(unsigned char *block) const
{
    QzUnpoison(block, m_aligned_size);
    if (QzIsCheckMemory())
        (void)QzVerifyScrubBytes(block, m_object_size, m_aligned_size, kQzGuardByte);
    std::memset(block, kQzFreeByte, m_aligned_size);
}

void QzFastArena::Dealloc(void *block)
{
    if (block == nullptr)
        return;
    if (QzIsScrubMemory())
        ScrubReleasedBlock(static_cast<unsigned char *>(block));
    QzPoison(block, m_aligned_size);
    WriteLink(block, m_free_list);
    m_free_list = block;
    --m_blocks_allocated;
}

// With check on the chunk's tail must be intact; then every whole block reads
// 0xDD, ready to be held.
void QzFastArena::ScrubPageInUse(QzFastArenaPage *page) const
{
    auto *chunk = reinterpret_cast<unsigned char *>(page->chunk);
    unsigned const blocks_bytes = GetBlocksBytes();
    QzUnpoison(chunk, m_page_size);
    if (QzIsCheckMemory())
        (void)QzVerifyScrubBytes(chunk, blocks_bytes, m_page_size, kQzGuardByte);
    std::memset(chunk, kQzFreeByte, blocks_bytes);
}

void QzFastArena::DeallocAll()
{
    bool const scrub = QzIsScrubMemory();
    // Outside scrub mode (and without a sanitizer) no chunk is visited.
    if (scrub || kPoisonsMemory) {
        for (QzFastArenaPage *page = m_pages; page != nullptr; page = page->next) {
            if (scrub)
                ScrubPageInUse(page);
            QzPoison(page->chunk, m_page_size);
        }
    }
    if (m_pages != nullptr) {
        m_pages_tail->next = m_free_pages;
        m_free_pages = m_pages;
        m_pages = nullptr;
        m_pages_tail = nullptr;
    }
    m_blocks_allocated = 0;
    m_free_list = nullptr;
    m_next_block = nullptr;
    m_blocks_left = 0;
}

void QzFastArena::ReleaseFreePages()
{
    bool const verify = QzIsScrubMemory() && QzIsCheckMemory();
    while (m_free_pages != nullptr) {
        QzFastArenaPage *page = m_free_pages;
        m_free_pages = page->next;
        auto *chunk = reinterpret_cast<unsigned char *>(page->chunk);
        QzUnpoison(chunk, m_page_size);
        if (verify && QzVerifyScrubBytes(chunk, 0, GetBlocksBytes(), kQzFreeByte))
            (void)QzVerifyScrubBytes(chunk, GetBlocksBytes(), m_page_size, kQzGuardByte);
        QzMemory::Dealloc(chunk, m_page_size, kChunkAlignment);
        page->~QzFastArenaPage();
        QzMemory::Dealloc(page, sizeof(QzFastArenaPage), kChunkAlignment);
    }
}

void QzFastArena::Release()
{
    DeallocAll();
    ReleaseFreePages();
}

void QzFastArena::Merge(QzFastArena *other)
{
    if (other == nullptr || other == this)
        return;
    if (other->m_aligned_size != m_aligned_size || other->m_page_size != m_page_size) {
        QzPostMemoryMessage(QzSysError::ePRECONDITION,
                            u"QzFastArena::Merge: stride %d and page size %d differ from %d "
                            u"and %d\n",
                            other->m_aligned_size, other->m_page_size, m_aligned_size, m_page_size);
        return;
    }
    m_blocks_allocated += other->m_blocks_allocated;
    other->m_blocks_allocated = 0;

    if (other->m_free_list != nullptr) {
        if (m_free_list == nullptr) {
            m_free_list = other->m_free_list;
        } else {
            void *last = m_free_list;
            for (void *next = ReadLink(last); next != nullptr; next = ReadLink(last))
                last = next;
            WriteLink(last, other->m_free_list);
        }
        other->m_free_list = nullptr;
    }

    // The other's current chunk keeps its unbumped blocks as free blocks here.
    for (unsigned i = 0; i < other->m_blocks_left; ++i) {
        char *block = other->m_next_block + static_cast<std::size_t>(i) * m_aligned_size;
        WriteLink(block, m_free_list);
        m_free_list = block;
    }
    other->m_next_block = nullptr;
    other->m_blocks_left = 0;

    if (other->m_pages != nullptr) {
        other->m_pages_tail->next = m_pages;
        if (m_pages == nullptr)
            m_pages_tail = other->m_pages_tail;
        m_pages = other->m_pages;
        other->m_pages = nullptr;
        other->m_pages_tail = nullptr;
    }
    if (other->m_free_pages != nullptr) {
        LastPage(other->m_free_pages)->next = m_free_pages;
        m_free_pages = other->m_free_pages;
        other->m_free_pages = nullptr;
    }
}

static unsigned CountPages(QzFastArenaPage const *list)
{
    unsigned count = 0;
    for (; list != nullptr; list = list->next)
        ++count;
    return count;
}

unsigned QzFastArena::GetCommittedPages() const
{
    return CountPages(m_pages) + CountPages(m_free_pages);
}

LtNat64 QzFastArena::GetCommittedMemory() const
{
    return static_cast<LtNat64>(GetCommittedPages()) * m_page_size;
}
