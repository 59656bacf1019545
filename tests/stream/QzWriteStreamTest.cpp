// QzWriteStream: the exact bytes of the binary form (alignment, padding,
// strings, tokens, bits, header), the exact text of the ascii form, and the
// sticky errors raised by the sink protocol.

#include "qzutil/stream/QzWriteStream.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"

#include "stream/QzStreamTestHelpers.h"
#include "support/QzTestSupport.h"

namespace {

using Writer = std::function<void(QzWriteStream &)>;

// Values for the rows' captureless writers.
char const *const kNullText = nullptr;
LtNat8 const kNat8s[] = {0xab, 0x01};
LtInt16 const kPair[] = {7, -7};

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
        return QzFileURL::eSTATUS_ERROR;
    }
    int ReadProcess(int) override { return 0; }
    char const *GetName() const override { return "invert"; }

private:
    LtNat64 m_block[64];
};

class QzWriteStreamTest : public QzStreamFixture {
protected:
    // One run into a QzStreamBuffer: `configure` (if any) before Begin,
    // `write` (if any) between Begin and End. The bytes written.
    static std::string Run(Writer const &configure, Writer const &write, int write_config = 0)
    {
        QzStreamBuffer buffer;
        QzWriteStream stream(&buffer);
        if (configure)
            configure(stream);
        EXPECT_TRUE(stream.Begin(write_config, 0));
        if (write)
            write(stream);
        EXPECT_TRUE(stream.End());
        auto const *start = reinterpret_cast<char const *>(buffer.GetAlignedBuffer());
        return start ? std::string(start, static_cast<std::size_t>(buffer.GetAlignedUsed())) : "";
    }
    static std::string RunText(Writer const &configure, Writer const &write)
    {
        return Run(
            [&](QzWriteStream &s) {
                s.SetAscii(1);
                if (configure)
                    configure(s);
            },
            write);
    }
    static int CountPosts(QzSysError::Severity severity, char16_t const *message)
    {
        int count = 0;
        for (QzRecordedPost const &post : QzPostRecorder::Posts())
            count += post.severity == severity && post.message == message;
        return count;
    }
};

}  // namespace

// Values little-endian at their own alignment from the block start, zero
// padding, and the final sync padding to a multiple of 8.
TEST_F(QzWriteStreamTest, BinaryLayout)
{
    Writer const single = [](QzWriteStream &s) { s.SetDouble(0); };
    struct Case {
        char const *name;
        Writer configure;
        Writer write;
        char const *hex;
    } const cases[] = {
        {"nat8_then_int32", nullptr,
         [](QzWriteStream &s) { s << LtNat8{5} << LtInt32{0x01020304}; }, "05000000 04030201"},
        {"odd_string_then_nat16", nullptr, [](QzWriteStream &s) { s << "abc" << LtNat16{0x0102}; },
         "03000000 61626300 02010000 00000000"},
        {"empty_and_null_strings", nullptr, [](QzWriteStream &s) { s << "" << kNullText; },
         "00000000 ffffffff"},
        {"int16_negative", nullptr, [](QzWriteStream &s) { s.WriteInt16(-2); },
         "feff0000 00000000"},
        {"float_on_single_stream", single, [](QzWriteStream &s) { s.WriteFloat(1.5); },
         "0000c03f 00000000"},
        {"float_on_double_stream_aligns_to_8", nullptr,
         [](QzWriteStream &s) { (s << LtNat8{1}).WriteFloat(1.5); },
         "01000000 00000000 00000000 0000f83f"},
        {"no_zero_threshold_in_binary", [](QzWriteStream &s) { s.SetSingleZero(1.0e-20); },
         [](QzWriteStream &s) { s.WriteSingle(1.0e-30f); },
         "6042a20d 00000000"},  // 1e-30f is 0x0da24260
        {"bool_and_nat64", nullptr, [](QzWriteStream &s) { s << true << 0x0102030405060708ull; },
         "01000000 00000000 08070605 04030201"},
        // Nat8 token 2, value, pad; Int16Array token 15 with count 2; the
        // values; the Sync token 1 of End; pad to 8.
        {"debug_scalar_array_and_sync", [](QzWriteStream &s) { s.SetDebug(1); },
         [](QzWriteStream &s) { (s << LtNat8{0xaa}).WriteInt16Array(kPair, 2); },
         "02000000 aa000000 0f000000 02000000 0700f9ff 01000000"},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        EXPECT_EQ(Run(c.configure, c.write), Hex(c.hex));
        EXPECT_EQ(Messages(), "");
    }
}

