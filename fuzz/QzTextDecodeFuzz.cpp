// QzTextDecodeFuzz.cpp: libFuzzer target for the readers of outside text: the
// UTF-8, 7-bit and code-page decoders, the number readers, the trims and the
// natural order over decoded text. Each input is held to properties that hold
// for any bytes, so a wrong answer stops the run as surely as a crash does.
// Only public headers: the target sees the library as a user does.
#include "QzFuzzCheck.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Longer inputs cost time and reach no path that 64 KiB does not.
constexpr std::size_t kMaxInputBytes = 64 * 1024;

// Once per process: the fuzzer calls the target again and again and never
// unloads it, so QzString stays initialised for good.
static void SetUpOnce()
{
    static bool is_set_up = false;
    if (is_set_up)
        return;
    is_set_up = true;
    QzString::Initialise();
    QzFuzzTakeInputErrors();
    // The code-page checks below rely on UTF-8 with Unicode's strict rules.
    QZ_FUZZ_CHECK(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr, "the C.UTF-8 locale exists");
    QZ_FUZZ_CHECK(QzSysString::IsMultiByteUTF8(), "the code page is UTF-8");
}

// --- Plain helpers, apart from the library ---

static std::u16string UnitsOf(LtWChar const *text)
{
    return text != nullptr ? std::u16string(text) : std::u16string();
}

static std::string BytesOf(char const *text)
{
    return text != nullptr ? std::string(text) : std::string();
}

static bool IsAscii(std::string const &text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

// One unit per byte: the UTF-16 form of 7-bit text.
static std::u16string Widen(std::string const &text)
{
    std::u16string units;
    for (char byte : text)
        units.push_back(static_cast<char16_t>(static_cast<unsigned char>(byte)));
    return units;
}

static bool SameNumber(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

// An independent reading of UTF-8, from the bit patterns of the encoding
// rather than the lead-byte ranges the library works with: the leading ones
// of a lead byte give the length, the value must need that length, and
// nothing lies above U+10FFFF.
struct Utf8Reading {
    bool is_well_formed = true;  // every sequence complete, shortest and at most U+10FFFF
    bool has_surrogate = false;  // some sequence encodes U+D800 to U+DFFF
    bool has_nonchar = false;    // some sequence encodes U+FFFE or U+FFFF
    std::u16string units;        // the UTF-16 form; complete only when is_well_formed
};

static Utf8Reading ReadUtf8(std::string const &text)
{
    static constexpr LtNat32 kSmallestValue[] = {0, 0, 0x80, 0x800, 0x10000};
    Utf8Reading reading;
    std::size_t at = 0;
    while (at < text.size()) {
        auto lead = static_cast<unsigned char>(text[at]);
        std::size_t sequence_bytes = 0;
        while (sequence_bytes < 8 && (lead & (0x80u >> sequence_bytes)) != 0)
            ++sequence_bytes;
        if (sequence_bytes == 0) {
            reading.units.push_back(lead);
            ++at;
            continue;
        }
        if (sequence_bytes == 1 || sequence_bytes > 4 || at + sequence_bytes > text.size()) {
            reading.is_well_formed = false;
            return reading;
        }
        LtNat32 value = lead & (0xFFu >> (sequence_bytes + 1));
        for (std::size_t i = 1; i < sequence_bytes; ++i) {
            auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & 0xC0u) != 0x80u) {
                reading.is_well_formed = false;
                return reading;
            }
            value = (value << 6) | (next & 0x3Fu);
        }
        if (value < kSmallestValue[sequence_bytes] || value > 0x10FFFF) {
            reading.is_well_formed = false;
            return reading;
        }
        reading.has_surrogate |= value >= 0xD800 && value <= 0xDFFF;
        reading.has_nonchar |= value == 0xFFFE || value == 0xFFFF;
        if (value < 0x10000) {
            reading.units.push_back(static_cast<char16_t>(value));
        } else {
            reading.units.push_back(static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10)));
            reading.units.push_back(static_cast<char16_t>(0xDC00 + ((value - 0x10000) & 0x3FF)));
        }
        at += sequence_bytes;
    }
    return reading;
}

