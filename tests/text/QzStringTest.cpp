// QzStringTest.cpp: QzString objects, its statics on raw 8-bit text, and the
// conversions of 8-bit text to UTF-16. What QzString shares with QzWideString
// runs for both (QzStringWidthTest). The component chain is QzComponentTest's.

#include "qzutil/text/QzString.h"

#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"
#include "text/QzTextTestFixture.h"

using QzStringTest = QzTextTest;

template <typename Unit>
using QzStringWidthTest = QzTextWidthTest<Unit>;
TYPED_TEST_SUITE(QzStringWidthTest, QzTextUnits, QzTextWidthName);

// Null and empty are two states: both IsEmpty, only one IsNull, never equal.
TYPED_TEST(QzStringWidthTest, NullAndEmptyAreDistinct)
{
    using String = StringOf<TypeParam>;
    String null_text;
    EXPECT_TRUE(null_text.IsNull());
    EXPECT_TRUE(null_text.IsEmpty());
    EXPECT_EQ(null_text.GetSize(), 0u);

    String empty;
    empty.SetEmptyString();
    EXPECT_FALSE(empty.IsNull());
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(empty.GetSize(), 1u);

    EXPECT_FALSE(null_text == empty);
    EXPECT_TRUE(null_text != empty);
    EXPECT_TRUE(empty == QzAscii<TypeParam>(""));
    EXPECT_FALSE(null_text == QzAscii<TypeParam>(""));

    empty.SetString(static_cast<TypeParam const *>(nullptr));
    EXPECT_TRUE(empty.IsNull());
}

struct OrderCase {
    char const *name, *a, *b;
    bool equal;
    int strcmp_sign, stricmp_sign;
    int prefix_length;  // EqualPrefix(a, b, prefix_length)
    bool equal_prefix;
};

// Rows of ASCII text, for both widths; QzWideStringTest.cpp adds its own.
const OrderCase kOrderCases[] = {
    {"null_null", nullptr, nullptr, true, 0, 0, 3, true},
    {"null_empty", nullptr, "", false, -1, -1, 0, false},
    {"empty_null", "", nullptr, false, 1, 1, 0, false},
    {"empty_empty", "", "", true, 0, 0, 1, true},
    {"same", "abc", "abc", true, 0, 0, 10, true},
    {"case", "abc", "ABC", false, 1, 0, 1, false},
    {"shorter_first", "ab", "abc", false, -1, -1, 10, false},
    {"case_then_order", "B", "a", false, -1, 1, 1, false},
    {"common_head", "abcdef", "abcxyz", false, -1, -1, 3, true},
};

static int Sign(int value)
{
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

TYPED_TEST(QzStringWidthTest, EqualityAndOrderFollowTheNullRules)
{
    using String = StringOf<TypeParam>;
    using Ascii = QzAscii<TypeParam>;
    for (OrderCase const &c : kOrderCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::Equal(Ascii(c.a), Ascii(c.b)), c.equal);
        EXPECT_EQ(Sign(String::Strcmp(Ascii(c.a), Ascii(c.b))), c.strcmp_sign);
        EXPECT_EQ(Sign(String::Stricmp(Ascii(c.a), Ascii(c.b))), c.stricmp_sign);
        EXPECT_EQ(String::EqualPrefix(Ascii(c.a), Ascii(c.b), c.prefix_length), c.equal_prefix);
    }
}

struct AffixCase {
    char const *name, *text, *affix;
    int prefix, suffix;
};

const AffixCase kAffixCases[] = {
    {"empty_affix", "abc", "", 0, 0},
    {"null_affix", "abc", nullptr, 0, 0},
    {"empty_text_empty_affix", "", "", 0, 0},
    {"null_text", nullptr, "a", 0, 0},
    {"whole", "abc", "abc", 1, 1},
    {"longer_affix", "ab", "abc", 0, 0},
    {"start", "abc", "ab", 1, 0},
    {"end", "abc", "bc", 0, 1},
    {"neither", "abc", "b", 0, 0},
};

