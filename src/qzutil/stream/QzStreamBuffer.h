// QzStreamBuffer.h: a sink over one contiguous memory buffer, either the
// caller's or a growing one of its own; the usual way to stream to memory and
// read the result back.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamSink.h"

// Writing fills the buffer from its first 8-aligned byte; a buffer of its own
// (managed) grows by doubling, or by 65,536 bytes when doubling finds no
// memory, while a caller's buffer (unmanaged) refuses to lend once full.
// WriteEnd trims a managed buffer to what was written, so that GetSize and a
// following read see exactly those bytes. Reading lends everything from the
// first 8-aligned byte to the end.
//
// Ownership: a managed buffer comes from QzMemory::Malloc and is freed by this
//            object (destructor, SetBuffer, or WriteEnd with nothing written)
//            unless ClaimBuffer hands it to the caller, who then releases it
//            with QzMemory::Free. An unmanaged buffer stays the caller's and
//            must outlive its use here.
// Threads:   as QzStreamSink.
// Invariant: buffer <= cursor, and while writing cursor <= end; the cursor
//            stands at most 7 bytes past the buffer's start before the first
//            byte is written, so that the data start 8-aligned. A managed
//            buffer's allocation holds the buffer-to-end range.
class QZUTIL_API QzStreamBuffer : public QzStreamSink {
public:
    // How SetBuffer treats the caller's buffer.
    enum Hint : int {
        HintUseIfAligned = 0,  // adopt an 8-aligned buffer, copy any other
        HintCopy = 1,          // always work on a private copy
        HintUseAlways = 2,     // adopt it; the data start at its first 8-aligned byte
    };

    QzStreamBuffer() = default;
    ~QzStreamBuffer() override;

    // Sets the buffer to write into or read from: `size` bytes at `buffer`.
    // A managed buffer held before is freed first. A copy is managed: its
    // data start 8-aligned and it ends right after the `size` bytes. A null
    // buffer leaves the object empty. Returns 0, leaving the object empty, if
    // the size is negative or the copy finds no memory.
    int SetBuffer(unsigned char *buffer, int size, Hint hint);

    int WriteBegin(QzWriteStream const *stream) override;
    int WriteLock(unsigned char **buffer, int *size) override;
    int WriteProcess(int count) override;
    int WriteEnd() override;

    int ReadBegin(QzReadStream const *stream) override;
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override;
    int ReadProcess(int count) override;

    // Start of the buffer (of the allocation, for a managed one); null when
    // empty. Sizes are in bytes from that start; the aligned forms measure
    // from the first 8-aligned byte, where the data begin.
    unsigned char *GetBuffer() const { return m_buffer; }
    int GetSize() const;  // end - buffer
    int GetUsed() const;  // cursor - buffer
    unsigned char *GetAlignedBuffer() const;
    int GetAlignedSize() const;
    int GetAlignedUsed() const;
    int IsManagedBuffer() const { return m_managed; }

    // Hands a managed buffer to the caller (free it with QzMemory::Free) and
    // returns it; this object keeps pointing at it, unmanaged, so it must not
    // be used after the caller has freed it.
    unsigned char *ClaimBuffer();

private:
    // Frees a managed buffer and empties every field.
    void Reset();
    // Reallocates a full managed buffer and moves the cursor with the data;
    // non-zero on success, and on failure everything stays as it was.
    [[nodiscard]] int Grow();

    unsigned char *m_buffer = nullptr;  // owned when m_managed
    unsigned char *m_end = nullptr;
    unsigned char *m_cursor = nullptr;
    unsigned m_allocation_size = 0;  // bytes of a managed buffer's allocation
    int m_managed = 0;
};
