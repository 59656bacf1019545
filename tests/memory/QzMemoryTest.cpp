// QzMemory: the paths by size and their counters, best block sizes, the
// medium build, resizing, regions, the switches, the new-handler, Terminate
// with bytes held, the histogram walk, and the class-level allocation family.

#include "qzutil/memory/QzMemory.h"

#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/memory/QzSysMemory.h"

#include "support/QzTestSupport.h"

namespace {

class QzMemoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzMemory::Initialise();
        m_start = Counters();
    }
    void TearDown() override
    {
        EXPECT_EQ(Counters(), m_start) << "a block leaked";
        QzMemory::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }

    struct Snapshot {
        LtNat64 arena, malloc, region;
        bool operator==(Snapshot const &o) const
        {
            return arena == o.arena && malloc == o.malloc && region == o.region;
        }
    };
    static Snapshot Counters()
    {
        return {QzMemory::GetArenaMemoryAllocated(), QzMemory::GetMallocMemoryAllocated(),
                QzMemory::GetRegionMemoryAllocated()};
    }
    // The worked numbers hold for 64 KiB regions of 4 KiB pages.
    static bool HasReferenceGeometry()
    {
        return QzMemory::GetPageSize() == 4096 && QzMemory::GetRegionSize() == 65536;
    }
    // The paths by size are the ones of the default switches; the suite also
    // runs with TY_FORCE_MALLOC, TY_FORCE_MALLOC_REGION or without medium
    // blocks, where the tests of paths and counters do not apply.
    static bool HasDefaultPaths()
    {
        return !QzMemory::IsForceMalloc() && QzMemory::IsUseMediumBlockAllocator() &&
               std::getenv("TY_FORCE_MALLOC_REGION") == nullptr;
    }
    Snapshot m_start{};
};

}  // namespace

TEST_F(QzMemoryTest, ZeroAndNullRules)
{
    EXPECT_EQ(QzMemory::Alloc(0, 1), nullptr);
    EXPECT_EQ(QzMemory::TryAlloc(0, 8), nullptr);
    QzMemory::Dealloc(nullptr, 0, 1);
    QzMemory::Dealloc(nullptr, 100, 1);
    QzMemory::Free(nullptr);
    void *block = QzMemory::Resize(nullptr, 0, 24, 8);  // a null block allocates
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(QzMemory::Resize(block, 24, 24, 8), block) << "equal sizes keep the block";
    EXPECT_EQ(QzMemory::Resize(block, 24, 0, 8), nullptr) << "size 0 releases";
}

// Each size takes its path and is counted there; release finds the same path.
TEST_F(QzMemoryTest, PathsBySize)
{
    if (!HasReferenceGeometry() || !HasDefaultPaths())
        GTEST_SKIP() << "worked numbers need 4 KiB pages, 64 KiB regions, default switches";
    struct Row {
        char const *name;
        unsigned size;
        LtNat64 arena, malloc_at_least, region;
    } const rows[] = {
        {"small_rounds_to_4", 13, 16, 0, 0},
        {"small_largest", 512, 512, 0, 0},
        {"medium_group_largest", 1000, 1008, 0, 0},
        {"medium_largest", 16256, 16256, 0, 0},
        {"between_classes_heap", 16300, 0, 16300, 0},
        {"large_table_size", 32744, 32744, 0, 0},
        {"not_a_large_size_heap", 32743, 0, 32743, 0},
        {"region_multiple", 131072, 0, 0, 131072},
        {"one_above_region_multiple", 131073, 0, 131073, 0},
        {"eight_mib_region", 8u << 20 | 8, 0, 0, 8u << 20 | 8},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        void *block = QzMemory::Alloc(row.size, 1);
        ASSERT_NE(block, nullptr);
        std::memset(block, 0x5A, row.size);  // all of it is usable
        EXPECT_EQ(QzMemory::GetArenaMemoryAllocated() - m_start.arena, row.arena);
        EXPECT_GE(QzMemory::GetMallocMemoryAllocated() - m_start.malloc, row.malloc_at_least);
        EXPECT_EQ(QzMemory::GetRegionMemoryAllocated() - m_start.region, row.region);
        QzMemory::Dealloc(block, row.size, 1);
        EXPECT_EQ(Counters(), m_start);
    }
}

