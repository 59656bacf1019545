// Fast arenas: stride and chunk sizes, reuse of blocks and chunks, merging,
// the scrub findings, poisoning under AddressSanitizer, and the arena forms
// of the class-level operator new.

#include "qzutil/memory/QzFastArena.h"

#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/memory/QzRawArena.h"

#include "support/QzTestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
#define QZ_TEST_ADDRESS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_TEST_ADDRESS_SANITIZED 1
#endif
#endif

namespace {

class QzFastArenaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzMemory::Initialise();
        m_start = QzMemory::GetDirectMemoryAllocated();
    }
    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start) << "a chunk or record leaked";
        QzMemory::Terminate();
    }
    LtNat64 m_start = 0;
};

// Scrub and check on from before the allocator's first page, so that every
// page it formats carries the patterns; the allocator's posts are recorded.
class QzFastArenaScrubTest : public QzFastArenaTest {
protected:
    void SetUp() override
    {
        m_was_scrub = QzMemory::IsScrubMemory();
        m_was_check = QzMemory::IsCheckMemory();
        QzMemory::SetScrubMemory(1);
        QzMemory::SetCheckMemory(1);
        QzFastArenaTest::SetUp();
        m_component = QzSysError::FindComponent("QzMemory");
        ASSERT_NE(m_component, nullptr);
        QzPostRecorder::Posts().clear();
        QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY, m_component, -1);
    }
    void TearDown() override
    {
        QzSysError::RemoveHandler(QzSysError::eANY, m_component, -1);
        QzFastArenaTest::TearDown();
        QzMemory::SetScrubMemory(m_was_scrub);
        QzMemory::SetCheckMemory(m_was_check);
    }
    // Expects exactly one post since the last check, with this text.
    static void ExpectFinding(void const *block, unsigned value, unsigned offset, unsigned expected)
    {
        char text[128];
        std::snprintf(text, sizeof(text),
                      "Memory block at %llx has value %x at offset %u, "
                      "expected %x",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(block)),
                      value, offset, expected);
        ASSERT_EQ(QzPostRecorder::Posts().size(), 1u) << "expected: " << text;
        EXPECT_EQ(QzPostRecorder::Posts()[0].severity, QzSysError::eERROR);
        EXPECT_EQ(ToUtf8(QzPostRecorder::Posts()[0].message), text);
        QzPostRecorder::Posts().clear();
    }
    QzComponent *m_component = nullptr;
    int m_was_scrub = 0;
    int m_was_check = 0;
};

// GoogleTest runs death suites first; each child runs the set-up again.
class QzFastArenaDeathTest : public QzFastArenaTest {};

bool HasReferenceGeometry()
{
    return QzMemory::GetPageSize() == 4096 && QzMemory::GetRegionSize() == 65536 &&
           QzMemory::IsUseMediumBlockAllocator();
}

unsigned char *Bytes(void *block)
{
    return static_cast<unsigned char *>(block);
}

}  // namespace

// The stride rounds the object up to the alignment (at least 4) and to at
// least 8 for the free link; the chunk asks for the best size of 256 strides.
TEST_F(QzFastArenaTest, StrideAndChunkSize)
{
    struct Row {
        char const *name;
        unsigned object_size, alignment, stride, page_request;
    };
    Row const rows[] = {
        {"tiny_object_widened_to_link", 3, 1, 8, 2048},
        {"one_byte_eight_aligned", 1, 8, 8, 2048},
        {"link_sized", 8, 4, 8, 2048},
        {"nine_to_four", 9, 1, 12, 3072},
        {"thirteen_two_aligned", 13, 2, 16, 4096},
        {"twenty_four_aligned", 20, 4, 20, 5120},
        {"twenty_eight_aligned", 20, 8, 24, 6144},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzFastArena arena(row.object_size, row.alignment);
        EXPECT_EQ(arena.GetObjectSize(), row.object_size);
        EXPECT_EQ(arena.GetAlignment(), row.alignment);
        EXPECT_EQ(arena.GetAlignedSize(), row.stride);
        EXPECT_EQ(arena.GetPageSize(), QzMemory::GetBestBlockSize(row.page_request));
        // Consecutive blocks of a fresh chunk lie one stride apart, aligned.
        void *first = arena.Alloc();
        void *second = arena.Alloc();
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        EXPECT_EQ(Bytes(second) - Bytes(first), static_cast<std::ptrdiff_t>(row.stride));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % row.alignment, 0u);
        EXPECT_EQ(arena.GetBlocksAllocated(), 2u);
    }
}

