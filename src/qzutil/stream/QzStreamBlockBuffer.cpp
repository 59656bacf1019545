// QzStreamBlockBuffer.cpp: writing into, reading from and comparing chains
// of blocks.

#include "qzutil/stream/QzStreamBlockBuffer.h"

#include <algorithm>
#include <cstring>

#include "qzutil/stream/QzStreamBlock.h"

static constexpr int kBlockData = QzStreamBlock::kDataSize;

// Bytes of `block` that hold data in a chain ending at `tail`.
static int BlockLimit(QzStreamBlock const *block, QzStreamBlock const *tail, int tail_used)
{
    return block == tail ? tail_used : kBlockData;
}

namespace {

// A read position in a chain that EqualData advances over both buffers at
// once, whatever their block boundaries.
struct ChainPosition {
    QzStreamBlock const *block;
    int offset;
    QzStreamBlock const *tail;
    int tail_used;

    // The unread bytes of the current block after skipping exhausted (or
    // empty) blocks; 0 at the end of the chain.
    int Available()
    {
        while (block != nullptr && offset >= BlockLimit(block, tail, tail_used)) {
            block = block == tail ? nullptr : block->GetNext();
            offset = 0;
        }
        return block == nullptr ? 0 : BlockLimit(block, tail, tail_used) - offset;
    }
};

}  // namespace

QzStreamBlockBuffer::~QzStreamBlockBuffer()
{
    ReleaseChain();
}

void QzStreamBlockBuffer::ReleaseChain()
{
    if (m_managed)
        delete m_head;
    m_head = nullptr;
    m_tail = nullptr;
    m_tail_used = 0;
    m_read_block = nullptr;
    m_read_offset = 0;
    m_managed = 0;
}

int QzStreamBlockBuffer::GetBlockLimit(QzStreamBlock const *block) const
{
    return BlockLimit(block, m_tail, m_tail_used);
}

int QzStreamBlockBuffer::WriteBegin(QzWriteStream const *)
{
    ReleaseChain();
    m_tail_used = kBlockData;  // a full (absent) tail: the first lock appends
    return 1;
}

int QzStreamBlockBuffer::WriteLock(unsigned char **buffer, int *size)
{
    if (m_tail == nullptr || m_tail_used == kBlockData) {
        auto *block = new QzStreamBlock;
        if (m_tail == nullptr) {
            m_head = block;
            m_managed = 1;
        } else {
            m_tail->SetNext(block);
        }
        m_tail = block;
        m_tail_used = 0;
    }
    *buffer = m_tail->EditData() + m_tail_used;
    *size = kBlockData - m_tail_used;
    return 1;
}

int QzStreamBlockBuffer::WriteProcess(int count)
{
    if (count < 0 || count > kBlockData - m_tail_used || (m_tail == nullptr && count > 0))
        return 0;
    m_tail_used += count;
    return 1;
}

int QzStreamBlockBuffer::ReadBegin(QzReadStream const *)
{
    m_read_block = m_head;
    m_read_offset = 0;
    return 1;
}

QzFileURL::Status QzStreamBlockBuffer::ReadLock(unsigned char const **buffer, int *size)
{
    if (m_read_block == nullptr) {
        *buffer = nullptr;
        *size = 0;
    } else {
        *buffer = m_read_block->GetData() + m_read_offset;
        *size = GetBlockLimit(m_read_block) - m_read_offset;
    }
    return QzFileURL::eSTATUS_OK;
}

int QzStreamBlockBuffer::ReadProcess(int count)
{
    if (m_read_block == nullptr)
        return count == 0;
    int const limit = GetBlockLimit(m_read_block);
    if (count < 0 || count > limit - m_read_offset)
        return 0;
    m_read_offset += count;
    if (m_read_offset == limit) {
        m_read_block = m_read_block == m_tail ? nullptr : m_read_block->GetNext();
        m_read_offset = 0;
    }
    return 1;
}

QzStreamBlock *QzStreamBlockBuffer::ClaimBuffer(QzStreamBlock **tail)
{
    m_managed = 0;
    if (tail != nullptr)
        *tail = m_tail;
    return m_head;
}

LtNat64 QzStreamBlockBuffer::GetBufferUsed() const
{
    LtNat64 used = 0;
    for (QzStreamBlock const *block = m_head; block != nullptr; block = block->GetNext()) {
        if (block == m_tail)
            return used + static_cast<LtNat64>(m_tail_used);
        used += kBlockData;
    }
    return used;
}

void QzStreamBlockBuffer::SetReadBuffer(QzStreamBlock *head, QzStreamBlock *tail, int tail_used)
{
    ReleaseChain();
    if (head == nullptr)
        return;
    m_head = head;
    m_tail = tail;
    m_tail_used = tail_used;
    m_read_block = head;
}

int QzStreamBlockBuffer::EqualData(QzStreamBlockBuffer const &other) const
{
    if (GetBufferUsed() != other.GetBufferUsed())
        return 0;
    ChainPosition mine{m_head, 0, m_tail, m_tail_used};
    ChainPosition theirs{other.m_head, 0, other.m_tail, other.m_tail_used};
    for (;;) {
        int const mine_available = mine.Available();
        int const theirs_available = theirs.Available();
        // The totals are equal, so both chains run out together.
        if (mine_available == 0 || theirs_available == 0)
            return mine_available == theirs_available;
        int const count = std::min(mine_available, theirs_available);
        if (std::memcmp(mine.block->GetData() + mine.offset,
                        theirs.block->GetData() + theirs.offset,
                        static_cast<std::size_t>(count)) != 0)
            return 0;
        mine.offset += count;
        theirs.offset += count;
    }
}
