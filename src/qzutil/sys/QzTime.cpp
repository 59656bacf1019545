// QzTime.cpp: the QzTime component, its choice of clock, and the arithmetic
// of points on it.

#include "qzutil/sys/QzTime.h"

#include <cmath>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/QzSysTime.h"

static QzComponent g_interval_clock_component;

// Set by Initialise before other threads run; read-only afterwards.
static bool g_reads_hp_counter;

// The default of the option "model.performance.timing.
// prefer_performance_counter_timing", which the option tree will supply:
// the finer clock, where QzSysTime allows it.
static constexpr bool kPreferPerformanceCounterTiming = true;

static constexpr LtNat64 kNanosecondsPerSecond = 1000000000;

void QzTime::Initialise()
{
    if (!g_interval_clock_component.Initialise("QzTime", QZ_COMPONENT_INFO))
        return;
    QzError::Initialise();
    QzSysTime::Initialise();
    g_reads_hp_counter = kPreferPerformanceCounterTiming && QzSysTime::HasHPCounter();
}

void QzTime::Terminate()
{
    if (!g_interval_clock_component.Terminate())
        return;
    QzSysTime::Terminate();
    QzError::Terminate();
}

int QzTime::IsInitialised()
{
    return g_interval_clock_component.IsInitialised();
}

// A raw count at `counts_per_sec` in nanoseconds. The whole seconds and
// the remainder are scaled apart, so no product exceeds 64 bits for any
// count a monotonic clock reaches.
static LtInt64 CountToNanoseconds(LtNat64 count, LtNat64 counts_per_sec)
{
    LtNat64 whole_seconds = count / counts_per_sec;
    LtNat64 remainder = count % counts_per_sec;
    return static_cast<LtInt64>(whole_seconds * kNanosecondsPerSecond +
                                remainder * kNanosecondsPerSecond / counts_per_sec);
}

void QzTime::MakeTimeOfDay()
{
    if (g_reads_hp_counter)
        m_nanoseconds =
            CountToNanoseconds(QzSysTime::GetHPRawCount(), QzSysTime::GetHPRawCountsPerSec());
    else
        m_nanoseconds =
            CountToNanoseconds(QzSysTime::GetLPRawCount(), QzSysTime::GetLPRawCountsPerSec());
}

QzTime QzTime::GetTimeOfDay()
{
    QzTime now;
    now.MakeTimeOfDay();
    return now;
}

void QzTime::Inc(double seconds)
{
    m_nanoseconds += static_cast<LtInt64>(std::llround(seconds * 1e9));
}

QzTime &QzTime::operator+=(double seconds)
{
    Inc(seconds);
    return *this;
}

QzTime &QzTime::operator-=(double seconds)
{
    Inc(-seconds);
    return *this;
}

QzTime QzTime::operator+(double seconds) const
{
    QzTime moved = *this;
    moved.Inc(seconds);
    return moved;
}

QzTime QzTime::operator-(double seconds) const
{
    QzTime moved = *this;
    moved.Inc(-seconds);
    return moved;
}

double QzTime::operator-(QzTime const &earlier) const
{
    return static_cast<double>(m_nanoseconds - earlier.m_nanoseconds) / 1e9;
}
