// QzSysErrorLogFile.cpp: the log file of QzSysError: its path or directory,
// the process name that names it in a directory, and the switch that opens
// it and replays the log into it. Paths are malloc'ed so that they work
// before, without and after QzMemory.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzFramePath.h"
#include "qzutil/frame/internal/QzFrameState.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysProcess.h"

// The kernel's limit on a path (PATH_MAX), in bytes with the nul.
static constexpr std::size_t kMaxSystemPathBytes = 4096;
// The executable's name in the process name, in UTF-16 units with the nul.
static constexpr std::size_t kMaxProgramNameUnits = 256;

namespace {

// Zero at load; guarded by the log lock.
struct LogFileState {
    bool is_enabled;     // the switch, on only while a file is open
    LtWChar *file_path;  // malloc'ed; null for none
    LtWChar *directory;  // malloc'ed; null for none
};

}  // namespace

static LogFileState g_log_file;

using WideTraits = std::char_traits<LtWChar>;

// A malloc'ed copy of `text`, or null for a null or empty text (or when
// memory ran out: then there is no path, as if none had been set).
static LtWChar *CopyPath(LtWChar const *text)
{
    if (text == nullptr || text[0] == 0)
        return nullptr;
    std::size_t const units = WideTraits::length(text) + 1;
    auto *copy = static_cast<LtWChar *>(std::malloc(units * sizeof(LtWChar)));
    if (copy != nullptr)
        WideTraits::copy(copy, text, units);
    return copy;
}

// The executable's file name without folder and extension, into `out`.
static void GetProgramName(LtWChar *out, std::size_t capacity)
{
    char path[kMaxSystemPathBytes];
    std::size_t const length = QzSysProcess::GetExecutablePath(path, sizeof(path));
    std::size_t start = length;
    while (start > 0 && path[start - 1] != '/')
        --start;
    std::size_t end = length;
    for (std::size_t at = length; at > start + 1; --at) {
        if (path[at - 1] == '.') {
            end = at - 1;  // a leading dot names a hidden file, not an extension
            break;
        }
    }
    (void)QzFramePath::FromSystemText(path + start, end - start, out, capacity);
}

// The file that switching on would open, in `out`: the log file path, or
// "<directory>/<process name>.txt". False when neither is set or the name
// does not fit.
static bool ComposeLogFilePathLocked(LtWChar *out, std::size_t capacity)
{
    if (g_log_file.file_path != nullptr) {
        if (WideTraits::length(g_log_file.file_path) >= capacity)
            return false;
        WideTraits::copy(out, g_log_file.file_path, WideTraits::length(g_log_file.file_path) + 1);
        return true;
    }
    if (g_log_file.directory == nullptr)
        return false;
    LtWChar program[kMaxProgramNameUnits];
    GetProgramName(program, kMaxProgramNameUnits);
    LtWChar process_name[kMaxProgramNameUnits + 48];
    if (QzSysString::WideSprintf(process_name, sizeof(process_name) / sizeof(process_name[0]),
                                 u"%ls%d_%llu", program, QzSysProcess::GetProcessId(),
                                 static_cast<unsigned long long>(QzSysProcess::GetTickCount())) < 0)
        return false;
    LtWChar const *format = QzFramePath::SeparatorAfter(g_log_file.directory) == u'\\'
                                ? u"%ls\\%ls.txt"
                                : u"%ls/%ls.txt";
    return QzSysString::WideSprintf(out, capacity, format, g_log_file.directory, process_name) >= 0;
}

static void WriteToLogStream(char const *text, void *stream)
{
    (void)std::fputs(text, static_cast<std::FILE *>(stream));  // silent, as every log write
}

static void SetLogFileEnableLocked(int on)
{
    bool const is_on = on != 0;
    if (is_on == g_log_file.is_enabled)
        return;
    if (g_frame.log_stream != nullptr) {
        (void)std::fclose(g_frame.log_stream);  // unbuffered: nothing is lost
        g_frame.log_stream = nullptr;
    }
    g_log_file.is_enabled = false;
    if (!is_on)
        return;
    LtWChar wide_path[kMaxSystemPathBytes];
    char path[kMaxSystemPathBytes];
    if (!ComposeLogFilePathLocked(wide_path, kMaxSystemPathBytes) ||
        QzFramePath::ToSystemPath(wide_path, path, sizeof(path)) <= 0)
        return;
    // "e": the descriptor is not inherited by programs that the process runs.
    std::FILE *stream = std::fopen(path, "we");
    if (stream == nullptr)
        return;
    if (std::setvbuf(stream, nullptr, _IONBF, 0) != 0) {
        (void)std::fclose(stream);
        return;
    }
    QzReplayLogLocked(WriteToLogStream, stream);
    g_frame.log_stream = stream;
    g_log_file.is_enabled = true;
}

void QzSysError::SetLogFileEnable(int on)
{
    QzLogLockScope lock;
    SetLogFileEnableLocked(on);
}

int QzSysError::IsLogFileEnable()
{
    return g_log_file.is_enabled ? 1 : 0;
}

// Replaces one of the two paths with the file switched off, then switches it
// on again if it was on: the log moves to the new file with a full replay.
static void ReplacePath(LtWChar **slot, LtWChar const *text)
{
    QzLogLockScope lock;
    bool const was_enabled = g_log_file.is_enabled;
    SetLogFileEnableLocked(0);
    std::free(*slot);
    *slot = CopyPath(text);
    if (was_enabled)
        SetLogFileEnableLocked(1);
}

void QzSysError::SetLogFile(LtWChar const *path)
{
    ReplacePath(&g_log_file.file_path, path);
}

LtWChar const *QzSysError::GetLogFile()
{
    return g_log_file.file_path;
}

void QzSysError::SetLogDir(LtWChar const *directory)
{
    ReplacePath(&g_log_file.directory, directory);
}

LtWChar const *QzSysError::GetLogDir()
{
    return g_log_file.directory;
}
