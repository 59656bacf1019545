// QzWriteStream: the exact bytes of the binary form (alignment, padding,
// strings, tokens, bits, header), the exact text of the ascii form, and the
// sticky errors raised by the sink protocol.

#include "qzutil/stream/QzWriteStream.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"

#include "support/QzTestSupport.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Writer = std::function<void(QzWriteStream &)>;

// A sink that lends blocks of `block_size` bytes from 8-aligned storage and
// keeps what was processed; each failure switch makes one protocol call fail.
class RecordingSink : public QzStreamSink {
public:
    explicit RecordingSink(int block_size = 4096)
        : m_block_size(block_size), m_storage(static_cast<std::size_t>(block_size) / 8 + 2)
    {}

    int WriteBegin(QzWriteStream const *) override
    {
        ++calls;
        return !refuse_begin;
    }
    int WriteLock(unsigned char **buffer, int *size) override
    {
        ++calls;
        if (fail_lock)
            return 0;
        *buffer = reinterpret_cast<unsigned char *>(m_storage.data()) + (misalign ? 4 : 0);
        *size = m_block_size;
        return 1;
    }
    int WriteProcess(int count) override
    {
        ++calls;
        if (fail_process)
            return 0;
        auto const *block = reinterpret_cast<unsigned char const *>(m_storage.data());
        data.insert(data.end(), block, block + count);
        processed.push_back(count);
        return 1;
    }
    int WriteFlush() override
    {
        ++calls;
        return !fail_flush;
    }
    int WriteEnd() override
    {
        ++calls;
        ++ended;
        return 1;
    }
    QzFileURL::Status ReadLock(unsigned char const **, int *) override
    {
        return static_cast<QzFileURL::Status>(2);
    }
    int ReadProcess(int) override { return 0; }

    bool refuse_begin = false;
    bool fail_lock = false;
    bool fail_process = false;
    bool fail_flush = false;
    bool misalign = false;
    int calls = 0;
    int ended = 0;
    Bytes data;
    std::vector<int> processed;  // the count of each WriteProcess

private:
    int m_block_size;
    std::vector<LtNat64> m_storage;  // 8-aligned
};

// A filter that inverts every byte on its way to the next sink, so that what
// passed through it is told apart from what went around it.
class InvertingFilter : public QzStreamFilter {
public:
    int WriteLock(unsigned char **buffer, int *size) override
    {
        *buffer = reinterpret_cast<unsigned char *>(m_block);
        *size = static_cast<int>(sizeof m_block);
        return 1;
    }
    int WriteProcess(int count) override
    {
        unsigned char *out = nullptr;
        int room = 0;
        if (!GetSink()->WriteLock(&out, &room) || room < count)
            return 0;
        auto const *in = reinterpret_cast<unsigned char const *>(m_block);
        for (int i = 0; i < count; ++i)
            out[i] = static_cast<unsigned char>(~in[i]);
        return GetSink()->WriteProcess(count);
    }
    QzFileURL::Status ReadLock(unsigned char const **, int *) override
    {
        return static_cast<QzFileURL::Status>(2);
    }
    int ReadProcess(int) override { return 0; }
    char const *GetName() const override { return "invert"; }

private:
    LtNat64 m_block[64];
};

class QzWriteStreamTest : public ::testing::Test {
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

    std::optional<QzPostRecording> m_posts;

