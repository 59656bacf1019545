// QzWriteStream.h: typed values to the bytes of a sink, in the binary or
// ascii form, with or without debug type tokens.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStream.h"
#include "qzutil/text/QzStringBuffer.h"

class QzReadStream;
class QzStreamExtData;
class QzString;
class QzWideString;
class QzWideStringBuffer;
struct QzStreamWriteObjects;

// The writing stream. Binary: each value little-endian at its own alignment
// within the sink's block, padding zero; arrays copied straight into the
// block. Ascii: one value (or one bracketed array) per indented line,
// unsigned values in hexadecimal, signed ones in decimal. Debug mode sends a
// type token ahead of every value.
//
// Usage: configure (SetAscii, SetDebug, filters...), Begin, write, End.
// Everything written before Begin, or after an error, is dropped; End then
// answers 0.
//
// Ownership: the sink and filters are borrowed (see QzStream).
// Threads:   one thread at a time.
// Invariant: while a block is held, block start <= cursor <= block end and,
//            in binary, the cursor's offset from the block start is a
//            multiple of the alignment field.
class QZUTIL_API QzWriteStream : public QzStream {
public:
    explicit QzWriteStream(QzStreamSink *sink);
    ~QzWriteStream() override;
    QzWriteStream(QzWriteStream const &) = delete;
    QzWriteStream &operator=(QzWriteStream const &) = delete;

    // Starts a run: begins filters and sink and links them; with
    // `write_config` writes the header line (around the filters, in clear)
    // and the extension list. 0 on failure, with the error set.
    int Begin(int write_config, int write_extensions);
    // Syncs, ends filters and sink. 0 if the run had an error or never began.
    int End();

    // --- Objects of the format: each pointer is defined once per run and
    // referred to by its id after that; ids count from 100 ---

    // Writes `object` as kind `entry`: a null record for null, a use record
    // if it was written (or added) before, else a definition with its
    // contents through the entry's write method. The object's id; 0 for
    // null and on failure (no format, no write method: error 1 or 2).
    unsigned WriteObject(void const *object, int entry);
    // As WriteObject, for an object that a reader kept a tail of: the
    // definition records `ext`'s entry, and after the contents that `entry`
    // writes, the tail is sent back in this stream's form. A null `ext` is
    // WriteObject.
    unsigned WriteObjectExt(void const *object, int entry, QzStreamExtData const *ext);
    // Gives `object` an id without writing it, for objects that both sides
    // know by other means (the reader adds its own with the same id). Its
    // existing id if it has one; 0 for null or outside a run.
    unsigned AddObject(void const *object, int entry);
    // Forgets `object`, so that a new object at the same address is written
    // as new.
    void RemoveObject(void const *object);
    // The id of `object`, or 0.
    unsigned GetObjectId(void const *object) const;

    // --- Scalars: token in debug mode, then the value ---
    void WriteInt8(LtInt8 value);
    void WriteNat8(LtNat8 value);
    void WriteInt16(LtInt16 value);
    void WriteNat16(LtNat16 value);
    void WriteInt32(LtInt32 value);
    void WriteNat32(LtNat32 value);
    void WriteNat64(LtNat64 value);
    void WriteTime(LtInt64 value);
    void WriteSingle(LtSingle value);
    void WriteDouble(LtDouble value);
    // As Double on a "double " stream, else narrowed to Single.
    void WriteFloat(LtFloat value);
    void WriteBoolean(bool value);
    void WriteEnum(LtNat32 value);
    void WriteBitfield(LtNat32 value);
    void WriteArraySize32(LtInt32 size);
    // Null is a null string (length -1 in binary, "linull" in ascii).
    void WriteString(char const *text);
    void WriteString(char const *text, int length);
    void WriteWideString(LtWChar const *text);

    // --- Arrays: token and count in debug mode; the count itself is not
    // data (send it with WriteArraySize32 if the reader cannot know it) ---
    void WriteInt8Array(LtInt8 const *values, LtInt32 count);
    void WriteNat8Array(LtNat8 const *values, LtInt32 count);
    void WriteInt16Array(LtInt16 const *values, LtInt32 count);
    void WriteNat16Array(LtNat16 const *values, LtInt32 count);
    void WriteInt32Array(LtInt32 const *values, LtInt32 count);
    void WriteNat32Array(LtNat32 const *values, LtInt32 count);
    void WriteNat64Array(LtNat64 const *values, LtInt32 count);
    void WriteSingleArray(LtSingle const *values, LtInt32 count);
    void WriteDoubleArray(LtDouble const *values, LtInt32 count);
    void WriteFloatArray(LtFloat const *values, LtInt32 count);

