// QzSysFilePosix.cpp: the file queries, file and directory operations,
// directory listings and file information of QzSysFile over POSIX calls;
// with the helpers that the other POSIX parts of QzSysFile share.

#include "qzutil/sys/posix/QzSysFilePosix.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

static_assert(sizeof(off_t) == 8, "file positions must be 64-bit");

static thread_local int g_last_error;  // QzSysFile::ErrorCode of this thread

// --- Shared helpers ---

static int ErrorCodeOf(int error)
{
    switch (error) {
    case 0:
        return QzSysFile::eERROR_NONE;
    case ENOENT:
        return QzSysFile::eERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return QzSysFile::eERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
        return QzSysFile::eERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
        return QzSysFile::eERROR_ACCESS_DENIED;
    case EBADF:
        return QzSysFile::eERROR_INVALID_HANDLE;
    case ENOMEM:
        return QzSysFile::eERROR_NOT_ENOUGH_MEMORY;
    case EXDEV:
        return QzSysFile::eERROR_NOT_SAME_DEVICE;
    case EBUSY:
    case ETXTBSY:
        return QzSysFile::eERROR_SHARING_VIOLATION;
    case EOPNOTSUPP:
    case ENOSYS:
        return QzSysFile::eERROR_NOT_SUPPORTED;
    case EEXIST:
        return QzSysFile::eERROR_FILE_EXISTS;
    case EINVAL:
        return QzSysFile::eERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
        return QzSysFile::eERROR_DISK_FULL;
    case ENOTEMPTY:
        return QzSysFile::eERROR_DIR_NOT_EMPTY;
    case ENAMETOOLONG:
        return QzSysFile::eERROR_FILENAME_TOO_LONG;
    default:
        return QzSysFile::eERROR_GENERAL_FAILURE;
    }
}

bool QzSysFilePosix::RecordErrno()
{
    g_last_error = ErrorCodeOf(errno);
    return false;
}

bool QzSysFilePosix::RecordError(int code)
{
    g_last_error = code;
    return false;
}

int QzSysFilePosix::LastError()
{
    return g_last_error;
}

bool QzSysFilePosix::KernelPath(LtWChar const *path, std::string *out)
{
    if (path == nullptr)
        return RecordError(QzSysFile::eERROR_INVALID_PARAMETER);
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(path, &utf8);
    out->assign(utf8.GetString(), static_cast<std::size_t>(utf8.GetLength()));
    std::replace(out->begin(), out->end(), '\\', '/');
    return true;
}

void QzSysFilePosix::FromKernelText(char const *text, QzWideStringBuffer *out)
{
    (void)QzString::UTF8ToWideString(text, out);  // 0 only means a U+FFFD went in
}

bool QzSysFilePosix::ReadFull(int fd, void *buffer, std::size_t size, std::size_t *done)
{
    std::size_t total = 0;
    char *bytes = static_cast<char *>(buffer);
    while (total < size) {
        ssize_t got = RetryOnEintr([&] { return read(fd, bytes + total, size - total); });
        if (got < 0) {
            *done = total;
            return RecordErrno();
        }
        if (got == 0)
            break;
        total += static_cast<std::size_t>(got);
    }
    *done = total;
    return true;
}

bool QzSysFilePosix::WriteAll(int fd, void const *data, std::size_t size, std::size_t *done)
{
    std::size_t total = 0;
    char const *bytes = static_cast<char const *>(data);
    while (total < size) {
        ssize_t put = RetryOnEintr([&] { return write(fd, bytes + total, size - total); });
        if (put < 0) {
            *done = total;
            return RecordErrno();
        }
        total += static_cast<std::size_t>(put);
    }
    *done = total;
    return true;
}

// The descriptor closes with the holder; a failed close after a finished
// transfer is reported by the callers that care (CopyFileW).
namespace {
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor const &) = delete;
    Descriptor &operator=(Descriptor const &) = delete;
    ~Descriptor()
    {
        if (m_fd >= 0)
            (void)close(m_fd);  // nothing to report on this path
    }
    int Get() const { return m_fd; }
    [[nodiscard]] bool Close()
    {
        int fd = m_fd;
        m_fd = -1;
        return close(fd) == 0 || QzSysFilePosix::RecordErrno();
    }

