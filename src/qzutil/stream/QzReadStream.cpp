// QzReadStream.cpp: a reading run (Begin, End), the blocks taken from the
// head of the chain, and the binary forms of values, strings and bits.

#include "qzutil/stream/QzReadStream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzStreamSink.h"
#include "qzutil/stream/internal/QzStreamObjects.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzWideString.h"

QzReadStream::QzReadStream(QzStreamSink *sink) : QzStream(sink)
{}

QzReadStream::~QzReadStream() = default;

// ---------------------------------------------------------------------------
// The run

int QzReadStream::Begin(int read_config, int check_format)
{
    SetError(ErrorNone);
    ResetBlockState();
    m_end_of_data = 0;
    m_line_number = 1;
    m_current_read_version = 0;
    m_objects.reset();
    QzStreamSink *const sink = GetSink();
    if (read_config) {
        if (sink == nullptr || !sink->ReadBegin(this)) {
            // Only posted: a refused ReadBegin leaves the error as it was.
            PostError(ErrorReadBegin, sink, "ReadBegin failed");
            SetError(ErrorNone);
            return 0;
        }
        // The header line travels around the filters, so it is read from
        // the sink itself before the chain is wired.
        SetHead(sink);
        bool is_begun = ReadConfig(check_format) != 0;
        if (is_begun) {
            ProcessedBlock();
            is_begun = !IsError() && InitChain(0, 0);
        }
        if (!is_begun) {
            ResetBlockState();
            SetHead(nullptr);
            // The run failed already and its error says why.
            (void)sink->ReadEnd();
            return 0;
        }
    } else {
        if (GetFormat() != nullptr)
            m_current_read_version = GetFormat()->GetVersion();
        if (sink == nullptr) {
            PostError(ErrorReadBegin, sink, "ReadBegin failed");
            return 0;
        }
        if (!InitChain(0, 1))
            return 0;
    }
    m_objects = std::make_unique<QzStreamReadObjects>();
    m_extended_format.reset();  // an earlier run's; the format itself stays as it is
    m_current_read_format = GetFormat();
    m_next_object_id = 100;
    FillEntryMap();
    if (read_config && check_format) {
        ReadExtensions();
        if (IsError()) {
            ResetBlockState();
            (void)ClearChain(0, 1);  // the extension list's error stays the reason
            m_objects.reset();
            return 0;
        }
    }
    return 1;
}

int QzReadStream::End(int check)
{
    if (!m_objects)
        return 0;
    if (check) {
        if (m_alignment != 0)
            ReadSync();
        if (IsAscii())
            CheckTrailingWhiteSpace();
    }
    ProcessedBlock();
    (void)ClearChain(0, 1);  // failures are posted and set the error
    DisposeDataObjects();
    m_objects.reset();
    return IsError() ? 0 : 1;
}

// ---------------------------------------------------------------------------
// Blocks

void QzReadStream::ResetBlockState()
{
    m_alignment = 0;
    m_block_start = nullptr;
    m_block_end = nullptr;
    m_cursor = nullptr;
}

void QzReadStream::ProcessedBlock()
{
    if (m_alignment == 0)
        return;
    int const consumed = static_cast<int>(m_cursor - m_block_start);
    ResetBlockState();
    QzStreamSink *const head = GetHead();
    if (head != nullptr && !head->ReadProcess(consumed) && !IsError())
        PostError(ErrorReadProcess, head, "Sink couldn't process data");
}

int QzReadStream::GetBlock()
{
    if (IsError() || m_end_of_data)
        return 0;
    if (m_alignment != 0 && m_cursor != m_block_end) {
        // A value straddles the block end; sinks and filters must hand out
        // whole values, which blocks of a multiple of 8 bytes guarantee.
        SetError(ErrorEndOfData);
        return 0;
    }
    ProcessedBlock();
    QzStreamSink *const head = GetHead();
    if (IsError())
        return 0;
    if (head == nullptr) {
        SetError(ErrorNotBegun);  // a Begin that failed, or a run that ended
        return 0;
    }
    unsigned char const *buffer = nullptr;
    int size = 0;
    if (head->ReadLock(&buffer, &size) != QzFileURL::eSTATUS_OK) {
        PostError(ErrorReadLock, head, "Read Failed");
        return 0;
    }
    if (buffer == nullptr || size <= 0) {
        m_end_of_data = 1;
        return 0;
    }
    if (!IsAscii() && reinterpret_cast<std::uintptr_t>(buffer) % 8 != 0) {
        PostError(ErrorAlignment, head, "Block does not have 8 byte alignment");
        return 0;
    }
    m_block_start = buffer;
    m_cursor = buffer;
    m_block_end = buffer + size;
    m_alignment = IsAscii() ? 1 : 8;
    return 1;
}

