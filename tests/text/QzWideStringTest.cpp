// QzWideStringTest.cpp: QzWideString objects, its statics on raw UTF-16
// text, natural ordering, case, and the conversions to 8-bit text.

#include "qzutil/text/QzWideString.h"

#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"
#include "text/QzTextTestFixture.h"

using QzWideStringTest = QzTextTest;

// Unpaired surrogates cannot be written in u"..." literals.
static std::u16string Units(std::initializer_list<char16_t> units)
{
    return std::u16string(units);
}

TEST_F(QzWideStringTest, LengthsCountUnits)
{
    QzWideString text(u"a\U0001F600b");
    EXPECT_EQ(text.GetLength(), 4);
    EXPECT_EQ(text.GetSize(), 5u);
    QzWideString part(u"abcdef", 3);
    EXPECT_EQ(ToU16(part.GetString()), u"abc");
    QzWideString copy(part);
    EXPECT_TRUE(copy == part);
    EXPECT_NE(copy.GetString(), part.GetString());
    copy = u"other";
    EXPECT_EQ(copy.CharAtPos(1), u't');
    QzWideString from_buffer(QzWideStringBuffer(u"buffered"));
    EXPECT_EQ(ToU16(from_buffer.GetString()), u"buffered");
}

struct WideOrderCase {
    char const *name;
    char16_t const *a;
    char16_t const *b;
    int strcmp_sign;
    int stricmp_sign;
};

// The rows of ASCII text run for both widths in QzStringTest.cpp.
const WideOrderCase kWideOrderCases[] = {
    {"unsigned_units", u"\uE000", u"a", 1, 1},
    {"latin_case", u"\u00C4B", u"\u00E4b", -1, 0},
    {"greek_case", u"\u03A3", u"\u03C3", -1, 0},
};

static int Sign(int value)
{
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

TEST_F(QzWideStringTest, OrderFollowsTheNullRules)
{
    for (WideOrderCase const &c : kWideOrderCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Sign(QzWideString::Strcmp(c.a, c.b)), c.strcmp_sign);
        EXPECT_EQ(Sign(QzWideString::Stricmp(c.a, c.b)), c.stricmp_sign);
    }
}

struct LogicalCase {
    char const *name;
    char16_t const *a;
    char16_t const *b;
    int sign;
};

const LogicalCase kLogicalCases[] = {
    {"numbers_by_value", u"a2", u"a10", -1},
    {"leading_zero_as_fraction", u"a01", u"a1", -1},
    {"fraction_digit_by_digit", u"x001", u"x01", -1},
    {"equal_numbers_go_on", u"v10b", u"v10a", 1},
    {"same_length_first_difference", u"a19", u"a21", -1},
    {"file_names", u"file9.txt", u"file10.txt", -1},
    {"case_folded", u"abc", u"ABC", 0},
    {"letters_after_digits", u"x1", u"xa", -1},
    {"digit_after_punctuation", u"1", u"-", 1},
    {"end_before_digit", u"a", u"a1", -1},
    {"digit_after_end", u"a1", u"a", 1},
    {"null_first", nullptr, u"", -1},
    {"null_null", nullptr, nullptr, 0},
    {"empty_empty", u"", u"", 0},
};

TEST_F(QzWideStringTest, StrCmpLogicalOrdersNaturally)
{
    for (LogicalCase const &c : kLogicalCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Sign(QzWideString::StrCmpLogical(c.a, c.b)), c.sign);
        EXPECT_EQ(Sign(QzWideString::StrCmpLogical(c.b, c.a)), -c.sign) << "not antisymmetric";
    }
}

struct CaseMappingCase {
    char const *name;
    std::u16string text;
    std::u16string upper;
    std::u16string lower;
};

const CaseMappingCase kCaseMappingCases[] = {
    {"ascii", u"aZ9", u"AZ9", u"az9"},
    {"latin1", u"\u00E0\u00C9", u"\u00C0\u00C9", u"\u00E0\u00E9"},
    {"y_diaeresis_leaves_latin1", u"\u00FF", u"\u0178", u"\u00FF"},
    {"sharp_s_has_no_simple_upper", u"\u00DF", u"\u00DF", u"\u00DF"},
    {"cyrillic", u"\u0436\u0416", u"\u0416\u0416", u"\u0436\u0436"},
    {"surrogate_pair_untouched", u"\U00010428", u"\U00010428", u"\U00010428"},
    {"lone_surrogate_untouched", Units({0xDC00, u'a'}), Units({0xDC00, u'A'}),
     Units({0xDC00, u'a'})},
};

