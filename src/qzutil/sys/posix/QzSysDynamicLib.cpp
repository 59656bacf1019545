// QzSysDynamicLib.cpp (posix): shared libraries through dlopen, the
// library's own directory list for bare names, and the PATH guard.
#include "qzutil/sys/QzSysDynamicLib.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/sys/posix/QzSysFilePosix.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"

// All symbols bound at load, so a missing one fails OpenW and not a later
// call; kept local, so two plugins may define the same names.
static constexpr int kOpenFlags = RTLD_NOW | RTLD_LOCAL;

// The live QzSysDllDirectoryModifier guards, newest first. Guarded by
// g_directory_lock, which needs no start-up.
static pthread_mutex_t g_directory_lock = PTHREAD_MUTEX_INITIALIZER;
static QzSysDllDirectoryModifier *g_newest_directory;

// The path as the kernel takes it, in the file calls' one form. Callers have
// refused a null path already.
static void ToKernelPath(LtWChar const *path, QzStringBuffer *out)
{
    std::string kernel;
    (void)QzSysFilePosix::KernelPath(path, &kernel);
    out->SetString(kernel.c_str(), static_cast<int>(kernel.size()));
}

static QzSysDynamicLibHandle *ToHandle(void *library)
{
    return static_cast<QzSysDynamicLibHandle *>(library);
}

static void *ToLibrary(QzSysDynamicLibHandle *handle)
{
    return static_cast<void *>(handle);
}

QzSysDynamicLibHandle *QzSysDynamicLib::OpenW(LtWChar const *path)
{
    if (path == nullptr || path[0] == 0)
        return nullptr;
    QzStringBuffer name;
    ToKernelPath(path, &name);
    // A bare name found in a guard's directory is loaded from there. The
    // candidate is chosen under the lock and loaded after it, since loading
    // runs the library's constructors.
    QzStringBuffer chosen(name);
    if (std::strchr(name.GetString(), '/') == nullptr) {
        pthread_mutex_lock(&g_directory_lock);
        for (QzSysDllDirectoryModifier *guard = g_newest_directory; guard != nullptr;
             guard = guard->m_next) {
            QzStringBuffer candidate(guard->m_directory);
            if (!candidate.HasSuffix("/"))
                candidate.Append('/');
            candidate.Append(name);
            if (access(candidate.GetString(), F_OK) == 0) {
                chosen.Swap(candidate);
                break;
            }
        }
        pthread_mutex_unlock(&g_directory_lock);
    }
    void *library = dlopen(chosen.GetString(), kOpenFlags);
    if (library == nullptr) {
        char const *reason = dlerror();
        QzStringBuffer line;
        line.Format("QzSysDynamicLib::OpenW: %s\n", reason != nullptr ? reason : "unknown");
        QzSysError::LogUTF8String(line.GetString());
    }
    return ToHandle(library);
}

bool QzSysDynamicLib::Close(QzSysDynamicLibHandle *handle)
{
    return handle != nullptr && dlclose(ToLibrary(handle)) == 0;
}

QzSysDynamicLib::Function QzSysDynamicLib::FindFunction(QzSysDynamicLibHandle *handle,
                                                        char const *name)
{
    if (handle == nullptr || name == nullptr)
        return nullptr;
    // POSIX guarantees that dlsym's object pointer converts to a function
    // pointer without loss.
    return reinterpret_cast<Function>(dlsym(ToLibrary(handle), name));
}

LtWChar const *QzSysDynamicLib::GetDynamicLibExtensionW()
{
    return u".so";
}

QzSysPathModifier::QzSysPathModifier(LtWChar const *directory, ModifyMode mode)
    : m_previous(nullptr), m_is_changed(false)
{
    if (directory == nullptr || directory[0] == 0)
        return;
    char const *previous = std::getenv("PATH");
    bool has_previous = previous != nullptr && previous[0] != 0;
    QzStringBuffer path;
    ToKernelPath(directory, &path);
    if (mode == ePREPEND && has_previous) {
        path.Append(':');
        path.Append(previous);
    } else if (mode == eAPPEND && has_previous) {
        QzStringBuffer appended(previous);
        appended.Append(':');
        appended.Append(path);
        path.Swap(appended);
    } else if (mode != ePREPEND && mode != eAPPEND && mode != eREPLACE) {
        return;
    }
    m_previous = QzString::AllocAndCopy(previous);
    m_is_changed = setenv("PATH", path.GetString(), 1) == 0;
}

QzSysPathModifier::~QzSysPathModifier()
{
    if (m_is_changed) {
        if (m_previous != nullptr)
            (void)setenv("PATH", m_previous, 1);  // the value fitted before: no ENOMEM expected
        else
            (void)unsetenv("PATH");
    }
    QzString::Dealloc(m_previous);
}

QzSysDllDirectoryModifier::QzSysDllDirectoryModifier(LtWChar const *directory)
    : m_directory(nullptr), m_next(nullptr)
{
    if (directory == nullptr || directory[0] == 0)
        return;
    QzStringBuffer path;
    ToKernelPath(directory, &path);
    m_directory = QzString::AllocAndCopy(path.GetString());
    pthread_mutex_lock(&g_directory_lock);
    m_next = g_newest_directory;
    g_newest_directory = this;
    pthread_mutex_unlock(&g_directory_lock);
}

QzSysDllDirectoryModifier::~QzSysDllDirectoryModifier()
{
    if (m_directory == nullptr)
        return;
    pthread_mutex_lock(&g_directory_lock);
    // Guards end in reverse order, so this is the newest; unlinking from
    // the middle keeps the list whole should a caller break that rule.
    QzSysDllDirectoryModifier **link = &g_newest_directory;
    while (*link != nullptr && *link != this)
        link = &(*link)->m_next;
    if (*link == this)
        *link = m_next;
    pthread_mutex_unlock(&g_directory_lock);
    QzString::Dealloc(m_directory);
}
