// QzSysNetwork.h: whether the wide-area network can be reached.
#pragma once

#include "qzutil/frame/QzExport.h"

// Class of statics; a counted component with no dependencies.
//
// Threads: any thread.
class QZUTIL_API QzSysNetwork {
public:
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // True: the platform offers no cheap, reliable test, and a false "no"
    // would stop downloads that would have worked. Transfers report their
    // own failures.
    static bool IsWANReachable();
};
