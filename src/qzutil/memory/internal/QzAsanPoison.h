// QzAsanPoison.h: tells AddressSanitizer which arena bytes are not in use,
// so that use-after-free and overflow inside arena pages are reported. In
// other builds the calls compile to nothing. Internal: never installed.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define QZ_HAS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_HAS_ASAN 1
#endif
#endif

#ifdef QZ_HAS_ASAN
#include <sanitizer/asan_interface.h>
#endif

// Poisoning works on 8-byte granules and is conservative: a granule shared
// with a live block stays addressable, so 4-aligned strides are checked only
// where whole granules are free. Memory must be unpoisoned before it is
// decommitted or released, or a later mapping at the address would inherit
// the marks.
inline void QzPoison(void const *address, std::size_t size)
{
#ifdef QZ_HAS_ASAN
    ASAN_POISON_MEMORY_REGION(address, size);
#else
    (void)address;
    (void)size;
#endif
}

inline void QzUnpoison(void const *address, std::size_t size)
{
#ifdef QZ_HAS_ASAN
    ASAN_UNPOISON_MEMORY_REGION(address, size);
#else
    (void)address;
    (void)size;
#endif
}
