// QzStreamFileURLHandle.cpp: blocks of a stream sink written to and read from
// a QzFileURL handle.

#include "qzutil/stream/QzStreamFileURLHandle.h"

// The most that one ReadBlock asks for: one block of the sink.
static constexpr unsigned kReadBlockBytes = 65536;

QzStreamFileURLHandle::QzStreamFileURLHandle(QzFileURLHandle *handle)
    : QzStreamBlockSink(static_cast<int>(kReadBlockBytes), 0), m_handle(handle)
{}

QzStreamFileURLHandle::~QzStreamFileURLHandle() = default;

int QzStreamFileURLHandle::WriteFlush()
{
    int pending = 0;
    unsigned char *block = FlushProcessedBlock(&pending);
    return block == nullptr ? 1 : WriteBlock(block, pending);
}

int QzStreamFileURLHandle::WriteBlock(unsigned char const *data, int size)
{
    if (size < 0)
        return 0;
    if (size == 0)
        return 1;
    unsigned const count = static_cast<unsigned>(size);
    if (QzFileURL::Write(m_handle, QzFileURL::eTYPE_BLOCKING, m_file_pointer, data, count,
                         nullptr) != QzFileURL::eSTATUS_OK)
        return 0;
    m_file_pointer += count;
    return 1;
}

QzFileURL::Status QzStreamFileURLHandle::ReadBlock(unsigned char *buffer, int *size)
{
    *size = 0;
    LtNat64 const limit = m_read_limit != 0 ? m_read_limit : QzFileURL::GetFileSize(m_handle);
    LtNat64 const left = m_file_pointer < limit ? limit - m_file_pointer : 0;
    unsigned const count = left < kReadBlockBytes ? static_cast<unsigned>(left) : kReadBlockBytes;
    if (count != 0) {
        QzFileURL::Status const status = QzFileURL::Read(m_handle, QzFileURL::eTYPE_BLOCKING,
                                                         m_file_pointer, buffer, count, nullptr);
        if (status != QzFileURL::eSTATUS_OK)
            return status;
        m_file_pointer += count;
    }
    *size = static_cast<int>(count);
    return QzFileURL::eSTATUS_OK;
}
