// QzStringConvTest.cpp: QzStringConv: the STEP string decoder (escapes,
// ISO 8859 pages, groups, failures) and the 7-bit form of UTF-16 text.
//
// Expected characters are those of the published ISO 8859 parts and of
// Unicode, written out by hand, not read from the library's tables.

#include "qzutil/text/QzStringConv.h"

#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"

#include "text/QzTextTestFixture.h"

using QzStringConvTest = QzTextTest;

// A decoding of 8-bit text into UTF-16, for both decoders.
struct DecodeCase {
    char const *name;
    char const *text;
    bool is_good;
    std::u16string wide;  // on failure: what was decoded before the fault
};

const DecodeCase kStepCases[] = {
    // Plain text and skipped bytes.
    {"plain", "ABC def-1", true, u"ABC def-1"},
    {"bytes_outside_printable_skipped", "A\nB\tC\x7F\x80\xE9\x01", true, u"ABC"},
    {"skipped_inside_escape", "\\X2\\00\r\n41\\X0\\", true, u"A"},
    // \X\hh: one ISO 8859-1 byte.
    {"x_byte_latin1", "\\X\\E9t\\X\\C9", true, u"\u00E9t\u00C9"},
    {"x_byte_nul_adds_nothing", "a\\X\\00b", true, u"ab"},
    // \X2\ groups: one UTF-16 unit each.
    {"x2_units", "\\X2\\00E903A9\\X0\\!", true, u"\u00E9\u03A9!"},
    {"x2_open_at_end", "\\X2\\0041", true, u"A"},
    {"x2_pair_by_halves", "\\X2\\D83DDE00\\X0\\", true, u"\U0001F600"},
    // \X4\ groups: one code point each, a pair above U+FFFF.
    {"x4_astral_pair", "\\X4\\0001F600\\X0\\", true, u"\U0001F600"},      // D83D DE00
    {"x4_first_astral", "\\X4\\00010000\\X0\\", true, u"\U00010000"},     // D800 DC00
    {"x4_last_code_point", "\\X4\\0010FFFF\\X0\\", true, u"\U0010FFFF"},  // DBFF DFFF
    {"x4_bmp", "\\X4\\000020AC\\X0\\", true, u"\u20AC"},
    {"x2_then_x4", "\\X2\\0041\\X4\\00010000\\X0\\B", true, u"A\U00010000B"},
    // \S\c with the ISO 8859 part chosen by \PA\ to \PP\.
    {"s_latin1_by_default", "\\S\\i", true, u"\u00E9"},          // 8859-1 E9
    {"s_backslash_character", "\\S\\\\", true, u"\u00DC"},       // 8859-1 DC
    {"s_part5_cyrillic_a", "\\PE\\\\S\\0", true, u"\u0410"},     // 8859-5 B0
    {"s_part7_greek_alpha", "\\PG\\\\S\\A", true, u"\u0391"},    // 8859-7 C1
    {"s_part15_euro", "\\PO\\\\S\\$", true, u"\u20AC"},          // 8859-15 A4
    {"s_part16_euro", "\\PP\\\\S\\$", true, u"\u20AC"},          // 8859-16 A4
    {"s_part11_thai_ko_kai", "\\PK\\\\S\\!", true, u"\u0E01"},   // 8859-11 A1
    {"s_part2_l_stroke", "\\PB\\\\S\\#", true, u"\u0141"},       // 8859-2 A3
    {"s_back_to_part1", "\\PO\\\\PA\\\\S\\$", true, u"\u00A4"},  // 8859-1 A4
    {"s_part12_does_not_exist", "\\PL\\\\S\\A", true, u""},
    {"s_part3_unassigned_byte", "\\PC\\\\S\\%x", true, u"x"},  // 8859-3 A5
    // Other characters after a backslash go with it.
    {"unknown_escape_dropped", "a\\Zb", true, u"ab"},
    {"doubled_backslash_dropped", "a\\\\b", true, u"ab"},
    {"backslash_at_end_dropped", "a\\", true, u"a"},
    // Ill-formed escapes: false, keeping what came before.
    {"x_lower_case_digits", "ok\\X\\e9", false, u"ok"},
    {"x_one_digit_at_end", "ok\\X\\4", false, u"ok"},
    {"x2_lower_case_digits", "ok\\X2\\00e9\\X0\\", false, u"ok"},
    {"x2_short_group", "a\\X2\\004\\X0\\", false, u"a"},
    {"x2_group_cut_by_end", "\\X2\\0041004", false, u"A"},
    {"x4_short_group", "\\X4\\0001F60\\X0\\", false, u""},
    {"x4_above_10ffff", "a\\X4\\00110000\\X0\\", false, u"a"},
    {"x_unknown_form", "a\\X3\\b", false, u"a"},
    {"x0_without_backslash", "a\\X0b", false, u"a"},
    {"group_ended_by_other_escape", "\\X2\\0041\\S\\a", false, u"A"},
    {"page_beyond_p", "a\\PQ\\b", false, u"a"},
    {"page_not_a_letter", "a\\P1\\b", false, u"a"},
    {"page_missing_backslash", "a\\PAb", false, u"a"},
    {"s_missing_backslash", "a\\Sb", false, u"a"},
    {"s_at_end", "a\\S\\", false, u"a"},
};