TEST_F(QzMemoryTest, AlignmentOfSmallBlocks)
{
    if (!HasDefaultPaths())
        GTEST_SKIP() << "arena paths are switched off";
    void *odd = QzMemory::Alloc(12, 4);
    void *even = QzMemory::Alloc(12, 8);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(odd) % 4, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(even) % 8, 0u);
    EXPECT_EQ(QzMemory::GetArenaMemoryAllocated() - m_start.arena, 12u + 16u);
    QzMemory::Dealloc(odd, 12, 4);
    QzMemory::Dealloc(even, 12, 8);
}

TEST_F(QzMemoryTest, BestBlockSizes)
{
    if (!HasReferenceGeometry() || !QzMemory::IsUseMediumBlockAllocator())
        GTEST_SKIP() << "worked numbers need 4 KiB pages, 64 KiB regions, medium blocks";
    unsigned const rows[][2] = {{1, 4},         {4, 4},         {5, 8},         {300, 512},
                                {512, 512},     {513, 1016},    {1016, 1016},   {1017, 2032},
                                {2033, 4064},   {4065, 8128},   {8129, 16256},  {16256, 16256},
                                {16257, 32744}, {32744, 32744}, {32745, 65536}, {65536, 65536},
                                {65537, 131072}};
    for (auto const &row : rows)
        EXPECT_EQ(QzMemory::GetBestBlockSize(row[0]), row[1]) << row[0];
    EXPECT_EQ(QzMemory::GetMaxSmallBlockSize(), 512u);
    EXPECT_EQ(QzMemory::GetMaxMediumBlockSize(), 16256u);
}

// The medium build is computed from the region size: 133 arenas for 64 KiB.
TEST(QzMemoryBuildTest, MediumArenasAndLargeTable)
{
    QzSysError::ClearLogBuffer();
    QzMemory::Initialise();
    bool const reference = QzMemory::GetPageSize() == 4096 && QzMemory::GetRegionSize() == 65536 &&
                           QzMemory::IsUseMediumBlockAllocator();
    std::string const log = ReplayLog();
    if (reference) {
        EXPECT_NE(log.find("QzMemory: \"Created 133 medium block allocators\n\""),
                  std::string::npos)
            << log;
    }
    // The walk: 4 by 4 to 512, the medium object sizes, then the large sizes.
    std::vector<unsigned> walk;
    for (unsigned size = QzMemory::GetHistogramFirstSize(); size != 0;
         size = QzMemory::GetHistogramNextSize(size))
        walk.push_back(size);
    EXPECT_EQ(walk[0], 4u);
    EXPECT_EQ(walk[127], 512u);
    if (reference) {
        EXPECT_EQ(walk[128], 520u);
        EXPECT_EQ(walk.size(), 128u + 133u + 1u) << "small, medium, the one large size";
        EXPECT_EQ(walk.back(), 32744u);
        EXPECT_EQ(QzMemory::GetHistogramRegionSize(4224), 131072u);
        EXPECT_EQ(QzMemory::GetHistogramRegionSize(8448), 262144u);
        EXPECT_EQ(QzMemory::GetHistogramMaxBlockSize(), 32744u);
    }
    QzMemory::Terminate();
}

TEST(QzMemoryBuildTest, WithoutMediumBlocks)
{
    QzMemory::SetUseMediumBlockAllocator(0);
    QzMemory::Initialise();
    if (QzMemory::GetPageSize() == 4096 && QzMemory::GetRegionSize() == 65536) {
        EXPECT_EQ(QzMemory::GetBestBlockSize(513), 1016u) << "of the large table";
        EXPECT_EQ(QzMemory::GetBestBlockSize(1017), 2040u);
        EXPECT_EQ(QzMemory::GetBestBlockSize(2041), 4072u);
        EXPECT_EQ(QzMemory::GetMaxMediumBlockSize(), 512u);
    }
    if (!QzMemory::IsForceMalloc()) {
        void *block = QzMemory::Alloc(1016, 1);
        EXPECT_EQ(QzMemory::GetArenaMemoryAllocated(), 1016u);
        QzMemory::Dealloc(block, 1016, 1);
    }
    QzMemory::Terminate();
    QzMemory::SetUseMediumBlockAllocator(1);
}

