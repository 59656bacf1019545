// QzSysTime.cpp: the QzSysTime component and its portable parts: the
// choice of the high-precision counter, epoch conversions, ISO 8601 text,
// and the low-precision counter over the library's tick count. The system
// calls are in posix/QzSysTimePosix.cpp.

#include "qzutil/sys/QzSysTime.h"

#include <cstdio>
#include <cstring>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/internal/QzSysProcess.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"

static QzComponent g_time_component;

// Set by Initialise before other threads run; read-only afterwards.
static bool g_hp_counter_in_use;

// The default of the option "model.performance.timing.
// allow_performance_counter_timing", which the option tree will supply.
static constexpr bool kAllowPerformanceCounterTiming = true;

static constexpr LtInt64 kHundredNanosecondsPerSecond = 10000000;
static constexpr LtInt64 kSecondsFrom1601To1970 = 11644473600;  // 369 years, 89 leap days
static constexpr LtInt64 kSecondsFrom0001To1970 = 62135596800;  // 1969 years, 477 leap days

static constexpr std::size_t kISO8601Length = 19;  // "YYYY-MM-DDTHH:MM:SS"

// Decides whether the high-precision counter counts, logging both
// resolutions. Returns the decision.
static bool ChooseHPCounter()
{
    double lp_resolution_us = QzSysTime::GetLPResolution();
    QzError::Log("QzSysTime: LP resolution %g us\n", lp_resolution_us);

    LtNat64 hp_counts_per_sec = QzSysTime::GetHPRawCountsPerSec();
    if (hp_counts_per_sec == 0) {
        QzError::Post(QzSysError::eINFO, &g_time_component, "No high-performance counter");
        return false;
    }
    double hp_resolution_us = 1000000.0 / static_cast<double>(hp_counts_per_sec);
    QzError::Log("QzSysTime: HP resolution %g us\n", hp_resolution_us);
    if (!kAllowPerformanceCounterTiming)
        return false;
    if (hp_resolution_us >= lp_resolution_us) {
        QzError::Log("QzSysTime: Disabling HP counter as resolution is worse than LP\n");
        return false;
    }
    return true;
}

void QzSysTime::Initialise()
{
    if (!g_time_component.Initialise("QzSysTime", QZ_COMPONENT_INFO))
        return;
    QzError::Initialise();
    QzString::Initialise();
    g_hp_counter_in_use = ChooseHPCounter();
}

void QzSysTime::Terminate()
{
    if (!g_time_component.Terminate())
        return;
    QzString::Terminate();
    QzError::Terminate();
}

int QzSysTime::IsInitialised()
{
    return g_time_component.IsInitialised();
}

// --- Epoch conversions ---

LtInt64 QzSysTime::ToFileTime(LtInt64 epoch_seconds)
{
    return (epoch_seconds + kSecondsFrom1601To1970) * kHundredNanosecondsPerSecond;
}

LtInt64 QzSysTime::FromFileTime(LtInt64 file_time)
{
    return file_time / kHundredNanosecondsPerSecond - kSecondsFrom1601To1970;
}

LtInt64 QzSysTime::ToDateTimeTicks(LtInt64 epoch_seconds)
{
    return (epoch_seconds + kSecondsFrom0001To1970) * kHundredNanosecondsPerSecond;
}

LtInt64 QzSysTime::FromDateTimeTicks(LtInt64 ticks)
{
    return ticks / kHundredNanosecondsPerSecond - kSecondsFrom0001To1970;
}

// --- ISO 8601 ---

bool QzSysTime::ToISO8601FormatUTC(LtInt64 epoch_seconds, QzStringBuffer *out)
{
    if (out == nullptr || epoch_seconds < 0)
        return false;
    std::tm fields;
    if (!GmTime(epoch_seconds, &fields))
        return false;
    // Room for a longer year, so that one is seen and refused, not cut.
    char text[32];
    std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &fields);
    if (length != kISO8601Length)
        return false;
    out->SetString(text, static_cast<int>(length));
    return true;
}

bool QzSysTime::FromISO8601FormatUTC(char const *text, LtInt64 *epoch_seconds)
{
    if (text == nullptr || epoch_seconds == nullptr || std::strlen(text) != kISO8601Length)
        return false;
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (std::sscanf(text, "%4d-%2d-%2dT%2d:%2d:%2d", &year, &month, &day, &hour, &minute,
                    &second) != 6)
        return false;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || second < 0 || second > 61)
        return false;

    std::tm fields = {};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    // TimeGm's failure value -1 is negative too, so one test covers both.
    LtInt64 result = TimeGm(&fields);
    if (result < 0)
        return false;
    *epoch_seconds = result;
    return true;
}

// --- Counters ---

LtNat64 QzSysTime::GetLPRawCount()
{
    return QzSysProcess::GetTickCount();
}

LtNat64 QzSysTime::GetLPRawCountsPerSec()
{
    return 1000;  // the tick count is in milliseconds
}

double QzSysTime::GetLPSeconds()
{
    return static_cast<double>(GetLPRawCount()) / static_cast<double>(GetLPRawCountsPerSec());
}

bool QzSysTime::HasHPCounter()
{
    return g_hp_counter_in_use;
}
