// QzRawArena and QzArena: page geometry, where blocks come from, commit and
// decommit of pages, release of regions, scrub patterns and their findings,
// and the region checks with their messages.

#include "qzutil/memory/QzRawArena.h"

#include <sys/resource.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"

#include "support/QzTestSupport.h"

namespace {

class QzRawArenaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzMemory::Initialise();
        QzPostRecorder::Posts().clear();
        QzPostRecorder::Answer() = 1;
        QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY, MemoryComponent(), -1);
    }
    void TearDown() override
    {
        QzMemory::SetScrubMemory(0);
        QzMemory::SetCheckMemory(0);
        QzMemory::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
    static QzComponent *MemoryComponent() { return QzSysError::FindComponent("QzMemory"); }
    static bool HasReferenceGeometry()
    {
        return QzMemory::GetPageSize() == 4096 && QzMemory::GetRegionSize() == 65536;
    }
    static std::uintptr_t OffsetInRegion(QzRawArena const &arena, void const *block)
    {
        return reinterpret_cast<std::uintptr_t>(block) -
               reinterpret_cast<std::uintptr_t>(arena.FindRegion(block));
    }
    // The header word at `offset` of a region, for tests that damage it.
    static LtNat32 *HeaderWord(QzMemoryRegion *region, unsigned offset)
    {
        return reinterpret_cast<LtNat32 *>(reinterpret_cast<unsigned char *>(region) + offset);
    }
    static std::u16string LastPost()
    {
        return QzPostRecorder::Posts().empty() ? u"<none>" : QzPostRecorder::Posts().back().message;
    }
};

}  // namespace

// The page is the smallest power of two whose tail wastes at most 1/128.
TEST_F(QzRawArenaTest, PageGeometry)
{
    if (!HasReferenceGeometry())
        GTEST_SKIP() << "worked numbers need 4 KiB pages and 64 KiB regions";
    struct Row {
        unsigned object, alignment, region, aligned, page, blocks;
    } const rows[] = {
        {3, 1, 0, 4, 4096, 1018},
        {16, 8, 0, 16, 4096, 254},
        {48, 8, 0, 48, 8192, 170},
        {64, 8, 0, 64, 8192, 127},
        {21, 8, 0, 24, 8192, 340},
        {520, 8, 0, 520, 65536, 126},
        {4224, 8, 131072, 4224, 131072, 31},
        {8448, 8, 262144, 8448, 262144, 31},
    };
    for (Row const &row : rows) {
        QzRawArena arena(row.object, row.alignment, row.region);
        SCOPED_TRACE(row.object);
        EXPECT_EQ(arena.GetAlignedSize(), row.aligned);
        EXPECT_EQ(arena.GetPageSize(), row.page);
        EXPECT_EQ(arena.GetBlocksPerPage(), row.blocks);
    }
}

// A new page gives its blocks from the top down.
TEST_F(QzRawArenaTest, FirstBlockLiesAtTheTopOfItsPage)
{
    QzRawArena arena(24, 8, 0);
    void *first = arena.Alloc();
    void *second = arena.Alloc();
    std::uintptr_t const top = 24 + (arena.GetBlocksPerPage() - 1) * 24u;
    EXPECT_EQ(OffsetInRegion(arena, first), top);
    EXPECT_EQ(OffsetInRegion(arena, second), top - 24);
    if (HasReferenceGeometry()) {
        EXPECT_EQ(top, 8160u);
    }
    arena.Dealloc(second);
    EXPECT_EQ(arena.Alloc(), second) << "the last block freed is the next given";
    arena.Dealloc(second);
    arena.Dealloc(first);
    EXPECT_EQ(arena.CountRegions(), 0u);
}