    // One run into a QzStreamBuffer: `configure` before Begin, `write`
    // between Begin and End. The bytes written, from the aligned start.
    static Bytes Run(Writer const &configure, Writer const &write, int write_config = 0)
    {
        QzStreamBuffer buffer;
        QzWriteStream stream(&buffer);
        configure(stream);
        EXPECT_TRUE(stream.Begin(write_config, 0));
        write(stream);
        EXPECT_TRUE(stream.End());
        unsigned char const *start = buffer.GetAlignedBuffer();
        return start ? Bytes(start, start + buffer.GetAlignedUsed()) : Bytes();
    }
    static std::string RunText(Writer const &configure, Writer const &write)
    {
        Bytes const bytes = Run(
            [&](QzWriteStream &s) {
                s.SetAscii(1);
                configure(s);
            },
            write);
        return std::string(bytes.begin(), bytes.end());
    }
    static void NoSetup(QzWriteStream &) {}
    static int CountPosts(char16_t const *message)
    {
        int count = 0;
        for (QzRecordedPost const &post : QzPostRecorder::Posts())
            count += post.message == message;
        return count;
    }
};

}  // namespace

// Values little-endian at their own alignment from the block start, zero
// padding, and the final sync padding to a multiple of 8.
TEST_F(QzWriteStreamTest, BinaryLayout)
{
    auto single = [](QzWriteStream &s) { s.SetDouble(0); };
    auto debug = [](QzWriteStream &s) { s.SetDebug(1); };
    struct Case {
        char const *name;
        Writer configure;
        Writer write;
        Bytes expected;
    } const cases[] = {
        {"nat8_then_int32",
         NoSetup,
         [](QzWriteStream &s) {
             s.WriteNat8(0x05);
             s.WriteInt32(0x01020304);
         },
         {0x05, 0, 0, 0, 0x04, 0x03, 0x02, 0x01}},
        {"odd_string_then_nat16",
         NoSetup,
         [](QzWriteStream &s) {
             s.WriteString("abc");
             s.WriteNat16(0x0102);
         },
         {3, 0, 0, 0, 'a', 'b', 'c', 0, 0x02, 0x01, 0, 0, 0, 0, 0, 0}},
        {"empty_and_null_strings",
         NoSetup,
         [](QzWriteStream &s) {
             s.WriteString("");
             s.WriteString(nullptr);
         },
         {0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}},
        {"int16_negative",
         NoSetup,
         [](QzWriteStream &s) { s.WriteInt16(-2); },
         {0xfe, 0xff, 0, 0, 0, 0, 0, 0}},
        {"float_on_single_stream",
         single,
         [](QzWriteStream &s) { s.WriteFloat(1.5); },
         {0, 0, 0xc0, 0x3f, 0, 0, 0, 0}},
        {"float_on_double_stream_aligns_to_8",
         NoSetup,
         [](QzWriteStream &s) {
             s.WriteNat8(1);
             s.WriteFloat(1.5);
         },
         {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf8, 0x3f}},
        {"no_zero_threshold_in_binary",
         [](QzWriteStream &s) { s.SetSingleZero(1.0e-20); },
         [](QzWriteStream &s) { s.WriteSingle(1.0e-30f); },
         {0x60, 0x42, 0xa2, 0x0d, 0, 0, 0, 0}},  // 1e-30f is 0x0da24260
        {"bool_and_nat64",
         NoSetup,
         [](QzWriteStream &s) {
             s << true;
             s << 0x0102030405060708ull;
         },
         {1, 0, 0, 0, 0, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1}},
        {"debug_scalar_array_and_sync",
         debug,
         [](QzWriteStream &s) {
             s.WriteNat8(0xaa);
             LtInt16 const values[] = {1, 2};
             s.WriteInt16Array(values, 2);
         },
         // Nat8 token 2, value, pad; Int16Array token 15 with count 2; the
         // values; the Sync token 1 of End; pad to 8.
         {2, 0, 0, 0, 0xaa, 0, 0, 0, 15, 0, 0, 0, 2, 0, 0, 0, 1, 0, 2, 0, 1, 0, 0, 0}},
    };
    for (Case const &c : cases) {
        QzPostRecorder::Posts().clear();
        EXPECT_EQ(Run(c.configure, c.write), c.expected) << c.name;
        EXPECT_TRUE(QzPostRecorder::Posts().empty()) << c.name;
    }
}

