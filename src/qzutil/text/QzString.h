// QzString.h: compact 8-bit text (one owned pointer per string), and the
// statics on raw nul-terminated 8-bit text that the whole library uses.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"

class QzComponent;
class QzStringBuffer;
class QzWideStringBuffer;

// 8-bit text held as one pointer to an exactly sized, nul-terminated block,
// cheap enough to embed by the million in model data. The class does not
// record the encoding: by convention UTF-8 in names and streams, the
// platform's multi-byte code page at the user's edge; each conversion says
// which in its name.
//
// Null and empty are distinct: a null string has no block (IsNull and
// IsEmpty are true); the empty string has a one-byte block (IsEmpty only).
// Ownership: the block is private to the object and released with it; text
//            passed in is always copied.
// Threads:   no synchronisation; one object belongs to one thread at a time.
//            ReadCFloat switches the calling thread's locale for a moment.
// Invariant: the block holds exactly GetLength() + 1 bytes.
// Lifetime:  a counted component: Initialise (which brings up QzSysError and
//            QzMemory) before the first allocation.
class QZUTIL_API QzString {
public:
    QZ_DECLARE_ALLOCATORS()

    static void Initialise();
    static void Terminate();
    static int IsInitialised();
    static QzComponent *GetComponent();

    QzString();  // null
    QzString(char const *text);
    QzString(QzString const &other);
    QzString(QzString &&other) noexcept;
    explicit QzString(QzStringBuffer const &buffer);
    ~QzString();

    QzString &operator=(char const *text);
    QzString &operator=(QzString const &other);
    QzString &operator=(QzString &&other) noexcept;
    QzString &operator=(QzStringBuffer const &buffer);

    // Copies the text (the first `length` bytes of it; all for a negative
    // length). A null text leaves the string null. Setting the string's own
    // pointer does nothing.
    void SetString(char const *text);
    void SetString(char const *text, int length);
    void SetString(QzString const &other);
    void SetString(QzStringBuffer const &buffer);
    // Makes the empty (not null) text.
    void SetEmptyString();

    // The text, or null for a null string. Valid until the next change.
    char const *GetString() const { return m_text; }
    // The byte at `index`, unchecked.
    char operator[](int index) const { return m_text[index]; }
    char CharAtPos(int index) const { return m_text[index]; }

    bool IsNull() const { return m_text == nullptr; }
    bool IsEmpty() const { return m_text == nullptr || *m_text == 0; }
    // Walks the text: the string keeps no length. 0 for null.
    int GetLength() const;
    // GetLength() + 1, or 0 for a null string: the size of the block.
    unsigned GetSize() const;

    // Equality by Equal's rules: null equals only null.
    bool operator==(QzString const &other) const;
    bool operator==(char const *text) const;
    bool operator!=(QzString const &other) const { return !(*this == other); }
    bool operator!=(char const *text) const { return !(*this == text); }

    void Swap(QzString &other) noexcept;

    // --- Statics on raw text. A null pointer is accepted everywhere. ---

    // Bytes before the nul; 0 for null.
    static int GetLength(char const *text);

    // The same pointer is equal; a null and a non-null text are not equal,
    // even if that one is empty; else the bytes decide.
    static bool Equal(char const *a, char const *b);
    // Equal's null rules over the first `count` bytes only.
    static bool EqualPrefix(char const *a, char const *b, int count);

    // -1, 0 or 1. Null equals null and sorts before every other text; else
    // by unsigned bytes, or, for Stricmp, by tolower of the process locale.
    static int Strcmp(char const *a, char const *b);
    static int Stricmp(char const *a, char const *b);

    // 1 if `prefix` is non-empty and starts a non-empty `text`, else 0: the
    // empty prefix is no prefix of anything.
    static int HasPrefix(char const *text, char const *prefix);
    // 1 if `suffix` is non-empty and ends `text`, else 0. Null text is empty.
    static int HasSuffix(char const *text, char const *suffix);

    // The first occurrence of `what`, or null (also for a null or empty
    // `what` or an empty text). Points into `text`.
    static char const *Find(char const *text, char const *what);
    // The last occurrence of `unit`, or null; a nul finds the terminator.
    static char const *FindLastChar(char const *text, char unit);

    // In place, byte by byte, by tolower/toupper of the process locale.
    static void LowerCase(char *text);
    static void UpperCase(char *text);

    // The bytes from `start` up to (not including) `end` into `out`. A null
    // text releases out; start < 0, end beyond the text or start >= end make
    // out empty; a null out is allowed and receives nothing.
    static void ExtractSubString(char const *text, int start, int end, QzStringBuffer *out);

    // A block of exactly length + 1 bytes with a copy of the text (of its
    // first `length` bytes, or fewer if a nul comes first). Null in, null
    // out. The caller owns it and releases it with Dealloc.
    static char *AllocAndCopy(char const *text);
    static char *AllocAndCopy(char const *text, int length);
    // Releases a block of AllocAndCopy (length plus one bytes). Null is fine.
    static void Dealloc(char *text);

