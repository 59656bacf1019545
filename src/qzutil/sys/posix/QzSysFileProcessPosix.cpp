// QzSysFileProcessPosix.cpp: the process facts of QzSysFile (current
// directory, environment, executable and module paths), the user's
// directories, starting programs, and the image-type probe.

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/sys/posix/QzSysFilePosix.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

// --- The process ---

// Text from a call that fills a buffer of a given size and signals a short
// buffer by `too_small`; the buffer doubles until the text fits.
template <typename Fill>
static bool GrowingText(Fill fill, std::string *out)
{
    std::vector<char> buffer(256);
    for (;;) {
        bool too_small = false;
        ssize_t length = fill(buffer.data(), buffer.size(), &too_small);
        if (length >= 0) {
            out->assign(buffer.data(), static_cast<std::size_t>(length));
            return true;
        }
        if (!too_small || buffer.size() >= (1u << 20))
            return QzSysFilePosix::RecordErrno();
        buffer.resize(buffer.size() * 2);
    }
}

bool QzSysFile::GetCurrentDirectoryW(QzWideStringBuffer *out)
{
    std::string path;
    bool ok = GrowingText(
        [](char *buffer, std::size_t size, bool *too_small) -> ssize_t {
            if (getcwd(buffer, size) != nullptr)
                return static_cast<ssize_t>(std::strlen(buffer));
            *too_small = errno == ERANGE;
            return -1;
        },
        &path);
    QzSysFilePosix::FromKernelText(ok ? path.c_str() : "", out);
    return ok;
}

bool QzSysFile::SetCurrentDirectoryW(LtWChar const *path)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return false;
    return chdir(kernel.c_str()) == 0 || QzSysFilePosix::RecordErrno();
}

// Names and values of the environment are UTF-8 text, not paths: a "\" stays.
static std::string Utf8Of(LtWChar const *text)
{
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(text, &utf8);
    return utf8.IsNull() ? std::string() : std::string(utf8.GetString());
}

bool QzSysFile::GetEnvironmentVariableW(LtWChar const *name, QzWideStringBuffer *out)
{
    char const *value = name != nullptr ? std::getenv(Utf8Of(name).c_str()) : nullptr;
    QzSysFilePosix::FromKernelText(value != nullptr ? value : "", out);
    return value != nullptr || QzSysFilePosix::RecordError(eERROR_FILE_NOT_FOUND);
}

bool QzSysFile::SetEnvironmentVariableW(LtWChar const *name, LtWChar const *value)
{
    if (name == nullptr || *name == 0)
        return QzSysFilePosix::RecordError(eERROR_INVALID_PARAMETER);
    std::string key = Utf8Of(name);
    int result =
        value != nullptr ? setenv(key.c_str(), Utf8Of(value).c_str(), 1) : unsetenv(key.c_str());
    return result == 0 || QzSysFilePosix::RecordErrno();
}

static bool ExecutablePath(std::string *out)
{
    return GrowingText(
        [](char *buffer, std::size_t size, bool *too_small) -> ssize_t {
            ssize_t length = readlink("/proc/self/exe", buffer, size);
            *too_small = length >= 0 && static_cast<std::size_t>(length) == size;
            return *too_small ? -1 : length;
        },
        out);
}

bool QzSysFile::GetExecutablePathW(QzWideStringBuffer *out)
{
    std::string path;
    bool ok = ExecutablePath(&path);
    QzSysFilePosix::FromKernelText(ok ? path.c_str() : "", out);
    return ok;
}

bool QzSysFile::GetExecutableDirW(QzWideStringBuffer *out)
{
    QzWideStringBuffer path;
    if (!GetExecutablePathW(&path)) {
        out->SetEmptyString();
        return false;
    }
    SplitPathW(path.GetString(), out, nullptr, nullptr);
    return true;
}

bool QzSysFile::GetModuleFileNameW(void const *module, QzWideStringBuffer *out)
{
    Dl_info info;
    if (module == nullptr || dladdr(module, &info) == 0 || info.dli_fname == nullptr ||
        std::strchr(info.dli_fname, '/') == nullptr)
        return GetExecutablePathW(out);  // the main program shows as its bare name
    char resolved[PATH_MAX];
    QzSysFilePosix::FromKernelText(
        realpath(info.dli_fname, resolved) != nullptr ? resolved : info.dli_fname, out);
    return true;
}