// Content moves with a resize between classes and stays within one.
TEST_F(QzMemoryTest, ResizeAndExpand)
{
    auto *text = static_cast<char *>(QzMemory::Alloc(6, 1));
    std::memcpy(text, "hello", 6);
    if (!QzMemory::IsForceMalloc()) {
        EXPECT_EQ(QzMemory::Resize(text, 6, 8, 1), text) << "same small class";
    }
    text = static_cast<char *>(QzMemory::Resize(text, 6, 100000, 1));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "hello");
    char *heap = static_cast<char *>(QzMemory::Resize(text, 100000, 20000, 1));
    EXPECT_STREQ(heap, "hello") << "heap to heap";
    text = static_cast<char *>(QzMemory::Resize(heap, 20000, 3, 1));
    EXPECT_EQ(std::string(text, 3), "hel");
    QzMemory::Dealloc(text, 3, 1);

    unsigned size = 0;
    void *block = QzMemory::Expand(nullptr, &size, 5, 1);
    EXPECT_EQ(size, 8u);
    block = QzMemory::Expand(block, &size, 600, 8);
    EXPECT_EQ(size, QzMemory::GetBestBlockSize(600));
    block = QzMemory::Expand(block, &size, 0, 8);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(size, 0u);
}

TEST_F(QzMemoryTest, RegionsAndExternalCounters)
{
    unsigned const region_size = QzMemory::GetRegionSize();
    void *region = QzMemory::AllocRegion(3 * region_size, QzMemory::eLIFETIME_NORMAL);
    ASSERT_NE(region, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(region) % region_size, 0u);
    std::memset(region, 1, 3 * region_size);
    if (HasDefaultPaths()) {
        EXPECT_EQ(QzMemory::GetRegionMemoryAllocated() - m_start.region, 3u * region_size);
    }
    QzMemory::DeallocRegion(region, 3 * region_size, QzMemory::eLIFETIME_NORMAL);

    QzMemory::ReportExternalAlloc(1000);
    static LtNat64 reported = 500;
    auto callback = [] { return reported; };
    QzMemory::RegisterExternalMemoryAllocatedCB(callback);
    EXPECT_EQ(QzMemory::GetExternalMemoryAllocated(), 1000u);
    EXPECT_EQ(QzMemory::GetMemoryAllocated(), QzMemory::GetDirectMemoryAllocated() + 1500u);
    QzMemory::UnregisterExternalMemoryAllocatedCB(callback);
    QzMemory::ReportExternalDealloc(1000);
    EXPECT_EQ(QzMemory::GetMemoryAllocated(), QzMemory::GetDirectMemoryAllocated());

    EXPECT_EQ(QzMemory::HaveReservedSpareMallocRegion(), 0);
    EXPECT_EQ(QzMemory::ReserveSpareMallocRegion(), 1);
    EXPECT_EQ(QzMemory::ReserveSpareMallocRegion(), 1) << "already held";
    EXPECT_EQ(QzMemory::HaveReservedSpareMallocRegion(), 1);
    EXPECT_EQ(QzMemory::ReleaseSpareMallocRegion(), 1);
    EXPECT_EQ(QzMemory::ReleaseSpareMallocRegion(), 0);
}

// A region-sized block that is not region aligned must carry the offset of
// the heap block standing in for it; anything else is refused, not freed.
TEST_F(QzMemoryTest, StandInForARegionNeedsItsOffset)
{
    if (!HasDefaultPaths())
        GTEST_SKIP() << "the region path is switched off";
    QzPostRecorder::Posts().clear();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eERROR,
                           static_cast<QzComponent *>(nullptr), -1);
    auto *heap = static_cast<unsigned char *>(QzMemory::Malloc(64));
    heap[15] = 3;  // not 8 or 16
    QzMemory::Dealloc(heap + 16, 2 * QzMemory::GetRegionSize(), 1);
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_NE(ToUtf8(QzPostRecorder::Posts()[0].message)
                  .find("not region aligned and has "
                        "invalid offset 3"),
              std::string::npos);
    QzMemory::Free(heap);  // still ours: nothing was freed
    QzSysError::RemoveHandler(QzSysError::eERROR, static_cast<QzComponent *>(nullptr), -1);
}

