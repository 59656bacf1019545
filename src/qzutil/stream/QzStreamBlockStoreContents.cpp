// QzStreamBlockStoreContents.cpp: a block store's bytes as typed stream
// values.

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBlock.h"
#include "qzutil/stream/QzStreamBlockStore.h"
#include "qzutil/stream/QzWriteStream.h"

static constexpr int kBlockData = QzStreamBlock::kDataSize;

void QzStreamBlockStore::WriteContents(QzWriteStream *stream) const
{
    LtInt32 blocks = 0;
    for (QzStreamBlock const *block = m_head; block != nullptr; block = block->GetNext())
        ++blocks;
    stream->WriteInt32(blocks);
    for (QzStreamBlock const *block = m_head; block != nullptr; block = block->GetNext())
        stream->WriteNat8Array(block->GetData(), kBlockData);
    stream->WriteInt32(m_tail_size);
    if (m_tail_size != 0)
        stream->WriteNat8Array(m_tail_data, m_tail_size);
}

void QzStreamBlockStore::ReadContents(QzReadStream *stream)
{
    Clear();
    LtInt32 const blocks = stream->ReadInt32();
    // Each block costs kDataSize bytes of input, so a hostile count ends
    // with the data, at the first error.
    QzStreamBlock *last = nullptr;
    for (LtInt32 i = 0; i < blocks && !stream->IsError(); ++i) {
        auto *block = new QzStreamBlock;
        stream->ReadNat8Array(block->EditData(), kBlockData);
        if (last == nullptr)
            m_head = block;
        else
            last->SetNext(block);
        last = block;
    }
    if (stream->IsError())
        return;
    LtInt32 const tail_size = stream->ReadInt32();
    if (tail_size < 0 || tail_size >= kBlockData) {
        // The writer never produces such a size.
        stream->SetError(QzStream::ErrorParse);
        return;
    }
    unsigned char tail[kBlockData];
    if (tail_size != 0) {
        stream->ReadNat8Array(tail, tail_size);
        if (!stream->IsError())
            AdoptTail(tail, tail_size);
    }
}
