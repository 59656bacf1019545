// QzSysString.h: the one formatting engine of the library, for narrow and
// 16-bit wide output, and the platform's multi-byte code page. Every Format,
// Post, Log and Trace of the library goes through these functions.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// Printf-style formatting with the conversion rules of the original platform:
// "%s" and "%c" take the width of the format itself (char in a narrow format,
// LtWChar in a wide one), "%S"/"%C" the other width, "h" forces narrow, "l"
// and "w" force wide; "I64"/"I32"/"I" size prefixes; "%p" is 16 upper-case
// hex digits; "%n" stores nothing. Numbers are delegated to the C library and
// so follow the calling thread's LC_NUMERIC. Strings that change width go
// through the multi-byte code page and never fail: bad bytes become U+FFFD,
// unmappable characters "?". A null string prints "(null)". A precision on a
// string counts output units and never splits a character; a width pads with
// blanks, on the right with '-'.
//
// Truncating contract (the growth loops of the text and error classes rely
// on it): with count above 0 the output is always nul-terminated; the result
// is the number of units written without the nul, or -1 if the output was
// cut. A count of 0 gives -1. counts are in output units.
//
// Threads: all functions are reentrant; none takes a lock.
class QZUTIL_API QzSysString {
public:
    static int Sprintf(char *buffer, std::size_t count, char const *format, ...);
    static int Vsprintf(char *buffer, std::size_t count, char const *format, va_list args);
    static int WideSprintf(LtWChar *buffer, std::size_t count, LtWChar const *format, ...);
    static int WideVsprintf(LtWChar *buffer, std::size_t count, LtWChar const *format,
                            va_list args);

    // Formats and writes to standard output in the multi-byte code page.
    // Returns the number of wide units formatted, or -1 on failure.
    static int WidePrintf(LtWChar const *format, ...);
    static int WideVprintf(LtWChar const *format, va_list args);

    // The multi-byte code page: the codeset of the calling thread's LC_CTYPE,
    // the C locale counting as UTF-8. Returns true for a UTF-8 code page.
    static bool IsMultiByteUTF8();

    // Converts multi-byte text to UTF-16. `length` is in bytes; -1 means the
    // text is nul-terminated and the nul is converted and counted too. With
    // out_count 0 nothing is written and the result is the number of units
    // needed. Returns the number of units written, or 0 on failure: invalid
    // input (always an error here), or an output too small.
    static int MultiByteToWideChar(char const *text, int length, LtWChar *out, int out_count);

    // Converts UTF-16 to multi-byte text; the same conventions. Never fails on
    // content: a lone surrogate or an unmappable character becomes "?".
    // Returns the number of bytes written, or 0 if the output is too small.
    static int WideCharToMultiByte(LtWChar const *text, int length, char *out, int out_count);
};
