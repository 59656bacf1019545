// QzReadStreamTest.cpp: the reading stream over bytes written out by hand
// (independent of the writer): the header line, binary values and their
// padding, the ascii scanner and its parse messages, strings, bits, debug
// tokens, and the faults of a sink.
#include "qzutil/stream/QzReadStream.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzStreamSink.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "stream/QzStreamTestHelpers.h"
#include "support/QzTestSupport.h"

using namespace std::string_literals;

// Hands the data on unchanged and counts the bytes consumed through it.
class PassFilter : public QzStreamFilter {
public:
    char const *GetName() const override { return "zpack"; }
    int WriteLock(unsigned char **, int *) override { return 0; }
    int WriteProcess(int) override { return 0; }
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override
    {
        return GetSink()->ReadLock(buffer, size);
    }
    int ReadProcess(int count) override
    {
        passed += count;
        return GetSink()->ReadProcess(count);
    }
    int passed = 0;
};

class QzReadStreamTest : public QzStreamFixture {};

static std::string Text(QzStringBuffer const &text)
{
    return text.IsNull() ? "(null)" : std::string(text.GetString());
}

// The four settings come from the header, whatever the reader was set to;
// a carriage return before the line feed changes nothing.
TEST_F(QzReadStreamTest, HeaderSetsTheFormFromTheData)
{
    struct Case {
        char const *name;
        std::string bytes;
        int ascii, is_double, debug;
        QzStream::WideStringEncoding encoding;
    };
    Case const cases[] = {
        {"ascii_crlf", "#QzStream-V1.1 ascii double release utf8 linull\r\n  5\r\n", 1, 1, 0,
         QzStream::eWIDE_UTF8},
        {"ascii_debug", Header("ascii single debug C linull") + "  Sync\n  Int32\n  5\n  Sync\n", 1,
         0, 1, QzStream::eWIDE_MULTIBYTE},
        // 44 header bytes, then the header's Sync token fills the block to 48.
        {"binary_debug", Header("binary single debug C linull") + Le32(1, 5, 5, 1, 0), 0, 0, 1,
         QzStream::eWIDE_MULTIBYTE},
        {"binary", BinaryHeader() + Le32(5, 0), 0, 1, 0, QzStream::eWIDE_UTF8},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedSink sink(c.bytes);
        QzReadStream reader(&sink);
        reader.SetAscii(!c.ascii);
        reader.SetWideStringEncoding(QzStream::eWIDE_UTF8_UNITS);
        ASSERT_EQ(reader.Begin(1, 0), 1) << Messages();
        EXPECT_EQ(reader.IsAscii(), c.ascii);
        EXPECT_EQ(reader.IsDouble(), c.is_double);
        EXPECT_EQ(reader.IsDebug(), c.debug);
        EXPECT_EQ(reader.GetWideStringEncoding(), c.encoding);
        EXPECT_EQ(reader.ReadInt32(), 5);
        EXPECT_EQ(reader.End(1), 1) << Messages();
    }
    EXPECT_EQ(Messages(), "");
}

// A filter word needs an offered filter of that name, or Begin fails and
// ends the sink; the line itself goes around the filter, the data through it.
TEST_F(QzReadStreamTest, FilterWordsNeedAnAvailableFilter)
{
    std::string const bytes = BinaryHeader("binary double release utf8 linull zpack") + Le(7, 8);
    ScriptedSink unknown_sink(bytes);
    QzReadStream unknown(&unknown_sink);
    EXPECT_EQ(unknown.Begin(1, 0), 0);
    EXPECT_EQ(unknown.GetError(), QzStream::ErrorUnknownConfig);
    EXPECT_EQ(Messages(), "Unknown configuration|");
    EXPECT_EQ(QzPostRecorder::Posts().at(0).id, QzStream::ErrorUnknownConfig);
    EXPECT_EQ(unknown_sink.ends, 1);
    EXPECT_EQ(unknown.End(1), 0) << "no run to end";

    ScriptedSink sink(bytes);
    PassFilter filter;
    QzReadStream offering(nullptr);
    offering.AddAvailableFilter(&filter);
    QzReadStream reader(&sink);
    reader.CopyConfig(offering);  // the offered filters come along
    ASSERT_EQ(reader.Begin(1, 0), 1);
    EXPECT_EQ(reader.ReadInt32(), 7);
    EXPECT_EQ(reader.End(1), 1);
    EXPECT_EQ(filter.passed, 8) << "only the value went through the filter";
}