// The library's own UTF-8 decoder takes encoded surrogates and refuses U+FFFE
// and U+FFFF; the code page follows Unicode, which does the opposite.
static bool IsAcceptedByDecoder(Utf8Reading const &reading)
{
    return reading.is_well_formed && !reading.has_nonchar;
}

static bool IsAcceptedByCodePage(Utf8Reading const &reading)
{
    return reading.is_well_formed && !reading.has_surrogate;
}

// The shape every decoder output has: a block, no nul before its length, and
// at most one unit per input byte.
static void CheckDecodedShape(QzWideStringBuffer const &wide, std::string const &text)
{
    QZ_FUZZ_CHECK(!wide.IsNull(), "decoding non-null text gives a block");
    QZ_FUZZ_CHECK(wide.GetLength() == QzWideString::GetLength(wide.GetString()),
                  "decoded text holds no nul before its length");
    QZ_FUZZ_CHECK(static_cast<std::size_t>(wide.GetLength()) <= text.size(),
                  "decoding gives at most one unit per byte");
}

// --- UTF-8 ---

// Encodes decoded text again, with or without combining surrogate pairs:
// what the decoder made must always read back as itself, without fault.
static std::string CheckUtf8RoundTrip(std::u16string const &units, bool combine)
{
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8StringImpl(units.c_str(), &utf8, combine);
    QzWideStringBuffer again;
    QZ_FUZZ_CHECK(QzString::UTF8ToWideString(utf8.GetString(), &again) == 1,
                  "decoded text encodes to well-formed UTF-8");
    QZ_FUZZ_CHECK(UnitsOf(again.GetString()) == units, "decode, encode, decode is stable");
    return BytesOf(utf8.GetString());
}

// Decodes the whole text: the result agrees with IsValidUTF8 and with the
// independent reading, every fault leaves a U+FFFD, and the output survives
// the round trips. Returns the decoded units.
static std::u16string CheckUtf8Decoding(std::string const &text, Utf8Reading const &reading)
{
    QzWideStringBuffer wide;
    int is_good = QzString::UTF8ToWideString(text.c_str(), &wide);
    CheckDecodedShape(wide, text);
    QZ_FUZZ_CHECK(is_good == QzString::IsValidUTF8(text.c_str()),
                  "IsValidUTF8 agrees with the decoder");
    QZ_FUZZ_CHECK(is_good == (IsAcceptedByDecoder(reading) ? 1 : 0),
                  "the decoder accepts exactly well-formed UTF-8 without U+FFFE/U+FFFF");
    std::u16string units = UnitsOf(wide.GetString());
    if (is_good)
        QZ_FUZZ_CHECK(units == reading.units, "well-formed UTF-8 decodes to its characters");
    else
        QZ_FUZZ_CHECK(units.find(u'\uFFFD') != std::u16string::npos, "each fault shows as U+FFFD");

    QzWideStringBuffer whole;
    QZ_FUZZ_CHECK(QzString::UTF8ToWideString(text.c_str(), -1, &whole) == is_good &&
                      UnitsOf(whole.GetString()) == units,
                  "length -1 is the whole text");

    std::string combined = CheckUtf8RoundTrip(units, /*combine=*/true);
    // Uncombined, a pair becomes other bytes; only their reading back counts.
    (void)CheckUtf8RoundTrip(units, /*combine=*/false);
    if (is_good && !reading.has_surrogate)
        QZ_FUZZ_CHECK(combined == text, "well-formed text re-encodes to its own bytes");
    return units;
}

