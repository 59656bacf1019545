// QzErrorHandlers.cpp: formatting a post for display, the ready-made print
// handlers, the message-box and input-box slots, and QzErrorOverride.

#include <cstdio>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzErrorFormat.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzWideString.h"

static QzError::MessageBoxFunc g_message_box;
static QzError::MessageBoxFunc g_error_message_box;
static QzError::InputBoxFunc g_input_box;
static void *g_input_box_data;
static bool g_require_environment_boxes;

// The word shown to a user; unlike the log's, "UNKNOWN" is spelled right and
// also stands for eINFO.
static char const *SeverityDisplayWord(QzSysError::Severity severity)
{
    char const *word = QzSeverityWord(severity);
    return word != nullptr ? word : "UNKNOWN";
}

static int FormatErrorImpl(QzSysError::Severity severity, QzComponent *component, int id,
                           void *data, LtWChar const *message, QzWideStringBuffer *out, bool filter)
{
    int const fatal = severity == QzSysError::eWARNING || severity == QzSysError::eDEBUG ? 0 : 1;
    QzWideStringBuffer shown(message);
    if (filter && (severity == QzSysError::ePRECONDITION || severity == QzSysError::eASSERT)) {
        // Source positions (" at file:line") mean nothing to a user.
        LtWChar const *at = QzWideString::Find(shown.GetString(), u" at ");
        if (at != nullptr && at > shown.GetString())
            shown.ExtractSubString(0, static_cast<int>(at - shown.GetString()), &shown);
    }
    char const *name =
        component != nullptr && component->GetName() != nullptr ? component->GetName() : "";
    out->Format(u"Handle Severity(%hs) component(%hs) id(%d), data(%p), msg(%ls)",
                SeverityDisplayWord(severity), name, id, data, shown.GetString());
    return fatal;
}

int QzError::FormatError(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                         LtWChar const *message, QzWideStringBuffer *out)
{
    return FormatErrorImpl(severity, component, id, data, message, out, false);
}

int QzError::FilterAndFormatError(QzSysError::Severity severity, QzComponent *component, int id,
                                  void *data, LtWChar const *message, QzWideStringBuffer *out)
{
    return FormatErrorImpl(severity, component, id, data, message, out, true);
}

// The body of the four handlers. Returns whether the message counted as
// fatal; without QzString nothing can be formatted, so the bare message is
// printed and the result is "fatal" for the exiting handlers' sake.
static bool PrintPost(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                      LtWChar const *message, bool filter)
{
    if (!QzString::IsInitialised()) {
        QzSysString::WidePrintf(u"Error while QzString not available: %ls\n", message);
        return true;
    }
    QzWideStringBuffer text;
    int const fatal = FormatErrorImpl(severity, component, id, data, message, &text, filter);
    QzSysString::WidePrintf(u"%ls\n", text.GetString());
    return fatal != 0;
}

int QzError::PrintErrorHandler(QzSysError::Severity severity, QzComponent *component, int id,
                               void *data, LtWChar const *message)
{
    PrintPost(severity, component, id, data, message, false);
    return 1;
}

int QzError::PrintAndFilterErrorHandler(QzSysError::Severity severity, QzComponent *component,
                                        int id, void *data, LtWChar const *message)
{
    PrintPost(severity, component, id, data, message, true);
    return 1;
}

int QzError::PrintAndExitErrorHandler(QzSysError::Severity severity, QzComponent *component, int id,
                                      void *data, LtWChar const *message)
{
    if (PrintPost(severity, component, id, data, message, false))
        QzSysError::ForceExit(1);
    return 1;
}

int QzError::PrintAndExitIgnoreWarningErrorHandler(QzSysError::Severity severity,
                                                   QzComponent *component, int id, void *data,
                                                   LtWChar const *message)
{
    if (severity == QzSysError::eWARNING)
        return 1;
    return PrintAndExitErrorHandler(severity, component, id, data, message);
}

QzError::MessageBoxResult QzError::MessageBoxW(LtWChar const *text, MessageBoxButtons buttons,
                                               MessageBoxIcon icon, int help_id)
{
    MessageBoxFunc box = g_message_box;
    return box != nullptr ? box(text, buttons, icon, help_id) : eMB_RESULT_NO_BOX;
}

QzError::MessageBoxResult QzError::MessageBoxW(QzWideString const &text, MessageBoxButtons buttons,
                                               MessageBoxIcon icon, int help_id)
{
    return MessageBoxW(text.GetString(), buttons, icon, help_id);
}

QzError::MessageBoxResult QzError::MessageBoxW(QzWideStringBuffer const &text,
                                               MessageBoxButtons buttons, MessageBoxIcon icon,
                                               int help_id)
{
    return MessageBoxW(text.GetString(), buttons, icon, help_id);
}

QzError::MessageBoxResult QzError::ErrorMessageBoxW(LtWChar const *text, MessageBoxButtons buttons,
                                                    MessageBoxIcon icon)
{
    MessageBoxFunc box = g_error_message_box;
    return box != nullptr ? box(text, buttons, icon, -1) : eMB_RESULT_NO_BOX;
}

void QzError::SetMessageBoxFuncWcs(MessageBoxFunc func)
{
    g_message_box = func;
}

