// QzStreamFileURLHandle.h: a block sink over an open URL-addressed file,
// moving 64 KiB blocks to and from it at a 64-bit file pointer.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamBlockSink.h"
#include "qzutil/url/QzFileURL.h"

// Writes each full block (and, on WriteFlush or WriteEnd, the partial one)
// at the file pointer, which then moves past it; reads blocks from the file
// pointer up to the read limit, or to the end of the file while that limit
// is 0. A status other than success from QzFileURL::Read (a remote file not
// there yet) reaches the stream unchanged, with the file pointer unmoved so
// that the same read can be tried again.
//
// Ownership: borrows the handle; the caller keeps it open for as long as the
//            sink is used and closes it afterwards.
// Threads:   as QzStreamSink.
class QZUTIL_API QzStreamFileURLHandle : public QzStreamBlockSink {
public:
    explicit QzStreamFileURLHandle(QzFileURLHandle *handle);
    ~QzStreamFileURLHandle() override;

    QzFileURLHandle *GetHandle() const { return m_handle; }
    void SetHandle(QzFileURLHandle *handle) { m_handle = handle; }
    // The byte position of the next block read or written.
    LtNat64 GetFilePointer() const { return m_file_pointer; }
    void SetFilePointer(LtNat64 position) { m_file_pointer = position; }
    // The byte position at which reading stops; 0 is the end of the file.
    LtNat64 GetReadLimit() const { return m_read_limit; }
    void SetReadLimit(LtNat64 limit) { m_read_limit = limit; }

    // Writes the bytes processed since the last block went out; nothing
    // below the handle is flushed.
    int WriteFlush() override;
    int WriteBlock(unsigned char const *data, int size) override;
    QzFileURL::Status ReadBlock(unsigned char *buffer, int *size) override;

private:
    QzFileURLHandle *m_handle;   // borrowed
    LtNat64 m_file_pointer = 0;  // bytes
    LtNat64 m_read_limit = 0;    // bytes; 0 for the end of the file
};
