// QzReadStreamObjects.cpp: the reader's object records and the tables of the
// objects read, the extension list with the private extended format that it
// may need, and the disposal of the objects when a run ends.

#include <charconv>
#include <cstring>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamExtData.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/stream/internal/QzStreamObjects.h"

// Extension indices lie below this; a larger one is a bad record.
static constexpr int kMaxExtensionIndex = 16385;
// Room for an ascii record word ("NULL_OBJECT", "USE", "DEF", an entry name)
// of up to 128 characters.
static constexpr int kRecordWordBytes = 129;

static std::size_t Slot(unsigned id)
{
    return static_cast<std::size_t>(id - kQzFirstObjectId);
}

// --- Reading records ---

void *QzReadStream::ReadObject()
{
    return ReadObjectExt(nullptr, nullptr);
}

void *QzReadStream::ReadObject(int *entry)
{
    return ReadObjectExt(entry, nullptr);
}

void *QzReadStream::ReadObjectExt(int *entry, QzStreamExtData **ext)
{
    int unwanted_entry = -1;
    if (entry == nullptr)
        entry = &unwanted_entry;
    *entry = -1;
    if (ext != nullptr)
        *ext = nullptr;
    if (!m_objects || IsError())
        return nullptr;
    CheckDebug(eTOKEN_OBJECT);
    unsigned id = 0;
    int file_entry = -1;
    switch (GetObjectHeader(&id, &file_entry)) {
    case eOBJECT_USE:
        return ParseObjectUse(id, entry);
    case eOBJECT_DEF:
        return ParseObjectDef(id, file_entry, entry, ext);
    case eOBJECT_NULL:
    case eOBJECT_BAD:
        break;
    }
    return nullptr;
}

void *QzReadStream::ReadCheckedObject(int entry)
{
    int read_entry = -1;
    void *const object = ReadObject(&read_entry);
    if (read_entry == entry)
        return object;
    if (!IsError())
        SetError(ErrorWrongType);
    return nullptr;
}

QzReadStream::ObjectKind QzReadStream::GetObjectHeader(unsigned *id, int *entry)
{
    if (IsAscii()) {
        char word[kRecordWordBytes];
        GetAscii(word, kRecordWordBytes);
        if (IsError())
            return eOBJECT_BAD;
        if (std::strcmp(word, "NULL_OBJECT") == 0)
            return eOBJECT_NULL;
        bool const is_use = std::strcmp(word, "USE") == 0;
        if (!is_use && std::strcmp(word, "DEF") != 0) {
            ReportParseError("Object!", word);
            return eOBJECT_BAD;
        }
        *id = static_cast<unsigned>(GetInt32());
        if (is_use)
            return IsError() ? eOBJECT_BAD : eOBJECT_USE;
        *entry = IsError() ? -1 : ReadAsciiEntry();
        CheckAscii("{");
        return IsError() ? eOBJECT_BAD : eOBJECT_DEF;
    }
    LtNat32 const first = GetNat32();
    if (IsError())
        return eOBJECT_BAD;
    if (first == 0)
        return eOBJECT_NULL;
    if (first == 1) {
        *id = static_cast<unsigned>(GetInt32());
        return IsError() ? eOBJECT_BAD : eOBJECT_USE;
    }
    *id = first;
    LtNat32 const number = GetNat32();
    if (IsError())
        return eOBJECT_BAD;
    if (m_current_read_format == nullptr) {
        PostError(ErrorNoFormat, this, "No format for stream");
        return eOBJECT_BAD;
    }
    // The file numbers entries its own way; the map says which of ours each
    // one is.
    std::vector<int> const &entry_map = m_objects->entry_map;
    if (number >= entry_map.size() || entry_map[number] < 0) {
        ReportParseError("Entry!", QzStreamDecimal(number).text);
        return eOBJECT_BAD;
    }
    *entry = entry_map[number];
    return eOBJECT_DEF;
}

int QzReadStream::ReadAsciiEntry()
{
    if (m_current_read_format == nullptr) {
        PostError(ErrorNoFormat, this, "No format for stream");
        return -1;
    }
    char word[kRecordWordBytes];
    GetAscii(word, kRecordWordBytes);
    if (IsError())
        return -1;
    // Ascii names entries, so no map applies; an entry without a name is
    // written by its number.
    int entry = m_current_read_format->FindEntry(word);
    if (entry >= 0)
        return entry;
    char const *const end = word + std::strlen(word);
    std::from_chars_result const parsed = std::from_chars(word, end, entry);
    if (parsed.ec != std::errc() || parsed.ptr != end || parsed.ptr == word) {
        ReportParseError("Object!", "Bad definition format entry");
        return -1;
    }
    if (entry < 0 || entry >= m_current_read_format->GetNumEntries()) {
        ReportParseError("Entry!", word);
        return -1;
    }
    return entry;
}

