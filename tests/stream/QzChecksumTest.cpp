// QzChecksum and QzChecksumSink: Adler-32 against published values and
// zlib's adler32 for any split of the input, the reduction schedule at its
// edge, the bytes that each typed adder contributes, null against empty
// strings, and the sink over the block protocol.

#include "qzutil/stream/QzChecksum.h"

#include <algorithm>
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

static std::string FromHex(std::string const &hex)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

// The strings need the text classes, which QzChecksum brings up with QzError.
class QzChecksumTest : public ::testing::Test {
protected:
    void SetUp() override { QzChecksum::Initialise(); }
    void TearDown() override { QzChecksum::Terminate(); }
};

// Published values, then runs of 0xFF around the reduction interval of 5,552
// bytes: for 5,552 bytes a = 1 + 5552 * 255 = 1,415,761, 0x9B8C modulo 65,521
// (worked by hand); the whole values are zlib's. The "worst" prefix (searched
// for once: 256 bytes of 0xFF, 239 at offset 1,339, zeros to 5,552) leaves
// a = b = 65,520 after its reduction; 5,552 more bytes of 0xFF then bring b
// to 4,294,774,200, just below 2^32, so a reduction missed or counted per
// call overflows. Each input goes in whole and split in two around the edge.
TEST_F(QzChecksumTest, KnownValuesWholeAndSplit)
{
    std::string worst(5552, '\0');
    std::fill_n(worst.begin(), 256, '\xFF');
    worst[1339] = static_cast<char>(239);
    struct Case {
        char const *name;
        std::string bytes;
        unsigned expected;
    };
    Case const cases[] = {
        {"empty", "", 0x00000001},
        {"a", "a", 0x00620062},
        {"abc", "abc", 0x024D0127},
        {"Wikipedia", "Wikipedia", 0x11E60398},
        {"ff_5551", std::string(5551, '\xFF'), 0x56039A8D},
        {"ff_5552", std::string(5552, '\xFF'), 0xF18F9B8C},
        {"ff_5553", std::string(5553, '\xFF'), 0x8E299C8B},
        {"ff_11104", std::string(11104, '\xFF'), 0xFF6F3726},
        {"worst", worst, 0xFFF0FFF0},
        {"worst_then_ff_5552", worst + std::string(5552, '\xFF'), 0xC62E9B8A},
        {"worst_then_ff_5553", worst + std::string(5553, '\xFF'), 0x62C69C89},
    };
    static std::size_t const kSplits[] = {0, 1, 5551, 5552};
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(QzChecksum::Adler32(Bytes(c.bytes), c.bytes.size()), c.expected);
        for (std::size_t first : kSplits) {
            if (first > c.bytes.size())
                continue;
            QzChecksum checksum;
            checksum.AddNat8Array(Bytes(c.bytes), static_cast<unsigned>(first));
            checksum.AddNat8Array(Bytes(c.bytes) + first,
                                  static_cast<unsigned>(c.bytes.size() - first));
            EXPECT_EQ(checksum.End(), c.expected) << "split after " << first;
        }
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
        if (round % 2 == 0)
            std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        QzChecksum checksum;
        for (std::size_t done = 0; done < size;) {
            std::size_t const piece = std::min<std::size_t>(random() % 20000, size - done);
            checksum.AddNat8Array(Bytes(bytes) + done, static_cast<unsigned>(piece));
            done += piece;
        }
        SCOPED_TRACE("round " + std::to_string(round) + ", " + std::to_string(size) + " bytes");
        EXPECT_EQ(checksum.End(), ZlibAdler(bytes));
        EXPECT_EQ(QzChecksum::Adler32(Bytes(bytes), size), ZlibAdler(bytes));
    }
}

