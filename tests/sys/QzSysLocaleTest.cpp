// QzSysLocaleTest.cpp: the search list built from the environment, the
// language table both ways, the separators, the thread locale guards and the
// C runtime locale.
#include "qzutil/sys/QzSysLocale.h"

#include <langinfo.h>
#include <locale.h>

#include <clocale>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/QzTestSupport.h"
#include "sys/QzScopedEnvironment.h"

namespace {

// The locale that scripts/setup.sh compiles: "." decimal, "," grouping.
char const kGroupingLocale[] = "en_US.ISO-8859-1";

// Every variable the class reads, unset for each test and restored after.
char const *const kLocaleVariables[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LC_NUMERIC", "LANG"};

class QzSysLocaleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzSysLocale::Initialise();
        UseEnvironment("");
    }

    void TearDown() override { QzSysLocale::Terminate(); }

    // The environment as "NAME=value" words, every other variable above
    // unset, then the search list rebuilt.
    void UseEnvironment(std::string const &settings)
    {
        for (char const *name : kLocaleVariables)
            m_environment.Set(name, nullptr);
        std::istringstream words(settings);
        for (std::string word; words >> word;) {
            std::size_t equals = word.find('=');
            m_environment.Set(word.substr(0, equals).c_str(), word.substr(equals + 1).c_str());
        }
        QzSysLocale::ResetLocalization();
    }

    static std::vector<std::string> SearchList()
    {
        std::vector<std::string> list;
        for (int i = 0; i < QzSysLocale::GetNumSearchLanguages(); ++i)
            list.push_back(ToUtf8(ToU16(QzSysLocale::GetSearchLanguage(i))));
        return list;
    }

    QzScopedEnvironment m_environment;
};

// Whether the locale can be made; tests of it are skipped where it cannot.
bool HasLocale(char const *name)
{
    locale_t made = newlocale(LC_ALL_MASK, name, static_cast<locale_t>(nullptr));
    if (made == nullptr)
        return false;
    freelocale(made);
    return true;
}

// Reads "1,234" with digit grouping by the thread's LC_NUMERIC: 1234 where
// "," groups digits, 1 where the locale has no grouping. The "'" flag is
// glibc's, not ISO C's, hence the pedantic format warning is off here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
int ReadGroupedNumber()
{
    int value = 0;
    return std::sscanf("1,234", "%'d", &value) == 1 ? value : -1;
}
#pragma GCC diagnostic pop

std::string ThreadThousandsSeparator()
{
    return nl_langinfo(THOUSEP);
}

struct SearchRow {
    char const *name;
    char const *environment;       // for UseEnvironment
    char16_t const *override_tag;  // null: none
    std::vector<std::string> expected;
};

