// QzSysFileIoPosix.cpp: the raw file handles and buffered streams of
// QzSysFile, the text-mode reading filter, and the whole-file checksum.

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/sys/posix/QzSysFilePosix.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

static_assert(QzSysFile::eSEEK_SET == SEEK_SET && QzSysFile::eSEEK_CUR == SEEK_CUR &&
                  QzSysFile::eSEEK_END == SEEK_END,
              "seek origins pass straight to lseek");

// What a raw handle (void *) points to.
namespace {
struct FileRecord {
    int fd;               // owned
    unsigned attributes;  // QzSysFile::OpenAttributes
};
}  // namespace

static bool OpenFlags(QzSysFile::AccessMode access, QzSysFile::CreationMode creation, int *flags)
{
    bool reads = (access & QzSysFile::eACCESS_READ) != 0;
    bool writes = (access & QzSysFile::eACCESS_WRITE) != 0;
    if (!reads && !writes)
        return false;
    *flags = reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
    if ((access & (QzSysFile::eACCESS_APPEND & ~QzSysFile::eACCESS_WRITE)) != 0)
        *flags |= O_APPEND;
    switch (creation) {
    case QzSysFile::eCREATE_NEW:
        *flags |= O_CREAT | O_EXCL;
        return true;
    case QzSysFile::eCREATE_ALWAYS:
        *flags |= O_CREAT | O_TRUNC;
        return true;
    case QzSysFile::eOPEN_EXISTING:
        return true;
    case QzSysFile::eOPEN_ALWAYS:
        *flags |= O_CREAT;
        return true;
    case QzSysFile::eTRUNCATE_EXISTING:
        *flags |= O_TRUNC;
        return true;
    }
    return false;
}

// The descriptor of an open by the modes, or -1 with the last error set.
static int OpenDescriptor(LtWChar const *path, QzSysFile::AccessMode access,
                          QzSysFile::CreationMode creation, std::string *kernel)
{
    int flags = 0;
    if (!OpenFlags(access, creation, &flags)) {
        QzSysFilePosix::RecordError(QzSysFile::eERROR_INVALID_PARAMETER);
        return -1;
    }
    if (!QzSysFilePosix::KernelPath(path, kernel))
        return -1;
    int fd = QzSysFilePosix::RetryOnEintr(
        [&] { return open(kernel->c_str(), flags | O_CLOEXEC, 0666); });
    if (fd < 0)
        QzSysFilePosix::RecordErrno();
    return fd;
}

// --- Raw handles ---

