// QzComponent.cpp: registration and release of components in the process's
// component list.

#include "qzutil/frame/QzComponent.h"

#include <cstdlib>
#include <cstring>

#include "qzutil/frame/internal/QzFrameState.h"

int QzComponent::Initialise(char const *name, char const *info)
{
    if (m_count != 0) {
        ++m_count;  // one per Initialise; Terminate undoes it
        return 0;
    }
    if (g_frame.self_initialising == 0) {
        if (g_frame.component_logging)
            QzLogComponentLine("Init: ", name, info);
        if (QzSysError::FindComponent(name) != nullptr) {
            // Only a handler keeps the process alive; then both stay listed.
            QzSysError::PostFixed(QzSysError::eERROR, this, -1, nullptr, 0,
                                  u"Component with name already registered.");
        }
    }
    m_info = info;
    m_name = name;
    m_next = nullptr;
    m_prev = g_frame.last;
    if (g_frame.last != nullptr)
        g_frame.last->m_next = this;
    else
        g_frame.first = this;
    g_frame.last = this;
    m_count = 1;
    return 1;
}

int QzComponent::Terminate()
{
    if (m_count == 0)
        return 0;
    if (--m_count > 0)
        return 0;
    if (g_frame.component_logging)
        QzLogComponentLine("Term: ", m_name, m_info);
    DeleteHandlers();
    if (m_prev != nullptr)
        m_prev->m_next = m_next;
    else if (g_frame.first == this)
        g_frame.first = m_next;
    if (m_next != nullptr)
        m_next->m_prev = m_prev;
    else if (g_frame.last == this)
        g_frame.last = m_prev;
    m_next = nullptr;
    m_prev = nullptr;
    return 1;
}

int QzComponent::DeleteHandlers()
{
    for (QzSysError::Handler &slot : m_severity_handlers)
        slot = nullptr;
    IdHandler *record = m_id_handlers;
    m_id_handlers = nullptr;
    while (record != nullptr) {
        IdHandler *next = record->m_next;
        std::free(record);
        record = next;
    }
    return 1;
}

int QzComponent::IsName(char const *name) const
{
    if (m_name == name)
        return 1;
    if (m_name == nullptr || name == nullptr)
        return 0;
    return std::strcmp(m_name, name) == 0 ? 1 : 0;
}
