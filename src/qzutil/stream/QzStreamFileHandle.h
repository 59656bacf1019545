// QzStreamFileHandle.h: a block sink over an open C stream.
#pragma once

#include <cstdio>

#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamBlockSink.h"

// Moves 64 KiB blocks to and from a FILE that the caller opened.
//
// Failures of fwrite and fflush are posted at eWARNING for the component
// QzStreamSink with the counts, ferror and errno, and answered 0. A read
// error looks like the end of data to the stream: ReadBlock always answers
// status 0.
//
// Ownership: the FILE is borrowed; the destructor does not close it.
// Threads:   as QzStreamSink.
class QZUTIL_API QzStreamFileHandle : public QzStreamBlockSink {
public:
    explicit QzStreamFileHandle(std::FILE *file);
    ~QzStreamFileHandle() override;

    std::FILE *GetHandle() const { return m_file; }
    void SetHandle(std::FILE *file) { m_file = file; }

    // Writes the bytes processed since the last block went out, then
    // fflush.
    int WriteFlush() override;
    int WriteBlock(unsigned char const *data, int size) override;
    // Reads up to 65,536 bytes, whatever the block size.
    QzFileURL::Status ReadBlock(unsigned char *buffer, int *size) override;

private:
    // fwrite of `size` bytes; on a short count posts `what` and answers 0.
    int WriteBytes(unsigned char const *data, int size, char const *what);

    std::FILE *m_file;  // borrowed
};