// The argument text split at blanks; double quotes group, and \" is a quote.
static std::vector<std::string> SplitArguments(std::string const &text)
{
    std::vector<std::string> arguments;
    std::string current;
    bool in_quotes = false;
    bool has_argument = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char unit = text[i];
        if (unit == '\\' && i + 1 < text.size() && text[i + 1] == '"') {
            current += '"';
            has_argument = true;
            ++i;
        } else if (unit == '"') {
            in_quotes = !in_quotes;
            has_argument = true;
        } else if ((unit == ' ' || unit == '\t') && !in_quotes) {
            if (has_argument)
                arguments.push_back(current);
            current.clear();
            has_argument = false;
        } else {
            current += unit;
            has_argument = true;
        }
    }
    if (has_argument)
        arguments.push_back(current);
    return arguments;
}

bool QzSysFile::RunExecutable(LtWChar const *path, LtWChar const *arguments, bool wait)
{
    std::string program;
    if (!QzSysFilePosix::KernelPath(path, &program))
        return false;
    struct stat info;
    bool is_program = stat(program.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
                      access(program.c_str(), X_OK) == 0;
    std::vector<std::string> words;
    if (is_program) {
        words = SplitArguments(arguments != nullptr ? Utf8Of(arguments) : std::string());
        words.insert(words.begin(), program);
    } else {
        words = {"xdg-open", program};  // documents and addresses go to the desktop's opener
    }
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(&word[0]);
    argv.push_back(nullptr);
    pid_t child = 0;
    int error = is_program
                    ? posix_spawn(&child, program.c_str(), nullptr, nullptr, argv.data(), environ)
                    : posix_spawnp(&child, "xdg-open", nullptr, nullptr, argv.data(), environ);
    if (error != 0) {
        errno = error;
        return QzSysFilePosix::RecordErrno();
    }
    if (!wait)
        return true;
    int status = 0;
    if (QzSysFilePosix::RetryOnEintr([&] { return waitpid(child, &status, 0); }) < 0)
        return QzSysFilePosix::RecordErrno();
    return (WIFEXITED(status) && WEXITSTATUS(status) == 0) ||
           QzSysFilePosix::RecordError(eERROR_GENERAL_FAILURE);
}

// --- The image-type probe ---

static void LogImageProblem(char const *before, std::string const &path, char const *after)
{
    std::string line = std::string("QzSysFile::GetPEImageType() : ") + before + path + after;
    QzSysError::LogUTF8String(line.c_str());
}

static LtNat32 LittleEndian(unsigned char const *bytes, int count)
{
    LtNat32 value = 0;
    for (int i = count - 1; i >= 0; --i)
        value = (value << 8) | bytes[i];
    return value;
}

// The bitness of a PE machine number (the COFF header's field).
static QzSysFile::PEImageType MachineType(LtNat32 machine)
{
    switch (machine) {
    case 0x014C:  // i386
    case 0x01C0:  // ARM
    case 0x01C4:  // ARM Thumb-2
        return QzSysFile::ePE_IMAGE_32BIT;
    case 0x8664:  // x86-64
    case 0xAA64:  // ARM64
    case 0x0200:  // IA-64
        return QzSysFile::ePE_IMAGE_64BIT;
    default:
        return QzSysFile::ePE_IMAGE_UNKNOWN;
    }
}

QzSysFile::PEImageType QzSysFile::GetPEImageType(LtWChar const *path)
{
    std::string kernel;
    if (!QzSysFilePosix::KernelPath(path, &kernel))
        return ePE_IMAGE_UNKNOWN;
    struct stat info;
    if (stat(kernel.c_str(), &info) != 0) {
        QzSysFilePosix::RecordErrno();
        LogImageProblem("", kernel, " doesn't exist.\n");
        return ePE_IMAGE_UNKNOWN;
    }
    int fd =
        QzSysFilePosix::RetryOnEintr([&] { return open(kernel.c_str(), O_RDONLY | O_CLOEXEC); });
    if (fd < 0) {
        QzSysFilePosix::RecordErrno();
        LogImageProblem("Can't open ", kernel, "\n");
        return ePE_IMAGE_UNKNOWN;
    }
    unsigned char header[64] = {};
    std::size_t got = 0;
    PEImageType type = ePE_IMAGE_UNKNOWN;
    if (QzSysFilePosix::ReadFull(fd, header, sizeof(header), &got) && got >= 6) {
        if (std::memcmp(header,
                        "\x7F"
                        "ELF",
                        4) == 0) {
            type = header[4] == 1 ? ePE_IMAGE_32BIT : header[4] == 2 ? ePE_IMAGE_64BIT : type;
        } else if (header[0] == 'M' && header[1] == 'Z' && got == sizeof(header)) {
            // e_lfanew at 0x3C points at "PE\0\0" and the machine number.
            off_t signature = static_cast<off_t>(LittleEndian(header + 0x3C, 4));
            unsigned char pe[6] = {};
            if (pread(fd, pe, sizeof(pe), signature) == static_cast<ssize_t>(sizeof(pe)) &&
                std::memcmp(pe, "PE\0\0", 4) == 0)
                type = MachineType(LittleEndian(pe + 4, 2));
        }
    }
    (void)close(fd);  // read-only probe: nothing to lose at close
    return type;
}

bool QzSysFile::IsWow64Process()
{
    return false;
}

int QzSysFile::GetFileTimeStampResolution()
{
    return 1;
}

// --- The user's directories ---

// $HOME when set and non-empty; else the password database's entry.
static bool HomeDirectory(std::string *out)
{
    char const *home = std::getenv("HOME");
    if (home != nullptr && *home != 0) {
        *out = home;
        return true;
    }
    LtInt64 suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    struct passwd entry;
    struct passwd *found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr || found->pw_dir == nullptr || *found->pw_dir == 0)
        return false;
    *out = found->pw_dir;
    return true;
}