int QzReadStream::GetBlockOrFail()
{
    if (GetBlock())
        return 1;
    if (!IsError())
        PostError(ErrorEndOfData, this, "Unexpected end of data");
    return 0;
}

bool QzReadStream::AlignCursor(int alignment)
{
    if (IsError())
        return false;
    if (m_alignment == 0 && !GetBlockOrFail())
        return false;
    if (m_alignment >= alignment)
        return true;
    // Offsets count from the block start, which is 8-aligned in binary.
    auto const offset = static_cast<std::size_t>(m_cursor - m_block_start);
    std::size_t const padding = (0 - offset) & static_cast<std::size_t>(alignment - 1);
    auto const left = static_cast<std::size_t>(m_block_end - m_cursor);
    bool is_zero = padding <= left;
    for (std::size_t i = 0; is_zero && i < padding; ++i)
        is_zero = m_cursor[i] == 0;
    if (!is_zero) {
        PostError(ErrorMalformed, this, "Malformed data");
        return false;
    }
    // Padding that ends the block leaves the cursor at its end; the next
    // read fetches the following block, and a run may end there.
    m_cursor += padding;
    m_alignment = alignment;
    return true;
}

void QzReadStream::RequireAlignment(int alignment)
{
    // Text carries no padding; other alignments than these do not occur.
    if (IsAscii() || (alignment != 2 && alignment != 4 && alignment != 8))
        return;
    (void)AlignCursor(alignment);
}

void QzReadStream::ReadSync()
{
    CheckDebug(eTOKEN_SYNC);
    if (IsError())
        return;
    if (!IsAscii()) {
        // Without a block the position is a block start, aligned already.
        if (m_alignment != 0)
            (void)AlignCursor(8);
        return;
    }
    if (IsDebug()) {
        char c = 0;
        if ((!TakeChar(&c) || (c != '\n' && c != '\r')) && !IsError())
            SetError(ErrorParse);
    }
}

// ---------------------------------------------------------------------------
// Binary values

void QzReadStream::GetBinaryValues(void *values, int size, LtInt32 count)
{
    auto *out = static_cast<unsigned char *>(values);
    std::size_t remaining =
        count > 0 ? static_cast<std::size_t>(count) * static_cast<std::size_t>(size) : 0;
    std::size_t const whole_elements = ~static_cast<std::size_t>(size - 1);
    while (remaining > 0 && AlignCursor(size)) {
        std::size_t const available =
            static_cast<std::size_t>(m_block_end - m_cursor) & whole_elements;
        if (available == 0) {
            if (!GetBlockOrFail())
                break;
            continue;
        }
        std::size_t const run = std::min(available, remaining);
        std::memcpy(out, m_cursor, run);
        out += run;
        m_cursor += run;
        remaining -= run;
        m_alignment = size;
    }
    // Callers always get defined memory, whatever went wrong.
    if (remaining > 0)
        std::memset(out, 0, remaining);
}

template <typename Value>
void QzReadStream::GetValues(Value *values, LtInt32 count)
{
    if (!IsAscii()) {
        GetBinaryValues(values, static_cast<int>(sizeof(Value)), count);
        return;
    }
    ValueKind kind = eKIND_DOUBLE;
    if constexpr (std::is_same_v<Value, LtNat8>)
        kind = eKIND_NAT8;
    else if constexpr (std::is_same_v<Value, LtInt16>)
        kind = eKIND_INT16;
    else if constexpr (std::is_same_v<Value, LtNat16>)
        kind = eKIND_NAT16;
    else if constexpr (std::is_same_v<Value, LtInt32>)
        kind = eKIND_INT32;
    else if constexpr (std::is_same_v<Value, LtNat32>)
        kind = eKIND_NAT32;
    else if constexpr (std::is_same_v<Value, LtNat64>)
        kind = eKIND_NAT64;
    else if constexpr (std::is_same_v<Value, LtSingle>)
        kind = eKIND_SINGLE;
    else
        static_assert(std::is_same_v<Value, LtDouble>, "no ascii form for this type");
    ScanAsciiValues(values, kind, count);
}

