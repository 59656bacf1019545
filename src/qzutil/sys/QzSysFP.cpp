// QzSysFP.cpp: the trap operations built on reading and setting the whole
// trap mask, and the scope guards. The system half is in
// posix/QzSysInfo.cpp.
#include "qzutil/sys/QzSysFP.h"

bool QzSysFP::EnableExceptions(unsigned mask)
{
    return SetEnabledExceptions(GetEnabledExceptions() | mask);
}

bool QzSysFP::DisableExceptions(unsigned mask)
{
    return SetEnabledExceptions(GetEnabledExceptions() & ~mask);
}

void QzSysFP::Reset()
{
    ClearExceptions();
    (void)SetEnabledExceptions(0);  // disabling every trap cannot fail
}

QzFPExceptionModifier::QzFPExceptionModifier(unsigned mask, ModificationMode mode)
    : m_previous(QzSysFP::GetEnabledExceptions()), m_is_applied(false)
{
    if (mode == eENABLE)
        m_is_applied = QzSysFP::SetEnabledExceptions(m_previous | mask);
    else if (mode == eDISABLE)
        m_is_applied = QzSysFP::SetEnabledExceptions(m_previous & ~mask);
    else if (mode == eSET)
        m_is_applied = QzSysFP::SetEnabledExceptions(mask);
}

QzFPExceptionModifier::~QzFPExceptionModifier()
{
    if (!m_is_applied)
        return;
    unsigned now = QzSysFP::GetEnabledExceptions();
    if ((m_previous & ~now) != 0)
        QzSysFP::ClearExceptions();                   // see the class comment
    (void)QzSysFP::SetEnabledExceptions(m_previous);  // it held before: it can be set again
}
