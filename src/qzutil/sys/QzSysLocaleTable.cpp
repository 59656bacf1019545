// QzSysLocaleTable.cpp: the language table, the normalisation of language
// names into tags, and QzSysLocale's conversions through the table.
#include "qzutil/sys/internal/QzSysLocaleTable.h"

#include <cstring>

#include "qzutil/sys/QzSysLocale.h"

// Language ids and abbreviations are those of the original platform's
// national language support tables (LANGID = primary language | sublanguage
// << 10); the ISO codes are those of ISO 639-2/T and ISO 3166-1 alpha-3.
// The first row of a language is its default region.
static QzSysLocaleRow const kLanguages[] = {
    {0x0409, "en-US", "ENU", "English (United States)", "eng", "USA"},
    {0x0809, "en-GB", "ENG", "English (United Kingdom)", "eng", "GBR"},
    {0x0407, "de-DE", "DEU", "German (Germany)", "deu", "DEU"},
    {0x040C, "fr-FR", "FRA", "French (France)", "fra", "FRA"},
    {0x0C0C, "fr-CA", "FRC", "French (Canada)", "fra", "CAN"},
    {0x0410, "it-IT", "ITA", "Italian (Italy)", "ita", "ITA"},
    {0x0C0A, "es-ES", "ESN", "Spanish (Spain)", "spa", "ESP"},
    {0x080A, "es-MX", "ESM", "Spanish (Mexico)", "spa", "MEX"},
    {0x0416, "pt-BR", "PTB", "Portuguese (Brazil)", "por", "BRA"},
    {0x0816, "pt-PT", "PTG", "Portuguese (Portugal)", "por", "PRT"},
    {0x0413, "nl-NL", "NLD", "Dutch (Netherlands)", "nld", "NLD"},
    {0x041D, "sv-SE", "SVE", "Swedish (Sweden)", "swe", "SWE"},
    {0x0406, "da-DK", "DAN", "Danish (Denmark)", "dan", "DNK"},
    {0x040B, "fi-FI", "FIN", "Finnish (Finland)", "fin", "FIN"},
    {0x0414, "nb-NO", "NOR", "Norwegian Bokmal (Norway)", "nob", "NOR"},
    {0x0415, "pl-PL", "PLK", "Polish (Poland)", "pol", "POL"},
    {0x0405, "cs-CZ", "CSY", "Czech (Czech Republic)", "ces", "CZE"},
    {0x040E, "hu-HU", "HUN", "Hungarian (Hungary)", "hun", "HUN"},
    {0x0408, "el-GR", "ELL", "Greek (Greece)", "ell", "GRC"},
    {0x0419, "ru-RU", "RUS", "Russian (Russia)", "rus", "RUS"},
    {0x0422, "uk-UA", "UKR", "Ukrainian (Ukraine)", "ukr", "UKR"},
    {0x041F, "tr-TR", "TRK", "Turkish (Turkey)", "tur", "TUR"},
    {0x0411, "ja-JP", "JPN", "Japanese (Japan)", "jpn", "JPN"},
    {0x0412, "ko-KR", "KOR", "Korean (Korea)", "kor", "KOR"},
    {0x0804, "zh-CN", "CHS", "Chinese (Simplified, China)", "zho", "CHN"},
    {0x0404, "zh-TW", "CHT", "Chinese (Traditional, Taiwan)", "zho", "TWN"},
};

// A locale id is the language id in its low 16 bits, the sort order above
// them (0 for the default sort).
static constexpr int kLangIdBits = 0xFFFF;

// Longest name or abbreviation accepted as input, nul included.
static constexpr int kMaxNameInput = 64;

static char FoldAscii(char unit)
{
    return (unit >= 'A' && unit <= 'Z') ? static_cast<char>(unit - 'A' + 'a') : unit;
}

static char UpperAscii(char unit)
{
    return (unit >= 'a' && unit <= 'z') ? static_cast<char>(unit - 'a' + 'A') : unit;
}

