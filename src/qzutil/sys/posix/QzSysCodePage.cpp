// QzSysCodePage.cpp: the multi-byte code page on glibc. The codeset comes
// from nl_langinfo(CODESET) of the calling thread's locale; UTF-8 (and the C
// locale) is handled by the library's codec, anything else by iconv through
// UTF-16LE, the byte order of LtWChar on the little-endian targets we build.
#include "qzutil/sys/internal/QzSysCodePage.h"

#include <iconv.h>
#include <langinfo.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "qzutil/sys/internal/QzUtf8.h"

namespace {

constexpr LtWChar kReplacementCharacter = 0xFFFD;
constexpr char kUnmappableCharacter = '?';
constexpr std::size_t kIconvFailed = static_cast<std::size_t>(-1);
// A thread rarely meets more than one or two codesets; beyond four the
// oldest descriptors are closed and reopened when needed again.
constexpr std::size_t kCachedCodesets = 4;
// glibc's codeset names ("ISO-8859-15", "EUC-JP", "GB18030") are far shorter.
constexpr std::size_t kMaxCodesetName = 40;
// Room for one character of any codeset, shift sequences included.
constexpr std::size_t kMaxEncodedCharacterBytes = 32;
constexpr std::size_t kDecodeChunkUnits = 256;

// The two iconv descriptors of one codeset.
struct CodesetConverters {
    char codeset[kMaxCodesetName];  // nul-terminated; empty: the slot is free
    iconv_t to_wide;                // codeset to UTF-16LE
    iconv_t from_wide;              // UTF-16LE to codeset
};

// The iconv descriptors of the codesets a thread used last.
//
// Ownership: owns the descriptors; closes them when the thread ends.
// Threads:   one instance per thread (thread_local), so no lock.
// Invariant: a slot with a codeset name holds two open descriptors.
class ThreadConverterCache {
public:
    constexpr ThreadConverterCache() = default;
    ThreadConverterCache(ThreadConverterCache const &) = delete;
    ThreadConverterCache &operator=(ThreadConverterCache const &) = delete;
    ~ThreadConverterCache();

    // The descriptors for `codeset`, opened on first use; nullptr when iconv
    // does not know the codeset or its name is too long to keep.
    CodesetConverters *Find(char const *codeset);

private:
    static void Close(CodesetConverters *slot);

    CodesetConverters m_slots[kCachedCodesets] = {};
    std::size_t m_next_slot = 0;  // the slot to reuse when all are taken
};

// Where iconv stopped on input it could not decode.
struct DecodeStop {
    int error;           // 0: the input ended or the sink stopped; else EILSEQ or EINVAL
    std::size_t offset;  // bytes before the bad sequence
};

}  // namespace

ThreadConverterCache::~ThreadConverterCache()
{
    // Slots are left free, not just closed: on the main thread, code run at
    // exit after this destructor would otherwise use closed descriptors.
    for (CodesetConverters &slot : m_slots)
        Close(&slot);
}

void ThreadConverterCache::Close(CodesetConverters *slot)
{
    if (slot->codeset[0] == '\0')
        return;
    (void)iconv_close(slot->to_wide);  // fails only for a bad descriptor
    (void)iconv_close(slot->from_wide);
    slot->codeset[0] = '\0';
}

CodesetConverters *ThreadConverterCache::Find(char const *codeset)
{
    std::size_t name_length = std::strlen(codeset);
    if (name_length == 0 || name_length >= kMaxCodesetName)
        return nullptr;
    for (CodesetConverters &slot : m_slots) {
        if (std::strcmp(slot.codeset, codeset) == 0)
            return &slot;
    }
    iconv_t const failed = reinterpret_cast<iconv_t>(static_cast<std::intptr_t>(-1));
    iconv_t to_wide = iconv_open("UTF-16LE", codeset);
    if (to_wide == failed)
        return nullptr;
    iconv_t from_wide = iconv_open(codeset, "UTF-16LE");
    if (from_wide == failed) {
        (void)iconv_close(to_wide);
        return nullptr;
    }
    CodesetConverters *slot = &m_slots[m_next_slot];
    m_next_slot = (m_next_slot + 1) % kCachedCodesets;
    Close(slot);
    std::memcpy(slot->codeset, codeset, name_length + 1);
    slot->to_wide = to_wide;
    slot->from_wide = from_wide;
    return slot;
}

