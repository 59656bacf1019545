// Virtual memory under the allocator: alignment and accounting of
// reservations, commit and decommit as the kernel's mapping table shows them,
// the cache of released regions, the ignored region restriction, and the
// failure paths under an address-space limit.

#include "qzutil/memory/QzSysMemory.h"

#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzSysError.h"

#include "support/QzTestSupport.h"

namespace {

constexpr unsigned kKiB = 1024;
constexpr unsigned kMiB = 1024 * kKiB;

// One line of /proc/self/maps: [start, end) and the first three permission
// letters ("---", "rw-", ...).
struct Mapping {
    std::uintptr_t start;
    std::uintptr_t end;
    std::string access;
};

std::vector<Mapping> ReadMappings()
{
    std::vector<Mapping> mappings;
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        std::istringstream fields(line);
        std::string range;
        std::string perms;
        fields >> range >> perms;
        std::size_t dash = range.find('-');
        mappings.push_back({std::stoull(range.substr(0, dash), nullptr, 16),
                            std::stoull(range.substr(dash + 1), nullptr, 16), perms.substr(0, 3)});
    }
    return mappings;
}

std::uintptr_t AddressOf(void const *address)
{
    return reinterpret_cast<std::uintptr_t>(address);
}

// True if every byte of [address, address + size) is mapped with `access`.
bool IsMappedAs(void const *address, std::size_t size, char const *access)
{
    std::uintptr_t cursor = AddressOf(address);
    std::uintptr_t const end = cursor + size;
    for (Mapping const &mapping : ReadMappings()) {
        if (mapping.end <= cursor)
            continue;
        if (mapping.start > cursor || mapping.access != access)  // a gap, or other access
            return false;
        cursor = mapping.end;
        if (cursor >= end)
            return true;
    }
    return false;
}

// True if no byte of [address, address + size) is mapped.
bool IsUnmapped(void const *address, std::size_t size)
{
    std::uintptr_t const start = AddressOf(address);
    for (Mapping const &mapping : ReadMappings()) {
        if (mapping.start < start + size && mapping.end > start)
            return false;
    }
    return true;
}

// How often `text` occurs in the log.
int CountInLog(std::string const &text)
{
    std::string const log = ReplayLog();
    int count = 0;
    for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
        ++count;
    return count;
}

// True if all `size` bytes at `memory` are `value`.
bool AllBytesAre(void const *memory, std::size_t size, unsigned char value)
{
    auto const *bytes = static_cast<unsigned char const *>(memory);
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != value)
            return false;
    }
    return true;
}

class QzSysMemoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzSysMemory::Initialise();
        m_reserved_at_start = QzSysMemory::GetReservedBytes();
        m_region = QzSysMemory::GetRegionSize();
        m_page = QzSysMemory::GetPageSize();
    }
    void TearDown() override
    {
        EXPECT_EQ(QzSysMemory::GetReservedBytes(), m_reserved_at_start) << "a reservation leaked";
        QzSysMemory::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
    // The worked sizes assume 4 KiB pages and 64 KiB regions.
    bool HasWorkedSizes() const { return m_page == 4 * kKiB && m_region == 64 * kKiB; }

    LtNat64 m_reserved_at_start = 0;
    unsigned m_region = 0;
    unsigned m_page = 0;
};

}  // namespace

// Every reservation starts on a region boundary, is counted in whole pages,
// is inaccessible, and is gone from the mapping table once released.
TEST_F(QzSysMemoryTest, ReserveAlignsToTheRegionAndCountsWholePages)
{
    if (!HasWorkedSizes())
        GTEST_SKIP() << "needs 4 KiB pages and 64 KiB regions";
    struct Case {
        char const *name;
        unsigned size;
        QzSysMemory::Lifetime lifetime;
        LtNat64 counted;
    };
    Case const cases[] = {
        {"one_byte", 1, QzSysMemory::eLIFETIME_NORMAL, 4096},
        {"one_page", 4096, QzSysMemory::eLIFETIME_NORMAL, 4096},
        {"page_and_a_byte", 4097, QzSysMemory::eLIFETIME_TOP_DOWN, 8192},
        {"region_and_a_page", 69632, QzSysMemory::eLIFETIME_NORMAL, 69632},
        {"three_regions_top_down", 196608, QzSysMemory::eLIFETIME_TOP_DOWN, 196608},
        {"nine_mib_and_a_byte", 9 * kMiB + 1, QzSysMemory::eLIFETIME_NORMAL, 9441280},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        void *block = QzSysMemory::Reserve(c.size, c.lifetime);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(AddressOf(block) % 65536, 0u);
        EXPECT_EQ(QzSysMemory::GetReservedBytes() - m_reserved_at_start, c.counted);
        EXPECT_TRUE(IsMappedAs(block, c.counted, "---")) << "reserved, not committed";
        QzSysMemory::Release(block, c.size);
        EXPECT_EQ(QzSysMemory::GetReservedBytes(), m_reserved_at_start);
        EXPECT_TRUE(IsUnmapped(block, c.counted));
    }
}

