// File sinks: named files in both modes, caller's FILEs, and a full disk.

#include "qzutil/stream/QzStreamFile.h"

#include <cstdio>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzWriteStream.h"

#include "stream/QzSinkDriver.h"
#include "support/QzTestSupport.h"
#include "sys/QzFileTestDir.h"

namespace {

class QzStreamFileTest : public QzFileTestDir {
protected:
    void SetUp() override
    {
        QzFileTestDir::SetUp();
        QzStreamSink::Initialise();
        m_posts.emplace();
    }
    void TearDown() override
    {
        m_posts.reset();
        QzStreamSink::Terminate();
        QzFileTestDir::TearDown();
    }

    // Bytes that are not a repeat of one block, so misplaced blocks show.
    static std::string Pattern(std::size_t size)
    {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>((i * 7 + i / 65536) & 0xFF);
        return bytes;
    }

    static std::u16string LastMessage() { return QzPostRecording::LastMessage(); }

    std::optional<QzPostRecording> m_posts;
};

TEST_F(QzStreamFileTest, WritesAndReadsBackAcrossBlocks)
{
    std::u16string const name = WidePath("data.bin");
    std::string const bytes = Pattern(3 * 65536 + 123);
    QzStreamFile sink(name.c_str());
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(sink, bytes, 5000));
    ASSERT_TRUE(sink.WriteFlush());
    ASSERT_TRUE(sink.WriteEnd());
    EXPECT_EQ(sink.GetHandle(), nullptr);
    EXPECT_EQ(ReadBytes(Path("data.bin")), bytes);

    // The sink is begun again for reading what it wrote.
    ASSERT_TRUE(sink.ReadBegin(nullptr));
    EXPECT_EQ(TakeFromSink(sink), bytes);
    EXPECT_TRUE(sink.ReadEnd());
    EXPECT_TRUE(QzPostRecorder::Posts().empty());
}

TEST_F(QzStreamFileTest, AsciiStreamsReadCarriageReturnLineFeedAsLineFeed)
{
    WriteBytes(Path("text.txt"), "a\r\nb\r\n");
    QzStreamFile sink(WidePath("text.txt").c_str());
    QzReadStream ascii(&sink);
    ascii.SetAscii(1);
    ASSERT_TRUE(sink.ReadBegin(&ascii));
    EXPECT_EQ(TakeFromSink(sink), "a\nb\n");
    EXPECT_TRUE(sink.ReadEnd());

    QzReadStream binary(&sink);
    ASSERT_TRUE(sink.ReadBegin(&binary));
    EXPECT_EQ(TakeFromSink(sink), "a\r\nb\r\n");
    EXPECT_TRUE(sink.ReadEnd());

    // Writing never translates, in either mode.
    QzWriteStream writer(&sink);
    writer.SetAscii(1);
    ASSERT_TRUE(sink.WriteBegin(&writer));
    ASSERT_TRUE(PutThroughSink(sink, "x\n"));
    ASSERT_TRUE(sink.WriteEnd());
    EXPECT_EQ(ReadBytes(Path("text.txt")), "x\n");
}

TEST_F(QzStreamFileTest, MissingFilesAndFoldersAreRefused)
{
    QzStreamFile missing(WidePath("absent.bin").c_str());
    EXPECT_FALSE(missing.ReadBegin(nullptr));
    QzStreamFile no_folder(WidePath("no/such/dir.bin").c_str());
    EXPECT_FALSE(no_folder.WriteBegin(nullptr));
}

TEST_F(QzStreamFileTest, TheDestructorClosesAFileLeftOpen)
{
    {
        QzStreamFile sink(WidePath("open.bin").c_str());
        ASSERT_TRUE(sink.WriteBegin(nullptr));
        ASSERT_TRUE(PutThroughSink(sink, "kept"));
        ASSERT_TRUE(sink.WriteFlush());
    }
    EXPECT_EQ(ReadBytes(Path("open.bin")), "kept");
}

TEST_F(QzStreamFileTest, AFullDiskIsReportedByBlockAndByFlush)
{
    std::FILE *full = std::fopen("/dev/full", "wb");
    if (full == nullptr)
        GTEST_SKIP() << "no /dev/full here";
    QzStreamFileHandle sink(full);
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    // A whole block goes straight to the device and fails there.
    EXPECT_FALSE(PutThroughSink(sink, Pattern(65536)));
    EXPECT_EQ(ToUtf8(LastMessage()),
              "WriteBlock: fwrite(65536) returned 0, ferror 1, last error 28");
    EXPECT_EQ(QzPostRecorder::Posts().back().severity, QzSysError::eWARNING);

    // A few bytes fit the C library's buffer: the flush finds the full disk.
    std::clearerr(full);
    QzPostRecorder::Posts().clear();
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(sink, "abc"));
    EXPECT_FALSE(sink.WriteFlush());
    EXPECT_EQ(ToUtf8(LastMessage()), "WriteFlush: fflush failed");
    EXPECT_TRUE(sink.WriteEnd()) << "the pending bytes went with the failed flush";
    std::fclose(full);
}

TEST_F(QzStreamFileTest, AFileHandleReadsTheCallersFileAndLeavesItOpen)
{
    WriteBytes(Path("in.bin"), Pattern(70000));
    std::FILE *file = std::fopen(Path("in.bin").c_str(), "rb");
    ASSERT_NE(file, nullptr);
    {
        QzStreamFileHandle sink(file);
        ASSERT_TRUE(sink.ReadBegin(nullptr));
        EXPECT_EQ(TakeFromSink(sink), Pattern(70000));
        EXPECT_TRUE(sink.ReadEnd());
    }
    EXPECT_EQ(std::fseek(file, 0, SEEK_SET), 0) << "still open after the sink went";
    std::fclose(file);
}

}  // namespace