// With 4 KiB pages and 64 KiB regions, 5,120 bytes are best served by the
// 4,097 to 8,192 medium range, whose ceiling is 8,128.
TEST_F(QzFastArenaTest, TwentyByteObjectsUseTheMediumCeiling)
{
    if (!HasReferenceGeometry())
        GTEST_SKIP() << "page, region or medium blocks differ from the reference";
    EXPECT_EQ(QzFastArena(20, 4).GetPageSize(), 8128u);
    EXPECT_EQ(QzFastArena(20, 1000, 4).GetPageSize(), 1016u);
}

// The explicit page size is rounded to a best size, and raised to hold at
// least one block; Init on an empty arena sets it up the same way.
TEST_F(QzFastArenaTest, ExplicitPageSizeAndInit)
{
    QzFastArena explicit_page(20, 1000, 4);
    EXPECT_EQ(explicit_page.GetPageSize(), QzMemory::GetBestBlockSize(1000));

    QzFastArena tiny_page(100, 16, 4);
    EXPECT_EQ(tiny_page.GetPageSize(), QzMemory::GetBestBlockSize(100));
    void *only = tiny_page.Alloc();
    void *next = tiny_page.Alloc();
    ASSERT_NE(only, nullptr);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(tiny_page.GetCommittedPages(), 2u) << "one block per chunk";

    QzFastArena later;
    EXPECT_EQ(later.GetAlignedSize(), 0u);
    EXPECT_EQ(later.GetCommittedPages(), 0u);
    later.Init(20, 1000, 4);
    EXPECT_EQ(later.GetAlignedSize(), 20u);
    EXPECT_EQ(later.GetPageSize(), explicit_page.GetPageSize());
    ASSERT_NE(later.Alloc(), nullptr);
    // Init again gives everything back first; the fixture sees no leak.
    later.Init(3, 2048, 1);
    EXPECT_EQ(later.GetCommittedPages(), 0u);
    EXPECT_EQ(later.GetBlocksAllocated(), 0u);
    EXPECT_EQ(later.GetAlignedSize(), 8u);
}

TEST_F(QzFastArenaTest, AllocAfterDeallocGivesTheSameBlock)
{
    QzFastArena arena(24, 8);
    void *a = arena.Alloc();
    void *b = arena.Alloc();
    arena.Dealloc(a);
    arena.Dealloc(b);
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
    EXPECT_EQ(arena.Alloc(), b) << "last given back, first out";
    EXPECT_EQ(arena.Alloc(), a);
    arena.Dealloc(nullptr);
    EXPECT_EQ(arena.GetBlocksAllocated(), 2u);
}

// Every block of a chunk is handed out, each distinct and usable, before a
// second chunk is taken.
TEST_F(QzFastArenaTest, FillsAChunkBeforeTakingAnother)
{
    QzFastArena arena(12, 4);
    unsigned const per_chunk = arena.GetPageSize() / arena.GetAlignedSize();
    std::vector<void *> blocks;
    std::set<void *> seen;
    for (unsigned i = 0; i < per_chunk; ++i) {
        void *block = arena.Alloc();
        ASSERT_NE(block, nullptr) << i;
        ASSERT_TRUE(seen.insert(block).second) << "block " << i << " given twice";
        std::memset(block, static_cast<int>(i & 0xFF), 12);
        blocks.push_back(block);
    }
    EXPECT_EQ(arena.GetCommittedPages(), 1u);
    LtNat64 const one_chunk = QzMemory::GetDirectMemoryAllocated();
    EXPECT_NE(arena.Alloc(), nullptr);
    EXPECT_EQ(arena.GetCommittedPages(), 2u);
    EXPECT_GT(QzMemory::GetDirectMemoryAllocated(), one_chunk);
    EXPECT_EQ(arena.GetCommittedMemory(), 2ull * arena.GetPageSize());
    for (unsigned i = 0; i < per_chunk; ++i) {
        unsigned char expected[12];
        std::memset(expected, static_cast<int>(i & 0xFF), sizeof(expected));
        EXPECT_EQ(std::memcmp(blocks[i], expected, sizeof(expected)), 0) << "block " << i;
    }
}

