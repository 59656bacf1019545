// QzDeletable.h: the base of objects owned by pointer, and the class-level
// operator new and delete family that places an object in the allocator.
#pragma once

#include <cstddef>
#include <new>

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzMemory.h"

// The size the allocator sees for a language-level request: QzMemory takes
// 32-bit sizes, so anything larger becomes 0xFFFFFFFF and fails its size check.
inline unsigned QzClampAllocationSize(std::size_t size)
{
    return size > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(size);
}

// Declares the class-level allocation family inside a class body: plain and
// placement forms. Delete is the sized form, so the language passes the size
// of the object being deleted (the most derived one, through a virtual
// destructor) and QzMemory gets back exactly what it handed out. A new that
// finds no memory, after the new-handler gave up, throws std::bad_alloc: a
// new-expression must not construct into null.
// clang-format off
#define QZ_DECLARE_ALLOCATORS()                                                     \
    static void *operator new(std::size_t size)                                     \
    {                                                                               \
        void *block = QzMemory::AllocEx(QzClampAllocationSize(size), 1, 0);         \
        if (block == nullptr)                                                       \
            throw std::bad_alloc();                                                 \
        return block;                                                               \
    }                                                                               \
    static void operator delete(void *block, std::size_t size)                      \
    {                                                                               \
        QzMemory::Dealloc(block, QzClampAllocationSize(size), 1);                   \
    }                                                                               \
    static void *operator new(std::size_t, void *place) noexcept { return place; } \
    static void operator delete(void *, void *) noexcept {}
// clang-format on

// Base of objects owned by pointer and deleted through it.
//
// Ownership: whoever holds the pointer deletes it; the object's storage goes
//            back to QzMemory with the size of its most derived class.
class QZUTIL_API QzDeletable {
public:
    QZ_DECLARE_ALLOCATORS()
    virtual ~QzDeletable();
};
