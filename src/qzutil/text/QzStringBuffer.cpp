// QzStringBuffer.cpp: the members of QzStringBuffer, over the buffer engine
// shared with QzWideStringBuffer.
#include "qzutil/text/QzStringBuffer.h"

#include <cctype>

#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCNumericScope.h"
#include "qzutil/text/QzWideStringBuffer.h"
#include "qzutil/text/internal/QzTextAlgorithms.h"
#include "qzutil/text/internal/QzTextBufferEngine.h"

using Engine = QzTextBufferEngine<QzStringBuffer>;
using NarrowText = QzTextAlgorithms<char>;

QzStringBuffer::QzStringBuffer() : m_begin(nullptr), m_length(0), m_capacity(0)
{}

QzStringBuffer::QzStringBuffer(char const *text) : QzStringBuffer()
{
    Engine::SetString(*this, text, -1);
}

QzStringBuffer::QzStringBuffer(QzString const &text) : QzStringBuffer()
{
    Engine::SetString(*this, text.GetString(), -1);
}

QzStringBuffer::QzStringBuffer(QzStringBuffer const &other) : QzStringBuffer()
{
    Engine::SetString(*this, other.m_begin, other.m_length);
}

QzStringBuffer::QzStringBuffer(QzStringBuffer &&other) noexcept : QzStringBuffer()
{
    Engine::Swap(*this, other);
}

QzStringBuffer::~QzStringBuffer()
{
    Engine::Release(*this);
}

QzStringBuffer &QzStringBuffer::operator=(char const *text)
{
    Engine::SetString(*this, text, -1);
    return *this;
}

QzStringBuffer &QzStringBuffer::operator=(QzString const &text)
{
    Engine::SetString(*this, text.GetString(), -1);
    return *this;
}

QzStringBuffer &QzStringBuffer::operator=(QzStringBuffer const &other)
{
    Engine::SetString(*this, other.m_begin, other.m_length);
    return *this;
}

QzStringBuffer &QzStringBuffer::operator=(QzStringBuffer &&other) noexcept
{
    Engine::Swap(*this, other);
    return *this;
}

void QzStringBuffer::SetString(char const *text)
{
    Engine::SetString(*this, text, -1);
}

void QzStringBuffer::SetString(char const *text, int length)
{
    Engine::SetString(*this, text, length);
}

void QzStringBuffer::SetString(QzString const &text)
{
    Engine::SetString(*this, text.GetString(), -1);
}

void QzStringBuffer::SetString(QzStringBuffer const &other)
{
    Engine::SetString(*this, other.m_begin, other.m_length);
}

void QzStringBuffer::SetEmptyString()
{
    Engine::SetEmptyString(*this);
}

unsigned QzStringBuffer::GetSize() const
{
    return m_begin == nullptr ? 0 : static_cast<unsigned>(m_length) + 1;
}

void QzStringBuffer::Reserve(int length)
{
    (void)Engine::Reserve(*this, length);  // without memory the buffer stays as it was
}

void QzStringBuffer::Append(char const *text)
{
    Engine::Append(*this, text, -1);
}

void QzStringBuffer::Append(char const *text, int length)
{
    Engine::Append(*this, text, length);
}

void QzStringBuffer::Append(char unit)
{
    Engine::AppendUnit(*this, unit);
}

void QzStringBuffer::Append(QzString const &text)
{
    Engine::Append(*this, text.GetString(), -1);
}

void QzStringBuffer::Append(QzStringBuffer const &other)
{
    Engine::Append(*this, other.m_begin, other.m_length);
}

void QzStringBuffer::SetAt(int index, char const &unit)
{
    Engine::SetAt(*this, index, unit);
}

void QzStringBuffer::EndEditBuffer(int length)
{
    Engine::EndEditBuffer(*this, length);
}

void QzStringBuffer::Format(char const *format, ...)
{
    va_list args;
    va_start(args, format);
    Engine::Format(*this, format, args, &QzSysString::Vsprintf);
    va_end(args);
}

