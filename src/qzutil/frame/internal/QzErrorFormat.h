// QzErrorFormat.h: the growth loop that formats a va_list into a shared
// buffer of QzError. Internal: never installed.
#pragma once

#include <cstdarg>

#include "qzutil/frame/QzSysError.h"

// The delivery level of a post: eDEBUG reaches only handlers registered for
// eDEBUG itself (level 4), or only the by-id handler when an id or data is
// given (level 5); every other severity may reach every rung.
inline int QzPostLevel(QzSysError::Severity severity, int id, void const *data)
{
    if (severity != QzSysError::eDEBUG)
        return 0;
    return id == -1 && data == nullptr ? 4 : 5;
}

// The word of a posted severity from eERROR to eDEBUG, else null: the log
// and the display name the others each in their own way.
inline char const *QzSeverityWord(QzSysError::Severity severity)
{
    static char const *const kWords[] = {"eERROR", "eWARNING", "ePRECONDITION", "eASSERT",
                                         "eDEBUG"};
    return severity >= QzSysError::eERROR && severity <= QzSysError::eDEBUG ? kWords[severity]
                                                                            : nullptr;
}

// Formats into *buffer, replacing its content: starts from at least 101
// characters and, while the formatter reports a cut, grows by one size class
// (Reserve at the present capacity) until the text fits or the capacity
// passes 104,857,600 characters, where the text stays cut.
template <typename Buffer, typename Char>
void QzFormatGrowing(Buffer *buffer, Char const *format, va_list args)
{
    constexpr int kStartCharacters = 101;
    constexpr int kMaxCharacters = 0x6400000;
    if (buffer->GetAllocationSize() < kStartCharacters)
        buffer->Reserve(kStartCharacters - 1);
    for (;;) {
        va_list attempt;
        va_copy(attempt, args);
        int const result = buffer->FormatV(format, attempt);
        va_end(attempt);
        int const capacity = buffer->GetAllocationSize();
        if ((result >= 0 && result < capacity) || capacity > kMaxCharacters)
            return;
        buffer->Reserve(capacity);
    }
}
