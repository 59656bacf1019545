// QzEncodeTest.cpp: QzEncode: hexadecimal, hexadecimal escapes and Base64,
// each against hand-worked text (Base64 against the vectors of RFC 4648),
// with the output bounds, null outputs and malformed text.

#include "qzutil/text/QzEncode.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"

#include "text/QzTextTestFixture.h"

using QzEncodeTest = QzTextTest;
using Bytes8 = std::vector<unsigned char>;

static Bytes8 BytesOfText(char const *text)
{
    return Bytes8(text, text + std::string(text).size());
}

using Encoder = void (*)(unsigned char const *data, int size, QzStringBuffer *out);
using Decoder = int (*)(char const *text, unsigned char *out, int out_size);

// Encodes `bytes`, expecting `text`; decodes `text` into an array of
// exactly the right size between sentinels, then counts with a null output,
// then checks that one byte less of room gives -1.
static void ExpectRoundTrip(Encoder encode, Decoder decode, Bytes8 const &bytes, char const *text)
{
    QzStringBuffer encoded("left over");
    encode(bytes.data(), static_cast<int>(bytes.size()), &encoded);
    EXPECT_EQ(Bytes(encoded.GetString()), text);

    int const size = static_cast<int>(bytes.size());
    Bytes8 out(bytes.size() + 2, 0xEE);
    EXPECT_EQ(decode(text, out.data() + 1, size), size);
    EXPECT_EQ(Bytes8(out.begin() + 1, out.end() - 1), bytes);
    EXPECT_EQ(out.front(), 0xEE);
    EXPECT_EQ(out.back(), 0xEE);
    EXPECT_EQ(decode(text, nullptr, 0), size);
    if (size > 0) {
        EXPECT_EQ(decode(text, out.data(), size - 1), -1);
    }
}

struct CodecCase {
    char const *name;
    Bytes8 bytes;
    char const *text;
};

const CodecCase kHexCases[] = {
    {"empty", {}, ""},
    {"digit_and_letter_nibbles", {0x00, 0x0F, 0xA5, 0xFF, 0x10}, "000FA5FF10"},
};

const CodecCase kHexEscapedCases[] = {
    {"empty", {}, ""},
    {"letters_and_digits_stay", BytesOfText("azAZ09"), "azAZ09"},
    {"others_escaped", {' ', '/', '.', '_', 0x00, 0x7F, 0x80, 0xFF}, "/20/2F/2E/5F/00/7F/80/FF"},
    {"mixed", BytesOfText("a b/c"), "a/20b/2Fc"},
};

const CodecCase kBase64Cases[] = {
    // RFC 4648, section 10.
    {"rfc_empty", {}, ""},
    {"rfc_f", BytesOfText("f"), "Zg=="},
    {"rfc_fo", BytesOfText("fo"), "Zm8="},
    {"rfc_foo", BytesOfText("foo"), "Zm9v"},
    {"rfc_foob", BytesOfText("foob"), "Zm9vYg=="},
    {"rfc_fooba", BytesOfText("fooba"), "Zm9vYmE="},
    {"rfc_foobar", BytesOfText("foobar"), "Zm9vYmFy"},
    // The last two characters of the alphabet: 111110 111111 111100.
    {"plus_and_slash", {0xFB, 0xFF}, "+/8="},
    {"zero_bytes", {0x00, 0x00, 0x00, 0x00}, "AAAAAA=="},
};

TEST_F(QzEncodeTest, HexRoundTrips)
{
    for (CodecCase const &c : kHexCases) {
        SCOPED_TRACE(c.name);
        ExpectRoundTrip(&QzEncode::EncodeHex, &QzEncode::DecodeHex, c.bytes, c.text);
    }
}

TEST_F(QzEncodeTest, HexEscapedRoundTrips)
{
    for (CodecCase const &c : kHexEscapedCases) {
        SCOPED_TRACE(c.name);
        ExpectRoundTrip(&QzEncode::EncodeHexEscaped, &QzEncode::DecodeHexEscaped, c.bytes, c.text);
    }
}

TEST_F(QzEncodeTest, Base64RoundTripsTheRfcVectors)
{
    for (CodecCase const &c : kBase64Cases) {
        SCOPED_TRACE(c.name);
        ExpectRoundTrip(&QzEncode::EncodeBase64, &QzEncode::DecodeBase64, c.bytes, c.text);
    }
}

struct DecodeCase {
    char const *name;
    char const *text;  // null: a null text
    int result;
    Bytes8 bytes;  // the decoded bytes when the result is not -1
};

static void ExpectDecodes(Decoder decode, DecodeCase const &c)
{
    SCOPED_TRACE(c.name);
    Bytes8 out(16, 0xEE);
    int result = decode(c.text, out.data(), static_cast<int>(out.size()));
    EXPECT_EQ(result, c.result);
    if (result >= 0) {
        EXPECT_EQ(Bytes8(out.begin(), out.begin() + result), c.bytes);
    }
}

// clang-format off
const DecodeCase kHexDecodeCases[] = {
    {"null_text", nullptr, -1, {}},
    {"both_cases", "aBcDeF", 3, {0xAB, 0xCD, 0xEF}},
    {"odd_length", "ABC", -1, {}},
    {"non_digit", "0G", -1, {}},
    {"blank_as_digit", "0 ", -1, {}},
};
// clang-format on

