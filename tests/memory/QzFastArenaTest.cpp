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

#include <gtest/gtest.h>

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

// Every post is recorded, and a test must expect (and clear) each one it
// causes; no chunk or page record may outlive the test.
class QzFastArenaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzMemory::Initialise();
        m_start = QzMemory::GetDirectMemoryAllocated();
        m_recording = std::make_unique<QzPostRecording>();
    }
    void TearDown() override
    {
        EXPECT_EQ(QzPostRecording::Messages(), "") << "unexpected posts";
        m_recording.reset();
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start) << "a chunk or record leaked";
        QzMemory::Terminate();
    }
    LtNat64 m_start = 0;
    std::unique_ptr<QzPostRecording> m_recording;
};

// Scrub and check on from before the allocator's first page, so that every
// page it formats carries the patterns.
class QzFastArenaScrubTest : public QzFastArenaTest {
protected:
    void SetUp() override
    {
        m_was_scrub = QzMemory::IsScrubMemory();
        m_was_check = QzMemory::IsCheckMemory();
        QzMemory::SetScrubMemory(1);
        QzMemory::SetCheckMemory(1);
        QzFastArenaTest::SetUp();
    }
    void TearDown() override
    {
        QzFastArenaTest::TearDown();
        QzMemory::SetScrubMemory(m_was_scrub);
        QzMemory::SetCheckMemory(m_was_check);
    }
    // Expects exactly one post since the last check, an error with this text.
    static void ExpectFinding(void const *block, unsigned value, unsigned offset, unsigned expected)
    {
        char text[128];
        std::snprintf(text, sizeof(text),
                      "Memory block at %llx has value %x at offset %u, expected %x",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(block)),
                      value, offset, expected);
        EXPECT_EQ(QzPostRecording::Messages(), std::string(text) + "|");
        EXPECT_EQ(QzPostRecorder::Posts().at(0).severity, QzSysError::eERROR);
        QzPostRecorder::Posts().clear();
    }
    int m_was_scrub = 0;
    int m_was_check = 0;
};

// GoogleTest runs death suites first; each child runs the set-up again.
class QzFastArenaDeathTest : public QzFastArenaTest {};

}  // namespace

static bool HasReferenceGeometry()
{
    return QzMemory::GetPageSize() == 4096 && QzMemory::GetRegionSize() == 65536 &&
           QzMemory::IsUseMediumBlockAllocator();
}

static unsigned char *Bytes(void *block)
{
    return static_cast<unsigned char *>(block);
}

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
        EXPECT_EQ(arena.GetAlignedSize(), row.stride);
        EXPECT_EQ(arena.GetPageSize(), QzMemory::GetBestBlockSize(row.page_request));
        // Consecutive blocks of a fresh chunk lie one stride apart, aligned.
        auto *first = Bytes(arena.Alloc());
        auto *second = Bytes(arena.Alloc());
        ASSERT_TRUE(first != nullptr && second != nullptr);
        EXPECT_EQ(second - first, static_cast<std::ptrdiff_t>(row.stride));
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
// least one block; Init sets up an arena made without arguments the same way.
TEST_F(QzFastArenaTest, ExplicitPageSizeAndInit)
{
    QzFastArena tiny_page(100, 16, 4);
    EXPECT_EQ(tiny_page.GetPageSize(), QzMemory::GetBestBlockSize(100));
    ASSERT_NE(tiny_page.Alloc(), nullptr);
    ASSERT_NE(tiny_page.Alloc(), nullptr);
    EXPECT_EQ(tiny_page.GetCommittedPages(), 2u) << "one block per chunk";

    QzFastArena later;
    later.Init(20, 1000, 4);
    EXPECT_EQ(later.GetAlignedSize(), 20u);
    EXPECT_EQ(later.GetPageSize(), QzMemory::GetBestBlockSize(1000));
    ASSERT_NE(later.Alloc(), nullptr);
    // Init again gives everything back first; the fixture sees no leak.
    later.Init(3, 2048, 1);
    EXPECT_EQ(later.GetCommittedPages(), 0u);
    EXPECT_EQ(later.GetBlocksAllocated(), 0u);
    EXPECT_EQ(later.GetAlignedSize(), 8u);
}