void *QzReadStream::ParseObjectUse(unsigned id, int *entry)
{
    if (id < kQzFirstObjectId || id >= m_next_object_id) {
        ReportParseError("Object!", "Bad reference id");
        return nullptr;
    }
    *entry = m_objects->entries[Slot(id)];
    return m_objects->objects[Slot(id)];
}

bool QzReadStream::TakeObjectSlot()
{
    if (!m_objects)
        return false;
    m_objects->objects.push_back(nullptr);
    m_objects->entries.push_back(kQzSkippedObjectEntry);
    ++m_next_object_id;
    return true;
}

void *QzReadStream::ParseObjectDef(unsigned id, int entry, int *out_entry, QzStreamExtData **ext)
{
    // The count advances even for a wrong id, so that the ids after it stay
    // in step with the writer's.
    unsigned const expected_id = m_next_object_id;
    (void)TakeObjectSlot();  // the tables exist: a record was read
    if (id != expected_id) {
        ReportParseError(static_cast<int>(expected_id), static_cast<int>(id));
        return nullptr;
    }
    // A kind unknown here is read by the methods of the ancestor that
    // stands in for it. Copies, not references: methods may edit the format.
    QzStreamFormatEntry const &given = m_current_read_format->GetEntry(entry);
    int const substitute = given.substitute;
    bool const is_extended = given.parent != -1;
    if (substitute == -2) {
        SetError(ErrorNoSubstitute);
        return nullptr;
    }
    int const method_entry = substitute != -1 ? substitute : entry;
    QzStreamFormatEntry const &methods = m_current_read_format->GetEntry(method_entry);
    void *(*const create)(QzReadStream *, int) = methods.create;
    int (*const read)(QzReadStream *, int, void *) = methods.read;
    if (create == nullptr || read == nullptr) {
        PostError(ErrorNoEntry, this, "No method for entry %d in format for object", entry);
        return nullptr;
    }

    void *const object = create(this, method_entry);
    if (object == nullptr) {
        if (!IsError())
            SetError(ErrorCreateFailed);
        return nullptr;
    }
    // Registered before it is read, so that references to it from within
    // resolve, and disposed of at End whatever happens next.
    m_objects->objects[Slot(expected_id)] = object;
    m_objects->entries[Slot(expected_id)] = method_entry;
    if (IsError())
        return nullptr;

    QzStreamExtData *tail = nullptr;
    {
        QzStreamDebugScope const debug(this, is_extended ? 1 : IsDebug());
        if (!read(this, method_entry, object) && !IsError())
            SetError(ErrorObjectRead);
        if (substitute != -1)
            tail = ReadObjectTail(entry, ext != nullptr);
        else
            CheckDebug(eTOKEN_OBJECT_END_DEF);
    }
    if (IsAscii())
        CheckAscii("}");
    if (IsError()) {
        delete tail;
        return nullptr;
    }
    *out_entry = method_entry;
    if (ext != nullptr)
        *ext = tail;
    return object;
}

QzStreamExtData *QzReadStream::ReadObjectTail(int entry, bool keep)
{
    if (IsError())
        return nullptr;
    QzStreamBuffer bytes;
    QzWriteStream tail(&bytes);
    tail.SetAscii(0);
    tail.SetDebug(1);
    tail.SetDouble(1);
    tail.SetFormat(m_current_read_format);
    if (!tail.Begin(0, 0)) {
        SetError(tail.GetError());
        return nullptr;
    }
    CopyDebugData(&tail, 1);
    // A tail that could not be kept whole must not pass for the object's.
    if (!tail.End() && !IsError())
        SetError(tail.GetError());
    if (IsError() || !keep)
        return nullptr;
    return new QzStreamExtData(entry, &bytes);
}

int QzReadStream::AddObject(void *object, int entry, unsigned id)
{
    if (!m_objects)
        return 0;
    if (id != m_next_object_id) {
        if (!IsError())
            ReportParseError(static_cast<int>(m_next_object_id), static_cast<int>(id));
        return 0;
    }
    (void)TakeObjectSlot();
    m_objects->objects.back() = object;
    m_objects->entries.back() = entry;
    return 1;
}

