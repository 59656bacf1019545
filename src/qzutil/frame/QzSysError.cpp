// QzSysError.cpp: the component of the frame itself, the handler tables, the
// ladder of PostFixed, and the exits (the fatal tail itself, Abort, is in
// QzSysErrorDump.cpp beside the dump that it may end in).

#include "qzutil/frame/QzSysError.h"

#include <cstdlib>
#include <cstring>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/frame/internal/QzFrameState.h"
#include "qzutil/sys/internal/QzSysProcess.h"

QzFrameState g_frame;
static QzComponent g_sys_error_component;

// The plain log line of a post written without QzError: at most this many
// characters of the message, each from 0x80 up as "?".
static constexpr int kPlainMessageLimit = 1999;

void QzLogComponentLine(char const *prefix, char const *name, char const *info)
{
    QzSysError::LogUTF8String(prefix);
    QzSysError::LogUTF8String(name);
    if (info != nullptr) {
        QzSysError::LogUTF8String(" (");
        QzSysError::LogUTF8String(info);
        QzSysError::LogUTF8String(")\n");
    }
}

void QzSysError::Initialise()
{
    ++g_frame.self_initialising;  // registering ourselves neither logs nor searches
    if (g_sys_error_component.Initialise("QzSysError", QZ_COMPONENT_INFO) == 1) {
        g_frame.log_post = nullptr;
        g_frame.global_handler = nullptr;
        g_frame.user_global_handler = nullptr;
        g_frame.user_global_data = nullptr;
        for (Handler &slot : g_frame.severity_handlers)
            slot = nullptr;
        g_frame.log_lock.Create();
        g_frame.lock_ready = true;
        g_frame.debug_break = nullptr;
        g_frame.force_exit = nullptr;
        g_frame.clean_exit = nullptr;
        if (g_frame.component_logging)
            QzLogComponentLine("Init: ", g_sys_error_component.GetName(),
                               g_sys_error_component.GetInfo());
    }
    --g_frame.self_initialising;
}

void QzSysError::Terminate()
{
    if (g_sys_error_component.Terminate() == 0)
        return;
    // The last release: whatever is still listed was never terminated.
    for (QzComponent *component = g_frame.first; component != nullptr;
         component = component->GetNext()) {
        LogUTF8String("*** Component ");
        LogUTF8String(component->GetName());
        LogUTF8String("still initialised\n");  // no blank before "still", on purpose
        component->DeleteHandlers();
    }
    g_frame.first = nullptr;
    g_frame.last = nullptr;
    g_frame.lock_ready = false;
    g_frame.log_lock.Destroy();
}

int QzSysError::IsInitialised()
{
    return g_sys_error_component.IsInitialised();
}

QzComponent *QzSysError::GetComponent()
{
    return &g_sys_error_component;
}

QzComponent *QzSysError::GetFirstComponent()
{
    return g_frame.first;
}

QzComponent *QzSysError::GetLastComponent()
{
    return g_frame.last;
}

QzComponent *QzSysError::FindComponent(char const *name)
{
    QzLogLockScope lock;
    for (QzComponent *component = g_frame.first; component != nullptr;
         component = component->GetNext()) {
        if (component->IsName(name))
            return component;
    }
    return nullptr;
}

static bool IsPostedSeverity(int severity)
{
    return severity >= QzSysError::eERROR && severity <= QzSysError::eINFO;
}

QzSysError::Handler *QzSysError::FindHandler(Severity severity, QzComponent *component, int id,
                                             void *&prev)
{
    prev = nullptr;
    if (component == nullptr) {
        if (severity == eANY)
            return &g_frame.global_handler;
        return IsPostedSeverity(severity) ? &g_frame.severity_handlers[severity] : nullptr;
    }
    if (id == -1) {
        if (severity < eANY || severity > eINFO)
            return nullptr;
        return &component->m_severity_handlers[severity + 1];
    }
    QzComponent::IdHandler *ahead = nullptr;
    for (QzComponent::IdHandler *record = component->m_id_handlers; record != nullptr;
         record = record->m_next) {
        if (record->m_id == id) {
            prev = ahead;
            return &record->m_handler;
        }
        ahead = record;
    }
    prev = component->m_id_handlers;
    return nullptr;
}

