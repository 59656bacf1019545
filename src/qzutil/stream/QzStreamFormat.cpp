// QzStreamFormat.cpp: the entry table of an object format.

#include "qzutil/stream/QzStreamFormat.h"

#include <cstring>

QzStreamFormat::QzStreamFormat(char const *name, bool extendable)
    : m_name(name), m_extendable(extendable)
{}

QzStreamFormat::QzStreamFormat(QzStreamFormat const &other) = default;

QzStreamFormat &QzStreamFormat::operator=(QzStreamFormat const &other) = default;

QzStreamFormat::~QzStreamFormat() = default;

void QzStreamFormat::SetNumEntries(int count)
{
    m_entries.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
}

void QzStreamFormat::SetEntry(int index, int (*write)(QzWriteStream *, int, void const *),
                              void *(*create)(QzReadStream *, int),
                              int (*read)(QzReadStream *, int, void *), char const *name,
                              int parent)
{
    if (index < 0)
        return;
    if (index >= GetNumEntries())
        SetNumEntries(index + 1);
    QzStreamFormatEntry &entry = m_entries[Index(index)];
    entry.write = write;
    entry.create = create;
    entry.read = read;
    entry.name.SetString(name);
    entry.parent = parent;
    entry.substitute = -1;
}

int QzStreamFormat::FindEntry(char const *name) const
{
    if (name == nullptr)
        return -1;
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        char const *entry_name = m_entries[i].name.GetString();
        if (entry_name && std::strcmp(entry_name, name) == 0)
            return static_cast<int>(i);
    }
    return -1;
}