// An explicit length bounds multi-byte sequences only: the result is 1
// exactly when the text splits there into well-formed UTF-8 and 7-bit text,
// and the output is then the two read one after the other.
static void CheckUtf8DecodingCutAt(std::string const &text, int length)
{
    QzWideStringBuffer wide;
    int is_good = QzString::UTF8ToWideStringImpl(text.c_str(), length, &wide);
    CheckDecodedShape(wide, text);
    QzWideStringBuffer same;
    QZ_FUZZ_CHECK(QzString::UTF8ToWideString(text.c_str(), length, &same) == is_good &&
                      UnitsOf(same.GetString()) == UnitsOf(wide.GetString()),
                  "UTF8ToWideString with a length is UTF8ToWideStringImpl");

    std::size_t cut = std::min(static_cast<std::size_t>(length), text.size());
    std::string head = text.substr(0, cut);
    std::string tail = text.substr(cut);
    Utf8Reading head_reading = ReadUtf8(head);
    bool splits = IsAcceptedByDecoder(head_reading) && IsAscii(tail);
    QZ_FUZZ_CHECK(is_good == (splits ? 1 : 0),
                  "a length accepts exactly well-formed text up to it and 7-bit text after");
    if (is_good)
        QZ_FUZZ_CHECK(UnitsOf(wide.GetString()) == head_reading.units + Widen(tail),
                      "a length changes nothing in text it accepts");
}

// --- 7-bit text and the code page ---

static void CheckAsciiWidening(std::string const &text)
{
    QzWideStringBuffer wide;
    int is_good = QzString::AsciiToWideString(text.c_str(), &wide);
    QZ_FUZZ_CHECK(is_good == QzString::IsValidAscii(text.c_str()),
                  "AsciiToWideString accepts exactly 7-bit text");
    std::u16string expected = is_good ? Widen(text) : u"ASCIITOWCS INTERNAL FAILURE!";
    QZ_FUZZ_CHECK(UnitsOf(wide.GetString()) == expected,
                  "7-bit text widens unit by unit, other text gives the complaint");
    if (!is_good)
        return;
    QzStringBuffer narrow;
    QZ_FUZZ_CHECK(QzWideString::TryExtractAsciiString(wide.GetString(), &narrow) == 1 &&
                      BytesOf(narrow.GetString()) == text,
                  "widened 7-bit text narrows back to itself");
}

// The code page (UTF-8 under C.UTF-8) either decodes exactly Unicode's
// well-formed text and re-encodes it to the same bytes, or fails with one of
// its two complaints. Returns whether it decoded, with the units in *units.
static bool CheckCodePageDecoding(std::string const &text, Utf8Reading const &reading,
                                  std::u16string *units)
{
    QzWideStringBuffer wide;
    int is_good = QzString::MultiToWideString(text.c_str(), &wide);
    *units = UnitsOf(wide.GetString());
    if (!is_good) {
        QZ_FUZZ_CHECK(*units == u"MBSTOWCS CONVERSION FAILED!" ||
                          *units == u"MBSTOWCS INTERNAL FAILURE!",
                      "a failed code-page decoding leaves exactly its complaint");
        QZ_FUZZ_CHECK(!IsAcceptedByCodePage(reading), "the code page decodes well-formed text");
        return false;
    }
    CheckDecodedShape(wide, text);
    QZ_FUZZ_CHECK(IsAcceptedByCodePage(reading), "the code page refuses ill-formed text");
    QZ_FUZZ_CHECK(*units == reading.units, "the code page decodes to the characters");

    // Both counts include the terminator, which converts too.
    int needed = QzSysString::WideCharToMultiByte(units->c_str(), -1, nullptr, 0);
    QZ_FUZZ_CHECK(needed > 0 && static_cast<std::size_t>(needed) == text.size() + 1,
                  "the code page sizes the re-encoding as the original");
    std::string bytes(static_cast<std::size_t>(needed), '\x7F');
    QZ_FUZZ_CHECK(QzSysString::WideCharToMultiByte(units->c_str(), -1, &bytes[0], needed) == needed,
                  "the code page re-encodes into the size it asked for");
    QZ_FUZZ_CHECK(bytes == text + '\0', "the code page re-encodes to the same bytes");
    QzStringBuffer narrow;
    QZ_FUZZ_CHECK(QzWideString::ExtractMultiString(units->c_str(), &narrow) == 1 &&
                      BytesOf(narrow.GetString()) == text,
                  "ExtractMultiString undoes MultiToWideString");
    return true;
}