static bool IsUtf8Codeset(char const *codeset)
{
    // glibc's C and POSIX locales say ASCII but refuse every byte from 0x80
    // up; treating them as UTF-8 lets a program that never called setlocale
    // handle non-ASCII text.
    return codeset == nullptr || codeset[0] == '\0' || std::strcmp(codeset, "UTF-8") == 0 ||
           std::strcmp(codeset, "ANSI_X3.4-1968") == 0;
}

// The iconv descriptors for the calling thread's codeset, or nullptr when
// that codeset is read and written as UTF-8.
static CodesetConverters *CurrentConverters()
{
    char const *codeset = nl_langinfo(CODESET);
    if (IsUtf8Codeset(codeset))
        return nullptr;
    // Constant-initialised; its destructor is registered on a thread's first
    // call and closes that thread's descriptors when the thread ends.
    static thread_local ThreadConverterCache cache;
    return cache.Find(codeset);
}

static void ResetShiftState(iconv_t converter)
{
    (void)iconv(converter, nullptr, nullptr, nullptr, nullptr);  // cannot fail
}

static bool DecodeUtf8(char const *text, std::size_t length, bool replace_invalid,
                       QzCharacterSink<LtWChar> sink, void *context)
{
    std::size_t offset = 0;
    while (offset < length) {
        LtNat32 code_point = kReplacementCharacter;
        int consumed = QzUtf8::DecodeCharacter(text + offset, length - offset, &code_point);
        if (consumed < 0) {
            if (!replace_invalid)
                return false;
            consumed = -consumed;  // code_point is still U+FFFD
        }
        LtWChar units[QzUtf16::kMaxCharacterUnits];
        int unit_count = QzUtf16::EncodeCharacter(code_point, units);
        if (!sink(context, units, static_cast<std::size_t>(unit_count)))
            return true;
        offset += static_cast<std::size_t>(consumed);
    }
    return true;
}

// Passes UTF-16 from iconv on character by character. iconv writes whole
// characters only, so a pair is never split across two chunks.
static bool SendUtf16Characters(LtWChar const *units, std::size_t count,
                                QzCharacterSink<LtWChar> sink, void *context)
{
    std::size_t offset = 0;
    while (offset < count) {
        auto character_units =
            static_cast<std::size_t>(QzUtf16::CharacterUnits(units + offset, count - offset));
        if (!sink(context, units + offset, character_units))
            return false;
        offset += character_units;
    }
    return true;
}

// Decodes with iconv until the input ends, the sink stops, or a sequence
// cannot be decoded; says which.
static DecodeStop DecodeUntilInvalid(iconv_t converter, char const *text, std::size_t length,
                                     QzCharacterSink<LtWChar> sink, void *context)
{
    ResetShiftState(converter);
    // iconv's prototype wants char **, but it only reads the input.
    char *input = const_cast<char *>(text);
    std::size_t input_left = length;
    while (input_left > 0) {
        LtWChar chunk[kDecodeChunkUnits];
        char *output = reinterpret_cast<char *>(chunk);
        std::size_t output_left = sizeof chunk;
        std::size_t result = iconv(converter, &input, &input_left, &output, &output_left);
        int error = errno;  // read at once: the sink may change errno
        std::size_t units = (sizeof chunk - output_left) / sizeof(LtWChar);
        if (!SendUtf16Characters(chunk, units, sink, context))
            break;
        if (result != kIconvFailed || (error == E2BIG && units > 0))
            continue;
        // EILSEQ: an invalid sequence; EINVAL: a sequence cut by the end of the
        // input. Any other error is taken as EILSEQ, so the caller moves on.
        return {error == EINVAL ? EINVAL : EILSEQ, static_cast<std::size_t>(input - text)};
    }
    return {0, length};
}

static bool DecodeWithIconv(iconv_t converter, char const *text, std::size_t length,
                            bool replace_invalid, QzCharacterSink<LtWChar> sink, void *context)
{
    std::size_t offset = 0;
    for (;;) {
        DecodeStop stop =
            DecodeUntilInvalid(converter, text + offset, length - offset, sink, context);
        if (stop.error == 0)
            return true;
        if (!replace_invalid)
            return false;
        if (!sink(context, &kReplacementCharacter, 1))
            return true;
        offset += stop.offset + 1;  // one byte is replaced; decoding resumes after it
    }
}

