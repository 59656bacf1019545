// QzStreamFileURLHandle: the sink protocol over a QzFileURL handle, at file
// pointers beyond 4 GiB, with read limits, and with writes the file refuses.

#include "qzutil/stream/QzStreamFileURLHandle.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/url/QzFileURL.h"

#include "support/QzTestSupport.h"
#include "sys/QzFileTestDir.h"

namespace {

constexpr LtNat64 kFiveGiB = 5ULL << 30;
constexpr int kBlock = 65536;

class QzStreamFileURLHandleTest : public QzFileTestDir {
protected:
    void SetUp() override
    {
        QzFileTestDir::SetUp();
        QzFileURL::Initialise();
        QzStreamSink::Initialise();
        m_posts.emplace();
    }
    void TearDown() override
    {
        m_posts.reset();
        QzStreamSink::Terminate();
        QzFileURL::Terminate();
        QzFileTestDir::TearDown();
    }

    // Makes `name` a sparse file of `size` bytes and opens it.
    QzFileURLHandle *OpenSparse(std::string const &name, LtNat64 size, unsigned flags)
    {
        WriteBytes(Path(name), "");
        EXPECT_EQ(truncate(Path(name).c_str(), static_cast<off_t>(size)), 0);
        return QzFileURL::OpenURL(WidePath(name).c_str(), nullptr, flags, 0);
    }

    // Drives the write protocol with `data`, flushing once after `flush_at`
    // bytes; the result of WriteEnd, or 0 at the first refusal.
    static int WriteAll(QzStreamSink *sink, std::vector<unsigned char> const &data,
                        std::size_t flush_at)
    {
        if (!sink->WriteBegin(nullptr))
            return 0;
        std::size_t done = 0;
        while (done < data.size()) {
            unsigned char *buffer = nullptr;
            int size = 0;
            if (!sink->WriteLock(&buffer, &size))
                return 0;
            std::size_t const stop = done < flush_at ? flush_at : data.size();
            std::size_t const count = std::min(static_cast<std::size_t>(size), stop - done);
            std::memcpy(buffer, data.data() + done, count);
            if (!sink->WriteProcess(static_cast<int>(count)))
                return 0;
            done += count;
            if (done == flush_at && !sink->WriteFlush())
                return 0;
        }
        return sink->WriteEnd();
    }

    // Drives the read protocol to the end of data; sizes of each lock go to
    // *lock_sizes.
    static std::vector<unsigned char> ReadAll(QzStreamSink *sink, std::vector<int> *lock_sizes)
    {
        std::vector<unsigned char> data;
        EXPECT_TRUE(sink->ReadBegin(nullptr));
        for (;;) {
            unsigned char const *buffer = nullptr;
            int size = 0;
            EXPECT_EQ(sink->ReadLock(&buffer, &size), QzFileURL::eSTATUS_OK);
            if (buffer == nullptr || size == 0)
                break;
            lock_sizes->push_back(size);
            data.insert(data.end(), buffer, buffer + size);
            EXPECT_TRUE(sink->ReadProcess(size));
        }
        EXPECT_TRUE(sink->ReadEnd());
        return data;
    }

    std::optional<QzPostRecording> m_posts;
};

}  // namespace

// Two blocks and 1000 bytes written from 5 GiB + 3 with a flush inside the
// first block, then read back: every byte lands at its own position and the
// reads come in whole blocks from the file pointer.
TEST_F(QzStreamFileURLHandleTest, WriteThenReadBeyondFourGiB)
{
    QzFileURLHandle *handle = OpenSparse("big", 0, 0);
    ASSERT_NE(handle, nullptr);
    std::vector<unsigned char> data(2 * kBlock + 1000);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 7 + (i >> 8));
    LtNat64 const start = kFiveGiB + 3;

    QzStreamFileURLHandle writer(handle);
    writer.SetFilePointer(start);
    EXPECT_EQ(WriteAll(&writer, data, 300), 1);
    EXPECT_EQ(writer.GetFilePointer(), start + data.size());
    EXPECT_EQ(QzFileURL::GetFileSize(handle), start + data.size());

    QzStreamFileURLHandle reader(handle);
    reader.SetFilePointer(start);
    std::vector<int> lock_sizes;
    EXPECT_TRUE(ReadAll(&reader, &lock_sizes) == data);
    EXPECT_EQ(lock_sizes, (std::vector<int>{kBlock, kBlock, 1000}));
    EXPECT_EQ(reader.GetFilePointer(), start + data.size());
    QzFileURL::CloseURL(handle);
}

