// QzStringWiden.cpp: QzString's conversions of 8-bit text to UTF-16: the
// UTF-8 decoder with its replacement rules, 7-bit widening and the
// multi-byte code page.
#include "qzutil/sys/QzSysString.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzWideStringBuffer.h"

static constexpr LtWChar kReplacement = 0xFFFD;

// The number of continuation bytes a lead byte announces, or 0 for a byte
// that cannot start a multi-byte sequence (a continuation byte, or 0xF8 up).
static int ContinuationCount(unsigned lead)
{
    if (lead >= 0xF0 && lead <= 0xF7)
        return 3;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 2;
    if (lead >= 0xC0 && lead <= 0xDF)
        return 1;
    return 0;
}

// Whether a decoded value is the shortest form for its sequence length and a
// character at all: overlong forms, U+FFFE, U+FFFF and values above U+10FFFF
// are refused. Encoded surrogates pass.
static bool IsAcceptedValue(LtNat32 value, int continuation_count)
{
    if (value == 0xFFFE || value == 0xFFFF)
        return false;
    switch (continuation_count) {
    case 1:
        return value >= 0x80 && value < 0x800;
    case 2:
        return value >= 0x800 && value < 0x10000;
    default:
        return value >= 0x10000 && value < 0x110000;
    }
}

namespace {

// Writes UTF-16 into a block known to be large enough.
class UnitWriter {
public:
    explicit UnitWriter(LtWChar *out) : m_out(out), m_count(0) {}

    void Put(LtNat32 value)
    {
        if (value < 0x10000) {
            m_out[m_count++] = static_cast<LtWChar>(value);
            return;
        }
        value -= 0x10000;
        m_out[m_count++] = static_cast<LtWChar>(0xD800 + (value >> 10));
        m_out[m_count++] = static_cast<LtWChar>(0xDC00 + (value & 0x3FF));
    }

    int GetCount() const { return m_count; }

private:
    LtWChar *m_out;  // borrowed
    int m_count;     // units written
};

}  // namespace

int QzString::UTF8ToWideString(char const *text, QzWideStringBuffer *out)
{
    return UTF8ToWideStringImpl(text, -1, out);
}

int QzString::UTF8ToWideString(char const *text, int length, QzWideStringBuffer *out)
{
    return UTF8ToWideStringImpl(text, length, out);
}

int QzString::UTF8ToWideStringImpl(char const *text, int length, QzWideStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    if (text == nullptr) {
        out->SetString(static_cast<LtWChar const *>(nullptr));
        return 1;
    }
    if (*text == 0) {
        out->SetEmptyString();
        return 1;
    }
    int text_length = GetLength(text);
    if (length < 0)
        length = text_length;
    // Each byte gives at most one unit (a four-byte sequence gives two).
    out->Reserve(text_length);
    if (out->GetAllocationSize() <= text_length)
        return 0;  // no memory

    auto const *bytes = reinterpret_cast<unsigned char const *>(text);
    UnitWriter writer(out->BeginEditBuffer());
    int is_good = 1;
    // The scan runs to the nul; `length` only bounds multi-byte sequences.
    int at = 0;
    while (bytes[at] != 0) {
        unsigned lead = bytes[at];
        if (lead < 0x80) {
            writer.Put(lead);
            ++at;
            continue;
        }
        int count = ContinuationCount(lead);
        if (count == 0 || at + count >= length) {
            writer.Put(kReplacement);  // stray byte, or sequence cut by `length`
            is_good = 0;
            ++at;
            continue;
        }
        LtNat32 value = lead & (0x3Fu >> count);
        int taken = 1;
        while (taken <= count && (bytes[at + taken] & 0xC0) == 0x80) {
            value = (value << 6) | (bytes[at + taken] & 0x3Fu);
            ++taken;
        }
        if (taken <= count) {
            // One U+FFFD covers the broken sequence and the byte that broke
            // it, unless that byte is the terminator.
            writer.Put(kReplacement);
            is_good = 0;
            at += bytes[at + taken] != 0 ? taken + 1 : taken;
            continue;
        }
        at += count + 1;
        if (!IsAcceptedValue(value, count)) {
            writer.Put(kReplacement);
            is_good = 0;
            continue;
        }
        writer.Put(value);
    }
    out->EndEditBuffer(writer.GetCount());
    return is_good;
}

int QzString::IsValidUTF8(char const *text)
{
    if (IsValidAscii(text))
        return 1;  // null, empty and 7-bit text need no decoding
    QzWideStringBuffer scratch;
    return UTF8ToWideStringImpl(text, -1, &scratch);
}

int QzString::AsciiToWideString(char const *text, QzWideStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    if (text == nullptr) {
        out->SetString(static_cast<LtWChar const *>(nullptr));
        return 1;
    }
    if (*text == 0) {
        out->SetEmptyString();
        return 1;
    }
    int length = GetLength(text);
    // A wide copy of this much text would pass the allocator's largest block.
    constexpr int kMaxUnits = 0x7FF00000 / 2 - 1;
    if (length > kMaxUnits) {
        out->SetString(u"ASCIITOWCS CONVERSION FAILED!");
        return 0;
    }
    out->Reserve(length);
    if (out->GetAllocationSize() <= length)
        return 0;  // no memory
    LtWChar *units = out->BeginEditBuffer();
    for (int i = 0; i < length; ++i) {
        auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x80) {
            out->EndEditBuffer(0);
            out->SetString(u"ASCIITOWCS INTERNAL FAILURE!");
            return 0;
        }
        units[i] = byte;
    }
    out->EndEditBuffer(length);
    return 1;
}

int QzString::MultiToWideString(char const *text, QzWideStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    if (text == nullptr) {
        out->SetString(static_cast<LtWChar const *>(nullptr));
        return 1;
    }
    if (*text == 0) {
        out->SetEmptyString();
        return 1;
    }
    // Both counts include the terminator, which is converted too.
    int needed = QzSysString::MultiByteToWideChar(text, -1, nullptr, 0);
    if (needed <= 0) {
        out->SetString(u"MBSTOWCS CONVERSION FAILED!");
        return 0;
    }
    out->Reserve(needed - 1);
    int written = 0;
    if (out->GetAllocationSize() >= needed)
        written = QzSysString::MultiByteToWideChar(text, -1, out->BeginEditBuffer(),
                                                   out->GetAllocationSize());
    if (written <= 0) {
        out->EndEditBuffer(0);
        out->SetString(u"MBSTOWCS INTERNAL FAILURE!");
        return 0;
    }
    out->EndEditBuffer(written - 1);
    return 1;
}