void *QzReadStream::GetObjectW(unsigned id) const
{
    if (!m_objects || id < kQzFirstObjectId || id >= m_next_object_id)
        return nullptr;
    return m_objects->objects[Slot(id)];
}

void QzReadStream::DisposeDataObjects()
{
    QzStreamFormat const *format = m_current_read_format;
    if (!m_objects || format == nullptr)
        return;
    std::vector<void *> const &objects = m_objects->objects;
    for (std::size_t slot = 0; slot < objects.size(); ++slot) {
        int const entry = m_objects->entries[slot];
        if (objects[slot] == nullptr || entry < 0 || entry >= format->GetNumEntries())
            continue;
        void (*const dispose)(QzReadStream *, int, void *) = format->GetEntry(entry).dispose;
        if (dispose != nullptr)
            dispose(this, entry, objects[slot]);
    }
}

// --- Formats and extensions ---

QzStreamFormat *QzReadStream::EditCurrentReadFormat()
{
    if (!m_extended_format) {
        if (m_current_read_format == nullptr)
            return nullptr;
        m_extended_format.reset(new QzStreamFormat(*m_current_read_format));
        m_current_read_format = m_extended_format.get();
    }
    return m_extended_format.get();
}

void QzReadStream::ReadExtensions()
{
    // Writers send the list only for extendable formats.
    if (m_current_read_format == nullptr || !m_current_read_format->IsExtendable())
        return;
    // Each record is an index, a name and a parent; the list ends with -1.
    while (!IsError()) {
        LtInt32 const index = ReadInt32();
        if (IsError() || index == -1)
            return;
        ReadString(&m_temp_buffer);
        LtInt32 const parent = ReadInt32();
        if (IsError())
            return;
        AddExtension(index, m_temp_buffer.GetString(), parent);
    }
}

static bool IsNamed(QzStreamFormatEntry const &entry, char const *name)
{
    char const *const entry_name = entry.name.GetString();
    return entry_name != nullptr && std::strcmp(entry_name, name) == 0;
}

void QzReadStream::AddExtension(int index, char const *name, int parent)
{
    // A parent comes before its extensions, which keeps the map's chains
    // finite.
    if (index < 0 || index >= kMaxExtensionIndex || parent < 0 || parent >= index ||
        name == nullptr || name[0] == '\0') {
        SetError(ErrorBadExtension);
        return;
    }
    QzStreamFormat const *format = m_current_read_format;
    int local = -1;
    if (index < format->GetNumEntries() && IsNamed(format->GetEntry(index), name))
        local = index;
    else
        local = format->FindEntry(name);

    std::vector<int> &entry_map = m_objects->entry_map;
    if (entry_map.size() <= static_cast<std::size_t>(index))
        entry_map.resize(static_cast<std::size_t>(index) + 1, -1);
    int const mapped_parent = entry_map[static_cast<std::size_t>(parent)];
    if (entry_map[static_cast<std::size_t>(index)] != -1 || mapped_parent == -1) {
        SetError(ErrorExtensionConflict);
        return;
    }
    if (local >= 0) {
        // A kind known here must extend the same kind as in the file.
        if (format->GetEntry(local).parent != mapped_parent) {
            SetError(ErrorExtensionConflict);
            return;
        }
    } else {
        // A kind unknown here gets an entry of its own in this stream's copy
        // of the format.
        QzStreamFormat *const extended = EditCurrentReadFormat();
        local = extended->GetNumEntries();
        extended->SetNumEntries(local + 1);
        SubstituteAncestor(extended, local, mapped_parent);
        QzStreamFormatEntry &added = extended->EditEntry(local);
        added.name.SetString(name);
        added.parent = mapped_parent;
    }
    entry_map[static_cast<std::size_t>(index)] = local;
}

void QzReadStream::SubstituteAncestor(QzStreamFormat *format, int local, int parent)
{
    QzStreamFormatEntry &added = format->EditEntry(local);
    int const count = format->GetNumEntries();
    // The steps are bounded because a caller's format may link its parents
    // in a circle.
    int ancestor = parent;
    for (int steps = 0; ancestor >= 0 && ancestor < count && steps < count; ++steps) {
        QzStreamFormatEntry const &candidate = format->GetEntry(ancestor);
        if (candidate.substitute == -1 && candidate.create != nullptr &&
            candidate.read != nullptr) {
            added.write = candidate.write;
            added.create = candidate.create;
            added.read = candidate.read;
            added.substitute = ancestor;
            return;
        }
        ancestor = candidate.parent;
    }
    added.write = nullptr;
    added.create = nullptr;
    added.read = nullptr;
    added.substitute = -2;
}
