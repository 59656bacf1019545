// QzLocalFileURLHandle.cpp: a local file behind the QzFileURL calls: "file:"
// URIs turned into paths, and blocking transfers at 64-bit positions.

#include "qzutil/url/internal/QzLocalFileURLHandle.h"

#include <cstring>

#include "qzutil/frame/QzError.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"
#include "qzutil/text/internal/QzHexDigits.h"

// The owner write bit of QzSysFile's permissions: without it the file is
// read-only, whoever the process runs as.
static constexpr int kOwnerWritePermission = 0200;

// OpenURL's sharing bits pass to the system file as they are.
static_assert(static_cast<int>(QzFileURL::eSHARE_READ) == QzSysFile::eSHARE_READ &&
                  static_cast<int>(QzFileURL::eSHARE_WRITE) == QzSysFile::eSHARE_WRITE,
              "sharing bits agree");
static constexpr unsigned kShareBits = QzFileURL::eSHARE_READ | QzFileURL::eSHARE_WRITE;

static int FoldAsciiCase(int character)
{
    return character >= 'A' && character <= 'Z' ? character - 'A' + 'a' : character;
}

// Whether `uri` starts with "file:", in any case.
static bool HasFileScheme(LtWChar const *uri)
{
    static constexpr char kScheme[] = "file:";
    for (int i = 0; kScheme[i] != 0; ++i) {
        if (FoldAsciiCase(uri[i]) != kScheme[i])
            return false;
    }
    return true;
}

// Whether the `length` bytes at `host` name this machine: empty or
// "localhost", in any case.
static bool IsLocalHost(char const *host, std::size_t length)
{
    static constexpr char kLocalHost[] = "localhost";
    if (length == 0)
        return true;
    if (length != sizeof(kLocalHost) - 1)
        return false;
    for (std::size_t i = 0; i < length; ++i) {
        if (FoldAsciiCase(host[i]) != kLocalHost[i])
            return false;
    }
    return true;
}

// Replaces each %XX by the byte it stands for; a "%" without two hex digits
// stays as written. False for %00, which would cut the path short.
static bool PercentDecode(char const *text, QzStringBuffer *out)
{
    out->SetEmptyString();
    for (; *text != 0; ++text) {
        int const high = *text == '%' ? HexDigitValue(text[1]) : -1;
        int const low = high >= 0 ? HexDigitValue(text[2]) : -1;
        if (low < 0) {
            out->Append(*text);
            continue;
        }
        int const byte = high * 16 + low;
        if (byte == 0)
            return false;
        out->Append(static_cast<char>(byte));
        text += 2;
    }
    return true;
}

// The path that `uri` names: a plain path as given; for "file:///p",
// "file://localhost/p" and "file:/p" the absolute path "/p", percent-decoded
// as UTF-8. False for another host, a relative "file:" path or bad bytes.
static bool LocalPathFromURI(LtWChar const *uri, QzWideStringBuffer *path)
{
    if (!HasFileScheme(uri)) {
        path->SetString(uri);
        return true;
    }
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(uri + std::strlen("file:"), &utf8);
    char const *rest = utf8.GetString();
    if (rest[0] == '/' && rest[1] == '/') {
        char const *host = rest + 2;
        rest = std::strchr(host, '/');
        if (rest == nullptr || !IsLocalHost(host, static_cast<std::size_t>(rest - host)))
            return false;
    }
    QzStringBuffer decoded;
    return rest[0] == '/' && PercentDecode(rest, &decoded) &&
           path->SetFromUTF8String(decoded.GetString()) != 0;
}

QzFileURLHandle *QzLocalFileURLHandle::Open(LtWChar const *uri, unsigned flags, unsigned sharing)
{
    QzWideStringBuffer path;
    if (!LocalPathFromURI(uri, &path))
        return nullptr;
    QzSysFileInfoHandle *info = QzSysFile::OpenFileInfoW(path.GetString());
    if (info == nullptr)
        return nullptr;
    bool const is_directory = QzSysFile::IsFileInfoDirectory(info);
    LtNat64 const size = QzSysFile::GetFileInfoSize(info);
    bool const read_only = (flags & QzFileURL::eOPEN_READ_ONLY) != 0 ||
                           (QzSysFile::GetFileInfoPermissions(info) & kOwnerWritePermission) == 0;
    QzSysFile::CloseFileInfo(info);
    if (is_directory)
        return nullptr;

    auto const share = static_cast<QzSysFile::ShareMode>(sharing & kShareBits);
    void *file = QzSysFile::OpenFile(
        path.GetString(), read_only ? QzSysFile::eACCESS_READ : QzSysFile::eACCESS_READ_WRITE,
        share, QzSysFile::eOPEN_EXISTING, QzSysFile::eATTR_RANDOM_ACCESS);
    if (file == nullptr)
        return nullptr;
    return new QzLocalFileURLHandle(uri, flags, path.GetString(), file, size);
}

QzLocalFileURLHandle::QzLocalFileURLHandle(LtWChar const *uri, unsigned flags, LtWChar const *path,
                                           void *file, LtNat64 size)
    : QzFileURLHandle(uri, flags), m_path(path), m_file(file)
{
    SetFileSize(size);
}

QzLocalFileURLHandle::~QzLocalFileURLHandle()
{
    QzLocalFileURLHandle::Close();
}

void QzLocalFileURLHandle::Close()
{
    if (m_file == nullptr)
        return;
    if (!QzSysFile::CloseFile(m_file))
        QzError::Post(QzSysError::eWARNING, GetComponent(),
                      "QzFileURL: close failed in %ls (error %d)", GetURI(),
                      QzSysFile::GetLastError());
    m_file = nullptr;
    if ((GetFlags() & QzFileURL::eOPEN_TEMPORARY) != 0)
        (void)QzSysFile::UnlinkW(m_path.GetString(), true);  // gone already is fine
}

QzFileURL::Status QzLocalFileURLHandle::Read(QzFileURL::Type, LtNat64 position,
                                             unsigned char *buffer, unsigned size)
{
    std::size_t done = 0;
    // A short count means the file shrank under us: a failure like any other.
    if (!QzSysFile::SeekFile(m_file, static_cast<LtInt64>(position), QzSysFile::eSEEK_SET,
                             nullptr) ||
        !QzSysFile::ReadFile(m_file, buffer, size, &done) || done != size) {
        PostTransferFailure("read", size, position);
        return QzFileURL::eSTATUS_ERROR;
    }
    return QzFileURL::eSTATUS_OK;
}

QzFileURL::Status QzLocalFileURLHandle::Write(QzFileURL::Type, LtNat64 position,
                                              unsigned char const *data, unsigned size)
{
    std::size_t done = 0;
    bool const ok = QzSysFile::SeekFile(m_file, static_cast<LtInt64>(position),
                                        QzSysFile::eSEEK_SET, nullptr) &&
                    QzSysFile::WriteFile(m_file, data, size, &done);
    // What did reach the file counts, even when the rest failed.
    if (done != 0 && position + done > GetFileSize())
        SetFileSize(position + done);
    if (!ok) {
        PostTransferFailure("write", size, position);
        return QzFileURL::eSTATUS_ERROR;
    }
    return QzFileURL::eSTATUS_OK;
}
