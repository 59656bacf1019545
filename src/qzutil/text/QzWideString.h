// QzWideString.h: compact UTF-16 text (one owned pointer per string), the
// statics on raw nul-terminated UTF-16 text, and its conversions to 8-bit.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"

class QzStringBuffer;
class QzWideStringBuffer;

// UTF-16 text held as one pointer to an exactly sized, nul-terminated block.
// Lengths count 16-bit units, so a character beyond the BMP counts 2.
//
// Null and empty are distinct: a null string has no block (IsNull and
// IsEmpty are true); the empty string has a one-unit block (IsEmpty only).
// Case and classification of units do not depend on the process locale:
// they are those of Unicode's simple mappings within the BMP, and leave
// surrogates alone.
// Ownership: the block is private to the object and released with it; text
//            passed in is always copied.
// Threads:   no synchronisation; one object belongs to one thread at a time.
// Invariant: the block holds exactly GetLength() + 1 units.
// Lifetime:  needs QzString::Initialise, which brings up the allocator.
class QZUTIL_API QzWideString {
public:
    QZ_DECLARE_ALLOCATORS()

    QzWideString();  // null
    QzWideString(LtWChar const *text);
    // The first `length` units of `text` (all of it for a negative length).
    QzWideString(LtWChar const *text, int length);
    QzWideString(QzWideString const &other);
    QzWideString(QzWideString &&other) noexcept;
    explicit QzWideString(QzWideStringBuffer const &buffer);
    ~QzWideString();

    QzWideString &operator=(LtWChar const *text);
    QzWideString &operator=(QzWideString const &other);
    QzWideString &operator=(QzWideString &&other) noexcept;
    QzWideString &operator=(QzWideStringBuffer const &buffer);

    // Copies the text (the first `length` units; all for a negative
    // length). A null text leaves the string null. Setting the string's own
    // pointer does nothing.
    void SetString(LtWChar const *text);
    void SetString(LtWChar const *text, int length);
    void SetString(QzWideString const &other);
    void SetString(QzWideStringBuffer const &buffer);
    // Makes the empty (not null) text.
    void SetEmptyString();

    LtWChar const *GetString() const { return m_text; }
    LtWChar operator[](int index) const { return m_text[index]; }
    LtWChar CharAtPos(int index) const { return m_text[index]; }
    bool IsNull() const { return m_text == nullptr; }
    bool IsEmpty() const { return m_text == nullptr || *m_text == 0; }
    // Walks the text. 0 for null.
    int GetLength() const;
    // GetLength() + 1 units, or 0 for a null string.
    unsigned GetSize() const;

    bool operator==(QzWideString const &other) const;
    bool operator==(LtWChar const *text) const;
    bool operator!=(QzWideString const &other) const { return !(*this == other); }
    bool operator!=(LtWChar const *text) const { return !(*this == text); }

    void Swap(QzWideString &other) noexcept;

    // Each converts through a scratch buffer and takes on its text, also
    // when that is a complaint; the result is the conversion's (see the
    // statics of QzString). Converting from the string's own pointer gives 1
    // at once; a null text makes the string null and gives 1.
    int SetFromMultiString(char const *text);
    int SetFromUTF8String(char const *text);
    int TrySetFromAsciiString(char const *text);
    void SetFromAsciiString(char const *text) { (void)TrySetFromAsciiString(text); }

    // --- Statics on raw text. A null pointer is accepted everywhere. ---
    // The rules are those of the QzString statics of the same names, with
    // units compared and hashed as unsigned 16-bit values.

    static int GetLength(LtWChar const *text);
    static bool Equal(LtWChar const *a, LtWChar const *b);
    static bool EqualPrefix(LtWChar const *a, LtWChar const *b, int count);
    // -1, 0 or 1; null sorts first. Stricmp folds units to lower case.
    static int Strcmp(LtWChar const *a, LtWChar const *b);
    static int Stricmp(LtWChar const *a, LtWChar const *b);
    static int HasPrefix(LtWChar const *text, LtWChar const *prefix);
    static int HasSuffix(LtWChar const *text, LtWChar const *suffix);
    static LtWChar const *Find(LtWChar const *text, LtWChar const *what);
    static LtWChar const *FindLastChar(LtWChar const *text, LtWChar unit);
    static void LowerCase(LtWChar *text);
    // Units below 128 by the plain ASCII offset, the others by Unicode's
    // simple upper-case mapping.
    static void UpperCase(LtWChar *text);
    static void ExtractSubString(LtWChar const *text, int start, int end, QzWideStringBuffer *out);
    // Caller owns the result; release with Dealloc.
    static LtWChar *AllocAndCopy(LtWChar const *text);
    static LtWChar *AllocAndCopy(LtWChar const *text, int length);
    static void Dealloc(LtWChar *text);
    // h = h * 5 + u over the units u as unsigned values; 0 for null and empty.
    static unsigned Hash(LtWChar const *text);
    static int IsValidAscii(LtWChar const *text);