static bool IsAsciiLetter(char unit)
{
    return FoldAscii(unit) >= 'a' && FoldAscii(unit) <= 'z';
}

static bool IsAsciiDigit(char unit)
{
    return unit >= '0' && unit <= '9';
}

// Equality of the first `count` bytes of `a` with all of `b`, ignoring ASCII
// case (locale-independent, unlike strcasecmp).
static bool EqualFolded(char const *a, std::size_t count, char const *b)
{
    if (std::strlen(b) != count)
        return false;
    for (std::size_t i = 0; i < count; ++i) {
        if (FoldAscii(a[i]) != FoldAscii(b[i]))
            return false;
    }
    return true;
}

// The length of the language part of a tag: up to the "-" or the end.
static std::size_t LanguageLength(char const *tag)
{
    char const *dash = std::strchr(tag, '-');
    return dash != nullptr ? static_cast<std::size_t>(dash - tag) : std::strlen(tag);
}

// The first row, in table order, that `match` accepts; null if none does.
template <typename Match>
static QzSysLocaleRow const *FindFirst(Match const &match)
{
    for (QzSysLocaleRow const &row : kLanguages) {
        if (match(row))
            return &row;
    }
    return nullptr;
}

QzSysLocaleRow const *QzSysLocaleTable::FindById(int lang_id)
{
    return FindFirst([lang_id](QzSysLocaleRow const &row) { return row.m_lang_id == lang_id; });
}

QzSysLocaleRow const *QzSysLocaleTable::FindByTag(char const *tag)
{
    if (tag == nullptr)
        return nullptr;
    std::size_t length = std::strlen(tag);
    bool is_bare = LanguageLength(tag) == length;
    return FindFirst([tag, length, is_bare](QzSysLocaleRow const &row) {
        if (is_bare)
            return EqualFolded(row.m_tag, LanguageLength(row.m_tag), tag);
        return EqualFolded(tag, length, row.m_tag);
    });
}

bool QzSysLocaleTable::NormaliseName(char const *name, char (&tag)[kTagCapacity])
{
    tag[0] = 0;
    if (name == nullptr)
        return false;
    // The language: 2 or 3 letters, ended by the region's "_" or "-", the
    // codeset's "." or the modifier's "@".
    std::size_t language = 0;
    while (IsAsciiLetter(name[language]))
        ++language;
    if (language < 2 || language > 3)
        return false;  // "C", "POSIX", and names that are no language
    char const *rest = name + language;
    std::size_t region = 0;
    if (*rest == '_' || *rest == '-') {
        ++rest;
        while (IsAsciiLetter(rest[region]) || IsAsciiDigit(rest[region]))
            ++region;
        bool is_letters = region == 2 && IsAsciiLetter(rest[0]) && IsAsciiLetter(rest[1]);
        bool is_digits =
            region == 3 && IsAsciiDigit(rest[0]) && IsAsciiDigit(rest[1]) && IsAsciiDigit(rest[2]);
        if (!is_letters && !is_digits)
            return false;
    }
    char const *end = rest + region;
    if (*end != 0 && *end != '.' && *end != '@')
        return false;

    std::size_t length = 0;
    for (std::size_t i = 0; i < language; ++i)
        tag[length++] = FoldAscii(name[i]);
    if (region != 0) {
        tag[length++] = '-';
        for (std::size_t i = 0; i < region; ++i)
            tag[length++] = UpperAscii(rest[i]);
    }
    tag[length] = 0;
    if (region == 0) {
        QzSysLocaleRow const *row = FindByTag(tag);
        if (row != nullptr)
            std::memcpy(tag, row->m_tag, std::strlen(row->m_tag) + 1);
    }
    return true;
}

