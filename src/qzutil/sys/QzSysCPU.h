// QzSysCPU.h: the processors the process may run on, what they are, and
// which instruction sets they offer.
#pragma once

#include "qzutil/frame/QzExport.h"

class QzStringBuffer;

// Class of statics; asks the system on every call.
//
// Threads: any thread.
class QZUTIL_API QzSysCPU {
public:
    // Processors this process may run on (its affinity mask, so cpusets and
    // taskset count), else those online; at least 1.
    static int GetNumProcessors();
    // The model of processor `cpu` (numbered from 0 as the kernel does):
    // the model name on x86-64, "implementer 0x41 part 0xd0c" on arm64.
    // Returns 1, or 0 with `out` empty for an unknown processor or when
    // the kernel does not say; 0 for a null out.
    static int GetCPUDescription(int cpu, QzStringBuffer *out);
    // The highest clock of processor `cpu` in MHz (from the frequency
    // driver, else the kernel's present reading), or 0 if unknown.
    static int GetCPUSpeed(int cpu);
    // Instruction set extensions: SSE2, SSE4.2 and NEON (Advanced SIMD).
    static bool SupportsSSE2();
    static bool SupportsSSE4();
    static bool SupportsNEON();
};
