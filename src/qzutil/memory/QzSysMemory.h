// QzSysMemory.h: the platform's virtual memory as the allocator sees it.
#pragma once

#include "qzutil/frame/QzExport.h"

// Class of statics. Initialise reads the system page size and the
// allocation granularity (the region size: the larger of 64 KiB and the
// page size) once; the getters are valid while the component is up.
//
// Threads: Initialise and Terminate on the start-up thread; the getters
//          from any thread.
class QZUTIL_API QzSysMemory {
public:
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // Bytes; 0 before Initialise.
    static unsigned GetPageSize();
    static unsigned GetRegionSize();
};
