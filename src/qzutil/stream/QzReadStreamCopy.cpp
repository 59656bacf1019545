// QzReadStreamCopy.cpp: copying a debug stream value by value into a writer
// of any form, which its type tokens make possible without knowing what the
// values mean: whole streams (CopyDebugToEnd), the unknown tail of an object
// that a reader keeps, and the replay of such a tail when the object is
// written again.

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamExtData.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/stream/internal/QzStreamObjects.h"

// Array elements taken from binary data at a time: an array grows only as
// its data turn out to be there, whatever count the data claim.
static constexpr LtInt32 kCopyPieceElements = 65536;
// Room for a token word of up to 127 characters.
static constexpr int kTokenWordBytes = 128;

int QzReadStream::CopyDebugToEnd(QzWriteStream *writer)
{
    if (writer == nullptr || !IsDebug() || !writer->IsDebug())
        return 0;
    if (m_objects)
        CopyDebugData(writer, 0);
    return End(0);
}

int QzReadStream::CopyAllDebugData(QzWriteStream *writer)
{
    if (writer == nullptr || !IsDebug() || !writer->IsDebug())
        return 0;
    while (m_objects && !AtEndOfData()) {
        CopyDebugData(writer, 0);
        writer->WriteSync();
    }
    return End(0);
}

void QzReadStream::CopyDebugData(QzWriteStream *writer, int until_end_def)
{
    int nesting = 0;  // definitions begun within the copy and not yet ended
    while (!IsError()) {
        switch (ReadDebugToken()) {
        case eTOKEN_BAD:
            return;  // an error, reported where it was found
        case eTOKEN_SYNC:
            FinishSync();
            if (!until_end_def)
                return;
            writer->WriteSync();
            break;
        case eTOKEN_NAT8:
            CopyScalar(writer, &QzReadStream::ReadNat8, &QzWriteStream::WriteNat8);
            break;
        case eTOKEN_INT16:
            CopyScalar(writer, &QzReadStream::ReadInt16, &QzWriteStream::WriteInt16);
            break;
        case eTOKEN_NAT16:
            CopyScalar(writer, &QzReadStream::ReadNat16, &QzWriteStream::WriteNat16);
            break;
        case eTOKEN_INT32:
            CopyScalar(writer, &QzReadStream::ReadInt32, &QzWriteStream::WriteInt32);
            break;
        case eTOKEN_NAT32:
            CopyScalar(writer, &QzReadStream::ReadNat32, &QzWriteStream::WriteNat32);
            break;
        case eTOKEN_SINGLE:
            CopyScalar(writer, &QzReadStream::ReadSingle, &QzWriteStream::WriteSingle);
            break;
        case eTOKEN_DOUBLE:
            CopyScalar(writer, &QzReadStream::ReadDouble, &QzWriteStream::WriteDouble);
            break;
        case eTOKEN_FLOAT:
            CopyScalar(writer, &QzReadStream::ReadFloat, &QzWriteStream::WriteFloat);
            break;
        case eTOKEN_BOOLEAN: {
            // The stored word as it is: a boolean read as such keeps only 0 or 1.
            LtNat32 value = 0;
            {
                QzStreamDebugScope const raw(this, 0);
                value = ReadEnum();
            }
            writer->SendDebug(eTOKEN_BOOLEAN);
            writer->SendNat32(value);
            break;
        }
        case eTOKEN_ENUM:
            CopyScalar(writer, &QzReadStream::ReadEnum, &QzWriteStream::WriteEnum);
            break;
        case eTOKEN_BITFIELD:
            CopyScalar(writer, &QzReadStream::ReadBitfield, &QzWriteStream::WriteBitfield);
            break;
        case eTOKEN_STRING: {
            QzStringBuffer text;
            {
                QzStreamDebugScope const raw(this, 0);
                ReadString(&text);
            }
            if (!IsError())
                writer->WriteString(text.GetString(), text.GetLength());
            break;
        }
        case eTOKEN_NAT8_ARRAY:
            CopyArray(writer, &QzReadStream::ReadNat8Array, &QzWriteStream::WriteNat8Array);
            break;
        case eTOKEN_INT16_ARRAY:
            CopyArray(writer, &QzReadStream::ReadInt16Array, &QzWriteStream::WriteInt16Array);
            break;
        case eTOKEN_NAT16_ARRAY:
            CopyArray(writer, &QzReadStream::ReadNat16Array, &QzWriteStream::WriteNat16Array);
            break;
        case eTOKEN_INT32_ARRAY:
            CopyArray(writer, &QzReadStream::ReadInt32Array, &QzWriteStream::WriteInt32Array);
            break;
        case eTOKEN_NAT32_ARRAY:
            CopyArray(writer, &QzReadStream::ReadNat32Array, &QzWriteStream::WriteNat32Array);
            break;
        case eTOKEN_SINGLE_ARRAY:
            CopyArray(writer, &QzReadStream::ReadSingleArray, &QzWriteStream::WriteSingleArray);
            break;
        case eTOKEN_DOUBLE_ARRAY:
            CopyArray(writer, &QzReadStream::ReadDoubleArray, &QzWriteStream::WriteDoubleArray);
            break;
        case eTOKEN_FLOAT_ARRAY:
            CopyArray(writer, &QzReadStream::ReadFloatArray, &QzWriteStream::WriteFloatArray);
            break;
        case eTOKEN_NAT64_ARRAY:
            CopyArray(writer, &QzReadStream::ReadNat64Array, &QzWriteStream::WriteNat64Array);
            break;
        case eTOKEN_NAT64:
            CopyScalar(writer, &QzReadStream::ReadNat64, &QzWriteStream::WriteNat64);
            break;
        case eTOKEN_OBJECT:
            CopyObjectHead(writer, &nesting);
            break;
        case eTOKEN_OBJECT_END_DEF:
            if (nesting == 0) {
                if (!until_end_def)
                    ReportParseError("Debug Token!", GetDebugTokenName(eTOKEN_OBJECT_END_DEF));
                return;  // the end of the object whose tail this is
            }
            --nesting;
            if (IsAscii())
                CheckAscii("}");
            writer->SendObjectDefEnd();
            break;
        default:
            return;  // ReadDebugToken gives no other value
        }
    }
}