static int RecogniseModel3(QzStreamFormat const *, char const *name, int *version)
{
    if (std::strcmp(name, "Model-3") != 0)
        return 0;
    *version = 3;
    return 1;
}

// The format word: a known name, an earlier name that a callback knows,
// "linull", and an unknown name with and without check_format.
TEST_F(QzReadStreamTest, FormatWordChoosesTheFormat)
{
    QzStreamFormat model("Model", false);
    model.SetVersion(5);
    model.SetEarlierVersionCB(RecogniseModel3);
    QzStreamFormat extendable("Ext", true);
    QzStreamFormat preset("Preset", false);
    struct Case {
        char const *word;
        std::string after_header;
        int check_format, begun;
        QzStreamFormat const *format;
        int read_version;
    };
    Case const cases[] = {
        {"Model", "", 1, 1, &model, 5},
        {"Model-3", "", 1, 1, &model, 3},
        {"linull", "", 1, 1, nullptr, 0},
        {"Other", "", 0, 1, &preset, 0},
        {"Other", "", 1, 0, &preset, 0},
        // An extendable format's extension list: here only its end mark.
        {"Ext", Le(0xFFFFFFFF, 8), 1, 1, &extendable, 0},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.word);
        ScriptedSink sink(BinaryHeader("binary double release utf8 "s + c.word) + c.after_header);
        QzReadStream reader(&sink);
        reader.SetFormat(&preset);
        reader.AddAvailableFormat(&extendable);
        reader.AddAvailableFormat(&model);
        EXPECT_EQ(reader.Begin(1, c.check_format), c.begun);
        EXPECT_EQ(reader.GetFormat(), c.format);
        EXPECT_EQ(reader.GetCurrentReadVersion(), c.read_version);
        if (c.begun) {
            EXPECT_EQ(reader.GetCurrentReadFormat(), c.format);
            EXPECT_EQ(reader.End(1), 1);
        } else {
            EXPECT_EQ(reader.GetError(), QzStream::ErrorUnknownConfig);
        }
    }
}

// Without a header the stream's own settings apply, and the read version is
// the format's. Before Begin the stream is inert.
TEST_F(QzReadStreamTest, HeaderlessBeginTakesTheConfiguredSettings)
{
    QzStreamFormat model("Model", false);
    model.SetVersion(5);
    ScriptedSink sink("  Int32\n  7\n");
    QzReadStream reader(&sink);
    EXPECT_EQ(reader.ReadInt32(), 0);
    EXPECT_EQ(reader.GetError(), QzStream::ErrorNotBegun);
    reader.SetAscii(1);
    reader.SetDebug(1);
    reader.SetFormat(&model);
    ASSERT_EQ(reader.Begin(0, 1), 1);
    EXPECT_EQ(reader.GetCurrentReadVersion(), 5);
    EXPECT_EQ(reader.ReadInt32(), 7);
    EXPECT_EQ(reader.End(0), 1);
}

// Each value at its own alignment, little-endian, padding zero.
TEST_F(QzReadStreamTest, BinaryValuesAtTheirAlignment)
{
    std::string const payload = "\x81\0"s + Le(0xFFFE, 2) + Le32(0x01020304) +
                                Le(0x1122334455667788, 8) + Le(0x3FF8000000000000, 8) +
                                Le32(2, 1, 0x3E800000, 7);
    ScriptedSink sink(BinaryHeader("binary single release utf8 linull") + payload);
    QzReadStream reader(&sink);
    ASSERT_EQ(reader.Begin(1, 0), 1);
    EXPECT_EQ(reader.ReadNat8(), 0x81);
    EXPECT_EQ(reader.ReadInt16(), -2);
    EXPECT_EQ(reader.ReadInt32(), 0x01020304);
    long long nat64 = 0;
    double real = 0;
    bool is_two_true = true;
    bool is_one_true = false;
    reader >> nat64 >> real >> is_two_true >> is_one_true;
    EXPECT_EQ(nat64, 0x1122334455667788);
    EXPECT_EQ(real, 1.5);
    EXPECT_FALSE(is_two_true) << "only 1 is true";
    EXPECT_TRUE(is_one_true);
    EXPECT_EQ(reader.ReadFloat(), 0.25) << "a single stream's Float is a Single";
    EXPECT_EQ(reader.ReadArraySize32WithMaximum(6), 0);
    EXPECT_EQ(reader.GetError(), QzStream::ErrorParse);
    EXPECT_EQ(reader.End(1), 0);
}

