// QzReadStreamSeeds.cpp: writes the seed corpus of QzReadStreamFuzz with the
// library's own QzWriteStream: the fuzz script's sample values in each form
// (binary and ascii, debug and release, single and double, utf8 and C wide
// text, through the "pass" filter, under the format words "fuzzfmt" and
// "fuzzfmt-3", and without a header), plus cut and damaged variants.
//
// Built with the fuzz preset only. Rerun after changing the script or a seed,
// from the source root, and review the diff:
//   cmake --build build/fuzz --target QzReadStreamSeeds
//   build/fuzz/fuzz/QzReadStreamSeeds fuzz/corpus/QzReadStreamFuzz
#include "QzFuzzStreams.h"
#include "QzReadStreamFuzzScript.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"

// Element counts of the script's arrays in turn: an empty one, one of a
// single element (no brackets in ascii), and one of 20 bytes, which takes two
// ascii lines at 18 per line.
constexpr LtInt32 kSampleCounts[] = {3, 20, 0, 1, 4, 2, 3, 5, 2, 3};
// Narrow strings in turn: quotes and backslashes to escape, null, empty.
char const *const kSampleStrings[] = {"a \"quoted\" back\\slash, odd", nullptr, ""};
// Wide strings in turn: Latin-1, the euro sign and a surrogate pair; ASCII.
char16_t const *const kSampleWideStrings[] = {u"Gr\u00fc\u00dfe \u20ac \U0001F600", u"plain"};

// The n-th sample of a type: both ends of its range, 0, 1, a mixed bit
// pattern, -2; for reals also a value below single precision's zero, the
// single range's edge, infinity and NaN.
template <typename Value>
static Value Sample(int n)
{
    if constexpr (std::is_same_v<Value, bool>) {
        return n % 2 == 0;
    } else if constexpr (std::is_floating_point_v<Value>) {
        Value const samples[] = {Value(0.5),
                                 Value(-0.0),
                                 Value(1e-30),
                                 Value(3.0e38),
                                 std::numeric_limits<Value>::infinity(),
                                 std::numeric_limits<Value>::quiet_NaN(),
                                 Value(1) / Value(3)};
        return samples[n % 7];
    } else {
        Value const samples[] = {Value(0),
                                 Value(1),
                                 std::numeric_limits<Value>::max(),
                                 std::numeric_limits<Value>::min(),
                                 static_cast<Value>(0x5A5A5A5A5A5A5A5AULL),
                                 static_cast<Value>(-2)};
        return samples[n % 6];
    }
}

// Makes the values of one walk of the script from the samples above.
class SampleMaker {
public:
    QzFuzzScriptValues const &GetValues() const { return m_values; }

    template <typename Value>
    void Scalar(Value (QzReadStream::*)(), void (QzWriteStream::*)(Value))
    {
        Value const value = Sample<Value>(m_next++);
        m_values.push_back(QzFuzzItemOf(&value, 1));
    }

    void Size()
    {
        LtInt32 const size = 7;
        m_values.push_back(QzFuzzItemOf(&size, 1));
    }

    template <typename Value>
    void Array(void (QzReadStream::*)(Value *, LtInt32),
               void (QzWriteStream::*)(Value const *, LtInt32))
    {
        LtInt32 const count = kSampleCounts[m_arrays++ % std::size(kSampleCounts)];
        std::vector<Value> values;
        for (LtInt32 i = 0; i < count; ++i)
            values.push_back(Sample<Value>(m_next++));
        m_values.push_back(QzFuzzItemOf(&count, 1));
        m_values.push_back(QzFuzzItemOf(values.data(), values.size()));
    }

    void String(bool)
    {
        char const *text = kSampleStrings[m_strings++ % std::size(kSampleStrings)];
        m_values.push_back(text == nullptr ? std::string("N") : std::string("S") + text);
    }

    void WideString(bool)
    {
        std::u16string const text = kSampleWideStrings[m_wide_strings++ % 2];
        m_values.push_back("S" + QzFuzzItemOf(text.data(), text.size()));
    }

    void Sync() {}
    void Align() {}

    template <typename Value>
    void CheckedValue(QzStream::DebugToken, Value (QzReadStream::*read)(),
                      void (QzWriteStream::*write)(Value))
    {
        Scalar(read, write);
    }

