// QzStreamFilter.cpp: the filter base, which only forwards a flush.

#include "qzutil/stream/QzStreamFilter.h"

QzStreamFilter::~QzStreamFilter() = default;

int QzStreamFilter::WriteFlush()
{
    return m_sink ? m_sink->WriteFlush() : 0;
}
