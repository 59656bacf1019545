// QzWideStringBuffer.h: the working form of UTF-16 text, with length and
// capacity, for editing, appending and formatting; and the locale-dependent
// number formats returned as wide text (QzStringBufferFormat).
#pragma once

#include <cstdarg>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzWideString.h"

template <typename Buffer>
class QzTextBufferEngine;  // the shared buffer algorithms, inside the library
class QzStringBuffer;

// UTF-16 text with its length and the capacity of its block, both counted in
// 16-bit units (the allocator sees twice as many bytes). Null (no block) and
// empty are distinct. The operations are those of QzStringBuffer, with the
// differences noted here.
//
// Ownership: the block is private to the object and released with it; text
//            passed in is copied.
// Threads:   no synchronisation; one object belongs to one thread at a time.
//            FormatCFloat and ReadCFloat switch the calling thread's locale
//            for a moment; Format follows the thread's LC_NUMERIC.
// Invariant: with a block, GetString()[GetLength()] is a nul and
//            GetLength() < GetAllocationSize(), except between
//            BeginEditBuffer and EndEditBuffer. Without one, both are 0.
class QZUTIL_API QzWideStringBuffer {
public:
    QZ_DECLARE_ALLOCATORS()

    QzWideStringBuffer();  // null: no block
    QzWideStringBuffer(LtWChar const *text);
    // The first `length` units of `text` (all of it for a negative length).
    QzWideStringBuffer(LtWChar const *text, int length);
    QzWideStringBuffer(QzWideString const &text);
    QzWideStringBuffer(QzWideStringBuffer const &other);
    QzWideStringBuffer(QzWideStringBuffer &&other) noexcept;
    ~QzWideStringBuffer();

    QzWideStringBuffer &operator=(LtWChar const *text);
    QzWideStringBuffer &operator=(QzWideString const &text);
    QzWideStringBuffer &operator=(QzWideStringBuffer const &other);
    QzWideStringBuffer &operator=(QzWideStringBuffer &&other) noexcept;

    // As QzStringBuffer::SetString, in units.
    void SetString(LtWChar const *text);
    void SetString(LtWChar const *text, int length);
    void SetString(QzWideString const &text);
    void SetString(QzWideStringBuffer const &other);
    // The empty text, keeping the block; without one, takes a block of
    // QzMemory::GetBestBlockSize(2) bytes.
    void SetEmptyString();

    LtWChar const *GetString() const { return m_begin; }
    LtWChar operator[](int index) const { return m_begin[index]; }
    LtWChar CharAtPos(int index) const { return m_begin[index]; }
    bool IsNull() const { return m_begin == nullptr; }
    bool IsEmpty() const { return m_length == 0; }
    int GetLength() const { return m_length; }
    // GetLength() + 1 units, or 0 without a block.
    unsigned GetSize() const;
    // The capacity in units, terminator included; 0 without a block.
    int GetAllocationSize() const { return m_capacity; }

    // As in QzStringBuffer, in units.
    void Reserve(int length);
    void Append(LtWChar const *text);
    void Append(LtWChar const *text, int length);
    void Append(LtWChar unit);
    void Append(QzWideString const &text);
    void Append(QzWideStringBuffer const &other);
    void SetAt(int index, LtWChar const &unit);
    LtWChar *BeginEditBuffer() { return m_begin; }
    void EndEditBuffer(int length);

    // Printf-style formatting with a wide format (QzSysString's rules: "%s"
    // takes LtWChar text, "%S" and "%hs" 8-bit text). Starts with at least
    // 101 units; growth and cap as in QzStringBuffer::Format.
    void Format(LtWChar const *format, ...);
    int FormatV(LtWChar const *format, va_list args);
    void FormatCFloat(double value, int precision, int width);
    void FormatLocalizedFloat(double value, int precision, int significant);

    int Replace(LtWChar const *old_text, LtWChar const *new_text, int all);
    int Replace(LtWChar const *old_text, LtWChar const *new_text, int from, int all);
    void ReplaceSubString(int start, int end, LtWChar const *text);