// DeallocAll keeps the chunks; the next Alloc takes a held one, so QzMemory
// is not asked, and ReleaseFreePages then gives them back.
TEST_F(QzFastArenaTest, DeallocAllReusesAHeldChunk)
{
    QzFastArena arena(24, 8);
    void *first = arena.Alloc();
    ASSERT_NE(arena.Alloc(), nullptr);
    arena.Dealloc(arena.Alloc());
    LtNat64 const with_chunk = QzMemory::GetDirectMemoryAllocated();

    arena.DeallocAll();
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
    EXPECT_EQ(arena.GetCommittedPages(), 1u);
    EXPECT_EQ(arena.Alloc(), first) << "the held chunk's first block";
    EXPECT_EQ(arena.Alloc(), Bytes(first) + 24) << "the free list was cleared";
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), with_chunk);
    EXPECT_EQ(arena.GetBlocksAllocated(), 2u);

    arena.DeallocAll();
    arena.ReleaseFreePages();
    EXPECT_EQ(arena.GetCommittedPages(), 0u);
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start);
}

TEST_F(QzFastArenaTest, ReleaseOnAnEmptyArenaDoesNothing)
{
    QzFastArena unset;
    QzFastArena sized(40, 8);
    for (QzFastArena *arena : {&unset, &sized}) {
        arena->Release();
        arena->Release();
        arena->DeallocAll();
        arena->ReleaseFreePages();
        EXPECT_EQ(arena->GetCommittedPages(), 0u);
        EXPECT_EQ(arena->GetCommittedMemory(), 0u);
        EXPECT_EQ(arena->GetBlocksAllocated(), 0u);
        EXPECT_EQ(arena->CheckArena(), 1);
    }
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start);
}

// After a merge the other arena is empty and can go; the live blocks keep
// their content, and every free block of both (free lists, unbumped blocks,
// held chunks) is handed out before a new chunk is asked for.
TEST_F(QzFastArenaTest, MergeTakesOverEverything)
{
    QzFastArena arena(16, 8);
    auto other = std::make_unique<QzFastArena>(16, 8);
    unsigned const per_chunk = arena.GetPageSize() / arena.GetAlignedSize();

    std::set<void *> live;
    for (int i = 0; i < 3; ++i)
        live.insert(arena.Alloc());
    void *freed_here = arena.Alloc();
    arena.Dealloc(freed_here);

    // The other: a held chunk, and a chunk in use with one block given back.
    for (unsigned i = 0; i <= per_chunk; ++i)
        ASSERT_NE(other->Alloc(), nullptr);
    other->DeallocAll();
    for (int i = 0; i < 5; ++i)
        live.insert(other->Alloc());
    other->Dealloc(other->Alloc());
    ASSERT_EQ(other->GetCommittedPages(), 2u);

    unsigned index = 0;
    for (void *block : live)
        std::memset(block, 0x10 + static_cast<int>(index++), 16);

    arena.Merge(other.get());
    EXPECT_EQ(other->GetBlocksAllocated(), 0u);
    EXPECT_EQ(other->GetCommittedPages(), 0u);
    other.reset();
    EXPECT_EQ(arena.GetBlocksAllocated(), 8u);
    EXPECT_EQ(arena.GetCommittedPages(), 3u);

    LtNat64 const merged = QzMemory::GetDirectMemoryAllocated();
    unsigned const capacity = 3 * per_chunk - 8;
    std::set<void *> handed_out;
    for (unsigned i = 0; i < capacity; ++i) {
        void *block = arena.Alloc();
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(live.count(block), 0u) << "live block " << block << " handed out again";
        EXPECT_TRUE(handed_out.insert(block).second) << "block " << block << " handed out twice";
    }
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), merged) << "a free block was lost";
    EXPECT_EQ(arena.GetCommittedPages(), 3u);
    ASSERT_NE(arena.Alloc(), nullptr);
    EXPECT_EQ(arena.GetCommittedPages(), 4u);

    index = 0;
    for (void *block : live) {
        unsigned char expected[16];
        std::memset(expected, 0x10 + static_cast<int>(index), sizeof(expected));
        EXPECT_EQ(std::memcmp(block, expected, sizeof(expected)), 0) << "live block " << index;
        ++index;
    }
}