    template <typename Value>
    void CheckedRun(QzStream::DebugToken, LtInt32 count, Value (QzReadStream::*read)(),
                    void (QzWriteStream::*write)(Value))
    {
        for (LtInt32 i = 0; i < count; ++i)
            Scalar(read, write);
    }

    void Bits()
    {
        unsigned total_bits = 0;
        for (unsigned char width : kQzFuzzBitWidths) {
            unsigned const value = 0xA5C3E187u >> (32 - (width == 0 ? 1 : width));
            m_values.push_back(QzFuzzItemOf(&value, 1));
            total_bits += width;
        }
        int const words = static_cast<int>((total_bits + 31) / 32);
        m_values.push_back(QzFuzzItemOf(&words, 1));
    }

private:
    QzFuzzScriptValues m_values;
    int m_next = 0;  // index of the next scalar sample
    std::size_t m_arrays = 0;
    std::size_t m_strings = 0;
    std::size_t m_wide_strings = 0;
};

// The settings of one written stream.
struct SeedForm {
    char const *name;  // the seed's file name
    int header;
    int ascii;
    int is_double;
    int debug;
    QzStream::WideStringEncoding encoding;
    char const *format_word;  // null for none ("linull")
    bool with_pass;
};

constexpr auto kUTF8 = QzStream::eWIDE_UTF8;
constexpr auto kMultiByte = QzStream::eWIDE_MULTIBYTE;

SeedForm const kForms[] = {
    {"binary_double_release", 1, 0, 1, 0, kUTF8, nullptr, false},
    {"binary_double_debug", 1, 0, 1, 1, kUTF8, nullptr, false},
    {"binary_single_release", 1, 0, 0, 0, kUTF8, nullptr, false},
    {"binary_single_debug_c", 1, 0, 0, 1, kMultiByte, nullptr, false},
    {"binary_release_c", 1, 0, 1, 0, kMultiByte, nullptr, false},
    {"ascii_double_release", 1, 1, 1, 0, kUTF8, nullptr, false},
    {"ascii_double_debug", 1, 1, 1, 1, kUTF8, nullptr, false},
    {"ascii_single_debug_c", 1, 1, 0, 1, kMultiByte, nullptr, false},
    {"binary_release_pass", 1, 0, 1, 0, kUTF8, nullptr, true},
    {"ascii_debug_pass", 1, 1, 1, 1, kUTF8, nullptr, true},
    {"binary_release_fuzzfmt", 1, 0, 1, 0, kUTF8, "fuzzfmt", false},
    {"binary_debug_fuzzfmt3_pass", 1, 0, 1, 1, kUTF8, "fuzzfmt-3", true},
    {"ascii_release_fuzzfmt", 1, 1, 1, 0, kUTF8, "fuzzfmt", false},
    {"bare_binary_release", 0, 0, 1, 0, kUTF8, nullptr, false},
    {"bare_binary_debug", 0, 0, 1, 1, kUTF8, nullptr, false},
    {"bare_ascii_release", 0, 1, 1, 0, kUTF8, nullptr, false},
    {"bare_ascii_debug", 0, 1, 1, 1, kUTF8, nullptr, false},
};

[[noreturn]] static void Fail(char const *what)
{
    QzFuzzSeedFailed("QzReadStreamSeeds", what);
}

// Writes one stream of `form`; `write_body` writes what follows the header.
template <typename Body>
static std::string WriteStream(SeedForm const &form, QzStreamFormat const *format,
                               Body const &write_body)
{
    QzStreamBuffer buffer;
    QzFuzzPassFilter pass;
    {
        QzWriteStream writer(&buffer);
        writer.SetAscii(form.ascii);
        writer.SetDouble(form.is_double);
        writer.SetDebug(form.debug);
        writer.SetWideStringEncoding(form.encoding);
        if (form.format_word != nullptr) {
            writer.SetFormat(format);
            writer.SetFormatName(form.format_word);
        }
        if (form.with_pass)
            writer.AddActiveFilter(&pass);
        if (!writer.Begin(form.header, 1))
            Fail("a writer does not begin");
        write_body(&writer);
        if (!writer.End())
            Fail("a writer does not end cleanly");
    }
    return std::string(reinterpret_cast<char const *>(buffer.GetAlignedBuffer()),
                       static_cast<std::size_t>(buffer.GetAlignedSize()));
}

