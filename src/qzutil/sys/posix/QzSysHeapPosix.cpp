// QzSysHeapPosix.cpp: glibc's heap block sizes and the system page size.

#include "qzutil/sys/internal/QzSysHeap.h"

#include <malloc.h>
#include <unistd.h>

std::size_t QzSysHeap::GetUsableSize(void *block)
{
    return block != nullptr ? malloc_usable_size(block) : 0;
}

unsigned QzSysHeap::GetSystemPageSize()
{
    long page = sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<unsigned>(page) : 4096u;
}
