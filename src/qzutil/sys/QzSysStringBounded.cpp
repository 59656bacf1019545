// QzSysStringBounded.cpp: QzSysString's lengths, bounded copies and
// concatenations, duplicates and raw memory operations, each written once as
// a template over the unit and exported in a narrow and a wide form.
#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qzutil/sys/QzSysString.h"

namespace {

// The most units a copy fills before its nul, so that every length fits the
// int result of the copying contract.
constexpr std::size_t kMaxResultUnits = INT_MAX;

constexpr std::size_t kUnlimited = SIZE_MAX;

}  // namespace

template <typename Unit>
static std::size_t BoundedLength(Unit const *text, std::size_t limit)
{
    if (text == nullptr)
        return 0;
    std::size_t length = 0;
    while (length < limit && text[length] != 0)
        ++length;
    return length;
}

// Writes up to `count` units of source after the first `start` units of dest
// and terminates. Needs size above 0 and start below size.
template <typename Unit>
static int CopyAt(Unit *dest, std::size_t size, std::size_t start, Unit const *source,
                  std::size_t count)
{
    std::size_t usable = std::min(size - 1, kMaxResultUnits);
    std::size_t room = start < usable ? usable - start : 0;
    std::size_t wanted = BoundedLength(source, count);
    std::size_t taken = std::min(wanted, room);
    std::copy(source, source + taken, dest + start);
    dest[start + taken] = 0;
    return taken < wanted ? -1 : static_cast<int>(start + taken);
}

template <typename Unit>
static int CopyText(Unit *dest, std::size_t size, Unit const *source, std::size_t count)
{
    if (dest == nullptr || size == 0)
        return -1;
    return CopyAt(dest, size, 0, source, count);
}

template <typename Unit>
static int AppendText(Unit *dest, std::size_t size, Unit const *source, std::size_t count)
{
    if (dest == nullptr || size == 0)
        return -1;
    std::size_t start = BoundedLength(dest, size);
    if (start == size) {
        dest[size - 1] = 0;
        return -1;
    }
    return CopyAt(dest, size, start, source, count);
}

template <typename Unit>
static Unit *DuplicateText(Unit const *text)
{
    if (text == nullptr)
        return nullptr;
    std::size_t units = BoundedLength(text, kUnlimited) + 1;
    auto *copy = static_cast<Unit *>(std::malloc(units * sizeof(Unit)));
    if (copy != nullptr)
        std::memcpy(copy, text, units * sizeof(Unit));
    return copy;
}

// Whether `count` units may go to a destination of `size`; null pointers
// pass only when there is nothing to move.
static bool FitsMemory(void const *dest, std::size_t size, void const *source, std::size_t count)
{
    return count <= size && (count == 0 || (dest != nullptr && source != nullptr));
}

template <typename Unit>
static bool CopyUnits(Unit *dest, std::size_t size, Unit const *source, std::size_t count,
                      bool may_overlap)
{
    if (!FitsMemory(dest, size, source, count))
        return false;
    if (count == 0)
        return true;
    if (may_overlap)
        std::memmove(dest, source, count * sizeof(Unit));
    else
        std::memcpy(dest, source, count * sizeof(Unit));
    return true;
}

template <typename Unit>
static bool FillUnits(Unit *dest, std::size_t size, Unit value, std::size_t count)
{
    if (!FitsMemory(dest, size, dest, count))
        return false;
    std::fill(dest, dest + count, value);
    return true;
}

std::size_t QzSysString::Strlen(char const *text)
{
    return BoundedLength(text, kUnlimited);
}

std::size_t QzSysString::Strnlen(char const *text, std::size_t max_count)
{
    return BoundedLength(text, max_count);
}

int QzSysString::Strcpy(char *dest, std::size_t size, char const *source)
{
    return CopyText(dest, size, source, kUnlimited);
}

int QzSysString::Strncpy(char *dest, std::size_t size, char const *source, std::size_t count)
{
    return CopyText(dest, size, source, count);
}

int QzSysString::Strcat(char *dest, std::size_t size, char const *source)
{
    return AppendText(dest, size, source, kUnlimited);
}

int QzSysString::Strncat(char *dest, std::size_t size, char const *source, std::size_t count)
{
    return AppendText(dest, size, source, count);
}

char *QzSysString::Strdup(char const *text)
{
    return DuplicateText(text);
}

LtWChar *QzSysString::WideStrdup(LtWChar const *text)
{
    return DuplicateText(text);
}

void QzSysString::FreeString(char *text)
{
    std::free(text);
}

void QzSysString::FreeString(LtWChar *text)
{
    std::free(text);
}

bool QzSysString::Memcpy(void *dest, std::size_t size, void const *source, std::size_t count)
{
    return CopyUnits(static_cast<unsigned char *>(dest), size,
                     static_cast<unsigned char const *>(source), count, /*may_overlap=*/false);
}

bool QzSysString::Memmove(void *dest, std::size_t size, void const *source, std::size_t count)
{
    return CopyUnits(static_cast<unsigned char *>(dest), size,
                     static_cast<unsigned char const *>(source), count, /*may_overlap=*/true);
}

bool QzSysString::Memset(void *dest, std::size_t size, int value, std::size_t count)
{
    return FillUnits(static_cast<unsigned char *>(dest), size, static_cast<unsigned char>(value),
                     count);
}

std::size_t QzSysString::WideStrlen(LtWChar const *text)
{
    return BoundedLength(text, kUnlimited);
}

std::size_t QzSysString::WideStrnlen(LtWChar const *text, std::size_t max_count)
{
    return BoundedLength(text, max_count);
}

int QzSysString::WideStrcpy(LtWChar *dest, std::size_t size, LtWChar const *source)
{
    return CopyText(dest, size, source, kUnlimited);
}

int QzSysString::WideStrncpy(LtWChar *dest, std::size_t size, LtWChar const *source,
                             std::size_t count)
{
    return CopyText(dest, size, source, count);
}

int QzSysString::WideStrcat(LtWChar *dest, std::size_t size, LtWChar const *source)
{
    return AppendText(dest, size, source, kUnlimited);
}

int QzSysString::WideStrncat(LtWChar *dest, std::size_t size, LtWChar const *source,
                             std::size_t count)
{
    return AppendText(dest, size, source, count);
}

bool QzSysString::WideMemcpy(LtWChar *dest, std::size_t size, LtWChar const *source,
                             std::size_t count)
{
    return CopyUnits(dest, size, source, count, /*may_overlap=*/false);
}

bool QzSysString::WideMemmove(LtWChar *dest, std::size_t size, LtWChar const *source,
                              std::size_t count)
{
    return CopyUnits(dest, size, source, count, /*may_overlap=*/true);
}

bool QzSysString::WideMemset(LtWChar *dest, std::size_t size, LtWChar value, std::size_t count)
{
    return FillUnits(dest, size, value, count);
}

int QzSysString::Wsprintf(LtWChar *buffer, std::size_t count, LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = WideVsprintf(buffer, count, format, args);
    va_end(args);
    return result;
}
