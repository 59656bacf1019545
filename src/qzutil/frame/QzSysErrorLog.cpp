// QzSysErrorLog.cpp: the in-memory log of QzSysError. Two static regions:
// the first keeps the start of the run, the second wraps and keeps its end.
// Nothing here allocates or formats, so the log works when memory has run out.

#include <cstdio>
#include <cstring>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzFrameState.h"
#include "qzutil/sys/internal/QzSysCrash.h"
#include "qzutil/sys/internal/QzSysProcess.h"

namespace {

// Zero at load. Guarded by the log lock once it exists.
struct LogState {
    char regions[2][QzSysError::kLogRegionSize];
    int current;         // 0 until the first region is full, then 1
    unsigned position;   // next byte to write in the current region
    unsigned first_end;  // where writing left the first region; 0 until then
    unsigned wrap_end;   // where the second region last wrapped; 0 until it has
};

}  // namespace

static LogState g_log;

static char const kGapMarker[] = ".\n.\n.\n.\n.\n";

void QzSysError::LogUTF8String(char const *text)
{
    if (text == nullptr)
        text = "(null)";
    std::size_t const length = std::strlen(text);
    if (length >= kLogRegionSize) {
        PostFixed(eERROR, GetComponent(), -1, nullptr, 0, u"Too long to log");
        return;
    }
    QzLogLockScope lock;
    // A text never splits: what does not fit leaves the region's tail unused.
    if (length >= kLogRegionSize - g_log.position) {
        if (g_log.current == 0) {
            g_log.first_end = g_log.position;
            g_log.current = 1;
        } else {
            g_log.wrap_end = g_log.position;
        }
        g_log.position = 0;
    }
    std::memcpy(&g_log.regions[g_log.current][g_log.position], text, length + 1);
    if (g_frame.console)
        QzSysProcess::WriteStandardOutput(text, length);
    if (g_frame.log_stream != nullptr)
        (void)std::fputs(text, g_frame.log_stream);   // file errors are silent: nowhere to report
    g_log.position += static_cast<unsigned>(length);  // the next text overwrites the nul
}

void QzReplayLogLocked(QzSysError::LogOutput output, void *data)
{
    if (g_log.regions[0][0] != '\0')
        output(g_log.regions[0], data);
    if (g_log.current != 1)
        return;
    char const *second = g_log.regions[1];
    if (g_log.wrap_end != 0) {
        output(kGapMarker, data);
        // The old text behind the present position, up to where it wrapped.
        if (g_log.position + 1 < g_log.wrap_end)
            output(second + g_log.position + 1, data);
    }
    output(second, data);
}

void QzGetLogPartsForDump(QzDumpLogPart parts[3])
{
    static char const kEmptyLog[] = "Empty Log\n";
    static char const kNoText[] = "";
    unsigned const first_length = g_log.current == 0 ? g_log.position : g_log.first_end;
    if (first_length == 0)
        parts[0] = {kEmptyLog, sizeof(kEmptyLog)};
    else
        parts[0] = {g_log.regions[0], first_length + 1};
    parts[1] = {kNoText, 1};
    parts[2] = {kNoText, 1};
    if (g_log.current != 1)
        return;
    char const *second = g_log.regions[1];
    // The nul at wrap_end closes the old text, as in the replay.
    if (g_log.wrap_end != 0 && g_log.position + 1 < g_log.wrap_end)
        parts[1] = {second + g_log.position + 1, g_log.wrap_end - g_log.position};
    parts[2] = {second, g_log.position + 1};
}

void QzSysError::OutputLogBuffer(LogOutput output, void *data)
{
    QzLogLockScope lock;
    QzReplayLogLocked(output, data);
}

void QzSysError::ClearLogBuffer()
{
    QzLogLockScope lock;
    g_log.current = 0;
    g_log.position = 0;
    g_log.first_end = 0;
    g_log.wrap_end = 0;
    g_log.regions[0][0] = '\0';
    g_log.regions[1][0] = '\0';
}

static void WriteToConsole(char const *text, void *)
{
    QzSysProcess::WriteStandardOutput(text, std::strlen(text));
}

void QzSysError::SetConsoleEnable(int on)
{
    QzLogLockScope lock;
    if (on && !g_frame.console_made) {
        // There is no console to create here: standard output is the console,
        // and it first gets everything logged so far.
        QzReplayLogLocked(WriteToConsole, nullptr);
        g_frame.console_made = true;
    }
    g_frame.console = on != 0;
    g_frame.component_logging = on != 0;
}

void QzSysError::SetComponentConsoleEnable(int on)
{
    g_frame.component_logging = on != 0;
}

int QzSysError::IsConsoleEnable()
{
    return g_frame.console ? 1 : 0;
}

int QzSysError::IsComponentConsoleEnable()
{
    return g_frame.component_logging ? 1 : 0;
}
