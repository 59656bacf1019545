// QzMemory.cpp: the allocator's front over the platform heap: every block is
// a malloc block, counted by its true size.

#include "qzutil/memory/QzMemory.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/memory/QzSysMemory.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysHeap.h"

// Larger single requests are programming faults (a negative size cast to
// unsigned, most often), not memory shortages.
static constexpr unsigned kMaxRequestSize = 0x7FF00000;

// Internal messages are formatted into this many wide characters at most.
static constexpr int kMessageLimit = 512;

static QzComponent g_memory_component;
static bool g_built;  // set by the first Initialise, kept while bytes are held
static int g_force_malloc = 1;
static std::atomic<LtNat64> g_malloc_bytes;  // true sizes of live heap blocks
static std::atomic<QzMemory::NewHandler> g_new_handler;

// Posts one of the allocator's own messages against its component.
static void PostMemoryMessage(QzSysError::Severity severity, LtWChar const *format, ...)
{
    LtWChar message[kMessageLimit];
    va_list args;
    va_start(args, format);
    QzSysString::WideVsprintf(message, kMessageLimit, format, args);
    va_end(args);
    QzSysError::PostFixed(severity, &g_memory_component, -1, nullptr, 0, message);
}

// A request above the limit is fatal whatever a handler makes of the post.
static void CheckSize(unsigned size)
{
    if (size > kMaxRequestSize) {
        PostMemoryMessage(QzSysError::eERROR, u"QzMemory: Bad size %d\n", static_cast<int>(size));
        QzSysError::Abort();
    }
}

// Asks the new-handler whether to try again after a failed allocation.
static bool RetryAfterFailure(unsigned size, int try_only)
{
    if (try_only)
        return false;
    QzMemory::NewHandler handler = g_new_handler.load();
    return handler != nullptr && handler(size, try_only) != 0;
}

void QzMemory::Initialise()
{
    if (g_memory_component.Initialise("QzMemory", QZ_COMPONENT_INFO) == 0)
        return;
    // A Terminate that found bytes still held left everything standing, the
    // holds on the components below included.
    if (g_built)
        return;
    QzSysError::Initialise();
    QzSysMemory::Initialise();
    g_built = true;
}

void QzMemory::Terminate()
{
    if (g_memory_component.Terminate() == 0)
        return;
    LtNat64 const malloc_bytes = g_malloc_bytes.load();
    if (malloc_bytes != 0) {
        PostMemoryMessage(QzSysError::eWARNING,
                          u"%lld malloc bytes still allocated at QzMemory::Terminate. Not "
                          u"terminating.",
                          static_cast<long long>(malloc_bytes));
        return;
    }
    g_built = false;
    QzSysMemory::Terminate();
    QzSysError::Terminate();
}

int QzMemory::IsInitialised()
{
    return g_memory_component.IsInitialised();
}

void *QzMemory::Alloc(unsigned size, Alignment alignment)
{
    return AllocEx(size, alignment, 0);
}

void *QzMemory::TryAlloc(unsigned size, Alignment alignment)
{
    return AllocEx(size, alignment, 1);
}

void *QzMemory::AllocEx(unsigned size, Alignment, int try_only)
{
    if (size == 0)
        return nullptr;
    return MallocEx(size, try_only);
}

void QzMemory::Dealloc(void *block, unsigned, Alignment)
{
    Free(block);
}

void *QzMemory::Resize(void *block, unsigned old_size, unsigned new_size, Alignment alignment)
{
    if (old_size == new_size)
        return block;
    if (new_size == 0) {
        Dealloc(block, old_size, alignment);
        return nullptr;
    }
    if (block == nullptr)
        return AllocEx(new_size, alignment, 0);
    CheckSize(old_size);
    return ReallocEx(block, new_size, 0);
}

// Rounds up to a multiple of 8 for alignments of 8 and above, else of 4.
static unsigned RoundToAlignment(unsigned size, QzMemory::Alignment alignment)
{
    unsigned const unit = alignment >= 8 ? 8u : 4u;
    if (size > 0xFFFFFFFFu - (unit - 1))
        return size;  // the size check refuses it anyway
    return (size + unit - 1) & ~(unit - 1);
}

void *QzMemory::Expand(void *block, unsigned *size, unsigned new_size, Alignment alignment)
{
    unsigned const best =
        new_size == 0 ? 0 : RoundToAlignment(GetBestBlockSize(new_size), alignment);
    void *result = Resize(block, *size, best, alignment);
    if (result != nullptr || best == 0)
        *size = best;
    return result;
}

void *QzMemory::Compact(void *block, unsigned size, Alignment)
{
    CheckSize(size);
    return block;
}

unsigned QzMemory::GetBestBlockSize(unsigned size)
{
    if (size <= 4)
        return 4;
    if (size > 0x80000000u)
        return size;
    unsigned best = 8;
    while (best < size)
        best <<= 1;
    return best;
}

void *QzMemory::Malloc(unsigned size)
{
    return MallocEx(size, 0);
}

void *QzMemory::TryMalloc(unsigned size)
{
    return MallocEx(size, 1);
}

void *QzMemory::MallocEx(unsigned size, int try_only)
{
    if (!try_only)
        CheckSize(size);
    for (;;) {
        void *block = std::malloc(size);
        if (block != nullptr) {
            g_malloc_bytes += QzSysHeap::GetUsableSize(block);
            return block;
        }
        if (!RetryAfterFailure(size, try_only))
            return nullptr;
    }
}

void *QzMemory::Realloc(void *block, unsigned size)
{
    return ReallocEx(block, size, 0);
}

void *QzMemory::TryRealloc(void *block, unsigned size)
{
    return ReallocEx(block, size, 1);
}

void *QzMemory::ReallocEx(void *block, unsigned size, int try_only)
{
    if (block == nullptr)
        return MallocEx(size, try_only);
    if (size == 0) {
        Free(block);
        return nullptr;
    }
    if (!try_only)
        CheckSize(size);
    std::size_t const old_true_size = QzSysHeap::GetUsableSize(block);
    for (;;) {
        void *moved = std::realloc(block, size);
        if (moved != nullptr) {
            g_malloc_bytes += QzSysHeap::GetUsableSize(moved);
            g_malloc_bytes -= old_true_size;
            return moved;
        }
        if (!RetryAfterFailure(size, try_only))
            return nullptr;  // the old block stays valid and counted
    }
}

void QzMemory::Free(void *block)
{
    if (block == nullptr)
        return;
    g_malloc_bytes -= QzSysHeap::GetUsableSize(block);
    std::free(block);
}

// The global operator new's handler while a QzMemory handler is set: the
// size of the failed request is unknown here, so the handler is told 0.
static void NewHandlerTrampoline()
{
    QzMemory::NewHandler handler = g_new_handler.load();
    if (handler == nullptr || handler(0, 0) == 0)
        throw std::bad_alloc();
}

QzMemory::NewHandler QzMemory::SetNewHandler(NewHandler handler)
{
    NewHandler old = g_new_handler.exchange(handler);
    std::set_new_handler(handler != nullptr ? NewHandlerTrampoline : nullptr);
    return old;
}

QzMemory::NewHandler QzMemory::GetNewHandler()
{
    return g_new_handler.load();
}

void QzMemory::SetForceMalloc(int on)
{
    g_force_malloc = on;
}

int QzMemory::IsForceMalloc()
{
    return g_force_malloc;
}

LtNat64 QzMemory::GetMallocMemoryAllocated()
{
    return g_malloc_bytes.load();
}

LtNat64 QzMemory::GetMemoryAllocated()
{
    return g_malloc_bytes.load();
}