// Kept out of line so that the fast path of ReadScalar needs no stack frame.
template <typename Value>
__attribute__((noinline)) Value QzReadStream::ReadScalarSlow(DebugToken token)
{
    Value value;
    CheckDebug(token);
    GetValues(&value, 1);
    return value;
}

// The slow path that the inline scalars of the header call.
template LtNat8 QzReadStream::ReadScalarSlow<LtNat8>(DebugToken);
template LtInt16 QzReadStream::ReadScalarSlow<LtInt16>(DebugToken);
template LtNat16 QzReadStream::ReadScalarSlow<LtNat16>(DebugToken);
template LtInt32 QzReadStream::ReadScalarSlow<LtInt32>(DebugToken);
template LtNat32 QzReadStream::ReadScalarSlow<LtNat32>(DebugToken);
template LtNat64 QzReadStream::ReadScalarSlow<LtNat64>(DebugToken);
template LtSingle QzReadStream::ReadScalarSlow<LtSingle>(DebugToken);
template LtDouble QzReadStream::ReadScalarSlow<LtDouble>(DebugToken);

template <typename Value>
void QzReadStream::ReadArray(Value *values, LtInt32 count, DebugToken token)
{
    CheckDebug(token, count);
    GetValues(values, count);
}

void QzReadStream::CheckDebug(DebugToken token)
{
    if (!IsDebug() || IsError())
        return;
    if (IsAscii()) {
        CheckAscii(GetDebugTokenName(token));
        return;
    }
    LtInt32 read = 0;
    GetBinaryValues(&read, 4, 1);
    if (!IsError() && read != token)
        ReportParseError(static_cast<int>(token), read);
}

void QzReadStream::CheckDebug(DebugToken token, LtInt32 count)
{
    if (!IsDebug() || IsError())
        return;
    LtInt32 read[2] = {};
    if (IsAscii()) {
        CheckAscii(GetDebugTokenName(token));
        read[0] = token;
        ScanAsciiValues(&read[1], eKIND_INT32, 1);
    } else {
        GetBinaryValues(read, 4, 2);
    }
    if (IsError())
        return;
    if (read[0] != token)
        ReportParseError(static_cast<int>(token), read[0]);
    else if (read[1] != count)
        ReportParseError(count, read[1]);
}

LtSingle QzReadStream::ReadSingle()
{
    LtSingle const value = ReadScalar<LtSingle>(eTOKEN_SINGLE);
    return IsError() ? 0.0f : value;
}

LtFloat QzReadStream::ReadFloat()
{
    if (IsDouble())
        return ReadScalar<LtDouble>(eTOKEN_FLOAT);
    return ReadScalar<LtSingle>(eTOKEN_FLOAT);
}

LtInt32 QzReadStream::ReadArraySize32()
{
    LtInt32 const size = ReadScalar<LtInt32>(eTOKEN_INT32);
    if (size >= 0)
        return size;
    SetError(ErrorParse);
    return 0;
}

LtInt32 QzReadStream::ReadArraySize32WithMaximum(int maximum)
{
    LtInt32 const size = ReadArraySize32();
    if (size <= maximum)
        return size;
    SetError(ErrorParse);
    return 0;
}

void QzReadStream::ReadInt8Array(LtInt8 *values, LtInt32 count)
{
    // Int8 travels as Nat8, bit for bit.
    ReadArray(reinterpret_cast<LtNat8 *>(values), count, eTOKEN_NAT8_ARRAY);
}

void QzReadStream::ReadNat8Array(LtNat8 *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_NAT8_ARRAY);
}

void QzReadStream::ReadInt16Array(LtInt16 *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_INT16_ARRAY);
}

void QzReadStream::ReadNat16Array(LtNat16 *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_NAT16_ARRAY);
}

void QzReadStream::ReadInt32Array(LtInt32 *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_INT32_ARRAY);
}

void QzReadStream::ReadNat32Array(LtNat32 *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_NAT32_ARRAY);
}

void QzReadStream::ReadNat64Array(LtNat64 *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_NAT64_ARRAY);
}

void QzReadStream::ReadSingleArray(LtSingle *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_SINGLE_ARRAY);
}

void QzReadStream::ReadDoubleArray(LtDouble *values, LtInt32 count)
{
    ReadArray(values, count, eTOKEN_DOUBLE_ARRAY);
}

