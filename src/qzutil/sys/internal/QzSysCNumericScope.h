// QzSysCNumericScope.h: a scope in which the calling thread formats and scans
// numbers in the "C" locale. Internal: never installed.
#pragma once

// Switches the calling thread (only) to a cached "C" locale for its lifetime
// and restores the thread's previous locale on destruction, so that numbers
// written for files and streams always use "." whatever the user's locale.
//
// Threads:   affects the constructing thread only; other threads keep their
//            locale. Destroy on the thread that constructed it.
// Ownership: neither copyable nor movable; use as a local.
class QzSysCNumericScope {
public:
    QzSysCNumericScope();
    ~QzSysCNumericScope();
    QzSysCNumericScope(QzSysCNumericScope const &) = delete;
    QzSysCNumericScope &operator=(QzSysCNumericScope const &) = delete;

private:
    void *m_previous;  // the thread's locale before the switch; null if none was made
};
