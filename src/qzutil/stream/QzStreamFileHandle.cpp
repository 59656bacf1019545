// QzStreamFileHandle.cpp: blocks to and from a caller's FILE.

#include "qzutil/stream/QzStreamFileHandle.h"

#include <cerrno>

#include "qzutil/frame/QzError.h"
#include "qzutil/sys/QzSysFile.h"

static constexpr int kFileBlockSize = 65536;

QzStreamFileHandle::QzStreamFileHandle(std::FILE *file)
    : QzStreamBlockSink(kFileBlockSize, 0), m_file(file)
{}

QzStreamFileHandle::~QzStreamFileHandle() = default;

int QzStreamFileHandle::WriteBytes(unsigned char const *data, int size, char const *what)
{
    auto const bytes = static_cast<std::size_t>(size);
    // One item of `bytes`: the count is 1 or 0, and the bytes written are
    // taken as `bytes` times that count.
    int const written =
        m_file ? static_cast<int>(QzSysFile::fwrite(data, bytes, 1, m_file)) * size : 0;
    if (written == size)
        return 1;
    int const error_number = errno;
    QzError::Post(QzSysError::eWARNING, GetComponent(),
                  "%s: fwrite(%d) returned %d, ferror %d, last error %d", what, size, written,
                  m_file ? std::ferror(m_file) : 0, error_number);
    return 0;
}

int QzStreamFileHandle::WriteFlush()
{
    // The pending bytes count as gone whatever the outcome: a failed flush
    // is not retried with the same bytes.
    int pending = 0;
    unsigned char const *block = FlushProcessedBlock(&pending);
    if (block && !WriteBytes(block, pending, "WriteFlush"))
        return 0;
    if (m_file == nullptr || std::fflush(m_file) != 0) {
        QzError::Post(QzSysError::eWARNING, GetComponent(), "WriteFlush: fflush failed");
        return 0;
    }
    return 1;
}

int QzStreamFileHandle::WriteBlock(unsigned char const *data, int size)
{
    return WriteBytes(data, size, "WriteBlock");
}

QzFileURL::Status QzStreamFileHandle::ReadBlock(unsigned char *buffer, int *size)
{
    *size = m_file ? static_cast<int>(QzSysFile::fread(buffer, 1, kFileBlockSize, m_file)) : 0;
    return QzFileURL::eSTATUS_OK;
}
