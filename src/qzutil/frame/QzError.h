// QzError.h: posting errors with formatted text (printf-style and
// stream-style), tracing and logging, the ready-made print handlers, and the
// application's message box and input box.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/text/QzWideStringBuffer.h"

class QzComponent;
class QzErrorLogStream;
class QzErrorPostStream;
class QzErrorTraceStream;
class QzString;
class QzStringBuffer;
class QzWideString;

// Class of statics. A post logs its line and goes to QzSysError's ladder;
// code after a post must cope with a handler having kept the process alive.
//
// Format strings follow the library's formatting engine (QzSysString.h).
// Narrow post formats are platform multi-byte text; narrow Log and Trace
// formats are UTF-8, as the log is.
//
// Threads: any thread may post. Formatting uses two shared buffers under the
//          error lock, released before the ladder runs: a handler's message
//          is valid only during its call, and a handler may post again.
// Lifetime: a counted component over QzSysError and QzString. Posting
//          through QzError outside Initialise/Terminate is a programming
//          fault; QzSysError::PostFixed stays usable.
class QZUTIL_API QzError {
public:
    // The numbers are the documented encoding of the application's box.
    enum MessageBoxButtons : int {
        eMB_ABORT_RETRY_IGNORE = 0,  // 1 means the same
        eMB_OK = 2,
        eMB_OK_CANCEL = 3,
        eMB_RETRY_CANCEL = 4,
        eMB_YES_NO = 5,
        eMB_YES_NO_CANCEL = 6,
    };
    enum MessageBoxIcon : int {
        eMB_ICON_NONE = 0,
        eMB_ICON_INFORMATION = 1,
        eMB_ICON_QUESTION = 2,
        eMB_ICON_WARNING = 3,
        eMB_ICON_ERROR = 4,
    };
    enum MessageBoxResult : int {
        eMB_RESULT_NO_BOX = 0,  // no box function is set
        eMB_RESULT_OTHER = 1,
        eMB_RESULT_ABORT = 2,
        eMB_RESULT_CANCEL = 3,
        eMB_RESULT_IGNORE = 5,
        eMB_RESULT_NO = 6,
        eMB_RESULT_OK = 7,
        eMB_RESULT_RETRY = 8,
        eMB_RESULT_YES = 10,
    };

    using MessageBoxFunc = MessageBoxResult (*)(LtWChar const *text, MessageBoxButtons buttons,
                                                MessageBoxIcon icon, int help_id);
    // Shows `prompt` under `title` and fills *answer; true when answered.
    using InputBoxFunc = bool (*)(void *data, LtWChar const *title, LtWChar const *prompt,
                                  QzWideStringBuffer *answer);

    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    // Printf-style posts; without id and data they post id -1 and null.
    static void Post(QzSysError::Severity severity, QzComponent *component, char const *format,
                     ...);
    static void Post(QzSysError::Severity severity, QzComponent *component, LtWChar const *format,
                     ...);
    static void Post(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                     char const *format, ...);
    static void Post(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                     LtWChar const *format, ...);
    // A post without component; the text is used as the format.
    static void PostWideString(QzSysError::Severity severity, LtWChar const *format);

    // Stream-style posts: the returned object collects text through <<, and
    // posts from its destructor. Use it as a temporary only.
    static QzErrorPostStream Post(QzSysError::Severity severity, QzComponent *component);
    static QzErrorPostStream Post(QzSysError::Severity severity, QzComponent *component, int id,
                                  void *data);

    // Writes to the log without severity and without a line end.
    static void Log(char const *format, ...);
    static void Log(LtWChar const *format, ...);
    static void LogWideString(LtWChar const *text);
    static void LogInt32(LtInt32 value);
    static void LogInt64(LtInt64 value);
    static void LogNat32(LtNat32 value);
    static void LogNat64(LtNat64 value);
    static void LogFloat(double value);
    static void LogPtr(void const *value);
    static QzErrorLogStream Log();

