// QzStreamFile.h: a block sink over a file that it opens by name.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamFileHandle.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzWideStringBuffer.h"

class QzStream;

// WriteBegin creates (or empties) the named file, ReadBegin opens it for
// reading; an ascii stream gets text mode, a binary one binary mode. Text
// mode writes bytes as they are and, on reading, takes each CR LF as LF, so
// files written elsewhere with CR LF line ends read the same.
//
// Ownership: owns the FILE that it opened; WriteEnd and ReadEnd close it,
//            and the destructor closes one that is still open.
// Threads:   as QzStreamSink.
class QZUTIL_API QzStreamFile : public QzStreamFileHandle {
public:
    explicit QzStreamFile(LtWChar const *filename);
    ~QzStreamFile() override;

    LtWChar const *GetFilename() const { return m_filename.GetString(); }
    void SetFilename(LtWChar const *filename);

    // 0 if the file cannot be opened or no block can be had.
    int WriteBegin(QzWriteStream const *stream) override;
    // The block sink's WriteEnd, then the file is closed in any case: 0 if
    // either failed.
    int WriteEnd() override;
    int ReadBegin(QzReadStream const *stream) override;
    // Closes the file: 0 if the close failed.
    int ReadEnd() override;

private:
    // Closes the FILE, if any; false if the close failed.
    bool CloseFile();
    bool OpenFile(QzStream const *stream, QzSysFile::AccessMode access,
                  QzSysFile::CreationMode creation);

    QzWideStringBuffer m_filename;
};