// --- Numbers ---

static bool IsLocaleBlank(unsigned char byte)
{
    return std::isspace(byte) != 0;
}

static bool IsUtf8Blank(unsigned char byte)
{
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

using BlankTest = bool (*)(unsigned char byte);

static std::string WithoutLeadingBlanks(std::string const &text, BlankTest is_blank)
{
    std::size_t first = 0;
    while (first < text.size() && is_blank(static_cast<unsigned char>(text[first])))
        ++first;
    return text.substr(first);
}

// Trailing blanks go, but never the first `kept` bytes.
static std::string WithoutTrailingBlanks(std::string const &text, BlankTest is_blank,
                                         std::size_t kept)
{
    std::size_t end = text.size();
    while (end > kept && is_blank(static_cast<unsigned char>(text[end - 1])))
        --end;
    return text.substr(0, end);
}

// The value of an optional sign and decimal digits, clamped to int; false
// for any other text.
static bool ReadDecimalInt(std::string const &text, int *value)
{
    std::size_t at = 0;
    bool is_negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        is_negative = text[at] == '-';
        ++at;
    }
    if (at == text.size())
        return false;
    constexpr LtInt64 kBeyondInt = LtInt64{INT_MAX} + 2;  // enough to clamp either way
    LtInt64 magnitude = 0;
    for (; at < text.size(); ++at) {
        if (text[at] < '0' || text[at] > '9')
            return false;
        magnitude = std::min(magnitude * 10 + (text[at] - '0'), kBeyondInt);
    }
    LtInt64 signed_value = is_negative ? -magnitude : magnitude;
    *value = static_cast<int>(std::clamp<LtInt64>(signed_value, INT_MIN, INT_MAX));
    return true;
}

// The localised readers (the C numeric locale here) against a plain reading
// of the trimmed text; the C reader must take whatever the localised one
// takes; the wide readers, given the same text, must answer the same.
static void CheckNumberReading(std::string const &text, std::u16string const *code_page_units)
{
    std::string trimmed = WithoutLeadingBlanks(text, &IsLocaleBlank);
    trimmed = WithoutTrailingBlanks(trimmed, &IsLocaleBlank, 0);

    int int_value = 0;
    int is_int = QzString::ReadLocalizedInt(text.c_str(), &int_value);
    int expected_int = 0;
    bool is_expected_int = ReadDecimalInt(trimmed, &expected_int);
    QZ_FUZZ_CHECK(is_int == (is_expected_int ? 1 : 0),
                  "ReadLocalizedInt takes exactly a signed run of digits between blanks");
    if (is_int)
        QZ_FUZZ_CHECK(int_value == expected_int, "ReadLocalizedInt reads the value, clamped");

    double float_value = 0.0;
    int is_float = QzString::ReadLocalizedFloat(text.c_str(), &float_value);
    if (is_int)
        QZ_FUZZ_CHECK(is_float == 1 && (SameNumber(float_value, int_value) ||
                                        (int_value == INT_MAX && float_value >= INT_MAX) ||
                                        (int_value == INT_MIN && float_value <= INT_MIN)),
                      "an int is also a float of the same value");

    double c_value = 0.0;
    int is_c_float = QzString::ReadCFloat(text.c_str(), &c_value);
    if (is_float)
        QZ_FUZZ_CHECK(is_c_float == 1 && SameNumber(c_value, float_value),
                      "in the C locale ReadCFloat reads what ReadLocalizedFloat reads");

    if (code_page_units == nullptr)
        return;
    LtWChar const *wide = code_page_units->c_str();
    int wide_int = 0;
    QZ_FUZZ_CHECK(QzWideString::ReadLocalizedInt(wide, &wide_int) == is_int &&
                      (!is_int || wide_int == int_value),
                  "the wide ReadLocalizedInt answers as the narrow one");
    double wide_float = 0.0;
    QZ_FUZZ_CHECK(QzWideString::ReadLocalizedFloat(wide, &wide_float) == is_float &&
                      (!is_float || SameNumber(wide_float, float_value)),
                  "the wide ReadLocalizedFloat answers as the narrow one");
    double wide_c_value = 0.0;
    QZ_FUZZ_CHECK(QzWideString::ReadCFloat(wide, &wide_c_value) == is_c_float &&
                      (!is_c_float || SameNumber(wide_c_value, c_value)),
                  "the wide ReadCFloat answers as the narrow one");
}