// Passes each character of UTF-16 text on: a pair or a single unit, or "?"
// for a lone surrogate, which no codeset can represent.
template <typename EncodeCharacter>
static void ForEachWideCharacter(LtWChar const *text, std::size_t length,
                                 QzCharacterSink<char> sink, void *context,
                                 EncodeCharacter const &encode)
{
    std::size_t offset = 0;
    while (offset < length) {
        auto units =
            static_cast<std::size_t>(QzUtf16::CharacterUnits(text + offset, length - offset));
        char bytes[kMaxEncodedCharacterBytes];
        bytes[0] = kUnmappableCharacter;
        std::size_t byte_count = 1;
        if (units == 2 || !QzUtf16::IsSurrogate(text[offset]))
            byte_count = encode(text + offset, units, bytes);
        if (!sink(context, bytes, byte_count))
            return;
        offset += units;
    }
}

static void EncodeUtf8(LtWChar const *text, std::size_t length, QzCharacterSink<char> sink,
                       void *context)
{
    ForEachWideCharacter(
        text, length, sink, context, [](LtWChar const *units, std::size_t count, char *bytes) {
            LtNat32 code_point = count == 2 ? QzUtf16::CombinePair(units[0], units[1]) : units[0];
            return static_cast<std::size_t>(QzUtf8::EncodeCharacter(code_point, bytes));
        });
}

static void EncodeWithIconv(iconv_t converter, LtWChar const *text, std::size_t length,
                            QzCharacterSink<char> sink, void *context)
{
    ResetShiftState(converter);
    ForEachWideCharacter(
        text, length, sink, context,
        [converter](LtWChar const *units, std::size_t count, char *bytes) -> std::size_t {
            char *input = reinterpret_cast<char *>(const_cast<LtWChar *>(units));
            std::size_t input_left = count * sizeof(LtWChar);
            char *output = bytes;
            std::size_t output_left = kMaxEncodedCharacterBytes;
            if (iconv(converter, &input, &input_left, &output, &output_left) == kIconvFailed) {
                // EILSEQ: the codeset lacks the character.
                bytes[0] = kUnmappableCharacter;
                return 1;
            }
            return kMaxEncodedCharacterBytes - output_left;
        });
    // A stateful codeset may end in a shift sequence back to its initial state.
    char bytes[kMaxEncodedCharacterBytes];
    char *output = bytes;
    std::size_t output_left = sizeof bytes;
    if (iconv(converter, nullptr, nullptr, &output, &output_left) != kIconvFailed &&
        output_left < sizeof bytes)
        (void)sink(context, bytes, sizeof bytes - output_left);  // the last call either way
}

static bool DiscardCharacter(void *, LtWChar const *, std::size_t)
{
    return true;
}

bool QzSysCodePage::IsUTF8()
{
    return CurrentConverters() == nullptr;
}

bool QzSysCodePage::Decode(char const *text, std::size_t length, bool replace_invalid,
                           QzCharacterSink<LtWChar> sink, void *context)
{
    CodesetConverters *converters = CurrentConverters();
    if (converters == nullptr)
        return DecodeUtf8(text, length, replace_invalid, sink, context);
    return DecodeWithIconv(converters->to_wide, text, length, replace_invalid, sink, context);
}

void QzSysCodePage::Encode(LtWChar const *text, std::size_t length, QzCharacterSink<char> sink,
                           void *context)
{
    CodesetConverters *converters = CurrentConverters();
    if (converters == nullptr)
        EncodeUtf8(text, length, sink, context);
    else
        EncodeWithIconv(converters->from_wide, text, length, sink, context);
}

std::size_t QzSysCodePage::WholeCharacterPrefix(char const *text, std::size_t length)
{
    CodesetConverters *converters = CurrentConverters();
    if (converters == nullptr)
        return length - QzUtf8::IncompleteTailLength(text, length);
    // Only iconv knows where characters of other codesets end: decode, step
    // over invalid bytes, and stop at a sequence cut by the end.
    std::size_t offset = 0;
    for (;;) {
        DecodeStop stop = DecodeUntilInvalid(converters->to_wide, text + offset, length - offset,
                                             &DiscardCharacter, nullptr);
        if (stop.error == 0)
            return length;
        if (stop.error == EINVAL)
            return offset + stop.offset;
        offset += stop.offset + 1;
    }
}