    // Natural order for display, -1, 0 or 1: null as in Strcmp, runs of
    // digits compare by value ("a2" before "a10"), a run starting with "0"
    // compares as a fraction ("a01" before "a1"), letters compare without
    // case, and a digit sorts after any character that is no letter.
    static int StrCmpLogical(LtWChar const *a, LtWChar const *b);

    // Numbers in wide text: the text goes through the multi-byte code page,
    // then QzString's rules of the same names apply.
    static int ReadCFloat(LtWChar const *text, double *value);
    static int ReadLocalizedFloat(LtWChar const *text, double *value);
    static int ReadLocalizedInt(LtWChar const *text, int *value);

    // To UTF-8. A null text releases out; an empty one gives the empty text.
    // With `combine` a high surrogate followed by a low one is written as one
    // four-byte character; any other surrogate (every surrogate without
    // `combine`) is written as three bytes by itself. Never fails.
    static void ExtractUTF8StringImpl(LtWChar const *text, QzStringBuffer *out, bool combine);
    static void ExtractUTF8String(LtWChar const *text, QzStringBuffer *out);
    // The older form, each surrogate written by itself.
    static void ExtractUTF8StringTY10(LtWChar const *text, QzStringBuffer *out);
    // To the multi-byte code page; unmappable characters become "?". Returns
    // 1, or 0 with out holding "WCSTOMBS CONVERSION FAILED!" (or "WCSTOMBS
    // INTERNAL FAILURE!"). A null text releases out and gives 1.
    static int ExtractMultiString(LtWChar const *text, QzStringBuffer *out);
    // To 7-bit text. Returns 1, or 0 with out holding "NOT AN ASCII STRING"
    // if a unit is 0x80 or above. A null text releases out and gives 1.
    static int TryExtractAsciiString(LtWChar const *text, QzStringBuffer *out);
    static void ExtractAsciiString(LtWChar const *text, QzStringBuffer *out);

    // --- The same operations on this string's own text. ---
    bool Equal(LtWChar const *text) const { return Equal(m_text, text); }
    bool EqualPrefix(LtWChar const *text, int count) const;
    int Strcmp(LtWChar const *text) const { return Strcmp(m_text, text); }
    int Stricmp(LtWChar const *text) const { return Stricmp(m_text, text); }
    int HasPrefix(LtWChar const *prefix) const { return HasPrefix(m_text, prefix); }
    int HasSuffix(LtWChar const *suffix) const { return HasSuffix(m_text, suffix); }
    // The first occurrence at or after `from`; null also for a bad `from`.
    LtWChar const *Find(LtWChar const *what, int from = 0) const;
    LtWChar const *FindLastChar(LtWChar unit) const { return FindLastChar(m_text, unit); }
    void LowerCase() { LowerCase(m_text); }
    void UpperCase() { UpperCase(m_text); }
    void ExtractSubString(int start, int end, QzWideStringBuffer *out) const;
    unsigned Hash() const { return Hash(m_text); }
    int IsValidAscii() const { return IsValidAscii(m_text); }
    int StrCmpLogical(LtWChar const *text) const { return StrCmpLogical(m_text, text); }
    int ReadCFloat(double *value) const { return ReadCFloat(m_text, value); }
    int ReadLocalizedFloat(double *value) const { return ReadLocalizedFloat(m_text, value); }
    int ReadLocalizedInt(int *value) const { return ReadLocalizedInt(m_text, value); }
    void ExtractUTF8String(QzStringBuffer *out) const { ExtractUTF8String(m_text, out); }
    void ExtractUTF8StringTY10(QzStringBuffer *out) const { ExtractUTF8StringTY10(m_text, out); }
    int ExtractMultiString(QzStringBuffer *out) const { return ExtractMultiString(m_text, out); }
    int TryExtractAsciiString(QzStringBuffer *out) const;
    void ExtractAsciiString(QzStringBuffer *out) const { ExtractAsciiString(m_text, out); }

private:
    LtWChar *m_text;  // owned; exactly GetLength() + 1 units, or null
};

// Hash functor for containers keyed by QzWideString: QzWideString::Hash.
struct QZUTIL_API QzWideStringHasher {
    unsigned operator()(QzWideString const &text) const
    {
        return QzWideString::Hash(text.GetString());
    }
};
