// QzWideTextFromNarrow.h: the one frame of the SetFrom...String operations of
// QzWideString and QzWideStringBuffer. Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/text/QzWideStringBuffer.h"

// A conversion of 8-bit text into a wide buffer: 1 on success, else 0 with
// a complaint in the buffer (QzString::MultiToWideString and kin).
using QzNarrowToWide = int (*)(char const *text, QzWideStringBuffer *out);

// Converts `text` through a scratch buffer and gives `target` the result,
// the complaint of a failed conversion included; returns the conversion's
// result. The target's own pointer gives 1 at once, a null text makes the
// target null and gives 1.
template <typename Target>
int QzSetWideFromNarrow(Target &target, char const *text, QzNarrowToWide convert)
{
    if (static_cast<void const *>(text) == static_cast<void const *>(target.GetString()))
        return 1;
    if (text == nullptr) {
        target.SetString(static_cast<LtWChar const *>(nullptr));
        return 1;
    }
    QzWideStringBuffer scratch;
    int result = convert(text, &scratch);
    target.SetString(scratch);
    return result;
}
