// QzStream.cpp: the settings, the header line, the chain of filters, and
// the posting of stream errors.

#include "qzutil/stream/QzStream.h"

#include <cstdarg>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzStreamSink.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/text/QzStringBuffer.h"

static QzComponent g_stream_component;

static char const *const kDebugTokenNames[QzStream::eTOKEN_COUNT] = {
    "Bad",        "Sync",        "Nat8",        "Int16",      "Nat16",      "Int32",
    "Nat32",      "Single",      "Double",      "Float",      "Boolean",    "Enum",
    "Bitfield",   "String",      "Nat8Array",   "Int16Array", "Nat16Array", "Int32Array",
    "Nat32Array", "SingleArray", "DoubleArray", "FloatArray", "Object",     "ObjectEndDef",
    "Nat64",      "Nat64Array",
};

char const *QzStream::GetDebugTokenName(int token)
{
    return token >= 0 && token < eTOKEN_COUNT ? kDebugTokenNames[token] : nullptr;
}

QzStream::QzStream(QzStreamSink *sink) : m_sink(sink)
{}

QzStream::QzStream(QzStream const &other) = default;

QzStream &QzStream::operator=(QzStream const &other) = default;

QzStream::~QzStream() = default;

QzStreamFilter *QzStream::GetActiveFilter(int index) const
{
    if (index < 0 || index >= GetNumActiveFilters())
        return nullptr;
    return m_active_filters[static_cast<std::size_t>(index)];
}

void *QzStream::GetUserData(SlotData slot) const
{
    return slot >= 0 && slot < eSLOT_COUNT ? m_user_data[slot] : nullptr;
}

void QzStream::SetUserData(SlotData slot, void *data)
{
    if (slot >= 0 && slot < eSLOT_COUNT)
        m_user_data[slot] = data;
}

void QzStream::SetFormat(QzStreamFormat const *format)
{
    m_format = format;
    m_format_name = format ? format->GetName() : nullptr;
    m_format_version = format ? format->GetVersion() : 0;
}

void QzStream::AddActiveFilter(QzStreamFilter *filter)
{
    m_active_filters.push_back(filter);
}

void QzStream::PopActiveFilter()
{
    if (!m_active_filters.empty())
        m_active_filters.pop_back();
}

void QzStream::SetActiveFilter(int index, QzStreamFilter *filter)
{
    if (index >= 0 && index < GetNumActiveFilters())
        m_active_filters[static_cast<std::size_t>(index)] = filter;
}

QzString QzStream::GetConfig() const
{
    QzStringBuffer line("#QzStream-V1.1 ");
    line.Append(m_ascii ? "ascii " : "binary ");
    line.Append(m_double ? "double " : "single ");
    line.Append(m_debug ? "debug " : "release ");
    if (m_wide_string_encoding == eWIDE_UTF8 || m_wide_string_encoding == eWIDE_UTF8_UNITS)
        line.Append("utf8 ");
    else if (m_wide_string_encoding == eWIDE_MULTIBYTE)
        line.Append("C ");
    line.Append(m_format_name ? m_format_name : "linull");
    for (QzStreamFilter const *filter : m_active_filters) {
        line.Append(" ");
        line.Append(filter->GetName());
    }
    line.Append("\n");
    return QzString(line);
}

void QzStream::CopyConfig(QzStream const &other)
{
    m_format = other.m_format;
    m_format_name = other.m_format_name;
    m_format_version = other.m_format_version;
    m_active_filters = other.m_active_filters;
    m_ascii = other.m_ascii;
    m_double = other.m_double;
    m_debug = other.m_debug;
    m_wide_string_encoding = other.m_wide_string_encoding;
    for (int slot = 0; slot < eSLOT_COUNT; ++slot)
        m_user_data[slot] = other.m_user_data[slot];
}

// Begins one sink of the chain. Only the two stream classes wire chains, so
// `write` tells which one `stream` is.
static bool BeginSink(QzStream *stream, QzStreamSink *sink, int write)
{
    if (write)
        return sink->WriteBegin(static_cast<QzWriteStream const *>(stream)) != 0;
    return sink->ReadBegin(static_cast<QzReadStream const *>(stream)) != 0;
}

int QzStream::InitChain(int write, int with_sink)
{
    std::size_t const count = m_active_filters.size();
    for (std::size_t begun = 0; begun <= count; ++begun) {
        bool const is_sink = begun == count;
        if (is_sink && !with_sink)
            break;
        QzStreamSink *sink = is_sink ? m_sink : m_active_filters[begun];
        if (BeginSink(this, sink, write))
            continue;
        if (write)
            PostError(ErrorWriteBegin, sink, "WriteBegin failed");
        else
            PostError(ErrorReadBegin, sink, "ReadBegin failed");
        for (std::size_t i = 0; i < begun; ++i) {
            if (write)
                m_active_filters[i]->WriteEnd();
            else
                m_active_filters[i]->ReadEnd();
        }
        return 0;
    }
    for (std::size_t i = 0; i < count; ++i)
        m_active_filters[i]->SetSink(i + 1 < count ? m_active_filters[i + 1] : m_sink);
    m_head = count ? m_active_filters[0] : m_sink;
    return 1;
}

int QzStream::ClearChain(int write, int with_sink)
{
    for (std::size_t i = m_active_filters.size(); i-- > 0;)
        m_active_filters[i]->SetSink(nullptr);
    m_head = nullptr;
    int all_ended = 1;
    auto end = [&](QzStreamSink *sink) {
        if (write ? sink->WriteEnd() : sink->ReadEnd())
            return;
        all_ended = 0;
        if (write)
            PostError(ErrorWriteEnd, sink, "WriteEnd failed");
        else
            PostError(ErrorReadEnd, sink, "ReadEnd failed");
    };
    for (QzStreamFilter *filter : m_active_filters)
        end(filter);
    if (with_sink && m_sink)
        end(m_sink);
    return all_ended;
}

// Formats a message and posts it for QzStream with the error id and data.
static void PostFormatted(QzSysError::Severity severity, int id, void *data, char const *format,
                          va_list args)
{
    // Grows until the text fits; stream messages are short, so this is one
    // pass in practice.
    QzStringBuffer text;
    for (int capacity = 256;; capacity *= 2) {
        text.Reserve(capacity);
        va_list copy;
        va_copy(copy, args);
        int const written = text.FormatV(format, copy);
        va_end(copy);
        if (written >= 0 || capacity >= QzStream::kMaxStringLength)
            break;
    }
    QzError::Post(severity, &g_stream_component, id, data, "%s", text.GetString());
}

void QzStream::PostError(ErrorId error, void *data, char const *format, ...)
{
    m_error = error;
    va_list args;
    va_start(args, format);
    PostFormatted(QzSysError::eDEBUG, error, data, format, args);
    va_end(args);
}

void QzStream::PostWarning(ErrorId id, void *data, char const *format, ...)
{
    va_list args;
    va_start(args, format);
    PostFormatted(QzSysError::eWARNING, id, data, format, args);
    va_end(args);
}

QzComponent *QzStream::GetComponent()
{
    return &g_stream_component;
}

void QzStream::Initialise()
{
    if (!g_stream_component.Initialise("QzStream", QZ_COMPONENT_INFO))
        return;
    QzError::Initialise();
    QzString::Initialise();
    QzStreamSink::Initialise();
}

void QzStream::Terminate()
{
    if (!g_stream_component.Terminate())
        return;
    QzStreamSink::Terminate();
    QzString::Terminate();
    QzError::Terminate();
}

int QzStream::IsInitialised()
{
    return g_stream_component.IsInitialised();
}
