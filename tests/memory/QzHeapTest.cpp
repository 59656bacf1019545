// Heaps: the sizes they keep, and their forwarding to QzMemory with
// alignment 1.

#include "qzutil/memory/QzHeap.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"

namespace {

class QzHeapTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzMemory::Initialise();
        m_start = QzMemory::GetDirectMemoryAllocated();
    }
    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_start) << "a block leaked";
        QzMemory::Terminate();
    }
    LtNat64 m_start = 0;
};

}  // namespace

TEST_F(QzHeapTest, KeepsItsSizes)
{
    QzHeap heap(16, 4096);
    EXPECT_EQ(heap.GetMinSize(), 16u);
    EXPECT_EQ(heap.GetMaxSize(), 4096u);
    heap.Release();
}

// Alignment 1 rounds a small block to 4, where alignment 8 would round 20 to
// 24; the arena counter shows which was used.
TEST_F(QzHeapTest, AllocatesWithAlignmentOne)
{
    if (QzMemory::IsForceMalloc())
        GTEST_SKIP() << "every block comes from the heap, counted by its true size";
    QzHeap heap(0, 0);
    LtNat64 const arena_start = QzMemory::GetArenaMemoryAllocated();
    struct Row {
        unsigned size, counted;
    };
    Row const rows[] = {{20, 20}, {21, 24}, {1, 4}, {512, 512}};
    for (Row const &row : rows) {
        void *block = heap.Alloc(row.size);
        ASSERT_NE(block, nullptr) << row.size;
        EXPECT_EQ(QzMemory::GetArenaMemoryAllocated() - arena_start, row.counted) << row.size;
        heap.Release();  // holds nothing of its own
        EXPECT_EQ(QzMemory::GetArenaMemoryAllocated() - arena_start, row.counted) << row.size;
        heap.Dealloc(block, row.size);
        EXPECT_EQ(QzMemory::GetArenaMemoryAllocated(), arena_start) << row.size;
    }
    EXPECT_EQ(heap.Alloc(0), nullptr);
    heap.Dealloc(nullptr, 0);
}

TEST_F(QzHeapTest, ResizeExpandAndCompactKeepContent)
{
    QzHeap heap(0, 0);
    auto *text = static_cast<char *>(heap.Alloc(6));
    std::memcpy(text, "hello", 6);
    text = static_cast<char *>(heap.Resize(text, 6, 3000));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "hello");

    unsigned size = 3000;
    text = static_cast<char *>(heap.Expand(text, &size, 5000));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(size, QzMemory::GetBestBlockSize(5000));
    EXPECT_GE(size, 5000u);
    EXPECT_STREQ(text, "hello");

    EXPECT_EQ(heap.Compact(text, size), text);
    text = static_cast<char *>(heap.Resize(text, size, 3));
    EXPECT_EQ(std::string(text, 3), "hel");
    heap.Dealloc(text, 3);

    size = 0;
    void *block = heap.Expand(nullptr, &size, 5);
    EXPECT_EQ(size, 8u) << "the best block of 5 bytes";
    heap.Dealloc(block, size);
}