// The list: override, LANGUAGE's entries, the first non-empty of LC_ALL,
// LC_MESSAGES and LANG, then "en-US"; each once; at most four with "en-US".
TEST_F(QzSysLocaleTest, SearchListFollowsTheEnvironment)
{
    // clang-format off
    SearchRow const rows[] = {
        {"nothing set", "", nullptr, {"en-US"}},
        {"codeset and modifier dropped", "LANG=de_DE.UTF-8@euro", nullptr, {"de-DE", "en-US"}},
        {"C.UTF-8 is no language", "LANG=C.UTF-8", nullptr, {"en-US"}},
        {"POSIX is no language", "LC_ALL=POSIX", nullptr, {"en-US"}},
        {"bare language takes its default region", "LANGUAGE=fr:de_AT:C", nullptr,
         {"fr-FR", "de-AT", "en-US"}},
        {"duplicates dropped", "LANGUAGE=de_DE:de_DE.UTF-8:de LANG=de_DE.ISO-8859-1", nullptr,
         {"de-DE", "en-US"}},
        {"four at most, en-US kept", "LANGUAGE=ja:ko:ru:tr:pl", nullptr,
         {"ja-JP", "ko-KR", "ru-RU", "en-US"}},
        {"en-US early is not repeated", "LANGUAGE=en_US:sv", nullptr, {"en-US", "sv-SE"}},
        {"en-US early leaves three places", "LANGUAGE=en:it:nl:hu:cs", nullptr,
         {"en-US", "it-IT", "nl-NL", "hu-HU"}},
        {"LANGUAGE before the locale", "LANGUAGE=pl LANG=tr_TR.UTF-8", nullptr,
         {"pl-PL", "tr-TR", "en-US"}},
        {"LC_ALL before LANG", "LC_ALL=it_IT.UTF-8 LANG=de_DE", nullptr, {"it-IT", "en-US"}},
        {"empty LC_ALL passes to LC_MESSAGES", "LC_ALL= LC_MESSAGES=nl_NL LANG=de_DE", nullptr,
         {"nl-NL", "en-US"}},
        {"C in LC_ALL hides LANG", "LC_ALL=C LANG=de_DE", nullptr, {"en-US"}},
        {"names that are no locale skipped", "LANGUAGE=::x:english:zh_TW.Big5:de-", nullptr,
         {"zh-TW", "en-US"}},
        {"case normalised", "LANG=EN_gb", nullptr, {"en-GB", "en-US"}},
        {"unknown languages kept", "LANGUAGE=eo:es_419:sr_RS@latin", nullptr,
         {"eo", "es-419", "sr-RS", "en-US"}},
        {"override first", "LANG=es_ES.UTF-8", u"pt_BR", {"pt-BR", "es-ES", "en-US"}},
        {"override not repeated", "LANGUAGE=ko:ja", u"JA-jp", {"ja-JP", "ko-KR", "en-US"}},
        {"override that names no language ignored", "LANG=fi_FI", u"C", {"fi-FI", "en-US"}},
    };
    // clang-format on
    for (SearchRow const &row : rows) {
        UseEnvironment(row.environment);
        if (row.override_tag != nullptr)
            (void)QzSysLocale::SetOverrideLanguage(row.override_tag);
        EXPECT_EQ(row.expected, SearchList()) << row.name;
    }
}

// The override stays until reset or cleared, and the index is bounded.
TEST_F(QzSysLocaleTest, OverrideLifetimeAndIndexBounds)
{
    UseEnvironment("LANG=de_DE");
    EXPECT_EQ(1, QzSysLocale::SetOverrideLanguage(u"fr-CA"));
    EXPECT_EQ((std::vector<std::string>{"fr-CA", "de-DE", "en-US"}), SearchList());
    EXPECT_EQ(nullptr, QzSysLocale::GetSearchLanguage(-1));
    EXPECT_EQ(nullptr, QzSysLocale::GetSearchLanguage(3));

    EXPECT_EQ(0, QzSysLocale::SetOverrideLanguage(nullptr));
    EXPECT_EQ((std::vector<std::string>{"de-DE", "en-US"}), SearchList());

    (void)QzSysLocale::SetOverrideLanguage(u"it");
    QzSysLocale::ResetLocalization();
    EXPECT_EQ((std::vector<std::string>{"de-DE", "en-US"}), SearchList());
}

