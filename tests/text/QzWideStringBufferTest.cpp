// QzWideStringBufferTest.cpp: QzWideStringBuffer where it differs from the
// narrow buffer (units of two bytes, Unicode trimming, wide formats, XML
// sanitising of high units) and QzStringBufferFormat.
//
// Capacities are checked against QzMemory::GetBestBlockSize of twice the
// units that each operation must ask for (CapacityFor).

#include "qzutil/text/QzWideStringBuffer.h"

#include <clocale>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzStringBuffer.h"

#include "support/QzTestSupport.h"
#include "text/QzTextTestFixture.h"

using QzWideStringBufferTest = QzTextTest;

TEST_F(QzWideStringBufferTest, CapacitiesCountUnits)
{
    QzWideStringBuffer buffer;
    buffer.SetEmptyString();  // GetBestBlockSize(2) bytes
    EXPECT_EQ(buffer.GetAllocationSize(), 2);
    EXPECT_FALSE(buffer.IsNull());

    buffer.Reserve(10);  // 22 bytes asked
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<LtWChar>(10));

    QzWideStringBuffer appended;
    appended.Append(u"abc");  // Reserve(0 + 1 + 3)
    EXPECT_EQ(appended.GetAllocationSize(), CapacityFor<LtWChar>(4));
    appended.Append(u'd');  // Reserve(3 + 2 = 5): below the capacity
    EXPECT_EQ(appended.GetAllocationSize(), CapacityFor<LtWChar>(4));
    EXPECT_EQ(ToU16(appended.GetString()), u"abcd");

    QzWideStringBuffer part(u"abcdef", 2);
    EXPECT_EQ(ToU16(part.GetString()), u"ab");
    EXPECT_EQ(part.GetSize(), 3u);
}

TEST_F(QzWideStringBufferTest, FormatStartsWith101Units)
{
    QzWideStringBuffer buffer;
    std::u16string hundred_one(101, u'w');
    buffer.Format(u"%s", hundred_one.c_str());  // "%s" is wide in a wide format
    int capacity = buffer.GetAllocationSize();
    EXPECT_EQ(capacity, CapacityFor<LtWChar>(100));  // 202 bytes asked
    EXPECT_EQ(buffer.GetLength(), 101);
    EXPECT_EQ(ToU16(buffer.GetString()), hundred_one);

    std::u16string grows(static_cast<std::size_t>(capacity), u'v');
    buffer.Format(u"%s", grows.c_str());
    EXPECT_EQ(buffer.GetAllocationSize(), CapacityFor<LtWChar>(capacity));
    EXPECT_EQ(ToU16(buffer.GetString()), grows);

    buffer.Format(u"%d|%hs|%s", 5, "narrow", u"wide");
    EXPECT_EQ(ToU16(buffer.GetString()), u"5|narrow|wide");
    EXPECT_EQ(buffer.GetLength(), 13);

    buffer.Format(nullptr);
    EXPECT_TRUE(buffer.IsNull());
}

TEST_F(QzWideStringBufferTest, FloatsFormatLikeTheNarrowBuffer)
{
    QzWideStringBuffer buffer;
    buffer.FormatCFloat(2.25, 1, 6);
    EXPECT_EQ(ToU16(buffer.GetString()), u"   2.2");  // round half to even
    buffer.FormatLocalizedFloat(0.00012, 2, 1);
    EXPECT_EQ(ToU16(buffer.GetString()), u"0.00012");
    buffer.FormatLocalizedFloat(0.00123, 2, 1);
    EXPECT_EQ(ToU16(buffer.GetString()), u"0.00");

    QzWideStringBuffer by_value = QzStringBufferFormat::FormatLocalizedFloat(0.00005, 2, 1);
    EXPECT_EQ(ToU16(by_value.GetString()), u"0.00005");
}

TEST_F(QzWideStringBufferTest, ThousandsSeparatorOfTheCLocaleIsEmpty)
{
    ASSERT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
    QzWideStringBuffer separator = QzStringBufferFormat::GetLocalizedThousandSep();
    EXPECT_FALSE(separator.IsNull());
    EXPECT_TRUE(separator.IsEmpty());
}

struct WideTrimCase {
    char const *name;
    std::u16string text;
    void (QzWideStringBuffer::*trim)();
    std::u16string expected;
};

