// QzStreamTestHelpers.h: the fixture, a scripted sink, and the header and
// byte builders shared by the reader, writer and object tests of the streams.
#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzStream.h"
#include "qzutil/stream/QzStreamSink.h"

#include "support/QzTestSupport.h"

// Brings the stream component up for each test and records its posts. Stream
// errors are posted at eDEBUG with their error id, which reaches only a
// handler registered for that very component and id: hence the id range.
class QzStreamFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzStream::Initialise();
        m_posts.emplace("QzStream", QzStream::ErrorNotBegun);
    }
    void TearDown() override
    {
        m_posts.reset();
        QzStream::Terminate();
    }

    // Every message posted since the last ClearPosts, each followed by "|".
    static std::string Messages() { return QzPostRecording::Messages(); }
    static void ClearPosts() { QzPostRecorder::Posts().clear(); }

private:
    std::optional<QzPostRecording> m_posts;
};

// A sink over 8-aligned memory, moved off that alignment by `shift` bytes.
// Reading lends `bytes` at most `block_size` at a time; writing lends blocks
// of `block_size` and keeps what is processed in `data`. Each switch makes
// its call fail; `calls` counts the calls, `ends` the ReadEnd and WriteEnd.
class ScriptedSink : public QzStreamSink {
public:
    explicit ScriptedSink(std::string const &bytes = "", std::size_t block_size = 1 << 20,
                          std::size_t shift = 0)
        : m_store((std::max(bytes.size(), block_size) + shift) / 8 + 1), m_size(bytes.size()),
          m_block_size(block_size), m_shift(shift)
    {
        std::memcpy(Store(), bytes.data(), bytes.size());
    }

    int WriteBegin(QzWriteStream const *) override { return Count(!refuse_begin); }
    int WriteLock(unsigned char **buffer, int *size) override
    {
        *buffer = Store();
        *size = static_cast<int>(m_block_size);
        return Count(!fail_lock);
    }
    int WriteProcess(int count) override
    {
        if (!refuse_process) {
            data.append(reinterpret_cast<char const *>(Store()), static_cast<std::size_t>(count));
            processed.push_back(count);
        }
        return Count(!refuse_process);
    }
    int WriteFlush() override { return Count(!fail_flush); }
    int WriteEnd() override { return End(); }

    int ReadBegin(QzReadStream const *) override { return Count(!refuse_begin); }
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override
    {
        std::size_t const left = m_size - m_position;
        *buffer = left > 0 ? Store() + m_position : nullptr;
        *size = static_cast<int>(std::min(left, m_block_size));
        return Count(!fail_lock) ? QzFileURL::eSTATUS_OK : QzFileURL::eSTATUS_ERROR;
    }
    int ReadProcess(int count) override
    {
        m_position += static_cast<std::size_t>(count);
        return Count(!refuse_process);
    }
    int ReadEnd() override { return End(); }

    bool refuse_begin = false;
    bool fail_lock = false;
    bool refuse_process = false;
    bool fail_flush = false;
    int calls = 0;
    int ends = 0;
    std::string data;            // every byte written, in order
    std::vector<int> processed;  // the count of each WriteProcess

private:
    int Count(bool is_ok)
    {
        ++calls;
        return is_ok ? 1 : 0;
    }
    int End()
    {
        ++ends;
        return Count(true);
    }
    unsigned char *Store() { return reinterpret_cast<unsigned char *>(m_store.data()) + m_shift; }

    std::vector<LtNat64> m_store;  // LtNat64 for an 8-aligned start
    std::size_t m_size;            // bytes to lend for reading
    std::size_t m_block_size;
    std::size_t m_shift;
    std::size_t m_position = 0;  // bytes consumed by ReadProcess
};

// The header line of a stream with the given settings words.
inline std::string Header(std::string const &words)
{
    return "#QzStream-V1.1 " + words + "\n";
}

// The header line padded with zero bytes to the next multiple of 8, as a
// binary stream has it.
inline std::string BinaryHeader(std::string const &words = "binary double release utf8 linull")
{
    std::string header = Header(words);
    header.resize((header.size() + 7) / 8 * 8, '\0');
    return header;
}

// The low `bytes` bytes of `value`, least significant first.
inline std::string Le(LtNat64 value, int bytes)
{
    std::string out;
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>((value >> (8 * i)) & 0xFF);
    return out;
}

// The bytes spelt by `hex`, two digits each; blanks only separate groups.
inline std::string Hex(std::string hex)
{
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return out;
}

// Each value as a 32-bit little-endian word (negative ones two's complement).
template <typename... Values>
std::string Le32(Values... values)
{
    return (std::string() + ... + Le(static_cast<LtNat32>(values), 4));
}
