// QzReadStream.h: typed values from the bytes of a sink, in whichever form
// the stream's header line declares.
#pragma once

#include <cstring>
#include <memory>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStream.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

class QzStreamExtData;
class QzString;
class QzWideString;
class QzWriteStream;
struct QzStreamReadObjects;

// The reading stream. With a header the data decide the form (ascii or
// binary, precision, debug, wide encoding) and the filters, from those that
// the caller offered; without one the settings as configured apply.
//
// On any error, and at an early end of data, reads deliver zeros (arrays are
// zero-filled to their count) and the error stays for End or IsError.
//
// Ownership: the sink, filters and available formats are borrowed.
// Threads:   one thread at a time.
// Invariant: while a block is held, block start <= cursor <= block end.
class QZUTIL_API QzReadStream : public QzStream {
public:
    explicit QzReadStream(QzStreamSink *sink);
    ~QzReadStream() override;
    QzReadStream(QzReadStream const &) = delete;
    QzReadStream &operator=(QzReadStream const &) = delete;

    // Starts a run. With `read_config` reads and checks the header line
    // (with `check_format` an unknown format word is refused, and the
    // extension list is read); otherwise begins filters and sink with the
    // settings as configured. 0 on failure.
    int Begin(int read_config, int check_format);
    // With `check`: a final sync and, in ascii, nothing but white space left
    // in the block. Then ends filters and sink, and calls the dispose method
    // of every object read, in id order (also after a failed read). 0 if the
    // run had an error or never began.
    int End(int check);

    // --- Formats and filters that a header may name ---
    void AddAvailableFormat(QzStreamFormat const *format);
    int GetNumAvailableFormats() const { return static_cast<int>(m_available_formats.size()); }
    QzStreamFormat const *GetAvailableFormat(int index) const;
    void AddAvailableFilter(QzStreamFilter *filter);
    int GetNumAvailableFilters() const { return static_cast<int>(m_available_filters.size()); }
    QzStreamFilter *GetAvailableFilter(int index) const;
    // The format that objects are read by: the stream's format, or this
    // stream's private copy of it once the data's extensions needed entries
    // that it lacks.
    QzStreamFormat const *GetCurrentReadFormat() const { return m_current_read_format; }
    // This stream's own copy of the current read format, made on first use
    // and current from then on, so that a shared format is never changed;
    // null without a format. It lives until the next Begin.
    QzStreamFormat *EditCurrentReadFormat();
    // The private copy, or null if none was needed.
    QzStreamFormat const *GetExtendedFormat() const { return m_extended_format.get(); }
    int GetCurrentReadVersion() const { return m_current_read_version; }
    void SetCurrentReadVersion(int version) { m_current_read_version = version; }

    // --- Objects of the format ---

    // Reads one object record: null (entry -1), a use of an object read
    // before, or a definition whose object the entry's create method makes
    // and its read method fills. The object is registered before it is
    // read, so contained references to it resolve. *entry is the entry the
    // object was read as: for a kind unknown here, the known ancestor whose
    // methods stood in. Null on failure, with the error set.
    void *ReadObject();
    void *ReadObject(int *entry);
    // As ReadObject; for a kind unknown here, *ext receives a new
    // QzStreamExtData (reference count 0, the caller's to Ref) with the part
    // of the object that the ancestor's read method left. Null otherwise.
    void *ReadObjectExt(int *entry, QzStreamExtData **ext);
    // The object if it was read as `entry`; otherwise null and error 24 (a
    // null record included).
    void *ReadCheckedObject(int entry);
    // Registers an object known to both sides by other means, as the
    // writer's AddObject did. `id` must be the next id; otherwise a parse
    // error, and 0.
    int AddObject(void *object, int entry, unsigned id);
    // The object of `id`, or null (also for an id not handed out).
    void *GetObjectW(unsigned id) const;
    // Copies a debug stream into `writer`, value by value in the writer's
    // form, up to the next sync, and ends this run with End(0). 0 unless
    // both streams are in debug mode, and 0 if this run ended in error.
    int CopyDebugToEnd(QzWriteStream *writer);
    // The same over every section of the stream: copies sync to sync, with a
    // sync on the writer after each, until the data end, then End(0). For
    // tools that re-encode whole files without knowing their format.
    int CopyAllDebugData(QzWriteStream *writer);