// Each adder puts in the value's own memory bytes, little-endian, at its
// own width; arrays take count elements.
TEST_F(QzChecksumTest, TypedAddersTakeTheirMemoryBytes)
{
    static long long const longs[] = {-1, 0x0102030405060708LL};
    static LtDouble const doubles[] = {1.0};
    static LtNat16 const units[] = {0x0102, 0xFFFE};
    struct Case {
        char const *name;
        std::function<void(QzChecksum &)> add;
        char const *hex;
    };
    Case const cases[] = {
        {"Nat8", [](QzChecksum &s) { s.AddNat8(0xAB); }, "AB"},
        {"Int16", [](QzChecksum &s) { s.AddInt16(-2); }, "FEFF"},
        {"Nat16", [](QzChecksum &s) { s.AddNat16(0x0102); }, "0201"},
        {"Int32", [](QzChecksum &s) { s.AddInt32(-2); }, "FEFFFFFF"},
        {"Nat32", [](QzChecksum &s) { s.AddNat32(0x01020304); }, "04030201"},
        {"Int64_long", [](QzChecksum &s) { s.AddInt64(-2L); }, "FEFFFFFFFFFFFFFF"},
        {"Int64_ll", [](QzChecksum &s) { s.AddInt64(0x0102030405060708LL); }, "0807060504030201"},
        {"Nat64_long", [](QzChecksum &s) { s.AddNat64(0x80UL); }, "8000000000000000"},
        {"Nat64_ll", [](QzChecksum &s) { s.AddNat64(0xFFULL << 56); }, "00000000000000FF"},
        {"Single", [](QzChecksum &s) { s.AddSingle(1.0f); }, "0000803F"},
        {"Double", [](QzChecksum &s) { s.AddDouble(-2.0); }, "00000000000000C0"},
        {"Float_is_8_bytes", [](QzChecksum &s) { s.AddFloat(1.0); }, "000000000000F03F"},
        {"Boolean_is_4_bytes", [](QzChecksum &s) { s.AddBoolean(1); }, "01000000"},
        {"Enum_is_4_bytes", [](QzChecksum &s) { s.AddEnum(3); }, "03000000"},
        {"Bitfield_is_4_bytes", [](QzChecksum &s) { s.AddBitfield(0x80000001u); }, "01000080"},
        {"Time", [](QzChecksum &s) { s.AddTime(1); }, "0100000000000000"},
        {"Ptr_is_its_value",
         [](QzChecksum &s) { s.AddPtr(reinterpret_cast<void const *>(0x1122334455667788ULL)); },
         "8877665544332211"},
        {"Nat16Array", [](QzChecksum &s) { s.AddNat16Array(units, 2); }, "0201FEFF"},
        {"Int64Array", [](QzChecksum &s) { s.AddInt64Array(longs, 2); },
         "FFFFFFFFFFFFFFFF0807060504030201"},
        {"empty_array", [](QzChecksum &s) { s.AddDoubleArray(doubles, 0); }, ""},
    };
    for (Case const &c : cases) {
        QzChecksum checksum;
        c.add(checksum);
        EXPECT_EQ(checksum.End(), ZlibAdler(FromHex(c.hex))) << c.name;
    }
}

// Each form of text is given "ab", "" and null (a default-made object): the
// text goes in without its terminator, wide text as little-endian units;
// empty text adds nothing, null text one zero byte (not two for wide text).
template <typename Text, typename Add>
static void ExpectTextForm(char const *name, Add add, Text const &ab, Text const &empty,
                           std::string const &ab_bytes)
{
    SCOPED_TRACE(name);
    Text const null_text{};
    auto sum_of = [&](Text const &text) {
        QzChecksum checksum;
        add(checksum, text);
        return checksum.End();
    };
    EXPECT_EQ(sum_of(ab), ZlibAdler(ab_bytes));
    EXPECT_EQ(sum_of(empty), 1u);
    EXPECT_EQ(sum_of(null_text), ZlibAdler(std::string(1, '\0')));
}

TEST_F(QzChecksumTest, TextForms)
{
    auto narrow = [](QzChecksum &s, auto const &text) { s.AddString(text); };
    auto wide = [](QzChecksum &s, auto const &text) { s.AddWideString(text); };
    std::string const ab = "ab", wide_ab("a\0b\0", 4);
    ExpectTextForm<char const *>("chars", narrow, "ab", "", ab);
    ExpectTextForm("QzString", narrow, QzString("ab"), QzString(""), ab);
    ExpectTextForm("QzStringBuffer", narrow, QzStringBuffer("ab"), QzStringBuffer(""), ab);
    ExpectTextForm<LtWChar const *>("wide", wide, u"ab", u"", wide_ab);
    ExpectTextForm("QzWideString", wide, QzWideString(u"ab"), QzWideString(u""), wide_ab);
    ExpectTextForm("QzWideStringBuffer", wide, QzWideStringBuffer(u"ab"), QzWideStringBuffer(u""),
                   wide_ab);
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

TEST(QzChecksumComponentTest, BringsUpQzError)
{
    int const error_count = QzError::IsInitialised();
    QzChecksum::Initialise();
    EXPECT_EQ(QzChecksum::IsInitialised(), 1);
    EXPECT_EQ(QzError::IsInitialised(), error_count + 1) << "one QzError count for the component";
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
    unsigned char block[8];
    int size = -1;
    EXPECT_EQ(sink.ReadLock(&buffer, &size), QzFileURL::eSTATUS_ERROR);
    EXPECT_EQ(sink.ReadBlock(block, &size), QzFileURL::eSTATUS_ERROR);
    EXPECT_EQ(sink.ReadEnd(), 0);
}