// Arena counts follow the blocks; the histogram reports them per class.
TEST_F(QzMemoryTest, HistogramCountsBlocks)
{
    if (!HasDefaultPaths())
        GTEST_SKIP() << "arena paths are switched off";
    unsigned const before = QzMemory::GetHistogramNumBlocks(40);
    std::vector<void *> blocks;
    for (int i = 0; i < 1000; ++i)
        blocks.push_back(QzMemory::Alloc(40, 8));
    EXPECT_EQ(QzMemory::GetHistogramNumBlocks(40), before + 1000);
    EXPECT_GE(QzMemory::GetHistogramCommittedMemory(40), 40000u);
    EXPECT_GE(QzMemory::GetHistogramReservedMemory(40), QzMemory::GetHistogramCommittedMemory(40));
    for (void *block : blocks)
        QzMemory::Dealloc(block, 40, 8);
    EXPECT_EQ(QzMemory::GetHistogramNumBlocks(40), before);
    QzMemory::CheckMemory();  // nothing to report: an unhandled eERROR would abort
}

// Small blocks go through per-thread stocks: blocks made on one thread and
// released on another, and stocks left by ended threads, all balance out.
TEST_F(QzMemoryTest, ThreadsMakeAndReleaseAcrossEachOther)
{
    unsigned const before = QzMemory::GetHistogramNumBlocks(64);
    constexpr int kBlocks = 5000;
    std::vector<void *> made_by_first(kBlocks);
    std::vector<void *> made_by_second(kBlocks);
    auto make = [](std::vector<void *> *blocks) {
        for (std::size_t i = 0; i < blocks->size(); ++i) {
            (*blocks)[i] = QzMemory::Alloc(i % 2 == 0 ? 64 : 24, 8);
            std::memset((*blocks)[i], static_cast<int>(i), i % 2 == 0 ? 64 : 24);
        }
    };
    auto release = [](std::vector<void *> *blocks) {
        for (std::size_t i = 0; i < blocks->size(); ++i)
            QzMemory::Dealloc((*blocks)[i], i % 2 == 0 ? 64 : 24, 8);
    };
    std::thread first(make, &made_by_first);
    std::thread second(make, &made_by_second);
    first.join();
    second.join();
    if (HasDefaultPaths()) {
        EXPECT_EQ(QzMemory::GetArenaMemoryAllocated() - m_start.arena,
                  static_cast<LtNat64>(kBlocks) * (64 + 24));
        EXPECT_EQ(QzMemory::GetHistogramNumBlocks(64), before + kBlocks);
    }
    std::thread release_first(release, &made_by_second);  // each frees the other's
    std::thread release_second(release, &made_by_first);
    release_first.join();
    release_second.join();
    EXPECT_EQ(QzMemory::GetHistogramNumBlocks(64), before);
}