private:
    int m_fd;  // owned; -1 for none
};
}  // namespace

static int OpenKernelPath(std::string const &path, int flags, mode_t mode)
{
    int fd =
        QzSysFilePosix::RetryOnEintr([&] { return open(path.c_str(), flags | O_CLOEXEC, mode); });
    if (fd < 0)
        QzSysFilePosix::RecordErrno();
    return fd;
}

static bool StatPath(LtWChar const *path, struct stat *info)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    return stat(kernel.c_str(), info) == 0 || QzSysFilePosix::RecordErrno();
}

// --- Queries ---

bool QzSysFile::ExistsW(LtWChar const *path)
{
    struct stat info;
    return StatPath(path, &info);
}

bool QzSysFile::IsDirectoryW(LtWChar const *path)
{
    struct stat info;
    return StatPath(path, &info) && S_ISDIR(info.st_mode);
}

static bool CanAccess(LtWChar const *path, int what)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    return faccessat(AT_FDCWD, kernel.c_str(), what, AT_EACCESS) == 0 ||
           QzSysFilePosix::RecordErrno();
}

bool QzSysFile::CanReadW(LtWChar const *path)
{
    return CanAccess(path, R_OK);
}

bool QzSysFile::CanWriteW(LtWChar const *path)
{
    return CanAccess(path, W_OK);
}

bool QzSysFile::GetFileSizeW(LtWChar const *path, LtNat64 *size)
{
    struct stat info;
    if (!StatPath(path, &info))
        return false;
    if (S_ISDIR(info.st_mode))
        return QzSysFilePosix::RecordError(eERROR_ACCESS_DENIED);
    *size = static_cast<LtNat64>(info.st_size);
    return true;
}

LtNat64 QzSysFile::GetFileSizeW(LtWChar const *path)
{
    LtNat64 size = 0;
    return GetFileSizeW(path, &size) ? size : 0;
}

bool QzSysFile::StatW(LtWChar const *path, LtInt64 *time, LtNat64 *size)
{
    struct stat info;
    if (!StatPath(path, &info))
        return false;
    if (time != nullptr)
        *time = static_cast<LtInt64>(info.st_mtim.tv_sec);
    if (size != nullptr)
        *size = static_cast<LtNat64>(info.st_size);
    return true;
}

bool QzSysFile::IsNewerW(LtWChar const *a, LtWChar const *b)
{
    if (a == nullptr || b == nullptr)
        return false;
    struct stat b_info;
    if (!StatPath(b, &b_info) || !S_ISREG(b_info.st_mode))
        return false;
    struct stat a_info;
    if (!StatPath(a, &a_info))
        return errno == ENOENT;
    if (!S_ISREG(a_info.st_mode))
        return false;
    if (a_info.st_mtim.tv_sec != b_info.st_mtim.tv_sec)
        return a_info.st_mtim.tv_sec > b_info.st_mtim.tv_sec;
    return a_info.st_mtim.tv_nsec > b_info.st_mtim.tv_nsec;
}

// --- Files and directories ---

bool QzSysFile::CreateFileW(LtWChar const *path, LtNat64 size)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    Descriptor file(OpenKernelPath(kernel, O_WRONLY | O_CREAT | O_TRUNC, 0666));
    if (file.Get() < 0)
        return false;
    if (QzSysFilePosix::RetryOnEintr(
            [&] { return ftruncate(file.Get(), static_cast<off_t>(size)); }) != 0)
        return QzSysFilePosix::RecordErrno();
    return file.Close();
}

// Zero writes for file systems that cannot allocate: the blocks are then
// really on the disk, as posix_fallocate would have made them.
static bool WriteZeros(int fd, LtNat64 size)
{
    static constexpr std::size_t kZeroBlock = 16384;
    static char const zeros[kZeroBlock] = {};
    if (lseek(fd, 0, SEEK_SET) < 0)
        return QzSysFilePosix::RecordErrno();
    while (size > 0) {
        std::size_t part = size < kZeroBlock ? static_cast<std::size_t>(size) : kZeroBlock;
        std::size_t done = 0;
        if (!QzSysFilePosix::WriteAll(fd, zeros, part, &done))
            return false;
        size -= part;
    }
    return true;
}

