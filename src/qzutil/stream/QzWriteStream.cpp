// QzWriteStream.cpp: the run (Begin, End, the header line), the block and
// alignment state of the binary form, the typed writes and their tokens,
// strings, bit packing and the stream operators. The ascii text of values is
// in QzWriteStreamAscii.cpp.

#include "qzutil/stream/QzWriteStream.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "qzutil/stream/QzStreamSink.h"
#include "qzutil/stream/internal/QzStreamObjects.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

// Element bytes by ValueKind; the binary form stores each at this alignment.
static constexpr int kValueSize[] = {1, 2, 2, 4, 4, 8, 4, 8};

QzWriteStream::QzWriteStream(QzStreamSink *sink) : QzStream(sink)
{
    SetSingleDigits(m_single_digits);
    SetDoubleDigits(m_double_digits);
}

QzWriteStream::~QzWriteStream() = default;

// --- The run ---

int QzWriteStream::Begin(int write_config, int write_extensions)
{
    SetError(ErrorNone);
    ResetBlockState();
    m_indent = 2;
    m_objects.reset();
    if (GetSink() == nullptr) {
        PostError(ErrorWriteBegin, this, "WriteBegin failed");
        return 0;
    }
    if (!InitChain(1, 1))
        return 0;  // posted, error 3, and the filters begun so far ended again
    if (write_config) {
        WriteHeader();
        WriteExtensions(write_extensions);
    }
    if (IsError()) {
        ResetBlockState();
        static_cast<void>(ClearChain(1, 1));  // its failures are posted and set the error
        return 0;
    }
    m_objects = std::make_unique<QzStreamWriteObjects>();
    m_next_object_id = 100;
    return 1;
}

void QzWriteStream::WriteHeader()
{
    // The line goes around the filters, in clear, so that a reader can learn
    // from it which filters to put in place.
    QzString const line = GetConfig();
    QzStreamSink *const chain_head = GetHead();
    SetHead(GetSink());
    SendAscii(line.GetString());
    WriteSync();
    SetHead(chain_head);
}

int QzWriteStream::End()
{
    if (!m_objects)
        return 0;
    WriteSync();
    ResetBlockState();                    // only left held after an error; nothing more may go out
    static_cast<void>(ClearChain(1, 1));  // its failures are posted and set the error
    m_objects.reset();
    return !IsError();
}

// --- Blocks and alignment ---

void QzWriteStream::ResetBlockState()
{
    m_alignment = 0;
    m_block_start = nullptr;
    m_block_end = nullptr;
    m_cursor = nullptr;
}

int QzWriteStream::LockBlock()
{
    QzStreamSink *const head = GetHead();
    unsigned char *buffer = nullptr;
    int size = 0;
    if (head == nullptr || !head->WriteLock(&buffer, &size) || buffer == nullptr || size <= 0) {
        PostError(ErrorWriteLock, head, "Write Failed");
        return 0;
    }
    if (!IsAscii() && reinterpret_cast<std::uintptr_t>(buffer) % 8 != 0) {
        PostError(ErrorAlignment, head, "Block is not aligned");
        return 0;
    }
    m_block_start = buffer;
    m_cursor = buffer;
    m_block_end = buffer + size;
    m_alignment = IsAscii() ? 0 : 8;
    return 1;
}

void QzWriteStream::SendBlock()
{
    QzStreamSink *const head = GetHead();
    int const count = static_cast<int>(m_cursor - m_block_start);
    ResetBlockState();
    if (!head->WriteProcess(count))
        PostError(ErrorWriteProcess, head, "Write Failed");
}

bool QzWriteStream::PadZeros(int count)
{
    if (m_block_end - m_cursor < count) {
        SendBlock();
        return false;
    }
    std::memset(m_cursor, 0, static_cast<std::size_t>(count));
    m_cursor += count;
    if (m_cursor == m_block_end) {
        SendBlock();
        return false;
    }
    return true;
}

