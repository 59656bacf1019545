// QzStreamSink.cpp: the protocol's defaults, block memory from whole
// regions, and the sinks' component.

#include "qzutil/stream/QzStreamSink.h"

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/memory/QzMemory.h"

static QzComponent g_stream_sink_component;

QzStreamSink::~QzStreamSink() = default;

int QzStreamSink::WriteBegin(QzWriteStream const *)
{
    return 1;
}

int QzStreamSink::WriteFlush()
{
    return 1;
}

int QzStreamSink::WriteEnd()
{
    return 1;
}

int QzStreamSink::ReadBegin(QzReadStream const *)
{
    return 1;
}

int QzStreamSink::ReadEnd()
{
    return 1;
}

// Whole regions: rounding to the granule here keeps AllocBlock and
// DeallocBlock agreeing on the size whatever the caller passes.
static unsigned RoundToRegions(int size)
{
    unsigned const granule = QzMemory::GetRegionSize();
    unsigned const bytes = size > 0 ? static_cast<unsigned>(size) : 1U;
    return ((bytes - 1) / granule) * granule + granule;
}

unsigned char *QzStreamSink::AllocBlock(int size)
{
    return static_cast<unsigned char *>(
        QzMemory::AllocRegion(RoundToRegions(size), QzMemory::eLIFETIME_NORMAL));
}

int QzStreamSink::DeallocBlock(unsigned char *block, int size)
{
    if (block)
        QzMemory::DeallocRegion(block, RoundToRegions(size), QzMemory::eLIFETIME_NORMAL);
    return 1;
}

void QzStreamSink::Initialise()
{
    if (!g_stream_sink_component.Initialise("QzStreamSink", QZ_COMPONENT_INFO))
        return;
    QzError::Initialise();
}

void QzStreamSink::Terminate()
{
    if (!g_stream_sink_component.Terminate())
        return;
    QzError::Terminate();
}

int QzStreamSink::IsInitialised()
{
    return g_stream_sink_component.IsInitialised();
}

QzComponent *QzStreamSink::GetComponent()
{
    return &g_stream_sink_component;
}