// Every block of a chunk is handed out, each distinct and usable, before a
// second chunk is taken.
TEST_F(QzFastArenaTest, FillsAChunkBeforeTakingAnother)
{
    QzFastArena arena(12, 4);
    unsigned const per_chunk = arena.GetPageSize() / arena.GetAlignedSize();
    std::set<unsigned char *> blocks;
    for (unsigned i = 0; i < per_chunk; ++i) {
        auto *block = Bytes(arena.Alloc());
        ASSERT_NE(block, nullptr) << i;
        ASSERT_TRUE(blocks.insert(block).second) << "block " << i << " given twice";
        std::memset(block, 0xA5, 12);  // the whole object is writable
    }
    EXPECT_EQ(arena.GetCommittedPages(), 1u);
    LtNat64 const one_chunk = QzMemory::GetDirectMemoryAllocated();
    EXPECT_NE(arena.Alloc(), nullptr);
    EXPECT_EQ(arena.GetCommittedPages(), 2u);
    EXPECT_GT(QzMemory::GetDirectMemoryAllocated(), one_chunk);
    EXPECT_EQ(arena.GetCommittedMemory(), 2ull * arena.GetPageSize());
}

// A freed block is the next one out, last freed first. DeallocAll forgets
// the free list and keeps the chunk: the next Alloc takes the held chunk's
// first block, so QzMemory is not asked; ReleaseFreePages gives it back.
TEST_F(QzFastArenaTest, FreedBlocksThenHeldChunksAreReused)
{
    QzFastArena arena(24, 8);
    void *a = arena.Alloc();
    void *b = arena.Alloc();
    arena.Dealloc(a);
    arena.Dealloc(b);
    arena.Dealloc(nullptr);
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
    EXPECT_EQ(arena.Alloc(), b) << "last given back, first out";
    EXPECT_EQ(arena.Alloc(), a);
    arena.Dealloc(arena.Alloc());
    EXPECT_EQ(arena.GetBlocksAllocated(), 2u);
    LtNat64 const with_chunk = QzMemory::GetDirectMemoryAllocated();

    arena.DeallocAll();
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
    EXPECT_EQ(arena.GetCommittedPages(), 1u);
    EXPECT_EQ(arena.Alloc(), a) << "the held chunk's first block";
    EXPECT_EQ(arena.Alloc(), Bytes(a) + 24) << "the free list was cleared";
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), with_chunk);

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
        EXPECT_EQ(arena->GetCommittedMemory(), 0u);
        EXPECT_EQ(arena->GetBlocksAllocated(), 0u);
    }
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
    arena.Dealloc(arena.Alloc());

    // The other: a held chunk, and a chunk in use with one block given back.
    for (unsigned i = 0; i <= per_chunk; ++i)
        ASSERT_NE(other->Alloc(), nullptr);
    other->DeallocAll();
    for (int i = 0; i < 5; ++i)
        live.insert(other->Alloc());
    other->Dealloc(other->Alloc());
    ASSERT_EQ(other->GetCommittedPages(), 2u);
    for (void *block : live)
        std::memset(block, 0x5A, 16);

    arena.Merge(other.get());
    EXPECT_EQ(other->GetBlocksAllocated(), 0u);
    EXPECT_EQ(other->GetCommittedPages(), 0u);
    other.reset();
    EXPECT_EQ(arena.GetBlocksAllocated(), 8u);
    EXPECT_EQ(arena.GetCommittedPages(), 3u);

    LtNat64 const merged = QzMemory::GetDirectMemoryAllocated();
    std::set<void *> handed_out;
    for (unsigned i = 0; i < 3 * per_chunk - 8; ++i) {
        void *block = arena.Alloc();
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(live.count(block), 0u) << "live block " << block << " handed out again";
        EXPECT_TRUE(handed_out.insert(block).second) << "block " << block << " handed out twice";
    }
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), merged) << "a free block was lost";
    ASSERT_NE(arena.Alloc(), nullptr);
    EXPECT_EQ(arena.GetCommittedPages(), 4u);

    unsigned char expected[16];
    std::memset(expected, 0x5A, sizeof(expected));
    for (void *block : live)
        EXPECT_EQ(std::memcmp(block, expected, sizeof(expected)), 0) << "live block " << block;
}

// Merging into an empty arena, with itself, or with nothing; the rest of the
// other's chunk is served before a new chunk is taken. Arenas of different
// strides are not merged: a precondition failure is posted and nothing moves.
TEST_F(QzFastArenaTest, MergeEdgeCases)
{
    QzFastArena empty(16, 8);
    QzFastArena full(16, 8);
    unsigned const per_chunk = full.GetPageSize() / full.GetAlignedSize();
    auto *block = Bytes(full.Alloc());
    empty.Merge(&full);
    empty.Merge(&empty);
    empty.Merge(nullptr);
    EXPECT_EQ(empty.GetBlocksAllocated(), 1u);
    EXPECT_EQ(empty.GetCommittedPages(), 1u);
    LtNat64 const merged = QzMemory::GetDirectMemoryAllocated();
    for (unsigned i = 1; i < per_chunk; ++i) {
        auto *next = Bytes(empty.Alloc());
        ASSERT_TRUE(next > block && next < block + empty.GetPageSize()) << i;
    }
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), merged);

    QzFastArena wider(24, 8);
    ASSERT_NE(wider.Alloc(), nullptr);
    empty.Merge(&wider);
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_EQ(QzPostRecorder::Posts()[0].severity, QzSysError::ePRECONDITION);
    EXPECT_NE(QzPostRecording::Messages().find("QzFastArena::Merge"), std::string::npos);
    QzPostRecorder::Posts().clear();
    EXPECT_EQ(wider.GetBlocksAllocated(), 1u);
    EXPECT_EQ(empty.GetBlocksAllocated(), per_chunk);
    EXPECT_EQ(empty.GetCommittedPages(), 1u);
}