static std::string WriteScript(SeedForm const &form, QzStreamFormat const *format,
                               QzFuzzScriptValues const &values)
{
    return WriteStream(form, format, [&values](QzWriteStream *writer) {
        QzFuzzScriptWriter script(writer, &values);
        QzWalkFuzzScript(script);
        if (!script.IsComplete())
            Fail("the script left values unwritten");
    });
}

static void WriteSeed(std::filesystem::path const &folder, char const *name,
                      std::string const &bytes)
{
    QzFuzzWriteSeed("QzReadStreamSeeds", folder, name, bytes);
}

// The offset of the header line's line feed.
static std::size_t HeaderEnd(std::string const &stream)
{
    std::size_t const end = stream.find('\n');
    if (end == std::string::npos)
        Fail("a stream has no header line");
    return end;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus folder>\n", argv[0]);
        return 2;
    }
    std::filesystem::path const folder = argv[1];
    std::filesystem::create_directories(folder);
    QzStream::Initialise();
    QzStreamFormat format("fuzzfmt", /*extendable=*/true);
    QzFuzzSetUpFormat(&format);
    SampleMaker samples;
    QzWalkFuzzScript(samples);
    QzFuzzScriptValues const &values = samples.GetValues();

    for (SeedForm const &form : kForms)
        WriteSeed(folder, form.name, WriteScript(form, &format, values));

    SeedForm const &binary = kForms[0];
    SeedForm const &ascii_debug = kForms[6];
    std::string const binary_stream = WriteScript(binary, &format, values);
    std::string const ascii_stream = WriteScript(ascii_debug, &format, values);
    auto const empty_body = [](QzWriteStream *) {};
    WriteSeed(folder, "header_only_binary", WriteStream(binary, &format, empty_body));
    WriteSeed(folder, "header_only_ascii", WriteStream(ascii_debug, &format, empty_body));
    // Cut in the middle of the 20-byte Nat8 array, the script's 19th value.
    std::string const &nat8_array = values[18];
    std::size_t const nat8_at = binary_stream.find(nat8_array);
    if (nat8_array.size() != 20 || nat8_at == std::string::npos)
        Fail("the Nat8 array is not where the cut expects it");
    WriteSeed(folder, "cut_in_array_binary", binary_stream.substr(0, nat8_at + 10));
    std::size_t const nat8_token_at = ascii_stream.find("Nat8Array 20\n");
    if (nat8_token_at == std::string::npos)
        Fail("the Nat8 array's token is not where the cut expects it");
    WriteSeed(folder, "cut_in_array_ascii", ascii_stream.substr(0, nat8_token_at + 30));

    // The header line of 49 bytes is padded with 7 zero bytes; the last one
    // is made non-zero.
    std::size_t const binary_header_end = HeaderEnd(binary_stream);
    if ((binary_header_end + 1) % 8 == 0)
        Fail("the binary header line has no padding");
    std::string bad_padding = binary_stream;
    bad_padding[(binary_header_end + 8) / 8 * 8 - 1] = 'x';
    WriteSeed(folder, "nonzero_header_padding", bad_padding);

    // CR LF line ends: ascii takes the CR as it is; binary gives up one byte
    // of padding for it, so that the data stay where they were.
    std::string crlf_ascii = ascii_stream;
    crlf_ascii.insert(HeaderEnd(crlf_ascii), "\r");
    WriteSeed(folder, "crlf_header_ascii", crlf_ascii);
    std::string crlf_binary = binary_stream;
    crlf_binary.erase(binary_header_end + 1, 1);
    crlf_binary.insert(binary_header_end, "\r");
    WriteSeed(folder, "crlf_header_binary", crlf_binary);

    // An extension list with one record (index, name, parent) before its
    // end mark: the header names the format, which the writer does not
    // have, so that the list is left to be written by hand.
    SeedForm const named = {"", 1, 0, 1, 0, kUTF8, "fuzzfmt", false};
    WriteSeed(folder, "extension_record", WriteStream(named, nullptr, [&](QzWriteStream *writer) {
                  writer->WriteInt32(5);
                  writer->WriteString("Spline");
                  writer->WriteInt32(1);
                  writer->WriteInt32(-1);
                  QzFuzzScriptWriter script(writer, &values);
                  QzWalkFuzzScript(script);
              }));
    return 0;
}
