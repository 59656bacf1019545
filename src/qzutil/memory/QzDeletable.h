// QzDeletable.h: the base of objects owned by pointer, and the class-level
// operator new and delete family that places an object in the allocator.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzFastArena.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/memory/QzRawArena.h"

// The size the allocator sees for a language-level request: QzMemory takes
// 32-bit sizes, so anything larger becomes 0xFFFFFFFF and fails its size check.
inline unsigned QzClampAllocationSize(std::size_t size)
{
    return size > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(size);
}

// Throws std::bad_alloc for a null block: a new-expression must not construct
// into null. Used by the forms of QZ_DECLARE_ALLOCATORS.
inline void *QzCheckAllocated(void *block)
{
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

// Declares the class-level allocation family inside a class body.
//
// Plain form: delete is the sized form, so the language passes the size of
// the object being deleted (the most derived one, through a virtual
// destructor) and QzMemory gets back exactly what it handed out.
//
// Arena forms, `new (arena) T(...)` for a QzFastArena, QzArena or QzRawArena
// whose object size is at least sizeof(T): the matching placement delete is
// what the language calls when the constructor throws, and returns the block
// to the arena. A delete-expression never reaches them, so an object placed
// in an arena is destroyed by its owner: QzDeleteInArena(object, arena), or
// object->~T() then arena->Dealloc(object). A fast arena's DeallocAll runs no
// destructor either.
//
// Placement form: `new (storage) T(...)` constructs in given storage.
//
// A new that finds no memory, after the new-handler gave up, throws
// std::bad_alloc.
// clang-format off
#define QZ_DECLARE_ALLOCATORS()                                                        \
    static void *operator new(std::size_t size)                                        \
    {                                                                                  \
        return QzCheckAllocated(QzMemory::AllocEx(QzClampAllocationSize(size), 1, 0)); \
    }                                                                                  \
    static void operator delete(void *block, std::size_t size)                         \
    {                                                                                  \
        QzMemory::Dealloc(block, QzClampAllocationSize(size), 1);                      \
    }                                                                                  \
    static void *operator new(std::size_t, QzFastArena *arena)                         \
    {                                                                                  \
        return QzCheckAllocated(arena->Alloc());                                       \
    }                                                                                  \
    static void operator delete(void *block, QzFastArena *arena)                       \
    {                                                                                  \
        arena->Dealloc(block);                                                         \
    }                                                                                  \
    static void *operator new(std::size_t, QzArena *arena)                             \
    {                                                                                  \
        return QzCheckAllocated(arena->Alloc());                                       \
    }                                                                                  \
    static void operator delete(void *block, QzArena *arena)                           \
    {                                                                                  \
        arena->QzRawArena::Dealloc(block);                                             \
    }                                                                                  \
    static void *operator new(std::size_t, QzRawArena *arena)                          \
    {                                                                                  \
        return QzCheckAllocated(arena->Alloc());                                       \
    }                                                                                  \
    static void operator delete(void *block, QzRawArena *arena)                        \
    {                                                                                  \
        arena->Dealloc(block);                                                         \
    }                                                                                  \
    static void *operator new(std::size_t, void *place) noexcept { return place; }     \
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

// Destroys an object made with an arena form of operator new and returns its
// block to that arena (a QzFastArena, QzArena or QzRawArena); null does
// nothing. The block is found from the most derived object, so a pointer to
// a base of a polymorphic class is fine.
template <class T, class Arena>
void QzDeleteInArena(T *object, Arena *arena)
{
    if (object == nullptr)
        return;
    void *block;
    if constexpr (std::is_polymorphic_v<T>)
        block = dynamic_cast<void *>(object);
    else
        block = object;
    object->~T();
    arena->Dealloc(block);
}