// Bits fill 32-bit words from the top; a value that does not fit finishes
// the word with its upper bits.
TEST_F(QzWriteStreamTest, BitPacking)
{
    int words = 0;
    Bytes bytes = Run(NoSetup, [&](QzWriteStream &s) {
        s.BeginBits();
        s.WriteBits(0x3, 2);
        words = s.EndBits();
    });
    EXPECT_EQ(words, 1);
    EXPECT_EQ(bytes, (Bytes{0, 0, 0, 0xc0, 0, 0, 0, 0}));

    // 20 + 20 bits: 0xABCDE then 0x12345 (masked from 0xF12345) give the
    // words 0xABCDE123 and 0x45......; 3 more bits (0xFF masked to 0x7) and
    // 21 (masked to 0x1) fill the second word exactly: 0x45E00001.
    bytes = Run(NoSetup, [&](QzWriteStream &s) {
        s.BeginBits();
        s.WriteBits(0xABCDE, 20);
        s.WriteBits(0xF12345, 20);
        s.WriteBits(0xFF, 3);
        s.WriteBits(0xFFE00001, 21);
        words = s.EndBits();
    });
    EXPECT_EQ(words, 2);
    EXPECT_EQ(bytes, (Bytes{0x23, 0xe1, 0xcd, 0xab, 0x01, 0x00, 0xe0, 0x45}));
}

// The header line goes out in clear, around the filters, padded to a
// multiple of 8; an extendable format adds the list's end mark.
TEST_F(QzWriteStreamTest, HeaderLine)
{
    RecordingSink probe;
    EXPECT_EQ(std::string(QzWriteStream(&probe).GetConfig().GetString()),
              "#QzStream-V1.1 binary double release utf8 linull\n");

    std::string const line = "#QzStream-V1.1 binary double release utf8 linull\n";  // 49 bytes
    Bytes expected(line.begin(), line.end());
    expected.resize(56, 0);
    EXPECT_EQ(Run(NoSetup, NoSetup, 1), expected);

    QzStreamFormat format("shapes", true);
    Bytes const with_list = Run([&](QzWriteStream &s) { s.SetFormat(&format); }, NoSetup, 1);
    std::string const shapes_line = "#QzStream-V1.1 binary double release utf8 shapes\n";
    Bytes shapes(shapes_line.begin(), shapes_line.end());
    shapes.resize(56, 0);
    Bytes const end_mark = {0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0};
    shapes.insert(shapes.end(), end_mark.begin(), end_mark.end());
    EXPECT_EQ(with_list, shapes);

    // Ascii: no padding. Through a filter: the line in clear, names the
    // filter; the value after it inverted.
    RecordingSink sink;
    InvertingFilter filter;
    QzWriteStream stream(&sink);
    stream.SetAscii(1);
    stream.AddActiveFilter(&filter);
    ASSERT_TRUE(stream.Begin(1, 0));
    stream.WriteNat8(0xab);
    ASSERT_TRUE(stream.End());
    std::string const ascii_line = "#QzStream-V1.1 ascii double release utf8 linull invert\n";
    std::string const value_line = "    ab\n";
    ASSERT_EQ(sink.data.size(), ascii_line.size() + value_line.size());
    EXPECT_EQ(std::string(sink.data.begin(), sink.data.end()).substr(0, ascii_line.size()),
              ascii_line);
    for (std::size_t i = 0; i < value_line.size(); ++i)
        EXPECT_EQ(sink.data[ascii_line.size() + i], static_cast<unsigned char>(~value_line[i]))
            << i;
    EXPECT_EQ(sink.ended, 1);
}

