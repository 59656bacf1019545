// QzError.cpp: printf-style posting, logging and tracing over two shared
// format buffers, the log line of a post, the ready-made handlers and the
// message-box slots.

#include "qzutil/frame/QzError.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/frame/internal/QzErrorFormat.h"
#include "qzutil/sys/QzSysLock.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysProcess.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"

static QzComponent g_error_component;

// The shared format buffers. Owned here from Initialise to Terminate; the
// error lock guards them, and is taken before the log lock when both are.
static QzSysLock g_error_lock;
static QzStringBuffer *g_narrow;
static QzWideStringBuffer *g_wide;

// Texts longer than this go to the log in pieces. A single text at the log's
// own limit would be posted as "Too long to log", and that post would come
// back here for its log line while the error lock is held.
static constexpr int kLogPieceBytes = 64 * 1024;

// Logs the shared narrow buffer's UTF-8 text, in pieces that end on whole
// characters. Called with the error lock held.
static void LogNarrowBufferLocked()
{
    char *text = g_narrow->BeginEditBuffer();
    int remaining = g_narrow->GetLength();
    if (text == nullptr) {
        QzSysError::LogUTF8String(nullptr);
        return;
    }
    while (remaining > kLogPieceBytes) {
        int cut = kLogPieceBytes;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
            --cut;  // never split a multi-byte character
        if (cut == 0)
            cut = kLogPieceBytes;  // not UTF-8 at all: any cut will do
        char const kept = text[cut];
        text[cut] = '\0';
        QzSysError::LogUTF8String(text);
        text[cut] = kept;
        text += cut;
        remaining -= cut;
    }
    QzSysError::LogUTF8String(text);
}

// The log's word: none for eINFO, and "UKNOWN", its long-standing spelling,
// for values outside the list (FormatError spells it right).
static char const *SeverityLogWord(QzSysError::Severity severity)
{
    if (severity == QzSysError::eINFO)
        return nullptr;
    char const *word = QzSeverityWord(severity);
    return word != nullptr ? word : "UKNOWN";
}

// The log line of every post made while QzError is up:
// "<word>: <component>[ id(<id>), data(<data>)], \"<message>\"\n".
static void LogPostLine(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                        LtWChar const *message)
{
    char const *word = SeverityLogWord(severity);
    char const *name =
        component != nullptr && component->GetName() != nullptr ? component->GetName() : "";
    QzSysAutoLock lock(&g_error_lock);
    if (id == -1 && data == nullptr) {
        if (word != nullptr)
            g_narrow->Format("%s: %s, \"", word, name);
        else
            g_narrow->Format("%s, \"", name);
    } else if (word != nullptr) {
        g_narrow->Format("%s: %s id(%d), data(%llx), \"", word, name, id,
                         static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(data)));
    } else {
        g_narrow->Format("%s id(%d), data(%llx), \"", name, id,
                         static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(data)));
    }
    LogNarrowBufferLocked();
    QzWideString::ExtractUTF8String(message, g_narrow);
    LogNarrowBufferLocked();
    QzSysError::LogUTF8String("\"\n");
}

void QzError::Initialise()
{
    if (g_error_component.Initialise("QzError", QZ_COMPONENT_INFO) == 0)
        return;
    QzSysError::Initialise();
    QzString::Initialise();
    g_error_lock.Create();
    g_narrow = new QzStringBuffer;
    g_wide = new QzWideStringBuffer;
    QzSysError::SetLogPostWideStringCB(LogPostLine);
}

void QzError::Terminate()
{
    if (g_error_component.Terminate() == 0)
        return;
    QzSysError::SetLogPostWideStringCB(nullptr);
    delete g_narrow;
    delete g_wide;
    g_narrow = nullptr;
    g_wide = nullptr;
    g_error_lock.Destroy();
    QzSysError::Terminate();
    QzString::Terminate();
}

int QzError::IsInitialised()
{
    return g_error_component.IsInitialised();
}

// Formats a narrow (multi-byte) post into the shared wide buffer and posts it.
static void PostNarrowV(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                        char const *format, va_list args)
{
    g_error_lock.Lock();
    if (format == nullptr) {
        g_narrow->SetString(static_cast<char const *>(nullptr));
        g_wide->SetEmptyString();
    } else {
        QzFormatGrowing(g_narrow, format, args);
        QzString::MultiToWideString(g_narrow->GetString(), g_wide);
    }
    g_error_lock.Unlock();
    QzSysError::PostFixed(severity, component, id, data, QzPostLevel(severity, id, data),
                          g_wide->GetString());
}

static void PostWideV(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                      LtWChar const *format, va_list args)
{
    g_error_lock.Lock();
    if (format == nullptr)
        g_wide->SetEmptyString();
    else
        QzFormatGrowing(g_wide, format, args);
    g_error_lock.Unlock();
    QzSysError::PostFixed(severity, component, id, data, QzPostLevel(severity, id, data),
                          g_wide->GetString());
}

void QzError::Post(QzSysError::Severity severity, QzComponent *component, char const *format, ...)
{
    va_list args;
    va_start(args, format);
    PostNarrowV(severity, component, -1, nullptr, format, args);
    va_end(args);
}

void QzError::Post(QzSysError::Severity severity, QzComponent *component, LtWChar const *format,
                   ...)
{
    va_list args;
    va_start(args, format);
    PostWideV(severity, component, -1, nullptr, format, args);
    va_end(args);
}

