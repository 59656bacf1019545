// QzStringBufferTest.cpp: QzStringBuffer: block sizes, appending, direct
// editing, formatting, replacing, trimming and sanitising. What the two
// buffers share runs on QzWideStringBuffer too (QzBufferWidthTest).
//
// Capacities are checked against QzMemory::GetBestBlockSize of the request
// that each operation must make (CapacityFor), so a wrong request size shows
// whatever the allocator's size classes.

#include "qzutil/text/QzStringBuffer.h"

#include <cstdarg>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "text/QzTextTestFixture.h"

using QzStringBufferTest = QzTextTest;

template <typename Unit>
using QzBufferWidthTest = QzTextWidthTest<Unit>;
TYPED_TEST_SUITE(QzBufferWidthTest, QzTextUnits, QzTextWidthName);

// Null has no block; the empty text takes a block of GetBestBlockSize(1) bytes
// narrow and of (2) wide: four bytes either way. Null and empty differ.
TYPED_TEST(QzBufferWidthTest, NewBufferIsNullAndEmptyBlockIsFourBytes)
{
    BufferOf<TypeParam> buffer;
    EXPECT_TRUE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.GetAllocationSize(), 0);
    EXPECT_EQ(buffer.GetSize(), 0u);
    EXPECT_TRUE(buffer == BufferOf<TypeParam>());

    buffer.SetEmptyString();
    EXPECT_FALSE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.GetAllocationSize(), static_cast<int>(4 / sizeof(TypeParam)));
    EXPECT_EQ(buffer.GetSize(), 1u);
    EXPECT_FALSE(buffer == BufferOf<TypeParam>());
    EXPECT_TRUE(buffer == QzAscii<TypeParam>(""));
}

TYPED_TEST(QzBufferWidthTest, ReserveGrowsByBestBlockSizeAndKeepsText)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer;
    buffer.Reserve(10);
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(10));
    EXPECT_EQ(Bytes(buffer.GetString()), "");
    EXPECT_EQ(buffer.GetLength(), 0);

    buffer.SetString(Ascii("abcdefghij"));
    TypeParam const *block = buffer.GetString();
    int capacity = buffer.GetAllocationSize();
    buffer.Reserve(capacity - 1);  // below the capacity: nothing to do
    buffer.Reserve(-5);
    EXPECT_EQ(buffer.GetString(), block);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    buffer.Reserve(capacity);  // not below: the next block size
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdefghij");
    EXPECT_EQ(buffer.GetLength(), 10);

    BufferOf<TypeParam> fresh;
    fresh.Reserve(-1);  // a block even for a negative request
    EXPECT_FALSE(fresh.IsNull());
    EXPECT_EQ(Bytes(fresh.GetString()), "");
}

TYPED_TEST(QzBufferWidthTest, SetStringReplacesOnlyABlockThatIsTooSmall)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer(Ascii("abc"));
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(3));
    buffer.SetString(Ascii("abcd"));  // 4 is not below a capacity of 4: a new block
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(4));
    TypeParam const *block = buffer.GetString();
    buffer.SetString(Ascii("xy"));
    EXPECT_EQ(buffer.GetString(), block);
    EXPECT_EQ(buffer.GetLength(), 2);
    buffer.SetString(Ascii("hello world"), 5);
    EXPECT_EQ(Bytes(buffer.GetString()), "hello");
    EXPECT_EQ(buffer.GetLength(), 5);
    EXPECT_EQ(buffer.GetSize(), 6u);

    buffer.SetString(buffer.GetString() + 1);  // its own text, moved down
    EXPECT_EQ(Bytes(buffer.GetString()), "ello");

    buffer.SetString(static_cast<TypeParam const *>(nullptr));
    EXPECT_TRUE(buffer.IsNull());
    EXPECT_EQ(buffer.GetLength(), 0);
    EXPECT_EQ(buffer.GetAllocationSize(), 0);
}

