// QzTempFile.cpp: the counted temporary file.

#include "qzutil/sys/QzTempFile.h"

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzWideStringBuffer.h"

QzTempFile::QzTempFile() : QzTempFile(nullptr, nullptr, nullptr, 0)
{}

QzTempFile::QzTempFile(LtNat64 size) : QzTempFile(nullptr, nullptr, nullptr, size)
{}

QzTempFile::QzTempFile(LtWChar const *path)
    : m_filename(path), m_references(0), m_owned_elsewhere(false)
{}

QzTempFile::QzTempFile(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext)
    : QzTempFile(dir, stem, ext, 0)
{}

QzTempFile::QzTempFile(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext, LtNat64 size)
    : m_references(0), m_owned_elsewhere(false)
{
    QzWideStringBuffer name;
    if (QzSysFile::MakeTempFileW(dir, stem, ext, size, &name))
        m_filename.SetString(name);
    else
        m_filename.SetEmptyString();
}

QzTempFile::~QzTempFile()
{
    if (!m_owned_elsewhere && IsValid())
        (void)QzSysFile::DeleteW(GetFilename(), false, true);  // gone already is fine
}

void QzTempFile::Unref()
{
    if (m_references <= 1)
        delete this;
    else
        --m_references;
}

bool QzTempFile::CopyContents(QzTempFile const &other)
{
    return IsValid() && other.IsValid() &&
           QzSysFile::CopyFileW(other.GetFilename(), GetFilename(), false);
}