void QzWriteStream::RequireAlignment(int alignment)
{
    if (IsError())
        return;
    if (m_block_start == nullptr && !LockBlock())
        return;
    if (IsAscii() || m_alignment >= alignment)
        return;
    int const target = alignment < 8 ? alignment : 8;
    // 1, then 2, then 4 zero bytes, each only where the cursor needs it.
    for (int step = 1; step < target; step *= 2) {
        if (((m_cursor - m_block_start) & step) != 0 && !PadZeros(step))
            return;  // the block ended; the next one starts 8-aligned
    }
    m_alignment = target;
}

void QzWriteStream::CopyElements(void const *values, int size, std::size_t count)
{
    auto const *bytes = static_cast<unsigned char const *>(values);
    std::size_t const element = static_cast<std::size_t>(size);
    while (count > 0 && !IsError()) {
        if (m_block_start == nullptr && !LockBlock())
            return;
        std::size_t const room = static_cast<std::size_t>(m_block_end - m_cursor) / element;
        if (room == 0) {
            if (m_cursor == m_block_start) {
                // A fresh block too small for one element would never end.
                ResetBlockState();
                PostError(ErrorWriteLock, GetHead(), "Write Failed");
                return;
            }
            SendBlock();
            continue;
        }
        std::size_t const run = room < count ? room : count;
        std::memcpy(m_cursor, bytes, run * element);
        m_cursor += run * element;
        bytes += run * element;
        count -= run;
        if (!IsAscii())
            m_alignment = size;
        if (m_cursor == m_block_end)
            SendBlock();
    }
}

void QzWriteStream::SendBytes(void const *values, int size, std::size_t count)
{
    if (count == 0 || IsError())
        return;
    RequireAlignment(size);
    CopyElements(values, size, count);
}

void QzWriteStream::SendArray(ValueKind kind, void const *values, LtInt32 count)
{
    if (IsError())
        return;
    if (IsAscii()) {
        SendAsciiArray(kind, values, count);
        return;
    }
    if (count > 0)
        SendBytes(values, kValueSize[kind], static_cast<std::size_t>(count));
}

// The slow paths stay out of line so that the callers' fast paths need no
// stack frame.
template <typename T>
[[gnu::noinline]] void QzWriteStream::SendValueSlow(T value, ValueKind kind)
{
    SendArray(kind, &value, 1);
}

template <typename T>
[[gnu::noinline]] void QzWriteStream::WriteValueSlow(DebugToken token, T value, ValueKind kind)
{
    SendDebug(token);
    if (!StoreFast(value))
        SendArray(kind, &value, 1);
}

// The slow paths that the inline scalars of the header call.
#define QZ_INSTANTIATE_SLOW_PATHS(T)                             \
    template void QzWriteStream::SendValueSlow<T>(T, ValueKind); \
    template void QzWriteStream::WriteValueSlow<T>(DebugToken, T, ValueKind);
QZ_INSTANTIATE_SLOW_PATHS(LtNat8)
QZ_INSTANTIATE_SLOW_PATHS(LtInt16)
QZ_INSTANTIATE_SLOW_PATHS(LtNat16)
QZ_INSTANTIATE_SLOW_PATHS(LtInt32)
QZ_INSTANTIATE_SLOW_PATHS(LtNat32)
QZ_INSTANTIATE_SLOW_PATHS(LtNat64)
QZ_INSTANTIATE_SLOW_PATHS(LtSingle)
QZ_INSTANTIATE_SLOW_PATHS(LtDouble)
#undef QZ_INSTANTIATE_SLOW_PATHS

void QzWriteStream::SendAscii(char const *text)
{
    if (text != nullptr)
        SendBytes(text, 1, std::strlen(text));
}

void QzWriteStream::WriteSync()
{
    if (m_block_start == nullptr || IsError())
        return;
    SendDebug(eTOKEN_SYNC);
    if (!IsAscii() && m_block_start != nullptr)
        RequireAlignment(8);
    if (m_block_start != nullptr)
        SendBlock();
    if (IsError())
        return;
    QzStreamSink *const head = GetHead();
    if (!head->WriteFlush()) {
        PostWarning(ErrorFlush, head, "Flush Failed");
        SetError(ErrorFlush);
    }
}

// --- Undecorated primitives and tokens ---

