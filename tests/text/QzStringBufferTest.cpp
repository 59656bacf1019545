// QzStringBufferTest.cpp: QzStringBuffer: block sizes, appending, direct
// editing, formatting, replacing, trimming and sanitising.
//
// Capacities are checked against QzMemory::GetBestBlockSize of the request
// that each operation must make (CapacityFor), so a wrong request size shows
// whatever the allocator's size classes.

#include "qzutil/text/QzStringBuffer.h"

#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"

#include "text/QzTextTestFixture.h"

using QzStringBufferTest = QzTextTest;

TEST_F(QzStringBufferTest, NewBufferIsNullAndEmptyBlockIsFourBytes)
{
    QzStringBuffer buffer;
    EXPECT_TRUE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.GetAllocationSize(), 0);
    EXPECT_EQ(buffer.GetSize(), 0u);

    buffer.SetEmptyString();
    EXPECT_FALSE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.GetAllocationSize(), 4);
    EXPECT_EQ(buffer.GetSize(), 1u);
    EXPECT_FALSE(buffer == QzStringBuffer());
}

TEST_F(QzStringBufferTest, ReserveGrowsByBestBlockSizeAndKeepsText)
{
    QzStringBuffer buffer;
    buffer.Reserve(10);
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(10));
    EXPECT_EQ(Bytes(buffer.GetString()), "");
    EXPECT_EQ(buffer.GetLength(), 0);

    buffer.SetString("abcdefghij");
    char const *block = buffer.GetString();
    int capacity = buffer.GetAllocationSize();
    buffer.Reserve(capacity - 1);  // below the capacity: nothing to do
    buffer.Reserve(-5);
    EXPECT_EQ(buffer.GetString(), block);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    buffer.Reserve(capacity);  // not below: the next block size
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdefghij");
    EXPECT_EQ(buffer.GetLength(), 10);

    QzStringBuffer fresh;
    fresh.Reserve(-1);  // a block even for a negative request
    EXPECT_FALSE(fresh.IsNull());
    EXPECT_EQ(Bytes(fresh.GetString()), "");
}

TEST_F(QzStringBufferTest, SetStringReplacesOnlyABlockThatIsTooSmall)
{
    QzStringBuffer buffer("abc");
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(3));
    buffer.SetString("abcd");  // 4 is not below a capacity of 4: a new block
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(4));
    char const *block = buffer.GetString();
    buffer.SetString("xy");
    EXPECT_EQ(buffer.GetString(), block);
    EXPECT_EQ(buffer.GetLength(), 2);
    buffer.SetString("hello world", 5);
    EXPECT_EQ(Bytes(buffer.GetString()), "hello");
    EXPECT_EQ(buffer.GetLength(), 5);

    buffer.SetString(buffer.GetString() + 1);  // its own text, moved down
    EXPECT_EQ(Bytes(buffer.GetString()), "ello");

    buffer.SetString(static_cast<char const *>(nullptr));
    EXPECT_TRUE(buffer.IsNull());
    EXPECT_EQ(buffer.GetLength(), 0);
    EXPECT_EQ(buffer.GetAllocationSize(), 0);
}

TEST_F(QzStringBufferTest, AppendReservesOneMoreThanNeeded)
{
    QzStringBuffer buffer;
    buffer.Append("");
    buffer.Append(static_cast<char const *>(nullptr));
    EXPECT_TRUE(buffer.IsNull()) << "empty appends take no block";

    buffer.Append("abc");  // Reserve(0 + 1 + 3)
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(4));
    EXPECT_EQ(Bytes(buffer.GetString()), "abc");

    // Reserve(3 + 1 + n) with n filling the block exactly: not below the
    // capacity, so it grows although the text alone would have fitted.
    int capacity = buffer.GetAllocationSize();
    std::string filler(static_cast<std::size_t>(capacity - 4), 'f');
    buffer.Append(filler.c_str());
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), "abc" + filler);

    QzStringBuffer single;
    single.Append('x');  // Reserve(0 + 2)
    EXPECT_EQ(single.GetAllocationSize(), CapacityFor<char>(2));
    single.Append('y');  // Reserve(1 + 2): below a capacity of 4
    EXPECT_EQ(single.GetAllocationSize(), CapacityFor<char>(2));
    EXPECT_EQ(Bytes(single.GetString()), "xy");

    single.Append("zzz", 1);
    single.Append(QzString("!"));
    single.Append(QzStringBuffer("?"));
    EXPECT_EQ(Bytes(single.GetString()), "xyz!?");
    EXPECT_EQ(single.GetLength(), 5);
}

