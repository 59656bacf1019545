// QzStreamBuffer.cpp: the contiguous memory sink, its 8-byte alignment rules
// and its growth.

#include "qzutil/stream/QzStreamBuffer.h"

#include <cstdint>
#include <cstring>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/memory/QzMemory.h"

static constexpr unsigned kInitialSize = 65536;  // first managed buffer
static constexpr unsigned kGrowthStep = 65536;   // growth when doubling fails
// The allocator's limit for one request; lent sizes must also fit an int.
static constexpr LtNat64 kMaxAllocation = 0x7FF00000;

static std::uintptr_t Phase(unsigned char const *address)
{
    return reinterpret_cast<std::uintptr_t>(address) % 8;
}

// The first 8-aligned address at or after `address`; null stays null.
static unsigned char *AlignUp(unsigned char *address)
{
    return address == nullptr ? nullptr : address + (8 - Phase(address)) % 8;
}

static unsigned char *AlignDown(unsigned char *address)
{
    return address - Phase(address);
}

// Bytes from `from` to `to`; 0 where `to` does not lie after `from` (a
// caller's buffer too short to reach its first 8-aligned byte).
static int Span(unsigned char const *from, unsigned char const *to)
{
    return to > from ? static_cast<int>(to - from) : 0;
}

// A larger copy of a managed buffer through the heap's realloc, which keeps
// the bytes at the same offsets; null (old block kept) if the size is beyond
// the allocator's limit or memory runs out.
static unsigned char *TryResize(unsigned char *buffer, LtNat64 size)
{
    if (size > kMaxAllocation)
        return nullptr;
    return static_cast<unsigned char *>(QzMemory::TryRealloc(buffer, static_cast<unsigned>(size)));
}

QzStreamBuffer::~QzStreamBuffer()
{
    Reset();
}

void QzStreamBuffer::Reset()
{
    if (m_managed)
        QzMemory::Free(m_buffer);
    m_buffer = nullptr;
    m_end = nullptr;
    m_cursor = nullptr;
    m_allocation_size = 0;
    m_managed = 0;
}

int QzStreamBuffer::SetBuffer(unsigned char *buffer, int size, Hint hint)
{
    Reset();
    if (size < 0 || static_cast<LtNat64>(size) + 7 > kMaxAllocation)
        return 0;
    if (buffer == nullptr)
        return 1;
    if (hint == HintUseAlways || (hint == HintUseIfAligned && Phase(buffer) == 0)) {
        m_buffer = buffer;
        m_end = buffer + size;
        m_cursor = AlignUp(buffer);
        return 1;
    }
    // Up to 7 bytes of padding put the copy's first byte on a boundary
    // whatever the heap's alignment.
    unsigned const allocation_size = static_cast<unsigned>(size) + 7;
    auto *copy = static_cast<unsigned char *>(QzMemory::TryMalloc(allocation_size));
    if (copy == nullptr)
        return 0;
    m_buffer = copy;
    m_allocation_size = allocation_size;
    m_managed = 1;
    m_cursor = AlignUp(copy);
    std::memcpy(m_cursor, buffer, static_cast<std::size_t>(size));
    m_end = m_cursor + size;
    return 1;
}

unsigned char *QzStreamBuffer::GetAlignedBuffer() const
{
    return AlignUp(m_buffer);
}

int QzStreamBuffer::GetSize() const
{
    return Span(m_buffer, m_end);
}

int QzStreamBuffer::GetUsed() const
{
    return Span(m_buffer, m_cursor);
}

int QzStreamBuffer::GetAlignedSize() const
{
    return Span(GetAlignedBuffer(), m_end);
}

int QzStreamBuffer::GetAlignedUsed() const
{
    return Span(GetAlignedBuffer(), m_cursor);
}

unsigned char *QzStreamBuffer::ClaimBuffer()
{
    m_managed = 0;
    return m_buffer;
}

int QzStreamBuffer::WriteBegin(QzWriteStream const *)
{
    if (m_buffer == nullptr) {
        auto *buffer = static_cast<unsigned char *>(QzMemory::TryMalloc(kInitialSize));
        if (buffer == nullptr)
            return 0;
        m_buffer = buffer;
        m_end = buffer + kInitialSize;
        m_allocation_size = kInitialSize;
        m_managed = 1;
    }
    m_cursor = AlignUp(m_buffer);
    m_end = AlignDown(m_end);
    return 1;
}

int QzStreamBuffer::Grow()
{
    if (!m_managed)
        return 0;
    // Offsets are taken before the old block may be released by realloc.
    std::uintptr_t const old_phase = Phase(m_buffer);
    std::size_t const data_offset = static_cast<std::size_t>(GetAlignedBuffer() - m_buffer);
    std::size_t const used = static_cast<std::size_t>(GetAlignedUsed());

    LtNat64 new_size = 2 * static_cast<LtNat64>(m_allocation_size);
    unsigned char *grown = TryResize(m_buffer, new_size);
    if (grown == nullptr) {
        new_size = static_cast<LtNat64>(m_allocation_size) + kGrowthStep;
        grown = TryResize(m_buffer, new_size);
        if (grown == nullptr)
            return 0;
    }
    // realloc kept the bytes at their offsets; if the new block's phase
    // differs, the data no longer start on a boundary and are moved to one.
    // The new block has at least 7 more bytes than the old, so they fit.
    unsigned char *data_start = AlignUp(grown);
    if (Phase(grown) != old_phase)
        std::memmove(data_start, grown + data_offset, used);
    m_buffer = grown;
    m_allocation_size = static_cast<unsigned>(new_size);
    m_cursor = data_start + used;
    m_end = AlignDown(grown + new_size);
    return 1;
}

int QzStreamBuffer::WriteLock(unsigned char **buffer, int *size)
{
    if (m_cursor >= m_end && !Grow())
        return 0;
    *buffer = m_cursor;
    *size = static_cast<int>(m_end - m_cursor);
    return 1;
}

int QzStreamBuffer::WriteProcess(int count)
{
    if (count < 0 || count > Span(m_cursor, m_end))
        return 0;
    m_cursor += count;
    return 1;
}

// A managed buffer is trimmed to what was written, so that GetSize and a
// later read see exactly that; one that received nothing is released. A
// caller's buffer keeps its size, and a read then lends all of it.
int QzStreamBuffer::WriteEnd()
{
    if (!m_managed || m_cursor == m_end)
        return 1;
    if (m_cursor != GetAlignedBuffer())
        m_end = m_cursor;
    else
        Reset();
    return 1;
}

int QzStreamBuffer::ReadBegin(QzReadStream const *)
{
    m_cursor = AlignUp(m_buffer);
    return 1;
}

QzFileURL::Status QzStreamBuffer::ReadLock(unsigned char const **buffer, int *size)
{
    if (m_cursor == nullptr || m_cursor >= m_end) {
        *buffer = nullptr;
        *size = 0;
    } else {
        *buffer = m_cursor;
        *size = static_cast<int>(m_end - m_cursor);
    }
    return QzFileURL::eSTATUS_OK;
}

int QzStreamBuffer::ReadProcess(int count)
{
    if (count == 0)
        return 1;
    if (count < 0 || count > Span(m_cursor, m_end))
        return 0;
    m_cursor += count;
    return 1;
}
