// QzHexDigits.h: hexadecimal digits for the text codecs (STEP, 7-bit and
// byte encodings), written and read without the C library's formatting.
// Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"

inline constexpr char kUpperHexDigits[] = "0123456789ABCDEF";

// The value of 0-9 or A-F, or -1 for any other character, lower case too.
inline int UpperHexDigitValue(int character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

// The value of 0-9, A-F or a-f, or -1.
inline int HexDigitValue(int character)
{
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return UpperHexDigitValue(character);
}

// Appends `value` as `digits` upper-case digits, most significant first, as
// "%0<digits>X" would for a value that fits.
template <typename Buffer>
void AppendUpperHex(Buffer *out, LtNat32 value, int digits)
{
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
        out->Append(kUpperHexDigits[(value >> shift) & 0xF]);
}