// Terminate refuses while bytes are held: it warns, keeps the components
// below, and a later Initialise does not raise their counts again.
TEST_F(QzMemoryTest, TerminateRefusesWhileBytesAreHeld)
{
    QzPostRecorder::Posts().clear();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eWARNING,
                           static_cast<QzComponent *>(nullptr), -1);
    void *held = QzMemory::Alloc(40, 8);
    void *heap = QzMemory::Alloc(20000, 1);
    int const sys_error_count = QzSysError::GetComponent()->GetInitialisationCount();
    QzMemory::Terminate();
    bool const arenas = !QzMemory::IsForceMalloc();
    ASSERT_EQ(QzPostRecorder::Posts().size(), arenas ? 2u : 1u);
    if (arenas) {
        EXPECT_EQ(QzPostRecorder::Posts()[0].message,
                  u"40 arena bytes still allocated at QzMemory::Terminate. Not terminating.");
    }
    EXPECT_NE(QzPostRecorder::Posts().back().message.find(
                  u" malloc bytes still allocated at QzMemory::Terminate. Not terminating."),
              std::u16string::npos);
    EXPECT_EQ(QzMemory::IsInitialised(), 0);
    EXPECT_EQ(QzSysError::GetComponent()->GetInitialisationCount(), sys_error_count);
    void *more = QzMemory::Alloc(8, 1);  // still works
    EXPECT_NE(more, nullptr);
    QzMemory::Initialise();  // re-registers, does not rebuild
    EXPECT_EQ(QzSysError::GetComponent()->GetInitialisationCount(), sys_error_count);
    QzMemory::Dealloc(more, 8, 1);
    QzMemory::Dealloc(held, 40, 8);
    QzMemory::Dealloc(heap, 20000, 1);
    QzSysError::RemoveHandler(QzSysError::eWARNING, static_cast<QzComponent *>(nullptr), -1);
}

namespace {

struct Base : QzDeletable {
    char payload[24];
};

struct Derived : Base {
    char more[1000];
};

}  // namespace

// Delete through the base gives back the derived object's storage.
TEST_F(QzMemoryTest, DeletableReleasesTheMostDerivedSize)
{
    Base *object = new Derived;
    EXPECT_GE(QzMemory::GetDirectMemoryAllocated() - m_start.arena - m_start.malloc -
                  m_start.region,
              sizeof(Derived));
    delete object;
    alignas(Derived) unsigned char place[sizeof(Derived)];
    Derived *placed = new (place) Derived;
    EXPECT_EQ(static_cast<void *>(placed), static_cast<void *>(place));
    placed->~Derived();
}

TEST(QzMemoryDeathTest, BadSizeIsFatalEvenWhenTaken)
{
    DisableCoreDumps();
    EXPECT_EXIT(
        {
            QzMemory::Initialise();
            QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY,
                                   static_cast<QzComponent *>(nullptr), -1);
            QzSysError::SetDebugBreakCB(
                [] { std::fputs(ToUtf8(QzPostRecorder::Posts().back().message).c_str(), stderr); });
            QzMemory::Alloc(0xFFFFFFFFu, 1);
        },
        testing::KilledBySignal(SIGABRT), "QzMemory: Bad size -1\n");
}

#ifndef QZ_SANITIZED_BUILD
// Runs in the child: under an address-space limit the requests fail, and
// stderr shows what the new-handler was asked, in order.
static void ExhaustAddressSpace()
{
    QzMemory::Initialise();
    static std::string asked;
    QzMemory::SetNewHandler([](unsigned size, int try_only) {
        asked += std::to_string(size) + "/" + std::to_string(try_only) + " ";
        return 0;
    });
    struct rlimit limit;
    limit.rlim_cur = limit.rlim_max = 512u << 20;
    setrlimit(RLIMIT_AS, &limit);
    // Both are large enough for a region of their own: the region fails (the
    // handler is asked as for a try), then the heap block that stands in.
    bool const region_null = QzMemory::Alloc(0x40000000u, 1) == nullptr;
    asked += "| ";
    bool const heap_null = QzMemory::TryAlloc(0x40000001u, 1) == nullptr;
    asked += "| ";
    bool threw = false;
    try {
        std::string big(0x40000000u, 'x');
    } catch (std::bad_alloc const &) {
        threw = true;
    }
    std::fprintf(stderr, "%d %d %d %s", region_null, heap_null, threw, asked.c_str());
    std::exit(0);
}

TEST(QzMemoryDeathTest, NewHandlerIsAskedOnFailure)
{
    if (std::getenv("TY_FORCE_MALLOC") != nullptr ||
        std::getenv("TY_FORCE_MALLOC_REGION") != nullptr)
        GTEST_SKIP() << "the region path is switched off";
    EXPECT_EXIT(ExhaustAddressSpace(), testing::ExitedWithCode(0),
                "^1 1 1 1073741824/1 1073741840/0 \\| 1073741825/1 1073741841/1 \\| 0/0 $");
}
#endif
