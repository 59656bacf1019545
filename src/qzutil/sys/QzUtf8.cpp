// QzUtf8.cpp: the strict UTF-8 codec, after the table of well-formed byte
// sequences in the Unicode Standard (chapter 3, "UTF-8").
#include "qzutil/sys/internal/QzUtf8.h"

namespace {

// What a lead byte allows: the sequence length, and the range of the second
// byte, which is where overlong forms, surrogates and values above U+10FFFF
// are excluded. Later bytes are always 0x80 to 0xBF.
struct LeadByte {
    int length;  // 0: the byte cannot start a character
    unsigned char second_low;
    unsigned char second_high;
};

}  // namespace

static LeadByte ClassifyLeadByte(unsigned char lead)
{
    if (lead < 0x80)
        return {1, 0, 0};
    if (lead < 0xC2)
        return {0, 0, 0};  // a continuation byte, or C0/C1: overlong 2-byte forms
    if (lead < 0xE0)
        return {2, 0x80, 0xBF};
    if (lead == 0xE0)
        return {3, 0xA0, 0xBF};  // below A0 is overlong
    if (lead == 0xED)
        return {3, 0x80, 0x9F};  // above 9F encodes a surrogate
    if (lead < 0xF0)
        return {3, 0x80, 0xBF};
    if (lead == 0xF0)
        return {4, 0x90, 0xBF};  // below 90 is overlong
    if (lead < 0xF4)
        return {4, 0x80, 0xBF};
    if (lead == 0xF4)
        return {4, 0x80, 0x8F};  // above 8F is beyond U+10FFFF
    return {0, 0, 0};
}

int QzUtf8::DecodeCharacter(char const *text, std::size_t length, LtNat32 *code_point)
{
    auto const *bytes = reinterpret_cast<unsigned char const *>(text);
    LeadByte lead = ClassifyLeadByte(bytes[0]);
    if (lead.length == 0)
        return -1;
    // The lead keeps the bits below its length marker: 7 - length of them.
    LtNat32 value = lead.length == 1 ? bytes[0] : bytes[0] & (0x7Fu >> lead.length);
    for (int i = 1; i < lead.length; ++i) {
        auto index = static_cast<std::size_t>(i);
        if (index >= length)
            return -i;
        unsigned char low = i == 1 ? lead.second_low : 0x80;
        unsigned char high = i == 1 ? lead.second_high : 0xBF;
        if (bytes[index] < low || bytes[index] > high)
            return -i;
        value = (value << 6) | (bytes[index] & 0x3Fu);
    }
    *code_point = value;
    return lead.length;
}

int QzUtf8::EncodeCharacter(LtNat32 code_point, char *out)
{
    if (code_point < 0x80) {
        out[0] = static_cast<char>(code_point);
        return 1;
    }
    int length = code_point < 0x800 ? 2 : code_point < 0x10000 ? 3 : 4;
    static constexpr LtNat32 kLengthMarker[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (int i = length - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (code_point & 0x3F));
        code_point >>= 6;
    }
    out[0] = static_cast<char>(kLengthMarker[length] | code_point);
    return length;
}

std::size_t QzUtf8::IncompleteTailLength(char const *text, std::size_t length)
{
    // Walk back over at most three continuation bytes to the byte that would
    // lead the last character.
    for (std::size_t tail = 1; tail <= length && tail < static_cast<std::size_t>(kMaxSequenceBytes);
         ++tail) {
        auto byte = static_cast<unsigned char>(text[length - tail]);
        if (byte >= 0x80 && byte <= 0xBF)
            continue;
        LeadByte lead = ClassifyLeadByte(byte);
        if (static_cast<std::size_t>(lead.length) <= tail)
            return 0;
        // A prefix that is well formed so far decodes as ill-formed exactly
        // because it ran out of input: its maximal subpart is all of it.
        LtNat32 ignored = 0;
        int decoded = DecodeCharacter(text + length - tail, tail, &ignored);
        return decoded == -static_cast<int>(tail) ? tail : 0;
    }
    return 0;
}
