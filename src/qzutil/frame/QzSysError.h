// QzSysError.h: the bottom of error handling: the handler tables and the
// ladder that offers a posted message to them, the in-memory log, and the
// fatal tail. Works before any component is initialised.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzComponent;

// Class of statics over process-wide state that is all zero at load.
//
// Threads: the log lock guards the log, handler changes and component
//          lookups once Initialise has created it; before that (and after
//          the last Terminate) everything runs unlocked, single-threaded.
//          The ladder reads the handler tables without a lock, and handlers
//          run with no lock held, so a handler may post again.
class QZUTIL_API QzSysError {
public:
    // A fixed underlying type: any int may be posted, and values outside
    // the list are handled as unknown.
    enum Severity : int {
        eANY = -1,  // a key in the handler tables only: any severity
        eERROR = 0,
        eWARNING = 1,
        ePRECONDITION = 2,
        eASSERT = 3,
        eDEBUG = 4,
        eINFO = 5,  // logged without a severity word
    };

    // (severity, component, id, data, message). Non-zero means the handler
    // took the message. The message is valid only during the call.
    using Handler = int (*)(Severity severity, QzComponent *component, int id, void *data,
                            LtWChar const *message);

    // The user-level global handler: the message comes before the user data
    // given at SetGlobalHandler, which stands in for the posted data.
    using GlobalHandler = int (*)(Severity severity, QzComponent *component, int id,
                                  LtWChar const *message, void *user_data);

    // Writes the log line of a post; QzError installs its formatter here.
    using LogPostCallback = void (*)(Severity severity, QzComponent *component, int id, void *data,
                                     LtWChar const *message);

    using LogOutput = void (*)(char const *text, void *data);
    using VoidCallback = void (*)();
    using ExitCallback = void (*)(int code);

    // The component of this class: the first registered, the last released.
    // Its last Terminate reports every component still initialised.
    static void Initialise();
    static void Terminate();
    static int IsInitialised();
    static QzComponent *GetComponent();

    // The list of initialised components in order of first registration.
    static QzComponent *GetFirstComponent();
    static QzComponent *GetLastComponent();
    // The first listed component of that name, or null.
    static QzComponent *FindComponent(char const *name);

    // Handler tables. A key is (severity, component, id): severity eANY for
    // any severity, a null component for any component, id -1 for any id.
    // With a component and an id other than -1 the severity is ignored.
    static void SetHandler(Handler handler, Severity severity, QzComponent *component, int id);
    static void SetHandler(Handler handler, Severity severity, char const *component_name, int id);
    static Handler GetHandler(Severity severity, QzComponent *component, int id);
    // The address of the slot of that key, or null when a by-id key has no
    // record. *prev is the record ahead of the slot for by-id keys, else null;
    // on a miss it is the list head, ready for insertion.
    static Handler *FindHandler(Severity severity, QzComponent *component, int id, void *&prev);
    static Handler RemoveHandler(Severity severity, QzComponent *component, int id);
    static void RemoveHandler(Severity severity, char const *component_name, int id);
    static void SetGlobalHandler(GlobalHandler handler, void *user_data);
    static GlobalHandler GetGlobalHandler();
    static void *GetGlobalHandlerData();

    // Logs the message and offers it to the handlers, most specific first;
    // rungs above `level` are skipped. Unless a handler takes it, eERROR,
    // ePRECONDITION, eASSERT and unknown severities run the fatal tail.
    static void PostFixed(Severity severity, QzComponent *component, int id, void *data, int level,
                          LtWChar const *message);
    static void PostWideString(Severity severity, QzComponent *component, int id, void *data,
                               LtWChar const *message);
    static void PostWideString(Severity severity, QzComponent *component, LtWChar const *message);
    static void SetLogPostWideStringCB(LogPostCallback callback);

    // The log: two static regions of 524,288 bytes, the first keeping the
    // start of the run and the second wrapping to keep its end. Texts are
    // UTF-8. LogUTF8String allocates nothing; a null text logs "(null)", a
    // text of 524,288 bytes or more is refused with "Too long to log".
    static constexpr unsigned kLogRegionSize = 0x80000;
    static void LogUTF8String(char const *text);
    // Replays the log through `output`: head, a gap marker if the second
    // region wrapped, tail. Under the log lock; output must not log.
    static void OutputLogBuffer(LogOutput output, void *data);
    static void ClearLogBuffer();

    // The console (standard output): SetConsoleEnable also switches component
    // logging, and its first switch-on replays the log there.
    static void SetConsoleEnable(int on);
    static void SetComponentConsoleEnable(int on);
    static int IsConsoleEnable();
    static int IsComponentConsoleEnable();

    // Tracing: a call at `level` passes while tracing is enabled and the
    // trace level is at least `level`. Flag bits: 0 the level, 1 the source
    // position, 2 the thread id, 3 the UTC time.
    static void SetTraceEnable(int on);
    static int IsTraceEnable();
    static void SetTraceLevel(int level);
    static int GetTraceLevel();
    static void SetTraceFlag(int flag);
    static int GetTraceFlag();
    static bool ShouldTrace(int level);

    // The fatal tail: RequestDebugBreak, then abort(). Never returns.
    [[noreturn]] static void Abort();
    // Calls the force-exit callback (anything it throws is caught), then ends
    // the process at once with `code`: no destructor or atexit handler runs.
    [[noreturn]] static void ForceExit(int code);
    // Calls the clean-exit callback, then ForceExit(code).
    [[noreturn]] static void ForceCleanExit(int code);
    // The debug-break callback if set; else a break if a debugger is
    // attached, nothing if not.
    static void RequestDebugBreak();
    static void SetDebugBreakCB(VoidCallback callback);
    static void SetForceExitCB(ExitCallback callback);
    static void SetForceCleanExitCB(ExitCallback callback);
};
