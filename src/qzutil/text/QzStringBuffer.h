// QzStringBuffer.h: the working form of 8-bit text, with length and capacity,
// for editing, appending and formatting; the usual output parameter.
#pragma once

#include <cstdarg>

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzString.h"

template <typename Buffer>
class QzTextBufferEngine;  // the shared buffer algorithms, inside the library
class QzWideStringBuffer;

// 8-bit text with its length and the capacity of its block. Null (no block)
// and empty are distinct, as for QzString.
//
// Blocks come from QzMemory rounded to its best block size, so appends and
// formats grow by the allocator's size classes. Every append path reserves
// one byte more than it needs.
// Ownership: the block is private to the object and released with it; text
//            passed in is copied.
// Threads:   no synchronisation; one object belongs to one thread at a time.
//            FormatCFloat and ReadCFloat switch the calling thread's locale
//            for a moment; Format follows the thread's LC_NUMERIC.
// Invariant: with a block, GetString()[GetLength()] is a nul and
//            GetLength() < GetAllocationSize(), except between
//            BeginEditBuffer and EndEditBuffer. Without one, both are 0.
class QZUTIL_API QzStringBuffer {
public:
    QZ_DECLARE_ALLOCATORS()

    QzStringBuffer();  // null: no block
    QzStringBuffer(char const *text);
    QzStringBuffer(QzString const &text);
    QzStringBuffer(QzStringBuffer const &other);
    QzStringBuffer(QzStringBuffer &&other) noexcept;
    ~QzStringBuffer();

    QzStringBuffer &operator=(char const *text);
    QzStringBuffer &operator=(QzString const &text);
    QzStringBuffer &operator=(QzStringBuffer const &other);
    QzStringBuffer &operator=(QzStringBuffer &&other) noexcept;

    // Copies the text (its first `length` bytes; all for a negative length).
    // A null text releases the block. Setting the buffer's own pointer does
    // nothing. A block too small is replaced by one of the best size for the
    // text; the old content is not kept.
    void SetString(char const *text);
    void SetString(char const *text, int length);
    void SetString(QzString const &text);
    void SetString(QzStringBuffer const &other);
    // The empty text, keeping the block; without one, takes a 4-byte block.
    void SetEmptyString();

    // The text, or null. Valid until the next change of the buffer.
    char const *GetString() const { return m_begin; }
    char operator[](int index) const { return m_begin[index]; }
    char CharAtPos(int index) const { return m_begin[index]; }
    bool IsNull() const { return m_begin == nullptr; }
    bool IsEmpty() const { return m_length == 0; }
    int GetLength() const { return m_length; }
    // GetLength() + 1, or 0 without a block.
    unsigned GetSize() const;
    // The capacity: bytes in the block, terminator included; 0 without one.
    int GetAllocationSize() const { return m_capacity; }

    // Makes room for `length` bytes and the terminator, growing the block
    // (content kept) through QzMemory::Expand when `length` is not below
    // the capacity. A negative length only ensures that there is a block.
    void Reserve(int length);

    // Appends the text (`length` bytes of it; all for a negative length). A
    // null or empty text does nothing; a buffer without a block takes one.
    // The text may be this buffer's own.
    void Append(char const *text);
    void Append(char const *text, int length);
    void Append(char unit);
    void Append(QzString const &text);
    void Append(QzStringBuffer const &other);

    // Stores `unit` at `index` (unchecked); storing a nul recomputes the
    // length from the start of the block.
    void SetAt(int index, char const &unit);

    // Direct writing: the caller may write up to GetAllocationSize() bytes
    // from the returned pointer (null without a block: Reserve first), then
    // must call EndEditBuffer. In between GetLength() is stale.
    char *BeginEditBuffer() { return m_begin; }
    // Sets the length of what was written: `length` as given, or for -1 the
    // position of the first nul within the block; either way at most the
    // capacity. A nul is stored behind the text where the block has room.
    // Without a block the length becomes 0.
    void EndEditBuffer(int length);

    // Printf-style formatting (QzSysString's rules), replacing the content.
    // Starts with a block of at least 101 bytes and grows it one size class
    // at a time until the output fits; above 104,857,600 bytes it stops with
    // the truncated output. A null format releases the block.
    void Format(char const *format, ...);
    // One truncating format into the present block, no growth. Returns the
    // number of bytes written, or -1 if the output was cut (or there is no
    // block); the length is that of what stands in the block.
    int FormatV(char const *format, va_list args);