TEST_F(QzEncodeTest, HexDecodingTable)
{
    for (DecodeCase const &c : kHexDecodeCases)
        ExpectDecodes(&QzEncode::DecodeHex, c);
}

// Without an output, the count is half the length and the digits are not
// read; odd text is -1 all the same.
TEST_F(QzEncodeTest, HexCountWithNullOutput)
{
    EXPECT_EQ(QzEncode::DecodeHex("ABCD", nullptr, 0), 2);
    EXPECT_EQ(QzEncode::DecodeHex("ZZ", nullptr, 0), 1);
    EXPECT_EQ(QzEncode::DecodeHex("ABC", nullptr, 0), -1);
    EXPECT_EQ(QzEncode::DecodeHex(nullptr, nullptr, 0), -1);
}

const DecodeCase kHexEscapedDecodeCases[] = {
    {"null_text", nullptr, -1, {}},
    {"lower_case_digits", "/2f/e9", 2, {0x2F, 0xE9}},
    {"other_bytes_stand_for_themselves", "a b.", 4, {'a', ' ', 'b', '.'}},
    {"slash_at_end_stops", "ab/", 2, {'a', 'b'}},
    {"slash_one_before_end_stops", "ab/4", 2, {'a', 'b'}},
    {"non_digit_after_slash", "a/4G", -1, {}},
    {"slash_after_slash", "a//41", -1, {}},
};

TEST_F(QzEncodeTest, HexEscapedDecodingTable)
{
    for (DecodeCase const &c : kHexEscapedDecodeCases)
        ExpectDecodes(&QzEncode::DecodeHexEscaped, c);
    EXPECT_EQ(QzEncode::DecodeHexEscaped("a/4G", nullptr, 0), -1);
}

const DecodeCase kBase64DecodeCases[] = {
    {"null_text", nullptr, -1, {}},
    {"unpadded_one_byte", "Zg", 1, {'f'}},
    {"unpadded_two_bytes", "Zm8", 2, {'f', 'o'}},
    {"padding_short_of_four", "Zg=", -1, {}},
    {"padding_too_long", "Zm8==", -1, {}},
    {"three_pads", "Z===", -1, {}},
    {"only_padding", "====", -1, {}},
    {"one_character_group", "Zm9vY", -1, {}},
    {"pad_in_the_middle", "Zg==Zg==", -1, {}},
    {"unused_bits_set_one_byte", "Zh==", -1, {}},
    {"unused_bits_set_two_bytes", "Zm9=", -1, {}},
    {"white_space", "Zm9v YmFy", -1, {}},
    {"url_alphabet", "-_8=", -1, {}},
};

TEST_F(QzEncodeTest, Base64DecodingTable)
{
    for (DecodeCase const &c : kBase64DecodeCases)
        ExpectDecodes(&QzEncode::DecodeBase64, c);
    EXPECT_EQ(QzEncode::DecodeBase64("Zh==", nullptr, 0), -1);
}

// Every byte value once, so that each digit and each alphabet character is
// written and read back.
TEST_F(QzEncodeTest, AllByteValuesRoundTrip)
{
    Bytes8 bytes;
    for (int value = 0; value < 256; ++value)
        bytes.push_back(static_cast<unsigned char>(value));
    Encoder const encoders[] = {&QzEncode::EncodeHex, &QzEncode::EncodeHexEscaped,
                                &QzEncode::EncodeBase64};
    Decoder const decoders[] = {&QzEncode::DecodeHex, &QzEncode::DecodeHexEscaped,
                                &QzEncode::DecodeBase64};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        QzStringBuffer text;
        encoders[i](bytes.data(), 256, &text);
        Bytes8 out(256);
        EXPECT_EQ(decoders[i](text.GetString(), out.data(), 256), 256);
        EXPECT_EQ(out, bytes);
    }
}

// No bytes give the empty text, a null address with bytes or a negative
// size no text.
TEST_F(QzEncodeTest, EncodersReleaseOnNullDataOrNegativeSize)
{
    Encoder const encoders[] = {&QzEncode::EncodeHex, &QzEncode::EncodeHexEscaped,
                                &QzEncode::EncodeBase64};
    unsigned char const byte = 1;
    for (Encoder encode : encoders) {
        QzStringBuffer text("x");
        encode(nullptr, 3, &text);
        EXPECT_TRUE(text.IsNull());
        text = "x";
        encode(&byte, -1, &text);
        EXPECT_TRUE(text.IsNull());
        encode(nullptr, 0, &text);
        EXPECT_FALSE(text.IsNull());
        EXPECT_TRUE(text.IsEmpty());
        encode(&byte, 1, nullptr);  // ignored
    }
}

TEST(QzEncodeComponentTest, IsACountedComponentWithoutDependencies)
{
    EXPECT_FALSE(QzEncode::IsInitialised());
    QzEncode::Initialise();
    EXPECT_TRUE(QzEncode::IsInitialised());
    EXPECT_STREQ(QzEncode::GetComponent()->GetName(), "QzEncode");
    EXPECT_EQ(QzString::IsInitialised(), 0);
    QzEncode::Terminate();
    EXPECT_FALSE(QzEncode::IsInitialised());
}