using WideDecoder = bool (*)(char const *text, QzWideStringBuffer *out);

// Decodes into a buffer holding other text, which must not survive.
static void ExpectDecodes(WideDecoder decode, DecodeCase const &c)
{
    SCOPED_TRACE(c.name);
    QzWideStringBuffer wide(u"left over");
    EXPECT_EQ(decode(c.text, &wide), c.is_good);
    EXPECT_EQ(ToU16(wide.GetString()), c.wide);
    EXPECT_EQ(wide.GetLength(), static_cast<int>(c.wide.size()));
}

TEST_F(QzStringConvTest, StepToWideDecodesTheTable)
{
    for (DecodeCase const &c : kStepCases)
        ExpectDecodes(&QzStringConv::STEPToWide, c);
}

TEST_F(QzStringConvTest, StepToWideNullAndEmpty)
{
    QzWideStringBuffer wide(u"x");
    EXPECT_TRUE(QzStringConv::STEPToWide(nullptr, &wide));
    EXPECT_TRUE(wide.IsNull());
    EXPECT_TRUE(QzStringConv::STEPToWide("", &wide));
    EXPECT_FALSE(wide.IsNull());
    EXPECT_TRUE(wide.IsEmpty());
    EXPECT_FALSE(QzStringConv::STEPToWide("a", nullptr));
}

struct SevenBitCase {
    char const *name;
    std::u16string wide;
    char const *seven_bit;
};

const SevenBitCase kSevenBitCases[] = {
    {"printable", u"abc XYZ~!", "abc XYZ~!"},
    {"empty", u"", ""},
    {"slash_doubled", u"a/b//", "a//b////"},
    {"latin_e_acute", u"caf\u00E9", "caf/00E9"},
    {"controls", u"\t\n\u001F", "/0009/000A/001F"},
    {"delete_is_escaped", u"~\u007F", "~/007F"},
    {"surrogate_pair_by_units", u"\U0001F600", "/D83D/DE00"},
    {"highest_unit", u"\uFFFF", "/FFFF"},
    {"slash_and_non_ascii", u"/\u20AC/", "///20AC//"},
};

TEST_F(QzStringConvTest, SevenBitEncodesAndDecodesTheTable)
{
    for (SevenBitCase const &c : kSevenBitCases) {
        SCOPED_TRACE(c.name);
        QzStringBuffer narrow("left over");
        QzStringConv::EncodeWideTo7BitAscii(c.wide.c_str(), &narrow);
        EXPECT_EQ(Bytes(narrow.GetString()), c.seven_bit);
        QzWideStringBuffer wide(u"left over");
        EXPECT_TRUE(QzStringConv::DecodeWideFrom7BitAscii(narrow.GetString(), &wide));
        EXPECT_EQ(ToU16(wide.GetString()), c.wide);
    }
}

const DecodeCase kSevenBitDecodeCases[] = {
    {"digits_need_not_be_canonical", "/0041/002F", true, u"A/"},
    {"other_bytes_stand_for_themselves", "a\tb\xE9", true, u"a\tb\u00E9"},
    {"lower_case_digits_refused", "a/00e9", false, u"a"},
    {"three_digits_then_end", "a/00E", false, u"a"},
    {"slash_at_end", "ab/", false, u"ab"},
    {"non_digit", "/00G0", false, u""},
    {"nul_unit_refused", "x/0000y", false, u"x"},
};

TEST_F(QzStringConvTest, SevenBitDecodingRefusesMalformedEscapes)
{
    for (DecodeCase const &c : kSevenBitDecodeCases)
        ExpectDecodes(&QzStringConv::DecodeWideFrom7BitAscii, c);
}

TEST_F(QzStringConvTest, SevenBitNullTextReleasesTheBuffer)
{
    QzStringBuffer narrow("x");
    QzStringConv::EncodeWideTo7BitAscii(nullptr, &narrow);
    EXPECT_TRUE(narrow.IsNull());
    QzWideStringBuffer wide(u"x");
    EXPECT_TRUE(QzStringConv::DecodeWideFrom7BitAscii(nullptr, &wide));
    EXPECT_TRUE(wide.IsNull());
    EXPECT_FALSE(QzStringConv::DecodeWideFrom7BitAscii("a", nullptr));
}

// Initialise brings up QzString, its dependency; Terminate takes it down.
TEST(QzStringConvComponentTest, InitialiseBringsUpQzString)
{
    int string_count = QzString::IsInitialised();
    QzStringConv::Initialise();
    EXPECT_EQ(QzStringConv::IsInitialised(), 1);
    EXPECT_STREQ(QzStringConv::GetComponent()->GetName(), "QzStringConv");
    EXPECT_EQ(QzString::IsInitialised(), string_count + 1);
    QzStringConv::Terminate();
    EXPECT_EQ(QzStringConv::IsInitialised(), 0);
    EXPECT_EQ(QzString::IsInitialised(), string_count);
}