int QzReadStream::ReadDebugToken()
{
    if (IsAscii()) {
        char word[kTokenWordBytes];
        GetAscii(word, kTokenWordBytes);
        if (IsError())
            return eTOKEN_BAD;
        for (int token = eTOKEN_SYNC; token < eTOKEN_COUNT; ++token) {
            if (std::strcmp(word, GetDebugTokenName(token)) == 0)
                return token;
        }
        ReportParseError("Debug Token!", word);
        return eTOKEN_BAD;
    }
    LtInt32 const token = GetInt32();
    if (IsError())
        return eTOKEN_BAD;
    // Bad is never sent, so it is refused like any number outside the table.
    if (token > eTOKEN_BAD && token < eTOKEN_COUNT)
        return token;
    ReportParseError("Debug Token!", QzStreamDecimal(token).text);
    return eTOKEN_BAD;
}

void QzReadStream::FinishSync()
{
    if (!IsAscii()) {
        if (m_alignment != 0)
            (void)AlignCursor(8);
        return;
    }
    // GetAscii left the line end of the token's line unread.
    char c = 0;
    if ((!TakeChar(&c) || (c != '\n' && c != '\r')) && !IsError())
        SetError(ErrorParse);
}

void QzReadStream::CopyObjectHead(QzWriteStream *writer, int *nesting)
{
    unsigned id = 0;
    int entry = -1;
    switch (GetObjectHeader(&id, &entry)) {
    case eOBJECT_BAD:
        return;
    case eOBJECT_NULL:
        writer->SendObjectNull();
        return;
    case eOBJECT_USE:
        // Ids stay as they are: the writer numbers definitions in the same
        // order as the data.
        writer->SendObjectUse(id);
        return;
    case eOBJECT_DEF:
        break;
    }
    if (id != m_next_object_id) {
        SetError(ErrorBadObjectId);
        return;
    }
    // The object is not made here; its id keeps an empty slot, so that later
    // ids stay in step and a use of it reads as null.
    (void)TakeObjectSlot();
    writer->SendObjectDefHead(writer->TakeObjectId(), entry);
    ++*nesting;
}

