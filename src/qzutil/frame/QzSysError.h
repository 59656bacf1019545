// QzSysError.h: the bottom of error handling: the handler tables and the
// ladder that offers a posted message to them, the in-memory log, and the
// fatal tail. Works before any component is initialised.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzComponent;
struct QzSavedCrashHandlers;  // the platform's saved handler state, opaque here

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

    // The log file. Switching it on opens (creating or truncating) the log
    // file path if one is set, else "<dir>/<process name>.txt" in the log
    // directory, and replays the log into it; each later text is written
    // through at once (no buffering). With neither path nor directory, or a
    // file that cannot be opened, the switch stays off. The process name is
    // the executable's name without folder and extension, then the process
    // id and a tick count. Paths are copied with malloc, so they do not
    // depend on QzMemory; Get* give that copy (valid until the next Set*) or
    // null. SetLogFile and SetLogDir reopen the file if it was on.
    static void SetLogFileEnable(int on);
    static int IsLogFileEnable();
    static void SetLogFile(LtWChar const *path);
    static LtWChar const *GetLogFile();
    static void SetLogDir(LtWChar const *directory);
    static LtWChar const *GetLogDir();

    // Called with the dump path before a crash dump; 0 vetoes the dump.
    using PreDumpCallback = int (*)(LtWChar const *path);
    // Called with the dump path once the dump is written.
    using PostDumpCallback = void (*)(LtWChar const *path);
    // Asked again and again for one more block of memory to put in the dump
    // (its address and size in bytes) until it answers 0.
    using DumpMemoryCallback = int (*)(void **block, unsigned *size);
    // Dump flag bit 1: the memory callback's blocks stay out of the dump.
    static constexpr unsigned kDumpFlagNoCallbackMemory = 0x2;

    // With a non-empty path (at most 4,095 bytes in UTF-8), a crash of the
    // process (SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, or
    // std::terminate) writes a dump there: RequestDebugBreak, then `pre`
    // (a 0 vetoes), the dump with the log if include_log, `post`, and
    // ForceExit(4). Without a dump the crash meets the system's default
    // action. The calling thread gets an alternate signal stack, so a stack
    // overflow on it is dumped too. A null or empty path (or one too long)
    // ends dumping and puts back the handlers found at installation.
    static void SetDumpOnUnhandledException(LtWChar const *path, int include_log, unsigned flags,
                                            PreDumpCallback pre, PostDumpCallback post,
                                            DumpMemoryCallback memory);
    static int IsDumpOnUnhandledException();
    // The dump path; "" when there is none.
    static LtWChar const *DumpPath();
    // Writes a dump of the calling thread, which runs on: no callback, signal
    // number 0. Under the log lock. Failures are silent.
    static void WriteDump(LtWChar const *path, int include_log, unsigned flags);
    // Prints a dump's system line, then each log part after "\n\nLog Part
    // <n>\n" (n from 0), through `print`, whose text is valid during the
    // call only. Returns 1, or 0 (with an eWARNING post that says why) when
    // the file is not a whole dump, its system record is not 56 bytes, or it
    // has no log.
    static int ReadDump(LtWChar const *path, LogOutput print, void *data);
    // Dumps to `path` with the log, flags 0, a pre-dump callback that allows
    // and a post-dump callback that ends the process with exit code 4.
    static void ConfigureForUnitTests(LtWChar const *path);
    // Calls function(data); an exception that escapes it runs the fatal tail.
    static void AbortOnException(void (*function)(void *), void *data);

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

    // The fatal tail: RequestDebugBreak, then with a dump path a dump (the
    // crash path above, as a SIGABRT) and ForceExit(4), otherwise (or when
    // no dump is made) abort(). Never returns.
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

// Keeps the crash handlers of the process (the actions of the fatal signals
// and the terminate handler) as they were at construction, and puts them
// back at destruction, whatever was installed in between.
//
// Ownership: holds the saved state; neither copyable nor movable.
// Threads:   construct and destroy on one thread; the handlers are process-wide.
class QZUTIL_API QzSysExceptionFilterProtector {
public:
    QzSysExceptionFilterProtector();
    ~QzSysExceptionFilterProtector();
    QzSysExceptionFilterProtector(QzSysExceptionFilterProtector const &) = delete;
    QzSysExceptionFilterProtector &operator=(QzSysExceptionFilterProtector const &) = delete;

private:
    QzSavedCrashHandlers *m_saved;  // owned; null if it could not be saved
};