const WideTrimCase kWideTrimCases[] = {
    {"right_removes_all_blanks", u"   ", &QzWideStringBuffer::TrimRight, u""},
    {"left_removes_all_blanks", u" \t\n", &QzWideStringBuffer::TrimLeft, u""},
    {"both", u"\t a b \r\n", &QzWideStringBuffer::Trim, u"a b"},
    {"ideographic_space", u"\u3000x\u2003", &QzWideStringBuffer::Trim, u"x"},
    {"right_only", u" x ", &QzWideStringBuffer::TrimRight, u" x"},
    {"left_only", u" x ", &QzWideStringBuffer::TrimLeft, u"x "},
    {"single_blank", u" ", &QzWideStringBuffer::TrimRight, u""},
};

TEST_F(QzWideStringBufferTest, TrimsWalkDownToTheFirstUnit)
{
    for (WideTrimCase const &c : kWideTrimCases) {
        SCOPED_TRACE(c.name);
        QzWideStringBuffer buffer(c.text.c_str());
        (buffer.*c.trim)();
        EXPECT_EQ(ToU16(buffer.GetString()), c.expected);
        EXPECT_EQ(buffer.GetLength(), static_cast<int>(c.expected.size()));
        EXPECT_FALSE(buffer.IsNull());
    }
}

TEST_F(QzWideStringBufferTest, TrimRightOfASetRemovesItsUnitsOnly)
{
    QzWideStringBuffer buffer(u";a;b,;,");
    buffer.TrimRight(u",;");
    EXPECT_EQ(ToU16(buffer.GetString()), u";a;b");
    buffer.TrimRight(u"");
    buffer.TrimRight(nullptr);
    EXPECT_EQ(ToU16(buffer.GetString()), u";a;b");
    buffer.TrimRight(u"ab;");
    EXPECT_EQ(ToU16(buffer.GetString()), u"");
    EXPECT_EQ(buffer.GetLength(), 0);
}

TEST_F(QzWideStringBufferTest, SanitiseForXmlKeepsEveryUnitFrom32Up)
{
    QzWideStringBuffer out;
    std::u16string text = u"a\x0001\t\u0085\uFFFF\U0001F600\x001F\n";
    QzWideStringBuffer::SanitiseForXML(text.c_str(), &out);
    EXPECT_EQ(ToU16(out.GetString()), u"a\t\u0085\uFFFF\U0001F600\n");
    QzWideStringBuffer::SanitiseForXML(nullptr, &out);
    EXPECT_TRUE(out.IsNull());
}

struct WideReplaceCase {
    char const *name;
    char16_t const *text;
    char16_t const *old_text;
    char16_t const *new_text;
    int from;
    int all;
    int result;
    char16_t const *expected;
};

const WideReplaceCase kWideReplaceCases[] = {
    {"all", u"\u00E9-\u00E9", u"\u00E9", u"e", 0, 1, 1, u"e-e"},
    {"first", u"\u00E9-\u00E9", u"\u00E9", u"e", 0, 0, 1, u"e-\u00E9"},
    {"from", u"\u00E9-\u00E9", u"\u00E9", u"e", 1, 1, 1, u"\u00E9-e"},
    {"delete", u"a\U0001F600b", u"\U0001F600", nullptr, 0, 1, 1, u"ab"},
    {"no_match", u"abc", u"x", u"y", 0, 1, 0, u"abc"},
};

TEST_F(QzWideStringBufferTest, ReplaceTable)
{
    for (WideReplaceCase const &c : kWideReplaceCases) {
        SCOPED_TRACE(c.name);
        QzWideStringBuffer buffer(c.text);
        EXPECT_EQ(buffer.Replace(c.old_text, c.new_text, c.from, c.all), c.result);
        EXPECT_EQ(ToU16(buffer.GetString()), ToU16(c.expected));
    }
    QzWideStringBuffer buffer(u"abcdef");
    buffer.ReplaceSubString(2, 4, u"\u4E16");
    EXPECT_EQ(ToU16(buffer.GetString()), u"ab\u4E16ef");
}