    // --- Undecorated primitives: no token ---
    void SendInt16(LtInt16 value);
    void SendInt32(LtInt32 value);
    void SendNat8(LtNat8 value);
    void SendNat16(LtNat16 value);
    void SendNat32(LtNat32 value);
    void SendNat64(LtNat64 value);
    // Only on a debug stream: the token (with its count for arrays).
    void SendDebug(DebugToken token);
    void SendDebug(DebugToken token, LtInt32 count);
    // Pads (binary) so the next byte is at a multiple of `alignment` (1, 2,
    // 4 or 8); locks a block if none is held.
    void RequireAlignment(int alignment);
    // The ascii layout of arrays: "[" or the blank, line breaks, and the
    // closing bracket; nothing in binary.
    void SendArrayStart(LtInt32 count);
    void SendArrayNewLine();
    void SendArrayEnd(LtInt32 count, int columns);
    void SendIndent();
    // Raw bytes without terminator or alignment.
    void SendAscii(char const *text);
    // Int32 length (-1 for null), then the bytes; cut at kMaxStringLength
    // with a warning.
    void SendString(char const *text, int length);

    // Ends the block in use: token Sync in debug mode, zero padding to 8 in
    // binary, the block to the sink, and a flush of the chain.
    void WriteSync();

    // --- Ascii layout ---
    int GetNumCols() const { return m_columns; }
    void SetNumCols(int columns) { m_columns = columns; }
    int GetIdent() const { return m_indent; }
    void SetIndent(int indent) { m_indent = indent; }
    int GetSingleDigits() const { return m_single_digits; }
    int GetDoubleDigits() const { return m_double_digits; }
    // Clamped to 1..8 and 1..17.
    void SetSingleDigits(int digits);
    void SetDoubleDigits(int digits);
    // Values below these magnitudes are written as 0 in ascii only.
    double GetSingleZero() const { return m_single_zero; }
    void SetSingleZero(double threshold) { m_single_zero = threshold; }
    double GetDoubleZero() const { return m_double_zero; }
    void SetDoubleZero(double threshold) { m_double_zero = threshold; }

    // --- Bit packing, from the top bit of 32-bit words down ---
    void BeginBits();
    void WriteBits(unsigned value, unsigned char bits);
    // Sends a partial word (low bits zero); the number of words sent.
    int EndBits();

    // Also copies digits and zero thresholds.
    void CopyConfig(QzWriteStream const &other);
    using QzStream::CopyConfig;

    QzWriteStream &operator<<(signed char value);
    QzWriteStream &operator<<(unsigned char value);
    QzWriteStream &operator<<(short value);
    QzWriteStream &operator<<(unsigned short value);
    QzWriteStream &operator<<(int value);
    QzWriteStream &operator<<(unsigned int value);
    // 64-bit integers, token Nat64: `long` and `long long` are distinct
    // 64-bit types on this platform, and LtInt64 is `long`.
    QzWriteStream &operator<<(long value);
    QzWriteStream &operator<<(unsigned long value);
    QzWriteStream &operator<<(long long value);
    QzWriteStream &operator<<(unsigned long long value);
    QzWriteStream &operator<<(float value);
    // Token Double, not Float.
    QzWriteStream &operator<<(double value);
    QzWriteStream &operator<<(bool value);
    QzWriteStream &operator<<(char const *text);
    QzWriteStream &operator<<(LtWChar const *text);
    QzWriteStream &operator<<(QzString const &text);
    QzWriteStream &operator<<(QzStringBuffer const &text);
    QzWriteStream &operator<<(QzWideString const &text);
    QzWriteStream &operator<<(QzWideStringBuffer const &text);
    QzWriteStream &operator<<(QzStream &(*manipulator)(QzStream &));

private:
    // The primitive representations of values, which pick the ascii format
    // and the binary element size.
    enum ValueKind : int {
        eVALUE_NAT8,
        eVALUE_INT16,
        eVALUE_NAT16,
        eVALUE_INT32,
        eVALUE_NAT32,
        eVALUE_NAT64,
        eVALUE_SINGLE,
        eVALUE_DOUBLE,
    };