TEST_F(QzSysMemoryTest, ReserveOfNothingFailsAndLogs)
{
    int const logged = CountInLog("QzSysMemory::Reserve: Failed to reserve size 0\n");
    EXPECT_EQ(QzSysMemory::Reserve(0, QzSysMemory::eLIFETIME_NORMAL), nullptr);
    EXPECT_EQ(CountInLog("QzSysMemory::Reserve: Failed to reserve size 0\n"), logged + 1);
}

// Power-of-two sizes from one region to 8 MiB, held at the same time: each
// is aligned to its own size and mapped over its whole length.
TEST_F(QzSysMemoryTest, ReserveAlignedAlignsToItsOwnSize)
{
    std::vector<void *> blocks;
    LtNat64 expected = 0;
    for (unsigned size = m_region; size <= 8 * kMiB; size *= 2) {
        void *block = QzSysMemory::ReserveAligned(size, QzSysMemory::eLIFETIME_NORMAL);
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(AddressOf(block) % size, 0u) << size;
        EXPECT_TRUE(IsMappedAs(block, size, "---")) << size;
        expected += size;
        blocks.push_back(block);
    }
    EXPECT_EQ(QzSysMemory::GetReservedBytes() - m_reserved_at_start, expected);
    unsigned size = m_region;
    for (void *block : blocks) {
        QzSysMemory::Release(block, size);
        if (size != m_region) {  // the region itself goes to the cache
            EXPECT_TRUE(IsUnmapped(block, size)) << size;
        }
        size *= 2;
    }
}

// Commit works page by page: only the committed page becomes writable, it
// reads zero, and what is written there stays.
TEST_F(QzSysMemoryTest, CommitMakesOnlyItsPagesWritableAndZeroed)
{
    auto *block = static_cast<unsigned char *>(
        QzSysMemory::Reserve(4 * m_region, QzSysMemory::eLIFETIME_NORMAL));
    ASSERT_NE(block, nullptr);
    unsigned char *second_page = block + m_page;
    ASSERT_EQ(QzSysMemory::Commit(second_page, m_page), 1);
    EXPECT_TRUE(IsMappedAs(block, m_page, "---"));
    EXPECT_TRUE(IsMappedAs(second_page, m_page, "rw-"));
    EXPECT_TRUE(IsMappedAs(second_page + m_page, 4 * m_region - 2 * m_page, "---"));
    EXPECT_TRUE(AllBytesAre(second_page, m_page, 0));
    for (unsigned i = 0; i < m_page; ++i)
        second_page[i] = static_cast<unsigned char>(i * 7 + 1);
    ASSERT_EQ(QzSysMemory::Commit(block, 4 * m_region), 1);
    EXPECT_TRUE(AllBytesAre(block, m_page, 0));
    EXPECT_TRUE(AllBytesAre(second_page + m_page, 4 * m_region - 2 * m_page, 0));
    for (unsigned i = 0; i < m_page; ++i)
        ASSERT_EQ(second_page[i], static_cast<unsigned char>(i * 7 + 1)) << "byte " << i;
    QzSysMemory::Release(block, 4 * m_region);
}

// A decommitted page loses its content and its access; committed again it
// reads zero, not the old pattern.
TEST_F(QzSysMemoryTest, DecommitThenCommitReadsZero)
{
    auto *block = static_cast<unsigned char *>(
        QzSysMemory::Reserve(2 * m_region, QzSysMemory::eLIFETIME_NORMAL));
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(QzSysMemory::Commit(block, 2 * m_region), 1);
    std::memset(block, 0xA5, 2 * m_region);
    ASSERT_EQ(QzSysMemory::Decommit(block + m_region, m_region), 1);
    EXPECT_TRUE(IsMappedAs(block, m_region, "rw-"));
    EXPECT_TRUE(IsMappedAs(block + m_region, m_region, "---"));
    ASSERT_EQ(QzSysMemory::Commit(block + m_region, m_region), 1);
    EXPECT_TRUE(AllBytesAre(block + m_region, m_region, 0));
    EXPECT_TRUE(AllBytesAre(block, m_region, 0xA5)) << "the first region was not decommitted";
    QzSysMemory::Release(block, 2 * m_region);
}

