// QzErrorStreams.cpp: stream-style posting and logging.

#include <cstdint>

#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzErrorFormat.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"

QzErrorPostStream::QzErrorPostStream(QzSysError::Severity severity, QzComponent *component, int id,
                                     void *data)
    : m_severity(severity), m_component(component), m_id(id), m_data(data)
{}

QzErrorPostStream::QzErrorPostStream(QzErrorPostStream const &other)
    : m_severity(other.m_severity), m_component(other.m_component), m_id(other.m_id),
      m_data(other.m_data), m_scratch(other.m_scratch), m_message(other.m_message)
{}

QzErrorPostStream &QzErrorPostStream::operator=(QzErrorPostStream const &other)
{
    m_severity = other.m_severity;
    m_component = other.m_component;
    m_id = other.m_id;
    m_data = other.m_data;
    m_scratch = other.m_scratch;
    m_message = other.m_message;
    return *this;
}

QzErrorPostStream::~QzErrorPostStream()
{
    QzSysError::PostFixed(m_severity, m_component, m_id, m_data,
                          QzPostLevel(m_severity, m_id, m_data),
                          m_message.GetString() != nullptr ? m_message.GetString() : u"");
}

QzErrorPostStream &QzErrorPostStream::operator<<(LtWChar const *text)
{
    m_message.Append(text);
    return *this;
}

QzErrorPostStream &QzErrorPostStream::operator<<(char const *text)
{
    QzString::UTF8ToWideString(text, &m_scratch);
    m_message.Append(m_scratch);
    return *this;
}

QzErrorPostStream &QzErrorPostStream::operator<<(QzString const &text)
{
    return *this << text.GetString();
}

QzErrorPostStream &QzErrorPostStream::operator<<(QzStringBuffer const &text)
{
    return *this << text.GetString();
}

QzErrorPostStream &QzErrorPostStream::operator<<(QzWideString const &text)
{
    return *this << text.GetString();
}

QzErrorPostStream &QzErrorPostStream::operator<<(QzWideStringBuffer const &text)
{
    return *this << text.GetString();
}

QzErrorPostStream &QzErrorPostStream::operator<<(bool value)
{
    return *this << (value ? u"TRUE" : u"FALSE");
}

// Numbers go through the scratch buffer with the format of their type.
#define QZ_POST_STREAM_NUMBER(Type, Pattern, Cast)               \
    QzErrorPostStream &QzErrorPostStream::operator<<(Type value) \
    {                                                            \
        m_scratch.Format(Pattern, static_cast<Cast>(value));     \
        m_message.Append(m_scratch);                             \
        return *this;                                            \
    }
QZ_POST_STREAM_NUMBER(signed char, u"%d", int)
QZ_POST_STREAM_NUMBER(unsigned char, u"%u", unsigned)
QZ_POST_STREAM_NUMBER(short, u"%d", int)
QZ_POST_STREAM_NUMBER(unsigned short, u"%u", unsigned)
QZ_POST_STREAM_NUMBER(int, u"%d", int)
QZ_POST_STREAM_NUMBER(unsigned, u"%u", unsigned)
QZ_POST_STREAM_NUMBER(long, u"%lld", long long)
QZ_POST_STREAM_NUMBER(unsigned long, u"%llu", unsigned long long)
QZ_POST_STREAM_NUMBER(long long, u"%lld", long long)
QZ_POST_STREAM_NUMBER(unsigned long long, u"%llu", unsigned long long)
QZ_POST_STREAM_NUMBER(double, u"%g", double)
QZ_POST_STREAM_NUMBER(void const *, u"%p", void const *)
#undef QZ_POST_STREAM_NUMBER

QzErrorLogStream &QzErrorLogStream::operator<<(LtWChar const *text)
{
    QzError::LogWideString(text);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(char const *text)
{
    QzSysError::LogUTF8String(text);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(QzString const &text)
{
    return *this << text.GetString();
}

QzErrorLogStream &QzErrorLogStream::operator<<(QzStringBuffer const &text)
{
    return *this << text.GetString();
}

QzErrorLogStream &QzErrorLogStream::operator<<(QzWideString const &text)
{
    return *this << text.GetString();
}

QzErrorLogStream &QzErrorLogStream::operator<<(QzWideStringBuffer const &text)
{
    return *this << text.GetString();
}

QzErrorLogStream &QzErrorLogStream::operator<<(bool value)
{
    return *this << (value ? "TRUE" : "FALSE");
}

QzErrorLogStream &QzErrorLogStream::operator<<(int value)
{
    QzError::LogInt32(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(unsigned value)
{
    QzError::LogNat32(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(long value)
{
    QzError::LogInt64(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(unsigned long value)
{
    QzError::LogNat64(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(long long value)
{
    QzError::LogInt64(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(unsigned long long value)
{
    QzError::LogNat64(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(double value)
{
    QzError::LogFloat(value);
    return *this;
}

QzErrorLogStream &QzErrorLogStream::operator<<(void const *value)
{
    QzError::LogPtr(value);
    return *this;
}
