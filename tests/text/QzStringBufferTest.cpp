// QzStringBufferTest.cpp: QzStringBuffer: block sizes, appending, direct
// editing, formatting, replacing, trimming and sanitising. What the two
// buffers share runs on QzWideStringBuffer too (QzBufferWidthTest).
//
// Capacities are checked against QzMemory::GetBestBlockSize of the request
// that each operation must make (CapacityFor), so a wrong request size shows
// whatever the allocator's size classes.

#include "qzutil/text/QzStringBuffer.h"

#include <algorithm>
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
    buffer.SetEmptyString();
    EXPECT_FALSE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.GetAllocationSize(), static_cast<int>(4 / sizeof(TypeParam)));
    EXPECT_EQ(buffer.GetSize(), 1u);
    EXPECT_FALSE(buffer == BufferOf<TypeParam>());
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
    single.Append(Ascii("zzz"), 1);
    single.Append(StringOf<TypeParam>(Ascii("!")));
    single.Append(BufferOf<TypeParam>(Ascii("?")));
    EXPECT_EQ(Bytes(single.GetString()), "xyz!?");
    EXPECT_EQ(single.GetLength(), 5);
}

// Appending its own text survives the move to a bigger block; a nul stored
// by SetAt shortens the text.
TYPED_TEST(QzBufferWidthTest, AppendOfItsOwnTextAndSetAt)
{
    BufferOf<TypeParam> buffer(QzAscii<TypeParam>("abcd"));
    buffer.Append(buffer.GetString());
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdabcd");
    buffer.Append(buffer);
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdabcdabcdabcd");
    buffer.SetAt(1, TypeParam('X'));
    EXPECT_EQ(buffer.GetLength(), 16);
    buffer.SetAt(3, TypeParam(0));
    EXPECT_EQ(buffer.GetLength(), 3);
    EXPECT_EQ(Bytes(buffer.GetString()), "aXc");
}

struct EditCase {
    char const *name, *written;  // written with its nul; null: 'z' over the whole block
    int end_length;
    int expected_length;  // -1: the capacity
};

// The block has room for at least 10 units and the nul (Reserve(10)), and
// for fewer than 50.
const EditCase kEditCases[] = {
    {"scan_for_nul", "hello", -1, 5},       {"given_shorter", "hello", 3, 3},
    {"given_longer_than_text", "hi", 8, 8}, {"clamped_to_capacity", "hello", 50, -1},
    {"scan_finds_no_nul", nullptr, -1, -1},
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
        if (c.written == nullptr) {
            std::fill_n(block, capacity, TypeParam('z'));  // no nul anywhere
        } else {
            std::basic_string<TypeParam> written(QzAscii<TypeParam>(c.written));
            std::copy_n(written.c_str(), written.size() + 1, block);  // with its nul
        }
        buffer.EndEditBuffer(c.end_length);
        int expected = c.expected_length < 0 ? capacity : c.expected_length;
        EXPECT_EQ(buffer.GetLength(), expected);
        if (expected < capacity) {
            EXPECT_EQ(buffer.GetString()[expected], TypeParam(0));
        }
    }
    BufferOf<TypeParam> none;
    none.EndEditBuffer(7);
    EXPECT_EQ(none.GetLength(), 0);
}

// Formats `text` by "%s", which takes text of the format's own width.
template <typename Unit>
static void FormatText(BufferOf<Unit> *buffer, std::string const &text)
{
    buffer->Format(QzAscii<Unit>("%s"), static_cast<Unit const *>(QzAscii<Unit>(text.c_str())));
}

// Format starts with room for 101 characters, whatever block that rounds to,
// and grows a size class at a time, formatting the same arguments again,
// until the output and its nul fit; each call replaces the text.
TYPED_TEST(QzBufferWidthTest, FormatGrowsUntilTheOutputFits)
{
    using Ascii = QzAscii<TypeParam>;
    BufferOf<TypeParam> buffer;
    FormatText<TypeParam>(&buffer, std::string(100, 'x'));
    int const capacity = buffer.GetAllocationSize();
    EXPECT_EQ(capacity, CapacityFor<TypeParam>(100));
    FormatText<TypeParam>(&buffer, std::string(101, 'x'));  // the rounded block holds it too
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);
    EXPECT_EQ(Bytes(buffer.GetString()), std::string(101, 'x'));
    FormatText<TypeParam>(&buffer, std::string(static_cast<std::size_t>(capacity - 1), 'y'));
    EXPECT_EQ(buffer.GetLength(), capacity - 1);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);
    std::string const grows(static_cast<std::size_t>(capacity), 'z');
    FormatText<TypeParam>(&buffer, grows);
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<TypeParam>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), grows);

    std::string long_text(1000, 'q');  // several classes up, with an argument after
    buffer.Format(Ascii("[%s] %d"), static_cast<TypeParam const *>(Ascii(long_text.c_str())), 42);
    EXPECT_EQ(Bytes(buffer.GetString()), "[" + long_text + "] 42");
    buffer.Format(Ascii("%d-%c"), 7, 'y');
    EXPECT_EQ(Bytes(buffer.GetString()), "7-y");
    EXPECT_EQ(buffer.GetLength(), 3);
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

