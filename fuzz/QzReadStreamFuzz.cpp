// QzReadStreamFuzz.cpp: libFuzzer target for the typed read stream. Each input
// is read by a fixed script of every typed read: twice as a stream with its
// own header (once plain, once with a format and a filter on offer and the
// format checked), and four times without one, in each of the binary and
// ascii, release and debug forms. Besides not crashing: a stream in error
// reads only zeros, End answers 0 exactly for a failed run, no QzMemory block
// outlives the input, and what a clean binary run read writes back through
// QzWriteStream and reads again as the very same values.
#include "qzutil/stream/QzReadStream.h"

#include "QzFuzzCheck.h"
#include "QzFuzzStreams.h"
#include "QzReadStreamFuzzScript.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/stream/QzStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Streams of this size already reach every path; longer ones only cost time.
constexpr std::size_t kMaxInputBytes = 64 * 1024;
// The largest array the script accepts; bigger sizes are parse errors.
constexpr int kMaxArraySize = 4096;
// Elements read into each array once the stream is in error (its sizes then
// read as 0), so that zero-filling has something to fill.
constexpr LtInt32 kProbeCount = 5;
// What every array holds before a read, so that an element left alone shows.
constexpr unsigned char kFillByte = 0xA5;

// Longer than any message that a stream posts.

// The format on offer. Its first use is in SetUpOnce, before any input is
// measured for blocks that did not go back.
static QzStreamFormat const *OfferedFormat()
{
    static QzStreamFormat const format = [] {
        QzStreamFormat made("fuzzfmt", /*extendable=*/true);
        QzFuzzSetUpFormat(&made);
        return made;
    }();
    return &format;
}

static void SetUpOnce()
{
    static bool is_set_up = false;
    if (is_set_up)
        return;
    is_set_up = true;
    QzFuzzSetUpStreams();
    (void)OfferedFormat();
}

template <typename Value>
static bool IsAllZero(Value const *values, std::size_t count)
{
    auto const *bytes = reinterpret_cast<unsigned char const *>(values);
    return std::all_of(bytes, bytes + sizeof(Value) * count,
                       [](unsigned char b) { return b == 0; });
}

// Reads the script and keeps what it read, checking as it goes that a stream
// in error gives only zeros and null strings.
class ScriptReader {
public:
    explicit ScriptReader(QzReadStream *reader) : m_reader(reader) {}

    QzFuzzScriptValues const &GetValues() const { return m_values; }

    template <typename Value>
    void Scalar(Value (QzReadStream::*read)(), void (QzWriteStream::*)(Value))
    {
        bool const was_error = m_reader->IsError();
        Value const value = (m_reader->*read)();
        if (was_error)
            QZ_FUZZ_CHECK(IsAllZero(&value, 1), "a stream in error reads scalars as 0");
        if constexpr (std::is_same_v<Value, LtSingle>) {
            if (m_reader->IsError())
                QZ_FUZZ_CHECK(IsAllZero(&value, 1), "ReadSingle gives 0 once in error");
        }
        m_values.push_back(QzFuzzItemOf(&value, 1));
    }

    void Size()
    {
        bool const was_error = m_reader->IsError();
        LtInt32 const size = m_reader->ReadArraySize32();
        QZ_FUZZ_CHECK(size >= 0, "ReadArraySize32 never gives a negative size");
        QZ_FUZZ_CHECK(!was_error || size == 0, "a stream in error reads sizes as 0");
        m_values.push_back(QzFuzzItemOf(&size, 1));
    }

    template <typename Value>
    void Array(void (QzReadStream::*read)(Value *, LtInt32),
               void (QzWriteStream::*)(Value const *, LtInt32))
    {
        bool was_error = m_reader->IsError();
        LtInt32 const size = m_reader->ReadArraySize32WithMaximum(kMaxArraySize);
        QZ_FUZZ_CHECK(size >= 0 && size <= kMaxArraySize, "array sizes keep to their maximum");
        QZ_FUZZ_CHECK(!was_error || size == 0, "a stream in error reads sizes as 0");
        m_values.push_back(QzFuzzItemOf(&size, 1));
        was_error = m_reader->IsError();
        LtInt32 const count = was_error ? kProbeCount : size;
        std::vector<Value> values(static_cast<std::size_t>(count));
        std::fill_n(reinterpret_cast<unsigned char *>(values.data()), values.size() * sizeof(Value),
                    kFillByte);
        (m_reader->*read)(values.data(), count);
        if (was_error)
            QZ_FUZZ_CHECK(IsAllZero(values.data(), values.size()),
                          "a stream in error zero-fills arrays");
        m_values.push_back(QzFuzzItemOf(values.data(), values.size()));
    }