TEST_F(QzWideStringBufferTest, DirectEditingAndSetAt)
{
    QzWideStringBuffer buffer;
    buffer.Reserve(4);
    int capacity = buffer.GetAllocationSize();
    ASSERT_EQ(capacity, CapacityFor<LtWChar>(4));
    ASSERT_LT(capacity, 100);
    LtWChar *block = buffer.BeginEditBuffer();
    std::u16string written = u"wxyz";
    written.copy(block, written.size());
    block[4] = 0;
    buffer.EndEditBuffer(-1);
    EXPECT_EQ(buffer.GetLength(), 4);
    buffer.EndEditBuffer(100);
    EXPECT_EQ(buffer.GetLength(), capacity);  // clamped
    buffer.EndEditBuffer(2);
    EXPECT_EQ(ToU16(buffer.GetString()), u"wx");

    buffer.SetAt(1, u'\u00E9');
    EXPECT_EQ(ToU16(buffer.GetString()), u"w\u00E9");
    buffer.SetAt(0, 0);
    EXPECT_EQ(buffer.GetLength(), 0);
}

TEST_F(QzWideStringBufferTest, ExtractSubStringIntoItselfMovesDownInPlace)
{
    QzWideStringBuffer buffer(u"prefix:value");
    LtWChar const *block = buffer.GetString();
    buffer.ExtractSubString(7, 12, &buffer);
    EXPECT_EQ(ToU16(buffer.GetString()), u"value");
    EXPECT_EQ(buffer.GetString(), block);
    buffer.ExtractSubString(0, 9, &buffer);  // end beyond the text
    EXPECT_FALSE(buffer.IsNull());
    EXPECT_TRUE(buffer.IsEmpty());
}

TEST_F(QzWideStringBufferTest, ConversionsOnTheBuffersText)
{
    QzScopedCType utf8_locale("C.UTF-8");
    QzWideStringBuffer buffer;
    EXPECT_EQ(buffer.SetFromUTF8String("\xE2\x82\xAC"
                                       "5"),
              1);
    EXPECT_EQ(ToU16(buffer.GetString()), u"\u20AC5");
    QzStringBuffer narrow;
    buffer.ExtractUTF8String(&narrow);
    EXPECT_EQ(Bytes(narrow.GetString()), "\xE2\x82\xAC"
                                         "5");
    EXPECT_EQ(buffer.TryExtractAsciiString(&narrow), 0);
    EXPECT_EQ(Bytes(narrow.GetString()), "NOT AN ASCII STRING");
    EXPECT_EQ(buffer.ExtractMultiString(&narrow), 1);
    EXPECT_EQ(Bytes(narrow.GetString()), "\xE2\x82\xAC"
                                         "5");

    EXPECT_EQ(buffer.SetFromMultiString("a\xFF"), 0);
    EXPECT_EQ(ToU16(buffer.GetString()), u"MBSTOWCS CONVERSION FAILED!");
    EXPECT_EQ(buffer.TrySetFromAsciiString("ok"), 1);
    EXPECT_EQ(ToU16(buffer.GetString()), u"ok");
    EXPECT_EQ(buffer.SetFromMultiString(nullptr), 1);
    EXPECT_TRUE(buffer.IsNull());
}

TEST_F(QzWideStringBufferTest, EqualityAndMemberForms)
{
    QzWideStringBuffer a(u"File2");
    QzWideStringBuffer b(u"File2");
    QzWideStringBuffer null_buffer;
    QzWideStringBuffer empty;
    empty.SetEmptyString();
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(null_buffer == empty);
    EXPECT_TRUE(a == u"File2");
    EXPECT_LT(a.StrCmpLogical(u"file10"), 0);
    EXPECT_EQ(a.Stricmp(u"FILE2"), 0);
    EXPECT_EQ(a.HasPrefix(u"Fi"), 1);
    EXPECT_EQ(a.HasSuffix(u"2"), 1);
    EXPECT_EQ(a.Find(u"le", 1), a.GetString() + 2);
    EXPECT_EQ(a.FindLastChar(u'F'), a.GetString());
    a.UpperCase();
    EXPECT_EQ(ToU16(a.GetString()), u"FILE2");
    a.Swap(null_buffer);
    EXPECT_TRUE(a.IsNull());
    EXPECT_EQ(ToU16(null_buffer.GetString()), u"FILE2");
}
