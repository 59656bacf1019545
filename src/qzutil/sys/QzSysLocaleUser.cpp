// QzSysLocaleUser.cpp: the QzSysLocale component, the user's language and
// locale as the environment names them, and the cached search list.
#include <cstdlib>
#include <cstring>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/QzSysLocale.h"
#include "qzutil/sys/internal/QzSysLocaleTable.h"
#include "qzutil/text/QzString.h"

using TagText = char[QzSysLocaleTable::kTagCapacity];

static char const kFallbackTag[] = "en-US";

// Longest single entry of LANGUAGE looked at, nul included; longer ones
// cannot be locale names and are skipped.
static constexpr std::size_t kMaxLanguageEntry = 64;

// The search list: plain data, set at start-up (see the class comment).
static TagText g_override_tag;  // empty without an override
static TagText g_search_tags[QzSysLocale::kMaxSearchLanguages];
static LtWChar g_search_wide[QzSysLocale::kMaxSearchLanguages][QzSysLocaleTable::kTagCapacity];
static int g_search_count;
static bool g_is_search_list_built;

QzComponent QzSysLocale::m_component;

// The value of the first of `names` that is set and not empty, or null.
template <std::size_t Count>
static char const *FirstNonEmptyVariable(char const *const (&names)[Count])
{
    for (char const *name : names) {
        char const *value = std::getenv(name);
        if (value != nullptr && *value != 0)
            return value;
    }
    return nullptr;
}