    void String(bool use_temp_buffer)
    {
        bool const was_error = m_reader->IsError();
        QzStringBuffer buffer("stale");
        char const *text = nullptr;
        if (use_temp_buffer) {
            text = m_reader->ReadStringUsingTempBuffer();
        } else {
            m_reader->ReadString(&buffer);
            text = buffer.GetString();
            QZ_FUZZ_CHECK(text == nullptr ||
                              buffer.GetLength() == static_cast<int>(std::strlen(text)),
                          "a string read ends at its first NUL");
        }
        if (was_error)
            QZ_FUZZ_CHECK(text == nullptr, "a stream in error reads strings as null");
        m_values.push_back(text == nullptr ? std::string("N") : std::string("S") + text);
    }

    void WideString(bool use_temp_buffer)
    {
        bool const was_error = m_reader->IsError();
        QzWideStringBuffer buffer(u"stale");
        LtWChar const *text = nullptr;
        if (use_temp_buffer) {
            text = m_reader->ReadWideStringUsingTempBuffer();
        } else {
            m_reader->ReadWideString(&buffer);
            text = buffer.GetString();
        }
        if (was_error)
            QZ_FUZZ_CHECK(text == nullptr, "a stream in error reads wide strings as null");
        m_values.push_back(
            text == nullptr ? std::string("N")
                            : "S" + QzFuzzItemOf(text, std::char_traits<char16_t>::length(text)));
    }

    void Sync() { m_reader->ReadSync(); }
    void Align() { m_reader->RequireAlignment(8); }

    template <typename Value>
    void CheckedValue(QzStream::DebugToken token, Value (QzReadStream::*read)(),
                      void (QzWriteStream::*write)(Value))
    {
        m_reader->CheckDebug(token);
        Scalar(read, write);
    }

    template <typename Value>
    void CheckedRun(QzStream::DebugToken token, LtInt32 count, Value (QzReadStream::*read)(),
                    void (QzWriteStream::*write)(Value))
    {
        m_reader->CheckDebug(token, count);
        for (LtInt32 i = 0; i < count; ++i)
            Scalar(read, write);
    }

    void Bits()
    {
        m_reader->BeginBits();
        unsigned total_bits = 0;
        for (unsigned char width : kQzFuzzBitWidths) {
            bool const was_error = m_reader->IsError();
            unsigned const value = m_reader->ReadBits(width);
            QZ_FUZZ_CHECK(width >= 32 || value >> width == 0, "ReadBits gives at most its width");
            QZ_FUZZ_CHECK(!was_error || value == 0, "a stream in error reads bits as 0");
            m_values.push_back(QzFuzzItemOf(&value, 1));
            total_bits += width;
        }
        int const words = m_reader->EndBits();
        // A word is taken whenever bits are wanted and none are held, error or not.
        QZ_FUZZ_CHECK(words == static_cast<int>((total_bits + 31) / 32),
                      "EndBits counts the words the widths need");
        m_values.push_back(QzFuzzItemOf(&words, 1));
    }

private:
    QzReadStream *m_reader;  // borrowed
    QzFuzzScriptValues m_values;
};

// How one run is set up.
struct RunSetup {
    int read_config;
    int check_format;
    bool offers_format_and_filter;
    int ascii;  // the form of runs without a header
    int debug;
};

constexpr RunSetup kRuns[] = {
    {1, 0, false, 0, 0},  // the header decides; any format word goes, no filter
    {1, 1, true, 0, 0},   // "fuzzfmt" and "pass" on offer, the format word checked
    {0, 0, false, 0, 0},  // no header: binary release
    {0, 0, false, 0, 1},  // binary debug
    {0, 0, false, 1, 0},  // ascii release
    {0, 0, false, 1, 1},  // ascii debug
};