void QzReadStream::ReadFloatArray(LtFloat *values, LtInt32 count)
{
    if (IsDouble()) {
        ReadArray(values, count, eTOKEN_FLOAT_ARRAY);
        return;
    }
    // A single stream: the singles land in the front half of the caller's
    // array and are widened from the back, so that each double overwrites
    // only singles already widened. All access is bytewise (memcpy).
    auto *bytes = reinterpret_cast<unsigned char *>(values);
    ReadArray(reinterpret_cast<LtSingle *>(values), count, eTOKEN_FLOAT_ARRAY);
    for (LtInt32 i = count; i-- > 0;) {
        LtSingle single;
        std::memcpy(&single, bytes + sizeof(LtSingle) * static_cast<std::size_t>(i), sizeof single);
        LtFloat const wide = single;
        std::memcpy(bytes + sizeof(LtFloat) * static_cast<std::size_t>(i), &wide, sizeof wide);
    }
}

LtInt16 QzReadStream::GetInt16()
{
    LtInt16 value;
    GetValues(&value, 1);
    return value;
}

LtInt32 QzReadStream::GetInt32()
{
    LtInt32 value;
    GetValues(&value, 1);
    return value;
}

LtNat8 QzReadStream::GetNat8()
{
    LtNat8 value;
    GetValues(&value, 1);
    return value;
}

LtNat16 QzReadStream::GetNat16()
{
    LtNat16 value;
    GetValues(&value, 1);
    return value;
}

LtNat32 QzReadStream::GetNat32()
{
    LtNat32 value;
    GetValues(&value, 1);
    return value;
}

LtNat64 QzReadStream::GetNat64()
{
    LtNat64 value;
    GetValues(&value, 1);
    return value;
}

// ---------------------------------------------------------------------------
// Strings

void QzReadStream::ReadString(QzStringBuffer *out)
{
    CheckDebug(eTOKEN_STRING);
    if (IsAscii())
        ReadQuotedString(out);
    else
        ReadBinaryString(out);
    if (IsError())
        out->SetString(nullptr);
}

void QzReadStream::ReadBinaryString(QzStringBuffer *out)
{
    LtInt32 length = 0;
    GetValues(&length, 1);
    if (IsError() || length == -1) {
        out->SetString(nullptr);
        return;
    }
    if (length < -1 || length > kMaxStringLength) {
        QzStringBuffer number;
        number.Format("%d", length);
        ReportParseError("String length", number.GetString());
        return;
    }
    // The bytes as they come, in runs up to each block end. The room grows
    // with the bytes that really arrive (doubling), so that a length read
    // from hostile data costs no more memory than the data behind it.
    auto const wanted = static_cast<std::size_t>(length);
    out->SetEmptyString();
    char *text = out->BeginEditBuffer();
    std::size_t done = 0;
    while (done < wanted) {
        if (m_cursor == m_block_end && !GetBlockOrFail())
            break;
        std::size_t const run =
            std::min(wanted - done, static_cast<std::size_t>(m_block_end - m_cursor));
        if (done + run >= static_cast<std::size_t>(out->GetAllocationSize())) {
            out->EndEditBuffer(static_cast<int>(done));
            out->Reserve(static_cast<int>(std::min(wanted, std::max(done + run, 2 * done))));
            text = out->BeginEditBuffer();
        }
        std::memcpy(text + done, m_cursor, run);
        m_line_number += static_cast<int>(std::count(m_cursor, m_cursor + run, '\n'));
        m_cursor += run;
        m_alignment = 1;
        done += run;
    }
    // A NUL in the data ends the text there; the rest was consumed all the same.
    void const *const nul = std::memchr(text, '\0', done);
    out->EndEditBuffer(nul ? static_cast<int>(static_cast<char const *>(nul) - text)
                           : static_cast<int>(done));
}

void QzReadStream::ReadWideString(QzWideStringBuffer *out)
{
    WideStringEncoding const encoding = GetWideStringEncoding();
    if (encoding == eWIDE_MULTIBYTE) {
        ReadString(&m_temp_buffer2);
        QzString::MultiToWideString(m_temp_buffer2.GetString(), out);
        return;
    }
    // Writers send nothing at all for an encoding that they do not know.
    if (encoding != eWIDE_UTF8 && encoding != eWIDE_UTF8_UNITS) {
        out->SetString(nullptr);
        return;
    }
    // The older per-unit form decodes as UTF-8 too: encoded surrogates are
    // taken and pair up again.
    ReadString(&m_temp_buffer2);
    if (!QzString::UTF8ToWideStringImpl(m_temp_buffer2.GetString(), m_temp_buffer2.GetLength(),
                                        out) &&
        !IsError())
        SetError(ErrorParse);
}

