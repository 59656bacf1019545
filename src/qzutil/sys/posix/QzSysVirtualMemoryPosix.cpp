// QzSysVirtualMemoryPosix.cpp: reservations as PROT_NONE anonymous mappings,
// commitment by mprotect, and the walk of /proc/self/maps.

#include "qzutil/sys/internal/QzSysVirtualMemory.h"

#include <sys/mman.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

void *QzSysVirtualMemory::MapReserved(std::size_t size)
{
    // MAP_NORESERVE: address space only. Commit charge is taken page by page
    // when ProtectReadWrite makes pages writable.
    void *address =
        mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return address == MAP_FAILED ? nullptr : address;
}

int QzSysVirtualMemory::ProtectReadWrite(void *address, std::size_t size)
{
    return mprotect(address, size, PROT_READ | PROT_WRITE) == 0 ? 1 : 0;
}

int QzSysVirtualMemory::Decommit(void *address, std::size_t size)
{
    // MADV_DONTNEED on a private anonymous mapping frees the pages at once and
    // makes the next touch map the zero page; PROT_NONE then turns a stray
    // access into a fault, as on an uncommitted page.
    int dropped = madvise(address, size, MADV_DONTNEED) == 0;
    int protected_again = mprotect(address, size, PROT_NONE) == 0;
    return dropped && protected_again ? 1 : 0;
}

int QzSysVirtualMemory::Unmap(void *address, std::size_t size)
{
    return munmap(address, size) == 0 ? 1 : 0;
}

// Room for one line of the mapping table up to the start of a long path.
// A longer line arrives in pieces; only the piece that starts a line is read.
static constexpr int kMapsLineBytes = 512;

// True when the whole line names the vsyscall page, a fixed kernel page far
// above user space that says nothing of the address space's size.
static bool IsVsyscallLine(char const *line)
{
    static constexpr char kVsyscall[] = " [vsyscall]";
    std::size_t length = std::strcspn(line, "\n");
    std::size_t suffix = sizeof kVsyscall - 1;
    return length >= suffix && std::memcmp(line + length - suffix, kVsyscall, suffix) == 0;
}

std::uintptr_t QzSysVirtualMemory::FindHighestMappingEnd()
{
    std::FILE *maps = std::fopen("/proc/self/maps", "r");
    if (maps == nullptr)
        return 0;
    std::uintptr_t highest = 0;
    char line[kMapsLineBytes];
    bool at_line_start = true;
    while (std::fgets(line, sizeof line, maps) != nullptr) {
        bool starts_line = at_line_start;
        bool is_whole_line = std::strchr(line, '\n') != nullptr;
        at_line_start = is_whole_line;
        if (!starts_line || (is_whole_line && IsVsyscallLine(line)))
            continue;
        std::uintmax_t start = 0;
        std::uintmax_t end = 0;
        // Each line begins "start-end perms ...", both addresses in hex.
        if (std::sscanf(line, "%" SCNxMAX "-%" SCNxMAX, &start, &end) == 2 && end > highest)
            highest = static_cast<std::uintptr_t>(end);
    }
    std::fclose(maps);
    return highest;
}