// What a run read, and the settings that a writer needs to write it again.
struct RunOutcome {
    QzFuzzScriptValues values;
    bool is_clean = false;  // begun, and the whole script read without error
    bool is_ended = false;  // End(1) answered non-zero
    bool is_binary_release = false;
    int is_double = 1;
    QzStream::WideStringEncoding encoding = QzStream::eWIDE_UTF8;
    QzStreamFormat const *format = nullptr;
    bool has_filter = false;
};

static RunOutcome ReadRun(QzStreamSink *sink, RunSetup const &setup)
{
    QzFuzzPassFilter pass;
    QzReadStream reader(sink);
    if (setup.offers_format_and_filter) {
        reader.AddAvailableFormat(OfferedFormat());
        reader.AddAvailableFilter(&pass);
    }
    reader.SetAscii(setup.ascii);
    reader.SetDebug(setup.debug);
    int const is_begun = reader.Begin(setup.read_config, setup.check_format);
    QZ_FUZZ_CHECK(!is_begun || !reader.IsError(), "a run begins without error");
    QZ_FUZZ_CHECK(is_begun || setup.read_config, "a run without header always begins");
    if (is_begun && reader.GetFormat() != nullptr) {
        QZ_FUZZ_CHECK(reader.GetFormat() == OfferedFormat(), "only the offered format is taken");
        int const version = reader.GetCurrentReadVersion();
        QZ_FUZZ_CHECK(version >= 1 && version <= kQzFuzzFormatVersion,
                      "the read version is the format's or an earlier one");
    }

    ScriptReader script(&reader);
    QzWalkFuzzScript(script);
    RunOutcome outcome;
    outcome.values = script.GetValues();
    outcome.is_clean = is_begun && !reader.IsError();
    outcome.is_binary_release = !reader.IsAscii() && !reader.IsDebug();
    outcome.is_double = reader.IsDouble();
    outcome.encoding = reader.GetWideStringEncoding();
    outcome.format = reader.GetFormat();
    outcome.has_filter = reader.GetNumActiveFilters() > 0;

    bool const was_error = reader.IsError();
    outcome.is_ended = reader.End(1) != 0;
    QZ_FUZZ_CHECK(!was_error || reader.IsError(), "an error stays through End");
    QZ_FUZZ_CHECK(outcome.is_ended == (is_begun && !reader.IsError()),
                  "End answers 0 exactly for a run in error or never begun");
    return outcome;
}

// Writes what a clean binary release run read, with its settings and header,
// and reads that again: the values must come back bit for bit.
static void CheckRoundTrip(RunSetup const &setup, RunOutcome const &first)
{
    QzStreamBuffer written;
    {
        QzFuzzPassFilter pass;
        QzWriteStream writer(&written);
        writer.SetDouble(first.is_double);
        writer.SetWideStringEncoding(first.encoding);
        writer.SetFormat(first.format);
        if (first.has_filter)
            writer.AddActiveFilter(&pass);
        QZ_FUZZ_CHECK(writer.Begin(1, 1), "the writer begins");
        QzFuzzScriptWriter script(&writer, &first.values);
        QzWalkFuzzScript(script);
        QZ_FUZZ_CHECK(script.IsComplete(), "the writer takes every value read");
        QZ_FUZZ_CHECK(writer.End(), "values read write back without error");
    }
    RunOutcome const second = ReadRun(&written, setup);
    QZ_FUZZ_CHECK(second.is_clean && second.is_ended, "values written back read without error");
    QZ_FUZZ_CHECK(second.values == first.values, "values written back read the same");
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    SetUpOnce();
    QzFuzzMemoryBalance const balance;
    size = std::min(size, kMaxInputBytes);
    std::vector<unsigned char> bytes(data, data + size);
    QzStreamBuffer input;
    QZ_FUZZ_CHECK(
        input.SetBuffer(bytes.data(), static_cast<int>(bytes.size()), QzStreamBuffer::HintCopy),
        "the input fits a stream buffer");
    for (RunSetup const &setup : kRuns) {
        RunOutcome const outcome = ReadRun(&input, setup);
        if (setup.read_config && outcome.is_clean && outcome.is_binary_release)
            CheckRoundTrip(setup, outcome);
    }
    return 0;
}
