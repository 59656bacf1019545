// QzChecksum and QzChecksumSink: Adler-32 against published values and
// zlib's adler32 for any split of the input, the reduction schedule at its
// edge, the bytes that each typed adder contributes, null against empty
// strings, and the sink over the block protocol.

#include "qzutil/stream/QzChecksum.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <zlib.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/stream/QzChecksumSink.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "stream/QzSinkDriver.h"

static unsigned char const *Bytes(std::string const &bytes)
{
    return reinterpret_cast<unsigned char const *>(bytes.data());
}

// The independent reference.
static unsigned ZlibAdler(std::string const &bytes)
{
    return static_cast<unsigned>(adler32(1, Bytes(bytes), static_cast<uInt>(bytes.size())));
}

// The strings need the text classes, which QzChecksum brings up with QzError.
class QzChecksumTest : public ::testing::Test {
protected:
    void SetUp() override { QzChecksum::Initialise(); }
    void TearDown() override { QzChecksum::Terminate(); }
};

static unsigned ChecksumOf(std::function<void(QzChecksum &)> const &add)
{
    QzChecksum checksum;
    add(checksum);
    return checksum.End();
}

// Published values, by every way of feeding bytes in.
TEST_F(QzChecksumTest, PublishedValues)
{
    struct Case {
        char const *text;
        unsigned expected;
    };
    Case const cases[] = {
        {"", 0x00000001},
        {"a", 0x00620062},
        {"abc", 0x024D0127},
        {"Wikipedia", 0x11E60398},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.text);
        std::string const text = c.text;
        EXPECT_EQ(ChecksumOf([&](QzChecksum &s) { s.AddString(c.text); }), c.expected);
        EXPECT_EQ(ChecksumOf([&](QzChecksum &s) {
                      s.AddNat8Array(Bytes(text), static_cast<unsigned>(text.size()));
                  }),
                  c.expected);
        EXPECT_EQ(QzChecksum::Adler32(Bytes(text), text.size()), c.expected);
    }
}

// Runs of 0xFF around the reduction interval of 5,552 bytes. The low halves
// are worked by hand: for 5,552 bytes a = 1 + 5552 * 255 = 1,415,761, which
// is 0x9B8C modulo 65,521; the whole values come from zlib. One call reduces
// at the 5,552nd byte inside AddNat8Array; the split feeds reduce at End.
TEST_F(QzChecksumTest, ReductionAtTheIntervalAndAtEndAgree)
{
    struct Case {
        std::size_t length;
        unsigned expected;
    };
    Case const cases[] = {
        {5551, 0x56039A8D},
        {5552, 0xF18F9B8C},
        {5553, 0x8E299C8B},
        {11104, 0xFF6F3726},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.length);
        std::string const bytes(c.length, '\xFF');
        EXPECT_EQ(QzChecksum::Adler32(Bytes(bytes), bytes.size()), c.expected);
        for (std::size_t first : {std::size_t{1}, std::size_t{5551}, std::size_t{5552}}) {
            if (first > c.length)
                continue;
            QzChecksum checksum;
            checksum.AddNat8Array(Bytes(bytes), static_cast<unsigned>(first));
            checksum.AddNat8Array(Bytes(bytes) + first, static_cast<unsigned>(c.length - first));
            EXPECT_EQ(checksum.End(), c.expected) << "split after " << first;
        }
    }
}

