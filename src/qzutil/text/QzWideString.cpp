// QzWideString.cpp: the statics on raw UTF-16 text, natural ordering, and
// the members of QzWideString. The conversions to 8-bit text are in
// QzWideStringNarrow.cpp.
#include "qzutil/text/QzWideString.h"

#include "qzutil/sys/internal/QzSysWideCType.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"
#include "qzutil/text/internal/QzTextAlgorithms.h"
#include "qzutil/text/internal/QzTextBufferEngine.h"
#include "qzutil/text/internal/QzWideTextFromNarrow.h"

using WideText = QzTextAlgorithms<LtWChar>;

// --- Objects ---

QzWideString::QzWideString() : m_text(nullptr)
{}

QzWideString::QzWideString(LtWChar const *text) : m_text(WideText::AllocAndCopy(text, -1))
{}

QzWideString::QzWideString(LtWChar const *text, int length)
    : m_text(WideText::AllocAndCopy(text, length))
{}

QzWideString::QzWideString(QzWideString const &other)
    : m_text(WideText::AllocAndCopy(other.m_text, -1))
{}

QzWideString::QzWideString(QzWideString &&other) noexcept : m_text(other.m_text)
{
    other.m_text = nullptr;
}

QzWideString::QzWideString(QzWideStringBuffer const &buffer)
    : m_text(WideText::AllocAndCopy(buffer.GetString(), buffer.GetLength()))
{}

QzWideString::~QzWideString()
{
    WideText::Dealloc(m_text);
}

QzWideString &QzWideString::operator=(LtWChar const *text)
{
    SetString(text);
    return *this;
}

QzWideString &QzWideString::operator=(QzWideString const &other)
{
    SetString(other);
    return *this;
}

QzWideString &QzWideString::operator=(QzWideString &&other) noexcept
{
    Swap(other);
    return *this;
}

QzWideString &QzWideString::operator=(QzWideStringBuffer const &buffer)
{
    SetString(buffer);
    return *this;
}

void QzWideString::SetString(LtWChar const *text)
{
    WideText::Assign(m_text, text, -1);
}

void QzWideString::SetString(LtWChar const *text, int length)
{
    WideText::Assign(m_text, text, length);
}

void QzWideString::SetString(QzWideString const &other)
{
    WideText::Assign(m_text, other.m_text, -1);
}

void QzWideString::SetString(QzWideStringBuffer const &buffer)
{
    WideText::Assign(m_text, buffer.GetString(), buffer.GetLength());
}

void QzWideString::SetEmptyString()
{
    WideText::Assign(m_text, u"", 0);
}

int QzWideString::GetLength() const
{
    return WideText::Length(m_text);
}

unsigned QzWideString::GetSize() const
{
    return m_text == nullptr ? 0 : static_cast<unsigned>(GetLength()) + 1;
}

bool QzWideString::operator==(QzWideString const &other) const
{
    return WideText::Equal(m_text, other.m_text);
}

bool QzWideString::operator==(LtWChar const *text) const
{
    return WideText::Equal(m_text, text);
}

void QzWideString::Swap(QzWideString &other) noexcept
{
    LtWChar *text = m_text;
    m_text = other.m_text;
    other.m_text = text;
}

int QzWideString::SetFromMultiString(char const *text)
{
    return QzSetWideFromNarrow(*this, text, &QzString::MultiToWideString);
}

int QzWideString::SetFromUTF8String(char const *text)
{
    return QzSetWideFromNarrow(*this, text, [](char const *source, QzWideStringBuffer *out) {
        return QzString::UTF8ToWideString(source, out);
    });
}

int QzWideString::TrySetFromAsciiString(char const *text)
{
    return QzSetWideFromNarrow(*this, text, &QzString::AsciiToWideString);
}

bool QzWideString::EqualPrefix(LtWChar const *text, int count) const
{
    return WideText::EqualPrefix(m_text, text, count);
}

LtWChar const *QzWideString::Find(LtWChar const *what, int from) const
{
    return WideText::Find(m_text, GetLength(), what, from);
}

void QzWideString::ExtractSubString(int start, int end, QzWideStringBuffer *out) const
{
    ExtractSubString(m_text, start, end, out);
}

int QzWideString::TryExtractAsciiString(QzStringBuffer *out) const
{
    return TryExtractAsciiString(m_text, out);
}

// --- Statics on raw text ---

int QzWideString::GetLength(LtWChar const *text)
{
    return WideText::Length(text);
}

bool QzWideString::Equal(LtWChar const *a, LtWChar const *b)
{
    return WideText::Equal(a, b);
}

bool QzWideString::EqualPrefix(LtWChar const *a, LtWChar const *b, int count)
{
    return WideText::EqualPrefix(a, b, count);
}

int QzWideString::Strcmp(LtWChar const *a, LtWChar const *b)
{
    return WideText::Compare(a, b, [](LtWChar unit) { return WideText::UnitValue(unit); });
}

int QzWideString::Stricmp(LtWChar const *a, LtWChar const *b)
{
    return WideText::Compare(
        a, b, [](LtWChar unit) { return static_cast<unsigned>(QzSysWideCType::ToLower(unit)); });
}

int QzWideString::HasPrefix(LtWChar const *text, LtWChar const *prefix)
{
    return WideText::HasPrefix(text, prefix);
}

