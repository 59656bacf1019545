// QzComponent.h: the counted unit of start-up that every class with
// process-wide state owns, and the list of live components.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/frame/QzSysError.h"

// A static, zero-filled record per class: name, info, the count of
// Initialise calls not yet matched by Terminate, the links of the process's
// component list, and the class's error handlers.
//
// Ownership: name and info are borrowed and must outlive the component. The
//            by-id handler records are owned and freed by DeleteHandlers.
// Threads:   Initialise and Terminate change the count and the list without a
//            lock: start-up and shut-down belong on one thread.
// Invariant: the count is 0 exactly when the component is off the list.
class QZUTIL_API QzComponent {
public:
    // One handler for one error id of this component.
    struct IdHandler {
        IdHandler *m_next;
        int m_id;
        QzSysError::Handler m_handler;
    };

    // Severity slots: index severity + 1, index 0 standing for any severity.
    static constexpr int kSeveritySlots = 7;

    // Returns 1 if this call took the count from 0 to 1 (and registered the
    // component at the tail of the list), else 0. With component logging on
    // it writes "Init: <name> (<info>)\n"; a name already listed is posted as
    // eERROR "Component with name already registered.".
    int Initialise(char const *name, char const *info);

    // Returns 1 if this call took the count from 1 to 0 (and unlinked the
    // component, dropping its handlers), else 0. Harmless when unmatched.
    int Terminate();

    // Clears the severity slots and frees every by-id record. Always 1.
    int DeleteHandlers();

    int IsInitialised() const { return m_count; }
    int GetInitialisationCount() const { return m_count; }
    char const *GetName() const { return m_name; }
    char const *GetInfo() const { return m_info; }
    QzComponent *GetNext() const { return m_next; }
    QzComponent *GetPrev() const { return m_prev; }

    // 1 on equal text; identical pointers (two nulls too) are equal, one
    // null and one non-null are not.
    int IsName(char const *name) const;

private:
    friend class QzSysError;  // owns the handler tables and the list

    // Plain data: zero-filled at load, never constructed at run time.
    char const *m_name;
    char const *m_info;
    int m_count;
    QzComponent *m_next;
    QzComponent *m_prev;
    QzSysError::Handler m_severity_handlers[kSeveritySlots];
    IdHandler *m_id_handlers;
};
