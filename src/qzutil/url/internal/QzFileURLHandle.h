// QzFileURLHandle.h: the open file behind the QzFileURL calls: what every
// kind of file keeps (open count, URI, flags, sizes) and the operations each
// kind carries out in its own way. Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/url/QzFileURL.h"

class QzComponent;

// One open URL-addressed file, shared by every opener of its URI.
//
// QzFileURL checks what is common to every file (null handles, empty
// ranges, reads past the end, the read-progress count) and hands the rest to
// the virtual operations below. So a file served in cached blocks, or one
// that arrives by download, is another subclass behind the very same public
// calls, and no caller changes.
//
// Ownership: made by a subclass's opener, then owned by QzFileURL's open
//            table until the last CloseURL, which calls Close and deletes it.
// Threads:   one thread at a time, as QzFileURL.
// Invariant: the open count is at least 1 while the handle is in the table;
//            ranges passed to Read and TestRead lie within the file size.
class QzFileURLHandle : public QzDeletable {
public:
    QzFileURLHandle(LtWChar const *uri, unsigned flags);
    ~QzFileURLHandle() override;
    QzFileURLHandle(QzFileURLHandle const &) = delete;
    QzFileURLHandle &operator=(QzFileURLHandle const &) = delete;

    // --- Transfers and hints; sizes are non-zero, positions in bytes ---

    // Fills `buffer` from `position`; the range lies within the file.
    virtual QzFileURL::Status Read(QzFileURL::Type type, LtNat64 position, unsigned char *buffer,
                                   unsigned size) = 0;
    // Stores `data` at `position`, growing the file size as needed.
    virtual QzFileURL::Status Write(QzFileURL::Type type, LtNat64 position,
                                    unsigned char const *data, unsigned size) = 0;
    virtual void PrepareRead(LtNat64 position, unsigned size) = 0;
    virtual void PrepareWrite(LtNat64 position, unsigned size) = 0;
    // A read range lies within the file.
    virtual QzFileURL::Status TestRead(LtNat64 position, unsigned size) = 0;
    virtual QzFileURL::Status TestWrite(LtNat64 position, unsigned size) = 0;
    virtual void LockBuffer(LtNat64 position, unsigned size) = 0;
    virtual void UnlockBuffer(LtNat64 position, unsigned size) = 0;
    virtual void EndAppend() = 0;
    virtual int IsRemote() const = 0;
    // Releases the file at the last close: pending bytes out, system handle
    // closed, a temporary file removed. Called once, just before deletion.
    virtual void Close() = 0;

    // --- Bookkeeping shared by every kind of file ---

    LtWChar const *GetURI() const { return m_uri.GetString(); }
    unsigned GetFlags() const { return m_flags; }
    LtNat64 GetFileSize() const { return m_file_size; }
    LtNat64 GetBytesRead() const { return m_bytes_read; }
    // Adds `delta` to the bytes read; the count never drops below 0.
    void AdjustBytesRead(LtInt64 delta);

    // One more opener shares the handle.
    void AddOpen() { ++m_open_count; }
    // One opener fewer; true when that was the last.
    bool ReleaseOpen() { return --m_open_count == 0; }

    // The link of QzFileURL's open table; no other code touches it.
    QzFileURLHandle *GetNextOpen() const { return m_next_open; }
    void SetNextOpen(QzFileURLHandle *next) { m_next_open = next; }

protected:
    void SetFileSize(LtNat64 size) { m_file_size = size; }
    // Posts at eWARNING, for the component QzFileURL, that the system
    // refused `operation` ("read", "write") of `size` bytes at `position`,
    // with the reason that QzSysFile gives.
    void PostTransferFailure(char const *operation, unsigned size, LtNat64 position) const;
    // The component that QzFileURL's messages are posted for.
    static QzComponent *GetComponent();

private:
    QzWideString m_uri;                      // as opened; the key of the open table
    unsigned m_flags;                        // QzFileURL::OpenFlags as opened
    int m_open_count = 1;                    // successful OpenURL calls not yet closed
    LtNat64 m_file_size = 0;                 // bytes
    LtNat64 m_bytes_read = 0;                // bytes, for the read-progress figure
    QzFileURLHandle *m_next_open = nullptr;  // not owned: the table owns every handle
};