TYPED_TEST(QzStringWidthTest, PrefixAndSuffixNeedANonEmptyAffix)
{
    using String = StringOf<TypeParam>;
    using Ascii = QzAscii<TypeParam>;
    for (AffixCase const &c : kAffixCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::HasPrefix(Ascii(c.text), Ascii(c.affix)), c.prefix);
        EXPECT_EQ(String::HasSuffix(Ascii(c.text), Ascii(c.affix)), c.suffix);
    }
}

TYPED_TEST(QzStringWidthTest, FindReportsTheFirstOccurrenceFromAPosition)
{
    using String = StringOf<TypeParam>;
    using Ascii = QzAscii<TypeParam>;
    Ascii text_units("one two one");
    TypeParam const *text = text_units;
    EXPECT_EQ(String::Find(text, Ascii("two")), text + 4);
    EXPECT_EQ(String::Find(text, Ascii("three")), nullptr);
    EXPECT_EQ(String::Find(text, Ascii("")), nullptr);
    EXPECT_EQ(String::Find(text, nullptr), nullptr);
    EXPECT_EQ(String::Find(nullptr, Ascii("a")), nullptr);

    String object(text);
    TypeParam const *base = object.GetString();
    EXPECT_EQ(object.Find(Ascii("one"), 1), base + 8);
    EXPECT_EQ(object.Find(Ascii("one"), 9), nullptr);
    EXPECT_EQ(object.Find(Ascii("o"), 11), nullptr);  // from == length
    EXPECT_EQ(object.Find(Ascii("o"), -1), nullptr);

    EXPECT_EQ(String::FindLastChar(text, TypeParam('o')), text + 8);
    EXPECT_EQ(String::FindLastChar(text, TypeParam('x')), nullptr);
    EXPECT_EQ(String::FindLastChar(nullptr, TypeParam('o')), nullptr);
}

TYPED_TEST(QzStringWidthTest, HashIsTimesFivePlusUnit)
{
    using String = StringOf<TypeParam>;
    using Ascii = QzAscii<TypeParam>;
    EXPECT_EQ(String::Hash(Ascii("a")), 97u);
    EXPECT_EQ(String(Ascii("ab")).Hash(), 583u);  // 97 * 5 + 98
    EXPECT_EQ(String::Hash(Ascii("")), 0u);
    EXPECT_EQ(String::Hash(nullptr), 0u);
}

// A byte above 0x7F counts as a negative value, a unit above 0x7FFF does not.
TEST_F(QzStringTest, HashSignsBytesButNotUnits)
{
    EXPECT_EQ(QzString::Hash("\xE9"), 0xFFFFFFE9u);
    EXPECT_EQ(QzWideString::Hash(u"\uFFFF"), 0xFFFFu);
    EXPECT_EQ(QzStringHasher()(QzString("ab")), 583u);
    EXPECT_EQ(QzWideStringHasher()(QzWideString(u"ab")), 583u);
}

TEST_F(QzStringTest, CopiesAndAssignmentsOwnTheirText)
{
    char source[] = "model";
    QzString a(source);
    source[0] = 'X';  // the string holds its own copy
    EXPECT_EQ(Bytes(a.GetString()), "model");
    EXPECT_EQ(a.GetSize(), 6u);
    QzString b(a);
    EXPECT_NE(b.GetString(), a.GetString());
    EXPECT_TRUE(a == b);

    QzString c(QzStringBuffer("from a buffer"));
    EXPECT_EQ(Bytes(c.GetString()), "from a buffer");
    c = a;
    EXPECT_EQ(Bytes(c.GetString()), "model");
    c.SetString("truncated", 5);
    EXPECT_EQ(Bytes(c.GetString()), "trunc");
    c.SetString(c.GetString());  // its own text: nothing happens
    EXPECT_EQ(Bytes(c.GetString()), "trunc");
    c.SetString(c.GetString() + 2);  // part of its own text
    EXPECT_EQ(Bytes(c.GetString()), "unc");

    QzString moved(std::move(c));
    EXPECT_EQ(Bytes(moved.GetString()), "unc");
    EXPECT_TRUE(c.IsNull());

    moved.Swap(a);
    EXPECT_EQ(Bytes(moved.GetString()), "model");
    EXPECT_EQ(Bytes(a.GetString()), "unc");
    EXPECT_EQ(a[1], 'n');
    EXPECT_EQ(a.CharAtPos(2), 'c');
}

