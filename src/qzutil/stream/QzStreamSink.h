// QzStreamSink.h: the byte end of every stream. A sink lends the stream a
// piece of its own memory to fill (or to read) and is told afterwards how
// many bytes were used, so bytes are written once, straight into storage.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/url/QzFileURL.h"

class QzComponent;
class QzWriteStream;
class QzReadStream;

// Abstract byte sink and source.
//
// Writing: WriteBegin once; then any number of WriteLock (lends the whole
// free area) and WriteProcess(count) (that many bytes of it were filled;
// nothing else in the lent area survives); WriteFlush pushes processed bytes
// to storage, a partial block included; WriteEnd finishes.
// Reading: ReadBegin; ReadLock lends the unread data, ReadProcess(count)
// says how much was consumed, and the rest is lent again by the next
// ReadLock; ReadEnd finishes.
//
// Results: the write operations and ReadProcess answer non-zero for success.
// ReadLock (and QzStreamBlockSink::ReadBlock) answer a QzFileURL::Status
// instead, 0 for success; end of data is success with a null buffer or a
// size of 0. Sinks post nothing of their own unless a class says so; the
// stream turns a failure into its error.
//
// Ownership: a stream does not own its sink. A sink may be begun again after
//            it has ended.
// Threads:   one thread at a time, like the stream that drives it.
class QZUTIL_API QzStreamSink {
public:
    QZ_DECLARE_ALLOCATORS()

    QzStreamSink() = default;
    virtual ~QzStreamSink();
    QzStreamSink(QzStreamSink const &) = delete;
    QzStreamSink &operator=(QzStreamSink const &) = delete;

    virtual int WriteBegin(QzWriteStream const *stream);
    virtual int WriteLock(unsigned char **buffer, int *size) = 0;
    virtual int WriteProcess(int count) = 0;
    virtual int WriteFlush();
    virtual int WriteEnd();

    virtual int ReadBegin(QzReadStream const *stream);
    virtual QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) = 0;
    virtual int ReadProcess(int count) = 0;
    virtual int ReadEnd();

    // Memory for a block of `size` bytes: by default whole regions of the
    // allocator (size rounded up to the region granule), so that blocks
    // taken and returned at high rates cost no heap work. Null on failure.
    virtual unsigned char *AllocBlock(int size);
    // Returns a block of AllocBlock with the same size; non-zero on success.
    virtual int DeallocBlock(unsigned char *block, int size);

    // The counted component "QzStreamSink", over QzError.
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

protected:
    // The component that the sinks' own messages are posted for.
    static QzComponent *GetComponent();
};