// The sums at their very edge: from the worst state after a reduction,
// a = b = 65,520, the next 5,552 bytes of 0xFF bring b to 4,294,774,200,
// just below 2^32, so any slip in the schedule (a count kept per call, a
// reduction missed) overflows. The prefix (256 bytes of 0xFF, byte 239 at
// offset 1,339, zeros to 5,552) was searched for once to reach that state;
// the values are zlib's.
TEST_F(QzChecksumTest, WorstCaseAfterAReductionDoesNotOverflow)
{
    std::string prefix(5552, '\0');
    std::fill_n(prefix.begin(), 256, '\xFF');
    prefix[1339] = static_cast<char>(239);
    EXPECT_EQ(QzChecksum::Adler32(Bytes(prefix), prefix.size()), 0xFFF0FFF0u);
    struct Case {
        std::size_t run;
        unsigned expected;
    };
    for (Case const &c : {Case{5552, 0xC62E9B8A}, Case{5553, 0x62C69C89}}) {
        std::string const bytes = prefix + std::string(c.run, '\xFF');
        EXPECT_EQ(QzChecksum::Adler32(Bytes(bytes), bytes.size()), c.expected) << c.run;
        QzChecksum checksum;
        checksum.AddNat8Array(Bytes(prefix), static_cast<unsigned>(prefix.size() - 1));
        checksum.AddNat8Array(Bytes(bytes) + prefix.size() - 1, static_cast<unsigned>(c.run + 1));
        EXPECT_EQ(checksum.End(), c.expected) << c.run << ", split before the reduction";
    }
}

// Random bytes and long runs of 0xFF (the worst case for the 32-bit sums),
// cut into random pieces, some empty, always give zlib's value.
TEST_F(QzChecksumTest, MatchesZlibForAnySplit)
{
    std::mt19937 random(20240607);
    for (int round = 0; round < 40; ++round) {
        std::size_t const size = random() % 300000;
        std::string bytes(size, '\xFF');
        if (round % 2 == 0) {
            for (char &byte : bytes)
                byte = static_cast<char>(random());
        }
        QzChecksum checksum;
        for (std::size_t done = 0; done < size;) {
            std::size_t const piece = std::min<std::size_t>(random() % 20000, size - done);
            checksum.AddNat8Array(Bytes(bytes) + done, static_cast<unsigned>(piece));
            done += piece;
        }
        unsigned const expected = ZlibAdler(bytes);
        EXPECT_EQ(checksum.End(), expected) << "round " << round << ", " << size << " bytes";
        EXPECT_EQ(QzChecksum::Adler32(Bytes(bytes), size), expected) << "round " << round;
    }
}