// Calls visit(name) for each language name of the environment in order of
// preference: the entries of LANGUAGE, then the first non-empty of LC_ALL,
// LC_MESSAGES and LANG. Stops early when visit returns true.
template <typename Visit>
static void ForEachEnvironmentLanguage(Visit const &visit)
{
    char const *list = std::getenv("LANGUAGE");
    while (list != nullptr && *list != 0) {
        char const *colon = std::strchr(list, ':');
        std::size_t length =
            colon != nullptr ? static_cast<std::size_t>(colon - list) : std::strlen(list);
        if (length > 0 && length < kMaxLanguageEntry) {
            char entry[kMaxLanguageEntry];
            std::memcpy(entry, list, length);
            entry[length] = 0;
            if (visit(entry))
                return;
        }
        list = colon != nullptr ? colon + 1 : nullptr;
    }
    static char const *const kMessageVariables[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    char const *messages = FirstNonEmptyVariable(kMessageVariables);
    if (messages != nullptr)
        (void)visit(messages);
}

// The table's row for a locale name, or null.
static QzSysLocaleRow const *FindByName(char const *name)
{
    TagText tag;
    return QzSysLocaleTable::NormaliseName(name, tag) ? QzSysLocaleTable::FindByTag(tag) : nullptr;
}

// The row of the user's language, or null when the environment names none
// that the table knows.
static QzSysLocaleRow const *FindUserLanguage()
{
    QzSysLocaleRow const *found = nullptr;
    ForEachEnvironmentLanguage([&found](char const *name) {
        found = FindByName(name);
        return found != nullptr;
    });
    return found;
}

// The row of the user's number locale, or null.
static QzSysLocaleRow const *FindUserLocale()
{
    static char const *const kNumericVariables[] = {"LC_ALL", "LC_NUMERIC", "LANG"};
    return FindByName(FirstNonEmptyVariable(kNumericVariables));
}

static QzSysLocaleRow const *OrFallback(QzSysLocaleRow const *row)
{
    return row != nullptr ? row : QzSysLocaleTable::FindById(QzSysLocale::kFallbackLangID);
}

// Appends a normalised tag unless it is already listed. The last place is
// kept for the fallback while that is not yet listed, so that it is always
// searched.
static void AddSearchTag(char const *tag)
{
    bool has_fallback = false;
    for (int i = 0; i < g_search_count; ++i) {
        if (std::strcmp(g_search_tags[i], tag) == 0)
            return;
        has_fallback = has_fallback || std::strcmp(g_search_tags[i], kFallbackTag) == 0;
    }
    int room = QzSysLocale::kMaxSearchLanguages - g_search_count;
    bool is_fallback = std::strcmp(tag, kFallbackTag) == 0;
    if (room == 0 || (room == 1 && !is_fallback && !has_fallback))
        return;
    std::size_t length = std::strlen(tag);
    std::memcpy(g_search_tags[g_search_count], tag, length + 1);
    for (std::size_t i = 0; i <= length; ++i)
        g_search_wide[g_search_count][i] = static_cast<LtWChar>(tag[i]);
    ++g_search_count;
}

static void BuildSearchList()
{
    g_search_count = 0;
    if (g_override_tag[0] != 0)
        AddSearchTag(g_override_tag);
    ForEachEnvironmentLanguage([](char const *name) {
        TagText tag;
        if (QzSysLocaleTable::NormaliseName(name, tag))
            AddSearchTag(tag);
        return false;
    });
    AddSearchTag(kFallbackTag);
    g_is_search_list_built = true;
}

void QzSysLocale::Initialise()
{
    if (!m_component.Initialise("QzSysLocale", QZ_COMPONENT_INFO))
        return;
    QzString::Initialise();
    BuildSearchList();
}

void QzSysLocale::Terminate()
{
    if (!m_component.Terminate())
        return;
    QzString::Terminate();
}

int QzSysLocale::IsInitialised()
{
    return m_component.IsInitialised();
}

QzComponent *QzSysLocale::GetComponent()
{
    return &m_component;
}

int QzSysLocale::GetUserLangID()
{
    return OrFallback(FindUserLanguage())->m_lang_id;
}

int QzSysLocale::GetUserLocaleID()
{
    return LangIDToLocaleID(OrFallback(FindUserLocale())->m_lang_id);
}

int QzSysLocale::GetUserLocale(QzWideStringBuffer *out)
{
    QzSysLocaleRow const *row = FindUserLocale();
    if (out != nullptr)
        out->SetFromAsciiString(OrFallback(row)->m_tag);
    return row != nullptr && out != nullptr ? 1 : 0;
}

int QzSysLocale::GetUserLanguage(QzWideStringBuffer *language, QzWideStringBuffer *region,
                                 LanguageTagFormat format)
{
    QzSysLocaleRow const *row = FindUserLanguage();
    QzSysLocaleRow const *answer = OrFallback(row);
    char language_text[QzSysLocaleTable::kTagCapacity] = "";
    char const *region_text = "";
    if (format == eTWO_LETTER) {
        std::size_t length =
            static_cast<std::size_t>(std::strchr(answer->m_tag, '-') - answer->m_tag);
        std::memcpy(language_text, answer->m_tag, length);
        language_text[length] = 0;
        region_text = answer->m_tag + length + 1;
    } else if (format == eTHREE_LETTER) {
        std::memcpy(language_text, answer->m_language3, std::strlen(answer->m_language3) + 1);
        region_text = answer->m_region3;
    } else {
        row = nullptr;  // unknown format: both parts stay empty
    }
    if (language != nullptr)
        language->SetFromAsciiString(language_text);
    if (region != nullptr)
        region->SetFromAsciiString(region_text);
    return row != nullptr ? 1 : 0;
}

QzWideStringBuffer QzSysLocale::GetLocalizedListSep()
{
    bool is_decimal_comma = GetLocalizedDecimalPoint() == u",";
    return QzWideStringBuffer(is_decimal_comma ? u";" : u",");
}

int QzSysLocale::GetLocalizedDecimalPlaces()
{
    return 2;
}

int QzSysLocale::GetNumSearchLanguages()
{
    if (!g_is_search_list_built)
        BuildSearchList();
    return g_search_count;
}

LtWChar const *QzSysLocale::GetSearchLanguage(int index)
{
    if (index < 0 || index >= GetNumSearchLanguages())
        return nullptr;
    return g_search_wide[index];
}

int QzSysLocale::SetOverrideLanguage(LtWChar const *tag)
{
    char narrow[QzSysLocaleTable::kTagCapacity * 4];
    if (!QzSysLocaleTable::NarrowAscii(tag, narrow, static_cast<int>(sizeof narrow)) ||
        !QzSysLocaleTable::NormaliseName(narrow, g_override_tag))
        g_override_tag[0] = 0;
    BuildSearchList();
    return g_override_tag[0] != 0 ? 1 : 0;
}

void QzSysLocale::ResetLocalization()
{
    g_override_tag[0] = 0;
    BuildSearchList();
}