    // The value with `precision` decimals and the given field width in the
    // "C" locale ("." as decimal mark), as "%<width>.<precision>f".
    void FormatCFloat(double value, int precision, int width);
    // The value with `precision` decimals in the thread's locale. With
    // `significant` non-zero a value too small to show at that precision
    // gets more decimals (its first digits and `precision` more, at most 20
    // decimals), and trailing zeros beyond `precision` are then dropped:
    // 0.00012 with precision 2 shows as "0.00012", 0.00123 as "0.00".
    void FormatLocalizedFloat(double value, int precision, int significant);

    // Replaces the first (or, with `all`, every) occurrence of `old_text`
    // found at or after `from`; a null `new_text` deletes. Replaced text is
    // never searched again. Returns 1 if something was replaced, else 0 (also
    // for a null or empty old_text or a `from` outside the text).
    int Replace(char const *old_text, char const *new_text, int all);
    int Replace(char const *old_text, char const *new_text, int from, int all);
    // Replaces the bytes from `start` up to `end` (clamped to the text) by
    // `text`; a null text deletes them.
    void ReplaceSubString(int start, int end, char const *text);

    // Trimming of blanks. The MBCS forms test bytes with isspace of the
    // process locale; the UTF8 forms take only 9 to 13 and 32, so no byte of
    // a multi-byte sequence is ever taken for a blank. The right trims never
    // remove the first byte, so a text of blanks keeps one; the full trims
    // trim the left first and so leave nothing of such a text.
    void TrimLeftMBCS() { InternalTrimLeft(0); }
    void TrimRightMBCS() { InternalTrimRight(0); }
    void TrimMBCS() { InternalTrim(0); }
    void TrimLeftUTF8() { InternalTrimLeft(1); }
    void TrimRightUTF8() { InternalTrimRight(1); }
    void TrimUTF8() { InternalTrim(1); }
    void InternalTrim(int utf8);
    void InternalTrimLeft(int utf8);
    void InternalTrimRight(int utf8);
    static int IsSpaceMBCS(char unit);
    static int IsSpaceUTF8(char unit);

    // Copies `text` into `out` without the bytes below 32 (taken as signed,
    // so bytes from 0x80 up go too) other than tab, line feed and carriage
    // return. A null text releases out. `text` may be out's own text.
    static void SanitiseForXML(char const *text, QzStringBuffer *out);

    void Swap(QzStringBuffer &other) noexcept;
    // Equal lengths, then QzString::Equal's rules (null equals only null).
    bool Equal(QzStringBuffer const &other) const;
    bool operator==(QzStringBuffer const &other) const { return Equal(other); }
    bool operator!=(QzStringBuffer const &other) const { return !Equal(other); }
    bool operator==(char const *text) const { return QzString::Equal(m_begin, text); }
    bool operator!=(char const *text) const { return !QzString::Equal(m_begin, text); }

    // --- QzString's statics, on this buffer's text. ---
    bool Equal(char const *text) const { return QzString::Equal(m_begin, text); }
    bool EqualPrefix(char const *text, int count) const;
    int Strcmp(char const *text) const { return QzString::Strcmp(m_begin, text); }
    int Stricmp(char const *text) const { return QzString::Stricmp(m_begin, text); }
    int HasPrefix(char const *prefix) const { return QzString::HasPrefix(m_begin, prefix); }
    int HasSuffix(char const *suffix) const { return QzString::HasSuffix(m_begin, suffix); }
    // The first occurrence at or after `from`, pointing into the buffer; null
    // for a bad `from`, a null or empty `what`, or an empty text.
    char const *Find(char const *what, int from = 0) const;
    char const *FindLastChar(char unit) const { return QzString::FindLastChar(m_begin, unit); }
    void LowerCase() { QzString::LowerCase(m_begin); }
    void UpperCase() { QzString::UpperCase(m_begin); }
    // `out` may be this buffer: the range then moves down in place.
    void ExtractSubString(int start, int end, QzStringBuffer *out) const;
    unsigned Hash() const { return QzString::Hash(m_begin); }
    int IsValidAscii() const { return QzString::IsValidAscii(m_begin); }
    int IsValidUTF8() const { return QzString::IsValidUTF8(m_begin); }
    int UTF8ToWideString(QzWideStringBuffer *out) const;
    int AsciiToWideString(QzWideStringBuffer *out) const;
    int MultiToWideString(QzWideStringBuffer *out) const;
    int ReadCFloat(double *value) const { return QzString::ReadCFloat(m_begin, value); }
    int ReadLocalizedFloat(double *value) const;
    int ReadLocalizedInt(int *value) const;

private:
    friend class QzTextBufferEngine<QzStringBuffer>;

    char *m_begin;   // owned block, or null
    int m_length;    // bytes before the terminator
    int m_capacity;  // bytes in the block, terminator included
};