bool QzSysFile::CreateUninitialisedFileW(LtWChar const *path, LtNat64 size)
{
    if (!CreateFileW(path, size))
        return false;
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    Descriptor file(OpenKernelPath(kernel, O_RDWR, 0));
    if (file.Get() < 0)
        return true;  // the file exists with its size; only the space is not taken
    if (size == 0)
        return file.Close();
    int error = posix_fallocate(file.Get(), 0, static_cast<off_t>(size));
    if (error == EOPNOTSUPP || error == EINVAL) {
        if (!WriteZeros(file.Get(), size))
            return false;
    } else if (error != 0) {
        errno = error;
        return QzSysFilePosix::RecordErrno();
    }
    return file.Close();
}

static bool CopyBytes(int from, int to)
{
    static constexpr std::size_t kChunk = 1 << 20;
    for (;;) {
        ssize_t copied = QzSysFilePosix::RetryOnEintr(
            [&] { return copy_file_range(from, nullptr, to, nullptr, kChunk, 0); });
        if (copied == 0)
            return true;
        if (copied > 0)
            continue;
        if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP)
            return QzSysFilePosix::RecordErrno();
        break;  // not between these files: copy through a buffer from here on
    }
    std::vector<char> buffer(65536);
    for (;;) {
        std::size_t got = 0;
        if (!QzSysFilePosix::ReadFull(from, buffer.data(), buffer.size(), &got))
            return false;
        if (got == 0)
            return true;
        std::size_t put = 0;
        if (!QzSysFilePosix::WriteAll(to, buffer.data(), got, &put))
            return false;
    }
}

bool QzSysFile::CopyFileW(LtWChar const *from, LtWChar const *to, bool fail_if_exists)
{
    std::string source_path, target_path;
    if (!QzSysFilePosix::KernelPath(from, &source_path) ||
        !QzSysFilePosix::KernelPath(to, &target_path))
        return false;
    Descriptor source(OpenKernelPath(source_path, O_RDONLY, 0));
    struct stat source_info;
    if (source.Get() < 0)
        return false;
    if (fstat(source.Get(), &source_info) != 0)
        return QzSysFilePosix::RecordErrno();
    if (!S_ISREG(source_info.st_mode))
        return QzSysFilePosix::RecordError(eERROR_ACCESS_DENIED);
    // Not truncated at open: copying a file onto itself must not empty it.
    Descriptor target(
        OpenKernelPath(target_path, O_WRONLY | O_CREAT | (fail_if_exists ? O_EXCL : 0), 0666));
    if (target.Get() < 0)
        return false;
    struct stat target_info;
    if (fstat(target.Get(), &target_info) != 0)
        return QzSysFilePosix::RecordErrno();
    if (target_info.st_dev == source_info.st_dev && target_info.st_ino == source_info.st_ino)
        return QzSysFilePosix::RecordError(eERROR_SHARING_VIOLATION);
    bool copied = ftruncate(target.Get(), 0) == 0 && CopyBytes(source.Get(), target.Get()) &&
                  fchmod(target.Get(), source_info.st_mode & 07777) == 0;
    if (!copied)
        QzSysFilePosix::RecordErrno();
    if (copied && target.Close())
        return true;
    int error = g_last_error;
    (void)unlink(target_path.c_str());  // no half copy stays behind
    return QzSysFilePosix::RecordError(error);
}

bool QzSysFile::RenameW(LtWChar const *from, LtWChar const *to)
{
    std::string source, target;
    if (!QzSysFilePosix::KernelPath(from, &source) || !QzSysFilePosix::KernelPath(to, &target))
        return false;
    return rename(source.c_str(), target.c_str()) == 0 || QzSysFilePosix::RecordErrno();
}

