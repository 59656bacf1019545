// QzStream.h: what the typed write and read streams share: the sink and
// filter chain, the representation settings that a stream's header line
// records, the object format, the user's slots, and the sticky error.
#pragma once

#include <vector>

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzString.h"

class QzComponent;
class QzProgress;
class QzStreamFilter;
class QzStreamFormat;
class QzStreamSink;

// Base of QzWriteStream and QzReadStream.
//
// Errors are sticky: once set, every primitive does nothing and reads give
// zeros; the caller looks once, at End or with IsError. A stream that was
// never begun holds ErrorNotBegun and is thereby inert.
//
// Ownership: the sink, filters, format, progress and user slots are all
//            borrowed.
// Threads:   one thread at a time; no locks.
class QZUTIL_API QzStream {
public:
    QZ_DECLARE_ALLOCATORS()

    // The numbers are part of the interface: GetError, and the id of every
    // message posted for the component QzStream.
    enum ErrorId : int {
        ErrorNone = 0,
        ErrorNoFormat = 1,
        ErrorNoEntry = 2,
        ErrorWriteBegin = 3,
        ErrorWriteLock = 4,
        ErrorWriteProcess = 5,
        ErrorFlush = 6,
        ErrorWriteEnd = 7,
        ErrorReadBegin = 8,
        ErrorReadLock = 9,
        ErrorReadProcess = 10,
        ErrorReadEnd = 11,
        ErrorAlignment = 12,
        ErrorReserved13 = 13,  // never raised
        ErrorUnknownConfig = 14,
        ErrorMalformed = 15,
        ErrorParse = 16,
        ErrorBadExtension = 17,
        ErrorEndOfData = 18,
        ErrorExtensionConflict = 19,
        ErrorNoSubstitute = 20,
        ErrorCreateFailed = 21,
        ErrorObjectRead = 22,
        ErrorObjectWrite = 23,
        ErrorWrongType = 24,
        ErrorBadObjectId = 25,
        ErrorNotBegun = 26,
    };

    // How wide strings travel. The header says "utf8 " for 0 and 2 and "C "
    // for 1; a reader takes "utf8 " as 0.
    enum WideStringEncoding : int {
        eWIDE_UTF8 = 0,        // UTF-8, surrogate pairs combined
        eWIDE_MULTIBYTE = 1,   // the platform's multi-byte text
        eWIDE_UTF8_UNITS = 2,  // older UTF-8, one UTF-16 unit at a time; written only
    };

    // Indices of the six user slots: 0 to 3 for applications, 4 the external
    // reference context, 5 the schema stream context.
    enum SlotData : int {
        eSLOT_USER_0 = 0,
        eSLOT_USER_1 = 1,
        eSLOT_USER_2 = 2,
        eSLOT_USER_3 = 3,
        eSLOT_EXTERNAL_REFERENCES = 4,
        eSLOT_SCHEMA_CONTEXT = 5,
        eSLOT_COUNT = 6,
    };

    // The type tokens of debug streams: an Int32 in binary, the name in
    // ascii. eTOKEN_BAD is never sent.
    enum DebugToken : int {
        eTOKEN_BAD = 0,
        eTOKEN_SYNC = 1,
        eTOKEN_NAT8 = 2,
        eTOKEN_INT16 = 3,
        eTOKEN_NAT16 = 4,
        eTOKEN_INT32 = 5,
        eTOKEN_NAT32 = 6,
        eTOKEN_SINGLE = 7,
        eTOKEN_DOUBLE = 8,
        eTOKEN_FLOAT = 9,
        eTOKEN_BOOLEAN = 10,
        eTOKEN_ENUM = 11,
        eTOKEN_BITFIELD = 12,
        eTOKEN_STRING = 13,
        eTOKEN_NAT8_ARRAY = 14,
        eTOKEN_INT16_ARRAY = 15,
        eTOKEN_NAT16_ARRAY = 16,
        eTOKEN_INT32_ARRAY = 17,
        eTOKEN_NAT32_ARRAY = 18,
        eTOKEN_SINGLE_ARRAY = 19,
        eTOKEN_DOUBLE_ARRAY = 20,
        eTOKEN_FLOAT_ARRAY = 21,
        eTOKEN_OBJECT = 22,
        eTOKEN_OBJECT_END_DEF = 23,
        eTOKEN_NAT64 = 24,
        eTOKEN_NAT64_ARRAY = 25,
        eTOKEN_COUNT = 26,
    };
    // The ascii word of a token ("Bad" to "Nat64Array"); null outside 0..25.
    static char const *GetDebugTokenName(int token);

