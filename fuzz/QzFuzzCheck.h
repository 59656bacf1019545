// QzFuzzCheck.h: what the fuzz targets share: the property check, the
// handlers that take the posts bad input is expected to make, the input read
// as C text, and the check that each input gives back every block it took. A
// broken property stops the run like a crash, so libFuzzer saves the input
// and the seed replay test fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzWideStringBuffer.h"

[[noreturn]] inline void QzFuzzCheckFailed(char const *file, int line, char const *property,
                                           char const *condition)
{
    std::fprintf(stderr, "%s:%d: %s\n  failed: %s\n", file, line, property, condition);
    std::abort();
}

#define QZ_FUZZ_CHECK(condition, property) \
    ((condition) ? static_cast<void>(0)    \
                 : QzFuzzCheckFailed(__FILE_NAME__, __LINE__, property, #condition))

// Bad input is expected: error and warning posts are taken, so that only a
// precondition or assertion post, a fault of the library, ends the run.
inline int QzFuzzTakeInputErrorPost(QzSysError::Severity, QzComponent *, int, void *,
                                    LtWChar const *)
{
    return 1;
}

inline void QzFuzzTakeInputErrors()
{
    for (QzSysError::Severity severity : {QzSysError::eERROR, QzSysError::eWARNING})
        QzSysError::SetHandler(&QzFuzzTakeInputErrorPost, severity,
                               static_cast<QzComponent *>(nullptr), -1);
}

// The input as a C caller passes text: at most `max_bytes` of it, up to the
// first nul.
inline std::string QzFuzzInputText(std::uint8_t const *data, std::size_t size,
                                   std::size_t max_bytes)
{
    std::string text;
    if (size > 0)
        text.assign(reinterpret_cast<char const *>(data), size < max_bytes ? size : max_bytes);
    return std::string(text.c_str());
}

// The units of a decoder's output; null reads as empty.
inline std::u16string QzFuzzUnitsOf(QzWideStringBuffer const &wide)
{
    return wide.GetString() != nullptr ? std::u16string(wide.GetString()) : std::u16string();
}

// Checks, when the scope ends, that every block taken from QzMemory within
// it went back.
class QzFuzzMemoryBalance {
public:
    QzFuzzMemoryBalance() : m_allocated_before(QzMemory::GetDirectMemoryAllocated()) {}
    ~QzFuzzMemoryBalance()
    {
        QZ_FUZZ_CHECK(QzMemory::GetDirectMemoryAllocated() == m_allocated_before,
                      "every block went back to QzMemory");
    }
    QzFuzzMemoryBalance(QzFuzzMemoryBalance const &) = delete;
    QzFuzzMemoryBalance &operator=(QzFuzzMemoryBalance const &) = delete;

private:
    LtNat64 m_allocated_before;  // bytes
};