// Bits fill 32-bit words from the top; a value that does not fit finishes
// the word with its upper bits.
TEST_F(QzWriteStreamTest, BitPacking)
{
    int words = 0;
    std::string bytes = Run(nullptr, [&](QzWriteStream &s) {
        s.BeginBits();
        s.WriteBits(0x3, 2);
        words = s.EndBits();
    });
    EXPECT_EQ(words, 1);
    EXPECT_EQ(bytes, Le32(0xC0000000, 0));

    // 20 + 20 bits: 0xABCDE then 0x12345 (masked from 0xF12345) give the
    // words 0xABCDE123 and 0x45......; 3 more bits (0xFF masked to 0x7) and
    // 21 (masked to 0x1) fill the second word exactly: 0x45E00001.
    bytes = Run(nullptr, [&](QzWriteStream &s) {
        s.BeginBits();
        s.WriteBits(0xABCDE, 20);
        s.WriteBits(0xF12345, 20);
        s.WriteBits(0xFF, 3);
        s.WriteBits(0xFFE00001, 21);
        words = s.EndBits();
    });
    EXPECT_EQ(words, 2);
    EXPECT_EQ(bytes, Le32(0xABCDE123, 0x45E00001));
}

// The header line goes out in clear, around the filters, padded to a
// multiple of 8 in binary; an extendable format adds the list's end mark.
TEST_F(QzWriteStreamTest, HeaderLine)
{
    EXPECT_EQ(Run(nullptr, nullptr, 1), BinaryHeader());
    QzStreamFormat format("shapes", true);
    EXPECT_EQ(Run([&](QzWriteStream &s) { s.SetFormat(&format); }, nullptr, 1),
              BinaryHeader("binary double release utf8 shapes") + Le32(0xFFFFFFFF, 0));

    ScriptedSink sink;
    InvertingFilter filter;
    QzWriteStream stream(&sink);
    stream.SetAscii(1);
    stream.AddActiveFilter(&filter);
    ASSERT_TRUE(stream.Begin(1, 0));
    stream.WriteNat8(0xab);
    ASSERT_TRUE(stream.End());
    std::string value_line = "    ab\n";
    for (char &c : value_line)
        c = static_cast<char>(~c);
    EXPECT_EQ(sink.data, Header("ascii double release utf8 linull invert") + value_line);
    EXPECT_EQ(sink.ends, 1);
}

// The binary length limit: exactly 16,777,216 bytes go whole and silently;
// one more is cut there with a warning.
TEST_F(QzWriteStreamTest, StringLengthLimit)
{
    std::string const text(QzStream::kMaxStringLength + 1, 'x');
    for (int extra : {0, 1}) {
        SCOPED_TRACE(extra);
        ClearPosts();
        ScriptedSink sink("", 65536);
        QzWriteStream stream(&sink);
        ASSERT_TRUE(stream.Begin(0, 0));
        stream.WriteString(text.c_str(), QzStream::kMaxStringLength + extra);
        ASSERT_TRUE(stream.End());
        ASSERT_EQ(sink.data.size(), 4u + 16777216u + 4u);  // padded to 8
        EXPECT_EQ(sink.data.substr(0, 4), Le32(16777216));
        EXPECT_EQ(sink.data[4 + 16777215], 'x');
        EXPECT_EQ(CountPosts(QzSysError::eWARNING, u"Truncating string"), extra);
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
        char const *hex;
    } const cases[] = {
        {"utf8_pairs", 0, face, "04000000 f09f9880"},
        {"utf8_units", 2, face, "06000000 eda0bded b8800000 00000000"},
        {"multibyte", 1, u"ab", "02000000 61620000"},
        {"null", 0, nullptr, "ffffffff 00000000"},
        {"unknown_encoding_not_even_a_token", 7, u"ab", ""},
    };
    for (Case const &c : cases) {
        std::string const bytes = Run(
            [&](QzWriteStream &s) {
                s.SetWideStringEncoding(static_cast<QzStream::WideStringEncoding>(c.encoding));
                s.SetDebug(c.encoding == 7);
            },
            [&](QzWriteStream &s) { s << c.text; });
        EXPECT_EQ(bytes, Hex(c.hex)) << c.name;
    }
}

