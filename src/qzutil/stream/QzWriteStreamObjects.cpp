// QzWriteStreamObjects.cpp: the writer's object records (null, use,
// definition), the table that gives each object its id, the replay of a kept
// tail, and the extension list after the header.

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamExtData.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/stream/internal/QzStreamObjects.h"
#include "qzutil/sys/QzSysString.h"

// Room for "DEF ", an id, a blank, an entry number and the line end.
static constexpr std::size_t kRecordLineBytes = 64;

// The ascii word of an entry: its name, or, if it has none, its number,
// printed into `number`.
static char const *EntryWord(QzStreamFormat const *format, int entry,
                             char (&number)[kRecordLineBytes])
{
    if (format != nullptr && entry >= 0 && entry < format->GetNumEntries()) {
        char const *name = format->GetEntry(entry).name.GetString();
        if (name != nullptr && name[0] != '\0')
            return name;
    }
    (void)QzSysString::Sprintf(number, sizeof number, "%d", entry);
    return number;
}

void QzWriteStream::SendObjectNull()
{
    SendDebug(eTOKEN_OBJECT);
    if (!IsAscii()) {
        SendNat32(0);
        return;
    }
    SendIndent();
    SendAscii("NULL_OBJECT\n");
}

void QzWriteStream::SendObjectUse(unsigned id)
{
    SendDebug(eTOKEN_OBJECT);
    if (!IsAscii()) {
        SendNat32(1);
        SendNat32(id);
        return;
    }
    char line[kRecordLineBytes];
    (void)QzSysString::Sprintf(line, sizeof line, "USE %u\n", id);
    SendIndent();
    SendAscii(line);
}

void QzWriteStream::SendObjectDefHead(unsigned id, int entry)
{
    SendDebug(eTOKEN_OBJECT);
    if (!IsAscii()) {
        SendNat32(id);
        SendNat32(static_cast<LtNat32>(entry));
    } else {
        char line[kRecordLineBytes];
        (void)QzSysString::Sprintf(line, sizeof line, "DEF %u ", id);
        SendIndent();
        SendAscii(line);
        char number[kRecordLineBytes];
        SendAscii(EntryWord(GetFormat(), entry, number));
        SendAscii("\n");
        SendIndent();
        SendAscii("{\n");
    }
    m_indent += 2;
}

void QzWriteStream::SendObjectDefEnd()
{
    m_indent -= 2;
    SendDebug(eTOKEN_OBJECT_END_DEF);
    if (IsAscii()) {
        SendIndent();
        SendAscii("}\n");
    }
}

unsigned QzWriteStream::WriteObject(void const *object, int entry)
{
    return WriteObjectExt(object, entry, nullptr);
}

unsigned QzWriteStream::WriteObjectExt(void const *object, int entry, QzStreamExtData const *ext)
{
    if (!m_objects)
        return 0;  // no run: the stream is inert
    if (object == nullptr) {
        SendObjectNull();
        return 0;
    }
    QzStreamFormat const *format = GetFormat();
    if (format == nullptr) {
        PostError(ErrorNoFormat, this, "No format for stream");
        return 0;
    }
    if (entry < 0 || entry >= format->GetNumEntries()) {
        PostError(ErrorNoEntry, this, "No entry %d in format for object", entry);
        return 0;
    }
    QzStreamFormatEntry const &given = format->GetEntry(entry);
    if (given.write == nullptr) {
        PostError(ErrorNoEntry, this, "No method for entry %d in format for object", entry);
        return 0;
    }
    // A kept tail names the kind that the object really is; that kind must
    // be one that this format can name in the file.
    int recorded = entry;
    if (ext != nullptr) {
        recorded = ext->GetEntry();
        if (recorded < 0 || recorded >= format->GetNumEntries() ||
            format->GetEntry(recorded).write == nullptr ||
            format->GetEntry(recorded).parent == -3) {
            PostError(ErrorNoEntry, this, "No method for entry %d in format for object", recorded);
            return 0;
        }
    }

    auto const found = m_objects->ids.find(object);
    if (found != m_objects->ids.end()) {
        SendObjectUse(found->second);
        return found->second;
    }
    unsigned const id = TakeObjectId();
    m_objects->ids.emplace(object, id);
    SendObjectDefHead(id, recorded);
    {
        // Every extended object carries type tokens, so that a reader that
        // does not know its kind can still walk over what it cannot read.
        bool const is_extended = recorded != entry || given.parent != -1;
        QzStreamDebugScope const debug(this, is_extended ? 1 : IsDebug());
        if (!given.write(this, entry, object) && !IsError())
            SetError(ErrorObjectWrite);
        if (ext != nullptr && ext->GetSize() > 0 && !IsError())
            QzReadStream::ReplayTail(*ext, this);
        SendObjectDefEnd();
    }
    return IsError() ? 0 : id;
}

unsigned QzWriteStream::AddObject(void const *object, int)
{
    if (!m_objects || object == nullptr)
        return 0;
    auto const inserted = m_objects->ids.emplace(object, m_next_object_id);
    if (inserted.second)
        ++m_next_object_id;
    return inserted.first->second;
}

void QzWriteStream::RemoveObject(void const *object)
{
    if (m_objects)
        m_objects->ids.erase(object);
}

unsigned QzWriteStream::GetObjectId(void const *object) const
{
    if (!m_objects)
        return 0;
    auto const found = m_objects->ids.find(object);
    return found != m_objects->ids.end() ? found->second : 0;
}

void QzWriteStream::WriteExtensions(int with_records)
{
    QzStreamFormat const *format = GetFormat();
    if (format == nullptr || !format->IsExtendable())
        return;
    // A record tells a reader that an entry extends another, so that one
    // that does not know it reads it as that ancestor.
    for (int index = 0; with_records && index < format->GetNumEntries(); ++index) {
        QzStreamFormatEntry const &extension = format->GetEntry(index);
        if (extension.parent < 0)
            continue;
        WriteInt32(index);
        WriteString(extension.name.GetString(), extension.name.GetLength());
        WriteInt32(extension.parent);
    }
    WriteInt32(-1);
}
