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

// Text mode for ascii streams: no translation on writing, CR LF read as LF.
static QzSysFile::Translation TranslationFor(QzStream const *stream)
{
    return stream && stream->IsAscii() ? QzSysFile::eTEXT : QzSysFile::eBINARY;
}

int QzStreamFile::WriteBegin(QzWriteStream const *stream)
{
    CloseFile();
    std::FILE *file = QzSysFile::fopenW(
        m_filename.GetString(), QzSysFile::eACCESS_WRITE, QzSysFile::eCREATE_ALWAYS,
        TranslationFor(stream),
        static_cast<QzSysFile::ShareMode>(QzSysFile::eSHARE_READ | QzSysFile::eSHARE_WRITE));
    if (file == nullptr)
        return 0;
    SetHandle(file);
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
    CloseFile();
    std::FILE *file = QzSysFile::fopenW(
        m_filename.GetString(), QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING,
        TranslationFor(stream),
        static_cast<QzSysFile::ShareMode>(QzSysFile::eSHARE_READ | QzSysFile::eSHARE_WRITE));
    if (file == nullptr)
        return 0;
    SetHandle(file);
    return QzStreamFileHandle::ReadBegin(stream);
}

int QzStreamFile::ReadEnd()
{
    return CloseFile() ? 1 : 0;
}