// The ascii form: a value line is the indent (2), a blank, and the value in
// its field (" %11d" for Int32, " %8x" for Nat32, and so on); unsigned values
// in hexadecimal, strings quoted, a short array bracketed on one line.
TEST_F(QzWriteStreamTest, AsciiText)
{
    Writer const thresholds = [](QzWriteStream &s) {
        s.SetSingleZero(0.5);
        s.SetDoubleZero(1.0e-10);
    };
    Writer const digits = [](QzWriteStream &s) {
        s.SetSingleDigits(3);
        s.SetDoubleDigits(0);
    };
    struct Case {
        char const *name;
        Writer configure;
        Writer write;
        std::string expected;
    } const cases[] = {
        {"int32", nullptr, [](QzWriteStream &s) { s.WriteInt32(-5); }, "             -5\n"},
        {"nat32_hex", nullptr, [](QzWriteStream &s) { s.WriteNat32(0xbeef); }, "        beef\n"},
        {"nat64_hex", nullptr, [](QzWriteStream &s) { s.WriteNat64(0x123456789aull); },
         "    123456789a\n"},
        {"empty_null_and_escaped_strings", nullptr,
         [](QzWriteStream &s) { s << "" << kNullText << "a\"b\\c"; },
         "  \"\"\n  linull\n  \"a\\\"b\\\\c\"\n"},
        {"empty_array", nullptr, [](QzWriteStream &s) { s.WriteInt32Array(nullptr, 0); },
         "  [ ]\n"},
        {"one_line_nat8_array", nullptr, [](QzWriteStream &s) { s.WriteNat8Array(kNat8s, 2); },
         "  [ ab  1 ]\n"},
        // The thresholds are strict: -0.5 stays, -1e-11 becomes 0.
        {"zero_thresholds", thresholds, [](QzWriteStream &s) { s << 0.25f << -0.5f << -1.0e-11; },
         "             0\n          -0.5\n                      0\n"},
        {"double_default_digits", nullptr, [](QzWriteStream &s) { s.WriteDouble(0.1); },
         "    0.10000000000000001\n"},
        {"digits_clamped_and_used", digits, [](QzWriteStream &s) { s << 3.14159f << 3.0; },
         "     3.14\n      3\n"},
        {"debug_tokens", [](QzWriteStream &s) { s.SetDebug(1); },
         [](QzWriteStream &s) { (s << true).WriteInt16Array(kPair, 2); },
         "  Boolean\n           1\n  Int16Array 2\n  [      7     -7 ]\n  Sync\n"},
    };
    for (Case const &c : cases)
        EXPECT_EQ(RunText(c.configure, c.write), c.expected) << c.name;
}

// A multi-line array: lines of `columns` values, each new line a line feed,
// one blank and the indent; the closing bracket on a line of its own.
TEST_F(QzWriteStreamTest, AsciiMultiLineArray)
{
    std::string const text = RunText(nullptr, [](QzWriteStream &s) {
        s.SetIndent(3);
        s.SetNumCols(2);
        LtInt32 const values[] = {1, -20, 300, 4, 5};
        s.WriteInt32Array(values, 5);
    });
    EXPECT_EQ(text, "   [           1         -20\n"
                    "             300           4\n"
                    "               5\n"
                    "   ]\n");
}