    // h = h * 5 + c with each byte c as a signed 8-bit value; 0 for null and
    // empty. Persistent: hashed containers on disk rely on these values.
    static unsigned Hash(char const *text);

    // 1 if no byte has its top bit set; a null text is valid.
    static int IsValidAscii(char const *text);
    // 1 for null, empty, ASCII or well-formed UTF-8 (by UTF8ToWideStringImpl).
    static int IsValidUTF8(char const *text);

    // Decodes UTF-8 into `out`. Returns 1 if all of it was well formed, else
    // 0 with each bad sequence shown as one U+FFFD. A null out gives 0; a null
    // text releases out and gives 1. `length` (negative: the whole text) only
    // bounds multi-byte sequences: a sequence reaching to or beyond it counts
    // as truncated. Encoded surrogates are accepted; U+FFFE, U+FFFF, overlong
    // forms and values above U+10FFFF are refused.
    static int UTF8ToWideString(char const *text, QzWideStringBuffer *out);
    static int UTF8ToWideString(char const *text, int length, QzWideStringBuffer *out);
    static int UTF8ToWideStringImpl(char const *text, int length, QzWideStringBuffer *out);

    // Widens 7-bit text. Null text releases out (1); empty gives empty (1).
    // On a byte from 0x80 up the result is 0 and out holds the complaint
    // "ASCIITOWCS INTERNAL FAILURE!" instead of the text.
    static int AsciiToWideString(char const *text, QzWideStringBuffer *out);
    // Decodes text in the multi-byte code page (the thread's LC_CTYPE
    // codeset; the C locale counts as UTF-8). Null and empty as above. On
    // invalid input the result is 0 and out holds "MBSTOWCS CONVERSION
    // FAILED!" (or "MBSTOWCS INTERNAL FAILURE!" if only the conversion
    // itself failed).
    static int MultiToWideString(char const *text, QzWideStringBuffer *out);

    // Reads a number in the "C" locale by the scan format "%lg": leading
    // blanks are skipped and whatever follows the number is ignored. Returns
    // 1 if a value was read; *value is unchanged otherwise.
    static int ReadCFloat(char const *text, double *value);
    // Reads a number in the thread's locale (its decimal mark). Blanks
    // around it are allowed, nothing else: returns 1 only if the whole
    // trimmed text is the number. *value receives what strtod made of it
    // whenever the trimmed text is not empty, even on a 0 result.
    static int ReadLocalizedFloat(char const *text, double *value);
    // The same for a base-10 int, 0 also if no digit was read; values beyond
    // the range of int are clamped to it.
    static int ReadLocalizedInt(char const *text, int *value);

    // --- The same operations on this string's own text. ---
    bool Equal(char const *text) const { return Equal(m_text, text); }
    bool EqualPrefix(char const *text, int count) const { return EqualPrefix(m_text, text, count); }
    int Strcmp(char const *text) const { return Strcmp(m_text, text); }
    int Stricmp(char const *text) const { return Stricmp(m_text, text); }
    int HasPrefix(char const *prefix) const { return HasPrefix(m_text, prefix); }
    int HasSuffix(char const *suffix) const { return HasSuffix(m_text, suffix); }
    // The first occurrence at or after `from`; null also for a bad `from`.
    char const *Find(char const *what, int from = 0) const;
    char const *FindLastChar(char unit) const { return FindLastChar(m_text, unit); }
    void LowerCase() { LowerCase(m_text); }
    void UpperCase() { UpperCase(m_text); }
    void ExtractSubString(int start, int end, QzStringBuffer *out) const;
    unsigned Hash() const { return Hash(m_text); }
    int IsValidAscii() const { return IsValidAscii(m_text); }
    int IsValidUTF8() const { return IsValidUTF8(m_text); }
    int UTF8ToWideString(QzWideStringBuffer *out) const { return UTF8ToWideString(m_text, out); }
    int AsciiToWideString(QzWideStringBuffer *out) const { return AsciiToWideString(m_text, out); }
    int MultiToWideString(QzWideStringBuffer *out) const { return MultiToWideString(m_text, out); }
    int ReadCFloat(double *value) const { return ReadCFloat(m_text, value); }
    int ReadLocalizedFloat(double *value) const { return ReadLocalizedFloat(m_text, value); }
    int ReadLocalizedInt(int *value) const { return ReadLocalizedInt(m_text, value); }

private:
    static QzComponent m_component;

    char *m_text;  // owned; exactly GetLength() + 1 bytes, or null
};

// Hash functor for containers keyed by QzString: QzString::Hash.
struct QZUTIL_API QzStringHasher {
    unsigned operator()(QzString const &text) const { return QzString::Hash(text.GetString()); }
};
