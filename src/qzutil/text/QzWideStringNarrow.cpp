// QzWideStringNarrow.cpp: QzWideString's conversions of UTF-16 to 8-bit
// text: UTF-8 with or without combining surrogate pairs, the multi-byte code
// page, and 7-bit text.
#include "qzutil/sys/QzSysString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"

static bool IsHighSurrogate(LtNat32 unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

static bool IsLowSurrogate(LtNat32 unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// The code point that starts at text[*at], advancing *at past it. With
// `combine` a surrogate pair is one code point; any other surrogate stands
// for itself.
static LtNat32 NextCodePoint(LtWChar const *text, int *at, bool combine)
{
    LtNat32 unit = text[(*at)++];
    if (combine && IsHighSurrogate(unit) && IsLowSurrogate(text[*at])) {
        LtNat32 low = text[(*at)++];
        return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    return unit;
}

static int EncodedSize(LtNat32 code_point)
{
    if (code_point < 0x80)
        return 1;
    if (code_point < 0x800)
        return 2;
    if (code_point < 0x10000)
        return 3;
    return 4;
}

// Writes the UTF-8 form of `code_point` at `out`; returns the bytes written.
static int EncodeUTF8(LtNat32 code_point, char *out)
{
    int size = EncodedSize(code_point);
    static constexpr unsigned kLeadMarks[] = {0x00, 0x00, 0xC0, 0xE0, 0xF0};
    for (int i = size - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (code_point & 0x3F));
        code_point >>= 6;
    }
    out[0] = static_cast<char>(kLeadMarks[size] | code_point);
    return size;
}

void QzWideString::ExtractUTF8StringImpl(LtWChar const *text, QzStringBuffer *out, bool combine)
{
    if (out == nullptr)
        return;
    if (text == nullptr) {
        out->SetString(static_cast<char const *>(nullptr));
        return;
    }
    if (*text == 0) {
        out->SetEmptyString();
        return;
    }
    // Size first, so the output takes one block of the right size.
    LtInt64 size = 0;
    for (int at = 0; text[at] != 0;)
        size += EncodedSize(NextCodePoint(text, &at, combine));
    if (size >= 0x7FFFFFFF)
        size = 0x7FFFFFFF;  // beyond any block: Reserve's size check ends the process
    out->Reserve(static_cast<int>(size));
    if (out->GetAllocationSize() <= size)
        return;  // no memory
    char *bytes = out->BeginEditBuffer();
    int written = 0;
    for (int at = 0; text[at] != 0;)
        written += EncodeUTF8(NextCodePoint(text, &at, combine), bytes + written);
    out->EndEditBuffer(written);
}

void QzWideString::ExtractUTF8String(LtWChar const *text, QzStringBuffer *out)
{
    ExtractUTF8StringImpl(text, out, /*combine=*/true);
}

void QzWideString::ExtractUTF8StringTY10(LtWChar const *text, QzStringBuffer *out)
{
    ExtractUTF8StringImpl(text, out, /*combine=*/false);
}

int QzWideString::ExtractMultiString(LtWChar const *text, QzStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    if (text == nullptr) {
        out->SetString(static_cast<char const *>(nullptr));
        return 1;
    }
    // Both counts include the terminator, which is converted too.
    int needed = QzSysString::WideCharToMultiByte(text, -1, nullptr, 0);
    if (needed <= 0) {
        out->SetString("WCSTOMBS CONVERSION FAILED!");
        return 0;
    }
    out->Reserve(needed - 1);
    int written = 0;
    if (out->GetAllocationSize() >= needed)
        written = QzSysString::WideCharToMultiByte(text, -1, out->BeginEditBuffer(),
                                                   out->GetAllocationSize());
    if (written <= 0) {
        out->EndEditBuffer(0);
        out->SetString("WCSTOMBS INTERNAL FAILURE!");
        return 0;
    }
    out->EndEditBuffer(written - 1);
    return 1;
}

int QzWideString::TryExtractAsciiString(LtWChar const *text, QzStringBuffer *out)
{
    if (out == nullptr)
        return 0;
    if (text == nullptr) {
        out->SetString(static_cast<char const *>(nullptr));
        return 1;
    }
    if (!IsValidAscii(text)) {
        out->SetString("NOT AN ASCII STRING");
        return 0;
    }
    int length = GetLength(text);
    out->Reserve(length);
    if (out->GetAllocationSize() <= length)
        return 0;  // no memory
    char *bytes = out->BeginEditBuffer();
    for (int i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(text[i]);
    out->EndEditBuffer(length);
    return 1;
}

void QzWideString::ExtractAsciiString(LtWChar const *text, QzStringBuffer *out)
{
    (void)TryExtractAsciiString(text, out);  // the complaint stands in the text
}
