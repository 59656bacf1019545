// QzSinkDriver.h: drives a sink through the write and read protocol the way a
// stream does, and the fixture and byte patterns of the memory-sink tests.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/stream/QzStreamSink.h"
#include "qzutil/url/QzFileURL.h"

// Puts `bytes` through WriteLock/WriteProcess, at most `chunk` bytes per lock
// (so that later locks also lend partly used areas); false as soon as the
// sink refuses. WriteBegin and WriteEnd are the caller's.
inline bool PutThroughSink(QzStreamSink &sink, std::string const &bytes, int chunk = INT_MAX)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        unsigned char *buffer = nullptr;
        int size = 0;
        if (!sink.WriteLock(&buffer, &size) || size <= 0)
            return false;
        std::size_t const n = std::min(
            {static_cast<std::size_t>(size), static_cast<std::size_t>(chunk), bytes.size() - done});
        std::memcpy(buffer, bytes.data() + done, n);
        if (!sink.WriteProcess(static_cast<int>(n)))
            return false;
        done += n;
    }
    return true;
}

// Takes everything up to the end of data, or up to a status other than OK
// (stored in *status when given), consuming at most `chunk` bytes per lock.
// ReadBegin and ReadEnd are the caller's. A refused ReadProcess ends it early,
// so the short result fails the caller's comparison.
inline std::string TakeFromSink(QzStreamSink &sink, QzFileURL::Status *status = nullptr,
                                int chunk = INT_MAX)
{
    std::string out;
    for (;;) {
        unsigned char const *buffer = nullptr;
        int size = 0;
        QzFileURL::Status const got = sink.ReadLock(&buffer, &size);
        if (status != nullptr)
            *status = got;
        if (got != QzFileURL::eSTATUS_OK || buffer == nullptr || size <= 0)
            return out;
        int const n = std::min(size, chunk);
        out.append(reinterpret_cast<char const *>(buffer), static_cast<std::size_t>(n));
        if (!sink.ReadProcess(n))
            return out;
    }
}

// A whole write run: WriteBegin, PutThroughSink, WriteEnd.
inline ::testing::AssertionResult WriteAll(QzStreamSink &sink, std::string const &bytes, int chunk)
{
    if (!sink.WriteBegin(nullptr))
        return ::testing::AssertionFailure() << "WriteBegin failed";
    if (!PutThroughSink(sink, bytes, chunk))
        return ::testing::AssertionFailure() << "the sink refused to take the bytes";
    if (!sink.WriteEnd())
        return ::testing::AssertionFailure() << "WriteEnd failed";
    return ::testing::AssertionSuccess();
}

// A whole read run: ReadBegin, TakeFromSink, ReadEnd; any failure is reported.
inline std::string ReadAll(QzStreamSink &sink, int chunk)
{
    EXPECT_TRUE(sink.ReadBegin(nullptr));
    QzFileURL::Status status = QzFileURL::eSTATUS_ERROR;
    std::string bytes = TakeFromSink(sink, &status, chunk);
    EXPECT_EQ(status, QzFileURL::eSTATUS_OK);
    EXPECT_TRUE(sink.ReadEnd());
    return bytes;
}

// Brings the sinks up for each test and checks on the way down that every
// byte the test took from QzMemory went back.
class QzSinkTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzStreamSink::Initialise();
        m_bytes_at_start = QzMemory::GetDirectMemoryAllocated();
    }

    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_bytes_at_start) << "sink memory leaked";
        QzStreamSink::Terminate();
    }

private:
    LtNat64 m_bytes_at_start = 0;
};

// `size` bytes that change from each offset to the next and between blocks,
// so that a dropped, repeated or misplaced piece shows.
inline std::string MakePattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 2654435761u) >> 11);
    return bytes;
}
