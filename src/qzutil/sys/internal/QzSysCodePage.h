// QzSysCodePage.h: character-by-character conversion between UTF-16 and the
// multi-byte code page, under QzSysString's public conversions and the width
// changes of the formatting engine. Internal: never installed.
#pragma once

#include <cstddef>

#include "qzutil/frame/LtTypes.h"

// Receives one converted character: 1 or 2 UTF-16 units, or the bytes of one
// multi-byte character. Returns false to stop the conversion.
template <typename Unit>
using QzCharacterSink = bool (*)(void *context, Unit const *units, std::size_t count);

// The code page is the codeset of the calling thread's LC_CTYPE, looked up on
// every call (setlocale or uselocale may change it between calls). UTF-8 and
// the C locale's ASCII use the library's UTF-8 codec; any other codeset goes
// through iconv, and so does nothing for a codeset iconv does not know, which
// is then read and written as UTF-8.
//
// Threads:   any thread; each thread has its own iconv descriptors, opened on
//            first use of a codeset and closed when the thread ends.
// Invariant: a sink never sees part of a character, so callers may cut the
//            output between any two sink calls.
class QzSysCodePage {
public:
    // True when the code page is UTF-8 (the C locale included).
    static bool IsUTF8();

    // Decodes `length` bytes, passing each character to sink. With
    // replace_invalid, each ill-formed sequence (for UTF-8 its maximal
    // subpart, for other codesets one byte) becomes U+FFFD; without it the
    // first one stops decoding and the result is false. Returns true when the
    // input was decoded to its end or the sink stopped it.
    static bool Decode(char const *text, std::size_t length, bool replace_invalid,
                       QzCharacterSink<LtWChar> sink, void *context);

    // Encodes `length` units, passing each character's bytes to sink. Never
    // fails: a lone surrogate or a character the codeset lacks becomes "?".
    static void Encode(LtWChar const *text, std::size_t length, QzCharacterSink<char> sink,
                       void *context);

    // The length of the longest prefix of text[0, length) that does not end
    // inside a multi-byte character: where a cut at `length` must move back
    // to so as not to split one.
    static std::size_t WholeCharacterPrefix(char const *text, std::size_t length);
};
