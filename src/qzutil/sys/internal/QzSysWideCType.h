// QzSysWideCType.h: classification and case of single UTF-16 units, the same
// in every process whatever its locale. Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"

// Class of statics over one process-wide "C.UTF-8" character-type locale
// ("C" where that locale is missing), made on first use and never freed.
//
// A unit is taken as the code point of the same value. A surrogate unit is no
// letter, digit or space and maps to itself; a case mapping that would leave
// the BMP or land on a surrogate is ignored, so a mapped unit always stands
// for one code point by itself.
// Threads: every function may be called from any thread.
class QzSysWideCType {
public:
    static bool IsSpace(LtWChar unit);
    static bool IsDigit(LtWChar unit);
    static bool IsAlpha(LtWChar unit);
    static LtWChar ToLower(LtWChar unit);
    static LtWChar ToUpper(LtWChar unit);
};