// ReadBlock asks for at most one block, up to the read limit or the end of
// the file; at or past that point it gives 0 bytes with success. A limit
// beyond the file is a failed read, returned as is with the pointer unmoved.
TEST_F(QzStreamFileURLHandleTest, ReadBlockStopsAtTheLimit)
{
    struct Case {
        char const *name;
        LtNat64 file_size;
        LtNat64 pointer;
        LtNat64 limit;
        QzFileURL::Status status;
        int count;
        LtNat64 pointer_after;
    };
    Case const kCases[] = {
        {"pointer_at_end", 10, 10, 0, QzFileURL::eSTATUS_OK, 0, 10},
        {"rest_of_file", 10, 4, 0, QzFileURL::eSTATUS_OK, 6, 10},
        {"one_block_of_more", kBlock + 5, 0, 0, QzFileURL::eSTATUS_OK, kBlock, kBlock},
        {"tail_after_a_block", kBlock + 5, kBlock, 0, QzFileURL::eSTATUS_OK, 5, kBlock + 5},
        {"limit_before_end", 100, 30, 40, QzFileURL::eSTATUS_OK, 10, 40},
        {"pointer_at_limit", 100, 40, 40, QzFileURL::eSTATUS_OK, 0, 40},
        {"pointer_past_limit", 100, 50, 40, QzFileURL::eSTATUS_OK, 0, 50},
        {"limit_past_end", 10, 0, 20, QzFileURL::eSTATUS_ERROR, 0, 0},
    };
    std::vector<unsigned char> buffer(kBlock);
    for (Case const &c : kCases) {
        SCOPED_TRACE(c.name);
        QzFileURLHandle *handle = OpenSparse("file", c.file_size, 1);
        ASSERT_NE(handle, nullptr);
        QzStreamFileURLHandle sink(handle);
        sink.SetFilePointer(c.pointer);
        sink.SetReadLimit(c.limit);
        int count = -1;
        EXPECT_EQ(sink.ReadBlock(buffer.data(), &count), c.status);
        EXPECT_EQ(count, c.count);
        EXPECT_EQ(sink.GetFilePointer(), c.pointer_after);
        QzFileURL::CloseURL(handle);
    }
}

// Through a handle opened for reading, a full block fails in WriteProcess
// and a partial one in WriteFlush; the file pointer does not move. The flush
// drops what it failed to write, so WriteEnd has nothing left to write.
TEST_F(QzStreamFileURLHandleTest, RefusedWritesFailTheProtocol)
{
    struct Case {
        char const *name;
        int count;
        bool process_ok;
    };
    Case const kCases[] = {
        {"full_block", kBlock, false},
        {"partial_block", 10, true},
    };
    QzFileURLHandle *handle = OpenSparse("locked", 0, QzFileURL::eOPEN_READ_ONLY);
    ASSERT_NE(handle, nullptr);
    for (Case const &c : kCases) {
        SCOPED_TRACE(c.name);
        QzStreamFileURLHandle sink(handle);
        ASSERT_TRUE(sink.WriteBegin(nullptr));
        unsigned char *buffer = nullptr;
        int size = 0;
        ASSERT_TRUE(sink.WriteLock(&buffer, &size));
        ASSERT_EQ(size, kBlock);
        std::memset(buffer, 'w', static_cast<std::size_t>(c.count));
        EXPECT_EQ(sink.WriteProcess(c.count) != 0, c.process_ok);
        if (c.process_ok) {
            EXPECT_FALSE(sink.WriteFlush());
            EXPECT_TRUE(sink.WriteEnd());
        }
        EXPECT_EQ(sink.GetFilePointer(), 0u);
    }
    EXPECT_EQ(QzFileURL::GetFileSize(handle), 0u);
    QzFileURL::CloseURL(handle);
}