// Merging into an empty arena, with itself, or with nothing.
TEST_F(QzFastArenaTest, MergeEdgeCases)
{
    QzFastArena empty(16, 8);
    QzFastArena full(16, 8);
    unsigned const per_chunk = full.GetPageSize() / full.GetAlignedSize();
    auto *block = Bytes(full.Alloc());
    std::memset(block, 0x5A, 16);
    empty.Merge(&full);
    empty.Merge(&empty);
    empty.Merge(nullptr);
    EXPECT_EQ(empty.GetBlocksAllocated(), 1u);
    EXPECT_EQ(empty.GetCommittedPages(), 1u);
    EXPECT_EQ(block[15], 0x5A);
    // The rest of the other's chunk is served before a new chunk is taken.
    LtNat64 const merged = QzMemory::GetDirectMemoryAllocated();
    for (unsigned i = 1; i < per_chunk; ++i) {
        auto *next = Bytes(empty.Alloc());
        ASSERT_GT(next, block) << i;
        ASSERT_LT(next, block + empty.GetPageSize()) << i;
    }
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), merged);
}

// Arenas of different strides cannot be merged: a precondition failure is
// posted and nothing moves.
TEST_F(QzFastArenaTest, MergeRefusesADifferentStride)
{
    QzFastArena arena(16, 8);
    QzFastArena other(24, 8);
    ASSERT_NE(other.Alloc(), nullptr);
    QzPostRecorder::Posts().clear();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::ePRECONDITION,
                           static_cast<QzComponent *>(nullptr), -1);
    arena.Merge(&other);
    QzSysError::RemoveHandler(QzSysError::ePRECONDITION, static_cast<QzComponent *>(nullptr), -1);
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_NE(QzPostRecorder::Posts()[0].message.find(u"QzFastArena::Merge"), std::u16string::npos);
    EXPECT_EQ(other.GetBlocksAllocated(), 1u);
    EXPECT_EQ(arena.GetCommittedPages(), 0u);
}

// A fresh block reads 0xCD over the object and 0xFD behind it; a clean round
// of allocations, releases, DeallocAll and Release posts nothing.
TEST_F(QzFastArenaScrubTest, PatternsAndASilentCleanCycle)
{
    QzFastArena arena(20, 8);
    auto *block = Bytes(arena.Alloc());
    for (unsigned i = 0; i < 20; ++i)
        ASSERT_EQ(block[i], 0xCD) << i;
#ifndef QZ_SANITIZED_BUILD
    for (unsigned i = 20; i < 24; ++i)
        EXPECT_EQ(block[i], 0xFD) << i;
#endif
    for (int i = 0; i < 50; ++i)
        arena.Alloc();
    arena.Dealloc(block);
    block = Bytes(arena.Alloc());
    EXPECT_EQ(block[0], 0xCD) << "the link is overwritten by the fresh fill";
    arena.DeallocAll();
    for (int i = 0; i < 10; ++i)
        arena.Dealloc(arena.Alloc());
    arena.Release();
    EXPECT_TRUE(QzPostRecorder::Posts().empty()) << ToUtf8(QzPostRecorder::Posts().front().message);
}

