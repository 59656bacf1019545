// QzStreamBlockBuffer.h: a sink over a chain of QzStreamBlocks, which grows
// a block at a time and never copies what it already holds.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamSink.h"

class QzStreamBlock;

// Writing appends blocks as the stream fills them; every block but the last
// (the tail) is full, and the tail holds GetTailUsed() bytes. Reading walks
// the chain from the head. A written chain belongs to the buffer (managed)
// until ClaimBuffer; a chain given by SetReadBuffer is only borrowed.
//
// Ownership: a managed chain is deleted by the destructor, WriteBegin and
//            SetReadBuffer; an unmanaged one must outlive its use here.
// Threads:   as QzStreamSink.
// Invariant: tail used is 0 to QzStreamBlock::kDataSize; the tail is the last
//            block of the chain from the head (both null when empty); the read
//            block, when set, is a block of that chain.
class QZUTIL_API QzStreamBlockBuffer : public QzStreamSink {
public:
    QzStreamBlockBuffer() = default;
    ~QzStreamBlockBuffer() override;

    // Deletes a managed chain and starts an empty one; the first WriteLock
    // appends the first block.
    int WriteBegin(QzWriteStream const *stream) override;
    // Lends the free rest of the tail, after appending a block if it is full.
    int WriteLock(unsigned char **buffer, int *size) override;
    // Fails if `count` passes the end of the tail.
    int WriteProcess(int count) override;

    // Starts reading at the head.
    int ReadBegin(QzReadStream const *stream) override;
    // Lends the unread rest of the current block; null and 0 at the end.
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override;
    // Fails past the end of the current block; reaching it moves to the next.
    int ReadProcess(int count) override;

    QzStreamBlock *GetBuffer() const { return m_head; }
    QzStreamBlock *GetTail() const { return m_tail; }
    int GetTailUsed() const { return m_tail_used; }
    int IsManagedBuffer() const { return m_managed; }

    // Hands the chain to the caller, who deletes the head (which deletes the
    // whole chain); stores the tail in *tail and returns the head. The buffer
    // keeps pointing at the chain, unmanaged.
    QzStreamBlock *ClaimBuffer(QzStreamBlock **tail);

    // Bytes held: a full block for every block before the tail, plus the
    // tail's used bytes.
    LtNat64 GetBufferUsed() const;

    // Deletes a managed chain and borrows the given one for reading, starting
    // at its head: `tail` is its last block and holds `tail_used` bytes. A
    // null head empties the buffer.
    void SetReadBuffer(QzStreamBlock *head, QzStreamBlock *tail, int tail_used);

    // Non-zero if both hold the same bytes, however their blocks are filled
    // (an empty tail after a full block holds what a full tail holds). Two
    // empty buffers are equal.
    int EqualData(QzStreamBlockBuffer const &other) const;

private:
    // Bytes of `block` that hold data: all of it, or the used part of the tail.
    int GetBlockLimit(QzStreamBlock const *block) const;
    // Deletes a managed chain; every chain field is cleared.
    void ReleaseChain();

    QzStreamBlock *m_head = nullptr;  // owned when m_managed
    QzStreamBlock *m_tail = nullptr;
    int m_tail_used = 0;                    // bytes
    QzStreamBlock *m_read_block = nullptr;  // null: nothing left to read
    int m_read_offset = 0;                  // bytes into m_read_block
    int m_managed = 0;
};
