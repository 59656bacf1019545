// QzSevenBitFuzz.cpp: libFuzzer target for the 7-bit form of UTF-16 text
// (QzStringConv::DecodeWideFrom7BitAscii and EncodeWideTo7BitAscii). The
// input is read twice: as 7-bit text to decode, which must succeed exactly
// when each "/" is well formed and must then re-encode to text that decodes
// to the same units; and as UTF-16 units to encode, which must give
// printable ASCII that decodes back to those units.
// Only public headers: the target sees the library as a user does.
#include "QzFuzzCheck.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzStringConv.h"
#include "qzutil/text/QzWideStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

constexpr std::size_t kMaxInputBytes = 16 * 1024;

static bool IsUpperHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F');
}

// Every "/" is followed by "/" or by four upper-case digits, not all "0".
static bool IsWellFormed(std::string const &text)
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '/')
            continue;
        if (at + 1 < text.size() && text[at + 1] == '/') {
            ++at;
            continue;
        }
        std::string const digits = text.substr(at + 1, 4);
        if (digits.size() != 4 || !std::all_of(digits.begin(), digits.end(), IsUpperHexDigit) ||
            digits == "0000")
            return false;
        at += 4;
    }
    return true;
}

static bool IsPrintableAscii(char const *text)
{
    for (; text != nullptr && *text != 0; ++text) {
        if (*text < 32 || *text > 126)
            return false;
    }
    return true;
}

// Encodes the units and decodes the result: the same units, through
// printable ASCII only.
static void CheckEncodingOf(std::u16string const &units)
{
    QzStringBuffer seven_bit;
    QzStringConv::EncodeWideTo7BitAscii(units.c_str(), &seven_bit);
    QZ_FUZZ_CHECK(!seven_bit.IsNull() && IsPrintableAscii(seven_bit.GetString()),
                  "the 7-bit form is printable ASCII");
    QzWideStringBuffer decoded;
    QZ_FUZZ_CHECK(QzStringConv::DecodeWideFrom7BitAscii(seven_bit.GetString(), &decoded) &&
                      QzFuzzUnitsOf(decoded) == units,
                  "the 7-bit form decodes to its units");
}

static void CheckDecodingOf(std::string const &text)
{
    QzWideStringBuffer wide;
    bool const is_good = QzStringConv::DecodeWideFrom7BitAscii(text.c_str(), &wide);
    QZ_FUZZ_CHECK(is_good == IsWellFormed(text),
                  "decoding succeeds exactly when every \"/\" is well formed");
    std::u16string const units = QzFuzzUnitsOf(wide);
    QZ_FUZZ_CHECK(units.size() <= text.size(), "each unit comes from at least one byte");
    if (is_good)
        CheckEncodingOf(units);
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    // Once per process: the fuzzer never unloads the target.
    static bool const is_set_up = (QzStringConv::Initialise(), true);
    (void)is_set_up;
    size = std::min(size, kMaxInputBytes);
    QzFuzzMemoryBalance const balance;
    CheckDecodingOf(QzFuzzInputText(data, size, kMaxInputBytes));
    // Little-endian unit pairs, up to the first nul unit.
    std::u16string units;
    for (std::size_t at = 0; at + 1 < size; at += 2) {
        auto unit = static_cast<char16_t>(data[at] | (data[at + 1] << 8));
        if (unit == 0)
            break;
        units += unit;
    }
    CheckEncodingOf(units);
    return 0;
}