// The binary length limit: exactly 16,777,216 bytes go whole and silently;
// one more is cut there with a warning.
TEST_F(QzWriteStreamTest, StringLengthLimit)
{
    std::string const text(QzStream::kMaxStringLength + 1, 'x');
    for (int extra : {0, 1}) {
        QzPostRecorder::Posts().clear();
        RecordingSink sink(65536);
        QzWriteStream stream(&sink);
        ASSERT_TRUE(stream.Begin(0, 0));
        stream.WriteString(text.c_str(), QzStream::kMaxStringLength + extra);
        ASSERT_TRUE(stream.End()) << extra;
        ASSERT_EQ(sink.data.size(), 4u + 16777216u + 4u) << extra;  // padded to 8
        LtInt32 length = 0;
        std::memcpy(&length, sink.data.data(), 4);
        EXPECT_EQ(length, 16777216) << extra;
        EXPECT_EQ(sink.data[4 + 16777215], 'x') << extra;
        EXPECT_EQ(CountPosts(u"Truncating string"), extra);
        if (extra) {
            EXPECT_EQ(QzPostRecorder::Posts().back().severity, QzSysError::eWARNING);
        }
    }
}

// Wide strings by encoding: combined pairs, one unit at a time, the
// multi-byte form (plain ASCII here), and nothing at all for an unknown one.
TEST_F(QzWriteStreamTest, WideStringEncodings)
{
    LtWChar const face[] = {0xD83D, 0xDE00, 0};  // U+1F600
    struct Case {
        char const *name;
        int encoding;
        LtWChar const *text;
        Bytes expected;
    } const cases[] = {
        {"utf8_pairs", 0, face, {4, 0, 0, 0, 0xf0, 0x9f, 0x98, 0x80}},
        {"utf8_units", 2, face, {6, 0, 0, 0, 0xed, 0xa0, 0xbd, 0xed, 0xb8, 0x80, 0, 0, 0, 0, 0, 0}},
        {"multibyte", 1, u"ab", {2, 0, 0, 0, 'a', 'b', 0, 0}},
        {"null", 0, nullptr, {0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0}},
        {"unknown_encoding_not_even_a_token", 7, u"ab", {}},
    };
    for (Case const &c : cases) {
        Bytes const bytes = Run(
            [&](QzWriteStream &s) {
                s.SetWideStringEncoding(static_cast<QzStream::WideStringEncoding>(c.encoding));
                s.SetDebug(c.encoding == 7);
            },
            [&](QzWriteStream &s) { s << c.text; });
        EXPECT_EQ(bytes, c.expected) << c.name;
    }
}