TEST_F(QzReadStreamTest, NonZeroPaddingIsMalformed)
{
    std::string header = BinaryHeader();
    header.back() = '\x01';
    ScriptedSink header_sink(header);
    QzReadStream after_header(&header_sink);
    EXPECT_EQ(after_header.Begin(1, 0), 0);
    EXPECT_EQ(after_header.GetError(), QzStream::ErrorMalformed);
    EXPECT_EQ(header_sink.ends, 1);

    ScriptedSink sink(BinaryHeader() + "\x05\0\x01\0"s + Le32(9));
    QzReadStream reader(&sink);
    ASSERT_EQ(reader.Begin(1, 0), 1);
    EXPECT_EQ(reader.ReadNat8(), 5);
    EXPECT_EQ(reader.ReadInt32(), 0);
    EXPECT_EQ(reader.GetError(), QzStream::ErrorMalformed);
    EXPECT_EQ(Messages(), "Malformed data|Malformed data|");
}

// Arrays run across block ends; a cut leaves the rest zero.
TEST_F(QzReadStreamTest, ArrayAcrossBlocksAndCutShort)
{
    ScriptedSink whole_sink(BinaryHeader() + Le32(1, 2, 3, 4), 8);
    QzReadStream whole(&whole_sink);
    ASSERT_EQ(whole.Begin(1, 0), 1);
    std::vector<LtInt32> read(4, -1);
    whole.ReadInt32Array(read.data(), 4);
    EXPECT_EQ(read, (std::vector<LtInt32>{1, 2, 3, 4}));
    EXPECT_EQ(whole.End(1), 1);

    ScriptedSink cut_sink(BinaryHeader() + Le32(1, 2));
    QzReadStream cut(&cut_sink);
    ASSERT_EQ(cut.Begin(1, 0), 1);
    read.assign(4, -1);
    cut.ReadInt32Array(read.data(), 4);
    EXPECT_EQ(read, (std::vector<LtInt32>{1, 2, 0, 0}));
    EXPECT_EQ(cut.GetError(), QzStream::ErrorEndOfData);
    EXPECT_EQ(Messages(), "Unexpected end of data|");
}

TEST_F(QzReadStreamTest, AsciiArrays)
{
    ScriptedSink sink(Header("ascii double release utf8 linull") +
                      "  [ ]\n  [ ffff    0\n    1a\n  ]\n  [ 1.5 -2.25 ]\n  ffffffffffffffff\n");
    QzReadStream reader(&sink);
    ASSERT_EQ(reader.Begin(1, 0), 1);
    LtInt32 none = 99;
    reader.ReadInt32Array(&none, 0);
    EXPECT_EQ(none, 99);
    std::vector<LtNat16> hex(3);
    reader.ReadNat16Array(hex.data(), 3);
    EXPECT_EQ(hex, (std::vector<LtNat16>{0xFFFF, 0, 0x1A}));
    std::vector<LtDouble> reals(2);
    reader.ReadDoubleArray(reals.data(), 2);
    EXPECT_EQ(reals, (std::vector<LtDouble>{1.5, -2.25}));
    LtNat64 single = 0;
    reader.ReadNat64Array(&single, 1);
    EXPECT_EQ(single, ~LtNat64{0});
    EXPECT_EQ(reader.End(1), 1) << Messages();
}

TEST_F(QzReadStreamTest, BinaryStrings)
{
    struct Case {
        char const *name;
        std::string payload;
        char const *text;
        QzStream::ErrorId error;
        char const *message;
    };
    Case const cases[] = {
        {"null", Le32(0xFFFFFFFF), "(null)", QzStream::ErrorNone, ""},
        {"empty", Le32(0), "", QzStream::ErrorNone, ""},
        {"nul_inside", Le32(3) + "a\0b"s, "a", QzStream::ErrorNone, ""},
        {"too_long", Le32(16777217), "(null)", QzStream::ErrorParse,
         "Read \"16777217\", expected \"String length\"|"},
        {"below_null", Le32(0xFFFFFFFE), "(null)", QzStream::ErrorParse,
         "Read \"-2\", expected \"String length\"|"},
        {"longest_cut", Le32(16777216) + "abc", "(null)", QzStream::ErrorEndOfData,
         "Unexpected end of data|"},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        // A trailing Int32 proves that the whole string was consumed.
        std::string payload = c.payload;
        payload.resize((payload.size() + 3) / 4 * 4, '\0');
        ScriptedSink sink(BinaryHeader() + payload + Le32(9));
        QzReadStream reader(&sink);
        ASSERT_EQ(reader.Begin(1, 0), 1);
        EXPECT_EQ(reader.ReadStringUsingTempBuffer() == nullptr, std::string(c.text) == "(null)");
        EXPECT_EQ(Text(*reader.TempBuffer()), c.text);
        EXPECT_EQ(reader.GetError(), c.error);
        EXPECT_EQ(Messages(), c.message);
        if (c.error == QzStream::ErrorNone) {
            EXPECT_EQ(reader.ReadInt32(), 9);
        }
    }
}

