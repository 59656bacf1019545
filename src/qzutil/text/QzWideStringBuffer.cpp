// QzWideStringBuffer.cpp: the members of QzWideStringBuffer, over the buffer
// engine shared with QzStringBuffer, and QzStringBufferFormat.
#include "qzutil/text/QzWideStringBuffer.h"

#include <clocale>

#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCNumericScope.h"
#include "qzutil/sys/internal/QzSysWideCType.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/internal/QzTextAlgorithms.h"
#include "qzutil/text/internal/QzTextBufferEngine.h"
#include "qzutil/text/internal/QzWideTextFromNarrow.h"

using Engine = QzTextBufferEngine<QzWideStringBuffer>;
using WideText = QzTextAlgorithms<LtWChar>;

QzWideStringBuffer::QzWideStringBuffer() : m_begin(nullptr), m_length(0), m_capacity(0)
{}

QzWideStringBuffer::QzWideStringBuffer(LtWChar const *text) : QzWideStringBuffer()
{
    Engine::SetString(*this, text, -1);
}

QzWideStringBuffer::QzWideStringBuffer(LtWChar const *text, int length) : QzWideStringBuffer()
{
    Engine::SetString(*this, text, length);
}

QzWideStringBuffer::QzWideStringBuffer(QzWideString const &text) : QzWideStringBuffer()
{
    Engine::SetString(*this, text.GetString(), -1);
}

QzWideStringBuffer::QzWideStringBuffer(QzWideStringBuffer const &other) : QzWideStringBuffer()
{
    Engine::SetString(*this, other.m_begin, other.m_length);
}

QzWideStringBuffer::QzWideStringBuffer(QzWideStringBuffer &&other) noexcept : QzWideStringBuffer()
{
    Engine::Swap(*this, other);
}

QzWideStringBuffer::~QzWideStringBuffer()
{
    Engine::Release(*this);
}

QzWideStringBuffer &QzWideStringBuffer::operator=(LtWChar const *text)
{
    Engine::SetString(*this, text, -1);
    return *this;
}

QzWideStringBuffer &QzWideStringBuffer::operator=(QzWideString const &text)
{
    Engine::SetString(*this, text.GetString(), -1);
    return *this;
}

QzWideStringBuffer &QzWideStringBuffer::operator=(QzWideStringBuffer const &other)
{
    Engine::SetString(*this, other.m_begin, other.m_length);
    return *this;
}

QzWideStringBuffer &QzWideStringBuffer::operator=(QzWideStringBuffer &&other) noexcept
{
    Engine::Swap(*this, other);
    return *this;
}

void QzWideStringBuffer::SetString(LtWChar const *text)
{
    Engine::SetString(*this, text, -1);
}

void QzWideStringBuffer::SetString(LtWChar const *text, int length)
{
    Engine::SetString(*this, text, length);
}

void QzWideStringBuffer::SetString(QzWideString const &text)
{
    Engine::SetString(*this, text.GetString(), -1);
}

void QzWideStringBuffer::SetString(QzWideStringBuffer const &other)
{
    Engine::SetString(*this, other.m_begin, other.m_length);
}

void QzWideStringBuffer::SetEmptyString()
{
    Engine::SetEmptyString(*this);
}

unsigned QzWideStringBuffer::GetSize() const
{
    return m_begin == nullptr ? 0 : static_cast<unsigned>(m_length) + 1;
}

void QzWideStringBuffer::Reserve(int length)
{
    (void)Engine::Reserve(*this, length);  // without memory the buffer stays as it was
}

void QzWideStringBuffer::Append(LtWChar const *text)
{
    Engine::Append(*this, text, -1);
}

void QzWideStringBuffer::Append(LtWChar const *text, int length)
{
    Engine::Append(*this, text, length);
}

void QzWideStringBuffer::Append(LtWChar unit)
{
    Engine::AppendUnit(*this, unit);
}

void QzWideStringBuffer::Append(QzWideString const &text)
{
    Engine::Append(*this, text.GetString(), -1);
}

void QzWideStringBuffer::Append(QzWideStringBuffer const &other)
{
    Engine::Append(*this, other.m_begin, other.m_length);
}

void QzWideStringBuffer::SetAt(int index, LtWChar const &unit)
{
    Engine::SetAt(*this, index, unit);
}

void QzWideStringBuffer::EndEditBuffer(int length)
{
    Engine::EndEditBuffer(*this, length);
}

void QzWideStringBuffer::Format(LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    Engine::Format(*this, format, args, &QzSysString::WideVsprintf);
    va_end(args);
}

int QzWideStringBuffer::FormatV(LtWChar const *format, va_list args)
{
    return Engine::FormatV(*this, format, args, &QzSysString::WideVsprintf);
}

void QzWideStringBuffer::FormatCFloat(double value, int precision, int width)
{
    QzSysCNumericScope c_numbers;
    Engine::FormatFixed(*this, value, precision, /*has_width=*/true, width);
}

void QzWideStringBuffer::FormatLocalizedFloat(double value, int precision, int significant)
{
    Engine::FormatLocalizedFloat(*this, value, precision, significant);
}

int QzWideStringBuffer::Replace(LtWChar const *old_text, LtWChar const *new_text, int all)
{
    return Engine::Replace(*this, old_text, new_text, 0, all);
}