// A file without the owner's write bit is read-only and survives an unforced
// removal, as a read-only file always has.
static bool RemoveFile(std::string const &path, struct stat const &info, bool force)
{
    if (!force && S_ISREG(info.st_mode) && (info.st_mode & S_IWUSR) == 0)
        return QzSysFilePosix::RecordError(QzSysFile::eERROR_ACCESS_DENIED);
    return unlink(path.c_str()) == 0 || QzSysFilePosix::RecordErrno();
}

bool QzSysFile::UnlinkW(LtWChar const *path, bool force)
{
    std::string kernel;
    struct stat info;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    if (lstat(kernel.c_str(), &info) != 0)
        return QzSysFilePosix::RecordErrno();
    return RemoveFile(kernel, info, force);
}

namespace {
struct DirEntry {
    std::string name;   // UTF-8, as on the disk
    bool is_directory;  // a real directory; a link to one is no directory
};
}  // namespace

// Byte order with ASCII letters folded first, then plain byte order: the
// order in which listings have always come.
static bool ListedBefore(DirEntry const &a, DirEntry const &b)
{
    int folded = strcasecmp(a.name.c_str(), b.name.c_str());
    if (folded != 0)
        return folded < 0;
    return std::strcmp(a.name.c_str(), b.name.c_str()) < 0;
}

static bool ListDirectory(std::string const &path, std::vector<DirEntry> *entries)
{
    int fd = OpenKernelPath(path, O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0)
        return false;
    DIR *dir = fdopendir(fd);
    if (dir == nullptr) {
        QzSysFilePosix::RecordErrno();
        (void)close(fd);
        return false;
    }
    entries->clear();
    errno = 0;
    while (struct dirent *entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        bool is_directory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat info;
            is_directory = fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                           S_ISDIR(info.st_mode);
        }
        entries->push_back({entry->d_name, is_directory});
        errno = 0;
    }
    bool complete = errno == 0 || QzSysFilePosix::RecordErrno();
    (void)closedir(dir);  // a read-only listing has nothing to lose at close
    std::sort(entries->begin(), entries->end(), ListedBefore);
    return complete;
}

static bool DeleteTree(std::string const &path, bool force)
{
    struct stat info;
    if (lstat(path.c_str(), &info) != 0)
        return QzSysFilePosix::RecordErrno();
    if (!S_ISDIR(info.st_mode))
        return RemoveFile(path, info, force);
    std::vector<DirEntry> entries;
    if (!ListDirectory(path, &entries))
        return false;
    for (DirEntry const &entry : entries) {
        if (!DeleteTree(path + "/" + entry.name, force))
            return false;
    }
    return rmdir(path.c_str()) == 0 || QzSysFilePosix::RecordErrno();
}

bool QzSysFile::DeleteW(LtWChar const *path, bool recursive, bool force)
{
    std::string kernel;
    struct stat info;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    if (lstat(kernel.c_str(), &info) != 0)
        return QzSysFilePosix::RecordErrno();
    if (!S_ISDIR(info.st_mode))
        return RemoveFile(kernel, info, force);
    if (recursive)
        return DeleteTree(kernel, force);
    return rmdir(kernel.c_str()) == 0 || QzSysFilePosix::RecordErrno();
}

bool QzSysFile::RemoveDirectoryW(LtWChar const *path)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    return rmdir(kernel.c_str()) == 0 || QzSysFilePosix::RecordErrno();
}

static bool MakeDirectoryTree(std::string const &path)
{
    if (mkdir(path.c_str(), 0777) == 0)
        return true;
    if (errno == EEXIST) {
        struct stat info;
        if (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
            return true;
        errno = EEXIST;
        return QzSysFilePosix::RecordErrno();
    }
    if (errno != ENOENT)
        return QzSysFilePosix::RecordErrno();
    std::size_t cut = path.find_last_of('/');
    if (cut == std::string::npos || cut == 0)
        return QzSysFilePosix::RecordErrno();
    if (!MakeDirectoryTree(path.substr(0, cut)))
        return false;
    // Another process may make it at the same moment: that is success too.
    return mkdir(path.c_str(), 0777) == 0 || errno == EEXIST || QzSysFilePosix::RecordErrno();
}

bool QzSysFile::CreateDirW(LtWChar const *path)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    while (kernel.size() > 1 && kernel.back() == '/')
        kernel.pop_back();
    if (kernel.empty())
        return QzSysFilePosix::RecordError(eERROR_INVALID_PARAMETER);
    return MakeDirectoryTree(kernel);
}

