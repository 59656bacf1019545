// QzSysLocale.cpp (posix): the number separators from glibc's locale data,
// the process's C runtime locale, and the thread locale guards over
// newlocale and uselocale.
#include "qzutil/sys/QzSysLocale.h"

#include <langinfo.h>
#include <locale.h>

#include "qzutil/sys/QzSysString.h"

// Separators longer than this are cut.
static constexpr int kMaxSeparatorUnits = 5;

// The category numbers of glibc with their masks for newlocale.
struct CategoryMask {
    int m_category;
    int m_mask;
};

static CategoryMask const kCategoryMasks[] = {
    {LC_ALL, LC_ALL_MASK},
    {LC_CTYPE, LC_CTYPE_MASK},
    {LC_NUMERIC, LC_NUMERIC_MASK},
    {LC_TIME, LC_TIME_MASK},
    {LC_COLLATE, LC_COLLATE_MASK},
    {LC_MONETARY, LC_MONETARY_MASK},
    {LC_MESSAGES, LC_MESSAGES_MASK},
    {LC_PAPER, LC_PAPER_MASK},
    {LC_NAME, LC_NAME_MASK},
    {LC_ADDRESS, LC_ADDRESS_MASK},
    {LC_TELEPHONE, LC_TELEPHONE_MASK},
    {LC_MEASUREMENT, LC_MEASUREMENT_MASK},
    {LC_IDENTIFICATION, LC_IDENTIFICATION_MASK},
};

// 0 for a category glibc does not have.
static int MaskOfCategory(int category)
{
    for (CategoryMask const &entry : kCategoryMasks) {
        if (entry.m_category == category)
            return entry.m_mask;
    }
    return 0;
}

// One "C" locale for every all-categories "C" guard: made on first use,
// never freed, since a thread may still be inside a guard at process end.
static locale_t GetSharedCLocale()
{
    static locale_t const s_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return s_locale;
}

// An item of the environment's numeric locale as wide text of at most
// kMaxSeparatorUnits units. The bytes are in the codeset of the
// environment's LC_CTYPE, so the conversion runs with that on this thread.
static QzWideStringBuffer GetEnvironmentNumericItem(nl_item item)
{
    int const mask = LC_NUMERIC_MASK | LC_CTYPE_MASK;
    locale_t locale = newlocale(mask, "", static_cast<locale_t>(nullptr));
    if (locale == nullptr)
        locale = newlocale(mask, "C", static_cast<locale_t>(nullptr));
    QzWideStringBuffer answer(u"");
    if (locale == nullptr)
        return answer;
    locale_t previous = uselocale(locale);
    LtWChar wide[64];
    int units = QzSysString::MultiByteToWideChar(nl_langinfo_l(item, locale), -1, wide, 64);
    uselocale(previous);
    freelocale(locale);
    if (units > 1)  // the count includes the converted nul
        answer.SetString(wide, units - 1 < kMaxSeparatorUnits ? units - 1 : kMaxSeparatorUnits);
    return answer;
}

QzWideStringBuffer QzSysLocale::GetLocalizedDecimalPoint()
{
    return GetEnvironmentNumericItem(RADIXCHAR);
}

QzWideStringBuffer QzSysLocale::GetLocalizedThousandSep()
{
    return GetEnvironmentNumericItem(THOUSEP);
}

bool QzSysLocale::InitialiseCRTLocale()
{
    if (setlocale(LC_ALL, "") != nullptr)
        return true;
    if (setlocale(LC_ALL, "C.UTF-8") == nullptr)
        (void)setlocale(LC_ALL, "C");  // "C" always exists
    return false;
}

char const *QzSysLocale::SetCRTLocale(int category, char const *name)
{
    if (MaskOfCategory(category) == 0)
        return nullptr;
    return setlocale(category, name);
}

QzAutoLocaleOverride::QzAutoLocaleOverride(int category, char const *locale)
    : m_previous(nullptr), m_made(nullptr)
{
    int mask = MaskOfCategory(category);
    if (mask == 0 || locale == nullptr)
        return;
    locale_t target = nullptr;
    if (mask == LC_ALL_MASK && locale[0] == 'C' && locale[1] == 0) {
        target = GetSharedCLocale();
    } else {
        // The new locale starts as a copy of the thread's present one, so
        // that the categories outside `mask` stay as they are.
        locale_t base = duplocale(uselocale(static_cast<locale_t>(nullptr)));
        if (base == nullptr)
            return;
        target = newlocale(mask, locale, base);
        if (target == nullptr) {
            freelocale(base);  // newlocale frees its base only on success
            return;
        }
        m_made = target;
    }
    if (target != nullptr)
        m_previous = uselocale(target);
}

QzAutoLocaleOverride::~QzAutoLocaleOverride()
{
    if (m_previous != nullptr)
        uselocale(static_cast<locale_t>(m_previous));
    if (m_made != nullptr)
        freelocale(static_cast<locale_t>(m_made));
}

QzAutoCLocaleOverride::~QzAutoCLocaleOverride() = default;
