// QzSysProcessPosix.cpp: raw output, exits, debugger detection, ids, the
// executable's path and the UTC clock for the frame. Everything here is
// async-signal-safe but GetUtcClock, so the fatal tail can use it.

#include "qzutil/sys/internal/QzSysProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

void QzSysProcess::WriteStandardOutput(char const *text, std::size_t length)
{
    while (length > 0) {
        ssize_t written = write(STDOUT_FILENO, text, length);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return;  // nowhere to report a console failure
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

void QzSysProcess::ExitImmediately(int code)
{
    _exit(code);
}

void QzSysProcess::AbortProcess()
{
    abort();
}

// "TracerPid:\t<n>" in /proc/self/status; read with open/read so that it
// works in the fatal tail, where stdio and the heap are off limits.
bool QzSysProcess::IsDebuggerAttached()
{
    int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char buffer[4096];
    std::size_t used = 0;
    ssize_t got;
    while (used < sizeof(buffer) - 1 &&
           (got = read(fd, buffer + used, sizeof(buffer) - 1 - used)) != 0) {
        if (got < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        used += static_cast<std::size_t>(got);
    }
    close(fd);
    buffer[used] = '\0';
    char const *field = strstr(buffer, "TracerPid:");
    if (field == nullptr)
        return false;
    field += sizeof("TracerPid:") - 1;
    while (*field == ' ' || *field == '\t')
        ++field;
    return *field >= '1' && *field <= '9';
}

void QzSysProcess::BreakIntoDebugger()
{
    raise(SIGTRAP);
}

int QzSysProcess::GetCurrentThreadId()
{
    return static_cast<int>(gettid());
}

int QzSysProcess::GetProcessId()
{
    return static_cast<int>(getpid());
}

std::size_t QzSysProcess::GetExecutablePath(char *out, std::size_t capacity)
{
    if (capacity == 0)
        return 0;
    out[0] = '\0';
    ssize_t const length = readlink("/proc/self/exe", out, capacity);
    // readlink does not terminate, and a full buffer may hold a cut path.
    if (length <= 0 || static_cast<std::size_t>(length) >= capacity) {
        out[0] = '\0';
        return 0;
    }
    out[length] = '\0';
    return static_cast<std::size_t>(length);
}

LtNat64 QzSysProcess::GetTickCount()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<LtNat64>(now.tv_sec) * 1000u + static_cast<LtNat64>(now.tv_nsec) / 1000000u;
}

void QzSysProcess::GetUtcClock(int *hour, int *minute, int *second)
{
    time_t now = time(nullptr);
    struct tm parts;
    if (gmtime_r(&now, &parts) == nullptr) {
        *hour = *minute = *second = 0;
        return;
    }
    *hour = parts.tm_hour;
    *minute = parts.tm_min;
    *second = parts.tm_sec;
}
