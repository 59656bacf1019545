// QzSysStringCodePage.cpp: QzSysString's conversions between UTF-16 and the
// multi-byte code page, and between UTF-16 and ASCII. The four-argument
// forms keep the original platform's conventions: a length of -1 means
// nul-terminated (the nul is converted and counted), an output count of 0
// asks for the size, and 0 is the failure result. The three-argument forms
// take C strings: the size counts the nul, a null output asks for the
// length, and -1 is the failure result.
#include <algorithm>
#include <climits>
#include <string>

#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCodePage.h"
#include "qzutil/sys/internal/QzSysStringUnits.h"

namespace {

// Where converted characters go: the caller's buffer, or nowhere for a size
// query.
template <typename Unit>
struct ConversionOutput {
    Unit *out;             // nullptr: count only
    std::size_t capacity;  // units of out
    std::size_t length;    // units produced so far
    bool is_too_small;
};

}  // namespace

template <typename Unit>
static bool StoreCharacter(void *context, Unit const *units, std::size_t count)
{
    auto *output = static_cast<ConversionOutput<Unit> *>(context);
    if (output->out != nullptr) {
        if (count > output->capacity - output->length) {
            output->is_too_small = true;
            return false;
        }
        std::copy(units, units + count, output->out + output->length);
    }
    output->length += count;
    return true;
}

// Checks the arguments and resolves a length of -1. Returns false for a null
// or empty input, a length below -1, or an output that does not match its
// count.
template <typename Input, typename Unit>
static bool PrepareConversion(Input const *text, int length, Unit *out, int out_count,
                              std::size_t *input_length, ConversionOutput<Unit> *output)
{
    if (text == nullptr || length == 0 || length < -1 || out_count < 0 ||
        (out == nullptr && out_count > 0))
        return false;
    *input_length =
        length == -1 ? std::char_traits<Input>::length(text) + 1 : static_cast<std::size_t>(length);
    *output = {out_count == 0 ? nullptr : out, static_cast<std::size_t>(out_count), 0, false};
    return true;
}

// The unit count, or 0 when the output was too small or the count would not
// fit the int result.
template <typename Unit>
static int ConversionResult(ConversionOutput<Unit> const &output)
{
    if (output.is_too_small || output.length > static_cast<std::size_t>(INT_MAX))
        return 0;
    return static_cast<int>(output.length);
}

// Runs convert(source, length, output) from a C string into dest under the
// C-string conventions. Returns the length without the nul, or -1 (and ""
// in a dest with room) on failure.
template <typename Input, typename Unit, typename Convert>
static int ConvertTerminated(Input const *source, Unit *dest, std::size_t size, Convert convert)
{
    if (dest != nullptr && size == 0)
        return -1;
    bool is_converted = false;
    ConversionOutput<Unit> output{dest, 0, 0, false};
    if (dest != nullptr)
        output.capacity = std::min(size - 1, static_cast<std::size_t>(INT_MAX));
    if (source != nullptr)
        is_converted = convert(source, std::char_traits<Input>::length(source), &output);
    if (!is_converted || output.is_too_small || output.length > static_cast<std::size_t>(INT_MAX)) {
        if (dest != nullptr)
            dest[0] = 0;
        return -1;
    }
    if (dest != nullptr)
        dest[output.length] = 0;
    return static_cast<int>(output.length);
}

// Passes each unit of text to the output unchanged. Returns false at the
// first unit above 0x7F.
template <typename Input, typename Unit>
static bool ConvertAscii(Input const *text, std::size_t length, ConversionOutput<Unit> *output)
{
    for (std::size_t i = 0; i < length; ++i) {
        LtNat32 code = QzStringUnits<Input>::Code(text[i]);
        if (code > 0x7F)
            return false;
        Unit unit = static_cast<Unit>(code);
        if (!StoreCharacter<Unit>(output, &unit, 1))
            break;
    }
    return true;
}

static bool DecodeStrict(char const *text, std::size_t length, ConversionOutput<LtWChar> *output)
{
    return QzSysCodePage::Decode(text, length, /*replace_invalid=*/false, &StoreCharacter<LtWChar>,
                                 output);
}

static bool EncodeReplacing(LtWChar const *text, std::size_t length, ConversionOutput<char> *output)
{
    QzSysCodePage::Encode(text, length, &StoreCharacter<char>, output);
    return true;
}

bool QzSysString::IsMultiByteUTF8()
{
    return QzSysCodePage::IsUTF8();
}

int QzSysString::MultiByteToWideChar(char const *text, int length, LtWChar *out, int out_count)
{
    std::size_t input_length = 0;
    ConversionOutput<LtWChar> output{};
    if (!PrepareConversion(text, length, out, out_count, &input_length, &output))
        return 0;
    if (!QzSysCodePage::Decode(text, input_length, /*replace_invalid=*/false,
                               &StoreCharacter<LtWChar>, &output))
        return 0;
    return ConversionResult(output);
}

int QzSysString::WideCharToMultiByte(LtWChar const *text, int length, char *out, int out_count)
{
    std::size_t input_length = 0;
    ConversionOutput<char> output{};
    if (!PrepareConversion(text, length, out, out_count, &input_length, &output))
        return 0;
    QzSysCodePage::Encode(text, input_length, &StoreCharacter<char>, &output);
    return ConversionResult(output);
}

int QzSysString::AsciiToWideChar(char const *source, LtWChar *dest, std::size_t size)
{
    return ConvertTerminated(source, dest, size, &ConvertAscii<char, LtWChar>);
}

int QzSysString::WideCharToAscii(LtWChar const *source, char *dest, std::size_t size)
{
    return ConvertTerminated(source, dest, size, &ConvertAscii<LtWChar, char>);
}

int QzSysString::MultiByteToWideChar(char const *source, LtWChar *dest, std::size_t size)
{
    return ConvertTerminated(source, dest, size, &DecodeStrict);
}

int QzSysString::WideCharToMultiByte(LtWChar const *source, char *dest, std::size_t size)
{
    return ConvertTerminated(source, dest, size, &EncodeReplacing);
}