TYPED_TEST(QzBufferWidthTest, AppendReservesOneMoreThanNeeded)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer;
    buffer.Append(Ascii(""));
    buffer.Append(static_cast<TypeParam const *>(nullptr));
    EXPECT_TRUE(buffer.IsNull()) << "empty appends take no block";

    buffer.Append(Ascii("abc"));  // Reserve(0 + 1 + 3)
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(4));
    EXPECT_EQ(Bytes(buffer.GetString()), "abc");

    // Reserve(3 + 1 + n) with n filling the block exactly: not below the
    // capacity, so it grows although the text alone would have fitted.
    int capacity = buffer.GetAllocationSize();
    std::string filler(static_cast<std::size_t>(capacity - 4), 'f');
    buffer.Append(Ascii(filler.c_str()));
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), "abc" + filler);

    BufferOf<TypeParam> single;
    single.Append(TypeParam('x'));  // Reserve(0 + 2)
    EXPECT_EQ(single.GetAllocationSize(), CapacityFor<TypeParam>(2));
    single.Append(TypeParam('y'));  // Reserve(1 + 2): below the capacity
    EXPECT_EQ(single.GetAllocationSize(), CapacityFor<TypeParam>(2));
    EXPECT_EQ(Bytes(single.GetString()), "xy");

    single.Append(Ascii("zzz"), 1);
    single.Append(StringOf<TypeParam>(Ascii("!")));
    single.Append(BufferOf<TypeParam>(Ascii("?")));
    EXPECT_EQ(Bytes(single.GetString()), "xyz!?");
    EXPECT_EQ(single.GetLength(), 5);
}

TYPED_TEST(QzBufferWidthTest, AppendOfItsOwnTextSurvivesGrowth)
{
    BufferOf<TypeParam> buffer(QzAscii<TypeParam>("abcd"));
    buffer.Append(buffer.GetString());
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdabcd");
    buffer.Append(buffer);
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdabcdabcdabcd");
    EXPECT_EQ(buffer.GetLength(), 16);
}

TYPED_TEST(QzBufferWidthTest, SetAtNulShortensTheText)
{
    BufferOf<TypeParam> buffer(QzAscii<TypeParam>("abcdef"));
    buffer.SetAt(1, TypeParam('X'));
    EXPECT_EQ(Bytes(buffer.GetString()), "aXcdef");
    EXPECT_EQ(buffer.GetLength(), 6);
    buffer.SetAt(3, TypeParam(0));
    EXPECT_EQ(buffer.GetLength(), 3);
    EXPECT_EQ(Bytes(buffer.GetString()), "aXc");
}

struct EditCase {
    char const *name;
    char const *written;  // units written into the block, with their nul
    int end_length;
    int expected_length;  // -1: the capacity
};

// The block has room for at least 10 units and the nul (Reserve(10)), and
// for fewer than 50.
const EditCase kEditCases[] = {
    {"scan_for_nul", "hello", -1, 5},
    {"given_shorter", "hello", 3, 3},
    {"given_longer_than_text", "hi", 8, 8},
    {"clamped_to_capacity", "hello", 50, -1},
};

TYPED_TEST(QzBufferWidthTest, EndEditBufferTakesTheWrittenLength)
{
    for (EditCase const &c : kEditCases) {
        SCOPED_TRACE(c.name);
        BufferOf<TypeParam> buffer;
        buffer.Reserve(10);
        int capacity = buffer.GetAllocationSize();
        ASSERT_LT(capacity, 50);
        TypeParam *block = buffer.BeginEditBuffer();
        std::basic_string<TypeParam> written(QzAscii<TypeParam>(c.written));
        written.copy(block, written.size());
        block[written.size()] = 0;
        buffer.EndEditBuffer(c.end_length);
        int expected = c.expected_length < 0 ? capacity : c.expected_length;
        EXPECT_EQ(buffer.GetLength(), expected);
        if (expected < capacity) {
            EXPECT_EQ(buffer.GetString()[expected], TypeParam(0));
        }
    }

    BufferOf<TypeParam> full;
    full.Reserve(3);
    TypeParam *block = full.BeginEditBuffer();
    for (int i = 0; i < full.GetAllocationSize(); ++i)
        block[i] = TypeParam('z');  // no nul anywhere
    full.EndEditBuffer(-1);
    EXPECT_EQ(full.GetLength(), full.GetAllocationSize());

    BufferOf<TypeParam> none;
    none.EndEditBuffer(7);
    EXPECT_EQ(none.GetLength(), 0);
}