// Pages are committed as they are needed and decommitted as they empty;
// page 0 stays until the region empties, and then the region goes at once.
TEST_F(QzRawArenaTest, CommitDecommitAndRelease)
{
    QzRawArena arena(64, 8, 0);
    unsigned const per_page = arena.GetBlocksPerPage();
    unsigned const pages = arena.GetRegionSize() / arena.GetPageSize();
    ASSERT_GT(pages, 2u) << "needs a region of several pages";
    std::vector<void *> page0;
    for (unsigned i = 0; i < per_page; ++i)
        page0.push_back(arena.Alloc());
    EXPECT_EQ(arena.GetCommittedPages(), 1u);
    void *on_page1 = arena.Alloc();
    EXPECT_EQ(OffsetInRegion(arena, on_page1) / arena.GetPageSize(), 1u);
    EXPECT_EQ(arena.GetCommittedPages(), 2u);
    arena.Dealloc(on_page1);
    EXPECT_EQ(arena.GetCommittedPages(), 1u) << "the emptied page is decommitted";
    EXPECT_EQ(arena.GetCommittedMemory(), arena.GetPageSize());
    EXPECT_EQ(arena.GetReservedMemory(), arena.GetRegionSize());
    for (void *block : page0)
        arena.Dealloc(block);
    EXPECT_EQ(arena.CountRegions(), 0u) << "the emptied region is released";
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
}

// A region with no free block moves to the full list, and back on release.
TEST_F(QzRawArenaTest, FullRegionsMoveBetweenLists)
{
    QzRawArena arena(4224, 8, 131072);  // single-page regions of 31 blocks
    std::vector<void *> blocks;
    for (unsigned i = 0; i < arena.GetBlocksPerPage(); ++i)
        blocks.push_back(arena.Alloc());
    EXPECT_EQ(arena.GetFreeRegions(), nullptr);
    EXPECT_NE(arena.GetFullRegions(), nullptr);
    void *next = arena.Alloc();
    EXPECT_EQ(arena.CountRegions(), 2u);
    arena.Dealloc(blocks[0]);
    EXPECT_EQ(arena.GetFullRegions(), nullptr);
    arena.Dealloc(next);
    EXPECT_EQ(arena.CountRegions(), 1u);
    arena.Release();
    EXPECT_EQ(arena.CountRegions(), 0u);
    EXPECT_EQ(arena.GetBlocksAllocated(), 0u);
}

