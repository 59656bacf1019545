// QzStreamExtData.h: what a reader kept of an object whose kind it does not
// know, so that writing the object again sends that part back unchanged.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"

class QzStreamBuffer;

// The tail of one object: everything that the read method of its nearest
// known ancestor left unread, re-encoded in binary debug form (type tokens
// ahead of every value, nested definitions numbered from 100 within the
// tail, a sync token at the end). QzReadStream::ReadObjectExt makes it and
// QzWriteStream::WriteObjectExt replays it.
//
// Ownership: reference counted from 0: the holder calls Ref, and the Unref
//            that drops the last reference deletes the object. One that was
//            never referenced may be deleted directly. The bytes are owned
//            and freed by the destructor.
// Threads:   the count is not atomic; one thread at a time.
class QZUTIL_API QzStreamExtData {
public:
    QZ_DECLARE_ALLOCATORS()

    // Takes the bytes that a stream wrote into `written`, a buffer of its
    // own (managed): its allocation is claimed, and the data are its used
    // part from the first 8-aligned byte. `entry` is the object's entry in
    // the reader's current format.
    QzStreamExtData(int entry, QzStreamBuffer *written);
    ~QzStreamExtData();
    QzStreamExtData(QzStreamExtData const &) = delete;
    QzStreamExtData &operator=(QzStreamExtData const &) = delete;

    void Ref() { ++m_references; }
    // Deletes this object when the last reference goes.
    void Unref();
    int GetRefCount() const { return m_references; }

    int GetEntry() const { return m_entry; }
    // Null with a size of 0 for an empty tail; 8-aligned otherwise.
    unsigned char const *GetData() const { return m_data; }
    int GetSize() const { return m_size; }  // bytes

private:
    int m_references = 0;
    int m_entry;
    void *m_allocation;     // from QzMemory::Malloc, owned; null for an empty tail
    unsigned char *m_data;  // within m_allocation
    int m_size;
};
