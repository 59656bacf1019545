// QzStreamBlock (layout, chain destruction), QzStreamBlockBuffer (the write
// and read protocol over a chain, EqualData) and QzStreamBlockStore (full
// blocks plus an exact tail, hand-over to and from block buffers, copies).

#include "qzutil/stream/QzStreamBlockStore.h"

#include <pthread.h>

#include <cstddef>
#include <cstring>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/stream/QzStreamBlock.h"
#include "qzutil/stream/QzStreamBlockBuffer.h"

#include "stream/QzSinkDriver.h"

using QzStreamBlockTest = QzSinkTest;
using QzStreamBlockBufferTest = QzSinkTest;
using QzStreamBlockStoreTest = QzSinkTest;

static int CountBlocks(QzStreamBlock const *head)
{
    int count = 0;
    for (; head != nullptr; head = head->GetNext())
        ++count;
    return count;
}

static void *DeleteChain(void *head)
{
    delete static_cast<QzStreamBlock *>(head);
    return nullptr;
}

// Deletes a chain on a thread with a 256 KiB stack, which a destructor that
// recursed once per block would overflow long before 100,000 blocks.
static void DeleteOnSmallStack(QzStreamBlock *head)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, DeleteChain, head), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(pthread_attr_destroy(&attributes), 0);
}

// Writes `bytes` into a fresh chain and lets `store` take it over.
static void FillStore(QzStreamBlockStore *store, std::string const &bytes)
{
    QzStreamBlockBuffer writer;
    ASSERT_TRUE(WriteAll(writer, bytes, 1000));
    store->ClaimBuffer(&writer);
}

// Everything in `store`, read through a lent block buffer.
static std::string ReadStore(QzStreamBlockStore *store)
{
    QzStreamBlockBuffer reader;
    store->BeginReadBuffer(&reader);
    std::string bytes = ReadAll(reader, 1000);
    store->EndReadBuffer(&reader);
    return bytes;
}

// Replacing a successor destroys the chain that hung there (the fixture finds
// any block left over); a chain of 100,000 blocks is deleted on a small stack.
TEST_F(QzStreamBlockTest, ChainsAreDestroyedIterativelyAndOnReplacement)
{
    auto *head = new QzStreamBlock;
    auto *second = new QzStreamBlock;
    head->SetNext(second);
    second->SetNext(new QzStreamBlock);
    head->SetNext(second);  // the same successor: nothing destroyed
    EXPECT_EQ(CountBlocks(head), 3);
    head->SetNext(new QzStreamBlock);  // second and its successor go
    EXPECT_EQ(CountBlocks(head), 2);
    delete head;

    auto *long_chain = new QzStreamBlock;
    QzStreamBlock *last = long_chain;
    for (int i = 1; i < 100000; ++i) {
        auto *block = new QzStreamBlock;
        last->SetNext(block);
        last = block;
    }
    EXPECT_EQ(CountBlocks(long_chain), 100000);
    DeleteOnSmallStack(long_chain);
}

// Each lock lends the free rest of the tail; a full tail makes the next lock
// append a block, and a count past the tail is refused.
TEST_F(QzStreamBlockBufferTest, WriteLockLendsTheRestOfTheTail)
{
    QzStreamBlockBuffer buffer;
    ASSERT_EQ(buffer.WriteBegin(nullptr), 1);
    EXPECT_EQ(buffer.GetBuffer(), nullptr);
    unsigned char *area = nullptr;
    int size = 0;
    ASSERT_EQ(buffer.WriteLock(&area, &size), 1);
    QzStreamBlock *head = buffer.GetBuffer();
    ASSERT_NE(head, nullptr);
    EXPECT_EQ(buffer.IsManagedBuffer(), 1);
    EXPECT_EQ(area, head->EditData());
    EXPECT_EQ(size, 4064);
    ASSERT_EQ(buffer.WriteProcess(10), 1);

    ASSERT_EQ(buffer.WriteLock(&area, &size), 1);
    EXPECT_EQ(area, head->EditData() + 10);
    EXPECT_EQ(size, 4054);
    EXPECT_EQ(buffer.WriteProcess(4055), 0);
    ASSERT_EQ(buffer.WriteProcess(4054), 1);
    EXPECT_EQ(buffer.GetTail(), head);
    EXPECT_EQ(buffer.GetTailUsed(), 4064);

    ASSERT_EQ(buffer.WriteLock(&area, &size), 1);
    EXPECT_EQ(size, 4064);
    EXPECT_EQ(head->GetNext(), buffer.GetTail());
    EXPECT_EQ(area, buffer.GetTail()->EditData());
    EXPECT_EQ(buffer.GetTailUsed(), 0);
    EXPECT_EQ(buffer.GetBufferUsed(), 4064u);
    EXPECT_EQ(buffer.WriteEnd(), 1);
}

