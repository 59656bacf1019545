// QzFrameState.h: the process-wide state shared by QzComponent, the handler
// ladder and the log. Internal: never installed.
#pragma once

#include <cstdio>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/sys/QzSysLock.h"

class QzComponent;
struct QzDumpLogPart;

// Zero at load (a global of this type has no constructor), so that logging
// and the component list work before anything is initialised.
//
// Threads: list links and counts change on the start-up thread only; the
//          handler tables change under the log lock once lock_ready is set.
struct QzFrameState {
    QzSysLock log_lock;
    bool lock_ready;         // set by QzSysError::Initialise, cleared by its last Terminate
    int self_initialising;   // non-zero while QzSysError registers its own component
    bool component_logging;  // "Init: "/"Term: " lines
    bool console;            // log writes also go to standard output
    bool console_made;       // the console has had its replay
    std::FILE *log_stream;   // the open log file, unbuffered; null when off
    QzComponent *first;      // the list of initialised components
    QzComponent *last;

    QzSysError::Handler global_handler;        // any severity, no component
    QzSysError::Handler severity_handlers[6];  // severity 0 to 5, no component
    QzSysError::GlobalHandler user_global_handler;
    void *user_global_data;
    QzSysError::LogPostCallback log_post;

    QzSysError::VoidCallback debug_break;
    QzSysError::ExitCallback force_exit;
    QzSysError::ExitCallback clean_exit;

    int trace_enable;
    int trace_level;
    int trace_flag;
};

extern QzFrameState g_frame;

// Takes the log lock for one scope when the lock exists; before
// QzSysError::Initialise (single-threaded by contract) it does nothing.
class QzLogLockScope {
public:
    QzLogLockScope() : m_locked(g_frame.lock_ready)
    {
        if (m_locked)
            g_frame.log_lock.Lock();
    }
    ~QzLogLockScope()
    {
        if (m_locked)
            g_frame.log_lock.Unlock();
    }
    QzLogLockScope(QzLogLockScope const &) = delete;
    QzLogLockScope &operator=(QzLogLockScope const &) = delete;

private:
    bool m_locked;
};

// Writes the "Init: "/"Term: " line of a component: prefix, name, and with
// info " (<info>)\n"; without info no line end.
void QzLogComponentLine(char const *prefix, char const *name, char const *info);

// Replays the log through `output` with the log lock already held (or not
// needed).
void QzReplayLogLocked(QzSysError::LogOutput output, void *data);

// The three log parts that a dump carries: the first region's text ("Empty
// Log\n" if it has none); the old text of the second region behind the write
// position, up to where it wrapped; the second region's text up to the
// position. Each points into the log and ends in its nul. Reads the log
// without the lock (the crash handler may not take it), so the caller holds
// the lock or runs in the crash path.
void QzGetLogPartsForDump(QzDumpLogPart parts[3]);