// Each adder puts in the value's own memory bytes, little-endian, at its
// own width; arrays take count elements.
TEST_F(QzChecksumTest, TypedAddersTakeTheirMemoryBytes)
{
    static LtInt32 const ints[] = {1, -2};
    static long long const longs[] = {-1, 0x0102030405060708LL};
    static LtDouble const doubles[] = {1.0};
    static LtSingle const singles[] = {-2.0f, 1.0f};
    static LtNat16 const units[] = {0x0102, 0xFFFE};
    void const *const pointer = reinterpret_cast<void const *>(0x1122334455667788ULL);
    struct Case {
        char const *name;
        std::function<void(QzChecksum &)> add;
        std::string bytes;
    };
    Case const cases[] = {
        {"Nat8", [](QzChecksum &s) { s.AddNat8(0xAB); }, "\xAB"},
        {"Int16", [](QzChecksum &s) { s.AddInt16(-2); }, "\xFE\xFF"},
        {"Nat16", [](QzChecksum &s) { s.AddNat16(0x0102); }, "\x02\x01"},
        {"Int32", [](QzChecksum &s) { s.AddInt32(-2); }, "\xFE\xFF\xFF\xFF"},
        {"Nat32", [](QzChecksum &s) { s.AddNat32(0x01020304); }, "\x04\x03\x02\x01"},
        {"Int64_long", [](QzChecksum &s) { s.AddInt64(-2L); },
         std::string("\xFE") + std::string(7, '\xFF')},
        {"Int64_long_long", [](QzChecksum &s) { s.AddInt64(0x0102030405060708LL); },
         "\x08\x07\x06\x05\x04\x03\x02\x01"},
        {"Nat64_long", [](QzChecksum &s) { s.AddNat64(0x80UL); },
         std::string("\x80") + std::string(7, '\0')},
        {"Nat64_long_long", [](QzChecksum &s) { s.AddNat64(0xFFULL << 56); },
         std::string(7, '\0') + "\xFF"},
        {"Single", [](QzChecksum &s) { s.AddSingle(1.0f); }, std::string("\0\0\x80\x3F", 4)},
        {"Double", [](QzChecksum &s) { s.AddDouble(-2.0); }, std::string(7, '\0') + "\xC0"},
        {"Float_is_8_bytes", [](QzChecksum &s) { s.AddFloat(1.0); },
         std::string(6, '\0') + "\xF0\x3F"},
        {"Boolean_is_4_bytes", [](QzChecksum &s) { s.AddBoolean(1); },
         std::string("\x01\0\0\0", 4)},
        {"Enum_is_4_bytes", [](QzChecksum &s) { s.AddEnum(3); }, std::string("\x03\0\0\0", 4)},
        {"Bitfield_is_4_bytes", [](QzChecksum &s) { s.AddBitfield(0x80000001u); },
         std::string("\x01\0\0\x80", 4)},
        {"Time", [](QzChecksum &s) { s.AddTime(1); }, std::string("\x01") + std::string(7, '\0')},
        {"Ptr_is_its_value", [pointer](QzChecksum &s) { s.AddPtr(pointer); },
         "\x88\x77\x66\x55\x44\x33\x22\x11"},
        {"Int32Array", [](QzChecksum &s) { s.AddInt32Array(ints, 2); },
         std::string("\x01\0\0\0\xFE\xFF\xFF\xFF", 8)},
        {"Nat16Array", [](QzChecksum &s) { s.AddNat16Array(units, 2); }, "\x02\x01\xFE\xFF"},
        {"Int64Array", [](QzChecksum &s) { s.AddInt64Array(longs, 2); },
         std::string(8, '\xFF') + "\x08\x07\x06\x05\x04\x03\x02\x01"},
        {"SingleArray", [](QzChecksum &s) { s.AddSingleArray(singles, 2); },
         std::string("\0\0\0\xC0\0\0\x80\x3F", 8)},
        {"FloatArray", [](QzChecksum &s) { s.AddFloatArray(doubles, 1); },
         std::string(6, '\0') + "\xF0\x3F"},
        {"empty_array", [](QzChecksum &s) { s.AddDoubleArray(doubles, 0); }, ""},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ChecksumOf(c.add), ZlibAdler(c.bytes));
    }
}

// Text goes in without its terminator, wide text as little-endian units;
// empty text adds nothing, null text one zero byte (not two for wide text).
TEST_F(QzChecksumTest, TextForms)
{
    std::string const zero_byte(1, '\0');
    std::string const wide_ab("a\0b\0", 4);
    QzString const string_abc("abc"), string_null, string_empty("");
    QzStringBuffer const buffer_abc("abc"), buffer_null, buffer_empty("");
    QzWideString const wide_ab_string(u"ab"), wide_null, wide_empty(u"");
    QzWideStringBuffer const wide_ab_buffer(u"ab"), wide_buffer_null;
    struct Case {
        char const *name;
        std::function<void(QzChecksum &)> add;
        std::string bytes;
    };
    Case const cases[] = {
        {"chars", [](QzChecksum &s) { s.AddString("abc"); }, "abc"},
        {"chars_empty", [](QzChecksum &s) { s.AddString(""); }, ""},
        {"chars_null", [](QzChecksum &s) { s.AddString(static_cast<char const *>(nullptr)); },
         zero_byte},
        {"string", [&](QzChecksum &s) { s.AddString(string_abc); }, "abc"},
        {"string_empty", [&](QzChecksum &s) { s.AddString(string_empty); }, ""},
        {"string_null", [&](QzChecksum &s) { s.AddString(string_null); }, zero_byte},
        {"buffer", [&](QzChecksum &s) { s.AddString(buffer_abc); }, "abc"},
        {"buffer_empty", [&](QzChecksum &s) { s.AddString(buffer_empty); }, ""},
        {"buffer_null", [&](QzChecksum &s) { s.AddString(buffer_null); }, zero_byte},
        {"wide", [](QzChecksum &s) { s.AddWideString(u"ab"); }, wide_ab},
        {"wide_empty", [](QzChecksum &s) { s.AddWideString(u""); }, ""},
        {"wide_null", [](QzChecksum &s) { s.AddWideString(static_cast<LtWChar const *>(nullptr)); },
         zero_byte},
        {"wide_string", [&](QzChecksum &s) { s.AddWideString(wide_ab_string); }, wide_ab},
        {"wide_string_empty", [&](QzChecksum &s) { s.AddWideString(wide_empty); }, ""},
        {"wide_string_null", [&](QzChecksum &s) { s.AddWideString(wide_null); }, zero_byte},
        {"wide_buffer", [&](QzChecksum &s) { s.AddWideString(wide_ab_buffer); }, wide_ab},
        {"wide_buffer_null", [&](QzChecksum &s) { s.AddWideString(wide_buffer_null); }, zero_byte},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ChecksumOf(c.add), ZlibAdler(c.bytes));
    }
}