// FormatV alone never grows: output that does not fit is cut, with -1.
TYPED_TEST(QzBufferWidthTest, FormatVTruncatesWithoutGrowing)
{
    using Ascii = QzAscii<TypeParam>;
    using Text = TypeParam const *;
    BufferOf<TypeParam> buffer;
    EXPECT_EQ(CallFormatV(&buffer, Text(Ascii("%d")), 5), -1);
    EXPECT_EQ(buffer.GetLength(), 0);  // no block at all

    buffer.Reserve(3);
    int const room = buffer.GetAllocationSize() - 1;
    std::string const fits(static_cast<std::size_t>(room), '7');
    std::string const too_long = fits + "8";
    EXPECT_EQ(CallFormatV(&buffer, Text(Ascii("%s")), Text(Ascii(fits.c_str()))), room);
    EXPECT_EQ(Bytes(buffer.GetString()), fits);
    EXPECT_EQ(CallFormatV(&buffer, Text(Ascii("%s")), Text(Ascii(too_long.c_str()))), -1);
    EXPECT_EQ(Bytes(buffer.GetString()), fits);  // the cut output
    EXPECT_EQ(buffer.GetLength(), room);
    EXPECT_EQ(buffer.GetAllocationSize(), room + 1);
}

struct FloatCase {
    char const *name;
    bool is_c;  // FormatCFloat(value, precision, third); else FormatLocalizedFloat
    double value;
    int precision, third;  // the width, or whether significant digits count
    char const *expected;
};

const FloatCase kFloatCases[] = {
    {"c_padded", true, 3.14159, 2, 8, "    3.14"},
    {"c_left_justified", true, 3.14159, 2, -6, "3.14  "},
    {"c_no_width", true, -0.5, 3, 0, "-0.500"},
    // 0.1^3 is above 0.00012, 0.1^4 is not: p = 3, then 3 + 2 = 5 decimals.
    {"small_gets_decimals", false, 0.00012, 2, 1, "0.00012"},
    // 0.1^3 is not above 0.00123: nothing added, and it shows as zero.
    {"not_small_enough", false, 0.00123, 2, 1, "0.00"},
    {"negative", false, -0.00012, 2, 1, "-0.00012"},
    // p = 4 + 2 = 6: "0.000050", one trailing zero stripped.
    {"trailing_zero_stripped", false, 0.00005, 2, 1, "0.00005"},
    {"significant_off", false, 0.00012, 2, 0, "0.00"},
    {"large", false, 1234.5678, 2, 1, "1234.57"},
    {"zero_is_not_extended", false, 0.0, 2, 1, "0.00"},
};

TYPED_TEST(QzBufferWidthTest, FormatFloats)
{
    for (FloatCase const &c : kFloatCases) {
        SCOPED_TRACE(c.name);
        BufferOf<TypeParam> buffer;
        if (c.is_c)
            buffer.FormatCFloat(c.value, c.precision, c.third);
        else
            buffer.FormatLocalizedFloat(c.value, c.precision, c.third);
        EXPECT_EQ(Bytes(buffer.GetString()), c.expected);
        EXPECT_EQ(buffer.GetLength(), QzString::GetLength(c.expected));
    }
}

struct ReplaceCase {
    char const *name, *text, *old_text, *new_text;
    int from, all, result;
    char const *expected;
};

const ReplaceCase kReplaceCases[] = {
    {"all", "a-b-c", "-", "+", 0, 1, 1, "a+b+c"},
    {"first_only", "a-b-c", "-", "+", 0, 0, 1, "a+b-c"},
    {"from_position", "a-b-c", "-", "+", 2, 1, 1, "a-b+c"},
    {"null_new_deletes", "a-b-c", "-", nullptr, 0, 1, 1, "abc"},
    {"new_not_searched", "aa", "a", "aa", 0, 1, 1, "aaaa"},
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
    BufferOf<TypeParam>().ExtractSubString(0, 1, &buffer);  // a null source nulls it
    EXPECT_TRUE(buffer.IsNull());
}

TYPED_TEST(QzBufferWidthTest, EqualityComparesLengthsThenText)
{
    using Ascii = QzAscii<TypeParam>;
    using Buffer = BufferOf<TypeParam>;
    Buffer a(Ascii("same"));
    EXPECT_TRUE(a == Buffer(Ascii("same")));
    EXPECT_TRUE(a != Buffer(Ascii("other")));
    EXPECT_TRUE(a != Buffer(Ascii("sama")));
    EXPECT_FALSE(a.Equal(Buffer(Ascii("samey"))));
    EXPECT_TRUE(a == Ascii("same"));
    EXPECT_FALSE(Buffer() == Ascii(""));
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
    char const *name, *text;
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
    for (char other : {'\x85', '\xA0', 'a'})
        EXPECT_EQ(QzStringBuffer::IsSpaceUTF8(other), 0) << int(other);
    EXPECT_EQ(QzStringBuffer::IsSpaceMBCS('\t'), 1);
    EXPECT_EQ(QzStringBuffer::IsSpaceMBCS('x'), 0);
}

TEST_F(QzStringBufferTest, SanitiseForXmlDropsControlAndHighBytes)
{
    QzStringBuffer out("previous");
    QzStringBuffer::SanitiseForXML("a\x01z\tc\nd\re\x1F caf\xC3\xA9", &out);
    EXPECT_EQ(Bytes(out.GetString()), "az\tc\nd\re caf");
    EXPECT_EQ(out.GetLength(), 12);
    QzStringBuffer in_place("x\x02y");
    QzStringBuffer::SanitiseForXML(in_place.GetString(), &in_place);
    EXPECT_EQ(Bytes(in_place.GetString()), "xy");
    QzStringBuffer::SanitiseForXML("", &out);
    EXPECT_FALSE(out.IsNull());
    EXPECT_TRUE(out.IsEmpty());
    QzStringBuffer::SanitiseForXML(nullptr, &out);
    EXPECT_TRUE(out.IsNull());
}