TEST_F(QzReadStreamTest, AsciiAndWideStrings)
{
    ScriptedSink sink(Header("ascii double release utf8 linull") +
                      "  linull\n  \"a\\\"b\\\\c\"\n  \"\"\n  \"open");
    QzReadStream reader(&sink);
    ASSERT_EQ(reader.Begin(1, 0), 1);
    QzStringBuffer text("x");
    for (char const *expected : {"(null)", "a\"b\\c", "", "(null)"}) {
        reader.ReadString(&text);
        EXPECT_EQ(Text(text), expected);
    }
    EXPECT_EQ(Messages(), "Read \"End of data!\", expected \"Quoted String\" at line 5|");

    ClearPosts();
    ScriptedSink wide_sink(BinaryHeader() + Le32(2) + "\xC3\xA9\0\0"s + Le32(1) + "\xFF\0\0\0"s);
    QzReadStream wide(&wide_sink);
    ASSERT_EQ(wide.Begin(1, 0), 1);
    EXPECT_EQ(ToU16(wide.ReadWideStringUsingTempBuffer()), u"\u00E9");
    EXPECT_FALSE(wide.IsError());
    QzWideStringBuffer bad;
    wide.ReadWideString(&bad);
    EXPECT_EQ(wide.GetError(), QzStream::ErrorParse) << "bad UTF-8";
    EXPECT_EQ(Messages(), "") << "and nothing posted";
}

// Bits come from the top of each word down; a value may span two words.
TEST_F(QzReadStreamTest, ReadBitsAcrossWords)
{
    ScriptedSink sink(BinaryHeader() + Le32(0xA0000003, 0xF0000000, 0x12345678, 0));
    QzReadStream reader(&sink);
    ASSERT_EQ(reader.Begin(1, 0), 1);
    reader.BeginBits();
    EXPECT_EQ(reader.ReadBits(0), 0u);
    EXPECT_EQ(reader.ReadBits(3), 5u);   // 101
    EXPECT_EQ(reader.ReadBits(28), 1u);  // 27 zeros, then 1
    EXPECT_EQ(reader.ReadBits(3), 7u);   // the last 1 of word 0, then 11
    EXPECT_EQ(reader.EndBits(), 2);
    reader.BeginBits();
    EXPECT_EQ(reader.ReadBits(32), 0x12345678u);
    EXPECT_EQ(reader.EndBits(), 1);
    EXPECT_EQ(reader.End(1), 1);
}

// A read that does not match the data fails with a parse error, gives zero,
// and posts what it read and what it expected: for a value the type's word,
// for a debug token the two ids (binary) or what matched of the name (ascii),
// for an array token also its count; in ascii with the line.
TEST_F(QzReadStreamTest, MismatchesAreParseErrors)
{
    std::string const ascii = Header("ascii double release utf8 linull") + "\n";
    std::string const ascii_debug = Header("ascii double debug utf8 linull") + "  Sync\n";
    std::string const binary_debug = BinaryHeader("binary double debug utf8 linull") + Le(1, 8);
    using Read = std::function<LtDouble(QzReadStream &)>;
    Read const int32 = [](QzReadStream &r) { return r.ReadInt32(); };
    Read const pair = [](QzReadStream &r) {
        LtInt32 values[2] = {};
        r.ReadInt32Array(values, 2);
        return values[0] + values[1];
    };
    struct Case {
        char const *name;
        std::string bytes;
        Read read;
        char const *message;
    };
    Case const cases[] = {
        {"int32_word", ascii + "  zz\n", int32,
         "Read \"zz\", expected \"LI_U_GLUE_2(LtInt32,!)\" at line 3|"},
        {"nat16_word", ascii + "  g1\n", [](QzReadStream &r) { return r.ReadNat16(); },
         "Read \"g1\", expected \"LI_U_GLUE_2(LtNat16,!)\" at line 3|"},
        {"double_word", ascii + "  x.5\n", [](QzReadStream &r) { return r.ReadDouble(); },
         "Read \"x.5\", expected \"LI_U_GLUE_2(LtDouble,!)\" at line 3|"},
        {"binary_token", binary_debug + Le32(6, 5), int32, "Read \"6\", expected \"5\"|"},
        {"binary_count", binary_debug + Le32(17, 3, 1, 2), pair, "Read \"3\", expected \"2\"|"},
        {"ascii_token", ascii_debug + "  Nat32\n  5\n", int32,
         "Read \"N\", expected \"Int32\" at line 3|"},
        {"ascii_count", ascii_debug + "  Int32Array 3\n  [ 1 2 3 ]\n", pair,
         "Read \"3\", expected \"2\" at line 3|"},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        ScriptedSink sink(c.bytes);
        QzReadStream reader(&sink);
        ASSERT_EQ(reader.Begin(1, 0), 1) << Messages();
        EXPECT_EQ(c.read(reader), 0);
        EXPECT_EQ(reader.GetError(), QzStream::ErrorParse);
        EXPECT_EQ(Messages(), c.message);
    }
}