int QzStringBuffer::FormatV(char const *format, va_list args)
{
    return Engine::FormatV(*this, format, args, &QzSysString::Vsprintf);
}

void QzStringBuffer::FormatCFloat(double value, int precision, int width)
{
    QzSysCNumericScope c_numbers;
    Engine::FormatFixed(*this, value, precision, /*has_width=*/true, width);
}

void QzStringBuffer::FormatLocalizedFloat(double value, int precision, int significant)
{
    Engine::FormatLocalizedFloat(*this, value, precision, significant);
}

int QzStringBuffer::Replace(char const *old_text, char const *new_text, int all)
{
    return Engine::Replace(*this, old_text, new_text, 0, all);
}

int QzStringBuffer::Replace(char const *old_text, char const *new_text, int from, int all)
{
    return Engine::Replace(*this, old_text, new_text, from, all);
}

void QzStringBuffer::ReplaceSubString(int start, int end, char const *text)
{
    Engine::ReplaceSubString(*this, start, end, text);
}

int QzStringBuffer::IsSpaceMBCS(char unit)
{
    return std::isspace(static_cast<unsigned char>(unit)) != 0 ? 1 : 0;
}

int QzStringBuffer::IsSpaceUTF8(char unit)
{
    // Signed on purpose: bytes of multi-byte sequences are negative here.
    auto value = static_cast<signed char>(unit);
    return value == ' ' || (value >= '\t' && value <= '\r') ? 1 : 0;
}

void QzStringBuffer::InternalTrim(int utf8)
{
    InternalTrimLeft(utf8);
    InternalTrimRight(utf8);
}

void QzStringBuffer::InternalTrimLeft(int utf8)
{
    Engine::TrimLeft(*this, utf8 ? &IsSpaceUTF8 : &IsSpaceMBCS);
}

void QzStringBuffer::InternalTrimRight(int utf8)
{
    // The first byte is never removed, so a text of blanks keeps one.
    Engine::TrimRight(*this, utf8 ? &IsSpaceUTF8 : &IsSpaceMBCS, /*kept=*/1);
}

void QzStringBuffer::SanitiseForXML(char const *text, QzStringBuffer *out)
{
    Engine::CopyKept(text, out, [](char unit) {
        auto value = static_cast<signed char>(unit);
        return value >= 32 || value == '\t' || value == '\n' || value == '\r';
    });
}

void QzStringBuffer::Swap(QzStringBuffer &other) noexcept
{
    Engine::Swap(*this, other);
}

bool QzStringBuffer::Equal(QzStringBuffer const &other) const
{
    return m_length == other.m_length && NarrowText::Equal(m_begin, other.m_begin);
}

bool QzStringBuffer::EqualPrefix(char const *text, int count) const
{
    return NarrowText::EqualPrefix(m_begin, text, count);
}

char const *QzStringBuffer::Find(char const *what, int from) const
{
    return NarrowText::Find(m_begin, m_length, what, from);
}

void QzStringBuffer::ExtractSubString(int start, int end, QzStringBuffer *out) const
{
    Engine::ExtractSubString(m_begin, m_length, start, end, out);
}

int QzStringBuffer::UTF8ToWideString(QzWideStringBuffer *out) const
{
    return QzString::UTF8ToWideStringImpl(m_begin, m_length, out);
}

int QzStringBuffer::AsciiToWideString(QzWideStringBuffer *out) const
{
    return QzString::AsciiToWideString(m_begin, out);
}

int QzStringBuffer::MultiToWideString(QzWideStringBuffer *out) const
{
    return QzString::MultiToWideString(m_begin, out);
}

int QzStringBuffer::ReadLocalizedFloat(double *value) const
{
    return QzString::ReadLocalizedFloat(m_begin, value);
}

int QzStringBuffer::ReadLocalizedInt(int *value) const
{
    return QzString::ReadLocalizedInt(m_begin, value);
}