    // Trimming of white space by Unicode's classification. Unlike the
    // narrow right trims these walk down to and including the first unit, so
    // a text of blanks comes out empty.
    void Trim();
    void TrimLeft();
    void TrimRight();
    // Removes trailing units that occur in `set` (none for a null set).
    void TrimRight(LtWChar const *set);

    // Copies `text` into `out` without the units below 32 other than tab,
    // line feed and carriage return; units from 32 up are all kept. A null
    // text releases out. `text` may be out's own text.
    static void SanitiseForXML(LtWChar const *text, QzWideStringBuffer *out);

    void Swap(QzWideStringBuffer &other) noexcept;
    bool Equal(QzWideStringBuffer const &other) const;
    bool operator==(QzWideStringBuffer const &other) const { return Equal(other); }
    bool operator!=(QzWideStringBuffer const &other) const { return !Equal(other); }
    bool operator==(LtWChar const *text) const { return QzWideString::Equal(m_begin, text); }
    bool operator!=(LtWChar const *text) const { return !QzWideString::Equal(m_begin, text); }

    // As in QzWideString, on this buffer's text.
    int SetFromMultiString(char const *text);
    int SetFromUTF8String(char const *text);
    int TrySetFromAsciiString(char const *text);
    void SetFromAsciiString(char const *text) { (void)TrySetFromAsciiString(text); }

    // --- QzWideString's statics, on this buffer's text. ---
    bool Equal(LtWChar const *text) const { return QzWideString::Equal(m_begin, text); }
    bool EqualPrefix(LtWChar const *text, int count) const;
    int Strcmp(LtWChar const *text) const { return QzWideString::Strcmp(m_begin, text); }
    int Stricmp(LtWChar const *text) const { return QzWideString::Stricmp(m_begin, text); }
    int HasPrefix(LtWChar const *prefix) const;
    int HasSuffix(LtWChar const *suffix) const;
    LtWChar const *Find(LtWChar const *what, int from = 0) const;
    LtWChar const *FindLastChar(LtWChar unit) const;
    void LowerCase() { QzWideString::LowerCase(m_begin); }
    void UpperCase() { QzWideString::UpperCase(m_begin); }
    // `out` may be this buffer: the range then moves down in place.
    void ExtractSubString(int start, int end, QzWideStringBuffer *out) const;
    unsigned Hash() const { return QzWideString::Hash(m_begin); }
    int IsValidAscii() const { return QzWideString::IsValidAscii(m_begin); }
    int StrCmpLogical(LtWChar const *text) const;
    int ReadCFloat(double *value) const { return QzWideString::ReadCFloat(m_begin, value); }
    int ReadLocalizedFloat(double *value) const;
    int ReadLocalizedInt(int *value) const;
    void ExtractUTF8String(QzStringBuffer *out) const;
    void ExtractUTF8StringTY10(QzStringBuffer *out) const;
    int ExtractMultiString(QzStringBuffer *out) const;
    int TryExtractAsciiString(QzStringBuffer *out) const;
    void ExtractAsciiString(QzStringBuffer *out) const;

private:
    friend class QzTextBufferEngine<QzWideStringBuffer>;

    LtWChar *m_begin;  // owned block, or null
    int m_length;      // units before the terminator
    int m_capacity;    // units in the block, terminator included
};

// Locale-dependent number texts, as wide text by value.
//
// Threads: read the calling thread's LC_NUMERIC; callable from any thread.
class QZUTIL_API QzStringBufferFormat {
public:
    // QzWideStringBuffer::FormatLocalizedFloat into a new buffer.
    static QzWideStringBuffer FormatLocalizedFloat(double value, int precision, int significant);
    // The thousands separator of the thread's numeric locale, at most 5
    // units; the empty text where the locale has none.
    static QzWideStringBuffer GetLocalizedThousandSep();
};