// In ascii debug a sync is its token and then a line end.
TEST_F(QzReadStreamTest, AsciiDebugSyncNeedsALineEnd)
{
    for (char const *tail : {"  Sync\n", "  Sync\r\n", "  Sync x\n"}) {
        SCOPED_TRACE(tail);
        ScriptedSink sink(Header("ascii double debug utf8 linull") + "  Sync\n" + tail);
        QzReadStream reader(&sink);
        ASSERT_EQ(reader.Begin(1, 0), 1);
        reader.ReadSync();
        bool const is_good = std::strchr(tail, 'x') == nullptr;
        EXPECT_EQ(reader.GetError(), is_good ? QzStream::ErrorNone : QzStream::ErrorParse);
    }
    EXPECT_EQ(Messages(), "") << "a missing line end is not posted";
}

TEST_F(QzReadStreamTest, EndChecksForTrailingWhiteSpace)
{
    struct Case {
        char const *tail;
        int check, ended;
        char const *message;
    };
    Case const cases[] = {
        {"  junk\n", 1, 0, "Read \"j\", expected \"White Space!\" at line 2|"},
        {"  junk\n", 0, 1, ""},
        {" \t\r\n", 1, 1, ""},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.tail);
        ClearPosts();
        ScriptedSink sink(Header("ascii double release utf8 linull") + "  5\n" + c.tail);
        QzReadStream reader(&sink);
        ASSERT_EQ(reader.Begin(1, 0), 1);
        EXPECT_EQ(reader.ReadInt32(), 5);
        EXPECT_EQ(reader.End(c.check), c.ended);
        EXPECT_EQ(Messages(), c.message);
        EXPECT_EQ(sink.ends, 1);
    }
}

TEST_F(QzReadStreamTest, SinkFaults)
{
    struct Case {
        char const *name;
        void (*arm)(ScriptedSink &);  // none: memory 4 bytes off the 8-byte alignment
        QzStream::ErrorId error;
        char const *message;
        int ends;
    };
    Case const cases[] = {
        {"begin_refused", [](ScriptedSink &s) { s.refuse_begin = true; }, QzStream::ErrorNone,
         "ReadBegin failed|", 0},
        {"lock_failed", [](ScriptedSink &s) { s.fail_lock = true; }, QzStream::ErrorReadLock,
         "Read Failed|", 1},
        {"process_refused", [](ScriptedSink &s) { s.refuse_process = true; },
         QzStream::ErrorReadProcess, "Sink couldn't process data|", 1},
        {"misaligned", nullptr, QzStream::ErrorAlignment, "Block does not have 8 byte alignment|",
         1},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        ClearPosts();
        ScriptedSink sink(BinaryHeader(), 1 << 20, c.arm == nullptr ? 4 : 0);
        if (c.arm != nullptr)
            c.arm(sink);
        QzReadStream reader(&sink);
        EXPECT_EQ(reader.Begin(1, 0), 0);
        EXPECT_EQ(reader.GetError(), c.error);
        EXPECT_EQ(Messages(), c.message);
        EXPECT_EQ(sink.ends, c.ends);
        EXPECT_EQ(reader.End(0), 0);
    }
}
