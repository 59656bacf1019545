// QzChecksumSink.h: a sink that keeps only the Adler-32 of what a stream
// writes, the fingerprint of a whole serialised object.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzChecksum.h"
#include "qzutil/stream/QzStreamBlockSink.h"

// Runs the bytes of each write run through a QzChecksum, 4,096 at a time,
// and keeps the value at WriteEnd. It stores nothing, so it cannot be read:
// ReadBegin and ReadEnd answer 0 and ReadBlock status 2.
//
// Ownership: owns its block, as any block sink.
// Threads:   as QzStreamSink.
class QZUTIL_API QzChecksumSink : public QzStreamBlockSink {
public:
    QzChecksumSink();
    ~QzChecksumSink() override;

    // The Adler-32 of the bytes of the last run that ended; 1 (that of no
    // bytes) before any has.
    unsigned GetChecksum() const { return m_checksum_value; }

    // Restarts the checksum.
    int WriteBegin(QzWriteStream const *stream) override;
    // Adds the bytes processed since the last block went in.
    int WriteFlush() override;
    // Adds what is pending and keeps the value.
    int WriteEnd() override;
    int WriteBlock(unsigned char const *data, int size) override;

    int ReadBegin(QzReadStream const *stream) override;
    int ReadEnd() override;
    QzFileURL::Status ReadBlock(unsigned char *buffer, int *size) override;

private:
    QzChecksum m_checksum;
    unsigned m_checksum_value = 1;
};
