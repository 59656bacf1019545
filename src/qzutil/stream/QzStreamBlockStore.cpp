// QzStreamBlockStore.cpp: full blocks plus an exact tail, and the hand-over
// to and from block buffers.

#include "qzutil/stream/QzStreamBlockStore.h"

#include <cstring>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/stream/QzStreamBlock.h"
#include "qzutil/stream/QzStreamBlockBuffer.h"

static constexpr int kBlockData = QzStreamBlock::kDataSize;
static constexpr QzMemory::Alignment kTailAlignment = 1;  // plain bytes

// The last block of a non-empty chain.
static QzStreamBlock *LastBlock(QzStreamBlock *head)
{
    while (head->GetNext() != nullptr)
        head = head->GetNext();
    return head;
}

// Deletes the last block of the chain at *head; a chain of one becomes null.
static void DeleteLastBlock(QzStreamBlock **head)
{
    QzStreamBlock *block = *head;
    if (block->GetNext() == nullptr) {
        delete block;
        *head = nullptr;
        return;
    }
    while (block->GetNext()->GetNext() != nullptr)
        block = block->GetNext();
    block->SetNext(nullptr);  // deletes the last one
}

QzStreamBlockStore::QzStreamBlockStore(QzStreamBlockStore const &other)
{
    Init(other);
}

QzStreamBlockStore &QzStreamBlockStore::operator=(QzStreamBlockStore const &other)
{
    if (&other != this) {
        Clear();
        Init(other);
    }
    return *this;
}

QzStreamBlockStore::~QzStreamBlockStore()
{
    Clear();
}

void QzStreamBlockStore::Clear()
{
    delete m_head;
    m_head = nullptr;
    QzMemory::Dealloc(m_tail_data, static_cast<unsigned>(m_tail_size), kTailAlignment);
    m_tail_data = nullptr;
    m_tail_size = 0;
}

// Expects an empty tail; `size` 0 leaves it so.
void QzStreamBlockStore::AdoptTail(unsigned char const *data, int size)
{
    if (size == 0)
        return;
    m_tail_data = static_cast<unsigned char *>(
        QzCheckAllocated(QzMemory::Alloc(static_cast<unsigned>(size), kTailAlignment)));
    std::memcpy(m_tail_data, data, static_cast<std::size_t>(size));
    m_tail_size = size;
}

void QzStreamBlockStore::Init(QzStreamBlockStore const &other)
{
    if (&other == this)
        return;
    Clear();
    QzStreamBlock *last = nullptr;
    for (QzStreamBlock const *source = other.m_head; source != nullptr;
         source = source->GetNext()) {
        auto *copy = new QzStreamBlock;
        std::memcpy(copy->EditData(), source->GetData(), kBlockData);
        if (last == nullptr)
            m_head = copy;
        else
            last->SetNext(copy);
        last = copy;
    }
    AdoptTail(other.m_tail_data, other.m_tail_size);
}

LtNat64 QzStreamBlockStore::GetSize() const
{
    LtNat64 size = static_cast<LtNat64>(m_tail_size);
    for (QzStreamBlock const *block = m_head; block != nullptr; block = block->GetNext())
        size += kBlockData;
    return size;
}

void QzStreamBlockStore::ClaimBuffer(QzStreamBlockBuffer *buffer)
{
    Clear();
    QzStreamBlock *tail = nullptr;
    m_head = buffer->ClaimBuffer(&tail);
    int const tail_used = buffer->GetTailUsed();
    // The chain is ours now; the buffer must not read blocks deleted below.
    buffer->SetReadBuffer(nullptr, nullptr, 0);
    if (m_head == nullptr || tail_used == kBlockData)
        return;
    AdoptTail(tail->GetData(), tail_used);
    DeleteLastBlock(&m_head);
}

void QzStreamBlockStore::BeginReadBuffer(QzStreamBlockBuffer *buffer)
{
    if (m_tail_size == 0) {
        if (m_head == nullptr)
            buffer->SetReadBuffer(nullptr, nullptr, 0);
        else
            buffer->SetReadBuffer(m_head, LastBlock(m_head), kBlockData);
        return;
    }
    auto *tail = new QzStreamBlock;
    std::memcpy(tail->EditData(), m_tail_data, static_cast<std::size_t>(m_tail_size));
    if (m_head == nullptr)
        m_head = tail;
    else
        LastBlock(m_head)->SetNext(tail);
    buffer->SetReadBuffer(m_head, tail, m_tail_size);
}

void QzStreamBlockStore::EndReadBuffer(QzStreamBlockBuffer *buffer)
{
    if (m_tail_size != 0 && m_head != nullptr)
        DeleteLastBlock(&m_head);
    buffer->SetReadBuffer(nullptr, nullptr, 0);
}