bool QzSysLocaleTable::NarrowAscii(LtWChar const *text, char *out, int size)
{
    out[0] = 0;
    if (text == nullptr)
        return false;
    int length = 0;
    for (; text[length] != 0; ++length) {
        if (text[length] > 127 || length + 1 >= size) {
            out[0] = 0;
            return false;
        }
        out[length] = static_cast<char>(text[length]);
    }
    out[length] = 0;
    return true;
}

// The row named by wide text that NormaliseName accepts, or null.
static QzSysLocaleRow const *FindByWideName(LtWChar const *name)
{
    char narrow[kMaxNameInput];
    char tag[QzSysLocaleTable::kTagCapacity];
    if (!QzSysLocaleTable::NarrowAscii(name, narrow, kMaxNameInput) ||
        !QzSysLocaleTable::NormaliseName(narrow, tag))
        return nullptr;
    return QzSysLocaleTable::FindByTag(tag);
}

// Sets `out` (if any) to the row's field, or empties it; 1 with a row.
static int AnswerText(QzSysLocaleRow const *row, char const *QzSysLocaleRow::*field,
                      QzWideStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    if (row == nullptr) {
        out->SetEmptyString();
        return 0;
    }
    out->SetFromAsciiString(row->*field);
    return 1;
}

static int IdOf(QzSysLocaleRow const *row)
{
    return row != nullptr ? row->m_lang_id : 0;
}

int QzSysLocale::LangIDToLanguageTag(int lang_id, QzWideStringBuffer *tag)
{
    return AnswerText(QzSysLocaleTable::FindById(lang_id), &QzSysLocaleRow::m_tag, tag);
}

int QzSysLocale::LanguageTagToLangID(LtWChar const *tag)
{
    return IdOf(FindByWideName(tag));
}

int QzSysLocale::LangIDToAbbrevLangName(int lang_id, QzWideStringBuffer *abbrev)
{
    return AnswerText(QzSysLocaleTable::FindById(lang_id), &QzSysLocaleRow::m_abbrev, abbrev);
}

int QzSysLocale::AbbrevLangNameToLangID(LtWChar const *abbrev)
{
    char narrow[kMaxNameInput];
    if (!QzSysLocaleTable::NarrowAscii(abbrev, narrow, kMaxNameInput))
        return 0;
    std::size_t length = std::strlen(narrow);
    return IdOf(FindFirst([&narrow, length](QzSysLocaleRow const &row) {
        return EqualFolded(narrow, length, row.m_abbrev);
    }));
}

int QzSysLocale::LangNameToLangID(LtWChar const *name)
{
    char narrow[kMaxNameInput];
    if (!QzSysLocaleTable::NarrowAscii(name, narrow, kMaxNameInput) || narrow[0] == 0)
        return 0;
    std::size_t length = std::strlen(narrow);
    return IdOf(FindFirst([&narrow, length](QzSysLocaleRow const &row) {
        // "German" alone matches the language part before " (Germany)".
        char const *region = std::strstr(row.m_english_name, " (");
        std::size_t language = static_cast<std::size_t>(region - row.m_english_name);
        return EqualFolded(narrow, length, row.m_english_name) ||
               (length == language && EqualFolded(row.m_english_name, language, narrow));
    }));
}

int QzSysLocale::LangIDToLocaleID(int lang_id)
{
    return lang_id & kLangIdBits;
}

int QzSysLocale::LocaleIDToLangID(int locale_id)
{
    return locale_id & kLangIdBits;
}

int QzSysLocale::LocaleIDToLocaleName(int locale_id, QzWideStringBuffer *name)
{
    QzSysLocaleRow const *row = nullptr;
    if ((locale_id & ~kLangIdBits) == 0)
        row = QzSysLocaleTable::FindById(locale_id);
    return AnswerText(row, &QzSysLocaleRow::m_tag, name);
}

int QzSysLocale::LocaleNameToLocaleID(LtWChar const *name)
{
    return LangIDToLocaleID(LanguageTagToLangID(name));
}
