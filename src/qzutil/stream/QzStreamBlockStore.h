// QzStreamBlockStore.h: a compact owner of streamed bytes, kept inside
// long-lived objects as their saved form.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"

class QzReadStream;
class QzStreamBlock;
class QzStreamBlockBuffer;
class QzWriteStream;

// Holds N bytes as N / kDataSize full QzStreamBlocks and the remainder in an
// allocation of exactly its size, so that no store wastes a block's slack.
// Bytes come in by claiming a written QzStreamBlockBuffer and go out by
// lending the chain to one for reading.
//
// Ownership: owns its chain and its tail allocation; copies are deep.
// Memory:    blocks and tail come from QzMemory; running out throws
//            std::bad_alloc, as the class allocators do.
// Threads:   none of its own; one thread at a time.
// Invariant: every block of the chain is full; tail size is 0 to
//            kDataSize - 1, and the tail data are null exactly when it is 0.
class QZUTIL_API QzStreamBlockStore {
public:
    QZ_DECLARE_ALLOCATORS()

    QzStreamBlockStore() = default;
    QzStreamBlockStore(QzStreamBlockStore const &other);
    QzStreamBlockStore &operator=(QzStreamBlockStore const &other);
    ~QzStreamBlockStore();

    // Replaces the content with a copy of `other`'s.
    void Init(QzStreamBlockStore const &other);
    // Releases every block and the tail.
    void Clear();
    // Non-zero if there are neither blocks nor tail data.
    int IsEmpty() const { return m_head == nullptr && m_tail_size == 0; }
    // Bytes held: full blocks and tail.
    LtNat64 GetSize() const;

    // The chain of full blocks (null if none) and the bytes after them.
    QzStreamBlock const *GetHead() const { return m_head; }
    int GetTailSize() const { return m_tail_size; }

    // Replaces the content with the chain that `buffer` wrote, without
    // copying its full blocks: a partly filled tail block is copied into an
    // exact allocation and deleted. The buffer must own its chain (as after
    // writing); it is left empty and unmanaged.
    void ClaimBuffer(QzStreamBlockBuffer *buffer);

    // Lends the content to `buffer` for reading, from its head. Tail data are
    // copied into a block appended to the chain until EndReadBuffer. Between
    // the two calls the store must not be changed, copied or lent again.
    void BeginReadBuffer(QzStreamBlockBuffer *buffer);
    // Removes the block that BeginReadBuffer appended and empties `buffer`;
    // the store is then as it was.
    void EndReadBuffer(QzStreamBlockBuffer *buffer);

    // The content as typed values: Int32 number of full blocks, a Nat8 array
    // of kDataSize bytes for each, Int32 tail size, and a Nat8 array of the
    // tail if it is not empty. The arrays carry no count of their own.
    void WriteContents(QzWriteStream *stream) const;
    // Replaces the content with what WriteContents wrote. Stops early once
    // the stream is in error; a tail size outside 0 to kDataSize - 1 is a
    // parse error of the stream (nothing is posted here).
    void ReadContents(QzReadStream *stream);

private:
    void AdoptTail(unsigned char const *data, int size);

    QzStreamBlock *m_head = nullptr;       // owned; full blocks only
    unsigned char *m_tail_data = nullptr;  // owned; exactly m_tail_size bytes
    int m_tail_size = 0;                   // bytes, below one block
};
