// QzStreamFormat.h: the table of object kinds that a stream may carry, by
// entry number, with the methods that write, create, read and dispose of
// each kind, and the format's name and version for the stream header.
#pragma once

#include <vector>

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzString.h"

class QzWriteStream;
class QzReadStream;
class QzStreamFormat;

// One kind of object. Parent -1 is a plain entry, -3 a slot not yet set,
// anything else the entry that this one extends. Substitute -1 in general;
// for an entry that stands for a kind unknown here, the entry whose methods
// it borrowed, or -2 when there is none.
struct QZUTIL_API QzStreamFormatEntry {
    int (*write)(QzWriteStream *stream, int entry, void const *object) = nullptr;
    void *(*create)(QzReadStream *stream, int entry) = nullptr;
    int (*read)(QzReadStream *stream, int entry, void *object) = nullptr;
    void (*dispose)(QzReadStream *stream, int entry, void *object) = nullptr;
    QzString name;
    int parent = -3;
    int substitute = -1;
};

// Answers non-zero if `name` (a format word from a stream header) is an
// earlier version of `format`, and sets *version to that version.
using QzStreamEarlierVersionCB = int (*)(QzStreamFormat const *format, char const *name,
                                         int *version);

// Ownership: the name is borrowed (a literal in practice); the entries are
//            owned and copied with the format.
// Threads:   read-only once set up; streams share formats freely.
class QZUTIL_API QzStreamFormat {
public:
    QZ_DECLARE_ALLOCATORS()

    QzStreamFormat(char const *name, bool extendable);
    QzStreamFormat(QzStreamFormat const &other);
    QzStreamFormat &operator=(QzStreamFormat const &other);
    ~QzStreamFormat();

    char const *GetName() const { return m_name; }
    void SetName(char const *name) { m_name = name; }
    int GetVersion() const { return m_version; }
    void SetVersion(int version) { m_version = version; }
    QzStreamEarlierVersionCB GetEarlierVersionCB() const { return m_earlier_version_cb; }
    void SetEarlierVersionCB(QzStreamEarlierVersionCB callback) { m_earlier_version_cb = callback; }
    bool IsExtendable() const { return m_extendable; }

    int GetNumEntries() const { return static_cast<int>(m_entries.size()); }
    // Grows with blank entries (parent -3) or shrinks.
    void SetNumEntries(int count);
    QzStreamFormatEntry const &GetEntry(int index) const { return m_entries[Index(index)]; }
    QzStreamFormatEntry &EditEntry(int index) { return m_entries[Index(index)]; }
    // Fills an entry (growing the table as needed); the substitute becomes
    // -1 and the dispose method is kept.
    void SetEntry(int index, int (*write)(QzWriteStream *, int, void const *),
                  void *(*create)(QzReadStream *, int), int (*read)(QzReadStream *, int, void *),
                  char const *name, int parent);
    // The first entry named `name`, or -1.
    int FindEntry(char const *name) const;

private:
    static std::size_t Index(int index) { return static_cast<std::size_t>(index); }

    char const *m_name;  // borrowed
    int m_version = 0;
    QzStreamEarlierVersionCB m_earlier_version_cb = nullptr;
    bool m_extendable;
    std::vector<QzStreamFormatEntry> m_entries;
};
