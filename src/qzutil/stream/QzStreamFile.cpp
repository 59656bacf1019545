// QzStreamFile.cpp: a file sink that opens and closes its file by name.

#include "qzutil/stream/QzStreamFile.h"

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/sys/QzSysFile.h"

QzStreamFile::QzStreamFile(LtWChar const *filename)
    : QzStreamFileHandle(nullptr), m_filename(filename)
{}

QzStreamFile::~QzStreamFile()
{
    CloseFile();
}

void QzStreamFile::SetFilename(LtWChar const *filename)
{
    m_filename.SetString(filename);
}

bool QzStreamFile::CloseFile()
{
    std::FILE *file = GetHandle();
    if (file == nullptr)
        return true;
    SetHandle(nullptr);
    return QzSysFile::fclose(file);
}

// Opens the named file in place of any open one; text mode for ascii
// streams (no translation on writing, CR LF read as LF). False on failure.
bool QzStreamFile::OpenFile(QzStream const *stream, QzSysFile::AccessMode access,
                            QzSysFile::CreationMode creation)
{
    CloseFile();
    std::FILE *file = QzSysFile::fopenW(
        m_filename.GetString(), access, creation,
        stream && stream->IsAscii() ? QzSysFile::eTEXT : QzSysFile::eBINARY,
        static_cast<QzSysFile::ShareMode>(QzSysFile::eSHARE_READ | QzSysFile::eSHARE_WRITE));
    SetHandle(file);
    return file != nullptr;
}

int QzStreamFile::WriteBegin(QzWriteStream const *stream)
{
    if (!OpenFile(stream, QzSysFile::eACCESS_WRITE, QzSysFile::eCREATE_ALWAYS))
        return 0;
    return QzStreamFileHandle::WriteBegin(stream);
}

int QzStreamFile::WriteEnd()
{
    int const ended = QzStreamFileHandle::WriteEnd();
    bool const closed = CloseFile();
    return closed ? ended : 0;
}

int QzStreamFile::ReadBegin(QzReadStream const *stream)
{
    if (!OpenFile(stream, QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING))
        return 0;
    return QzStreamFileHandle::ReadBegin(stream);
}

int QzStreamFile::ReadEnd()
{
    return CloseFile() ? 1 : 0;
}
