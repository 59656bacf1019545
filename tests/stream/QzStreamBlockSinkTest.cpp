// The block sink's protocol over a storage that records what it is given
// and serves prepared reads.

#include "qzutil/stream/QzStreamBlockSink.h"

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/stream/QzStreamFilter.h"

#include "stream/QzSinkDriver.h"

namespace {

constexpr int kBlock = 16;

// Keeps every written block; reads hand out prepared chunks and statuses.
class RecordingBlockSink : public QzStreamBlockSink {
public:
    explicit RecordingBlockSink(int strict) : QzStreamBlockSink(kBlock, strict) {}

    int WriteBlock(unsigned char const *data, int size) override
    {
        if (refuse_writes)
            return 0;
        written.emplace_back(reinterpret_cast<char const *>(data), static_cast<std::size_t>(size));
        return 1;
    }

    QzFileURL::Status ReadBlock(unsigned char *buffer, int *size) override
    {
        ++read_calls;
        if (reads.empty()) {
            *size = 0;
            return QzFileURL::eSTATUS_OK;
        }
        auto [status, bytes] = reads.front();
        reads.pop_front();
        std::memcpy(buffer, bytes.data(), bytes.size());
        *size = static_cast<int>(bytes.size());
        return status;
    }

    std::vector<std::string> written;
    std::deque<std::pair<QzFileURL::Status, std::string>> reads;
    int read_calls = 0;
    bool refuse_writes = false;
};

class QzStreamBlockSinkTest : public ::testing::Test {
protected:
    void SetUp() override { QzStreamSink::Initialise(); }
    void TearDown() override { QzStreamSink::Terminate(); }
};

TEST_F(QzStreamBlockSinkTest, WriteEndWritesThePendingBytesOrAZeroPaddedBlock)
{
    RecordingBlockSink loose(0);
    ASSERT_TRUE(loose.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(loose, "x"));
    EXPECT_TRUE(loose.WriteEnd());
    EXPECT_EQ(loose.written, std::vector<std::string>{"x"});

    RecordingBlockSink strict(1);
    ASSERT_TRUE(strict.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(strict, "x"));
    EXPECT_TRUE(strict.WriteEnd());
    EXPECT_EQ(strict.written, std::vector<std::string>{std::string("x") + std::string(15, '\0')});
}

TEST_F(QzStreamBlockSinkTest, AFilledBlockGoesOutAtOnceAndWriteEndAddsNothing)
{
    RecordingBlockSink sink(1);
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    std::string const block(kBlock, 'b');
    ASSERT_TRUE(PutThroughSink(sink, block));
    EXPECT_EQ(sink.written.size(), 1u);
    EXPECT_TRUE(sink.WriteEnd());
    EXPECT_EQ(sink.written, std::vector<std::string>{block});

    // Nothing written at all: nothing goes out, even in a strict sink.
    RecordingBlockSink empty(1);
    ASSERT_TRUE(empty.WriteBegin(nullptr));
    EXPECT_TRUE(empty.WriteEnd());
    EXPECT_TRUE(empty.written.empty());
}

TEST_F(QzStreamBlockSinkTest, RefusedWritesFailTheProcessAndTheEnd)
{
    RecordingBlockSink sink(0);
    unsigned char *buffer = nullptr;
    int size = 0;
    EXPECT_FALSE(sink.WriteLock(&buffer, &size)) << "no block before WriteBegin";
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    ASSERT_TRUE(sink.WriteLock(&buffer, &size));
    EXPECT_EQ(size, kBlock);
    EXPECT_FALSE(sink.WriteProcess(kBlock + 1));

    sink.refuse_writes = true;
    EXPECT_FALSE(sink.WriteProcess(kBlock));
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(sink, "abc"));
    EXPECT_FALSE(sink.WriteEnd());
    // The block stayed: once the storage accepts, the same bytes go out.
    sink.refuse_writes = false;
    EXPECT_TRUE(sink.WriteEnd());
    EXPECT_EQ(sink.written, std::vector<std::string>{"abc"});
}

TEST_F(QzStreamBlockSinkTest, ReadLockLendsWhatIsLeftAndRefillsWhenConsumed)
{
    RecordingBlockSink sink(0);
    unsigned char const *buffer = nullptr;
    int size = -1;
    EXPECT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_ERROR) << "no block yet";

    sink.reads = {{QzFileURL::eSTATUS_OK, "hello"},
                  {QzFileURL::eSTATUS_WAIT, ""},
                  {QzFileURL::eSTATUS_OK, "!"}};
    ASSERT_TRUE(sink.ReadBegin(nullptr));
    ASSERT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_OK);
    ASSERT_EQ(size, 5);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(buffer), 5), "hello");
    ASSERT_TRUE(sink.ReadProcess(2));
    ASSERT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(buffer), static_cast<std::size_t>(size)),
              "llo");
    EXPECT_FALSE(sink.ReadProcess(4));
    ASSERT_TRUE(sink.ReadProcess(3));

    // A status other than OK travels up unchanged, and the same read is
    // asked again next time.
    EXPECT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_WAIT);
    ASSERT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(size, 1);
    ASSERT_TRUE(sink.ReadProcess(1));
    EXPECT_EQ(sink.read_calls, 3);
}

TEST_F(QzStreamBlockSinkTest, EndOfDataIsSuccessWithNothingAndIsAskedAgain)
{
    RecordingBlockSink sink(0);
    ASSERT_TRUE(sink.ReadBegin(nullptr));
    unsigned char const *buffer = reinterpret_cast<unsigned char const *>("x");
    int size = -1;
    EXPECT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_TRUE(sink.ReadProcess(0));

    // More data turned up (a file still growing): the next lock sees it.
    sink.reads = {{QzFileURL::eSTATUS_OK, "late"}};
    ASSERT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(size, 4);
    EXPECT_EQ(sink.read_calls, 2);
    EXPECT_TRUE(sink.ReadEnd());
}

// Counts the flushes that reach it.
class FlushCountingSink : public RecordingBlockSink {
public:
    FlushCountingSink() : RecordingBlockSink(0) {}
    int WriteFlush() override { return ++flushes; }
    int flushes = 0;
};

class PassFilter : public QzStreamFilter {
public:
    int WriteLock(unsigned char **, int *) override { return 0; }
    int WriteProcess(int) override { return 0; }
    QzFileURL::Status ReadLock(unsigned char const **, int *) override
    {
        return QzFileURL::eSTATUS_ERROR;
    }
    int ReadProcess(int) override { return 0; }
    char const *GetName() const override { return "pass"; }
};

TEST_F(QzStreamBlockSinkTest, AFilterForwardsItsFlushOnlyWhileWired)
{
    PassFilter filter;
    EXPECT_EQ(filter.WriteFlush(), 0) << "no next sink";
    FlushCountingSink next;
    filter.SetSink(&next);
    EXPECT_EQ(filter.WriteFlush(), 1);
    EXPECT_EQ(next.flushes, 1);
}

}  // namespace
