// QzSysLocaleTable.h: the table of languages behind QzSysLocale, and the
// normalisation of language names into tags. Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"

// One language of the table. All texts are ASCII.
struct QzSysLocaleRow {
    int m_lang_id;               // the original platform's 16-bit language id
    char const *m_tag;           // "de-DE"
    char const *m_abbrev;        // "DEU", the original platform's abbreviation
    char const *m_english_name;  // "German (Germany)"
    char const *m_language3;     // "deu", ISO 639-2/T
    char const *m_region3;       // "DEU", ISO 3166-1 alpha-3
};

// Lookups in the static table. Pointers returned point into the table and
// stay valid for the process's life.
//
// Threads:   any thread; the table is constant.
// Invariant: the first row of each language is its default region.
class QzSysLocaleTable {
public:
    // A tag "ll-RR" or "lll-RRR" and its nul fit this with room to spare.
    static constexpr int kTagCapacity = 16;

    // The row of a language id, or null.
    static QzSysLocaleRow const *FindById(int lang_id);
    // The row of a normalised tag ("de-DE"; a bare "de" finds the default
    // region's row), or null.
    static QzSysLocaleRow const *FindByTag(char const *tag);

    // Turns a POSIX locale name "ll_RR.codeset@modifier" or a tag "ll-RR"
    // (any ASCII case) into the tag "ll-RR" with a lower-case language and
    // an upper-case region; a bare language the table knows takes its
    // default region, one it does not know stays bare. Returns false, with
    // `tag` empty, for null, empty, "C", "POSIX" and anything else that is
    // not 2 or 3 letters optionally followed by a region of 2 letters or 3
    // digits.
    static bool NormaliseName(char const *name, char (&tag)[kTagCapacity]);

    // Copies ASCII wide text into `out` (size bytes with the nul). False,
    // with `out` empty, for null, a unit above 127, or text too long.
    static bool NarrowAscii(LtWChar const *text, char *out, int size);
};