    // Trace lines: "Trace:", then by the trace flag the level, the UTC time,
    // the thread id and the source position, then the text (no line end).
    // True if tracing passed the gate (QzSysError::ShouldTrace).
    static bool Trace(int level, char const *format, ...);
    static bool Trace(int level, LtWChar const *format, ...);
    static bool TraceWideString(int level, LtWChar const *text);
    static bool Trace(int level, char const *file, int line, char const *format, ...);
    static bool Trace(int level, char const *file, int line, LtWChar const *format, ...);
    static QzErrorTraceStream Trace(int level);

    // Ready-made handlers: print the formatted message to standard output
    // and answer 1. The exiting ones end the process with code 1 when the
    // severity counts as fatal; the last ignores warnings silently.
    static int PrintErrorHandler(QzSysError::Severity severity, QzComponent *component, int id,
                                 void *data, LtWChar const *message);
    static int PrintAndFilterErrorHandler(QzSysError::Severity severity, QzComponent *component,
                                          int id, void *data, LtWChar const *message);
    static int PrintAndExitErrorHandler(QzSysError::Severity severity, QzComponent *component,
                                        int id, void *data, LtWChar const *message);
    static int PrintAndExitIgnoreWarningErrorHandler(QzSysError::Severity severity,
                                                     QzComponent *component, int id, void *data,
                                                     LtWChar const *message);

    // Writes "Handle Severity(...) component(...) id(...), data(...), msg(...)"
    // into *out. Returns 1 when the severity counts as fatal (eERROR,
    // ePRECONDITION, eASSERT and unknown values), else 0. The filtering form
    // drops a source position (" at ...") from precondition and assertion
    // messages.
    static int FormatError(QzSysError::Severity severity, QzComponent *component, int id,
                           void *data, LtWChar const *message, QzWideStringBuffer *out);
    static int FilterAndFormatError(QzSysError::Severity severity, QzComponent *component, int id,
                                    void *data, LtWChar const *message, QzWideStringBuffer *out);

    // The application's message box; without one these answer
    // eMB_RESULT_NO_BOX.
    static MessageBoxResult MessageBoxW(LtWChar const *text, MessageBoxButtons buttons,
                                        MessageBoxIcon icon, int help_id);
    static MessageBoxResult MessageBoxW(QzWideString const &text, MessageBoxButtons buttons,
                                        MessageBoxIcon icon, int help_id);
    static MessageBoxResult MessageBoxW(QzWideStringBuffer const &text, MessageBoxButtons buttons,
                                        MessageBoxIcon icon, int help_id);
    static MessageBoxResult ErrorMessageBoxW(LtWChar const *text, MessageBoxButtons buttons,
                                             MessageBoxIcon icon);
    static void SetMessageBoxFuncWcs(MessageBoxFunc func);
    static void SetErrorMessageBoxFuncWcs(MessageBoxFunc func);
    // Sets the box only where none is set: a fallback that never displaces
    // the application's own.
    static void SetTempMessageBoxFuncWcs(MessageBoxFunc func);
    static void DisableMessageBox();

    // The application's input box; false when none is set.
    static bool InputBox(LtWChar const *title, LtWChar const *prompt, QzWideStringBuffer *answer);
    static void SetInputBoxFunc(InputBoxFunc func, void *data);

    // The platform flag and result numbers of the box (see MessageBoxFunc);
    // a help id of 0 or more adds the help-button flag 0x4000.
    static int ConvertMBFlagsToWin32(MessageBoxButtons buttons, MessageBoxIcon icon, int help_id);
    static MessageBoxResult ConvertWin32MBResult(int result);

    // Logs `text`; when boxes are required (and a box is set) shows it first
    // and then ends the process with code 3. Otherwise returns.
    static void ReportEnvironmentErrorAndAbort(LtWChar const *text);
    static void RequireEnvironmentErrorMessageBoxes(bool required);
};

// Collects the text of one post through <<; its destructor posts it.
//
// Ownership: owns its two buffers. A copy posts again: use as a temporary.
// Threads:   one thread.
class QZUTIL_API QzErrorPostStream {
public:
    QzErrorPostStream(QzSysError::Severity severity, QzComponent *component, int id, void *data);
    QzErrorPostStream(QzErrorPostStream const &other);
    QzErrorPostStream &operator=(QzErrorPostStream const &other);
    ~QzErrorPostStream();

