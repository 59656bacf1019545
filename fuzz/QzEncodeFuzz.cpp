// QzEncodeFuzz.cpp: libFuzzer target for the byte encodings of QzEncode. The
// input is read twice: as text for each decoder, which must agree with its
// own count, stay inside the output it is given (exact size, one byte less,
// sentinels behind), and accept again what the encoder makes of its bytes;
// and as bytes for each encoder, whose text must decode to those bytes.
// Only public headers: the target sees the library as a user does.
#include "qzutil/text/QzEncode.h"

#include "QzFuzzCheck.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

constexpr std::size_t kMaxInputBytes = 16 * 1024;
constexpr unsigned char kSentinel = 0xA5;
constexpr int kSentinelBytes = 8;

using Bytes = std::vector<unsigned char>;
using Encoder = void (*)(unsigned char const *data, int size, QzStringBuffer *out);
using Decoder = int (*)(char const *text, unsigned char *out, int out_size);

// Hexadecimal text that decodes is the encoder's text in any case.
static std::string UpperCase(std::string const &text)
{
    std::string upper = text;
    for (char &character : upper) {
        if (character >= 'a' && character <= 'z')
            character = static_cast<char>(character - 'a' + 'A');
    }
    return upper;
}

// Base64 text that decodes is the encoder's text, with or without padding.
static std::string Padded(std::string const &text)
{
    std::string padded = text;
    while (padded.size() % 4 != 0)
        padded += '=';
    return padded;
}

struct Codec {
    Encoder encode;
    Decoder decode;
    bool counts_unchecked;  // a null output gives a count without reading the text
    // The encoder's text for text that decodes; null where several texts
    // decode alike (escapes may stand for letters, other bytes for themselves).
    std::string (*canonical)(std::string const &text);
};

const Codec kCodecs[] = {
    {&QzEncode::EncodeHex, &QzEncode::DecodeHex, true, &UpperCase},
    {&QzEncode::EncodeHexEscaped, &QzEncode::DecodeHexEscaped, false, nullptr},
    {&QzEncode::EncodeBase64, &QzEncode::DecodeBase64, false, &Padded},
};

static std::string TextOf(QzStringBuffer const &buffer)
{
    return buffer.GetString() != nullptr ? std::string(buffer.GetString()) : std::string();
}

// Decodes into exactly `out_size` bytes followed by sentinels; returns the
// result and the bytes written.
static int DecodeInto(Decoder decode, std::string const &text, int out_size, Bytes *bytes)
{
    Bytes out(static_cast<std::size_t>(out_size) + kSentinelBytes, kSentinel);
    int result = decode(text.c_str(), out.data(), out_size);
    QZ_FUZZ_CHECK(std::all_of(out.begin() + out_size, out.end(),
                              [](unsigned char byte) { return byte == kSentinel; }),
                  "a decoder writes nothing past its output size");
    QZ_FUZZ_CHECK(result >= -1 && result <= out_size, "a result is -1 or a count that fits");
    if (result > 0)
        bytes->assign(out.begin(), out.begin() + result);
    else
        bytes->clear();
    return result;
}

// Encodes the bytes and decodes the text into exactly their size: the same
// bytes; one byte less of room is -1.
static std::string CheckEncodingOf(Codec const &codec, Bytes const &bytes)
{
    int const size = static_cast<int>(bytes.size());
    QzStringBuffer encoded;
    codec.encode(bytes.data(), size, &encoded);
    QZ_FUZZ_CHECK(!encoded.IsNull(), "encoding bytes gives a text");
    std::string const text = TextOf(encoded);
    Bytes decoded;
    QZ_FUZZ_CHECK(DecodeInto(codec.decode, text, size, &decoded) == size && decoded == bytes,
                  "the encoding decodes to its bytes");
    QZ_FUZZ_CHECK(codec.decode(text.c_str(), nullptr, 0) == size,
                  "the count of the encoding is the number of bytes");
    if (size > 0) {
        QZ_FUZZ_CHECK(DecodeInto(codec.decode, text, size - 1, &decoded) == -1,
                      "one byte less of room is refused");
    }
    return text;
}

static void CheckDecodingOf(Codec const &codec, std::string const &text)
{
    int const count = codec.decode(text.c_str(), nullptr, 0);
    QZ_FUZZ_CHECK(count >= -1 && static_cast<std::size_t>(count + 1) <= text.size() + 1,
                  "a count is -1 or at most one byte a character");
    if (count < 0)
        return;
    Bytes decoded;
    int const result = DecodeInto(codec.decode, text, count, &decoded);
    QZ_FUZZ_CHECK(result == count || (codec.counts_unchecked && result == -1),
                  "a decoding into exactly its count gives that count");
    if (result < 0)
        return;
    if (count > 0) {
        Bytes small;
        QZ_FUZZ_CHECK(DecodeInto(codec.decode, text, count - 1, &small) == -1,
                      "a decoding into one byte less than its count is refused");
    }
    std::string const encoded = CheckEncodingOf(codec, decoded);
    if (codec.canonical != nullptr)
        QZ_FUZZ_CHECK(encoded == codec.canonical(text),
                      "each byte string has one encoding, up to case and padding");
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    // Once per process: the fuzzer never unloads the target.
    static bool const is_set_up = (QzString::Initialise(), QzEncode::Initialise(), true);
    (void)is_set_up;
    size = std::min(size, kMaxInputBytes);
    QzFuzzMemoryBalance const balance;
    std::string const text = QzFuzzInputText(data, size, kMaxInputBytes);
    Bytes const bytes(data, data + size);
    for (Codec const &codec : kCodecs) {
        CheckDecodingOf(codec, text);
        (void)CheckEncodingOf(codec, bytes);
    }
    return 0;
}
