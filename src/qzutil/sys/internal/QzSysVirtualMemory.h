// QzSysVirtualMemory.h: the operating system's virtual memory calls under
// QzSysMemory: reserve, commit, decommit, unmap, and the highest mapped
// address. Internal: never installed.
#pragma once

#include <cstddef>
#include <cstdint>

// Class of statics, each one system call or one walk of the mapping table.
// Addresses given to Protect, Decommit and Unmap must be page aligned; their
// sizes are rounded up to whole pages by the system.
//
// Threads: every call may run on any thread; none keeps state.
class QzSysVirtualMemory {
public:
    // Maps `size` bytes of address space with no access and no commit
    // charge, wherever the system places it (page aligned). Returns the
    // start, or null when the system refuses (no address space left, the
    // process's address-space limit, a size of 0).
    [[nodiscard]] static void *MapReserved(std::size_t size);

    // Makes reserved pages readable and writable; untouched pages read zero.
    // Returns 1, or 0 if a page is not mapped, the address is not page
    // aligned, or the system's commit limit is reached.
    [[nodiscard]] static int ProtectReadWrite(void *address, std::size_t size);

    // Drops the pages' contents and makes them inaccessible again, keeping
    // the address space: a later ProtectReadWrite gives zero pages.
    // Returns 1, or 0 if either step failed.
    [[nodiscard]] static int Decommit(void *address, std::size_t size);

    // Gives the address space back. Any part of a mapping may be unmapped.
    // Returns 1, or 0 on bad arguments or when splitting a mapping would
    // pass the system's limit on the number of mappings.
    [[nodiscard]] static int Unmap(void *address, std::size_t size);

    // The end (one past the last byte) of the highest mapping of the
    // process, the legacy vsyscall page excluded, from the kernel's table
    // of mappings. 0 if the table cannot be read.
    [[nodiscard]] static std::uintptr_t FindHighestMappingEnd();
};