// The ascii form: indent, one value after a blank or a bracketed array,
// hexadecimal unsigned and decimal signed values, quoted strings, tokens.
TEST_F(QzWriteStreamTest, AsciiText)
{
    struct Case {
        char const *name;
        Writer configure;
        Writer write;
        std::string expected;
    } const cases[] = {
        {"int32", NoSetup, [](QzWriteStream &s) { s.WriteInt32(-5); },
         "  "
         " "
         " "
         "         -5\n"},
        {"nat32_hex", NoSetup, [](QzWriteStream &s) { s.WriteNat32(0xbeef); },
         "  "
         " "
         " "
         "    beef\n"},
        {"nat64_hex", NoSetup, [](QzWriteStream &s) { s.WriteNat64(0x123456789aull); },
         "    123456789a\n"},
        {"empty_null_and_escaped_strings", NoSetup,
         [](QzWriteStream &s) {
             s.WriteString("");
             s.WriteString(nullptr);
             s.WriteString("a\"b\\c");
         },
         "  \"\"\n  linull\n  \"a\\\"b\\\\c\"\n"},
        {"empty_array", NoSetup, [](QzWriteStream &s) { s.WriteInt32Array(nullptr, 0); },
         "  [ ]\n"},
        {"one_line_nat8_array", NoSetup,
         [](QzWriteStream &s) {
             LtNat8 const values[] = {0xab, 0x01};
             s.WriteNat8Array(values, 2);
         },
         "  [ ab  1 ]\n"},
        {"zero_thresholds_strictly_above",
         [](QzWriteStream &s) {
             s.SetSingleZero(0.5);
             s.SetDoubleZero(1.0e-10);
         },
         [](QzWriteStream &s) {
             s.WriteSingle(0.25f);
             s.WriteSingle(-0.5f);
             s.WriteDouble(-1.0e-11);
         },
         "  "
         " "
         " "
         "         0\n"
         "  "
         " "
         " "
         "      -0.5\n"
         "  "
         " "
         " "
         "                  0\n"},
        {"double_default_digits", NoSetup, [](QzWriteStream &s) { s.WriteDouble(0.1); },
         "  "
         " "
         " "
         "0.10000000000000001\n"},
        {"digits_clamped_and_used",
         [](QzWriteStream &s) {
             s.SetSingleDigits(3);
             s.SetDoubleDigits(0);
         },
         [](QzWriteStream &s) {
             s.WriteSingle(3.14159f);
             s.WriteDouble(3.0);
         },
         "  "
         " "
         " "
         " 3.14\n"
         "  "
         " "
         " "
         "  3\n"},
        {"debug_tokens", [](QzWriteStream &s) { s.SetDebug(1); },
         [](QzWriteStream &s) {
             s.WriteBoolean(true);
             LtInt16 const values[] = {7, -7};
             s.WriteInt16Array(values, 2);
         },
         "  Boolean\n"
         "  "
         " "
         " "
         "       1\n"
         "  Int16Array 2\n"
         "  ["
         "      7"
         "     -7"
         " ]\n"
         "  Sync\n"},
    };
    for (Case const &c : cases)
        EXPECT_EQ(RunText(c.configure, c.write), c.expected) << c.name;
}

// A multi-line array: lines of `columns` values, each new line a line feed,
// one blank and the indent; the closing bracket on a line of its own.
TEST_F(QzWriteStreamTest, AsciiMultiLineArray)
{
    std::string const text = RunText(NoSetup, [](QzWriteStream &s) {
        s.SetIndent(3);
        s.SetNumCols(2);
        LtInt32 const values[] = {1, -20, 300, 4, 5};
        s.WriteInt32Array(values, 5);
    });
    EXPECT_EQ(text, "   ["
                    "           1"
                    "         -20"
                    "\n"
                    "    "
                    "         300"
                    "           4"
                    "\n"
                    "    "
                    "           5"
                    "\n"
                    "   ]\n");
}

// Each refusal of the sink gives its error and message; later writes and
// the final sync have no effect.
TEST_F(QzWriteStreamTest, SinkFailures)
{
    struct Case {
        char const *name;
        void (*arm)(RecordingSink &);
        QzStream::ErrorId error;
        char16_t const *message;
        int begun;
    } const cases[] = {
        {"begin", [](RecordingSink &k) { k.refuse_begin = true; }, QzStream::ErrorWriteBegin,
         u"WriteBegin failed", 0},
        {"lock", [](RecordingSink &k) { k.fail_lock = true; }, QzStream::ErrorWriteLock,
         u"Write Failed", 1},
        {"process", [](RecordingSink &k) { k.fail_process = true; }, QzStream::ErrorWriteProcess,
         u"Write Failed", 1},
        {"misaligned", [](RecordingSink &k) { k.misalign = true; }, QzStream::ErrorAlignment,
         u"Block is not aligned", 1},
        {"flush", [](RecordingSink &k) { k.fail_flush = true; }, QzStream::ErrorFlush,
         u"Flush Failed", 1},
    };
    for (Case const &c : cases) {
        QzPostRecorder::Posts().clear();
        RecordingSink sink(8);
        c.arm(sink);
        QzWriteStream stream(&sink);
        EXPECT_EQ(stream.Begin(0, 0), c.begun) << c.name;
        stream.WriteInt32Array(std::vector<LtInt32>(4, 7).data(), 4);  // fills 2 blocks
        stream.WriteInt32(9);
        EXPECT_EQ(stream.End(), 0) << c.name;
        EXPECT_EQ(stream.GetError(), c.error) << c.name;
        ASSERT_EQ(CountPosts(c.message), 1) << c.name;
        QzSysError::Severity const severity =
            c.error == QzStream::ErrorFlush ? QzSysError::eWARNING : QzSysError::eDEBUG;
        EXPECT_EQ(QzPostRecorder::Posts().front().severity, severity) << c.name;
        EXPECT_EQ(QzPostRecorder::Posts().front().id, c.error) << c.name;
        EXPECT_LE(sink.processed.size(), c.error == QzStream::ErrorFlush ? 3u : 0u) << c.name;
        EXPECT_EQ(sink.ended, c.begun) << c.name;  // a refused sink is not ended
    }
}