template <typename Value>
void QzReadStream::CopyScalar(QzWriteStream *writer, Value (QzReadStream::*read)(),
                              void (QzWriteStream::*write)(Value))
{
    Value value{};
    {
        QzStreamDebugScope const raw(this, 0);  // the token was taken already
        value = (this->*read)();
    }
    if (!IsError())
        (writer->*write)(value);
}

template <typename Value>
void QzReadStream::CopyArray(QzWriteStream *writer, void (QzReadStream::*read)(Value *, LtInt32),
                             void (QzWriteStream::*write)(Value const *, LtInt32))
{
    // The count stands with the token, not with the values.
    LtInt32 const count = GetInt32();
    if (IsError())
        return;
    if (count < 0) {
        SetError(ErrorParse);
        return;
    }
    std::vector<Value> values;
    {
        QzStreamDebugScope const raw(this, 0);
        // Ascii values are taken one at a time, each without brackets, inside
        // the array's own brackets.
        bool const is_bracketed = IsAscii() && count != 1;
        LtInt32 const piece = IsAscii() ? 1 : kCopyPieceElements;
        if (is_bracketed)
            CheckAscii("[");
        while (static_cast<LtInt32>(values.size()) < count && !IsError()) {
            auto const taken = static_cast<LtInt32>(values.size());
            LtInt32 const wanted = std::min(piece, count - taken);
            values.resize(values.size() + static_cast<std::size_t>(wanted));
            (this->*read)(values.data() + taken, wanted);
        }
        if (is_bracketed)
            CheckAscii("]");
    }
    if (!IsError())
        (writer->*write)(values.data(), count);
}

void QzReadStream::ReplayTail(QzStreamExtData const &ext, QzWriteStream *writer)
{
    // Reading leaves the bytes as they are; the buffer only lends them.
    QzStreamBuffer bytes;
    if (!bytes.SetBuffer(const_cast<unsigned char *>(ext.GetData()), ext.GetSize(),
                         QzStreamBuffer::HintUseIfAligned)) {
        writer->SetError(ErrorObjectWrite);
        return;
    }
    QzReadStream tail(&bytes);
    tail.SetAscii(0);
    tail.SetDebug(1);
    tail.SetDouble(1);
    tail.SetFormat(writer->GetFormat());
    if (!tail.Begin(0, 0)) {
        writer->SetError(ErrorObjectWrite);
        return;
    }
    // A tail numbers entries by the format that it was kept with, which is
    // the writer's: every entry stands for itself, extensions included.
    std::vector<int> &entry_map = tail.m_objects->entry_map;
    entry_map.resize(static_cast<std::size_t>(writer->GetFormat()->GetNumEntries()));
    std::iota(entry_map.begin(), entry_map.end(), 0);
    // The tail ends with the sync of its own writer's End; one that the
    // object's write method sent stands within it, and goes on to the writer.
    // The buffer lends all its bytes as one block.
    for (;;) {
        tail.CopyDebugData(writer, 0);
        if (tail.IsError() || tail.m_alignment == 0 || tail.m_cursor == tail.m_block_end)
            break;
        writer->WriteSync();
    }
    if (!tail.End(0) && !writer->IsError())
        writer->SetError(tail.GetError());
}
