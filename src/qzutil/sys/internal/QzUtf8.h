// QzUtf8.h: the library's strict UTF-8 codec and the UTF-16 surrogate rules,
// shared by the multi-byte code page and the formatting engine.
// Internal: never installed.
#pragma once

#include <cstddef>

#include "qzutil/frame/LtTypes.h"

// One character at a time between UTF-8 bytes and Unicode scalar values.
// Decoding accepts exactly the well-formed sequences of Unicode: no overlong
// forms, no encoded surrogates, nothing above U+10FFFF. Where an ill-formed
// sequence is replaced, its maximal subpart (the longest prefix that could
// still have become a character) counts as one error, so "E2 82 41" gives
// U+FFFD then "A", the usual practice of decoders.
//
// Threads: stateless; any thread.
class QzUtf8 {
public:
    static constexpr int kMaxSequenceBytes = 4;

    // Decodes the character that starts at text[0]; `length` (at least 1)
    // bytes are readable. Returns its length in bytes with *code_point set,
    // or, for an ill-formed sequence, minus the length of its maximal subpart
    // (1 to 3) with *code_point untouched. A sequence cut by the end of the
    // input is ill-formed.
    static int DecodeCharacter(char const *text, std::size_t length, LtNat32 *code_point);

    // Writes the form of a scalar value (not a surrogate, at most U+10FFFF)
    // to out, which has room for kMaxSequenceBytes. Returns the byte count.
    static int EncodeCharacter(LtNat32 code_point, char *out);

    // The number of bytes (0 to 3) at the end of text[0, length) that start a
    // well-formed sequence but end before it does: what a cut at `length`
    // would split off a character.
    static std::size_t IncompleteTailLength(char const *text, std::size_t length);
};

// UTF-16 pairing rules. A surrogate that is not part of a high-low pair is
// "lone"; converters turn it into "?".
//
// Threads: stateless; any thread.
class QzUtf16 {
public:
    static constexpr int kMaxCharacterUnits = 2;

    static bool IsHighSurrogate(LtNat32 unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
    static bool IsLowSurrogate(LtNat32 unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
    static bool IsSurrogate(LtNat32 unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

    // Units (1 or 2) of the character at text[0]; `length` (at least 1) units
    // are readable. A lone surrogate counts as a character of one unit.
    static int CharacterUnits(LtWChar const *text, std::size_t length)
    {
        return length >= 2 && IsHighSurrogate(text[0]) && IsLowSurrogate(text[1]) ? 2 : 1;
    }

    // The scalar value of a high-low pair.
    static LtNat32 CombinePair(LtNat32 high, LtNat32 low)
    {
        return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
    }

    // Writes a scalar value as 1 or 2 units to out (room for 2); returns the
    // unit count.
    static int EncodeCharacter(LtNat32 code_point, LtWChar *out)
    {
        if (code_point < 0x10000) {
            out[0] = static_cast<LtWChar>(code_point);
            return 1;
        }
        LtNat32 offset = code_point - 0x10000;
        out[0] = static_cast<LtWChar>(0xD800 + (offset >> 10));
        out[1] = static_cast<LtWChar>(0xDC00 + (offset & 0x3FF));
        return 2;
    }
};