// Each refusal of the sink gives its error and message; later writes and
// the final sync have no effect.
TEST_F(QzWriteStreamTest, SinkFailures)
{
    struct Case {
        char const *name;
        void (*arm)(ScriptedSink &);  // none: memory 4 bytes off the 8-byte alignment
        QzStream::ErrorId error;
        char16_t const *message;
        int begun;
    } const cases[] = {
        {"begin", [](ScriptedSink &k) { k.refuse_begin = true; }, QzStream::ErrorWriteBegin,
         u"WriteBegin failed", 0},
        {"lock", [](ScriptedSink &k) { k.fail_lock = true; }, QzStream::ErrorWriteLock,
         u"Write Failed", 1},
        {"process", [](ScriptedSink &k) { k.refuse_process = true; }, QzStream::ErrorWriteProcess,
         u"Write Failed", 1},
        {"misaligned", nullptr, QzStream::ErrorAlignment, u"Block is not aligned", 1},
        {"flush", [](ScriptedSink &k) { k.fail_flush = true; }, QzStream::ErrorFlush,
         u"Flush Failed", 1},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        ScriptedSink sink("", 8, c.arm == nullptr ? 4 : 0);
        if (c.arm != nullptr)
            c.arm(sink);
        QzWriteStream stream(&sink);
        EXPECT_EQ(stream.Begin(0, 0), c.begun);
        stream.WriteInt32Array(std::vector<LtInt32>(4, 7).data(), 4);  // fills 2 blocks
        stream.WriteInt32(9);
        EXPECT_EQ(stream.End(), 0);
        EXPECT_EQ(stream.GetError(), c.error);
        bool const is_flush = c.error == QzStream::ErrorFlush;
        EXPECT_EQ(CountPosts(is_flush ? QzSysError::eWARNING : QzSysError::eDEBUG, c.message), 1);
        EXPECT_EQ(QzPostRecorder::Posts().front().id, c.error);
        EXPECT_LE(sink.processed.size(), is_flush ? 3u : 0u);
        EXPECT_EQ(sink.ends, c.begun);  // a refused sink is not ended
    }
}

// A stream that was never begun touches nothing, and End answers 0.
TEST_F(QzWriteStreamTest, NeverBegunIsInert)
{
    ScriptedSink sink;
    QzWriteStream stream(&sink);
    stream.WriteInt32(1);
    stream.WriteString("text");
    stream.WriteSync();
    stream.SendAscii("raw");
    EXPECT_EQ(stream.End(), 0);
    EXPECT_EQ(stream.GetError(), QzStream::ErrorNotBegun);
    EXPECT_EQ(sink.calls, 0);
    EXPECT_EQ(Messages(), "");
}

// Small blocks: runs split at block ends, padding may end a block, and the
// bytes handed on are those of one contiguous run.
TEST_F(QzWriteStreamTest, ArraysAcrossBlocks)
{
    ScriptedSink sink("", 16);
    QzWriteStream stream(&sink);
    ASSERT_TRUE(stream.Begin(0, 0));
    stream.WriteNat8(0xee);
    LtInt32 const values[] = {1, 2, 3, 4, 5};
    stream.WriteInt32Array(values, 5);
    stream.WriteNat8(0xdd);
    stream.WriteDouble(1.0);  // 7 pad bytes end the second block
    ASSERT_TRUE(stream.End());
    EXPECT_EQ(sink.data, Hex("ee000000 01000000 02000000 03000000"  // block 1
                             "04000000 05000000 dd000000 00000000"  // block 2
                             "00000000 0000f03f"));                 // block 3
    EXPECT_EQ(sink.processed, (std::vector<int>{16, 16, 8}));
}

// CopyConfig takes the digits (clamped when they were set) and the zero
// thresholds with the shared settings, but not the ascii layout.
TEST_F(QzWriteStreamTest, CopyConfigTakesDigitsAndThresholds)
{
    ScriptedSink sink;
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
}