void QzSysError::SetHandler(Handler handler, Severity severity, QzComponent *component, int id)
{
    QzLogLockScope lock;
    void *prev = nullptr;
    Handler *slot = FindHandler(severity, component, id, prev);
    if (slot != nullptr) {
        *slot = handler;
        return;
    }
    if (component == nullptr || id == -1)
        return;  // a severity outside the tables has no slot
    auto *record =
        static_cast<QzComponent::IdHandler *>(std::malloc(sizeof(QzComponent::IdHandler)));
    if (record == nullptr) {
        LogUTF8String("QzSysError::SetHandler: out of memory for a handler record\n");
        return;
    }
    record->m_id = id;
    record->m_handler = handler;
    record->m_next = component->m_id_handlers;
    component->m_id_handlers = record;
}

void QzSysError::SetHandler(Handler handler, Severity severity, char const *component_name, int id)
{
    QzComponent *component = FindComponent(component_name);
    if (component != nullptr)
        SetHandler(handler, severity, component, id);
}

QzSysError::Handler QzSysError::GetHandler(Severity severity, QzComponent *component, int id)
{
    void *prev = nullptr;
    Handler *slot = FindHandler(severity, component, id, prev);
    return slot != nullptr ? *slot : nullptr;
}

QzSysError::Handler QzSysError::RemoveHandler(Severity severity, QzComponent *component, int id)
{
    QzLogLockScope lock;
    void *prev = nullptr;
    Handler *slot = FindHandler(severity, component, id, prev);
    if (slot == nullptr)
        return nullptr;
    Handler old = *slot;
    if (component == nullptr || id == -1) {
        *slot = nullptr;
        return old;
    }
    auto *ahead = static_cast<QzComponent::IdHandler *>(prev);
    QzComponent::IdHandler **link = ahead != nullptr ? &ahead->m_next : &component->m_id_handlers;
    QzComponent::IdHandler *record = *link;
    *link = record->m_next;
    std::free(record);
    return old;
}

void QzSysError::RemoveHandler(Severity severity, char const *component_name, int id)
{
    QzComponent *component = FindComponent(component_name);
    if (component != nullptr)
        RemoveHandler(severity, component, id);
}

// Installed in the global slot by SetGlobalHandler: hands the message to the
// user-level handler with the user's data in place of the posted data.
static int GlobalHandlerAdapter(QzSysError::Severity severity, QzComponent *component, int id,
                                void *, LtWChar const *message)
{
    QzSysError::GlobalHandler handler = g_frame.user_global_handler;
    return handler != nullptr ? handler(severity, component, id, message, g_frame.user_global_data)
                              : 0;
}

void QzSysError::SetGlobalHandler(GlobalHandler handler, void *user_data)
{
    QzLogLockScope lock;
    g_frame.user_global_handler = handler;
    g_frame.user_global_data = user_data;
    g_frame.global_handler = handler != nullptr ? GlobalHandlerAdapter : nullptr;
}

QzSysError::GlobalHandler QzSysError::GetGlobalHandler()
{
    return g_frame.user_global_handler;
}

void *QzSysError::GetGlobalHandlerData()
{
    return g_frame.user_global_data;
}

void QzSysError::SetLogPostWideStringCB(LogPostCallback callback)
{
    g_frame.log_post = callback;
}

// The log line of a post made without QzError's formatter: ASCII only, at
// most kPlainMessageLimit characters, built on the stack (nothing allocates).
static void LogPlainPost(QzComponent *component, LtWChar const *message)
{
    QzSysError::LogUTF8String("QzSysError::PostFixed: ");
    if (component != nullptr) {
        QzSysError::LogUTF8String(component->GetName());
        QzSysError::LogUTF8String(": ");
    }
    char text[kPlainMessageLimit + 4];
    int length = 0;
    text[length++] = '"';
    for (int i = 0; message != nullptr && message[i] != 0 && i < kPlainMessageLimit; ++i)
        text[length++] = message[i] < 0x80 ? static_cast<char>(message[i]) : '?';
    text[length++] = '"';
    text[length++] = '\n';
    text[length] = '\0';
    QzSysError::LogUTF8String(text);
}