TEST_F(QzStringTest, StringsLiveInTheClassAllocator)
{
    LtNat64 before = QzMemory::GetDirectMemoryAllocated();
    QzString *text = new QzString("abc");
    EXPECT_GT(QzMemory::GetDirectMemoryAllocated(), before);
    delete text;
    EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), before);
}

TEST_F(QzStringTest, CaseChangesWorkByteByByte)
{
    char text[] = "Mixed Case 42";
    QzString::UpperCase(text);
    EXPECT_EQ(Bytes(text), "MIXED CASE 42");
    QzString::LowerCase(text);
    EXPECT_EQ(Bytes(text), "mixed case 42");
    QzString::LowerCase(nullptr);  // no effect, no crash
    QzString object("aBc");
    object.UpperCase();
    EXPECT_EQ(Bytes(object.GetString()), "ABC");
}

TEST_F(QzStringTest, AllocAndCopyMakesExactBlocks)
{
    EXPECT_EQ(QzString::AllocAndCopy(nullptr), nullptr);
    EXPECT_EQ(QzString::AllocAndCopy(nullptr, 3), nullptr);
    char *whole = QzString::AllocAndCopy("abcdef");
    char *part = QzString::AllocAndCopy("abcdef", 2);
    char *short_text = QzString::AllocAndCopy("ab", 10);  // stops at the nul
    EXPECT_EQ(Bytes(whole), "abcdef");
    EXPECT_EQ(Bytes(part), "ab");
    EXPECT_EQ(Bytes(short_text), "ab");
    QzString::Dealloc(whole);
    QzString::Dealloc(part);
    QzString::Dealloc(short_text);  // the fixture checks that all went back
    QzString::Dealloc(nullptr);
}

struct SubStringCase {
    char const *name;
    int start, end;
    char const *expected;
};

const SubStringCase kSubStringCases[] = {
    {"middle", 1, 4, "bcd"},  {"whole", 0, 6, "abcdef"},      {"start_negative", -1, 3, ""},
    {"end_beyond", 2, 7, ""}, {"start_equals_end", 3, 3, ""}, {"start_after_end", 4, 2, ""},
};

TEST_F(QzStringTest, ExtractSubStringTakesAHalfOpenRange)
{
    for (SubStringCase const &c : kSubStringCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer out("old content");
        QzString::ExtractSubString("abcdef", c.start, c.end, &out);
        EXPECT_FALSE(out.IsNull());
        EXPECT_EQ(Bytes(out.GetString()), c.expected);
        EXPECT_EQ(out.GetLength(), QzString::GetLength(c.expected));
    }
    QzStringBuffer out("old");
    QzString::ExtractSubString(nullptr, 0, 1, &out);
    EXPECT_TRUE(out.IsNull());
    QzString::ExtractSubString("abc", 0, 1, nullptr);  // nowhere to write: nothing happens
}

// --- UTF-8 decoding ---

struct Utf8Case {
    char const *name, *utf8;
    std::u16string wide;
    int ok;
    int length = -1;  // the bound given to the call; -1: the form without one
};

