// QzSysLocale.h: the user's language and locale, the language search list
// for localised files, number separators, the table of language ids, and
// scope guards that switch the calling thread's C runtime locale.
#pragma once

#include <clocale>

#include "qzutil/frame/QzExport.h"
#include "qzutil/text/QzWideStringBuffer.h"

class QzComponent;

// Class of statics. Languages are named by tags "ll-RR" (ISO 639-1 language,
// ISO 3166-1 region), and numbered by the 16-bit language ids of the
// original platform, so that numbers stored in files keep their meaning.
// A locale id is a language id with the default sort order (bits 16 to 19
// clear). The table knows a fixed set of languages; the first row of each
// language is its default region ("fr" is "fr-FR", "zh" is "zh-CN").
//
// The user's language comes from the environment: LANGUAGE (a ":" list),
// then the first non-empty of LC_ALL, LC_MESSAGES, LANG. The user's locale
// (number formats) from the first non-empty of LC_ALL, LC_NUMERIC, LANG.
// POSIX names "ll_RR.codeset@modifier" count as "ll-RR"; "C" and "POSIX"
// name no language. Where nothing known is named, the fallback "en-US"
// answers.
//
// Threads:  the conversions and separators may be called from any thread.
//           The search list is a cache set at start-up: Initialise,
//           SetOverrideLanguage and ResetLocalization change it without a
//           lock, so call them while no other thread reads it.
// Lifetime: a counted component (brings up QzString); the operations that
//           return text need it up, as they allocate.
class QZUTIL_API QzSysLocale {
public:
    // How GetUserLanguage writes language and region. A fixed type: any int
    // may arrive, and values outside the list are refused.
    enum LanguageTagFormat : int {
        eTWO_LETTER = 0,    // "de" and "DE": ISO 639-1 and ISO 3166-1 alpha-2
        eTHREE_LETTER = 1,  // "deu" and "DEU": ISO 639-2/T and ISO 3166-1 alpha-3
    };

    // The language id of en-US, the fallback language.
    static constexpr int kFallbackLangID = 0x0409;
    // The length of the search list at most.
    static constexpr int kMaxSearchLanguages = 4;

    static void Initialise();
    static void Terminate();
    static int IsInitialised();
    static QzComponent *GetComponent();

    // --- The user's language and locale ---

    // The id of the first language of the environment that the table knows,
    // or kFallbackLangID. The override of SetOverrideLanguage plays no part.
    static int GetUserLangID();
    // The locale id of the user's number locale, or that of en-US.
    static int GetUserLocaleID();
    // The tag of GetUserLocaleID's language into `out`. Returns 1 when the
    // environment named it, 0 when out holds the fallback "en-US" (also for
    // a null out, which receives nothing).
    static int GetUserLocale(QzWideStringBuffer *out);
    // The user's language (GetUserLangID's) split into language and region
    // in `format`. Returns 1 when the environment named it, 0 for the
    // fallback en-US or an unknown format (out parameters then emptied).
    // Either out may be null.
    static int GetUserLanguage(QzWideStringBuffer *language, QzWideStringBuffer *region,
                               LanguageTagFormat format);

    // --- Separators of the user's number locale ---

    // The decimal mark and the thousands separator of the environment's
    // LC_NUMERIC (the "C" locale's where that is missing), at most 5 units;
    // the thousands separator is empty where the locale groups no digits.
    static QzWideStringBuffer GetLocalizedDecimalPoint();
    static QzWideStringBuffer GetLocalizedThousandSep();
    // ";" where the decimal mark is ",", else ",".
    static QzWideStringBuffer GetLocalizedListSep();
    // Decimals shown for plain quantities: always 2.
    static int GetLocalizedDecimalPlaces();

    // --- Conversions through the language table ---
    // Tags are matched without regard to ASCII case, with "-" or "_"; a
    // bare language means its default region; a POSIX name is accepted too.
    // Unknown input gives 0, and a text output is then emptied.