// The user's language is the first that the table knows; the override does
// not count; en-US stands in for none.
TEST_F(QzSysLocaleTest, UserLanguageAndLocale)
{
    // The number locale: LC_NUMERIC before LANG, LANGUAGE plays no part.
    UseEnvironment("LANGUAGE=eo:fr_CA LANG=de_DE.UTF-8 LC_NUMERIC=pt_BR.UTF-8");
    (void)QzSysLocale::SetOverrideLanguage(u"ja");
    EXPECT_EQ(0x0C0C, QzSysLocale::GetUserLangID());

    QzWideStringBuffer language;
    QzWideStringBuffer region;
    EXPECT_EQ(1, QzSysLocale::GetUserLanguage(&language, &region, QzSysLocale::eTWO_LETTER));
    EXPECT_EQ(u"fr", ToU16(language.GetString()));
    EXPECT_EQ(u"CA", ToU16(region.GetString()));
    EXPECT_EQ(1, QzSysLocale::GetUserLanguage(&language, &region, QzSysLocale::eTHREE_LETTER));
    EXPECT_EQ(u"fra", ToU16(language.GetString()));
    EXPECT_EQ(u"CAN", ToU16(region.GetString()));
    EXPECT_EQ(0, QzSysLocale::GetUserLanguage(&language, &region,
                                              static_cast<QzSysLocale::LanguageTagFormat>(7)));
    EXPECT_EQ(u"", ToU16(language.GetString()));
    EXPECT_EQ(0x0416, QzSysLocale::GetUserLocaleID());
    QzWideStringBuffer tag;
    EXPECT_EQ(1, QzSysLocale::GetUserLocale(&tag));
    EXPECT_EQ(u"pt-BR", ToU16(tag.GetString()));

    UseEnvironment("LANGUAGE=eo LANG=C");
    EXPECT_EQ(0x0409, QzSysLocale::GetUserLangID());
    EXPECT_EQ(0x0409, QzSysLocale::GetUserLocaleID());
    EXPECT_EQ(0, QzSysLocale::GetUserLocale(&tag));
    EXPECT_EQ(u"en-US", ToU16(tag.GetString()));
    EXPECT_EQ(0, QzSysLocale::GetUserLanguage(&language, nullptr, QzSysLocale::eTWO_LETTER));
    EXPECT_EQ(u"en", ToU16(language.GetString()));
}

struct LanguageRow {
    int id;
    char16_t const *tag;
    char16_t const *posix_name;  // the same language as the environment writes it
    char16_t const *abbrev;
    char16_t const *english_name;
};

// Language ids and abbreviations from the original platform's national
// language support reference; tags per BCP 47.
LanguageRow const kLanguageRows[] = {
    {0x0409, u"en-US", u"en_US.UTF-8", u"ENU", u"English (United States)"},
    {0x0809, u"en-GB", u"en_GB", u"ENG", u"English (United Kingdom)"},
    {0x0407, u"de-DE", u"de_DE@euro", u"DEU", u"German (Germany)"},
    {0x040C, u"fr-FR", u"fr_FR.ISO-8859-15", u"FRA", u"French (France)"},
    {0x0C0C, u"fr-CA", u"fr_CA", u"FRC", u"French (Canada)"},
    {0x0410, u"it-IT", u"it_IT", u"ITA", u"Italian (Italy)"},
    {0x0C0A, u"es-ES", u"es_ES", u"ESN", u"Spanish (Spain)"},
    {0x080A, u"es-MX", u"es_MX", u"ESM", u"Spanish (Mexico)"},
    {0x0416, u"pt-BR", u"pt_BR", u"PTB", u"Portuguese (Brazil)"},
    {0x0816, u"pt-PT", u"pt_PT", u"PTG", u"Portuguese (Portugal)"},
    {0x0413, u"nl-NL", u"nl_NL", u"NLD", u"Dutch (Netherlands)"},
    {0x041D, u"sv-SE", u"sv_SE", u"SVE", u"Swedish (Sweden)"},
    {0x0406, u"da-DK", u"da_DK", u"DAN", u"Danish (Denmark)"},
    {0x040B, u"fi-FI", u"fi_FI", u"FIN", u"Finnish (Finland)"},
    {0x0414, u"nb-NO", u"nb_NO", u"NOR", u"Norwegian Bokmal (Norway)"},
    {0x0415, u"pl-PL", u"pl_PL", u"PLK", u"Polish (Poland)"},
    {0x0405, u"cs-CZ", u"cs_CZ", u"CSY", u"Czech (Czech Republic)"},
    {0x040E, u"hu-HU", u"hu_HU", u"HUN", u"Hungarian (Hungary)"},
    {0x0408, u"el-GR", u"el_GR", u"ELL", u"Greek (Greece)"},
    {0x0419, u"ru-RU", u"ru_RU.KOI8-R", u"RUS", u"Russian (Russia)"},
    {0x0422, u"uk-UA", u"uk_UA", u"UKR", u"Ukrainian (Ukraine)"},
    {0x041F, u"tr-TR", u"tr_TR", u"TRK", u"Turkish (Turkey)"},
    {0x0411, u"ja-JP", u"ja_JP.eucJP", u"JPN", u"Japanese (Japan)"},
    {0x0412, u"ko-KR", u"ko_KR", u"KOR", u"Korean (Korea)"},
    {0x0804, u"zh-CN", u"zh_CN.GB18030", u"CHS", u"Chinese (Simplified, China)"},
    {0x0404, u"zh-TW", u"zh_TW", u"CHT", u"Chinese (Traditional, Taiwan)"},
};