// --- Trims ---

static void CheckNarrowTrimsOf(std::string const &text, int utf8)
{
    BlankTest is_blank = utf8 ? &IsUtf8Blank : &IsLocaleBlank;
    std::string const left = WithoutLeadingBlanks(text, is_blank);
    // The right trims keep the first byte, so a text of blanks keeps one.
    std::string const right = WithoutTrailingBlanks(text, is_blank, 1);
    std::string const both = WithoutTrailingBlanks(left, is_blank, 1);

    QzStringBuffer buffer(text.c_str());
    buffer.InternalTrimLeft(utf8);
    QZ_FUZZ_CHECK(BytesOf(buffer.GetString()) == left &&
                      static_cast<std::size_t>(buffer.GetLength()) == left.size(),
                  "the left trim removes exactly the leading blanks");
    buffer.SetString(text.c_str());
    buffer.InternalTrimRight(utf8);
    QZ_FUZZ_CHECK(BytesOf(buffer.GetString()) == right &&
                      static_cast<std::size_t>(buffer.GetLength()) == right.size(),
                  "the right trim removes exactly the trailing blanks after the first byte");
    buffer.SetString(text.c_str());
    buffer.InternalTrim(utf8);
    QZ_FUZZ_CHECK(BytesOf(buffer.GetString()) == both &&
                      static_cast<std::size_t>(buffer.GetLength()) == both.size(),
                  "the full trim is the left trim, then the right trim");
}

// Unicode's blanks are not derived again here. Whatever they are, a trim
// takes from its end only, leaves no ASCII blank there, removes from each end
// what the one-sided trim removes, and changes nothing when run again.
static void CheckWideTrims(std::u16string const &units)
{
    auto is_ascii_blank = [](char16_t unit) {
        return unit < 0x80 && IsUtf8Blank(static_cast<unsigned char>(unit));
    };

    QzWideStringBuffer left(units.c_str());
    left.TrimLeft();
    std::u16string const left_units = UnitsOf(left.GetString());
    QZ_FUZZ_CHECK(
        left_units.size() <= units.size() &&
            units.compare(units.size() - left_units.size(), left_units.size(), left_units) == 0,
        "the wide left trim leaves an end of the text");
    QZ_FUZZ_CHECK(left_units.empty() || !is_ascii_blank(left_units.front()),
                  "the wide left trim leaves no blank in front");

    QzWideStringBuffer right(units.c_str());
    right.TrimRight();
    std::u16string const right_units = UnitsOf(right.GetString());
    QZ_FUZZ_CHECK(units.compare(0, right_units.size(), right_units) == 0,
                  "the wide right trim leaves a start of the text");
    QZ_FUZZ_CHECK(right_units.empty() || !is_ascii_blank(right_units.back()),
                  "the wide right trim leaves no blank behind");

    QzWideStringBuffer both(units.c_str());
    both.Trim();
    std::u16string const both_units = UnitsOf(both.GetString());
    // Without a non-blank, both one-sided trims leave nothing.
    std::size_t trailing = units.size() - right_units.size();
    std::u16string const expected =
        left_units.empty() ? std::u16string() : left_units.substr(0, left_units.size() - trailing);
    QZ_FUZZ_CHECK(both_units == expected, "the wide trim removes what each one-sided trim does");
    both.Trim();
    QZ_FUZZ_CHECK(UnitsOf(both.GetString()) == both_units, "a second wide trim changes nothing");
}

