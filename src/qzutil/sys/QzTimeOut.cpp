// QzTimeOut.cpp: the two-clock time-out.

#include "qzutil/sys/QzTimeOut.h"

#include "qzutil/sys/QzSysTime.h"

QzTimeOut::QzTimeOut()
{
    SetTimeOut(0, 0);
}

void QzTimeOut::SetTimeOut(unsigned timeout_us, unsigned window_us)
{
    m_has_precise_clock = QzSysTime::HasHPCounter();
    m_timeout_us = timeout_us;
    m_tick_start = QzSysTime::GetLPRawCount();
    m_precise_start = QzSysTime::GetHPRawCount();
    if (m_has_precise_clock) {
        unsigned tick_only_us = timeout_us > window_us ? timeout_us - window_us : 0;
        m_tick_limit_ms = tick_only_us / 1000u;
        m_watching = kTickClock | kPreciseClock;
    } else {
        m_tick_limit_ms = timeout_us / 1000u;
        m_watching = kTickClock;
    }
}

bool QzTimeOut::HasExpired()
{
    if ((m_watching & kTickClock) != 0) {
        if (QzSysTime::GetLPRawCount() - m_tick_start < m_tick_limit_ms)
            return false;
        m_watching &= ~kTickClock;
    }
    if ((m_watching & kPreciseClock) == 0)
        return true;
    if (GetPreciseElapsedMicroseconds() < static_cast<double>(m_timeout_us))
        return false;
    m_watching = 0;
    return true;
}

double QzTimeOut::GetTickElapsedMicroseconds() const
{
    LtNat64 elapsed_ms = QzSysTime::GetLPRawCount() - m_tick_start;
    return static_cast<double>(elapsed_ms) * 1000.0;
}

double QzTimeOut::GetPreciseElapsedMicroseconds() const
{
    LtNat64 elapsed_counts = QzSysTime::GetHPRawCount() - m_precise_start;
    return static_cast<double>(elapsed_counts) * 1e6 /
           static_cast<double>(QzSysTime::GetHPRawCountsPerSec());
}

double QzTimeOut::GetElapsedMicroseconds() const
{
    double tick_us = GetTickElapsedMicroseconds();
    if (!m_has_precise_clock)
        return tick_us;
    double precise_us = GetPreciseElapsedMicroseconds();
    if (precise_us > tick_us && precise_us < static_cast<double>(m_timeout_us))
        return precise_us;
    return tick_us;
}

LtNat64 QzTimeOut::GetTimeElapsed() const
{
    return static_cast<LtNat64>(GetElapsedMicroseconds() / 1000.0);
}

double QzTimeOut::GetTimeElapsedInSeconds() const
{
    return GetElapsedMicroseconds() / 1e6;
}