void QzError::SetErrorMessageBoxFuncWcs(MessageBoxFunc func)
{
    g_error_message_box = func;
}

void QzError::SetTempMessageBoxFuncWcs(MessageBoxFunc func)
{
    if (g_message_box == nullptr)
        g_message_box = func;
}

void QzError::DisableMessageBox()
{
    g_message_box = nullptr;
}

bool QzError::InputBox(LtWChar const *title, LtWChar const *prompt, QzWideStringBuffer *answer)
{
    InputBoxFunc box = g_input_box;
    return box != nullptr && box(g_input_box_data, title, prompt, answer);
}

void QzError::SetInputBoxFunc(InputBoxFunc func, void *data)
{
    g_input_box = func;
    g_input_box_data = data;
}

// Platform box flags: button sets, icons and the help button.
static constexpr int kFlagAbortRetryIgnore = 0x2;
static constexpr int kFlagOk = 0x0;
static constexpr int kFlagOkCancel = 0x1;
static constexpr int kFlagRetryCancel = 0x5;
static constexpr int kFlagYesNo = 0x4;
static constexpr int kFlagYesNoCancel = 0x3;
static constexpr int kFlagIconInformation = 0x40;
static constexpr int kFlagIconQuestion = 0x20;
static constexpr int kFlagIconWarning = 0x30;
static constexpr int kFlagIconError = 0x10;
static constexpr int kFlagHelpButton = 0x4000;

int QzError::ConvertMBFlagsToWin32(MessageBoxButtons buttons, MessageBoxIcon icon, int help_id)
{
    int flags = kFlagOk;
    switch (static_cast<int>(buttons)) {
    case 0:
    case 1:
        flags = kFlagAbortRetryIgnore;
        break;
    case eMB_OK_CANCEL:
        flags = kFlagOkCancel;
        break;
    case eMB_RETRY_CANCEL:
        flags = kFlagRetryCancel;
        break;
    case eMB_YES_NO:
        flags = kFlagYesNo;
        break;
    case eMB_YES_NO_CANCEL:
        flags = kFlagYesNoCancel;
        break;
    default:
        flags = kFlagOk;
        break;
    }
    switch (icon) {
    case eMB_ICON_INFORMATION:
        flags |= kFlagIconInformation;
        break;
    case eMB_ICON_QUESTION:
        flags |= kFlagIconQuestion;
        break;
    case eMB_ICON_WARNING:
        flags |= kFlagIconWarning;
        break;
    case eMB_ICON_ERROR:
        flags |= kFlagIconError;
        break;
    default:
        break;
    }
    if (help_id >= 0)
        flags |= kFlagHelpButton;
    return flags;
}

QzError::MessageBoxResult QzError::ConvertWin32MBResult(int result)
{
    switch (result) {
    case 1:
        return eMB_RESULT_OK;
    case 2:
        return eMB_RESULT_CANCEL;
    case 3:
        return eMB_RESULT_ABORT;
    case 4:
        return eMB_RESULT_RETRY;
    case 5:
        return eMB_RESULT_IGNORE;
    case 6:
        return eMB_RESULT_YES;
    case 7:
        return eMB_RESULT_NO;
    default:
        return eMB_RESULT_OTHER;
    }
}

void QzError::ReportEnvironmentErrorAndAbort(LtWChar const *text)
{
    if (g_require_environment_boxes && g_message_box != nullptr)
        MessageBoxW(text, eMB_OK, eMB_ICON_NONE, -1);
    LogWideString(text);
    QzSysError::LogUTF8String("\n");
    if (g_require_environment_boxes)
        QzSysError::ForceExit(3);
}

void QzError::RequireEnvironmentErrorMessageBoxes(bool required)
{
    g_require_environment_boxes = required;
}

// Stands in for a null handler: an override without a function silences.
static int SilenceHandler(QzSysError::Severity, QzComponent *, int, void *, LtWChar const *)
{
    return 1;
}

QzErrorOverride::QzErrorOverride()
    : m_severity(QzSysError::eANY), m_component(nullptr), m_id(-1), m_previous(nullptr)
{
    Install(nullptr);
}

QzErrorOverride::QzErrorOverride(QzSysError::Handler handler, QzSysError::Severity severity,
                                 QzComponent *component, int id)
    : m_severity(severity), m_component(component), m_id(id), m_previous(nullptr)
{
    Install(handler);
}

QzErrorOverride::QzErrorOverride(QzSysError::Handler handler, QzSysError::Severity severity,
                                 char const *component_name, int id)
    : QzErrorOverride(handler, severity, QzSysError::FindComponent(component_name), id)
{}

QzErrorOverride::~QzErrorOverride()
{
    QzSysError::SetHandler(m_previous, m_severity, m_component, m_id);
}

void QzErrorOverride::Init(QzSysError::Handler handler, QzSysError::Severity severity,
                           QzComponent *component, int id)
{
    QzSysError::SetHandler(m_previous, m_severity, m_component, m_id);
    m_severity = severity;
    m_component = component;
    m_id = id;
    Install(handler);
}

void QzErrorOverride::Install(QzSysError::Handler handler)
{
    m_previous = QzSysError::GetHandler(m_severity, m_component, m_id);
    QzSysError::SetHandler(handler != nullptr ? handler : SilenceHandler, m_severity, m_component,
                           m_id);
}