    // The fast path of every scalar: stores straight into the held block
    // when its alignment is known, there is room beyond the value and no
    // error; false (nothing done) otherwise, and always in ascii.
    template <typename T>
    bool StoreFast(T value);
    // One value with no token, by StoreFast or else through SendArray.
    template <typename T>
    void SendValue(T value, ValueKind kind);
    // One value after its token on a debug stream.
    template <typename T>
    void WriteValue(DebugToken token, T value, ValueKind kind);
    // The out-of-line rests of the two above.
    template <typename T>
    void SendValueSlow(T value, ValueKind kind);
    template <typename T>
    void WriteValueSlow(DebugToken token, T value, ValueKind kind);
    // Values of one kind with no token: bracketed lines in ascii, elements at
    // their own alignment in binary.
    void SendArray(ValueKind kind, void const *values, LtInt32 count);
    // A typed array: its token and count on a debug stream, then the values.
    void WriteArray(DebugToken token, ValueKind kind, void const *values, LtInt32 count);
    // Binary elements (or ascii bytes, with size 1): pads to `size` first,
    // then copies whole runs into blocks, passing each block on as it fills.
    void SendBytes(void const *values, int size, std::size_t count);
    void CopyElements(void const *values, int size, std::size_t count);
    // Writes `count` zero bytes when the block has room; false when the block
    // ended (it was passed on), so the next block starts aligned.
    bool PadZeros(int count);
    // The block and alignment state is reset; a held block is given up
    // without being processed.
    void ResetBlockState();
    // Locks the head's free area; alignment 8 afterwards in binary. 0 on
    // failure, with the error set.
    [[nodiscard]] int LockBlock();
    // Hands what was written of the block to the head.
    void SendBlock();
    void WriteHeader();

    // The object records (QzWriteStreamObjects.cpp). Each head starts with
    // the Object token on a debug stream; a definition's head raises the
    // indent by 2 and its end lowers it again before the ObjectEndDef token.
    void SendObjectNull();
    void SendObjectUse(unsigned id);
    void SendObjectDefHead(unsigned id, int entry);
    void SendObjectDefEnd();
    // Hands out the next object id.
    unsigned TakeObjectId() { return m_next_object_id++; }
    // After the header of an extendable format: with `with_records` one
    // record per extension entry (index, name, parent), then the end mark.
    void WriteExtensions(int with_records);

    // The reader re-encodes debug data into a writer through the object
    // records above.
    friend class QzReadStream;

    // The ascii forms (QzWriteStreamAscii.cpp).
    void SendAsciiArray(ValueKind kind, void const *values, LtInt32 count);
    void SendAsciiBytes(char const *bytes, std::size_t length);
    void SendQuotedString(char const *text, std::size_t length);
    // The token's line; `count` null for a scalar token.
    void SendAsciiToken(DebugToken token, LtInt32 const *count);

    std::unique_ptr<QzStreamWriteObjects> m_objects;  // exists from Begin to End
    unsigned m_next_object_id = 100;
    // Binary only: 0 while no block is held, else the alignment (1, 2, 4 or
    // 8) that the cursor is known to have; always 0 in ascii, where a held
    // block shows by m_block_start alone.
    int m_alignment = 0;
    unsigned char *m_block_start = nullptr;  // the area lent by WriteLock, or null
    unsigned char *m_block_end = nullptr;
    unsigned char *m_cursor = nullptr;
    int m_columns = 0;  // 0: per-type default
    int m_indent = 2;   // blanks ahead of each ascii line
    int m_single_digits = 8;
    int m_double_digits = 17;
    double m_single_zero = 0.0;  // ascii only: smaller magnitudes are written as 0
    double m_double_zero = 0.0;
    char m_single_format[10];        // " %10.8g" for 8 digits
    char m_double_format[10];        // " %19.17g" for 17 digits
    unsigned m_bit_accumulator = 0;  // bits of the word in progress, from the top
    unsigned char m_bits_left = 32;  // free bits of that word, 1 to 32
    int m_bit_words = 0;             // words sent since BeginBits
    QzStringBuffer m_temp_string;    // a wide string converted for sending
};

