// QzFile.cpp: the buffered-file owner over QzSysFile's streams.

#include "qzutil/sys/QzFile.h"

QzFile::QzFile() : m_file(nullptr), m_error(QzSysFile::eERROR_NONE)
{}

QzFile::QzFile(LtWChar const *path, QzSysFile::AccessMode access, QzSysFile::CreationMode creation,
               QzSysFile::Translation translation, QzSysFile::ShareMode share)
    : QzFile()
{
    (void)Open(path, access, creation, translation, share);  // the caller tests IsValid
}

QzFile::~QzFile()
{
    (void)Close();
}

void QzFile::NoteFailure()
{
    if (m_error == QzSysFile::eERROR_NONE) {
        int reason = QzSysFile::GetLastError();
        m_error = reason != QzSysFile::eERROR_NONE ? reason : QzSysFile::eERROR_GENERAL_FAILURE;
    }
}

bool QzFile::Open(LtWChar const *path, QzSysFile::AccessMode access,
                  QzSysFile::CreationMode creation, QzSysFile::Translation translation,
                  QzSysFile::ShareMode share)
{
    (void)Close();  // a failure of the old stream does not concern the new one
    m_error = QzSysFile::eERROR_NONE;
    m_file = QzSysFile::fopenW(path, access, creation, translation, share);
    if (m_file == nullptr)
        NoteFailure();
    return m_file != nullptr;
}

bool QzFile::Close()
{
    if (m_file == nullptr)
        return true;
    std::FILE *file = m_file;
    m_file = nullptr;
    if (QzSysFile::fclose(file))
        return true;
    NoteFailure();
    return false;
}

std::size_t QzFile::Read(void *buffer, std::size_t bytes)
{
    if (m_file == nullptr)
        return 0;
    std::size_t got = QzSysFile::fread(buffer, 1, bytes, m_file);
    if (got < bytes && std::ferror(m_file) != 0)
        NoteFailure();
    return got;
}

std::size_t QzFile::Write(void const *data, std::size_t bytes)
{
    if (m_file == nullptr)
        return 0;
    std::size_t put = QzSysFile::fwrite(data, 1, bytes, m_file);
    if (put < bytes)
        NoteFailure();
    return put;
}

bool QzFile::Seek(LtInt64 offset, QzSysFile::SeekOrigin origin)
{
    if (m_file != nullptr && QzSysFile::fseek(m_file, offset, origin))
        return true;
    NoteFailure();
    return false;
}

bool QzFile::Skip(LtInt64 bytes)
{
    return Seek(bytes, QzSysFile::eSEEK_CUR);
}

LtInt64 QzFile::GetPosition() const
{
    return m_file != nullptr ? QzSysFile::ftell(m_file) : -1;
}

bool QzFile::IsEOF() const
{
    return m_file == nullptr || std::feof(m_file) != 0;
}

std::FILE *QzFile::ExtractHandle()
{
    std::FILE *file = m_file;
    m_file = nullptr;
    return file;
}