    // --- Scalars: token checked in debug mode, then the value ---
    LtInt8 ReadInt8();
    LtNat8 ReadNat8();
    LtInt16 ReadInt16();
    LtNat16 ReadNat16();
    LtInt32 ReadInt32();
    LtNat32 ReadNat32();
    LtNat64 ReadNat64();
    LtInt64 ReadTime();
    LtSingle ReadSingle();
    LtDouble ReadDouble();
    LtFloat ReadFloat();
    // True only for exactly 1.
    bool ReadBoolean();
    LtNat32 ReadEnum();
    LtNat32 ReadBitfield();
    // A negative size is a parse error and gives 0; so is one above
    // `maximum`.
    LtInt32 ReadArraySize32();
    LtInt32 ReadArraySize32WithMaximum(int maximum);
    // A null string leaves the buffer null; a NUL inside the data ends the
    // text there (the rest is consumed).
    void ReadString(QzStringBuffer *out);
    void ReadWideString(QzWideStringBuffer *out);

    // --- Arrays; the rest is zero-filled after an error or early end ---
    void ReadInt8Array(LtInt8 *values, LtInt32 count);
    void ReadNat8Array(LtNat8 *values, LtInt32 count);
    void ReadInt16Array(LtInt16 *values, LtInt32 count);
    void ReadNat16Array(LtNat16 *values, LtInt32 count);
    void ReadInt32Array(LtInt32 *values, LtInt32 count);
    void ReadNat32Array(LtNat32 *values, LtInt32 count);
    void ReadNat64Array(LtNat64 *values, LtInt32 count);
    void ReadSingleArray(LtSingle *values, LtInt32 count);
    void ReadDoubleArray(LtDouble *values, LtInt32 count);
    void ReadFloatArray(LtFloat *values, LtInt32 count);

    // --- Undecorated primitives: no token ---
    LtInt16 GetInt16();
    LtInt32 GetInt32();
    LtNat8 GetNat8();
    LtNat16 GetNat16();
    LtNat32 GetNat32();
    LtNat64 GetNat64();
    // Only on a debug stream: demands the token (with its count).
    void CheckDebug(DebugToken token);
    void CheckDebug(DebugToken token, LtInt32 count);
    // Skips the zero padding up to a multiple of `alignment`; non-zero
    // padding is "Malformed data".
    void RequireAlignment(int alignment);
    void ReadSync();

    // --- Ascii scanning ---
    // The next byte, fetching blocks; 0 with error 18 at the end of data.
    char GetChar();
    // One word after white space, terminated; a word of `size` or more
    // characters is a parse error.
    void GetAscii(char *buffer, int size);
    // Demands `text` (after white space, unless it starts with a blank).
    void CheckAscii(char const *text);
    // After white space, 1 for the word `a`, 0 for `b`, chosen by the first
    // character; anything else is a parse error (-1).
    int CheckOption(char const *a, char const *b);
    // Post "Read \"%s\", expected \"%s\"" (with " at line %d" in ascii), read
    // value first, and set error 16.
    void ReportParseError(int expected, int read);
    void ReportParseError(char expected, char read);
    void ReportParseError(char const *expected, char const *read);
    int GetLineNum() const { return m_line_number; }
    int IsEof() const { return m_end_of_data; }

    // --- Bit unpacking ---
    void BeginBits();
    unsigned ReadBits(unsigned char bits);
    // The number of words read; unread bits are dropped.
    int EndBits();

    // --- Scratch buffers for callers that read transient text ---
    QzStringBuffer *TempBuffer() { return &m_temp_buffer; }
    QzWideStringBuffer *TempWideBuffer() { return &m_temp_wide_buffer; }
    // Reads a string into the scratch buffer and returns its text, valid
    // until the next call.
    char const *ReadStringUsingTempBuffer();
    LtWChar const *ReadWideStringUsingTempBuffer();

    // Also copies both available lists.
    void CopyConfig(QzReadStream const &other);
    using QzStream::CopyConfig;

    QzReadStream &operator>>(signed char &value);
    QzReadStream &operator>>(unsigned char &value);
    QzReadStream &operator>>(short &value);
    QzReadStream &operator>>(unsigned short &value);
    QzReadStream &operator>>(int &value);
    QzReadStream &operator>>(unsigned int &value);
    QzReadStream &operator>>(long &value);
    QzReadStream &operator>>(unsigned long &value);
    QzReadStream &operator>>(long long &value);
    QzReadStream &operator>>(unsigned long long &value);
    QzReadStream &operator>>(float &value);
    QzReadStream &operator>>(double &value);
    QzReadStream &operator>>(bool &value);
    QzReadStream &operator>>(QzString &text);
    QzReadStream &operator>>(QzStringBuffer &text);
    QzReadStream &operator>>(QzWideString &text);
    QzReadStream &operator>>(QzWideStringBuffer &text);
    QzReadStream &operator>>(QzStream &(*manipulator)(QzStream &));

private:
    // The element types of the internal array primitive; they index the
    // table of ascii scanners.
    enum ValueKind : int {
        eKIND_NAT8,
        eKIND_INT16,
        eKIND_NAT16,
        eKIND_INT32,
        eKIND_NAT32,
        eKIND_NAT64,
        eKIND_SINGLE,
        eKIND_DOUBLE,
    };

