// QzTempFile.h: QzTempFile, a temporary file that is deleted with its last
// reference.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzWideString.h"

class QzReadStream;
class QzWriteStream;

// A file on the disk, made at construction (or adopted by path), that is
// removed when the last reference goes, unless TakeOwnership was called.
//
// Ownership: reference counted with a plain count that starts at 0; the first
//            holder calls Ref, and Unref at a count of 1 or less deletes the
//            object (and with it the file). Allocate with new only.
// Threads:   one thread at a time; the count is not atomic.
// Invariant: GetFilename() is empty only if no file could be made.
class QZUTIL_API QzTempFile {
public:
    QZ_DECLARE_ALLOCATORS()

    // A new empty file in the temporary directory, named "file_...".
    QzTempFile();
    // As above, with `size` bytes that read as zero.
    explicit QzTempFile(LtNat64 size);
    // Adopts `path` as it is: nothing is created, and whatever is there is
    // removed with the last reference.
    explicit QzTempFile(LtWChar const *path);
    // A new file named by QzSysFile::MakeTempFileW in `dir` (the temporary
    // directory when null) from `stem` and `ext`, with `size` bytes.
    QzTempFile(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext);
    QzTempFile(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext, LtNat64 size);
    QzTempFile(QzTempFile const &) = delete;
    QzTempFile &operator=(QzTempFile const &) = delete;

    LtWChar const *GetFilename() const { return m_filename.GetString(); }
    bool IsValid() const { return !m_filename.IsEmpty(); }

    void Ref() { ++m_references; }
    void Unref();
    int GetRefCount() const { return m_references; }
    // The file outlives this object: the caller now owns it.
    void TakeOwnership() { m_owned_elsewhere = true; }

    // Replaces this file's bytes with those of `other`. False if either has
    // no file or the copy failed.
    bool CopyContents(QzTempFile const &other);

    // The file's bytes in a stream: Nat64 size, then the bytes as Nat8
    // arrays of at most 65,536. A file that cannot be read, or written back,
    // sets the stream's error (and posts a warning for QzTempFile), so that
    // no bytes are lost silently.
    void WriteContents(QzWriteStream *stream) const;
    // Replaces the file's bytes with those the stream holds.
    void ReadContents(QzReadStream *stream);

private:
    ~QzTempFile();  // through Unref only

    QzWideString m_filename;  // the file; empty when none could be made
    int m_references;         // holders; plain, not atomic
    bool m_owned_elsewhere;   // TakeOwnership was called: keep the file
};