TEST_F(QzWideStringTest, CaseMappingIsUnicodeWithinTheBmp)
{
    for (CaseMappingCase const &c : kCaseMappingCases) {
        SCOPED_TRACE(c.name);
        QzWideString upper(c.text.c_str());
        upper.UpperCase();
        EXPECT_EQ(ToU16(upper.GetString()), c.upper);
        QzWideString lower(c.text.c_str());
        lower.LowerCase();
        EXPECT_EQ(ToU16(lower.GetString()), c.lower);
    }
}

TEST_F(QzWideStringTest, CaseMappingIgnoresTheProcessLocale)
{
    QzScopedCType c_locale("C");  // a locale that knows no letter above 0x7F
    QzWideString text(u"\u00E9");
    text.UpperCase();
    EXPECT_EQ(ToU16(text.GetString()), u"\u00C9");
}

struct Utf8OutCase {
    char const *name;
    std::u16string wide;
    char const *combined;
    char const *separate;
};

const Utf8OutCase kUtf8OutCases[] = {
    {"ascii", u"az", "az", "az"},
    {"two_byte_bounds", u"\u0080\u07FF", "\xC2\x80\xDF\xBF", "\xC2\x80\xDF\xBF"},
    {"three_byte_bounds", u"\u0800\uFFFF", "\xE0\xA0\x80\xEF\xBF\xBF", "\xE0\xA0\x80\xEF\xBF\xBF"},
    {"pair", u"\U0001F600", "\xF0\x9F\x98\x80", "\xED\xA0\xBD\xED\xB8\x80"},
    {"lone_high", Units({0xD800}), "\xED\xA0\x80", "\xED\xA0\x80"},
    {"lone_low", Units({0xDC00, u'x'}), "\xED\xB0\x80x", "\xED\xB0\x80x"},
    {"reversed_pair", Units({0xDE00, 0xD83D}), "\xED\xB8\x80\xED\xA0\xBD",
     "\xED\xB8\x80\xED\xA0\xBD"},
    {"high_at_end", Units({u'a', 0xD83D}), "a\xED\xA0\xBD", "a\xED\xA0\xBD"},
};

TEST_F(QzWideStringTest, ExtractUtf8CombinesPairsOrNot)
{
    for (Utf8OutCase const &c : kUtf8OutCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer out("previous");
        QzWideString::ExtractUTF8String(c.wide.c_str(), &out);
        EXPECT_EQ(Bytes(out.GetString()), c.combined);
        EXPECT_EQ(out.GetLength(), QzString::GetLength(c.combined));
        QzWideString::ExtractUTF8StringTY10(c.wide.c_str(), &out);
        EXPECT_EQ(Bytes(out.GetString()), c.separate);
    }
}

TEST_F(QzWideStringTest, ExtractUtf8KeepsNullAndEmptyApart)
{
    QzStringBuffer out("x");
    QzWideString::ExtractUTF8String(nullptr, &out);
    EXPECT_TRUE(out.IsNull());
    QzWideString::ExtractUTF8String(u"", &out);
    EXPECT_FALSE(out.IsNull());
    EXPECT_TRUE(out.IsEmpty());
    EXPECT_EQ(out.GetAllocationSize(), 4);
}

TEST_F(QzWideStringTest, Utf8RoundTripsThroughBothDirections)
{
    std::u16string original = u"Gr\u00FC\u00DFe \u4E16\u754C \U0001F30D";
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(original.c_str(), &utf8);
    QzWideString back;
    EXPECT_EQ(back.SetFromUTF8String(utf8.GetString()), 1);
    EXPECT_EQ(ToU16(back.GetString()), original);
}

TEST_F(QzWideStringTest, AsciiExtractionRefusesHighUnits)
{
    QzStringBuffer out;
    EXPECT_EQ(QzWideString::TryExtractAsciiString(u"plain", &out), 1);
    EXPECT_EQ(Bytes(out.GetString()), "plain");
    EXPECT_EQ(QzWideString::TryExtractAsciiString(u"caf\u00E9", &out), 0);
    EXPECT_EQ(Bytes(out.GetString()), "NOT AN ASCII STRING");
    EXPECT_EQ(out.GetLength(), 19);
    QzWideString::ExtractAsciiString(u"\u0080", &out);
    EXPECT_EQ(Bytes(out.GetString()), "NOT AN ASCII STRING");
    EXPECT_EQ(QzWideString::TryExtractAsciiString(nullptr, &out), 1);
    EXPECT_TRUE(out.IsNull());
}

