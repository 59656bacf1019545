// QzChecksum.h: an incremental Adler-32 fed with typed values, the
// fingerprint of objects and tables.
#pragma once

#include <cstddef>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzString;
class QzStringBuffer;
class QzWideString;
class QzWideStringBuffer;

// Adler-32 (initial value 1) over the memory bytes of what is added, in
// the order added. Every value goes in at its own width and in the
// platform's little-endian order: AddFloat takes the 8 bytes of a double,
// AddBoolean, AddEnum and AddBitfield 4 bytes, AddPtr the 8 bytes of a
// pointer. Strings go in without their terminator; a null string counts as
// one zero byte, so that it differs from an empty one.
//
// The sums are reduced modulo 65,521 each time 5,552 bytes have gone in
// since the last reduction (the most for which the 32-bit sums cannot
// overflow), and by End if bytes have gone in since. So the value of a
// sequence of bytes does not depend on how it was split into calls.
//
// Ownership: a plain value; copy freely.
// Threads:   an object belongs to one thread at a time.
class QZUTIL_API QzChecksum {
public:
    // Ready to take bytes: the same state as Begin.
    QzChecksum() = default;

    // Both restart the sums; there is no difference between them.
    void Begin();
    void Clear();

    // The primitive: `count` bytes from `bytes` (which may be null when
    // `count` is 0). Every other Add... comes here.
    void AddNat8Array(unsigned char const *bytes, unsigned count);

    void AddNat8(LtNat8 value) { AddBytes(&value, sizeof value); }
    void AddInt16(LtInt16 value) { AddBytes(&value, sizeof value); }
    void AddNat16(LtNat16 value) { AddBytes(&value, sizeof value); }
    void AddInt32(LtInt32 value) { AddBytes(&value, sizeof value); }
    void AddNat32(LtNat32 value) { AddBytes(&value, sizeof value); }
    // 64-bit integers: `long` and `long long` are distinct 64-bit types on
    // this platform (LtInt64 is `long`), so both are taken.
    void AddInt64(long value) { AddBytes(&value, sizeof value); }
    void AddInt64(long long value) { AddBytes(&value, sizeof value); }
    void AddNat64(unsigned long value) { AddBytes(&value, sizeof value); }
    void AddNat64(unsigned long long value) { AddBytes(&value, sizeof value); }
    void AddSingle(LtSingle value) { AddBytes(&value, sizeof value); }
    void AddDouble(LtDouble value) { AddBytes(&value, sizeof value); }
    void AddFloat(LtFloat value) { AddBytes(&value, sizeof value); }
    void AddBoolean(int value) { AddBytes(&value, sizeof value); }
    void AddEnum(int value) { AddBytes(&value, sizeof value); }
    void AddBitfield(unsigned value) { AddBytes(&value, sizeof value); }
    // A time in the streams' 64-bit form.
    void AddTime(LtInt64 value) { AddBytes(&value, sizeof value); }
    // The pointer's value, not what it points to.
    void AddPtr(void const *pointer) { AddBytes(&pointer, sizeof pointer); }

    // Arrays: `count` elements, each at its own width.
    void AddInt16Array(LtInt16 const *values, unsigned count) { AddElements(values, count); }
    void AddNat16Array(LtNat16 const *values, unsigned count) { AddElements(values, count); }
    void AddInt32Array(LtInt32 const *values, unsigned count) { AddElements(values, count); }
    void AddNat32Array(LtNat32 const *values, unsigned count) { AddElements(values, count); }
    void AddInt64Array(long const *values, unsigned count) { AddElements(values, count); }
    void AddInt64Array(long long const *values, unsigned count) { AddElements(values, count); }
    void AddNat64Array(unsigned long const *values, unsigned count) { AddElements(values, count); }
    void AddNat64Array(unsigned long long const *values, unsigned count)
    {
        AddElements(values, count);
    }
    void AddSingleArray(LtSingle const *values, unsigned count) { AddElements(values, count); }
    void AddDoubleArray(LtDouble const *values, unsigned count) { AddElements(values, count); }
    void AddFloatArray(LtFloat const *values, unsigned count) { AddElements(values, count); }

    // The text's bytes without the terminator; null adds one zero byte.
    void AddString(char const *text);
    void AddString(QzString const &text);
    void AddString(QzStringBuffer const &text);
    // The UTF-16 units' bytes, little-endian, without the terminator; null
    // adds one zero byte (not two).
    void AddWideString(LtWChar const *text);
    void AddWideString(QzWideString const &text);
    void AddWideString(QzWideStringBuffer const &text);

    // The value, b << 16 | a. Reduces pending sums first; more bytes may
    // be added afterwards and End asked again.
    unsigned End();

    // The Adler-32 of `count` bytes at `bytes` in one call; 1 for none.
    static unsigned Adler32(unsigned char const *bytes, std::size_t count);

    // The counted component "QzChecksum", over QzError.
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

private:
    static constexpr unsigned kInitialA = 1;
    static constexpr int kReductionInterval = 5552;  // bytes; see the class comment

    // What every Add... comes down to; `count` may pass 4 GiB.
    void AddBytes(void const *bytes, std::size_t count);
    template <typename T>
    void AddElements(T const *values, unsigned count)
    {
        AddBytes(values, static_cast<std::size_t>(count) * sizeof(T));
    }
    // The bytes of a text of `length` units of `unit_size` bytes, or one
    // zero byte for a null text.
    void AddText(void const *units, std::size_t length, std::size_t unit_size);

    unsigned m_a = kInitialA;          // 1 + the sum of the bytes, reduced from time to time
    unsigned m_b = 0;                  // the sum of the successive values of m_a, likewise
    int m_count = kReductionInterval;  // bytes left before the next reduction
};
