// QzSysHeap.h: what the allocator needs to know about the platform heap and
// virtual memory beyond standard C. Internal: never installed.
#pragma once

#include <cstddef>

class QzSysHeap {
public:
    // The true size of a block from malloc (at least what was asked); 0 for null.
    static std::size_t GetUsableSize(void *block);

    // The system page size in bytes.
    static unsigned GetSystemPageSize();
};