#ifndef QZ_SANITIZED_BUILD
// Scrub fills fresh blocks with 0xCD and guards with 0xFD; check reports a
// damaged guard at release and a damaged free block at allocation. (Under a
// sanitizer these writes are the faults it reports itself.)
TEST_F(QzRawArenaTest, ScrubPatternsAndCheckFindings)
{
    QzMemory::SetScrubMemory(1);
    QzMemory::SetCheckMemory(1);
    QzRawArena arena(21, 8, 0);
    void *keeper = arena.Alloc();  // keeps the page after `block` is released
    auto *block = static_cast<unsigned char *>(arena.Alloc());
    for (unsigned i = 0; i < 24; ++i)
        ASSERT_EQ(block[i], i < 21 ? 0xCD : 0xFD) << i;
    block[22] = 0x41;  // a write past the object
    arena.Dealloc(block);
    char address[32];
    std::snprintf(address, sizeof(address), "%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(block)));
    EXPECT_EQ(ToUtf8(LastPost()), std::string("Memory block at ") + address +
                                      " has value 41 at offset 22, expected fd");
    for (unsigned i = 4; i < 24; ++i)
        ASSERT_EQ(block[i], 0xDD) << "a released block reads 0xDD; byte " << i;

    block[10] = 0x00;  // a write into a free block
    QzPostRecorder::Posts().clear();
    EXPECT_EQ(arena.Alloc(), block);
    EXPECT_EQ(ToUtf8(LastPost()),
              std::string("Memory block at ") + address + " has value 0 at offset 4, expected dd")
        << "the offset is always 4";
    arena.Dealloc(block);
    arena.Dealloc(keeper);
}
#endif

// Each damage of a region's header is found, with its own message.
TEST_F(QzRawArenaTest, RegionChecksFindDamage)
{
    QzRawArena arena(64, 8, 0);
    void *block = arena.Alloc();
    QzMemoryRegion *region = arena.FindRegion(block);
    ASSERT_EQ(arena.CheckRegion(region), 1);
    ASSERT_TRUE(QzPostRecorder::Posts().empty());
    struct Row {
        char const *name;
        unsigned offset;
        LtNat32 value;
        char const *message_start;
    } const rows[] = {
        {"uncommitted_mask", 12, 0x80000000u, "Memory Region "},
        {"free_mask", 8, 0x80000001u, "Memory Region "},
        {"used_count", 20, 100000, "Memory Page "},
        {"free_block_out_of_range", 16, 4, "Free Block "},
        {"free_block_mid_block", 16, 24 + 1, "Free Block "},
    };
    char const *const endings[] = {"has invalid uncommited pages mask 80000000 (at most fe bits "
                                   "can be set)\n",
                                   "has invalid free pages mask 80000001 (at most ff bits can be "
                                   "set)\n",
                                   "has invalid used blocks 100000\n", "is out of range for page",
                                   "points into middle of block\n"};
    for (unsigned i = 0; i < sizeof(rows) / sizeof(rows[0]); ++i) {
        Row const &row = rows[i];
        SCOPED_TRACE(row.name);
        LtNat32 *word = HeaderWord(region, row.offset);
        LtNat32 const kept = *word;
        *word = row.value;
        QzPostRecorder::Posts().clear();
        EXPECT_EQ(arena.CheckRegion(region), 0);
        std::string const message = ToUtf8(LastPost());
        EXPECT_EQ(message.rfind(row.message_start, 0), 0u) << message;
        if (arena.GetPageSize() == 8192) {  // 8 pages a region: the masks above
            EXPECT_NE(message.find(endings[i]), std::string::npos) << message;
        }
        *word = kept;
        EXPECT_EQ(arena.CheckRegion(region), 1);
    }
    arena.Dealloc(block);
}

// With 64 KiB regions a region number always decodes to an aligned region;
// with larger regions an odd number is a bad link.
TEST_F(QzRawArenaTest, RegionCheckFindsBadLinks)
{
    QzRawArena arena(64, 8, 131072);
    void *block = arena.Alloc();
    QzMemoryRegion *region = arena.FindRegion(block);
    LtNat32 const number = static_cast<LtNat32>(reinterpret_cast<std::uintptr_t>(region) >> 16);
    for (unsigned offset : {0u, 4u}) {
        *HeaderWord(region, offset) = number + 1;
        EXPECT_EQ(arena.CheckRegion(region), 0);
        std::string const message = ToUtf8(LastPost());
        EXPECT_NE(
            message.find(offset == 0 ? "has invalid next pointer" : "has invalid prev pointer"),
            std::string::npos)
            << message;
        *HeaderWord(region, offset) = 0;
    }
    EXPECT_EQ(arena.CheckArena(), 1);
    arena.Dealloc(block);
}

// With check on, a block given back to the wrong arena is refused.
TEST_F(QzRawArenaTest, DeallocIntoTheWrongArenaIsRefused)
{
    QzMemory::SetCheckMemory(1);
    QzRawArena owner(32, 8, 0);
    QzRawArena other(32, 8, 0);
    void *block = owner.Alloc();
    void *keep_other_alive = other.Alloc();
    other.Dealloc(block);
    EXPECT_NE(ToUtf8(LastPost()).find("which is not in arena"), std::string::npos);
    EXPECT_EQ(owner.GetBlocksAllocated(), 1u);
    EXPECT_EQ(other.GetBlocksAllocated(), 1u);
    owner.Dealloc(block);
    other.Dealloc(keep_other_alive);
}

#if defined(__SANITIZE_ADDRESS__)
#define QZ_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_TEST_ASAN 1
#endif
#endif

#ifdef QZ_TEST_ASAN
// The sanitizer sees inside arena pages: a freed block and the guard behind
// an object are poisoned.
TEST(QzRawArenaDeathTest, SanitizerSeesUseAfterFreeAndOverflow)
{
    QzMemory::Initialise();
    QzRawArena arena(40, 8, 0);
    void *keeper = arena.Alloc();  // keeps the page mapped after `block` goes
    auto *block = static_cast<unsigned char volatile *>(arena.Alloc());
    arena.Dealloc(const_cast<unsigned char *>(block));
    EXPECT_DEATH({ (void)block[8]; }, "use-after-poison");
    QzRawArena padded(44, 8, 0);
    auto *object = static_cast<unsigned char volatile *>(padded.Alloc());
    EXPECT_DEATH({ object[46] = 1; }, "use-after-poison");
    padded.Dealloc(const_cast<unsigned char *>(object));
    arena.Dealloc(keeper);
    QzMemory::Terminate();
}
#endif