void QzWriteStream::SendDebug(DebugToken token)
{
    if (!IsDebug() || IsError())
        return;
    if (IsAscii())
        SendAsciiToken(token, nullptr);
    else
        SendValue(static_cast<LtInt32>(token), eVALUE_INT32);
}

void QzWriteStream::SendDebug(DebugToken token, LtInt32 count)
{
    if (!IsDebug() || IsError())
        return;
    if (IsAscii()) {
        SendAsciiToken(token, &count);
        return;
    }
    LtInt32 const pair[2] = {static_cast<LtInt32>(token), count};
    SendBytes(pair, 4, 2);
}

// --- Scalars ---

void QzWriteStream::WriteFloat(LtFloat value)
{
    if (IsDouble())
        WriteValue(eTOKEN_FLOAT, value, eVALUE_DOUBLE);
    else
        WriteValue(eTOKEN_FLOAT, static_cast<LtSingle>(value), eVALUE_SINGLE);
}

// --- Strings ---

void QzWriteStream::SendString(char const *text, int length)
{
    if (IsError())
        return;
    if (length < 0)
        length = 0;
    if (IsAscii()) {
        SendQuotedString(text, static_cast<std::size_t>(length));  // no length limit in ascii
        return;
    }
    if (text == nullptr) {
        SendValue(static_cast<LtInt32>(-1), eVALUE_INT32);
        return;
    }
    if (length > kMaxStringLength) {
        // Not an error: no id of its own, the data are the stream.
        PostWarning(ErrorNone, this, "Truncating string");
        length = kMaxStringLength;
    }
    SendValue(static_cast<LtInt32>(length), eVALUE_INT32);
    SendBytes(text, 1, static_cast<std::size_t>(length));
}

void QzWriteStream::WriteString(char const *text)
{
    std::size_t const length = text != nullptr ? std::strlen(text) : 0;
    WriteString(text, length > INT_MAX ? INT_MAX : static_cast<int>(length));
}

void QzWriteStream::WriteString(char const *text, int length)
{
    SendDebug(eTOKEN_STRING);  // only on a debug stream
    SendString(text, length);
}

void QzWriteStream::WriteWideString(LtWChar const *text)
{
    if (IsError())
        return;
    switch (GetWideStringEncoding()) {
    case eWIDE_UTF8:
        QzWideString::ExtractUTF8StringImpl(text, &m_temp_string, true);
        break;
    case eWIDE_UTF8_UNITS:
        QzWideString::ExtractUTF8StringImpl(text, &m_temp_string, false);
        break;
    case eWIDE_MULTIBYTE:
        // A failed conversion leaves its own marker text, which goes out as
        // the string: the reader then sees that something was lost.
        static_cast<void>(QzWideString::ExtractMultiString(text, &m_temp_string));
        break;
    default:
        return;  // no known encoding: nothing at all, not even the token
    }
    WriteString(m_temp_string.GetString(), m_temp_string.GetLength());
}

// --- Arrays ---

void QzWriteStream::WriteArray(DebugToken token, ValueKind kind, void const *values, LtInt32 count)
{
    SendDebug(token, count);  // only on a debug stream
    SendArray(kind, values, count);
}

void QzWriteStream::WriteInt8Array(LtInt8 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_NAT8_ARRAY, eVALUE_NAT8, values, count);
}

void QzWriteStream::WriteNat8Array(LtNat8 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_NAT8_ARRAY, eVALUE_NAT8, values, count);
}

void QzWriteStream::WriteInt16Array(LtInt16 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_INT16_ARRAY, eVALUE_INT16, values, count);
}

void QzWriteStream::WriteNat16Array(LtNat16 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_NAT16_ARRAY, eVALUE_NAT16, values, count);
}

void QzWriteStream::WriteInt32Array(LtInt32 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_INT32_ARRAY, eVALUE_INT32, values, count);
}

void QzWriteStream::WriteNat32Array(LtNat32 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_NAT32_ARRAY, eVALUE_NAT32, values, count);
}

void QzWriteStream::WriteNat64Array(LtNat64 const *values, LtInt32 count)
{
    WriteArray(eTOKEN_NAT64_ARRAY, eVALUE_NAT64, values, count);
}

