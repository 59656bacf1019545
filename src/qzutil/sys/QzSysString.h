// QzSysString.h: the one formatting engine of the library, for narrow and
// 16-bit wide output, the platform's multi-byte code page, and the bounded
// C-string operations, number conversions and ASCII conversions beneath the
// text classes. Every Format, Post, Log and Trace of the library goes
// through the formatting functions.
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

    // Bounded text, narrow and wide. Lengths and sizes count units (bytes,
    // or 16-bit units for the Wide forms). A null text reads as empty in
    // lengths, copies and comparisons, and finds nothing in searches.
    //
    // Copying contract: `size` is the destination's room in units, nul
    // included, and nothing is ever written past it. With size above 0 the
    // destination is always nul-terminated; what does not fit is cut off
    // (after a whole unit, which may split a surrogate pair or a multi-byte
    // character). The result is the destination's new length without the
    // nul, or -1 if the text was cut; a size of 0, or a null destination,
    // gives -1 and writes nothing. Room beyond INT_MAX units is not used, so
    // that a length always fits the result. Source and destination must not
    // overlap. A Strcat whose destination has no nul within `size` finds no
    // room: it stores a nul in the last unit and gives -1. The "n" forms take
    // at most `count` units of the source; unlike the C library they never
    // pad the destination with nuls.
    static std::size_t Strlen(char const *text);
    static std::size_t Strnlen(char const *text, std::size_t max_count);
    static int Strcpy(char *dest, std::size_t size, char const *source);
    static int Strncpy(char *dest, std::size_t size, char const *source, std::size_t count);
    static int Strcat(char *dest, std::size_t size, char const *source);
    static int Strncat(char *dest, std::size_t size, char const *source, std::size_t count);

    // Comparisons give a negative number, 0 or a positive number as `a`
    // sorts before, with or after `b`, comparing unsigned units. The "i"
    // forms compare lower-cased units: narrow by the process locale's
    // tolower, wide by the fixed rules of the wide classification. The "n"
    // forms look at no more than `count` units.
    static int Strcmp(char const *a, char const *b);
    static int Strncmp(char const *a, char const *b, std::size_t count);
    static int Stricmp(char const *a, char const *b);
    static int Strnicmp(char const *a, char const *b, std::size_t count);

    // Searches return a pointer into `text`, or null when nothing is found.
    // Looking for the nul finds the terminator; an empty needle is found at
    // the start.
    static char const *Strchr(char const *text, char unit);
    static char const *Strrchr(char const *text, char unit);
    static char const *Strstr(char const *text, char const *needle);

    // A copy of text in memory from malloc, or null for a null text or when
    // memory runs out. The caller owns it and releases it with FreeString
    // (this layer stands below the library's allocator).
    static char *Strdup(char const *text);
    static LtWChar *WideStrdup(LtWChar const *text);
    static void FreeString(char *text);
    static void FreeString(LtWChar *text);

    // The system's message for an errno value, copied into buffer under the
    // copying contract (a long message is cut). Returns buffer, or "" when
    // size is 0. Safe on any thread, unlike strerror.
    static char const *Strerror(int error_number, char *buffer, std::size_t size);

    // Raw memory. The copies and the fill write `count` bytes (units for the
    // Wide forms) into a destination of `size`; when count exceeds size, or
    // a pointer is null while count is above 0, nothing is written and the
    // result is false. Memmove allows overlap, Memcpy does not. Memcmp
    // compares unsigned bytes (wide: units) and gives the sign as Strcmp.
    static bool Memcpy(void *dest, std::size_t size, void const *source, std::size_t count);
    static bool Memmove(void *dest, std::size_t size, void const *source, std::size_t count);
    static bool Memset(void *dest, std::size_t size, int value, std::size_t count);
    static int Memcmp(void const *a, void const *b, std::size_t count);

    // Narrow classification by the process locale; Is7BitAscii is true when
    // no byte of text is above 0x7F (and for a null text).
    static bool IsAlpha(char unit);
    static bool IsDigit(char unit);
    static bool IsSpace(char unit);
    static bool Is7BitAscii(char const *text);

    // The wide family: the same contracts on LtWChar units.
    static std::size_t WideStrlen(LtWChar const *text);
    static std::size_t WideStrnlen(LtWChar const *text, std::size_t max_count);
    static int WideStrcpy(LtWChar *dest, std::size_t size, LtWChar const *source);
    static int WideStrncpy(LtWChar *dest, std::size_t size, LtWChar const *source,
                           std::size_t count);
    static int WideStrcat(LtWChar *dest, std::size_t size, LtWChar const *source);
    static int WideStrncat(LtWChar *dest, std::size_t size, LtWChar const *source,
                           std::size_t count);
    static int WideStrcmp(LtWChar const *a, LtWChar const *b);
    static int WideStrncmp(LtWChar const *a, LtWChar const *b, std::size_t count);
    static int WideStricmp(LtWChar const *a, LtWChar const *b);
    static int WideStrnicmp(LtWChar const *a, LtWChar const *b, std::size_t count);
    static LtWChar const *WideStrchr(LtWChar const *text, LtWChar unit);
    static LtWChar const *WideStrrchr(LtWChar const *text, LtWChar unit);
    static LtWChar const *WideStrstr(LtWChar const *text, LtWChar const *needle);
    static bool WideMemcpy(LtWChar *dest, std::size_t size, LtWChar const *source,
                           std::size_t count);
    static bool WideMemmove(LtWChar *dest, std::size_t size, LtWChar const *source,
                            std::size_t count);
    static bool WideMemset(LtWChar *dest, std::size_t size, LtWChar value, std::size_t count);
    static int WideMemcmp(LtWChar const *a, LtWChar const *b, std::size_t count);

    // Wide classification: the unit as a code point under fixed "C.UTF-8"
    // rules, whatever the process locale; a surrogate is none of these.
    static bool WideIsAlpha(LtWChar unit);
    static bool WideIsDigit(LtWChar unit);
    static bool WideIsSpace(LtWChar unit);

    // The C library's names for the wide operations above.
    static int Wcscpy(LtWChar *dest, std::size_t size, LtWChar const *source)
    {
        return WideStrcpy(dest, size, source);
    }
    static int Wcsncpy(LtWChar *dest, std::size_t size, LtWChar const *source, std::size_t count)
    {
        return WideStrncpy(dest, size, source, count);
    }
    static int Wcscat(LtWChar *dest, std::size_t size, LtWChar const *source)
    {
        return WideStrcat(dest, size, source);
    }
    static int Wsprintf(LtWChar *buffer, std::size_t count, LtWChar const *format, ...);
    static int Vswprintf(LtWChar *buffer, std::size_t count, LtWChar const *format, va_list args)
    {
        return WideVsprintf(buffer, count, format, args);
    }

    // Integers to text in radix 2 to 36, digits above 9 in lower case, a
    // negative value as '-' and its magnitude in every radix (so that the
    // StrTo functions read it back). Returns the length without the nul, or
    // -1 for a radix out of range or a buffer too small for the whole
    // number; after a failure a buffer with size above 0 holds "".
    static int Int32ToStr(LtInt32 value, char *buffer, std::size_t size, int radix);
    static int UInt32ToStr(LtNat32 value, char *buffer, std::size_t size, int radix);
    static int Int64ToStr(LtInt64 value, char *buffer, std::size_t size, int radix);
    static int UInt64ToStr(LtNat64 value, char *buffer, std::size_t size, int radix);
    static int WideIntToStr(LtInt64 value, LtWChar *buffer, std::size_t size, int radix);

    // A double with `precision` significant digits in the shorter of the
    // fixed and exponent forms ("%.*g"), by the formatting engine and so
    // with the thread's LC_NUMERIC decimal point. The result follows the
    // engine's truncating contract; a negative precision gives -1 and "".
    static int DoubleToStr(double value, char *buffer, std::size_t size, int precision);

    // Text to integers: leading white space (IsSpace, or WideIsSpace), an
    // optional '+' or '-', in radix 16 an optional "0x" or "0X", then the
    // longest run of ASCII digits of the radix (2 to 36; letters in either
    // case). The value pointer may be null.
    //
    // With `end`, *end is set past the last digit, or to text when there
    // are no digits, and text after the number is the caller's business.
    // Without it the number must be the whole text.
    //
    // Returns true when a number was read and fits. A value beyond the type
    // is clamped to its minimum or maximum (a negative value for an unsigned
    // type clamps to 0, though "-0" is 0) and the result is false; *end then
    // still lies past all the digits. No digits, a null text or a radix out
    // of range give 0 and false.
    static bool StrToInt32(char const *text, LtInt32 *value, int radix, char const **end);
    static bool StrToUInt32(char const *text, LtNat32 *value, int radix, char const **end);
    static bool StrToInt64(char const *text, LtInt64 *value, int radix, char const **end);
    static bool StrToUInt64(char const *text, LtNat64 *value, int radix, char const **end);
    static bool WideStrtol(LtWChar const *text, LtInt32 *value, int radix, LtWChar const **end);

    // Wide text to a double: skips leading WideIsSpace units, converts the
    // longest prefix of printable ASCII that the C library's strtod takes
    // (thread's LC_NUMERIC; "inf", "nan" and hex forms included), and maps
    // its end back to the wide text. `end` and the whole-text rule are as
    // for the integers. An overflow gives +-HUGE_VAL and false; an
    // underflow gives the nearest representable value and true.
    static bool WideStrtod(LtWChar const *text, double *value, LtWChar const **end);

    // Conversions into a destination of `size` units (nul included). With a
    // null destination nothing is written and the result is the length the
    // conversion needs, without the nul. Otherwise the result is the length
    // written, without the nul, and the destination is nul-terminated.
    // Failure gives -1, and a destination with size above 0 then holds "":
    // a null source, a destination too small for the whole text (no part of
    // it is kept), or content the target cannot hold. ASCII conversions take
    // bytes and units 0 to 0x7F only; the multi-byte forms use the code page
    // above, decode strictly and encode unmappable characters as "?".
    //
    // These are the forms for callers that think in C strings; the four-
    // argument forms above keep the other platform's counting conventions.
    static int AsciiToWideChar(char const *source, LtWChar *dest, std::size_t size);
    static int WideCharToAscii(LtWChar const *source, char *dest, std::size_t size);
    static int MultiByteToWideChar(char const *source, LtWChar *dest, std::size_t size);
    static int WideCharToMultiByte(LtWChar const *source, char *dest, std::size_t size);
};