// --- Inline scalars ---
// The common binary case (no token, a block held whose cursor is known to
// be aligned for the value, room beyond it, no error) stores in place, so a
// loop of scalar writes costs a few instructions a value; everything else
// goes to the out-of-line paths.

template <typename T>
inline bool QzWriteStream::StoreFast(T value)
{
    constexpr int size = static_cast<int>(sizeof(T));
    // m_alignment is 0 without a block and in ascii; room beyond this value
    // means the block cannot fill here, so no block is due to go out.
    if (m_alignment < size || m_block_end - m_cursor <= size || IsError())
        return false;
    std::memcpy(m_cursor, &value, sizeof(T));
    m_cursor += size;
    m_alignment = size;
    return true;
}

template <typename T>
inline void QzWriteStream::SendValue(T value, ValueKind kind)
{
    if (!StoreFast(value))
        SendValueSlow(value, kind);
}

template <typename T>
inline void QzWriteStream::WriteValue(DebugToken token, T value, ValueKind kind)
{
    if (IsDebug() || !StoreFast(value))
        WriteValueSlow(token, value, kind);
}

inline void QzWriteStream::SendInt16(LtInt16 value)
{
    SendValue(value, eVALUE_INT16);
}

inline void QzWriteStream::SendInt32(LtInt32 value)
{
    SendValue(value, eVALUE_INT32);
}

inline void QzWriteStream::SendNat8(LtNat8 value)
{
    SendValue(value, eVALUE_NAT8);
}

inline void QzWriteStream::SendNat16(LtNat16 value)
{
    SendValue(value, eVALUE_NAT16);
}

inline void QzWriteStream::SendNat32(LtNat32 value)
{
    SendValue(value, eVALUE_NAT32);
}

inline void QzWriteStream::SendNat64(LtNat64 value)
{
    SendValue(value, eVALUE_NAT64);
}

inline void QzWriteStream::WriteInt8(LtInt8 value)
{
    WriteNat8(static_cast<LtNat8>(value));
}

inline void QzWriteStream::WriteNat8(LtNat8 value)
{
    WriteValue(eTOKEN_NAT8, value, eVALUE_NAT8);
}

inline void QzWriteStream::WriteInt16(LtInt16 value)
{
    WriteValue(eTOKEN_INT16, value, eVALUE_INT16);
}

inline void QzWriteStream::WriteNat16(LtNat16 value)
{
    WriteValue(eTOKEN_NAT16, value, eVALUE_NAT16);
}

inline void QzWriteStream::WriteInt32(LtInt32 value)
{
    WriteValue(eTOKEN_INT32, value, eVALUE_INT32);
}

inline void QzWriteStream::WriteNat32(LtNat32 value)
{
    WriteValue(eTOKEN_NAT32, value, eVALUE_NAT32);
}

inline void QzWriteStream::WriteNat64(LtNat64 value)
{
    WriteValue(eTOKEN_NAT64, value, eVALUE_NAT64);
}

inline void QzWriteStream::WriteTime(LtInt64 value)
{
    WriteNat64(static_cast<LtNat64>(value));
}

inline void QzWriteStream::WriteSingle(LtSingle value)
{
    WriteValue(eTOKEN_SINGLE, value, eVALUE_SINGLE);
}

inline void QzWriteStream::WriteDouble(LtDouble value)
{
    WriteValue(eTOKEN_DOUBLE, value, eVALUE_DOUBLE);
}

inline void QzWriteStream::WriteEnum(LtNat32 value)
{
    WriteValue(eTOKEN_ENUM, value, eVALUE_NAT32);
}

inline void QzWriteStream::WriteBitfield(LtNat32 value)
{
    WriteValue(eTOKEN_BITFIELD, value, eVALUE_NAT32);
}

inline void QzWriteStream::WriteBoolean(bool value)
{
    WriteValue(eTOKEN_BOOLEAN, static_cast<LtNat32>(value ? 1 : 0), eVALUE_NAT32);
}

inline void QzWriteStream::WriteArraySize32(LtInt32 size)
{
    WriteInt32(size);
}
