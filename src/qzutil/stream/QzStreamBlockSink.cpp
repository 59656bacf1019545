// QzStreamBlockSink.cpp: one block of memory between the stream and a
// storage that moves whole blocks.

#include "qzutil/stream/QzStreamBlockSink.h"

#include <cstring>

QzStreamBlockSink::QzStreamBlockSink(int block_size, int strict)
    : m_block_size(block_size), m_strict(strict)
{}

// A virtual call here would reach only this class's DeallocBlock: a subclass
// that places its blocks elsewhere releases them in its own destructor.
QzStreamBlockSink::~QzStreamBlockSink()
{
    if (m_block)
        QzStreamSink::DeallocBlock(m_block, m_block_size);
}

int QzStreamBlockSink::WriteBegin(QzWriteStream const *)
{
    if (m_block == nullptr) {
        m_block = AllocBlock(m_block_size);
        if (m_block == nullptr)
            return 0;
    }
    m_cursor = m_block;
    return 1;
}

int QzStreamBlockSink::WriteLock(unsigned char **buffer, int *size)
{
    if (m_block == nullptr)
        return 0;
    *buffer = m_cursor;
    *size = m_block_size - static_cast<int>(m_cursor - m_block);
    return 1;
}

int QzStreamBlockSink::WriteProcess(int count)
{
    if (m_block == nullptr || count < 0 ||
        count > m_block_size - static_cast<int>(m_cursor - m_block))
        return 0;
    m_cursor += count;
    if (m_cursor == m_block + m_block_size) {
        if (!WriteBlock(m_block, m_block_size))
            return 0;
        m_cursor = m_block;
    }
    return 1;
}

int QzStreamBlockSink::WriteEnd()
{
    if (m_block == nullptr)
        return 1;
    int const pending = static_cast<int>(m_cursor - m_block);
    if (pending > 0) {
        int written;
        if (m_strict) {
            std::memset(m_cursor, 0, static_cast<std::size_t>(m_block_size - pending));
            written = WriteBlock(m_block, m_block_size);
        } else {
            written = WriteBlock(m_block, pending);
        }
        // The block stays, so that the caller may still look at it.
        if (!written)
            return 0;
    }
    m_cursor = nullptr;
    unsigned char *block = m_block;
    m_block = nullptr;
    return DeallocBlock(block, m_block_size);
}

int QzStreamBlockSink::ReadBegin(QzReadStream const *)
{
    if (m_block == nullptr) {
        m_block = AllocBlock(m_block_size);
        if (m_block == nullptr)
            return 0;
    }
    m_cursor = nullptr;
    return 1;
}

QzFileURL::Status QzStreamBlockSink::ReadLock(unsigned char const **buffer, int *size)
{
    if (m_block == nullptr)
        return QzFileURL::eSTATUS_ERROR;
    if (m_cursor == nullptr) {
        int limit = 0;
        QzFileURL::Status const status = ReadBlock(m_block, &limit);
        if (status != QzFileURL::eSTATUS_OK)
            return status;
        if (limit <= 0) {
            // End of data; the next lock asks the storage again.
            *buffer = nullptr;
            *size = 0;
            return QzFileURL::eSTATUS_OK;
        }
        m_read_limit = limit;
        m_cursor = m_block;
    }
    *buffer = m_cursor;
    *size = m_read_limit - static_cast<int>(m_cursor - m_block);
    return QzFileURL::eSTATUS_OK;
}

int QzStreamBlockSink::ReadProcess(int count)
{
    if (m_block == nullptr || count < 0)
        return 0;
    if (m_cursor == nullptr)
        return count == 0;
    if (count > m_read_limit - static_cast<int>(m_cursor - m_block))
        return 0;
    m_cursor += count;
    if (m_cursor == m_block + m_read_limit)
        m_cursor = nullptr;
    return 1;
}

int QzStreamBlockSink::ReadEnd()
{
    return 1;
}

unsigned char *QzStreamBlockSink::FlushProcessedBlock(int *size)
{
    *size = static_cast<int>(m_cursor - m_block);
    m_cursor = m_block;
    return *size != 0 ? m_block : nullptr;
}
