// QzString.cpp: the QzString component, the statics on raw 8-bit text and
// the members of QzString. The conversions to wide text are in
// QzStringWiden.cpp.
#include "qzutil/text/QzString.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/sys/internal/QzSysCNumericScope.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/internal/QzTextAlgorithms.h"
#include "qzutil/text/internal/QzTextBufferEngine.h"

using NarrowText = QzTextAlgorithms<char>;

QzComponent QzString::m_component;

void QzString::Initialise()
{
    if (!m_component.Initialise("QzString", QZ_COMPONENT_INFO))
        return;
    QzSysError::Initialise();
    QzMemory::Initialise();
}

void QzString::Terminate()
{
    if (!m_component.Terminate())
        return;
    QzMemory::Terminate();
    QzSysError::Terminate();
}

int QzString::IsInitialised()
{
    return m_component.IsInitialised();
}

QzComponent *QzString::GetComponent()
{
    return &m_component;
}

// --- Objects ---

QzString::QzString() : m_text(nullptr)
{}

QzString::QzString(char const *text) : m_text(NarrowText::AllocAndCopy(text, -1))
{}

QzString::QzString(QzString const &other) : m_text(NarrowText::AllocAndCopy(other.m_text, -1))
{}

QzString::QzString(QzString &&other) noexcept : m_text(other.m_text)
{
    other.m_text = nullptr;
}

QzString::QzString(QzStringBuffer const &buffer)
    : m_text(NarrowText::AllocAndCopy(buffer.GetString(), buffer.GetLength()))
{}

QzString::~QzString()
{
    NarrowText::Dealloc(m_text);
}

QzString &QzString::operator=(char const *text)
{
    SetString(text);
    return *this;
}

QzString &QzString::operator=(QzString const &other)
{
    SetString(other);
    return *this;
}

QzString &QzString::operator=(QzString &&other) noexcept
{
    Swap(other);
    return *this;
}

QzString &QzString::operator=(QzStringBuffer const &buffer)
{
    SetString(buffer);
    return *this;
}

void QzString::SetString(char const *text)
{
    NarrowText::Assign(m_text, text, -1);
}

void QzString::SetString(char const *text, int length)
{
    NarrowText::Assign(m_text, text, length);
}

void QzString::SetString(QzString const &other)
{
    NarrowText::Assign(m_text, other.m_text, -1);
}

void QzString::SetString(QzStringBuffer const &buffer)
{
    NarrowText::Assign(m_text, buffer.GetString(), buffer.GetLength());
}

void QzString::SetEmptyString()
{
    NarrowText::Assign(m_text, "", 0);
}

int QzString::GetLength() const
{
    return NarrowText::Length(m_text);
}

unsigned QzString::GetSize() const
{
    return m_text == nullptr ? 0 : static_cast<unsigned>(GetLength()) + 1;
}

bool QzString::operator==(QzString const &other) const
{
    return NarrowText::Equal(m_text, other.m_text);
}

bool QzString::operator==(char const *text) const
{
    return NarrowText::Equal(m_text, text);
}

void QzString::Swap(QzString &other) noexcept
{
    char *text = m_text;
    m_text = other.m_text;
    other.m_text = text;
}

char const *QzString::Find(char const *what, int from) const
{
    return NarrowText::Find(m_text, GetLength(), what, from);
}

void QzString::ExtractSubString(int start, int end, QzStringBuffer *out) const
{
    ExtractSubString(m_text, start, end, out);
}

// --- Statics on raw text ---

int QzString::GetLength(char const *text)
{
    return NarrowText::Length(text);
}

bool QzString::Equal(char const *a, char const *b)
{
    return NarrowText::Equal(a, b);
}

bool QzString::EqualPrefix(char const *a, char const *b, int count)
{
    return NarrowText::EqualPrefix(a, b, count);
}

int QzString::Strcmp(char const *a, char const *b)
{
    return NarrowText::Compare(a, b, [](char unit) { return NarrowText::UnitValue(unit); });
}

int QzString::Stricmp(char const *a, char const *b)
{
    return NarrowText::Compare(a, b, [](char unit) {
        return static_cast<unsigned>(std::tolower(static_cast<unsigned char>(unit)));
    });
}

int QzString::HasPrefix(char const *text, char const *prefix)
{
    return NarrowText::HasPrefix(text, prefix);
}

int QzString::HasSuffix(char const *text, char const *suffix)
{
    return NarrowText::HasSuffix(text, suffix);
}

char const *QzString::Find(char const *text, char const *what)
{
    return NarrowText::Find(text, NarrowText::Length(text), what, 0);
}

char const *QzString::FindLastChar(char const *text, char unit)
{
    return NarrowText::FindLastChar(text, unit);
}

void QzString::LowerCase(char *text)
{
    NarrowText::MapInPlace(text, [](char unit) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(unit)));
    });
}

void QzString::UpperCase(char *text)
{
    NarrowText::MapInPlace(text, [](char unit) {
        return static_cast<char>(std::toupper(static_cast<unsigned char>(unit)));
    });
}

void QzString::ExtractSubString(char const *text, int start, int end, QzStringBuffer *out)
{
    QzTextBufferEngine<QzStringBuffer>::ExtractSubString(text, NarrowText::Length(text), start, end,
                                                         out);
}

char *QzString::AllocAndCopy(char const *text)
{
    return NarrowText::AllocAndCopy(text, -1);
}

char *QzString::AllocAndCopy(char const *text, int length)
{
    return NarrowText::AllocAndCopy(text, length);
}

void QzString::Dealloc(char *text)
{
    NarrowText::Dealloc(text);
}

unsigned QzString::Hash(char const *text)
{
    return NarrowText::Hash(text);
}

int QzString::IsValidAscii(char const *text)
{
    return NarrowText::IsValidAscii(text) ? 1 : 0;
}

// --- Numbers ---

int QzString::ReadCFloat(char const *text, double *value)
{
    if (text == nullptr || value == nullptr)
        return 0;
    QzSysCNumericScope c_numbers;
    return std::sscanf(text, "%lg", value) == 1 ? 1 : 0;
}

int QzString::ReadLocalizedFloat(char const *text, double *value)
{
    if (text == nullptr || value == nullptr)
        return 0;
    QzStringBuffer trimmed(text);
    trimmed.TrimMBCS();
    if (trimmed.IsEmpty())
        return 0;
    char *end = nullptr;
    *value = std::strtod(trimmed.GetString(), &end);
    return end == trimmed.GetString() + trimmed.GetLength() ? 1 : 0;
}

int QzString::ReadLocalizedInt(char const *text, int *value)
{
    if (text == nullptr || value == nullptr)
        return 0;
    QzStringBuffer trimmed(text);
    trimmed.TrimMBCS();
    if (trimmed.IsEmpty())
        return 0;
    char *end = nullptr;
    LtInt64 parsed = std::strtoll(trimmed.GetString(), &end, 10);
    *value = static_cast<int>(parsed < INT_MIN ? INT_MIN : (parsed > INT_MAX ? INT_MAX : parsed));
    bool read_any = end != trimmed.GetString();
    return read_any && end == trimmed.GetString() + trimmed.GetLength() ? 1 : 0;
}