    // Reads the header line after its magic words; 0 on failure.
    int ReadConfig(int check_format);
    int ConfigItem(char const *word, int is_filter, int check_format);
    // The kinds of object record.
    enum ObjectKind : int {
        eOBJECT_BAD,  // the stream is in error
        eOBJECT_NULL,
        eOBJECT_USE,
        eOBJECT_DEF,
    };

    // --- Object records (QzReadStreamObjects.cpp) ---
    // Reads a record's head after its Object token: the kind, and for a use
    // its id, for a definition its id and entry of the current read format
    // (in ascii "{" is taken too).
    ObjectKind GetObjectHeader(unsigned *id, int *entry);
    // The entry word of an ascii definition: a name of the current read
    // format, or a number; -1 after a parse error.
    int ReadAsciiEntry();
    void *ParseObjectUse(unsigned id, int *entry);
    void *ParseObjectDef(unsigned id, int entry, int *out_entry, QzStreamExtData **ext);
    // Copies what the read method of an object's ancestor left, up to the
    // object's end, into a new tail; null without `keep` or on failure.
    QzStreamExtData *ReadObjectTail(int entry, bool keep);
    // Takes the next id with an empty slot (null, entry -2) in the tables;
    // false if a run's tables do not exist.
    bool TakeObjectSlot();
    // Reads the extension list that follows the header of an extendable
    // format, up to its end mark, applying each record.
    void ReadExtensions();
    void AddExtension(int index, char const *name, int parent);
    // Gives a new extension entry the methods of its nearest ancestor that
    // has its own create and read methods.
    void SubstituteAncestor(QzStreamFormat *format, int local, int parent);
    // Calls the dispose method of every object read, in id order.
    void DisposeDataObjects();

    // --- Copying debug data (QzReadStreamCopy.cpp) ---
    // Reads tokens and rewrites each value into `writer` in its form. With
    // `until_end_def` stops after the ObjectEndDef token at nesting 0;
    // otherwise after a Sync token.
    void CopyDebugData(QzWriteStream *writer, int until_end_def);
    // True when nothing is left but, in ascii, white space; fetches blocks
    // to find out. Also true once the stream is in error.
    bool AtEndOfData();
    // The next token; eTOKEN_BAD after an error (a token outside the table,
    // Bad included, is a parse error).
    int ReadDebugToken();
    // The rest of a sync after its token: padding to 8 in binary, the line
    // end in ascii.
    void FinishSync();
    // One object head after its token; raises `nesting` for a definition.
    void CopyObjectHead(QzWriteStream *writer, int *nesting);
    // One value after its token, read without a token and written with one.
    template <typename Value>
    void CopyScalar(QzWriteStream *writer, Value (QzReadStream::*read)(),
                    void (QzWriteStream::*write)(Value));
    // An array after its token: the count, then the elements, which are
    // taken in pieces so that a false count costs no memory beyond the data.
    template <typename Value>
    void CopyArray(QzWriteStream *writer, void (QzReadStream::*read)(Value *, LtInt32),
                   void (QzWriteStream::*write)(Value const *, LtInt32));
    // Replays a kept tail into `writer`, whose format numbers its entries.
    static void ReplayTail(QzStreamExtData const &ext, QzWriteStream *writer);
    // The entry map of a fresh run: identity for the format's own entries.
    void FillEntryMap();
    void ResetBlockState();
    // Tells the head how much of the block was consumed; the block is
    // given up.
    void ProcessedBlock();
    // Fetches the next block; 0 at the end of data or on error.
    int GetBlock();
    // GetBlock, posting "Unexpected end of data" when the data ran out.
    int GetBlockOrFail();
    // Skips and checks the zero padding up to `alignment`, fetching a block
    // if none is held; false if the stream is (or falls) in error.
    bool AlignCursor(int alignment);

    // Scalars: the common binary case takes the value straight from the
    // block; everything else goes through the token check and GetValues.
    template <typename Value>
    bool TakeBinaryFast(Value *value);
    template <typename Value>
    Value ReadScalar(DebugToken token);
    template <typename Value>
    Value ReadScalarSlow(DebugToken token);
    template <typename Value>
    void ReadArray(Value *values, LtInt32 count, DebugToken token);
    // The internal array primitive, without token; zero-fills what it could
    // not read.
    template <typename Value>
    void GetValues(Value *values, LtInt32 count);
    // Binary: `count` elements of `size` bytes at their own alignment,
    // copied in runs up to each block end.
    void GetBinaryValues(void *values, int size, LtInt32 count);
    // Ascii: one word per element, "[" and "]" around any count but 1.
    void ScanAsciiValues(void *values, ValueKind kind, LtInt32 count);