// Sizes around the block boundary, through a block buffer and then a store:
// what each holds, and that both give the bytes back. The store keeps full
// blocks and puts the rest in its tail; reading it through a lent buffer
// leaves it as it was.
TEST_F(QzStreamBlockStoreTest, RoundTripsAroundTheBlockBoundary)
{
    struct Case {
        char const *name;
        std::size_t size;
        int buffer_blocks;
        int buffer_tail_used;  // checked where there are blocks
        int store_blocks;
        int store_tail;
    };
    Case const cases[] = {
        {"empty", 0, 0, 0, 0, 0},
        {"one_byte", 1, 1, 1, 0, 1},
        {"hundred_bytes", 100, 1, 100, 0, 100},
        {"one_short_of_a_block", 4063, 1, 4063, 0, 4063},
        {"exactly_one_block", 4064, 1, 4064, 1, 0},
        {"one_past_a_block", 4065, 2, 1, 1, 1},
        {"three_blocks_and_17", 3 * 4064 + 17, 4, 17, 3, 17},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        std::string const bytes = MakePattern(c.size);
        QzStreamBlockBuffer writer;
        ASSERT_TRUE(WriteAll(writer, bytes, 1000));
        EXPECT_EQ(CountBlocks(writer.GetBuffer()), c.buffer_blocks);
        if (c.buffer_blocks > 0) {
            EXPECT_EQ(writer.GetTailUsed(), c.buffer_tail_used);
        }
        EXPECT_EQ(writer.GetBufferUsed(), c.size);
        EXPECT_EQ(ReadAll(writer, 1000), bytes);

        QzStreamBlockStore store;
        store.ClaimBuffer(&writer);
        EXPECT_EQ(writer.GetBuffer(), nullptr);
        EXPECT_EQ(writer.IsManagedBuffer(), 0);
        EXPECT_EQ(CountBlocks(store.GetHead()), c.store_blocks);
        EXPECT_EQ(store.GetTailSize(), c.store_tail);
        EXPECT_EQ(store.GetSize(), c.size);
        EXPECT_EQ(store.IsEmpty(), c.size == 0 ? 1 : 0);

        QzStreamBlock const *head = store.GetHead();
        QzStreamBlockBuffer reader;
        store.BeginReadBuffer(&reader);
        EXPECT_EQ(reader.IsManagedBuffer(), 0);
        EXPECT_EQ(reader.GetBufferUsed(), c.size);
        EXPECT_EQ(ReadAll(reader, 1000), bytes);
        store.EndReadBuffer(&reader);
        EXPECT_EQ(reader.GetBuffer(), nullptr);
        EXPECT_EQ(reader.GetTail(), nullptr);
        EXPECT_EQ(reader.GetTailUsed(), 0);
        EXPECT_EQ(store.GetHead(), head);
        EXPECT_EQ(CountBlocks(store.GetHead()), c.store_blocks);
        EXPECT_EQ(store.GetTailSize(), c.store_tail);
        EXPECT_EQ(ReadStore(&store), bytes);
    }
}

// Copies are deep and equal; assignment replaces what was there; self-
// assignment changes nothing; Clear empties.
TEST_F(QzStreamBlockStoreTest, CopiesAssignmentAndClear)
{
    for (std::size_t size :
         {std::size_t{0}, std::size_t{100}, std::size_t{4064}, std::size_t{2 * 4064 + 50}}) {
        SCOPED_TRACE(::testing::Message() << "size " << size);
        std::string const bytes = MakePattern(size);
        QzStreamBlockStore original;
        FillStore(&original, bytes);

        QzStreamBlockStore copy(original);
        EXPECT_EQ(ReadStore(&copy), bytes);
        if (original.GetHead() != nullptr) {
            EXPECT_NE(copy.GetHead(), original.GetHead());
        }

        QzStreamBlockStore assigned;
        FillStore(&assigned, std::string(5000, 0x11));
        assigned = original;
        EXPECT_EQ(ReadStore(&assigned), bytes);
        QzStreamBlockStore &alias = assigned;
        assigned = alias;
        EXPECT_EQ(ReadStore(&assigned), bytes);
        EXPECT_EQ(ReadStore(&original), bytes);

        copy.Clear();
        EXPECT_EQ(copy.IsEmpty(), 1);
        EXPECT_EQ(copy.GetSize(), 0u);
        EXPECT_EQ(ReadStore(&copy), std::string());
    }
}

// Makes `buffer` hold `bytes`; with `empty_tail`, a lock after the last byte
// appends a block that stays empty.
static void FillBuffer(QzStreamBlockBuffer *buffer, std::string const &bytes, bool empty_tail)
{
    ASSERT_TRUE(WriteAll(*buffer, bytes, 4064));
    if (empty_tail) {
        unsigned char *area = nullptr;
        int size = 0;
        ASSERT_EQ(buffer->WriteLock(&area, &size), 1);
        ASSERT_EQ(buffer->WriteProcess(0), 1);
    }
}

// Equal data are equal whatever the block boundaries (a full tail and an
// empty tail after a full block); any length or byte difference is not.
TEST_F(QzStreamBlockBufferTest, EqualDataComparesBytesNotBlocks)
{
    struct Case {
        char const *name;
        std::size_t left_size;
        std::size_t right_size;
        std::ptrdiff_t flipped;  // byte of the right side changed, or -1
        bool right_empty_tail;
        int equal;
    };
    Case const cases[] = {
        {"both_empty", 0, 0, -1, false, 1},
        {"same_bytes", 9000, 9000, -1, false, 1},
        {"full_tail_and_empty_tail", 4064, 4064, -1, true, 1},
        {"first_byte_differs", 9000, 9000, 0, false, 0},
        {"last_byte_differs", 9000, 9000, 8999, false, 0},
        {"right_one_shorter", 9000, 8999, -1, false, 0},
        {"right_empty", 1, 0, -1, false, 0},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        QzStreamBlockBuffer left;
        QzStreamBlockBuffer right;
        FillBuffer(&left, MakePattern(c.left_size), false);
        std::string right_bytes = MakePattern(c.right_size);
        if (c.flipped >= 0)
            right_bytes[static_cast<std::size_t>(c.flipped)] ^= 0x01;
        FillBuffer(&right, right_bytes, c.right_empty_tail);
        EXPECT_EQ(left.EqualData(right), c.equal);
        EXPECT_EQ(right.EqualData(left), c.equal);
    }
    QzStreamBlockBuffer never_written;
    QzStreamBlockBuffer begun;
    ASSERT_EQ(begun.WriteBegin(nullptr), 1);
    EXPECT_EQ(never_written.EqualData(begun), 1);
}
