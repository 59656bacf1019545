// QzSysFileUtf8.cpp: the UTF-8 twins of QzSysFile's operations. Each
// decodes its text, calls the wide form and encodes the outputs.

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

namespace {

// One UTF-8 argument as wide text; null stays null.
class WideArg {
public:
    explicit WideArg(char const *text) { (void)QzString::UTF8ToWideString(text, &m_wide); }
    LtWChar const *Get() const { return m_wide.GetString(); }

private:
    QzWideStringBuffer m_wide;  // U+FFFD where the text was not UTF-8
};

// One wide output, encoded into its UTF-8 buffer when it goes out of scope;
// a null target makes a null wide output, so optional outputs stay optional.
class Utf8Out {
public:
    explicit Utf8Out(QzStringBuffer *target) : m_target(target) {}
    Utf8Out(Utf8Out const &) = delete;
    Utf8Out &operator=(Utf8Out const &) = delete;
    ~Utf8Out()
    {
        if (m_target != nullptr && !m_wide.IsNull())
            QzWideString::ExtractUTF8String(m_wide.GetString(), m_target);
    }
    QzWideStringBuffer *Get() { return m_target != nullptr ? &m_wide : nullptr; }

private:
    QzStringBuffer *m_target;  // borrowed
    QzWideStringBuffer m_wide;
};

}  // namespace

bool QzSysFile::IsAbsoluteU(char const *path, int *prefix)
{
    return IsAbsoluteW(WideArg(path).Get(), prefix);
}

bool QzSysFile::NormalizePathU(char const *path, QzStringBuffer *out)
{
    return NormalizePathW(WideArg(path).Get(), Utf8Out(out).Get());
}

void QzSysFile::PushPathU(char const *base, char const *tail, QzStringBuffer *out,
                          bool forward_slash)
{
    PushPathW(WideArg(base).Get(), WideArg(tail).Get(), Utf8Out(out).Get(), forward_slash);
}

void QzSysFile::JoinPathsU(char const *a, char const *b, QzStringBuffer *out)
{
    JoinPathsW(WideArg(a).Get(), WideArg(b).Get(), Utf8Out(out).Get());
}

void QzSysFile::JoinPathsU(char const *a, char const *b, char const *c, QzStringBuffer *out)
{
    JoinPathsW(WideArg(a).Get(), WideArg(b).Get(), WideArg(c).Get(), Utf8Out(out).Get());
}

void QzSysFile::PopPathU(char const *path, QzStringBuffer *out, QzStringBuffer *last)
{
    PopPathW(WideArg(path).Get(), Utf8Out(out).Get(), Utf8Out(last).Get());
}

void QzSysFile::SplitPathU(char const *path, QzStringBuffer *dir, QzStringBuffer *name,
                           QzStringBuffer *ext)
{
    SplitPathW(WideArg(path).Get(), Utf8Out(dir).Get(), Utf8Out(name).Get(), Utf8Out(ext).Get());
}

void QzSysFile::SplitFilenameExtU(char const *name, QzStringBuffer *stem, QzStringBuffer *ext)
{
    SplitFilenameExtW(WideArg(name).Get(), Utf8Out(stem).Get(), Utf8Out(ext).Get());
}

void QzSysFile::AddFileExtensionU(char const *path, char const *ext, QzStringBuffer *out)
{
    AddFileExtensionW(WideArg(path).Get(), WideArg(ext).Get(), Utf8Out(out).Get());
}

void QzSysFile::GetFileExtensionU(char const *path, QzStringBuffer *out)
{
    GetFileExtensionW(WideArg(path).Get(), Utf8Out(out).Get());
}

bool QzSysFile::HasFileExtensionU(char const *path, char const *ext)
{
    return HasFileExtensionW(WideArg(path).Get(), WideArg(ext).Get());
}

void QzSysFile::RemoveFileExtensionU(char const *path, QzStringBuffer *out)
{
    RemoveFileExtensionW(WideArg(path).Get(), Utf8Out(out).Get());
}

void QzSysFile::ReplaceFileExtensionU(char const *path, char const *ext, QzStringBuffer *out)
{
    ReplaceFileExtensionW(WideArg(path).Get(), WideArg(ext).Get(), Utf8Out(out).Get());
}

void QzSysFile::RemovePathnameU(char const *path, QzStringBuffer *out)
{
    RemovePathnameW(WideArg(path).Get(), Utf8Out(out).Get());
}

void QzSysFile::MakeAbsoluteU(char const *relative, char const *base, QzStringBuffer *out)
{
    MakeAbsoluteW(WideArg(relative).Get(), WideArg(base).Get(), Utf8Out(out).Get());
}

void QzSysFile::MakeRelativeU(char const *path, char const *base, QzStringBuffer *out,
                              bool forward_slash)
{
    MakeRelativeW(WideArg(path).Get(), WideArg(base).Get(), Utf8Out(out).Get(), forward_slash);
}

bool QzSysFile::MakeValidFilenameU(char const *name, QzStringBuffer *out)
{
    return MakeValidFilenameW(WideArg(name).Get(), Utf8Out(out).Get());
}

bool QzSysFile::MatchFilenameU(char const *name, char const *pattern)
{
    return MatchFilenameW(WideArg(name).Get(), WideArg(pattern).Get());
}

bool QzSysFile::ExistsU(char const *path)
{
    return ExistsW(WideArg(path).Get());
}

bool QzSysFile::IsDirectoryU(char const *path)
{
    return IsDirectoryW(WideArg(path).Get());
}

bool QzSysFile::GetFileSizeU(char const *path, LtNat64 *size)
{
    return GetFileSizeW(WideArg(path).Get(), size);
}

bool QzSysFile::UnlinkU(char const *path, bool force)
{
    return UnlinkW(WideArg(path).Get(), force);
}

bool QzSysFile::CreateDirU(char const *path)
{
    return CreateDirW(WideArg(path).Get());
}

std::FILE *QzSysFile::fopenU(char const *path, char const *mode)
{
    return fopenW(WideArg(path).Get(), mode);
}
