// QzLocalFileURLHandle.h: a QzFileURL handle over a plain local file, read
// and written in place with blocking system calls. Internal: never installed.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/url/internal/QzFileURLHandle.h"

// A local file named by a path or a "file:" URI. Every transfer goes
// straight to the system at its 64-bit position; there is nothing to
// prepare, pin or wait for, so the hints do nothing and a non-blocking call
// behaves as a blocking one.
//
// Ownership: owns its system file handle, closed by Close or at the latest by
//            the destructor.
// Threads:   as QzFileURLHandle.
// Invariant: the file size is the size found at open, raised by each write
//            that reached further.
class QzLocalFileURLHandle : public QzFileURLHandle {
public:
    // Opens the file that `uri` names, for reading alone with
    // eOPEN_READ_ONLY or when the file has no owner write permission, else
    // for reading and writing. Null, posting nothing, for a URI that names
    // no local file, a file that does not exist or cannot be sized (a
    // directory), or one the system will not open.
    static QzFileURLHandle *Open(LtWChar const *uri, unsigned flags, unsigned sharing);

    ~QzLocalFileURLHandle() override;

    QzFileURL::Status Read(QzFileURL::Type type, LtNat64 position, unsigned char *buffer,
                           unsigned size) override;
    QzFileURL::Status Write(QzFileURL::Type type, LtNat64 position, unsigned char const *data,
                            unsigned size) override;
    void PrepareRead(LtNat64, unsigned) override {}
    void PrepareWrite(LtNat64, unsigned) override {}
    QzFileURL::Status TestRead(LtNat64, unsigned) override { return QzFileURL::eSTATUS_OK; }
    QzFileURL::Status TestWrite(LtNat64, unsigned) override { return QzFileURL::eSTATUS_OK; }
    void LockBuffer(LtNat64, unsigned) override {}
    void UnlockBuffer(LtNat64, unsigned) override {}
    void EndAppend() override {}
    int IsRemote() const override { return 0; }
    // Closes the system file and removes a temporary one. Idempotent.
    void Close() override;

private:
    QzLocalFileURLHandle(LtWChar const *uri, unsigned flags, LtWChar const *path, void *file,
                         LtNat64 size);

    QzWideString m_path;  // the file on disk, decoded from the URI
    void *m_file;         // owned QzSysFile handle; null once closed
};