std::u16string Lowered(char16_t const *text)
{
    std::u16string lowered(text);
    for (char16_t &unit : lowered) {
        if (unit >= u'A' && unit <= u'Z')
            unit = static_cast<char16_t>(unit - u'A' + u'a');
    }
    return lowered;
}

using IdToText = int (*)(int, QzWideStringBuffer *);
using TextToId = int (*)(LtWChar const *);

// `convert` of `id` answers 1 with `expected`, or 0 with the empty text
// (replacing a stale one) for a null expectation.
void ExpectText(IdToText convert, int id, char16_t const *expected)
{
    QzWideStringBuffer text(u"stale");
    EXPECT_EQ(expected != nullptr ? 1 : 0, convert(id, &text)) << std::hex << id;
    EXPECT_EQ(std::u16string(expected != nullptr ? expected : u""), ToU16(text.GetString()))
        << std::hex << id;
}

// `convert` finds `id` from `key` as written and in lower case.
void ExpectIdInAnyCase(TextToId convert, char16_t const *key, int id)
{
    EXPECT_EQ(id, convert(key)) << ToUtf8(key);
    EXPECT_EQ(id, convert(Lowered(key).c_str())) << ToUtf8(key);
}

// Each row converts both ways, by every key, in any case.
TEST_F(QzSysLocaleTest, TableConvertsEveryRowBothWays)
{
    for (LanguageRow const &row : kLanguageRows) {
        ExpectText(QzSysLocale::LangIDToLanguageTag, row.id, row.tag);
        ExpectIdInAnyCase(QzSysLocale::LanguageTagToLangID, row.tag, row.id);
        EXPECT_EQ(row.id, QzSysLocale::LanguageTagToLangID(row.posix_name)) << ToUtf8(row.tag);

        ExpectText(QzSysLocale::LangIDToAbbrevLangName, row.id, row.abbrev);
        ExpectIdInAnyCase(QzSysLocale::AbbrevLangNameToLangID, row.abbrev, row.id);
        ExpectIdInAnyCase(QzSysLocale::LangNameToLangID, row.english_name, row.id);

        EXPECT_EQ(row.id, QzSysLocale::LangIDToLocaleID(row.id)) << ToUtf8(row.tag);
        ExpectText(QzSysLocale::LocaleIDToLocaleName, row.id, row.tag);
        ExpectIdInAnyCase(QzSysLocale::LocaleNameToLocaleID, row.tag, row.id);
    }
}

// No id outside the rows above is known, so the table holds exactly them.
TEST_F(QzSysLocaleTest, TableHoldsNoOtherLanguage)
{
    QzWideStringBuffer text;
    int known = 0;
    for (int id = 0; id <= 0xFFFF; ++id)
        known += QzSysLocale::LangIDToLanguageTag(id, &text);
    EXPECT_EQ(static_cast<int>(sizeof kLanguageRows / sizeof kLanguageRows[0]), known);
}

// A bare language, by tag or by English name, is its default region.
TEST_F(QzSysLocaleTest, BareLanguagesTakeTheirDefaultRegion)
{
    struct {
        char16_t const *tag;
        char16_t const *english;
        int id;
    } const rows[] = {
        {u"en", u"English", 0x0409}, {u"de", u"German", 0x0407},     {u"fr", u"French", 0x040C},
        {u"es", u"Spanish", 0x0C0A}, {u"pt", u"Portuguese", 0x0416}, {u"zh", u"Chinese", 0x0804},
    };
    for (auto const &row : rows) {
        EXPECT_EQ(row.id, QzSysLocale::LanguageTagToLangID(row.tag)) << ToUtf8(row.tag);
        EXPECT_EQ(row.id, QzSysLocale::LangNameToLangID(row.english)) << ToUtf8(row.english);
    }
}