void QzWriteStream::WriteSingleArray(LtSingle const *values, LtInt32 count)
{
    WriteArray(eTOKEN_SINGLE_ARRAY, eVALUE_SINGLE, values, count);
}

void QzWriteStream::WriteDoubleArray(LtDouble const *values, LtInt32 count)
{
    WriteArray(eTOKEN_DOUBLE_ARRAY, eVALUE_DOUBLE, values, count);
}

void QzWriteStream::WriteFloatArray(LtFloat const *values, LtInt32 count)
{
    SendDebug(eTOKEN_FLOAT_ARRAY, count);
    if (IsDouble()) {
        SendArray(eVALUE_DOUBLE, values, count);
        return;
    }
    if (IsError())
        return;
    std::vector<LtSingle> singles(count > 0 ? static_cast<std::size_t>(count) : 0);
    for (std::size_t i = 0; i < singles.size(); ++i)
        singles[i] = static_cast<LtSingle>(values[i]);
    SendArray(eVALUE_SINGLE, singles.data(), count);
}

// --- Bit packing ---

void QzWriteStream::BeginBits()
{
    m_bit_accumulator = 0;
    m_bits_left = 32;
    m_bit_words = 0;
}

void QzWriteStream::WriteBits(unsigned value, unsigned char bits)
{
    if (bits == 0)
        return;
    if (bits > 32)
        bits = 32;
    if (bits < 32)
        value &= (1u << bits) - 1;
    if (bits <= m_bits_left) {
        m_bits_left = static_cast<unsigned char>(m_bits_left - bits);
        m_bit_accumulator |= value << m_bits_left;  // at most 31 bits left here
        if (m_bits_left > 0)
            return;
        WriteNat32(m_bit_accumulator);
        ++m_bit_words;
        m_bit_accumulator = 0;
        m_bits_left = 32;
        return;
    }
    // The upper bits finish this word, the lower ones start the next.
    unsigned const rest = bits - m_bits_left;  // 1 to 31
    WriteNat32(m_bit_accumulator | (value >> rest));
    ++m_bit_words;
    m_bits_left = static_cast<unsigned char>(32 - rest);
    m_bit_accumulator = value << m_bits_left;
}

int QzWriteStream::EndBits()
{
    if (m_bits_left < 32) {
        WriteNat32(m_bit_accumulator);
        ++m_bit_words;
        m_bit_accumulator = 0;
        m_bits_left = 32;
    }
    return m_bit_words;
}

// --- Configuration ---

void QzWriteStream::CopyConfig(QzWriteStream const &other)
{
    QzStream::CopyConfig(other);
    SetSingleDigits(other.m_single_digits);
    SetDoubleDigits(other.m_double_digits);
    m_single_zero = other.m_single_zero;
    m_double_zero = other.m_double_zero;
}

// --- Stream operators ---

QzWriteStream &QzWriteStream::operator<<(signed char value)
{
    WriteInt8(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(unsigned char value)
{
    WriteNat8(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(short value)
{
    WriteInt16(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(unsigned short value)
{
    WriteNat16(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(int value)
{
    WriteInt32(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(unsigned int value)
{
    WriteNat32(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(long value)
{
    WriteTime(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(unsigned long value)
{
    WriteNat64(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(long long value)
{
    WriteTime(static_cast<LtInt64>(value));
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(unsigned long long value)
{
    WriteNat64(static_cast<LtNat64>(value));
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(float value)
{
    WriteSingle(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(double value)
{
    WriteDouble(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(bool value)
{
    WriteBoolean(value);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(char const *text)
{
    WriteString(text);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(LtWChar const *text)
{
    WriteWideString(text);
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(QzString const &text)
{
    WriteString(text.GetString(), text.GetLength());
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(QzStringBuffer const &text)
{
    WriteString(text.GetString(), text.GetLength());
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(QzWideString const &text)
{
    WriteWideString(text.GetString());
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(QzWideStringBuffer const &text)
{
    WriteWideString(text.GetString());
    return *this;
}

QzWriteStream &QzWriteStream::operator<<(QzStream &(*manipulator)(QzStream &))
{
    manipulator(*this);
    return *this;
}