#ifndef QZ_SANITIZED_BUILD
// The guard behind a 20-byte object in a 24-byte stride is checked when the
// block comes back; the finding names the true offset, and the block is
// filled afresh all the same.
TEST_F(QzFastArenaScrubTest, GuardOverwriteIsReportedAtDealloc)
{
    QzFastArena arena(20, 8);
    auto *block = Bytes(arena.Alloc());
    block[20] = 0x41;
    arena.Dealloc(block);
    ExpectFinding(block, 0x41, 20, 0xFD);
    EXPECT_EQ(arena.Alloc(), block);
    EXPECT_TRUE(QzPostRecorder::Posts().empty()) << "the release refilled the block";
}

// A write into a free block, behind its link, is found when the block is
// handed out again; the finding is reported at the end of the link.
TEST_F(QzFastArenaScrubTest, WriteAfterFreeIsReportedAtAlloc)
{
    QzFastArena arena(20, 8);
    auto *block = Bytes(arena.Alloc());
    arena.Dealloc(block);
    block[12] = 0x42;
    EXPECT_EQ(arena.Alloc(), block);
    ExpectFinding(block, 0x42, 8, 0xDD);
    EXPECT_EQ(block[12], 0xCD);
}

// The tail of a chunk behind its last whole block is checked by DeallocAll,
// and a held chunk's blocks by ReleaseFreePages, each at its true offset.
TEST_F(QzFastArenaScrubTest, ChunkDamageIsReportedAtDeallocAllAndRelease)
{
    QzFastArena arena(20, 8);
    auto *chunk = Bytes(arena.Alloc());  // the first block starts the chunk
    unsigned const blocks_bytes = arena.GetPageSize() / 24 * 24;
    if (blocks_bytes == arena.GetPageSize())
        GTEST_SKIP() << "the chunk has no tail";
    chunk[blocks_bytes + 1] = 0x43;
    arena.DeallocAll();
    ExpectFinding(chunk, 0x43, blocks_bytes + 1, 0xFD);

    chunk[30] = 0x44;
    arena.ReleaseFreePages();
    ExpectFinding(chunk, 0x44, 30, 0xDD);
}
#endif

#if defined(QZ_SANITIZED_BUILD) && defined(QZ_TEST_ADDRESS_SANITIZED)
// A read of a block given back to a fast arena is caught: free blocks are
// poisoned, as are held chunks.
TEST_F(QzFastArenaDeathTest, UseAfterFreeIsReportedBySanitizer)
{
    QzFastArena arena(24, 8);
    auto *block = static_cast<unsigned char volatile *>(arena.Alloc());
    block[12] = 1;
    arena.Dealloc(const_cast<unsigned char *>(block));
    EXPECT_DEATH((void)block[12], "use-after-poison");
    auto *held = static_cast<unsigned char volatile *>(arena.Alloc());
    arena.DeallocAll();
    EXPECT_DEATH((void)held[20], "use-after-poison");
}
#endif

namespace {

// Counts live objects, and throws from its constructor when asked.
class ArenaObject {
public:
    QZ_DECLARE_ALLOCATORS()
    explicit ArenaObject(int value, bool fail = false) : m_value(value)
    {
        s_last_constructed = this;
        if (fail)
            throw std::runtime_error("constructor failed");
        ++s_live;
    }
    ~ArenaObject() { --s_live; }
    int m_value;
    static int s_live;
    static void *s_last_constructed;
};
int ArenaObject::s_live = 0;
void *ArenaObject::s_last_constructed = nullptr;

// Places, destroys, and fails to construct one object in an arena.
template <class Arena>
void PlaceInArena(char const *name, Arena *arena)
{
    SCOPED_TRACE(name);
    unsigned const before = arena->GetBlocksAllocated();
    ArenaObject *object = new (arena) ArenaObject(7);
    EXPECT_EQ(arena->GetBlocksAllocated(), before + 1);
    EXPECT_EQ(object->m_value, 7);
    EXPECT_EQ(ArenaObject::s_live, 1);
    QzDeleteInArena(object, arena);
    EXPECT_EQ(ArenaObject::s_live, 0);
    EXPECT_EQ(arena->GetBlocksAllocated(), before);

    // The placement delete gives the block back when the constructor throws.
    EXPECT_THROW((void)new (arena) ArenaObject(1, true), std::runtime_error);
    EXPECT_EQ(arena->GetBlocksAllocated(), before);
    EXPECT_EQ(ArenaObject::s_live, 0);

    QzDeleteInArena(static_cast<ArenaObject *>(nullptr), arena);
    ArenaObject::operator delete(nullptr, arena);
    EXPECT_EQ(arena->GetBlocksAllocated(), before);
}

class FirstBase {
public:
    virtual ~FirstBase() = default;
    int m_first = 1;
};

class SecondBase {
public:
    virtual ~SecondBase() = default;
    int m_second = 2;
};

class TwoBases : public FirstBase, public SecondBase {
public:
    QZ_DECLARE_ALLOCATORS()
};

}  // namespace

