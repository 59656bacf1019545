// QzScrub.h: the scrub patterns of the allocator's arenas and the check of a
// block's bytes against them. Internal: never installed.
#pragma once

#include <cstdint>

#include "qzutil/memory/internal/QzMemoryInternal.h"

// Free memory: never-used pages and released blocks.
constexpr unsigned char kQzFreeByte = 0xDD;
// A fresh block, from Alloc.
constexpr unsigned char kQzFreshByte = 0xCD;
// A guard: the tail of a block behind its object, and a page's tail.
constexpr unsigned char kQzGuardByte = 0xFD;

// Checks bytes [from, to) of `block` against `expected`; the first mismatch
// is posted as "Memory block at %llx has value %x at offset %d, expected %x"
// with its true offset, or with `reported_offset` where the message fixes
// one. Returns true when every byte matched.
inline bool QzVerifyScrubBytes(unsigned char const *block, unsigned from, unsigned to,
                               unsigned char expected, int reported_offset = -1)
{
    for (unsigned offset = from; offset < to; ++offset) {
        if (block[offset] == expected)
            continue;
        QzPostMemoryMessage(
            QzSysError::eERROR, u"Memory block at %llx has value %x at offset %d, expected %x",
            static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(block)),
            static_cast<unsigned>(block[offset]),
            reported_offset >= 0 ? reported_offset : static_cast<int>(offset),
            static_cast<unsigned>(expected));
        return false;
    }
    return true;
}