int QzWideString::HasSuffix(LtWChar const *text, LtWChar const *suffix)
{
    return WideText::HasSuffix(text, suffix);
}

LtWChar const *QzWideString::Find(LtWChar const *text, LtWChar const *what)
{
    return WideText::Find(text, WideText::Length(text), what, 0);
}

LtWChar const *QzWideString::FindLastChar(LtWChar const *text, LtWChar unit)
{
    return WideText::FindLastChar(text, unit);
}

void QzWideString::LowerCase(LtWChar *text)
{
    WideText::MapInPlace(text, &QzSysWideCType::ToLower);
}

void QzWideString::UpperCase(LtWChar *text)
{
    WideText::MapInPlace(text, [](LtWChar unit) {
        if (unit >= 128)
            return QzSysWideCType::ToUpper(unit);
        return unit >= u'a' && unit <= u'z' ? static_cast<LtWChar>(unit - (u'a' - u'A')) : unit;
    });
}

void QzWideString::ExtractSubString(LtWChar const *text, int start, int end,
                                    QzWideStringBuffer *out)
{
    QzTextBufferEngine<QzWideStringBuffer>::ExtractSubString(text, WideText::Length(text), start,
                                                             end, out);
}

LtWChar *QzWideString::AllocAndCopy(LtWChar const *text)
{
    return WideText::AllocAndCopy(text, -1);
}

LtWChar *QzWideString::AllocAndCopy(LtWChar const *text, int length)
{
    return WideText::AllocAndCopy(text, length);
}

void QzWideString::Dealloc(LtWChar *text)
{
    WideText::Dealloc(text);
}

unsigned QzWideString::Hash(LtWChar const *text)
{
    return WideText::Hash(text);
}

int QzWideString::IsValidAscii(LtWChar const *text)
{
    return WideText::IsValidAscii(text) ? 1 : 0;
}

// --- Natural order ---

// Digits are recognised by the low byte of a unit alone.
static bool IsLowByteDigit(LtWChar unit)
{
    unsigned low = unit & 0xFFu;
    return low >= '0' && low <= '9';
}

static int CompareLowBytes(LtWChar a, LtWChar b)
{
    unsigned low_a = a & 0xFFu;
    unsigned low_b = b & 0xFFu;
    return low_a == low_b ? 0 : (low_a < low_b ? -1 : 1);
}

// Compares the digit runs that start at *a and *b and, when they are equal,
// moves both past them. Runs compare as whole numbers (the shorter run is
// the smaller number), or, when either starts with "0", as fractions (digit
// by digit, the run that ends first sorting first).
static int CompareDigitRuns(LtWChar const *&a, LtWChar const *&b)
{
    bool is_fraction = (*a & 0xFFu) == '0' || (*b & 0xFFu) == '0';
    int first_difference = 0;
    for (; IsLowByteDigit(*a) && IsLowByteDigit(*b); ++a, ++b) {
        if (first_difference == 0)
            first_difference = CompareLowBytes(*a, *b);
        if (is_fraction && first_difference != 0)
            return first_difference;
    }
    if (IsLowByteDigit(*a))
        return 1;
    if (IsLowByteDigit(*b))
        return -1;
    return first_difference;
}

int QzWideString::StrCmpLogical(LtWChar const *a, LtWChar const *b)
{
    if (a == nullptr || b == nullptr)
        return a == b ? 0 : (a == nullptr ? -1 : 1);
    for (;;) {
        bool is_digit_a = IsLowByteDigit(*a);
        bool is_digit_b = IsLowByteDigit(*b);
        if (is_digit_a && is_digit_b) {
            int runs = CompareDigitRuns(a, b);
            if (runs != 0)
                return runs;
            continue;
        }
        // A digit sorts after anything that is no letter, the end included.
        if (is_digit_a && !QzSysWideCType::IsAlpha(*b))
            return 1;
        if (is_digit_b && !QzSysWideCType::IsAlpha(*a))
            return -1;
        if (*a == 0 && *b == 0)
            return 0;
        LtWChar upper_a = QzSysWideCType::ToUpper(*a);
        LtWChar upper_b = QzSysWideCType::ToUpper(*b);
        if (upper_a != upper_b)
            return upper_a < upper_b ? -1 : 1;
        ++a;
        ++b;
    }
}

// --- Numbers ---

// The multi-byte form of wide text for the narrow number readers; false if
// the text is null.
static bool ToNarrowForReading(LtWChar const *text, QzStringBuffer *narrow)
{
    return text != nullptr && QzWideString::ExtractMultiString(text, narrow) != 0;
}

int QzWideString::ReadCFloat(LtWChar const *text, double *value)
{
    QzStringBuffer narrow;
    return ToNarrowForReading(text, &narrow) ? QzString::ReadCFloat(narrow.GetString(), value) : 0;
}

int QzWideString::ReadLocalizedFloat(LtWChar const *text, double *value)
{
    QzStringBuffer narrow;
    return ToNarrowForReading(text, &narrow)
               ? QzString::ReadLocalizedFloat(narrow.GetString(), value)
               : 0;
}

int QzWideString::ReadLocalizedInt(LtWChar const *text, int *value)
{
    QzStringBuffer narrow;
    return ToNarrowForReading(text, &narrow) ? QzString::ReadLocalizedInt(narrow.GetString(), value)
                                             : 0;
}