namespace {

// The slots offered so far in one post: a key that two rungs share (for a
// null component rungs 5 and 4 both fall on the severity table) is offered
// once, so no handler sees the same message twice.
class OfferedSlots {
public:
    bool Offer(QzSysError::Handler *slot, QzSysError::Severity severity, QzComponent *component,
               int id, void *data, LtWChar const *message)
    {
        if (slot == nullptr || *slot == nullptr)
            return false;
        for (int i = 0; i < m_count; ++i) {
            if (m_slots[i] == slot)
                return false;
        }
        m_slots[m_count++] = slot;
        return (*slot)(severity, component, id, data, message) != 0;
    }

private:
    QzSysError::Handler *m_slots[5] = {};
    int m_count = 0;
};

}  // namespace

void QzSysError::PostFixed(Severity severity, QzComponent *component, int id, void *data, int level,
                           LtWChar const *message)
{
    if (g_frame.log_post != nullptr)
        g_frame.log_post(severity, component, id, data, message);
    else
        LogPlainPost(component, message);

    OfferedSlots offered;
    void *prev = nullptr;
    bool const has_component = component != nullptr;
    if (level <= 5 && offered.Offer(FindHandler(severity, component, id, prev), severity, component,
                                    id, data, message))
        return;
    if (level <= 4 && offered.Offer(FindHandler(severity, component, -1, prev), severity, component,
                                    id, data, message))
        return;
    if (severity == eINFO)
        return;  // information never reaches the catch-all rungs
    if (level <= 3 && offered.Offer(has_component ? FindHandler(eANY, component, -1, prev)
                                                  : &g_frame.global_handler,
                                    severity, component, id, data, message))
        return;
    if (level <= 2 && offered.Offer(FindHandler(severity, nullptr, -1, prev), severity, component,
                                    id, data, message))
        return;
    if (level <= 1 &&
        offered.Offer(&g_frame.global_handler, severity, component, id, data, message))
        return;

    if (severity == eWARNING || severity == eDEBUG || severity == eINFO)
        return;
    LogUTF8String("QzSysError: No handler for error\n");
    Abort();
}

void QzSysError::PostWideString(Severity severity, QzComponent *component, int id, void *data,
                                LtWChar const *message)
{
    PostFixed(severity, component, id, data, 0, message);
}

void QzSysError::PostWideString(Severity severity, QzComponent *component, LtWChar const *message)
{
    PostFixed(severity, component, -1, nullptr, 0, message);
}

void QzSysError::SetTraceEnable(int on)
{
    g_frame.trace_enable = on;
}

int QzSysError::IsTraceEnable()
{
    return g_frame.trace_enable;
}

void QzSysError::SetTraceLevel(int level)
{
    g_frame.trace_level = level;
}

int QzSysError::GetTraceLevel()
{
    return g_frame.trace_level;
}

void QzSysError::SetTraceFlag(int flag)
{
    g_frame.trace_flag = flag;
}

int QzSysError::GetTraceFlag()
{
    return g_frame.trace_flag;
}

bool QzSysError::ShouldTrace(int level)
{
    return g_frame.trace_enable != 0 && g_frame.trace_level >= level;
}

void QzSysError::ForceExit(int code)
{
    if (g_frame.force_exit != nullptr) {
        try {
            g_frame.force_exit(code);
        } catch (...) {
            // The process ends either way; nothing may unwind past here.
        }
    }
    QzSysProcess::ExitImmediately(code);
}

void QzSysError::ForceCleanExit(int code)
{
    if (g_frame.clean_exit != nullptr)
        g_frame.clean_exit(code);
    ForceExit(code);
}

void QzSysError::RequestDebugBreak()
{
    if (g_frame.debug_break != nullptr)
        g_frame.debug_break();
    else if (QzSysProcess::IsDebuggerAttached())
        QzSysProcess::BreakIntoDebugger();
}

void QzSysError::SetDebugBreakCB(VoidCallback callback)
{
    g_frame.debug_break = callback;
}

void QzSysError::SetForceExitCB(ExitCallback callback)
{
    g_frame.force_exit = callback;
}

void QzSysError::SetForceCleanExitCB(ExitCallback callback)
{
    g_frame.clean_exit = callback;
}