TEST_F(QzSysMemoryTest, CommitAndDecommitRefuseWhatIsNotReserved)
{
    auto *block = static_cast<unsigned char *>(
        QzSysMemory::Reserve(2 * m_region, QzSysMemory::eLIFETIME_NORMAL));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(QzSysMemory::Commit(block + 1, m_page), 0) << "not page aligned";
    QzSysMemory::Release(block, 2 * m_region);
    EXPECT_EQ(QzSysMemory::Commit(block, m_page), 0) << "released";
    EXPECT_EQ(QzSysMemory::Decommit(block, m_page), 0) << "released";
}

TEST_F(QzSysMemoryTest, ReleaseOfNullDoesNothing)
{
    QzSysMemory::Release(nullptr, m_region);
    QzSysMemory::Release(nullptr, 0);
    EXPECT_EQ(QzSysMemory::GetReservedBytes(), m_reserved_at_start);
}

// A released region stays reserved but decommitted, stops counting, and is
// what the next region-sized Reserve or ReserveAligned returns, reading zero
// once committed.
TEST_F(QzSysMemoryTest, ReleasedRegionComesBackFromTheCache)
{
    auto *region =
        static_cast<unsigned char *>(QzSysMemory::Reserve(m_region, QzSysMemory::eLIFETIME_NORMAL));
    ASSERT_NE(region, nullptr);
    ASSERT_EQ(QzSysMemory::Commit(region, m_region), 1);
    std::memset(region, 0x5A, m_region);
    QzSysMemory::Release(region, m_region);
    EXPECT_EQ(QzSysMemory::GetReservedBytes(), m_reserved_at_start);
    EXPECT_TRUE(IsMappedAs(region, m_region, "---"));

    EXPECT_EQ(QzSysMemory::Reserve(m_region, QzSysMemory::eLIFETIME_TOP_DOWN), region);
    EXPECT_EQ(QzSysMemory::GetReservedBytes() - m_reserved_at_start, m_region);
    ASSERT_EQ(QzSysMemory::Commit(region, m_region), 1);
    EXPECT_TRUE(AllBytesAre(region, m_region, 0)) << "a cached region must come back empty";
    QzSysMemory::Release(region, m_region);

    EXPECT_EQ(QzSysMemory::ReserveAligned(m_region, QzSysMemory::eLIFETIME_NORMAL), region);
    QzSysMemory::Release(region, m_region);
}

// Of 70 released regions the first 64 are kept, the rest unmapped; the kept
// ones come back last released, first reserved.
TEST_F(QzSysMemoryTest, CacheKeepsAtMost64Regions)
{
    constexpr std::size_t kReleased = 70;
    constexpr std::size_t kKept = 64;
    std::vector<void *> regions;
    for (std::size_t i = 0; i < kReleased; ++i) {
        regions.push_back(QzSysMemory::Reserve(m_region, QzSysMemory::eLIFETIME_NORMAL));
        ASSERT_NE(regions.back(), nullptr) << i;
    }
    for (void *region : regions)
        QzSysMemory::Release(region, m_region);
    for (std::size_t i = 0; i < kReleased; ++i) {
        if (i < kKept)
            EXPECT_TRUE(IsMappedAs(regions[i], m_region, "---")) << "kept " << i;
        else
            EXPECT_TRUE(IsUnmapped(regions[i], m_region)) << "over the limit " << i;
    }
    std::vector<void *> again;
    for (std::size_t i = 0; i < kKept; ++i)
        again.push_back(QzSysMemory::Reserve(m_region, QzSysMemory::eLIFETIME_NORMAL));
    for (std::size_t i = 0; i < kKept; ++i) {
        EXPECT_EQ(again[i], regions[kKept - 1 - i]) << i;
        QzSysMemory::Release(again[i], m_region);
    }
}

TEST_F(QzSysMemoryTest, TerminateUnmapsTheCache)
{
    void *region = QzSysMemory::Reserve(m_region, QzSysMemory::eLIFETIME_NORMAL);
    ASSERT_NE(region, nullptr);
    QzSysMemory::Release(region, m_region);
    ASSERT_TRUE(IsMappedAs(region, m_region, "---"));
    QzSysMemory::Terminate();
    EXPECT_TRUE(IsUnmapped(region, m_region));
    QzSysMemory::Initialise();  // for the fixture's balance
}