bool QzSysFile::ChangePermissionsW(LtWChar const *path, int mode)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    return chmod(kernel.c_str(), static_cast<mode_t>(mode) & 07777) == 0 ||
           QzSysFilePosix::RecordErrno();
}

static bool PruneTree(std::string const &path, bool remove_self)
{
    std::vector<DirEntry> entries;
    if (!ListDirectory(path, &entries))
        return false;
    bool empty = true;
    for (DirEntry const &entry : entries) {
        if (!entry.is_directory || !PruneTree(path + "/" + entry.name, true))
            empty = false;
    }
    if (empty && remove_self && rmdir(path.c_str()) != 0)
        return QzSysFilePosix::RecordErrno();
    return empty;
}

bool QzSysFile::PruneEmptyDirectoriesW(LtWChar const *root)
{
    return PruneEmptyDirectoriesRecurse(root, false);
}

bool QzSysFile::PruneEmptyDirectoriesRecurse(LtWChar const *path, bool remove_self)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    return PruneTree(kernel, remove_self);
}

// --- Listings and file information ---

class QzSysDirHandle {
public:
    std::vector<DirEntry> m_entries;  // sorted
    std::size_t m_next = 0;           // index of the entry ReadDirW gives next
};

QzSysDirHandle *QzSysFile::OpenDirW(LtWChar const *path)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return nullptr;
    std::unique_ptr<QzSysDirHandle> dir(new (std::nothrow) QzSysDirHandle);
    if (dir == nullptr) {
        QzSysFilePosix::RecordError(eERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (!ListDirectory(kernel, &dir->m_entries))
        return nullptr;
    return dir.release();
}

bool QzSysFile::ReadDirW(QzSysDirHandle *dir, QzWideStringBuffer *name, bool *is_directory)
{
    if (dir == nullptr || dir->m_next >= dir->m_entries.size())
        return false;
    DirEntry const &entry = dir->m_entries[dir->m_next++];
    QzSysFilePosix::FromKernelText(entry.name.c_str(), name);
    if (is_directory != nullptr)
        *is_directory = entry.is_directory;
    return true;
}

void QzSysFile::CloseDir(QzSysDirHandle *dir)
{
    delete dir;
}

class QzSysFileInfoHandle {
public:
    LtNat64 m_size;       // bytes
    LtInt64 m_time;       // last write, seconds since 1970 UTC
    int m_permissions;    // mode & 07777
    bool m_is_directory;  // links followed
};

QzSysFileInfoHandle *QzSysFile::OpenFileInfoW(LtWChar const *path)
{
    struct stat info;
    if (!StatPath(path, &info))
        return nullptr;
    auto *handle = new (std::nothrow) QzSysFileInfoHandle{
        static_cast<LtNat64>(info.st_size), static_cast<LtInt64>(info.st_mtim.tv_sec),
        static_cast<int>(info.st_mode & 07777), S_ISDIR(info.st_mode)};
    if (handle == nullptr)
        QzSysFilePosix::RecordError(eERROR_NOT_ENOUGH_MEMORY);
    return handle;
}

LtNat64 QzSysFile::GetFileInfoSize(QzSysFileInfoHandle const *info)
{
    return info->m_size;
}

LtInt64 QzSysFile::GetFileInfoTime(QzSysFileInfoHandle const *info)
{
    return info->m_time;
}

int QzSysFile::GetFileInfoPermissions(QzSysFileInfoHandle const *info)
{
    return info->m_permissions;
}

bool QzSysFile::IsFileInfoDirectory(QzSysFileInfoHandle const *info)
{
    return info->m_is_directory;
}

void QzSysFile::CloseFileInfo(QzSysFileInfoHandle *info)
{
    delete info;
}

int QzSysFile::GetLastError()
{
    return QzSysFilePosix::LastError();
}