// A stream that was never begun touches nothing, and End answers 0.
TEST_F(QzWriteStreamTest, NeverBegunIsInert)
{
    RecordingSink sink;
    QzWriteStream stream(&sink);
    stream.WriteInt32(1);
    stream.WriteString("text");
    stream.WriteSync();
    stream.SendAscii("raw");
    EXPECT_EQ(stream.End(), 0);
    EXPECT_EQ(stream.GetError(), QzStream::ErrorNotBegun);
    EXPECT_EQ(sink.calls, 0);
    EXPECT_TRUE(QzPostRecorder::Posts().empty());
}

// Small blocks: runs split at block ends, padding may end a block, and the
// bytes handed on are those of one contiguous run.
TEST_F(QzWriteStreamTest, ArraysAcrossBlocks)
{
    RecordingSink sink(16);
    QzWriteStream stream(&sink);
    ASSERT_TRUE(stream.Begin(0, 0));
    stream.WriteNat8(0xee);
    LtInt32 const values[] = {1, 2, 3, 4, 5};
    stream.WriteInt32Array(values, 5);
    stream.WriteNat8(0xdd);
    stream.WriteDouble(1.0);  // 7 pad bytes end the second block
    ASSERT_TRUE(stream.End());
    Bytes const expected = {0xee, 0, 0, 0, 1, 0, 0,    0,   2,    0, 0, 0, 3, 0, 0, 0,  // block 1
                            4,    0, 0, 0, 5, 0, 0,    0,   0xdd, 0, 0, 0, 0, 0, 0, 0,  // block 2
                            0,    0, 0, 0, 0, 0, 0xf0, 0x3f};                           // block 3
    EXPECT_EQ(sink.data, expected);
    EXPECT_EQ(sink.processed, (std::vector<int>{16, 16, 8}));
}

// CopyConfig takes the digits (clamped when they were set) and the zero
// thresholds with the shared settings, but not the ascii layout.
TEST_F(QzWriteStreamTest, CopyConfigTakesDigitsAndThresholds)
{
    RecordingSink sink;
    QzWriteStream from(&sink);
    from.SetAscii(1);
    from.SetSingleDigits(20);
    from.SetDoubleDigits(5);
    from.SetSingleZero(0.125);
    from.SetDoubleZero(0.25);
    from.SetNumCols(3);
    QzWriteStream to(&sink);
    to.CopyConfig(from);
    EXPECT_EQ(to.IsAscii(), 1);
    EXPECT_EQ(to.GetSingleDigits(), 8);
    EXPECT_EQ(to.GetDoubleDigits(), 5);
    EXPECT_EQ(to.GetSingleZero(), 0.125);
    EXPECT_EQ(to.GetDoubleZero(), 0.25);
    EXPECT_EQ(to.GetNumCols(), 0);
    ASSERT_TRUE(to.Begin(0, 0));
    to.WriteDouble(1.0 / 3.0);
    ASSERT_TRUE(to.End());
    EXPECT_EQ(std::string(sink.data.begin(), sink.data.end()), "    0.33333\n");
}