TEST_F(QzFastArenaTest, ArenaFormsOfOperatorNew)
{
    QzFastArena fast(sizeof(ArenaObject), 8);
    QzArena arena(sizeof(ArenaObject), 8);
    QzRawArena raw(sizeof(ArenaObject), 8, 0);
    PlaceInArena("QzFastArena", &fast);
    PlaceInArena("QzArena", &arena);
    PlaceInArena("QzRawArena", &raw);
    // The block of a failed constructor is back on the free list, first out.
    ArenaObject *kept = new (&fast) ArenaObject(2);
    EXPECT_THROW((void)new (&fast) ArenaObject(1, true), std::runtime_error);
    void *failed = ArenaObject::s_last_constructed;
    EXPECT_NE(failed, static_cast<void *>(kept));
    EXPECT_EQ(fast.Alloc(), failed);
    QzDeleteInArena(kept, &fast);
}

// Through a pointer to a second base, the block is still found from the most
// derived object.
TEST_F(QzFastArenaTest, DeleteInArenaThroughASecondBase)
{
    QzFastArena arena(sizeof(TwoBases), 8);
    auto *object = new (&arena) TwoBases;
    SecondBase *second = object;
    ASSERT_NE(static_cast<void *>(second), static_cast<void *>(object));
    QzDeleteInArena(second, &arena);
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
    EXPECT_EQ(arena.Alloc(), static_cast<void *>(object));
}

// The plain forms: operator delete of null does nothing, placement uses the
// given storage.
TEST_F(QzFastArenaTest, PlainAndPlacementForms)
{
    ArenaObject::operator delete(nullptr, sizeof(ArenaObject));
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start);

    ArenaObject *object = new ArenaObject(3);
    EXPECT_GT(QzMemory::GetDirectMemoryAllocated(), m_start);
    delete object;
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start);

    alignas(ArenaObject) unsigned char storage[sizeof(ArenaObject)];
    object = new (static_cast<void *>(storage)) ArenaObject(4);
    EXPECT_EQ(static_cast<void *>(object), static_cast<void *>(storage));
    object->~ArenaObject();
    EXPECT_EQ(ArenaObject::s_live, 0);
}

#ifndef QZ_SANITIZED_BUILD
// A null from QzMemory, under an address-space limit and with no new-handler,
// is a null from Alloc with the page record released, and std::bad_alloc
// from an arena form of operator new.
TEST_F(QzFastArenaDeathTest, NoMemoryGivesNullAndBadAlloc)
{
    DisableCoreDumps();
    EXPECT_EXIT(
        {
            QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY,
                                   static_cast<QzComponent *>(nullptr), -1);
            struct rlimit limit;
            limit.rlim_cur = limit.rlim_max = 512u << 20;
            setrlimit(RLIMIT_AS, &limit);
            QzFastArena arena(16, 0x40000000u, 8);  // 1 GiB chunks
            LtNat64 const before = QzMemory::GetDirectMemoryAllocated();
            bool const null = arena.Alloc() == nullptr;
            bool const released = QzMemory::GetDirectMemoryAllocated() == before;
            bool threw = false;
            try {
                (void)new (&arena) ArenaObject(1);
            } catch (std::bad_alloc const &) {
                threw = true;
            }
            std::fprintf(stderr, "null %d released %d threw %d pages %u\n", null, released, threw,
                         arena.GetCommittedPages());
            std::exit(0);
        },
        testing::ExitedWithCode(0), "null 1 released 1 threw 1 pages 0");
}
#endif