// "%s" takes text of the format's own width, so one call serves both buffers.
TYPED_TEST(QzBufferWidthTest, FormatStartsWithRoomFor101Characters)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer;
    std::string hundred(100, 'x');
    buffer.Format(Ascii("%s"), static_cast<TypeParam const *>(Ascii(hundred.c_str())));
    EXPECT_EQ(buffer.GetLength(), 100);
    int capacity = buffer.GetAllocationSize();
    EXPECT_EQ(capacity, CapacityFor<TypeParam>(100));
    EXPECT_EQ(Bytes(buffer.GetString()), hundred);

    std::string hundred_one(101, 'x');  // fits the first block too
    buffer.Format(Ascii("%s"), static_cast<TypeParam const *>(Ascii(hundred_one.c_str())));
    EXPECT_EQ(buffer.GetLength(), 101);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    std::string fits(static_cast<std::size_t>(capacity - 1), 'y');  // with its nul, the block
    buffer.Format(Ascii("%s"), static_cast<TypeParam const *>(Ascii(fits.c_str())));
    EXPECT_EQ(buffer.GetLength(), capacity - 1);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    std::string grows(static_cast<std::size_t>(capacity), 'z');  // one more: next size
    buffer.Format(Ascii("%s"), static_cast<TypeParam const *>(Ascii(grows.c_str())));
    EXPECT_EQ(buffer.GetLength(), capacity);
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), grows);
}

TYPED_TEST(QzBufferWidthTest, FormatGrowsUntilTheOutputFits)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer(Ascii("old"));
    std::string long_text(1000, 'q');
    buffer.Format(Ascii("[%s] %d"), static_cast<TypeParam const *>(Ascii(long_text.c_str())), 42);
    EXPECT_EQ(Bytes(buffer.GetString()), "[" + long_text + "] 42");
    EXPECT_LT(buffer.GetLength(), buffer.GetAllocationSize());

    buffer.Format(Ascii("%d-%s-%c"), 7, static_cast<TypeParam const *>(Ascii("x")), 'y');
    EXPECT_EQ(Bytes(buffer.GetString()), "7-x-y");
    EXPECT_EQ(buffer.GetLength(), 5);

    buffer.Format(nullptr);
    EXPECT_TRUE(buffer.IsNull());
}

template <typename Buffer, typename Unit>
static int CallFormatV(Buffer *buffer, Unit const *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = buffer->FormatV(format, args);
    va_end(args);
    return result;
}

TYPED_TEST(QzBufferWidthTest, FormatVTruncatesWithoutGrowing)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer;
    EXPECT_EQ(CallFormatV(&buffer, static_cast<TypeParam const *>(Ascii("%d")), 5), -1);
    EXPECT_EQ(buffer.GetLength(), 0);  // no block at all

    buffer.Reserve(3);
    ASSERT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(3));
    int room = buffer.GetAllocationSize() - 1;
    std::string fits(static_cast<std::size_t>(room), '7');
    std::string too_long(static_cast<std::size_t>(room + 1), '8');
    Ascii percent_s("%s");
    EXPECT_EQ(CallFormatV(&buffer, static_cast<TypeParam const *>(percent_s),
                          static_cast<TypeParam const *>(Ascii(fits.c_str()))),
              room);
    EXPECT_EQ(Bytes(buffer.GetString()), fits);
    EXPECT_EQ(CallFormatV(&buffer, static_cast<TypeParam const *>(percent_s),
                          static_cast<TypeParam const *>(Ascii(too_long.c_str()))),
              -1);
    EXPECT_EQ(Bytes(buffer.GetString()), too_long.substr(0, fits.size()));  // the cut output
    EXPECT_EQ(buffer.GetLength(), room);
    EXPECT_EQ(buffer.GetAllocationSize(), room + 1);
}

struct CFloatCase {
    char const *name;
    double value;
    int precision;
    int width;
    char const *expected;
};

const CFloatCase kCFloatCases[] = {
    {"padded", 3.14159, 2, 8, "    3.14"},  {"left_justified", 3.14159, 2, -6, "3.14  "},
    {"no_width", -0.5, 3, 0, "-0.500"},     {"rounded", 2.5, 0, 0, "2"},
    {"half_to_even", 2.25, 1, 6, "   2.2"},
};