    // Narrow text is read as UTF-8; numbers as "%d", "%lld", "%u", "%llu",
    // "%g", "%p"; bool as "TRUE"/"FALSE". Pieces join without separators.
    QzErrorPostStream &operator<<(LtWChar const *text);
    QzErrorPostStream &operator<<(char const *text);
    QzErrorPostStream &operator<<(QzString const &text);
    QzErrorPostStream &operator<<(QzStringBuffer const &text);
    QzErrorPostStream &operator<<(QzWideString const &text);
    QzErrorPostStream &operator<<(QzWideStringBuffer const &text);
    QzErrorPostStream &operator<<(bool value);
    QzErrorPostStream &operator<<(signed char value);
    QzErrorPostStream &operator<<(unsigned char value);
    QzErrorPostStream &operator<<(short value);
    QzErrorPostStream &operator<<(unsigned short value);
    QzErrorPostStream &operator<<(int value);
    QzErrorPostStream &operator<<(unsigned value);
    QzErrorPostStream &operator<<(long value);
    QzErrorPostStream &operator<<(unsigned long value);
    QzErrorPostStream &operator<<(long long value);
    QzErrorPostStream &operator<<(unsigned long long value);
    QzErrorPostStream &operator<<(double value);
    QzErrorPostStream &operator<<(void const *value);

private:
    QzSysError::Severity m_severity;
    QzComponent *m_component;
    int m_id;
    void *m_data;
    QzWideStringBuffer m_scratch;
    QzWideStringBuffer m_message;
};

// Log pieces, each written to the log at once, without line end.
class QZUTIL_API QzErrorLogStream {
public:
    QzErrorLogStream &operator<<(LtWChar const *text);
    QzErrorLogStream &operator<<(char const *text);
    QzErrorLogStream &operator<<(QzString const &text);
    QzErrorLogStream &operator<<(QzStringBuffer const &text);
    QzErrorLogStream &operator<<(QzWideString const &text);
    QzErrorLogStream &operator<<(QzWideStringBuffer const &text);
    QzErrorLogStream &operator<<(bool value);
    QzErrorLogStream &operator<<(int value);
    QzErrorLogStream &operator<<(unsigned value);
    QzErrorLogStream &operator<<(long value);
    QzErrorLogStream &operator<<(unsigned long value);
    QzErrorLogStream &operator<<(long long value);
    QzErrorLogStream &operator<<(unsigned long long value);
    QzErrorLogStream &operator<<(double value);
    QzErrorLogStream &operator<<(void const *value);
};

// Trace pieces: written to the log when tracing passed at creation (the
// prefix is written then), dropped otherwise.
class QZUTIL_API QzErrorTraceStream {
public:
    explicit QzErrorTraceStream(bool passed) : m_passed(passed) {}
    bool Passed() const { return m_passed; }

    template <typename T>
    QzErrorTraceStream &operator<<(T const &value)
    {
        if (m_passed)
            QzErrorLogStream() << value;
        return *this;
    }

private:
    bool m_passed;
};

// Installs a handler on one key for one scope and restores the old one.
// A null handler silences the key. The default constructor silences the
// bottom rung (any severity, no component, any id).
//
// Ownership: restores in its destructor; not copyable.
// Threads:   handler changes are process-wide: meant for one thread's scope.
class QZUTIL_API QzErrorOverride {
public:
    QzErrorOverride();
    QzErrorOverride(QzSysError::Handler handler, QzSysError::Severity severity,
                    QzComponent *component, int id);
    QzErrorOverride(QzSysError::Handler handler, QzSysError::Severity severity,
                    char const *component_name, int id);
    ~QzErrorOverride();
    QzErrorOverride(QzErrorOverride const &) = delete;
    QzErrorOverride &operator=(QzErrorOverride const &) = delete;

    // For objects built in two steps: restores the present key, then
    // installs on the new one.
    void Init(QzSysError::Handler handler, QzSysError::Severity severity, QzComponent *component,
              int id);

private:
    void Install(QzSysError::Handler handler);

    QzSysError::Severity m_severity;
    QzComponent *m_component;
    int m_id;
    QzSysError::Handler m_previous;  // what stood at the key; put back on destruction
};
