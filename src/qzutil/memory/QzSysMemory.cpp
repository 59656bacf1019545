// QzSysMemory.cpp: the component that reads the platform's page size and
// allocation granularity.

#include "qzutil/memory/QzSysMemory.h"

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/sys/internal/QzSysHeap.h"

static QzComponent g_sys_memory_component;
static unsigned g_page_size;    // bytes; 0 while not initialised
static unsigned g_region_size;  // bytes: the larger of 64 KiB and the page size

// The unit of address space: 64 KiB, the granularity that the region layout
// and its numbers were designed for, or the page where pages are larger.
static constexpr unsigned kMinRegionSize = 64 * 1024;

void QzSysMemory::Initialise()
{
    if (g_sys_memory_component.Initialise("QzSysMemory", QZ_COMPONENT_INFO) == 0)
        return;
    QzSysError::Initialise();
    g_page_size = QzSysHeap::GetSystemPageSize();
    g_region_size = g_page_size > kMinRegionSize ? g_page_size : kMinRegionSize;
}

void QzSysMemory::Terminate()
{
    if (g_sys_memory_component.Terminate() == 0)
        return;
    QzSysError::Terminate();
}

int QzSysMemory::IsInitialised()
{
    return g_sys_memory_component.IsInitialised();
}

unsigned QzSysMemory::GetPageSize()
{
    return g_page_size;
}

unsigned QzSysMemory::GetRegionSize()
{
    return g_region_size;
}
