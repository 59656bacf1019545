// QzSysStringUnits.h: what QzSysString's narrow and wide families need to
// know about one text unit, so that each operation is written once as a
// template over the unit. Internal: never installed.
#pragma once

#include <cctype>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/sys/internal/QzSysWideCType.h"

// Classification, case folding and the numeric value of one unit.
// Narrow units follow the process locale's <cctype> tables, taken as
// unsigned bytes (a plain char above 0x7F is negative, which <cctype> may
// not be given); wide units follow the fixed "C.UTF-8" rules of
// QzSysWideCType, so their answers do not depend on the process locale.
//
// Threads: stateless; any thread.
template <typename Unit>
struct QzStringUnits;

template <>
struct QzStringUnits<char> {
    static LtNat32 Code(char unit) { return static_cast<unsigned char>(unit); }
    static bool IsSpace(char unit) { return std::isspace(static_cast<unsigned char>(unit)) != 0; }
    static bool IsDigit(char unit) { return std::isdigit(static_cast<unsigned char>(unit)) != 0; }
    static bool IsAlpha(char unit) { return std::isalpha(static_cast<unsigned char>(unit)) != 0; }
    static LtNat32 Folded(char unit)
    {
        return static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(unit)));
    }
};

template <>
struct QzStringUnits<LtWChar> {
    static LtNat32 Code(LtWChar unit) { return unit; }
    static bool IsSpace(LtWChar unit) { return QzSysWideCType::IsSpace(unit); }
    static bool IsDigit(LtWChar unit) { return QzSysWideCType::IsDigit(unit); }
    static bool IsAlpha(LtWChar unit) { return QzSysWideCType::IsAlpha(unit); }
    static LtNat32 Folded(LtWChar unit) { return QzSysWideCType::ToLower(unit); }
};