// The restriction is only reported, once per start of the component.
TEST_F(QzSysMemoryTest, RestrictMaxRegionSizeLogsOnceAndReservesNothing)
{
    std::string const line =
        "QzSysMemory::RestrictMaxRegionSize: ignored on a 64-bit address space\n";
    int const logged = CountInLog(line);
    QzSysMemory::RestrictMaxRegionSize(1 * kMiB);
    QzSysMemory::RestrictMaxRegionSize(256 * kMiB);
    QzSysMemory::ResetMaxRegionSize();
    QzSysMemory::RestrictMaxRegionSize(m_region);
    EXPECT_EQ(CountInLog(line), logged + 1);
    EXPECT_EQ(QzSysMemory::GetReservedBytes(), m_reserved_at_start);

    QzSysMemory::Terminate();
    QzSysMemory::Initialise();
    QzSysMemory::RestrictMaxRegionSize(1 * kMiB);
    EXPECT_EQ(CountInLog(line), logged + 2) << "a new start reports again";
}

// 39 bits (3-level tables on arm64) to 57 (5-level tables on x86-64); the
// stack and a fresh reservation lie below the top.
TEST_F(QzSysMemoryTest, AddressSpaceBitsCoverTheStackAndReservations)
{
    unsigned const bits = QzSysMemory::GetAddressSpaceBits();
    EXPECT_GE(bits, 39u);
    EXPECT_LE(bits, 57u);
    std::uintptr_t const top = std::uintptr_t{1} << bits;
    int on_stack = 0;
    EXPECT_LT(AddressOf(&on_stack), top);
    void *block = QzSysMemory::Reserve(m_region * 2, QzSysMemory::eLIFETIME_NORMAL);
    ASSERT_NE(block, nullptr);
    EXPECT_LE(AddressOf(block) + m_region * 2, top);
    QzSysMemory::Release(block, m_region * 2);
}

TEST(QzSysMemoryComponentTest, InitialiseAndTerminateBalance)
{
    EXPECT_EQ(QzSysMemory::IsInitialised(), 0);
    QzSysMemory::Initialise();
    QzSysMemory::Initialise();
    EXPECT_EQ(QzSysMemory::IsInitialised(), 2);
    EXPECT_NE(QzSysError::FindComponent("QzSysMemory"), nullptr);
    QzSysMemory::Terminate();
    EXPECT_EQ(QzSysMemory::IsInitialised(), 1);
    QzSysMemory::Terminate();
    EXPECT_EQ(QzSysMemory::IsInitialised(), 0);
    EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
}

#ifndef QZ_SANITIZED_BUILD
// Lets the process map `room` bytes beyond what it has mapped now.
// (Sanitizer runtimes reserve far more address space than such a limit allows.)
static void LimitAddressSpace(std::size_t room)
{
    std::size_t mapped = 0;
    for (Mapping const &mapping : ReadMappings())
        mapped += mapping.end - mapping.start;
    struct rlimit limit;
    limit.rlim_cur = limit.rlim_max = mapped + room;
    setrlimit(RLIMIT_AS, &limit);
}

// Runs in the child: under the limit a 2 GiB reservation fails, gives null
// and logs its size. Exit code 0 only if both held.
static void ReserveUnderLimit()
{
    QzSysMemory::Initialise();
    LimitAddressSpace(256 * kMiB);
    void *block = QzSysMemory::Reserve(0x7FF00000u, QzSysMemory::eLIFETIME_NORMAL);
    int logged = CountInLog("QzSysMemory::Reserve: Failed to reserve size 2146435072\n");
    std::fprintf(stderr, "null %d logged %d", block == nullptr, logged);
    std::_Exit(block == nullptr && logged == 1 ? 0 : 1);
}

TEST(QzSysMemoryDeathTest, ReserveUnderAddressSpaceLimitGivesNullAndLogs)
{
    EXPECT_EXIT(ReserveUnderLimit(), testing::ExitedWithCode(0), "null 1 logged 1");
}

// Runs in the child: a 1 GiB aligned reservation cannot be had, so after its
// 100 attempts the fatal tail runs; the debug-break hook prints the log.
static void ReserveAlignedUnderLimit()
{
    DisableCoreDumps();
    QzSysMemory::Initialise();
    QzSysError::SetDebugBreakCB([] { std::fputs(ReplayLog().c_str(), stderr); });
    LimitAddressSpace(256 * kMiB);
    (void)QzSysMemory::ReserveAligned(1024 * kMiB, QzSysMemory::eLIFETIME_NORMAL);
    std::fputs("ReserveAligned returned", stderr);
    std::_Exit(0);
}

TEST(QzSysMemoryDeathTest, ReserveAlignedThatNeverSucceedsIsFatal)
{
    EXPECT_EXIT(ReserveAlignedUnderLimit(), testing::KilledBySignal(SIGABRT),
                "(QzSysMemory::Reserve: Failed to reserve size 1073741824\n){100}"
                "QzSysMemory::ReserveAligned: Allocating at 0, size 1073741824, "
                "returned 0 100 times\n");
}
#endif
