// QzSysStringSearch.cpp: QzSysString's comparisons, searches and
// classification, each written once as a template over the unit.
#include <cstdint>

#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysStringUnits.h"

namespace {

constexpr std::size_t kUnlimited = SIZE_MAX;

}  // namespace

template <typename Unit>
static Unit const *OrEmpty(Unit const *text)
{
    static Unit const s_empty[1] = {0};
    return text != nullptr ? text : s_empty;
}

// Compares up to `count` units of two texts as mapped by `key` (the unit's
// code, or its lower case). Returns -1, 0 or 1.
template <typename Unit, typename Key>
static int CompareTexts(Unit const *a, Unit const *b, std::size_t count, Key key)
{
    a = OrEmpty(a);
    b = OrEmpty(b);
    for (std::size_t i = 0; i < count; ++i) {
        LtNat32 key_a = key(a[i]);
        LtNat32 key_b = key(b[i]);
        if (key_a != key_b)
            return key_a < key_b ? -1 : 1;
        if (a[i] == 0)
            return 0;
    }
    return 0;
}

template <typename Unit>
static int CompareExact(Unit const *a, Unit const *b, std::size_t count)
{
    return CompareTexts(a, b, count, &QzStringUnits<Unit>::Code);
}

template <typename Unit>
static int CompareFolded(Unit const *a, Unit const *b, std::size_t count)
{
    return CompareTexts(a, b, count, &QzStringUnits<Unit>::Folded);
}

template <typename Unit>
static Unit const *FindFirst(Unit const *text, Unit unit)
{
    if (text == nullptr)
        return nullptr;
    for (;; ++text) {
        if (*text == unit)
            return text;
        if (*text == 0)
            return nullptr;
    }
}

template <typename Unit>
static Unit const *FindLast(Unit const *text, Unit unit)
{
    if (text == nullptr)
        return nullptr;
    Unit const *found = nullptr;
    for (;; ++text) {
        if (*text == unit)
            found = text;
        if (*text == 0)
            return found;
    }
}

// The first place where needle starts in text. A plain scan: the texts this
// layer searches are short, and it needs no memory.
template <typename Unit>
static Unit const *FindText(Unit const *text, Unit const *needle)
{
    if (text == nullptr || needle == nullptr)
        return nullptr;
    for (;; ++text) {
        std::size_t matched = 0;
        while (needle[matched] != 0 && text[matched] == needle[matched])
            ++matched;
        if (needle[matched] == 0)
            return text;
        if (*text == 0)
            return nullptr;
    }
}

// Compares `count` units as unsigned values; -1, 0 or 1.
template <typename Unit>
static int CompareUnits(Unit const *a, Unit const *b, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (a[i] != b[i])
            return a[i] < b[i] ? -1 : 1;
    }
    return 0;
}

int QzSysString::Strcmp(char const *a, char const *b)
{
    return CompareExact(a, b, kUnlimited);
}

int QzSysString::Strncmp(char const *a, char const *b, std::size_t count)
{
    return CompareExact(a, b, count);
}

int QzSysString::Stricmp(char const *a, char const *b)
{
    return CompareFolded(a, b, kUnlimited);
}

int QzSysString::Strnicmp(char const *a, char const *b, std::size_t count)
{
    return CompareFolded(a, b, count);
}

char const *QzSysString::Strchr(char const *text, char unit)
{
    return FindFirst(text, unit);
}

char const *QzSysString::Strrchr(char const *text, char unit)
{
    return FindLast(text, unit);
}

char const *QzSysString::Strstr(char const *text, char const *needle)
{
    return FindText(text, needle);
}

int QzSysString::Memcmp(void const *a, void const *b, std::size_t count)
{
    return CompareUnits(static_cast<unsigned char const *>(a),
                        static_cast<unsigned char const *>(b), count);
}

bool QzSysString::IsAlpha(char unit)
{
    return QzStringUnits<char>::IsAlpha(unit);
}

bool QzSysString::IsDigit(char unit)
{
    return QzStringUnits<char>::IsDigit(unit);
}

bool QzSysString::IsSpace(char unit)
{
    return QzStringUnits<char>::IsSpace(unit);
}

bool QzSysString::Is7BitAscii(char const *text)
{
    for (text = OrEmpty(text); *text != 0; ++text) {
        if (QzStringUnits<char>::Code(*text) > 0x7F)
            return false;
    }
    return true;
}

int QzSysString::WideStrcmp(LtWChar const *a, LtWChar const *b)
{
    return CompareExact(a, b, kUnlimited);
}

int QzSysString::WideStrncmp(LtWChar const *a, LtWChar const *b, std::size_t count)
{
    return CompareExact(a, b, count);
}

int QzSysString::WideStricmp(LtWChar const *a, LtWChar const *b)
{
    return CompareFolded(a, b, kUnlimited);
}

int QzSysString::WideStrnicmp(LtWChar const *a, LtWChar const *b, std::size_t count)
{
    return CompareFolded(a, b, count);
}

LtWChar const *QzSysString::WideStrchr(LtWChar const *text, LtWChar unit)
{
    return FindFirst(text, unit);
}

LtWChar const *QzSysString::WideStrrchr(LtWChar const *text, LtWChar unit)
{
    return FindLast(text, unit);
}

LtWChar const *QzSysString::WideStrstr(LtWChar const *text, LtWChar const *needle)
{
    return FindText(text, needle);
}

int QzSysString::WideMemcmp(LtWChar const *a, LtWChar const *b, std::size_t count)
{
    return CompareUnits(a, b, count);
}

bool QzSysString::WideIsAlpha(LtWChar unit)
{
    return QzStringUnits<LtWChar>::IsAlpha(unit);
}

bool QzSysString::WideIsDigit(LtWChar unit)
{
    return QzStringUnits<LtWChar>::IsDigit(unit);
}

bool QzSysString::WideIsSpace(LtWChar unit)
{
    return QzStringUnits<LtWChar>::IsSpace(unit);
}
