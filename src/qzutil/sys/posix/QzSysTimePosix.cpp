// QzSysTimePosix.cpp: the system side of QzSysTime: the wall clock,
// calendar fields in UTC and local time, local display text, and the steps
// and readings of the monotonic clocks behind the two counters.

#include "qzutil/sys/QzSysTime.h"

#include <locale.h>
#include <time.h>

#include "qzutil/text/QzWideStringBuffer.h"

static_assert(sizeof(time_t) == sizeof(LtInt64), "times are 64-bit seconds");

// The high-precision counter reads CLOCK_MONOTONIC in nanoseconds.
static constexpr LtNat64 kNanosecondsPerSecond = 1000000000;

// What GetLPResolution answers when the system cannot give the coarse
// clock's step: 10 ms, a common scheduler tick.
static constexpr double kFallbackLPResolutionUs = 10000.0;

LtInt64 QzSysTime::GetTimeNow()
{
    return static_cast<LtInt64>(time(nullptr));
}

bool QzSysTime::GmTime(LtInt64 epoch_seconds, std::tm *fields)
{
    time_t seconds = static_cast<time_t>(epoch_seconds);
    return fields != nullptr && gmtime_r(&seconds, fields) != nullptr;
}

bool QzSysTime::LocalTime(LtInt64 epoch_seconds, std::tm *fields)
{
    time_t seconds = static_cast<time_t>(epoch_seconds);
    return fields != nullptr && localtime_r(&seconds, fields) != nullptr;
}

LtInt64 QzSysTime::TimeGm(std::tm *fields)
{
    return fields != nullptr ? static_cast<LtInt64>(timegm(fields)) : -1;
}

LtInt64 QzSysTime::TimeLocal(std::tm *fields)
{
    return fields != nullptr ? static_cast<LtInt64>(mktime(fields)) : -1;
}

// Which of the user's display forms FormatLocal writes. The formats stay
// literals at the call so the compiler checks them.
enum class LocalForm {
    eDATE,
    eTIME,
    eDATE_TIME
};

// Writes the local time of `epoch_seconds` in `form`, by the LC_TIME of the
// environment, read afresh each call so a changed environment is seen
// without a cache to invalidate. The text comes back in the multi-byte
// code page, as the process's other system text does.
static bool FormatLocal(LtInt64 epoch_seconds, LocalForm form, QzWideStringBuffer *out)
{
    std::tm fields;
    if (out == nullptr || !QzSysTime::LocalTime(epoch_seconds, &fields))
        return false;
    locale_t user_time = newlocale(LC_TIME_MASK, "", static_cast<locale_t>(nullptr));
    if (user_time == static_cast<locale_t>(nullptr))
        user_time = newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(nullptr));
    if (user_time == static_cast<locale_t>(nullptr))
        return false;

    char text[256];  // far above any locale's date and time forms
    size_t length = 0;
    switch (form) {
    case LocalForm::eDATE:
        length = strftime_l(text, sizeof(text), "%x", &fields, user_time);
        break;
    case LocalForm::eTIME:
        length = strftime_l(text, sizeof(text), "%X", &fields, user_time);
        break;
    case LocalForm::eDATE_TIME:
        length = strftime_l(text, sizeof(text), "%x %X", &fields, user_time);
        break;
    }
    freelocale(user_time);
    // 0 is a text too long for the buffer (no form here is empty).
    if (length == 0)
        return false;
    return out->SetFromMultiString(text) != 0;
}

bool QzSysTime::FormatDate(LtInt64 epoch_seconds, QzWideStringBuffer *out)
{
    return FormatLocal(epoch_seconds, LocalForm::eDATE, out);
}

bool QzSysTime::FormatTime(LtInt64 epoch_seconds, QzWideStringBuffer *out)
{
    return FormatLocal(epoch_seconds, LocalForm::eTIME, out);
}

bool QzSysTime::FormatDateTime(LtInt64 epoch_seconds, QzWideStringBuffer *out)
{
    return FormatLocal(epoch_seconds, LocalForm::eDATE_TIME, out);
}

double QzSysTime::GetLPResolution()
{
    // The low-precision counter is the tick count's clock.
    struct timespec step;
    if (clock_getres(CLOCK_MONOTONIC_COARSE, &step) != 0)
        return kFallbackLPResolutionUs;
    return static_cast<double>(step.tv_sec) * 1e6 + static_cast<double>(step.tv_nsec) / 1e3;
}

LtNat64 QzSysTime::GetHPRawCount()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<LtNat64>(now.tv_sec) * kNanosecondsPerSecond +
           static_cast<LtNat64>(now.tv_nsec);
}

LtNat64 QzSysTime::GetHPRawCountsPerSec()
{
    return kNanosecondsPerSecond;
}