// --- Natural order ---

// An order at least in this: swapping the sides negates it, and a text is
// equal to itself, also to a copy at another address.
static void CheckNaturalOrder(std::u16string const &a, std::u16string const &b)
{
    int forward = QzWideString::StrCmpLogical(a.c_str(), b.c_str());
    int backward = QzWideString::StrCmpLogical(b.c_str(), a.c_str());
    QZ_FUZZ_CHECK(forward >= -1 && forward <= 1, "StrCmpLogical answers -1, 0 or 1");
    QZ_FUZZ_CHECK(forward == -backward, "StrCmpLogical is antisymmetric");
    std::u16string const copy = a;
    QZ_FUZZ_CHECK(QzWideString::StrCmpLogical(a.c_str(), a.c_str()) == 0 &&
                      QzWideString::StrCmpLogical(a.c_str(), copy.c_str()) == 0,
                  "StrCmpLogical finds a text equal to itself");
}

static std::u16string DecodeLeniently(std::string const &text)
{
    QzWideStringBuffer wide;
    (void)QzString::UTF8ToWideString(text.c_str(), &wide);  // faults read as U+FFFD, as wanted
    return UnitsOf(wide.GetString());
}

// --- The target ---

static void CheckText(std::string const &text, std::uint8_t cut_choice)
{
    Utf8Reading const reading = ReadUtf8(text);
    std::u16string const decoded = CheckUtf8Decoding(text, reading);

    int const length = static_cast<int>(text.size());
    // Cuts at both ends, where sequences break, in the middle, past the end,
    // and one the input picks.
    int const picked = length > 0 ? cut_choice % (length + 1) : 0;
    int const cut_lengths[] = {0,          1,          2,      3,          length / 2, length - 3,
                               length - 2, length - 1, length, length + 1, picked};
    for (int cut : cut_lengths) {
        if (cut >= 0)
            CheckUtf8DecodingCutAt(text, cut);
    }

    CheckAsciiWidening(text);
    std::u16string code_page_units;
    bool is_code_page_text = CheckCodePageDecoding(text, reading, &code_page_units);
    CheckNumberReading(text, is_code_page_text ? &code_page_units : nullptr);

    CheckNarrowTrimsOf(text, /*utf8=*/1);
    CheckNarrowTrimsOf(text, /*utf8=*/0);
    CheckWideTrims(decoded);

    std::size_t const half_bytes = text.size() / 2;
    CheckNaturalOrder(DecodeLeniently(text.substr(0, half_bytes)),
                      DecodeLeniently(text.substr(half_bytes)));
    std::size_t const half_units = decoded.size() / 2;
    CheckNaturalOrder(decoded.substr(0, half_units), decoded.substr(half_units));
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    SetUpOnce();
    size = std::min(size, kMaxInputBytes);
    std::string bytes;
    if (size > 0)
        bytes.assign(reinterpret_cast<char const *>(data), size);
    LtNat64 const allocated_before = QzMemory::GetDirectMemoryAllocated();
    // The text as a C caller passes it: up to the first nul. The last byte
    // also picks one more length to cut at.
    CheckText(std::string(bytes.c_str()), size > 0 ? data[size - 1] : 0);
    QZ_FUZZ_CHECK(QzMemory::GetDirectMemoryAllocated() == allocated_before,
                  "every block went back to QzMemory");
    return 0;
}
