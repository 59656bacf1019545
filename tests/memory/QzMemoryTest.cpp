// The allocator's front: the calls' null and zero rules, the counted heap,
// the size check, the new-handler, Terminate with bytes held, and the
// class-level allocation family.

#include "qzutil/memory/QzMemory.h"

#include <sys/resource.h>

#include <cstring>
#include <new>
#include <string>

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
        m_start = QzMemory::GetMallocMemoryAllocated();
    }
    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetMallocMemoryAllocated(), m_start) << "a block leaked";
        QzMemory::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
    LtNat64 m_start = 0;
};

}  // namespace

TEST_F(QzMemoryTest, ZeroAndNullRules)
{
    EXPECT_EQ(QzMemory::Alloc(0, 1), nullptr);
    EXPECT_EQ(QzMemory::TryAlloc(0, 8), nullptr);
    QzMemory::Dealloc(nullptr, 0, 1);
    QzMemory::Free(nullptr);

    void *block = QzMemory::Resize(nullptr, 0, 24, 8);  // a null block allocates
    ASSERT_NE(block, nullptr);
    EXPECT_GE(QzMemory::GetMallocMemoryAllocated(), m_start + 24);
    EXPECT_EQ(QzMemory::Resize(block, 24, 24, 8), block) << "equal sizes keep the block";
    EXPECT_EQ(QzMemory::Resize(block, 24, 0, 8), nullptr) << "size 0 releases";
}

// Content moves with a resize, and the counter follows the true sizes.
TEST_F(QzMemoryTest, ResizeKeepsContentAndCounts)
{
    auto *text = static_cast<char *>(QzMemory::Alloc(6, 1));
    std::memcpy(text, "hello", 6);
    text = static_cast<char *>(QzMemory::Resize(text, 6, 100000, 1));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "hello");
    EXPECT_GE(QzMemory::GetMallocMemoryAllocated(), m_start + 100000);
    EXPECT_EQ(QzMemory::GetMemoryAllocated(), QzMemory::GetMallocMemoryAllocated());
    text = static_cast<char *>(QzMemory::Resize(text, 100000, 3, 1));
    EXPECT_EQ(std::string(text, 3), "hel");
    QzMemory::Dealloc(text, 3, 1);
}

TEST_F(QzMemoryTest, ExpandRoundsToTheBestBlock)
{
    unsigned size = 0;
    void *block = QzMemory::Expand(nullptr, &size, 5, 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(size, 8u);
    block = QzMemory::Expand(block, &size, 9, 8);
    EXPECT_EQ(size, 16u);
    block = QzMemory::Expand(block, &size, 0, 8);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(size, 0u);
}

TEST_F(QzMemoryTest, BestBlockSizes)
{
    unsigned const rows[][2] = {{0, 4},
                                {1, 4},
                                {4, 4},
                                {5, 8},
                                {9, 16},
                                {512, 512},
                                {513, 1024},
                                {65537, 131072},
                                {0x7FF00000, 0x80000000u},
                                {0x80000001u, 0x80000001u}};
    for (auto const &row : rows)
        EXPECT_EQ(QzMemory::GetBestBlockSize(row[0]), row[1]) << row[0];
}

TEST_F(QzMemoryTest, SysMemorySizes)
{
    EXPECT_GE(QzSysMemory::GetPageSize(), 4096u);
    EXPECT_EQ(QzSysMemory::GetPageSize() & (QzSysMemory::GetPageSize() - 1), 0u);
    EXPECT_GE(QzSysMemory::GetRegionSize(), 65536u);
    EXPECT_EQ(QzSysMemory::GetRegionSize() % QzSysMemory::GetPageSize(), 0u);
}

// Terminate refuses while bytes are held: it warns, keeps the components
// below, and a later Initialise does not raise their counts again.
TEST_F(QzMemoryTest, TerminateRefusesWhileBytesAreHeld)
{
    QzPostRecorder::Posts().clear();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eWARNING,
                           static_cast<QzComponent *>(nullptr), -1);
    void *held = QzMemory::Alloc(40, 8);
    int const sys_error_count = QzSysError::GetComponent()->GetInitialisationCount();
    QzMemory::Terminate();
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    std::u16string const &message = QzPostRecorder::Posts()[0].message;
    EXPECT_NE(message.find(u" malloc bytes still allocated at QzMemory::Terminate. Not "
                           u"terminating."),
              std::u16string::npos);
    EXPECT_EQ(QzMemory::IsInitialised(), 0);
    EXPECT_EQ(QzSysError::GetComponent()->GetInitialisationCount(), sys_error_count);
    void *more = QzMemory::Alloc(8, 1);  // still works
    EXPECT_NE(more, nullptr);
    QzMemory::Initialise();  // re-registers, does not rebuild
    EXPECT_EQ(QzSysError::GetComponent()->GetInitialisationCount(), sys_error_count);
    QzMemory::Dealloc(more, 8, 1);
    QzMemory::Dealloc(held, 40, 8);
    QzSysError::RemoveHandler(QzSysError::eWARNING, static_cast<QzComponent *>(nullptr), -1);
}

namespace {

struct Base : QzDeletable {
    char payload[24];
};

struct Derived : Base {
    QZ_DECLARE_ALLOCATORS()
    char more[1000];
};

}  // namespace

// Delete through the base gives back the derived object's storage.
TEST_F(QzMemoryTest, DeletableReleasesTheMostDerivedSize)
{
    Base *object = new Derived;
    EXPECT_GE(QzMemory::GetMallocMemoryAllocated(), m_start + sizeof(Derived));
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
// Under an address-space limit a large request fails: the new-handler is
// asked with the size, and its "no" gives null; a Try form never asks it.
// (Sanitizer runtimes reserve more address space than the limit allows.)
// Runs in the child: reports on stderr what the handler saw.
static void ExhaustAddressSpace()
{
    QzMemory::Initialise();
    static unsigned asked = 0;
    QzMemory::SetNewHandler([](unsigned size, int try_only) {
        asked = size + static_cast<unsigned>(try_only);
        return 0;
    });
    struct rlimit limit;
    limit.rlim_cur = limit.rlim_max = 512u << 20;
    setrlimit(RLIMIT_AS, &limit);
    bool const try_null = QzMemory::TryAlloc(0x40000000u, 1) == nullptr && asked == 0;
    bool const null = QzMemory::Alloc(0x40000000u, 1) == nullptr;
    unsigned const asked_by_alloc = asked;
    bool threw = false;
    try {
        std::string big(0x40000000u, 'x');
    } catch (std::bad_alloc const &) {
        threw = true;
    }
    // operator new's failure reaches the handler with size 0.
    std::fprintf(stderr, "%d %d %u %u %d", try_null, null, asked_by_alloc, asked, threw);
    std::exit(0);
}

TEST(QzMemoryDeathTest, NewHandlerIsAskedOnFailure)
{
    EXPECT_EXIT(ExhaustAddressSpace(), testing::ExitedWithCode(0), "^1 1 1073741824 0 1$");
}
#endif