TYPED_TEST(QzBufferWidthTest, FormatCFloatUsesWidthAndPrecision)
{
    for (CFloatCase const &c : kCFloatCases) {
        SCOPED_TRACE(c.name);
        BufferOf<TypeParam> buffer;
        buffer.FormatCFloat(c.value, c.precision, c.width);
        EXPECT_EQ(Bytes(buffer.GetString()), c.expected);
    }
}

struct LocalizedCase {
    char const *name;
    double value;
    int precision;
    int significant;
    char const *expected;
};

const LocalizedCase kLocalizedCases[] = {
    // 0.1^3 is above 0.00012, 0.1^4 is not: p = 3, then 3 + 2 = 5 decimals.
    {"small_gets_decimals", 0.00012, 2, 1, "0.00012"},
    // 0.1^3 is not above 0.00123: nothing added, and it shows as zero.
    {"not_small_enough", 0.00123, 2, 1, "0.00"},
    {"negative", -0.00012, 2, 1, "-0.00012"},
    // p = 4 + 2 = 6: "0.000050", one trailing zero stripped.
    {"trailing_zero_stripped", 0.00005, 2, 1, "0.00005"},
    {"significant_off", 0.00012, 2, 0, "0.00"},
    {"large", 1234.5678, 2, 1, "1234.57"},
    {"zero_is_not_extended", 0.0, 2, 1, "0.00"},
};

TYPED_TEST(QzBufferWidthTest, FormatLocalizedFloatShowsSmallValues)
{
    for (LocalizedCase const &c : kLocalizedCases) {
        SCOPED_TRACE(c.name);
        BufferOf<TypeParam> buffer;
        buffer.FormatLocalizedFloat(c.value, c.precision, c.significant);
        EXPECT_EQ(Bytes(buffer.GetString()), c.expected);
        EXPECT_EQ(buffer.GetLength(), QzString::GetLength(c.expected));
    }
}

struct ReplaceCase {
    char const *name;
    char const *text;
    char const *old_text;
    char const *new_text;
    int from;
    int all;
    int result;
    char const *expected;
};

const ReplaceCase kReplaceCases[] = {
    {"all", "a-b-c", "-", "+", 0, 1, 1, "a+b+c"},
    {"first_only", "a-b-c", "-", "+", 0, 0, 1, "a+b-c"},
    {"from_position", "a-b-c", "-", "+", 2, 1, 1, "a-b+c"},
    {"null_new_deletes", "a-b-c", "-", nullptr, 0, 1, 1, "abc"},
    {"new_not_searched", "aa", "a", "aa", 0, 1, 1, "aaaa"},
    {"longer_new", "x.y", ".", "<dot>", 0, 1, 1, "x<dot>y"},
    {"whole_text", "abc", "abc", "", 0, 1, 1, ""},
    {"no_match", "abc", "z", "+", 0, 1, 0, "abc"},
    {"match_before_from", "a-bc", "-", "+", 2, 1, 0, "a-bc"},
    {"empty_old", "abc", "", "+", 0, 1, 0, "abc"},
    {"null_old", "abc", nullptr, "+", 0, 1, 0, "abc"},
    {"from_negative", "abc", "a", "+", -1, 1, 0, "abc"},
    {"from_at_length", "abc", "c", "+", 3, 1, 0, "abc"},
    {"null_text", nullptr, "a", "b", 0, 1, 0, "<null>"},
};

TYPED_TEST(QzBufferWidthTest, ReplaceTable)
{
    using Ascii = QzAscii<TypeParam>;
    for (ReplaceCase const &c : kReplaceCases) {
        SCOPED_TRACE(c.name);
        BufferOf<TypeParam> buffer(Ascii(c.text));
        EXPECT_EQ(buffer.Replace(Ascii(c.old_text), Ascii(c.new_text), c.from, c.all), c.result);
        EXPECT_EQ(Bytes(buffer.GetString()), c.expected);
        EXPECT_EQ(buffer.GetLength(), c.text == nullptr ? 0 : QzString::GetLength(c.expected));
    }
    BufferOf<TypeParam> buffer(Ascii("1.2.3"));
    EXPECT_EQ(buffer.Replace(Ascii("."), Ascii(","), 0), 1);  // the form without `from`
    EXPECT_EQ(Bytes(buffer.GetString()), "1,2.3");
}

