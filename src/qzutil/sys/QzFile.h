// QzFile.h: QzFile, the owner of one buffered file with 64-bit positions.
#pragma once

#include <cstddef>
#include <cstdio>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/sys/QzSysFile.h"

// One stream opened by QzSysFile::fopenW and closed with the object.
//
// Ownership: owns its stream until Close or ExtractHandle; neither copyable
//            nor movable.
// Threads:   one thread at a time.
// Invariant: GetError() is the first failure since the last Open (a
//            QzSysFile::ErrorCode), 0 while none; a read that stops at the end
//            of the file is no failure.
class QZUTIL_API QzFile {
public:
    QZ_DECLARE_ALLOCATORS()

    QzFile();  // not open
    // Opens as Open does; test IsValid.
    QzFile(LtWChar const *path, QzSysFile::AccessMode access, QzSysFile::CreationMode creation,
           QzSysFile::Translation translation = QzSysFile::eBINARY,
           QzSysFile::ShareMode share = QzSysFile::eSHARE_READ);
    QzFile(QzFile const &) = delete;
    QzFile &operator=(QzFile const &) = delete;
    ~QzFile();  // closes; a close failure here has no one to tell

    // Closes any open stream, then opens. True on success; else false with
    // GetError() saying why.
    bool Open(LtWChar const *path, QzSysFile::AccessMode access, QzSysFile::CreationMode creation,
              QzSysFile::Translation translation = QzSysFile::eBINARY,
              QzSysFile::ShareMode share = QzSysFile::eSHARE_READ);
    // True if the stream was flushed and closed; true also when none is open.
    [[nodiscard]] bool Close();

    // Bytes read; fewer than asked at the end of the file or on a failure.
    std::size_t Read(void *buffer, std::size_t bytes);
    // Bytes written; fewer only on a failure.
    std::size_t Write(void const *data, std::size_t bytes);
    bool Seek(LtInt64 offset, QzSysFile::SeekOrigin origin);
    // Moves the position by `bytes` (negative: back).
    bool Skip(LtInt64 bytes);
    // The position, or -1 when not open.
    LtInt64 GetPosition() const;
    // True once a read met the end of the file (or when not open).
    bool IsEOF() const;
    bool IsValid() const { return m_file != nullptr; }
    int GetError() const { return m_error; }
    // The stream, still owned by this object; null when not open.
    std::FILE *GetHandle() const { return m_file; }
    // Hands the stream over: the caller owns it (close with
    // QzSysFile::fclose) and this object is no longer open.
    std::FILE *ExtractHandle();

private:
    void NoteFailure();

    std::FILE *m_file;  // owned, or null
    int m_error;        // first failure since Open; QzSysFile::ErrorCode
};