// An XDG variable counts when it holds an absolute path (relative values
// are to be ignored); else the fallback below the home directory.
static bool XdgDirectory(char const *variable, char const *below_home, std::string *out)
{
    char const *value = std::getenv(variable);
    if (value != nullptr && value[0] == '/') {
        *out = value;
        return true;
    }
    if (!HomeDirectory(out))
        return false;
    *out += below_home;
    return true;
}

static bool CommonDataDirectory(std::string *out)
{
    char const *value = std::getenv("XDG_DATA_DIRS");
    std::string first =
        value != nullptr ? std::string(value).substr(0, std::strcspn(value, ":")) : std::string();
    *out = !first.empty() && first[0] == '/' ? first : "/usr/local/share";
    return true;
}

bool QzSysFile::GetOSDirectoryPath(OSDirectory which, QzWideStringBuffer *out)
{
    // The folder codes that the failure line has always named, by directory.
    static constexpr int kFolderCodes[] = {0x28, 0x1A, 0x1C, 0x23};
    std::string path;
    bool found = false;
    switch (which) {
    case eOS_DIR_HOME:
        found = HomeDirectory(&path);
        break;
    case eOS_DIR_ROAMING_APP_DATA:
        found = XdgDirectory("XDG_CONFIG_HOME", "/.config", &path);
        break;
    case eOS_DIR_LOCAL_APP_DATA:
        found = XdgDirectory("XDG_DATA_HOME", "/.local/share", &path);
        break;
    case eOS_DIR_COMMON_APP_DATA:
        found = CommonDataDirectory(&path);
        break;
    default:
        out->SetEmptyString();
        return QzSysFilePosix::RecordError(eERROR_INVALID_PARAMETER);
    }
    if (!found) {
        QzStringBuffer line;
        line.Format("SHGetFolderPathW  %d failed\n", kFolderCodes[which]);
        QzSysError::LogUTF8String(line.GetString());
        out->SetEmptyString();
        return QzSysFilePosix::RecordError(eERROR_PATH_NOT_FOUND);
    }
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    QzSysFilePosix::FromKernelText(path.c_str(), out);
    return true;
}