// A fresh block reads 0xCD over the object and 0xFD behind it; a clean round
// of allocations, releases, DeallocAll and Release posts nothing (the
// fixture checks).
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
    EXPECT_EQ(Bytes(arena.Alloc())[0], 0xCD) << "the link is overwritten by the fresh fill";
    arena.DeallocAll();
    for (int i = 0; i < 10; ++i)
        arena.Dealloc(arena.Alloc());
    arena.Release();
}

#ifndef QZ_SANITIZED_BUILD
// Each finding names the true offset. The guard behind a 20-byte object in a
// 24-byte stride is checked when the block comes back, which fills it afresh
// all the same; a write into a free block, behind its link, is found when the
// block is handed out again; the tail of a chunk behind its last whole block
// is checked by DeallocAll, and a held chunk's blocks by ReleaseFreePages.
TEST_F(QzFastArenaScrubTest, FindingsNameTheTrueOffset)
{
    QzFastArena arena(20, 8);
    auto *chunk = Bytes(arena.Alloc());  // the first block starts the chunk
    chunk[20] = 0x41;
    arena.Dealloc(chunk);
    ExpectFinding(chunk, 0x41, 20, 0xFD);
    chunk[12] = 0x42;
    EXPECT_EQ(arena.Alloc(), chunk);
    ExpectFinding(chunk, 0x42, 8, 0xDD);
    EXPECT_EQ(chunk[12], 0xCD);

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
        if (fail)
            throw std::runtime_error("constructor failed");
        ++s_live;
    }
    ~ArenaObject() { --s_live; }
    int m_value;
    static int s_live;
};
int ArenaObject::s_live = 0;

struct FirstBase {
    virtual ~FirstBase() = default;
    int m_first = 1;
};

struct SecondBase {
    virtual ~SecondBase() = default;
    int m_second = 2;
};

struct TwoBases : FirstBase, SecondBase {
    QZ_DECLARE_ALLOCATORS()
};

}  // namespace

// Places, destroys, and fails to construct one object in an arena; the
// block of a failed constructor goes back to the arena.
template <class Arena>
static void PlaceInArena(char const *name, Arena *arena)
{
    SCOPED_TRACE(name);
    ArenaObject *object = new (arena) ArenaObject(7);
    EXPECT_EQ(arena->GetBlocksAllocated(), 1u);
    EXPECT_EQ(object->m_value, 7);
    EXPECT_EQ(ArenaObject::s_live, 1);
    QzDeleteInArena(object, arena);
    EXPECT_EQ(ArenaObject::s_live, 0);
    EXPECT_EQ(arena->GetBlocksAllocated(), 0u);

    EXPECT_THROW((void)new (arena) ArenaObject(1, true), std::runtime_error);
    EXPECT_EQ(ArenaObject::s_live, 0);
    void *again = arena->Alloc();  // the block given back last is first out
    EXPECT_EQ(again, static_cast<void *>(object));
    arena->Dealloc(again);

    QzDeleteInArena(static_cast<ArenaObject *>(nullptr), arena);
    ArenaObject::operator delete(nullptr, arena);
    EXPECT_EQ(arena->GetBlocksAllocated(), 0u);
}

TEST_F(QzFastArenaTest, ArenaFormsOfOperatorNew)
{
    QzFastArena fast(sizeof(ArenaObject), 8);
    QzArena arena(sizeof(ArenaObject), 8);
    QzRawArena raw(sizeof(ArenaObject), 8, 0);
    PlaceInArena("QzFastArena", &fast);
    PlaceInArena("QzArena", &arena);
    PlaceInArena("QzRawArena", &raw);
    // The plain delete of null does nothing (the fixture sees no post).
    ArenaObject::operator delete(nullptr, sizeof(ArenaObject));
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

#ifndef QZ_SANITIZED_BUILD
// A null from QzMemory, under an address-space limit and with no new-handler,
// is a null from Alloc with the page record released, and std::bad_alloc
// from an arena form of operator new.
TEST_F(QzFastArenaDeathTest, NoMemoryGivesNullAndBadAlloc)
{
    DisableCoreDumps();
    EXPECT_EXIT(
        {
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
