// QzWideStringBufferTest.cpp: QzWideStringBuffer where it differs from the
// narrow buffer (Unicode trimming, XML sanitising of high units, the forms
// of its own) and QzStringBufferFormat. What the two buffers share runs for
// both in QzStringBufferTest.cpp.

#include "qzutil/text/QzWideStringBuffer.h"

#include <clocale>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/text/QzStringBuffer.h"

#include "support/QzTestSupport.h"
#include "text/QzTextTestFixture.h"

using QzWideStringBufferTest = QzTextTest;

TEST_F(QzWideStringBufferTest, FormsOfItsOwn)
{
    QzWideStringBuffer part(u"ab2def", 3);
    EXPECT_EQ(ToU16(part.GetString()), u"ab2");
    EXPECT_EQ(part.GetSize(), 4u);
    EXPECT_LT(part.StrCmpLogical(u"AB10"), 0);

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

// The extractions as members of the buffer; SetFrom* runs for both wide
// classes in QzWideStringTest.cpp.
TEST_F(QzWideStringBufferTest, ExtractionsOfTheBuffersText)
{
    QzScopedCType utf8_locale("C.UTF-8");
    QzWideStringBuffer buffer(u"\u20AC5");
    QzStringBuffer narrow;
    buffer.ExtractUTF8String(&narrow);
    EXPECT_EQ(Bytes(narrow.GetString()), "\xE2\x82\xAC"
                                         "5");
    EXPECT_EQ(buffer.TryExtractAsciiString(&narrow), 0);
    EXPECT_EQ(Bytes(narrow.GetString()), "NOT AN ASCII STRING");
    EXPECT_EQ(buffer.ExtractMultiString(&narrow), 1);
    EXPECT_EQ(Bytes(narrow.GetString()), "\xE2\x82\xAC"
                                         "5");
}
