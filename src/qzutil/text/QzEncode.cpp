// QzEncode.cpp: the QzEncode component and the hexadecimal, escaped and
// Base64 byte encodings.
#include "qzutil/text/QzEncode.h"

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/internal/QzHexDigits.h"

QzComponent QzEncode::m_component;

void QzEncode::Initialise()
{
    (void)m_component.Initialise("QzEncode", QZ_COMPONENT_INFO);
}

void QzEncode::Terminate()
{
    (void)m_component.Terminate();
}

bool QzEncode::IsInitialised()
{
    return m_component.IsInitialised() != 0;
}

QzComponent *QzEncode::GetComponent()
{
    return &m_component;
}

namespace {

// The output of a decoder: counts every byte, stores it only when there is
// an array, and refuses a byte beyond its size.
class ByteSink {
public:
    ByteSink(unsigned char *out, int out_size) : m_out(out), m_size(out_size) {}

    bool Put(LtNat32 byte)
    {
        if (m_out != nullptr) {
            if (m_count >= m_size)
                return false;
            m_out[m_count] = static_cast<unsigned char>(byte);
        }
        ++m_count;
        return true;
    }

    // Whether `count` bytes in all would fit.
    bool Fits(int count) const { return m_out == nullptr || count <= m_size; }
    int GetCount() const { return m_count; }

private:
    unsigned char *m_out;  // borrowed; null when only counting
    int m_size;            // bytes at m_out
    int m_count = 0;
};

}  // namespace

// Whether the encoder has input; if not, `out` is released. No bytes at a
// null address are still no bytes, as an empty container hands them over.
static bool StartEncoding(unsigned char const *data, int size, QzStringBuffer *out)
{
    if (size < 0 || (data == nullptr && size > 0)) {
        out->SetString(static_cast<char const *>(nullptr));
        return false;
    }
    out->SetEmptyString();
    return true;
}

// The byte of two digits of either case, or -1.
static int ReadHexByte(char high, char low)
{
    int high_value = HexDigitValue(high);
    int low_value = HexDigitValue(low);
    if (high_value < 0 || low_value < 0)
        return -1;
    return high_value * 16 + low_value;
}

// --- Hexadecimal ---

void QzEncode::EncodeHex(unsigned char const *data, int size, QzStringBuffer *out)
{
    if (out == nullptr || !StartEncoding(data, size, out))
        return;
    out->Reserve(size * 2);
    for (int i = 0; i < size; ++i)
        AppendUpperHex(out, data[i], 2);
}

int QzEncode::DecodeHex(char const *text, unsigned char *out, int out_size)
{
    if (text == nullptr)
        return -1;
    int length = QzString::GetLength(text);
    if (length % 2 != 0)
        return -1;
    if (out == nullptr)
        return length / 2;
    ByteSink sink(out, out_size);
    if (!sink.Fits(length / 2))
        return -1;
    for (int i = 0; i < length; i += 2) {
        int byte = ReadHexByte(text[i], text[i + 1]);
        if (byte < 0 || !sink.Put(static_cast<LtNat32>(byte)))
            return -1;
    }
    return sink.GetCount();
}

// --- Hexadecimal escapes ---

static constexpr char kHexEscape = '/';

// Letters and digits of ASCII, whatever the locale.
static bool StandsForItself(unsigned char byte)
{
    return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= 'a' && byte <= 'z');
}

void QzEncode::EncodeHexEscaped(unsigned char const *data, int size, QzStringBuffer *out)
{
    if (out == nullptr || !StartEncoding(data, size, out))
        return;
    for (int i = 0; i < size; ++i) {
        if (StandsForItself(data[i])) {
            out->Append(static_cast<char>(data[i]));
        } else {
            out->Append(kHexEscape);
            AppendUpperHex(out, data[i], 2);
        }
    }
}

int QzEncode::DecodeHexEscaped(char const *text, unsigned char *out, int out_size)
{
    if (text == nullptr)
        return -1;
    ByteSink sink(out, out_size);
    for (char const *at = text; *at != 0; ++at) {
        int byte = static_cast<unsigned char>(*at);
        if (byte == kHexEscape) {
            if (at[1] == 0 || at[2] == 0)
                break;
            byte = ReadHexByte(at[1], at[2]);
            if (byte < 0)
                return -1;
            at += 2;
        }
        if (!sink.Put(static_cast<LtNat32>(byte)))
            return -1;
    }
    return sink.GetCount();
}

// --- Base64 ---

static constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
static constexpr char kBase64Pad = '=';

// The 6-bit value of an alphabet character, or -1.
static int Base64Value(char character)
{
    if (character >= 'A' && character <= 'Z')
        return character - 'A';
    if (character >= 'a' && character <= 'z')
        return character - 'a' + 26;
    if (character >= '0' && character <= '9')
        return character - '0' + 52;
    if (character == '+')
        return 62;
    if (character == '/')
        return 63;
    return -1;
}

void QzEncode::EncodeBase64(unsigned char const *data, int size, QzStringBuffer *out)
{
    if (out == nullptr || !StartEncoding(data, size, out))
        return;
    out->Reserve((size + 2) / 3 * 4);
    for (int i = 0; i < size; i += 3) {
        int group_bytes = size - i < 3 ? size - i : 3;
        LtNat32 bits = static_cast<LtNat32>(data[i]) << 16;
        if (group_bytes > 1)
            bits |= static_cast<LtNat32>(data[i + 1]) << 8;
        if (group_bytes > 2)
            bits |= data[i + 2];
        // n bytes give n + 1 characters; padding fills the group to four.
        for (int j = 0; j < 4; ++j)
            out->Append(j <= group_bytes ? kBase64Alphabet[(bits >> (18 - 6 * j)) & 0x3F]
                                         : kBase64Pad);
    }
}

int QzEncode::DecodeBase64(char const *text, unsigned char *out, int out_size)
{
    if (text == nullptr)
        return -1;
    int length = QzString::GetLength(text);
    int body = length;
    while (body > 0 && length - body < 2 && text[body - 1] == kBase64Pad)
        --body;
    if (body < length && length % 4 != 0)
        return -1;
    int tail_characters = body % 4;
    if (tail_characters == 1)
        return -1;
    int total_bytes = body / 4 * 3 + (tail_characters == 0 ? 0 : tail_characters - 1);
    ByteSink sink(out, out_size);
    if (!sink.Fits(total_bytes))
        return -1;

    LtNat32 bits = 0;
    for (int i = 0; i < body; ++i) {
        int value = Base64Value(text[i]);
        if (value < 0)
            return -1;
        bits = (bits << 6) | static_cast<LtNat32>(value);
        if (i % 4 == 3) {
            for (int shift = 16; shift >= 0; shift -= 8)
                (void)sink.Put((bits >> shift) & 0xFF);  // fits: counted above
            bits = 0;
        }
    }
    // Two characters hold one byte and 4 unused bits, three two bytes and 2.
    if (tail_characters > 1) {
        int unused_bits = tail_characters == 2 ? 4 : 2;
        if ((bits & ((1u << unused_bits) - 1)) != 0)
            return -1;
        bits >>= unused_bits;
        for (int shift = (tail_characters - 2) * 8; shift >= 0; shift -= 8)
            (void)sink.Put((bits >> shift) & 0xFF);
    }
    return sink.GetCount();
}
