// QzSysCNumericScopePosix.cpp: the thread's "C" number scope through
// uselocale, which leaves the process locale and other threads alone.
#include "qzutil/sys/internal/QzSysCNumericScope.h"

#include <locale.h>

// One "C" locale for all scopes: made on first use, never freed, since any
// thread may still be inside a scope at process end.
static locale_t GetCLocale()
{
    static locale_t const s_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return s_locale;
}

QzSysCNumericScope::QzSysCNumericScope() : m_previous(nullptr)
{
    locale_t c_locale = GetCLocale();
    if (c_locale != nullptr)
        m_previous = uselocale(c_locale);
}

QzSysCNumericScope::~QzSysCNumericScope()
{
    if (m_previous != nullptr)
        uselocale(static_cast<locale_t>(m_previous));
}