char const *QzReadStream::ReadStringUsingTempBuffer()
{
    ReadString(&m_temp_buffer);
    return m_temp_buffer.GetString();
}

LtWChar const *QzReadStream::ReadWideStringUsingTempBuffer()
{
    ReadWideString(&m_temp_wide_buffer);
    return m_temp_wide_buffer.GetString();
}

// ---------------------------------------------------------------------------
// Bits, from the top of each 32-bit word down

void QzReadStream::BeginBits()
{
    m_bit_accumulator = 0;
    m_bits_left = 0;
    m_bit_words = 0;
}

unsigned QzReadStream::ReadBits(unsigned char bits)
{
    // A value of more than 32 bits cannot have been written.
    unsigned wanted = std::min<unsigned>(bits, 32);
    LtNat64 value = 0;
    while (wanted > 0) {
        if (m_bits_left == 0) {
            m_bit_accumulator = ReadNat32();
            m_bits_left = 32;
            ++m_bit_words;
        }
        // The unread bits are the low m_bits_left of the word; take the top
        // ones of them. A value split by the writer has its upper bits first.
        unsigned const taken = std::min<unsigned>(wanted, m_bits_left);
        unsigned const shift = m_bits_left - taken;
        LtNat64 const mask = (LtNat64{1} << taken) - 1;
        value = (value << taken) | ((static_cast<LtNat64>(m_bit_accumulator) >> shift) & mask);
        m_bits_left = static_cast<unsigned char>(shift);
        wanted -= taken;
    }
    return static_cast<unsigned>(value);
}

int QzReadStream::EndBits()
{
    m_bits_left = 0;
    m_bit_accumulator = 0;
    return m_bit_words;
}

// ---------------------------------------------------------------------------
// Operators

QzReadStream &QzReadStream::operator>>(signed char &value)
{
    value = ReadInt8();
    return *this;
}

QzReadStream &QzReadStream::operator>>(unsigned char &value)
{
    value = ReadNat8();
    return *this;
}

QzReadStream &QzReadStream::operator>>(short &value)
{
    value = ReadInt16();
    return *this;
}

QzReadStream &QzReadStream::operator>>(unsigned short &value)
{
    value = ReadNat16();
    return *this;
}

QzReadStream &QzReadStream::operator>>(int &value)
{
    value = ReadInt32();
    return *this;
}

QzReadStream &QzReadStream::operator>>(unsigned int &value)
{
    value = ReadNat32();
    return *this;
}

QzReadStream &QzReadStream::operator>>(long &value)
{
    value = static_cast<LtInt64>(ReadNat64());
    return *this;
}

QzReadStream &QzReadStream::operator>>(unsigned long &value)
{
    value = ReadNat64();
    return *this;
}

QzReadStream &QzReadStream::operator>>(long long &value)
{
    value = static_cast<long long>(ReadNat64());
    return *this;
}

QzReadStream &QzReadStream::operator>>(unsigned long long &value)
{
    value = ReadNat64();
    return *this;
}

QzReadStream &QzReadStream::operator>>(float &value)
{
    value = ReadSingle();
    return *this;
}

QzReadStream &QzReadStream::operator>>(double &value)
{
    value = ReadDouble();
    return *this;
}

QzReadStream &QzReadStream::operator>>(bool &value)
{
    value = ReadBoolean();
    return *this;
}

QzReadStream &QzReadStream::operator>>(QzString &text)
{
    QzStringBuffer buffer;
    ReadString(&buffer);
    text.SetString(buffer);
    return *this;
}

QzReadStream &QzReadStream::operator>>(QzStringBuffer &text)
{
    ReadString(&text);
    return *this;
}

QzReadStream &QzReadStream::operator>>(QzWideString &text)
{
    QzWideStringBuffer buffer;
    ReadWideString(&buffer);
    text.SetString(buffer);
    return *this;
}

QzReadStream &QzReadStream::operator>>(QzWideStringBuffer &text)
{
    ReadWideString(&text);
    return *this;
}

QzReadStream &QzReadStream::operator>>(QzStream &(*manipulator)(QzStream &))
{
    manipulator(*this);
    return *this;
}
