// QzSysFP.h: which floating-point exceptions trap on the calling thread,
// the raised-exception flags, and scope guards that change the traps.
#pragma once

#include "qzutil/frame/QzExport.h"

// Class of statics over the calling thread's floating-point environment.
// Masks are the library's own bits (eINVALID ... eINEXACT), whatever the
// hardware's layout. "Enabled" means trapping: an enabled exception ends
// the operation with SIGFPE instead of producing an infinity or NaN. The
// process starts with every trap disabled; a new thread inherits the traps
// of the thread that made it.
//
// Threads: each thread has its own environment; the calls touch only the
//          calling thread's.
class QZUTIL_API QzSysFP {
public:
    // Part of stored settings: the values never change.
    enum Exception : unsigned {
        eINVALID = 0x01,
        eDENORMAL = 0x02,  // an operand was subnormal
        eZERO_DIVIDE = 0x04,
        eOVERFLOW = 0x08,
        eUNDERFLOW = 0x10,
        eINEXACT = 0x20,
        eALL = 0x3F,
    };

    // The exceptions that trap now.
    static unsigned GetEnabledExceptions();
    // Makes exactly `mask` trap; bits outside eALL are ignored. Returns
    // false, changing nothing, where the processor cannot trap an exception
    // of the mask (arm64 cores as a rule).
    static bool SetEnabledExceptions(unsigned mask);
    // Adds `mask` to the trapping exceptions. Failure as above.
    static bool EnableExceptions(unsigned mask);
    // Stops `mask` trapping. Always possible: true.
    static bool DisableExceptions(unsigned mask);
    // Clears every raised exception flag.
    static void ClearExceptions();
    // The state of a new thread: flags cleared, nothing trapping.
    static void Reset();
};

// Changes the calling thread's traps for one scope and puts the earlier
// ones back on destruction. When that makes an exception trap again, every
// raised flag is cleared first: a flag left from inside the scope must not
// be taken for an exception of the code after it (x87 traps a pending flag
// at its next instruction).
//
// Threads:   the constructing thread's environment only; destroy there.
// Ownership: neither copyable nor movable; use as a local.
class QZUTIL_API QzFPExceptionModifier {
public:
    // A fixed type: any int may arrive; values outside the list are refused.
    enum ModificationMode : int {
        eENABLE = 0,   // `mask` traps too
        eDISABLE = 1,  // `mask` stops trapping
        eSET = 2,      // exactly `mask` traps
    };

    QzFPExceptionModifier(unsigned mask, ModificationMode mode);
    ~QzFPExceptionModifier();
    QzFPExceptionModifier(QzFPExceptionModifier const &) = delete;
    QzFPExceptionModifier &operator=(QzFPExceptionModifier const &) = delete;

    // False if the processor refused the change (the traps are then as
    // before) or the mode was unknown.
    bool IsApplied() const { return m_is_applied; }

private:
    unsigned m_previous;  // the traps before the scope, library bits
    bool m_is_applied;
};

// Stops `mask` trapping for one scope: for code that divides by zero or
// overflows on purpose and checks its results.
class QZUTIL_API QzFPExceptionDisabler : public QzFPExceptionModifier {
public:
    explicit QzFPExceptionDisabler(unsigned mask) : QzFPExceptionModifier(mask, eDISABLE) {}
};