TEST_F(QzStringBufferTest, AppendOfItsOwnTextSurvivesGrowth)
{
    QzStringBuffer buffer("abcd");
    buffer.Append(buffer.GetString());
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdabcd");
    buffer.Append(buffer);
    EXPECT_EQ(Bytes(buffer.GetString()), "abcdabcdabcdabcd");
    EXPECT_EQ(buffer.GetLength(), 16);
}

TEST_F(QzStringBufferTest, SetAtNulShortensTheText)
{
    QzStringBuffer buffer("abcdef");
    buffer.SetAt(1, 'X');
    EXPECT_EQ(Bytes(buffer.GetString()), "aXcdef");
    EXPECT_EQ(buffer.GetLength(), 6);
    buffer.SetAt(3, '\0');
    EXPECT_EQ(buffer.GetLength(), 3);
    EXPECT_EQ(Bytes(buffer.GetString()), "aXc");
}

struct EditCase {
    char const *name;
    char const *written;  // bytes written into the block, with their nul
    int end_length;
    int expected_length;  // -1: the capacity
};

// The block has room for at least 10 bytes and the nul (Reserve(10)), and
// for fewer than 50.
const EditCase kEditCases[] = {
    {"scan_for_nul", "hello", -1, 5},
    {"given_shorter", "hello", 3, 3},
    {"given_longer_than_text", "hi", 8, 8},
    {"clamped_to_capacity", "hello", 50, -1},
};

TEST_F(QzStringBufferTest, EndEditBufferTakesTheWrittenLength)
{
    for (EditCase const &c : kEditCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer buffer;
        buffer.Reserve(10);
        int capacity = buffer.GetAllocationSize();
        ASSERT_LT(capacity, 50);
        char *block = buffer.BeginEditBuffer();
        std::string written(c.written);
        written.copy(block, written.size());
        block[written.size()] = '\0';
        buffer.EndEditBuffer(c.end_length);
        int expected = c.expected_length < 0 ? capacity : c.expected_length;
        EXPECT_EQ(buffer.GetLength(), expected);
        if (expected < capacity) {
            EXPECT_EQ(buffer.GetString()[expected], '\0');
        }
    }

    QzStringBuffer full;
    full.Reserve(3);
    char *block = full.BeginEditBuffer();
    for (int i = 0; i < full.GetAllocationSize(); ++i)
        block[i] = 'z';  // no nul anywhere
    full.EndEditBuffer(-1);
    EXPECT_EQ(full.GetLength(), full.GetAllocationSize());

    QzStringBuffer none;
    none.EndEditBuffer(7);
    EXPECT_EQ(none.GetLength(), 0);
}

TEST_F(QzStringBufferTest, FormatStartsWithRoomFor101Characters)
{
    QzStringBuffer buffer;
    std::string hundred(100, 'x');
    buffer.Format("%s", hundred.c_str());
    EXPECT_EQ(buffer.GetLength(), 100);
    int capacity = buffer.GetAllocationSize();
    EXPECT_EQ(capacity, CapacityFor<char>(100));
    EXPECT_EQ(Bytes(buffer.GetString()), hundred);

    std::string hundred_one(101, 'x');  // fits the first block too
    buffer.Format("%s", hundred_one.c_str());
    EXPECT_EQ(buffer.GetLength(), 101);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    std::string fits(static_cast<std::size_t>(capacity - 1), 'y');  // with its nul, the block
    buffer.Format("%s", fits.c_str());
    EXPECT_EQ(buffer.GetLength(), capacity - 1);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    std::string grows(static_cast<std::size_t>(capacity), 'z');  // one more: next size
    buffer.Format("%s", grows.c_str());
    EXPECT_EQ(buffer.GetLength(), capacity);
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<char>(capacity));
    EXPECT_EQ(Bytes(buffer.GetString()), grows);
}