TYPED_TEST(QzBufferWidthTest, ReplaceSubStringSplicesARange)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer(Ascii("abcde"));
    buffer.ReplaceSubString(1, 3, Ascii("XYZ"));
    EXPECT_EQ(Bytes(buffer.GetString()), "aXYZde");
    buffer.ReplaceSubString(0, 1, nullptr);
    EXPECT_EQ(Bytes(buffer.GetString()), "XYZde");
    buffer.ReplaceSubString(5, 5, Ascii("!"));
    EXPECT_EQ(Bytes(buffer.GetString()), "XYZde!");
    buffer.ReplaceSubString(-3, 99, Ascii("all"));  // clamped to the text
    EXPECT_EQ(Bytes(buffer.GetString()), "all");
    EXPECT_EQ(buffer.GetLength(), 3);
}

TYPED_TEST(QzBufferWidthTest, ExtractSubStringIntoItselfMovesDownInPlace)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer(Ascii("hello world"));
    TypeParam const *block = buffer.GetString();
    int capacity = buffer.GetAllocationSize();
    buffer.ExtractSubString(6, 11, &buffer);
    EXPECT_EQ(Bytes(buffer.GetString()), "world");
    EXPECT_EQ(buffer.GetLength(), 5);
    EXPECT_EQ(buffer.GetString(), block);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    buffer.ExtractSubString(3, 2, &buffer);  // a bad range empties it
    EXPECT_FALSE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());

    BufferOf<TypeParam> source(Ascii("abcdef"));
    BufferOf<TypeParam> out;
    source.ExtractSubString(2, 4, &out);
    EXPECT_EQ(Bytes(out.GetString()), "cd");
    source.ExtractSubString(0, 9, &out);  // end beyond the text
    EXPECT_FALSE(out.IsNull());
    EXPECT_TRUE(out.IsEmpty());
    BufferOf<TypeParam> null_source;
    null_source.ExtractSubString(0, 1, &out);
    EXPECT_TRUE(out.IsNull());
}

TYPED_TEST(QzBufferWidthTest, EqualityComparesLengthsThenText)
{
    using Ascii = QzAscii<TypeParam>;
    using Buffer = BufferOf<TypeParam>;
    Buffer a(Ascii("same"));
    Buffer b(Ascii("same"));
    Buffer null_buffer;
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a != Buffer(Ascii("other")));
    EXPECT_TRUE(a != Buffer(Ascii("sama")));
    EXPECT_TRUE(a == Ascii("same"));
    EXPECT_FALSE(null_buffer == Ascii(""));
    EXPECT_TRUE(a.Equal(b));
}

TYPED_TEST(QzBufferWidthTest, SwapAndCopiesExchangeBlocks)
{
    using Ascii = QzAscii<TypeParam>;
    using Buffer = BufferOf<TypeParam>;
    Buffer a(Ascii("first"));
    Buffer b;
    TypeParam const *block = a.GetString();
    a.Swap(b);
    EXPECT_TRUE(a.IsNull());
    EXPECT_EQ(b.GetString(), block);
    EXPECT_EQ(b.GetLength(), 5);

    Buffer copy(b);
    EXPECT_NE(copy.GetString(), b.GetString());
    EXPECT_TRUE(copy == b);
    Buffer moved(std::move(copy));
    EXPECT_TRUE(copy.IsNull());
    EXPECT_EQ(Bytes(moved.GetString()), "first");
    a = moved;
    EXPECT_EQ(Bytes(a.GetString()), "first");
    a = StringOf<TypeParam>(Ascii("text"));
    EXPECT_EQ(Bytes(a.GetString()), "text");
}

