// QzStreamExtData.cpp: the kept tail of an object of an unknown kind.

#include "qzutil/stream/QzStreamExtData.h"

#include "qzutil/memory/QzMemory.h"
#include "qzutil/stream/QzStreamBuffer.h"

QzStreamExtData::QzStreamExtData(int entry, QzStreamBuffer *written)
    : m_entry(entry), m_allocation(nullptr), m_data(nullptr), m_size(0)
{
    if (written == nullptr || !written->IsManagedBuffer() || written->GetBuffer() == nullptr)
        return;
    m_data = written->GetAlignedBuffer();
    m_size = written->GetAlignedUsed();
    m_allocation = written->ClaimBuffer();
}

QzStreamExtData::~QzStreamExtData()
{
    QzMemory::Free(m_allocation);
}

void QzStreamExtData::Unref()
{
    if (--m_references <= 0)
        delete this;
}