TEST_F(QzWideStringTest, MultiExtractionUsesTheCodePage)
{
    QzScopedCType utf8_locale("C.UTF-8");
    QzStringBuffer out;
    EXPECT_EQ(QzWideString::ExtractMultiString(u"caf\u00E9", &out), 1);
    EXPECT_EQ(Bytes(out.GetString()), "caf\xC3\xA9");
    EXPECT_EQ(out.GetLength(), 5);
    std::u16string lone = Units({u'a', 0xD800, u'b'});
    EXPECT_EQ(QzWideString::ExtractMultiString(lone.c_str(), &out), 1);
    EXPECT_EQ(Bytes(out.GetString()), "a?b");
    EXPECT_EQ(QzWideString::ExtractMultiString(nullptr, &out), 1);
    EXPECT_TRUE(out.IsNull());
}

template <typename WideText>
class QzWideTextTest : public QzTextTest {};
using QzWideTexts = ::testing::Types<QzWideString, QzWideStringBuffer>;
struct QzWideTextName {
    template <typename WideText>
    static std::string GetName(int)
    {
        return std::is_same<WideText, QzWideString>::value ? "String" : "Buffer";
    }
};
TYPED_TEST_SUITE(QzWideTextTest, QzWideTexts, QzWideTextName);

// The object takes on the converted text also when that is the complaint.
TYPED_TEST(QzWideTextTest, SetFromConversionsTakeTheComplaintToo)
{
    QzScopedCType utf8_locale("C.UTF-8");
    TypeParam text(u"old");
    EXPECT_EQ(text.SetFromMultiString("\xC3\xA9t\xC3\xA9"), 1);
    EXPECT_EQ(ToU16(text.GetString()), u"\u00E9t\u00E9");
    EXPECT_EQ(text.SetFromMultiString("\xC3("), 0);
    EXPECT_EQ(ToU16(text.GetString()), u"MBSTOWCS CONVERSION FAILED!");
    EXPECT_EQ(text.TrySetFromAsciiString("\xC3\xA9"), 0);
    EXPECT_EQ(ToU16(text.GetString()), u"ASCIITOWCS INTERNAL FAILURE!");
    text.SetFromAsciiString("ascii");
    EXPECT_EQ(ToU16(text.GetString()), u"ascii");
    EXPECT_EQ(text.SetFromUTF8String("\xC0\x80"
                                     "x"),
              0);
    EXPECT_EQ(ToU16(text.GetString()), u"\uFFFDx");
    EXPECT_EQ(text.SetFromUTF8String("\xE2\x82\xAC"), 1);
    EXPECT_EQ(ToU16(text.GetString()), u"\u20AC");
    EXPECT_EQ(text.SetFromMultiString(nullptr), 1);
    EXPECT_TRUE(text.IsNull());
    text.SetFromAsciiString("x");
    EXPECT_EQ(text.SetFromUTF8String(nullptr), 1);
    EXPECT_TRUE(text.IsNull());
}

// Wide numbers are read through the code page; the ASCII cases run for both
// widths in QzStringTest.cpp.
TEST_F(QzWideStringTest, NumbersWithOtherTextAreRefused)
{
    int number = 99;
    EXPECT_EQ(QzWideString::ReadLocalizedInt(u"12\u00E9", &number), 0);
}

// Search, ranges and copies count units and may split a pair; the ASCII
// cases run for both widths in QzStringTest.cpp.
TEST_F(QzWideStringTest, SearchAndRangesWorkOnUnits)
{
    char16_t const *text = u"x\U0001F600y\U0001F600";
    EXPECT_EQ(QzWideString::FindLastChar(text, char16_t(0xDE00)), text + 5);

    QzWideStringBuffer out;
    QzWideString::ExtractSubString(text, 1, 3, &out);
    EXPECT_EQ(ToU16(out.GetString()), u"\U0001F600");

    LtWChar *copy = QzWideString::AllocAndCopy(text, 2);
    EXPECT_EQ(ToU16(copy), u"x\xD83D");
    QzWideString::Dealloc(copy);
}