TEST_F(QzStringBufferTest, FormatGrowsUntilTheOutputFits)
{
    QzStringBuffer buffer("old");
    std::string long_text(1000, 'q');
    buffer.Format("[%s] %d", long_text.c_str(), 42);
    EXPECT_EQ(Bytes(buffer.GetString()), "[" + long_text + "] 42");
    EXPECT_LT(buffer.GetLength(), buffer.GetAllocationSize());

    buffer.Format("%d-%s-%c", 7, "x", 'y');
    EXPECT_EQ(Bytes(buffer.GetString()), "7-x-y");
    EXPECT_EQ(buffer.GetLength(), 5);

    buffer.Format(nullptr);
    EXPECT_TRUE(buffer.IsNull());
}

static int CallFormatV(QzStringBuffer *buffer, char const *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = buffer->FormatV(format, args);
    va_end(args);
    return result;
}

TEST_F(QzStringBufferTest, FormatVTruncatesWithoutGrowing)
{
    QzStringBuffer buffer;
    EXPECT_EQ(CallFormatV(&buffer, "%d", 5), -1);  // no block at all
    EXPECT_EQ(buffer.GetLength(), 0);

    buffer.Reserve(3);
    ASSERT_EQ(buffer.GetAllocationSize(), 4);
    EXPECT_EQ(CallFormatV(&buffer, "%d", 123), 3);
    EXPECT_EQ(Bytes(buffer.GetString()), "123");
    EXPECT_EQ(CallFormatV(&buffer, "%d", 12345), -1);
    EXPECT_EQ(Bytes(buffer.GetString()), "123");
    EXPECT_EQ(buffer.GetLength(), 3);
    EXPECT_EQ(buffer.GetAllocationSize(), 4);
}

struct CFloatCase {
    char const *name;
    double value;
    int precision;
    int width;
    char const *expected;
};

const CFloatCase kCFloatCases[] = {
    {"padded", 3.14159, 2, 8, "    3.14"},
    {"left_justified", 3.14159, 2, -6, "3.14  "},
    {"no_width", -0.5, 3, 0, "-0.500"},
    {"rounded", 2.5, 0, 0, "2"},
};