    static int LangIDToLanguageTag(int lang_id, QzWideStringBuffer *tag);
    static int LanguageTagToLangID(LtWChar const *tag);
    // The three-letter abbreviation ("DEU") of a language id, and back.
    static int LangIDToAbbrevLangName(int lang_id, QzWideStringBuffer *abbrev);
    static int AbbrevLangNameToLangID(LtWChar const *abbrev);
    // By English name: "German (Germany)", or "German" for the default region.
    static int LangNameToLangID(LtWChar const *name);
    // Between language ids and locale ids of the default sort: plain
    // arithmetic on the numbers, known to the table or not.
    static int LangIDToLocaleID(int lang_id);
    static int LocaleIDToLangID(int locale_id);
    // The tag of a locale id; 0 for an unknown language or a sort other
    // than the default.
    static int LocaleIDToLocaleName(int locale_id, QzWideStringBuffer *name);
    static int LocaleNameToLocaleID(LtWChar const *name);

    // --- The search list for localised files ---
    // In order: the override, the languages of the environment, "en-US";
    // each tag once, at most kMaxSearchLanguages, "en-US" always among them
    // (so at most three others come before it). Languages the table does
    // not know are kept as the environment writes them ("eo", "sr-RS").

    static int GetNumSearchLanguages();
    // The tag at `index`, or null outside 0 .. GetNumSearchLanguages() - 1.
    // Valid until the list changes.
    static LtWChar const *GetSearchLanguage(int index);
    // Puts `tag` first in the search list (normalised like the environment's
    // names); a null or empty tag, or one that names no language, removes
    // the override. Returns 1 if an override is now in force.
    static int SetOverrideLanguage(LtWChar const *tag);
    // Forgets the override and reads the environment again.
    static void ResetLocalization();

    // --- The process's C runtime locale ---

    // setlocale(LC_ALL, "") from the environment; where that names a missing
    // locale, "C.UTF-8" instead. Returns true when the environment's locale
    // was taken. The library never calls it itself: it is the
    // application's choice, and changes every thread's default.
    static bool InitialiseCRTLocale();
    // setlocale(category, name), the category an LC_ value of <clocale>.
    // Returns the runtime's name of the new locale (valid until the next
    // change), or null if the locale or category is unknown; a null name
    // changes nothing and answers the present name.
    static char const *SetCRTLocale(int category, char const *name);

private:
    static QzComponent m_component;
};

// Switches the calling thread's locale for one category ("C", a POSIX name
// such as "en_US.ISO-8859-1", or "" for the environment's) for the guard's
// lifetime; the other categories keep the thread's present settings. The
// destructor gives the thread back its earlier locale.
//
// Threads:   affects the constructing thread only; the process locale and
//            other threads are untouched. Destroy on the constructing thread,
//            in the reverse order of construction.
// Ownership: owns the locale it made; neither copyable nor movable.
class QZUTIL_API QzAutoLocaleOverride {
public:
    // With an unknown category, a null name or a locale that does not exist
    // the thread is left as it was, and IsActive answers false.
    QzAutoLocaleOverride(int category, char const *locale);
    virtual ~QzAutoLocaleOverride();
    QzAutoLocaleOverride(QzAutoLocaleOverride const &) = delete;
    QzAutoLocaleOverride &operator=(QzAutoLocaleOverride const &) = delete;

    bool IsActive() const { return m_previous != nullptr; }

private:
    void *m_previous;  // the thread's locale before the switch; null without one
    void *m_made;      // the locale made for this guard and freed by it; null if shared
};

// The "C" locale for one category, or for all (the default), on the calling
// thread: numbers written and read inside it use "." whatever the user's
// locale. The all-categories form switches to one shared "C" locale and
// costs no allocation. Rules as QzAutoLocaleOverride.
class QZUTIL_API QzAutoCLocaleOverride : public QzAutoLocaleOverride {
public:
    explicit QzAutoCLocaleOverride(int category = LC_ALL) : QzAutoLocaleOverride(category, "C") {}
    ~QzAutoCLocaleOverride() override;
};
