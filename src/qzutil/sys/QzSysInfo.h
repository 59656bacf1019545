// QzSysInfo.h: facts about the machine, its system and the user: host and
// machine names, user name, a description of the operating system.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

class QzComponent;

// Class of statics; asks the system on every call and keeps nothing.
//
// Threads:  any thread.
// Lifetime: a counted component (brings up QzSysError and QzString); the
//           text results need it up, as they allocate.
class QZUTIL_API QzSysInfo {
public:
    static void Initialise();
    static void Terminate();
    static int IsInitialised();
    static QzComponent *GetComponent();

    // The host name as the kernel knows it (it may carry a domain). Returns
    // 1, or 0 with `out` empty if the system gives none; 0 for a null out.
    static int GetHostNameW(QzWideStringBuffer *out);
    // The machine's short name: the host name up to its first ".", in
    // UTF-8. Results as GetHostNameW.
    static int GetMachineName(QzStringBuffer *out);
    // The login name of the process's real user from the password database,
    // else $USER. Results as GetHostNameW.
    static int GetUserNameW(QzWideStringBuffer *out);
    // "Linux <kernel release> <machine>", then ", " and the distribution's
    // PRETTY_NAME where /etc/os-release (or /usr/lib/os-release) has one:
    // "Linux 6.1.0-18-amd64 x86_64, Debian GNU/Linux 12 (bookworm)". Returns
    // 1, or 0 with `out` empty if the kernel does not answer.
    static int GetOSDescription(QzStringBuffer *out);
    // The hardware generation of the machine: always 0 here, which callers
    // read as "no special generation".
    static int GetMachineGenerationNum();

private:
    static QzComponent m_component;
};
