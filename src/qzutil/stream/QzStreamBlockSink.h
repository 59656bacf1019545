// QzStreamBlockSink.h: a sink that owns one fixed-size block and moves whole
// blocks to and from its storage.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamSink.h"

// Writing fills the block through WriteLock/WriteProcess and hands it to
// WriteBlock each time it is full; WriteEnd writes what is left: exactly the
// used bytes, or in a strict sink the whole block with its rest zeroed.
// Reading refills the block through ReadBlock whenever the stream has taken
// all of it.
//
// Ownership: owns its block (from AllocBlock), held from WriteBegin to
//            WriteEnd, or from ReadBegin until the destructor.
// Threads:   as QzStreamSink.
// Invariant: while a block is held for writing, block <= cursor <=
//            block + block size; during reading a null cursor means that no
//            data are held, and otherwise block <= cursor < block + limit.
class QZUTIL_API QzStreamBlockSink : public QzStreamSink {
public:
    QzStreamBlockSink(int block_size, int strict);
    ~QzStreamBlockSink() override;

    int GetBlockSize() const { return m_block_size; }
    int IsStrict() const { return m_strict; }

    int WriteBegin(QzWriteStream const *stream) override;
    int WriteLock(unsigned char **buffer, int *size) override;
    int WriteProcess(int count) override;
    int WriteEnd() override;

    int ReadBegin(QzReadStream const *stream) override;
    // Status 2 (error) while no block is held.
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override;
    int ReadProcess(int count) override;
    // Keeps the block for the next ReadBegin; returns 1.
    int ReadEnd() override;

    // Stores `size` bytes of `data` (at most one block); non-zero on success.
    virtual int WriteBlock(unsigned char const *data, int size) = 0;
    // Fills `buffer` (one block) with the next bytes and *size with their
    // number; 0 bytes with status 0 is end of data.
    virtual QzFileURL::Status ReadBlock(unsigned char *buffer, int *size) = 0;

protected:
    // The bytes written since the last block went out: *size gets their
    // number, the cursor returns to the block start, and the block is
    // returned, or null when nothing was pending.
    unsigned char *FlushProcessedBlock(int *size);

private:
    int m_block_size;
    int m_strict;                      // WriteEnd writes whole zero-padded blocks
    unsigned char *m_block = nullptr;  // owned; null while none is held
    unsigned char *m_cursor = nullptr;
    int m_read_limit = 0;  // valid bytes after the last ReadBlock
};