TEST_F(QzStringBufferTest, FormatCFloatUsesWidthAndPrecision)
{
    for (CFloatCase const &c : kCFloatCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer buffer;
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

TEST_F(QzStringBufferTest, FormatLocalizedFloatShowsSmallValues)
{
    for (LocalizedCase const &c : kLocalizedCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer buffer;
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
};

TEST_F(QzStringBufferTest, ReplaceTable)
{
    for (ReplaceCase const &c : kReplaceCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer buffer(c.text);
        EXPECT_EQ(buffer.Replace(c.old_text, c.new_text, c.from, c.all), c.result);
        EXPECT_EQ(Bytes(buffer.GetString()), c.expected);
        EXPECT_EQ(buffer.GetLength(), QzString::GetLength(c.expected));
    }
    QzStringBuffer buffer("1.2.3");
    EXPECT_EQ(buffer.Replace(".", ",", 0), 1);
    EXPECT_EQ(Bytes(buffer.GetString()), "1,2.3");

    QzStringBuffer null_buffer;
    EXPECT_EQ(null_buffer.Replace("a", "b", 1), 0);
    EXPECT_TRUE(null_buffer.IsNull());
}

TEST_F(QzStringBufferTest, ReplaceSubStringSplicesARange)
{
    QzStringBuffer buffer("abcde");
    buffer.ReplaceSubString(1, 3, "XYZ");
    EXPECT_EQ(Bytes(buffer.GetString()), "aXYZde");
    buffer.ReplaceSubString(0, 1, nullptr);
    EXPECT_EQ(Bytes(buffer.GetString()), "XYZde");
    buffer.ReplaceSubString(5, 5, "!");
    EXPECT_EQ(Bytes(buffer.GetString()), "XYZde!");
    buffer.ReplaceSubString(-3, 99, "all");  // clamped to the text
    EXPECT_EQ(Bytes(buffer.GetString()), "all");
    EXPECT_EQ(buffer.GetLength(), 3);
}

TEST_F(QzStringBufferTest, ExtractSubStringIntoItselfMovesDownInPlace)
{
    QzStringBuffer buffer("hello world");
    char const *block = buffer.GetString();
    int capacity = buffer.GetAllocationSize();
    buffer.ExtractSubString(6, 11, &buffer);
    EXPECT_EQ(Bytes(buffer.GetString()), "world");
    EXPECT_EQ(buffer.GetLength(), 5);
    EXPECT_EQ(buffer.GetString(), block);
    EXPECT_EQ(buffer.GetAllocationSize(), capacity);

    buffer.ExtractSubString(3, 2, &buffer);  // a bad range empties it
    EXPECT_FALSE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());

    QzStringBuffer source("abcdef");
    QzStringBuffer out;
    source.ExtractSubString(2, 4, &out);
    EXPECT_EQ(Bytes(out.GetString()), "cd");
    QzStringBuffer null_source;
    null_source.ExtractSubString(0, 1, &out);
    EXPECT_TRUE(out.IsNull());
}

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
    char const blanks[] = {' ', '\t', '\n', '\v', '\f', '\r'};
    for (char blank : blanks)
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

TEST_F(QzStringBufferTest, EqualityComparesLengthsThenText)
{
    QzStringBuffer a("same");
    QzStringBuffer b("same");
    QzStringBuffer c("other");
    QzStringBuffer null_buffer;
    QzStringBuffer empty;
    empty.SetEmptyString();
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a != c);
    EXPECT_FALSE(null_buffer == empty);
    EXPECT_TRUE(null_buffer == QzStringBuffer());
    EXPECT_TRUE(a == "same");
    EXPECT_FALSE(null_buffer == "");
    EXPECT_TRUE(a.Equal(b));
}

TEST_F(QzStringBufferTest, SwapAndCopiesExchangeBlocks)
{
    QzStringBuffer a("first");
    QzStringBuffer b;
    char const *block = a.GetString();
    a.Swap(b);
    EXPECT_TRUE(a.IsNull());
    EXPECT_EQ(b.GetString(), block);
    EXPECT_EQ(b.GetLength(), 5);

    QzStringBuffer copy(b);
    EXPECT_NE(copy.GetString(), b.GetString());
    EXPECT_TRUE(copy == b);
    QzStringBuffer moved(std::move(copy));
    EXPECT_TRUE(copy.IsNull());
    EXPECT_EQ(Bytes(moved.GetString()), "first");
    a = moved;
    EXPECT_EQ(Bytes(a.GetString()), "first");
    a = QzString("text");
    EXPECT_EQ(Bytes(a.GetString()), "text");
}

TEST_F(QzStringBufferTest, MemberFormsUseTheBufferLength)
{
    QzStringBuffer buffer("abcabc");
    EXPECT_EQ(buffer.Find("abc", 1), buffer.GetString() + 3);
    EXPECT_EQ(buffer.Find("abc", 6), nullptr);
    EXPECT_EQ(buffer.FindLastChar('b'), buffer.GetString() + 4);
    EXPECT_EQ(buffer.HasPrefix("ab"), 1);
    EXPECT_EQ(buffer.HasSuffix("bc"), 1);
    EXPECT_EQ(buffer.Hash(), QzString::Hash("abcabc"));
    buffer.UpperCase();
    EXPECT_EQ(Bytes(buffer.GetString()), "ABCABC");
    EXPECT_EQ(buffer.Stricmp("abcabc"), 0);

    QzStringBuffer number(" 12 ");
    int value = 0;
    EXPECT_EQ(number.ReadLocalizedInt(&value), 1);
    EXPECT_EQ(value, 12);
}