// Begin and Clear forget what was added; End may be asked again, and more
// bytes added after it continue the same sums.
TEST_F(QzChecksumTest, BeginClearAndRepeatedEnd)
{
    QzChecksum checksum;
    EXPECT_EQ(checksum.End(), 1u) << "nothing added";
    checksum.AddString("Wiki");
    checksum.Begin();
    EXPECT_EQ(checksum.End(), 1u);
    checksum.AddString("Wiki");
    checksum.Clear();
    checksum.AddString("Wiki");
    EXPECT_EQ(checksum.End(), ZlibAdler("Wiki"));
    EXPECT_EQ(checksum.End(), ZlibAdler("Wiki"));
    checksum.AddString("pedia");
    EXPECT_EQ(checksum.End(), 0x11E60398u);
}

TEST(QzChecksumComponentTest, BringsUpQzErrorAndCounts)
{
    int const error_count = QzError::IsInitialised();
    QzChecksum::Initialise();
    QzChecksum::Initialise();
    EXPECT_EQ(QzChecksum::IsInitialised(), 2);
    EXPECT_EQ(QzError::IsInitialised(), error_count + 1) << "one QzError count for the component";
    QzChecksum::Terminate();
    QzChecksum::Terminate();
    EXPECT_EQ(QzChecksum::IsInitialised(), 0);
    EXPECT_EQ(QzError::IsInitialised(), error_count);
}

using QzChecksumSinkTest = QzSinkTest;

// Bytes written in pieces across its 4,096-byte blocks, with a flush in the
// middle, give zlib's value at WriteEnd; a new run starts afresh.
TEST_F(QzChecksumSinkTest, ChecksumOfEachWriteRun)
{
    QzChecksumSink sink;
    EXPECT_EQ(sink.GetBlockSize(), 4096);
    EXPECT_EQ(sink.IsStrict(), 0);
    std::string const first = MakePattern(3 * 4096 + 100);
    ASSERT_TRUE(sink.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(sink, first.substr(0, 5000), 999));
    ASSERT_TRUE(sink.WriteFlush());
    ASSERT_TRUE(PutThroughSink(sink, first.substr(5000), 1500));
    ASSERT_TRUE(sink.WriteEnd());
    EXPECT_EQ(sink.GetChecksum(), ZlibAdler(first));

    ASSERT_TRUE(WriteAll(sink, "Wikipedia", 4));
    EXPECT_EQ(sink.GetChecksum(), 0x11E60398u);
    ASSERT_TRUE(WriteAll(sink, "", 4));
    EXPECT_EQ(sink.GetChecksum(), 1u);
}

TEST_F(QzChecksumSinkTest, CannotBeRead)
{
    QzChecksumSink sink;
    ASSERT_TRUE(WriteAll(sink, "data", 4));
    EXPECT_EQ(sink.ReadBegin(nullptr), 0);
    unsigned char const *buffer = nullptr;
    int size = -1;
    EXPECT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_ERROR);
    unsigned char block[8];
    EXPECT_EQ(sink.ReadBlock(block, &size), QzFileURL::eSTATUS_ERROR);
    EXPECT_EQ(sink.ReadEnd(), 0);
}
