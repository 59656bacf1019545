// QzChecksumSink.cpp: the Adler-32 of a write run, block by block.

#include "qzutil/stream/QzChecksumSink.h"

static constexpr int kChecksumBlockSize = 4096;  // bytes; any size gives the same value

QzChecksumSink::QzChecksumSink() : QzStreamBlockSink(kChecksumBlockSize, 0)
{}

QzChecksumSink::~QzChecksumSink() = default;

int QzChecksumSink::WriteBegin(QzWriteStream const *stream)
{
    m_checksum.Begin();
    return QzStreamBlockSink::WriteBegin(stream);
}

int QzChecksumSink::WriteFlush()
{
    int size = 0;
    unsigned char const *pending = FlushProcessedBlock(&size);
    if (pending)
        m_checksum.AddNat8Array(pending, static_cast<unsigned>(size));
    return 1;
}

int QzChecksumSink::WriteEnd()
{
    int const result = QzStreamBlockSink::WriteEnd();
    m_checksum_value = m_checksum.End();
    return result;
}

int QzChecksumSink::WriteBlock(unsigned char const *data, int size)
{
    m_checksum.AddNat8Array(data, static_cast<unsigned>(size));
    return 1;
}

int QzChecksumSink::ReadBegin(QzReadStream const *)
{
    return 0;
}

int QzChecksumSink::ReadEnd()
{
    return 0;
}

QzFileURL::Status QzChecksumSink::ReadBlock(unsigned char *, int *size)
{
    *size = 0;
    return QzFileURL::eSTATUS_ERROR;
}