const Utf8Case kUtf8Cases[] = {
    // First and last character of each sequence length.
    {"one_last", "\x7F", u"\x007F", 1},
    {"two_first", "\xC2\x80", u"\u0080", 1},
    {"two_last", "\xDF\xBF", u"\u07FF", 1},
    {"three_first", "\xE0\xA0\x80", u"\u0800", 1},
    {"three_last_allowed", "\xEF\xBF\xBD", u"\uFFFD", 1},
    {"four_first", "\xF0\x90\x80\x80", u"\U00010000", 1},  // D800 DC00
    {"four_last", "\xF4\x8F\xBF\xBF", u"\U0010FFFF", 1},   // DBFF DFFF
    // Encoded surrogates pass on as they are.
    {"surrogate_high", "\xED\xA0\x80", std::u16string(1, char16_t(0xD800)), 1},
    // Refused values.
    {"refused_FFFE", "\xEF\xBF\xBE", u"\uFFFD", 0},
    {"refused_FFFF", "\xEF\xBF\xBF", u"\uFFFD", 0},
    {"above_10FFFF", "\xF4\x90\x80\x80", u"\uFFFD", 0},
    {"lead_F7", "\xF7\xBF\xBF\xBF", u"\uFFFD", 0},
    // Overlong forms, each one below its length's least value.
    {"overlong_nul", "\xC0\x80", u"\uFFFD", 0},
    {"overlong_two", "\xC1\xBF", u"\uFFFD", 0},
    {"overlong_three", "\xE0\x9F\xBF", u"\uFFFD", 0},
    {"overlong_four", "\xF0\x8F\xBF\xBF", u"\uFFFD", 0},
    // Bytes that start nothing: one U+FFFD each.
    {"two_continuations", "a\x80\xBFz", u"a\uFFFD\uFFFDz", 0},
    {"lead_F8", "\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD", 0},
    // A broken sequence: one U+FFFD, which also swallows the breaking byte.
    {"broken_by_ascii", "\xC3\x28", u"\uFFFD", 0},
    {"broken_three", "\xE2\x82\x28z", u"\uFFFDz", 0},
    {"broken_by_lead", "\xE2\xC3\xA9", u"\uFFFD\uFFFD", 0},
    // Cut by the end of the text: the nul is not swallowed.
    {"truncated_four_at_end", "\xF0\x9F\x98", u"\uFFFD\uFFFD\uFFFD", 0},
    // The length bounds multi-byte sequences only; the scan runs on to the nul.
    {"length_whole", "a\xC3\xA9", u"a\u00E9", 1, 3},
    {"length_cuts_two_byte", "a\xC3\xA9", u"a\uFFFD\uFFFD", 0, 2},
    {"length_cuts_at_lead", "\xC3\xA9", u"\uFFFD\uFFFD", 0, 1},
    {"ascii_beyond_length", "abc", u"abc", 1, 1},
};

TEST_F(QzStringTest, Utf8ToWideDecodesAndReplaces)
{
    for (Utf8Case const &c : kUtf8Cases) {
        SCOPED_TRACE(c.name);
        QzWideStringBuffer out(u"previous text");
        int const ok = c.length < 0 ? QzString::UTF8ToWideString(c.utf8, &out)
                                    : QzString::UTF8ToWideString(c.utf8, c.length, &out);
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(ToU16(out.GetString()), c.wide);
        EXPECT_EQ(out.GetLength(), static_cast<int>(c.wide.size()));
        if (c.length < 0) {
            EXPECT_EQ(QzString::IsValidUTF8(c.utf8), c.ok);
        }
    }
}

TEST_F(QzStringTest, Utf8ToWideHandlesNullAndEmpty)
{
    EXPECT_EQ(QzString::UTF8ToWideStringImpl("a", -1, nullptr), 0);
    QzWideStringBuffer out(u"x");
    EXPECT_EQ(QzString::UTF8ToWideString(nullptr, &out), 1);
    EXPECT_TRUE(out.IsNull());
    EXPECT_EQ(QzString::UTF8ToWideString("", &out), 1);
    EXPECT_FALSE(out.IsNull());
    EXPECT_TRUE(out.IsEmpty());
    EXPECT_EQ(out.GetAllocationSize() * 2, static_cast<int>(QzMemory::GetBestBlockSize(2)));
    EXPECT_EQ(QzString::IsValidUTF8(nullptr), 1);
    EXPECT_EQ(QzString::IsValidUTF8(""), 1);
}

// --- 7-bit and multi-byte widening ---

struct WidenCase {
    char const *name, *text;
    int ascii_ok;  // also IsValidAscii
    std::u16string ascii;
    int multi_ok;
    std::u16string multi;
};

const WidenCase kWidenCases[] = {
    {"ascii", "a\x7F", 1, u"a\x7F", 1, u"a\x7F"},
    {"utf8", "caf\xC3\xA9", 0, u"ASCIITOWCS INTERNAL FAILURE!", 1, u"caf\u00E9"},
    {"invalid_utf8", "\xC3\x28", 0, u"ASCIITOWCS INTERNAL FAILURE!", 0,
     u"MBSTOWCS CONVERSION FAILED!"},
};