void QzError::Post(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                   char const *format, ...)
{
    va_list args;
    va_start(args, format);
    PostNarrowV(severity, component, id, data, format, args);
    va_end(args);
}

void QzError::Post(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                   LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    PostWideV(severity, component, id, data, format, args);
    va_end(args);
}

// Takes no arguments, so the text goes through the formatter with none; a
// "%" in it that expects an argument is the caller's fault, as in any format.
void QzError::PostWideString(QzSysError::Severity severity, LtWChar const *format)
{
    Post(severity, nullptr, format);
}

QzErrorPostStream QzError::Post(QzSysError::Severity severity, QzComponent *component)
{
    return QzErrorPostStream(severity, component, -1, nullptr);
}

QzErrorPostStream QzError::Post(QzSysError::Severity severity, QzComponent *component, int id,
                                void *data)
{
    return QzErrorPostStream(severity, component, id, data);
}

// Formats a UTF-8 format into the shared narrow buffer and logs it.
static void LogV(char const *format, va_list args)
{
    QzSysAutoLock lock(&g_error_lock);
    QzFormatGrowing(g_narrow, format, args);
    LogNarrowBufferLocked();
}

static void LogV(LtWChar const *format, va_list args)
{
    QzSysAutoLock lock(&g_error_lock);
    QzFormatGrowing(g_wide, format, args);
    QzWideString::ExtractUTF8String(g_wide->GetString(), g_narrow);
    LogNarrowBufferLocked();
}

void QzError::Log(char const *format, ...)
{
    va_list args;
    va_start(args, format);
    LogV(format, args);
    va_end(args);
}

void QzError::Log(LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    LogV(format, args);
    va_end(args);
}

void QzError::LogWideString(LtWChar const *text)
{
    QzSysAutoLock lock(&g_error_lock);
    QzWideString::ExtractUTF8String(text, g_narrow);
    LogNarrowBufferLocked();
}

void QzError::LogInt32(LtInt32 value)
{
    Log("%d", value);
}

void QzError::LogInt64(LtInt64 value)
{
    Log("%lld", static_cast<long long>(value));
}

void QzError::LogNat32(LtNat32 value)
{
    Log("%u", value);
}

void QzError::LogNat64(LtNat64 value)
{
    Log("%llu", static_cast<unsigned long long>(value));
}

void QzError::LogFloat(double value)
{
    Log("%g", value);
}

void QzError::LogPtr(void const *value)
{
    Log("%p", value);
}

QzErrorLogStream QzError::Log()
{
    return QzErrorLogStream();
}

// Writes the trace prefix of the flags; `file` is null for the forms without
// a source position. Each piece goes to the log as it is made.
static void LogTracePrefix(int level, char const *file, int line)
{
    int const flag = QzSysError::GetTraceFlag();
    char piece[64];
    QzSysError::LogUTF8String("Trace:");
    if (flag & 0x1) {
        QzSysString::Sprintf(piece, sizeof(piece), "%d:", level);
        QzSysError::LogUTF8String(piece);
    }
    if (flag & 0x8) {
        int hour = 0, minute = 0, second = 0;
        QzSysProcess::GetUtcClock(&hour, &minute, &second);
        QzSysString::Sprintf(piece, sizeof(piece), "%02d-%02d-%02d:", hour, minute, second);
        QzSysError::LogUTF8String(piece);
    }
    if (flag & 0x4) {
        QzSysString::Sprintf(piece, sizeof(piece), "%d:", QzSysProcess::GetCurrentThreadId());
        QzSysError::LogUTF8String(piece);
    }
    if (file != nullptr && (flag & 0x2)) {
        QzSysError::LogUTF8String(file);
        QzSysString::Sprintf(piece, sizeof(piece), ":%d:", line);
        QzSysError::LogUTF8String(piece);
    }
}

// The gate, the prefix and the text of every printf-style trace.
template <typename Char>
static bool TraceV(int level, char const *file, int line, Char const *format, va_list args)
{
    if (!QzSysError::ShouldTrace(level))
        return false;
    LogTracePrefix(level, file, line);
    LogV(format, args);
    return true;
}

bool QzError::Trace(int level, char const *format, ...)
{
    va_list args;
    va_start(args, format);
    bool const passed = TraceV(level, nullptr, 0, format, args);
    va_end(args);
    return passed;
}

bool QzError::Trace(int level, LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    bool const passed = TraceV(level, nullptr, 0, format, args);
    va_end(args);
    return passed;
}

bool QzError::TraceWideString(int level, LtWChar const *text)
{
    if (!QzSysError::ShouldTrace(level))
        return false;
    LogTracePrefix(level, nullptr, 0);
    LogWideString(text);
    return true;
}

bool QzError::Trace(int level, char const *file, int line, char const *format, ...)
{
    va_list args;
    va_start(args, format);
    bool const passed = TraceV(level, file, line, format, args);
    va_end(args);
    return passed;
}

bool QzError::Trace(int level, char const *file, int line, LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    bool const passed = TraceV(level, file, line, format, args);
    va_end(args);
    return passed;
}

QzErrorTraceStream QzError::Trace(int level)
{
    bool const passed = QzSysError::ShouldTrace(level);
    if (passed)
        LogTracePrefix(level, nullptr, 0);
    return QzErrorTraceStream(passed);
}
