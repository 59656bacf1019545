// QzSysProcess.h: the few process services that the frame needs below the
// file and time classes: raw output, immediate exit, debugger, ids, clocks.
// Internal: never installed.
#pragma once

#include <cstddef>

#include "qzutil/frame/LtTypes.h"

// Class of statics over the operating system. All are async-signal-safe
// unless noted, so the fatal tail may use them.
class QzSysProcess {
public:
    // Writes all bytes to standard output with write(2), looping over short
    // writes; errors are ignored (there is nowhere to report them).
    static void WriteStandardOutput(char const *text, std::size_t length);

    // Ends the process at once with `code`: no destructor, no atexit handler,
    // no stdio flush.
    [[noreturn]] static void ExitImmediately(int code);

    // abort(): the process dies by SIGABRT.
    [[noreturn]] static void AbortProcess();

    // True when a tracer (debugger) is attached to the process.
    static bool IsDebuggerAttached();

    // Stops in the attached debugger (SIGTRAP). Call only when attached.
    static void BreakIntoDebugger();

    // The kernel id of the calling thread.
    static int GetCurrentThreadId();

    static int GetProcessId();

    // The path of the running executable (UTF-8 as the kernel keeps it),
    // nul-terminated in out. Returns its length, or 0 when it is unknown or
    // longer than capacity - 1 (out is then "").
    static std::size_t GetExecutablePath(char *out, std::size_t capacity);

    // Milliseconds of a monotonic clock that never wraps (coarse: a few ms
    // of resolution). The library's tick count.
    static LtNat64 GetTickCount();

    // Hour, minute and second of the present time in UTC.
    static void GetUtcClock(int *hour, int *minute, int *second);
};