void *QzSysFile::OpenFile(LtWChar const *path, AccessMode access, ShareMode share,
                          CreationMode creation, unsigned attributes)
{
    (void)share;  // no mandatory locking here; coordination is by lock files
    std::string kernel;
    int fd = OpenDescriptor(path, access, creation, &kernel);
    if (fd < 0)
        return nullptr;
    auto *record = new (std::nothrow) FileRecord{fd, attributes};
    if (record == nullptr) {
        (void)close(fd);
        QzSysFilePosix::RecordError(eERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if ((attributes & eATTR_RANDOM_ACCESS) != 0)
        (void)posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);  // a hint; refusal changes nothing
    // The descriptor keeps the data; a crash leaves no file behind.
    if ((attributes & (eATTR_DELETE_ON_CLOSE | eATTR_TEMPORARY)) != 0)
        (void)unlink(kernel.c_str());
    return record;
}

bool QzSysFile::CloseFile(void *handle)
{
    if (handle == nullptr)
        return QzSysFilePosix::RecordError(eERROR_INVALID_HANDLE);
    std::unique_ptr<FileRecord> record(static_cast<FileRecord *>(handle));
    // Never retried: Linux has released the descriptor even on EINTR.
    return close(record->fd) == 0 || QzSysFilePosix::RecordErrno();
}

// Tells the page cache to drop what a transfer on a no-buffering handle
// moved: the library keeps its own copy of those blocks.
static void DropCachedRange(FileRecord const *record, off_t start, std::size_t length)
{
    if ((record->attributes & QzSysFile::eATTR_NO_BUFFERING) != 0 && start >= 0 && length > 0)
        (void)posix_fadvise(record->fd, start, static_cast<off_t>(length), POSIX_FADV_DONTNEED);
}

// Runs transfer(fd, &moved) on the handle's descriptor, then drops the
// moved range from the page cache where the handle asks for it.
template <typename Transfer>
static bool TransferOnHandle(void *handle, std::size_t *done, Transfer transfer)
{
    std::size_t moved = 0;
    if (done != nullptr)
        *done = 0;
    if (handle == nullptr)
        return QzSysFilePosix::RecordError(QzSysFile::eERROR_INVALID_HANDLE);
    auto *record = static_cast<FileRecord *>(handle);
    off_t start = lseek(record->fd, 0, SEEK_CUR);
    bool ok = transfer(record->fd, &moved);
    DropCachedRange(record, start, moved);
    if (done != nullptr)
        *done = moved;
    return ok;
}

bool QzSysFile::ReadFile(void *handle, void *buffer, std::size_t size, std::size_t *done)
{
    return TransferOnHandle(handle, done, [buffer, size](int fd, std::size_t *moved) {
        return QzSysFilePosix::ReadFull(fd, buffer, size, moved);
    });
}

bool QzSysFile::WriteFile(void *handle, void const *buffer, std::size_t size, std::size_t *done)
{
    return TransferOnHandle(handle, done, [buffer, size](int fd, std::size_t *moved) {
        return QzSysFilePosix::WriteAll(fd, buffer, size, moved);
    });
}

bool QzSysFile::SeekFile(void *handle, LtInt64 offset, SeekOrigin origin, LtInt64 *position)
{
    if (handle == nullptr)
        return QzSysFilePosix::RecordError(eERROR_INVALID_HANDLE);
    off_t reached = lseek(static_cast<FileRecord *>(handle)->fd, offset, origin);
    if (reached < 0)
        return QzSysFilePosix::RecordErrno();
    if (position != nullptr)
        *position = reached;
    return true;
}

bool QzSysFile::FlushFileBuffer(void *handle)
{
    if (handle == nullptr)
        return QzSysFilePosix::RecordError(eERROR_INVALID_HANDLE);
    return fsync(static_cast<FileRecord *>(handle)->fd) == 0 || QzSysFilePosix::RecordErrno();
}

// --- The text-mode reading filter ---

// Reads the descriptor through a staging buffer and drops the CR of each
// CR LF pair, also where the pair straddles two reads. Writes pass through
// unchanged, after giving back what was staged but not yet delivered.
//
// Ownership: owns the descriptor; closed by the stream's close.
namespace {
struct TextReadFilter {
    int fd;
    std::size_t position;  // next staged byte to deliver
    std::size_t length;    // staged bytes
    char staged[4096];
};
}  // namespace

// Keeps the last `keep` staged bytes and reads more behind them. False at
// the end of the file or on an error (*failed then set).
static bool Restage(TextReadFilter *filter, std::size_t keep, bool *failed)
{
    std::memmove(filter->staged, filter->staged + filter->length - keep, keep);
    std::size_t got = 0;
    ssize_t read_now = QzSysFilePosix::RetryOnEintr(
        [&] { return read(filter->fd, filter->staged + keep, sizeof(filter->staged) - keep); });
    if (read_now < 0)
        *failed = true;
    else
        got = static_cast<std::size_t>(read_now);
    filter->position = 0;
    filter->length = keep + got;
    return got > 0;
}

static ssize_t FilterRead(void *cookie, char *buffer, std::size_t size)
{
    auto *filter = static_cast<TextReadFilter *>(cookie);
    std::size_t delivered = 0;
    bool failed = false;
    while (delivered < size) {
        if (filter->position == filter->length) {
            // Deliver what there is rather than block for more.
            if (delivered > 0 || !Restage(filter, 0, &failed))
                break;
        }
        char unit = filter->staged[filter->position];
        if (unit == '\r') {
            if (filter->position + 1 == filter->length)
                (void)Restage(filter, 1, &failed);  // at the end the CR stays a CR
            if (filter->position + 1 < filter->length &&
                filter->staged[filter->position + 1] == '\n') {
                ++filter->position;
                continue;
            }
        }
        buffer[delivered++] = unit;
        ++filter->position;
    }
    return failed && delivered == 0 ? -1 : static_cast<ssize_t>(delivered);
}

// Moves the descriptor back over the staged bytes not yet delivered, so that
// its position is the stream's.
static bool GiveBackStaged(TextReadFilter *filter)
{
    off_t unread = static_cast<off_t>(filter->length - filter->position);
    filter->position = filter->length = 0;
    return unread == 0 || lseek(filter->fd, -unread, SEEK_CUR) >= 0;
}

static ssize_t FilterWrite(void *cookie, char const *buffer, std::size_t size)
{
    auto *filter = static_cast<TextReadFilter *>(cookie);
    std::size_t done = 0;
    if (!GiveBackStaged(filter) || !QzSysFilePosix::WriteAll(filter->fd, buffer, size, &done))
        return done > 0 ? static_cast<ssize_t>(done) : -1;
    return static_cast<ssize_t>(done);
}

static int FilterSeek(void *cookie, off64_t *offset, int whence)
{
    auto *filter = static_cast<TextReadFilter *>(cookie);
    if (!GiveBackStaged(filter))
        return -1;
    off_t reached = lseek(filter->fd, *offset, whence);
    if (reached < 0)
        return -1;
    *offset = reached;
    return 0;
}

static int FilterClose(void *cookie)
{
    std::unique_ptr<TextReadFilter> filter(static_cast<TextReadFilter *>(cookie));
    return close(filter->fd);
}

// The C stream over a descriptor in the mode that the access asks for.
static std::FILE *StreamOver(int fd, QzSysFile::AccessMode access, bool text_filter)
{
    bool reads = (access & QzSysFile::eACCESS_READ) != 0;
    bool writes = (access & QzSysFile::eACCESS_WRITE) != 0;
    bool appends = access != (access & QzSysFile::eACCESS_READ_WRITE);
    char const *mode = appends ? (reads ? "a+" : "a") : reads && writes ? "r+" : reads ? "r" : "w";
    if (!text_filter)
        return fdopen(fd, mode);
    auto *filter = new (std::nothrow) TextReadFilter;
    if (filter == nullptr)
        return nullptr;
    filter->fd = fd;
    filter->position = filter->length = 0;
    cookie_io_functions_t functions = {FilterRead, FilterWrite, FilterSeek, FilterClose};
    std::FILE *stream = fopencookie(filter, mode, functions);
    if (stream == nullptr) {
        delete filter;
        return nullptr;
    }
    // The filter does the buffering. A second buffer in the stream would
    // hold filtered bytes, whose count differs from the file's by the CRs
    // dropped, and make ftell and relative seeks miss.
    (void)setvbuf(stream, nullptr, _IONBF, 0);  // cannot fail before the first transfer
    return stream;
}

std::FILE *QzSysFile::fopenW(LtWChar const *path, AccessMode access, CreationMode creation,
                             Translation translation, ShareMode share)
{
    (void)share;  // as in OpenFile
    std::string kernel;
    int fd = OpenDescriptor(path, access, creation, &kernel);
    if (fd < 0)
        return nullptr;
    bool text_filter = translation == eTEXT && (access & eACCESS_READ) != 0;
    std::FILE *stream = StreamOver(fd, access, text_filter);
    if (stream == nullptr) {
        QzSysFilePosix::RecordErrno();
        (void)close(fd);
    }
    return stream;
}

// The C mode letters in terms of the modes; false for anything else.
static bool ParseMode(char const *mode, QzSysFile::AccessMode *access,
                      QzSysFile::CreationMode *creation, QzSysFile::Translation *translation)
{
    if (mode == nullptr)
        return false;
    int bits = 0;
    switch (*mode) {
    case 'r':
        bits = QzSysFile::eACCESS_READ;
        *creation = QzSysFile::eOPEN_EXISTING;
        break;
    case 'w':
        bits = QzSysFile::eACCESS_WRITE;
        *creation = QzSysFile::eCREATE_ALWAYS;
        break;
    case 'a':
        bits = QzSysFile::eACCESS_APPEND;
        *creation = QzSysFile::eOPEN_ALWAYS;
        break;
    default:
        return false;
    }
    *translation = QzSysFile::eTEXT;  // the default when neither "b" nor "t" is given
    for (char const *letter = mode + 1; *letter != 0; ++letter) {
        if (*letter == '+')
            bits |= QzSysFile::eACCESS_READ_WRITE;
        else if (*letter == 'b')
            *translation = QzSysFile::eBINARY;
        else if (*letter == 't')
            *translation = QzSysFile::eTEXT;
        else if (*letter == 'x' && *mode == 'w')
            *creation = QzSysFile::eCREATE_NEW;
        else if (*letter != 'e')  // close-on-exec is always on
            return false;
    }
    *access = static_cast<QzSysFile::AccessMode>(bits);
    return true;
}

std::FILE *QzSysFile::fopenW(LtWChar const *path, char const *mode)
{
    AccessMode access;
    CreationMode creation;
    Translation translation;
    if (!ParseMode(mode, &access, &creation, &translation)) {
        QzSysFilePosix::RecordError(eERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return fopenW(path, access, creation, translation, eSHARE_READ);
}

bool QzSysFile::fclose(std::FILE *file)
{
    if (file == nullptr)
        return QzSysFilePosix::RecordError(eERROR_INVALID_HANDLE);
    return std::fclose(file) == 0 || QzSysFilePosix::RecordErrno();
}

std::size_t QzSysFile::fread(void *buffer, std::size_t size, std::size_t count, std::FILE *file)
{
    return std::fread(buffer, size, count, file);
}

std::size_t QzSysFile::fwrite(void const *data, std::size_t size, std::size_t count,
                              std::FILE *file)
{
    return std::fwrite(data, size, count, file);
}

bool QzSysFile::fwrite(void const *data, std::size_t bytes, std::FILE *file)
{
    return std::fwrite(data, 1, bytes, file) == bytes;
}

bool QzSysFile::fseek(std::FILE *file, LtInt64 offset, SeekOrigin origin)
{
    return fseeko(file, offset, origin) == 0 || QzSysFilePosix::RecordErrno();
}

LtInt64 QzSysFile::ftell(std::FILE *file)
{
    off_t position = ftello(file);
    if (position < 0)
        QzSysFilePosix::RecordErrno();
    return position;
}

// --- Checksum ---

// Adler-32 over one more piece of data.
static LtNat32 AddAdler32(LtNat32 adler, unsigned char const *data, std::size_t length)
{
    static constexpr LtNat32 kModulus = 65521;  // the largest prime below 2^16
    LtNat32 low = adler & 0xFFFF;
    LtNat32 high = adler >> 16;
    for (std::size_t i = 0; i < length; ++i) {
        low = (low + data[i]) % kModulus;
        high = (high + low) % kModulus;
    }
    return (high << 16) | low;
}

bool QzSysFile::GetChecksum(LtWChar const *path, int *checksum)
{
    QzSysFileInfoHandle *info = OpenFileInfoW(path);
    if (info == nullptr)
        return false;
    LtNat64 expected = GetFileInfoSize(info);
    CloseFileInfo(info);
    void *file = OpenFile(path, eACCESS_READ, eSHARE_READ, eOPEN_EXISTING, eATTR_NONE);
    if (file == nullptr)
        return false;
    unsigned char buffer[4096];
    LtNat32 adler = 1;
    LtNat64 total = 0;
    std::size_t got = 0;
    bool ok = true;
    while ((ok = ReadFile(file, buffer, sizeof(buffer), &got)) && got > 0) {
        adler = AddAdler32(adler, buffer, got);
        total += got;
    }
    ok = CloseFile(file) && ok;
    if (!ok)
        return false;
    if (total != expected)  // the file changed while it was read
        return QzSysFilePosix::RecordError(eERROR_GENERAL_FAILURE);
    *checksum = static_cast<int>(adler);
    return true;
}
