// QzSysErrorDump.cpp: crash dumps of QzSysError: the dump configuration, the
// steps of the crash handler, dumps of a running process, and the fatal tail
// that ends in one. The signal machinery and the writer are the platform's
// (sys/internal/QzSysCrash.h); the reader is in QzSysErrorDumpReader.cpp.

#include <cstring>
#include <string>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzFramePath.h"
#include "qzutil/frame/internal/QzFrameState.h"
#include "qzutil/sys/internal/QzSysCrash.h"
#include "qzutil/sys/internal/QzSysProcess.h"

static_assert(QzSysError::kDumpFlagNoCallbackMemory == QzDumpFormat::kNoCallbackMemoryFlag,
              "one meaning of flag bit 1 for the frame and the writer");

// The kernel's limit on a path (PATH_MAX), in bytes with the nul; the wide
// path has at most as many units.
static constexpr std::size_t kMaxDumpPathBytes = 4096;
static constexpr int kExitCodeAfterDump = 4;

namespace {

// Zero at load. Written under the log lock; the crash handler reads it
// without, as it may not take a lock.
struct DumpState {
    LtWChar path[kMaxDumpPathBytes];      // "" when there are no dumps
    char system_path[kMaxDumpPathBytes];  // the same path for the kernel, made when set
    unsigned flags;
    bool omits_log;  // so that zero at load means "with the log"
    QzSysError::PreDumpCallback pre;
    QzSysError::PostDumpCallback post;
    QzSysError::DumpMemoryCallback memory;
};

}  // namespace

static DumpState g_dump;

using WideTraits = std::char_traits<LtWChar>;

// The crash handler's steps after the guard, once the debug break is done:
// the veto, the dump, the post-dump callback and the exit. Runs on the
// faulting thread, possibly inside a signal handler: reads the state without
// the lock and calls nothing that allocates. Returns only without a dump.
static void DumpThenExit(QzCrashContext const *context)
{
    if (g_dump.path[0] == 0)
        return;
    if (g_dump.pre != nullptr && g_dump.pre(g_dump.path) == 0)
        return;
    QzDumpLogPart parts[QzDumpFormat::kLogPartCount];
    if (!g_dump.omits_log)
        QzGetLogPartsForDump(parts);
    QzDumpRequest const request = {g_dump.system_path, g_dump.flags,
                                   g_dump.omits_log ? nullptr : parts, g_dump.memory};
    if (QzSysCrash::WriteDump(context, request) == 0)
        return;
    if (g_dump.post != nullptr)
        g_dump.post(g_dump.path);
    QzSysError::ForceExit(kExitCodeAfterDump);
}

// The hook of the fatal signals and of std::terminate.
static void DumpOnCrash(QzCrashContext const *context)
{
    QzSysError::RequestDebugBreak();
    DumpThenExit(context);
}

static void ClearDumpPathLocked()
{
    g_dump.path[0] = 0;
    g_dump.system_path[0] = '\0';
    QzSysCrash::RemoveHandlers();
}

// Stores `path` in both forms. False, with nothing stored, when it is too long.
static bool StoreDumpPathLocked(LtWChar const *path)
{
    std::size_t const units = WideTraits::length(path);
    char system_path[kMaxDumpPathBytes];
    int const bytes = QzFramePath::ToSystemPath(path, system_path, sizeof(system_path));
    if (units >= kMaxDumpPathBytes || bytes < 0)
        return false;
    // The handler may run while this changes; it meets the old or the new
    // path, or an empty one that gives no dump.
    g_dump.path[0] = 0;
    std::memcpy(g_dump.system_path, system_path, static_cast<std::size_t>(bytes) + 1);
    WideTraits::copy(g_dump.path + 1, path + 1, units);  // the rest and the nul
    g_dump.path[0] = path[0];
    return true;
}

void QzSysError::SetDumpOnUnhandledException(LtWChar const *path, int include_log, unsigned flags,
                                             PreDumpCallback pre, PostDumpCallback post,
                                             DumpMemoryCallback memory)
{
    char const *failure = nullptr;
    {
        QzLogLockScope lock;
        g_dump.flags = flags;
        g_dump.omits_log = include_log == 0;
        g_dump.pre = pre;
        g_dump.post = post;
        g_dump.memory = memory;
        if (path == nullptr || path[0] == 0) {
            ClearDumpPathLocked();
        } else if (!StoreDumpPathLocked(path)) {
            ClearDumpPathLocked();
            failure = "QzSysError::SetDumpOnUnhandledException: path too long, no dumps\n";
        } else if (QzSysCrash::InstallHandlers(DumpOnCrash) == 0) {
            failure = "QzSysError::SetDumpOnUnhandledException: a signal handler could not be "
                      "installed\n";
        }
    }
    if (failure != nullptr)
        LogUTF8String(failure);  // the log lock is not recursive: logged after it
}

int QzSysError::IsDumpOnUnhandledException()
{
    return g_dump.path[0] != 0 ? 1 : 0;
}

LtWChar const *QzSysError::DumpPath()
{
    return g_dump.path;
}

void QzSysError::WriteDump(LtWChar const *path, int include_log, unsigned flags)
{
    char system_path[kMaxDumpPathBytes];
    if (QzFramePath::ToSystemPath(path, system_path, sizeof(system_path)) <= 0)
        return;
    // The lock keeps the log still while its parts are written.
    QzLogLockScope lock;
    QzDumpLogPart parts[QzDumpFormat::kLogPartCount];
    if (include_log != 0)
        QzGetLogPartsForDump(parts);
    QzDumpRequest const request = {system_path, flags, include_log != 0 ? parts : nullptr, nullptr};
    (void)QzSysCrash::WriteDumpOfCaller(request);  // failures are silent: nowhere to report
}

static int AllowDump(LtWChar const *)
{
    return 1;
}

static void ExitAfterDump(LtWChar const *)
{
    QzSysError::ForceExit(kExitCodeAfterDump);
}

void QzSysError::ConfigureForUnitTests(LtWChar const *path)
{
    SetDumpOnUnhandledException(path, 1, 0, AllowDump, ExitAfterDump, nullptr);
}

void QzSysError::Abort()
{
    RequestDebugBreak();
    if (IsDumpOnUnhandledException())
        QzSysCrash::RunWithCallerContext(QzSysCrash::kAbortSignal, DumpThenExit);
    // No dump path, a veto, or a dump that failed.
    QzSysProcess::AbortProcess();
}

void QzSysError::AbortOnException(void (*function)(void *), void *data)
{
    try {
        function(data);
    } catch (...) {
        Abort();
    }
}

QzSysExceptionFilterProtector::QzSysExceptionFilterProtector()
{
    QzLogLockScope lock;
    m_saved = QzSysCrash::SaveHandlers();
}

QzSysExceptionFilterProtector::~QzSysExceptionFilterProtector()
{
    QzLogLockScope lock;
    QzSysCrash::RestoreHandlers(m_saved);
}