int QzWideStringBuffer::Replace(LtWChar const *old_text, LtWChar const *new_text, int from, int all)
{
    return Engine::Replace(*this, old_text, new_text, from, all);
}

void QzWideStringBuffer::ReplaceSubString(int start, int end, LtWChar const *text)
{
    Engine::ReplaceSubString(*this, start, end, text);
}

void QzWideStringBuffer::Trim()
{
    TrimLeft();
    TrimRight();
}

void QzWideStringBuffer::TrimLeft()
{
    Engine::TrimLeft(*this, &QzSysWideCType::IsSpace);
}

void QzWideStringBuffer::TrimRight()
{
    Engine::TrimRight(*this, &QzSysWideCType::IsSpace, /*kept=*/0);
}

void QzWideStringBuffer::TrimRight(LtWChar const *set)
{
    if (set == nullptr)
        return;
    Engine::TrimRight(
        *this, [set](LtWChar unit) { return unit != 0 && WideText::FindLastChar(set, unit); },
        /*kept=*/0);
}

void QzWideStringBuffer::SanitiseForXML(LtWChar const *text, QzWideStringBuffer *out)
{
    Engine::CopyKept(text, out, [](LtWChar unit) {
        return unit >= 32 || unit == u'\t' || unit == u'\n' || unit == u'\r';
    });
}

void QzWideStringBuffer::Swap(QzWideStringBuffer &other) noexcept
{
    Engine::Swap(*this, other);
}

bool QzWideStringBuffer::Equal(QzWideStringBuffer const &other) const
{
    return m_length == other.m_length && WideText::Equal(m_begin, other.m_begin);
}

int QzWideStringBuffer::SetFromMultiString(char const *text)
{
    return QzSetWideFromNarrow(*this, text, &QzString::MultiToWideString);
}

int QzWideStringBuffer::SetFromUTF8String(char const *text)
{
    return QzSetWideFromNarrow(*this, text, [](char const *source, QzWideStringBuffer *out) {
        return QzString::UTF8ToWideString(source, out);
    });
}

int QzWideStringBuffer::TrySetFromAsciiString(char const *text)
{
    return QzSetWideFromNarrow(*this, text, &QzString::AsciiToWideString);
}

bool QzWideStringBuffer::EqualPrefix(LtWChar const *text, int count) const
{
    return WideText::EqualPrefix(m_begin, text, count);
}

int QzWideStringBuffer::HasPrefix(LtWChar const *prefix) const
{
    return WideText::HasPrefix(m_begin, prefix);
}

int QzWideStringBuffer::HasSuffix(LtWChar const *suffix) const
{
    return WideText::HasSuffix(m_begin, suffix);
}

LtWChar const *QzWideStringBuffer::Find(LtWChar const *what, int from) const
{
    return WideText::Find(m_begin, m_length, what, from);
}

LtWChar const *QzWideStringBuffer::FindLastChar(LtWChar unit) const
{
    return WideText::FindLastChar(m_begin, unit);
}

void QzWideStringBuffer::ExtractSubString(int start, int end, QzWideStringBuffer *out) const
{
    Engine::ExtractSubString(m_begin, m_length, start, end, out);
}

int QzWideStringBuffer::StrCmpLogical(LtWChar const *text) const
{
    return QzWideString::StrCmpLogical(m_begin, text);
}

int QzWideStringBuffer::ReadLocalizedFloat(double *value) const
{
    return QzWideString::ReadLocalizedFloat(m_begin, value);
}

int QzWideStringBuffer::ReadLocalizedInt(int *value) const
{
    return QzWideString::ReadLocalizedInt(m_begin, value);
}

void QzWideStringBuffer::ExtractUTF8String(QzStringBuffer *out) const
{
    QzWideString::ExtractUTF8String(m_begin, out);
}

void QzWideStringBuffer::ExtractUTF8StringTY10(QzStringBuffer *out) const
{
    QzWideString::ExtractUTF8StringTY10(m_begin, out);
}

int QzWideStringBuffer::ExtractMultiString(QzStringBuffer *out) const
{
    return QzWideString::ExtractMultiString(m_begin, out);
}

int QzWideStringBuffer::TryExtractAsciiString(QzStringBuffer *out) const
{
    return QzWideString::TryExtractAsciiString(m_begin, out);
}

void QzWideStringBuffer::ExtractAsciiString(QzStringBuffer *out) const
{
    QzWideString::ExtractAsciiString(m_begin, out);
}

// --- QzStringBufferFormat ---

QzWideStringBuffer QzStringBufferFormat::FormatLocalizedFloat(double value, int precision,
                                                              int significant)
{
    QzWideStringBuffer text;
    text.FormatLocalizedFloat(value, precision, significant);
    return text;
}

QzWideStringBuffer QzStringBufferFormat::GetLocalizedThousandSep()
{
    // The separator's own bytes are in the thread's multi-byte code page.
    constexpr int kMaxUnits = 5;
    QzWideStringBuffer separator;
    std::lconv const *numeric = std::localeconv();
    char const *bytes = numeric != nullptr ? numeric->thousands_sep : nullptr;
    if (bytes == nullptr || QzString::MultiToWideString(bytes, &separator) == 0) {
        separator.SetEmptyString();
        return separator;
    }
    if (separator.GetLength() > kMaxUnits)
        separator.ReplaceSubString(kMaxUnits, separator.GetLength(), nullptr);
    return separator;
}