// Unknown keys answer 0 and empty the output.
TEST_F(QzSysLocaleTest, UnknownKeysAnswerNothing)
{
    char16_t const *const bad_tags[] = {nullptr,   u"",  u"C",       u"xx-YY",
                                        u"de-DEU", u"d", u"deutsch", u"de-D\u00c9"};
    for (char16_t const *tag : bad_tags) {
        EXPECT_EQ(0, QzSysLocale::LanguageTagToLangID(tag)) << ToUtf8(ToU16(tag));
        EXPECT_EQ(0, QzSysLocale::LocaleNameToLocaleID(tag)) << ToUtf8(ToU16(tag));
    }
    EXPECT_EQ(0, QzSysLocale::AbbrevLangNameToLangID(u"DE"));
    EXPECT_EQ(0, QzSysLocale::AbbrevLangNameToLangID(nullptr));
    EXPECT_EQ(0, QzSysLocale::LangNameToLangID(u"German (Austria)"));
    EXPECT_EQ(0, QzSysLocale::LangNameToLangID(u"Germany"));
    EXPECT_EQ(0, QzSysLocale::LangNameToLangID(u""));

    ExpectText(QzSysLocale::LangIDToLanguageTag, 0x9999, nullptr);
    ExpectText(QzSysLocale::LangIDToAbbrevLangName, 0, nullptr);
    EXPECT_EQ(0, QzSysLocale::LangIDToLanguageTag(0x0407, nullptr));
    // 0x10407 is German with the phone-book sort: a locale of its own.
    ExpectText(QzSysLocale::LocaleIDToLocaleName, 0x10407, nullptr);
    EXPECT_EQ(0x0407, QzSysLocale::LocaleIDToLangID(0x10407));
}

// The separators are those of the environment's LC_NUMERIC; a missing
// locale answers as "C". Only the grouping locale groups digits.
TEST_F(QzSysLocaleTest, SeparatorsOfTheEnvironmentLocale)
{
    for (char const *locale : {"C", "C.UTF-8", "xx_XX.UTF-8", kGroupingLocale}) {
        bool is_grouping = locale == kGroupingLocale;
        if (is_grouping && !HasLocale(kGroupingLocale))
            continue;  // not installed here: only "C" and "C.UTF-8" are assumed
        m_environment.Set("LC_ALL", locale);
        EXPECT_EQ(u".", ToU16(QzSysLocale::GetLocalizedDecimalPoint().GetString())) << locale;
        EXPECT_EQ(is_grouping ? u"," : u"",
                  ToU16(QzSysLocale::GetLocalizedThousandSep().GetString()))
            << locale;
        EXPECT_EQ(u",", ToU16(QzSysLocale::GetLocalizedListSep().GetString())) << locale;
        EXPECT_EQ(2, QzSysLocale::GetLocalizedDecimalPlaces());
    }
}

class QzSysLocaleGuardTest : public QzSysLocaleTest {
protected:
    void SetUp() override
    {
        QzSysLocaleTest::SetUp();
        if (!HasLocale(kGroupingLocale))
            GTEST_SKIP() << kGroupingLocale << " is not installed";
    }
};

