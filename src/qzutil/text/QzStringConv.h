// QzStringConv.h: the text codecs beside the string classes: the string
// encoding of STEP (ISO 10303-21) files, and a reversible 7-bit form of
// UTF-16 text.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzComponent;
class QzStringBuffer;
class QzWideStringBuffer;

// Stateless conversions between 8-bit and UTF-16 text.
//
// Threads:   all reentrant; each call touches only its own output buffer.
// Lifetime:  a counted component; Initialise brings up QzString, whose
//            allocator the output buffers need.
class QZUTIL_API QzStringConv {
public:
    static void Initialise();
    static void Terminate();
    static int IsInitialised();
    static QzComponent *GetComponent();

    // Decodes a STEP string body (without its enclosing apostrophes) into
    // `out`, which is emptied first. Bytes outside 32 to 126 are skipped
    // wherever they stand. Plain characters, and the bytes of "\X\hh", read
    // as ISO 8859-1; "\S\c" is the character of byte c + 0x80 in the current
    // part of ISO 8859, chosen by "\PA\" (part 1, the start) to "\PP\" (part
    // 16); "\X2\" starts groups of four digits, one UTF-16 unit each, and
    // "\X4\" groups of eight, one code point each (a surrogate pair above
    // U+FFFF), until a backslash; "\X0\" ends such groups. Digits are 0-9
    // and A-F only. Any other character after a backslash outside the
    // groups is dropped with the backslash (so is a doubled backslash).
    // A nul, and a character a part leaves unassigned, add nothing.
    //
    // Returns true, or false for an ill-formed escape: a lower-case or other
    // non-digit, an incomplete group (also at the end of the text), a page
    // letter beyond P, a missing closing backslash, "\X" followed by
    // anything but "\", "2\", "4\" or "0\", a backslash in a group that
    // does not start one of those, or a code point above U+10FFFF. On false
    // `out` keeps what was decoded before the fault. A null text releases
    // `out` and gives true; a null `out` gives false.
    static bool STEPToWide(char const *text, QzWideStringBuffer *out);

    // Writes each unit of `text` into `out` (replacing its content): a unit
    // outside 32 to 126 as "/" and four upper-case digits ("/00E9"), "/" as
    // "//", the others as themselves. The result is 7-bit text of blanks
    // and printable characters only. A null text releases `out`; a null
    // `out` is ignored.
    static void EncodeWideTo7BitAscii(LtWChar const *text, QzStringBuffer *out);
    // The reverse. After "/" must come a second "/" or four digits 0-9, A-F
    // (lower case refused) giving a non-zero unit; every other byte stands
    // for the unit of its value. Returns true, or false for a malformed "/"
    // sequence, with `out` holding what was decoded before it. A null text
    // releases `out` and gives true; a null `out` gives false.
    static bool DecodeWideFrom7BitAscii(char const *text, QzWideStringBuffer *out);

private:
    static QzComponent m_component;
};
