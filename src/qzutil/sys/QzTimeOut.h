// QzTimeOut.h: a time-out watched on two clocks: the coarse tick count,
// cheap to read, for most of the wait, and the high-precision counter for
// its last stretch.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// Ownership: a plain value; copy freely.
// Threads:   an object belongs to one thread at a time.
// Invariant: once HasExpired has answered true it keeps answering true
//            until the next SetTimeOut.
// Lifetime:  whether the high-precision counter takes part is read from
//            QzSysTime at SetTimeOut; before QzSysTime::Initialise only the
//            tick count does.
class QZUTIL_API QzTimeOut {
public:
    // A time-out of zero started now: HasExpired answers true.
    QzTimeOut();

    // Starts a time-out of `timeout_us` microseconds from now. Until
    // timeout_us - window_us has passed, the tick count alone answers "not
    // expired"; after that the high-precision counter decides against the
    // whole timeout_us. A window of a few tick steps keeps the coarse clock
    // from holding the wait past its end. A window at least as long as the
    // time-out leaves all to the precise clock, so SetTimeOut(0, 10000)
    // has expired at once. Without the high-precision counter the tick
    // count decides against timeout_us, to the millisecond.
    void SetTimeOut(unsigned timeout_us, unsigned window_us);

    bool HasExpired();

    // The time since SetTimeOut (or construction), in milliseconds and in
    // seconds: the tick count's reading, or the high-precision one where
    // that is later (the tick count lags by up to one of its steps) and
    // still short of the time-out.
    LtNat64 GetTimeElapsed() const;
    double GetTimeElapsedInSeconds() const;

private:
    static constexpr unsigned kTickClock = 1;
    static constexpr unsigned kPreciseClock = 2;

    double GetTickElapsedMicroseconds() const;
    double GetPreciseElapsedMicroseconds() const;
    double GetElapsedMicroseconds() const;

    LtNat64 m_tick_start;     // tick count (ms) at SetTimeOut
    LtNat64 m_tick_limit_ms;  // ticks that answer "not expired" on their own
    LtNat64 m_precise_start;  // high-precision raw count at SetTimeOut
    unsigned m_timeout_us;
    unsigned m_watching;  // kTickClock | kPreciseClock: the clocks still to ask
    bool m_has_precise_clock;
};