// A guard changes its category on the calling thread alone: not the other
// categories, not the process's locale, not other threads; nested guards
// unwind in order.
TEST_F(QzSysLocaleGuardTest, GuardsChangeTheirCategoryOnThisThreadOnly)
{
    std::string process_locale = std::setlocale(LC_ALL, nullptr);
    std::string codeset = nl_langinfo(CODESET);
    ASSERT_EQ(1, ReadGroupedNumber());
    {
        QzAutoLocaleOverride numeric(LC_NUMERIC, kGroupingLocale);
        EXPECT_TRUE(numeric.IsActive());
        EXPECT_EQ(1234, ReadGroupedNumber());
        EXPECT_EQ(",", ThreadThousandsSeparator());
        EXPECT_EQ(codeset, nl_langinfo(CODESET));
        EXPECT_EQ(process_locale, std::setlocale(LC_ALL, nullptr));
        std::string other_thread_separator = "unset";
        std::thread other([&] { other_thread_separator = ThreadThousandsSeparator(); });
        other.join();
        EXPECT_EQ("", other_thread_separator);
    }
    EXPECT_EQ(1, ReadGroupedNumber());
    {
        QzAutoLocaleOverride all(LC_ALL, kGroupingLocale);  // an ISO-8859-1 thread
        {
            QzAutoCLocaleOverride c_locale;
            EXPECT_TRUE(c_locale.IsActive());
            EXPECT_EQ(1, ReadGroupedNumber());
            EXPECT_EQ(process_locale, std::setlocale(LC_ALL, nullptr));
        }
        EXPECT_EQ(1234, ReadGroupedNumber());
        {
            QzAutoCLocaleOverride c_numeric(LC_NUMERIC);
            EXPECT_EQ(1, ReadGroupedNumber());
            EXPECT_STREQ("ISO-8859-1", nl_langinfo(CODESET));
        }
        EXPECT_EQ(1234, ReadGroupedNumber());
    }
    EXPECT_EQ(1, ReadGroupedNumber());
    EXPECT_EQ(codeset, nl_langinfo(CODESET));
}

// Guards that cannot switch leave the thread alone.
TEST_F(QzSysLocaleTest, GuardsThatCannotSwitchChangeNothing)
{
    std::string separator = ThreadThousandsSeparator();
    QzAutoLocaleOverride missing(LC_NUMERIC, "xx_XX.UTF-8");
    QzAutoLocaleOverride null_name(LC_NUMERIC, nullptr);
    QzAutoLocaleOverride bad_category(9999, "C");
    EXPECT_FALSE(missing.IsActive());
    EXPECT_FALSE(null_name.IsActive());
    EXPECT_FALSE(bad_category.IsActive());
    EXPECT_EQ(separator, ThreadThousandsSeparator());
}

// SetCRTLocale sets and answers the process's locale per category.
TEST_F(QzSysLocaleTest, CRTLocaleRoundTrip)
{
    std::string saved = QzSysLocale::SetCRTLocale(LC_NUMERIC, nullptr);
    EXPECT_STREQ("C.UTF-8", QzSysLocale::SetCRTLocale(LC_NUMERIC, "C.UTF-8"));
    EXPECT_STREQ("C.UTF-8", std::setlocale(LC_NUMERIC, nullptr));
    EXPECT_EQ(nullptr, QzSysLocale::SetCRTLocale(LC_NUMERIC, "xx_XX.UTF-8"));
    EXPECT_STREQ("C.UTF-8", QzSysLocale::SetCRTLocale(LC_NUMERIC, nullptr));
    EXPECT_EQ(nullptr, QzSysLocale::SetCRTLocale(9999, "C"));
    EXPECT_EQ(saved, QzSysLocale::SetCRTLocale(LC_NUMERIC, saved.c_str()));
    EXPECT_EQ(saved, std::setlocale(LC_NUMERIC, nullptr));
}

// InitialiseCRTLocale takes the environment's locale, or C.UTF-8 for one
// that is missing.
TEST_F(QzSysLocaleTest, InitialiseCRTLocaleFallsBackToCUtf8)
{
    std::string saved = std::setlocale(LC_ALL, nullptr);
    m_environment.Set("LC_ALL", "xx_XX.UTF-8");
    EXPECT_FALSE(QzSysLocale::InitialiseCRTLocale());
    EXPECT_STREQ("C.UTF-8", std::setlocale(LC_CTYPE, nullptr));
    m_environment.Set("LC_ALL", "C");
    EXPECT_TRUE(QzSysLocale::InitialiseCRTLocale());
    EXPECT_STREQ("C", std::setlocale(LC_CTYPE, nullptr));
    std::setlocale(LC_ALL, saved.c_str());
}

}  // namespace