TEST_F(QzStringTest, WideningLeavesAComplaintOnFailure)
{
    QzScopedCType utf8_locale("C.UTF-8");
    for (WidenCase const &c : kWidenCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(QzString::IsValidAscii(c.text), c.ascii_ok);
        QzWideStringBuffer out(u"previous");
        EXPECT_EQ(QzString::AsciiToWideString(c.text, &out), c.ascii_ok);
        EXPECT_EQ(ToU16(out.GetString()), c.ascii);
        EXPECT_EQ(QzString::MultiToWideString(c.text, &out), c.multi_ok);
        EXPECT_EQ(ToU16(out.GetString()), c.multi);
        EXPECT_EQ(out.GetLength(), static_cast<int>(c.multi.size()));
    }
}

TEST_F(QzStringTest, WideningKeepsNullAndEmptyApart)
{
    EXPECT_EQ(QzString::IsValidAscii(nullptr), 1);
    EXPECT_EQ(QzString::IsValidAscii(""), 1);
    using Widen = int (*)(char const *, QzWideStringBuffer *);
    for (Widen widen : {Widen(&QzString::AsciiToWideString), Widen(&QzString::MultiToWideString)}) {
        QzWideStringBuffer out(u"x");
        EXPECT_EQ(widen(nullptr, &out), 1);
        EXPECT_TRUE(out.IsNull());
        EXPECT_EQ(widen("", &out), 1);
        EXPECT_FALSE(out.IsNull());
        EXPECT_TRUE(out.IsEmpty());
    }
}

// --- Numbers, in both widths ---

// ReadLocalizedFloat trims blanks and needs the whole rest to be the number,
// but stores what strtod read in any case; ReadCFloat scans a leading
// number, blanks first, and leaves the value alone when there is none.
struct FloatCase {
    char const *name, *text;
    int ok;
    double value;  // 99: left as it was
    int c_ok;
    double c_value;
};

const FloatCase kFloatCases[] = {
    {"plain", "1.25", 1, 1.25, 1, 1.25},          {"blanks_around", " \t1.25\n ", 1, 1.25, 1, 1.25},
    {"trailing_text", "1.25x", 0, 1.25, 1, 1.25}, {"exponent", "-2e2", 1, -200.0, 1, -200.0},
    {"nothing_numeric", "abc", 0, 0.0, 0, 99},    {"empty", "", 0, 99, 0, 99},
    {"blanks_only", "   ", 0, 99, 0, 99},         {"null", nullptr, 0, 99, 0, 99},
};

struct IntCase {
    char const *name, *text;
    int ok;
    int value;  // 99: left as it was
};

const IntCase kIntCases[] = {
    {"plain", "42", 1, 42},
    {"negative_with_blanks", "  -7 ", 1, -7},
    {"fraction", "4.2", 0, 4},
    {"letters", "abc", 0, 0},
    {"above_int", "99999999999", 1, INT_MAX},
    {"below_int", "-99999999999", 1, INT_MIN},
    {"empty", "", 0, 99},
    {"null", nullptr, 0, 99},
};

TYPED_TEST(QzStringWidthTest, ReadNumbersLocalizedAndInTheCLocale)
{
    using String = StringOf<TypeParam>;
    using Ascii = QzAscii<TypeParam>;
    for (FloatCase const &c : kFloatCases) {
        SCOPED_TRACE(c.name);
        double value = 99;
        EXPECT_EQ(String::ReadLocalizedFloat(Ascii(c.text), &value), c.ok);
        EXPECT_EQ(value, c.value);
        value = 99;
        EXPECT_EQ(String::ReadCFloat(Ascii(c.text), &value), c.c_ok);
        EXPECT_EQ(value, c.c_value);
    }
    for (IntCase const &c : kIntCases) {
        SCOPED_TRACE(c.name);
        int value = 99;
        EXPECT_EQ(String::ReadLocalizedInt(Ascii(c.text), &value), c.ok);
        EXPECT_EQ(value, c.value);
    }
}
