// QzSysWideCTypePosix.cpp: wide classification and case through the *_l
// functions of one cached "C.UTF-8" locale.
#include "qzutil/sys/internal/QzSysWideCType.h"

#include <locale.h>
#include <wctype.h>

// The locale every wide classification uses. Made once, on first use (the
// function-local static makes that thread-safe), and never freed: the
// answers must not change while the process runs. Null only if even "C"
// cannot be made, and then the ASCII rules below stand in.
static locale_t GetWideCTypeLocale()
{
    static locale_t const s_locale = [] {
        locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
        if (made == nullptr)
            made = newlocale(LC_CTYPE_MASK, "C", static_cast<locale_t>(nullptr));
        return made;
    }();
    return s_locale;
}

static bool IsSurrogate(LtNat32 value)
{
    return value >= 0xD800 && value <= 0xDFFF;
}

// A mapping result is kept only when it is one BMP unit of its own.
static LtWChar KeepMapping(LtWChar unit, wint_t mapped)
{
    LtNat32 value = static_cast<LtNat32>(mapped);
    if (value > 0xFFFF || IsSurrogate(value))
        return unit;
    return static_cast<LtWChar>(value);
}

bool QzSysWideCType::IsSpace(LtWChar unit)
{
    if (IsSurrogate(unit))
        return false;
    locale_t locale = GetWideCTypeLocale();
    if (locale == nullptr)
        return unit == u' ' || (unit >= u'\t' && unit <= u'\r');
    return iswspace_l(unit, locale) != 0;
}

bool QzSysWideCType::IsDigit(LtWChar unit)
{
    if (IsSurrogate(unit))
        return false;
    locale_t locale = GetWideCTypeLocale();
    if (locale == nullptr)
        return unit >= u'0' && unit <= u'9';
    return iswdigit_l(unit, locale) != 0;
}

bool QzSysWideCType::IsAlpha(LtWChar unit)
{
    if (IsSurrogate(unit))
        return false;
    locale_t locale = GetWideCTypeLocale();
    if (locale == nullptr)
        return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z');
    return iswalpha_l(unit, locale) != 0;
}

LtWChar QzSysWideCType::ToLower(LtWChar unit)
{
    if (IsSurrogate(unit))
        return unit;
    locale_t locale = GetWideCTypeLocale();
    if (locale == nullptr)
        return unit >= u'A' && unit <= u'Z' ? static_cast<LtWChar>(unit + 32) : unit;
    return KeepMapping(unit, towlower_l(unit, locale));
}

LtWChar QzSysWideCType::ToUpper(LtWChar unit)
{
    if (IsSurrogate(unit))
        return unit;
    locale_t locale = GetWideCTypeLocale();
    if (locale == nullptr)
        return unit >= u'a' && unit <= u'z' ? static_cast<LtWChar>(unit - 32) : unit;
    return KeepMapping(unit, towupper_l(unit, locale));
}
