// QzStringConv.cpp: the QzStringConv component, the STEP string decoder and
// the 7-bit form of UTF-16 text.
#include "qzutil/text/QzStringConv.h"

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"
#include "qzutil/text/internal/QzHexDigits.h"
#include "qzutil/text/internal/QzIso8859Tables.h"

QzComponent QzStringConv::m_component;

void QzStringConv::Initialise()
{
    if (!m_component.Initialise("QzStringConv", QZ_COMPONENT_INFO))
        return;
    QzString::Initialise();
}

void QzStringConv::Terminate()
{
    if (!m_component.Terminate())
        return;
    QzString::Terminate();
}

int QzStringConv::IsInitialised()
{
    return m_component.IsInitialised();
}

QzComponent *QzStringConv::GetComponent()
{
    return &m_component;
}

// --- STEP ---

namespace {

// One pass over a STEP string body. Plain bytes are ISO 8859-1, byte for
// code point, so they go to the output at once: that is the same text as
// gathering them and converting at each change of mode, without a buffer.
class StepDecoder {
public:
    StepDecoder(char const *text, QzWideStringBuffer *out) : m_at(text), m_out(out) {}

    // The end of the text ends any groups too: they need no "\X0\".
    bool Run()
    {
        for (int character = Next(); character != 0; character = Next()) {
            bool is_in_groups = m_group_digits != 0;
            bool is_good;
            if (character == '\\')
                is_good = is_in_groups ? ReadGroupEnd() : ReadEscape();
            else
                is_good = is_in_groups ? ReadGroup(character)
                                       : AppendCodePoint(static_cast<LtNat32>(character));
            if (!is_good)
                return false;
        }
        return true;
    }

private:
    // The next byte from 32 to 126, skipping all others; 0 at the end.
    int Next()
    {
        while (*m_at != 0) {
            int byte = static_cast<unsigned char>(*m_at++);
            if (byte >= 32 && byte <= 126)
                return byte;
        }
        return 0;
    }

    // `digits` upper-case digits, the first already read. False for any
    // other character, the end of the text included.
    bool ReadHex(int first, int digits, LtNat32 *value)
    {
        LtNat32 result = 0;
        int character = first;
        for (int i = 0; i < digits; ++i) {
            if (i > 0)
                character = Next();
            int digit = UpperHexDigitValue(character);
            if (digit < 0)
                return false;
            result = (result << 4) | static_cast<LtNat32>(digit);
        }
        *value = result;
        return true;
    }

    // A nul adds nothing, so the output stays one C string.
    bool AppendCodePoint(LtNat32 code_point)
    {
        if (code_point > 0x10FFFF)
            return false;
        if (code_point >= 0x10000) {
            LtNat32 offset = code_point - 0x10000;
            m_out->Append(static_cast<LtWChar>(0xD800 | (offset >> 10)));
            m_out->Append(static_cast<LtWChar>(0xDC00 | (offset & 0x3FF)));
        } else if (code_point != 0) {
            m_out->Append(static_cast<LtWChar>(code_point));
        }
        return true;
    }

    // After a backslash outside the groups.
    bool ReadEscape()
    {
        int kind = Next();
        switch (kind) {
        case 'S': {
            if (Next() != '\\')
                return false;
            int character = Next();
            if (character == 0)
                return false;
            return AppendCodePoint(kIso8859UpperHalves[m_page][character - 32]);
        }
        case 'P': {
            int letter = Next();
            if (letter < 'A' || letter > 'P' || Next() != '\\')
                return false;
            m_page = letter - 'A';
            return true;
        }
        case 'X': {
            int form = Next();
            if (form != '\\')
                return SwitchGroups(form);
            LtNat32 byte = 0;
            return ReadHex(Next(), 2, &byte) && AppendCodePoint(byte);
        }
        default:
            return true;  // dropped with its backslash; so is a lone one at the end
        }
    }

    // "0\", "2\" or "4\" after "\X": the width of the groups that follow.
    bool SwitchGroups(int form)
    {
        if ((form != '0' && form != '2' && form != '4') || Next() != '\\')
            return false;
        m_group_digits = (form - '0') * 2;
        return true;
    }

    // A backslash between groups may only switch the groups or end them.
    bool ReadGroupEnd() { return Next() == 'X' && SwitchGroups(Next()); }

    // Four digits are one UTF-16 unit, which may be half of a pair; eight
    // are one code point.
    bool ReadGroup(int first)
    {
        LtNat32 value = 0;
        if (!ReadHex(first, m_group_digits, &value))
            return false;
        if (m_group_digits == 8)
            return AppendCodePoint(value);
        if (value != 0)
            m_out->Append(static_cast<LtWChar>(value));
        return true;
    }

    char const *m_at;  // the next byte to read
    QzWideStringBuffer *m_out;
    int m_page = 0;          // row of kIso8859UpperHalves: ISO 8859 part less one
    int m_group_digits = 0;  // 0 outside "\X2\" or "\X4\" groups, else 4 or 8
};

}  // namespace

// Readies `out` for a decoder of `text`. False when there is nothing to
// decode, with *result the decoder's answer: false without an output, true
// for a null text, which releases the output.
static bool StartDecoding(char const *text, QzWideStringBuffer *out, bool *result)
{
    *result = out != nullptr;
    if (out == nullptr)
        return false;
    if (text == nullptr) {
        out->SetString(static_cast<LtWChar const *>(nullptr));
        return false;
    }
    out->SetEmptyString();
    return true;
}

bool QzStringConv::STEPToWide(char const *text, QzWideStringBuffer *out)
{
    bool result = false;
    if (!StartDecoding(text, out, &result))
        return result;
    StepDecoder decoder(text, out);
    return decoder.Run();
}

// --- 7-bit form ---

static constexpr char kSevenBitEscape = '/';

void QzStringConv::EncodeWideTo7BitAscii(LtWChar const *text, QzStringBuffer *out)
{
    if (out == nullptr)
        return;
    if (text == nullptr) {
        out->SetString(static_cast<char const *>(nullptr));
        return;
    }
    out->SetEmptyString();
    for (LtWChar const *at = text; *at != 0; ++at) {
        LtWChar unit = *at;
        if (unit == kSevenBitEscape) {
            out->Append(kSevenBitEscape);
            out->Append(kSevenBitEscape);
        } else if (unit >= 32 && unit <= 126) {
            out->Append(static_cast<char>(unit));
        } else {
            out->Append(kSevenBitEscape);
            AppendUpperHex(out, unit, 4);
        }
    }
}

bool QzStringConv::DecodeWideFrom7BitAscii(char const *text, QzWideStringBuffer *out)
{
    bool result = false;
    if (!StartDecoding(text, out, &result))
        return result;
    char const *at = text;
    while (*at != 0) {
        char byte = *at++;
        if (byte != kSevenBitEscape) {
            out->Append(static_cast<LtWChar>(static_cast<unsigned char>(byte)));
            continue;
        }
        if (*at == kSevenBitEscape) {
            out->Append(static_cast<LtWChar>(kSevenBitEscape));
            ++at;
            continue;
        }
        // The scan stops at the first non-digit, so it never reads past a nul.
        LtNat32 unit = 0;
        for (int i = 0; i < 4; ++i) {
            int digit = UpperHexDigitValue(at[i]);
            if (digit < 0)
                return false;
            unit = (unit << 4) | static_cast<LtNat32>(digit);
        }
        if (unit == 0)
            return false;  // the encoder never writes a nul unit
        out->Append(static_cast<LtWChar>(unit));
        at += 4;
    }
    return true;
}