    // Strings longer than this are cut on writing and refused on reading.
    static constexpr int kMaxStringLength = 16777216;

    explicit QzStream(QzStreamSink *sink);
    QzStream(QzStream const &other);
    QzStream &operator=(QzStream const &other);
    virtual ~QzStream();

    QzStreamFormat const *GetFormat() const { return m_format; }
    char const *GetFormatName() const { return m_format_name; }
    int GetFormatVersion() const { return m_format_version; }
    QzStreamSink *GetSink() const { return m_sink; }
    int GetNumActiveFilters() const { return static_cast<int>(m_active_filters.size()); }
    QzStreamFilter *GetActiveFilter(int index) const;
    int IsAscii() const { return m_ascii; }
    int IsDouble() const { return m_double; }
    int IsDebug() const { return m_debug; }
    WideStringEncoding GetWideStringEncoding() const { return m_wide_string_encoding; }
    int IsError() const { return m_error != ErrorNone; }
    ErrorId GetError() const { return m_error; }
    void *GetUserData(SlotData slot) const;
    QzProgress *GetUserProgress() const { return m_user_progress; }

    // Takes name and version from the format, or clears both for null.
    void SetFormat(QzStreamFormat const *format);
    void SetFormatName(char const *name) { m_format_name = name; }
    void SetFormatVersion(int version) { m_format_version = version; }
    void SetSink(QzStreamSink *sink) { m_sink = sink; }
    void AddActiveFilter(QzStreamFilter *filter);
    // Drops the last filter; nothing if there is none.
    void PopActiveFilter();
    void SetActiveFilter(int index, QzStreamFilter *filter);
    void ClearActiveFilters() { m_active_filters.clear(); }
    void SetAscii(int ascii) { m_ascii = ascii; }
    void SetDouble(int is_double) { m_double = is_double; }
    void SetDebug(int debug) { m_debug = debug; }
    void SetWideStringEncoding(WideStringEncoding encoding) { m_wide_string_encoding = encoding; }
    void SetError(ErrorId error) { m_error = error; }
    void SetUserData(SlotData slot, void *data);
    void SetUserProgress(QzProgress *progress) { m_user_progress = progress; }

    // The header line: "#QzStream-V1.1 ", the four setting words, the format
    // name ("linull" for none), each active filter's name after a blank, and
    // a line feed.
    QzString GetConfig() const;
    // Format, name, version, filters, the four settings and the user slots;
    // not the sink, error, progress or head.
    void CopyConfig(QzStream const &other);

    // Begins the filters (and with `with_sink` the sink) for writing or
    // reading and links the chain: filter 0 is the head, each filter's next
    // sink its successor, the last one's the sink. A refusal posts, ends
    // what was begun, sets the error and answers 0.
    int InitChain(int write, int with_sink);
    // Unlinks every filter first, then ends each (and with `with_sink` the
    // sink), posting failures and going on. Non-zero if all ended well.
    int ClearChain(int write, int with_sink);

    // The counted component "QzStream", over QzError, QzString and
    // QzStreamSink.
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

protected:
    // What the stream talks to: the first filter, or the sink.
    QzStreamSink *GetHead() const { return m_head; }
    void SetHead(QzStreamSink *head) { m_head = head; }

    // Sets `error` and posts the message at eDEBUG for QzStream, with the
    // error as id and `data` (the sink or stream concerned) as data.
    void PostError(ErrorId error, void *data, char const *format, ...)
        __attribute__((format(printf, 4, 5)));
    // Posts at eWARNING with `id` as id ("Flush Failed", "Truncating
    // string"); the error is left to the caller.
    void PostWarning(ErrorId id, void *data, char const *format, ...)
        __attribute__((format(printf, 4, 5)));
    static QzComponent *GetComponent();

private:
    QzStreamSink *m_sink;
    ErrorId m_error = ErrorNotBegun;
    QzStreamFormat const *m_format = nullptr;
    char const *m_format_name = nullptr;
    int m_format_version = 0;
    std::vector<QzStreamFilter *> m_active_filters;  // chain order, borrowed
    int m_ascii = 0;
    int m_double = 1;
    int m_debug = 0;
    WideStringEncoding m_wide_string_encoding = eWIDE_UTF8;
    void *m_user_data[eSLOT_COUNT] = {};
    QzProgress *m_user_progress = nullptr;
    QzStreamSink *m_head = nullptr;
};