TYPED_TEST(QzBufferWidthTest, MemberFormsUseTheBufferLength)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer(Ascii("abcabc"));
    EXPECT_EQ(buffer.Find(Ascii("abc"), 1), buffer.GetString() + 3);
    EXPECT_EQ(buffer.Find(Ascii("abc"), 6), nullptr);
    EXPECT_EQ(buffer.FindLastChar(TypeParam('b')), buffer.GetString() + 4);
    EXPECT_EQ(buffer.HasPrefix(Ascii("ab")), 1);
    EXPECT_EQ(buffer.HasSuffix(Ascii("bc")), 1);
    EXPECT_EQ(buffer.EqualPrefix(Ascii("abcx"), 3), true);
    EXPECT_EQ(buffer.Hash(), QzString::Hash("abcabc"));
    buffer.UpperCase();
    EXPECT_EQ(Bytes(buffer.GetString()), "ABCABC");
    EXPECT_EQ(buffer.Stricmp(Ascii("abcabc")), 0);

    BufferOf<TypeParam> number(Ascii(" 12 "));
    int value = 0;
    EXPECT_EQ(number.ReadLocalizedInt(&value), 1);
    EXPECT_EQ(value, 12);
}

// --- Narrow only: byte trimming, byte classes, XML ---

struct TrimCase {
    char const *name;
    char const *text;
    void (QzStringBuffer::*trim)();
    char const *expected;
};

const TrimCase kTrimCases[] = {
    {"right_keeps_one_blank", "   ", &QzStringBuffer::TrimRightMBCS, " "},
    {"both_leaves_nothing", "   ", &QzStringBuffer::TrimMBCS, ""},
    {"left_only", " \t ab ", &QzStringBuffer::TrimLeftMBCS, "ab "},
    {"right_only", " ab \n\r", &QzStringBuffer::TrimRightMBCS, " ab"},
    {"both", "\v ab c \f", &QzStringBuffer::TrimMBCS, "ab c"},
    {"utf8_right_keeps_one", "  ", &QzStringBuffer::TrimRightUTF8, " "},
    {"utf8_both", " \t\xC2\xA0x\xC2\xA0 ", &QzStringBuffer::TrimUTF8, "\xC2\xA0x\xC2\xA0"},
    {"utf8_left", "\r\nx ", &QzStringBuffer::TrimLeftUTF8, "x "},
    {"nothing_to_trim", "a b", &QzStringBuffer::TrimMBCS, "a b"},
};

TEST_F(QzStringBufferTest, TrimTable)
{
    for (TrimCase const &c : kTrimCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer buffer(c.text);
        (buffer.*c.trim)();
        EXPECT_EQ(Bytes(buffer.GetString()), c.expected);
        EXPECT_EQ(buffer.GetLength(), QzString::GetLength(c.expected));
    }
    QzStringBuffer null_buffer;
    null_buffer.TrimMBCS();
    EXPECT_TRUE(null_buffer.IsNull());
}

TEST_F(QzStringBufferTest, Utf8SpacesAreTheSixAsciiBlanksOnly)
{
    for (char blank : {' ', '\t', '\n', '\v', '\f', '\r'})
        EXPECT_EQ(QzStringBuffer::IsSpaceUTF8(blank), 1) << int(blank);
    EXPECT_EQ(QzStringBuffer::IsSpaceUTF8('\x85'), 0);
    EXPECT_EQ(QzStringBuffer::IsSpaceUTF8('\xA0'), 0);
    EXPECT_EQ(QzStringBuffer::IsSpaceUTF8('a'), 0);
    EXPECT_EQ(QzStringBuffer::IsSpaceMBCS('\t'), 1);
    EXPECT_EQ(QzStringBuffer::IsSpaceMBCS('x'), 0);
}

TEST_F(QzStringBufferTest, SanitiseForXmlDropsControlAndHighBytes)
{
    QzStringBuffer out("previous");
    QzStringBuffer::SanitiseForXML("a\x01"
                                   "b\tc\nd\re\x1F"
                                   "caf\xC3\xA9",
                                   &out);
    EXPECT_EQ(Bytes(out.GetString()), "ab\tc\nd\recaf");
    EXPECT_EQ(out.GetLength(), 11);

    QzStringBuffer in_place("x\x02y");
    QzStringBuffer::SanitiseForXML(in_place.GetString(), &in_place);
    EXPECT_EQ(Bytes(in_place.GetString()), "xy");

    QzStringBuffer::SanitiseForXML("", &out);
    EXPECT_FALSE(out.IsNull());
    EXPECT_TRUE(out.IsEmpty());
    QzStringBuffer::SanitiseForXML(nullptr, &out);
    EXPECT_TRUE(out.IsNull());
}
