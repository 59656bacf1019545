// QzTime.h: a point on the process's interval clock, for measuring and
// scheduling in seconds. Not a calendar time: see QzSysTime for those.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// A reading of the interval clock held in nanoseconds. The clock is the
// high-precision counter when QzSysTime has it in use (the preferred
// choice), else the low-precision one; Initialise makes the choice once.
// Readings are comparable only with readings of the same initialisation.
//
// Ownership: a plain value; copy freely.
// Threads:   the statics may run on any thread once Initialise is done; an
//            object belongs to one thread at a time.
// Lifetime:  a counted component over QzError and QzSysTime. Before
//            Initialise, readings come from the low-precision counter.
class QZUTIL_API QzTime {
public:
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // The clock's origin, which is no particular time of day.
    QzTime() : m_nanoseconds(0) {}

    // Sets this to the present reading.
    void MakeTimeOfDay();
    // The present reading.
    static QzTime GetTimeOfDay();

    // Moves the point by `seconds`, rounded to the nanosecond; negative
    // moves it back.
    void Inc(double seconds);
    QzTime &operator+=(double seconds);
    QzTime &operator-=(double seconds);
    QzTime operator+(double seconds) const;
    QzTime operator-(double seconds) const;

    // Seconds from `earlier` to this point; negative when `earlier` is later.
    double operator-(QzTime const &earlier) const;

private:
    LtInt64 m_nanoseconds;  // since the clock's origin
};