    // The next byte without any message: false at the end of data (the flag
    // is then set) or in error.
    bool TakeChar(char *c);
    // Skips blanks, tabs, carriage returns and line feeds; the first other
    // byte, or false as TakeChar.
    bool TakeNonBlank(char *c);
    void ReadBinaryString(QzStringBuffer *out);
    void ReadQuotedString(QzStringBuffer *out);
    // With `check`, in ascii: only white space may be left in the block.
    void CheckTrailingWhiteSpace();

    std::vector<QzStreamFormat const *> m_available_formats;  // borrowed
    std::vector<QzStreamFilter *> m_available_filters;        // borrowed
    std::unique_ptr<QzStreamReadObjects> m_objects;           // exists from Begin to End
    unsigned m_next_object_id = 100;
    std::unique_ptr<QzStreamFormat> m_extended_format;  // private copy, from first need to Begin
    QzStreamFormat const *m_current_read_format = nullptr;
    int m_current_read_version = 0;
    int m_alignment = 0;  // 0: no block held; else what the cursor is known to have
    unsigned char const *m_block_start = nullptr;
    unsigned char const *m_block_end = nullptr;
    unsigned char const *m_cursor = nullptr;
    int m_end_of_data = 0;
    int m_line_number = 1;
    unsigned m_bit_accumulator = 0;
    unsigned char m_bits_left = 0;
    int m_bit_words = 0;
    QzStringBuffer m_temp_buffer;
    QzStringBuffer m_temp_buffer2;  // the narrow form of a wide string being read
    QzWideStringBuffer m_temp_wide_buffer;

    // A writer replays kept tails through a reader over their bytes.
    friend class QzWriteStream;
};

// --- Inline scalars ---
// The common binary case (no token, a block held with the cursor aligned for
// the value and the value in it, no error) takes the value in place, so a
// loop of scalar reads costs a few instructions a value; everything else
// goes through the token check and the out-of-line paths. In ascii the
// alignment stays 1, so only single bytes need the ascii test.

template <typename Value>
inline bool QzReadStream::TakeBinaryFast(Value *value)
{
    constexpr int kSize = static_cast<int>(sizeof(Value));
    if (m_alignment < kSize || m_block_end - m_cursor < kSize || IsError() || IsDebug() ||
        (kSize == 1 && IsAscii()))
        return false;
    std::memcpy(value, m_cursor, sizeof(Value));
    m_cursor += kSize;
    m_alignment = kSize;
    return true;
}

template <typename Value>
inline Value QzReadStream::ReadScalar(DebugToken token)
{
    Value value;
    if (TakeBinaryFast(&value))
        return value;
    return ReadScalarSlow<Value>(token);
}

inline LtInt8 QzReadStream::ReadInt8()
{
    return static_cast<LtInt8>(ReadScalar<LtNat8>(eTOKEN_NAT8));
}

inline LtNat8 QzReadStream::ReadNat8()
{
    return ReadScalar<LtNat8>(eTOKEN_NAT8);
}

inline LtInt16 QzReadStream::ReadInt16()
{
    return ReadScalar<LtInt16>(eTOKEN_INT16);
}

inline LtNat16 QzReadStream::ReadNat16()
{
    return ReadScalar<LtNat16>(eTOKEN_NAT16);
}

inline LtInt32 QzReadStream::ReadInt32()
{
    return ReadScalar<LtInt32>(eTOKEN_INT32);
}

inline LtNat32 QzReadStream::ReadNat32()
{
    return ReadScalar<LtNat32>(eTOKEN_NAT32);
}

inline LtNat64 QzReadStream::ReadNat64()
{
    return ReadScalar<LtNat64>(eTOKEN_NAT64);
}

inline LtInt64 QzReadStream::ReadTime()
{
    return static_cast<LtInt64>(ReadScalar<LtNat64>(eTOKEN_NAT64));
}

inline LtDouble QzReadStream::ReadDouble()
{
    return ReadScalar<LtDouble>(eTOKEN_DOUBLE);
}

inline bool QzReadStream::ReadBoolean()
{
    return ReadScalar<LtNat32>(eTOKEN_BOOLEAN) == 1;
}

inline LtNat32 QzReadStream::ReadEnum()
{
    return ReadScalar<LtNat32>(eTOKEN_ENUM);
}

inline LtNat32 QzReadStream::ReadBitfield()
{
    return ReadScalar<LtNat32>(eTOKEN_BITFIELD);
}
